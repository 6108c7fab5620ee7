// BIFF record framing: little-endian field access, the record identifiers the codec
// reads and writes, a growing record writer, and a bounds-checked record cursor.
//
// A record is a 2-byte identifier, a 2-byte length and that many bytes of data; BIFF8
// caps the data at 8,224 bytes and carries the rest of a long record in CONTINUE records.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "xls/Status.h"

namespace xls {

inline std::uint16_t GetU16(const std::uint8_t* p) {
  return static_cast<std::uint16_t>(p[0] | (p[1] << 8));
}
inline std::uint32_t GetU32(const std::uint8_t* p) {
  return std::uint32_t{p[0]} | (std::uint32_t{p[1]} << 8) | (std::uint32_t{p[2]} << 16) |
         (std::uint32_t{p[3]} << 24);
}
inline std::uint64_t GetU64(const std::uint8_t* p) {
  return GetU32(p) | (std::uint64_t{GetU32(p + 4)} << 32);
}
inline double GetDouble(const std::uint8_t* p) {
  std::uint64_t bits = GetU64(p);
  double d;
  std::memcpy(&d, &bits, sizeof d);
  return d;
}
inline void PutU16(std::uint8_t* p, std::uint16_t v) {
  p[0] = static_cast<std::uint8_t>(v);
  p[1] = static_cast<std::uint8_t>(v >> 8);
}
inline void PutU32(std::uint8_t* p, std::uint32_t v) {
  PutU16(p, static_cast<std::uint16_t>(v));
  PutU16(p + 2, static_cast<std::uint16_t>(v >> 16));
}
inline void PutU64(std::uint8_t* p, std::uint64_t v) {
  PutU32(p, static_cast<std::uint32_t>(v));
  PutU32(p + 4, static_cast<std::uint32_t>(v >> 32));
}

namespace rec {
constexpr std::uint16_t kBof = 0x0809;
constexpr std::uint16_t kEof = 0x000A;
constexpr std::uint16_t kContinue = 0x003C;
constexpr std::uint16_t kCodepage = 0x0042;
constexpr std::uint16_t kWindow1 = 0x003D;
constexpr std::uint16_t kDateMode = 0x0022;
constexpr std::uint16_t kFont = 0x0031;
constexpr std::uint16_t kFormat = 0x041E;
constexpr std::uint16_t kXf = 0x00E0;
constexpr std::uint16_t kStyle = 0x0293;
constexpr std::uint16_t kBoundSheet = 0x0085;
constexpr std::uint16_t kSst = 0x00FC;
constexpr std::uint16_t kExtSst = 0x00FF;
constexpr std::uint16_t kExternSheet = 0x0017;
constexpr std::uint16_t kSupBook = 0x01AE;
constexpr std::uint16_t kName = 0x0018;
constexpr std::uint16_t kColInfo = 0x007D;
constexpr std::uint16_t kDimensions = 0x0200;
constexpr std::uint16_t kRow = 0x0208;
constexpr std::uint16_t kLabelSst = 0x00FD;
constexpr std::uint16_t kLabel = 0x0204;
constexpr std::uint16_t kRString = 0x00D6;
constexpr std::uint16_t kNumber = 0x0203;
constexpr std::uint16_t kRk = 0x027E;
constexpr std::uint16_t kMulRk = 0x00BD;
constexpr std::uint16_t kBoolErr = 0x0205;
constexpr std::uint16_t kFormula = 0x0006;
constexpr std::uint16_t kString = 0x0207;
constexpr std::uint16_t kBlank = 0x0201;
constexpr std::uint16_t kMulBlank = 0x00BE;
constexpr std::uint16_t kWindow2 = 0x023E;
constexpr std::uint16_t kFilePass = 0x002F;
constexpr std::uint16_t kFormula3 = 0x0206, kFormula4 = 0x0406;  // also met in later files
// Excel 2-4 (BIFF2-4): beginnings, and the records that differ from later versions.
constexpr std::uint16_t kBof2 = 0x0009, kBof3 = 0x0209, kBof4 = 0x0409;
constexpr std::uint16_t kBlank2 = 0x0001, kInteger2 = 0x0002, kNumber2 = 0x0003;
constexpr std::uint16_t kLabel2 = 0x0004, kBoolErr2 = 0x0005, kString2 = 0x0007;
constexpr std::uint16_t kFormat2 = 0x001E, kFont3 = 0x0231, kIxfe2 = 0x0044;
constexpr std::uint16_t kXf2 = 0x0043, kXf3 = 0x0243, kXf4 = 0x0443;
constexpr std::uint16_t kSheetHeader4 = 0x008F;  // an Excel 4 workbook's sheet: size, name
}  // namespace rec

constexpr std::size_t kMaxRecordData = 8224;

// Appends records to a byte buffer. Fields are appended in order; Begin/End frame a
// record and patch its length.
class RecordWriter {
 public:
  explicit RecordWriter(std::vector<std::uint8_t>* out) : out_(out) {}
  void Begin(std::uint16_t id) {
    start_ = out_->size();
    U16(id);
    U16(0);
  }
  void End() {
    PutU16(out_->data() + start_ + 2, static_cast<std::uint16_t>(out_->size() - start_ - 4));
  }
  std::size_t recordLength() const { return out_->size() - start_ - 4; }
  void U8(std::uint8_t v) { out_->push_back(v); }
  void U16(std::uint16_t v) {
    std::uint8_t b[2];
    PutU16(b, v);
    out_->insert(out_->end(), b, b + 2);
  }
  void U32(std::uint32_t v) {
    std::uint8_t b[4];
    PutU32(b, v);
    out_->insert(out_->end(), b, b + 4);
  }
  void Double(double d) {
    std::uint64_t bits;
    std::memcpy(&bits, &d, sizeof d);
    std::uint8_t b[8];
    PutU64(b, bits);
    out_->insert(out_->end(), b, b + 8);
  }
  void Bytes(const void* p, std::size_t n) {
    const auto* b = static_cast<const std::uint8_t*>(p);
    out_->insert(out_->end(), b, b + n);
  }
  std::vector<std::uint8_t>& buffer() { return *out_; }

 private:
  std::vector<std::uint8_t>* out_;
  std::size_t start_ = 0;
};

struct Record {
  std::uint16_t id = 0;
  std::size_t offset = 0;  // of the record header in the stream
  const std::uint8_t* data = nullptr;
  std::size_t size = 0;
};

// Walks records from a stream offset. Next() fails with Corruption when a record's length
// runs past the end of the stream.
class RecordCursor {
 public:
  RecordCursor(const std::uint8_t* data, std::size_t size, std::size_t offset)
      : data_(data), size_(size), pos_(offset) {}
  // False at the end of the stream (no error) or on error (*status set). Inline: a full
  // sheet has millions of records.
  bool Next(Record* r, Status* status) {
    if (pos_ >= size_) return false;
    if (size_ - pos_ < 4) return Fail(status);
    r->id = GetU16(data_ + pos_);
    r->size = GetU16(data_ + pos_ + 2);
    if (r->size > size_ - pos_ - 4) return Fail(status);
    r->offset = pos_;
    r->data = data_ + pos_ + 4;
    pos_ += 4 + r->size;
    return true;
  }
  // The identifier of the record that Next() would return, or 0 at the end.
  std::uint16_t PeekId() const { return pos_ + 4 <= size_ ? GetU16(data_ + pos_) : 0; }

 private:
  // Sets the Corruption status for the record at pos_; returns false.
  bool Fail(Status* status) const;
  const std::uint8_t* data_;
  std::size_t size_;
  std::size_t pos_;
};

}  // namespace xls
