#!/usr/bin/env bash
# The sheet tool end to end: output, exit codes and messages, on text files and (when the
# driver was built) on workbooks through a private driver registration.
# usage: sheet_test.sh SHEET SOURCE_DIR [ODBCINST_INI]
set -u
sheet=$1
source_dir=$2
odbcinst=${3:-}
dir=$(mktemp -d)
trap 'rm -rf "$dir"' EXIT
failures=0
passes=0

check() {  # check NAME EXPECTED ACTUAL
  if [ "$2" == "$3" ]; then
    passes=$((passes + 1))
  else
    failures=$((failures + 1))
    printf 'FAIL %s\n  expected: %q\n  actual:   %q\n' "$1" "$2" "$3"
  fi
}

# fails NAME STATUS MESSAGE -- ARGS...: sheet ARGS exits STATUS with MESSAGE on stderr.
fails() {
  local name=$1 status=$2 message=$3
  shift 4
  "$sheet" "$@" > "$dir/out" 2> "$dir/err"
  check "$name: exit" "$status" "$?"
  check "$name: message" "$message" "$(cat "$dir/err")"
}

f=$dir/t.csv
printf '"Name";"Qty"\r\n"apple";"3"\r\n"pear";"5"\r\n' > "$f"

check "cat" $'Name\tQty\napple\t3\npear\t5' "$("$sheet" cat "$f" -d ';')"
check "cat from standard input" $'Name\tQty\napple\t3\npear\t5' "$("$sheet" cat - -d ';' < "$f")"
check "cell by number" "5" "$("$sheet" cell "$f" 2 3 -d ';')"
check "cell by letters" "pear" "$("$sheet" cell "$f" a 3 -d ';')"
check "cell by header" "3" "$("$sheet" cell "$f" Qty 2 -d ';')"

"$sheet" set "$f" Qty 2 7 -d ';'; check "set exit" 0 $?
"$sheet" add "$f" -d ';' fig 9; check "add exit" 0 $?
"$sheet" insert "$f" 2 -d ';' kiwi 1; check "insert exit" 0 $?
check "edited bytes" $'"Name";"Qty"\r\n"kiwi";"1"\r\n"apple";"7"\r\n"pear";"5"\r\n"fig";"9"\r\nx' "$(cat "$f"; printf x)"
check "info rows" "rows:       5 (header included)" "$("$sheet" info "$f" -d ';' | grep '^rows')"
"$sheet" add "$dir/new.csv" -d ';' Name Qty; check "add makes a new text file" 0 $?
check "new file bytes" $'"Name";"Qty"\r\nx' "$(cat "$dir/new.csv"; printf x)"

cp "$f" "$dir/c.csv"
"$sheet" clear "$dir/c.csv" -d ';'; check "clear exit" 0 $?
check "cleared size" 0 "$(stat -c %s "$dir/c.csv")"

m=$dir/missing.csv
enoent="No such file or directory"
fails "cat missing" 1 "sheet: cat: $m: $enoent" -- cat "$m"
fails "cell missing" 1 "sheet: cell: $m: $enoent" -- cell "$m" 1 2
fails "info missing" 1 "sheet: info: $m: $enoent" -- info "$m"
fails "set missing" 1 "sheet: set: $m: $enoent" -- set "$m" 1 2 x
fails "clear of a mistyped name" 1 "sheet: clear: $m: $enoent" -- clear "$m"
check "clear made no file" "no" "$([ -e "$m" ] && echo yes || echo no)"
fails "convert missing" 1 "sheet: convert: $m: $enoent" -- convert "$m"
fails "cat a folder" 1 "sheet: cat: $dir: Is a directory" -- cat "$dir"
fails "add to a folder" 1 "sheet: add: $dir: Is a directory" -- add "$dir" -d ';' x
fails "row past the end" 1 "sheet: cell: $f: Error reading row" -- cell "$f" 2 9 -d ';'
fails "column past the last" 1 "sheet: cell: $f: column 9 is past the last column (2)" -- cell "$f" 9 2 -d ';'
fails "unknown header" 1 "sheet: cell: $f: Invalid field name or column alphabet" -- cell "$f" Nope 2 -d ';'
fails "usage" 2 $'sheet: cell takes a file, a column and a row\nusage: sheet cell FILE COL ROW [-d D | -s S]' -- cell "$f" 1 -d ';'
fails "empty delimiter" 2 $'sheet: the delimiter cannot be empty\nusage: sheet cat FILE [-d DELIM | -s SHEET]' -- cat "$f" -d ''
"$sheet" frobnicate 2>/dev/null; check "unknown command exit" 2 $?

# Help and version print to stdout and open no file.
"$sheet" --help > "$dir/help"; check "help exit" 0 $?
(cd "$dir" && "$sheet" cat --help > "$dir/cathelp"); check "cat --help exit" 0 $?
check "cat --help is help" "usage: sheet cat FILE [-d DELIM | -s SHEET]" "$(head -1 "$dir/cathelp")"
version=$(sed -n 's/^project(spreadsheet VERSION \([0-9.]*\).*/\1/p' "$source_dir/CMakeLists.txt")
check "version" "sheet $version" "$("$sheet" --version | head -1)"
# The README shows the tool's own usage text, between its two markers.
check "README usage is the tool's" "$(cat "$dir/help")" \
  "$(sed -n '/<!-- sheet --help -->/,/<!-- end -->/p' "$source_dir/README.md" | sed '1,2d;$d' | sed '$d')"
# The progress bar goes to a terminal only.
seq 1 3000 | sed 's/$/;x\r/' > "$dir/long.csv"
script -qec "$(printf '%q ' env SHEET_PROGRESS_AFTER=0 "$sheet" cat "$dir/long.csv" -d ';') > /dev/null" /dev/null \
  > "$dir/tty"
check "progress bar on a terminal" yes "$(grep -q 'sheet: cat \[#*  *\] [0-9]*/3000' "$dir/tty" && echo yes)"
SHEET_PROGRESS_AFTER=0 "$sheet" cat "$dir/long.csv" -d ';' > /dev/null 2> "$dir/err"
check "no progress bar elsewhere" "" "$(cat "$dir/err")"

# ... and so does the man page, one entry per command.
for command in $(sed -n 's/^  sheet \([a-z]*\) .*/\1/p' "$dir/help"); do
  check "man page has $command" yes "$(grep -q "^\.BI \"$command " "$source_dir/tools/sheet/sheet.1" && echo yes)"
done

if [ -n "$odbcinst" ] && [ -f "$odbcinst" ]; then
  cp "$odbcinst" "$dir/odbcinst.ini"
  : > "$dir/odbc.ini"
  export ODBCSYSINI=$dir ODBCINSTINI=odbcinst.ini ODBCINI=$dir/odbc.ini
  printf 'Name,Note\r\napple,big one\r\npear,half of it\r\nfig,ok\r\n' > "$dir/w.csv"
  fails "convert counts what did not land" 1 \
    "sheet: convert: $dir/w.xls: 2 of 3 data rows did not land (the class saves each row unquoted and the driver rejects a value holding a space or \"/\"; --quoted writes every row)" \
    -- convert "$dir/w.csv" -s S
  rm -f "$dir/w.xls"
  check "convert --quoted" "$dir/w.xls" "$("$sheet" convert "$dir/w.csv" -s S --quoted)"
  check "every row landed" $'Name\tNote\napple\tbig one\npear\thalf of it\nfig\tok' "$("$sheet" cat "$dir/w.xls" -s S)"
  b=$dir/w.xls
  fails "unknown sheet" 1 "sheet: cat: $b: no sheet named \"Nope\"" -- cat "$b" -s Nope
  fails "set on a workbook asks for --force" 1 \
    "sheet: set: $b: a workbook edit is saved by inserting every row of the sheet again, so the sheet would gain duplicate rows and a changed cell would keep its old value; change cells with \`sheet sql\`, or give --force to save through the class anyway" \
    -- set "$b" Note 2 small -s S
  check "refused edit left the sheet" 4 "$("$sheet" cat "$b" -s S | wc -l)"
  cp "$b" "$dir/forced.xls"
  "$sheet" set "$dir/forced.xls" Note 2 small -s S --force 2> "$dir/err"
  check "set --force: exit" 1 $?
  # How many rows the save adds is the class's business; that it added them is the message.
  message=$(cat "$dir/err")
  check "set --force says what happened" yes \
    "$([[ $message == "sheet: set: $dir/forced.xls: the sheet held 4 rows and now holds "*", not 4: the class's save inserted rows again" ]] && echo yes)"
  /usr/bin/python3 - "$dir/full.xls" <<'PY'
import sys, xlwt
book = xlwt.Workbook()
sheet = book.add_sheet("Full")
for r in range(65536):
    sheet.write(r, 0, "Name" if r == 0 else "n%d" % r)
    sheet.write(r, 1, "Qty" if r == 0 else str(r))
book.save(sys.argv[1])
PY
  fails "add on a full sheet" 1 "sheet: add: $dir/full.xls: sheet \"Full\" is full (65536 rows, the most a .xls sheet holds)" \
    -- add "$dir/full.xls" -s Full --force x 1
  fails "set on a full sheet" 1 \
    "sheet: set: $dir/full.xls: column Qty of row 2 reads \"1\", not \"9\" (the sheet is full: 65536 rows)" \
    -- set "$dir/full.xls" Qty 2 9 -s Full --force
  # .xlsx through the driver: every command, conversions between the three formats, and
  # each way one fails. The class would take these names as text files.
  x=$dir/x.xlsx
  check "text -> .xlsx" "$x" "$("$sheet" convert "$dir/w.csv" "$x" -s S)"
  check ".xlsx holds Office Open XML" PK "$(head -c 2 "$x")"
  check "cat .xlsx" $'Name\tNote\napple\tbig one\npear\thalf of it\nfig\tok' "$("$sheet" cat "$x" -s S)"
  check "cell by header" "half of it" "$("$sheet" cell "$x" Note 3 -s S)"
  check "cell by letters" "fig" "$("$sheet" cell "$x" a 4 -s S)"
  check "info rows" "rows:       4 (header included)" "$("$sheet" info "$x" -s S | grep '^rows')"
  "$sheet" set "$x" Note 2 "it's small" -s S; check "set in place, no --force" 0 $?
  "$sheet" add "$x" -s S kiwi 007; check "add in place" 0 $?
  "$sheet" insert "$x" 3 -s S --force lime 2; check "insert --force" 0 $?
  after=$'Name\tNote\napple\tit\'s small\nlime\t2\npear\thalf of it\nfig\tok\nkiwi\t007'
  check "the edits, in place" "$after" "$("$sheet" cat "$x" -s S)"
  check ".xlsx -> .xls" "$dir/y.xls" "$("$sheet" convert "$x" "$dir/y.xls" -s S)"
  check ".xls holds BIFF8" "d0cf" "$(head -c 2 "$dir/y.xls" | od -An -tx1 | tr -d ' ')"
  check ".xls -> .xlsx" "$dir/z.xlsx" "$("$sheet" convert "$dir/y.xls" "$dir/z.xlsx" -s S)"
  check "both ways, the same rows" "$after" "$("$sheet" cat "$dir/z.xlsx" -s S)"
  check ".xlsx -> .csv by default" "$dir/z.csv" "$("$sheet" convert "$dir/z.xlsx" -s S)"
  check ".csv bytes" $'"Name","Note"\r\n"apple","it\'s small"\r\n"lime","2"\r\n"pear","half of it"\r\n"fig","ok"\r\n"kiwi","007"\r\nx' \
    "$(cat "$dir/z.csv"; printf x)"
  check "sql on .xlsx" $'Note\n007' "$("$sheet" sql "$x" "SELECT Note FROM [S] WHERE Name = 'kiwi'")"
  "$sheet" set "$x" Note 6 1.50 -s S; check "set text that looks like a number" 0 $?
  check "it reads back as written" "1.50" "$("$sheet" cell "$x" Note 6 -s S)"

  printf 'not a workbook\n' > "$dir/bad.xlsx"
  seq 1 65537 | sed '1s/^/n\n/' > "$dir/big.csv"  # a header and 65,537 rows
  : > "$dir/empty.csv"
  xfails() {  # xfails NAME STATUS PATTERN -- ARGS...: like fails, the message matching PATTERN
    local name=$1 status=$2 pattern=$3
    shift 4
    "$sheet" "$@" > "$dir/out" 2> "$dir/err"
    check "$name: exit" "$status" "$?"
    check "$name: message" yes "$([[ $(cat "$dir/err") == $pattern ]] && echo yes)"
  }
  xfails "cat an unreadable .xlsx" 1 "sheet: cat: $dir/bad.xlsx: *is not a workbook this driver can read*" \
    -- cat "$dir/bad.xlsx" -s S
  xfails "cat a missing .xlsx" 1 "sheet: cat: $dir/none.xlsx: $enoent" -- cat "$dir/none.xlsx" -s S
  xfails "unknown sheet" 1 "sheet: cell: $x: no sheet named \"Nope\"" -- cell "$x" 1 1 -s Nope
  xfails "row past the end" 1 "sheet: set: $x: row 9 is past the last row (6)" -- set "$x" 1 9 v -s S
  xfails "column past the last" 1 "sheet: cell: $x: column 3 is past the last column (2)" -- cell "$x" C 1 -s S
  xfails "insert asks for --force" 1 "sheet: insert: $x: inserting moves every row below it*--force*" \
    -- insert "$x" 2 -s S a b
  xfails "a target of another format" 2 "sheet: $dir/x.xlsb: workbooks are written as .xls, .xlsx or .xlsm*" \
    -- convert "$x" "$dir/x.xlsb" -s S
  xfails "into a sheet that exists" 1 "sheet: convert: $dir/z.xlsx: already holds a sheet \"S\"" \
    -- convert "$dir/w.csv" "$dir/z.xlsx" -s S
  xfails "more rows than .xls holds" 1 "sheet: convert: $dir/big-copy.xls: row 65537 of $dir/big.csv: *is full*" \
    -- convert "$dir/big.csv" "$dir/big-copy.xls" -s S
  xfails "sql on another format" 2 "sheet: sql works on .xls and .xlsx workbooks only*" \
    -- sql "$dir/x.ods" "SELECT 1"
  "$sheet" clear "$x" -s S; check "clear an .xlsx sheet" 0 $?
  xfails "clear it again" 1 "sheet: clear: $x: no sheet named \"S\"" -- clear "$x" -s S

  "$sheet" clear "$b" -s S; check "clear drops the sheet" 0 $?
  fails "clear it again" 1 "sheet: clear: $b: no sheet named \"S\"" -- clear "$b" -s S
fi

echo "$passes passed, $failures failed"
[ "$failures" -eq 0 ]
