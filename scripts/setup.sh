#!/usr/bin/env bash
# Installs everything orvKestrel needs to build, test and benchmark on Debian 12.
# Idempotent: does nothing when all packages are there. Run as root (or with sudo available).
set -euo pipefail

PACKAGES=(
  build-essential cmake ninja-build pkg-config git
  libzip-dev libdeflate-dev libssl-dev libpcre2-dev uuid-dev libcli11-dev nlohmann-json3-dev libfmt-dev
  libgtest-dev libgmock-dev googletest libbenchmark-dev
  zip unzip p7zip-full python3 attr rsync time logrotate systemd
  clang libclang-rt-14-dev
)

missing=()
for p in "${PACKAGES[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if [ ${#missing[@]} -eq 0 ]; then
  echo "setup: all packages present"
  exit 0
fi
SUDO=""
if [ "$(id -u)" -ne 0 ]; then SUDO="sudo"; fi
echo "setup: installing ${missing[*]}"
$SUDO apt-get update -qq
DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -qq "${missing[@]}"
