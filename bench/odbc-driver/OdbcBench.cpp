// Driver benchmarks, through unixODBC as applications use it:
//  1. SELECT * over a 65,536 x 31 sheet, every cell fetched as text with SQLGetData, against
//     python3-xlrd reading the same file's every cell, in the same run;
//  2. single-row INSERTs, 1k, 8k and 65,535 of them into fresh workbooks: the cost per
//     INSERT should stay flat (the journal makes each one O(1) amortized).
// Usage: odbc_bench [max_inserts]  (prints figures; no pass/fail).
#include <sql.h>
#include <sqlext.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "xls/Xls.h"

namespace {

using Clock = std::chrono::steady_clock;
double Seconds(Clock::time_point since) {
  return std::chrono::duration<double>(Clock::now() - since).count();
}

struct Odbc {
  SQLHENV env = nullptr;
  SQLHDBC dbc = nullptr;
  explicit Odbc(const std::string& cs) {
    SQLAllocHandle(SQL_HANDLE_ENV, nullptr, &env);
    SQLSetEnvAttr(env, SQL_ATTR_ODBC_VERSION, reinterpret_cast<SQLPOINTER>(SQL_OV_ODBC3), 0);
    SQLAllocHandle(SQL_HANDLE_DBC, env, &dbc);
    SQLRETURN r = SQLDriverConnect(dbc, nullptr, (SQLCHAR*)cs.c_str(), SQL_NTS, nullptr, 0, nullptr,
                                   SQL_DRIVER_NOPROMPT);
    if (!SQL_SUCCEEDED(r)) {
      std::fprintf(stderr, "connect failed\n");
      std::exit(1);
    }
  }
  ~Odbc() {
    SQLDisconnect(dbc);
    SQLFreeHandle(SQL_HANDLE_DBC, dbc);
    SQLFreeHandle(SQL_HANDLE_ENV, env);
  }
  void Exec(SQLHSTMT st, const std::string& sql) {
    if (!SQL_SUCCEEDED(SQLExecDirect(st, (SQLCHAR*)sql.c_str(), SQL_NTS))) {
      SQLCHAR state[6] = {0}, text[512] = {0};
      SQLINTEGER native;
      SQLSMALLINT len;
      SQLGetDiagRec(SQL_HANDLE_STMT, st, 1, state, &native, text, sizeof text, &len);
      std::fprintf(stderr, "failed: %s: %s %s\n", sql.c_str(), state, text);
      std::exit(1);
    }
  }
};

std::string ConnectionString(const std::string& book) {
  return "DRIVER={Excel Workbook Driver "
         "(*.xls)};DSN='';FIRSTROWHASNAMES=1;READONLY=FALSE;CREATE_DB=\"" +
         book + "\";DBQ=" + book;
}

}  // namespace

int main(int argc, char** argv) {
  long maxInserts = argc > 1 ? std::atol(argv[1]) : 65535;
  std::string dir =
      std::filesystem::temp_directory_path() / ("xlsodbc-bench-" + std::to_string(getpid()));
  std::filesystem::create_directories(dir);
  std::ofstream(dir + "/odbcinst.ini")
      << "[Excel Workbook Driver (*.xls)]\nDriver = " << XLSODBC_DRIVER_PATH << "\n";
  setenv("ODBCSYSINI", dir.c_str(), 1);

  // 1. The big sheet: a header and 65,535 rows of 31 columns, numbers and text mixed.
  const int kRows = 65536, kCols = 31;
  std::string book = dir + "/big.xls";
  {
    xls::Workbook wb;
    xls::Sheet& s = wb.addSheet("Sheet1");
    for (int c = 0; c < kCols; ++c) s.set(0, c, xls::Cell::Text("Col" + std::to_string(c + 1)));
    for (int r = 1; r < kRows; ++r) {
      for (int c = 0; c < kCols; ++c) {
        if (c % 2 == 0)
          s.set(r, c, xls::Cell::Number(r * 31 + c + 0.25));
        else
          s.set(r, c, xls::Cell::Text("text " + std::to_string(r) + "/" + std::to_string(c)));
      }
    }
    if (!xls::WriteWorkbook(book, wb).ok()) {
      std::fprintf(stderr, "cannot write %s\n", book.c_str());
      return 1;
    }
  }
  double mb = static_cast<double>(std::filesystem::file_size(book)) / 1e6;
  long cells = 0;
  double opened = 0;
  auto t0 = Clock::now();
  {
    Odbc odbc(ConnectionString(book));
    SQLHSTMT st;
    SQLAllocHandle(SQL_HANDLE_STMT, odbc.dbc, &st);
    odbc.Exec(st, "SELECT * FROM [Sheet1$A1:IV65536]");
    opened = Seconds(t0);
    SQLSMALLINT cols = 0;
    SQLNumResultCols(st, &cols);
    char buf[256];
    SQLLEN ind;
    while (SQLFetch(st) == SQL_SUCCESS) {
      for (SQLUSMALLINT c = 1; c <= cols; ++c) {
        SQLGetData(st, c, SQL_C_CHAR, buf, sizeof buf, &ind);
        ++cells;
      }
    }
    SQLFreeHandle(SQL_HANDLE_STMT, st);
  }
  double driver = Seconds(t0);
  std::string cmd =
      "/usr/bin/python3 -c \"import time,xlrd; t=time.time(); b=xlrd.open_workbook('" + book +
      "'); s=b.sheet_by_index(0); n=sum(len(s.row_values(r)) for r in range(s.nrows)); "
      "print(time.time()-t, n)\"";
  double xlrd = -1;
  long xlrdCells = 0;
  if (FILE* p = popen(cmd.c_str(), "r")) {
    if (std::fscanf(p, "%lf %ld", &xlrd, &xlrdCells) != 2) xlrd = -1;
    pclose(p);
  }
  std::printf(
      "SELECT * 65536 x 31 (%.1f MB): driver %.3f s (%ld cells, %.1f M cells/s, %.1f MB/s)\n", mb,
      driver, cells, cells / driver / 1e6, mb / driver);
  std::printf("  of which connect + read the file + SELECT %.3f s, fetch + SQLGetData %.3f s\n",
              opened, driver - opened);
  if (xlrd > 0) {
    std::printf("  python3-xlrd same file: %.3f s (%ld cells); driver is %.1fx faster\n", xlrd,
                xlrdCells, xlrd / driver);
  } else {
    std::printf("  python3-xlrd not available\n");
  }

  // 2. Single-row INSERTs, the form the spreadsheet library sends.
  for (long n : {1000L, 8000L, 65535L}) {
    if (n > maxInserts) break;
    std::string small = dir + "/ins" + std::to_string(n) + ".xls";
    auto t1 = Clock::now();
    {
      Odbc odbc(ConnectionString(small));
      SQLHSTMT st;
      SQLAllocHandle(SQL_HANDLE_STMT, odbc.dbc, &st);
      odbc.Exec(st, "CREATE TABLE [Sheet1] ([Name] char(255), [Qty] char(255))");
      for (long i = 0; i < n; ++i) {
        // The library's numbering (row r + 3), held inside the grid: where the row lands is
        // decided by the sheet's last record, not by the range.
        std::string row = std::to_string(std::min(i + 4, 65536L));
        odbc.Exec(st, "INSERT INTO [Sheet1$A" + row + ":X" + row + "] VALUES ('name " +
                          std::to_string(i) + "', '" + std::to_string(i * 7) + "')");
      }
      SQLFreeHandle(SQL_HANDLE_STMT, st);
    }
    double s = Seconds(t1);
    std::printf("%6ld single-row INSERTs + disconnect: %.2f s, %.1f us per INSERT, %.0f rows/s\n",
                n, s, s / n * 1e6, n / s);
  }
  std::filesystem::remove_all(dir);
  return 0;
}
