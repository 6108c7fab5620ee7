// ODBC entry points: preparing and executing statements, parameters, statement attributes.
#include "odbc-driver/Convert.h"
#include "odbc-driver/Diagnostics.h"
#include "odbc-driver/Handles.h"

using namespace xlsodbc;

namespace {

SQLRETURN Prepare(Stmt* stmt, std::string sql) {
  stmt->CloseCursor();
  stmt->prepared = false;
  stmt->rowCount = -1;
  Error e = ParseSql(sql, &stmt->parsed);
  if (!e.ok()) return PostError(stmt, e);
  stmt->sql = std::move(sql);
  stmt->prepared = true;
  return SQL_SUCCESS;
}

SQLRETURN Run(Stmt* stmt) {
  stmt->CloseCursor();
  stmt->rowCount = -1;
  std::vector<Value> params;
  for (int i = 1; i <= stmt->parsed.parameterCount; ++i) {
    auto it = stmt->params.find(static_cast<SQLUSMALLINT>(i));
    if (it == stmt->params.end()) {
      return PostError(stmt, State::kWrongParameterCount,
                       "Parameter " + std::to_string(i) + " has no bound value.");
    }
    Value v;
    const ParamBinding& b = it->second;
    ConvertResult r = ParameterValue(b.cType, b.buffer, b.bufferLength, b.indicator, &v);
    if (r.ret == SQL_ERROR) return PostError(stmt, r.state, r.message);
    params.push_back(std::move(v));
  }
  Outcome out;
  Error e = stmt->dbc->db->Execute(stmt->sql, stmt->parsed, params, &out);
  if (!e.ok()) return PostError(stmt, e);
  if (out.changed) stmt->dbc->changedSinceEndTran = true;
  stmt->SetResult(std::move(out.result));
  stmt->rowCount = stmt->result ? stmt->result->rowCount() : out.rowCount;
  return SQL_SUCCESS;
}

}  // namespace

extern "C" {

SQLRETURN SQL_API SQLPrepare(SQLHSTMT handle, SQLCHAR* text, SQLINTEGER length) {
  Stmt* stmt = ToStmt(handle);
  if (!stmt) return SQL_INVALID_HANDLE;
  ClearDiag(stmt);
  if (!text) return PostError(stmt, State::kInvalidNullPointer, "No statement text.");
  return Prepare(stmt, InText(text, length));
}

SQLRETURN SQL_API SQLExecute(SQLHSTMT handle) {
  Stmt* stmt = ToStmt(handle);
  if (!stmt) return SQL_INVALID_HANDLE;
  ClearDiag(stmt);
  if (!stmt->prepared) return PostError(stmt, State::kSequenceError, "No statement was prepared.");
  return Run(stmt);
}

SQLRETURN SQL_API SQLExecDirect(SQLHSTMT handle, SQLCHAR* text, SQLINTEGER length) {
  Stmt* stmt = ToStmt(handle);
  if (!stmt) return SQL_INVALID_HANDLE;
  ClearDiag(stmt);
  if (!text) return PostError(stmt, State::kInvalidNullPointer, "No statement text.");
  SQLRETURN ret = Prepare(stmt, InText(text, length));
  return ret == SQL_SUCCESS ? Run(stmt) : ret;
}

SQLRETURN SQL_API SQLNumParams(SQLHSTMT handle, SQLSMALLINT* count) {
  Stmt* stmt = ToStmt(handle);
  if (!stmt) return SQL_INVALID_HANDLE;
  ClearDiag(stmt);
  if (count) *count = static_cast<SQLSMALLINT>(stmt->prepared ? stmt->parsed.parameterCount : 0);
  return SQL_SUCCESS;
}

SQLRETURN SQL_API SQLDescribeParam(SQLHSTMT handle, SQLUSMALLINT number, SQLSMALLINT* type,
                                   SQLULEN* size, SQLSMALLINT* digits, SQLSMALLINT* nullable) {
  Stmt* stmt = ToStmt(handle);
  if (!stmt) return SQL_INVALID_HANDLE;
  ClearDiag(stmt);
  if (!stmt->prepared || number < 1 || number > stmt->parsed.parameterCount) {
    return PostError(stmt, State::kInvalidDescriptorIndex,
                     "No parameter " + std::to_string(number) + ".");
  }
  if (type) *type = SQL_VARCHAR;
  if (size) *size = 255;
  if (digits) *digits = 0;
  if (nullable) *nullable = SQL_NULLABLE;
  return SQL_SUCCESS;
}

SQLRETURN SQL_API SQLBindParameter(SQLHSTMT handle, SQLUSMALLINT number, SQLSMALLINT ioType,
                                   SQLSMALLINT cType, SQLSMALLINT sqlType, SQLULEN, SQLSMALLINT,
                                   SQLPOINTER buffer, SQLLEN bufferLength, SQLLEN* indicator) {
  Stmt* stmt = ToStmt(handle);
  if (!stmt) return SQL_INVALID_HANDLE;
  ClearDiag(stmt);
  if (number < 1)
    return PostError(stmt, State::kInvalidDescriptorIndex, "Parameters are numbered from 1.");
  if (ioType != SQL_PARAM_INPUT)
    return PostError(stmt, State::kNotImplemented, "Only input parameters.");
  stmt->params[number] = ParamBinding{cType, sqlType, buffer, bufferLength, indicator};
  return SQL_SUCCESS;
}

SQLRETURN SQL_API SQLRowCount(SQLHSTMT handle, SQLLEN* count) {
  Stmt* stmt = ToStmt(handle);
  if (!stmt) return SQL_INVALID_HANDLE;
  ClearDiag(stmt);
  if (count) *count = stmt->rowCount;
  return SQL_SUCCESS;
}

SQLRETURN SQL_API SQLMoreResults(SQLHSTMT handle) {
  Stmt* stmt = ToStmt(handle);
  if (!stmt) return SQL_INVALID_HANDLE;
  ClearDiag(stmt);
  stmt->CloseCursor();
  return SQL_NO_DATA;
}

SQLRETURN SQL_API SQLCancel(SQLHSTMT handle) {
  Stmt* stmt = ToStmt(handle);
  if (!stmt) return SQL_INVALID_HANDLE;
  ClearDiag(stmt);
  return SQL_SUCCESS;  // statements run to completion inside the call; nothing to cancel
}

SQLRETURN SQL_API SQLCloseCursor(SQLHSTMT handle) {
  Stmt* stmt = ToStmt(handle);
  if (!stmt) return SQL_INVALID_HANDLE;
  ClearDiag(stmt);
  if (!stmt->result) return PostError(stmt, State::kInvalidCursorState, "No cursor is open.");
  stmt->CloseCursor();
  return SQL_SUCCESS;
}

SQLRETURN SQL_API SQLSetStmtAttr(SQLHSTMT handle, SQLINTEGER attr, SQLPOINTER value, SQLINTEGER) {
  Stmt* stmt = ToStmt(handle);
  if (!stmt) return SQL_INVALID_HANDLE;
  ClearDiag(stmt);
  auto v = static_cast<SQLULEN>(reinterpret_cast<SQLLEN>(value));
  switch (attr) {
    case SQL_ATTR_ROWS_FETCHED_PTR:
      stmt->rowsFetched = static_cast<SQLULEN*>(value);
      return SQL_SUCCESS;
    case SQL_ATTR_ROW_STATUS_PTR:
      stmt->rowStatus = static_cast<SQLUSMALLINT*>(value);
      return SQL_SUCCESS;
    case SQL_ATTR_MAX_ROWS:
      stmt->maxRows = v;
      return SQL_SUCCESS;
    case SQL_ATTR_ROW_ARRAY_SIZE:
    case SQL_ATTR_PARAMSET_SIZE:
      if (v != 1)
        return PostWarning(stmt, State::kOptionValueChanged,
                           "Only one row at a time; value changed to 1.");
      return SQL_SUCCESS;
    case SQL_ATTR_CURSOR_TYPE:
      if (v != SQL_CURSOR_FORWARD_ONLY) {
        return PostWarning(stmt, State::kOptionValueChanged,
                           "Cursors are forward-only; value changed.");
      }
      return SQL_SUCCESS;
    case SQL_ATTR_CONCURRENCY:
      if (v != SQL_CONCUR_READ_ONLY) {
        return PostWarning(stmt, State::kOptionValueChanged,
                           "Cursors are read-only; value changed.");
      }
      return SQL_SUCCESS;
    case SQL_ATTR_APP_ROW_DESC:
    case SQL_ATTR_APP_PARAM_DESC:
      return PostError(stmt, State::kNotImplemented, "Explicit descriptors are not supported.");
    default:
      stmt->attrs[attr] = v;
      return SQL_SUCCESS;
  }
}

SQLRETURN SQL_API SQLGetStmtAttr(SQLHSTMT handle, SQLINTEGER attr, SQLPOINTER value, SQLINTEGER,
                                 SQLINTEGER* length) {
  Stmt* stmt = ToStmt(handle);
  if (!stmt) return SQL_INVALID_HANDLE;
  ClearDiag(stmt);
  SQLPOINTER p = nullptr;
  switch (attr) {
    case SQL_ATTR_APP_ROW_DESC:
      p = &stmt->ard;
      break;
    case SQL_ATTR_APP_PARAM_DESC:
      p = &stmt->apd;
      break;
    case SQL_ATTR_IMP_ROW_DESC:
      p = &stmt->ird;
      break;
    case SQL_ATTR_IMP_PARAM_DESC:
      p = &stmt->ipd;
      break;
    case SQL_ATTR_ROWS_FETCHED_PTR:
      p = stmt->rowsFetched;
      break;
    case SQL_ATTR_ROW_STATUS_PTR:
      p = stmt->rowStatus;
      break;
    default: {
      SQLULEN v = 0;
      if (attr == SQL_ATTR_ROW_ARRAY_SIZE || attr == SQL_ATTR_PARAMSET_SIZE)
        v = 1;
      else if (attr == SQL_ATTR_MAX_ROWS)
        v = stmt->maxRows;
      else if (attr == SQL_ATTR_CURSOR_TYPE)
        v = SQL_CURSOR_FORWARD_ONLY;
      else if (attr == SQL_ATTR_CONCURRENCY)
        v = SQL_CONCUR_READ_ONLY;
      else if (attr == SQL_ATTR_ROW_NUMBER)
        v = stmt->row >= 0 ? static_cast<SQLULEN>(stmt->row + 1) : 0;
      else if (auto it = stmt->attrs.find(attr); it != stmt->attrs.end())
        v = it->second;
      if (value) *static_cast<SQLULEN*>(value) = v;
      if (length) *length = sizeof(SQLULEN);
      return SQL_SUCCESS;
    }
  }
  if (value) *static_cast<SQLPOINTER*>(value) = p;
  if (length) *length = sizeof(SQLPOINTER);
  return SQL_SUCCESS;
}

}  // extern "C"
