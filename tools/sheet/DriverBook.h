// A workbook reached through the registered ODBC driver directly, for what the class does
// not do: .xlsx and .xlsm files (which the class takes as text, as its callers rely on),
// and conversions between workbook formats. Cells are read and written by position: the
// connection names columns F1, F2... (FIRSTROWHASNAMES=0), so row 1 is a row like the others.
//
// Ownership: a DriverBook owns its connection and closes it when it goes, which folds the
// driver's journal into the file.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "platform/Database.h"

namespace sheet {

using Rows = std::vector<std::vector<std::string>>;

// A name ending in .xlsx or .xlsm, any letter case: a workbook the tool reaches through the
// driver itself.
bool IsXlsx(const std::string& file);

// The first installed driver whose description holds "Excel", as the library picks it; ""
// when none is.
std::string ExcelDriver();

// The connection string the library builds, with FIRSTROWHASNAMES as given; create: a
// missing workbook is made by the first change (CREATE_DB).
std::string ConnectString(const std::string& driver, const std::string& book,
                          bool firstRowHasNames = true, bool create = true);

// A value as the dialect reads it: plain decimal digits bare (the driver keeps them a number
// when they read back unchanged, text otherwise), "" as NULL, anything else quoted text (a
// quote doubled), so that what goes in comes out.
std::string SqlValue(const std::string& value);

class DriverBook {
 public:
  // "" when FILE is open; otherwise the reason. create: a missing FILE is made by the first
  // change.
  std::string Open(const std::string& file, bool create);

  // SHEET's rows from A1 down to its last value, as wide as its widest row; a blank cell
  // reads "". *missing is set when the workbook has no such sheet. "" or the reason.
  std::string Read(const std::string& sheet, Rows* rows, bool* missing);

  // Runs one statement; "" or the driver's message.
  std::string Exec(const std::string& sql);

  // [SHEET$A1:XFD1048576] or, for an .xls, [SHEET$A1:IV65536]: the whole sheet as a region.
  std::string Region(const std::string& sheet) const;
  // [SHEET$<from>:<to>] with 1-based rows and columns.
  static std::string Cells(const std::string& sheet, long top, long left, long bottom, long right);

 private:
  std::unique_ptr<CDatabase> db_;
  bool xlsx_ = false;
};

// Column letters of a 1-based column: 1 is A, 16384 XFD.
std::string ColumnLetters(long column);

}  // namespace sheet
