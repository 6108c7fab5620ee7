#!/bin/bash
# Makes docs/rms-sheet.png: the RMS sheet of a report workbook as LibreOffice renders it.
#   scripts/render-report.sh [SHEET_BINARY] [OUT.png]
# SHEET_BINARY defaults to build/tools/sheet/sheet. Needs soffice (libreoffice-calc-nogui),
# pdftoppm (poppler-utils) and python3. The workbook has 5 RMS rows, 10 Price Protection rows
# and none for Script Validation; only the first page (the RMS sheet) is kept.
#
# The report's cells are empty and only formatted. When printing, LibreOffice leaves out of a
# sheet's print area a run of 30 or more equally formatted columns that follows the last
# column holding data, so the RMS sheet (31 such columns, no data) would print as column A
# alone; the screen shows all of them. The workbook is therefore passed through LibreOffice's
# own flat XML, each sheet is given a print range covering every column and row LibreOffice
# loaded, and that is printed on one page per sheet. Cells, styles and widths are as
# LibreOffice read them from our file.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
sheet=${1:-$root/build/tools/sheet/sheet}
out=${2:-$root/docs/rms-sheet.png}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

env -u DISPLAY -u WAYLAND_DISPLAY "$sheet" report "$work/report.xls" \
  --rms 5 --price-protection 10 --script-validation 0
# A private profile and HOME keep a running LibreOffice (or its lock) out of the way.
lo() {
  HOME="$work" soffice --headless -env:UserInstallation=file://"$work/profile" "$@" >/dev/null
}
lo --convert-to fods --outdir "$work" "$work/report.xls"
/usr/bin/env python3 - "$work/report.fods" "$work/print.fods" <<'PY'
import re, sys
src, dst = sys.argv[1], sys.argv[2]
text = open(src, encoding="utf-8").read()

def column_name(n):  # 1 -> A, 27 -> AA
    name = ""
    while n:
        n, r = divmod(n - 1, 26)
        name = chr(65 + r) + name
    return name

def repeated(tag, attr):
    m = re.search(attr + r'="(\d+)"', tag)
    return int(m.group(1)) if m else 1

def with_range(m):
    head, body = m.group(1), m.group(2)
    name = re.search(r'table:name="([^"]*)"', head).group(1)
    cols = sum(repeated(t, "table:number-columns-repeated")
               for t in re.findall(r"<table:table-column\b[^>]*>", body))
    rows = sum(repeated(t, "table:number-rows-repeated")
               for t in re.findall(r"<table:table-row\b[^>]*>", body))
    quoted = "'" + name.replace("'", "''") + "'" if re.search(r"\W", name) else name
    area = f' table:print-ranges="{quoted}.A1:{quoted}.{column_name(cols)}{rows}"'
    return head.replace("<table:table ", "<table:table" + area + " ", 1) + body

text, n = re.subn(r"(<table:table [^>]*>)(.*?</table:table>)", with_range, text, flags=re.S)
if n == 0:
    sys.exit("no sheets in " + src)
# Each sheet on one page, as a reader sees it on screen.
text = re.sub(r"(<style:page-layout-properties\b)", r'\1 style:scale-to-pages="1"', text)
open(dst, "w", encoding="utf-8").write(text)
PY
lo --convert-to pdf --outdir "$work" "$work/print.fods"
# Scaled to one page the grid is small: render it at a higher resolution and keep only the
# part of the page the sheet covers (its non-white bounding box, plus a margin).
dpi=220
pdftoppm -gray -r "$dpi" -f 1 -l 1 -singlefile "$work/print.pdf" "$work/gray"
read -r x y w h < <(/usr/bin/env python3 - "$work/gray.pgm" <<'PY'
import sys
data = open(sys.argv[1], "rb").read()
fields, pos = [], 0
while len(fields) < 4:  # P5 width height maxval, separated by whitespace
    while data[pos:pos + 1].isspace():
        pos += 1
    end = pos
    while not data[end:end + 1].isspace():
        end += 1
    fields.append(data[pos:end])
    pos = end
pos += 1
width, height = int(fields[1]), int(fields[2])
rows = [data[pos + r * width: pos + (r + 1) * width] for r in range(height)]
inked = [r for r in range(height) if min(rows[r]) < 200]
if not inked:
    sys.exit("the first page is blank")
left = min(next(i for i, v in enumerate(rows[r]) if v < 200) for r in inked)
right = max(width - 1 - next(i for i, v in enumerate(reversed(rows[r])) if v < 200) for r in inked)
m = 16
x0, y0 = max(0, left - m), max(0, inked[0] - m)
print(x0, y0, min(width, right + m) - x0, min(height, inked[-1] + m) - y0)
PY
)
pdftoppm -png -r "$dpi" -f 1 -l 1 -x "$x" -y "$y" -W "$w" -H "$h" -singlefile "$work/print.pdf" \
  "$work/page"
mkdir -p "$(dirname "$out")"
cp "$work/page.png" "$out"
echo "wrote $out"
