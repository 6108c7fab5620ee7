// Executor: runs a parsed statement against a workbook model held in memory. It knows
// nothing of files or ODBC; the Database decides when the model is loaded and saved.
//
// Tables and regions (README.md, "Tables"): a table is a rectangle of a sheet whose top row
// holds the column names. [Sheet] is the used range, from the upper-left non-empty cell to
// the last non-empty row and column; [Sheet$A1:IV65536] is the given region, trimmed to its
// last non-empty row and column. Rows under the header are the records.
#pragma once

#include <memory>
#include <vector>

#include "odbc-driver/Error.h"
#include "odbc-driver/ResultSet.h"
#include "odbc-driver/SheetGrid.h"
#include "odbc-driver/Sql.h"
#include "xls/Workbook.h"

namespace xlsodbc {

class EffectLog;

struct ExecOptions {
  bool firstRowHasNames = true;
  // The sheet size of the format the workbook is saved in (SheetGrid.h).
  SheetGrid grid = kXlsGrid;
  // Values for the ? markers, in order; may hold more than the statement uses.
  const std::vector<Value>* parameters = nullptr;
  // When set, a statement that succeeds adds what it did to the model (Journal.h).
  EffectLog* effects = nullptr;
};

struct Outcome {
  long rowCount = -1;                 // rows inserted, updated or cleared; -1 for SELECT
  std::unique_ptr<ResultSet> result;  // SELECT only
  bool changed = false;               // the model differs from before
};

// The cell-writing layer: every change a statement makes to cells goes through a batch,
// whatever produced the statement. Each value is checked against what the codec can save,
// and its text made what the codec will store, when it is queued; nothing is applied until
// the whole batch is queued. So a statement either fails with the model unchanged or leaves
// a model that saves and reads back equal.
class CellWrites {
 public:
  explicit CellWrites(const SheetGrid& grid) : grid_(grid) {}
  // Queues row, column := v (kNull: the cell is cleared). keepStyle: the cell keeps its
  // format. Fails with
  //   kStringTooLong  text past 32,767 UTF-16 code units, what a cell holds in either format;
  //   kInvalidValue   a number that is NaN or infinite (a file cannot hold one);
  //   kTableFull      a row past the grid's (65,536 in .xls, 1,048,576 in .xlsx);
  //   kTooManyColumns a column past the grid's (IV in .xls, XFD in .xlsx).
  // Invalid UTF-8 is stored as U+FFFD, as the codec would write it. columnName names the
  // value in messages.
  // REQUIRES: v is not a parameter marker (bind it first); row, column >= 0.
  Error Set(int row, int column, const Value& v, bool keepStyle, const std::string& columnName);
  // Room for n writes: a statement that knows its count queues them without regrowing.
  void Reserve(std::size_t n) { writes_.reserve(n); }
  // Makes the queued changes, adding each cell's new state to *effects when given.
  // REQUIRES: every Set of the statement succeeded (a failed Set queues nothing; the
  // statement then fails whole, applying none).
  void ApplyTo(xls::Sheet* sheet, EffectLog* effects = nullptr);

 private:
  struct Write {
    int row = 0, column = 0;
    bool keepStyle = false;
    xls::Cell cell;
  };
  // A new write of an empty cell at the end of the queue.
  Write& Queue(int row, int column, bool keepStyle);
  SheetGrid grid_;
  std::vector<Write> writes_;
};

// A new sheet's name: 1 to 31 characters of valid UTF-8, none of : \ / ? * [ ], not
// starting or ending with an apostrophe (what the codec writes and reads back the same).
Error CheckNewSheetName(const std::string& name);

// Runs st against *book. Changes are made on *book, which is first copied when another owner
// (an open result) shares it, so results keep the state they were made from. On failure the
// model is unchanged.
Error Execute(const Statement& st, const ExecOptions& options, std::shared_ptr<xls::Workbook>* book,
              Outcome* out);

// The table a statement names: the sheet or region as written, or else a defined name of
// the workbook (a named range, not one of Excel's own), as the region it covers on its sheet.
TableRef NamedTable(const xls::Workbook& book, const TableRef& table);

// The names a table's columns go by (the header cells, F1, F2... where empty); empty when
// the sheet is missing or the region holds nothing. For SQLColumns.
std::vector<std::string> TableColumnNames(const xls::Workbook& book, const TableRef& table,
                                          bool firstRowHasNames);

}  // namespace xlsodbc
