#!/usr/bin/env bash
# The main job. Until the capture host is built, this builds the module and
# runs the test suite's smoke part: the module is loaded by path, registered,
# asked for its class objects and unregistered, as a host would.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
cd "$root"
scripts/setup.sh
cmake -S . -B build/release -DCMAKE_BUILD_TYPE=Release -DZEMO_BUILD_TESTS=ON >/dev/null
cmake --build build/release -j"$(nproc)"
build/release/tests/zemostats_tests --gtest_filter='Smoke*'
