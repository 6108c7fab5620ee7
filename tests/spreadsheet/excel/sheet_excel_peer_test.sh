#!/usr/bin/env bash
# sheet sql and sheet convert through unixODBC, with the SQLite ODBC driver registered
# under an "Excel" description in a private ODBCSYSINI (data source '' = peer.db).
set -euo pipefail
sheet=$1
dir=$(mktemp -d)
trap 'rm -rf "$dir"' EXIT
lib=$(ls /usr/lib/*/odbc/libsqlite3odbc.so /usr/lib/odbc/libsqlite3odbc.so 2>/dev/null | head -n1 || true)
[ -n "$lib" ] || { echo "libsqliteodbc is not installed"; exit 1; }
printf '[ODBC]\n\n[SQLite Excel Peer]\nDriver = %s\n' "$lib" > "$dir/odbcinst.ini"
printf "['']\nDatabase = %s/peer.db\n" "$dir" > "$dir/odbc.ini"
export ODBCSYSINI=$dir ODBCINSTINI=odbcinst.ini ODBCINI=$dir/odbc.ini
fail() { echo "FAIL: $*"; exit 1; }
book=$dir/book.xls
: > "$book"  # sheet reads only files that exist; the peer keeps the data in peer.db

"$sheet" sql "$book" 'CREATE TABLE [T$A1:IV65536] (Name, Qty)'
"$sheet" sql "$book" "INSERT INTO [T\$A1:IV65536] VALUES ('apple', 3)"
"$sheet" sql "$book" "INSERT INTO [T\$A1:IV65536] VALUES ('pear', NULL)"
out=$("$sheet" sql "$book" 'SELECT * FROM [T$A1:IV65536]')
[ "$out" = "$(printf 'Name\tQty\napple\t3\npear\t')" ] || fail "sql select printed: $out"

# The driver's message, exit 1.
if err=$("$sheet" sql "$book" 'SELEC oops' 2>&1); then fail "a bad statement succeeded"; fi
[ "$err" = "sheet: sql: $book: [SQLite]near \"SELEC\": syntax error (1)" ] || fail "sql error printed: $err"

# Workbook to text, then refused when the target holds rows.
[ "$("$sheet" convert "$book" -s T -d ';')" = "$dir/book.csv" ] || fail "convert did not name its target"
[ "$(cat "$dir/book.csv")" = "$(printf '"Name";"Qty"\r\n"apple";"3"\r\n"pear";""\r')" ] || fail "csv: $(cat -A "$dir/book.csv")"
if "$sheet" convert "$book" -s T -d ';' 2> "$dir/err"; then fail "convert overwrote a full target"; fi
grep -q 'already holds rows' "$dir/err" || fail "refusal said: $(cat "$dir/err")"

# A big sheet gets a progress line on stderr when that is a terminal.
/usr/bin/python3 - "$dir/peer.db" <<'PY'
import sqlite3, sys
db = sqlite3.connect(sys.argv[1])
db.execute('CREATE TABLE "Big$A1:IV65536" (a, b)')
db.executemany('INSERT INTO "Big$A1:IV65536" VALUES (?, ?)', ((i, 'v%d' % i) for i in range(12000)))
db.commit()
PY
rm -f "$dir/book.csv"
script -qec "$(printf '%q ' "$sheet" convert "$book" -s Big -d ,)" /dev/null > "$dir/err"
grep -q '^sheet: convert: 12001 rows x 2 columns' "$dir/err" || fail "no progress line: $(cat "$dir/err")"
rm -f "$dir/book.csv"
"$sheet" convert "$book" -s Big -d , > /dev/null 2> "$dir/err"
[ ! -s "$dir/err" ] || fail "progress line without a terminal: $(cat "$dir/err")"
[ "$(wc -l < "$dir/book.csv")" -eq 12001 ] || fail "big csv has $(wc -l < "$dir/book.csv") lines"

# Usage errors exit 2.
set +e
"$sheet" convert 2> /dev/null; [ $? -eq 2 ] || fail "convert without a file"
"$sheet" sql "$dir/x.csv" 'SELECT 1' 2> /dev/null; [ $? -eq 2 ] || fail "sql on a text file"
echo "sheet excel peer: ok"
