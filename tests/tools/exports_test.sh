#!/usr/bin/env bash
# libspreadsheet exports only what its installed headers declare: every symbol it defines
# for the dynamic linker must belong to a class or function named in a public header.
# Weak symbols of namespace std are let through: libstdc++ gives std default visibility,
# so the library's instantiations of std templates are exported whatever we do.
# usage: exports_test.sh LIBRARY PUBLIC_HEADERS_LIST SOURCE_DIR
set -euo pipefail
lib=$1
list=$2
src=$3
mapfile -t headers < <(sed "s|^|$src/|" "$list")
for internal in platform/SysCalls.h platform/ExcelDispIds.h spreadsheet/RowLine.h; do
  if grep -qx "$internal" "$list"; then echo "internal header $internal is public"; exit 1; fi
done


bad=0
while IFS=' ' read -r kind name; do
  head=${name%%(*}  # a template function's name may follow its return type
  case $kind in W|V|u) [[ $head == std::* || $head == *" std::"* ]] && continue ;; esac
  # The owner: the class of a member, vtable or typeinfo, or the function itself.
  owner=${name#vtable for }
  owner=${owner#typeinfo name for }
  owner=${owner#typeinfo for }
  owner=${owner%%(*}
  owner=${owner%\*}
  owner=${owner#platform::}
  owner=${owner%%::*}
  if ! grep -qw -- "$owner" "${headers[@]}"; then
    echo "exported but in no public header: $name"
    bad=1
  fi
done < <(nm -D --defined-only -C "$lib" | awk '{ kind = $2; $1 = ""; $2 = ""; sub(/^  /, ""); print kind, $0 }')
count=$(nm -D --defined-only "$lib" | wc -l)
[ "$count" -gt 100 ] || { echo "only $count symbols read from $lib"; exit 1; }
[ "$bad" -eq 0 ] && echo "exports: all $count defined symbols are declared in the public headers"
