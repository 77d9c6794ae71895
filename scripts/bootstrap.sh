#!/usr/bin/env bash
# Installs what is missing (Debian packages, npm dependencies) and builds. Idempotent: a second
# run with nothing changed only asks make whether anything is out of date.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/install.sh

apt_install "${build_packages[@]}"

npm_install

if [ ! -f build/cmake/CMakeCache.txt ]; then
  cmake -S . -B build/cmake -DCMAKE_BUILD_TYPE=Release >/dev/null
fi
cmake --build build/cmake --parallel "$(nproc)"
