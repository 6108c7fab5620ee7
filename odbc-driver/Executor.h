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
#include "odbc-driver/Sql.h"
#include "xls/Workbook.h"

namespace xlsodbc {

struct ExecOptions {
  bool firstRowHasNames = true;
  // Values for the ? markers, in order; may hold more than the statement uses.
  const std::vector<Value>* parameters = nullptr;
};

struct Outcome {
  long rowCount = -1;                 // rows inserted, updated or cleared; -1 for SELECT
  std::unique_ptr<ResultSet> result;  // SELECT only
  bool changed = false;               // the model differs from before
};

// Runs st against *book. Changes are made on *book, which is first copied when another owner
// (an open result) shares it, so results keep the state they were made from. On failure the
// model is unchanged.
Error Execute(const Statement& st, const ExecOptions& options, std::shared_ptr<xls::Workbook>* book,
              Outcome* out);

// The names a table's columns go by (the header cells, F1, F2... where empty); empty when
// the sheet is missing or the region holds nothing. For SQLColumns.
std::vector<std::string> TableColumnNames(const xls::Workbook& book, const TableRef& table,
                                          bool firstRowHasNames);

}  // namespace xlsodbc
