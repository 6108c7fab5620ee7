#!/bin/bash
# Makes docs/rms-sheet.png: the RMS sheet of a report workbook as LibreOffice renders it.
#   scripts/render-report.sh [SHEET_BINARY] [OUT.png]
# SHEET_BINARY defaults to build/tools/sheet/sheet. Needs soffice (libreoffice-calc-nogui)
# and pdftoppm (poppler-utils). The workbook has 5 RMS rows, 10 Price Protection rows
# and none for Script Validation; only the first page (the RMS sheet's left part) is kept.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
sheet=${1:-$root/build/tools/sheet/sheet}
out=${2:-$root/docs/rms-sheet.png}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

env -u DISPLAY -u WAYLAND_DISPLAY "$sheet" report "$work/report.xls" \
  --rms 5 --price-protection 10 --script-validation 0
# A private profile keeps a running LibreOffice (or its lock) out of the way.
soffice --headless -env:UserInstallation=file://"$work/profile" \
  --convert-to pdf --outdir "$work" "$work/report.xls" >/dev/null
pdftoppm -png -r 80 -f 1 -l 1 -singlefile "$work/report.pdf" "$work/page"
mkdir -p "$(dirname "$out")"
cp "$work/page.png" "$out"
echo "wrote $out"
