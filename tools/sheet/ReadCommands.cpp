// sheet cat / cell / info: reading through the public API.
#include <cstdio>
#include <cstdlib>
#include <string>

#include "tools/sheet/Commands.h"
#include "tools/sheet/Options.h"

namespace sheet {
namespace {

bool AllDigits(const std::string& s) {
  if (s.empty()) return false;
  for (char c : s) {
    if (c < '0' || c > '9') return false;
  }
  return true;
}

bool IsLetters(const std::string& s) {
  if (s.empty() || s.size() > 2) return false;
  for (char c : s) {
    if (!((c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z'))) return false;
  }
  return true;
}

void PrintRow(const CStringArray& row) {
  for (INT_PTR i = 0; i < row.GetSize(); ++i) {
    if (i) std::fputc('\t', stdout);
    std::fwrite(row[i].GetString(), 1, row[i].GetLength(), stdout);
  }
  std::fputc('\n', stdout);
}

}  // namespace

int Cat(const Args& args) {
  const char* usage = "cat FILE [-d DELIM | -s SHEET]";
  Options o = Parse(args);
  if (!o.error.empty()) return Usage(o.error, usage);
  if (o.words.size() != 1) return Usage("cat takes one file", usage);
  const std::string& file = o.words[0];
  CSpreadSheet s(file.c_str(), SecondArgument(file, o).c_str(), false);
  if (s.GetTotalRows() == 0 && !s.GetLastError().IsEmpty()) return Fail("cat", s);
  // Every held row, values separated by tabs; a one-value row still prints its value.
  CStringArray row;
  for (long r = 1; r <= s.GetTotalRows(); ++r) {
    s.ReadRow(row, r);
    if (s.GetCurrentRow() != r + 1) break;  // not held (the read moves on only when it reads)
    PrintRow(row);
  }
  return 0;
}

int Cell(const Args& args) {
  const char* usage = "cell FILE COL ROW [-d DELIM | -s SHEET]";
  Options o = Parse(args);
  if (!o.error.empty()) return Usage(o.error, usage);
  if (o.words.size() != 3) return Usage("cell takes a file, a column and a row", usage);
  const std::string& file = o.words[0];
  const std::string& col = o.words[1];
  if (!AllDigits(o.words[2])) return Usage("ROW must be a number from 1", usage);
  const long row = std::strtol(o.words[2].c_str(), nullptr, 10);
  if (row < 1) return Usage("ROW must be a number from 1", usage);
  CSpreadSheet s(file.c_str(), SecondArgument(file, o).c_str(), false);
  CString value;
  bool ok;
  if (AllDigits(col)) {
    const long n = std::strtol(col.c_str(), nullptr, 10);
    if (n < 1 || n > 32767) return Usage("COL must be from 1 to 32767", usage);
    ok = s.ReadCell(value, static_cast<short>(n), row);
  } else {
    // One or two letters name a column by position; anything else is a header text.
    ok = s.ReadCell(value, CString(col.c_str()), row, IsLetters(col));
  }
  if (!ok) return Fail("cell", s);
  std::fwrite(value.GetString(), 1, value.GetLength(), stdout);
  std::fputc('\n', stdout);
  return 0;
}

int Info(const Args& args) {
  const char* usage = "info FILE [-d DELIM | -s SHEET]";
  Options o = Parse(args);
  if (!o.error.empty()) return Usage(o.error, usage);
  if (o.words.size() != 1) return Usage("info takes one file", usage);
  const std::string& file = o.words[0];
  CSpreadSheet s(file.c_str(), SecondArgument(file, o).c_str(), false);
  const bool workbook = SecondArgument(file, o) == o.sheetName && file.size() >= 4 &&
                        CString(file.substr(file.size() - 4).c_str()).CompareNoCase(".xls") == 0;
  std::printf("file:       %s\n", file.c_str());
  if (workbook) {
    std::printf("mode:       Excel workbook, sheet \"%s\"\n", o.sheetName.c_str());
  } else {
    std::printf("mode:       text, delimiter \"%s\"\n", o.delimiter.c_str());
  }
  std::printf("rows:       %ld (header included)\n", s.GetTotalRows());
  std::printf("columns:    %d\n", s.GetTotalColumns());
  CStringArray names;
  s.GetFieldNames(names);
  std::printf("header:    ");
  for (INT_PTR i = 0; i < names.GetSize(); ++i) std::printf(" [%s]", names[i].GetString());
  std::printf("\n");
  CString error = s.GetLastError();
  error.TrimRight();
  std::printf("last error: %s\n", error.IsEmpty() ? "(none)" : error.GetString());
  return 0;
}

}  // namespace sheet
