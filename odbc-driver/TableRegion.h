// Where a table lies on its sheet: the rectangle a table name covers, its header names, and the
// span of columns an INSERT writes to. Both the executor and the SQL engine answer "which cells
// is [Sheet1$A1:IV65536]?" through these functions, so a statement names the same cells
// whichever of them runs it (README.md, "Tables and regions"). Regions parse on the widest
// grid a workbook has (A1:XFD1048576); CheckRegion holds them to the grid of the workbook
// at hand.
//
// Pure functions over a Sheet; nothing is kept. Rows and columns are 0-based.
#pragma once

#include <string>
#include <vector>

#include "odbc-driver/Error.h"
#include "odbc-driver/SheetGrid.h"
#include "odbc-driver/Sql.h"
#include "xls/Workbook.h"

namespace xlsodbc {

// The rectangle a table covers, trimmed to what holds values.
struct TableView {
  bool empty = true;  // no cells at all: no columns, no rows
  int top = 0, left = 0, right = -1;
  int firstData = 0, lastData = -1;  // records, inclusive
  std::vector<std::string> names;    // one per column, left to right
};

// Last non-empty column of row r within [left, right], or -1.
int LastInRow(const xls::Sheet& s, int r, int left, int right);

// Last row at or above maxRow holding a value in [left, right], or -1.
int LastRowInColumns(const xls::Sheet& s, int left, int right, int maxRow);

// Names the columns v->left..v->right from row v->top (F1, F2... by position where the cell is
// blank or firstRowHasNames is false).
void NameColumns(const xls::Sheet& s, bool firstRowHasNames, bool date1904, TableView* v);

// The table t covers on s: the used range, or the region trimmed to its last non-empty row
// and column.
TableView ResolveTable(const xls::Sheet& s, const TableRef& t, bool firstRowHasNames,
                       bool date1904);

// Column index within v: exact name first, then ignoring ASCII case; -1 if none.
int FindColumn(const TableView& v, const std::string& name);

bool EqualNoCase(const std::string& a, const std::string& b);

// OK when t is a sheet's used range or a region within grid; else kTooManyColumns for a
// region past its last column and kSyntax for one past its last row (the messages name the
// region and the grid's limit).
Error CheckRegion(const TableRef& t, const SheetGrid& grid);

// The columns an INSERT into t fills and the row it names them by: for a region, all of its
// columns with names from its top row; for a used range, its header row's extent. Fails with
// kValueCount when a used range has no cells yet.
Error InsertSpan(const xls::Sheet& s, const TableRef& t, bool firstRowHasNames, bool date1904,
                 const SheetGrid& grid, TableView* v);

// The row an INSERT into v's columns writes: just below the last row holding a value in them
// anywhere on the sheet (never over a value), or below the header when they hold nothing.
// Fails with kTableFull past the grid's last row.
Error InsertRow(const xls::Sheet& s, const TableView& v, bool firstRowHasNames, const TableRef& t,
                const SheetGrid& grid, int* row);

}  // namespace xlsodbc
