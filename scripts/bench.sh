#!/usr/bin/env bash
# Builds the benchmarks (Release, no sanitizers) and runs them: all of them, or the ones
# named (text, xls, odbc, excel). Each prints its figures next to its peers' from the same
# run; none of them is a test. Installs the benchmark-only peers first (gnumeric).
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
"$root/scripts/deps.sh" bench
build=${BUILD_DIR:-$root/build-rel}
cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release \
  -DSPREADSHEET_BUILD_BENCH=ON -DSPREADSHEET_BUILD_TESTS=OFF > /dev/null
cmake --build "$build" -j "${JOBS:-$(nproc)}"

declare -A program=(
  [text]=bench/spreadsheet/text_bench
  [xls]=bench/xls/xls_bench
  [odbc]=bench/odbc-driver/odbc_bench
  [excel]=bench/spreadsheet-excel/excel_bench
)
wanted=("$@")
[ ${#wanted[@]} -gt 0 ] || wanted=(text xls odbc excel)
for name in "${wanted[@]}"; do
  exe=${program[$name]:-}
  [ -n "$exe" ] || { echo "bench: unknown benchmark '$name' (text, xls, odbc, excel)" >&2; exit 2; }
  [ -x "$build/$exe" ] || { echo "bench: $build/$exe was not built" >&2; exit 1; }
  echo "== $name"
  (cd "$build" && "./$exe")
  if [ "$name" = odbc ]; then /usr/bin/python3 "$root/bench/odbc-driver/executemany_bench.py" "$build/odbc-driver/libxlsodbc.so"; fi
done
