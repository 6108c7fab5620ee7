// Database::ExecuteEngine over real files: an engine change is journaled as its effects, so
// another connection rebuilds exactly the cells it wrote (even random ones) without running
// it again; a failed write leaves the old state or the new one, and memory what the files hold.
#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <memory>
#include <string>

#include "fileio/SysCalls.h"
#include "odbc-driver/Database.h"
#include "tests/support/FailNth.h"
#include "xls/Xls.h"

namespace xlsodbc {
namespace {

using testing_support::FailNth;

class EngineStoreTest : public ::testing::Test {
 protected:
  void SetUp() override {
    char pattern[] = "/tmp/xlsodbc-engine-XXXXXX";
    dir_ = mkdtemp(pattern);
    path_ = dir_ + "/book.xls";
  }
  void TearDown() override {
    fileio::ResetSysCalls();
    std::filesystem::remove_all(dir_);
  }
  Error Open(std::unique_ptr<Database>* db) {
    DatabaseOptions o;
    o.path = path_;
    o.create = true;
    o.lockTimeoutMs = 2000;
    return Database::Open(o, db);
  }
  static Error Dialect(Database* db, const std::string& sql) {
    Statement st;
    Error e = ParseSql(sql, &st);
    Outcome out;
    return e.ok() ? db->Execute(sql, st, {}, &out) : e;
  }
  static Error Engine(Database* db, const std::string& sql, bool query = false,
                      Outcome* result = nullptr) {
    Outcome out;
    std::vector<long> counts;
    std::size_t failed = 0;
    return db->ExecuteEngine(sql, query, {{}}, {}, result ? result : &out, &counts, &failed);
  }
  // The n column of sheet S in the file itself, top to bottom ("unreadable" when it is not).
  std::string OnDisk() {
    xls::Workbook wb;
    if (!xls::ReadWorkbook(path_, &wb).ok()) return "unreadable";
    const xls::Sheet* s = wb.findSheet("S");
    std::string out;
    for (int r = 1; s && r < s->usedRows(); ++r) out += std::to_string(s->at(r, 0).number) + " ";
    return out;
  }
  // The same column as the connection sees it.
  static std::string Seen(Database* db) {
    Outcome out;
    if (!Engine(db, "SELECT n FROM [S$]", true, &out).ok() || !out.result) return "error";
    std::string text, all;
    for (long r = 0; r < out.result->rowCount(); ++r) {
      out.result->value(r, 0, &text);
      all += text + " ";
    }
    return all;
  }
  std::string dir_, path_;
};

TEST_F(EngineStoreTest, AChangeIsJournaledAsTheCellsItWrote) {
  std::unique_ptr<Database> db;
  ASSERT_TRUE(Open(&db).ok());
  ASSERT_TRUE(Dialect(db.get(), "CREATE TABLE [S] ([n] NUMBER)").ok());
  ASSERT_TRUE(Dialect(db.get(), "INSERT INTO [S] VALUES (1)").ok());
  ASSERT_TRUE(Dialect(db.get(), "INSERT INTO [S] VALUES (2)").ok());
  ASSERT_TRUE(Engine(db.get(), "DELETE FROM [S$] WHERE n = 1").ok());
  ASSERT_TRUE(Engine(db.get(), "INSERT INTO [S$] (n) VALUES (random()), (random())").ok());
  EXPECT_EQ(OnDisk(), "") << "the changes wait in the journal; nothing was folded";
  const std::string seen = Seen(db.get());
  // Another connection replays the journal: the same values, not new random ones.
  std::unique_ptr<Database> other;
  ASSERT_TRUE(Open(&other).ok());
  EXPECT_EQ(Seen(other.get()), seen);
  EXPECT_EQ(seen.substr(0, 2), "2 ");
  ASSERT_TRUE(Dialect(other.get(), "INSERT INTO [S] VALUES (3)").ok());
  EXPECT_EQ(Seen(db.get()), seen + "3 ");
  ASSERT_TRUE(db->Close().ok());
  ASSERT_TRUE(other->Close().ok());
  EXPECT_EQ(OnDisk().substr(0, 9), "2.000000 ");
}

// A failed engine statement can leave a date format behind in the model (a format cannot be
// taken back); the next change that uses it must journal it, or the journal names a format
// no replay has. With autocommit on and off (there after an earlier change of the unit).
TEST_F(EngineStoreTest, AFormatAFailedStatementLeftIsJournaledWithItsFirstUse) {
  for (bool autocommit : {true, false}) {
    std::filesystem::remove(path_);
    std::filesystem::remove(path_ + "-journal");
    std::unique_ptr<Database> db;
    ASSERT_TRUE(Open(&db).ok());
    ASSERT_TRUE(Dialect(db.get(), "CREATE TABLE [S] ([n] NUMBER, [t] TEXT)").ok());
    ASSERT_TRUE(Dialect(db.get(), "INSERT INTO [S] VALUES (1, 'a')").ok());
    ASSERT_TRUE(db->SetAutocommit(autocommit).ok());
    ASSERT_TRUE(Engine(db.get(), "UPDATE [S$] SET t = 'b'").ok());
    // The date goes in (with a new format), then the 40,000-character text fails the whole.
    EXPECT_EQ(Engine(db.get(),
                     "INSERT INTO [S$] (n, t) VALUES (5, {d '2024-01-02'}), "
                     "(6, substr(hex(zeroblob(20000)), 1, 40000))")
                  .kind(),
              ErrorKind::kStringTooLong);
    ASSERT_TRUE(Engine(db.get(), "INSERT INTO [S$] (n, t) VALUES (7, {d '2024-03-04'})").ok());
    ASSERT_TRUE(db->Commit().ok());
    std::unique_ptr<Database> other;
    ASSERT_TRUE(Open(&other).ok()) << autocommit;
    Outcome out;
    ASSERT_TRUE(Engine(other.get(), "SELECT t FROM [S$] WHERE n = 7", true, &out).ok());
    std::string text;
    ASSERT_EQ(out.result->rowCount(), 1);
    out.result->value(0, 0, &text);
    EXPECT_EQ(text, "2024-03-04 00:00:00") << autocommit;
  }
}

TEST_F(EngineStoreTest, FailedWritesLeaveTheOldOrTheNewWorkbook) {
  {
    std::unique_ptr<Database> db;
    ASSERT_TRUE(Open(&db).ok());
    ASSERT_TRUE(Dialect(db.get(), "CREATE TABLE [S] ([n] NUMBER)").ok());
    ASSERT_TRUE(Engine(db.get(), "INSERT INTO [S$] (n) VALUES (1), (2)").ok());
  }
  const std::string reference = dir_ + "/reference.xls";
  std::filesystem::copy_file(path_, reference);
  for (FailNth::Mode mode : {FailNth::kOnce, FailNth::kForGood}) {
    bool completed = false;
    for (int n = 1; !completed; ++n) {
      ASSERT_LE(n, 200) << "the statement never completed";
      std::filesystem::copy_file(reference, path_,
                                 std::filesystem::copy_options::overwrite_existing);
      std::filesystem::remove(path_ + "-journal");
      std::unique_ptr<Database> db;
      ASSERT_TRUE(Open(&db).ok());
      Error e;
      {
        FailNth fail(n, mode);
        e = Engine(db.get(), "UPDATE [S$] SET n = n * 10");
        completed = !fail.fired();
      }
      const std::string where = "call " + std::to_string(n) + ": " + e.message();
      // Memory follows the files: what this connection and the next see is the same, the new
      // state when the change was saved, the old one when it was not; a journal that could
      // not be cut back may hold it, and the error says so.
      const std::string seen = Seen(db.get());
      std::unique_ptr<Database> next;
      ASSERT_TRUE(Open(&next).ok()) << where;
      EXPECT_EQ(Seen(next.get()), seen) << where;
      ASSERT_TRUE(next->Close().ok());
      EXPECT_EQ(OnDisk(), seen == "10 20 " ? "10.000000 20.000000 " : "1.000000 2.000000 ")
          << where;
      if (e.ok()) {
        EXPECT_EQ(seen, "10 20 ") << where;
      } else if (e.message().find("may have been saved") == std::string::npos) {
        EXPECT_EQ(seen, "1 2 ") << where;
      }
    }
  }
}

}  // namespace
}  // namespace xlsodbc
