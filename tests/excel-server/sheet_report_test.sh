#!/bin/bash
# sheet report end to end: usage errors, Excel missing, and the saved workbook read back
# by Debian's xlrd (python3-xlrd). Skips (77) the read-back while the codec has no writer.
set -u
sheet=$1
check=$(dirname "$0")/report_xlrd_check.py
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
fail() { echo "FAIL: $*"; exit 1; }

"$sheet" report >/dev/null 2>&1; [ $? -eq 2 ] || fail "no output file should be bad usage"
"$sheet" report "$work/a.xls" --rms x >/dev/null 2>&1; [ $? -eq 2 ] || fail "a bad count should be bad usage"
"$sheet" report "$work/a.xls" --rms 65533 >/dev/null 2>&1; [ $? -eq 2 ] || fail "too many rows should be bad usage"
"$sheet" report "$work/a.xls" --colour 1 >/dev/null 2>&1; [ $? -eq 2 ] || fail "an unknown option should be bad usage"
out=$(SPREADSHEET_AUTOMATION_DISABLE=1 "$sheet" report "$work/a.xls" 2>&1); rc=$?
[ $rc -eq 1 ] || fail "no Excel should fail with 1, got $rc"
[[ $out == *"Couldn't start Excel and get Application object."* ]] || fail "message: $out"
[ ! -e "$work/a.xls" ] || fail "nothing should be written without Excel"

out=$(env -u DISPLAY -u WAYLAND_DISPLAY "$sheet" report "$work/r.xls" --rms 5 --price-protection 10 --script-validation 0 2>&1); rc=$?
if [[ $out == *"no workbook writer"* ]]; then echo "SKIP: the codec has no writer yet"; exit 77; fi
[ $rc -eq 0 ] || fail "report failed ($rc): $out"
/usr/bin/python3 "$check" "$work/r.xls" 5 10 0 || fail "xlrd read-back"
echo ok
