// Transactions: with autocommit off, the changes since the last commit are one unit. They
// show to the connection that made them at once, reach the journal only on COMMIT, as one
// record, and ROLLBACK, a killed process or a power cut before COMMIT leaves no trace of them.
// Then the same through the driver manager: SQLEndTran, SQLDisconnect, SQLGetInfo.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>

#include "OdbcTestSupport.h"
#include "odbc-driver/Database.h"
#include "tests/support/FailNth.h"
#include "tests/support/PowerCut.h"

namespace xlsodbc {
namespace {

using testing_support::FailNth;
using testing_support::PowerCut;

// The same rules for both formats a workbook is saved in.
class TransactionTest : public ::testing::TestWithParam<const char*> {
 protected:
  void SetUp() override {
    char pattern[] = "/tmp/xlsodbc-txn-XXXXXX";
    dir_ = mkdtemp(pattern);
    path_ = dir_ + "/book" + GetParam();
    auto db = Open();
    ASSERT_TRUE(Run(db.get(), "CREATE TABLE [S] ([n] NUMBER)").ok());
    ASSERT_TRUE(Run(db.get(), "INSERT INTO [S] VALUES (1)").ok());
  }
  void TearDown() override {
    fileio::ResetSysCalls();
    std::filesystem::remove_all(dir_);
  }
  std::unique_ptr<Database> Open(SyncMode sync = SyncMode::kNormal, int lockTimeoutMs = 2000) {
    DatabaseOptions o;
    o.path = path_;
    o.create = true;
    o.sync = sync;
    o.lockTimeoutMs = lockTimeoutMs;
    o.flushIntervalMs = 3600 * 1000;  // NORMAL flushes on COMMIT, never by age here
    std::unique_ptr<Database> db;
    Error e = Database::Open(o, &db);
    EXPECT_TRUE(e.ok()) << e.message();
    return db;
  }
  // A statement of the dialect, or else one for the engine; parameters one set.
  static Error Run(Database* db, const std::string& sql, std::vector<Value> params = {}) {
    Statement st;
    Outcome out;
    if (ParseSql(sql, &st).ok()) return db->Execute(sql, st, params, &out);
    std::vector<long> counts;
    std::size_t failed;
    return db->ExecuteEngine(sql, false, {params}, {}, &out, &counts, &failed);
  }
  static Error Batch(Database* db, std::initializer_list<double> numbers) {
    const std::string sql = "INSERT INTO [S] VALUES (?)";
    Statement st;
    EXPECT_TRUE(ParseSql(sql, &st).ok());
    std::vector<std::vector<Value>> sets;
    for (double n : numbers) sets.push_back({Value{Value::Kind::kNumber, "", n, 0}});
    std::vector<long> counts;
    std::size_t failed;
    return db->ExecuteBatch(sql, st, sets, &counts, &failed);
  }
  // Column n of [S] as the connection sees it, then the sheets: "1 2 | S T".
  static std::string Seen(Database* db) {
    Statement st;
    Outcome out;
    std::string all;
    if (!ParseSql("SELECT n FROM [S]", &st).ok() || !db->Execute("", st, {}, &out).ok()) {
      return "error";
    }
    std::string text;
    for (long r = 0; r < out.result->rowCount(); ++r) {
      out.result->value(r, 0, &text);
      all += text + " ";
    }
    std::shared_ptr<const xls::Workbook> book;
    if (!db->Snapshot(&book).ok()) return "error";
    all += "|";
    for (const xls::Sheet& s : book->sheets()) all += " " + s.name();
    return all;
  }
  std::string Workbook() const {
    std::ifstream in(path_, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
  }
  // The units the journal holds (its header aside, which a unit's first change may write).
  std::vector<std::vector<Effect>> Units() const {
    std::ifstream in(path_ + "-journal", std::ios::binary);
    std::string bytes(std::istreambuf_iterator<char>(in), {});
    std::vector<std::vector<Effect>> units;
    std::size_t consumed = 0;
    if (bytes.size() <= kJournalHeaderSize) return units;
    EXPECT_TRUE(DecodeEffectRecords(
                    reinterpret_cast<const std::uint8_t*>(bytes.data()) + kJournalHeaderSize,
                    bytes.size() - kJournalHeaderSize, &units, &consumed)
                    .ok());
    return units;
  }
  std::string dir_, path_;
};

// Each kind of change joins the unit: nothing reaches the files before COMMIT, ROLLBACK
// takes it all back (a sheet it added too), COMMIT appends it as one record.
TEST_P(TransactionTest, ChangesFormOneUnitUntilCommitOrRollback) {
  struct Case {
    const char* what;
    std::function<Error(Database*)> change;
    const char* after;
  } cases[] = {
      {"dialect INSERT", [](Database* db) { return Run(db, "INSERT INTO [S] VALUES (2)"); },
       "1 2 | S"},
      {"engine UPDATE",
       [](Database* db) { return Run(db, "UPDATE [S$] SET n = n + 10 WHERE n > 0"); }, "11 | S"},
      {"engine DELETE", [](Database* db) { return Run(db, "DELETE FROM [S$] WHERE n = 1"); },
       "| S"},
      {"array of parameters",
       [](Database* db) {
         return Batch(db, {5, 6});
       },
       "1 5 6 | S"},
      {"CREATE TABLE of a sheet", [](Database* db) { return Run(db, "CREATE TABLE [T] (a)"); },
       "1 | S T"},
      {"DROP TABLE", [](Database* db) { return Run(db, "DROP TABLE [S$A2:A9]"); }, "| S"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    auto db = Open();
    ASSERT_TRUE(db->SetAutocommit(false).ok());
    const std::string workbook = Workbook();
    ASSERT_TRUE(c.change(db.get()).ok());
    ASSERT_TRUE(Run(db.get(), "INSERT INTO [S] VALUES (7)").ok());
    EXPECT_TRUE(db->inTransaction());
    EXPECT_EQ(Units().size(), 0u) << "nothing reaches the journal before COMMIT";
    db->Rollback();
    EXPECT_EQ(Seen(db.get()), "1 | S");
    EXPECT_EQ(Units().size(), 0u);
    EXPECT_EQ(Workbook(), workbook);

    ASSERT_TRUE(c.change(db.get()).ok());
    ASSERT_TRUE(db->Commit().ok());
    EXPECT_FALSE(db->inTransaction());
    EXPECT_EQ(Units().size(), 1u) << "one record for the unit";
    EXPECT_EQ(Workbook(), workbook);
    auto other = Open();
    EXPECT_EQ(Seen(other.get()), c.after);
    db.reset();
    other.reset();
    TearDown();
    SetUp();
  }
}

// The first change takes the workbook until the unit ends: other connections wait up to the
// lock timeout, then fail with kLocked; after COMMIT they go on and see the unit whole.
TEST_P(TransactionTest, OtherConnectionsWaitForTheUnit) {
  auto db = Open();
  auto other = Open(SyncMode::kNormal, /*lockTimeoutMs=*/100);
  ASSERT_TRUE(db->SetAutocommit(false).ok());
  EXPECT_EQ(Seen(other.get()), "1 | S") << "reads before the first change do not wait";
  ASSERT_TRUE(Run(db.get(), "INSERT INTO [S] VALUES (2)").ok());
  EXPECT_EQ(Run(other.get(), "INSERT INTO [S] VALUES (9)").kind(), ErrorKind::kLocked);
  EXPECT_EQ(Seen(other.get()), "error");
  ASSERT_TRUE(Run(db.get(), "INSERT INTO [S] VALUES (3)").ok());
  // Turning autocommit back on commits (ODBC's rule).
  ASSERT_TRUE(db->SetAutocommit(true).ok());
  EXPECT_EQ(Seen(other.get()), "1 2 3 | S");
  ASSERT_TRUE(Run(other.get(), "INSERT INTO [S] VALUES (9)").ok());
  EXPECT_EQ(Seen(db.get()), "1 2 3 9 | S");
}

// Close() with a unit open rolls it back: only committed changes reach the workbook.
TEST_P(TransactionTest, CloseRollsBackAnOpenUnit) {
  auto db = Open();
  ASSERT_TRUE(db->SetAutocommit(false).ok());
  ASSERT_TRUE(Run(db.get(), "INSERT INTO [S] VALUES (2)").ok());
  ASSERT_TRUE(db->Commit().ok());
  ASSERT_TRUE(Run(db.get(), "INSERT INTO [S] VALUES (3)").ok());
  ASSERT_TRUE(db->Close().ok());
  EXPECT_EQ(Seen(Open().get()), "1 2 | S");
}

// A process killed with SIGKILL inside a unit loses all of it, and nothing committed.
TEST_P(TransactionTest, KilledInsideAUnitLosesItWhole) {
  int fds[2];
  ASSERT_EQ(pipe(fds), 0);
  pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    close(fds[0]);
    auto db = Open();
    if (!db->SetAutocommit(false).ok()) _exit(2);
    for (int i = 2; i <= 40; ++i) {
      if (!Run(db.get(), "INSERT INTO [S] VALUES (" + std::to_string(i) + ")").ok()) _exit(3);
      if (i == 20 && !db->Commit().ok()) _exit(4);
    }
    char done = 1;
    if (write(fds[1], &done, 1) != 1) _exit(5);
    pause();
    _exit(6);
  }
  close(fds[1]);
  char done = 0;
  ASSERT_EQ(read(fds[0], &done, 1), 1);
  close(fds[0]);
  kill(child, SIGKILL);
  int status = 0;
  waitpid(child, &status, 0);
  ASSERT_TRUE(WIFSIGNALED(status));
  std::string want = "";
  for (int i = 1; i <= 20; ++i) want += std::to_string(i) + " ";
  EXPECT_EQ(Seen(Open().get()), want + "| S");
}

// A power cut keeps every committed unit under FULL and NORMAL (COMMIT flushes), never part
// of one; under OFF nothing since the last fold, by the mode's promise.
TEST_P(TransactionTest, PowerCutKeepsWholeUnits) {
  struct Case {
    SyncMode mode;
    const char* kept;
  } cases[] = {{SyncMode::kFull, "1 2 3 4 | S"},
               {SyncMode::kNormal, "1 2 3 4 | S"},
               {SyncMode::kOff, "| S"}};
  for (const Case& c : cases) {
    SCOPED_TRACE(static_cast<int>(c.mode));
    TearDown();
    SetUp();
    if (c.mode == SyncMode::kOff) {
      // The table's first row would be in the folded file; start from a file without it.
      auto db = Open();
      ASSERT_TRUE(Run(db.get(), "DELETE FROM [S$] WHERE n = 1").ok());
    }
    {
      PowerCut power;
      auto db = Open(c.mode);
      ASSERT_TRUE(db->SetAutocommit(false).ok());
      ASSERT_TRUE(Run(db.get(), "INSERT INTO [S] VALUES (2)").ok());
      ASSERT_TRUE(Run(db.get(), "INSERT INTO [S] VALUES (3)").ok());
      ASSERT_TRUE(db->Commit().ok());
      ASSERT_TRUE(Run(db.get(), "INSERT INTO [S] VALUES (4)").ok());
      ASSERT_TRUE(db->Commit().ok());
      ASSERT_TRUE(Run(db.get(), "INSERT INTO [S] VALUES (5)").ok());  // never committed
      power.Cut();
    }
    EXPECT_EQ(Seen(Open(c.mode).get()), c.kept);
  }
}

// Whatever call of COMMIT fails, the unit is in the files whole or not at all, memory agrees
// with them, and the error says which: "not saved" rolled back, "may have been saved" either.
TEST_P(TransactionTest, FailedCommitSavesTheUnitWholeOrNotAtAll) {
  for (FailNth::Mode mode : {FailNth::kOnce, FailNth::kForGood}) {
    bool completed = false;
    for (int n = 1; !completed; ++n) {
      ASSERT_LE(n, 100) << "COMMIT never completed";
      TearDown();
      SetUp();
      auto db = Open(SyncMode::kFull);
      ASSERT_TRUE(db->SetAutocommit(false).ok());
      ASSERT_TRUE(Run(db.get(), "INSERT INTO [S] VALUES (2)").ok());
      ASSERT_TRUE(Run(db.get(), "UPDATE [S$] SET n = n * 10").ok());
      Error e;
      {
        FailNth fail(n, mode);
        e = db->Commit();
        completed = !fail.fired();
      }
      const std::string where = "call " + std::to_string(n) + ": " + e.message();
      EXPECT_FALSE(db->inTransaction()) << where;
      const std::string seen = Seen(db.get());
      EXPECT_EQ(Seen(Open().get()), seen) << where;
      if (e.ok()) {
        EXPECT_EQ(seen, "10 20 | S") << where;
      } else if (e.message().find("may have been saved") == std::string::npos) {
        EXPECT_EQ(seen, "1 | S") << where;
      } else {
        EXPECT_TRUE(seen == "1 | S" || seen == "10 20 | S") << where;
      }
    }
  }
}

}  // namespace

namespace test {
namespace {

SQLUINTEGER InfoU32(SQLHDBC dbc, SQLUSMALLINT type) {
  SQLUINTEGER v = 0;
  SQLGetInfo(dbc, type, &v, sizeof v, nullptr);
  return v;
}

INSTANTIATE_TEST_SUITE_P(Formats, TransactionTest, ::testing::Values(".xls", ".xlsx"));

// The ODBC face: what SQLGetInfo says, SQLEndTran, SQLDisconnect inside a transaction.
TEST(TransactionApiTest, EndTranDisconnectAndInfo) {
  RegisterDriverOnce();
  TempDir dir;
  const std::string cs = LibraryConnectionString(dir.file("t.xls"));
  Connection c, other;
  ASSERT_TRUE(c.Open(cs).ok());
  ASSERT_TRUE(c.Exec("CREATE TABLE [S] ([n] char(255))").ok());
  SQLUSMALLINT capable = 0;
  SQLGetInfo(c.dbc(), SQL_TXN_CAPABLE, &capable, sizeof capable, nullptr);
  EXPECT_EQ(capable, SQL_TC_ALL);
  EXPECT_EQ(InfoU32(c.dbc(), SQL_DEFAULT_TXN_ISOLATION), SQL_TXN_READ_COMMITTED);
  EXPECT_EQ(InfoU32(c.dbc(), SQL_TXN_ISOLATION_OPTION), SQL_TXN_READ_COMMITTED);

  ASSERT_EQ(SQLSetConnectAttr(c.dbc(), SQL_ATTR_AUTOCOMMIT,
                              reinterpret_cast<SQLPOINTER>(SQL_AUTOCOMMIT_OFF), 0),
            SQL_SUCCESS);
  ASSERT_TRUE(c.Exec("INSERT INTO [S] VALUES ('a')").ok());
  Diag d = DiagOf(SQL_HANDLE_DBC, c.dbc(), SQLDisconnect(c.dbc()));
  EXPECT_EQ(d.state, "25000") << "an open transaction keeps the connection";
  d = DiagOf(SQL_HANDLE_DBC, c.dbc(), SQLEndTran(SQL_HANDLE_DBC, c.dbc(), 7));
  EXPECT_EQ(d.state, "HY012");
  ASSERT_EQ(SQLEndTran(SQL_HANDLE_DBC, c.dbc(), SQL_ROLLBACK), SQL_SUCCESS);
  EXPECT_EQ(c.Query("SELECT n FROM [S]").size(), 1u) << "the INSERT is rolled back";
  ASSERT_TRUE(c.Exec("INSERT INTO [S] VALUES ('b')").ok());
  ASSERT_EQ(SQLEndTran(SQL_HANDLE_DBC, c.dbc(), SQL_COMMIT), SQL_SUCCESS);
  ASSERT_TRUE(other.Open(cs).ok());
  auto rows = other.Query("SELECT n FROM [S]");
  ASSERT_EQ(rows.size(), 2u);
  EXPECT_EQ(rows[1][0], "b");
  other.Close();
  ASSERT_TRUE(DiagOf(SQL_HANDLE_DBC, c.dbc(), SQLDisconnect(c.dbc())).ok());
}

// BEGIN, COMMIT and ROLLBACK as SQL text: BEGIN opens a unit under autocommit, the statement
// that ends it puts autocommit back (or another connection would wait on the lock).
TEST(TransactionApiTest, TransactionStatementsInSqlText) {
  RegisterDriverOnce();
  TempDir dir;
  const std::string cs = LibraryConnectionString(dir.file("t.xls"));
  Connection c, other;
  ASSERT_TRUE(c.Open(cs).ok());
  ASSERT_TRUE(c.Exec("CREATE TABLE [S] ([n] char(255))").ok());
  ASSERT_TRUE(c.Exec("begin transaction").ok());
  EXPECT_EQ(c.Exec("BEGIN").state, "25000");
  ASSERT_TRUE(c.Exec("INSERT INTO [S] VALUES ('a')").ok());
  ASSERT_TRUE(c.Exec("ROLLBACK WORK").ok());
  EXPECT_EQ(c.Query("SELECT n FROM [S]").size(), 1u) << "the header only";
  ASSERT_TRUE(c.Exec("START TRANSACTION").ok());
  ASSERT_TRUE(c.Exec("INSERT INTO [S] VALUES ('b')").ok());
  ASSERT_TRUE(c.Exec(" Commit ; ").ok());
  ASSERT_TRUE(c.Exec("INSERT INTO [S] VALUES ('c')").ok());
  ASSERT_TRUE(other.Open(cs).ok());
  auto rows = other.Query("SELECT n FROM [S]");
  ASSERT_EQ(rows.size(), 3u) << "autocommit is back after COMMIT";
  EXPECT_EQ(rows[1][0], "b");
  EXPECT_EQ(c.Exec("COMMIT; DELETE FROM [S]").state, "42000");
  other.Close();
  ASSERT_TRUE(DiagOf(SQL_HANDLE_DBC, c.dbc(), SQLDisconnect(c.dbc())).ok());
}

}  // namespace
}  // namespace test
}  // namespace xlsodbc
