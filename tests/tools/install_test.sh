#!/usr/bin/env bash
# Installs the build into a temporary prefix and builds a consumer against it twice:
# through find_package(spreadsheet) and through pkg-config.
set -euo pipefail
build=$1
sanitize=${2:-OFF}
dir=$(mktemp -d)
trap 'rm -rf "$dir"' EXIT
cmake --install "$build" --prefix "$dir/prefix" > /dev/null

for f in include/spreadsheet/SpreadSheet.h include/platform/CString.h lib/libspreadsheet.so \
         lib/cmake/spreadsheet/spreadsheetConfig.cmake lib/pkgconfig/spreadsheet.pc; do
  [ -e "$dir/prefix/$f" ] || { echo "missing after install: $f"; exit 1; }
done

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
# shellcheck disable=SC2046
g++ -std=c++17 $flags "$dir/consumer/main.cpp" -o "$dir/pc-consumer" $(pkg-config --cflags --libs spreadsheet)
out=$(LD_LIBRARY_PATH="$dir/prefix/lib" "$dir/pc-consumer" "$dir/data.csv")
[ "$out" = "3" ] || { echo "pkg-config consumer printed '$out'"; exit 1; }
echo "install: find_package and pkg-config consumers both read the cell"
