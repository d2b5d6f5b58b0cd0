#!/usr/bin/env bash
# Installs what the build and the tests need on a Debian machine, only if it
# is missing. Safe to run repeatedly.
set -euo pipefail

need=()
for pkg in cmake make g++ g++-multilib googletest libgtest-dev libgmock-dev libbenchmark-dev \
           libsqlite3-dev unicode-data python3 binutils; do
  dpkg-query -W -f='${Status}' "$pkg" 2>/dev/null | grep -q 'install ok installed' || need+=("$pkg")
done
# The 32-bit build links the host against 32-bit SQLite.
dpkg --print-foreign-architectures | grep -qx i386 || dpkg --add-architecture i386
dpkg-query -W -f='${Status}' libsqlite3-dev:i386 2>/dev/null | grep -q 'install ok installed' || need+=(libsqlite3-dev:i386)
if [ ${#need[@]} -gt 0 ]; then
  echo "installing: ${need[*]}"
  SUDO=""; [ "$(id -u)" -ne 0 ] && SUDO=sudo
  $SUDO apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -qq "${need[@]}" >/dev/null
fi
