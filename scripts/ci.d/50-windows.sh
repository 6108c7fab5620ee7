#!/usr/bin/env bash
# Cross-builds spreadsheet.dll and its tests with MinGW-w64 and runs them under wine64,
# headless, in a fresh Wine prefix made here.
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
build=${WIN_BUILD_DIR:-$root/build-win}
start=$(date +%s)

# Excel mode under Wine goes through the host's unixODBC to a host build of our driver:
# an unsanitized one, since Wine's process has no sanitizer runtime.
host=$build-host-driver
cmake -S "$root" -B "$host" -G Ninja -DCMAKE_BUILD_TYPE=Release \
  -DSPREADSHEET_BUILD_TESTS=OFF -DSPREADSHEET_BUILD_BENCH=OFF > /dev/null
cmake --build "$host" -j "${JOBS:-$(nproc)}" --target xlsodbc

cmake -S "$root" -B "$build" -G Ninja -DCMAKE_TOOLCHAIN_FILE="$root/cmake/mingw-w64-x86_64.cmake" \
  -DCMAKE_BUILD_TYPE=Release -DSPREADSHEET_WERROR=ON -DSPREADSHEET_BUILD_TESTS=ON \
  -DSPREADSHEET_WINE_HOST_DRIVER="$host/odbc-driver/libxlsodbc.so" > /dev/null
cmake --build "$build" -j "${JOBS:-$(nproc)}"

export WINEPREFIX=$build/wineprefix WINEARCH=win64 WINEDEBUG=-all
unset DISPLAY WAYLAND_DISPLAY
wine=/usr/lib/wine/wine64
# Wine's server and services outlive the program that starts them; started from inside
# ctest they would hold its output pipe open. Start them here, detached from every pipe,
# and keep the server up between test programs.
if [ ! -d "$WINEPREFIX" ]; then
  "$wine" wineboot -u < /dev/null > /dev/null 2>&1 || true
fi
wineserver -p < /dev/null > /dev/null 2>&1 || true
"$wine" cmd /c exit < /dev/null > /dev/null 2>&1 || true
trap 'wineserver -k || true' EXIT
ctest --test-dir "$build" --output-on-failure -j 1 --timeout 300
echo "windows: build and tests took $(( $(date +%s) - start )) s"
