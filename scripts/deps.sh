#!/usr/bin/env bash
# Installs what the build and the tests need on a Debian machine, only if it
# is missing. Safe to run repeatedly. FFmpeg's libraries decode audio files
# in the tool; the ffmpeg program makes the audio of the tests.
#   scripts/deps.sh [--no-m32]   (--no-m32: without what only the 32-bit build needs)
set -euo pipefail
m32=1
[ "${1:-}" = "--no-m32" ] && m32=0

need=()
multilib=(); [ "$m32" -eq 1 ] && multilib=(g++-multilib)
for pkg in cmake make g++ "${multilib[@]}" googletest libgtest-dev libgmock-dev libbenchmark-dev \
           libsqlite3-dev libchromaprint-dev pkg-config nlohmann-json3-dev libdiscid-dev unicode-data python3 binutils \
           libfmt-dev libabsl-dev libicu-dev libedlib-dev libexpat1-dev libxml2-dev libpugixml-dev \
           libavformat-dev libavcodec-dev libswresample-dev libavutil-dev ffmpeg; do
  dpkg-query -W -f='${Status}' "$pkg" 2>/dev/null | grep -q 'install ok installed' || need+=("$pkg")
done
if [ ${#need[@]} -gt 0 ]; then
  echo "installing: ${need[*]}"
  SUDO=""; [ "$(id -u)" -ne 0 ] && SUDO=sudo
  $SUDO apt-get update -qq || echo "apt-get update reported errors; trying the install anyway"
  DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -qq "${need[@]}" >/dev/null
fi

[ "$m32" -eq 1 ] || exit 0

# The 32-bit build links the host against Debian's 32-bit SQLite library and
# the tool against its 32-bit libdiscid. Only the runtime packages are
# unpacked into the build tree (the headers are the same for both widths),
# which avoids pulling in a whole i386 tool chain.
deps32_dir=build/deps-i386
for lib in libsqlite3-0:libsqlite3.so.0 libdiscid0:libdiscid.so.0; do
  pkg=${lib%%:*} so=${lib#*:}
  [ -e "$deps32_dir/usr/lib/i386-linux-gnu/$so" ] && continue
  SUDO=""; [ "$(id -u)" -ne 0 ] && SUDO=sudo
  if ! dpkg --print-foreign-architectures | grep -qx i386; then
    $SUDO dpkg --add-architecture i386
    $SUDO apt-get update -qq || echo "apt-get update reported errors; trying the download anyway"
  fi
  mkdir -p "$deps32_dir"
  tmp=$(mktemp -d)
  chmod 777 "$tmp"
  (cd "$tmp" && apt-get download -qq "$pkg:i386" 2>/dev/null) \
    || { $SUDO apt-get update -qq || true; (cd "$tmp" && apt-get download -qq "$pkg:i386"); }
  dpkg-deb -x "$tmp/${pkg}"_*_i386.deb "$deps32_dir"
  rm -rf "$tmp"
done

# Debian's prebuilt GoogleTest is 64-bit only: the 32-bit build uses one built
# from Debian's sources (package googletest) and installed into the build tree,
# where CMake finds it (GTest_DIR). Rebuilt when the source package changes.
gtest32_dir=$deps32_dir/googletest
gtest_version=$(dpkg-query -W -f='${Version}' googletest)
if [ "$(cat "$gtest32_dir/.version" 2>/dev/null)" != "$gtest_version" ]; then
  echo "building GoogleTest $gtest_version for i386"
  work=$(mktemp -d)
  cmake -S /usr/src/googletest -B "$work" -DCMAKE_BUILD_TYPE=Release \
        -DCMAKE_C_FLAGS=-m32 -DCMAKE_CXX_FLAGS=-m32 -DCMAKE_INSTALL_LIBDIR=lib \
        -DCMAKE_INSTALL_PREFIX="$PWD/$gtest32_dir" > "$work.log" 2>&1 \
    && cmake --build "$work" -j"$(nproc 2>/dev/null || echo 2)" >> "$work.log" 2>&1 \
    && rm -rf "$gtest32_dir" && cmake --install "$work" >> "$work.log" 2>&1 \
    || { tail -40 "$work.log"; rm -rf "$work" "$work.log"; exit 1; }
  echo "$gtest_version" > "$gtest32_dir/.version"
  rm -rf "$work" "$work.log"
fi
