// SqlEngine: runs SELECT, INSERT, UPDATE and DELETE in full SQL (joins, aggregates, ORDER BY,
// subqueries, expressions, the ODBC escapes) over a workbook model, with SQLite as the query
// engine. A statement is rewritten from our users' Jet-like dialect (SqlRewrite.h), prepared
// on a private in-memory SQLite connection, and each sheet or region it names becomes a
// virtual table over the model for that statement (SheetVtab.h), so the tables always show
// the model as it is. The statement and its tables are kept until the next one: the sets
// of a parameter array repeat them. CREATE TABLE and DROP TABLE stay with the executor.
//
// Results are read to the end when the statement runs: a SqlResult owns its values, typed
// (numbers, dates, booleans, text) and readable as the text CellText gives a cell.
//
// Where the answers differ from the executor's on purpose or by SQLite's nature:
//  - a region holding nothing has one column, F1, and no rows (a SQLite table needs one);
//  - a header name repeated (ignoring case) names only its first column; the others go by
//    their F-names, since SQLite's names ignore case;
//  - whole numbers written in the statement are integers to SQLite: 10 / 4 is 2, while cells
//    are REAL (Salary / 4 is 1250.5);
//  - a date ({d '...'}, a date parameter or its text) becomes a date cell only in a column of
//    date cells; elsewhere it is stored as its text "YYYY-MM-DD HH:MM:SS";
//  - cells beside a table (columns outside it) stay where they are when DELETE moves the
//    table's rows up, so they no longer line up with the rows they stood beside.
//
// Ownership: one engine per connection; it owns its SQLite connection, never the model. Not
// thread-safe (the driver runs one statement at a time on a connection).
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

#include "odbc-driver/Error.h"
#include "odbc-driver/Executor.h"
#include "odbc-driver/ResultSet.h"

struct sqlite3;
struct sqlite3_stmt;

namespace xlsodbc {

class SheetModule;
struct RewrittenSql;

// A value of a result, as the driver converts it to a C type.
struct Datum {
  enum class Kind : std::uint8_t { kNull, kNumber, kInteger, kText, kDateTime, kBoolean };
  Kind kind = Kind::kNull;
  std::uint32_t size = 0;  // kText, kDateTime: the text's length
  union {
    double number = 0;     // kNumber, kBoolean (0 or 1)
    std::int64_t integer;  // kInteger (COUNT(*), integer arithmetic)
    std::uint32_t offset;  // kText, kDateTime: where the text starts in the result's storage
  };
};
static_assert(sizeof(Datum) == 16, "a big result holds millions of values");

// A date's fields, for SQL_C_TYPE_DATE / SQL_C_TYPE_TIMESTAMP.
struct DateTimeParts {
  int year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0;
  double fraction = 0;  // of a second
};

class SqlResult final : public ResultSet {
 public:
  const std::vector<ColumnInfo>& columns() const override { return columns_; }
  long rowCount() const override { return rows_; }
  bool value(long row, int column, std::string* out) const override;
  bool text(long row, int column, char* buf, std::string* scratch,
            std::string_view* out) const override;

  // REQUIRES: row < rowCount(), column < columns().size().
  const Datum& datum(long row, int column) const {
    return data_[static_cast<std::size_t>(row) * columns_.size() +
                 static_cast<std::size_t>(column)];
  }
  // The text of a kText or kDateTime datum ("YYYY-MM-DD HH:MM:SS" for a date).
  std::string_view textOf(const Datum& d) const {
    return std::string_view(text_.data() + d.offset, d.size);
  }
  // The fields of a kDateTime datum, or of text in its form; false for anything else.
  [[nodiscard]] bool dateTimeOf(const Datum& d, DateTimeParts* out) const;

 private:
  friend class SqlEngine;
  std::vector<ColumnInfo> columns_;
  long rows_ = 0;
  std::vector<Datum> data_;  // row by row
  std::string text_;
};

struct EngineLimits {
  std::size_t maxSqlBytes = 1 << 20;       // longer statements are refused before parsing
  int maxExpressionDepth = 1000;           // SQLITE_LIMIT_EXPR_DEPTH
  std::uint64_t maxSteps = 4'000'000'000;  // virtual machine steps per statement
  std::size_t maxResultValues = 1u << 24;  // rows x columns: a full sheet's worth
};

class SqlEngine {
 public:
  explicit SqlEngine(EngineLimits limits = EngineLimits());
  ~SqlEngine();
  SqlEngine(const SqlEngine&) = delete;
  SqlEngine& operator=(const SqlEngine&) = delete;

  // Runs one statement against *book, with options' FIRSTROWHASNAMES and ? values. Changes
  // are made on *book, first copied when another owner (an open result) shares it; on
  // failure the model is as before. out->rowCount is -1 for a query, else the rows inserted,
  // updated or deleted; out->result holds a query's rows (a SqlResult).
  // repeat: the same text as the previous Execute, run on the same model with nothing but
  // that Execute changing it since (the next parameter set of an array). The statement
  // prepared then, and its virtual tables, are used again as long as the tables' columns
  // and types stay what they were; the outcome is the one preparing anew would give.
  Error Execute(std::string_view sql, const ExecOptions& options,
                std::shared_ptr<xls::Workbook>* book, Outcome* out, bool repeat = false);

  // Text written to a cell that equals the text of one of the statement's parameters that
  // is also in *texts (the text of a date parameter), or the text of a {d}/{ts} escape in
  // the statement, is stored as a date cell with a date format, whatever the column's type;
  // nullptr: none. Several sets' date texts may be given at once: each set takes its own.
  // REQUIRES: *texts outlives the statements run until it is reset.
  void SetDateTexts(const std::vector<std::string>* texts);

  // False when SQLite could not be set up (out of memory); Execute then fails.
  bool ready() const { return db_ != nullptr; }

 private:
  Error Prepare(RewrittenSql* rw, sqlite3_stmt** stmt);
  Error Step(sqlite3_stmt* stmt, bool query, Outcome* out);
  Error SqliteError(int rc, const RewrittenSql* rw) const;
  // Finalizes the kept statement and drops the virtual tables.
  void Forget();
  void DropTables();

  EngineLimits limits_;
  sqlite3* db_ = nullptr;
  std::unique_ptr<SheetModule> module_;
  std::vector<std::string> tables_;  // virtual tables made for the statement
  bool internal_ = false;            // the engine's own statements: past the authorizer
  std::uint64_t steps_ = 0;
  const std::vector<std::string>* callerDates_ = nullptr;
  std::unordered_set<std::string_view> callerDateSet_;  // views of *callerDates_
  std::vector<std::string> dates_;  // the run's: its date escapes and date parameters
  // The statement last run, prepared, kept with its virtual tables for a repeat.
  std::string keptSql_;
  bool keptFirstRowHasNames_ = true;
  std::unique_ptr<RewrittenSql> keptRw_;
  sqlite3_stmt* kept_ = nullptr;
  friend struct EngineHooks;
};

}  // namespace xlsodbc
