#!/usr/bin/env bash
# Installs what is missing (Debian packages, npm dependencies) and builds. Idempotent: a second
# run with nothing changed only asks make whether anything is out of date.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/apt-install.sh

packages=(cmake g++ make pkg-config googletest libgtest-dev libgmock-dev libbenchmark-dev)

apt_install "${packages[@]}"

# npm dependencies: install when absent or when the lock file changed since the last install.
if [ ! -f node_modules/.package-lock.json ] || [ package-lock.json -nt node_modules/.package-lock.json ]; then
  npm ci --no-audit --no-fund --loglevel=error
fi

if [ ! -f build/cmake/CMakeCache.txt ]; then
  cmake -S . -B build/cmake -DCMAKE_BUILD_TYPE=Release >/dev/null
fi
cmake --build build/cmake --parallel "$(nproc)"
