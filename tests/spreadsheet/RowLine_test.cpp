#include "spreadsheet/RowLine.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

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
