// ODBC entry points: handle allocation and release, environment attributes.
#include <algorithm>

#include "odbc-driver/Diagnostics.h"
#include "odbc-driver/Handles.h"

using namespace xlsodbc;

extern "C" {

SQLRETURN SQL_API SQLAllocHandle(SQLSMALLINT type, SQLHANDLE input, SQLHANDLE* output) {
  if (!output) return SQL_ERROR;
  *output = SQL_NULL_HANDLE;
  switch (type) {
    case SQL_HANDLE_ENV:
      *output = new Env();
      return SQL_SUCCESS;
    case SQL_HANDLE_DBC: {
      Env* env = ToEnv(input);
      if (!env) return SQL_INVALID_HANDLE;
      ClearDiag(env);
      *output = new Dbc(env);
      return SQL_SUCCESS;
    }
    case SQL_HANDLE_STMT: {
      Dbc* dbc = ToDbc(input);
      if (!dbc) return SQL_INVALID_HANDLE;
      ClearDiag(dbc);
      if (!dbc->db) return PostError(dbc, State::kNotConnected);
      auto* stmt = new Stmt(dbc);
      dbc->stmts.push_back(stmt);
      *output = stmt;
      return SQL_SUCCESS;
    }
    case SQL_HANDLE_DESC: {
      Dbc* dbc = ToDbc(input);
      if (!dbc) return SQL_INVALID_HANDLE;
      return PostError(dbc, State::kNotImplemented, "Explicit descriptors are not supported.");
    }
    default:
      return SQL_ERROR;
  }
}

SQLRETURN SQL_API SQLFreeHandle(SQLSMALLINT type, SQLHANDLE handle) {
  switch (type) {
    case SQL_HANDLE_ENV: {
      Env* env = ToEnv(handle);
      if (!env) return SQL_INVALID_HANDLE;
      delete env;
      return SQL_SUCCESS;
    }
    case SQL_HANDLE_DBC: {
      Dbc* dbc = ToDbc(handle);
      if (!dbc) return SQL_INVALID_HANDLE;
      for (Stmt* s : dbc->stmts) delete s;
      delete dbc;  // closing the database folds its journal
      return SQL_SUCCESS;
    }
    case SQL_HANDLE_STMT: {
      Stmt* stmt = ToStmt(handle);
      if (!stmt) return SQL_INVALID_HANDLE;
      auto& list = stmt->dbc->stmts;
      list.erase(std::remove(list.begin(), list.end(), stmt), list.end());
      delete stmt;
      return SQL_SUCCESS;
    }
    default:
      return SQL_ERROR;
  }
}

SQLRETURN SQL_API SQLFreeStmt(SQLHSTMT handle, SQLUSMALLINT option) {
  Stmt* stmt = ToStmt(handle);
  if (!stmt) return SQL_INVALID_HANDLE;
  ClearDiag(stmt);
  switch (option) {
    case SQL_CLOSE:
      stmt->CloseCursor();
      return SQL_SUCCESS;
    case SQL_UNBIND:
      stmt->columns.clear();
      return SQL_SUCCESS;
    case SQL_RESET_PARAMS:
      stmt->params.clear();
      return SQL_SUCCESS;
    case SQL_DROP:
      return SQLFreeHandle(SQL_HANDLE_STMT, handle);
    default:
      return PostError(stmt, State::kInvalidOption, "Unknown SQLFreeStmt option.");
  }
}

SQLRETURN SQL_API SQLSetEnvAttr(SQLHENV handle, SQLINTEGER attr, SQLPOINTER value, SQLINTEGER) {
  Env* env = ToEnv(handle);
  if (!env) return SQL_INVALID_HANDLE;
  ClearDiag(env);
  auto v = static_cast<SQLINTEGER>(reinterpret_cast<SQLLEN>(value));
  switch (attr) {
    case SQL_ATTR_ODBC_VERSION:
      env->odbcVersion = v;
      return SQL_SUCCESS;
    case SQL_ATTR_OUTPUT_NTS:
      return v == SQL_TRUE
                 ? SQL_SUCCESS
                 : PostError(env, State::kNotImplemented, "Only NUL-terminated output strings.");
    // Pooling is the driver manager's; the driver itself keeps no pool.
    case SQL_ATTR_CONNECTION_POOLING:
      if (static_cast<SQLUINTEGER>(v) == SQL_CP_OFF) return SQL_SUCCESS;
      return PostWarning(env, State::kOptionValueChanged,
                         "The driver keeps no connection pool; value changed to SQL_CP_OFF.");
    case SQL_ATTR_CP_MATCH:
      if (static_cast<SQLUINTEGER>(v) == SQL_CP_STRICT_MATCH) return SQL_SUCCESS;
      return PostWarning(env, State::kOptionValueChanged,
                         "The driver keeps no connection pool; value changed.");
    default:
      return PostError(env, State::kInvalidOption,
                       "Unknown environment attribute " + std::to_string(attr) + ".");
  }
}

SQLRETURN SQL_API SQLGetEnvAttr(SQLHENV handle, SQLINTEGER attr, SQLPOINTER value, SQLINTEGER,
                                SQLINTEGER* length) {
  Env* env = ToEnv(handle);
  if (!env) return SQL_INVALID_HANDLE;
  ClearDiag(env);
  SQLINTEGER v;
  switch (attr) {
    case SQL_ATTR_ODBC_VERSION:
      v = env->odbcVersion;
      break;
    case SQL_ATTR_OUTPUT_NTS:
      v = SQL_TRUE;
      break;
    case SQL_ATTR_CONNECTION_POOLING:
      v = SQL_CP_OFF;
      break;
    case SQL_ATTR_CP_MATCH:
      v = SQL_CP_STRICT_MATCH;
      break;
    default:
      return PostError(env, State::kInvalidOption,
                       "Unknown environment attribute " + std::to_string(attr) + ".");
  }
  if (value) *static_cast<SQLINTEGER*>(value) = v;
  if (length) *length = sizeof v;
  return SQL_SUCCESS;
}

}  // extern "C"
