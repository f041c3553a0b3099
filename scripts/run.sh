#!/usr/bin/env bash
# The main job: builds zemostats, generates the bundled sample capture if it
# is missing (a deterministic minute of traffic among 300 hosts, written to
# build/samples/, never committed) and prints its report.
# Extra arguments go to `zemostats analyze`, for example --json or --top 20.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
cd "$root"
scripts/setup.sh
cmake -S . -B build/release -DCMAKE_BUILD_TYPE=Release -DZEMO_BUILD_TESTS=OFF >/dev/null
cmake --build build/release -j"$(nproc)" --target zemostats_cli
zemostats=build/release/cli/zemostats
sample=build/samples/sample.pcap
if [ ! -f "$sample" ]; then
  mkdir -p "$(dirname "$sample")"
  "$zemostats" generate "$sample.tmp"
  mv "$sample.tmp" "$sample"
fi
"$zemostats" analyze "$@" "$sample"
