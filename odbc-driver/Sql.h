// The SQL dialect the driver understands: a small, Jet-like subset aimed at the statements
// spreadsheet programs send to a workbook (see README.md, "Dialect").
//
//   SELECT * | col, ... FROM table [WHERE cond]
//   CREATE TABLE table (col [type], ...)
//   INSERT INTO table [(col, ...)] VALUES (value, ...)
//   UPDATE table SET col = value, ... [WHERE cond]
//   DROP TABLE table
//
// A table is [Sheet], Sheet, [Sheet$] (the sheet's used range) or [Sheet$A1:IV65536] (a
// region; corners in either order, up to XFD1048576). Values are 'text' ('' inside means '),
// numbers, NULL, ? (a parameter) or bare words, which are taken as text. ParseSql owns nothing
// beyond its result; it never throws and never reads past the text.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "odbc-driver/Error.h"

namespace xlsodbc {

// A cell region, 0-based and inclusive, corners ordered.
struct CellRange {
  int top = 0, left = 0, bottom = 0, right = 0;
};

struct TableRef {
  std::string sheet;
  bool hasRange = false;  // false: the sheet's used range
  CellRange range;
  std::string written;  // the table as the statement wrote it, for messages
};

// A literal in VALUES, SET or WHERE.
struct Value {
  enum class Kind { kNull, kText, kNumber, kParameter };
  Kind kind = Kind::kNull;
  std::string text;   // kText; for kNumber the digits as written
  double number = 0;  // kNumber
  int parameter = 0;  // kParameter: 0-based index of the ? marker
};

// A WHERE condition tree. A chain of ORs (or of ANDs) is one node with a term each, so the
// tree is only as deep as the parentheses and NOTs written: a generated 60,000-term OR is
// one level, and nothing that walks the tree recurses once a term.
struct Condition {
  enum class Kind { kAnd, kOr, kNot, kCompare, kIsNull, kIsNotNull };
  enum class Op { kEq, kNe, kLt, kLe, kGt, kGe };
  struct Operand {
    bool isColumn = false;
    std::string column;  // isColumn
    Value value;         // !isColumn
  };
  Kind kind = Kind::kCompare;
  Op op = Op::kEq;
  Operand lhs, rhs;                               // kCompare (lhs only for the null tests)
  std::vector<std::unique_ptr<Condition>> terms;  // kAnd, kOr: two or more; kNot: one
};

// Past these a statement fails with kTooComplex: parentheses and NOTs nested deeper than
// kMaxConditionDepth, or more than kMaxConditionTerms comparisons in one WHERE.
constexpr int kMaxConditionDepth = 200;
constexpr int kMaxConditionTerms = 1000000;

// ParseSql empties every member before it parses (keeping the lists' room): a member added
// here is emptied there too.
struct Statement {
  enum class Kind { kSelect, kCreate, kInsert, kUpdate, kDrop };
  Kind kind = Kind::kSelect;
  TableRef table;
  std::vector<std::string> columns;  // SELECT list (empty: *), CREATE, INSERT list, SET targets
  std::vector<Value> values;         // INSERT VALUES, SET values (parallel to columns)
  std::unique_ptr<Condition> where;  // SELECT, UPDATE; null when absent
  int parameterCount = 0;

  bool changesData() const { return kind != Kind::kSelect; }
};

// Parses one statement (an optional trailing ';' allowed). On failure *out is unspecified
// and the error, of kind kSyntax, gives the 1-based character position and what was found;
// a condition past the limits above is kTooComplex, and a region past column XFD
// kTooManyColumns. Regions are taken on the .xlsx grid: an .xls workbook refuses what lies
// past IV65536 when the statement runs (CheckRegion in TableRegion.h).
Error ParseSql(std::string_view sql, Statement* out);

// Parses "A1", "A1:XFD1048576" or "IV1:A3" into an ordered range; false when malformed or
// outside the 16,384 x 1,048,576 grid.
[[nodiscard]] bool ParseCellRange(std::string_view text, CellRange* out);

// Splits a table name as written inside brackets into sheet and range.
[[nodiscard]] bool ParseTableName(std::string_view name, TableRef* out);

// True when text names a cell or region with a column past XFD ("XFE1", "A1:ZZZ9"): well
// formed, but beyond any workbook's 16,384 columns.
[[nodiscard]] bool IsRangePastLastColumn(std::string_view text);

// A bare word or a number's text that reads back the same way as a number: "10", "-2.5",
// but not "007", "1.50" or "1e3". Those stay text so that what goes in comes out unchanged,
// as do "NaN" and "Infinity": a cell holds finite numbers only.
[[nodiscard]] bool IsCanonicalNumber(std::string_view text, double* value);

}  // namespace xlsodbc
