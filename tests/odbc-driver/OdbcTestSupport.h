// Helpers for tests that reach the driver through unixODBC's driver manager: a private
// ODBCSYSINI folder registering the driver just built, a temporary folder for workbooks,
// and small wrappers that turn ODBC calls into values a test can compare.
#pragma once

#include <sql.h>
#include <sqlext.h>

#include <string>
#include <vector>

namespace xlsodbc::test {

constexpr const char* kDriverName = "Excel Workbook Driver (*.xls, *.xlsx, *.xlsm)";

// Registers the driver in a private odbcinst.ini and points ODBCSYSINI at it. Call before
// the first ODBC call of the process (unixODBC reads the setting once).
void RegisterDriverOnce();

// A folder removed with everything in it when the object goes.
class TempDir {
 public:
  TempDir();
  ~TempDir();
  const std::string& path() const { return path_; }
  std::string file(const std::string& name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

// The connection string the spreadsheet library builds for a workbook.
std::string LibraryConnectionString(const std::string& workbook);

struct Diag {
  SQLRETURN ret = SQL_SUCCESS;
  std::string state;    // first record's SQLSTATE, empty when none
  std::string message;  // first record's text
  bool ok() const { return ret == SQL_SUCCESS || ret == SQL_SUCCESS_WITH_INFO; }
};

Diag DiagOf(SQLSMALLINT type, SQLHANDLE h, SQLRETURN ret);

class Connection {
 public:
  Connection() = default;
  ~Connection();
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  Diag Open(const std::string& connectionString);
  void Close();
  // Runs a statement through SQLExecDirect; *rowCount gets SQLRowCount when given.
  Diag Exec(const std::string& sql, SQLLEN* rowCount = nullptr);
  // Runs a query and returns its rows as text ("NULL" for NULL), column names first.
  std::vector<std::vector<std::string>> Query(const std::string& sql, Diag* diag = nullptr);
  SQLHDBC dbc() const { return dbc_; }

 private:
  SQLHENV env_ = SQL_NULL_HENV;
  SQLHDBC dbc_ = SQL_NULL_HDBC;
  bool connected_ = false;
};

}  // namespace xlsodbc::test
