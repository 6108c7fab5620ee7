// Text in BIFF: UTF-8 <-> UTF-16 conversion, 8-bit codepage text of Excel 5/95 files,
// strings read across CONTINUE record boundaries, and the shared string table (SST).
//
// The model holds UTF-8. BIFF8 stores each string either "compressed" (every character
// at most U+00FF, one byte each) or as UTF-16LE; Excel 5/95 stores bytes in the
// workbook's codepage (CODEPAGE record, Windows-1252 when absent).
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "xls/Records.h"
#include "xls/Status.h"

namespace xls {

constexpr std::size_t kMaxCellChars = 32767;

void AppendUtf8(std::uint32_t codePoint, std::string* out);
// Invalid UTF-8 bytes become U+FFFD.
void Utf8ToUtf16(std::string_view s, std::vector<std::uint16_t>* out);

// Decodes 8-bit text of an Excel 5/95 workbook in its codepage.
class CodepageDecoder {
 public:
  explicit CodepageDecoder(std::uint16_t codepage = 1252);
  ~CodepageDecoder();
  CodepageDecoder(const CodepageDecoder&) = delete;
  CodepageDecoder& operator=(const CodepageDecoder&) = delete;
  void Append(const std::uint8_t* p, std::size_t n, std::string* out) const;

 private:
  std::uint16_t codepage_;  // 1252, 1200 (see Append) or one iconv decodes
  void* iconv_ = nullptr;  // iconv_t for codepages other than 1252 and ASCII
};

// A record's data followed by its CONTINUE records, read as one sequence. Character data
// split at a boundary restarts with an option byte saying whether it is 8 or 16 bits.
class SegmentReader {
 public:
  void Add(const std::uint8_t* p, std::size_t n) {
    if (n > 0) segments_.push_back({p, n});
  }
  bool U8(std::uint8_t* v);
  bool U16(std::uint16_t* v);
  bool U32(std::uint32_t* v);
  bool Skip(std::size_t n);
  // Reads cch characters starting in the given width, appending UTF-8.
  bool Chars(std::size_t cch, bool wide, std::string* out);
  // A BIFF8 string: cch (u8 or u16), option byte, optional run and phonetic counts,
  // characters, then the runs and phonetic bytes, which are skipped.
  bool String(bool shortLength, std::string* out);
  // Moves to the next segment when the current one is used up: a string never starts
  // with its header split.
  void SkipSegmentEnd();
  std::size_t remaining() const;

 private:
  struct Segment {
    const std::uint8_t* p;
    std::size_t n;
  };
  std::vector<Segment> segments_;
  std::size_t seg_ = 0, off_ = 0;
};

// The strings of an SST, read back by index: one block of UTF-8 and where each string ends,
// since a full sheet's table holds a million strings and a std::string each would triple
// the memory they take.
class SharedStrings {
 public:
  std::size_t size() const { return ends_.size(); }
  // REQUIRES: i < size().
  std::string_view at(std::size_t i) const {
    const std::size_t begin = i == 0 ? 0 : ends_[i - 1];
    return std::string_view(chars_.data() + begin, ends_[i] - begin);
  }

 private:
  friend Status ReadSharedStrings(SegmentReader* in, SharedStrings* out);
  std::string chars_;
  std::vector<std::size_t> ends_;
};

// Reads an SST record body (with its CONTINUE segments) into *out, which is replaced.
Status ReadSharedStrings(SegmentReader* in, SharedStrings* out);

// Collects unique cell strings for writing, in the order first added; each keeps its index.
// A full sheet adds a million strings, so the table holds a view of each (no copy) and a
// 16-byte entry, and the characters are encoded only by Write. Lookups take one hash slot
// each, the slot holding part of the hash, so a miss never touches the entries; callers that
// add many strings at once hash them first and Prefetch their slots.
class SharedStringTable {
 public:
  SharedStringTable();
  // Makes room for this many distinct strings without growing again.
  void Reserve(std::size_t strings);
  static std::uint64_t Hash(std::string_view s);
  // Starts loading the slot a string of this hash is looked up in.
  void Prefetch(std::uint64_t hash) const;
  // Index of the string in the table. False when it has more than 32,767 characters.
  // The view must stay valid until Write (the writer adds views into the model).
  // REQUIRES: hash == Hash(s) for the three-argument form.
  bool Add(std::string_view s, std::uint32_t* index) { return Add(s, Hash(s), index); }
  bool Add(std::string_view s, std::uint64_t hash, std::uint32_t* index);
  std::size_t size() const { return entries_.size(); }
  // Appends SST, CONTINUE and EXTSST records. out already holds the stream's bytes so far,
  // after base bytes that precede the stream: out's size less base is the stream offset.
  void Write(std::size_t base, std::vector<std::uint8_t>* out) const;
  // At least as many bytes as Write appends.
  std::size_t WrittenSizeBound() const;

 private:
  struct Entry {
    const char* data;
    std::uint32_t size;  // bytes of UTF-8; at most 3 per character, so 32 bits hold it
    std::uint32_t cch;   // characters as stored (UTF-16 code units)
  };
  static constexpr std::uint32_t kWide = 0x80000000u;  // in cch: stored as UTF-16LE
  // Past three quarters full the table grows: the hash bits kept in each slot make a
  // longer probe cheap, and a smaller table means less memory to fault in and miss on.
  static bool TooFull(std::size_t entries, std::size_t slots) { return entries * 4 > slots * 3; }
  // REQUIRES: size is a power of two and !TooFull(entries, size).
  void Rehash(std::size_t size);
  std::vector<Entry> entries_;
  // Open addressing: the hash's upper 32 bits (which also choose the slot) above the entry
  // index + 1; 0 when free.
  std::vector<std::uint64_t> slots_;
  std::size_t encodedBytes_ = 0;  // the characters as Write stores them
  std::uint32_t references_ = 0;
};

// Appends a BIFF8 string with an 8-bit (shortLength) or 16-bit character count.
void WriteString(RecordWriter& w, std::string_view s, bool shortLength);

}  // namespace xls
