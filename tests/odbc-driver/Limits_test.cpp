// The limits of a workbook as a C client meets them through the driver manager: each is
// refused by the statement with its SQLSTATE, and what was accepted still saves, so the
// next read-write connection opens the workbook and reads it back.
#include <gtest/gtest.h>

#include <fstream>
#include <string>

#include "OdbcTestSupport.h"
#include "tests/support/TempDir.h"
#include "xls/Xls.h"

namespace xlsodbc::test {
namespace {

using Rows = std::vector<std::vector<std::string>>;

// The length in bytes of every value of a one-column query, read whole.
std::vector<long> Lengths(Connection& c, const std::string& sql) {
  std::vector<long> out;
  SQLHSTMT st;
  SQLAllocHandle(SQL_HANDLE_STMT, c.dbc(), &st);
  if (SQLExecDirect(st, (SQLCHAR*)sql.c_str(), SQL_NTS) == SQL_SUCCESS) {
    std::string buf(70000, '\0');
    SQLLEN ind;
    while (SQLFetch(st) == SQL_SUCCESS) {
      SQLGetData(st, 1, SQL_C_CHAR, &buf[0], static_cast<SQLLEN>(buf.size()), &ind);
      out.push_back(static_cast<long>(ind));
    }
  }
  SQLFreeHandle(SQL_HANDLE_STMT, st);
  return out;
}

TEST(LimitsTest, TextPastWhatACellHoldsIsRefusedAndTheWorkbookStillSaves) {
  TempDir dir;
  const std::string book = dir.file("text.xls");
  Connection c;
  ASSERT_TRUE(c.Open(LibraryConnectionString(book)).ok());
  ASSERT_TRUE(c.Exec("CREATE TABLE [T] ([k] char(255), [v] char(255))").ok());
  const std::string fits(32767, 'a'), over(32768, 'b');
  struct Step {
    std::string sql;
    const char* state;
  } steps[] = {
      {"INSERT INTO [T] VALUES ('1', '" + fits + "')", ""},
      {"INSERT INTO [T] VALUES ('2', '" + over + "')", "22001"},
      {"UPDATE [T] SET [v]='" + over + "' WHERE [k]='1'", "22001"},
      {"CREATE TABLE [U] ([" + over + "] char(255))", "22001"},
  };
  for (const Step& s : steps) {
    Diag d = c.Exec(s.sql);
    EXPECT_EQ(d.state, s.state) << s.sql.substr(0, 40) << ": " << d.message;
  }
  // The same through a bound parameter, 32,767 then 32,768 characters.
  SQLHSTMT st;
  ASSERT_EQ(SQLAllocHandle(SQL_HANDLE_STMT, c.dbc(), &st), SQL_SUCCESS);
  ASSERT_EQ(SQLPrepare(st, (SQLCHAR*)"INSERT INTO [T] VALUES ('3', ?)", SQL_NTS), SQL_SUCCESS);
  std::string value = over;
  SQLLEN length = 32767;
  ASSERT_EQ(SQLBindParameter(st, 1, SQL_PARAM_INPUT, SQL_C_CHAR, SQL_LONGVARCHAR, 40000, 0,
                             &value[0], static_cast<SQLLEN>(value.size()), &length),
            SQL_SUCCESS);
  EXPECT_EQ(SQLExecute(st), SQL_SUCCESS) << DiagOf(SQL_HANDLE_STMT, st, SQL_ERROR).message;
  length = 32768;
  SQLRETURN ret = SQLExecute(st);
  EXPECT_EQ(ret, SQL_ERROR);
  Diag refused = DiagOf(SQL_HANDLE_STMT, st, ret);
  EXPECT_EQ(refused.state, "22001");
  EXPECT_NE(refused.message.find("32,767"), std::string::npos) << refused.message;
  SQLFreeHandle(SQL_HANDLE_STMT, st);
  c.Close();

  // A new read-write connection opens the saved workbook and can change it.
  Connection again;
  Diag opened = again.Open(LibraryConnectionString(book));
  ASSERT_TRUE(opened.ok()) << opened.message;
  EXPECT_EQ(Lengths(again, "SELECT [v] FROM [T]"), (std::vector<long>{32767, 32767}));
  EXPECT_TRUE(again.Exec("INSERT INTO [T] VALUES ('4', 'x')").ok());
}

// A journal as a driver that accepted any text left it (format in odbc-driver/Journal.h):
// the header naming the workbook's bytes, then one record a statement, without parameters.
std::string JournalFor(const std::string& workbookBytes, const std::vector<std::string>& sqls) {
  auto put = [](std::string* out, std::uint64_t v, int bytes) {
    for (int i = 0; i < bytes; ++i) out->push_back(static_cast<char>(v >> (8 * i)));
  };
  std::uint64_t h64 = 14695981039346656037ull;  // FNV-1a
  for (unsigned char c : workbookBytes) h64 = (h64 ^ c) * 1099511628211ull;
  std::string out = "XLSJRNL1";
  put(&out, workbookBytes.size(), 8);
  put(&out, h64, 8);
  for (const std::string& sql : sqls) {
    std::string payload(1, '\1');  // FIRSTROWHASNAMES=1
    put(&payload, sql.size(), 4);
    payload += sql;
    put(&payload, 0, 4);  // no parameters
    std::uint32_t h32 = 2166136261u;
    for (unsigned char c : payload) h32 = (h32 ^ c) * 16777619u;
    put(&out, payload.size(), 4);
    put(&out, h32, 4);
    out += payload;
  }
  return out;
}

// A workbook an earlier driver left unsavable: its journal holds an INSERT of 40,000
// characters, which every connection replayed and then failed to fold. Now the replay
// refuses that statement alone and the next connection folds the rest.
TEST(LimitsTest, AJournalHoldingTooLongTextNoLongerLocksTheWorkbookOut) {
  TempDir dir;
  const std::string book = dir.file("stuck.xls");
  xls::Workbook wb;
  xls::Sheet& s = wb.addSheet("T");
  s.set(0, 0, xls::Cell::Text("k"));
  ASSERT_TRUE(xls::WriteWorkbook(book, wb).ok());
  testing_support::WriteFile(
      book + "-journal",
      JournalFor(testing_support::ReadFile(book),
                 {"INSERT INTO [T] VALUES (before)",
                  "INSERT INTO [T] VALUES ('" + std::string(40000, 'x') + "')",
                  "INSERT INTO [T] VALUES (after)"}));
  {
    Connection c;
    Diag opened = c.Open(LibraryConnectionString(book));
    ASSERT_TRUE(opened.ok()) << opened.message;
    EXPECT_EQ(c.Query("SELECT * FROM [T]"), (Rows{{"k"}, {"before"}, {"after"}}));
    EXPECT_TRUE(c.Exec("INSERT INTO [T] VALUES (new)").ok());
  }
  EXPECT_FALSE(std::ifstream(book + "-journal").good());  // folded and removed
  xls::Workbook saved;
  ASSERT_TRUE(xls::ReadWorkbook(book, &saved).ok());
  EXPECT_EQ(saved.sheets()[0].usedRows(), 4);
}

// A workbook made by the codec with rows 1 to 65,535 taken: row 65,536 takes one more
// record, the next is refused as a full table (HY000), not as a column-count mismatch.
TEST(LimitsTest, TheLastRowIsTakenThenTheTableIsFull) {
  TempDir dir;
  const std::string book = dir.file("full.xls");
  xls::Workbook wb;
  xls::Sheet& s = wb.addSheet("Full");
  s.set(0, 0, xls::Cell::Text("n"));
  for (int r = 1; r < xls::kMaxRows - 1; ++r) s.set(r, 0, xls::Cell::Number(r));
  ASSERT_TRUE(xls::WriteWorkbook(book, wb).ok());

  Connection c;
  ASSERT_TRUE(c.Open(LibraryConnectionString(book)).ok());
  EXPECT_TRUE(c.Exec("INSERT INTO [Full] VALUES (last)").ok());
  Diag full = c.Exec("INSERT INTO [Full] VALUES (more)");
  EXPECT_EQ(full.state, "HY000");
  EXPECT_NE(full.message.find("is full"), std::string::npos) << full.message;
  EXPECT_EQ(c.Query("SELECT [n] FROM [Full] WHERE [n] = 'last' OR [n] = 65534"),
            (Rows{{"n"}, {"65534"}, {"last"}}));
}

TEST(LimitsTest, TablesPastColumnIVAreRefused) {
  TempDir dir;
  Connection c;
  ASSERT_TRUE(c.Open(LibraryConnectionString(dir.file("wide.xls"))).ok());
  std::string create = "CREATE TABLE [Wide] ([c0] char(255)";
  for (int i = 1; i < 257; ++i) create += ", [c" + std::to_string(i) + "] char(255)";
  create += ")";
  struct Step {
    std::string sql;
    const char* state;
  } steps[] = {
      {create, "54011"},
      {"CREATE TABLE [Wide$IV1] ([a] char(255), [b] char(255))", "54011"},
      {"CREATE TABLE [Wide$IW1:IX9] ([a] char(255))", "54011"},
      {"CREATE TABLE [Wide$IU1:IV1] ([a] char(255), [b] char(255))", ""},
      {"INSERT INTO [Wide$IU1:IW1] VALUES (1, 2)", "54011"},
      {"INSERT INTO [Wide$IU1:IV1] VALUES (1, 2)", ""},
  };
  for (const Step& s : steps) {
    Diag d = c.Exec(s.sql);
    EXPECT_EQ(d.state, s.state) << s.sql.substr(0, 60) << ": " << d.message;
  }
  EXPECT_EQ(c.Query("SELECT * FROM [Wide$IU1:IV9]"), (Rows{{"a", "b"}, {"1", "2"}}));
}

// A code generator's 60,000-term OR gives its rows; nesting past the limit is a clear
// 54001. Neither may crash the client.
TEST(LimitsTest, LongConditionsRunAndDeepOnesAreTooComplex) {
  TempDir dir;
  Connection c;
  ASSERT_TRUE(c.Open(LibraryConnectionString(dir.file("or.xls"))).ok());
  ASSERT_TRUE(c.Exec("CREATE TABLE [S] ([a] char(255))").ok());
  ASSERT_TRUE(c.Exec("INSERT INTO [S] VALUES (7)").ok());
  ASSERT_TRUE(c.Exec("INSERT INTO [S] VALUES (59999)").ok());
  ASSERT_TRUE(c.Exec("INSERT INTO [S] VALUES (60000)").ok());
  std::string sql = "SELECT [a] FROM [S] WHERE a = 0";
  for (int i = 1; i < 60000; ++i) sql += " OR a = " + std::to_string(i);
  Diag diag;
  EXPECT_EQ(c.Query(sql, &diag), (Rows{{"a"}, {"7"}, {"59999"}}));
  EXPECT_TRUE(diag.ok()) << diag.message;

  const std::string deep =
      "SELECT [a] FROM [S] WHERE " + std::string(5000, '(') + "a = 7" + std::string(5000, ')');
  Diag tooDeep = c.Exec(deep);
  EXPECT_EQ(tooDeep.state, "54001");
  EXPECT_NE(tooDeep.message.find("nests"), std::string::npos) << tooDeep.message;
}

}  // namespace
}  // namespace xlsodbc::test
