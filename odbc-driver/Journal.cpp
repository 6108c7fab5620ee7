#include "odbc-driver/Journal.h"

#include <cstring>

#include "odbc-driver/WorkbookStore.h"

namespace xlsodbc {

namespace {

constexpr char kMagic[8] = {'X', 'L', 'S', 'J', 'R', 'N', 'L', '1'};
constexpr std::uint32_t kMaxPayload = 64u << 20;

void Put32(std::vector<std::uint8_t>* out, std::uint32_t v) {
  for (int i = 0; i < 4; ++i) out->push_back(static_cast<std::uint8_t>(v >> (8 * i)));
}
void Put64(std::vector<std::uint8_t>* out, std::uint64_t v) {
  for (int i = 0; i < 8; ++i) out->push_back(static_cast<std::uint8_t>(v >> (8 * i)));
}
void PutBytes(std::vector<std::uint8_t>* out, const std::string& s) {
  Put32(out, static_cast<std::uint32_t>(s.size()));
  out->insert(out->end(), s.begin(), s.end());
}

// Bounds-checked reading of a payload.
class Reader {
 public:
  Reader(const std::uint8_t* p, std::size_t n) : p_(p), n_(n) {}
  bool Get32(std::uint32_t* v) {
    if (n_ - at_ < 4) return false;
    *v = 0;
    for (int i = 0; i < 4; ++i) *v |= static_cast<std::uint32_t>(p_[at_ + i]) << (8 * i);
    at_ += 4;
    return true;
  }
  bool Get64(std::uint64_t* v) {
    std::uint32_t lo, hi;
    if (!Get32(&lo) || !Get32(&hi)) return false;
    *v = lo | (static_cast<std::uint64_t>(hi) << 32);
    return true;
  }
  bool GetByte(std::uint8_t* v) {
    if (at_ >= n_) return false;
    *v = p_[at_++];
    return true;
  }
  bool GetBytes(std::string* s) {
    std::uint32_t len;
    if (!Get32(&len) || n_ - at_ < len) return false;
    s->assign(reinterpret_cast<const char*>(p_ + at_), len);
    at_ += len;
    return true;
  }
  bool done() const { return at_ == n_; }

 private:
  const std::uint8_t* p_;
  std::size_t n_;
  std::size_t at_ = 0;
};

bool DecodePayload(const std::uint8_t* p, std::size_t n, JournalRecord* r) {
  Reader in(p, n);
  std::uint32_t count;
  std::uint8_t flags;
  if (!in.GetByte(&flags) || flags > 1) return false;
  r->firstRowHasNames = flags & 1;
  if (!in.GetBytes(&r->sql) || !in.Get32(&count) || count > n) return false;
  for (std::uint32_t i = 0; i < count; ++i) {
    std::uint8_t kind;
    Value v;
    if (!in.GetByte(&kind) || kind > 2 || !in.GetBytes(&v.text)) return false;
    v.kind =
        kind == 0 ? Value::Kind::kNull : (kind == 1 ? Value::Kind::kText : Value::Kind::kNumber);
    if (v.kind == Value::Kind::kNumber) {
      if (v.text.size() != 8) return false;
      std::uint64_t bits = 0;
      for (int b = 0; b < 8; ++b)
        bits |= static_cast<std::uint64_t>(
                    static_cast<std::uint8_t>(v.text[static_cast<std::size_t>(b)]))
                << (8 * b);
      std::memcpy(&v.number, &bits, sizeof bits);
      v.text.clear();
    }
    r->parameters.push_back(std::move(v));
  }
  return in.done();
}

}  // namespace

std::vector<std::uint8_t> EncodeJournalHeader(const JournalHeader& h) {
  std::vector<std::uint8_t> out(kMagic, kMagic + sizeof kMagic);
  Put64(&out, h.baseSize);
  Put64(&out, h.baseHash);
  return out;
}

bool DecodeJournalHeader(const std::vector<std::uint8_t>& bytes, JournalHeader* h) {
  if (bytes.size() < kJournalHeaderSize || std::memcmp(bytes.data(), kMagic, sizeof kMagic) != 0) {
    return false;
  }
  Reader in(bytes.data() + 8, 16);
  return in.Get64(&h->baseSize) && in.Get64(&h->baseHash);
}

std::vector<std::uint8_t> EncodeJournalRecord(const JournalRecord& r) {
  std::vector<std::uint8_t> payload;
  payload.push_back(r.firstRowHasNames ? 1 : 0);
  PutBytes(&payload, r.sql);
  Put32(&payload, static_cast<std::uint32_t>(r.parameters.size()));
  for (const Value& v : r.parameters) {
    if (v.kind == Value::Kind::kNumber) {
      payload.push_back(2);
      std::uint64_t bits;
      std::memcpy(&bits, &v.number, sizeof bits);
      Put32(&payload, 8);
      Put64(&payload, bits);
    } else {
      payload.push_back(v.kind == Value::Kind::kText ? 1 : 0);
      PutBytes(&payload, v.kind == Value::Kind::kText ? v.text : std::string());
    }
  }
  std::vector<std::uint8_t> out;
  out.reserve(payload.size() + 8);
  Put32(&out, static_cast<std::uint32_t>(payload.size()));
  Put32(&out, Fnv32(payload.data(), payload.size()));
  out.insert(out.end(), payload.begin(), payload.end());
  return out;
}

std::vector<JournalRecord> DecodeJournalRecords(const std::uint8_t* bytes, std::size_t size,
                                                std::size_t* consumed) {
  std::vector<JournalRecord> records;
  std::size_t at = 0;
  while (size - at >= 8) {
    Reader head(bytes + at, 8);
    std::uint32_t len, sum;
    if (!head.Get32(&len) || !head.Get32(&sum)) break;
    if (len > kMaxPayload || size - at - 8 < len) break;
    const std::uint8_t* payload = bytes + at + 8;
    if (Fnv32(payload, len) != sum) break;
    JournalRecord r;
    if (!DecodePayload(payload, len, &r)) break;
    records.push_back(std::move(r));
    at += 8 + len;
  }
  *consumed = at;
  return records;
}

}  // namespace xlsodbc
