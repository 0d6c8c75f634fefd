#!/usr/bin/env bash
# Extra checks beyond the release tests:
#   1. the whole test suite under AddressSanitizer + UndefinedBehaviorSanitizer
#      (any report fails it);
#   2. the i386 record layout: the public headers and their static_asserts
#      compiled with g++ -m32 (nothing is run);
#   3. ThreadSanitizer (clang with libomp, whose parallel regions the
#      sanitizer understands through the archer tool; libgomp it cannot see
#      into): the detection tests, parallel bands and concurrent detections
#      on distinct work buffers included, and the foreground dump's
#      once-only installation raced by two threads. Any report fails it.
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

echo "== ThreadSanitizer build and tests"
CC=clang-14 CXX=clang++-14 cmake -S . -B build-tsan -DCMAKE_BUILD_TYPE=RelWithDebInfo -DTAVRIN_TSAN=ON \
  -DTAVRIN_BUILD_APPS=OFF >/dev/null
tsan_targets=(debug_test_tiff_tags)
for f in tests/detect/test_*.cpp; do tsan_targets+=("detect_$(basename "$f" .cpp)"); done
cmake --build build-tsan -j "$jobs" --target "${tsan_targets[@]}"
# No suppressions. libomp is not instrumented: the archer tool gives the
# sanitizer the order of its parallel regions and barriers (named by full
# path, since a test program linked only with the library finds no
# libarcher.so on its own), and, as archer asks, accesses made inside
# uninstrumented modules (libomp's own hand-offs) are not checked.
export TSAN_OPTIONS="halt_on_error=1 second_deadlock_stack=1 ignore_noninstrumented_modules=1"
export OMP_TOOL_LIBRARIES=/usr/lib/llvm-14/lib/libarcher.so
# Only the programs above are built; the other tests stand as *_NOT_BUILT.
ctest --test-dir build-tsan --output-on-failure -j "$jobs" -E '_NOT_BUILT$|^exported_symbols$|^install_example$'
