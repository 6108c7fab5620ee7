// The driver as applications see it: through unixODBC's driver manager, registered in a
// private odbcinst.ini. The statements are the spreadsheet library's, byte for byte.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <fstream>
#include <string>

#include "OdbcTestSupport.h"
#include "xls/Xls.h"

namespace xlsodbc::test {
namespace {

using Rows = std::vector<std::vector<std::string>>;

bool Exists(const std::string& path) { return std::ifstream(path).good(); }

// The library's statements in the order it sends them, each with its outcome.
TEST(DriverManagerTest, LibraryStatementsByteForByte) {
  TempDir dir;
  std::string book = dir.file("my book.xls");  // the bare DBQ path holds a space
  Connection c;
  ASSERT_TRUE(c.Open(LibraryConnectionString(book)).ok());
  EXPECT_FALSE(Exists(book));  // CREATE_DB makes the file on the first change only

  struct Step {
    const char* sql;
    const char* state;  // "" for success
    SQLLEN rows;        // expected SQLRowCount, -2 to skip
  } steps[] = {
      {"SELECT * FROM [Sheet1$A1:IV65536]", "42S02", -2},
      {"CREATE TABLE [Sheet1] ([Name] char(255), [Qty] char(255))", "", 0},
      {"CREATE TABLE [Sheet1$A4:IV65536] ([Name] char(255), [Qty] char(255))", "", 0},
      {"INSERT INTO [Sheet1$A4:X4] VALUES ('abc', '10')", "", 1},
      {"INSERT INTO [Sheet1$A5:X5] VALUES ('def', '20')", "", 1},
      {"INSERT INTO [Sheet1$A3:IV1] VALUES (abc, 10)", "", 1},
      {"UPDATE [Sheet1] SET [Name]='1', [Qty]='2' WHERE ([Name]='abc' AND [Qty]='10' )", "", 2},
      {"UPDATE [Sheet1] SET [Name]='1' WHE)", "42000", -2},
      {"CREATE TABLE [Sheet1])", "42000", -2},
      {"INSERT INTO [Sheet1$A4:X4] VALUES)", "42000", -2},
      {"INSERT INTO [Sheet1$A4:X4] VALUES ('O'Brien')", "42000", -2},
      {"INSERT INTO [Sheet1$A4:X4] VALUES (a b, 1)", "42000", -2},
      {"CREATE TABLE [Sheet2$A2:IV65536] ([Name] char(255), [Qty] char(255))", "", 0},
      {"INSERT INTO [Sheet2$A3:IV1] VALUES (abc, 10)", "", 1},
  };
  for (const Step& s : steps) {
    SQLLEN rows = -2;
    Diag d = c.Exec(s.sql, &rows);
    EXPECT_EQ(d.state, s.state) << s.sql << ": " << d.message;
    if (*s.state == '\0') {
      EXPECT_EQ(d.ret, SQL_SUCCESS) << s.sql;
      if (s.rows != -2) {
        EXPECT_EQ(rows, s.rows) << s.sql;
      }
    } else {
      EXPECT_EQ(d.ret, SQL_ERROR) << s.sql;
      EXPECT_EQ(d.message.rfind("[Excel Workbook Driver] ", 0), 0u) << d.message;
    }
  }
  EXPECT_EQ(c.Query("SELECT * FROM [Sheet1$A1:IV65536]"),
            (Rows{{"Name", "Qty"}, {"1", "2"}, {"def", "20"}, {"1", "2"}}));
  EXPECT_EQ(c.Query("SELECT * FROM [Sheet2$A2:IV65536]"), (Rows{{"Name", "Qty"}, {"abc", "10"}}));
  c.Close();

  // Everything is in the file after disconnecting, and the journal is gone.
  xls::Workbook wb;
  ASSERT_TRUE(xls::ReadWorkbook(book, &wb).ok());
  ASSERT_NE(wb.findSheet("Sheet1"), nullptr);
  EXPECT_EQ(wb.findSheet("Sheet1")->at(2, 0).text, "def");
  EXPECT_FALSE(Exists(book + "-journal"));

  Connection again;
  ASSERT_TRUE(again.Open(LibraryConnectionString(book)).ok());
  SQLLEN rows = 0;
  EXPECT_TRUE(again.Exec("DROP TABLE [Sheet1$A1:IV65536]", &rows).ok());
  EXPECT_EQ(rows, 4);
  EXPECT_EQ(again.Query("SELECT * FROM [Sheet1$A1:IV65536]"), (Rows{{}}));
  Diag missing;
  again.Query("SELECT * FROM [Nowhere$A1:IV65536]", &missing);
  EXPECT_EQ(missing.state, "42S02");
  EXPECT_NE(missing.message.find("'Nowhere'"), std::string::npos) << missing.message;
}

TEST(DriverManagerTest, ConnectFailures) {
  TempDir dir;
  struct Case {
    std::string cs;
    const char* state;
    const char* says;
  } cases[] = {
      {"DRIVER={" + std::string(kDriverName) + "};DBQ=" + dir.file("none.xls"), "08001",
       "not found"},
      {"DRIVER={" + std::string(kDriverName) + "};READONLY=1", "08001", "DBQ"},
      {"DRIVER={" + std::string(kDriverName) + "};DBQ=" + dir.file("junk.xls"), "HY000",
       "not a workbook"},
  };
  std::ofstream(dir.file("junk.xls")) << "this is not a workbook";
  for (const Case& k : cases) {
    Connection c;
    Diag d = c.Open(k.cs);
    EXPECT_EQ(d.ret, SQL_ERROR) << k.cs;
    EXPECT_EQ(d.state, k.state) << k.cs;
    EXPECT_NE(d.message.find(k.says), std::string::npos) << d.message;
  }
}

TEST(DriverManagerTest, ReadOnlyConnectionsReadButDoNotWrite) {
  TempDir dir;
  std::string book = dir.file("b.xls");
  {
    Connection w;
    ASSERT_TRUE(w.Open(LibraryConnectionString(book)).ok());
    ASSERT_TRUE(w.Exec("CREATE TABLE [S] ([a] char(255))").ok());
  }
  Connection r;
  ASSERT_TRUE(r.Open("DRIVER={" + std::string(kDriverName) + "};READONLY=1;DBQ=" + book).ok());
  EXPECT_EQ(r.Query("SELECT * FROM [S]"), (Rows{{"a"}}));
  Diag d = r.Exec("INSERT INTO [S] VALUES (1)");
  EXPECT_EQ(d.ret, SQL_ERROR);
  EXPECT_NE(d.message.find("read-only"), std::string::npos);
}

// Two connections on one workbook see each other's changes at their next statement.
TEST(DriverManagerTest, ConnectionsShareOneWorkbook) {
  TempDir dir;
  std::string book = dir.file("shared.xls");
  Connection a, b;
  ASSERT_TRUE(a.Open(LibraryConnectionString(book)).ok());
  ASSERT_TRUE(a.Exec("CREATE TABLE [S] ([n] char(255))").ok());
  ASSERT_TRUE(b.Open(LibraryConnectionString(book)).ok());
  ASSERT_TRUE(a.Exec("INSERT INTO [S] VALUES (1)").ok());
  ASSERT_TRUE(b.Exec("INSERT INTO [S] VALUES (2)").ok());
  ASSERT_TRUE(a.Exec("INSERT INTO [S] VALUES (3)").ok());
  EXPECT_EQ(b.Query("SELECT * FROM [S]"), (Rows{{"n"}, {"1"}, {"2"}, {"3"}}));
  a.Close();  // folds; b goes on with the new file
  ASSERT_TRUE(b.Exec("UPDATE [S] SET [n]='x' WHERE [n]=2").ok());
  EXPECT_EQ(b.Query("SELECT * FROM [S]"), (Rows{{"n"}, {"1"}, {"x"}, {"3"}}));
}

TEST(DriverManagerTest, GetDataInTheUsualCTypes) {
  TempDir dir;
  Connection c;
  ASSERT_TRUE(c.Open(LibraryConnectionString(dir.file("t.xls"))).ok());
  ASSERT_TRUE(c.Exec("CREATE TABLE [T] ([a] char(255), [b] char(255), [c] char(255))").ok());
  ASSERT_TRUE(c.Exec("INSERT INTO [T] VALUES (42, 'héllo wörld', NULL)").ok());
  SQLHSTMT st;
  SQLAllocHandle(SQL_HANDLE_STMT, c.dbc(), &st);
  ASSERT_EQ(SQLExecDirect(st, (SQLCHAR*)"SELECT * FROM [T]", SQL_NTS), SQL_SUCCESS);
  ASSERT_EQ(SQLFetch(st), SQL_SUCCESS);
  SQLINTEGER i = 0;
  SQLLEN ind = 0;
  EXPECT_EQ(SQLGetData(st, 1, SQL_C_SLONG, &i, 0, &ind), SQL_SUCCESS);
  EXPECT_EQ(i, 42);
  // A fixed-size value is delivered once per visit to its column.
  EXPECT_EQ(SQLGetData(st, 1, SQL_C_SLONG, &i, 0, &ind), SQL_NO_DATA);
  // Text in pieces: 5 bytes (4 + NUL) at a time, 01004 until the last piece.
  std::string whole;
  char piece[5];
  SQLRETURN r;
  while ((r = SQLGetData(st, 2, SQL_C_CHAR, piece, sizeof piece, &ind)) != SQL_NO_DATA) {
    ASSERT_TRUE(r == SQL_SUCCESS || r == SQL_SUCCESS_WITH_INFO);
    if (r == SQL_SUCCESS_WITH_INFO) {
      EXPECT_EQ(DiagOf(SQL_HANDLE_STMT, st, r).state, "01004");
    }
    whole += piece;
  }
  EXPECT_EQ(whole, "héllo wörld");
  double d = 0;
  EXPECT_EQ(SQLGetData(st, 1, SQL_C_DOUBLE, &d, 0, &ind), SQL_SUCCESS);  // any order
  EXPECT_EQ(d, 42.0);
  SQLWCHAR wide[32];
  EXPECT_EQ(SQLGetData(st, 2, SQL_C_WCHAR, wide, sizeof wide, &ind), SQL_SUCCESS);
  EXPECT_EQ(ind, 11 * 2);
  EXPECT_EQ(wide[1], 0xE9);  // é as one UTF-16 unit
  // ASCII text (the number 42) as wide characters: whole when the buffer holds it and its
  // NUL exactly, once; in pieces when it is a unit short.
  SQLWCHAR two[3] = {9, 9, 9};
  EXPECT_EQ(SQLGetData(st, 1, SQL_C_WCHAR, two, sizeof two, &ind), SQL_SUCCESS);
  EXPECT_EQ(ind, 2 * 2);
  EXPECT_EQ(std::u16string(two, two + 3), std::u16string(u"42\0", 3));
  EXPECT_EQ(SQLGetData(st, 1, SQL_C_WCHAR, two, sizeof two, &ind), SQL_NO_DATA);
  EXPECT_EQ(SQLGetData(st, 2, SQL_C_CHAR, piece, sizeof piece, &ind), SQL_SUCCESS_WITH_INFO);
  EXPECT_EQ(SQLGetData(st, 1, SQL_C_WCHAR, two, 2 * sizeof(SQLWCHAR), &ind), SQL_SUCCESS_WITH_INFO);
  EXPECT_EQ(two[0], u'4');
  EXPECT_EQ(SQLGetData(st, 1, SQL_C_WCHAR, two, 2 * sizeof(SQLWCHAR), &ind), SQL_SUCCESS);
  EXPECT_EQ(two[0], u'2');
  EXPECT_EQ(SQLGetData(st, 3, SQL_C_CHAR, piece, sizeof piece, &ind), SQL_SUCCESS);
  EXPECT_EQ(ind, SQL_NULL_DATA);
  EXPECT_EQ(SQLGetData(st, 2, SQL_C_SLONG, &i, 0, &ind), SQL_ERROR);
  EXPECT_EQ(DiagOf(SQL_HANDLE_STMT, st, SQL_ERROR).state, "22018");
  EXPECT_EQ(SQLGetData(st, 9, SQL_C_CHAR, piece, sizeof piece, &ind), SQL_ERROR);
  EXPECT_EQ(DiagOf(SQL_HANDLE_STMT, st, SQL_ERROR).state, "07009");
  EXPECT_EQ(SQLFetch(st), SQL_NO_DATA);
  SQLFreeHandle(SQL_HANDLE_STMT, st);
}

TEST(DriverManagerTest, PreparedStatementsWithParameters) {
  TempDir dir;
  Connection c;
  ASSERT_TRUE(c.Open(LibraryConnectionString(dir.file("p.xls"))).ok());
  ASSERT_TRUE(c.Exec("CREATE TABLE [P] ([name] char(255), [qty] char(255))").ok());
  SQLHSTMT st;
  SQLAllocHandle(SQL_HANDLE_STMT, c.dbc(), &st);
  ASSERT_EQ(SQLPrepare(st, (SQLCHAR*)"INSERT INTO [P] VALUES (?, ?)", SQL_NTS), SQL_SUCCESS);
  SQLSMALLINT n = 0;
  SQLNumParams(st, &n);
  EXPECT_EQ(n, 2);
  char name[32];
  SQLINTEGER qty;
  SQLLEN nameInd = SQL_NTS, qtyInd = 0;
  SQLBindParameter(st, 1, SQL_PARAM_INPUT, SQL_C_CHAR, SQL_VARCHAR, 255, 0, name, sizeof name,
                   &nameInd);
  SQLBindParameter(st, 2, SQL_PARAM_INPUT, SQL_C_SLONG, SQL_INTEGER, 0, 0, &qty, 0, &qtyInd);
  for (int k = 1; k <= 3; ++k) {
    std::snprintf(name, sizeof name, "it's %d", k);
    qty = k * 10;
    ASSERT_EQ(SQLExecute(st), SQL_SUCCESS);
  }
  SQLFreeHandle(SQL_HANDLE_STMT, st);
  EXPECT_EQ(c.Query("SELECT * FROM [P] WHERE qty >= 20"),
            (Rows{{"name", "qty"}, {"it's 2", "20"}, {"it's 3", "30"}}));
}

// Sheets are SYSTEM TABLEs ("Alpha$"); a table created by a bare name is also a TABLE under
// that name, a defined name the workbook file keeps. SQLColumns answers for either, once.
TEST(DriverManagerTest, CatalogListsSheetsNamesAndColumns) {
  TempDir dir;
  const std::string cs = LibraryConnectionString(dir.file("c.xls"));
  {
    Connection c;
    ASSERT_TRUE(c.Open(cs).ok());
    ASSERT_TRUE(c.Exec("CREATE TABLE [Alpha] ([x] char(255), [y] char(255))").ok());
    ASSERT_TRUE(c.Exec("CREATE TABLE [Beta$] ([z] char(255))").ok());
  }
  Connection c;  // a new connection reads the names from the file
  ASSERT_TRUE(c.Open(cs).ok());
  SQLHSTMT st;
  SQLAllocHandle(SQL_HANDLE_STMT, c.dbc(), &st);
  char buf[256];
  SQLLEN ind;
  auto fetchAll = [&](std::initializer_list<int> columns) {
    std::vector<std::string> rows;
    while (SQLFetch(st) == SQL_SUCCESS) {
      std::string row;
      for (int col : columns) {
        SQLGetData(st, static_cast<SQLUSMALLINT>(col), SQL_C_CHAR, buf, sizeof buf, &ind);
        row += (row.empty() ? "" : " ") + std::string(ind == SQL_NULL_DATA ? "NULL" : buf);
      }
      rows.push_back(row);
    }
    SQLFreeStmt(st, SQL_CLOSE);
    return rows;
  };
  ASSERT_EQ(SQLTables(st, nullptr, 0, nullptr, 0, nullptr, 0, nullptr, 0), SQL_SUCCESS);
  EXPECT_EQ(fetchAll({3, 4}),
            (std::vector<std::string>{"Alpha TABLE", "Alpha$ SYSTEM TABLE", "Beta$ SYSTEM TABLE"}));
  struct Case {
    const char* table;
    std::vector<std::string> columns;  // TABLE_NAME COLUMN_NAME DATA_TYPE
  } cases[] = {
      {"Alpha$", {"Alpha$ x 12", "Alpha$ y 12"}},
      {"Alpha", {"Alpha x 12", "Alpha y 12"}},
      {"Beta", {"Beta$ z 12"}},
      {"%", {"Alpha x 12", "Alpha y 12", "Alpha$ x 12", "Alpha$ y 12", "Beta$ z 12"}},
  };
  for (const Case& k : cases) {
    ASSERT_EQ(SQLColumns(st, nullptr, 0, nullptr, 0, (SQLCHAR*)k.table, SQL_NTS, nullptr, 0),
              SQL_SUCCESS);
    EXPECT_EQ(fetchAll({3, 4, 5}), k.columns) << k.table;
  }
  SQLFreeHandle(SQL_HANDLE_STMT, st);
}

// The driver manager drops exported functions that SQLGetFunctions denies: the two agree.
TEST(DriverManagerTest, GetFunctionsMatchesExports) {
  void* lib = dlopen(XLSODBC_DRIVER_PATH, RTLD_NOW | RTLD_LOCAL);
  ASSERT_NE(lib, nullptr) << dlerror();
  using AllocFn = SQLRETURN (*)(SQLSMALLINT, SQLHANDLE, SQLHANDLE*);
  using FreeFn = SQLRETURN (*)(SQLSMALLINT, SQLHANDLE);
  using FunctionsFn = SQLRETURN (*)(SQLHDBC, SQLUSMALLINT, SQLUSMALLINT*);
  auto alloc = reinterpret_cast<AllocFn>(dlsym(lib, "SQLAllocHandle"));
  auto release = reinterpret_cast<FreeFn>(dlsym(lib, "SQLFreeHandle"));
  auto functions = reinterpret_cast<FunctionsFn>(dlsym(lib, "SQLGetFunctions"));
  ASSERT_TRUE(alloc && release && functions);
  SQLHANDLE env, dbc;
  alloc(SQL_HANDLE_ENV, nullptr, &env);
  alloc(SQL_HANDLE_DBC, env, &dbc);
  SQLUSMALLINT bits[SQL_API_ODBC3_ALL_FUNCTIONS_SIZE];
  ASSERT_EQ(functions(dbc, SQL_API_ODBC3_ALL_FUNCTIONS, bits), SQL_SUCCESS);
  struct Fn {
    const char* name;
    SQLUSMALLINT id;
  } table[] = {
#define FN(n, id) {#n, id}
      FN(SQLAllocHandle, SQL_API_SQLALLOCHANDLE),
      FN(SQLBindCol, SQL_API_SQLBINDCOL),
      FN(SQLBindParameter, SQL_API_SQLBINDPARAMETER),
      FN(SQLBrowseConnect, SQL_API_SQLBROWSECONNECT),
      FN(SQLBulkOperations, SQL_API_SQLBULKOPERATIONS),
      FN(SQLCancel, SQL_API_SQLCANCEL),
      FN(SQLCloseCursor, SQL_API_SQLCLOSECURSOR),
      FN(SQLColAttribute, SQL_API_SQLCOLATTRIBUTE),
      FN(SQLColumnPrivileges, SQL_API_SQLCOLUMNPRIVILEGES),
      FN(SQLColumns, SQL_API_SQLCOLUMNS),
      FN(SQLConnect, SQL_API_SQLCONNECT),
      FN(SQLCopyDesc, SQL_API_SQLCOPYDESC),
      FN(SQLDescribeCol, SQL_API_SQLDESCRIBECOL),
      FN(SQLDescribeParam, SQL_API_SQLDESCRIBEPARAM),
      FN(SQLDisconnect, SQL_API_SQLDISCONNECT),
      FN(SQLDriverConnect, SQL_API_SQLDRIVERCONNECT),
      FN(SQLEndTran, SQL_API_SQLENDTRAN),
      FN(SQLExecDirect, SQL_API_SQLEXECDIRECT),
      FN(SQLExecute, SQL_API_SQLEXECUTE),
      FN(SQLFetch, SQL_API_SQLFETCH),
      FN(SQLFetchScroll, SQL_API_SQLFETCHSCROLL),
      FN(SQLForeignKeys, SQL_API_SQLFOREIGNKEYS),
      FN(SQLFreeHandle, SQL_API_SQLFREEHANDLE),
      FN(SQLFreeStmt, SQL_API_SQLFREESTMT),
      FN(SQLGetConnectAttr, SQL_API_SQLGETCONNECTATTR),
      FN(SQLGetCursorName, SQL_API_SQLGETCURSORNAME),
      FN(SQLGetData, SQL_API_SQLGETDATA),
      FN(SQLGetDescField, SQL_API_SQLGETDESCFIELD),
      FN(SQLGetDescRec, SQL_API_SQLGETDESCREC),
      FN(SQLGetDiagField, SQL_API_SQLGETDIAGFIELD),
      FN(SQLGetDiagRec, SQL_API_SQLGETDIAGREC),
      FN(SQLGetEnvAttr, SQL_API_SQLGETENVATTR),
      FN(SQLGetFunctions, SQL_API_SQLGETFUNCTIONS),
      FN(SQLGetInfo, SQL_API_SQLGETINFO),
      FN(SQLGetStmtAttr, SQL_API_SQLGETSTMTATTR),
      FN(SQLGetTypeInfo, SQL_API_SQLGETTYPEINFO),
      FN(SQLMoreResults, SQL_API_SQLMORERESULTS),
      FN(SQLNativeSql, SQL_API_SQLNATIVESQL),
      FN(SQLNumParams, SQL_API_SQLNUMPARAMS),
      FN(SQLNumResultCols, SQL_API_SQLNUMRESULTCOLS),
      FN(SQLParamData, SQL_API_SQLPARAMDATA),
      FN(SQLPrepare, SQL_API_SQLPREPARE),
      FN(SQLPrimaryKeys, SQL_API_SQLPRIMARYKEYS),
      FN(SQLProcedureColumns, SQL_API_SQLPROCEDURECOLUMNS),
      FN(SQLProcedures, SQL_API_SQLPROCEDURES),
      FN(SQLPutData, SQL_API_SQLPUTDATA),
      FN(SQLRowCount, SQL_API_SQLROWCOUNT),
      FN(SQLSetConnectAttr, SQL_API_SQLSETCONNECTATTR),
      FN(SQLSetCursorName, SQL_API_SQLSETCURSORNAME),
      FN(SQLSetDescField, SQL_API_SQLSETDESCFIELD),
      FN(SQLSetDescRec, SQL_API_SQLSETDESCREC),
      FN(SQLSetEnvAttr, SQL_API_SQLSETENVATTR),
      FN(SQLSetPos, SQL_API_SQLSETPOS),
      FN(SQLSetStmtAttr, SQL_API_SQLSETSTMTATTR),
      FN(SQLSpecialColumns, SQL_API_SQLSPECIALCOLUMNS),
      FN(SQLStatistics, SQL_API_SQLSTATISTICS),
      FN(SQLTablePrivileges, SQL_API_SQLTABLEPRIVILEGES),
      FN(SQLTables, SQL_API_SQLTABLES),
      FN(SQLExtendedFetch, SQL_API_SQLEXTENDEDFETCH),
      FN(SQLSetScrollOptions, SQL_API_SQLSETSCROLLOPTIONS),
#undef FN
  };
  for (const Fn& f : table) {
    bool exported = dlsym(lib, f.name) != nullptr;
    bool claimed = SQL_FUNC_EXISTS(bits, f.id);
    EXPECT_EQ(exported, claimed) << f.name;
  }
  release(SQL_HANDLE_DBC, dbc);
  release(SQL_HANDLE_ENV, env);
  dlclose(lib);
}

}  // namespace
}  // namespace xlsodbc::test
