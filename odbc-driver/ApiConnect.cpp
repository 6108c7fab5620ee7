// ODBC entry points: connecting, connection attributes, transactions (Database.h).
#include <odbcinst.h>

#include "odbc-driver/ConnectionString.h"
#include "odbc-driver/Diagnostics.h"
#include "odbc-driver/Handles.h"

using namespace xlsodbc;

namespace {

// Connects with the keys of a connection string; keys it lacks are looked up in the DSN's
// odbc.ini section when a DSN is named.
SQLRETURN Connect(Dbc* dbc, const std::map<std::string, std::string>& keys) {
  if (dbc->db) return PostError(dbc, State::kConnectionInUse);
  std::string dsn;
  if (auto it = keys.find("DSN"); it != keys.end()) dsn = it->second;
  dbc->dsn = dsn;
  auto get = [&](const char* key) -> std::string {
    if (auto it = keys.find(key); it != keys.end()) return it->second;
    if (dsn.empty()) return std::string();
    char buf[4096] = {0};
    SQLGetPrivateProfileString(dsn.c_str(), key, "", buf, sizeof buf, "odbc.ini");
    return buf;
  };
  DatabaseOptions o;
  std::string createDb = get("CREATE_DB");
  o.path = get("DBQ");
  if (o.path.empty()) o.path = createDb;
  o.create = !createDb.empty();
  o.readOnly = ParseFlag(get("READONLY"), false) || dbc->readOnlyAttr;
  o.firstRowHasNames = ParseFlag(get("FIRSTROWHASNAMES"), true);
  o.password = get("PWD");
  if (std::string sync = get("SYNC"); !ParseSyncMode(sync, &o.sync)) {
    return PostError(dbc, State::kUnableToConnect,
                     "SYNC must be OFF, NORMAL or FULL, not '" + sync + "'.");
  }
  std::unique_ptr<Database> db;
  Error e = Database::Open(o, &db);
  if (!e.ok()) return PostError(dbc, e);
  (void)db->SetAutocommit(dbc->autocommit);  // nothing is open yet: it cannot fail
  dbc->db = std::move(db);
  return SQL_SUCCESS;
}

// Connection attributes, as for statements (ApiStatement.cpp): each value is acted on,
// refused with HYC00, or replaced with 01S02 where ODBC allows; unknown ones are HY092.
SQLRETURN SetConnectAttr(Dbc* dbc, SQLINTEGER attr, SQLPOINTER value) {
  auto v = static_cast<SQLULEN>(reinterpret_cast<SQLLEN>(value));
  switch (attr) {
    case SQL_ATTR_AUTOCOMMIT: {
      if (v != SQL_AUTOCOMMIT_OFF && v != SQL_AUTOCOMMIT_ON) {
        return PostError(dbc, State::kInvalidAttributeValue,
                         "SQL_ATTR_AUTOCOMMIT is SQL_AUTOCOMMIT_ON or SQL_AUTOCOMMIT_OFF.");
      }
      dbc->autocommit = v == SQL_AUTOCOMMIT_ON;
      dbc->begun = false;  // the attribute now says what a BEGIN had changed
      // Turning it on commits the open transaction.
      Error e = dbc->db ? dbc->db->SetAutocommit(dbc->autocommit) : Error();
      if (!e.ok()) return PostError(dbc, e);
      return SQL_SUCCESS;
    }
    case SQL_ATTR_ACCESS_MODE:
      // READONLY=1 in the connection string holds for the connection's life; otherwise the
      // attribute makes statements that change the workbook fail until it is cleared.
      if (dbc->db && dbc->db->readOnly() && v != SQL_MODE_READ_ONLY) {
        return PostError(dbc, State::kCannotSetNow,
                         "The access mode is fixed once connected (READONLY).");
      }
      dbc->readOnlyAttr = v == SQL_MODE_READ_ONLY;
      return SQL_SUCCESS;
    case SQL_ATTR_TXN_ISOLATION:
      if (dbc->db && dbc->db->inTransaction()) {
        return PostError(dbc, State::kCannotSetNow,
                         "The isolation level cannot change while a transaction is open.");
      }
      if (v == SQL_TXN_READ_COMMITTED) return SQL_SUCCESS;
      if (v == SQL_TXN_READ_UNCOMMITTED || v == SQL_TXN_REPEATABLE_READ ||
          v == SQL_TXN_SERIALIZABLE) {
        return PostError(dbc, State::kNotImplemented,
                         "Transactions are SQL_TXN_READ_COMMITTED (see SQLGetInfo).");
      }
      return PostError(dbc, State::kInvalidAttributeValue,
                       "Unknown isolation level " + std::to_string(v) + ".");
    case SQL_ATTR_CURRENT_CATALOG:
      return PostError(dbc, State::kNotImplemented, "The workbook is fixed by DBQ.");
    case SQL_ATTR_LOGIN_TIMEOUT:
    case SQL_ATTR_CONNECTION_TIMEOUT:
      if (v != 0) {
        return PostWarning(
            dbc, State::kOptionValueChanged,
            "A connection waits for a workbook in use for 30 s; value changed to 0.");
      }
      return SQL_SUCCESS;
    case SQL_ATTR_QUIET_MODE:
      dbc->quietMode = value;
      return SQL_SUCCESS;
    case SQL_ATTR_ASYNC_ENABLE:
      if (v == SQL_ASYNC_ENABLE_OFF) return SQL_SUCCESS;
      return PostError(dbc, State::kNotImplemented, "Statements run synchronously.");
    case SQL_ATTR_METADATA_ID:
      if (v == SQL_FALSE) return SQL_SUCCESS;
      return PostError(dbc, State::kNotImplemented,
                       "Catalog arguments are patterns (SQL_ATTR_METADATA_ID off).");
    case SQL_ATTR_PACKET_SIZE:
    case SQL_ATTR_TRANSLATE_LIB:
    case SQL_ATTR_TRANSLATE_OPTION:
      return PostError(dbc, State::kNotImplemented,
                       "Connection attribute " + std::to_string(attr) + " is not supported.");
    default:
      return PostError(dbc, State::kInvalidOption,
                       "Unknown connection attribute " + std::to_string(attr) + ".");
  }
}

SQLRETURN GetConnectAttr(Dbc* dbc, SQLINTEGER attr, SQLPOINTER value, SQLINTEGER bufferLength,
                         SQLINTEGER* length) {
  SQLULEN v = 0;
  switch (attr) {
    case SQL_ATTR_AUTOCOMMIT:
      v = dbc->autocommit ? SQL_AUTOCOMMIT_ON : SQL_AUTOCOMMIT_OFF;
      break;
    case SQL_ATTR_ACCESS_MODE:
      v = ((dbc->db && dbc->db->readOnly()) || dbc->readOnlyAttr) ? SQL_MODE_READ_ONLY
                                                                  : SQL_MODE_READ_WRITE;
      break;
    case SQL_ATTR_CONNECTION_DEAD:
      v = dbc->db ? SQL_CD_FALSE : SQL_CD_TRUE;
      break;
    case SQL_ATTR_TXN_ISOLATION:
      v = SQL_TXN_READ_COMMITTED;
      break;
    case SQL_ATTR_LOGIN_TIMEOUT:
    case SQL_ATTR_CONNECTION_TIMEOUT:
      v = 0;
      break;
    case SQL_ATTR_ASYNC_ENABLE:
      v = SQL_ASYNC_ENABLE_OFF;
      break;
    case SQL_ATTR_METADATA_ID:
    case SQL_ATTR_AUTO_IPD:
      v = SQL_FALSE;
      break;
    case SQL_ATTR_QUIET_MODE:
      if (value) *static_cast<SQLPOINTER*>(value) = dbc->quietMode;
      if (length) *length = sizeof(SQLPOINTER);
      return SQL_SUCCESS;
    case SQL_ATTR_CURRENT_CATALOG: {
      std::string path = dbc->db ? dbc->db->path() : std::string();
      if (CopyOut(path, value, bufferLength, length)) {
        return PostWarning(dbc, State::kStringTruncated);
      }
      return SQL_SUCCESS;
    }
    default:
      return PostError(dbc, State::kInvalidOption,
                       "Unknown connection attribute " + std::to_string(attr) + ".");
  }
  if (value) *static_cast<SQLUINTEGER*>(value) = static_cast<SQLUINTEGER>(v);
  if (length) *length = sizeof(SQLUINTEGER);
  return SQL_SUCCESS;
}

}  // namespace

extern "C" {

SQLRETURN SQL_API SQLDriverConnect(SQLHDBC handle, SQLHWND, SQLCHAR* in, SQLSMALLINT inLength,
                                   SQLCHAR* out, SQLSMALLINT outMax, SQLSMALLINT* outLength,
                                   SQLUSMALLINT) {
  Dbc* dbc = ToDbc(handle);
  if (!dbc) return SQL_INVALID_HANDLE;
  ClearDiag(dbc);
  std::string text = InText(in, inLength);
  SQLRETURN ret = Connect(dbc, ParseConnectionString(text));
  if (ret != SQL_SUCCESS) return ret;
  dbc->connectionString = text;
  if (CopyOut(text, out, outMax, outLength)) {
    return PostWarning(dbc, State::kStringTruncated,
                       "The connection string was cut to fit the buffer.");
  }
  return SQL_SUCCESS;
}

SQLRETURN SQL_API SQLConnect(SQLHDBC handle, SQLCHAR* dsn, SQLSMALLINT dsnLength, SQLCHAR*,
                             SQLSMALLINT, SQLCHAR* password, SQLSMALLINT passwordLength) {
  Dbc* dbc = ToDbc(handle);
  if (!dbc) return SQL_INVALID_HANDLE;
  ClearDiag(dbc);
  std::map<std::string, std::string> keys;
  keys["DSN"] = InText(dsn, dsnLength);
  // The password opens an encrypted workbook, as PWD does in a connection string.
  if (password && passwordLength != 0) keys["PWD"] = InText(password, passwordLength);
  return Connect(dbc, keys);
}

SQLRETURN SQL_API SQLBrowseConnect(SQLHDBC handle, SQLCHAR*, SQLSMALLINT, SQLCHAR*, SQLSMALLINT,
                                   SQLSMALLINT*) {
  Dbc* dbc = ToDbc(handle);
  if (!dbc) return SQL_INVALID_HANDLE;
  ClearDiag(dbc);
  return PostError(dbc, State::kNotImplemented,
                   "SQLBrowseConnect is not supported: use SQLDriverConnect.");
}

SQLRETURN SQL_API SQLDisconnect(SQLHDBC handle) {
  Dbc* dbc = ToDbc(handle);
  if (!dbc) return SQL_INVALID_HANDLE;
  ClearDiag(dbc);
  if (!dbc->db) return PostError(dbc, State::kNotConnected);
  // As ODBC has it: the application ends its transaction first (SQLEndTran), and nothing is
  // committed or rolled back behind its back. Freeing the handle anyway rolls it back.
  if (dbc->db->inTransaction()) {
    return PostError(dbc, State::kTransactionOpen,
                     "A transaction is open: commit or roll it back (SQLEndTran) before "
                     "disconnecting.");
  }
  for (Stmt* s : dbc->stmts) delete s;
  dbc->stmts.clear();
  Error e = dbc->db->Close();
  dbc->db.reset();
  if (!e.ok()) {
    return PostWarning(dbc, State::kDisconnectError,
                       "Disconnected, but the journal could not be folded into the "
                       "workbook (the next connection will): " +
                           e.message());
  }
  return SQL_SUCCESS;
}

SQLRETURN SQL_API SQLSetConnectAttr(SQLHDBC handle, SQLINTEGER attr, SQLPOINTER value, SQLINTEGER) {
  Dbc* dbc = ToDbc(handle);
  if (!dbc) return SQL_INVALID_HANDLE;
  ClearDiag(dbc);
  return SetConnectAttr(dbc, attr, value);
}

SQLRETURN SQL_API SQLGetConnectAttr(SQLHDBC handle, SQLINTEGER attr, SQLPOINTER value,
                                    SQLINTEGER bufferLength, SQLINTEGER* length) {
  Dbc* dbc = ToDbc(handle);
  if (!dbc) return SQL_INVALID_HANDLE;
  ClearDiag(dbc);
  return GetConnectAttr(dbc, attr, value, bufferLength, length);
}

SQLRETURN SQL_API SQLEndTran(SQLSMALLINT type, SQLHANDLE handle, SQLSMALLINT completion) {
  // The driver manager ends each connection's transaction itself for an environment handle.
  if (type == SQL_HANDLE_ENV) return ToEnv(handle) ? SQL_SUCCESS : SQL_INVALID_HANDLE;
  Dbc* dbc = type == SQL_HANDLE_DBC ? ToDbc(handle) : nullptr;
  if (!dbc) return SQL_INVALID_HANDLE;
  ClearDiag(dbc);
  if (completion != SQL_COMMIT && completion != SQL_ROLLBACK) {
    return PostError(dbc, State::kInvalidTransactionCode);
  }
  if (!dbc->db) return PostError(dbc, State::kNotConnected);
  if (completion == SQL_ROLLBACK) {
    dbc->db->Rollback();
    EndBegunTransaction(dbc);
    return SQL_SUCCESS;
  }
  // Without a transaction open, COMMIT flushes what SYNC=NORMAL left unflushed.
  Error e = dbc->db->Commit();
  EndBegunTransaction(dbc);
  if (!e.ok()) return PostError(dbc, e);
  return SQL_SUCCESS;
}

SQLRETURN SQL_API SQLNativeSql(SQLHDBC handle, SQLCHAR* in, SQLINTEGER inLength, SQLCHAR* out,
                               SQLINTEGER outMax, SQLINTEGER* outLength) {
  Dbc* dbc = ToDbc(handle);
  if (!dbc) return SQL_INVALID_HANDLE;
  ClearDiag(dbc);
  if (CopyOut(InText(in, inLength), out, outMax, outLength)) {
    return PostWarning(dbc, State::kStringTruncated);
  }
  return SQL_SUCCESS;
}

}  // extern "C"
