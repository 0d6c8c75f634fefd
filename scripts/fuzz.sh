#!/usr/bin/env bash
# Builds the libFuzzer targets of tests/fuzz with clang (ASan + UBSan) in
# build-fuzz and runs each one:
#   1. once over its seeds and the inputs of past findings (tests/fuzz/seeds
#      and tests/fuzz/regressions); any report fails the script;
#   2. then fuzzing for SECONDS seconds, growing build-fuzz/corpus/NAME.
# A finding is saved under build-fuzz/findings/NAME and fails the script.
#   bash scripts/fuzz.sh [SECONDS] [NAME...]     (default 10 s, every target)
set -eu
cd "$(dirname "$0")/.."
seconds=${1:-10}
shift || true
jobs=${JOBS:-2}

targets=("$@")
if [ ${#targets[@]} -eq 0 ]; then
  for f in tests/fuzz/fuzz_*.cpp; do targets+=("$(basename "$f" .cpp | sed 's/^fuzz_//')"); done
fi

CC=clang-14 CXX=clang++-14 cmake -S . -B build-fuzz -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DTAVRIN_FUZZ=ON -DTAVRIN_BUILD_TESTS=OFF >/dev/null
cmake --build build-fuzz -j "$jobs" --target "${targets[@]/#/fuzz_}"

# Allocations above 64 MiB fail as they would on a small machine: a page
# buffer then comes back null and the program reports that the page does
# not fit in memory; any other allocation of that size is a finding.
export ASAN_OPTIONS=allocator_may_return_null=1:max_allocation_size_mb=64:detect_leaks=1
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
# OpenMP workers sleep as soon as a parallel region ends instead of spinning
# for 200 ms: the detection target opens several regions per input.
export KMP_BLOCKTIME=0

# Absolute paths: a target may change its working directory.
root=$PWD
for t in "${targets[@]}"; do
  bin=$root/build-fuzz/tests/fuzz/fuzz_$t
  corpus=$root/build-fuzz/corpus/$t
  findings=$root/build-fuzz/findings/$t
  mkdir -p "$corpus" "$findings"
  known=()
  for d in "$root/tests/fuzz/seeds/$t" "$root/tests/fuzz/regressions/$t"; do
    [ -d "$d" ] && known+=("$d")
  done
  echo "== fuzz_$t: replay of ${known[*]#$root/}"
  for d in "${known[@]}"; do
    find "$d" -type f -print0 | xargs -0 -r "$bin" -timeout=60 >/dev/null 2>"$findings/replay.log" ||
      { cat "$findings/replay.log"; echo "fuzz_$t: a known input fails" >&2; exit 1; }
  done
  echo "== fuzz_$t: $seconds s"
  "$bin" "$corpus" "${known[@]}" -max_total_time="$seconds" -timeout=30 -print_final_stats=1 \
    -artifact_prefix="$findings/" 2>"$findings/fuzz.log" ||
    { tail -n 60 "$findings/fuzz.log"; echo "fuzz_$t: finding saved in $findings" >&2; exit 1; }
  grep -E '^#[0-9]+[[:space:]]+DONE' "$findings/fuzz.log" || true
done
