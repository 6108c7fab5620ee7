#include "spreadsheet/RowLine.h"

#include <cstring>

namespace rowline {
namespace {

// The first occurrence of needle in hay at or after pos, or npos.
std::size_t FindFrom(const std::string& hay, const std::string& needle, std::size_t pos) {
  if (pos > hay.size() || needle.size() > hay.size() - pos) return std::string::npos;
  const char* base = hay.data();
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

template <typename ForEach>
void CutAt(const std::string& line, std::size_t separatorLength, std::size_t pieces,
           ForEach forEach, std::vector<CString>& out) {
  out.reserve(out.size() + pieces);
  std::size_t start = 0;
  forEach([&](std::size_t pos) {
    out.emplace_back(line.substr(start, pos - start));
    start = pos + separatorLength;
  });
  out.emplace_back(line.substr(start));
}

}  // namespace

Form Split(const std::string& line, const std::string& delimiter, std::vector<CString>& out) {
  Form form;
  const std::size_t pieces = CountValues(line, delimiter, &form);
  switch (form) {
    case Form::kQuoted: {
      const std::size_t first = out.size();
      CutAt(line, delimiter.size() + 2, pieces,
            [&](auto visit) { ForEachPattern(line, delimiter, visit); }, out);
      // The opening and closing quote are assumed, not checked.
      std::string& head = out[first].str();
      if (!head.empty()) head.erase(0, 1);
      std::string& tail = out.back().str();
      if (!tail.empty()) tail.pop_back();
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
  const std::size_t patterns = ForEachPattern(line, delimiter, [](std::size_t) {});
  if (patterns > 0) {
    *form = Form::kQuoted;
    return patterns + 1;
  }
  const std::size_t delimiters = ForEachDelimiter(line, delimiter, [](std::size_t) {});
  *form = delimiters > 0 ? Form::kPlain : Form::kSingle;
  return delimiters + 1;
}

void Build(const CStringArray& values, const CString& delimiter, CString& out) {
  std::string& s = out.str();
  s.clear();
  const INT_PTR n = values.GetSize();
  for (INT_PTR i = 0; i < n; ++i) {
    s += '"';
    s += values.GetAt(i).str();
    s += '"';
    if (i + 1 < n) s += delimiter.str();
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
