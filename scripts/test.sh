#!/usr/bin/env bash
# The test command: installs what is missing, builds everything (tests, tools,
# benchmarks) with AddressSanitizer and UndefinedBehaviorSanitizer and warnings as
# errors (at -O1 with line tables: what the sanitizers advise, and half the compile
# time), runs the whole suite with ctest, then every extra check in scripts/ci.d/.
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
started=$(date +%s)
stamp() { echo "== $1 after $(( $(date +%s) - started )) s"; }
"$root/scripts/deps.sh" test
stamp "packages"

build=${BUILD_DIR:-$root/build-test}
jobs=${JOBS:-$(nproc)}
cmake -S "$root" -B "$build" -G Ninja \
  -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_CXX_FLAGS_RELWITHDEBINFO="-O1 -g1 -DNDEBUG" \
  -DCMAKE_C_FLAGS_RELWITHDEBINFO="-O1 -g1 -DNDEBUG" \
  -DSPREADSHEET_SANITIZE=ON -DSPREADSHEET_WERROR=ON \
  -DSPREADSHEET_BUILD_TESTS=ON -DSPREADSHEET_BUILD_BENCH=ON
cmake --build "$build" -j "$jobs"
stamp "build"

export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1:strict_string_checks=1:detect_stack_use_after_return=1}
export UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}
export LSAN_OPTIONS=${LSAN_OPTIONS:-suppressions=$root/tests/lsan.supp:print_suppressions=0}
ctest --test-dir "$build" --output-on-failure -j "$jobs" --timeout 600
stamp "ctest"

# The fuzz runs are short smoke checks here; run the scripts alone for longer ones.
export XLS_FUZZ_SECONDS=${XLS_FUZZ_SECONDS:-30} ODBC_FUZZ_SECONDS=${ODBC_FUZZ_SECONDS:-30}

for check in "$root"/scripts/ci.d/*.sh; do
  [ -e "$check" ] || continue
  echo "== $(basename "$check")"
  BUILD_DIR="$build" bash "$check"
  stamp "$(basename "$check")"
done
