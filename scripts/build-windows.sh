#!/usr/bin/env bash
# Builds the add-on for Windows x64 into build/win/kestrane_win.node, installing the mingw-w64
# toolchain when missing. Idempotent, like the bootstrap; any warning in the add-on's sources
# fails the build.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/install.sh

apt_install g++-mingw-w64-x86-64-posix binutils-mingw-w64-x86-64

npm_install

if [ ! -f build/win-cmake/CMakeCache.txt ]; then
  cmake -S windows -B build/win-cmake -DCMAKE_TOOLCHAIN_FILE="$PWD/windows/mingw-w64-x86_64.cmake" \
    -DCMAKE_BUILD_TYPE=Release >/dev/null
fi
cmake --build build/win-cmake --parallel "$(nproc)"
