#include "OdbcTestSupport.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

namespace xlsodbc::test {

void RegisterDriverOnce() {
  static std::string dir;
  if (!dir.empty()) return;
  char pattern[] = "/tmp/xlsodbc-sysini-XXXXXX";
  dir = mkdtemp(pattern);
  std::ofstream(dir + "/odbcinst.ini")
      << "[" << kDriverName << "]\nDescription = test\nDriver = " << XLSODBC_DRIVER_PATH << "\n";
  std::ofstream(dir + "/odbc.ini") << "";
  setenv("ODBCSYSINI", dir.c_str(), 1);
  setenv("ODBCINSTINI", "odbcinst.ini", 1);
  setenv("ODBCINI", (dir + "/odbc.ini").c_str(), 1);
  // The folder holds two small files; it goes with the process's other temporary state.
  std::atexit([] { std::filesystem::remove_all(dir); });
}

TempDir::TempDir() {
  char pattern[] = "/tmp/xlsodbc-test-XXXXXX";
  path_ = mkdtemp(pattern);
}

TempDir::~TempDir() { std::filesystem::remove_all(path_); }

std::string LibraryConnectionString(const std::string& workbook) {
  return std::string("DRIVER={") + kDriverName +
         "};DSN='';FIRSTROWHASNAMES=1;READONLY=FALSE;CREATE_DB=\"" + workbook +
         "\";DBQ=" + workbook;
}

Diag DiagOf(SQLSMALLINT type, SQLHANDLE h, SQLRETURN ret) {
  Diag d;
  d.ret = ret;
  SQLCHAR state[6] = {0};
  SQLCHAR text[1024] = {0};
  SQLINTEGER native = 0;
  SQLSMALLINT len = 0;
  if (SQLGetDiagRec(type, h, 1, state, &native, text, sizeof text, &len) == SQL_SUCCESS) {
    d.state = reinterpret_cast<char*>(state);
    d.message = reinterpret_cast<char*>(text);
  }
  return d;
}

Connection::~Connection() { Close(); }

Diag Connection::Open(const std::string& cs) {
  RegisterDriverOnce();
  SQLAllocHandle(SQL_HANDLE_ENV, SQL_NULL_HANDLE, &env_);
  SQLSetEnvAttr(env_, SQL_ATTR_ODBC_VERSION, reinterpret_cast<SQLPOINTER>(SQL_OV_ODBC3), 0);
  SQLAllocHandle(SQL_HANDLE_DBC, env_, &dbc_);
  SQLRETURN ret = SQLDriverConnect(dbc_, nullptr, (SQLCHAR*)cs.c_str(), SQL_NTS, nullptr, 0,
                                   nullptr, SQL_DRIVER_NOPROMPT);
  Diag d = DiagOf(SQL_HANDLE_DBC, dbc_, ret);
  connected_ = d.ok();
  return d;
}

void Connection::Close() {
  if (connected_) SQLDisconnect(dbc_);
  connected_ = false;
  if (dbc_) SQLFreeHandle(SQL_HANDLE_DBC, dbc_);
  if (env_) SQLFreeHandle(SQL_HANDLE_ENV, env_);
  dbc_ = SQL_NULL_HDBC;
  env_ = SQL_NULL_HENV;
}

Diag Connection::Exec(const std::string& sql, SQLLEN* rowCount) {
  SQLHSTMT st;
  SQLAllocHandle(SQL_HANDLE_STMT, dbc_, &st);
  SQLRETURN ret = SQLExecDirect(st, (SQLCHAR*)sql.c_str(), SQL_NTS);
  Diag d = DiagOf(SQL_HANDLE_STMT, st, ret);
  if (rowCount) SQLRowCount(st, rowCount);
  SQLFreeHandle(SQL_HANDLE_STMT, st);
  return d;
}

std::vector<std::vector<std::string>> Connection::Query(const std::string& sql, Diag* diag) {
  std::vector<std::vector<std::string>> rows;
  SQLHSTMT st;
  SQLAllocHandle(SQL_HANDLE_STMT, dbc_, &st);
  SQLRETURN ret = SQLExecDirect(st, (SQLCHAR*)sql.c_str(), SQL_NTS);
  Diag d = DiagOf(SQL_HANDLE_STMT, st, ret);
  if (diag) *diag = d;
  if (d.ok()) {
    SQLSMALLINT cols = 0;
    SQLNumResultCols(st, &cols);
    std::vector<std::string> header;
    for (SQLUSMALLINT c = 1; c <= cols; ++c) {
      SQLCHAR name[256];
      SQLSMALLINT len, type, digits, nullable;
      SQLULEN size;
      SQLDescribeCol(st, c, name, sizeof name, &len, &type, &size, &digits, &nullable);
      header.push_back(reinterpret_cast<char*>(name));
    }
    rows.push_back(header);
    while (SQLFetch(st) == SQL_SUCCESS) {
      std::vector<std::string> row;
      for (SQLUSMALLINT c = 1; c <= cols; ++c) {
        char buf[512];
        SQLLEN ind = 0;
        SQLRETURN r = SQLGetData(st, c, SQL_C_CHAR, buf, sizeof buf, &ind);
        EXPECT_EQ(r, SQL_SUCCESS);
        row.push_back(ind == SQL_NULL_DATA ? "NULL" : std::string(buf));
      }
      rows.push_back(row);
    }
  }
  SQLFreeHandle(SQL_HANDLE_STMT, st);
  return rows;
}

}  // namespace xlsodbc::test
