#!/usr/bin/env bash
# Checks the tool against Debian's own kernel package: downloads the current
# linux-image-6.1.0-*-cloud-amd64-unsigned with apt-get download, unpacks it
# as a target system's files and checks that
#  - vell extract-kernel extracts its LZ4 image to exactly what lz4 -dc
#    makes of the payload, and vell find bin vmlinux --sysroot returns the
#    same image;
#  - vell find finds a real module by the kernel's name for it (underscores
#    for the dashes of the file name) under --sysroot;
#  - vell find finds the target release's module for a recorded module path
#    under --sysroot.
# Fails (never skips) when the package cannot be downloaded.
# Usage: scripts/debian-kernel-check.sh PATH/TO/vell
set -euo pipefail

tool=${1:?usage: $0 PATH/TO/vell}
tool=$(readlink -f "$tool")
work=$(mktemp -d "${TMPDIR:-/tmp}/vell-debian-kernel.XXXXXX")
trap 'rm -rf "$work"' EXIT
cd "$work"

fail() {
  echo "debian-kernel-check: FAILED: $*" >&2
  exit 1
}

# The newest 6.1.0 cloud kernel the package lists know.
package=$(apt-cache pkgnames linux-image-6.1.0- 2>/dev/null |
  grep -E '^linux-image-6\.1\.0-[0-9]+-cloud-amd64-unsigned$' | sort -V | tail -n 1 || true)
[ -n "$package" ] || fail "no linux-image-6.1.0-*-cloud-amd64-unsigned package in the package lists (run apt-get update)"
release=${package#linux-image-}
release=${release%-unsigned}
echo "package $package, kernel release $release"

apt-get download "$package" >download.log 2>&1 || {
  cat download.log >&2
  fail "cannot download $package with apt-get download"
}
dpkg -x ./*.deb root
vmlinuz=root/boot/vmlinuz-$release
[ -f "$vmlinuz" ] || fail "the package holds no $vmlinuz"

# The payload starts with the lz4 legacy magic; lz4 -dc of it is the reference.
offset=$(LC_ALL=C grep -obUaP '\x02\x21\x4c\x18' "$vmlinuz" | sed -n 1p | cut -d: -f1)
[ -n "$offset" ] || fail "no lz4 payload in $vmlinuz"
tail -c +$((offset + 1)) "$vmlinuz" | lz4 -dc >expected 2>lz4.log || true
[ -s expected ] || fail "lz4 -dc produced nothing"

# extract-kernel names the format and writes the same image.
"$tool" extract-kernel "$vmlinuz" extracted | tee extract.log
grep -q "(lz4 at offset $offset," extract.log || fail "extract-kernel did not report lz4 at offset $offset"
cmp expected extracted || fail "the extracted image differs from lz4 -dc"
echo "ok: extract-kernel gives the image lz4 -dc gives"

mkdir cache
"$tool" find bin vmlinux --kernel-release "$release" --sysroot root --cache cache | tee vmlinux.log
image=$(sed -n 's/^path: //p' vmlinux.log)
[ -n "$image" ] || fail "find bin vmlinux --sysroot found nothing"
cmp expected "$image" || fail "find bin vmlinux --sysroot returned $image, not the extracted image"
echo "ok: find bin vmlinux --sysroot returns the extracted image"

# A module whose file name has a dash, asked for by its kernel name.
module=$(find "root/lib/modules/$release/kernel" -name '*-*.ko*' | sort | sed -n 1p)
[ -n "$module" ] || fail "no module with a dash in its name"
file=$(basename "$module")
kernelName=${file%%.ko*}
kernelName=${kernelName//-/_}
"$tool" find bin "$kernelName" --kernel-release "$release" --sysroot root | tee module.log
found=$(sed -n 's/^path: //p' module.log)
[ -n "$found" ] || fail "find bin $kernelName found nothing"
foundName=$(basename "$found")
[ "${foundName%%.ko*}" = "${file%%.ko*}" ] || [ "$(echo "${foundName%%.ko*}" | tr - _)" = "$kernelName" ] ||
  fail "find bin $kernelName returned $found"
case "$found" in */lib/modules/"$release"/*) ;; *) fail "find bin $kernelName returned $found, not a $release module" ;; esac
echo "ok: module $file found by its kernel name $kernelName"

# A recorded module path finds the target release's copy under the root.
xfs=$(find "root/lib/modules/$release/kernel" -name 'xfs.ko*' | sed -n 1p)
[ -n "$xfs" ] || fail "no xfs module in the package"
recorded=/lib/modules/$release/kernel/fs/xfs/$(basename "$xfs")
"$tool" find bin "$recorded" --kernel-release "$release" --sysroot root | tee xfs.log
found=$(sed -n 's/^path: //p' xfs.log)
[ "$(readlink -f "$found")" = "$(readlink -f "$xfs")" ] || fail "find bin $recorded returned '$found', not $xfs"
echo "ok: $recorded found under --sysroot"
echo "debian-kernel-check: all checks passed"
