#!/usr/bin/env bash
# Installs every build, test and benchmark dependency of vell from Debian packages.
set -euo pipefail
export DEBIAN_FRONTEND=noninteractive
SUDO=""
if [ "$(id -u)" -ne 0 ]; then SUDO="sudo"; fi
$SUDO apt-get update
$SUDO apt-get install -y --no-install-recommends \
  build-essential cmake pkg-config ca-certificates \
  libboost-filesystem-dev libboost-system-dev \
  zlib1g-dev liblog4cplus-dev libssl-dev nlohmann-json3-dev libcli11-dev \
  libgtest-dev libgmock-dev googletest libbenchmark-dev \
  libelf-dev libdw-dev liblzma-dev liblz4-dev libzstd-dev libbz2-dev liblzo2-dev \
  libcurl4-openssl-dev libdebuginfod-dev \
  gzip xz-utils lz4 zstd bzip2 lzop binutils elfutils file \
  coreutils findutils strace fd-find curl debuginfod libarchive-tools libc6-dbg binutils-x86-64-linux-gnu-dbg \
  dpkg-dev \
  clang libclang-rt-14-dev ccache
