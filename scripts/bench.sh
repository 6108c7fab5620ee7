#!/usr/bin/env bash
# Builds the benchmarks (Release, no sanitizers) and runs them: all of them, or the ones
# named (text, xls, xlsx, odbc, excel, save, sync, convert). Each prints its figures next
# to its peers' from the same run; none of them is a test. Installs the benchmark-only peers
# first (gnumeric, nodejs), and SheetJS (npm xlsx) into the build folder when npm can fetch it.
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
"$root/scripts/deps.sh" bench
build=${BUILD_DIR:-$root/build-rel}
cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release \
  -DSPREADSHEET_BUILD_BENCH=ON -DSPREADSHEET_BUILD_TESTS=OFF > /dev/null
cmake --build "$build" -j "${JOBS:-$(nproc)}"
# SheetJS is a peer of `convert` and `xlsx`; without npm or the network that peer is skipped.
if [ ! -d "$build/npm/node_modules/xlsx" ] && command -v npm > /dev/null; then
  npm install --silent --prefix "$build/npm" xlsx > /dev/null 2>&1 ||
    echo "bench: could not install SheetJS (npm xlsx); convert and xlsx run without it" >&2
fi

declare -A program=(
  [text]=bench/spreadsheet/text_bench
  [xls]=bench/xls/xls_bench
  [xlsx]="bench/xls/xlsx_bench . npm/node_modules"
  [odbc]=bench/odbc-driver/odbc_bench
  [excel]=bench/spreadsheet-excel/excel_bench
  [save]="bench/spreadsheet-excel/excel_bench --save-only"
  [sync]="bench/odbc-driver/odbc_bench --inserts"
)
wanted=("$@")
[ ${#wanted[@]} -gt 0 ] || wanted=(text xls xlsx odbc excel convert)
for name in "${wanted[@]}"; do
  if [ "$name" = convert ]; then
    echo "== convert"
    "$root/bench/spreadsheet-excel/convert_bench.sh" "$build"
    continue
  fi
  exe=${program[$name]:-}
  [ -n "$exe" ] || { echo "bench: unknown benchmark '$name' (text, xls, xlsx, odbc, excel, save, sync, convert)" >&2; exit 2; }
  [ -x "$build/${exe%% *}" ] || { echo "bench: $build/${exe%% *} was not built" >&2; exit 1; }
  echo "== $name"
  (cd "$build" && eval "./$exe")
  if [ "$name" = odbc ]; then /usr/bin/python3 "$root/bench/odbc-driver/executemany_bench.py" "$build/odbc-driver/libxlsodbc.so"; fi
done
