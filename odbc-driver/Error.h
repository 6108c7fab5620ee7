// Error: what went wrong inside the driver's engine, as a kind and a message of our own.
// The kind decides the SQLSTATE (Diagnostics.cpp maps each kind to a State, whose code is in
// the table below); the message is what the application shows, so it names the table,
// column or position that was wrong. State also names the SQLSTATEs the entry points and
// conversions report themselves.
#pragma once

#include <cstddef>
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
  kPassword,         // 28000: an encrypted workbook that no password given opens
};

// The SQLSTATEs the driver reports, by name: entry points and conversions name one of these
// and never write a code; Diagnostics.cpp maps each ErrorKind to one. The codes and the
// messages shared by several entry points are in the table below, in the enum's order.
enum class State : unsigned char {
  kGeneralWarning,          // 01000
  kDisconnectError,         // 01002
  kStringTruncated,         // 01004 (a warning: an output string was cut to fit)
  kOptionValueChanged,      // 01S02: an attribute value replaced by one the driver honours
  kFractionalTruncation,    // 01S07
  kWrongParameterCount,     // 07002: a parameter marker without a bound value
  kInvalidDescriptorIndex,  // 07009: no such column or parameter
  kUnableToConnect,         // 08001
  kConnectionInUse,         // 08002
  kNotConnected,            // 08003
  kValueCountMismatch,      // 21S01
  kStringTooLong,           // 22001 (an error: a value longer than where it goes)
  kNullWithoutIndicator,    // 22002
  kNumericOutOfRange,       // 22003
  kInvalidCharacterValue,   // 22018
  kInvalidDatetimeFormat,   // 22007
  kInvalidCursorState,      // 24000
  kTransactionOpen,         // 25000: SQLDisconnect with a transaction open
  kInvalidAuthorization,    // 28000: an encrypted workbook, and no password that opens it
  kSyntaxError,             // 42000
  kTableExists,             // 42S01
  kTableNotFound,           // 42S02
  kColumnNotFound,          // 42S22
  kTooComplex,              // 54001
  kTooManyColumns,          // 54011
  kGeneralError,            // HY000
  kInvalidCType,            // HY003
  kInvalidNullPointer,      // HY009
  kSequenceError,           // HY010
  kCannotSetNow,            // HY011
  kInvalidTransactionCode,  // HY012: SQLEndTran with neither SQL_COMMIT nor SQL_ROLLBACK
  kImplicitDescriptor,      // HY017: an automatically allocated descriptor cannot be set
  kInvalidAttributeValue,   // HY024
  kInvalidLength,           // HY090
  kInvalidOption,           // HY092: an attribute or option the driver does not know
  kInvalidInfoType,         // HY096
  kFetchTypeOutOfRange,     // HY106
  kNotImplemented,          // HYC00
  kTimeout,                 // HYT00
};

struct StateInfo {
  const char* code;
  const char* message;  // for PostWarning/PostError without one; nullptr: always given
};

inline constexpr StateInfo kStates[] = {
    {"01000", nullptr},
    {"01002", nullptr},
    {"01004", "String data, right truncated."},
    {"01S02", nullptr},
    {"01S07", "Fractional part dropped."},
    {"07002", nullptr},
    {"07009", nullptr},
    {"08001", nullptr},
    {"08002", "Already connected."},
    {"08003", "Not connected."},
    {"21S01", nullptr},
    {"22001", nullptr},
    {"22002", "NULL value but no indicator variable given."},
    {"22003", nullptr},
    {"22018", nullptr},
    {"22007", nullptr},
    {"24000", nullptr},
    {"25000", nullptr},
    {"28000", nullptr},
    {"42000", nullptr},
    {"42S01", nullptr},
    {"42S02", nullptr},
    {"42S22", nullptr},
    {"54001", nullptr},
    {"54011", nullptr},
    {"HY000", nullptr},
    {"HY003", nullptr},
    {"HY009", nullptr},
    {"HY010", nullptr},
    {"HY011", nullptr},
    {"HY012", "SQLEndTran takes SQL_COMMIT or SQL_ROLLBACK."},
    {"HY017", nullptr},
    {"HY024", nullptr},
    {"HY090", nullptr},
    {"HY092", nullptr},
    {"HY096", nullptr},
    {"HY106", nullptr},
    {"HYC00", nullptr},
    {"HYT00", nullptr},
};
static_assert(sizeof kStates / sizeof kStates[0] == static_cast<std::size_t>(State::kTimeout) + 1,
              "one row of kStates per State");

constexpr const StateInfo& InfoOf(State s) { return kStates[static_cast<std::size_t>(s)]; }
constexpr const char* CodeOf(State s) { return InfoOf(s).code; }

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
