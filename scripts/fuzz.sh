#!/usr/bin/env bash
# Builds the libFuzzer harnesses of fuzz/ with clang and runs each one for
# VELL_FUZZ_SECONDS seconds (default 60) on its seed corpus. A longer run:
#   VELL_FUZZ_SECONDS=3600 bash scripts/fuzz.sh [name_fuzzer ...]
set -euo pipefail
cd "$(dirname "$0")/.."
root=$(pwd)
out=${VELL_FUZZ_BUILD:-$root/build-fuzz}
seconds=${VELL_FUZZ_SECONDS:-60}
mkdir -p "$out"
CC=clang CXX=clang++ cmake -S "$root" -B "$out" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DVELL_BUILD_FUZZ=ON \
  -DVELL_BUILD_TESTS=OFF -DVELL_BUILD_TOOL=OFF >"$out/configure.log" 2>&1 || { cat "$out/configure.log"; exit 1; }
names=("$@")
if [ ${#names[@]} -eq 0 ]; then
  for f in "$root"/fuzz/*_fuzzer.cpp; do
    [ -e "$f" ] && names+=("$(basename "$f" .cpp)")
  done
fi
if [ ${#names[@]} -eq 0 ]; then
  echo "=== no fuzzers in fuzz/"
  exit 0
fi
cmake --build "$out" -j"$(nproc)" --target "${names[@]}"
for name in "${names[@]}"; do
  corpus=$root/fuzz/corpus/${name%_fuzzer}
  work=$out/corpus/${name%_fuzzer}
  mkdir -p "$work" "$corpus"
  echo "=== $name for ${seconds}s"
  (cd "$out" && ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=halt_on_error=1:print_stacktrace=1 \
    "$out/fuzz/$name" -max_total_time="$seconds" -print_final_stats=1 -rss_limit_mb=2048 "$work" "$corpus")
done
echo "=== fuzzers ran clean"
