#!/usr/bin/env bash
# Every test again, against a build with AddressSanitizer and UndefinedBehaviorSanitizer: the C++
# suites through CTest, and the JavaScript suites with the sanitised modules loaded in Node. Any
# sanitizer report ends the process that made it, so it fails the run.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/install.sh
apt_install "${build_packages[@]}"

npm_install

tree=build/sanitize
flags="-fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer"
# -O1 -g1 compiles in about a third of the time of -O2 -g and still gives file and line in reports.
if [ ! -f "$tree/cmake/CMakeCache.txt" ]; then
  cmake -S . -B "$tree/cmake" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_CXX_FLAGS_RELWITHDEBINFO="-O1 -g1" \
    -DKESTRANE_BENCHES=OFF \
    -DCMAKE_CXX_FLAGS="$flags" -DCMAKE_EXE_LINKER_FLAGS="-fsanitize=address,undefined" \
    -DCMAKE_SHARED_LINKER_FLAGS="-fsanitize=address,undefined" \
    -DCMAKE_MODULE_LINKER_FLAGS="-fsanitize=address,undefined" \
    -DKESTRANE_OUTPUT_DIR="$PWD/$tree/Release" >/dev/null
fi
cmake --build "$tree/cmake" --parallel "$(nproc)"

export ASAN_OPTIONS=abort_on_error=0:halt_on_error=1:strict_string_checks=1:detect_stack_use_after_return=1
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
ctest --test-dir "$tree/cmake" --output-on-failure --parallel "$(nproc)"

# The JavaScript suites run from a copy of the package whose build/Release is the sanitised
# one. Node itself is not instrumented, so the runtime is preloaded, and the leak check stays
# with the C++ suites: Node keeps much of its memory until exit on purpose.
stage="$tree/package"
rm -rf "$stage"
mkdir -p "$stage/build" "$stage/test"
cp -r lib bin scripts package.json "$stage/"
cp -r test/js "$stage/test/js"
ln -s "$PWD/$tree/Release" "$stage/build/Release"
ln -s "$PWD/node_modules" "$stage/node_modules"
# Each file runs in a Node process of its own rather than under the test runner, which keeps its
# children's stderr (and so the sanitizer reports) to itself.
failed=0
for file in "$stage"/test/js/*.test.js; do
  LD_PRELOAD="$(g++ -print-file-name=libasan.so)" ASAN_OPTIONS="$ASAN_OPTIONS:detect_leaks=0" node "$file" ||
    { echo "test-sanitize: ${file##*/} failed" >&2; failed=$((failed + 1)); }
done
[ "$failed" -eq 0 ]
