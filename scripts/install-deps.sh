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
  gzip coreutils findutils strace
