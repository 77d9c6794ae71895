#!/usr/bin/env bash
# The C++ suites again, against a build with ThreadSanitizer in a tree of its own. Any report
# fails the run. Suppressions live in test/tsan.supp, each with the reason it is not a race.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/install.sh
apt_install "${build_packages[@]}"

npm_install

tree=build/tsan
flags="-fsanitize=thread -fno-omit-frame-pointer"
# -O1 -g1 compiles in about a third of the time of -O2 -g and still gives file and line in reports.
if [ ! -f "$tree/cmake/CMakeCache.txt" ]; then
  cmake -S . -B "$tree/cmake" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_CXX_FLAGS_RELWITHDEBINFO="-O1 -g1" \
    -DKESTRANE_BENCHES=OFF \
    -DCMAKE_CXX_FLAGS="$flags" -DCMAKE_EXE_LINKER_FLAGS="-fsanitize=thread" \
    -DCMAKE_SHARED_LINKER_FLAGS="-fsanitize=thread" -DCMAKE_MODULE_LINKER_FLAGS="-fsanitize=thread" \
    -DKESTRANE_OUTPUT_DIR="$PWD/$tree/Release" >/dev/null
fi
cmake --build "$tree/cmake" --parallel "$(nproc)"

export TSAN_OPTIONS="halt_on_error=1:exitcode=66:second_deadlock_stack=1:suppressions=$PWD/test/tsan.supp"
ctest --test-dir "$tree/cmake" --output-on-failure --parallel "$(nproc)"
