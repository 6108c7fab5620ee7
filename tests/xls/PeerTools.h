// Test helpers for the independent programs the codec's tests run: a command's output, the
// source folder their scripts live in, LibreOffice headless, and what python3-xlrd reads from
// a file in the form tests/xls/xlrd_cells.py prints (the BIFF version line, then sheets, cells
// and names), and a workbook of ours in that same form. Header-only.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

#include "tests/support/TempDir.h"
#include "xls/Xls.h"

namespace xls_test {

// The command's standard output; *status, when given, gets its exit status.
inline std::string Shell(const std::string& cmd, int* status = nullptr) {
  std::string out;
  FILE* f = ::popen(cmd.c_str(), "r");
  if (f == nullptr) return out;
  char buf[4096];
  std::size_t n;
  while ((n = std::fread(buf, 1, sizeof buf, f)) > 0) out.append(buf, n);
  const int rc = ::pclose(f);
  if (status != nullptr) *status = rc;
  return out;
}

inline std::string SourceDir() {
  const char* src = std::getenv("SPREADSHEET_SOURCE_DIR");
  return src ? src : ".";
}

// Runs soffice inside `dir` with a private HOME and profile there, so no running instance or
// user profile takes part. Returns the exit status.
inline int Soffice(const testing_support::TempDir& dir, const std::string& args) {
  int status = 0;
  Shell("cd '" + dir.path() + "' && HOME='" + dir.path() +
            "' soffice -env:UserInstallation=file://" + dir.path() + "/profile --headless " + args +
            " > /dev/null 2>&1",
        &status);
  return status;
}

inline std::string Escaped(std::string_view s) {
  std::string out;
  for (char c : s) {
    if (c == '\\')
      out += "\\\\";
    else if (c == '\t')
      out += "\\t";
    else if (c == '\n')
      out += "\\n";
    else
      out += c;
  }
  return out;
}

inline std::string Exact(double v) {
  char b[40];
  std::snprintf(b, sizeof b, "%.17g", v);
  return b;
}

// The workbook in xlrd_cells.py's form, without its first line (the version).
inline std::string Dump(const xls::Workbook& wb) {
  std::string out;
  for (const xls::Sheet& sheet : wb.sheets()) {
    out += "sheet " + Escaped(sheet.name()) + "\n";
    for (int r = 0; r < sheet.extentRows(); ++r) {
      for (int c = 0; c < sheet.extentColumns(); ++c) {
        const xls::Cell& cell = sheet.at(r, c);
        std::string kind, value = Exact(cell.number);
        switch (cell.type) {
          case xls::CellType::kEmpty:
            continue;
          case xls::CellType::kText:
            kind = "text";
            value = Escaped(cell.text);
            break;
          case xls::CellType::kNumber:
            kind = "number";
            break;
          case xls::CellType::kDateTime:
            kind = "date";
            break;
          case xls::CellType::kBoolean:
            kind = "bool";
            break;
          case xls::CellType::kError:
            kind = "error";
            break;
        }
        out += std::to_string(r) + " " + std::to_string(c) + " " + kind + " " + value + "\n";
      }
    }
  }
  for (const xls::DefinedName& n : wb.names()) {
    if (n.builtin) continue;
    out += "name " + Escaped(n.name) + " " + std::to_string(n.scopeSheet) + " " +
           std::to_string(n.sheet) + " " + std::to_string(n.firstRow) + " " +
           std::to_string(n.lastRow) + " " + std::to_string(n.firstColumn) + " " +
           std::to_string(n.lastColumn) + "\n";
  }
  return out;
}

// Empty when xlrd refuses the file.
inline std::string XlrdCells(const std::string& path) {
  return Shell("/usr/bin/python3 '" + SourceDir() + "/tests/xls/xlrd_cells.py' '" + path +
               "' 2>/dev/null");
}

}  // namespace xls_test
