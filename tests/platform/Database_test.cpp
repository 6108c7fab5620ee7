// CDatabase and CRecordset through unixODBC's driver manager and Debian's SQLite ODBC
// driver, an independent peer registered for this process only.
//
// POSIX only: they configure unixODBC directly (Wine's installer reads its registry).
#if !defined(_WIN32)
#include "platform/Database.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "tests/platform/OdbcTestIni.h"
#include "tests/support/TempDir.h"

namespace {

const char kSqlite[] = "SQLite3 Peer";

odbc_test::Config& Odbc() {
  return odbc_test::Config::Install({{kSqlite, odbc_test::SqliteDriverLibrary()},
                                     {"Excel Files Peer", odbc_test::SqliteDriverLibrary()}});
}

// Runs f and returns the CDBException it threw (deleted), or "no exception".
template <typename F>
std::pair<std::string, std::string> DbError(F f) {
  try {
    f();
  } catch (CDBException* e) {
    std::pair<std::string, std::string> out(e->m_strError.str(), e->m_strStateNativeOrigin.str());
    e->Delete();
    return out;
  }
  return {"no exception", ""};
}

class DatabaseTest : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_FALSE(odbc_test::SqliteDriverLibrary().empty()) << "libsqliteodbc is not installed";
    Odbc();
    connect_ = std::string("DRIVER={") + kSqlite + "};Database=" + dir_.file("peer.db");
  }
  CString Connect() const { return connect_.c_str(); }

  testing_support::TempDir dir_;
  std::string connect_;
};

TEST_F(DatabaseTest, ConnectsExecutesAndCloses) {
  CDatabase db;
  EXPECT_FALSE(db.IsOpen());
  EXPECT_TRUE(db.OpenEx(Connect(), CDatabase::noOdbcDialog));
  EXPECT_TRUE(db.IsOpen());
  EXPECT_NE(db.GetConnect().Find("peer.db"), -1) << db.GetConnect().str();
  db.ExecuteSQL("CREATE TABLE t (a char(10), b char(10))");
  db.ExecuteSQL("INSERT INTO t VALUES ('x', NULL)");
  db.ExecuteSQL("UPDATE t SET a = 'y' WHERE a = 'nothing'");  // touches no row: not an error
  db.Close();
  EXPECT_FALSE(db.IsOpen());
  db.Close();  // a second close is harmless

  // The data is in the file: a fresh connection reads it back.
  CDatabase again;
  again.OpenEx(Connect(), CDatabase::noOdbcDialog);
  CRecordset rs(&again);
  rs.Open(CRecordset::forwardOnly, "SELECT a FROM t", CRecordset::readOnly);
  CString a;
  rs.GetFieldValue(0, a);
  EXPECT_EQ(a, "x");
}

TEST_F(DatabaseTest, ConnectingTwiceWithTheSameStringKeepsTheConnection) {
  CDatabase db;
  db.OpenEx(Connect(), CDatabase::noOdbcDialog);
  void* first = db.m_hdbc;
  EXPECT_TRUE(db.OpenEx(Connect(), CDatabase::noOdbcDialog));
  EXPECT_EQ(db.m_hdbc, first);
  // Another string replaces the connection.
  const std::string other = std::string("DRIVER={") + kSqlite + "};Database=" + dir_.file("other.db");
  EXPECT_TRUE(db.OpenEx(other.c_str(), CDatabase::noOdbcDialog));
  EXPECT_NE(db.GetConnect().Find("other.db"), -1);
}

TEST_F(DatabaseTest, ConnectErrorsCarryTheDriverManagersText) {
  CDatabase db;
  // unixODBC takes an unregistered name for a library path.
  auto [error, state] = DbError([&] { db.OpenEx("DRIVER={No Such Driver};DBQ=/tmp/x.xls", CDatabase::noOdbcDialog); });
  EXPECT_EQ(error, "[unixODBC][Driver Manager]Can't open lib 'No Such Driver' : file not found\n");
  EXPECT_EQ(state, "State:01000,Native:0,Origin:[unixODBC][Driver Manager]\n");
  EXPECT_FALSE(db.IsOpen());

  // An empty driver name never reaches the driver manager (it would pick the first
  // registered driver, or abort the process when there is none).
  for (const char* empty : {"DRIVER={};DSN=''", "DSN='';driver = { } ;DBQ=x", "DRIVER="}) {
    auto [text, emptyState] = DbError([&] { db.OpenEx(empty, CDatabase::noOdbcDialog); });
    EXPECT_EQ(text, "Data source name not found and no default driver specified\n") << empty;
    EXPECT_EQ(emptyState.rfind("State:IM002,", 0), 0u) << emptyState;
    EXPECT_FALSE(db.IsOpen());
  }
}

TEST_F(DatabaseTest, StatementErrorsCarryTheDriversTextAndKeepTheConnection) {
  CDatabase db;
  db.OpenEx(Connect(), CDatabase::noOdbcDialog);
  auto [error, state] = DbError([&] { db.ExecuteSQL("INSERT INTO missing VALUES ('O'Brien')"); });
  EXPECT_NE(error.find("syntax error"), std::string::npos) << error;
  EXPECT_EQ(error.back(), '\n');
  EXPECT_NE(state.find("State:"), std::string::npos);
  EXPECT_TRUE(db.IsOpen());
  db.ExecuteSQL("CREATE TABLE t (a)");  // still usable

  // The exception's own message is the same text, for callers that only print it.
  try {
    db.ExecuteSQL("DROP TABLE nothing_here");
    ADD_FAILURE() << "no exception";
  } catch (CDBException* e) {
    char text[512];
    e->GetErrorMessage(text, sizeof text);
    EXPECT_NE(std::string(text).find("nothing_here"), std::string::npos) << text;
    e->Delete();
  }
}

TEST_F(DatabaseTest, UnconnectedUseFailsCleanly) {
  CDatabase db;
  auto [error, state] = DbError([&] { db.ExecuteSQL("SELECT 1"); });
  EXPECT_EQ(error, "Connection not open\n");
  EXPECT_EQ(state.rfind("State:08003,", 0), 0u);
  CRecordset rs(&db);
  EXPECT_EQ(DbError([&] { rs.Open(CRecordset::forwardOnly, "SELECT 1", CRecordset::readOnly); }).first,
            "Connection not open\n");
  CRecordset orphan;
  EXPECT_EQ(DbError([&] { orphan.Open(CRecordset::forwardOnly, "SELECT 1"); }).first, "Connection not open\n");
}

TEST_F(DatabaseTest, RecordsetReadsEveryValueAsText) {
  CDatabase db;
  db.OpenEx(Connect(), CDatabase::noOdbcDialog);
  db.ExecuteSQL("CREATE TABLE [Sheet1$A1:IV65536] ([Name] char(255), [Qty] char(255), [Note] text)");
  const std::string longText(10000, 'L');  // several pieces of the read buffer
  db.ExecuteSQL("INSERT INTO [Sheet1$A1:IV65536] VALUES ('abc', 10, NULL)");
  db.ExecuteSQL(("INSERT INTO [Sheet1$A1:IV65536] VALUES ('x,;.?y', 1.5, '" + longText + "')").c_str());
  db.ExecuteSQL("INSERT INTO [Sheet1$A1:IV65536] VALUES ('', NULL, 'last')");

  CRecordset rs(&db);
  EXPECT_TRUE(rs.Open(CRecordset::forwardOnly, "SELECT * FROM [Sheet1$A1:IV65536]", CRecordset::readOnly));
  ASSERT_EQ(rs.GetODBCFieldCount(), 3);
  const char* names[] = {"Name", "Qty", "Note"};
  for (short i = 0; i < 3; ++i) {
    CODBCFieldInfo info;
    rs.GetODBCFieldInfo(i, info);
    EXPECT_EQ(info.m_strName, names[i]);
  }
  const std::vector<std::vector<std::string>> expected = {
      {"abc", "10", ""}, {"x,;.?y", "1.5", longText}, {"", "", "last"}};
  for (const auto& row : expected) {
    ASSERT_FALSE(rs.IsEOF());
    // Any column order: the record is read whole at each move.
    for (short i = 2; i >= 0; --i) {
      CString value("stale");
      rs.GetFieldValue(i, value);
      EXPECT_EQ(value.str(), row[i]) << "column " << i;
    }
    rs.MoveNext();
  }
  EXPECT_TRUE(rs.IsEOF());
  CString value;
  EXPECT_EQ(DbError([&] { rs.GetFieldValue(0, value); }).first, "No current record.\n");
  EXPECT_EQ(DbError([&] { rs.MoveNext(); }).first,
            "Attempt to scroll past end or before beginning of data.\n");
  rs.Close();
  EXPECT_FALSE(rs.IsOpen());
  EXPECT_EQ(rs.GetODBCFieldCount(), 0);
}

TEST_F(DatabaseTest, RecordsetEdges) {
  CDatabase db;
  db.OpenEx(Connect(), CDatabase::noOdbcDialog);
  db.ExecuteSQL("CREATE TABLE t (a, b)");

  CRecordset rs(&db);
  rs.Open(CRecordset::forwardOnly, "SELECT * FROM t", CRecordset::readOnly);
  EXPECT_TRUE(rs.IsEOF()) << "an empty table has columns and no record";
  EXPECT_EQ(rs.GetODBCFieldCount(), 2);
  CODBCFieldInfo info;
  EXPECT_THROW(rs.GetODBCFieldInfo(2, info), CInvalidArgException*);
  EXPECT_THROW(rs.GetODBCFieldInfo(-1, info), CInvalidArgException*);

  db.ExecuteSQL("INSERT INTO t VALUES (1, 2)");
  rs.Open(CRecordset::forwardOnly, "SELECT * FROM t", CRecordset::readOnly);  // reopens
  CString value;
  EXPECT_THROW(rs.GetFieldValue(5, value), CInvalidArgException*);
  EXPECT_THROW(rs.Open(CRecordset::snapshot, "SELECT * FROM t"), CInvalidArgException*);

  // A query the driver refuses: the driver's text, and the recordset stays closed.
  CRecordset missing(&db);
  auto [error, state] = DbError([&] { missing.Open(CRecordset::forwardOnly, "SELECT * FROM [Nope$A1:IV65536]"); });
  EXPECT_NE(error.find("Nope$A1:IV65536"), std::string::npos) << error;
  EXPECT_FALSE(missing.IsOpen());
}

TEST_F(DatabaseTest, ClosingTheDatabaseClosesItsRecordsets) {
  auto db = std::make_unique<CDatabase>();
  db->OpenEx(Connect(), CDatabase::noOdbcDialog);
  db->ExecuteSQL("CREATE TABLE t (a)");
  db->ExecuteSQL("INSERT INTO t VALUES (1)");
  CRecordset first(db.get());
  CRecordset second(db.get());
  first.Open(CRecordset::forwardOnly, "SELECT * FROM t");
  second.Open(CRecordset::forwardOnly, "SELECT * FROM t");
  db->Close();
  EXPECT_FALSE(first.IsOpen());
  EXPECT_FALSE(second.IsOpen());
  EXPECT_TRUE(first.IsEOF());
  db.reset();  // the recordsets outlive it closed; destroying them touches nothing
}

}  // namespace

#endif  // !defined(_WIN32)
