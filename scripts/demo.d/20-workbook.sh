#!/usr/bin/env bash
# Excel mode: the sample delimited file becomes a workbook through our ODBC driver, which
# the class then reads back like any other; plain SQL on the workbook, and the report
# automation's workbook. The driver is registered for this process only, through a
# private ODBCSYSINI folder: nothing under /etc changes.
# Run by scripts/demo.sh with BUILD_DIR, SHEET and SAMPLE_DIR set.
set -euo pipefail
: "${BUILD_DIR:?}" "${SHEET:?}" "${SAMPLE_DIR:?}"

template=$BUILD_DIR/odbc-driver/odbcinst.ini
if [ ! -f "$template" ] || [ ! -f "$BUILD_DIR/odbc-driver/libxlsodbc.so" ]; then
  echo "== Excel mode: skipped (the ODBC driver was not built in $BUILD_DIR)"
  exit 0
fi
odbc=$(mktemp -d)
trap 'rm -rf "$odbc"' EXIT
cp "$template" "$odbc/odbcinst.ini"
: > "$odbc/odbc.ini"
export ODBCSYSINI=$odbc ODBCINSTINI=odbcinst.ini ODBCINI=$odbc/odbc.ini

run() {
  printf '\n$ sheet %s\n' "$*"
  "$SHEET" "$@"
}

csv=$SAMPLE_DIR/limits.csv
book=$SAMPLE_DIR/limits.xls
report=$SAMPLE_DIR/report.xls
# Convert refuses a workbook that already holds the sheet: start from none.
rm -f "$book" "$book-journal" "$report"

echo
echo "== Excel mode: $csv into a workbook through the ODBC driver"
run convert "$csv" -d ';' -s Limits
run cat "$book" -s Limits
run cell "$book" "Buy Limit" 3 -s Limits
run sql "$book" "SELECT [User ID], [Buy Limit] FROM [Limits$] WHERE [Exchange] = 'NSE'"
run sql "$book" "UPDATE [Limits] SET [Buy Limit]='90000' WHERE ([User ID]='U002')"
run cat "$book" -s Limits
printf '\n%s is an ordinary .xls file (%s bytes); python3-xlrd reads it:\n' "$book" "$(stat -c %s "$book")"
/usr/bin/python3 - "$book" <<'EOF' || echo "(python3-xlrd is not installed)"
import sys
try:
    import xlrd
except ImportError:
    sys.exit(1)
sheet = xlrd.open_workbook(sys.argv[1]).sheet_by_name("Limits")
for r in range(sheet.nrows):
    print("  " + " | ".join(str(v) for v in sheet.row_values(r)))
EOF

echo
echo "== The report automation's workbook (formatted, empty tables to fill in)"
run report "$report" --rms 3 --price-protection 2 --script-validation 0
/usr/bin/python3 - "$report" <<'EOF' || echo "(python3-xlrd is not installed)"
import sys
try:
    import xlrd
except ImportError:
    sys.exit(1)
book = xlrd.open_workbook(sys.argv[1], formatting_info=True)
for sheet in book.sheets():
    bordered = sum(1 for r in range(sheet.nrows) for c in range(sheet.ncols)
                   if book.xf_list[sheet.cell_xf_index(r, c)].border.top_line_style)
    print("  sheet %-20r %d rows x %d columns laid out, %d bordered cells"
          % (sheet.name, sheet.nrows, sheet.ncols, bordered))
EOF
