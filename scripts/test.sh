#!/usr/bin/env bash
# Builds vell with warnings as errors and runs the whole test suite three
# times: a normal build, an AddressSanitizer+UndefinedBehaviorSanitizer build
# and a ThreadSanitizer build (VELL_TEST_TSAN=0 leaves the last out). Then
# installs the library into a scratch prefix, builds the example host program
# against it with find_package(vell) and runs the tool tests against the
# installed tool, and checks the tool against Debian's own kernel package
# (downloaded with apt-get download; the run fails when it cannot be).
set -euo pipefail
cd "$(dirname "$0")/.."
root=$(pwd)
jobs=$(nproc 2>/dev/null || echo 2)
out=${VELL_TEST_BUILD_ROOT:-$root/build-test}

run_suite() {
  local name=$1; shift
  local dir=$out/$name
  echo "=== $name build"
  cmake -S "$root" -B "$dir" -DVELL_WERROR=ON "$@" >"$out/$name.configure.log"
  ${VELL_TEST_LAUNCHER:-} cmake --build "$dir" -j"$jobs"
  echo "=== $name tests"
  (cd "$dir" && ${VELL_TEST_LAUNCHER:-} ctest --output-on-failure -j"$jobs" --timeout 600)
}

mkdir -p "$out"
run_suite normal -DCMAKE_BUILD_TYPE=RelWithDebInfo
export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
run_suite asan -DCMAKE_BUILD_TYPE=Debug -DVELL_ASAN=ON -DVELL_BUILD_TOOL=ON
if [ "${VELL_TEST_TSAN:-1}" = 1 ]; then
  # ThreadSanitizer's fixed memory layout clashes with the address-space
  # randomisation of newer kernels: build (the build lists the tests by running
  # them) and test without randomisation.
  if setarch "$(uname -m)" -R true 2>/dev/null; then
    VELL_TEST_LAUNCHER="setarch $(uname -m) -R" run_suite tsan -DCMAKE_BUILD_TYPE=RelWithDebInfo -DVELL_TSAN=ON
  else
    run_suite tsan -DCMAKE_BUILD_TYPE=RelWithDebInfo -DVELL_TSAN=ON
  fi
fi

echo "=== install and build the example host program"
prefix=$out/install
rm -rf "$prefix"
cmake --install "$out/normal" --prefix "$prefix" >/dev/null
cmake -S "$root/examples" -B "$out/example" -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_BUILD_TYPE=Release \
  >"$out/example.configure.log"
cmake --build "$out/example" -j"$jobs"
LD_LIBRARY_PATH="$prefix/lib:$prefix/lib/$(gcc -print-multiarch 2>/dev/null || true)" \
  "$out/example/vell_example" /bin/sh
echo "=== the tool tests again, against the installed tool"
VELL_TEST_TOOL="$prefix/bin/vell" "$out/normal/tests/vell_tests" --gtest_filter='*Tool*' --gtest_brief=1
echo "=== Debian's kernel package: extraction, modules by kernel name, --sysroot"
bash "$root/scripts/debian-kernel-check.sh" "$out/normal/tools/vell"
echo "=== all test runs passed"
