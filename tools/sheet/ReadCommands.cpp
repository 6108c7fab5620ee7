// sheet cat / cell / info: reading through the public API.
#include <cstdio>
#include <cstdlib>
#include <string>

#include "tools/sheet/Commands.h"
#include "tools/sheet/DriverBook.h"
#include "tools/sheet/Files.h"
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

// The class opens a missing file, or a workbook without the sheet, as an empty sheet with
// no error; the tool names what is wrong instead. Returns 0 when s holds the file's sheet.
int CheckOpened(const char* command, const Input& in, const Options& o, CSpreadSheet& s) {
  if (s.GetTotalRows() != 0) return 0;
  if (!s.GetLastError().IsEmpty()) return Fail(command, in.name(), s);
  if (IsWorkbook(in.path()))
    return FailWith(command, in.name(), "no sheet named \"" + o.sheetName + "\"");
  return 0;  // an empty text file
}

}  // namespace

int Cat(const Args& args) {
  Options o = Parse(args);
  if (!o.error.empty()) return Usage(o.error, "cat");
  if (o.words.size() != 1) return Usage("cat takes one file", "cat");
  if (IsXlsx(o.words[0])) return XlsxCat(o);
  Input in(o.words[0], o.hasSheet);
  if (!in.error().empty()) return FailWith("cat", in.name(), in.error());
  const std::string& file = in.path();
  if (const std::string why = ReadProblem(file); !why.empty())
    return FailWith("cat", in.name(), why);
  CSpreadSheet s(file.c_str(), SecondArgument(file, o).c_str(), false);
  if (int status = CheckOpened("cat", in, o, s)) return status;
  // Every held row, values separated by tabs; a one-value row still prints its value.
  Progress progress("cat", s.GetTotalRows());
  CStringArray row;
  for (long r = 1; r <= s.GetTotalRows(); ++r) {
    s.ReadRow(row, r);
    if (s.GetCurrentRow() != r + 1) break;  // not held (the read moves on only when it reads)
    PrintRow(row);
    progress.Update(r);
  }
  if (std::fflush(stdout) != 0 || std::ferror(stdout)) {
    return FailWith("cat", "(standard output)", "write failed");
  }
  return 0;
}

int Cell(const Args& args) {
  Options o = Parse(args);
  if (!o.error.empty()) return Usage(o.error, "cell");
  if (o.words.size() != 3) return Usage("cell takes a file, a column and a row", "cell");
  const std::string& col = o.words[1];
  if (!AllDigits(o.words[2])) return Usage("ROW must be a number from 1", "cell");
  const long row = std::strtol(o.words[2].c_str(), nullptr, 10);
  if (row < 1) return Usage("ROW must be a number from 1", "cell");
  long number = 0;
  if (AllDigits(col)) {
    number = std::strtol(col.c_str(), nullptr, 10);
    if (number < 1 || number > 32767) return Usage("COL must be from 1 to 32767", "cell");
  }
  if (IsXlsx(o.words[0])) return XlsxCell(o);
  Input in(o.words[0], o.hasSheet);
  if (!in.error().empty()) return FailWith("cell", in.name(), in.error());
  const std::string& file = in.path();
  if (const std::string why = ReadProblem(file); !why.empty())
    return FailWith("cell", in.name(), why);
  CSpreadSheet s(file.c_str(), SecondArgument(file, o).c_str(), false);
  if (int status = CheckOpened("cell", in, o, s)) return status;
  CString value;
  bool ok;
  if (number > 0) {
    ok = s.ReadCell(value, static_cast<short>(number), row);
  } else {
    // One or two letters name a column by position; anything else is a header text.
    ok = s.ReadCell(value, CString(col.c_str()), row, IsLetters(col));
  }
  if (!ok && s.GetLastError().IsEmpty()) {
    // The class gives no message for a column number past the sheet's columns.
    if (number > s.GetTotalColumns()) {
      return FailWith("cell", in.name(),
                      "column " + std::to_string(number) + " is past the last column (" +
                          std::to_string(s.GetTotalColumns()) + ")");
    }
    if (row > s.GetTotalRows()) {
      return FailWith("cell", in.name(),
                      "row " + std::to_string(row) + " is past the last row (" +
                          std::to_string(s.GetTotalRows()) + ")");
    }
  }
  if (!ok) return Fail("cell", in.name(), s);
  std::fwrite(value.GetString(), 1, value.GetLength(), stdout);
  std::fputc('\n', stdout);
  return 0;
}

int Info(const Args& args) {
  Options o = Parse(args);
  if (!o.error.empty()) return Usage(o.error, "info");
  if (o.words.size() != 1) return Usage("info takes one file", "info");
  if (IsXlsx(o.words[0])) return XlsxInfo(o);
  Input in(o.words[0], o.hasSheet);
  if (!in.error().empty()) return FailWith("info", in.name(), in.error());
  const std::string& file = in.path();
  if (const std::string why = ReadProblem(file); !why.empty())
    return FailWith("info", in.name(), why);
  CSpreadSheet s(file.c_str(), SecondArgument(file, o).c_str(), false);
  if (int status = CheckOpened("info", in, o, s)) return status;
  std::printf("file:       %s\n", in.name().c_str());
  if (IsWorkbook(file)) {
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
