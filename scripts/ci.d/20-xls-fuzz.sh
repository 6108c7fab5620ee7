#!/usr/bin/env bash
# Short libFuzzer runs of the .xls reader and the library's row-line splitter,
# XLS_FUZZ_SECONDS each (scripts/fuzz.sh).
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
exec "$root/scripts/fuzz.sh" "${XLS_FUZZ_SECONDS:-60}" \
  xls_read=tests/xls/corpus \
  xlsx_read=tests/xlsx-corpus \
  spreadsheet_rowline=tests/spreadsheet/rowline-corpus=4096
