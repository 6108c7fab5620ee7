#include "odbc-driver/Diagnostics.h"

namespace xlsodbc {

State StateOf(ErrorKind kind) {
  switch (kind) {
    case ErrorKind::kNone:
      break;
    case ErrorKind::kSyntax:
      return State::kSyntaxError;
    case ErrorKind::kTableNotFound:
      return State::kTableNotFound;
    case ErrorKind::kTableExists:
      return State::kTableExists;
    case ErrorKind::kColumnNotFound:
      return State::kColumnNotFound;
    case ErrorKind::kValueCount:
      return State::kValueCountMismatch;
    case ErrorKind::kInvalidValue:
      return State::kInvalidCharacterValue;
    case ErrorKind::kReadOnly:
    case ErrorKind::kWorkbookCorrupt:
    case ErrorKind::kIO:
    case ErrorKind::kTableFull:
      return State::kGeneralError;
    case ErrorKind::kWorkbookMissing:
      return State::kUnableToConnect;
    case ErrorKind::kLocked:
      return State::kTimeout;
    case ErrorKind::kParameter:
      return State::kWrongParameterCount;
    case ErrorKind::kNotSupported:
      return State::kNotImplemented;
    case ErrorKind::kStringTooLong:
      return State::kStringTooLong;
    case ErrorKind::kTooComplex:
      return State::kTooComplex;
    case ErrorKind::kTooManyColumns:
      return State::kTooManyColumns;
    case ErrorKind::kPassword:
      return State::kInvalidAuthorization;
  }
  return State::kGeneralError;
}

const char* SqlStateOf(ErrorKind kind) {
  return kind == ErrorKind::kNone ? "00000" : CodeOf(StateOf(kind));
}

namespace {

SQLRETURN Post(Handle* h, SQLRETURN ret, State state, const std::string& message) {
  h->diags.push_back(DiagRecord{CodeOf(state), kMessagePrefix + message, 0});
  h->lastReturn = ret;
  return ret;
}

std::string DefaultMessage(State state) {
  const char* m = InfoOf(state).message;
  return m ? m : std::string("SQLSTATE ") + CodeOf(state) + ".";
}

}  // namespace

SQLRETURN PostError(Handle* h, State state, const std::string& message) {
  return Post(h, SQL_ERROR, state, message);
}

SQLRETURN PostError(Handle* h, State state) {
  return Post(h, SQL_ERROR, state, DefaultMessage(state));
}

SQLRETURN PostError(Handle* h, const Error& e) {
  return PostError(h, StateOf(e.kind()), e.message());
}

SQLRETURN PostWarning(Handle* h, State state, const std::string& message) {
  return Post(h, SQL_SUCCESS_WITH_INFO, state, message);
}

SQLRETURN PostWarning(Handle* h, State state) {
  return Post(h, SQL_SUCCESS_WITH_INFO, state, DefaultMessage(state));
}

}  // namespace xlsodbc
