#!/bin/sh
# Installs SheetJS (npm package xlsx), an independent .xls writer, into the build folder
# for XlsVersionsTest. Never fails: without the registry, the tests that need it skip.
prefix=$1
if [ -f "$prefix/node_modules/xlsx/package.json" ]; then exit 0; fi
if ! command -v npm >/dev/null 2>&1; then
  echo "npm is not installed: the SheetJS cases of xls_versions_test will be skipped"
  exit 0
fi
if ! npm install --prefix "$prefix" --no-audit --no-fund xlsx >"$prefix.log" 2>&1; then
  echo "npm could not install xlsx (see $prefix.log): the SheetJS cases will be skipped"
fi
exit 0
