// The SYNC modes against what each promises (Database.h). A power cut in the middle of a
// run of changes, made by putting back every file written since its last sync, leaves a
// whole workbook and the changes in order up to some point: with FULL every one that
// returned, with NORMAL every one before its last flush, with any mode every one before the
// last fold. And connections that no longer look at the workbook between statements still
// see each other's changes, across folds.
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <thread>

#include "odbc-driver/ConnectionString.h"
#include "odbc-driver/Database.h"
#include "tests/support/PowerCut.h"
#include "tests/support/TempDir.h"
#include "xls/Xls.h"

namespace xlsodbc {
namespace {

using testing_support::PowerCut;
using testing_support::TempDir;

TEST(SyncModeTest, ParsesTheThreeModesAndNothingElse) {
  struct Case {
    const char* text;
    bool ok;
    SyncMode mode;
  } cases[] = {
      {"", true, SyncMode::kNormal},       {"normal", true, SyncMode::kNormal},
      {" FULL ", true, SyncMode::kFull},   {"Off", true, SyncMode::kOff},
      {"2", false, SyncMode::kNormal},     {"EXTRA", false, SyncMode::kNormal},
      {"FULLY", false, SyncMode::kNormal}, {"on", false, SyncMode::kNormal},
  };
  for (const Case& c : cases) {
    SyncMode mode = SyncMode::kNormal;
    EXPECT_EQ(ParseSyncMode(c.text, &mode), c.ok) << c.text;
    EXPECT_EQ(mode, c.mode) << c.text;
  }
}

class SyncTest : public ::testing::Test {
 protected:
  std::unique_ptr<Database> Open(SyncMode sync, int flushIntervalMs = 60000) {
    DatabaseOptions o;
    o.path = path_;
    o.create = true;
    o.sync = sync;
    o.flushIntervalMs = flushIntervalMs;
    o.foldFloorBytes = 0;  // folds come early and often: the cut falls around them too
    o.lockTimeoutMs = 2000;
    std::unique_ptr<Database> db;
    Error e = Database::Open(o, &db);
    EXPECT_TRUE(e.ok()) << e.message();
    return db;
  }
  static Error Run(Database* db, const std::string& sql, Outcome* out = nullptr) {
    Statement st;
    Error e = ParseSql(sql, &st);
    Outcome local;
    return e.ok() ? db->Execute(sql, st, {}, out ? out : &local) : e;
  }
  static Error Insert(Database* db, int n) {
    return Run(db, "INSERT INTO [S] VALUES (" + std::to_string(n) +
                       ", 'enough text that the journal soon outgrows the workbook')");
  }
  // The values of column n, read through a connection (journal replayed), in sheet order.
  static std::vector<std::string> Numbers(Database* db) {
    Outcome out;
    std::vector<std::string> values;
    if (!Run(db, "SELECT [n] FROM [S]", &out).ok()) return {"SELECT failed"};
    std::string v;
    for (long r = 0; r < out.result->rowCount(); ++r) {
      out.result->value(r, 0, &v);
      values.push_back(v);
    }
    return values;
  }
  // Rows under the header of sheet S in the .xls alone; -1 when it is not a whole workbook.
  int RowsInFile() const {
    xls::Workbook wb;
    if (!xls::ReadWorkbook(path_, &wb).ok() || !wb.findSheet("S")) return -1;
    return wb.findSheet("S")->usedRows() - 1;
  }
  void MakeBook() {
    std::filesystem::remove(path_);
    std::filesystem::remove(path_ + "-journal");
    auto db = Open(SyncMode::kFull);
    ASSERT_TRUE(Run(db.get(), "CREATE TABLE [S] ([n] char(255), [pad] char(255))").ok());
    ASSERT_TRUE(db->Close().ok());
  }

  TempDir dir_;
  std::string path_ = dir_.file("book.xls");
};

std::vector<std::string> OneTo(int n) {
  std::vector<std::string> v;
  for (int i = 1; i <= n; ++i) v.push_back(std::to_string(i));
  return v;
}

TEST_F(SyncTest, PowerCutKeepsAWholeWorkbookAndWhatTheModePromises) {
  struct Case {
    SyncMode mode;
    const char* name;
    bool commitHalfway;  // Flush(), as COMMIT does, after half the changes
  } cases[] = {{SyncMode::kFull, "FULL", false},
               {SyncMode::kNormal, "NORMAL", false},
               {SyncMode::kNormal, "NORMAL, COMMIT halfway", true},
               {SyncMode::kOff, "OFF", false}};
  for (const Case& c : cases) {
    for (int changes : {1, 2, 6, 13, 21, 34}) {
      MakeBook();
      const std::string where = std::string(c.name) + ", " + std::to_string(changes) + " changes";
      int flushed = 0, folded = 0;
      {
        PowerCut power;  // outlives the connection, which then ends on a dead disk
        auto db = Open(c.mode);
        for (int n = 1; n <= changes; ++n) {
          ASSERT_TRUE(Insert(db.get(), n).ok()) << where;
          if (c.commitHalfway && n == changes / 2) {
            ASSERT_TRUE(db->Flush().ok()) << where;
            flushed = n;
          }
        }
        folded = RowsInFile();
        power.Cut();
      }
      ASSERT_EQ(RowsInFile(), folded) << where << ": the workbook changed after the cut";
      auto db = Open(c.mode);
      const std::vector<std::string> kept = Numbers(db.get());
      ASSERT_LE(kept.size(), static_cast<std::size_t>(changes)) << where;
      EXPECT_EQ(kept, OneTo(static_cast<int>(kept.size()))) << where << ": not a prefix";
      EXPECT_GE(kept.size(), static_cast<std::size_t>(std::max(flushed, folded))) << where;
      if (c.mode == SyncMode::kFull) {
        EXPECT_EQ(kept.size(), static_cast<std::size_t>(changes)) << where;
      }
      // OFF flushes nothing before a fold: the cut takes back the whole journal (which also
      // shows that the cut bites).
      if (c.mode == SyncMode::kOff) {
        EXPECT_EQ(kept.size(), static_cast<std::size_t>(folded)) << where;
      }
    }
  }
}

// NORMAL flushes from the first statement that finds the last flush older than the
// interval, its own change included; no thread flushes in between.
TEST_F(SyncTest, NormalFlushesOnceTheLastFlushIsOlderThanTheInterval) {
  MakeBook();
  {
    PowerCut power;
    auto db = Open(SyncMode::kNormal, /*flushIntervalMs=*/100);
    // The workbook is far larger than these records: no fold takes them to disk.
    ASSERT_TRUE(Insert(db.get(), 1).ok());
    std::this_thread::sleep_for(std::chrono::milliseconds(150));
    ASSERT_TRUE(Insert(db.get(), 2).ok());
    ASSERT_EQ(RowsInFile(), 0);
    power.Cut();
  }
  ASSERT_EQ(RowsInFile(), 0);
  auto db = Open(SyncMode::kNormal);
  std::vector<std::string> kept = Numbers(db.get());
  EXPECT_EQ(kept, OneTo(2));
}

// Connections on one workbook take turns writing; after each change the other one reads
// and must see it. Folds (early here) remove the journal under both of them.
TEST_F(SyncTest, ConnectionsSeeEachOthersChangesAcrossFolds) {
  MakeBook();
  auto a = Open(SyncMode::kNormal), b = Open(SyncMode::kOff);
  for (int n = 1; n <= 60; ++n) {
    Database* writer = n % 3 == 0 ? b.get() : a.get();
    Database* reader = writer == a.get() ? b.get() : a.get();
    ASSERT_TRUE(Insert(writer, n).ok()) << n;
    ASSERT_EQ(Numbers(reader), OneTo(n)) << n;
  }
  EXPECT_GT(RowsInFile(), 0) << "no fold happened: the test does not test them";
  ASSERT_TRUE(a->Close().ok());  // folds and removes the journal b follows
  ASSERT_TRUE(Insert(b.get(), 61).ok());
  auto c = Open(SyncMode::kFull);
  EXPECT_EQ(Numbers(c.get()), OneTo(61));
  ASSERT_TRUE(b->Close().ok());
  ASSERT_TRUE(c->Close().ok());
  EXPECT_EQ(RowsInFile(), 61);
}

}  // namespace
}  // namespace xlsodbc
