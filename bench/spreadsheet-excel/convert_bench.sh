#!/usr/bin/env bash
# Text file to workbook: `sheet convert FILE.csv -d , -s Sheet1` (the class's Convert: one
# INSERT per row through our driver, SYNC=NORMAL) against gnumeric's ssconvert, LibreOffice
# headless (its own profile) and SheetJS (npm xlsx under node, when bench.sh could install
# it into BUILD/npm) converting the same file to .xls, at 1,000, 8,000 and 65,536 rows of
# 31 columns (a header, then numbers and short text by turns of column).
#
# The sides take turns: each round runs all of them once on one size, so a slow spell of
# this shared machine falls on every side; a ratio is taken within a round, and the figure
# for a size is the median of its rounds. Also printed: our time per row at each size
# (flat when the cost is linear in rows), and a check that every side's workbook holds
# all the rows (python3-xlrd).
#
# usage: convert_bench.sh BUILD_DIR [ROUNDS]   (BUILD_DIR: a Release build with tools/sheet
# and odbc-driver/libxlsodbc.so; ROUNDS default 3)
set -euo pipefail
build=$(cd "${1:?usage: convert_bench.sh BUILD_DIR [ROUNDS]}" && pwd)
rounds=${2:-3}
sheet=$build/tools/sheet/sheet
driver=$build/odbc-driver/libxlsodbc.so
[ -x "$sheet" ] && [ -f "$driver" ] || { echo "convert_bench: build $build lacks sheet or the driver" >&2; exit 1; }
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
printf '[Excel Workbook Driver (*.xls)]\nDriver = %s\n' "$driver" > "$work/odbcinst.ini"
: > "$work/odbc.ini"
export ODBCSYSINI=$work ODBCINSTINI=odbcinst.ini ODBCINI=$work/odbc.ini

sheetjs=$build/npm/node_modules/xlsx
have_sheetjs=0
if command -v node > /dev/null && [ -d "$sheetjs" ]; then
  have_sheetjs=1
else
  echo "convert_bench: SheetJS not installed in $build/npm (bench.sh installs it with npm); skipped"
fi
have_ssconvert=0; command -v ssconvert > /dev/null && have_ssconvert=1
have_soffice=0; command -v soffice > /dev/null && have_soffice=1

/usr/bin/python3 - "$work" <<'EOF'
import sys
for n in (1000, 8000, 65536):
    with open(f"{sys.argv[1]}/d{n}.csv", "w", newline="") as f:
        f.write(",".join(f"col{c}" for c in range(31)) + "\r\n")
        for r in range(1, n):
            f.write(",".join((f"v{r}_{c}" if c % 2 else str(r * 31 + c)) for c in range(31)) + "\r\n")
EOF

# Runs one side on one file; prints its seconds. Output goes to $work/out/<side>.xls (ours:
# beside the text file, where Convert puts it).
run() {
  local side=$1 n=$2 csv=$work/d$2.csv start end
  rm -rf "$work/out" "$work/d$n.xls"
  mkdir -p "$work/out"
  start=$EPOCHREALTIME
  case $side in
    sheet) "$sheet" convert "$csv" -d , -s Sheet1 > /dev/null ;;
    ssconvert) ssconvert "$csv" "$work/out/ssconvert.xls" > /dev/null 2>&1 ;;
    soffice) HOME=$work soffice "-env:UserInstallation=file://$work/profile" --headless \
               --convert-to xls --outdir "$work/out" "$csv" > /dev/null 2>&1 ;;
    sheetjs) node -e 'const X = require(process.argv[1]);
                      X.writeFile(X.readFile(process.argv[2]), process.argv[3], {bookType: "biff8"});' \
               "$sheetjs" "$csv" "$work/out/sheetjs.xls" ;;
  esac
  end=$EPOCHREALTIME
  echo "$end - $start" | bc -l
}

# Rows of the first sheet of a workbook, by python3-xlrd.
rows_of() {
  /usr/bin/python3 -c 'import sys, xlrd; print(xlrd.open_workbook(sys.argv[1]).sheet_by_index(0).nrows)' "$1" 2> /dev/null || echo "?"
}

sides=(sheet)
[ $have_ssconvert = 1 ] && sides+=(ssconvert)
[ $have_soffice = 1 ] && sides+=(soffice)
[ $have_sheetjs = 1 ] && sides+=(sheetjs)
# LibreOffice makes its profile on the first start: not counted.
[ $have_soffice = 1 ] && run soffice 1000 > /dev/null

echo "text file to workbook, 31 columns, $rounds rounds of ${sides[*]} in turns"
for n in 1000 8000 65536; do
  echo "$n rows ($(stat -c %s "$work/d$n.csv") bytes of text):"
  declare -A times=()
  for ((r = 1; r <= rounds; r++)); do
    line="  round $r:"
    for side in "${sides[@]}"; do
      t=$(run "$side" "$n")
      times[$side]="${times[$side]:-} $t"
      line+=$(printf ' %s %.3f s' "$side" "$t")
      if [ "$r" = 1 ]; then
        case $side in
          sheet) out=$work/d$n.xls ;;
          soffice) out=$work/out/d$n.xls ;;
          *) out=$work/out/$side.xls ;;
        esac
        got=$(rows_of "$out")
        [ "$got" = "$n" ] || echo "  convert_bench: $side wrote $got rows, not $n" >&2
      fi
    done
    echo "$line"
  done
  # Per side: median time; per peer: median over rounds of (peer / ours in that round).
  /usr/bin/python3 - "$n" "${sides[@]}" <<EOF
import statistics, sys
n = int(sys.argv[1]); sides = sys.argv[2:]
times = {$(for s in "${sides[@]}"; do printf '"%s": [%s], ' "$s" "$(echo ${times[$s]} | tr ' ' ',')"; done)}
ours = times["sheet"]
print("  sheet convert: median %.3f s, best %.3f s, %.1f us per row" % (statistics.median(ours), min(ours), 1e6 * min(ours) / n))
for s in sides[1:]:
    ratios = [p / o for p, o in zip(times[s], ours)]
    print("  %-9s median %.3f s; round by round %s; median %.1fx slower than sheet convert" % (s, statistics.median(times[s]), " ".join("%.1fx" % x for x in ratios), statistics.median(ratios)))
EOF
  unset times
done
