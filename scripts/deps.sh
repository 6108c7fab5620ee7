#!/usr/bin/env bash
# Installs the Debian packages listed in scripts/packages/*.txt that are not yet installed.
# Each component keeps its own list there; lines starting with # are comments.
# `deps.sh bench` also installs scripts/packages/bench/*.txt: tools only the benchmarks run.
set -euo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
lists=("$here"/packages/*.txt)
if [ "${1:-}" = bench ]; then lists+=("$here"/packages/bench/*.txt); fi
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
