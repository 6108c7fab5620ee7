// Excel mode through unixODBC with an independent peer: Debian's SQLite ODBC driver,
// registered under a description holding "Excel" so that the class finds it itself.
// SQLite takes the bracketed range names as plain table names, so a test sets up a
// "sheet" as the table the class's SELECT names ("Load$A1:IV65536") and can create the
// tables that the INSERT ranges name to see what each statement carried. The statements
// are checked byte for byte in unixODBC's own trace.
//
// POSIX only: they configure unixODBC directly (Wine's installer reads its registry).
#if !defined(_WIN32)
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/Database.h"
#include "platform/OdbcInstaller.h"
#include "spreadsheet/SpreadSheet.h"
#include "tests/platform/OdbcTestIni.h"
#include "tests/spreadsheet/excel/ExcelTestAccess.h"
#include "tests/support/TempDir.h"

namespace {

using Rows = std::vector<std::vector<std::string>>;
using Lines = std::vector<std::string>;

const char kPeer[] = "SQLite Excel Peer";
const char kDesired[] = "Desired row is greater than total number of rows in spreadsheet\n";

// The peer reads the database named by the data source "''" (the class's DSN=''), a
// row at a time (StepAPI), so that an error in a record surfaces while reading it.
odbc_test::Config& Odbc() {
  return odbc_test::Config::Install({{"SQLite3 Plain", odbc_test::SqliteDriverLibrary()},
                                     {kPeer, odbc_test::SqliteDriverLibrary()}},
                                    "['']\nDatabase = @DIR@/peer.db\nStepAPI = 1\n");
}

Lines ToLines(const CStringArray& a) {
  Lines out;
  for (const CString& s : a.items()) out.push_back(s.str());
  return out;
}

CStringArray Array(const Lines& values) {
  CStringArray a;
  for (const std::string& v : values) a.Add(v.c_str());
  return a;
}

class ExcelPeerTest : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_FALSE(odbc_test::SqliteDriverLibrary().empty()) << "libsqliteodbc is not installed";
    direct_.OpenEx((std::string("DRIVER={") + kPeer + "};Database=" + Odbc().dir() + "/peer.db").c_str());
    book_ = dir_.file("book.xls");
    mark_ = Odbc().TraceEnd();
  }

  void Sql(const std::string& statement) { direct_.ExecuteSQL(statement.c_str()); }
  // A table as the peer holds it; NULL reads as "".
  Rows Table(const std::string& name) {
    CRecordset rs(&direct_);
    rs.Open(CRecordset::forwardOnly, ("SELECT * FROM [" + name + "]").c_str(), CRecordset::readOnly);
    Rows out;
    for (; !rs.IsEOF(); rs.MoveNext()) {
      out.emplace_back();
      for (short i = 0; i < rs.GetODBCFieldCount(); ++i) {
        CString v;
        rs.GetFieldValue(i, v);
        out.back().push_back(v.str());
      }
    }
    return out;
  }
  // The statements the class sent since the last call (the test's own, made through
  // direct_, are left out by starting each check after them).
  Lines Sent() { return Odbc().StatementsSince(&mark_); }
  void Skip() { mark_ = Odbc().TraceEnd(); }

  CDatabase direct_;
  testing_support::TempDir dir_;
  std::string book_;
  std::size_t mark_ = 0;
};

TEST_F(ExcelPeerTest, FindsTheDriverAndBuildsTheConnectionString) {
  CSpreadSheet s(book_.c_str(), "Nothing", false);
  CSpreadSheetTestAccess a(s);
  EXPECT_EQ(a.excelDriver(), kPeer);
  EXPECT_EQ(a.connectString().str(), "DRIVER={SQLite Excel Peer};DSN='';FIRSTROWHASNAMES=1;READONLY=FALSE;CREATE_DB=\"" +
                                         book_ + "\";DBQ=" + book_);
  // A missing sheet: the query fails quietly, the constructor completes.
  EXPECT_EQ(Sent(), Lines{"SELECT * FROM [Nothing$A1:IV65536]"});
  EXPECT_EQ(s.GetLastError(), "");
  EXPECT_EQ(s.GetTotalRows(), 0);
  EXPECT_EQ(s.GetTotalColumns(), 0);
  EXPECT_FALSE(a.appendMode());
  EXPECT_FALSE(a.connected());
  EXPECT_TRUE(a.recordsetGone());
}

TEST_F(ExcelPeerTest, LoadsTheSheetAsQuotedRowLines) {
  Sql("CREATE TABLE [Load$A1:IV65536] ([Name] char(255), [Qty] char(255))");
  Sql("INSERT INTO [Load$A1:IV65536] VALUES ('apple', '3')");
  Sql("INSERT INTO [Load$A1:IV65536] VALUES ('pear', NULL)");
  Sql("INSERT INTO [Load$A1:IV65536] VALUES ('x,y', '')");
  Skip();

  CSpreadSheet s(book_.c_str(), "Load", true);
  CSpreadSheetTestAccess a(s);
  EXPECT_EQ(Sent(), Lines{"SELECT * FROM [Load$A1:IV65536]"}) << "the backup step writes nothing";
  EXPECT_EQ(ToLines(a.rowLines()), (Lines{"\"Name\",;.?\"Qty\"", "\"apple\",;.?\"3\"",
                                          "\"pear\",;.?\"\"", "\"x,y\",;.?\"\""}));
  EXPECT_EQ(a.rowLines()[0].GetLength(), 15);
  EXPECT_EQ(ToLines(a.fieldNames()), (Lines{"Name", "Qty"}));
  EXPECT_EQ(s.GetTotalRows(), 4);
  EXPECT_EQ(s.GetTotalColumns(), 2);
  EXPECT_EQ(s.GetCurrentRow(), 1);
  EXPECT_TRUE(s.GetBackupStatus());
  EXPECT_TRUE(a.appendMode());
  EXPECT_EQ(s.GetLastError(), "");
  EXPECT_FALSE(a.connected());
  CString cell;
  EXPECT_TRUE(s.ReadCell(cell, 1, 4));
  EXPECT_EQ(cell, "x,y") << "only the four characters together separate";
  EXPECT_TRUE(s.ReadCell(cell, "Qty", 2, false));
  EXPECT_EQ(cell, "3");

  // Each reload appends the names again and adds the rows to the count.
  EXPECT_TRUE(s.RollBack());
  EXPECT_TRUE(s.RollBack());
  EXPECT_EQ(ToLines(a.fieldNames()), (Lines{"Name", "Qty", "Name", "Qty", "Name", "Qty"}));
  EXPECT_EQ(s.GetTotalRows(), 12);
  EXPECT_EQ(a.rowLines().GetSize(), 4);
}

TEST_F(ExcelPeerTest, AFailedRecordKeepsTheLinesReadSoFar) {
  // The third record's Qty overflows when SQLite computes it.
  Sql("CREATE TABLE bad_source (a)");
  Sql("INSERT INTO bad_source VALUES (1), (2), (3), (4)");
  Sql("CREATE VIEW [Bad$A1:IV65536] AS SELECT a AS Name, "
      "CASE WHEN a = 3 THEN abs(-9223372036854775808) ELSE a END AS Qty FROM bad_source");
  CSpreadSheet s(book_.c_str(), "Bad", false);
  CSpreadSheetTestAccess a(s);
  EXPECT_EQ(s.GetLastError(), "Error reading row\n");
  EXPECT_EQ(ToLines(a.rowLines()), (Lines{"\"Name\",;.?\"Qty\"", "\"1\",;.?\"1\"", "\"2\",;.?\"2\""}));
  EXPECT_EQ(s.GetTotalRows(), 3) << "the error comes with the move to the third record";
  EXPECT_TRUE(a.appendMode());
  EXPECT_TRUE(a.recordsetGone());
  EXPECT_FALSE(a.connected());
  // RollBack meets the same failure and says so in its own words.
  EXPECT_FALSE(s.RollBack());
  EXPECT_EQ(s.GetLastError(), "Error in returning to previous state\n");
}

TEST_F(ExcelPeerTest, WholeSheetCommitNumbersRowsAsExistingWorkbooksExpect) {
  Sql("CREATE TABLE [Num$A1:IV65536] ([Name] char(255), [Qty] char(255))");
  for (const char* row : {"('r2', '2')", "('r3', '3')", "('r4', '4')"}) {
    Sql(std::string("INSERT INTO [Num$A1:IV65536] VALUES ") + row);
  }
  for (const char* range : {"Num$A4:X4", "Num$A5:X5", "Num$A6:X6"}) {
    Sql(std::string("CREATE TABLE [") + range + "] (a, b)");
  }
  CSpreadSheet s(book_.c_str(), "Num", false);
  CSpreadSheetTestAccess a(s);
  Skip();

  // The sheet was there when opened, so the CREATE names the range from row 4; the peer
  // takes that as a new table.
  EXPECT_TRUE(s.Commit());
  EXPECT_EQ(Sent(), (Lines{"CREATE TABLE [Num$A4:IV65536] ([Name] char(255), [Qty] char(255))",
                           "INSERT INTO [Num$A4:X4] VALUES ('r3', '3')",
                           "INSERT INTO [Num$A5:X5] VALUES ('r4', '4')",
                           "INSERT INTO [Num$A6:X6] VALUES ('r4', '4')"}));
  EXPECT_EQ(Table("Num$A4:X4"), (Rows{{"r3", "3"}}));
  EXPECT_EQ(Table("Num$A6:X6"), (Rows{{"r4", "4"}})) << "the last row twice";
  EXPECT_EQ(s.GetLastError(), kDesired);
  EXPECT_EQ(s.GetCurrentRow(), 5);
  EXPECT_TRUE(a.connected()) << "a successful commit leaves the connection open";

  // A rejected statement: the driver's text, the connection closed, the transaction kept.
  s.BeginTransaction();
  EXPECT_FALSE(s.Commit());
  EXPECT_NE(s.GetLastError().Find("Num$A4:IV65536"), -1) << s.GetLastError().str();
  EXPECT_EQ(s.GetLastError().Right(1), "\n");
  EXPECT_FALSE(a.connected());
  EXPECT_TRUE(s.GetTransactionStatus());
}

TEST_F(ExcelPeerTest, CommitOnAFreshSheetCreatesItByName) {
  Sql("CREATE TABLE [Fresh$A4:X4] (a, b)");
  Sql("CREATE TABLE [Fresh$A5:X5] (a, b)");
  CSpreadSheet s(book_.c_str(), "Fresh", false);
  CSpreadSheetTestAccess a(s);
  Skip();
  s.BeginTransaction();
  CStringArray header = Array({"Name", "Qty"});
  CStringArray r2 = Array({"abc", "10"});
  CStringArray r3 = Array({"O'Brien", "20"});
  EXPECT_TRUE(s.AddHeaders(header));
  EXPECT_TRUE(s.AddRow(r2));
  EXPECT_TRUE(s.AddRow(r3));
  EXPECT_EQ(Sent(), Lines{}) << "nothing is sent inside a transaction";

  // The unescaped quote makes the second INSERT invalid; the first went in.
  EXPECT_FALSE(s.Commit());
  EXPECT_EQ(Sent(), (Lines{"CREATE TABLE [Fresh] ([Name] char(255), [Qty] char(255))",
                           "INSERT INTO [Fresh$A4:X4] VALUES ('O'Brien', '20')"}));
  EXPECT_NE(s.GetLastError().Find("syntax error"), -1) << s.GetLastError().str();
  EXPECT_TRUE(a.appendMode());
  EXPECT_EQ(s.GetTotalColumns(), 2);
  EXPECT_EQ(Table("Fresh"), Rows{});
}

TEST_F(ExcelPeerTest, CommitWithoutFieldsSendsTheCutCreateAndFails) {
  CSpreadSheet s(book_.c_str(), "NoFields", false);
  CSpreadSheetTestAccess a(s);
  Skip();
  EXPECT_FALSE(s.Commit());
  EXPECT_EQ(Sent(), Lines{"CREATE TABLE [NoFields])"});
  EXPECT_NE(s.GetLastError().Find("syntax error"), -1) << s.GetLastError().str();
  EXPECT_FALSE(a.appendMode());
  EXPECT_FALSE(a.connected());
}

TEST_F(ExcelPeerTest, CommitOfTwoLinesWithNothingReadSendsTheCutInsert) {
  Sql("CREATE TABLE [Two$A1:IV65536] ([Name] char(255), [Qty] char(255))");
  Sql("INSERT INTO [Two$A1:IV65536] VALUES ('a', '1')");
  CSpreadSheet s(book_.c_str(), "Two", false);
  Skip();
  EXPECT_FALSE(s.Commit());
  EXPECT_EQ(Sent(), (Lines{"CREATE TABLE [Two$A4:IV65536] ([Name] char(255), [Qty] char(255))",
                           "INSERT INTO [Two$A4:X4] VALUES)"}));
  EXPECT_NE(s.GetLastError().Find("syntax error"), -1) << s.GetLastError().str();
}

TEST_F(ExcelPeerTest, SingleRowCommitCreatesAtThreeLinesAndInsertsUnquoted) {
  for (const char* range : {"Single$A2:IV1", "Single$A3:IV1", "Single$A4:IV1"}) {
    Sql(std::string("CREATE TABLE [") + range + "] (a, b)");
  }
  CSpreadSheet s(book_.c_str(), "Single", false);
  Skip();
  CStringArray header = Array({"Name", "Qty"});
  EXPECT_TRUE(s.AddHeaders(header));  // the whole-sheet Commit: the sheet by name
  EXPECT_EQ(Sent(), Lines{"CREATE TABLE [Single] ([Name] char(255), [Qty] char(255))"});

  CStringArray one = Array({"1", "10"});
  CStringArray word = Array({"abc", "20"});
  CStringArray three = Array({"3", "30"});
  EXPECT_TRUE(s.AddRow(one, 2));
  EXPECT_EQ(Sent(), Lines{"INSERT INTO [Single$A2:IV1] VALUES (1, 10)"});
  EXPECT_EQ(Table("Single$A2:IV1"), (Rows{{"1", "10"}}));
  Skip();

  // The third line: CREATE over the range from row 2, then the bare word abc, which the
  // peer takes for a column and rejects; AddRow still reports success.
  EXPECT_TRUE(s.AddRow(word, 3));
  EXPECT_EQ(Sent(), (Lines{"CREATE TABLE [Single$A2:IV65536] ([Name] char(255), [Qty] char(255))",
                           "INSERT INTO [Single$A3:IV1] VALUES (abc, 20)"}));
  EXPECT_EQ(s.GetLastError(), "[SQLite]no such column: abc (1)\n");

  // The fourth: only the INSERT, always of the last held line whatever the position.
  EXPECT_TRUE(s.AddRow(three, 2));
  EXPECT_EQ(Sent(), Lines{"INSERT INTO [Single$A4:IV1] VALUES (abc, 20)"});
  EXPECT_TRUE(s.AddRowData("\"9\",;.?\"90\"", 5));
  EXPECT_EQ(Sent(), Lines{"INSERT INTO [Single$A5:IV1] VALUES (9, 90)"});
}

TEST_F(ExcelPeerTest, ReplaceRowsSendsOneUpdateAndReloads) {
  Sql("CREATE TABLE [S] (K, L, M)");
  Sql("INSERT INTO [S] VALUES ('7', '8', '9')");
  Sql("CREATE TABLE [S$A1:IV65536] (K, L, M)");
  Sql("INSERT INTO [S$A1:IV65536] VALUES ('7', '8', '9')");
  CSpreadSheet s(book_.c_str(), "S", false);
  CSpreadSheetTestAccess a(s);
  Skip();

  CStringArray newRow = Array({"1", "2"});
  CStringArray oldRow = Array({"7", "8", "9"});
  EXPECT_TRUE(s.ReplaceRows(newRow, oldRow));
  EXPECT_EQ(Sent(), (Lines{"UPDATE [S] SET [K]='1', [L]='2' WHERE ([K]='7' AND [L]='8' )",
                           "SELECT * FROM [S$A1:IV65536]"}));
  EXPECT_EQ(Table("S"), (Rows{{"1", "2", "9"}}));
  Skip();
  EXPECT_EQ(s.GetTotalRows(), 4) << "the reload adds the rows again";
  EXPECT_EQ(a.fieldNames().GetSize(), 6);
  EXPECT_FALSE(a.connected());

  // One old value, or none: the cut leaves " WHE" and the driver refuses.
  for (const Lines& old : {Lines{"1"}, Lines{}}) {
    CStringArray one = Array(old);
    EXPECT_FALSE(s.ReplaceRows(newRow, one));
    EXPECT_EQ(Sent(), Lines{"UPDATE [S] SET [K]='1', [L]='2' WHE)"});
    EXPECT_NE(s.GetLastError().Find("syntax error"), -1) << s.GetLastError().str();
    EXPECT_FALSE(a.connected());
  }

  // More values than fields (six names now, after the reload): the array's index
  // check, raised to the caller.
  CStringArray wide = Array({"1", "2", "3", "4", "5", "6", "7"});
  bool raised = false;
  try {
    s.ReplaceRows(wide, oldRow);
  } catch (CInvalidArgException* e) {
    e->Delete();
    raised = true;
  }
  EXPECT_TRUE(raised);
}

TEST_F(ExcelPeerTest, DeleteSheetDropsTheNamedRangeAndClearsThisSheet) {
  Sql("CREATE TABLE [Del$A1:IV65536] ([Name] char(255), [Qty] char(255))");
  Sql("INSERT INTO [Del$A1:IV65536] VALUES ('a', '1')");
  Sql("CREATE TABLE [Other$A1:IV65536] (x)");
  CSpreadSheet s(book_.c_str(), "Del", false);
  CSpreadSheetTestAccess a(s);
  Skip();

  EXPECT_TRUE(s.DeleteSheet("Other"));
  EXPECT_EQ(Sent(), Lines{"DROP TABLE [Other$A1:IV65536]"});
  EXPECT_EQ(s.GetTotalRows(), 0);
  EXPECT_EQ(s.GetTotalColumns(), 0);
  EXPECT_EQ(a.rowLines().GetSize(), 0);
  EXPECT_EQ(a.fieldNames().GetSize(), 0);
  EXPECT_TRUE(a.appendMode());
  EXPECT_FALSE(a.connected());

  // The sheet itself, after a commit left the connection open. With two held lines the
  // commit's only pass reads past the end and inserts what the last read left.
  EXPECT_TRUE(s.RollBack());
  CString cell;
  EXPECT_TRUE(s.ReadCell(cell, 1, 2));  // fills the object's working row
  Sql("CREATE TABLE [Del$A4:X4] (a, b)");
  Skip();
  EXPECT_TRUE(s.Commit());
  EXPECT_TRUE(a.connected());
  EXPECT_TRUE(s.DeleteSheet());
  EXPECT_EQ(Sent(), (Lines{"CREATE TABLE [Del$A4:IV65536] ([Name] char(255), [Qty] char(255))",
                           "INSERT INTO [Del$A4:X4] VALUES ('a', '1')", "DROP TABLE [Del$A1:IV65536]"}));
  EXPECT_FALSE(a.connected());

  // A drop the driver refuses: its text from the named overload, the fixed one without.
  EXPECT_FALSE(s.DeleteSheet("Gone"));
  EXPECT_NE(s.GetLastError().Find("Gone$A1:IV65536"), -1) << s.GetLastError().str();
  EXPECT_FALSE(s.DeleteSheet());
  EXPECT_EQ(s.GetLastError(), "Error deleting sheet\n");
}

TEST_F(ExcelPeerTest, ConvertWritesTheSheetAsDelimitedText) {
  Sql("CREATE TABLE [Conv$A1:IV65536] ([Name] char(255), [Qty] char(255))");
  Sql("INSERT INTO [Conv$A1:IV65536] VALUES ('apple', '3')");
  Sql("INSERT INTO [Conv$A1:IV65536] VALUES ('say \"hi\"', NULL)");
  CSpreadSheet s(book_.c_str(), "Conv", false);
  Skip();
  EXPECT_TRUE(s.Convert(";"));
  EXPECT_EQ(Sent(), Lines{}) << "the workbook is only read";
  const std::string csv = dir_.file("book.csv");
  EXPECT_EQ(testing_support::ReadFile(csv),
            "\"Name\";\"Qty\"\r\n\"apple\";\"3\"\r\n\"say \"hi\"\";\"\"\r\n");

  // A target already holding a sheet is left alone.
  EXPECT_FALSE(s.Convert(";"));
  EXPECT_EQ(s.GetLastError(), "");

  // A one-line target counts as empty and is rewritten; its line was loaded and the rows
  // are inserted before it, so it ends the file.
  testing_support::WriteFile(csv, "old;line\r\n");
  EXPECT_TRUE(s.Convert(","));
  EXPECT_EQ(testing_support::ReadFile(csv),
            "\"Name\",\"Qty\"\r\n\"apple\",\"3\"\r\n\"say \"hi\"\",\"\"\r\nold;line\r\n");
}

TEST_F(ExcelPeerTest, ConvertTextWithDuplicateHeadersNumbersTheColumns) {
  const std::string text = dir_.file("list.txt");
  testing_support::WriteFile(text, "a,b,a\r\n1,2,3\r\n");
  CSpreadSheet s(text.c_str(), ",", false);
  Skip();
  EXPECT_TRUE(s.Convert("Dup"));
  EXPECT_EQ(s.GetLastError(), "Duplicate header row field:a\n");
  EXPECT_EQ(Sent(), (Lines{"SELECT * FROM [Dup$A1:IV65536]",
                           "CREATE TABLE [Dup] ([1] char(255), [2] char(255), [3] char(255))",
                           "INSERT INTO [Dup$A2:IV1] VALUES (a, b, a)",
                           "CREATE TABLE [Dup$A2:IV65536] ([1] char(255), [2] char(255), [3] char(255))",
                           "INSERT INTO [Dup$A3:IV1] VALUES (1, 2, 3)"}));
}

// The installer's list stands in for the registered drivers from here on.
std::string g_list;
BOOL FakeInstaller(char* buffer, WORD size, WORD* used) {
  if (g_list == "fail") return FALSE;
  const std::size_t n = std::min<std::size_t>(g_list.size(), size);
  std::copy(g_list.begin(), g_list.begin() + static_cast<std::ptrdiff_t>(n), buffer);
  if (used) *used = static_cast<WORD>(n);
  return TRUE;
}

class ExcelDriverScanTest : public testing::Test {
 protected:
  void SetUp() override {
    Odbc();
    previous_ = platform::SetInstalledDriversForTest(FakeInstaller);
  }
  void TearDown() override { platform::SetInstalledDriversForTest(previous_); }
  platform::InstalledDriversFunction previous_ = nullptr;
};

TEST_F(ExcelDriverScanTest, FirstDescriptionHoldingExcelWins) {
  using namespace std::string_literals;
  struct Case {
    std::string list;
    const char* before;
    const char* after;
  } cases[] = {
      {"SQL Server\0Excel Files (*.xls)\0\0"s, "", "Excel Files (*.xls)"},
      {"A Excel 1\0B Excel 2\0\0"s, "", "A Excel 1"},
      {"EXCEL\0excel\0\0"s, "", ""},                     // case-sensitive
      {"SQL Server\0Oracle\0\0"s, "Kept", "Kept"},       // nothing found: unchanged
      {"SQL Server\0X\0Excel\0\0"s, "", ""},             // a one-character entry ends the scan
      {"A\0\0Excel\0\0"s, "", "Excel"},                  // an empty entry does not
      {"\0\0"s, "Kept", "Kept"},
      {"fail"s, "Old", ""},                              // the installer failed: emptied
      {std::string(1999, 'x') + "\0"s, "Kept", "Kept"},  // a full buffer ends the scan too
      {std::string(2000, 'E'), "Kept", "Kept"},          // and one the installer did not end
  };
  CSpreadSheet s("peer-scan.csv", ",", false);  // text mode: no connection is made
  CSpreadSheetTestAccess a(s);
  for (const Case& c : cases) {
    g_list = c.list;
    a.setExcelDriver(c.before);
    a.GetExcelDriver();
    EXPECT_EQ(a.excelDriver(), c.after) << c.list.substr(0, 40);
  }
}

TEST_F(ExcelDriverScanTest, NoExcelDriverMeansAnEmptyDriverAndTheConnectErrorReachesTheCaller) {
  g_list = std::string("SQLite3 Plain\0\0", 15);
  std::string error = "no exception";
  try {
    CSpreadSheet s("/tmp/peer-none.xls", "Sheet1", false);
  } catch (CDBException* e) {
    error = e->m_strError.str();
    e->Delete();
  }
  EXPECT_EQ(error, "Data source name not found and no default driver specified\n");
}

}  // namespace

#endif  // !defined(_WIN32)
