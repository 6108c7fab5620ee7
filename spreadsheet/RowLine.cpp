#include "spreadsheet/RowLine.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace rowline {
namespace {

struct OneByteCounts {
  std::size_t patterns;    // separator patterns (quote, delimiter, quote), never overlapping
  std::size_t delimiters;  // delimiter bytes
};

// A delimiter byte with a quote on each side.
bool IsCandidate(const char* s, std::size_t n, std::size_t q, char d) {
  return q >= 1 && q + 1 < n && s[q] == d && s[q - 1] == '"' && s[q + 1] == '"';
}

// Both counts for a one-byte delimiter other than the quote, left to right. A candidate
// is a match unless its opening quote is the closing quote of the previous match; that
// is where a left-to-right substring search finds the pattern.
OneByteCounts CountOneByteInOrder(const char* s, std::size_t n, char d) {
  OneByteCounts c{0, 0};
  std::size_t earliest = 1;  // the first position a match may have
  for (std::size_t q = 0; q < n; ++q) {
    if (s[q] != d) continue;
    ++c.delimiters;
    if (q >= earliest && IsCandidate(s, n, q, d)) {
      ++c.patterns;
      earliest = q + 3;
    }
  }
  return c;
}

#if defined(__SSE2__)
// Positions q..q+15 of s (reading bytes q-1..q+16): the lanes holding the delimiter,
// and those holding a delimiter with a quote on each side.
struct Lanes {
  __m128i delimiters;
  __m128i candidates;
};

inline Lanes LoadLanes(const char* s, std::size_t q, __m128i wanted, __m128i quote) {
  const __m128i isDelimiter =
      _mm_cmpeq_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i*>(s + q)), wanted);
  const __m128i quoteBefore =
      _mm_cmpeq_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i*>(s + q - 1)), quote);
  const __m128i quoteAfter =
      _mm_cmpeq_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i*>(s + q + 1)), quote);
  return {isDelimiter, _mm_and_si128(isDelimiter, _mm_and_si128(quoteBefore, quoteAfter))};
}

// The sum of the sixteen byte lanes of v, each at most 255.
std::size_t SumLanes(__m128i v) {
  const __m128i halves = _mm_sad_epu8(v, _mm_setzero_si128());
  return static_cast<std::size_t>(_mm_cvtsi128_si32(halves)) +
         static_cast<std::size_t>(_mm_cvtsi128_si32(_mm_srli_si128(halves, 8)));
}
#endif

// The same counts, sixteen positions at a time without a branch per value: each byte
// lane counts its delimiters and candidates (emptied before it can pass 255). Two
// candidates can only conflict when they are two apart (sharing a quote); then only
// the in-order count knows which ones match, so such lines are counted again in order.
OneByteCounts CountOneByte(const std::string& line, char d) {
  const char* s = line.data();
  const std::size_t n = line.size();
#if defined(__SSE2__)
  if (n >= 18) {
    OneByteCounts c{0, s[0] == d ? 1u : 0u};
    const __m128i wanted = _mm_set1_epi8(d);
    const __m128i quote = _mm_set1_epi8('"');
    __m128i delimiterLanes = _mm_setzero_si128();
    __m128i candidateLanes = _mm_setzero_si128();
    __m128i conflicts = _mm_setzero_si128();
    __m128i previous = _mm_setzero_si128();
    int blocks = 0;
    std::size_t q = 1;
    for (; q + 17 <= n; q += 16) {  // positions q..q+15, bytes q-1..q+16
      const Lanes lanes = LoadLanes(s, q, wanted, quote);
      const __m128i candidates = lanes.candidates;
      delimiterLanes = _mm_sub_epi8(delimiterLanes, lanes.delimiters);  // a match is -1
      candidateLanes = _mm_sub_epi8(candidateLanes, candidates);
      // Two apart: within this block, and across the edge with the previous block.
      conflicts = _mm_or_si128(conflicts, _mm_and_si128(candidates, _mm_srli_si128(candidates, 2)));
      conflicts = _mm_or_si128(conflicts, _mm_and_si128(previous, _mm_slli_si128(candidates, 14)));
      previous = candidates;
      if (++blocks == 255) {
        c.delimiters += SumLanes(delimiterLanes);
        c.patterns += SumLanes(candidateLanes);
        delimiterLanes = candidateLanes = _mm_setzero_si128();
        blocks = 0;
      }
    }
    c.delimiters += SumLanes(delimiterLanes);
    c.patterns += SumLanes(candidateLanes);
    bool conflict = _mm_movemask_epi8(conflicts) != 0;
    for (; q < n; ++q) {
      if (s[q] != d) continue;
      ++c.delimiters;
      if (IsCandidate(s, n, q, d)) {
        ++c.patterns;
        if (q >= 2 && IsCandidate(s, n, q - 2, d)) conflict = true;
      }
    }
    if (!conflict) return c;
  }
#endif
  return CountOneByteInOrder(s, n, d);
}

// The first occurrence of needle in hay at or after pos, or npos.
std::size_t FindFrom(const std::string& hay, const std::string& needle, std::size_t pos) {
  if (pos > hay.size() || needle.size() > hay.size() - pos) return std::string::npos;
  const char* base = hay.data();
  if (needle.size() != 1 && needle.size() <= 8) {
    // A short delimiter: its first byte by memchr, then the rest compared. In row lines
    // that byte is rare outside delimiters, and a library search costs more to set up
    // than this whole scan; at most eight compares a byte keeps any line linear.
    const std::size_t rest = needle.size() - 1;
    const char* p = base + pos;
    const char* const lastStart = base + hay.size() - needle.size();
    while (p <= lastStart) {
      p = static_cast<const char*>(
          std::memchr(p, needle[0], static_cast<std::size_t>(lastStart - p) + 1));
      if (p == nullptr) return std::string::npos;
      if (std::memcmp(p + 1, needle.data() + 1, rest) == 0)
        return static_cast<std::size_t>(p - base);
      ++p;
    }
    return std::string::npos;
  }
  if (needle.size() != 1) {
#if defined(_WIN32)
    return hay.find(needle, pos);
#else
    const void* hit = memmem(base + pos, hay.size() - pos, needle.data(), needle.size());
    return hit ? static_cast<std::size_t>(static_cast<const char*>(hit) - base) : std::string::npos;
#endif
  }
  const void* hit = std::memchr(base + pos, needle[0], hay.size() - pos);
  return hit ? static_cast<std::size_t>(static_cast<const char*>(hit) - base) : std::string::npos;
}

// Visits the start of every occurrence of the delimiter, left to right, never overlapping.
template <typename Visit>
std::size_t ForEachDelimiter(const std::string& line, const std::string& delimiter, Visit visit) {
  std::size_t count = 0;
  for (std::size_t pos = FindFrom(line, delimiter, 0); pos != std::string::npos;
       pos = FindFrom(line, delimiter, pos + delimiter.size())) {
    visit(pos);
    ++count;
  }
  return count;
}

// Visits the start of every occurrence of the separator pattern (quote, delimiter,
// quote), left to right, never overlapping. Quotes are dense in row lines and the
// delimiter is not, so this looks for the delimiter and checks the quotes around it;
// the first delimiter with a quote on each side, starting at or after the end of the
// previous match, is exactly where a plain substring search would find the pattern.
template <typename Visit>
std::size_t ForEachPattern(const std::string& line, const std::string& delimiter, Visit visit) {
  std::size_t count = 0;
  const std::size_t d = delimiter.size();
  std::size_t earliest = 0;  // where the next match may start
  for (std::size_t pos = FindFrom(line, delimiter, 1); pos != std::string::npos;) {
    if (pos - 1 >= earliest && line[pos - 1] == '"' && pos + d < line.size() && line[pos + d] == '"') {
      visit(pos - 1);
      ++count;
      earliest = pos + d + 1;
      pos = FindFrom(line, delimiter, earliest + 1);
    } else {
      pos = FindFrom(line, delimiter, pos + 1);
    }
  }
  return count;
}

// ForEachPattern for a one-byte delimiter other than the quote, sixteen positions at a
// time: only a delimiter with a quote on each side can start a match, and those are
// taken in order by the same rule.
template <typename Visit>
void ForEachPatternOneByte(const std::string& line, char d, Visit visit) {
  const char* s = line.data();
  const std::size_t n = line.size();
  std::size_t earliest = 1;  // the first delimiter position a match may have
  std::size_t q = 1;
#if defined(__SSE2__) && defined(__GNUC__)
  const __m128i wanted = _mm_set1_epi8(d);
  const __m128i quote = _mm_set1_epi8('"');
  for (; q + 17 <= n; q += 16) {  // positions q..q+15, bytes q-1..q+16
    unsigned candidates =
        static_cast<unsigned>(_mm_movemask_epi8(LoadLanes(s, q, wanted, quote).candidates));
    while (candidates != 0) {
      const std::size_t p = q + static_cast<std::size_t>(__builtin_ctz(candidates));
      candidates &= candidates - 1;
      if (p >= earliest) {
        visit(p - 1);
        earliest = p + 3;
      }
    }
  }
#endif
  for (; q < n; ++q) {
    if (q >= earliest && IsCandidate(s, n, q, d)) {
      visit(q - 1);
      earliest = q + 3;
    }
  }
}

template <typename ForEach>
void CutAt(const std::string& line, std::size_t separatorLength, std::size_t pieces,
           ForEach forEach, std::vector<CString>& out) {
  out.reserve(out.size() + pieces);
  std::size_t start = 0;
  const char* base = line.data();
  forEach([&](std::size_t pos) {
    out.emplace_back(base + start, static_cast<int>(pos - start));
    start = pos + separatorLength;
  });
  out.emplace_back(base + start, static_cast<int>(line.size() - start));
}

// The opening and closing quote of a quoted line, from the values cut from it (those from
// first on): assumed, not checked.
void TrimOuterQuotes(std::vector<CString>& out, std::size_t first) {
  std::string& head = out[first].str();
  if (!head.empty()) head.erase(0, 1);
  std::string& tail = out.back().str();
  if (!tail.empty()) tail.pop_back();
}

}  // namespace

Form Split(const std::string& line, const std::string& delimiter, std::vector<CString>& out) {
  Form form;
  std::size_t pieces;
  if (delimiter.size() > 1 || delimiter == "\"") {
    // Quoted lines are cut as their patterns are found, without counting them first: Excel
    // mode's lines (delimiter ",;.?") are read once each time a row is saved.
    const std::size_t first = out.size();
    const std::size_t separator = delimiter.size() + 2;
    const char* base = line.data();
    std::size_t start = 0;
    // Each cut takes a whole separator: room for that many values, as many as a sheet has
    // columns at most, is made once (the caller's array may start empty).
    out.reserve(out.size() + std::min<std::size_t>(line.size() / separator + 1, 256));
    const std::size_t patterns = ForEachPattern(line, delimiter, [&](std::size_t pos) {
      out.emplace_back(base + start, static_cast<int>(pos - start));
      start = pos + separator;
    });
    if (patterns > 0) {
      out.emplace_back(base + start, static_cast<int>(line.size() - start));
      TrimOuterQuotes(out, first);
      return Form::kQuoted;
    }
    const std::size_t delimiters = ForEachDelimiter(line, delimiter, [](std::size_t) {});
    form = delimiters > 0 ? Form::kPlain : Form::kSingle;
    pieces = delimiters + 1;
  } else {
    pieces = CountValues(line, delimiter, &form);
  }
  switch (form) {
    case Form::kQuoted: {  // a one-byte delimiter here: the others returned above
      const std::size_t first = out.size();
      CutAt(line, 3, pieces,
            [&](auto visit) { ForEachPatternOneByte(line, delimiter[0], visit); }, out);
      TrimOuterQuotes(out, first);
      break;
    }
    case Form::kPlain:
      CutAt(line, delimiter.size(), pieces,
            [&](auto visit) { ForEachDelimiter(line, delimiter, visit); }, out);
      break;
    case Form::kSingle: {
      std::string value = line;
      const std::size_t firstQuote = value.find('"');
      const std::size_t lastQuote = value.rfind('"');
      if (firstQuote == 0 && lastQuote == value.size() - 1) {
        value.erase(0, 1);
        if (!value.empty()) value.pop_back();
      }
      out.emplace_back(std::move(value));
      break;
    }
  }
  return form;
}

std::size_t CountValues(const std::string& line, const std::string& delimiter, Form* form) {
  if (delimiter.empty()) {
    *form = Form::kSingle;
    return 1;
  }
  if (delimiter.size() == 1 && delimiter[0] != '"') {
    const OneByteCounts c = CountOneByte(line, delimiter[0]);
    if (c.patterns > 0) {
      *form = Form::kQuoted;
      return c.patterns + 1;
    }
    *form = c.delimiters > 0 ? Form::kPlain : Form::kSingle;
    return c.delimiters + 1;
  }
  const std::size_t patterns = ForEachPattern(line, delimiter, [](std::size_t) {});
  if (patterns > 0) {
    *form = Form::kQuoted;
    return patterns + 1;
  }
  const std::size_t delimiters = ForEachDelimiter(line, delimiter, [](std::size_t) {});
  *form = delimiters > 0 ? Form::kPlain : Form::kSingle;
  return delimiters + 1;
}

namespace {

// Copies n bytes; values of a row are mostly a few bytes long, where a library call
// costs more than the copy. Short runs move as two overlapping fixed-size blocks.
inline char* CopyShort(char* to, const char* from, std::size_t n) {
  if (n >= 8 && n <= 16) {
    std::uint64_t head, tail;
    std::memcpy(&head, from, 8);
    std::memcpy(&tail, from + n - 8, 8);
    std::memcpy(to, &head, 8);
    std::memcpy(to + n - 8, &tail, 8);
  } else if (n >= 4 && n < 8) {
    std::uint32_t head, tail;
    std::memcpy(&head, from, 4);
    std::memcpy(&tail, from + n - 4, 4);
    std::memcpy(to, &head, 4);
    std::memcpy(to + n - 4, &tail, 4);
  } else if (n < 4) {
    for (std::size_t i = 0; i < n; ++i) to[i] = from[i];
  } else {
    std::memcpy(to, from, n);
  }
  return to + n;
}

}  // namespace

void Build(const CStringArray& values, const CString& delimiter, CString& out) {
  // The length is known up front, so the line is sized once and filled by copies
  // rather than grown by four appends per value.
  const std::vector<CString>& v = values.items();
  const std::string& d = delimiter.str();
  std::string& s = out.str();
  if (v.empty()) {
    s.clear();
    return;
  }
  std::size_t total = d.size() * (v.size() - 1);
  for (const CString& value : v) total += value.str().size() + 2;
  s.resize(total);
  char* p = &s[0];
  for (std::size_t i = 0; i < v.size(); ++i) {
    const std::string& value = v[i].str();
    *p++ = '"';
    p = CopyShort(p, value.data(), value.size());
    *p++ = '"';
    if (i + 1 < v.size()) p = CopyShort(p, d.data(), d.size());
  }
}

void BuildBlank(int columns, const CString& delimiter, bool excel, CString& out) {
  std::string& s = out.str();
  s.clear();
  const char* cell = excel ? "\" \"" : "\"\"";
  for (int i = 0; i < columns; ++i) {
    s += cell;
    if (i + 1 < columns) s += delimiter.str();
  }
}

}  // namespace rowline
