// sheet set / add / insert / clear: editing through the public API. Each edit is saved
// at once (no transaction). A text file is rewritten in place. A workbook is refused
// unless --force: the class saves a workbook edit by inserting the whole sheet again,
// which it must keep doing, so with --force the tool reopens the workbook afterwards and
// fails unless the edit is what the sheet now holds.
#include <cstdio>
#include <cstdlib>
#include <string>

#include "tools/sheet/Commands.h"
#include "tools/sheet/DriverBook.h"
#include "tools/sheet/Files.h"
#include "tools/sheet/Options.h"

namespace sheet {
namespace {

constexpr long kSheetRows = 65536;  // the most rows a .xls sheet holds, header included

bool ParsePositive(const std::string& s, long* out) {
  if (s.empty() || s.size() > 9) return false;
  for (char c : s) {
    if (c < '0' || c > '9') return false;
  }
  *out = std::strtol(s.c_str(), nullptr, 10);
  return *out >= 1;
}

bool IsColumnLetters(const std::string& name) {
  return name.size() <= 2 &&
         name.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz") ==
             std::string::npos;
}

// Returns 0 when the edit may go ahead on FILE, else the exit status after saying why.
int CheckTarget(const char* command, const std::string& file, const Options& o, bool mayCreate) {
  if (IsWorkbook(file) && !o.force) {
    return FailWith(
        command, file,
        "a workbook edit is saved by inserting every row of the sheet again, so the sheet "
        "would gain duplicate rows and a changed cell would keep its old value; change "
        "cells with `sheet sql`, or give --force to save through the class anyway");
  }
  if (!Exists(file)) {
    if (mayCreate && !IsWorkbook(file)) return 0;
    return FailWith(command, file, ReadProblem(file));
  }
  if (const std::string why = WriteProblem(file); !why.empty()) return FailWith(command, file, why);
  return 0;
}

// The edit methods return true even when their save fails; a new message is the only sign
// for a text file. A forced workbook edit is judged by what the sheet holds afterwards
// (VerifyWorkbook), since the class's message after its save does not describe the sheet.
int Finish(const char* command, const std::string& file, bool ok, CSpreadSheet& s,
           const CString& before) {
  if (!ok) return Fail(command, file, s);
  if (!IsWorkbook(file) && s.GetLastError() != before && !s.GetLastError().IsEmpty())
    return Fail(command, file, s);
  return 0;
}

std::string RowCount(long rows) { return std::to_string(rows) + (rows == 1 ? " row" : " rows"); }

// After a forced workbook edit: the sheet must hold `expected` rows and row `row` must
// read `values` (for set, the one cell `column` of it).
int VerifyWorkbook(const char* command, const std::string& file, const Options& o, long before,
                   long expected, long row, const CStringArray& values, const CString& column) {
  CSpreadSheet after(file.c_str(), o.sheetName.c_str(), false);
  const long now = after.GetTotalRows();
  if (now != expected) {
    return FailWith(command, file,
                    "the sheet held " + RowCount(before) + " and now holds " + RowCount(now) +
                        ", not " + std::to_string(expected) +
                        (now > expected ? ": the class's save inserted rows again" : ""));
  }
  const std::string full = now >= kSheetRows ? " (the sheet is full: 65536 rows)" : "";
  if (!column.IsEmpty()) {
    CString cell;
    if (!after.ReadCell(cell, column, row, IsColumnLetters(column.GetString())) ||
        cell != values[0]) {
      return FailWith(command, file,
                      std::string("column ") + column.GetString() + " of row " +
                          std::to_string(row) + " reads \"" + cell.GetString() + "\", not \"" +
                          values[0].GetString() + "\"" + full);
    }
    return 0;
  }
  CStringArray got;
  bool same = after.ReadRow(got, row) && got.GetSize() >= values.GetSize();
  for (INT_PTR i = 0; same && i < values.GetSize(); ++i) same = got[i] == values[i];
  if (!same)
    return FailWith(command, file,
                    "row " + std::to_string(row) + " does not hold the new values" + full);
  return 0;
}

}  // namespace

int Set(const Args& args) {
  Options o = Parse(args);
  if (!o.error.empty()) return Usage(o.error, "set");
  if (o.words.size() != 4) return Usage("set takes a file, a column, a row and a value", "set");
  const std::string& file = o.words[0];
  long row, col = 0;
  if (!ParsePositive(o.words[2], &row)) return Usage("ROW must be a number from 1", "set");
  if (ParsePositive(o.words[1], &col) && col > 32767)
    return Usage("COL must be from 1 to 32767", "set");
  if (IsXlsx(file)) return XlsxSet(o);
  if (int status = CheckTarget("set", file, o, false)) return status;
  CSpreadSheet s(file.c_str(), SecondArgument(file, o).c_str(), false);
  const CString before = s.GetLastError();
  const long rows = s.GetTotalRows();
  if (IsWorkbook(file) && rows == 0)
    return FailWith("set", file, "no sheet named \"" + o.sheetName + "\"");
  bool ok;
  CString column(o.words[1].c_str());
  if (col > 0) {
    ok = s.AddCell(o.words[3].c_str(), static_cast<short>(col), row);
  } else {
    ok = s.AddCell(o.words[3].c_str(), column, row, IsColumnLetters(o.words[1]));
  }
  if (int status = Finish("set", file, ok, s, before)) return status;
  if (!IsWorkbook(file)) return 0;
  CStringArray value;
  value.Add(o.words[3].c_str());
  if (col > 0) {
    CStringArray names;
    s.GetFieldNames(names);
    if (col <= names.GetSize()) column = names[col - 1];
  }
  return VerifyWorkbook("set", file, o, rows, rows > row ? rows : row, row, value, column);
}

int Add(const Args& args) {
  Options o = Parse(args);
  if (!o.error.empty()) return Usage(o.error, "add");
  if (o.words.size() < 2) return Usage("add takes a file and at least one value", "add");
  const std::string& file = o.words[0];
  if (IsXlsx(file)) return XlsxAdd(o);
  if (int status = CheckTarget("add", file, o, true)) return status;
  CSpreadSheet s(file.c_str(), SecondArgument(file, o).c_str(), false);
  const CString before = s.GetLastError();
  const long rows = s.GetTotalRows();
  if (IsWorkbook(file) && rows >= kSheetRows) {
    return FailWith(
        "add", file,
        "sheet \"" + o.sheetName + "\" is full (65536 rows, the most a .xls sheet holds)");
  }
  CStringArray values;
  for (size_t i = 1; i < o.words.size(); ++i) values.Add(o.words[i].c_str());
  if (int status = Finish("add", file, s.AddRow(values, 0L, false), s, before)) return status;
  if (!IsWorkbook(file)) return 0;
  return VerifyWorkbook("add", file, o, rows, rows + 1, rows + 1, values, CString());
}

int Insert(const Args& args) {
  Options o = Parse(args);
  if (!o.error.empty()) return Usage(o.error, "insert");
  if (o.words.size() < 3)
    return Usage("insert takes a file, a row and at least one value", "insert");
  const std::string& file = o.words[0];
  long row;
  if (!ParsePositive(o.words[1], &row)) return Usage("ROW must be a number from 1", "insert");
  if (IsXlsx(file)) return XlsxInsert(o);
  if (int status = CheckTarget("insert", file, o, false)) return status;
  CSpreadSheet s(file.c_str(), SecondArgument(file, o).c_str(), false);
  const CString before = s.GetLastError();
  const long rows = s.GetTotalRows();
  if (IsWorkbook(file) && rows >= kSheetRows) {
    return FailWith(
        "insert", file,
        "sheet \"" + o.sheetName + "\" is full (65536 rows, the most a .xls sheet holds)");
  }
  CStringArray values;
  for (size_t i = 2; i < o.words.size(); ++i) values.Add(o.words[i].c_str());
  if (int status = Finish("insert", file, s.AddRow(values, row, false), s, before)) return status;
  if (!IsWorkbook(file)) return 0;
  return VerifyWorkbook("insert", file, o, rows, rows + 1, row, values, CString());
}

int Clear(const Args& args) {
  Options o = Parse(args);
  if (!o.error.empty()) return Usage(o.error, "clear");
  if (o.words.size() != 1) return Usage("clear takes one file", "clear");
  const std::string& file = o.words[0];
  if (IsXlsx(file)) return XlsxClear(o);
  // Dropping a sheet is what the user means on a workbook too: no --force needed.
  o.force = true;
  if (int status = CheckTarget("clear", file, o, false)) return status;
  CSpreadSheet s(file.c_str(), SecondArgument(file, o).c_str(), false);
  const CString before = s.GetLastError();
  if (IsWorkbook(file) && s.GetTotalRows() == 0) {
    return FailWith("clear", file, "no sheet named \"" + o.sheetName + "\"");
  }
  return Finish("clear", file, s.DeleteSheet(), s, before);
}

}  // namespace sheet
