#!/usr/bin/env bash
# The sheet tool end to end on text files: output, exit codes and messages.
set -u
sheet=$1
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

f=$dir/t.csv
printf '"Name";"Qty"\r\n"apple";"3"\r\n"pear";"5"\r\n' > "$f"

check "cat" $'Name\tQty\napple\t3\npear\t5' "$("$sheet" cat "$f" -d ';')"
check "cell by number" "5" "$("$sheet" cell "$f" 2 3 -d ';')"
check "cell by letters" "pear" "$("$sheet" cell "$f" a 3 -d ';')"
check "cell by header" "3" "$("$sheet" cell "$f" Qty 2 -d ';')"
"$sheet" cell "$f" Nope 2 -d ';' 2> "$dir/err"; check "unknown header exit" 1 $?
check "unknown header message" "sheet: cell: Invalid field name or column alphabet" "$(cat "$dir/err")"
"$sheet" cell "$f" 2 9 -d ';' 2> "$dir/err"; check "row past the end" 1 $?
check "row past the end message" "sheet: cell: Error reading row" "$(cat "$dir/err")"

"$sheet" set "$f" Qty 2 7 -d ';'; check "set exit" 0 $?
"$sheet" add "$f" -d ';' fig 9; check "add exit" 0 $?
"$sheet" insert "$f" 2 -d ';' kiwi 1; check "insert exit" 0 $?
check "edited bytes" $'"Name";"Qty"\r\n"kiwi";"1"\r\n"apple";"7"\r\n"pear";"5"\r\n"fig";"9"\r\nx' "$(cat "$f"; printf x)"
check "info rows" "rows:       5 (header included)" "$("$sheet" info "$f" -d ';' | grep '^rows')"

"$sheet" clear "$f" -d ';'; check "clear exit" 0 $?
check "cleared size" 0 "$(stat -c %s "$f")"

"$sheet" cat "$dir/missing.csv" 2> "$dir/err"; check "missing file exit" 1 $?
check "missing file message" "sheet: cat: Error in opening file" "$(cat "$dir/err")"
"$sheet" add "$dir" -d ';' x 2> "$dir/err"; check "unwritable exit" 1 $?
check "unwritable message" "sheet: add: Error writing file" "$(cat "$dir/err")"
"$sheet" cell "$f" 1 -d ';' 2>/dev/null; check "usage exit" 2 $?
"$sheet" cat "$f" -d '' 2>/dev/null; check "empty delimiter exit" 2 $?
"$sheet" frobnicate 2>/dev/null; check "unknown command exit" 2 $?
"$sheet" --help > /dev/null; check "help exit" 0 $?

echo "$passes passed, $failures failed"
[ "$failures" -eq 0 ]
