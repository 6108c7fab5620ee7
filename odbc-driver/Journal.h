// The redo journal's format (README.md, "Journal format"). The file "<workbook>-journal" is:
//
//   header  "XLSJRNL" | u8 version | u64 size of the workbook file it follows | u64 FNV-1a of
//           its bytes
//   record* u32 payload length | u32 checksum of the payload | payload
//
// Version '3' (what this driver writes) checksums a record with CRC-32C, which the processor
// computes at several bytes a cycle: a bulk load journals tens of megabytes. Version '2' is
// the same with FNV-1a; this driver replays it and folds it before it appends anything.
//
// Versions '2' and '3': a payload is one committed unit, the effects its
// statements had on the model, in the order they were made; replay applies them and runs no
// SQL. A unit's effects come from the places every write passes: CellWrites and CREATE/DROP
// TABLE in the executor, the SQL engine's cell log, and the Database for added formats.
//
//   payload u8 kind (1: a unit of effects) | effect*
//   effect  u8 op, then by op (ownership: Effect and EffectLog below encode these):
//     1 sheet       str name         the sheet the cell and clear effects after it name
//     2 add sheet   str name         a new empty sheet at the end; it becomes the sheet
//     3 add style   u16 index | u8 bold, horizontal, vertical, left, right, top, bottom |
//                   str number format     Workbook::addStyle, which must answer index
//     4 clear sheet                  every cell of the sheet (DROP TABLE of a sheet)
//     5 clear range u32 top, left, bottom, right        (DROP TABLE of a region: ClearRange)
//     6 cell        u32 row | u32 column | u8 type | u16 style | u64 number's bits | str text
//                   the cell's state after the unit's write: an empty cell of style 0 is
//                   cleared, anything else set; text only for type 1 (xls::CellType order)
//     9 row of cells u32 row | u32 first column | u16 count | count x (u8 type | u16 style |
//                   for a number, date, boolean or error u64 bits; for text str; else nothing)
//                   cells side by side, each as for 6: what a written row costs once
//     7 add name    str name | u32 first row, last row, first column, last column
//                   a workbook-level defined name over that area of the sheet (CREATE TABLE)
//     8 remove name str name         the workbook-level name (DROP TABLE)
//   str     u32 n | n bytes of UTF-8
//
// Version '1' (the driver before effects; read only, to replay a journal an older driver left):
//   payload u8 flags | u32 n | n bytes of SQL | u32 count | count x (u8 kind | u32 n | n bytes)
//   flags   bit 0: FIRSTROWHASNAMES of the connection that ran it; kind 0 NULL, 1 text, 2 number
//           (8 bytes, the double's bits)
//
// Integers are little-endian. A record is whole or it is not there: decoding stops at the
// first record that is cut short or fails its checksum (a crash while appending). A whole
// record that does not decode (a kind or op this driver does not know) is an error, never
// skipped: replay must not rebuild a different workbook in silence.
#pragma once

#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "odbc-driver/Error.h"
#include "odbc-driver/Sql.h"
#include "xls/Workbook.h"

namespace xlsodbc {

constexpr std::size_t kJournalHeaderSize = 24;
constexpr int kJournalVersion = 3;        // what this driver writes
constexpr int kFnvJournalVersion = 2;     // effects checksummed with FNV-1a; replayed and folded
constexpr int kLegacyJournalVersion = 1;  // SQL text; replayed and folded at connect

struct JournalHeader {
  int version = kJournalVersion;  // any byte after "XLSJRNL": the caller refuses the unknown
  std::uint64_t baseSize = 0;
  std::uint64_t baseHash = 0;
};

std::vector<std::uint8_t> EncodeJournalHeader(const JournalHeader& h);
// False when the bytes do not start with a header (too short, or not "XLSJRNL").
[[nodiscard]] bool DecodeJournalHeader(const std::vector<std::uint8_t>& bytes, JournalHeader* h);

// ---- versions 2 and 3: effects ----

struct Effect {
  enum class Op : std::uint8_t {
    kAddSheet = 2,
    kAddStyle = 3,
    kClearSheet = 4,
    kClearRange = 5,
    kCell = 6,
    kAddName = 7,
    kRemoveName = 8,
    // Encoding only: cells of one row side by side, decoded as one kCell each.
    kRowOfCells = 9,
  };
  Op op = Op::kCell;
  std::string sheet;  // every op but kAddStyle
  int row = 0, column = 0;
  xls::Cell cell;                // kCell
  CellRange range;               // kClearRange
  std::uint16_t styleIndex = 0;  // kAddStyle
  xls::Style style;              // kAddStyle
  std::string name;              // kAddName, kRemoveName
};
bool operator==(const Effect& a, const Effect& b);

// The effects of statements, encoded as they are made: the cell-writing layers (CellWrites,
// the SQL engine's virtual tables) add to it when a statement succeeds; a unit's log becomes
// one record. Consecutive effects on one sheet name it once.
// Bytes appended at the end: room grows by doubling and is not cleared first, so appending a
// cell costs a bounds check and its stores.
class ByteLog {
 public:
  ByteLog() = default;
  ByteLog(const ByteLog& o) { Append(o.data(), o.size()); }
  ByteLog& operator=(const ByteLog& o) {
    if (this != &o) {
      size_ = 0;
      Append(o.data(), o.size());
    }
    return *this;
  }
  ByteLog(ByteLog&& o) noexcept
      : data_(std::move(o.data_)), size_(std::exchange(o.size_, 0)),
        capacity_(std::exchange(o.capacity_, 0)) {}
  ByteLog& operator=(ByteLog&& o) noexcept {
    data_ = std::move(o.data_);
    size_ = std::exchange(o.size_, 0);
    capacity_ = std::exchange(o.capacity_, 0);
    return *this;
  }

  // n more bytes at the end, for the caller to store.
  std::uint8_t* Extend(std::size_t n) {
    if (capacity_ - size_ < n) Reserve(size_ + n);
    std::uint8_t* p = data_.get() + size_;
    size_ += n;
    return p;
  }
  void Append(const std::uint8_t* p, std::size_t n) {
    if (n > 0) std::memcpy(Extend(n), p, n);
  }
  std::uint8_t& operator[](std::size_t i) { return data_[i]; }
  std::uint8_t operator[](std::size_t i) const { return data_[i]; }
  const std::uint8_t* data() const { return data_.get(); }
  std::size_t size() const { return size_; }
  bool empty() const { return size_ == 0; }
  void clear() { size_ = 0; }

 private:
  void Reserve(std::size_t n);
  std::unique_ptr<std::uint8_t[]> data_;
  std::size_t size_ = 0, capacity_ = 0;
};

class EffectLog {
 public:
  void Add(const Effect& e);
  void AddSheet(const std::string& name);
  void AddStyle(std::uint16_t index, const xls::Style& style);
  void ClearSheet(const std::string& sheet);
  void ClearRange(const std::string& sheet, const CellRange& r);
  void SetCell(const std::string& sheet, int row, int column, const xls::Cell& cell) {
    NameSheet(sheet);
    AddCell(row, column, cell);
  }
  // SetCell in steps, for many cells of one sheet: the sheet is named once. AddCell names
  // the sheet of the last NameSheet, AddSheet or SetCell, with nothing else between.
  void NameSheet(const std::string& sheet);
  void AddCell(int row, int column, const xls::Cell& cell);
  // A workbook-level name over range of sheet; its removal.
  void AddName(const std::string& sheet, const std::string& name, const CellRange& range);
  void RemoveName(const std::string& name);

  // Adds other's effects after these.
  void Append(const EffectLog& other);

  bool empty() const { return bytes_.empty(); }
  std::size_t size() const { return bytes_.size(); }
  void clear();
  const std::uint8_t* data() const { return bytes_.data(); }

 private:
  ByteLog bytes_;
  std::string sheet_;  // the sheet named last
  bool named_ = false;
  // The row of cells written last, while nothing follows it: where its count is, the cell
  // that would extend it, and the end of the log it was at.
  std::size_t runCount_ = 0, runEnd_ = static_cast<std::size_t>(-1);
  int runRow_ = -1, runNext_ = -1;
};

// One record (length, checksum, payload) holding the log's effects as one unit, checksummed
// as version says.
std::vector<std::uint8_t> EncodeEffectRecord(const EffectLog& log, int version = kJournalVersion);

// Decodes the records in bytes[0, size) into one list of effects per record; *consumed is the
// end of the last whole record. Fails (kWorkbookCorrupt) on a whole record that does not decode.
Error DecodeEffectRecords(const std::uint8_t* bytes, std::size_t size,
                          std::vector<std::vector<Effect>>* records, std::size_t* consumed,
                          int version = kJournalVersion);

// Applies one unit's effects to book. Fails (kWorkbookCorrupt) when an effect does not fit the
// workbook (a sheet missing or already there, a style at another index, a cell off the grid);
// book may then hold part of the unit, and must be read again.
Error ApplyEffects(const std::vector<Effect>& effects, xls::Workbook* book);

// Clears the cells of r on s, values and formats: DROP TABLE of a region, and its replay.
void ClearRange(xls::Sheet* s, const CellRange& r);

// ---- version 1: SQL text ----

struct JournalRecord {
  bool firstRowHasNames = true;
  std::string sql;
  std::vector<Value> parameters;
};

std::vector<std::uint8_t> EncodeJournalRecord(const JournalRecord& r);
// Decodes the records in bytes[0, size); *consumed is the end of the last whole record.
std::vector<JournalRecord> DecodeJournalRecords(const std::uint8_t* bytes, std::size_t size,
                                                std::size_t* consumed);

}  // namespace xlsodbc
