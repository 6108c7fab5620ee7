// Fuzz target for the row-line splitter: the first byte gives the delimiter's length (0 to
// 3, then its bytes), the rest is the line. Split must agree with the plain reading of the
// format (RowLine.h: substring searches that resume behind each match), and CountValues
// with Split, whatever the vectorized paths do with the bytes.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "spreadsheet/RowLine.h"

namespace {

std::vector<std::string> CutAll(const std::string& line, const std::string& sep) {
  std::vector<std::string> out;
  std::size_t start = 0;
  for (std::size_t pos; (pos = line.find(sep, start)) != std::string::npos;
       start = pos + sep.size()) {
    out.push_back(line.substr(start, pos - start));
  }
  out.push_back(line.substr(start));
  return out;
}

std::vector<std::string> PlainSplit(const std::string& line, const std::string& d,
                                    rowline::Form* form) {
  const std::string pattern = "\"" + d + "\"";
  if (!d.empty() && line.find(pattern) != std::string::npos) {
    *form = rowline::Form::kQuoted;
    auto out = CutAll(line, pattern);
    if (!out.front().empty()) out.front().erase(0, 1);
    if (!out.back().empty()) out.back().pop_back();
    return out;
  }
  if (!d.empty() && line.find(d) != std::string::npos) {
    *form = rowline::Form::kPlain;
    return CutAll(line, d);
  }
  *form = rowline::Form::kSingle;
  std::string v = line;
  if (v.find('"') == 0 && v.rfind('"') == v.size() - 1) {
    v.erase(0, 1);
    if (!v.empty()) v.pop_back();
  }
  return {v};
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const std::size_t d = data[0] % 4;
  if (size < 1 + d) return 0;
  const std::string delimiter(reinterpret_cast<const char*>(data + 1), d);
  const std::string line(reinterpret_cast<const char*>(data + 1 + d), size - 1 - d);

  std::vector<CString> values;
  const rowline::Form form = rowline::Split(line, delimiter, values);
  rowline::Form counted;
  const std::size_t count = rowline::CountValues(line, delimiter, &counted);
  rowline::Form expectedForm;
  const std::vector<std::string> expected = PlainSplit(line, delimiter, &expectedForm);

  bool same = form == expectedForm && counted == form && count == values.size() &&
              values.size() == expected.size();
  for (std::size_t i = 0; same && i < values.size(); ++i) same = values[i].str() == expected[i];
  if (!same) {
    std::fprintf(stderr, "row line: split of %zu bytes by a %zu-byte delimiter disagrees\n",
                 line.size(), d);
    std::abort();
  }
  return 0;
}
