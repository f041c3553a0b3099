#!/usr/bin/env bash
# Builds the module, installs it into build/prefix, builds the example host in
# examples/ against that installation alone, and runs it.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
cd "$root"
scripts/setup.sh
jobs=$(nproc)
cmake -S . -B build/release -DCMAKE_BUILD_TYPE=Release -DZEMO_BUILD_TESTS=OFF >/dev/null
cmake --build build/release -j"$jobs"
rm -rf build/prefix
cmake --install build/release --prefix "$root/build/prefix" >/dev/null
cmake -S examples -B build/example -DCMAKE_BUILD_TYPE=Release -DCMAKE_PREFIX_PATH="$root/build/prefix" >/dev/null
cmake --build build/example -j"$jobs"
build/example/network_host
