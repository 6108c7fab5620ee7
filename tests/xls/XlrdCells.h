// Test helpers: running a command, and what python3-xlrd reads from a file in the form
// tests/xls/xlrd_cells.py prints (the BIFF version line, then sheets, cells and names).
#pragma once

#include <cstdio>
#include <cstdlib>
#include <string>

namespace xls_test {

// The command's standard output.
inline std::string Shell(const std::string& cmd) {
  std::string out;
  FILE* f = ::popen(cmd.c_str(), "r");
  if (f == nullptr) return out;
  char buf[4096];
  std::size_t n;
  while ((n = std::fread(buf, 1, sizeof buf, f)) > 0) out.append(buf, n);
  ::pclose(f);
  return out;
}

inline std::string SourceDir() {
  const char* src = std::getenv("SPREADSHEET_SOURCE_DIR");
  return src ? src : ".";
}

// Empty when xlrd refuses the file.
inline std::string XlrdCells(const std::string& path) {
  return Shell("/usr/bin/python3 '" + SourceDir() + "/tests/xls/xlrd_cells.py' '" + path +
               "' 2>/dev/null");
}

}  // namespace xls_test
