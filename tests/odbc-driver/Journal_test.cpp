// The journal's format, and the Database over real files: whatever write fails, the
// workbook on disk is the old one or the new one and the connection reports the failure.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "fileio/SysCalls.h"
#include "odbc-driver/Database.h"
#include "odbc-driver/Journal.h"
#include "odbc-driver/WorkbookStore.h"
#include "tests/support/FailNth.h"
#include "xls/Xls.h"

namespace xlsodbc {
namespace {

using testing_support::FailNth;

TEST(JournalTest, LegacyRecordsRoundTripAndStopAtDamage) {
  std::vector<Value> params(3);
  params[0].kind = Value::Kind::kText;
  params[0].text = std::string("a\0b", 3);
  params[1].kind = Value::Kind::kNumber;
  params[1].number = -0.125;
  std::vector<std::uint8_t> bytes;
  for (const char* sql : {"INSERT INTO [S] VALUES (?, ?, ?)", "DROP TABLE [S]"}) {
    auto rec = EncodeJournalRecord(JournalRecord{false, sql, params});
    bytes.insert(bytes.end(), rec.begin(), rec.end());
  }
  std::size_t consumed = 0;
  auto records = DecodeJournalRecords(bytes.data(), bytes.size(), &consumed);
  ASSERT_EQ(records.size(), 2u);
  EXPECT_EQ(consumed, bytes.size());
  EXPECT_EQ(records[1].sql, "DROP TABLE [S]");
  EXPECT_FALSE(records[1].firstRowHasNames);
  ASSERT_EQ(records[0].parameters.size(), 3u);
  EXPECT_EQ(records[0].parameters[0].text, std::string("a\0b", 3));
  EXPECT_EQ(records[0].parameters[1].number, -0.125);
  EXPECT_EQ(records[0].parameters[2].kind, Value::Kind::kNull);

  std::size_t first =
      EncodeJournalRecord(JournalRecord{false, "INSERT INTO [S] VALUES (?, ?, ?)", params}).size();
  // Cut anywhere inside the second record, or flip a byte of it: only the first survives.
  for (std::size_t cut = first; cut < bytes.size(); cut += 7) {
    EXPECT_EQ(DecodeJournalRecords(bytes.data(), cut, &consumed).size(), 1u) << cut;
    EXPECT_EQ(consumed, first);
  }
  for (std::size_t at = first; at < bytes.size(); ++at) {
    auto damaged = bytes;
    damaged[at] ^= 0x40;
    EXPECT_EQ(DecodeJournalRecords(damaged.data(), damaged.size(), &consumed).size(), 1u) << at;
  }
  JournalHeader h{kLegacyJournalVersion, 123, 0xfeedfacecafebeefull}, back;
  ASSERT_TRUE(DecodeJournalHeader(EncodeJournalHeader(h), &back));
  EXPECT_EQ(back.baseHash, h.baseHash);
  EXPECT_EQ(back.version, kLegacyJournalVersion);
  EXPECT_FALSE(DecodeJournalHeader({'X', 'L'}, &back));
}

// Every kind of effect encodes and decodes to itself, stops at a cut or damaged record, and
// applies to a workbook exactly; a whole record of a kind the driver does not know fails.
TEST(JournalTest, EffectRecordsRoundTripApplyAndFailLoudly) {
  xls::Style date;
  date.numberFormat = "yyyy-mm-dd hh:mm:ss";
  date.bold = true;
  std::vector<Effect> first = {
      {Effect::Op::kAddSheet, "T", 0, 0, {}, {}, 0, {}, {}},
      {Effect::Op::kCell, "T", 0, 0, xls::Cell::Text("Zo\xc3\xab"), {}, 0, {}, {}},
      {Effect::Op::kAddStyle, "", 0, 0, {}, {}, 1, date, {}},
      {Effect::Op::kCell, "S", 3, 2, xls::Cell::DateTime(45351.5, 1), {}, 0, {}, {}},
      // Cells side by side go as one row of cells.
      {Effect::Op::kCell, "S", 3, 3, xls::Cell::Text(""), {}, 0, {}, {}},
      {Effect::Op::kCell, "S", 3, 4, xls::Cell::Number(2.5), {}, 0, {}, {}},
      {Effect::Op::kCell, "S", 3, 5, xls::Cell(), {}, 0, {}, {}},
      {Effect::Op::kCell, "T", 1, 255, xls::Cell::Number(-0.0), {}, 0, {}, {}},
      {Effect::Op::kCell, "S", 0, 0, xls::Cell(), {}, 0, {}, {}},
      {Effect::Op::kClearRange, "S", 0, 0, {}, CellRange{1, 1, 1, 1}, 0, {}, {}},
      {Effect::Op::kAddName, "T", 0, 0, {}, CellRange{0, 0, 65535, 255}, 0, {}, "T"},
  };
  std::vector<Effect> second = {{Effect::Op::kRemoveName, "", 0, 0, {}, {}, 0, {}, "T"},
                                {Effect::Op::kClearSheet, "T", 0, 0, {}, {}, 0, {}, {}}};
  std::vector<std::uint8_t> bytes;
  for (const auto* unit : {&first, &second}) {
    EffectLog log;
    for (const Effect& e : *unit) log.Add(e);
    auto rec = EncodeEffectRecord(log);
    bytes.insert(bytes.end(), rec.begin(), rec.end());
  }
  std::vector<std::vector<Effect>> units;
  std::size_t consumed = 0;
  ASSERT_TRUE(DecodeEffectRecords(bytes.data(), bytes.size(), &units, &consumed).ok());
  EXPECT_EQ(consumed, bytes.size());
  ASSERT_EQ(units.size(), 2u);
  EXPECT_TRUE(units[0] == first);
  EXPECT_TRUE(units[1] == second);

  xls::Workbook book;
  book.addSheet("S").set(0, 0, xls::Cell::Text("x"));
  book.sheets()[0].set(1, 1, xls::Cell::Number(7));
  ASSERT_TRUE(ApplyEffects(units[0], &book).ok());
  EXPECT_TRUE(book.sheets()[0].at(0, 0).isEmpty());
  EXPECT_TRUE(book.sheets()[0].at(1, 1).isEmpty());
  EXPECT_EQ(book.sheets()[0].at(3, 2).type, xls::CellType::kDateTime);
  EXPECT_EQ(book.styles()[1], date);
  EXPECT_EQ(book.findSheet("T")->at(0, 0).text.view(), "Zo\xc3\xab");
  EXPECT_TRUE(std::signbit(book.findSheet("T")->at(1, 255).number));
  ASSERT_NE(book.findName("T"), nullptr);
  EXPECT_EQ(book.findName("T")->sheet, 1);
  EXPECT_EQ(book.findName("T")->lastRow, 65535);
  ASSERT_TRUE(ApplyEffects(units[1], &book).ok());
  EXPECT_EQ(book.findName("T"), nullptr);
  EXPECT_TRUE(book.findSheet("T")->at(0, 0).isEmpty());
  // The same unit again does not fit: the sheet exists, the style lands at its index but the
  // sheet cannot be added twice.
  EXPECT_FALSE(ApplyEffects(units[0], &book).ok());

  const std::size_t one = EncodeEffectRecord([&] {
                            EffectLog log;
                            for (const Effect& e : first) log.Add(e);
                            return log;
                          }())
                              .size();
  for (std::size_t cut = one; cut < bytes.size(); ++cut) {
    units.clear();
    ASSERT_TRUE(DecodeEffectRecords(bytes.data(), cut, &units, &consumed).ok());
    EXPECT_EQ(units.size(), 1u) << cut;
    EXPECT_EQ(consumed, one);
  }
  // A whole record (its checksum right) of an unknown kind, or with an unknown effect.
  for (std::uint8_t at : {std::uint8_t{0}, std::uint8_t{1}}) {
    std::vector<std::uint8_t> payload = {1, 1, 1, 0, 0, 0, 'S', 4};
    payload[at] = 0x7f;
    std::vector<std::uint8_t> rec = {static_cast<std::uint8_t>(payload.size()), 0, 0, 0};
    const std::uint32_t sum = Crc32c(payload.data(), payload.size());
    for (int i = 0; i < 4; ++i) rec.push_back(static_cast<std::uint8_t>(sum >> (8 * i)));
    rec.insert(rec.end(), payload.begin(), payload.end());
    units.clear();
    Error e = DecodeEffectRecords(rec.data(), rec.size(), &units, &consumed);
    EXPECT_EQ(e.kind(), ErrorKind::kWorkbookCorrupt) << int(at);
  }
}

// CRC-32C as the processor computes it and as the table does: the check value of the
// standard, and agreement on lengths that leave every remainder of a word.
TEST(JournalTest, Crc32cOfBothWays) {
  const std::string check = "123456789";
  const auto* p = reinterpret_cast<const std::uint8_t*>(check.data());
  EXPECT_EQ(Crc32c(p, check.size()), 0xE3069283u);
  EXPECT_EQ(Crc32cPortable(p, check.size()), 0xE3069283u);
  std::vector<std::uint8_t> bytes(1000);
  for (std::size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<std::uint8_t>(i * 167 + 13);
  for (std::size_t n = 0; n < 20; ++n) {
    EXPECT_EQ(Crc32c(bytes.data() + 3, bytes.size() - 3 - n),
              Crc32cPortable(bytes.data() + 3, bytes.size() - 3 - n))
        << n;
  }
}

class DatabaseTest : public ::testing::Test {
 protected:
  void SetUp() override {
    char pattern[] = "/tmp/xlsodbc-db-XXXXXX";
    dir_ = mkdtemp(pattern);
    path_ = dir_ + "/book.xls";
  }
  void TearDown() override {
    fileio::ResetSysCalls();
    std::filesystem::remove_all(dir_);
  }
  Error Open(std::unique_ptr<Database>* db, bool readOnly = false,
             std::uint64_t foldFloorBytes = 64u << 20, SyncMode sync = SyncMode::kNormal) {
    DatabaseOptions o;
    o.path = path_;
    o.create = true;
    o.readOnly = readOnly;
    o.lockTimeoutMs = 2000;
    o.foldFloorBytes = foldFloorBytes;
    o.sync = sync;
    return Database::Open(o, db);
  }
  Error Run(Database* db, const std::string& sql, Outcome* out = nullptr) {
    Statement st;
    Error e = ParseSql(sql, &st);
    Outcome local;
    return e.ok() ? db->Execute(sql, st, {}, out ? out : &local) : e;
  }
  // Rows under the header of sheet S in the file itself, -1 when it cannot be read.
  int RowsOnDisk() {
    xls::Workbook wb;
    if (!xls::ReadWorkbook(path_, &wb).ok()) return -1;
    const xls::Sheet* s = wb.findSheet("S");
    return s ? s->usedRows() - 1 : -1;
  }
  // The file itself: rows under sheet S's header, and " T" when sheet T is there.
  std::string StateOnDisk() {
    xls::Workbook wb;
    if (!xls::ReadWorkbook(path_, &wb).ok()) return "unreadable";
    const xls::Sheet* s = wb.findSheet("S");
    return (s ? "S" + std::to_string(s->usedRows() - 1) : "no S") + (wb.findSheet("T") ? " T" : "");
  }
  static std::string ReadAll(const std::string& p) {
    std::ifstream in(p, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
  }
  std::string dir_, path_;
};

// The workbook is read straight into the decoder's buffer, sized by the file's length when
// opened: a big file (held in huge-page memory) comes back whole, and so does one that grows
// while it is read, here a read that serves more than the file's length in small pieces.
TEST_F(DatabaseTest, WholeFileReadsBigAndGrowingFiles) {
  std::string big(5 << 20, '\0');
  for (std::size_t i = 0; i < big.size(); ++i) big[i] = static_cast<char>(i * 131 % 251);
  std::ofstream(path_, std::ios::binary) << big;
  xls::FileBytes bytes;
  ASSERT_TRUE(ReadWholeFile(path_, &bytes).ok());
  EXPECT_EQ(std::string(reinterpret_cast<const char*>(bytes.data()), bytes.size()), big);

  std::ofstream(path_, std::ios::binary | std::ios::trunc) << "tiny";
  static std::size_t served;
  served = 0;
  fileio::Sys().read = [](int, void* buf, size_t n) -> ssize_t {
    const std::size_t left = 10000 - served, take = std::min({n, left, std::size_t{7}});
    for (std::size_t i = 0; i < take; ++i)
      static_cast<char*>(buf)[i] = static_cast<char>('a' + (served + i) % 26);
    served += take;
    return static_cast<ssize_t>(take);
  };
  ASSERT_TRUE(ReadWholeFile(path_, &bytes).ok());
  ASSERT_EQ(bytes.size(), 10000u);
  for (std::size_t i = 0; i < bytes.size(); ++i) ASSERT_EQ(bytes.data()[i], 'a' + i % 26) << i;
}

// Each file call of a statement and of the fold at disconnect fails in turn, once or for
// good, with the journal synced by each statement (FULL) or by the fold only (NORMAL): an
// INSERT appends to the journal and Close folds it into the workbook; a CREATE TABLE beside
// an existing sheet must never be taken for the first change of a new file.
// Afterwards the file on disk is whole and holds the state before or after the statement,
// and once a connection has folded the journal it holds the statement exactly when the
// statement reported success.
TEST_F(DatabaseTest, FailedCallsLeaveTheOldOrTheNewWorkbook) {
  {
    std::unique_ptr<Database> db;
    ASSERT_TRUE(Open(&db).ok());
    ASSERT_TRUE(Run(db.get(), "CREATE TABLE [S] ([n] char(255))").ok());
  }
  const std::string reference = dir_ + "/reference.xls";
  std::filesystem::copy_file(path_, reference);
  struct Case {
    const char* sql;
    const char* after;  // the file's state once the statement is in it
  } cases[] = {{"INSERT INTO [S] VALUES (1)", "S1"}, {"CREATE TABLE [T] ([n] char(255))", "S0 T"}};
  for (const Case& c : cases) {
    for (auto [sync, mode] :
         {std::pair{SyncMode::kFull, FailNth::kOnce}, std::pair{SyncMode::kFull, FailNth::kForGood},
          std::pair{SyncMode::kNormal, FailNth::kOnce},
          std::pair{SyncMode::kNormal, FailNth::kForGood}}) {
      bool completed = false;
      for (int n = 1; !completed; ++n) {
        ASSERT_LE(n, 200) << "the statement never completed";
        std::filesystem::copy_file(reference, path_,
                                   std::filesystem::copy_options::overwrite_existing);
        std::filesystem::remove(path_ + "-journal");
        std::unique_ptr<Database> db;
        ASSERT_TRUE(Open(&db, false, 64u << 20, sync).ok());
        Error e, closed;
        {
          FailNth fail(n, mode);
          e = Run(db.get(), c.sql);
          closed = db->Close();
          completed = !fail.fired();
        }
        db.reset();
        const std::string where = std::string(c.sql) + (sync == SyncMode::kFull ? " FULL" : "") +
                                  ", call " + std::to_string(n) + ": " + e.message() + " / " +
                                  closed.message();
        const std::string after = StateOnDisk();
        EXPECT_TRUE(after == "S0" || after == c.after) << after << " after " << where;
        std::unique_ptr<Database> check;
        ASSERT_TRUE(Open(&check).ok()) << where;
        check->Close();
        // Only an error that says the change may have been saved leaves it open.
        if (e.message().find("may have been saved") == std::string::npos) {
          EXPECT_EQ(StateOnDisk(), e.ok() ? c.after : "S0") << where;
        }
      }
    }
  }
}

TEST_F(DatabaseTest, JournalFoldsWhenItOutgrowsTheWorkbook) {
  std::unique_ptr<Database> db;
  ASSERT_TRUE(Open(&db, false, /*foldFloorBytes=*/0).ok());
  ASSERT_TRUE(Run(db.get(), "CREATE TABLE [S] ([n] char(255), [text] char(255))").ok());
  std::uintmax_t folds = 0, lastSize = std::filesystem::file_size(path_);
  for (int i = 0; i < 400; ++i) {
    ASSERT_TRUE(Run(db.get(), "INSERT INTO [S] VALUES (" + std::to_string(i) +
                                  ", 'some words to make the row longer than its record')")
                    .ok());
    std::uintmax_t size = std::filesystem::file_size(path_);
    if (size != lastSize) ++folds, lastSize = size;
    // A fold removes the journal; the next change starts another.
    const std::string journal = path_ + "-journal";
    if (std::filesystem::exists(journal)) {
      EXPECT_LE(std::filesystem::file_size(journal), size + 200);
    }
  }
  EXPECT_GT(folds, 0u);
  EXPECT_LT(folds, 40u);  // geometric growth: a handful of folds, not one per row
  ASSERT_TRUE(db->Close().ok());
  EXPECT_EQ(RowsOnDisk(), 400);
}

TEST_F(DatabaseTest, ReadOnlyAndMissingFiles) {
  std::unique_ptr<Database> db;
  DatabaseOptions o;
  o.path = path_;
  Error e = Database::Open(o, &db);
  EXPECT_EQ(e.kind(), ErrorKind::kWorkbookMissing);
  ASSERT_TRUE(Open(&db).ok());
  ASSERT_TRUE(Run(db.get(), "CREATE TABLE [S] ([n] char(255))").ok());
  db.reset();
  ASSERT_TRUE(Open(&db, /*readOnly=*/true).ok());
  EXPECT_EQ(Run(db.get(), "INSERT INTO [S] VALUES (1)").kind(), ErrorKind::kReadOnly);
  Outcome out;
  ASSERT_TRUE(Run(db.get(), "SELECT * FROM [S]", &out).ok());
  EXPECT_EQ(out.result->columns().size(), 1u);
}

// A journal whose statements already reached the file (the fold finished, the journal was
// not reset) is recognised by its header and not applied twice.
TEST_F(DatabaseTest, StaleJournalIsNotReplayed) {
  std::unique_ptr<Database> db;
  ASSERT_TRUE(Open(&db).ok());
  ASSERT_TRUE(Run(db.get(), "CREATE TABLE [S] ([n] char(255))").ok());
  ASSERT_TRUE(Run(db.get(), "INSERT INTO [S] VALUES (1)").ok());
  std::filesystem::copy_file(path_ + "-journal", dir_ + "/saved");
  ASSERT_TRUE(db->Close().ok());
  EXPECT_EQ(RowsOnDisk(), 1);
  std::filesystem::copy_file(dir_ + "/saved", path_ + "-journal");
  ASSERT_TRUE(Open(&db).ok());
  Outcome out;
  ASSERT_TRUE(Run(db.get(), "SELECT * FROM [S]", &out).ok());
  EXPECT_EQ(out.result->rowCount(), 1);
}

// A process that dies after its statements returned leaves the workbook as it was and the
// journal beside it; the next connection replays the journal. Whether the writing
// connection first only read (and so had not hashed the workbook yet) must not matter.
TEST_F(DatabaseTest, JournalOfADeadWriterIsReplayed) {
  for (bool readFirst : {false, true}) {
    std::filesystem::remove(path_);
    std::filesystem::remove(path_ + "-journal");
    std::unique_ptr<Database> db;
    ASSERT_TRUE(Open(&db).ok());
    ASSERT_TRUE(Run(db.get(), "CREATE TABLE [S] ([n] char(255))").ok());
    // Enough rows that two more journaled ones stay below the workbook's size (no fold).
    for (int i = 0; i < 20; ++i) {
      ASSERT_TRUE(Run(db.get(), "INSERT INTO [S] VALUES ('a row of some length')").ok());
    }
    ASSERT_TRUE(db->Close().ok());
    ASSERT_TRUE(Open(&db).ok());
    if (readFirst) {
      ASSERT_TRUE(Run(db.get(), "SELECT * FROM [S]").ok());
    }
    ASSERT_TRUE(Run(db.get(), "INSERT INTO [S] VALUES (1)").ok());
    ASSERT_TRUE(Run(db.get(), "INSERT INTO [S] VALUES (2)").ok());
    // What a crash leaves: the unchanged workbook and the journal.
    std::filesystem::copy_file(path_, dir_ + "/book.saved");
    std::filesystem::copy_file(path_ + "-journal", dir_ + "/journal.saved");
    db.reset();
    std::filesystem::rename(dir_ + "/book.saved", path_);
    std::filesystem::rename(dir_ + "/journal.saved", path_ + "-journal");
    ASSERT_EQ(RowsOnDisk(), 20) << readFirst;
    ASSERT_TRUE(Open(&db).ok());
    Outcome out;
    ASSERT_TRUE(Run(db.get(), "SELECT * FROM [S]", &out).ok());
    EXPECT_EQ(out.result->rowCount(), 22) << readFirst;
    db.reset();
    EXPECT_EQ(RowsOnDisk(), 22) << readFirst;
  }
}

// A journal this driver cannot read (a later format, or a whole record of a kind it does not
// know) fails to connect with a clear error, and the workbook and journal stay byte for byte.
TEST_F(DatabaseTest, UnknownJournalFailsToConnectAndTouchesNothing) {
  for (const char* damage : {"version", "record kind"}) {
    std::filesystem::remove(path_);
    std::filesystem::remove(path_ + "-journal");
    std::unique_ptr<Database> db;
    ASSERT_TRUE(Open(&db).ok());
    ASSERT_TRUE(Run(db.get(), "CREATE TABLE [S] ([n] char(255))").ok());
    ASSERT_TRUE(Run(db.get(), "INSERT INTO [S] VALUES (1)").ok());
    std::string journal = ReadAll(path_ + "-journal");
    const std::string workbook = ReadAll(path_);
    db.reset();  // folds; put both back as a crash would have left them
    std::ofstream(path_, std::ios::binary | std::ios::trunc) << workbook;
    ASSERT_GT(journal.size(), kJournalHeaderSize + 9);
    if (std::string(damage) == "version") {
      journal[7] = '4';
    } else {
      // The record's kind byte, its checksum made right again.
      std::string payload = journal.substr(kJournalHeaderSize + 8);
      payload[0] = 7;
      const std::uint32_t sum =
          Crc32c(reinterpret_cast<const std::uint8_t*>(payload.data()), payload.size());
      for (int i = 0; i < 4; ++i) journal[kJournalHeaderSize + 4 + i] = char(sum >> (8 * i));
      journal.replace(kJournalHeaderSize + 8, payload.size(), payload);
    }
    std::ofstream(path_ + "-journal", std::ios::binary) << journal;
    Error e = Open(&db);
    EXPECT_EQ(e.kind(), ErrorKind::kWorkbookCorrupt) << damage;
    EXPECT_NE(e.message().find("left as they are"), std::string::npos) << e.message();
    EXPECT_EQ(ReadAll(path_), workbook) << damage;
    EXPECT_EQ(ReadAll(path_ + "-journal"), journal) << damage;
  }
}

// A journal of SQL text that the driver at 365bc40 wrote and never folded
// (legacy-journal/README.md) is replayed once at connect and folded at once; then the
// workbook holds the statements and the journal is gone.
TEST_F(DatabaseTest, LegacyJournalIsReplayedOnceAndFolded) {
  const std::string data = std::string(XLSODBC_TEST_DATA) + "/legacy-journal/";
  std::filesystem::copy_file(data + "book.xls", path_);
  std::filesystem::copy_file(data + "book.xls-journal", path_ + "-journal");
  auto rows = [&](Database* db, const std::string& sql) {
    Outcome out;
    std::string all, text;
    if (!Run(db, sql, &out).ok()) return std::string("error");
    for (long r = 0; r < out.result->rowCount(); ++r) {
      for (int c = 0; c < static_cast<int>(out.result->columns().size()); ++c) {
        all += (out.result->value(r, c, &text) ? text : "NULL") + ",";
      }
      all += " ";
    }
    return all;
  };
  const std::string people = "Ann,HR,4700, Bob,IT,6000.5, Zo\xc3\xab,NULL,-0.125, ";
  for (int connect = 0; connect < 2; ++connect) {
    std::unique_ptr<Database> db;
    ASSERT_TRUE(Open(&db).ok());
    EXPECT_FALSE(std::filesystem::exists(path_ + "-journal")) << "folded at connect";
    EXPECT_EQ(rows(db.get(), "SELECT * FROM [People]"), people) << connect;
    EXPECT_EQ(rows(db.get(), "SELECT * FROM [Depts]"), "IT,2, ") << connect;
  }
  std::unique_ptr<Database> db;
  ASSERT_TRUE(Open(&db).ok());
  ASSERT_TRUE(Run(db.get(), "INSERT INTO [Depts] VALUES ('HR', 3)").ok());
  std::ifstream in(path_ + "-journal", std::ios::binary);
  std::string head(8, '\0');
  in.read(&head[0], 8);
  EXPECT_EQ(head, "XLSJRNL3");
}

// A journal of version 2 (records summed with FNV-1a), left by the driver before this one,
// is replayed and folded at connect; the next change starts a journal of today's version.
TEST_F(DatabaseTest, VersionTwoJournalIsReplayedAndFolded) {
  std::unique_ptr<Database> db;
  ASSERT_TRUE(Open(&db).ok());
  ASSERT_TRUE(Run(db.get(), "CREATE TABLE [S] ([n] char(255))").ok());
  ASSERT_TRUE(Run(db.get(), "INSERT INTO [S] VALUES (1)").ok());
  ASSERT_TRUE(db->Close().ok());
  ASSERT_TRUE(Open(&db).ok());
  ASSERT_TRUE(Run(db.get(), "INSERT INTO [S] VALUES (2)").ok());
  ASSERT_TRUE(Run(db.get(), "INSERT INTO [S] VALUES (3)").ok());
  std::string journal = ReadAll(path_ + "-journal");
  const std::string workbook = ReadAll(path_);
  db.reset();
  // The same records as the older driver framed them.
  journal[7] = '2';
  for (std::size_t at = kJournalHeaderSize; at + 8 <= journal.size();) {
    const auto* rec = reinterpret_cast<const std::uint8_t*>(journal.data() + at);
    const std::uint32_t len = rec[0] | rec[1] << 8 | rec[2] << 16 | std::uint32_t{rec[3]} << 24;
    const std::uint32_t sum = Fnv32(rec + 8, len);
    for (int i = 0; i < 4; ++i) journal[at + 4 + i] = static_cast<char>(sum >> (8 * i));
    at += 8 + len;
  }
  std::ofstream(path_, std::ios::binary | std::ios::trunc) << workbook;
  std::ofstream(path_ + "-journal", std::ios::binary | std::ios::trunc) << journal;
  ASSERT_EQ(RowsOnDisk(), 1);
  ASSERT_TRUE(Open(&db).ok());
  EXPECT_FALSE(std::filesystem::exists(path_ + "-journal")) << "folded at connect";
  EXPECT_EQ(RowsOnDisk(), 3);
  ASSERT_TRUE(Run(db.get(), "INSERT INTO [S] VALUES (4)").ok());
  EXPECT_EQ(ReadAll(path_ + "-journal").substr(0, 8), "XLSJRNL3");
  db.reset();
  EXPECT_EQ(RowsOnDisk(), 4);
}

// A statement's lock is kept for the next one, and given up when someone else wants it:
// another connection of this process gets it at once (it may not wait here at all), and
// one in another process within its wait. Each side then sees what the other wrote.
TEST_F(DatabaseTest, KeptLockIsGivenUpToOthers) {
  std::unique_ptr<Database> a, b;
  ASSERT_TRUE(Open(&a).ok());
  ASSERT_TRUE(Run(a.get(), "CREATE TABLE [S] ([n] char(255))").ok());
  ASSERT_TRUE(Run(a.get(), "INSERT INTO [S] VALUES (1)").ok());
  DatabaseOptions o;
  o.path = path_;
  o.lockTimeoutMs = 0;
  ASSERT_TRUE(Database::Open(o, &b).ok());
  ASSERT_TRUE(Run(a.get(), "INSERT INTO [S] VALUES (2)").ok());
  ASSERT_TRUE(Run(b.get(), "INSERT INTO [S] VALUES (3)").ok());
  auto rows = [&](Database* db) {
    Outcome out;
    return Run(db, "SELECT * FROM [S]", &out).ok() ? out.result->rowCount() : -1;
  };
  EXPECT_EQ(rows(a.get()), 3);
  ASSERT_TRUE(Run(a.get(), "INSERT INTO [S] VALUES (4)").ok());
  EXPECT_EQ(rows(b.get()), 4);

  ASSERT_TRUE(Run(a.get(), "INSERT INTO [S] VALUES (5)").ok());
  pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    std::unique_ptr<Database> c;
    o.lockTimeoutMs = 5000;
    _exit(Database::Open(o, &c).ok() && Run(c.get(), "INSERT INTO [S] VALUES (6)").ok() &&
                  rows(c.get()) == 6 && c->Close().ok()
              ? 0
              : 1);
  }
  int status = 0;
  waitpid(child, &status, 0);
  ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
  EXPECT_EQ(rows(a.get()), 6);
  EXPECT_EQ(rows(b.get()), 6);
}

// Cut or damaged workbook files: connecting fails with an error naming the file, or (when
// the damage missed everything that matters) succeeds and answers queries; never a crash.
TEST_F(DatabaseTest, DamagedWorkbooksGiveErrorsNotCrashes) {
  {
    std::unique_ptr<Database> db;
    ASSERT_TRUE(Open(&db).ok());
    ASSERT_TRUE(Run(db.get(), "CREATE TABLE [S] ([n] char(255), [t] char(255))").ok());
    for (int i = 0; i < 50; ++i) {
      ASSERT_TRUE(Run(db.get(), "INSERT INTO [S] VALUES (" + std::to_string(i) + ", 'row')").ok());
    }
  }
  std::ifstream in(path_, std::ios::binary);
  std::vector<char> good((std::istreambuf_iterator<char>(in)), {});
  ASSERT_GT(good.size(), 64u);
  std::vector<std::vector<char>> damaged;
  for (std::size_t cut : {std::size_t{0}, std::size_t{1}, std::size_t{8}, std::size_t{511},
                          good.size() / 2, good.size() - 1}) {
    damaged.emplace_back(good.begin(), good.begin() + static_cast<std::ptrdiff_t>(cut));
  }
  for (std::size_t at = 0; at < good.size(); at += good.size() / 48 + 1) {
    damaged.push_back(good);
    damaged.back()[at] = static_cast<char>(damaged.back()[at] ^ 0x5A);
  }
  int refused = 0;
  for (const auto& bytes : damaged) {
    std::ofstream(path_, std::ios::binary | std::ios::trunc)
        .write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    std::unique_ptr<Database> db;
    DatabaseOptions o;
    o.path = path_;
    o.readOnly = true;
    Error e = Database::Open(o, &db);
    if (!e.ok()) {
      ++refused;
      EXPECT_EQ(e.kind(), ErrorKind::kWorkbookCorrupt) << e.message();
      EXPECT_NE(e.message().find(path_), std::string::npos) << e.message();
      continue;
    }
    Outcome out;
    Error q = Run(db.get(), "SELECT * FROM [S]", &out);
    if (q.ok()) {
      std::string v;
      for (long r = 0; r < out.result->rowCount(); ++r) out.result->value(r, 0, &v);
    }
  }
  EXPECT_GE(refused, 6);  // at least every cut file
}

}  // namespace
}  // namespace xlsodbc
