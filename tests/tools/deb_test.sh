#!/usr/bin/env bash
# Builds the four .deb packages from a Release tree of its own (packages must not link the
# sanitizers) and checks their contents and depends. As root in a throwaway environment
# (CI=true), it also installs them with apt, runs isql through the driver the postinst
# registered, purges them and checks the registration went with them.
# usage: deb_test.sh SOURCE_DIR
set -euo pipefail
src=$1
work=$(mktemp -d)
installed=no
driver="Excel Workbook Driver (*.xls, *.xlsx, *.xlsm)"
earlier="Excel Workbook Driver (*.xls)"  # the name data sources made before .xlsx use
packages=(libspreadsheet0 libspreadsheet-dev odbc-xls spreadsheet-tools)
cleanup() {
  if [ "$installed" = yes ]; then apt-get purge -y -q "${packages[@]}" > /dev/null 2>&1 || true; fi
  rm -rf "$work"
}
trap cleanup EXIT
unset ASAN_OPTIONS UBSAN_OPTIONS LSAN_OPTIONS LD_PRELOAD
fail() { echo "FAIL $*"; exit 1; }

cmake -S "$src" -B "$work/build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DCMAKE_INSTALL_PREFIX=/usr \
  -DSPREADSHEET_BUILD_TESTS=OFF > "$work/configure.log"
cmake --build "$work/build" -j "${JOBS:-$(nproc)}" > "$work/build.log" || { tail -20 "$work/build.log"; exit 1; }
(cd "$work/build" && cpack -G DEB -B "$work/debs" > "$work/cpack.log") || { tail -20 "$work/cpack.log"; exit 1; }

version=$(sed -n 's/^project(spreadsheet VERSION \([0-9.]*\).*/\1/p' "$src/CMakeLists.txt")

# The driver reports the same version as the packages, in ODBC's "MM.mm.pppp" form.
printf 'Name,Qty\r\napple,3\r\n' > "$work/data.csv"
driver_ver=$(cd "$work" && export ODBCSYSINI=$work/build/odbc-driver ODBCINSTINI=odbcinst.ini &&
  "$work/build/tools/sheet/sheet" convert data.csv -s Fruit > /dev/null &&
  /usr/bin/python3 -c 'import pyodbc, sys
db = pyodbc.connect("DRIVER={Excel Workbook Driver (*.xls, *.xlsx, *.xlsm)};DBQ=" + sys.argv[1])
print(db.getinfo(pyodbc.SQL_DRIVER_VER))' "$work/data.xls") || fail "reading SQL_DRIVER_VER"
IFS=. read -r major minor patch <<< "$version"
expected=$(printf '%02d.%02d.%04d' "$major" "$minor" "$patch")
[ "$driver_ver" = "$expected" ] || fail "SQL_DRIVER_VER is '$driver_ver', not $expected"
rm -f "$work/data.xls"
arch=$(dpkg --print-architecture)
libdir=usr/lib/$(dpkg-architecture -qDEB_HOST_MULTIARCH)
deb() { echo "$work/debs/$1_$version-1_$arch.deb"; }
has() {  # has PACKAGE PATH: the package holds PATH
  dpkg-deb -c "$(deb "$1")" | awk '{print $6}' | grep -qx "./$2" || fail "$1 lacks /$2"
}
lacks() { ! dpkg-deb -c "$(deb "$1")" | awk '{print $6}' | grep -q "$2" || fail "$1 holds $2"; }
depends() {  # depends PACKAGE PATTERN: its Depends field matches PATTERN
  dpkg-deb -f "$(deb "$1")" Depends | grep -Eq "$2" || fail "$1 Depends '$(dpkg-deb -f "$(deb "$1")" Depends)' lacks $2"
}
for p in "${packages[@]}"; do [ -f "$(deb "$p")" ] || fail "no $(basename "$(deb "$p")")"; done

has libspreadsheet0 "$libdir/libspreadsheet.so.$version"
has libspreadsheet0 "$libdir/libexcelserver.so"
has libspreadsheet0 "usr/share/doc/libspreadsheet0/copyright"
lacks libspreadsheet0 "include/"
has libspreadsheet-dev "usr/include/spreadsheet/SpreadSheet.h"
has libspreadsheet-dev "usr/include/platform/WinTypes.h"
has libspreadsheet-dev "$libdir/libspreadsheet.so"
has libspreadsheet-dev "$libdir/pkgconfig/spreadsheet.pc"
has libspreadsheet-dev "$libdir/cmake/spreadsheet/spreadsheetConfig.cmake"
lacks libspreadsheet-dev "SysCalls.h"
has odbc-xls "$libdir/odbc/libxlsodbc.so"
has odbc-xls "usr/share/xlsodbc/xlsodbc-odbcinst.ini"
has spreadsheet-tools "usr/bin/sheet"
has spreadsheet-tools "usr/share/man/man1/sheet.1"
has spreadsheet-tools "usr/share/bash-completion/completions/sheet"

# dpkg-shlibdeps' part (libc, libstdc++, unixODBC's libraries) and ours.
depends libspreadsheet0 'libc6 \(>= '
depends libspreadsheet0 'libodbc2'
depends libspreadsheet0 'libodbcinst2'
depends libspreadsheet-dev "libspreadsheet0 \(= $version-1\)"
depends odbc-xls 'odbcinst'
depends odbc-xls 'libstdc\+\+6'
depends spreadsheet-tools "libspreadsheet0 \(= $version-1\)"
depends spreadsheet-tools 'libstdc\+\+6'
dpkg-deb -I "$(deb odbc-xls)" postinst | grep -q "odbcinst -i -d" || fail "odbc-xls postinst does not register"
dpkg-deb -I "$(deb odbc-xls)" prerm | grep -q "odbcinst -u -d" || fail "odbc-xls prerm does not unregister"
echo "deb: four packages with their files and depends"

if [ "$(id -u)" -ne 0 ] || [ "${CI:-}" != true ]; then
  echo "deb: install check skipped (needs root and CI=true: it installs into /usr and /etc)"
  exit 0
fi
if odbcinst -q -d -n "$driver" > /dev/null 2>&1 || dpkg-query -W libspreadsheet0 > /dev/null 2>&1; then
  echo "deb: install check skipped (the driver or the packages are already installed here)"
  exit 0
fi
installed=yes
DEBIAN_FRONTEND=noninteractive apt-get install -y -q "$work"/debs/*.deb > "$work/apt.log" ||
  { tail -20 "$work/apt.log"; fail "apt-get install"; }
for name in "$driver" "$earlier"; do
  odbcinst -q -d -n "$name" | grep -q "^Driver *= */$libdir/odbc/libxlsodbc.so" || fail "$name not registered"
done
[ "$(sheet --version | head -1)" = "sheet $version" ] || fail "installed sheet --version: $(sheet --version)"
[ "$(pkg-config --modversion spreadsheet)" = "$version" ] || fail "installed spreadsheet.pc"
(cd "$work" && sheet convert data.csv -s Fruit > /dev/null) || fail "installed sheet convert"
out=$(echo "SELECT Qty FROM [Fruit\$] WHERE Name = 'apple'" |
  isql -b -d, -k "DRIVER={$driver};DBQ=$work/data.xls" 2>&1) || fail "isql: $out"
[[ $out == *3* ]] || fail "isql printed '$out'"
apt-get purge -y -q "${packages[@]}" > "$work/apt.log" || fail "apt-get purge"
installed=no
for name in "$driver" "$earlier"; do
  ! odbcinst -q -d -n "$name" > /dev/null 2>&1 || fail "$name still registered after purge"
done
[ ! -e "/$libdir/libspreadsheet.so.0" ] || fail "library left after purge"
echo "deb: installed, isql read the workbook through the registered driver, purged"
