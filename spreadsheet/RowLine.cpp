#include "spreadsheet/RowLine.h"

#include <cstring>

namespace rowline {
namespace {

std::string SeparatorPattern(const std::string& delimiter) {
  std::string pattern;
  pattern.reserve(delimiter.size() + 2);
  pattern += '"';
  pattern += delimiter;
  pattern += '"';
  return pattern;
}

// Positions of every non-overlapping occurrence of needle, left to right.
template <typename Visit>
std::size_t ForEachOccurrence(const std::string& hay, const std::string& needle, Visit visit) {
  std::size_t count = 0;
  for (std::size_t from = 0;;) {
    std::size_t pos = hay.find(needle, from);
    if (pos == std::string::npos) return count;
    visit(pos);
    ++count;
    from = pos + needle.size();
  }
}

Form FindForm(const std::string& line, const std::string& delimiter, const std::string& pattern) {
  if (delimiter.empty()) return Form::kSingle;
  if (line.find(pattern) != std::string::npos) return Form::kQuoted;
  if (line.find(delimiter) != std::string::npos) return Form::kPlain;
  return Form::kSingle;
}

void CutAt(const std::string& line, const std::string& separator, std::vector<CString>& out) {
  std::size_t start = 0;
  ForEachOccurrence(line, separator, [&](std::size_t pos) {
    out.emplace_back(line.substr(start, pos - start));
    start = pos + separator.size();
  });
  out.emplace_back(line.substr(start));
}

}  // namespace

Form Split(const std::string& line, const std::string& delimiter, std::vector<CString>& out) {
  const std::string pattern = SeparatorPattern(delimiter);
  const Form form = FindForm(line, delimiter, pattern);
  switch (form) {
    case Form::kQuoted: {
      const std::size_t first = out.size();
      CutAt(line, pattern, out);
      // The opening and closing quote are assumed, not checked.
      std::string& head = out[first].str();
      if (!head.empty()) head.erase(0, 1);
      std::string& tail = out.back().str();
      if (!tail.empty()) tail.pop_back();
      break;
    }
    case Form::kPlain:
      CutAt(line, delimiter, out);
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
  const std::string pattern = SeparatorPattern(delimiter);
  *form = FindForm(line, delimiter, pattern);
  switch (*form) {
    case Form::kQuoted: return ForEachOccurrence(line, pattern, [](std::size_t) {}) + 1;
    case Form::kPlain: return ForEachOccurrence(line, delimiter, [](std::size_t) {}) + 1;
    case Form::kSingle: return 1;
  }
  return 1;
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
