#!/usr/bin/env bash
# Builds vell (and its benchmarks) with warnings as errors and runs the whole
# test suite three times: a normal build, an AddressSanitizer+UndefinedBehaviorSanitizer build
# and a ThreadSanitizer build (VELL_TEST_TSAN=0 leaves the last out). Then
# installs the library into a scratch prefix, builds the example host program
# against it with find_package(vell) and runs the tool tests against the
# installed tool, and checks the tool against Debian's own kernel package
# (downloaded with apt-get download; the run fails when it cannot be). Then
# builds the Debian packages with cpack, installs them with dpkg -i, builds the
# example against them with CMake and pkg-config, runs it and the installed
# tool, and removes the packages again. Last, every libFuzzer harness of fuzz/
# runs for VELL_FUZZ_SECONDS (default 15) seconds. The ThreadSanitizer build
# is compiled at -O1 with line tables only, which keeps file and line in its
# reports and the run within its time budget. The AddressSanitizer build stays
# at -O0: at -O1 its phase took longer as a whole (16.5 against 12.5 minutes).
set -euo pipefail
cd "$(dirname "$0")/.."
root=$(pwd)
jobs=$(nproc 2>/dev/null || echo 2)
out=${VELL_TEST_BUILD_ROOT:-$root/build-test}

started=$(date +%s)
# A phase heading with the minutes since the start, for the run's time budget.
phase() { echo "=== [$(( ($(date +%s) - started) / 60 )) min] $*"; }

run_suite() {
  local name=$1; shift
  local dir=$out/$name
  phase "$name build"
  cmake -S "$root" -B "$dir" -DVELL_WERROR=ON "$@" >"$out/$name.configure.log"
  ${VELL_TEST_LAUNCHER:-} cmake --build "$dir" -j"$jobs"
  phase "$name tests"
  (cd "$dir" && ${VELL_TEST_LAUNCHER:-} ctest --output-on-failure -j"$jobs" --timeout 600)
}

mkdir -p "$out"
run_suite normal -DCMAKE_BUILD_TYPE=RelWithDebInfo -DVELL_BUILD_BENCH=ON
export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
run_suite asan -DCMAKE_BUILD_TYPE=Debug -DVELL_ASAN=ON -DVELL_BUILD_TOOL=ON
if [ "${VELL_TEST_TSAN:-1}" = 1 ]; then
  # ThreadSanitizer's fixed memory layout clashes with the address-space
  # randomisation of newer kernels: build (the build lists the tests by running
  # them) and test without randomisation.
  if setarch "$(uname -m)" -R true 2>/dev/null; then
    VELL_TEST_LAUNCHER="setarch $(uname -m) -R" run_suite tsan -DCMAKE_BUILD_TYPE=RelWithDebInfo "-DCMAKE_CXX_FLAGS_RELWITHDEBINFO=-O1 -g1 -DNDEBUG" -DVELL_TSAN=ON
  else
    run_suite tsan -DCMAKE_BUILD_TYPE=RelWithDebInfo "-DCMAKE_CXX_FLAGS_RELWITHDEBINFO=-O1 -g1 -DNDEBUG" -DVELL_TSAN=ON
  fi
fi

phase "the real distribution debug packages (libc6-dbg, binutils-x86-64-linux-gnu-dbg) must be found"
VELL_REQUIRE_DEBUG_PACKAGES=1 "$out/normal/tests/vell_tests" --gtest_filter='ToolBuildIdTest.*' --gtest_brief=1

phase "install and build the example host program"
prefix=$out/install
rm -rf "$prefix"
cmake --install "$out/normal" --prefix "$prefix" >/dev/null
cmake -S "$root/examples" -B "$out/example" -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_BUILD_TYPE=Release \
  >"$out/example.configure.log"
cmake --build "$out/example" -j"$jobs"
LD_LIBRARY_PATH="$prefix/lib:$prefix/lib/$(gcc -print-multiarch 2>/dev/null || true)" \
  "$out/example/vell_example" /bin/sh
phase "the tool tests again, against the installed tool"
VELL_TEST_TOOL="$prefix/bin/vell" "$out/normal/tests/vell_tests" --gtest_filter='*Tool*' --gtest_brief=1
phase "Debian's kernel package: extraction, modules by kernel name, --sysroot"
bash "$root/scripts/debian-kernel-check.sh" "$out/normal/tools/vell"

phase "a moved installation: vell.pc and the library's catalogs follow it"
# Everything the unprivileged run below needs lies in a scratch directory open to others.
scratch=$(mktemp -d /tmp/vell-test.XXXXXX)
chmod 755 "$scratch"
moved=$scratch/moved-install
cp -a "$prefix" "$moved"
chmod -R go+rX "$moved"
pc_dir=$(dirname "$(find "$moved" -name vell.pc | head -n 1)")
[ "$(realpath "$(PKG_CONFIG_PATH=$pc_dir pkg-config --variable=prefix vell)")" = "$(realpath "$moved")" ]
# shellcheck disable=SC2046  # pkg-config's flags are separate words
g++ -std=c++20 -o "$scratch/example-moved" "$root/examples/find_file.cpp" \
  $(PKG_CONFIG_PATH=$pc_dir pkg-config --cflags --libs vell)
echo "secret" >"$scratch/unreadable" && chmod 000 "$scratch/unreadable"
# A file its user cannot read is rejected with the text of the catalogs installed
# beside the library (never a bare message id such as "(%CantOpenFile)").
as_user() { if [ "$(id -u)" -eq 0 ]; then setpriv --reuid=65534 --regid=65534 --clear-groups "$@"; else "$@"; fi; }
check_localised() {
  local message
  message=$("$@" "$scratch/unreadable" || true)
  echo "$message"
  echo "$message" | grep -q "rejected $scratch/unreadable (" && ! echo "$message" | grep -q "(%"
}
check_localised as_user env LD_LIBRARY_PATH="$(dirname "$(find "$moved" -name 'libvell.so.*' | head -n 1)")" \
  "$scratch/example-moved"

if [ "${VELL_TEST_DEB:-1}" = 1 ] && command -v dpkg >/dev/null && [ "$(id -u)" -eq 0 ]; then
  phase "Debian packages: cpack, dpkg -i, the example against the installed packages"
  rm -f "$out/normal"/*.deb
  (cd "$out/normal" && cpack -G DEB >"$out/cpack.log")
  for deb in "$out/normal"/*.deb; do
    echo "--- $(basename "$deb")"
    dpkg-deb --field "$deb" Package Version Depends
  done
  remove_packages() { dpkg -P vell libvell-dev libvell2 >/dev/null 2>&1 || true; }
  trap remove_packages EXIT
  dpkg -i "$out/normal"/*.deb
  cmake -S "$root/examples" -B "$out/example-deb" -DCMAKE_BUILD_TYPE=Release >"$out/example-deb.configure.log"
  cmake --build "$out/example-deb" -j"$jobs"
  "$out/example-deb/vell_example" /bin/sh
  # shellcheck disable=SC2046
  g++ -std=c++20 -o "$scratch/example-deb-pc" "$root/examples/find_file.cpp" $(pkg-config --cflags --libs vell)
  check_localised as_user "$scratch/example-deb-pc"
  /usr/bin/vell find bin /bin/sh
  [ -f /usr/share/man/man1/vell.1 ] || [ -f /usr/share/man/man1/vell.1.gz ]
  VELL_TEST_TOOL=/usr/bin/vell "$out/normal/tests/vell_tests" --gtest_filter='*Tool*' --gtest_brief=1
  remove_packages
  trap - EXIT
fi
rm -rf "$scratch"
phase "every fuzzer for a bounded time on its seed corpus"
VELL_FUZZ_BUILD="$out/fuzz" VELL_FUZZ_SECONDS=${VELL_FUZZ_SECONDS:-15} bash "$root/scripts/fuzz.sh"
phase "all test runs passed"
