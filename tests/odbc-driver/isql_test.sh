#!/usr/bin/env bash
# unixODBC's isql creates a workbook through the driver, inserts, selects, updates and
# drops; a rejected statement prints the driver's SQLSTATE and message (isql asks for
# ODBC 2 behaviour, so the driver manager shows 42000 as 37000).
# Usage: isql_test.sh <odbcinst.ini template>   (env XLSODBC_PRELOAD: sanitizer runtime)
set -euo pipefail
template=$1
work=$(mktemp -d /tmp/xlsodbc-isql-XXXXXX)
trap 'rm -rf "$work"' EXIT
: > "$work/odbc.ini"
# Registered the way an administrator would, into a private ODBCSYSINI.
ODBCSYSINI="$work" odbcinst -i -d -f "$template"
# Under its name, and under the earlier "(*.xls)" one that older data sources name.
grep -qF '[Excel Workbook Driver (*.xls, *.xlsx, *.xlsm)]' "$work/odbcinst.ini"
grep -qF '[Excel Workbook Driver (*.xls)]' "$work/odbcinst.ini"
book="$work/isql book.xls"
run() {
  env ODBCSYSINI="$work" ODBCINI="$work/odbc.ini" ${XLSODBC_PRELOAD:+LD_PRELOAD=$XLSODBC_PRELOAD} \
    isql -b -v -k "DRIVER={Excel Workbook Driver (*.xls, *.xlsx, *.xlsm)};CREATE_DB=\"$book\";DBQ=$book" 2>&1
}
out=$(run <<'SQL'
CREATE TABLE [People] ([Name] char(255), [Qty] char(255))
INSERT INTO [People$A1:X1] VALUES ('Ann', '3')
INSERT INTO [People$A1:X1] VALUES (Bob, 4)
UPDATE [People] SET [Qty]='5' WHERE ([Name]='Ann' )
SELECT * FROM [People$A1:IV65536]
SQL
)
echo "$out"
expect() { grep -qE -- "$1" <<<"$out" || { echo "FAIL: expected /$1/"; exit 1; }; }
expect '\| *Ann *\| *5 *\|'
expect '\| *Bob *\| *4 *\|'
expect 'SQLRowCount returns 1'
[ -f "$book" ] || { echo "FAIL: no workbook at $book"; exit 1; }

out=$(run <<'SQL' || true
INSERT INTO [People$A4:X4] VALUES ('O'Brien')
SQL
)
echo "$out"
expect '\[(42000|37000)\].*\[Excel Workbook Driver\] Syntax error at position'

out=$(run <<'SQL'
DROP TABLE [People$A1:IV65536]
SELECT * FROM [People$A1:IV65536]
SQL
)
echo "$out"
if grep -q Ann <<<"$out"; then echo "FAIL: rows left after DROP"; exit 1; fi

# The same statements make an .xlsx: a zip archive, by the name's extension.
book="$work/isql book.xlsx"
out=$(run <<'SQL'
CREATE TABLE [People] ([Name] char(255), [Qty] char(255))
INSERT INTO [People$A1:X1] VALUES ('Ann', '3')
SELECT * FROM [People$A1:XFD1048576]
SQL
)
echo "$out"
expect '\| *Ann *\| *3 *\|'
[ "$(head -c 2 "$book")" = PK ] || { echo "FAIL: $book is not Office Open XML"; exit 1; }

# A DSN in odbc.ini: SQLConnect, the keys read from the DSN's section. It names the driver
# by its earlier name, as a data source made before .xlsx does.
printf '[people]\nDriver = Excel Workbook Driver (*.xls)\nDBQ = %s\nREADONLY = 1\n' "$book" > "$work/odbc.ini"
out=$(printf 'SELECT * FROM [People]\nINSERT INTO [People] VALUES (x, 1)\n' |
  env ODBCSYSINI="$work" ODBCINI="$work/odbc.ini" ${XLSODBC_PRELOAD:+LD_PRELOAD=$XLSODBC_PRELOAD} \
    isql -b -v people 2>&1 || true)
echo "$out"
expect 'read-only'
echo PASS
