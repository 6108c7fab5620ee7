// ODBC entry points the driver has no use for: each answers HYC00 (optional feature not
// implemented) on a valid handle, so that callers get a diagnostic rather than a missing
// function.
#include "odbc-driver/Diagnostics.h"
#include "odbc-driver/Handles.h"

using namespace xlsodbc;

namespace {

SQLRETURN NotOnStatement(SQLHSTMT h, const char* what) {
  Stmt* stmt = ToStmt(h);
  if (!stmt) return SQL_INVALID_HANDLE;
  ClearDiag(stmt);
  return PostError(stmt, State::kNotImplemented, std::string(what) + " is not supported.");
}

SQLRETURN NotOnDescriptor(SQLHDESC h, const char* what) {
  Desc* desc = FromHandle<Desc>(h, HandleKind::kDesc);
  if (!desc) return SQL_INVALID_HANDLE;
  ClearDiag(desc);
  return PostError(desc, State::kNotImplemented, std::string(what) + " is not supported.");
}

}  // namespace

extern "C" {

SQLRETURN SQL_API SQLSetPos(SQLHSTMT h, SQLSETPOSIROW, SQLUSMALLINT, SQLUSMALLINT) {
  return NotOnStatement(h, "SQLSetPos (cursors are read-only)");
}
SQLRETURN SQL_API SQLBulkOperations(SQLHSTMT h, SQLSMALLINT) {
  return NotOnStatement(h, "SQLBulkOperations");
}
SQLRETURN SQL_API SQLGetCursorName(SQLHSTMT h, SQLCHAR*, SQLSMALLINT, SQLSMALLINT*) {
  return NotOnStatement(h, "SQLGetCursorName");
}
SQLRETURN SQL_API SQLSetCursorName(SQLHSTMT h, SQLCHAR*, SQLSMALLINT) {
  return NotOnStatement(h, "SQLSetCursorName");
}
SQLRETURN SQL_API SQLParamData(SQLHSTMT h, SQLPOINTER*) {
  return NotOnStatement(h, "Data at execution (SQLParamData)");
}
SQLRETURN SQL_API SQLPutData(SQLHSTMT h, SQLPOINTER, SQLLEN) {
  return NotOnStatement(h, "Data at execution (SQLPutData)");
}
SQLRETURN SQL_API SQLCopyDesc(SQLHDESC source, SQLHDESC) {
  return NotOnDescriptor(source, "SQLCopyDesc");
}
SQLRETURN SQL_API SQLGetDescField(SQLHDESC h, SQLSMALLINT, SQLSMALLINT, SQLPOINTER, SQLINTEGER,
                                  SQLINTEGER*) {
  return NotOnDescriptor(h, "SQLGetDescField");
}
SQLRETURN SQL_API SQLGetDescRec(SQLHDESC h, SQLSMALLINT, SQLCHAR*, SQLSMALLINT, SQLSMALLINT*,
                                SQLSMALLINT*, SQLSMALLINT*, SQLLEN*, SQLSMALLINT*, SQLSMALLINT*,
                                SQLSMALLINT*) {
  return NotOnDescriptor(h, "SQLGetDescRec");
}
SQLRETURN SQL_API SQLSetDescField(SQLHDESC h, SQLSMALLINT, SQLSMALLINT, SQLPOINTER, SQLINTEGER) {
  return NotOnDescriptor(h, "SQLSetDescField");
}
SQLRETURN SQL_API SQLSetDescRec(SQLHDESC h, SQLSMALLINT, SQLSMALLINT, SQLSMALLINT, SQLLEN,
                                SQLSMALLINT, SQLSMALLINT, SQLPOINTER, SQLLEN*, SQLLEN*) {
  return NotOnDescriptor(h, "SQLSetDescRec");
}

}  // extern "C"
