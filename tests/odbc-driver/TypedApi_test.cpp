// The typed side of the driver through unixODBC: values converted to each C type with the
// diagnostics ODBC gives each failure, the types columns report, SQLGetTypeInfo, date
// parameters, and engine statements with arrays of parameters.
#include <gtest/gtest.h>
#include <sql.h>
#include <sqlext.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "tests/odbc-driver/OdbcTestSupport.h"

namespace xlsodbc::test {
namespace {

class TypedApiTest : public ::testing::Test {
 protected:
  void SetUp() override {
    RegisterDriverOnce();
    book_ = dir_.file("typed.xls");
    ASSERT_TRUE(cn_.Open(LibraryConnectionString(book_)).ok());
    ASSERT_EQ(SQLAllocHandle(SQL_HANDLE_STMT, cn_.dbc(), &st_), SQL_SUCCESS);
  }
  void TearDown() override { SQLFreeHandle(SQL_HANDLE_STMT, st_); }

  // Runs sql and fetches its first row.
  void Fetch(const std::string& sql) {
    SQLFreeStmt(st_, SQL_CLOSE);
    ASSERT_EQ(SQLExecDirect(st_, (SQLCHAR*)sql.c_str(), SQL_NTS), SQL_SUCCESS)
        << sql << ": " << DiagOf(SQL_HANDLE_STMT, st_, SQL_ERROR).message;
    ASSERT_EQ(SQLFetch(st_), SQL_SUCCESS) << sql;
  }
  std::string State(SQLRETURN ret) { return DiagOf(SQL_HANDLE_STMT, st_, ret).state; }

  TempDir dir_;
  std::string book_;
  Connection cn_;
  SQLHSTMT st_ = SQL_NULL_HSTMT;
};

union Buffer {
  double d;
  float f;
  SQLINTEGER i;
  SQLUINTEGER u;
  SQLSMALLINT s;
  SQLBIGINT big;
  SQLCHAR bit;
  SQL_DATE_STRUCT date;
  SQL_TIME_STRUCT time;
  SQL_TIMESTAMP_STRUCT ts;
  char text[32];
};

TEST_F(TypedApiTest, ValuesConvertToEachCTypeWithTheRightDiagnostic) {
  struct Case {
    const char* expression;
    SQLSMALLINT cType;
    SQLRETURN ret;
    const char* state;  // "" for none
    std::function<bool(const Buffer&)> check;
  };
  auto none = [](const Buffer&) { return true; };
  const Case cases[] = {
      {"2.5", SQL_C_DOUBLE, SQL_SUCCESS, "", [](const Buffer& b) { return b.d == 2.5; }},
      {"2.5", SQL_C_FLOAT, SQL_SUCCESS, "", [](const Buffer& b) { return b.f == 2.5f; }},
      {"2.5", SQL_C_SLONG, SQL_SUCCESS_WITH_INFO, "01S07",
       [](const Buffer& b) { return b.i == 2; }},
      {"-7", SQL_C_LONG, SQL_SUCCESS, "", [](const Buffer& b) { return b.i == -7; }},
      {"-1", SQL_C_ULONG, SQL_ERROR, "22003", none},
      {"70000", SQL_C_SHORT, SQL_ERROR, "22003", none},
      {"12345678901", SQL_C_SBIGINT, SQL_SUCCESS, "",
       [](const Buffer& b) { return b.big == 12345678901LL; }},
      {"1e300", SQL_C_FLOAT, SQL_ERROR, "22003", none},
      {"'abc'", SQL_C_DOUBLE, SQL_ERROR, "22018", none},
      {"'abc'", SQL_C_LONG, SQL_ERROR, "22018", none},
      {"1", SQL_C_BIT, SQL_SUCCESS, "", [](const Buffer& b) { return b.bit == 1; }},
      {"0.5", SQL_C_BIT, SQL_SUCCESS_WITH_INFO, "01S07",
       [](const Buffer& b) { return b.bit == 0; }},
      {"2", SQL_C_BIT, SQL_ERROR, "22003", none},
      {"{ts '2024-02-29 13:45:30'}", SQL_C_TYPE_TIMESTAMP, SQL_SUCCESS, "",
       [](const Buffer& b) {
         return b.ts.year == 2024 && b.ts.month == 2 && b.ts.day == 29 && b.ts.hour == 13 &&
                b.ts.minute == 45 && b.ts.second == 30 && b.ts.fraction == 0;
       }},
      {"{ts '2024-02-29 13:45:30'}", SQL_C_TYPE_DATE, SQL_SUCCESS_WITH_INFO, "01S07",
       [](const Buffer& b) {
         return b.date.year == 2024 && b.date.month == 2 && b.date.day == 29;
       }},
      {"{d '2024-02-29'}", SQL_C_TYPE_DATE, SQL_SUCCESS, "",
       [](const Buffer& b) { return b.date.day == 29; }},
      {"{ts '2024-02-29 13:45:30'}", SQL_C_TYPE_TIME, SQL_SUCCESS, "",
       [](const Buffer& b) { return b.time.hour == 13 && b.time.second == 30; }},
      {"'12:30:15'", SQL_C_TYPE_TIME, SQL_SUCCESS, "",
       [](const Buffer& b) { return b.time.minute == 30 && b.time.second == 15; }},
      {"'2023-02-29'", SQL_C_TYPE_DATE, SQL_ERROR, "22007", none},
      {"'soon'", SQL_C_TYPE_TIMESTAMP, SQL_ERROR, "22018", none},
      {"'ab'", SQL_C_BINARY, SQL_SUCCESS, "",
       [](const Buffer& b) { return std::memcmp(b.text, "ab", 2) == 0; }},
      {"2.5", SQL_C_DEFAULT, SQL_SUCCESS, "", [](const Buffer& b) { return b.d == 2.5; }},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(std::string(c.expression) + " as C type " + std::to_string(c.cType));
    Fetch(std::string("SELECT ") + c.expression);
    Buffer b;
    std::memset(&b, 0x5a, sizeof b);
    SQLLEN ind = 0;
    SQLRETURN ret = SQLGetData(st_, 1, c.cType, &b, sizeof b, &ind);
    EXPECT_EQ(ret, c.ret);
    EXPECT_EQ(State(ret), c.state);
    if (ret != SQL_ERROR) {
      EXPECT_TRUE(c.check(b));
    }
  }
}

TEST_F(TypedApiTest, SheetColumnsReportTheirTypesWhileTextStaysAsBefore) {
  ASSERT_TRUE(cn_.Exec("CREATE TABLE [T] ([N] NUMBER, [D] DATETIME, [S] TEXT)").ok());
  ASSERT_TRUE(cn_.Exec("INSERT INTO [T] VALUES (10, {ts '2024-02-29 13:45:30'}, 'x')").ok());
  ASSERT_TRUE(cn_.Exec("INSERT INTO [T] VALUES (0.25, {d '2024-03-01'}, 'y')").ok());
  // SELECT * runs through the dialect's executor; its columns are typed all the same.
  Fetch("SELECT * FROM [T$]");
  const SQLSMALLINT want[] = {SQL_DOUBLE, SQL_TYPE_TIMESTAMP, SQL_VARCHAR};
  const char* names[] = {"DOUBLE", "TIMESTAMP", "VARCHAR"};
  for (SQLUSMALLINT i = 1; i <= 3; ++i) {
    SQLSMALLINT type = 0, digits = -1, nullable = 0;
    SQLULEN size = 0;
    EXPECT_EQ(SQLDescribeCol(st_, i, nullptr, 0, nullptr, &type, &size, &digits, &nullable),
              SQL_SUCCESS);
    EXPECT_EQ(type, want[i - 1]);
    char typeName[32] = "";
    SQLLEN concise = 0, verbose = 0;
    SQLColAttribute(st_, i, SQL_DESC_TYPE_NAME, typeName, sizeof typeName, nullptr, nullptr);
    SQLColAttribute(st_, i, SQL_DESC_CONCISE_TYPE, nullptr, 0, nullptr, &concise);
    SQLColAttribute(st_, i, SQL_DESC_TYPE, nullptr, 0, nullptr, &verbose);
    EXPECT_STREQ(typeName, names[i - 1]);
    EXPECT_EQ(concise, want[i - 1]);
    EXPECT_EQ(verbose, i == 2 ? SQL_DATETIME : want[i - 1]);
  }
  char text[32];
  SQLLEN ind;
  ASSERT_EQ(SQLGetData(st_, 1, SQL_C_CHAR, text, sizeof text, &ind), SQL_SUCCESS);
  EXPECT_STREQ(text, "10");
  ASSERT_EQ(SQLGetData(st_, 2, SQL_C_CHAR, text, sizeof text, &ind), SQL_SUCCESS);
  EXPECT_STREQ(text, "2024-02-29 13:45:30");
  // Bound columns convert the same way, row by row.
  SQLFreeStmt(st_, SQL_CLOSE);
  double n = 0;
  SQL_TIMESTAMP_STRUCT ts{};
  SQLLEN nInd = 0, tsInd = 0;
  SQLBindCol(st_, 1, SQL_C_DOUBLE, &n, 0, &nInd);
  SQLBindCol(st_, 2, SQL_C_TYPE_TIMESTAMP, &ts, 0, &tsInd);
  ASSERT_EQ(SQLExecDirect(st_, (SQLCHAR*)"SELECT N, D FROM [T$] WHERE S = 'y'", SQL_NTS),
            SQL_SUCCESS);
  ASSERT_EQ(SQLFetch(st_), SQL_SUCCESS);
  EXPECT_EQ(n, 0.25);
  EXPECT_EQ(nInd, static_cast<SQLLEN>(sizeof(double)));
  EXPECT_EQ(ts.year * 10000 + ts.month * 100 + ts.day, 20240301);
  SQLFreeStmt(st_, SQL_UNBIND);
}

TEST_F(TypedApiTest, TypeInfoListsEveryTypeInOrderAndCreateTableTakesEach) {
  ASSERT_EQ(SQLGetTypeInfo(st_, SQL_ALL_TYPES), SQL_SUCCESS);
  SQLSMALLINT columns = 0;
  SQLNumResultCols(st_, &columns);
  EXPECT_EQ(columns, 19);
  std::vector<std::pair<std::string, int>> types;
  while (SQLFetch(st_) == SQL_SUCCESS) {
    char name[64];
    SQLINTEGER type = 0;
    SQLLEN ind;
    SQLGetData(st_, 1, SQL_C_CHAR, name, sizeof name, &ind);
    SQLGetData(st_, 2, SQL_C_SLONG, &type, 0, &ind);
    types.emplace_back(name, type);
  }
  ASSERT_GE(types.size(), 5u);
  for (std::size_t i = 1; i < types.size(); ++i) EXPECT_LE(types[i - 1].second, types[i].second);
  for (int reported : {SQL_DOUBLE, SQL_TYPE_TIMESTAMP, SQL_BIT, SQL_VARCHAR, SQL_LONGVARCHAR,
                       SQL_INTEGER, SQL_BIGINT}) {
    EXPECT_TRUE(std::any_of(types.begin(), types.end(), [&](const auto& t) {
      return t.second == reported;
    })) << reported;
  }
  int n = 0;
  for (const auto& [name, type] : types) {
    std::string sql = "CREATE TABLE [C" + std::to_string(n++) + "] (a " + name + " NOT NULL)";
    EXPECT_TRUE(cn_.Exec(sql).ok()) << sql;
  }
  // One type asked for: its row only; a type the driver lacks: none.
  SQLFreeStmt(st_, SQL_CLOSE);
  ASSERT_EQ(SQLGetTypeInfo(st_, SQL_TYPE_TIMESTAMP), SQL_SUCCESS);
  EXPECT_EQ(SQLFetch(st_), SQL_SUCCESS);
  EXPECT_EQ(SQLFetch(st_), SQL_NO_DATA);
  SQLFreeStmt(st_, SQL_CLOSE);
  ASSERT_EQ(SQLGetTypeInfo(st_, SQL_GUID), SQL_SUCCESS);
  EXPECT_EQ(SQLFetch(st_), SQL_NO_DATA);
}

TEST_F(TypedApiTest, DateParametersStoreDateCellsAndCompareAsDates) {
  ASSERT_TRUE(cn_.Exec("CREATE TABLE [P] ([Name] TEXT, [Day] DATE)").ok());
  SQL_DATE_STRUCT day{2025, 5, 1};
  SQLLEN dayInd = sizeof day;
  char name[] = "Ed";
  SQLLEN nameInd = SQL_NTS;
  ASSERT_EQ(SQLPrepare(st_, (SQLCHAR*)"INSERT INTO [P] VALUES (?, ?)", SQL_NTS), SQL_SUCCESS);
  SQLBindParameter(st_, 1, SQL_PARAM_INPUT, SQL_C_CHAR, SQL_VARCHAR, 255, 0, name, 0, &nameInd);
  SQLBindParameter(st_, 2, SQL_PARAM_INPUT, SQL_C_TYPE_DATE, SQL_TYPE_DATE, 10, 0, &day, 0,
                   &dayInd);
  ASSERT_EQ(SQLExecute(st_), SQL_SUCCESS) << DiagOf(SQL_HANDLE_STMT, st_, SQL_ERROR).message;
  SQLFreeStmt(st_, SQL_RESET_PARAMS);
  // The text form of a timestamp finds the date cell; the column now reports TIMESTAMP.
  char when[] = "2025-05-01 00:00:00";
  SQLLEN whenInd = SQL_NTS;
  ASSERT_EQ(SQLPrepare(st_, (SQLCHAR*)"SELECT [Name], [Day] FROM [P] WHERE [Day] = ?", SQL_NTS),
            SQL_SUCCESS);
  SQLBindParameter(st_, 1, SQL_PARAM_INPUT, SQL_C_CHAR, SQL_TYPE_TIMESTAMP, 19, 0, when, 0,
                   &whenInd);
  ASSERT_EQ(SQLExecute(st_), SQL_SUCCESS) << DiagOf(SQL_HANDLE_STMT, st_, SQL_ERROR).message;
  ASSERT_EQ(SQLFetch(st_), SQL_SUCCESS);
  SQLSMALLINT type = 0;
  SQLDescribeCol(st_, 2, nullptr, 0, nullptr, &type, nullptr, nullptr, nullptr);
  EXPECT_EQ(type, SQL_TYPE_TIMESTAMP);
  char text[32];
  SQLLEN ind;
  ASSERT_EQ(SQLGetData(st_, 2, SQL_C_CHAR, text, sizeof text, &ind), SQL_SUCCESS);
  EXPECT_STREQ(text, "2025-05-01 00:00:00");
  SQLFreeStmt(st_, SQL_RESET_PARAMS);
}

TEST_F(TypedApiTest, EngineStatementsTakeArraysOfParametersAndReachTheFile) {
  ASSERT_TRUE(cn_.Exec("CREATE TABLE [A] ([K] NUMBER)").ok());
  SQLINTEGER keys[3] = {1, 2, 3};
  SQLLEN inds[3] = {0, 0, 0};
  SQLUSMALLINT status[3] = {9, 9, 9};
  SQLULEN processed = 0;
  SQLSetStmtAttr(st_, SQL_ATTR_PARAMSET_SIZE, (SQLPOINTER)3, 0);
  SQLSetStmtAttr(st_, SQL_ATTR_PARAM_STATUS_PTR, status, 0);
  SQLSetStmtAttr(st_, SQL_ATTR_PARAMS_PROCESSED_PTR, &processed, 0);
  // "? * 10" is beyond the dialect: the engine runs each set.
  ASSERT_EQ(SQLPrepare(st_, (SQLCHAR*)"INSERT INTO [A] (K) VALUES (? * 10)", SQL_NTS), SQL_SUCCESS);
  SQLSMALLINT params = 0;
  SQLNumParams(st_, &params);
  EXPECT_EQ(params, 1);
  SQLBindParameter(st_, 1, SQL_PARAM_INPUT, SQL_C_SLONG, SQL_INTEGER, 0, 0, keys, 0, inds);
  ASSERT_EQ(SQLExecute(st_), SQL_SUCCESS) << DiagOf(SQL_HANDLE_STMT, st_, SQL_ERROR).message;
  SQLLEN rows = 0;
  SQLRowCount(st_, &rows);
  EXPECT_EQ(rows, 3);
  EXPECT_EQ(processed, 3u);
  EXPECT_EQ(status[2], SQL_PARAM_SUCCESS);
  SQLSetStmtAttr(st_, SQL_ATTR_PARAMSET_SIZE, (SQLPOINTER)1, 0);
  SQLFreeStmt(st_, SQL_RESET_PARAMS);
  // A DELETE through the engine; then another connection reads the file.
  ASSERT_TRUE(cn_.Exec("DELETE FROM [A] WHERE K = 20", &rows).ok());
  EXPECT_EQ(rows, 1);
  Connection other;
  ASSERT_TRUE(other.Open(LibraryConnectionString(book_)).ok());
  EXPECT_EQ(other.Query("SELECT K FROM [A$] ORDER BY K"),
            (std::vector<std::vector<std::string>>{{"K"}, {"10"}, {"30"}}));
}

TEST_F(TypedApiTest, CreateTableIgnoresColumnConstraints) {
  ASSERT_TRUE(
      cn_.Exec("CREATE TABLE [K] ([Id] INTEGER NOT NULL PRIMARY KEY, [Note] VARCHAR(20) NULL)")
          .ok());
  EXPECT_EQ(cn_.Query("SELECT * FROM [K$]"),
            (std::vector<std::vector<std::string>>{{"Id", "Note"}}));
  // A name that holds the words stays whole.
  ASSERT_TRUE(cn_.Exec("CREATE TABLE [L] ([NOT NULL] INTEGER PRIMARY KEY)").ok());
  EXPECT_EQ(cn_.Query("SELECT * FROM [L$]"), (std::vector<std::vector<std::string>>{{"NOT NULL"}}));
}

TEST_F(TypedApiTest, ReadOnlyAccessModeRefusesChangesUntilCleared) {
  ASSERT_TRUE(cn_.Exec("CREATE TABLE [R] ([K] NUMBER)").ok());
  ASSERT_EQ(SQLSetConnectAttr(cn_.dbc(), SQL_ATTR_ACCESS_MODE, (SQLPOINTER)SQL_MODE_READ_ONLY, 0),
            SQL_SUCCESS);
  EXPECT_EQ(cn_.Exec("INSERT INTO [R] VALUES (1)").state, "HY000");
  EXPECT_EQ(cn_.Exec("DELETE FROM [R]").state, "HY000");
  EXPECT_TRUE(cn_.Exec("SELECT * FROM [R$]").ok());
  ASSERT_EQ(SQLSetConnectAttr(cn_.dbc(), SQL_ATTR_ACCESS_MODE, (SQLPOINTER)SQL_MODE_READ_WRITE, 0),
            SQL_SUCCESS);
  EXPECT_TRUE(cn_.Exec("INSERT INTO [R] VALUES (1)").ok());
}

}  // namespace
}  // namespace xlsodbc::test
