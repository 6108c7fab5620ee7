// Database::ExecuteBatch, the arrays of parameters under SQLExecute: the sets before a
// failing set are kept and saved, and whatever write fails the workbook on disk holds all
// of a batch or none of it.
#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>

#include "odbc-driver/Database.h"
#include "tests/support/FailNth.h"
#include "xls/Xls.h"

namespace xlsodbc {
namespace {

class BatchTest : public ::testing::Test {
 protected:
  void SetUp() override {
    char pattern[] = "/tmp/xlsodbc-batch-XXXXXX";
    dir_ = mkdtemp(pattern);
    path_ = dir_ + "/book.xls";
  }
  void TearDown() override {
    std::filesystem::remove_all(dir_);
  }
  Error Open(std::unique_ptr<Database>* db) {
    DatabaseOptions o;
    o.path = path_;
    o.create = true;
    o.lockTimeoutMs = 2000;
    return Database::Open(o, db);
  }
  // INSERT INTO [S] VALUES (?) once per number from first, count of them.
  Error Insert(Database* db, int first, int count, std::vector<long>* rowCounts,
               std::size_t* failed) {
    const std::string sql = "INSERT INTO [S] VALUES (?)";
    Statement st;
    Error e = ParseSql(sql, &st);
    if (!e.ok()) return e;
    std::vector<std::vector<Value>> sets;
    for (int i = first; i < first + count; ++i) {
      Value v;
      v.kind = Value::Kind::kNumber;
      v.number = i;
      v.text = std::to_string(i);
      sets.push_back({v});
    }
    return db->ExecuteBatch(sql, st, sets, rowCounts, failed);
  }
  // Records of sheet S in the file itself, -1 when it cannot be read.
  int RowsOnDisk() {
    xls::Workbook wb;
    if (!xls::ReadWorkbook(path_, &wb).ok()) return -1;
    const xls::Sheet* s = wb.findSheet("S");
    return s ? s->usedRows() - 1 : -1;
  }
  std::string dir_, path_;
};

// Three sets into a table with room for two: the third fails, the first two are saved.
TEST_F(BatchTest, SetsBeforeTheFailingOneAreSaved) {
  xls::Workbook wb;
  xls::Sheet& s = wb.addSheet("S");
  s.set(0, 0, xls::Cell::Text("n"));
  for (int r = 1; r < xls::kMaxRows - 2; ++r) s.set(r, 0, xls::Cell::Number(r));
  ASSERT_TRUE(xls::WriteWorkbook(path_, wb).ok());
  const int before = RowsOnDisk();
  std::unique_ptr<Database> db;
  ASSERT_TRUE(Open(&db).ok());
  std::vector<long> counts;
  std::size_t failed = 99;
  Error e = Insert(db.get(), 1, 3, &counts, &failed);
  EXPECT_FALSE(e.ok());
  EXPECT_NE(e.message().find("full"), std::string::npos) << e.message();
  EXPECT_EQ(failed, 2u);
  EXPECT_EQ(counts, (std::vector<long>{1, 1}));
  ASSERT_TRUE(db->Close().ok());
  EXPECT_EQ(RowsOnDisk(), before + 2);
}

// Each write of a batch fails in turn (the Nth pwrite, fsync or rename): afterwards the file
// holds every set or none, and a batch that reported success is there once folded.
TEST_F(BatchTest, FailedWritesKeepAllOfABatchOrNone) {
  {
    std::unique_ptr<Database> db;
    ASSERT_TRUE(Open(&db).ok());
    std::vector<long> counts;
    std::size_t failed = 0;
    Statement st;
    ASSERT_TRUE(ParseSql("CREATE TABLE [S] ([n] char(255))", &st).ok());
    ASSERT_TRUE(
        db->ExecuteBatch("CREATE TABLE [S] ([n] char(255))", st, {{}}, &counts, &failed).ok());
  }
  using testing_support::FailNth;
  const std::string reference = dir_ + "/reference.xls";
  std::filesystem::copy_file(path_, reference);
  const int before = RowsOnDisk();
  ASSERT_GE(before, 0);
  for (FailNth::Mode mode : {FailNth::kOnce, FailNth::kForGood}) {
    bool completed = false;
    for (int n = 1; !completed; ++n) {
      ASSERT_LE(n, 200) << "the batch never completed";
      std::filesystem::copy_file(reference, path_,
                                 std::filesystem::copy_options::overwrite_existing);
      std::filesystem::remove(path_ + "-journal");
      std::unique_ptr<Database> db;
      ASSERT_TRUE(Open(&db).ok());
      std::vector<long> counts;
      std::size_t failed = 0;
      Error e;
      {
        FailNth fail(n, mode);
        e = Insert(db.get(), 1000, 40, &counts, &failed);
        db->Close();
        completed = !fail.fired();
      }
      db.reset();
      const std::string where = "call " + std::to_string(n) + ": " + e.message();
      if (!e.ok()) {
        EXPECT_TRUE(failed == 0 || failed == 40u) << where;  // a failed save loses every set
        EXPECT_TRUE(counts.empty()) << where;
      }
      const int after = RowsOnDisk();
      EXPECT_TRUE(after == before || after == before + 40) << after << " after " << where;
      std::unique_ptr<Database> check;
      ASSERT_TRUE(Open(&check).ok()) << where;
      check->Close();
      if (e.message().find("may have been saved") == std::string::npos) {
        EXPECT_EQ(RowsOnDisk(), before + (e.ok() ? 40 : 0)) << where;
      }
    }
  }
}

}  // namespace
}  // namespace xlsodbc
