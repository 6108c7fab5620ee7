#!/usr/bin/env bash
# Installs the build into a temporary prefix and builds a consumer against it twice:
# through find_package(spreadsheet) and through pkg-config, the latter beside unixODBC's
# <sql.h> included before and after our headers. Then the installed pieces that must name
# or find the prefix: sheet starts from it, the driver template names the driver in it.
set -euo pipefail
build=$1
sanitize=${2:-OFF}
dir=$(mktemp -d)
trap 'rm -rf "$dir"' EXIT
cmake --install "$build" --prefix "$dir/prefix" > /dev/null

p=$dir/prefix
for f in include/spreadsheet/SpreadSheet.h include/platform/CString.h lib/libspreadsheet.so \
         lib/cmake/spreadsheet/spreadsheetConfig.cmake lib/pkgconfig/spreadsheet.pc bin/sheet \
         share/man/man1/sheet.1 share/bash-completion/completions/sheet; do
  [ -e "$p/$f" ] || { echo "missing after install: $f"; exit 1; }
done
for f in include/platform/SysCalls.h include/platform/ExcelDispIds.h include/spreadsheet/RowLine.h; do
  [ ! -e "$p/$f" ] || { echo "internal header installed: $f"; exit 1; }
done

# No LD_LIBRARY_PATH: the tool finds its library through its RUNPATH.
version=$(env -u LD_LIBRARY_PATH "$p/bin/sheet" --version | head -1)
[ "$version" = "sheet $(sed -n 's/^Version: //p' "$p/lib/pkgconfig/spreadsheet.pc")" ] ||
  { echo "installed sheet --version printed '$version'"; exit 1; }
if [ -e "$p/lib/odbc/libxlsodbc.so" ]; then
  # Both registered names point at the one library.
  driver=$(sed -n 's/^Driver *= *//p' "$p/share/xlsodbc/xlsodbc-odbcinst.ini" | sort -u)
  [ "$driver" = "$p/lib/odbc/libxlsodbc.so" ] || { echo "installed template names '$driver'"; exit 1; }
fi

flags=""
case "$sanitize" in ON|on|1|TRUE|true) flags="-fsanitize=address,undefined" ;; esac

mkdir -p "$dir/consumer"
cat > "$dir/consumer/main.cpp" <<'CPP'
#include <spreadsheet/SpreadSheet.h>
#include <cstdio>
int main(int argc, char** argv) {
  CSpreadSheet s(argv[1], ";", false);
  CString cell;
  if (!s.ReadCell(cell, "Qty", 2, false)) return 1;
  std::printf("%s\n", cell.GetString());
  return argc == 2 ? 0 : 1;
}
CPP
cat > "$dir/consumer/CMakeLists.txt" <<'CMAKE'
cmake_minimum_required(VERSION 3.20)
project(consumer CXX)
find_package(spreadsheet REQUIRED)
add_executable(consumer main.cpp)
target_link_libraries(consumer PRIVATE spreadsheet::spreadsheet)
CMAKE
printf 'Name;Qty\r\napple;3\r\n' > "$dir/data.csv"

cmake -S "$dir/consumer" -B "$dir/consumer/build" -DCMAKE_PREFIX_PATH="$dir/prefix" \
  -DCMAKE_CXX_FLAGS="$flags" > /dev/null
cmake --build "$dir/consumer/build" > /dev/null
out=$(LD_LIBRARY_PATH="$dir/prefix/lib" "$dir/consumer/build/consumer" "$dir/data.csv")
[ "$out" = "3" ] || { echo "find_package consumer printed '$out'"; exit 1; }

export PKG_CONFIG_PATH="$dir/prefix/lib/pkgconfig"
sql='#include <sql.h>
#include <sqlext.h>'
for order in before after; do
  { [ $order = before ] && echo "$sql"
    cat "$dir/consumer/main.cpp"
    [ $order = after ] && echo "$sql"
    echo 'SQLRETURN unused_ = SQL_SUCCESS; ULONG unusedUlong_ = 0; BOOL unusedBool_ = TRUE;'
  } > "$dir/sql-$order.cpp"
  # shellcheck disable=SC2046
  g++ -std=c++17 -Wall -Wextra -Werror $flags "$dir/sql-$order.cpp" -o "$dir/pc-consumer" \
    $(pkg-config --cflags --libs spreadsheet odbc)
  out=$(LD_LIBRARY_PATH="$dir/prefix/lib" "$dir/pc-consumer" "$dir/data.csv")
  [ "$out" = "3" ] || { echo "pkg-config consumer (<sql.h> $order) printed '$out'"; exit 1; }
done
echo "install: find_package and pkg-config consumers (<sql.h> before and after) read the cell; the installed $version starts from the prefix"
