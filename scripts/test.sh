#!/usr/bin/env bash
# Builds everything (installing what is missing) and runs the whole test suite
# twice: in the normal build, then under AddressSanitizer and UBSan.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
jobs=$(nproc)

cmake -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo -DFONTVEC_TESTS=ON \
  -DFONTVEC_BENCHMARKS=ON
cmake --build build -j"$jobs"
ctest --test-dir build --output-on-failure -j"$jobs"

cmake -S . -B build-sanitize -DCMAKE_BUILD_TYPE=Debug -DFONTVEC_TESTS=ON \
  -DFONTVEC_SANITIZE=ON
cmake --build build-sanitize -j"$jobs"
ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1 \
  ctest --test-dir build-sanitize --output-on-failure -j"$jobs"
