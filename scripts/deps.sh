#!/usr/bin/env bash
# Installs the Debian packages of one set that are not yet installed:
#   deps.sh demo    scripts/packages/demo.txt: what scripts/demo.sh runs
#   deps.sh [test]  every scripts/packages/*.txt: what the tests build and run against
#   deps.sh bench   those and scripts/packages/bench/*.txt: tools only the benchmarks run
# Each component keeps its own list; lines starting with # are comments.
set -euo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
case ${1:-test} in
  demo) lists=("$here"/packages/demo.txt) ;;
  test) lists=("$here"/packages/*.txt) ;;
  bench) lists=("$here"/packages/*.txt "$here"/packages/bench/*.txt) ;;
  *) echo "usage: deps.sh [demo | test | bench]" >&2; exit 2 ;;
esac
mapfile -t wanted < <(cat "${lists[@]}" | sed -e 's/#.*//' -e 's/[[:space:]]//g' | grep -v '^$' | sort -u)
missing=()
for p in "${wanted[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done
if [ ${#missing[@]} -eq 0 ]; then
  echo "deps: all ${#wanted[@]} packages present"
  exit 0
fi
echo "deps: installing ${missing[*]}"
if [ "$(id -u)" -ne 0 ]; then
  echo "deps: not root; install these packages and run again" >&2
  exit 1
fi
export DEBIAN_FRONTEND=noninteractive
apt-get update -q
apt-get install -y -q --no-install-recommends "${missing[@]}"
