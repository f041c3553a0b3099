#!/usr/bin/env bash
# Runs every fuzz target over its seeds, then fuzzes each for a share of the
# time budget. Usage: fuzz.sh BUILD_DIR [TOTAL_SECONDS]
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=$1
total=${2:-600}
targets=("$build"/fuzz/fuzz_*)
[ -e "${targets[0]}" ] || { echo "fuzz: no targets in $build/fuzz"; exit 0; }
per=$(( total / ${#targets[@]} ))
[ "$per" -ge 5 ] || per=5
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
for t in "${targets[@]}"; do
  name=$(basename "$t")
  seeds="$root/fuzz/seeds/${name#fuzz_}"
  corpus="$work/$name"
  mkdir -p "$corpus"
  [ -d "$seeds" ] && cp -r "$seeds"/. "$corpus"/
  echo "fuzz: $name over its seeds, then ${per}s"
  "$t" -runs=0 "$corpus" >"$work/$name.seeds.log" 2>&1 || { cat "$work/$name.seeds.log"; exit 1; }
  "$t" -max_total_time="$per" -timeout=10 -rss_limit_mb=2048 -max_len=65536 -print_final_stats=0 \
       -artifact_prefix="$work/" "$corpus" >"$work/$name.log" 2>&1 || { tail -50 "$work/$name.log"; exit 1; }
done
echo "fuzz: ${#targets[@]} targets clean"
