#!/usr/bin/env bash
# Short libFuzzer runs of the ODBC driver's targets, ODBC_FUZZ_SECONDS each
# (scripts/fuzz.sh): the SQL parser and executor and the SQLite engine (statements up to
# 64 KiB), the journal decoder, connection strings, and statements with parameters on a
# workbook file that is saved and read back.
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
exec "$root/scripts/fuzz.sh" "${ODBC_FUZZ_SECONDS:-60}" \
  odbc_sql=tests/odbc-driver/sql-corpus=65536 \
  odbc_sql_engine=tests/odbc-driver/sql-corpus=65536 \
  odbc_journal=tests/odbc-driver/journal-corpus=4096 \
  odbc_connection_string=tests/odbc-driver/connection-string-corpus=1024 \
  odbc_statements=tests/odbc-driver/statements-corpus=4096
