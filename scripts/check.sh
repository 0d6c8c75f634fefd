#!/usr/bin/env bash
# Extra checks beyond the release tests:
#   1. the whole test suite under AddressSanitizer + UndefinedBehaviorSanitizer
#      (any report fails it);
#   2. the i386 record layout: the public headers and their static_asserts
#      compiled with g++ -m32 (nothing is run).
set -eu
cd "$(dirname "$0")/.."
jobs=${JOBS:-2}

echo "== i386 layout check"
g++ -m32 -std=c++17 -fsyntax-only -Wall -Wextra -Iinclude tests/layout/layout_check.cpp
echo "i386 layout ok"

echo "== sanitizer build and tests"
cmake -S . -B build-asan -DCMAKE_BUILD_TYPE=RelWithDebInfo -DTAVRIN_SANITIZE=ON >/dev/null
cmake --build build-asan -j "$jobs"
# halt_on_error/abort make any report fail the test that caused it
export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1:halt_on_error=1
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
ctest --test-dir build-asan --output-on-failure -j "$jobs" -E '^install_example$'
