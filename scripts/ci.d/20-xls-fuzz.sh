#!/usr/bin/env bash
# A short libFuzzer run of the .xls reader, built with clang in its own folder.
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
build=$root/build-xls-fuzz
CC=clang CXX=clang++ cmake -S "$root" -B "$build" -G Ninja -DSPREADSHEET_FUZZ=ON \
  -DSPREADSHEET_SANITIZE=ON -DSPREADSHEET_BUILD_TESTS=OFF >/dev/null
cmake --build "$build" --target xls_fuzz
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cp "$root"/tests/xls/corpus/* "$work"/
"$build"/xls/xls_fuzz -max_total_time=${XLS_FUZZ_SECONDS:-60} -rss_limit_mb=2048 \
  -timeout=10 -artifact_prefix="$work/" "$work"
