// Where: a statement's WHERE condition made ready for one table, then tested row by row.
// Compiling resolves column names and binds parameters once, turns each literal into the
// forms a comparison needs once, and turns a long OR of equalities on one column (what code
// generators write for IN lists) into set lookups, so a 60,000-term OR costs about as much
// a row as a short one. The outcome is the same as testing each term in turn.
//
// Comparison rules (README.md, "Dialect"): numbers compare as numbers, also against text
// that reads as a number; other text compares byte by byte; an empty cell or NULL compares
// unknown; AND, OR and NOT follow three-valued logic; a row matches when the whole is true.
//
// Ownership: a RowFilter owns copies of everything it needs; the Condition may go after
// Compile. Matches reads the sheet it is given. Recursion follows the condition's nesting,
// which the parser bounds (kMaxConditionDepth); chains are loops.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "odbc-driver/Error.h"
#include "odbc-driver/Sql.h"
#include "xls/Workbook.h"

namespace xlsodbc {

class RowFilter {
 public:
  // The index of a named column within the table, or the error to report.
  using ResolveColumn = std::function<Error(const std::string& name, int* index)>;
  // The value of a parameter marker, or the error to report.
  using BindParameter = std::function<Error(const Value& marker, Value* bound)>;

  RowFilter();
  ~RowFilter();
  RowFilter(RowFilter&&) noexcept;
  RowFilter& operator=(RowFilter&&) noexcept;

  // where may be null: every row matches.
  Error Compile(const Condition* where, const ResolveColumn& resolve, const BindParameter& bind);

  // Whether row of sheet matches; the table's column i is sheet column left + i.
  bool Matches(const xls::Sheet& sheet, int row, int left, bool date1904);

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace xlsodbc
