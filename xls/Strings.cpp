#include "xls/Strings.h"

#include <iconv.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace xls {

void AppendUtf8(std::uint32_t c, std::string* out) {
  if (c < 0x80) {
    out->push_back(static_cast<char>(c));
  } else if (c < 0x800) {
    out->push_back(static_cast<char>(0xC0 | (c >> 6)));
    out->push_back(static_cast<char>(0x80 | (c & 0x3F)));
  } else if (c < 0x10000) {
    out->push_back(static_cast<char>(0xE0 | (c >> 12)));
    out->push_back(static_cast<char>(0x80 | ((c >> 6) & 0x3F)));
    out->push_back(static_cast<char>(0x80 | (c & 0x3F)));
  } else {
    out->push_back(static_cast<char>(0xF0 | (c >> 18)));
    out->push_back(static_cast<char>(0x80 | ((c >> 12) & 0x3F)));
    out->push_back(static_cast<char>(0x80 | ((c >> 6) & 0x3F)));
    out->push_back(static_cast<char>(0x80 | (c & 0x3F)));
  }
}

void Utf8ToUtf16(std::string_view s, std::vector<std::uint16_t>* out) {
  out->clear();
  const auto* p = reinterpret_cast<const unsigned char*>(s.data());
  std::size_t n = s.size(), i = 0;
  while (i < n) {
    unsigned char b = p[i];
    std::uint32_t c;
    std::size_t len;
    if (b < 0x80) {
      c = b;
      len = 1;
    } else if (b >= 0xC2 && b <= 0xDF) {
      c = b & 0x1F;
      len = 2;
    } else if (b >= 0xE0 && b <= 0xEF) {
      c = b & 0x0F;
      len = 3;
    } else if (b >= 0xF0 && b <= 0xF4) {
      c = b & 0x07;
      len = 4;
    } else {
      out->push_back(0xFFFD);
      ++i;
      continue;
    }
    bool ok = i + len <= n;
    for (std::size_t k = 1; ok && k < len; ++k) {
      if ((p[i + k] & 0xC0) != 0x80)
        ok = false;
      else
        c = (c << 6) | (p[i + k] & 0x3F);
    }
    if (ok && ((len == 3 && (c < 0x800 || (c >= 0xD800 && c <= 0xDFFF))) ||
               (len == 4 && (c < 0x10000 || c > 0x10FFFF)))) {
      ok = false;
    }
    if (!ok) {
      out->push_back(0xFFFD);
      ++i;
      continue;
    }
    if (c >= 0x10000) {
      c -= 0x10000;
      out->push_back(static_cast<std::uint16_t>(0xD800 | (c >> 10)));
      out->push_back(static_cast<std::uint16_t>(0xDC00 | (c & 0x3FF)));
    } else {
      out->push_back(static_cast<std::uint16_t>(c));
    }
    i += len;
  }
}

namespace {

// How many of the n bytes at p, from the start, are ASCII; eight at a time.
std::size_t AsciiPrefix(const std::uint8_t* p, std::size_t n) {
  std::size_t i = 0;
  for (; i + 8 <= n; i += 8) {
    std::uint64_t w;
    std::memcpy(&w, p + i, sizeof w);
    if (w & 0x8080808080808080ull) break;
  }
  while (i < n && p[i] < 0x80) ++i;
  return i;
}

// Windows-1252 0x80-0x9F; the rest of the code page is Latin-1.
constexpr std::uint16_t kCp1252High[32] = {
    0x20AC, 0xFFFD, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021, 0x02C6, 0x2030, 0x0160,
    0x2039, 0x0152, 0xFFFD, 0x017D, 0xFFFD, 0xFFFD, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022,
    0x2013, 0x2014, 0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0xFFFD, 0x017E, 0x0178};

}  // namespace

CodepageDecoder::CodepageDecoder(std::uint16_t codepage) : codepage_(codepage) {
  // 1252 and its stand-ins (ASCII, 0x8001 "ANSI" of Excel 2/3, 1200 where a BIFF5 writer
  // copied the BIFF8 value) are decoded here; the rest through iconv.
  if (codepage == 1252 || codepage == 367 || codepage == 0x8001 || codepage == 1200) {
    codepage_ = codepage == 1200 ? 1200 : 1252;
    return;
  }
  // 0x8000 and 10000 are Apple Roman, which Excel for the Mac wrote.
  std::string name = codepage == 0x8000 || codepage == 10000 ? "MACINTOSH"
                                                              : "CP" + std::to_string(codepage);
  iconv_t cd = iconv_open("UTF-8", name.c_str());
  if (cd == reinterpret_cast<iconv_t>(-1)) {
    codepage_ = 1252;  // unknown codepage: the common Western one is the best guess
    return;
  }
  iconv_ = cd;
}

CodepageDecoder::~CodepageDecoder() {
  if (iconv_ != nullptr) iconv_close(static_cast<iconv_t>(iconv_));
}

void CodepageDecoder::Append(const std::uint8_t* p, std::size_t n, std::string* out) const {
  if (codepage_ == 1200 && n % 2 == 0 && std::memchr(p, 0, n) != nullptr) {
    // Deliberate: gnumeric saves a workbook read with code page 1200 as Excel 95 keeping
    // that code page, and writes text beyond ASCII as UTF-16LE, its length in bytes.
    SegmentReader in;
    in.Add(p, n);
    in.Chars(n / 2, true, out);
    return;
  }
  const std::size_t ascii = AsciiPrefix(p, n);  // the same in every code page read here
  out->append(reinterpret_cast<const char*>(p), ascii);
  p += ascii;
  n -= ascii;
  if (n == 0) return;
  if (iconv_ == nullptr) {
    for (std::size_t i = 0; i < n; ++i) {
      std::uint8_t b = p[i];
      AppendUtf8(b >= 0x80 && b < 0xA0 ? kCp1252High[b - 0x80] : b, out);
    }
    return;
  }
  auto cd = static_cast<iconv_t>(iconv_);
  iconv(cd, nullptr, nullptr, nullptr, nullptr);
  std::vector<char> in(p, p + n);
  char* src = in.data();
  std::size_t srcLeft = n;
  char buf[1024];
  while (srcLeft > 0) {
    char* dst = buf;
    std::size_t dstLeft = sizeof buf;
    std::size_t r = iconv(cd, &src, &srcLeft, &dst, &dstLeft);
    out->append(buf, static_cast<std::size_t>(dst - buf));
    if (r == static_cast<std::size_t>(-1) && errno != E2BIG) {
      AppendUtf8(0xFFFD, out);  // an invalid or cut-off sequence: skip one byte
      ++src;
      --srcLeft;
    }
  }
}

bool SegmentReader::U8(std::uint8_t* v) {
  if (seg_ < segments_.size() && off_ < segments_[seg_].n) {
    *v = segments_[seg_].p[off_++];
    return true;
  }
  while (seg_ < segments_.size() && off_ == segments_[seg_].n) {
    ++seg_;
    off_ = 0;
  }
  if (seg_ >= segments_.size()) return false;
  *v = segments_[seg_].p[off_++];
  return true;
}

bool SegmentReader::U16(std::uint16_t* v) {
  if (seg_ < segments_.size() && segments_[seg_].n - off_ >= 2) {
    *v = GetU16(segments_[seg_].p + off_);
    off_ += 2;
    return true;
  }
  std::uint8_t a, b;
  if (!U8(&a) || !U8(&b)) return false;
  *v = static_cast<std::uint16_t>(a | (b << 8));
  return true;
}

bool SegmentReader::U32(std::uint32_t* v) {
  std::uint16_t a, b;
  if (!U16(&a) || !U16(&b)) return false;
  *v = a | (std::uint32_t{b} << 16);
  return true;
}

bool SegmentReader::Skip(std::size_t n) {
  while (n > 0) {
    if (seg_ >= segments_.size()) return false;
    std::size_t take = std::min(n, segments_[seg_].n - off_);
    off_ += take;
    n -= take;
    if (off_ == segments_[seg_].n) {
      ++seg_;
      off_ = 0;
    }
  }
  return true;
}

void SegmentReader::SkipSegmentEnd() {
  if (seg_ < segments_.size() && off_ == segments_[seg_].n) {
    ++seg_;
    off_ = 0;
  }
}

std::size_t SegmentReader::remaining() const {
  std::size_t r = 0;
  for (std::size_t i = seg_; i < segments_.size(); ++i)
    r += segments_[i].n - (i == seg_ ? off_ : 0);
  return r;
}

bool SegmentReader::Chars(std::size_t cch, bool wide, std::string* out) {
  std::uint16_t pendingHigh = 0;
  while (cch > 0) {
    if (seg_ < segments_.size() && off_ == segments_[seg_].n) {
      ++seg_;
      off_ = 0;
      if (seg_ >= segments_.size()) return false;
      wide = (segments_[seg_].p[off_++] & 1) != 0;
      continue;
    }
    if (seg_ >= segments_.size()) return false;
    const std::uint8_t* p = segments_[seg_].p + off_;
    std::size_t avail = segments_[seg_].n - off_;
    if (!wide) {
      std::size_t n = std::min(avail, cch);
      if (pendingHigh) {
        AppendUtf8(0xFFFD, out);
        pendingHigh = 0;
      }
      const std::size_t ascii = AsciiPrefix(p, n);
      out->append(reinterpret_cast<const char*>(p), ascii);
      for (std::size_t i = ascii; i < n; ++i) {
        if (p[i] < 0x80)
          out->push_back(static_cast<char>(p[i]));
        else
          AppendUtf8(p[i], out);
      }
      off_ += n;
      cch -= n;
      continue;
    }
    std::size_t n = std::min(avail / 2, cch);
    if (n == 0) return false;  // an odd byte left in the segment: malformed
    for (std::size_t i = 0; i < n; ++i) {
      std::uint16_t u = GetU16(p + 2 * i);
      if (pendingHigh) {
        if (u >= 0xDC00 && u <= 0xDFFF) {
          AppendUtf8(0x10000 + ((pendingHigh - 0xD800) << 10) + (u - 0xDC00), out);
          pendingHigh = 0;
          continue;
        }
        AppendUtf8(0xFFFD, out);
        pendingHigh = 0;
      }
      if (u >= 0xD800 && u <= 0xDBFF)
        pendingHigh = u;
      else if (u >= 0xDC00 && u <= 0xDFFF)
        AppendUtf8(0xFFFD, out);
      else
        AppendUtf8(u, out);
    }
    off_ += 2 * n;
    cch -= n;
  }
  if (pendingHigh) AppendUtf8(0xFFFD, out);
  return true;
}

bool SegmentReader::String(bool shortLength, std::string* out) {
  // Most strings are ASCII, 8 bits a character, without runs or phonetic data, and lie whole
  // in the current segment: those are copied at once (a full sheet's table holds millions).
  if (!shortLength && seg_ < segments_.size() && segments_[seg_].n - off_ >= 3) {
    const std::uint8_t* p = segments_[seg_].p + off_;
    const std::size_t cch = GetU16(p);
    if (p[2] == 0 && segments_[seg_].n - off_ - 3 >= cch) {
      if (AsciiPrefix(p + 3, cch) == cch) {
        out->append(reinterpret_cast<const char*>(p + 3), cch);
        off_ += 3 + cch;
        return true;
      }
    }
  }
  std::uint16_t cch;
  std::uint8_t flags;
  if (shortLength) {
    std::uint8_t c8;
    if (!U8(&c8)) return false;
    cch = c8;
  } else if (!U16(&cch)) {
    return false;
  }
  if (!U8(&flags)) return false;
  std::uint16_t runs = 0;
  std::uint32_t phonetic = 0;
  if ((flags & 0x08) && !U16(&runs)) return false;
  if ((flags & 0x04) && !U32(&phonetic)) return false;
  // Bounded by the 16-bit count: at most 3 UTF-8 bytes per UTF-16 unit.
  out->reserve(out->size() + std::size_t{cch} * ((flags & 1) ? 3 : 1));
  if (!Chars(cch, (flags & 1) != 0, out)) return false;
  return Skip(4 * std::size_t{runs}) && Skip(phonetic);
}

Status ReadSharedStrings(SegmentReader* in, SharedStrings* out) {
  std::uint32_t total, unique;
  if (!in->U32(&total) || !in->U32(&unique)) return Status::Corruption("SST record too short");
  out->chars_.clear();
  out->ends_.clear();
  // The counts come from the file: reserve no more than the data could hold. ASCII text
  // takes as many bytes in UTF-8 as in the record, which bounds the usual case.
  out->ends_.reserve(std::min<std::size_t>(unique, in->remaining() / 3));
  out->chars_.reserve(in->remaining());
  for (std::uint32_t i = 0; i < unique; ++i) {
    in->SkipSegmentEnd();
    if (!in->String(false, &out->chars_)) {
      return Status::Corruption("SST declares " + std::to_string(unique) +
                                " strings but its data ends in string " + std::to_string(i));
    }
    out->ends_.push_back(out->chars_.size());
  }
  return Status::OK();
}

std::uint64_t SharedStringTable::Hash(std::string_view s) {
  std::uint64_t h = 0xCBF29CE484222325ull ^ s.size();
  std::size_t i = 0;
  for (; i + 8 <= s.size(); i += 8) {
    std::uint64_t w;
    std::memcpy(&w, s.data() + i, 8);
    h = (h ^ w) * 0x100000001B3ull;
    h ^= h >> 29;
  }
  for (; i < s.size(); ++i) h = (h ^ static_cast<unsigned char>(s[i])) * 0x100000001B3ull;
  h ^= h >> 32;
  return h * 0x9E3779B97F4A7C15ull;
}

SharedStringTable::SharedStringTable() : slots_(1024, 0) {}

void SharedStringTable::Prefetch(std::uint64_t hash) const {
#if defined(__GNUC__)
  __builtin_prefetch(slots_.data() + ((hash >> 32) & (slots_.size() - 1)));
#else
  (void)hash;
#endif
}

void SharedStringTable::Reserve(std::size_t strings) {
  entries_.reserve(strings);
  if (!TooFull(strings, slots_.size())) return;
  std::size_t size = slots_.size();
  while (TooFull(strings, size)) size *= 2;
  Rehash(size);
}

void SharedStringTable::Rehash(std::size_t size) {
  // The slot's upper half is the part of the hash that places it, so no entry is read.
  std::vector<std::uint64_t> bigger(size, 0);
  const std::size_t mask = bigger.size() - 1;
  for (std::uint64_t slot : slots_) {
    if (slot == 0) continue;
    std::size_t s = (slot >> 32) & mask;
    while (bigger[s] != 0) s = (s + 1) & mask;
    bigger[s] = slot;
  }
  slots_.swap(bigger);
}

bool SharedStringTable::Add(std::string_view text, std::uint64_t hash, std::uint32_t* index) {
  const std::uint64_t tag = hash >> 32;
  const std::size_t mask = slots_.size() - 1;
  std::size_t s = tag & mask;
  for (std::uint64_t slot; (slot = slots_[s]) != 0; s = (s + 1) & mask) {
    if ((slot >> 32) != tag) continue;
    const std::uint32_t i = static_cast<std::uint32_t>(slot) - 1;
    const Entry& e = entries_[i];
    if (std::string_view(e.data, e.size) == text) {
      *index = i;
      ++references_;
      return true;
    }
  }
  Entry e{text.data(), 0, 0};
  if (AsciiPrefix(reinterpret_cast<const std::uint8_t*>(text.data()), text.size()) == text.size()) {
    if (text.size() > kMaxCellChars) return false;
    e.cch = static_cast<std::uint32_t>(text.size());
    encodedBytes_ += e.cch;
  } else {
    // Every UTF-16 unit comes from at most three bytes: longer text cannot fit a cell.
    if (text.size() > 3 * kMaxCellChars) return false;
    std::vector<std::uint16_t> units;
    Utf8ToUtf16(text, &units);
    if (units.size() > kMaxCellChars) return false;
    const bool wide =
        std::any_of(units.begin(), units.end(), [](std::uint16_t u) { return u > 0xFF; });
    e.cch = static_cast<std::uint32_t>(units.size()) | (wide ? kWide : 0);
    encodedBytes_ += units.size() * (wide ? 2 : 1);
  }
  e.size = static_cast<std::uint32_t>(text.size());
  entries_.push_back(e);
  slots_[s] = (tag << 32) | entries_.size();
  *index = static_cast<std::uint32_t>(entries_.size() - 1);
  ++references_;
  if (TooFull(entries_.size(), slots_.size())) Rehash(slots_.size() * 2);
  return true;
}

std::size_t SharedStringTable::WrittenSizeBound() const {
  // The characters and a 3-byte header each; per record of at least kMaxRecordData - 8
  // bytes its own header and the flag byte a split string repeats; the counts; EXTSST.
  const std::size_t body = encodedBytes_ + 3 * entries_.size();
  return body + (body / (kMaxRecordData - 8) + 2) * 5 + 8 + 4 + 2 + 8 * 129;
}

void SharedStringTable::Write(std::size_t base, std::vector<std::uint8_t>* out) const {
  RecordWriter w(out);
  const std::size_t n = entries_.size();
  // EXTSST: one bucket per dsst strings, at most 128 buckets, dsst at least 8.
  const std::size_t dsst = std::max<std::size_t>(8, n / 128 + 1);
  std::vector<std::pair<std::uint32_t, std::uint16_t>> buckets;
  out->reserve(out->size() + WrittenSizeBound());

  std::size_t recordStart = out->size();
  w.Begin(rec::kSst);
  w.U32(references_);
  w.U32(static_cast<std::uint32_t>(n));
  auto left = [&] { return kMaxRecordData - (out->size() - recordStart - 4); };
  auto newContinue = [&] {
    w.End();
    recordStart = out->size();
    w.Begin(rec::kContinue);
  };
  std::vector<std::uint16_t> units;
  std::vector<std::uint8_t> encoded;
  for (std::size_t i = 0; i < n; ++i) {
    const Entry& e = entries_[i];
    const bool wide = (e.cch & kWide) != 0;
    const std::size_t cch = e.cch & ~kWide;
    const std::size_t unit = wide ? 2 : 1;
    const std::uint8_t* src = reinterpret_cast<const std::uint8_t*>(e.data);
    if (wide || e.size != cch) {  // not ASCII: encoded again, as Add measured it
      Utf8ToUtf16(std::string_view(e.data, e.size), &units);
      encoded.clear();
      for (std::uint16_t u : units) {
        encoded.push_back(static_cast<std::uint8_t>(u));
        if (wide) encoded.push_back(static_cast<std::uint8_t>(u >> 8));
      }
      src = encoded.data();
    }
    if (left() < 3 + unit) newContinue();
    if (i % dsst == 0) {
      buckets.emplace_back(static_cast<std::uint32_t>(out->size() - base),
                           static_cast<std::uint16_t>(out->size() - recordStart));
    }
    w.U16(static_cast<std::uint16_t>(cch));
    w.U8(wide ? 1 : 0);
    std::size_t remainingUnits = cch;
    while (remainingUnits > 0) {
      if (left() < unit) {
        newContinue();
        w.U8(wide ? 1 : 0);
      }
      std::size_t take = std::min(remainingUnits, left() / unit);
      w.Bytes(src, take * unit);
      src += take * unit;
      remainingUnits -= take;
    }
  }
  w.End();

  w.Begin(rec::kExtSst);
  w.U16(static_cast<std::uint16_t>(dsst));
  for (const auto& b : buckets) {
    w.U32(b.first);
    w.U16(b.second);
    w.U16(0);
  }
  w.End();
}

void WriteString(RecordWriter& w, std::string_view s, bool shortLength) {
  std::vector<std::uint16_t> units;
  Utf8ToUtf16(s, &units);
  std::size_t max = shortLength ? 255 : kMaxCellChars;
  if (units.size() > max) units.resize(max);
  bool wide = std::any_of(units.begin(), units.end(), [](std::uint16_t u) { return u > 0xFF; });
  if (shortLength)
    w.U8(static_cast<std::uint8_t>(units.size()));
  else
    w.U16(static_cast<std::uint16_t>(units.size()));
  w.U8(wide ? 1 : 0);
  for (std::uint16_t u : units) {
    if (wide)
      w.U16(u);
    else
      w.U8(static_cast<std::uint8_t>(u));
  }
}

}  // namespace xls
