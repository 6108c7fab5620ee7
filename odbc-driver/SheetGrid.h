// SheetGrid: the rows and columns a sheet has in the format its workbook is saved in. An .xls
// sheet holds 65,536 rows x 256 columns (A to IV), an .xlsx sheet 1,048,576 x 16,384 (A to
// XFD); a cell holds 32,767 characters in both. The Database gives statements the grid of its
// workbook (ExecOptions::grid), so a statement is refused exactly where the file it is saved
// to could not hold the result.
//
// Plain values; nothing is owned.
#pragma once

#include <string>

#include "xls/Workbook.h"

namespace xlsodbc {

struct SheetGrid {
  int rows;
  int columns;
  const char* lastColumn;  // the last column's letters, for messages

  bool operator==(const SheetGrid& o) const { return rows == o.rows && columns == o.columns; }
};

inline constexpr SheetGrid kXlsGrid{xls::kMaxRows, xls::kMaxColumns, "IV"};
inline constexpr SheetGrid kXlsxGrid{xls::kXlsxMaxRows, xls::kXlsxMaxColumns, "XFD"};

// "A" for column 0, "IV" for 255, "XFD" for 16,383.
std::string ColumnLetters(int column);

}  // namespace xlsodbc
