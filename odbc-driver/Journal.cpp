#include "odbc-driver/Journal.h"

#include <algorithm>
#include <cstring>

#include "odbc-driver/WorkbookStore.h"

namespace xlsodbc {

namespace {

constexpr char kMagic[7] = {'X', 'L', 'S', 'J', 'R', 'N', 'L'};
// Version 1 wrote statements of at most this size. A unit of effects may be a whole
// transaction: up to what the length field holds, less the frame.
constexpr std::uint32_t kMaxLegacyPayload = 64u << 20;
constexpr std::uint32_t kMaxUnitPayload = 0xFFFFFFF0u;

constexpr std::uint8_t kUnitRecord = 1;
constexpr std::uint8_t kUseSheet = 1;

// Room for n more bytes at the end of out, where the caller stores them (little-endian).
std::uint8_t* Grow(std::vector<std::uint8_t>* out, std::size_t n) {
  const std::size_t at = out->size();
  out->resize(at + n);
  return out->data() + at;
}
std::uint8_t* Grow(ByteLog* out, std::size_t n) { return out->Extend(n); }
std::uint8_t* Store(std::uint8_t* p, std::uint64_t v, int bytes) {
  for (int i = 0; i < bytes; ++i) *p++ = static_cast<std::uint8_t>(v >> (8 * i));
  return p;
}
template <typename Out>
void PutByte(Out* out, std::uint8_t v) {
  *Grow(out, 1) = v;
}
template <typename Out>
void Put16(Out* out, std::uint16_t v) {
  Store(Grow(out, 2), v, 2);
}
template <typename Out>
void Put32(Out* out, std::uint32_t v) {
  Store(Grow(out, 4), v, 4);
}
template <typename Out>
void Put64(Out* out, std::uint64_t v) {
  Store(Grow(out, 8), v, 8);
}
template <typename Out>
void PutBytes(Out* out, std::string_view s) {
  std::uint8_t* p = Store(Grow(out, 4 + s.size()), s.size(), 4);
  if (!s.empty()) std::memcpy(p, s.data(), s.size());
}
void PutFrame(const std::vector<std::uint8_t>& payload, std::vector<std::uint8_t>* out) {
  out->reserve(payload.size() + 8);
  Put32(out, static_cast<std::uint32_t>(payload.size()));
  Put32(out, Fnv32(payload.data(), payload.size()));
  out->insert(out->end(), payload.begin(), payload.end());
}

// Bounds-checked reading of a payload.
class Reader {
 public:
  Reader(const std::uint8_t* p, std::size_t n) : p_(p), n_(n) {}
  bool Get16(std::uint16_t* v) {
    if (n_ - at_ < 2) return false;
    *v = static_cast<std::uint16_t>(p_[at_] | (p_[at_ + 1] << 8));
    at_ += 2;
    return true;
  }
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
  // A row or column of the largest grid a sheet holds.
  bool GetIndex(int* v, int limit) {
    std::uint32_t u;
    if (!Get32(&u) || u >= static_cast<std::uint32_t>(limit)) return false;
    *v = static_cast<int>(u);
    return true;
  }
  bool done() const { return at_ == n_; }

 private:
  const std::uint8_t* p_;
  std::size_t n_;
  std::size_t at_ = 0;
};

// The next whole record's payload in bytes[*at, size); false at the end or at a record cut
// short or failing its checksum.
using Checksum = std::uint32_t (*)(const std::uint8_t*, std::size_t);

// The checksum a version's records carry.
Checksum ChecksumOf(int version) { return version >= 3 ? Crc32c : Fnv32; }

bool NextPayload(const std::uint8_t* bytes, std::size_t size, std::uint32_t maxPayload,
                 Checksum checksum, std::size_t* at, const std::uint8_t** payload,
                 std::uint32_t* len) {
  if (size - *at < 8) return false;
  Reader head(bytes + *at, 8);
  std::uint32_t sum;
  if (!head.Get32(len) || !head.Get32(&sum)) return false;
  if (*len > maxPayload || size - *at - 8 < *len) return false;
  *payload = bytes + *at + 8;
  if (checksum(*payload, *len) != sum) return false;
  *at += 8 + *len;
  return true;
}

bool DecodeStyle(Reader* in, xls::Style* s) {
  std::uint8_t f[7];
  for (std::uint8_t& b : f) {
    if (!in->GetByte(&b)) return false;
  }
  if (f[0] > 1 || f[1] > static_cast<int>(xls::HAlign::kCenterAcross) ||
      f[2] > static_cast<int>(xls::VAlign::kJustify)) {
    return false;
  }
  for (int i = 3; i < 7; ++i) {
    if (f[i] > static_cast<int>(xls::Border::kThick)) return false;
  }
  s->bold = f[0] != 0;
  s->horizontal = static_cast<xls::HAlign>(f[1]);
  s->vertical = static_cast<xls::VAlign>(f[2]);
  s->left = static_cast<xls::Border>(f[3]);
  s->right = static_cast<xls::Border>(f[4]);
  s->top = static_cast<xls::Border>(f[5]);
  s->bottom = static_cast<xls::Border>(f[6]);
  return in->GetBytes(&s->numberFormat);
}

bool DecodeCell(Reader* in, xls::Cell* c) {
  std::uint8_t type;
  std::uint64_t bits;
  std::string text;
  if (!in->GetByte(&type) || type > static_cast<int>(xls::CellType::kDateTime) ||
      !in->Get16(&c->style) || !in->Get64(&bits) || !in->GetBytes(&text)) {
    return false;
  }
  c->type = static_cast<xls::CellType>(type);
  std::memcpy(&c->number, &bits, sizeof bits);
  // What the encoder writes and nothing else, so that a record has one reading.
  if (c->type != xls::CellType::kText && !text.empty()) return false;
  if ((c->type == xls::CellType::kEmpty || c->type == xls::CellType::kText) && bits != 0) {
    return false;
  }
  c->text = text;
  return true;
}

// A cell of a row of cells: type, style, then the value its type has.
bool DecodeRowCell(Reader* in, xls::Cell* c) {
  std::uint8_t type;
  if (!in->GetByte(&type) || type > static_cast<int>(xls::CellType::kDateTime) ||
      !in->Get16(&c->style)) {
    return false;
  }
  c->type = static_cast<xls::CellType>(type);
  c->number = 0;
  std::string text;
  if (c->type == xls::CellType::kText) {
    if (!in->GetBytes(&text)) return false;
  } else if (c->type != xls::CellType::kEmpty) {
    std::uint64_t bits;
    if (!in->Get64(&bits)) return false;
    std::memcpy(&c->number, &bits, sizeof bits);
  }
  c->text = text;
  return true;
}

bool DecodeUnit(const std::uint8_t* p, std::size_t n, std::vector<Effect>* out) {
  Reader in(p, n);
  std::uint8_t kind;
  if (!in.GetByte(&kind) || kind != kUnitRecord) return false;
  std::string sheet;
  bool named = false;
  while (!in.done()) {
    std::uint8_t op;
    if (!in.GetByte(&op)) return false;
    if (op == kUseSheet) {
      if (!in.GetBytes(&sheet)) return false;
      named = true;
      continue;
    }
    Effect e;
    e.op = static_cast<Effect::Op>(op);
    switch (e.op) {
      case Effect::Op::kAddSheet:
        if (!in.GetBytes(&sheet)) return false;
        named = true;
        break;
      case Effect::Op::kAddStyle:
        if (!in.Get16(&e.styleIndex) || !DecodeStyle(&in, &e.style)) return false;
        break;
      case Effect::Op::kClearSheet:
        break;
      case Effect::Op::kClearRange:
        if (!in.GetIndex(&e.range.top, xls::kXlsxMaxRows) ||
            !in.GetIndex(&e.range.left, xls::kXlsxMaxColumns) ||
            !in.GetIndex(&e.range.bottom, xls::kXlsxMaxRows) ||
            !in.GetIndex(&e.range.right, xls::kXlsxMaxColumns)) {
          return false;
        }
        break;
      case Effect::Op::kAddName:
        if (!in.GetBytes(&e.name) || !in.GetIndex(&e.range.top, xls::kXlsxMaxRows) ||
            !in.GetIndex(&e.range.bottom, xls::kXlsxMaxRows) ||
            !in.GetIndex(&e.range.left, xls::kXlsxMaxColumns) ||
            !in.GetIndex(&e.range.right, xls::kXlsxMaxColumns)) {
          return false;
        }
        break;
      case Effect::Op::kRemoveName:
        if (!in.GetBytes(&e.name)) return false;
        break;
      case Effect::Op::kRowOfCells: {
        std::uint16_t count;
        if (!named || !in.GetIndex(&e.row, xls::kXlsxMaxRows) ||
            !in.GetIndex(&e.column, xls::kXlsxMaxColumns) || !in.Get16(&count) || count == 0 ||
            e.column + count > xls::kXlsxMaxColumns) {
          return false;
        }
        e.op = Effect::Op::kCell;
        e.sheet = sheet;
        for (std::uint16_t i = 0; i < count; ++i, ++e.column) {
          if (!DecodeRowCell(&in, &e.cell)) return false;
          out->push_back(e);
        }
        continue;
      }
      case Effect::Op::kCell:
        if (!in.GetIndex(&e.row, xls::kXlsxMaxRows) ||
            !in.GetIndex(&e.column, xls::kXlsxMaxColumns) || !DecodeCell(&in, &e.cell)) {
          return false;
        }
        break;
      default:
        return false;
    }
    if (e.op != Effect::Op::kAddStyle && e.op != Effect::Op::kRemoveName) {
      if (!named) return false;
      e.sheet = sheet;
    }
    out->push_back(std::move(e));
  }
  return true;
}

}  // namespace

std::vector<std::uint8_t> EncodeJournalHeader(const JournalHeader& h) {
  std::vector<std::uint8_t> out(kMagic, kMagic + sizeof kMagic);
  out.push_back(static_cast<std::uint8_t>('0' + h.version));
  Put64(&out, h.baseSize);
  Put64(&out, h.baseHash);
  return out;
}

bool DecodeJournalHeader(const std::vector<std::uint8_t>& bytes, JournalHeader* h) {
  if (bytes.size() < kJournalHeaderSize || std::memcmp(bytes.data(), kMagic, sizeof kMagic) != 0) {
    return false;
  }
  h->version = bytes[7] - '0';
  Reader in(bytes.data() + 8, 16);
  return in.Get64(&h->baseSize) && in.Get64(&h->baseHash);
}

// ---- versions 2 and 3 ----

bool operator==(const Effect& a, const Effect& b) {
  if (a.op != b.op || a.sheet != b.sheet) return false;
  switch (a.op) {
    case Effect::Op::kAddStyle:
      return a.styleIndex == b.styleIndex && a.style == b.style;
    case Effect::Op::kClearRange:
      return a.range.top == b.range.top && a.range.left == b.range.left &&
             a.range.bottom == b.range.bottom && a.range.right == b.range.right;
    case Effect::Op::kAddName:
      return a.name == b.name && a.range.top == b.range.top && a.range.left == b.range.left &&
             a.range.bottom == b.range.bottom && a.range.right == b.range.right;
    case Effect::Op::kRemoveName:
      return a.name == b.name;
    case Effect::Op::kCell:
      // Bitwise, so that a NaN's or -0's bits count.
      return a.row == b.row && a.column == b.column && a.cell.type == b.cell.type &&
             a.cell.style == b.cell.style && a.cell.text == b.cell.text &&
             std::memcmp(&a.cell.number, &b.cell.number, sizeof a.cell.number) == 0;
    default:
      return true;
  }
}

void ByteLog::Reserve(std::size_t n) {
  const std::size_t capacity = std::max<std::size_t>({n, 2 * capacity_, 256});
  std::unique_ptr<std::uint8_t[]> bigger(new std::uint8_t[capacity]);
  if (size_ > 0) std::memcpy(bigger.get(), data_.get(), size_);
  data_ = std::move(bigger);
  capacity_ = capacity;
}

void EffectLog::clear() {
  bytes_.clear();
  named_ = false;
  sheet_.clear();
  runEnd_ = static_cast<std::size_t>(-1);
}

void EffectLog::Append(const EffectLog& other) {
  if (other.empty()) return;
  // other's first sheet effect names its sheet: it began without one named.
  bytes_.Append(other.bytes_.data(), other.bytes_.size());
  sheet_ = other.sheet_;
  named_ = other.named_;
  runEnd_ = static_cast<std::size_t>(-1);  // the next cell starts a row of its own
}

void EffectLog::NameSheet(const std::string& sheet) {
  if (named_ && sheet == sheet_) return;
  PutByte(&bytes_, kUseSheet);
  PutBytes(&bytes_, sheet);
  sheet_ = sheet;
  named_ = true;
}

void EffectLog::AddSheet(const std::string& name) {
  PutByte(&bytes_, static_cast<std::uint8_t>(Effect::Op::kAddSheet));
  PutBytes(&bytes_, name);
  sheet_ = name;
  named_ = true;
}

void EffectLog::AddStyle(std::uint16_t index, const xls::Style& s) {
  PutByte(&bytes_, static_cast<std::uint8_t>(Effect::Op::kAddStyle));
  Put16(&bytes_, index);
  for (auto b : {static_cast<int>(s.bold), static_cast<int>(s.horizontal),
                 static_cast<int>(s.vertical), static_cast<int>(s.left), static_cast<int>(s.right),
                 static_cast<int>(s.top), static_cast<int>(s.bottom)}) {
    PutByte(&bytes_, static_cast<std::uint8_t>(b));
  }
  PutBytes(&bytes_, s.numberFormat);
}

void EffectLog::ClearSheet(const std::string& sheet) {
  NameSheet(sheet);
  PutByte(&bytes_, static_cast<std::uint8_t>(Effect::Op::kClearSheet));
}

void EffectLog::ClearRange(const std::string& sheet, const CellRange& r) {
  NameSheet(sheet);
  PutByte(&bytes_, static_cast<std::uint8_t>(Effect::Op::kClearRange));
  for (int v : {r.top, r.left, r.bottom, r.right}) Put32(&bytes_, static_cast<std::uint32_t>(v));
}

void EffectLog::AddCell(int row, int column, const xls::Cell& cell) {
  const bool extends = runEnd_ == bytes_.size() && row == runRow_ && column == runNext_ &&
                       (bytes_[runCount_] | (bytes_[runCount_ + 1] << 8)) < 0xFFFF;
  if (extends) {
    const unsigned n = (bytes_[runCount_] | (bytes_[runCount_ + 1] << 8)) + 1u;
    Store(&bytes_[runCount_], n, 2);
  } else {
    std::uint8_t* p = Grow(&bytes_, 11);
    *p++ = static_cast<std::uint8_t>(Effect::Op::kRowOfCells);
    p = Store(p, static_cast<std::uint32_t>(row), 4);
    p = Store(p, static_cast<std::uint32_t>(column), 4);
    Store(p, 1, 2);
    runCount_ = bytes_.size() - 2;
    runRow_ = row;
  }
  // The cell whole in one step: type, format, then its text or number.
  const bool text = cell.type == xls::CellType::kText;
  const std::string_view view = text ? cell.text.view() : std::string_view();
  const std::size_t rest = text ? 4 + view.size() : cell.type != xls::CellType::kEmpty ? 8 : 0;
  std::uint8_t* p = Grow(&bytes_, 3 + rest);
  *p++ = static_cast<std::uint8_t>(cell.type);
  p = Store(p, cell.style, 2);
  if (text) {
    p = Store(p, view.size(), 4);
    if (!view.empty()) std::memcpy(p, view.data(), view.size());
  } else if (rest == 8) {
    std::uint64_t bits;
    std::memcpy(&bits, &cell.number, sizeof bits);
    Store(p, bits, 8);
  }
  runNext_ = column + 1;
  runEnd_ = bytes_.size();
}

void EffectLog::AddName(const std::string& sheet, const std::string& name,
                        const CellRange& r) {
  NameSheet(sheet);
  PutByte(&bytes_, static_cast<std::uint8_t>(Effect::Op::kAddName));
  PutBytes(&bytes_, name);
  for (int v : {r.top, r.bottom, r.left, r.right}) Put32(&bytes_, static_cast<std::uint32_t>(v));
}

void EffectLog::RemoveName(const std::string& name) {
  PutByte(&bytes_, static_cast<std::uint8_t>(Effect::Op::kRemoveName));
  PutBytes(&bytes_, name);
}

void EffectLog::Add(const Effect& e) {
  switch (e.op) {
    case Effect::Op::kAddSheet:
      return AddSheet(e.sheet);
    case Effect::Op::kAddStyle:
      return AddStyle(e.styleIndex, e.style);
    case Effect::Op::kClearSheet:
      return ClearSheet(e.sheet);
    case Effect::Op::kClearRange:
      return ClearRange(e.sheet, e.range);
    case Effect::Op::kCell:
    case Effect::Op::kRowOfCells:
      return SetCell(e.sheet, e.row, e.column, e.cell);
    case Effect::Op::kAddName:
      return AddName(e.sheet, e.name, e.range);
    case Effect::Op::kRemoveName:
      return RemoveName(e.name);
  }
}

std::vector<std::uint8_t> EncodeEffectRecord(const EffectLog& log, int version) {
  // The frame around the payload built in place: a unit can be as large as a whole sheet.
  std::vector<std::uint8_t> out;
  out.reserve(8 + 1 + log.size());
  Put32(&out, static_cast<std::uint32_t>(1 + log.size()));
  Put32(&out, 0);
  out.push_back(kUnitRecord);
  out.insert(out.end(), log.data(), log.data() + log.size());
  const std::uint32_t sum = ChecksumOf(version)(out.data() + 8, out.size() - 8);
  for (int i = 0; i < 4; ++i) out[4 + i] = static_cast<std::uint8_t>(sum >> (8 * i));
  return out;
}

Error DecodeEffectRecords(const std::uint8_t* bytes, std::size_t size,
                          std::vector<std::vector<Effect>>* records, std::size_t* consumed,
                          int version) {
  std::size_t at = 0;
  const std::uint8_t* payload;
  std::uint32_t len;
  *consumed = 0;
  while (NextPayload(bytes, size, kMaxUnitPayload, ChecksumOf(version), &at, &payload, &len)) {
    std::vector<Effect> unit;
    if (!DecodeUnit(payload, len, &unit)) {
      return Error(ErrorKind::kWorkbookCorrupt,
                   "a whole record at byte " + std::to_string(*consumed) +
                       " of the journal's records is of a kind this driver does not know");
    }
    records->push_back(std::move(unit));
    *consumed = at;
  }
  return Error();
}

void ClearRange(xls::Sheet* s, const CellRange& r) {
  // Bottom-up and right to left: clearing trims trailing rows and cells as it goes.
  const int lastRow = std::min(r.bottom, static_cast<int>(s->rows().size()) - 1);
  for (int row = lastRow; row >= r.top; --row) {
    if (row >= static_cast<int>(s->rows().size())) continue;
    const int width = static_cast<int>(s->rows()[static_cast<std::size_t>(row)].size());
    for (int c = std::min(r.right, width - 1); c >= r.left; --c) s->clear(row, c);
  }
}

Error ApplyEffects(const std::vector<Effect>& effects, xls::Workbook* book) {
  for (const Effect& e : effects) {
    auto misfit = [&](const std::string& why) {
      return Error(ErrorKind::kWorkbookCorrupt,
                   "a journal record does not fit the workbook: " + why);
    };
    if (e.op == Effect::Op::kAddStyle) {
      if (book->addStyle(e.style) != e.styleIndex) {
        return misfit("style " + std::to_string(e.styleIndex) + " lands elsewhere");
      }
      continue;
    }
    if (e.op == Effect::Op::kRemoveName) {
      const xls::DefinedName* n = book->findName(e.name);
      if (!n) return misfit("no name '" + e.name + "'");
      book->removeName(n);
      continue;
    }
    if (e.op == Effect::Op::kAddSheet) {
      if (!xls::Workbook::isValidSheetName(e.sheet) || book->findSheet(e.sheet)) {
        return misfit("sheet '" + e.sheet + "' cannot be added");
      }
      book->addSheet(e.sheet);
      continue;
    }
    xls::Sheet* s = book->findSheet(e.sheet);
    if (!s) return misfit("no sheet '" + e.sheet + "'");
    switch (e.op) {
      case Effect::Op::kClearSheet:
        s->clearAll();
        break;
      case Effect::Op::kClearRange:
        ClearRange(s, e.range);
        break;
      case Effect::Op::kAddName: {
        if (book->findName(e.name) || e.range.top > e.range.bottom ||
            e.range.left > e.range.right) {
          return misfit("name '" + e.name + "' cannot be added");
        }
        xls::DefinedName name;
        name.name = e.name;
        name.sheet = static_cast<int>(s - book->sheets().data());
        name.firstRow = e.range.top;
        name.lastRow = e.range.bottom;
        name.firstColumn = e.range.left;
        name.lastColumn = e.range.right;
        book->addName(std::move(name));
        break;
      }
      case Effect::Op::kCell:
        if (e.cell.style >= book->styles().size()) {
          return misfit("no style " + std::to_string(e.cell.style));
        }
        if (e.cell.isEmpty() && e.cell.style == 0) {
          s->clear(e.row, e.column);
        } else {
          s->set(e.row, e.column, e.cell);
        }
        break;
      default:
        break;
    }
  }
  return Error();
}

// ---- version 1 ----

namespace {

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
  PutFrame(payload, &out);
  return out;
}

std::vector<JournalRecord> DecodeJournalRecords(const std::uint8_t* bytes, std::size_t size,
                                                std::size_t* consumed) {
  std::vector<JournalRecord> records;
  std::size_t at = 0, end = 0;
  const std::uint8_t* payload;
  std::uint32_t len;
  while (NextPayload(bytes, size, kMaxLegacyPayload, Fnv32, &at, &payload, &len)) {
    JournalRecord r;
    if (!DecodePayload(payload, len, &r)) break;
    records.push_back(std::move(r));
    end = at;
  }
  *consumed = end;
  return records;
}

}  // namespace xlsodbc
