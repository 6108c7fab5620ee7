// The UTF-16 ("W") forms of the entry points that carry names, statements and messages.
// Without them the driver manager would convert text through the process locale, which
// under LANG=C loses every non-ASCII character of a sheet or column name. Each converts its
// text arguments to UTF-8, calls the narrow form (bound within the library: -Bsymbolic) and
// converts text results back, lengths counted in characters (bytes for SQLColAttributeW).
#include <string>

#include "odbc-driver/Convert.h"
#include "odbc-driver/Diagnostics.h"
#include "odbc-driver/Handles.h"

using namespace xlsodbc;

namespace {

std::string Narrow(const SQLWCHAR* s, SQLINTEGER chars) {
  if (!s) return std::string();
  std::size_t n = 0;
  if (chars == SQL_NTS) {
    while (s[n] != 0) ++n;
  } else if (chars > 0) {
    n = static_cast<std::size_t>(chars);
  }
  return Utf16ToUtf8(s, n);
}

// Copies text as UTF-16 into room for capacity units (the NUL included); *length gets the
// whole length in units. True when cut.
bool CopyOutWide(const std::string& text, SQLWCHAR* out, SQLLEN capacity, SQLLEN* length) {
  std::u16string w = Utf8ToUtf16(text);
  if (length) *length = static_cast<SQLLEN>(w.size());
  if (!out || capacity <= 0) return !w.empty();
  std::size_t n = std::min(w.size(), static_cast<std::size_t>(capacity) - 1);
  for (std::size_t i = 0; i < n; ++i) out[i] = w[i];
  out[n] = 0;
  return n < w.size();
}

SQLSMALLINT Small(SQLLEN v) { return static_cast<SQLSMALLINT>(std::min<SQLLEN>(v, 32767)); }

SQLRETURN Cut(Handle* h, SQLRETURN ret) {
  if (ret == SQL_SUCCESS && h) return PostWarning(h, State::kStringTruncated);
  return ret;
}

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

SQLCHAR* U(std::string& s) { return reinterpret_cast<SQLCHAR*>(s.data()); }

}  // namespace

extern "C" {

SQLRETURN SQL_API SQLDriverConnectW(SQLHDBC handle, SQLHWND window, SQLWCHAR* in,
                                    SQLSMALLINT inLength, SQLWCHAR* out, SQLSMALLINT outMax,
                                    SQLSMALLINT* outLength, SQLUSMALLINT completion) {
  std::string text = Narrow(in, inLength);
  SQLRETURN ret =
      SQLDriverConnect(handle, window, U(text), SQL_NTS, nullptr, 0, nullptr, completion);
  if (!SQL_SUCCEEDED(ret)) return ret;
  SQLLEN len = 0;
  bool cut = CopyOutWide(text, out, outMax, &len);
  if (outLength) *outLength = Small(len);
  return cut ? Cut(ToDbc(handle), ret) : ret;
}

SQLRETURN SQL_API SQLConnectW(SQLHDBC handle, SQLWCHAR* dsn, SQLSMALLINT dsnLength, SQLWCHAR*,
                              SQLSMALLINT, SQLWCHAR*, SQLSMALLINT) {
  std::string name = Narrow(dsn, dsnLength);
  return SQLConnect(handle, U(name), SQL_NTS, nullptr, 0, nullptr, 0);
}

SQLRETURN SQL_API SQLExecDirectW(SQLHSTMT handle, SQLWCHAR* text, SQLINTEGER length) {
  if (!text) return SQLExecDirect(handle, nullptr, 0);
  std::string sql = Narrow(text, length);
  return SQLExecDirect(handle, U(sql), static_cast<SQLINTEGER>(sql.size()));
}

SQLRETURN SQL_API SQLPrepareW(SQLHSTMT handle, SQLWCHAR* text, SQLINTEGER length) {
  if (!text) return SQLPrepare(handle, nullptr, 0);
  std::string sql = Narrow(text, length);
  return SQLPrepare(handle, U(sql), static_cast<SQLINTEGER>(sql.size()));
}

SQLRETURN SQL_API SQLDescribeColW(SQLHSTMT handle, SQLUSMALLINT number, SQLWCHAR* name,
                                  SQLSMALLINT nameMax, SQLSMALLINT* nameLength, SQLSMALLINT* type,
                                  SQLULEN* size, SQLSMALLINT* digits, SQLSMALLINT* nullable) {
  std::string buf(1024, '\0');
  SQLSMALLINT len = 0;
  SQLRETURN ret = SQLDescribeCol(handle, number, U(buf), static_cast<SQLSMALLINT>(buf.size()), &len,
                                 type, size, digits, nullable);
  if (!SQL_SUCCEEDED(ret)) return ret;
  buf.resize(std::min<std::size_t>(static_cast<std::size_t>(len), buf.size() - 1));
  SQLLEN units = 0;
  bool cut = CopyOutWide(buf, name, nameMax, &units);
  if (nameLength) *nameLength = Small(units);
  return cut ? Cut(ToStmt(handle), ret) : ret;
}

SQLRETURN SQL_API SQLColAttributeW(SQLHSTMT handle, SQLUSMALLINT number, SQLUSMALLINT field,
                                   SQLPOINTER text, SQLSMALLINT textMax, SQLSMALLINT* textLength,
                                   SQLLEN* numeric) {
  std::string buf(1024, '\0');
  SQLSMALLINT len = -1;  // stays -1 for numeric fields
  SQLRETURN ret = SQLColAttribute(handle, number, field, U(buf),
                                  static_cast<SQLSMALLINT>(buf.size()), &len, numeric);
  if (!SQL_SUCCEEDED(ret) || len < 0) return ret;
  buf.resize(std::min<std::size_t>(static_cast<std::size_t>(len), buf.size() - 1));
  SQLLEN units = 0;
  bool cut = CopyOutWide(buf, static_cast<SQLWCHAR*>(text), textMax / 2, &units);
  if (textLength) *textLength = Small(units * 2);
  return cut ? Cut(ToStmt(handle), ret) : ret;
}

SQLRETURN SQL_API SQLGetDiagRecW(SQLSMALLINT type, SQLHANDLE handle, SQLSMALLINT number,
                                 SQLWCHAR* state, SQLINTEGER* native, SQLWCHAR* message,
                                 SQLSMALLINT messageMax, SQLSMALLINT* messageLength) {
  Handle* h = AnyHandle(type, handle);
  if (!h) return SQL_INVALID_HANDLE;
  if (number < 1) return SQL_ERROR;
  if (static_cast<std::size_t>(number) > h->diags.size()) return SQL_NO_DATA;
  const DiagRecord& d = h->diags[static_cast<std::size_t>(number - 1)];
  if (state) CopyOutWide(d.state, state, 6, nullptr);
  if (native) *native = d.native;
  SQLLEN units = 0;
  bool cut = CopyOutWide(d.message, message, messageMax, &units);
  if (messageLength) *messageLength = Small(units);
  return cut ? SQL_SUCCESS_WITH_INFO : SQL_SUCCESS;
}

SQLRETURN SQL_API SQLGetDiagFieldW(SQLSMALLINT type, SQLHANDLE handle, SQLSMALLINT number,
                                   SQLSMALLINT field, SQLPOINTER info, SQLSMALLINT infoMax,
                                   SQLSMALLINT* infoLength) {
  bool text = field == SQL_DIAG_SQLSTATE || field == SQL_DIAG_MESSAGE_TEXT ||
              field == SQL_DIAG_CLASS_ORIGIN || field == SQL_DIAG_SUBCLASS_ORIGIN ||
              field == SQL_DIAG_CONNECTION_NAME || field == SQL_DIAG_SERVER_NAME ||
              field == SQL_DIAG_DYNAMIC_FUNCTION;
  if (!text) return SQLGetDiagField(type, handle, number, field, info, infoMax, infoLength);
  std::string buf(4096, '\0');
  SQLSMALLINT len = 0;
  SQLRETURN ret = SQLGetDiagField(type, handle, number, field, U(buf),
                                  static_cast<SQLSMALLINT>(buf.size()), &len);
  if (!SQL_SUCCEEDED(ret)) return ret;
  buf.resize(std::min<std::size_t>(static_cast<std::size_t>(len), buf.size() - 1));
  SQLLEN units = 0;
  bool cut = CopyOutWide(buf, static_cast<SQLWCHAR*>(info), infoMax / 2, &units);
  if (infoLength) *infoLength = Small(units * 2);
  return cut ? SQL_SUCCESS_WITH_INFO : ret;
}

SQLRETURN SQL_API SQLTablesW(SQLHSTMT handle, SQLWCHAR* catalog, SQLSMALLINT catalogLength,
                             SQLWCHAR* schema, SQLSMALLINT schemaLength, SQLWCHAR* table,
                             SQLSMALLINT tableLength, SQLWCHAR* types, SQLSMALLINT typesLength) {
  std::string c = Narrow(catalog, catalogLength), s = Narrow(schema, schemaLength),
              t = Narrow(table, tableLength), y = Narrow(types, typesLength);
  return SQLTables(handle, catalog ? U(c) : nullptr, SQL_NTS, schema ? U(s) : nullptr, SQL_NTS,
                   table ? U(t) : nullptr, SQL_NTS, types ? U(y) : nullptr, SQL_NTS);
}

SQLRETURN SQL_API SQLColumnsW(SQLHSTMT handle, SQLWCHAR* catalog, SQLSMALLINT catalogLength,
                              SQLWCHAR* schema, SQLSMALLINT schemaLength, SQLWCHAR* table,
                              SQLSMALLINT tableLength, SQLWCHAR* column, SQLSMALLINT columnLength) {
  std::string c = Narrow(catalog, catalogLength), s = Narrow(schema, schemaLength),
              t = Narrow(table, tableLength), k = Narrow(column, columnLength);
  return SQLColumns(handle, catalog ? U(c) : nullptr, SQL_NTS, schema ? U(s) : nullptr, SQL_NTS,
                    table ? U(t) : nullptr, SQL_NTS, column ? U(k) : nullptr, SQL_NTS);
}

}  // extern "C"

// Once a driver has W forms, the driver manager calls only W forms for Unicode applications;
// the rest follow. Attributes that are numbers pass straight through.
extern "C" {

SQLRETURN SQL_API SQLSetConnectAttrW(SQLHDBC handle, SQLINTEGER attr, SQLPOINTER value,
                                     SQLINTEGER length) {
  if (attr == SQL_ATTR_CURRENT_CATALOG || attr == SQL_ATTR_TRACEFILE ||
      attr == SQL_ATTR_TRANSLATE_LIB) {
    std::string text =
        Narrow(static_cast<SQLWCHAR*>(value), length == SQL_NTS ? SQL_NTS : length / 2);
    return SQLSetConnectAttr(handle, attr, U(text), SQL_NTS);
  }
  return SQLSetConnectAttr(handle, attr, value, length);
}

SQLRETURN SQL_API SQLGetConnectAttrW(SQLHDBC handle, SQLINTEGER attr, SQLPOINTER value,
                                     SQLINTEGER bufferLength, SQLINTEGER* length) {
  if (attr != SQL_ATTR_CURRENT_CATALOG) {
    return SQLGetConnectAttr(handle, attr, value, bufferLength, length);
  }
  std::string buf(4096, '\0');
  SQLINTEGER len = 0;
  SQLRETURN ret =
      SQLGetConnectAttr(handle, attr, U(buf), static_cast<SQLINTEGER>(buf.size()), &len);
  if (!SQL_SUCCEEDED(ret)) return ret;
  buf.resize(std::min<std::size_t>(static_cast<std::size_t>(len), buf.size() - 1));
  SQLLEN units = 0;
  bool cut = CopyOutWide(buf, static_cast<SQLWCHAR*>(value), bufferLength / 2, &units);
  if (length) *length = static_cast<SQLINTEGER>(units * 2);
  return cut ? Cut(ToDbc(handle), ret) : ret;
}

SQLRETURN SQL_API SQLSetStmtAttrW(SQLHSTMT handle, SQLINTEGER attr, SQLPOINTER value,
                                  SQLINTEGER length) {
  return SQLSetStmtAttr(handle, attr, value, length);
}

SQLRETURN SQL_API SQLGetStmtAttrW(SQLHSTMT handle, SQLINTEGER attr, SQLPOINTER value,
                                  SQLINTEGER bufferLength, SQLINTEGER* length) {
  return SQLGetStmtAttr(handle, attr, value, bufferLength, length);
}

SQLRETURN SQL_API SQLGetTypeInfoW(SQLHSTMT handle, SQLSMALLINT type) {
  return SQLGetTypeInfo(handle, type);
}

SQLRETURN SQL_API SQLNativeSqlW(SQLHDBC handle, SQLWCHAR* in, SQLINTEGER inLength, SQLWCHAR* out,
                                SQLINTEGER outMax, SQLINTEGER* outLength) {
  Dbc* dbc = ToDbc(handle);
  if (!dbc) return SQL_INVALID_HANDLE;
  ClearDiag(dbc);
  SQLLEN units = 0;
  bool cut = CopyOutWide(Narrow(in, inLength), out, outMax, &units);
  if (outLength) *outLength = static_cast<SQLINTEGER>(units);
  return cut ? Cut(dbc, SQL_SUCCESS) : SQL_SUCCESS;
}

SQLRETURN SQL_API SQLBrowseConnectW(SQLHDBC handle, SQLWCHAR*, SQLSMALLINT, SQLWCHAR*, SQLSMALLINT,
                                    SQLSMALLINT*) {
  return SQLBrowseConnect(handle, nullptr, 0, nullptr, 0, nullptr);
}

SQLRETURN SQL_API SQLGetCursorNameW(SQLHSTMT h, SQLWCHAR*, SQLSMALLINT, SQLSMALLINT*) {
  return SQLGetCursorName(h, nullptr, 0, nullptr);
}
SQLRETURN SQL_API SQLSetCursorNameW(SQLHSTMT h, SQLWCHAR*, SQLSMALLINT) {
  return SQLSetCursorName(h, nullptr, 0);
}
SQLRETURN SQL_API SQLGetDescFieldW(SQLHDESC h, SQLSMALLINT r, SQLSMALLINT f, SQLPOINTER v,
                                   SQLINTEGER n, SQLINTEGER* l) {
  return SQLGetDescField(h, r, f, v, n, l);
}
SQLRETURN SQL_API SQLGetDescRecW(SQLHDESC h, SQLSMALLINT r, SQLWCHAR*, SQLSMALLINT, SQLSMALLINT*,
                                 SQLSMALLINT*, SQLSMALLINT*, SQLLEN*, SQLSMALLINT*, SQLSMALLINT*,
                                 SQLSMALLINT*) {
  return SQLGetDescRec(h, r, nullptr, 0, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                       nullptr);
}
SQLRETURN SQL_API SQLSetDescFieldW(SQLHDESC h, SQLSMALLINT r, SQLSMALLINT f, SQLPOINTER v,
                                   SQLINTEGER n) {
  return SQLSetDescField(h, r, f, v, n);
}

// Catalog calls with nothing to report: their names do not matter.
SQLRETURN SQL_API SQLPrimaryKeysW(SQLHSTMT h, SQLWCHAR*, SQLSMALLINT, SQLWCHAR*, SQLSMALLINT,
                                  SQLWCHAR*, SQLSMALLINT) {
  return SQLPrimaryKeys(h, nullptr, 0, nullptr, 0, nullptr, 0);
}
SQLRETURN SQL_API SQLForeignKeysW(SQLHSTMT h, SQLWCHAR*, SQLSMALLINT, SQLWCHAR*, SQLSMALLINT,
                                  SQLWCHAR*, SQLSMALLINT, SQLWCHAR*, SQLSMALLINT, SQLWCHAR*,
                                  SQLSMALLINT, SQLWCHAR*, SQLSMALLINT) {
  return SQLForeignKeys(h, nullptr, 0, nullptr, 0, nullptr, 0, nullptr, 0, nullptr, 0, nullptr, 0);
}
SQLRETURN SQL_API SQLStatisticsW(SQLHSTMT h, SQLWCHAR*, SQLSMALLINT, SQLWCHAR*, SQLSMALLINT,
                                 SQLWCHAR*, SQLSMALLINT, SQLUSMALLINT u, SQLUSMALLINT r) {
  return SQLStatistics(h, nullptr, 0, nullptr, 0, nullptr, 0, u, r);
}
SQLRETURN SQL_API SQLSpecialColumnsW(SQLHSTMT h, SQLUSMALLINT t, SQLWCHAR*, SQLSMALLINT, SQLWCHAR*,
                                     SQLSMALLINT, SQLWCHAR*, SQLSMALLINT, SQLUSMALLINT s,
                                     SQLUSMALLINT n) {
  return SQLSpecialColumns(h, t, nullptr, 0, nullptr, 0, nullptr, 0, s, n);
}
SQLRETURN SQL_API SQLProceduresW(SQLHSTMT h, SQLWCHAR*, SQLSMALLINT, SQLWCHAR*, SQLSMALLINT,
                                 SQLWCHAR*, SQLSMALLINT) {
  return SQLProcedures(h, nullptr, 0, nullptr, 0, nullptr, 0);
}
SQLRETURN SQL_API SQLProcedureColumnsW(SQLHSTMT h, SQLWCHAR*, SQLSMALLINT, SQLWCHAR*, SQLSMALLINT,
                                       SQLWCHAR*, SQLSMALLINT, SQLWCHAR*, SQLSMALLINT) {
  return SQLProcedureColumns(h, nullptr, 0, nullptr, 0, nullptr, 0, nullptr, 0);
}
SQLRETURN SQL_API SQLTablePrivilegesW(SQLHSTMT h, SQLWCHAR*, SQLSMALLINT, SQLWCHAR*, SQLSMALLINT,
                                      SQLWCHAR*, SQLSMALLINT) {
  return SQLTablePrivileges(h, nullptr, 0, nullptr, 0, nullptr, 0);
}
SQLRETURN SQL_API SQLColumnPrivilegesW(SQLHSTMT h, SQLWCHAR*, SQLSMALLINT, SQLWCHAR*, SQLSMALLINT,
                                       SQLWCHAR*, SQLSMALLINT, SQLWCHAR*, SQLSMALLINT) {
  return SQLColumnPrivileges(h, nullptr, 0, nullptr, 0, nullptr, 0, nullptr, 0);
}

}  // extern "C"
