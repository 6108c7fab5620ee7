// Arrays of parameters and block fetches as C clients bind them, through the driver
// manager: row-wise and column-wise, at an offset from the bound addresses, with status
// arrays; and the attribute values the driver refuses rather than ignores.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>

#include "OdbcTestSupport.h"

namespace xlsodbc::test {
namespace {

using Rows = std::vector<std::vector<std::string>>;

SQLPOINTER Value(SQLULEN v) { return reinterpret_cast<SQLPOINTER>(static_cast<std::uintptr_t>(v)); }

class BindingTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(c.Open(LibraryConnectionString(dir.file("b.xls"))).ok());
    ASSERT_TRUE(c.Exec("CREATE TABLE [T] ([name] char(255), [qty] char(255))").ok());
    ASSERT_EQ(SQLAllocHandle(SQL_HANDLE_STMT, c.dbc(), &st), SQL_SUCCESS);
  }
  void TearDown() override { SQLFreeHandle(SQL_HANDLE_STMT, st); }
  Diag Last(SQLRETURN ret) { return DiagOf(SQL_HANDLE_STMT, st, ret); }

  TempDir dir;
  Connection c;
  SQLHSTMT st = SQL_NULL_HSTMT;
};

// Row-wise, the way pyodbc's fast_executemany binds: addresses relative to a made-up base,
// the real one added through SQL_ATTR_PARAM_BIND_OFFSET_PTR.
TEST_F(BindingTest, RowWiseParameterArrayAtAnOffset) {
  struct Row {
    char name[12];
    SQLLEN nameLen;
    SQLINTEGER qty;
    SQLLEN qtyLen;
  } rows[4] = {{"one", SQL_NTS, 1, 0},
               {"two!", 3, 2, 0},  // the length wins over the NUL: "two"
               {"", SQL_NULL_DATA, 3, 0},
               {"four", SQL_NTS, 0, SQL_NULL_DATA}};
  const std::uintptr_t fakeBase = 16;
  SQLULEN offset = reinterpret_cast<std::uintptr_t>(&rows[0]) - fakeBase;
  auto at = [&](std::size_t field) { return Value(fakeBase + field); };
  SQLUSMALLINT status[4] = {9, 9, 9, 9};
  SQLULEN processed = 0;
  ASSERT_EQ(SQLPrepare(st, (SQLCHAR*)"INSERT INTO [T] VALUES (?, ?)", SQL_NTS), SQL_SUCCESS);
  SQLSetStmtAttr(st, SQL_ATTR_PARAM_BIND_TYPE, Value(sizeof(Row)), 0);
  SQLSetStmtAttr(st, SQL_ATTR_PARAMSET_SIZE, Value(4), 0);
  SQLSetStmtAttr(st, SQL_ATTR_PARAM_BIND_OFFSET_PTR, &offset, 0);
  SQLSetStmtAttr(st, SQL_ATTR_PARAM_STATUS_PTR, status, 0);
  SQLSetStmtAttr(st, SQL_ATTR_PARAMS_PROCESSED_PTR, &processed, 0);
  SQLBindParameter(st, 1, SQL_PARAM_INPUT, SQL_C_CHAR, SQL_VARCHAR, 255, 0, at(offsetof(Row, name)),
                   sizeof rows[0].name, static_cast<SQLLEN*>(at(offsetof(Row, nameLen))));
  SQLBindParameter(st, 2, SQL_PARAM_INPUT, SQL_C_SLONG, SQL_INTEGER, 0, 0, at(offsetof(Row, qty)),
                   0, static_cast<SQLLEN*>(at(offsetof(Row, qtyLen))));
  ASSERT_EQ(SQLExecute(st), SQL_SUCCESS) << Last(SQL_ERROR).message;
  EXPECT_EQ(processed, 4u);
  for (SQLUSMALLINT s : status) EXPECT_EQ(s, SQL_PARAM_SUCCESS);
  SQLLEN count = 0;
  SQLRowCount(st, &count);
  EXPECT_EQ(count, 4);
  EXPECT_EQ(c.Query("SELECT * FROM [T]"),
            (Rows{{"name", "qty"}, {"one", "1"}, {"two", "2"}, {"NULL", "3"}, {"four", "NULL"}}));
}

// Column-wise: text elements are the buffer length apart, numbers their size. A set whose
// value cannot be read stops the array there: the sets before it are saved, it is an
// error, the rest never run.
TEST_F(BindingTest, ColumnWiseArrayStopsAtTheFailingSet) {
  char names[4][6] = {"a", "bb", "ccc", "dddd"};
  SQLLEN nameLen[4] = {SQL_NTS, SQL_NTS, SQL_NTS, SQL_NTS};
  double qty[4] = {0.5, 1.5, 2.5, 3.5};
  SQLUSMALLINT status[4];
  SQLULEN processed = 0;
  ASSERT_EQ(SQLPrepare(st, (SQLCHAR*)"INSERT INTO [T] VALUES (?, ?)", SQL_NTS), SQL_SUCCESS);
  SQLSetStmtAttr(st, SQL_ATTR_PARAMSET_SIZE, Value(4), 0);
  SQLSetStmtAttr(st, SQL_ATTR_PARAM_STATUS_PTR, status, 0);
  SQLSetStmtAttr(st, SQL_ATTR_PARAMS_PROCESSED_PTR, &processed, 0);
  SQLBindParameter(st, 1, SQL_PARAM_INPUT, SQL_C_CHAR, SQL_VARCHAR, 255, 0, names, 6, nameLen);
  SQLBindParameter(st, 2, SQL_PARAM_INPUT, SQL_C_DOUBLE, SQL_DOUBLE, 0, 0, qty, 0, nullptr);
  ASSERT_EQ(SQLExecute(st), SQL_SUCCESS);
  EXPECT_EQ(c.Query("SELECT * FROM [T] WHERE qty > 1"),
            (Rows{{"name", "qty"}, {"bb", "1.5"}, {"ccc", "2.5"}, {"dddd", "3.5"}}));

  struct Case {
    SQLLEN badLength;
    const char* state;
  } cases[] = {{SQL_DATA_AT_EXEC, "HYC00"}, {SQL_LEN_DATA_AT_EXEC(10), "HYC00"}, {-7, "HY090"}};
  for (const Case& k : cases) {
    ASSERT_TRUE(c.Exec("DROP TABLE [T]").ok());
    ASSERT_TRUE(c.Exec("CREATE TABLE [T] ([name] char(255), [qty] char(255))").ok());
    nameLen[2] = k.badLength;
    SQLRETURN ret = SQLExecute(st);
    Diag d = Last(ret);
    EXPECT_EQ(ret, SQL_ERROR) << k.badLength;
    EXPECT_EQ(d.state, k.state) << k.badLength;
    EXPECT_NE(d.message.find("Parameter set 3"), std::string::npos) << d.message;
    EXPECT_EQ(processed, 3u);
    EXPECT_EQ(status[0], SQL_PARAM_SUCCESS);
    EXPECT_EQ(status[1], SQL_PARAM_SUCCESS);
    EXPECT_EQ(status[2], SQL_PARAM_ERROR);
    EXPECT_EQ(status[3], SQL_PARAM_UNUSED);
    EXPECT_EQ(c.Query("SELECT [name] FROM [T]"), (Rows{{"name"}, {"a"}, {"bb"}}));
  }
}

// Rows in blocks: row-wise at an offset, then column-wise, with the rows-fetched count and
// row status array; the last block is short.
TEST_F(BindingTest, BlockFetchFillsBoundArrays) {
  for (int i = 1; i <= 5; ++i) {
    ASSERT_TRUE(c.Exec("INSERT INTO [T] VALUES ('n" + std::to_string(i) + "', " +
                       std::to_string(i * 10) + ")")
                    .ok());
  }
  struct Row {
    SQLINTEGER qty;
    SQLLEN qtyLen;
    char name[8];
    SQLLEN nameLen;
  } rows[2][3];  // the rowset goes to rows[1]: through the offset
  std::memset(rows, 0, sizeof rows);
  SQLULEN offset = sizeof rows[0];
  SQLULEN fetched = 0;
  SQLUSMALLINT status[4];  // room for the second rowset size
  SQLSetStmtAttr(st, SQL_ATTR_ROW_BIND_TYPE, Value(sizeof(Row)), 0);
  SQLSetStmtAttr(st, SQL_ATTR_ROW_ARRAY_SIZE, Value(3), 0);
  SQLSetStmtAttr(st, SQL_ATTR_ROW_BIND_OFFSET_PTR, &offset, 0);
  SQLSetStmtAttr(st, SQL_ATTR_ROWS_FETCHED_PTR, &fetched, 0);
  SQLSetStmtAttr(st, SQL_ATTR_ROW_STATUS_PTR, status, 0);
  ASSERT_EQ(SQLExecDirect(st, (SQLCHAR*)"SELECT [name], [qty] FROM [T]", SQL_NTS), SQL_SUCCESS);
  SQLBindCol(st, 1, SQL_C_CHAR, rows[0][0].name, sizeof rows[0][0].name, &rows[0][0].nameLen);
  SQLBindCol(st, 2, SQL_C_SLONG, &rows[0][0].qty, 0, &rows[0][0].qtyLen);
  ASSERT_EQ(SQLFetch(st), SQL_SUCCESS);
  EXPECT_EQ(fetched, 3u);
  EXPECT_STREQ(rows[1][0].name, "n1");
  EXPECT_STREQ(rows[1][2].name, "n3");
  EXPECT_EQ(rows[1][2].nameLen, 2);
  EXPECT_EQ(rows[1][2].qty, 30);
  EXPECT_EQ(rows[0][0].qty, 0);  // nothing written at the bound addresses themselves
  // SQLGetData reads one row at a time.
  char one[8];
  EXPECT_EQ(SQLGetData(st, 1, SQL_C_CHAR, one, sizeof one, nullptr), SQL_ERROR);
  EXPECT_EQ(Last(SQL_ERROR).state, "HYC00");
  ASSERT_EQ(SQLFetchScroll(st, SQL_FETCH_NEXT, 0), SQL_SUCCESS);
  EXPECT_EQ(fetched, 2u);
  EXPECT_STREQ(rows[1][1].name, "n5");
  EXPECT_EQ(rows[1][1].qty, 50);
  EXPECT_EQ(status[0], SQL_ROW_SUCCESS);
  EXPECT_EQ(status[2], SQL_ROW_NOROW);
  EXPECT_EQ(SQLFetch(st), SQL_NO_DATA);
  EXPECT_EQ(fetched, 0u);
  SQLFreeStmt(st, SQL_CLOSE);
  SQLFreeStmt(st, SQL_UNBIND);

  char names[4][8];
  SQLLEN nameLen[4];
  SQLSetStmtAttr(st, SQL_ATTR_ROW_BIND_TYPE, Value(SQL_BIND_BY_COLUMN), 0);
  SQLSetStmtAttr(st, SQL_ATTR_ROW_BIND_OFFSET_PTR, nullptr, 0);
  SQLSetStmtAttr(st, SQL_ATTR_ROW_ARRAY_SIZE, Value(4), 0);
  ASSERT_EQ(SQLExecDirect(st, (SQLCHAR*)"SELECT [name] FROM [T]", SQL_NTS), SQL_SUCCESS);
  SQLBindCol(st, 1, SQL_C_CHAR, names, sizeof names[0], nameLen);
  ASSERT_EQ(SQLFetch(st), SQL_SUCCESS);
  EXPECT_EQ(fetched, 4u);
  EXPECT_STREQ(names[3], "n4");
  EXPECT_EQ(nameLen[3], 2);
}

// Attributes: what is honoured reads back as set; a value the driver cannot honour is
// refused (HYC00) or replaced where ODBC allows (01S02, the replacement reads back).
TEST_F(BindingTest, AttributeValuesAreHonouredOrRefused) {
  SQLULEN offset = 0;
  struct Case {
    SQLINTEGER attr;
    SQLULEN value;
    const char* state;  // "" for success
    SQLULEN readBack;
  } cases[] = {
      {SQL_ATTR_PARAMSET_SIZE, 100, "", 100},
      {SQL_ATTR_ROW_ARRAY_SIZE, 7, "", 7},
      {SQL_ATTR_PARAM_BIND_TYPE, 48, "", 48},
      {SQL_ATTR_ROW_BIND_TYPE, 24, "", 24},
      {SQL_ATTR_ROW_BIND_OFFSET_PTR, reinterpret_cast<std::uintptr_t>(&offset), "",
       reinterpret_cast<std::uintptr_t>(&offset)},
      {SQL_ATTR_PARAMSET_SIZE, 0, "HY024", 100},
      {SQL_ATTR_ASYNC_ENABLE, SQL_ASYNC_ENABLE_ON, "HYC00", SQL_ASYNC_ENABLE_OFF},
      {SQL_ATTR_USE_BOOKMARKS, SQL_UB_VARIABLE, "HYC00", SQL_UB_OFF},
      {SQL_ATTR_CURSOR_SCROLLABLE, SQL_SCROLLABLE, "HYC00", SQL_NONSCROLLABLE},
      {SQL_ATTR_RETRIEVE_DATA, SQL_RD_OFF, "HYC00", SQL_RD_ON},
      {SQL_ATTR_ENABLE_AUTO_IPD, SQL_TRUE, "HYC00", SQL_FALSE},
      {SQL_ATTR_QUERY_TIMEOUT, 30, "01S02", 0},
      {SQL_ATTR_CURSOR_TYPE, SQL_CURSOR_STATIC, "01S02", SQL_CURSOR_FORWARD_ONLY},
  };
  for (const Case& k : cases) {
    SQLRETURN ret = SQLSetStmtAttr(st, k.attr, Value(k.value), 0);
    EXPECT_EQ(Last(ret).state, k.state) << k.attr;
    SQLULEN got = 12345;
    EXPECT_EQ(SQLGetStmtAttr(st, k.attr, &got, 0, nullptr), SQL_SUCCESS) << k.attr;
    EXPECT_EQ(got, k.readBack) << k.attr;
  }
  EXPECT_EQ(Last(SQLSetStmtAttr(st, 4242, Value(1), 0)).state, "HY092");
  struct {
    SQLINTEGER attr;
    SQLULEN value;
    const char* state;
  } connection[] = {
      {SQL_ATTR_LOGIN_TIMEOUT, 5, "01S02"},
      {SQL_ATTR_METADATA_ID, SQL_TRUE, "HYC00"},
      {4242, 1, "HY092"},
  };
  for (const auto& k : connection) {
    SQLRETURN ret = SQLSetConnectAttr(c.dbc(), k.attr, Value(k.value), 0);
    EXPECT_EQ(DiagOf(SQL_HANDLE_DBC, c.dbc(), ret).state, k.state) << k.attr;
  }
  // A SELECT runs with one parameter set.
  SQLSetStmtAttr(st, SQL_ATTR_PARAMSET_SIZE, Value(2), 0);
  char v[] = "x";
  SQLBindParameter(st, 1, SQL_PARAM_INPUT, SQL_C_CHAR, SQL_VARCHAR, 255, 0, v, 2, nullptr);
  SQLRETURN ret = SQLExecDirect(st, (SQLCHAR*)"SELECT * FROM [T] WHERE [name] = ?", SQL_NTS);
  EXPECT_EQ(Last(ret).state, "HYC00");
  // A parameter with neither value nor indicator, a negative length.
  EXPECT_EQ(Last(SQLBindParameter(st, 1, SQL_PARAM_INPUT, SQL_C_CHAR, SQL_VARCHAR, 255, 0, nullptr,
                                  0, nullptr))
                .state,
            "HY009");
  EXPECT_EQ(Last(SQLBindCol(st, 1, SQL_C_CHAR, v, -1, nullptr)).state, "HY090");
}

// The driver manager keeps environment attributes to itself; the driver's own answers are
// reached by loading it directly. Pooling is the manager's: the driver says it has none.
TEST(DriverEnvironmentTest, PoolingValuesAreReplacedNotStored) {
  void* lib = dlopen(XLSODBC_DRIVER_PATH, RTLD_NOW | RTLD_LOCAL);
  ASSERT_NE(lib, nullptr) << dlerror();
  using AllocFn = SQLRETURN (*)(SQLSMALLINT, SQLHANDLE, SQLHANDLE*);
  using FreeFn = SQLRETURN (*)(SQLSMALLINT, SQLHANDLE);
  using SetFn = SQLRETURN (*)(SQLHENV, SQLINTEGER, SQLPOINTER, SQLINTEGER);
  using GetFn = SQLRETURN (*)(SQLHENV, SQLINTEGER, SQLPOINTER, SQLINTEGER, SQLINTEGER*);
  auto alloc = reinterpret_cast<AllocFn>(dlsym(lib, "SQLAllocHandle"));
  auto release = reinterpret_cast<FreeFn>(dlsym(lib, "SQLFreeHandle"));
  auto set = reinterpret_cast<SetFn>(dlsym(lib, "SQLSetEnvAttr"));
  auto get = reinterpret_cast<GetFn>(dlsym(lib, "SQLGetEnvAttr"));
  ASSERT_TRUE(alloc && release && set && get);
  SQLHANDLE env = nullptr;
  ASSERT_EQ(alloc(SQL_HANDLE_ENV, nullptr, &env), SQL_SUCCESS);
  EXPECT_EQ(set(env, SQL_ATTR_CONNECTION_POOLING, Value(SQL_CP_ONE_PER_HENV), 0),
            SQL_SUCCESS_WITH_INFO);
  SQLUINTEGER pooling = 99;
  EXPECT_EQ(get(env, SQL_ATTR_CONNECTION_POOLING, &pooling, 0, nullptr), SQL_SUCCESS);
  EXPECT_EQ(pooling, SQL_CP_OFF);
  release(SQL_HANDLE_ENV, env);
  dlclose(lib);
}

}  // namespace
}  // namespace xlsodbc::test
