// ODBC entry points: SQLGetInfo, SQLGetFunctions, SQLGetTypeInfo.
#include <cstring>

#include "odbc-driver/Convert.h"
#include "odbc-driver/Diagnostics.h"
#include "odbc-driver/Handles.h"
#include "odbc-driver/ResultSet.h"

using namespace xlsodbc;

namespace {

// Every function the driver exports (xlsodbc.map exports SQL*): the driver manager drops a
// function that SQLGetFunctions denies, so this list and the exports must agree; a test
// checks them against each other.
const SQLUSMALLINT kFunctions[] = {
    SQL_API_SQLALLOCHANDLE,      SQL_API_SQLFREEHANDLE,      SQL_API_SQLFREESTMT,
    SQL_API_SQLSETENVATTR,       SQL_API_SQLGETENVATTR,      SQL_API_SQLCONNECT,
    SQL_API_SQLDRIVERCONNECT,    SQL_API_SQLBROWSECONNECT,   SQL_API_SQLDISCONNECT,
    SQL_API_SQLSETCONNECTATTR,   SQL_API_SQLGETCONNECTATTR,  SQL_API_SQLENDTRAN,
    SQL_API_SQLNATIVESQL,        SQL_API_SQLPREPARE,         SQL_API_SQLEXECUTE,
    SQL_API_SQLEXECDIRECT,       SQL_API_SQLNUMPARAMS,       SQL_API_SQLDESCRIBEPARAM,
    SQL_API_SQLBINDPARAMETER,    SQL_API_SQLROWCOUNT,        SQL_API_SQLMORERESULTS,
    SQL_API_SQLCANCEL,           SQL_API_SQLCLOSECURSOR,     SQL_API_SQLSETSTMTATTR,
    SQL_API_SQLGETSTMTATTR,      SQL_API_SQLNUMRESULTCOLS,   SQL_API_SQLDESCRIBECOL,
    SQL_API_SQLCOLATTRIBUTE,     SQL_API_SQLBINDCOL,         SQL_API_SQLFETCH,
    SQL_API_SQLFETCHSCROLL,      SQL_API_SQLGETDATA,         SQL_API_SQLGETINFO,
    SQL_API_SQLGETFUNCTIONS,     SQL_API_SQLGETTYPEINFO,     SQL_API_SQLTABLES,
    SQL_API_SQLCOLUMNS,          SQL_API_SQLPRIMARYKEYS,     SQL_API_SQLFOREIGNKEYS,
    SQL_API_SQLSTATISTICS,       SQL_API_SQLSPECIALCOLUMNS,  SQL_API_SQLPROCEDURES,
    SQL_API_SQLPROCEDURECOLUMNS, SQL_API_SQLTABLEPRIVILEGES, SQL_API_SQLCOLUMNPRIVILEGES,
    SQL_API_SQLGETDIAGREC,       SQL_API_SQLGETDIAGFIELD,    SQL_API_SQLSETPOS,
    SQL_API_SQLBULKOPERATIONS,   SQL_API_SQLGETCURSORNAME,   SQL_API_SQLSETCURSORNAME,
    SQL_API_SQLPARAMDATA,        SQL_API_SQLPUTDATA,         SQL_API_SQLCOPYDESC,
    SQL_API_SQLGETDESCFIELD,     SQL_API_SQLGETDESCREC,      SQL_API_SQLSETDESCFIELD,
    SQL_API_SQLSETDESCREC,
};

bool Supported(SQLUSMALLINT id) {
  for (SQLUSMALLINT f : kFunctions) {
    if (f == id) return true;
  }
  return false;
}

struct InfoValue {
  enum { kText, kShort, kInt } kind;
  std::string text;
  SQLUINTEGER number;
};

bool LookUpInfo(Dbc* dbc, SQLUSMALLINT type, InfoValue* v) {
  auto text = [&](std::string s) {
    *v = InfoValue{InfoValue::kText, std::move(s), 0};
    return true;
  };
  auto u16 = [&](SQLUINTEGER n) {
    *v = InfoValue{InfoValue::kShort, {}, n};
    return true;
  };
  auto u32 = [&](SQLUINTEGER n) {
    *v = InfoValue{InfoValue::kInt, {}, n};
    return true;
  };
  bool readOnly = dbc->db && dbc->db->readOnly();
  switch (type) {
    case SQL_DRIVER_NAME:
      return text("libxlsodbc.so");
    case SQL_DRIVER_VER:
      return text(XLSODBC_DRIVER_VER);
    case SQL_DRIVER_ODBC_VER:
      return text("03.00");
    case SQL_ODBC_VER:
      return text("03.00");
    case SQL_DBMS_NAME:
      return text("EXCEL");
    case SQL_DBMS_VER:  // the connected workbook's format: Excel 97-2003, or 2007 and later
      return text(dbc->db && dbc->db->grid().rows == kXlsxGrid.rows ? "12.0 (Office Open XML)"
                                                                    : "8.0 (BIFF8)");
    case SQL_DATA_SOURCE_NAME:
      return text(dbc->dsn);
    case SQL_SERVER_NAME:
      return text("");
    case SQL_DATABASE_NAME:
      return text(dbc->db ? dbc->db->path() : "");
    case SQL_USER_NAME:
      return text("");
    case SQL_DATA_SOURCE_READ_ONLY:
      return text(readOnly ? "Y" : "N");
    case SQL_IDENTIFIER_QUOTE_CHAR:
      return text("`");
    case SQL_SEARCH_PATTERN_ESCAPE:
      return text("\\");
    case SQL_CATALOG_NAME_SEPARATOR:
      return text("");
    case SQL_CATALOG_TERM:
      return text("");
    case SQL_CATALOG_NAME:
      return text("N");
    case SQL_SCHEMA_TERM:
      return text("");
    case SQL_TABLE_TERM:
      return text("table");
    case SQL_PROCEDURE_TERM:
      return text("");
    case SQL_PROCEDURES:
      return text("N");
    case SQL_ACCESSIBLE_TABLES:
      return text("Y");
    case SQL_ACCESSIBLE_PROCEDURES:
      return text("N");
    case SQL_COLUMN_ALIAS:
      return text("N");
    case SQL_EXPRESSIONS_IN_ORDERBY:
      return text("N");
    case SQL_LIKE_ESCAPE_CLAUSE:
      return text("N");
    case SQL_MULT_RESULT_SETS:
      return text("N");
    case SQL_MULTIPLE_ACTIVE_TXN:
      return text("Y");
    case SQL_NEED_LONG_DATA_LEN:
      return text("N");
    case SQL_ORDER_BY_COLUMNS_IN_SELECT:
      return text("N");
    case SQL_OUTER_JOINS:
      return text("N");
    case SQL_ROW_UPDATES:
      return text("N");
    case SQL_SPECIAL_CHARACTERS:
      return text("$:");
    case SQL_DESCRIBE_PARAMETER:
      return text("Y");
    case SQL_INTEGRITY:
      return text("N");
    case SQL_KEYWORDS:
      return text("");
    case SQL_COLLATION_SEQ:
      return text("");
    case SQL_MAX_ROW_SIZE_INCLUDES_LONG:
      return text("N");
    case SQL_XOPEN_CLI_YEAR:
      return text("1995");
    case SQL_DM_VER:
      return text("");
    case SQL_TXN_CAPABLE:
      // CREATE TABLE and DROP TABLE are effects of the unit like any change: rolled back too.
      return u16(SQL_TC_ALL);
    case SQL_CURSOR_COMMIT_BEHAVIOR:
    case SQL_CURSOR_ROLLBACK_BEHAVIOR:
      // A result is read whole when it runs, from the model as it was then.
      return u16(SQL_CB_PRESERVE);
    case SQL_MAX_CONCURRENT_ACTIVITIES:
    case SQL_MAX_DRIVER_CONNECTIONS:
      return u16(0);
    case SQL_MAX_COLUMN_NAME_LEN:
      return u16(255);
    case SQL_MAX_TABLE_NAME_LEN:
      return u16(64);
    case SQL_MAX_IDENTIFIER_LEN:
      return u16(255);
    case SQL_MAX_COLUMNS_IN_SELECT:
    case SQL_MAX_COLUMNS_IN_TABLE:  // a sheet's columns: 256 in .xls, 16,384 in .xlsx
      return u16(static_cast<SQLUINTEGER>((dbc->db ? dbc->db->grid() : kXlsGrid).columns));
    case SQL_MAX_CATALOG_NAME_LEN:
    case SQL_MAX_SCHEMA_NAME_LEN:
    case SQL_MAX_CURSOR_NAME_LEN:
    case SQL_MAX_PROCEDURE_NAME_LEN:
    case SQL_MAX_USER_NAME_LEN:
    case SQL_MAX_COLUMNS_IN_GROUP_BY:
    case SQL_MAX_COLUMNS_IN_INDEX:
    case SQL_MAX_COLUMNS_IN_ORDER_BY:
    case SQL_MAX_TABLES_IN_SELECT:
      return u16(type == SQL_MAX_TABLES_IN_SELECT ? 1 : 0);
    case SQL_IDENTIFIER_CASE:
      return u16(SQL_IC_MIXED);
    case SQL_QUOTED_IDENTIFIER_CASE:
      return u16(SQL_IC_MIXED);
    case SQL_NULL_COLLATION:
      return u16(SQL_NC_LOW);
    case SQL_CONCAT_NULL_BEHAVIOR:
      return u16(SQL_CB_NULL);
    case SQL_CORRELATION_NAME:
      return u16(SQL_CN_NONE);
    case SQL_NON_NULLABLE_COLUMNS:
      return u16(SQL_NNC_NULL);
    case SQL_GROUP_BY:
      return u16(SQL_GB_NOT_SUPPORTED);
    case SQL_FILE_USAGE:
      return u16(SQL_FILE_CATALOG);
    case SQL_ODBC_API_CONFORMANCE:
      return u16(SQL_OAC_LEVEL1);
    case SQL_ODBC_SQL_CONFORMANCE:
      return u16(SQL_OSC_MINIMUM);
    case SQL_TXN_ISOLATION_OPTION:
    case SQL_DEFAULT_TXN_ISOLATION:
      // Nobody reads another connection's uncommitted changes, and a transaction that has
      // changed something holds the workbook until it ends; its reads before then see what
      // other connections commit meanwhile (README.md, "Transactions").
      return u32(SQL_TXN_READ_COMMITTED);
    case SQL_GETDATA_EXTENSIONS:
      return u32(SQL_GD_ANY_COLUMN | SQL_GD_ANY_ORDER | SQL_GD_BOUND);
    case SQL_SCROLL_OPTIONS:
      return u32(SQL_SO_FORWARD_ONLY);
    case SQL_SCROLL_CONCURRENCY:
      return u32(SQL_SCCO_READ_ONLY);
    case SQL_STATIC_SENSITIVITY:
    case SQL_POS_OPERATIONS:
    case SQL_POSITIONED_STATEMENTS:
    case SQL_LOCK_TYPES:
    case SQL_BOOKMARK_PERSISTENCE:
    case SQL_TIMEDATE_ADD_INTERVALS:
    case SQL_TIMEDATE_DIFF_INTERVALS:
    case SQL_NUMERIC_FUNCTIONS:
    case SQL_STRING_FUNCTIONS:
    case SQL_SYSTEM_FUNCTIONS:
    case SQL_TIMEDATE_FUNCTIONS:
    case SQL_CONVERT_FUNCTIONS:
    case SQL_SUBQUERIES:
    case SQL_UNION:
    case SQL_ALTER_TABLE:
    case SQL_DROP_VIEW:
    case SQL_CREATE_VIEW:
    case SQL_CREATE_SCHEMA:
    case SQL_DROP_SCHEMA:
    case SQL_INDEX_KEYWORDS:
    case SQL_DATETIME_LITERALS:
    case SQL_AGGREGATE_FUNCTIONS:
    case SQL_OJ_CAPABILITIES:
    case SQL_SCHEMA_USAGE:
    case SQL_CATALOG_USAGE:
    case SQL_MAX_INDEX_SIZE:
    case SQL_MAX_ROW_SIZE:
    case SQL_MAX_STATEMENT_LEN:
    case SQL_MAX_BINARY_LITERAL_LEN:
    case SQL_MAX_CHAR_LITERAL_LEN:
    case SQL_ASYNC_MODE:
    case SQL_MAX_ASYNC_CONCURRENT_STATEMENTS:
    case SQL_BATCH_ROW_COUNT:
    case SQL_BATCH_SUPPORT:
    case SQL_DYNAMIC_CURSOR_ATTRIBUTES1:
    case SQL_DYNAMIC_CURSOR_ATTRIBUTES2:
    case SQL_KEYSET_CURSOR_ATTRIBUTES1:
    case SQL_KEYSET_CURSOR_ATTRIBUTES2:
    case SQL_STATIC_CURSOR_ATTRIBUTES1:
    case SQL_STATIC_CURSOR_ATTRIBUTES2:
      return u32(0);
    case SQL_PARAM_ARRAY_ROW_COUNTS:
      return u32(SQL_PARC_NO_BATCH);  // SQLRowCount adds up the sets
    case SQL_PARAM_ARRAY_SELECTS:
      return u32(SQL_PAS_NO_SELECT);
    case SQL_FORWARD_ONLY_CURSOR_ATTRIBUTES1:
      return u32(SQL_CA1_NEXT);
    case SQL_FORWARD_ONLY_CURSOR_ATTRIBUTES2:
      return u32(SQL_CA2_READ_ONLY_CONCURRENCY | SQL_CA2_MAX_ROWS_SELECT);
    case SQL_CREATE_TABLE:
      return u32(SQL_CT_CREATE_TABLE | SQL_CT_COLUMN_CONSTRAINT);
    case SQL_DROP_TABLE:
      return u32(SQL_DT_DROP_TABLE);
    case SQL_INSERT_STATEMENT:
      return u32(SQL_IS_INSERT_LITERALS);
    case SQL_SQL_CONFORMANCE:
      return u32(SQL_SC_SQL92_ENTRY);
    case SQL_ODBC_INTERFACE_CONFORMANCE:
      return u32(SQL_OIC_CORE);
    case SQL_SQL92_PREDICATES:
      return u32(SQL_SP_COMPARISON | SQL_SP_ISNULL | SQL_SP_ISNOTNULL);
    case SQL_SQL92_RELATIONAL_JOIN_OPERATORS:
    case SQL_SQL92_STRING_FUNCTIONS:
    case SQL_SQL92_NUMERIC_VALUE_FUNCTIONS:
    case SQL_SQL92_DATETIME_FUNCTIONS:
    case SQL_SQL92_VALUE_EXPRESSIONS:
    case SQL_SQL92_ROW_VALUE_CONSTRUCTOR:
    case SQL_SQL92_GRANT:
    case SQL_SQL92_REVOKE:
    case SQL_SQL92_FOREIGN_KEY_DELETE_RULE:
    case SQL_SQL92_FOREIGN_KEY_UPDATE_RULE:
      return u32(0);
    case SQL_CONVERT_CHAR:
    case SQL_CONVERT_VARCHAR:
    case SQL_CONVERT_LONGVARCHAR:
    case SQL_CONVERT_INTEGER:
    case SQL_CONVERT_SMALLINT:
    case SQL_CONVERT_DOUBLE:
    case SQL_CONVERT_FLOAT:
      return u32(0);
    default:
      return false;
  }
}

}  // namespace

extern "C" {

SQLRETURN SQL_API SQLGetInfo(SQLHDBC handle, SQLUSMALLINT type, SQLPOINTER value,
                             SQLSMALLINT bufferLength, SQLSMALLINT* length) {
  Dbc* dbc = ToDbc(handle);
  if (!dbc) return SQL_INVALID_HANDLE;
  ClearDiag(dbc);
  InfoValue v;
  if (!LookUpInfo(dbc, type, &v)) {
    return PostError(dbc, State::kInvalidInfoType,
                     "Information type " + std::to_string(type) + " is not known.");
  }
  switch (v.kind) {
    case InfoValue::kText:
      if (CopyOut(v.text, static_cast<SQLCHAR*>(value), bufferLength, length)) {
        return PostWarning(dbc, State::kStringTruncated);
      }
      return SQL_SUCCESS;
    case InfoValue::kShort:
      if (value) *static_cast<SQLUSMALLINT*>(value) = static_cast<SQLUSMALLINT>(v.number);
      if (length) *length = sizeof(SQLUSMALLINT);
      return SQL_SUCCESS;
    case InfoValue::kInt:
      if (value) *static_cast<SQLUINTEGER*>(value) = v.number;
      if (length) *length = sizeof(SQLUINTEGER);
      return SQL_SUCCESS;
  }
  return SQL_SUCCESS;
}

SQLRETURN SQL_API SQLGetInfoW(SQLHDBC handle, SQLUSMALLINT type, SQLPOINTER value,
                              SQLSMALLINT bufferLength, SQLSMALLINT* length) {
  Dbc* dbc = ToDbc(handle);
  if (!dbc) return SQL_INVALID_HANDLE;
  ClearDiag(dbc);
  InfoValue v;
  if (!LookUpInfo(dbc, type, &v)) {
    return PostError(dbc, State::kInvalidInfoType,
                     "Information type " + std::to_string(type) + " is not known.");
  }
  if (v.kind != InfoValue::kText) return SQLGetInfo(handle, type, value, bufferLength, length);
  std::u16string w = Utf8ToUtf16(v.text);  // lengths in bytes here
  if (length) *length = static_cast<SQLSMALLINT>(w.size() * 2);
  if (!value || bufferLength < 2)
    return w.empty() ? SQL_SUCCESS : PostWarning(dbc, State::kStringTruncated);
  std::size_t n = std::min(w.size(), static_cast<std::size_t>(bufferLength / 2 - 1));
  auto* out = static_cast<SQLWCHAR*>(value);
  for (std::size_t i = 0; i < n; ++i) out[i] = w[i];
  out[n] = 0;
  return n < w.size() ? PostWarning(dbc, State::kStringTruncated) : SQL_SUCCESS;
}

SQLRETURN SQL_API SQLGetFunctions(SQLHDBC handle, SQLUSMALLINT id, SQLUSMALLINT* supported) {
  Dbc* dbc = ToDbc(handle);
  if (!dbc) return SQL_INVALID_HANDLE;
  ClearDiag(dbc);
  if (!supported) return PostError(dbc, State::kInvalidNullPointer, "No output buffer.");
  if (id == SQL_API_ODBC3_ALL_FUNCTIONS) {
    std::memset(supported, 0, sizeof(SQLUSMALLINT) * SQL_API_ODBC3_ALL_FUNCTIONS_SIZE);
    for (SQLUSMALLINT f : kFunctions)
      supported[f >> 4] |= static_cast<SQLUSMALLINT>(1 << (f & 0xF));
    return SQL_SUCCESS;
  }
  if (id == SQL_API_ALL_FUNCTIONS) {
    std::memset(supported, 0, sizeof(SQLUSMALLINT) * 100);
    for (SQLUSMALLINT f : kFunctions) {
      if (f < 100) supported[f] = SQL_TRUE;
    }
    return SQL_SUCCESS;
  }
  *supported = Supported(id) ? SQL_TRUE : SQL_FALSE;
  return SQL_SUCCESS;
}

}  // extern "C"
