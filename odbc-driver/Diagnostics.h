// The one place where the driver's errors become ODBC diagnostics: the engine's error kinds
// mapped to SQLSTATEs (the codes themselves are in Error.h, by name) and the setters every
// entry point uses. Entry points name a State; none writes a code.
#pragma once

#include <string>

#include "odbc-driver/Error.h"
#include "odbc-driver/Handles.h"

namespace xlsodbc {

// The prefix of every message, the ODBC way of naming the component that reports it.
constexpr const char* kMessagePrefix = "[Excel Workbook Driver] ";

State StateOf(ErrorKind kind);
const char* SqlStateOf(ErrorKind kind);

// Clears the handle's records; every entry point but the diagnostic ones starts with it,
// SQLGetData once a cell, so it stays inline.
inline void ClearDiag(Handle* h) {
  if (!h->diags.empty()) h->diags.clear();
}
// Adds a record (prefix added here) and returns SQL_ERROR. Without a message, the state's
// own from Error.h's table.
SQLRETURN PostError(Handle* h, State state, const std::string& message);
SQLRETURN PostError(Handle* h, State state);
SQLRETURN PostError(Handle* h, const Error& e);
// Adds a warning record and returns SQL_SUCCESS_WITH_INFO.
SQLRETURN PostWarning(Handle* h, State state, const std::string& message);
SQLRETURN PostWarning(Handle* h, State state);

}  // namespace xlsodbc
