// CDatabase, CRecordset and CDBException over the ODBC API. Only the unsuffixed ODBC
// names are called: on Windows they are the ANSI entry points of odbc32, and Wine's
// odbc32 implements those but not the A-suffixed ones.
#include "platform/Database.h"

#include <algorithm>
#include <cstring>

#include "platform/CString.h"  // before the ODBC headers: brings <windows.h> on Windows
#include <sql.h>
#include <sqlext.h>

namespace {

// Everything a failed call left in the handle's diagnostic records, as MFC lays it out:
// each message followed by "\n" in error, "State:..,Native:..,Origin:.." lines in state.
// Origin is the run of bracketed component names that opens the message.
[[noreturn]] void ThrowDiagnostics(SQLRETURN ret, SQLSMALLINT type, SQLHANDLE handle) {
  CString error;
  CString state;
  if (handle != SQL_NULL_HANDLE) {
    std::vector<SQLCHAR> text(SQL_MAX_MESSAGE_LENGTH + 1);
    for (SQLSMALLINT record = 1;; ++record) {
      SQLCHAR sqlState[6] = {0};
      SQLINTEGER native = 0;
      SQLSMALLINT length = 0;
      SQLRETURN r = SQLGetDiagRec(type, handle, record, sqlState, &native, text.data(),
                                  static_cast<SQLSMALLINT>(text.size()), &length);
      if (r != SQL_SUCCESS && r != SQL_SUCCESS_WITH_INFO) break;
      if (length >= static_cast<SQLSMALLINT>(text.size())) {  // cut: ask again in full
        text.resize(static_cast<std::size_t>(length) + 1);
        r = SQLGetDiagRec(type, handle, record, sqlState, &native, text.data(),
                          static_cast<SQLSMALLINT>(text.size()), &length);
        if (r != SQL_SUCCESS && r != SQL_SUCCESS_WITH_INFO) break;
      }
      CString message(reinterpret_cast<const char*>(text.data()),
                      std::min<int>(length, static_cast<int>(text.size()) - 1));
      int originEnd = 0;
      while (originEnd < message.GetLength() && message[originEnd] == '[') {
        const int close = message.Find(']', originEnd);
        if (close < 0) break;
        originEnd = close + 1;
      }
      error += message;
      error += "\n";
      state.AppendFormat("State:%s,Native:%ld,Origin:%s\n", reinterpret_cast<const char*>(sqlState),
                         static_cast<long>(native), message.Left(originEnd).GetString());
    }
  }
  if (error.IsEmpty()) {
    error.Format("ODBC call failed with return code %d and no diagnostic record\n", ret);
  }
  throw new CDBException(static_cast<short>(ret), error, state);
}

[[noreturn]] void ThrowLibraryError(const char* sqlState, const char* message) {
  CString error(message);
  error += "\n";
  CString state;
  state.Format("State:%s,Native:0,Origin:\n", sqlState);
  throw new CDBException(SQL_ERROR, error, state);
}

bool Succeeded(SQLRETURN ret) { return ret == SQL_SUCCESS || ret == SQL_SUCCESS_WITH_INFO; }

// True when the string has a DRIVER key whose value is empty ("DRIVER={}"). unixODBC
// answers that by loading the first registered driver, or, with none registered, by
// failing an assertion inside libltdl; Windows' driver manager refuses it with IM002.
bool NamesAnEmptyDriver(const CString& connect) {
  int start = 0;
  while (start <= connect.GetLength()) {
    int end = connect.Find(';', start);
    if (end < 0) end = connect.GetLength();
    CString pair = connect.Mid(start, end - start);
    const int equals = pair.Find('=');
    if (equals > 0) {
      CString key = pair.Left(equals);
      key.Trim();
      if (key.CompareNoCase("DRIVER") == 0) {
        CString value = pair.Mid(equals + 1);
        value.Trim();
        value.Remove('{');
        value.Remove('}');
        value.Trim();
        return value.IsEmpty();
      }
    }
    start = end + 1;
  }
  return false;
}

}  // namespace

CDBException::CDBException(short retCode, CString error, CString state)
    : m_nRetCode(retCode), m_strError(error), m_strStateNativeOrigin(state) {
  message_ = error;
  message_.TrimRight();
}

// ---------------------------------------------------------------------------------------
// CDatabase

namespace {

// What CDatabase::handles_ points to while connected.
struct ConnectionHandles {
  SQLHENV env = SQL_NULL_HENV;
  SQLHSTMT exec = SQL_NULL_HSTMT;  // made by the first ExecuteSQL
};

}  // namespace

CDatabase::CDatabase() = default;

CDatabase::~CDatabase() { Close(); }

BOOL CDatabase::OpenEx(LPCTSTR connectString, DWORD /*options: never prompts*/) {
  const CString wanted(connectString);
  if (IsOpen()) {
    if (wanted == requested_) return TRUE;
    Close();
  }
  if (NamesAnEmptyDriver(wanted)) {
    ThrowLibraryError("IM002", "Data source name not found and no default driver specified");
  }

  SQLHENV env = SQL_NULL_HENV;
  SQLRETURN ret = SQLAllocHandle(SQL_HANDLE_ENV, SQL_NULL_HANDLE, &env);
  if (!Succeeded(ret)) ThrowLibraryError("HY001", "The ODBC driver manager could not allocate an environment");
  handles_ = new ConnectionHandles{env, SQL_NULL_HSTMT};
  ret = SQLSetEnvAttr(env, SQL_ATTR_ODBC_VERSION, reinterpret_cast<SQLPOINTER>(SQL_OV_ODBC3), 0);
  if (!Succeeded(ret)) {
    FreeHandles();
    ThrowLibraryError("HY001", "The ODBC driver manager refused ODBC version 3");
  }
  SQLHDBC dbc = SQL_NULL_HDBC;
  ret = SQLAllocHandle(SQL_HANDLE_DBC, env, &dbc);
  if (!Succeeded(ret)) {
    try {
      ThrowDiagnostics(ret, SQL_HANDLE_ENV, env);
    } catch (...) {
      FreeHandles();
      throw;
    }
  }

  std::vector<SQLCHAR> out(4096);
  SQLSMALLINT outLength = 0;
  ret = SQLDriverConnect(dbc, nullptr, reinterpret_cast<SQLCHAR*>(const_cast<char*>(wanted.GetString())),
                         SQL_NTS, out.data(), static_cast<SQLSMALLINT>(out.size()), &outLength,
                         SQL_DRIVER_NOPROMPT);
  if (!Succeeded(ret)) {
    try {
      ThrowDiagnostics(ret, SQL_HANDLE_DBC, dbc);
    } catch (...) {
      SQLFreeHandle(SQL_HANDLE_DBC, dbc);
      FreeHandles();
      throw;
    }
  }
  m_hdbc = dbc;
  requested_ = wanted;
  // A completed string that did not fit is not kept: the one given is then reported.
  const bool whole = outLength > 0 && outLength < static_cast<SQLSMALLINT>(out.size());
  connect_ = whole ? CString(reinterpret_cast<const char*>(out.data()), outLength) : wanted;
  return TRUE;
}

void CDatabase::ExecuteSQL(LPCTSTR sql) {
  if (!IsOpen()) ThrowLibraryError("08003", "Connection not open");
  // One statement handle serves every call, its cursor closed after each: allocating a
  // handle costs the driver manager more than a one-row INSERT takes to run.
  auto* handles = static_cast<ConnectionHandles*>(handles_);
  if (!handles->exec) {
    SQLHSTMT fresh = SQL_NULL_HSTMT;
    SQLRETURN ret = SQLAllocHandle(SQL_HANDLE_STMT, static_cast<SQLHDBC>(m_hdbc), &fresh);
    if (!Succeeded(ret)) ThrowDiagnostics(ret, SQL_HANDLE_DBC, static_cast<SQLHDBC>(m_hdbc));
    handles->exec = fresh;
  }
  SQLHSTMT stmt = handles->exec;
  SQLRETURN ret =
      SQLExecDirect(stmt, reinterpret_cast<SQLCHAR*>(const_cast<char*>(sql ? sql : "")), SQL_NTS);
  // SQL_NO_DATA: a searched UPDATE or DELETE that touched no row, which is not an error.
  if (!Succeeded(ret) && ret != SQL_NO_DATA) {
    try {
      ThrowDiagnostics(ret, SQL_HANDLE_STMT, stmt);
    } catch (...) {
      SQLFreeStmt(stmt, SQL_CLOSE);
      throw;
    }
  }
  SQLFreeStmt(stmt, SQL_CLOSE);  // any result is discarded
}

void CDatabase::Close() {
  while (!recordsets_.empty()) recordsets_.back()->Close();  // each removes itself
  if (auto* handles = static_cast<ConnectionHandles*>(handles_); handles && handles->exec) {
    SQLFreeHandle(SQL_HANDLE_STMT, handles->exec);
    handles->exec = SQL_NULL_HSTMT;
  }
  if (m_hdbc) {
    SQLDisconnect(static_cast<SQLHDBC>(m_hdbc));
    SQLFreeHandle(SQL_HANDLE_DBC, static_cast<SQLHDBC>(m_hdbc));
    m_hdbc = nullptr;
  }
  FreeHandles();
  requested_.Empty();
}

void CDatabase::FreeHandles() {
  auto* handles = static_cast<ConnectionHandles*>(handles_);
  if (!handles) return;
  SQLFreeHandle(SQL_HANDLE_ENV, handles->env);
  delete handles;
  handles_ = nullptr;
}

// ---------------------------------------------------------------------------------------
// CRecordset

CRecordset::CRecordset(CDatabase* database) : database_(database) {}

CRecordset::~CRecordset() { Close(); }

BOOL CRecordset::Open(UINT openType, LPCTSTR sql, DWORD /*options: always read-only*/) {
  if (openType != forwardOnly) AfxThrowInvalidArgException();
  Close();
  if (!database_ || !database_->IsOpen()) ThrowLibraryError("08003", "Connection not open");

  SQLHDBC dbc = static_cast<SQLHDBC>(database_->m_hdbc);
  SQLHSTMT stmt = SQL_NULL_HSTMT;
  SQLRETURN ret = SQLAllocHandle(SQL_HANDLE_STMT, dbc, &stmt);
  if (!Succeeded(ret)) ThrowDiagnostics(ret, SQL_HANDLE_DBC, dbc);
  try {
    ret = SQLExecDirect(stmt, reinterpret_cast<SQLCHAR*>(const_cast<char*>(sql ? sql : "")), SQL_NTS);
    if (!Succeeded(ret) && ret != SQL_NO_DATA) ThrowDiagnostics(ret, SQL_HANDLE_STMT, stmt);

    SQLSMALLINT columns = 0;
    ret = SQLNumResultCols(stmt, &columns);
    if (!Succeeded(ret)) ThrowDiagnostics(ret, SQL_HANDLE_STMT, stmt);
    std::vector<SQLCHAR> name(256);
    for (SQLUSMALLINT i = 1; i <= static_cast<SQLUSMALLINT>(std::max<SQLSMALLINT>(columns, 0)); ++i) {
      CODBCFieldInfo info;
      SQLSMALLINT nameLength = 0;
      SQLSMALLINT sqlType = 0;
      SQLULEN size = 0;
      SQLSMALLINT scale = 0;
      SQLSMALLINT nullable = 0;
      for (int attempt = 0; attempt < 2; ++attempt) {
        ret = SQLDescribeCol(stmt, i, name.data(), static_cast<SQLSMALLINT>(name.size()), &nameLength,
                             &sqlType, &size, &scale, &nullable);
        if (!Succeeded(ret)) ThrowDiagnostics(ret, SQL_HANDLE_STMT, stmt);
        if (nameLength < static_cast<SQLSMALLINT>(name.size())) break;
        name.resize(static_cast<std::size_t>(nameLength) + 1);
      }
      info.m_strName = CString(reinterpret_cast<const char*>(name.data()),
                               std::min<int>(nameLength, static_cast<int>(name.size()) - 1));
      info.m_nSQLType = sqlType;
      info.m_nPrecision = static_cast<unsigned long>(size);
      info.m_nScale = scale;
      info.m_nNullability = nullable;
      fields_.Add(info.m_strName);
      info_.push_back(info);
    }
  } catch (...) {
    SQLFreeHandle(SQL_HANDLE_STMT, stmt);
    fields_.RemoveAll();
    info_.clear();
    throw;
  }

  hstmt_ = stmt;
  database_->recordsets_.push_back(this);
  eof_ = false;
  if (fields_.IsEmpty()) {
    eof_ = true;  // a statement without a result set has no records
  } else {
    Fetch();
  }
  return TRUE;
}

void CRecordset::GetODBCFieldInfo(short index, CODBCFieldInfo& info) const {
  if (index < 0 || static_cast<std::size_t>(index) >= info_.size()) AfxThrowInvalidArgException();
  info = info_[static_cast<std::size_t>(index)];
}

void CRecordset::GetFieldValue(short index, CString& value) {
  if (!hstmt_ || eof_) ThrowLibraryError("24000", "No current record.");
  value = values_.GetAt(index);
}

void CRecordset::MoveNext() {
  if (!hstmt_ || eof_) ThrowLibraryError("24000", "Attempt to scroll past end or before beginning of data.");
  Fetch();
}

// Reads the next record whole, every column as text, so that the values can then be
// read in any order (SQLGetData itself only goes forward through the columns).
void CRecordset::Fetch() {
  SQLHSTMT stmt = static_cast<SQLHSTMT>(hstmt_);
  SQLRETURN ret = SQLFetch(stmt);
  if (ret == SQL_NO_DATA) {
    eof_ = true;
    values_.RemoveAll();
    return;
  }
  if (!Succeeded(ret)) ThrowDiagnostics(ret, SQL_HANDLE_STMT, stmt);

  if (buffer_.empty()) buffer_.resize(4096);
  std::vector<CString>& values = values_.items();
  values.resize(info_.size());
  for (std::size_t i = 0; i < info_.size(); ++i) {
    std::string& out = values[i].str();
    out.clear();
    for (;;) {
      SQLLEN indicator = 0;
      ret = SQLGetData(stmt, static_cast<SQLUSMALLINT>(i + 1), SQL_C_CHAR, buffer_.data(),
                       static_cast<SQLLEN>(buffer_.size()), &indicator);
      if (ret == SQL_NO_DATA) break;  // a long value already read whole
      if (!Succeeded(ret)) ThrowDiagnostics(ret, SQL_HANDLE_STMT, stmt);
      if (indicator == SQL_NULL_DATA) break;
      // Each piece is NUL-terminated in the buffer; a cut piece fills it and comes with
      // SQL_SUCCESS_WITH_INFO (01004), the indicator then giving what was left before it.
      const SQLLEN room = static_cast<SQLLEN>(buffer_.size()) - 1;
      const bool cut = ret == SQL_SUCCESS_WITH_INFO && (indicator == SQL_NO_TOTAL || indicator > room);
      SQLLEN piece = cut ? room : std::min(indicator, room);
      if (piece < 0) piece = static_cast<SQLLEN>(std::strlen(buffer_.data()));  // no length given
      out.append(buffer_.data(), static_cast<std::size_t>(piece));
      if (!cut) break;
    }
  }
}

void CRecordset::Close() {
  if (hstmt_) {
    SQLFreeHandle(SQL_HANDLE_STMT, static_cast<SQLHSTMT>(hstmt_));
    hstmt_ = nullptr;
    if (database_) {
      auto& open = database_->recordsets_;
      open.erase(std::remove(open.begin(), open.end(), this), open.end());
    }
  }
  fields_.RemoveAll();
  info_.clear();
  values_.RemoveAll();
  eof_ = true;
}
