#!/usr/bin/env bash
# Runs every benchmark; each prints its own figures.
set -euo pipefail
cd "$(dirname "$0")/.."
for bench in build/cmake/bench/*_bench; do
  echo "== ${bench##*/}"
  "$bench"
done
for bench in bench/js/*_bench.js; do
  echo "== ${bench##*/}"
  node "$bench"
done
