#include "spreadsheet/RowLine.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

namespace {

// The plain reading of the format: substring searches that resume behind each match.
std::vector<std::string> ReferenceSplit(const std::string& line, const std::string& d) {
  auto cut = [&](const std::string& sep) {
    std::vector<std::string> out;
    std::size_t start = 0;
    for (std::size_t pos; (pos = line.find(sep, start)) != std::string::npos;
         start = pos + sep.size())
      out.push_back(line.substr(start, pos - start));
    out.push_back(line.substr(start));
    return out;
  };
  const std::string pattern = "\"" + d + "\"";
  if (!d.empty() && line.find(pattern) != std::string::npos) {
    auto out = cut(pattern);
    if (!out.front().empty()) out.front().erase(0, 1);
    if (!out.back().empty()) out.back().pop_back();
    return out;
  }
  if (!d.empty() && line.find(d) != std::string::npos) return cut(d);
  std::string v = line;
  if (v.find('"') == 0 && v.rfind('"') == v.size() - 1) {
    v.erase(0, 1);
    if (!v.empty()) v.pop_back();
  }
  return {v};
}

std::vector<std::string> SplitToStrings(const std::string& line, const std::string& delimiter,
                                        rowline::Form* form) {
  std::vector<CString> values;
  *form = rowline::Split(line, delimiter, values);
  std::vector<std::string> out;
  for (const CString& v : values) out.push_back(v.str());
  return out;
}

TEST(RowLineTest, SplitsInTheThreeForms) {
  using rowline::Form;
  struct Case {
    std::string line;
    std::string delimiter;
    std::vector<std::string> values;
    Form form;
  } cases[] = {
      {R"("x","y","z")", ",", {"x", "y", "z"}, Form::kQuoted},
      {R"("x","")", ",", {"x", ""}, Form::kQuoted},
      {R"("","","")", ",", {"", "", ""}, Form::kQuoted},
      {R"("x","y,z")", ",", {"x", "y,z"}, Form::kQuoted},
      {R"(x,"y",z)", ",", {"x", "\"y\"", "z"}, Form::kPlain},
      // The quoted form is found, so the first character (x) is dropped unseen.
      {R"(x,"y","z")", ",", {",\"y", "z"}, Form::kQuoted},
      {"x,,y", ",", {"x", "", "y"}, Form::kPlain},
      {R"("x")", ",", {"x"}, Form::kSingle},
      {R"(" ",;.?" ")", ",;.?", {" ", " "}, Form::kQuoted},
      // In Excel mode a comma alone does not separate.
      {R"("x,y",;.?"z")", ",;.?", {"x,y", "z"}, Form::kQuoted},
      {"", ",", {""}, Form::kSingle},
      {"\"", ",", {""}, Form::kSingle},
      {"a\"b", ",", {"a\"b"}, Form::kSingle},
      {"\"a\"b", ",", {"\"a\"b"}, Form::kSingle},  // the last quote is not the last character
      {",", ",", {"", ""}, Form::kPlain},
      // Matches never overlap: ";;;" with ";;" cuts once.
      {"a;;;b", ";;", {"a", ";b"}, Form::kPlain},
      // A value holding the separator pattern comes back cut in two.
      {R"("a","b","c")", ",", {"a", "b", "c"}, Form::kQuoted},
      {R"(","x")", ",", {"", "x"}, Form::kQuoted},
      // An empty delimiter never separates.
      {R"("a""b")", "", {"a\"\"b"}, Form::kSingle},
  };
  for (const Case& c : cases) {
    Form form;
    EXPECT_EQ(SplitToStrings(c.line, c.delimiter, &form), c.values) << c.line;
    EXPECT_EQ(form, c.form) << c.line;
    Form counted;
    EXPECT_EQ(rowline::CountValues(c.line, c.delimiter, &counted), c.values.size()) << c.line;
    EXPECT_EQ(counted, c.form) << c.line;
  }
}

rowline::Form ReferenceForm(const std::string& line, const std::string& d) {
  if (!d.empty() && line.find("\"" + d + "\"") != std::string::npos) return rowline::Form::kQuoted;
  if (!d.empty() && line.find(d) != std::string::npos) return rowline::Form::kPlain;
  return rowline::Form::kSingle;
}

TEST(RowLineTest, AgreesWithPlainSubstringSearchOnHostileLines) {
  // Delimiters that hold quotes or repeat themselves make matches overlap; the fast
  // scanner must pick the same cuts as a left-to-right substring search.
  const std::string delimiters[] = {",", ";;", "\"", ",\"", "\",", "\",\"", ",;.?", "aa"};
  const char alphabet[] = {'"', ',', ';', 'a', '.', '?'};
  std::mt19937 rng(12345);
  for (const std::string& d : delimiters) {
    for (int n = 0; n < 3000; ++n) {
      std::string line(rng() % 14, ' ');
      for (char& c : line) c = alphabet[rng() % sizeof alphabet];
      rowline::Form form;
      ASSERT_EQ(SplitToStrings(line, d, &form), ReferenceSplit(line, d))
          << "[" << line << "] by [" << d << "]";
      ASSERT_EQ(form, ReferenceForm(line, d)) << "[" << line << "] by [" << d << "]";
      rowline::Form counted;
      ASSERT_EQ(rowline::CountValues(line, d, &counted), ReferenceSplit(line, d).size()) << line;
    }
  }
}

TEST(RowLineTest, CountsLongLinesLikeTheSubstringSearch) {
  // Long lines cross the counter's sixteen-byte blocks; runs like ",",", (two patterns
  // sharing a quote) and matches on block edges must count as the in-order search does.
  const std::string pieces[] = {"\"", ",", "\",\"", "ab", "\"\"", ",,", "x\"", ";", "\"x"};
  std::mt19937 rng(2024);
  for (const std::string d : {",", ";", "\t"}) {
    for (int n = 0; n < 4000; ++n) {
      std::string line;
      const std::size_t parts = rng() % 40;
      for (std::size_t i = 0; i < parts; ++i) line += pieces[rng() % std::size(pieces)];
      if (d != ",") {
        for (char& c : line) {
          if (c == ',') c = d[0];
        }
      }
      rowline::Form counted;
      ASSERT_EQ(rowline::CountValues(line, d, &counted), ReferenceSplit(line, d).size()) << line;
      ASSERT_EQ(counted, ReferenceForm(line, d)) << line;
      rowline::Form form;
      ASSERT_EQ(SplitToStrings(line, d, &form), ReferenceSplit(line, d)) << line;
      ASSERT_EQ(form, counted) << line;
    }
  }
}

TEST(RowLineTest, BuildsTheWrittenForm) {
  CStringArray values;
  CString out;
  rowline::Build(values, ",", out);
  EXPECT_EQ(std::string(out), "");
  values.Add("a");
  rowline::Build(values, ";", out);
  EXPECT_EQ(std::string(out), "\"a\"");
  values.Add("b\"c");
  values.Add("");
  rowline::Build(values, ",;.?", out);
  EXPECT_EQ(std::string(out), "\"a\",;.?\"b\"c\",;.?\"\"");
}

TEST(RowLineTest, BlankLines) {
  CString out;
  rowline::BuildBlank(3, ",", false, out);
  EXPECT_EQ(std::string(out), "\"\",\"\",\"\"");
  rowline::BuildBlank(2, ",;.?", true, out);
  EXPECT_EQ(std::string(out), "\" \",;.?\" \"");
  rowline::BuildBlank(0, ",", false, out);
  EXPECT_EQ(std::string(out), "");
}

}  // namespace
