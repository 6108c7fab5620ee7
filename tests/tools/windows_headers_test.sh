#!/usr/bin/env bash
# The public headers compile beside <windows.h> and the Windows <sql.h>, included before or
# after them, with the MinGW-w64 cross compiler (skipped where it is not installed).
# usage: windows_headers_test.sh SOURCE_DIR PUBLIC_HEADERS_LIST
set -euo pipefail
src=$1
list=$2
cxx=x86_64-w64-mingw32-g++-posix
command -v "$cxx" > /dev/null || { echo "skipped: no $cxx"; exit 0; }
dir=$(mktemp -d)
trap 'rm -rf "$dir"' EXIT
ours=$(sed 's|.*|#include "&"|' "$list")
system='#include <windows.h>
#include <sql.h>
#include <sqlext.h>'
for order in before after; do
  { [ $order = before ] && echo "$system"
    echo "$ours"
    [ $order = after ] && echo "$system"
    echo 'int main() { BOOL b = TRUE; ULONG u = 0; SQLRETURN r = SQL_SUCCESS; CString s("x");'
    echo '  return b && !u && !r && s.GetLength() == 1 ? 0 : 1; }'
  } > "$dir/$order.cpp"
  "$cxx" -std=c++17 -Wall -Wextra -Werror -fsyntax-only -I"$src" "$dir/$order.cpp"
done
echo "windows headers: compile with <windows.h> and <sql.h> before and after"
