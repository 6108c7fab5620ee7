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

// Collects unique cell strings for writing; each is encoded once, when first added.
class SharedStringTable {
 public:
  SharedStringTable();
  // Index of the string in the table. False when it has more than 32,767 characters.
  // The view must stay valid until Write (the writer adds views into the model).
  bool Add(std::string_view s, std::uint32_t* index);
  std::size_t size() const { return entries_.size(); }
  // Appends SST, CONTINUE and EXTSST records; out's size is taken as the stream offset.
  void Write(std::vector<std::uint8_t>* out) const;

 private:
  struct Entry {
    std::string_view text;
    std::uint64_t hash;
    std::size_t offset;  // into encoded_
    std::uint32_t cch;
    bool wide;
  };
  void Grow();
  std::vector<Entry> entries_;
  std::vector<std::uint32_t> slots_;  // open addressing: entry index + 1, 0 when free
  std::vector<std::uint8_t> encoded_;
  std::uint32_t references_ = 0;
};

// Appends a BIFF8 string with an 8-bit (shortLength) or 16-bit character count.
void WriteString(RecordWriter& w, std::string_view s, bool shortLength);

}  // namespace xls
