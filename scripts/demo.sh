#!/usr/bin/env bash
# The main job: installs what is missing, builds the library and the sheet tool
# (Release), makes a sample delimited file in sample/ and works on it with sheet.
# Each part of the project adds its own steps in scripts/demo.d/*.sh (run in order,
# with BUILD_DIR, SHEET and SAMPLE_DIR set).
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
"$root/scripts/deps.sh" demo

build=${BUILD_DIR:-$root/build}
cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DSPREADSHEET_BUILD_TESTS=OFF > /dev/null
cmake --build "$build" -j "$(nproc)"
sheet=$build/tools/sheet/sheet
sample=$root/sample
mkdir -p "$sample"

run() {
  printf '\n$ sheet %s\n' "$*"
  "$sheet" "$@"
}

csv=$sample/limits.csv
printf '"User ID";"Exchange";"Buy Limit"\r\n"U001";"NSE";"250000"\r\n"U002";"BSE";"100000"\r\n' > "$csv"
echo "== Text mode on $csv"
run info "$csv" -d ';'
run cat "$csv" -d ';'
run cell "$csv" "Buy Limit" 3 -d ';'
run set "$csv" C 3 "125000" -d ';'
run add "$csv" -d ';' U003 MCX 75000
run insert "$csv" 2 -d ';' U000 NSE 500000
run cat "$csv" -d ';'
printf '\nThe file on disk (CRLF shown as $):\n'
sed 's/\r$/$/' "$csv"

for step in "$root"/scripts/demo.d/*.sh; do
  [ -e "$step" ] || continue
  BUILD_DIR="$build" SHEET="$sheet" SAMPLE_DIR="$sample" bash "$step"
done
