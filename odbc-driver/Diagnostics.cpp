#include "odbc-driver/Diagnostics.h"

namespace xlsodbc {

const char* SqlStateOf(ErrorKind kind) {
  switch (kind) {
    case ErrorKind::kNone:
      return "00000";
    case ErrorKind::kSyntax:
      return "42000";
    case ErrorKind::kTableNotFound:
      return "42S02";
    case ErrorKind::kTableExists:
      return "42S01";
    case ErrorKind::kColumnNotFound:
      return "42S22";
    case ErrorKind::kValueCount:
      return "21S01";
    case ErrorKind::kInvalidValue:
      return "22018";
    case ErrorKind::kReadOnly:
      return "HY000";
    case ErrorKind::kWorkbookMissing:
      return "08001";
    case ErrorKind::kWorkbookCorrupt:
      return "HY000";
    case ErrorKind::kIO:
      return "HY000";
    case ErrorKind::kLocked:
      return "HYT00";
    case ErrorKind::kParameter:
      return "07002";
    case ErrorKind::kNotSupported:
      return "HYC00";
    case ErrorKind::kStringTooLong:
      return "22001";
    case ErrorKind::kTableFull:
      return "HY000";
    case ErrorKind::kTooComplex:
      return "54001";
    case ErrorKind::kTooManyColumns:
      return "54011";
  }
  return "HY000";
}

SQLRETURN PostError(Handle* h, const char* state, const std::string& message) {
  h->diags.push_back(DiagRecord{state, kMessagePrefix + message, 0});
  h->lastReturn = SQL_ERROR;
  return SQL_ERROR;
}

SQLRETURN PostError(Handle* h, const Error& e) {
  return PostError(h, SqlStateOf(e.kind()), e.message());
}

SQLRETURN PostWarning(Handle* h, const char* state, const std::string& message) {
  h->diags.push_back(DiagRecord{state, kMessagePrefix + message, 0});
  h->lastReturn = SQL_SUCCESS_WITH_INFO;
  return SQL_SUCCESS_WITH_INFO;
}

}  // namespace xlsodbc
