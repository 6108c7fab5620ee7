#!/usr/bin/env bash
# Short libFuzzer runs for the checks in ci.d (and by hand for longer ones). Builds the named
# targets with clang in one folder shared by every caller (${BUILD_DIR}-fuzz), then runs
# each for SECONDS on a copy of its committed corpus, one target at a time. A finding fails
# the run; its input stays in <build>/fuzz-artifacts. Once fixed, add the input to the
# target's corpus, so that every test run replays it.
#
#   scripts/fuzz.sh SECONDS TARGET=CORPUS[=MAX_LEN] ...
#   e.g. scripts/fuzz.sh 300 odbc_journal=tests/odbc-driver/journal-corpus=4096
# With FUZZ_CORPUS_OUT set, each grown corpus is kept in $FUZZ_CORPUS_OUT/<name>, to merge
# into the committed one with <name>_fuzzer -merge=1.
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
seconds=$1
shift
build=${FUZZ_BUILD_DIR:-${BUILD_DIR:-$root/build-test}-fuzz}
cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ \
  -DSPREADSHEET_FUZZ=ON -DSPREADSHEET_SANITIZE=ON \
  -DSPREADSHEET_BUILD_TESTS=OFF -DSPREADSHEET_BUILD_BENCH=OFF >/dev/null
targets=()
for entry in "$@"; do targets+=("${entry%%=*}_fuzzer"); done
cmake --build "$build" --target "${targets[@]}"

artifacts=$build/fuzz-artifacts
mkdir -p "$artifacts"
for entry in "$@"; do
  IFS='=' read -r name corpus maxlen <<<"$entry"
  binary=$(find "$build" -name "${name}_fuzzer" -type f -perm -u+x | head -n1)
  work=$(mktemp -d)
  cp "$root/$corpus"/* "$work"/
  log=$build/$name-fuzz.log
  echo "== $name: ${seconds} s over $(ls "$work" | wc -l) inputs"
  status=0
  ASAN_OPTIONS=detect_leaks=1 "$binary" -max_total_time="$seconds" ${maxlen:+-max_len=$maxlen} \
    -timeout=10 -rss_limit_mb=2048 -print_final_stats=1 -artifact_prefix="$artifacts/$name-" \
    "$work" >"$log" 2>&1 || status=$?
  if [ -n "${FUZZ_CORPUS_OUT:-}" ]; then
    mkdir -p "$FUZZ_CORPUS_OUT" && rm -rf "${FUZZ_CORPUS_OUT:?}/$name" && mv "$work" "$FUZZ_CORPUS_OUT/$name"
  else
    rm -rf "$work"
  fi
  grep -E '^stat::(number_of_executed_units|average_exec_per_sec|peak_rss_mb)|^Done ' "$log" || true
  if [ "$status" -ne 0 ]; then
    tail -n 60 "$log"
    echo "== $name found a failure (exit $status); inputs in $artifacts" >&2
    exit "$status"
  fi
done
