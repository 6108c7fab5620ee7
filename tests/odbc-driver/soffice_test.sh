#!/usr/bin/env bash
# LibreOffice reads a workbook the driver wrote: isql creates two sheets, inserts, updates
# and drops a region; soffice --headless converts each sheet to CSV, which must hold exactly
# the rows the statements left.
# Usage: soffice_test.sh <driver.so>   (env XLSODBC_PRELOAD: sanitizer runtime for isql)
set -euo pipefail
driver=$1
command -v soffice >/dev/null || { echo "soffice not installed"; exit 1; }
work=$(mktemp -d /tmp/xlsodbc-soffice-XXXXXX)
trap 'rm -rf "$work"' EXIT
printf '[Excel Workbook Driver (*.xls, *.xlsx, *.xlsm)]\nDriver = %s\n' "$driver" > "$work/odbcinst.ini"
: > "$work/odbc.ini"
book="$work/book.xls"
env ODBCSYSINI="$work" ODBCINI="$work/odbc.ini" ${XLSODBC_PRELOAD:+LD_PRELOAD=$XLSODBC_PRELOAD} \
  isql -b -k "DRIVER={Excel Workbook Driver (*.xls, *.xlsx, *.xlsm)};CREATE_DB=$book;DBQ=$book" >"$work/isql.log" 2>&1 <<'SQL'
CREATE TABLE [Sheet1] ([Name] char(255), [Qty] char(255))
CREATE TABLE [Sheet1$A4:IV65536] ([Name] char(255), [Qty] char(255))
INSERT INTO [Sheet1$A4:X4] VALUES ('abc', '10')
INSERT INTO [Sheet1$A5:X5] VALUES ('x,y', 2.5)
INSERT INTO [Sheet1$A3:IV1] VALUES (Zed, 7)
UPDATE [Sheet1] SET [Qty]='11' WHERE ([Name]='abc' )
CREATE TABLE [Other] ([k] char(255))
INSERT INTO [Other] VALUES ('gone')
DROP TABLE [Other$A1:IV65536]
SQL
cat "$work/isql.log"
# Each sheet to its own CSV (LibreOffice 7.2+: the filter's 12th token -1 means all sheets).
HOME="$work" soffice -env:UserInstallation=file://"$work"/profile --headless \
  --convert-to 'csv:Text - txt - csv (StarCalc):44,34,76,1,,0,false,true,false,false,false,-1' \
  --outdir "$work/out" "$book" >/dev/null 2>&1
got=$(cat "$work/out/book-Sheet1.csv")
want=$'Name,Qty\nabc,11\n"x,y",2.5\nZed,7'
if [ "$got" != "$want" ]; then
  printf 'FAIL: Sheet1 as LibreOffice reads it:\n%s\nwanted:\n%s\n' "$got" "$want"
  exit 1
fi
if [ -s "$work/out/book-Other.csv" ] && grep -q . "$work/out/book-Other.csv"; then
  echo "FAIL: the dropped region still holds: $(cat "$work/out/book-Other.csv")"
  exit 1
fi
echo PASS
