// ODBC entry points: diagnostics. These two never clear the records they report.
#include "odbc-driver/Diagnostics.h"
#include "odbc-driver/Handles.h"

using namespace xlsodbc;

namespace {

Handle* AnyHandle(SQLSMALLINT type, SQLHANDLE h) {
  switch (type) {
    case SQL_HANDLE_ENV:
      return ToEnv(h);
    case SQL_HANDLE_DBC:
      return ToDbc(h);
    case SQL_HANDLE_STMT:
      return ToStmt(h);
    case SQL_HANDLE_DESC:
      return FromHandle<Desc>(h, HandleKind::kDesc);
    default:
      return nullptr;
  }
}

}  // namespace

extern "C" {

SQLRETURN SQL_API SQLGetDiagRec(SQLSMALLINT type, SQLHANDLE handle, SQLSMALLINT number,
                                SQLCHAR* state, SQLINTEGER* native, SQLCHAR* message,
                                SQLSMALLINT messageMax, SQLSMALLINT* messageLength) {
  Handle* h = AnyHandle(type, handle);
  if (!h) return SQL_INVALID_HANDLE;
  if (number < 1) return SQL_ERROR;
  if (static_cast<std::size_t>(number) > h->diags.size()) return SQL_NO_DATA;
  const DiagRecord& d = h->diags[static_cast<std::size_t>(number - 1)];
  if (state) CopyOut(d.state, state, 6, nullptr);
  if (native) *native = d.native;
  return CopyOut(d.message, message, messageMax, messageLength) ? SQL_SUCCESS_WITH_INFO
                                                                : SQL_SUCCESS;
}

SQLRETURN SQL_API SQLGetDiagField(SQLSMALLINT type, SQLHANDLE handle, SQLSMALLINT number,
                                  SQLSMALLINT field, SQLPOINTER info, SQLSMALLINT infoMax,
                                  SQLSMALLINT* infoLength) {
  Handle* h = AnyHandle(type, handle);
  if (!h) return SQL_INVALID_HANDLE;
  // Header fields.
  switch (field) {
    case SQL_DIAG_NUMBER:
      if (info) *static_cast<SQLINTEGER*>(info) = static_cast<SQLINTEGER>(h->diags.size());
      return SQL_SUCCESS;
    case SQL_DIAG_RETURNCODE:
      if (info) *static_cast<SQLRETURN*>(info) = h->lastReturn;
      return SQL_SUCCESS;
    case SQL_DIAG_ROW_COUNT: {
      Stmt* s = ToStmt(handle);
      if (!s) return SQL_ERROR;
      if (info) *static_cast<SQLLEN*>(info) = s->rowCount;
      return SQL_SUCCESS;
    }
    case SQL_DIAG_CURSOR_ROW_COUNT:
    case SQL_DIAG_DYNAMIC_FUNCTION_CODE:
      if (info) *static_cast<SQLINTEGER*>(info) = 0;
      return SQL_SUCCESS;
    case SQL_DIAG_DYNAMIC_FUNCTION:
      CopyOut(std::string(), static_cast<SQLCHAR*>(info), infoMax, infoLength);
      return SQL_SUCCESS;
    default:
      break;
  }
  if (number < 1) return SQL_ERROR;
  if (static_cast<std::size_t>(number) > h->diags.size()) return SQL_NO_DATA;
  const DiagRecord& d = h->diags[static_cast<std::size_t>(number - 1)];
  std::string text;
  switch (field) {
    case SQL_DIAG_SQLSTATE:
      text = d.state;
      break;
    case SQL_DIAG_MESSAGE_TEXT:
      text = d.message;
      break;
    case SQL_DIAG_CLASS_ORIGIN:
    case SQL_DIAG_SUBCLASS_ORIGIN:
      text = (d.state.compare(0, 2, "IM") == 0 || d.state.compare(0, 2, "HY") == 0 ||
              d.state.compare(0, 2, "01") == 0 || d.state.compare(0, 3, "42S") == 0 ||
              d.state.compare(0, 3, "21S") == 0)
                 ? "ODBC 3.0"
                 : "ISO 9075";
      break;
    case SQL_DIAG_CONNECTION_NAME:
    case SQL_DIAG_SERVER_NAME:
      text = "";
      break;
    case SQL_DIAG_NATIVE:
      if (info) *static_cast<SQLINTEGER*>(info) = d.native;
      return SQL_SUCCESS;
    case SQL_DIAG_ROW_NUMBER:
      if (info) *static_cast<SQLLEN*>(info) = SQL_NO_ROW_NUMBER;
      return SQL_SUCCESS;
    case SQL_DIAG_COLUMN_NUMBER:
      if (info) *static_cast<SQLINTEGER*>(info) = SQL_NO_COLUMN_NUMBER;
      return SQL_SUCCESS;
    default:
      return SQL_ERROR;
  }
  return CopyOut(text, static_cast<SQLCHAR*>(info), infoMax, infoLength) ? SQL_SUCCESS_WITH_INFO
                                                                         : SQL_SUCCESS;
}

}  // extern "C"
