#!/usr/bin/env bash
# A short libFuzzer run of the ODBC driver's SQL parser and executor, built with clang in a
# folder of its own. New crashes fail the check; add the input to
# tests/odbc-driver/sql-corpus once fixed, so that every test run replays it.
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
build=${ODBC_FUZZ_BUILD_DIR:-${BUILD_DIR:-$root/build-test}-odbc-fuzz}
seconds=${ODBC_FUZZ_SECONDS:-60}
cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ \
  -DSPREADSHEET_FUZZ=ON -DSPREADSHEET_SANITIZE=ON \
  -DSPREADSHEET_BUILD_TESTS=OFF -DSPREADSHEET_BUILD_BENCH=OFF >/dev/null
cmake --build "$build" --target sql_fuzzer
corpus=$(mktemp -d)
trap 'rm -rf "$corpus"' EXIT
cp "$root"/tests/odbc-driver/sql-corpus/* "$corpus"/
cd "$build"
ASAN_OPTIONS=detect_leaks=1 ./odbc-driver/sql_fuzzer -max_total_time="$seconds" -max_len=512 \
  -timeout=10 -print_final_stats=1 "$corpus"
