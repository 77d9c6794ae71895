#!/usr/bin/env bash
# Every test: the C++ suites through CTest, then the JavaScript suites through node --test.
set -euo pipefail
cd "$(dirname "$0")/.."
ctest --test-dir build/cmake --output-on-failure --parallel "$(nproc)" "$@"
node --test test/js/
