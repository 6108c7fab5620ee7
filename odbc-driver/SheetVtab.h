// SheetVtab: the SQLite virtual-table module "xls" over the workbook model. The SQL engine
// creates one virtual table per sheet or region a statement names, for that statement only
// (and its repeats, each after a Refresh); each reads and writes the model's cells in place.
//
// A table's columns are the cells its header row names (TableRegion.h); each column's type is
// guessed from its cells (numbers DOUBLE, dates TIMESTAMP, booleans BIT, text VARCHAR or
// LONGVARCHAR past 255 characters, anything mixed VARCHAR). Cells reach SQLite as numbers
// (REAL), booleans (INTEGER 0/1), dates as their text "YYYY-MM-DD HH:MM:SS", errors and text
// as TEXT. Every column compares with numeric affinity, so a number equals text that reads as
// that number (price = '10' finds 10) whatever its type; date columns compare through the
// collation "xlsdate", in which '2024-02-29' equals '2024-02-29 00:00:00'.
//
// Writes: INSERT puts the row just below the last value in the table's columns; UPDATE
// writes only the cells whose value changes and keeps their format; DELETE is applied when
// the statement has run (SheetModule::Finish): the rows go and the rows below, within the
// table's rows and columns, move up. Every cell written is logged, so a failed statement is
// undone (SheetModule::Undo).
//
// Ownership: the SqlEngine owns the module object and the sqlite3 connection; SQLite owns the
// virtual tables. Bind() points the module at the model for one statement.
#pragma once

#include <sqlite3.h>

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "odbc-driver/Error.h"
#include "odbc-driver/ResultSet.h"
#include "odbc-driver/Sql.h"
#include "odbc-driver/TableRegion.h"
#include "xls/Workbook.h"

namespace xlsodbc {

class EffectLog;

// A column type as declared to SQLite. The names pick SQLite's affinity on purpose: "STRING"
// and "TIMESTAMP" have NUMERIC affinity, "DOUBLE" REAL.
enum class ColumnType { kDouble, kTimestamp, kBit, kVarchar, kLongVarchar };
const char* DeclaredType(ColumnType t);

// name as a SQLite identifier: in double quotes, any double quote in it doubled.
std::string QuoteName(const std::string& name);
// The ODBC metadata for a column SQLite reports with one of those declared types; false when
// decl is none of them (an expression's column).
[[nodiscard]] bool ColumnInfoForDeclared(const char* decl, ColumnInfo* info);

// Each column's type in v, guessed from its records' cells: one kind of cell throughout
// (blanks aside) gives that kind's type; text, a mix or nothing gives VARCHAR, or
// LONGVARCHAR when a text is longer than 255 characters. One entry per column of v.
std::vector<ColumnType> GuessColumnTypes(const xls::Sheet& s, const TableView& v);
// What the guess reads from the cells, kept so that rows added to a table are folded in
// without reading the others again.
struct ColumnKinds {
  std::vector<unsigned> seen;        // per column, a bit per CellType found
  std::vector<std::size_t> longest;  // per column, the longest text past 255 characters
  // Adds rows first..last (clipped to the sheet) of v's columns.
  void Add(const xls::Sheet& s, const TableView& v, int first, int last);
  std::vector<ColumnType> Types() const;
};
// info's sqlType and size for a column of type t.
void SetColumnType(ColumnType t, ColumnInfo* info);

// Text cells hold at most this many characters (Excel's limit).
constexpr std::size_t kMaxCellChars = 32767;

// Writes cell at (row, column) of book.sheets()[sheet], keeping the old cell in *undo.
// Fails with kStringTooLong for text past kMaxCellChars characters.
struct CellUndo {
  std::size_t sheet;
  int row, column;
  xls::Cell old;
};
Error StoreCell(xls::Workbook* book, std::size_t sheet, int row, int column, xls::Cell cell,
                std::vector<CellUndo>* undo);

// The serial day number of "YYYY-MM-DD[ HH:MM:SS[.fff]]" in the 1900 or 1904 date system.
[[nodiscard]] bool DateTextToSerial(std::string_view text, bool date1904, double* serial);

class SheetModule {
 public:
  // Registers the module on db; the module must outlive the connection's use of it.
  int Register(sqlite3* db);

  // The model and options for the next statement. book stays owned by the caller; grid is
  // the sheet size of the format it is saved in.
  void Bind(std::shared_ptr<xls::Workbook>* book, bool firstRowHasNames, const SheetGrid& grid);

  // The next virtual table created takes this table, as INSERT's target when insertTarget.
  void Expect(const TableRef& table, bool insertTarget) {
    pending_ = table;
    pendingInsert_ = insertTarget;
  }

  // Whether text cells may be handed to SQLite without a copy (nothing writes meanwhile).
  void SetReadOnly(bool readOnly) { readOnly_ = readOnly; }

  // Text equal to one of *texts becomes a date cell in any column (SqlEngine::SetDateTexts).
  void SetDateTexts(const std::vector<std::string>* texts) { dateTexts_ = texts; }

  // Makes every live table show the model as it is now, as the next run of the same
  // statement would find it if its tables were made anew; false when a table's columns or
  // their types would differ (the statement must then be prepared again). appendedOnly:
  // the runs since the tables were made only inserted rows, so an INSERT's table need only
  // read the rows below its last record.
  [[nodiscard]] bool Refresh(bool appendedOnly);

  // Applies the DELETEs of the statement that ran. REQUIRES: it ran to the end.
  Error Finish();
  // Puts back every cell the statement wrote.
  void Undo();
  // Adds each cell the statement wrote, as it is now, to *out (the formats it added are the
  // caller's to journal: Database::TakeEffects). REQUIRES: it ran to the end (Finish), before
  // Commit.
  void CaptureEffects(EffectLog* out) const;
  // Forgets the statement's log; its changes stay.
  void Commit() { undo_.clear(); }
  bool changed() const { return changed_; }
  void ResetChanged() { changed_ = false; }

  // The first error a virtual table hit in this statement (kNone if none); cleared on read.
  Error TakeError();

  // The sheet a virtual table reads, by the table's name; empty when unknown.
  std::string SheetOf(const std::string& table) const;
  // The names of a virtual table's columns, left to right.
  std::vector<std::string> ColumnsOf(const std::string& table) const;

  struct Table;  // a virtual table (SheetVtab.cpp)

 private:
  friend struct ModuleCallbacks;
  xls::Workbook& Writable();

  std::shared_ptr<xls::Workbook>* book_ = nullptr;
  bool firstRowHasNames_ = true;
  SheetGrid grid_ = kXlsGrid;
  bool readOnly_ = true;
  TableRef pending_;
  bool pendingInsert_ = false;
  std::vector<Table*> tables_;  // live, created by SQLite
  std::vector<CellUndo> undo_;
  bool changed_ = false;
  Error error_;
  const std::vector<std::string>* dateTexts_ = nullptr;
};

}  // namespace xlsodbc
