#!/usr/bin/env bash
# Sets up, builds with AddressSanitizer and UndefinedBehaviorSanitizer, and
# runs every test (those that compare with tshark and capinfos too), then
# the threaded tests under ThreadSanitizer, then every fuzz target over its
# seeds and for a bounded time.
# Any failure or sanitizer report fails the run.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
cd "$root"
# tshark, capinfos, tcpdump and mergecap: the peers that the capture tests
# compare with; python3-jsonschema validates the JSON document by its schema.
scripts/setup.sh tshark tcpdump python3-jsonschema
export ZEMO_REQUIRE_PEERS=1

jobs=$(nproc)
export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1:strict_string_checks=1
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1

cmake -S . -B build/test -DCMAKE_BUILD_TYPE=Debug -DZEMO_SANITIZE=ON -DZEMO_BUILD_TESTS=ON >/dev/null
cmake --build build/test -j"$jobs"
ctest --test-dir build/test --output-on-failure -j"$jobs"

# Every test again in a ThreadSanitizer build of the test program, above all
# the one whose threads share a context: any race, and any inversion of the
# lock order, fails the run.
cmake -S . -B build/tsan -DCMAKE_BUILD_TYPE=Debug -DZEMO_SANITIZE_THREAD=ON -DZEMO_BUILD_TESTS=ON >/dev/null
cmake --build build/tsan -j"$jobs" --target zemostats_tests
# The comparison with tshark counts figures, not threads: it runs once, above.
TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1 build/tsan/tests/zemostats_tests --gtest_filter=-Peers.*

# The release build with the benchmarks, so that they keep compiling (their
# figures come from runs on a quiet machine, in BENCHMARKS.md); then the
# example host, built against the installed module alone, and run.
cmake -S . -B build/release -DCMAKE_BUILD_TYPE=Release -DZEMO_BUILD_BENCH=ON -DZEMO_BUILD_TESTS=OFF >/dev/null
cmake --build build/release -j"$jobs"
scripts/example.sh

if [ -f fuzz/CMakeLists.txt ] && [ "${ZEMO_SKIP_FUZZ:-0}" != 1 ]; then
  CXX=clang++ cmake -S . -B build/fuzz -DCMAKE_BUILD_TYPE=Debug -DZEMO_BUILD_FUZZ=ON -DZEMO_BUILD_TESTS=OFF >/dev/null
  cmake --build build/fuzz -j"$jobs"
  scripts/fuzz.sh build/fuzz "${ZEMO_FUZZ_SECONDS:-600}"
fi
