// Error: what went wrong inside the driver's engine, as a kind and a message of our own.
// The kind decides the SQLSTATE (one table, in Diagnostics.cpp); the message is what the
// application shows, so it names the table, column or position that was wrong.
#pragma once

#include <string>
#include <utility>

namespace xlsodbc {

enum class ErrorKind {
  kNone,
  kSyntax,           // 42000: the statement does not parse
  kTableNotFound,    // 42S02: no such sheet
  kTableExists,      // 42S01: CREATE over a different table
  kColumnNotFound,   // 42S22
  kValueCount,       // 21S01: more values than columns
  kInvalidValue,     // 22018: a value that cannot go where it was put
  kReadOnly,         // HY000: a change on a read-only connection
  kWorkbookMissing,  // 08001: DBQ names no file and CREATE_DB was not given
  kWorkbookCorrupt,  // HY000: the file is not a workbook we can read
  kIO,               // HY000: reading or writing the file failed
  kLocked,           // HYT00: another process held the workbook for too long
  kParameter,        // 07002: parameter markers without values
  kNotSupported,     // HYC00
  kStringTooLong,    // 22001: text longer than a cell holds (32,767 characters)
  kTableFull,        // HY000: no row left below the table (the sheet ends at row 65,536)
  kTooComplex,       // 54001: an expression nested or chained past what the parser takes
  kTooManyColumns,   // 54011: a table past the sheet's 256 columns
};

class Error {
 public:
  Error() = default;
  Error(ErrorKind kind, std::string message) : kind_(kind), message_(std::move(message)) {}

  bool ok() const { return kind_ == ErrorKind::kNone; }
  ErrorKind kind() const { return kind_; }
  const std::string& message() const { return message_; }

 private:
  ErrorKind kind_ = ErrorKind::kNone;
  std::string message_;
};

}  // namespace xlsodbc
