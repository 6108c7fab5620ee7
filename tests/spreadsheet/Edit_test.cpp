// Editing headers, rows and cells in text mode, and what each edit leaves in the file.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/spreadsheet/TestAccess.h"
#include "tests/support/TempDir.h"

namespace {

using testing_support::ReadFile;
using testing_support::TempDir;
using testing_support::WriteFile;

CStringArray Values(std::initializer_list<const char*> values) {
  CStringArray a;
  for (const char* v : values) a.Add(v);
  return a;
}

std::vector<std::string> Lines(CSpreadSheet& s) {
  CSpreadSheetTestAccess peek(s);
  std::vector<std::string> out;
  for (INT_PTR i = 0; i < peek.rowLines().GetSize(); ++i) out.push_back(peek.rowLines()[i].str());
  return out;
}

class EditTest : public ::testing::Test {
 protected:
  std::string Path() const { return dir_.file("t.csv"); }
  // A file of a header a,b and two rows.
  std::unique_ptr<CSpreadSheet> OpenSample() {
    WriteFile(Path(), "\"a\",\"b\"\r\n\"1\",\"2\"\r\n\"3\",\"4\"\r\n");
    return std::make_unique<CSpreadSheet>(Path().c_str(), ",", false);
  }
  TempDir dir_;
};

TEST_F(EditTest, RowPlacement) {
  struct Case {
    const char* name;
    long row;
    bool replace;
    std::vector<std::string> lines;
    long totalRows;
    long currentRow;
  } cases[] = {
      {"append", 0, false, {"\"a\",\"b\"", "\"1\",\"2\"", "\"3\",\"4\"", "\"x\",\"y\""}, 4, 3},
      {"insert at 2", 2, false, {"\"a\",\"b\"", "\"x\",\"y\"", "\"1\",\"2\"", "\"3\",\"4\""}, 4, 3},
      {"insert at 1 demotes the header", 1, false,
       {"\"x\",\"y\"", "\"a\",\"b\"", "\"1\",\"2\"", "\"3\",\"4\""}, 4, 3},
      {"overwrite", 3, true, {"\"a\",\"b\"", "\"1\",\"2\"", "\"x\",\"y\""}, 3, 3},
      {"beyond the end", 6, false,
       {"\"a\",\"b\"", "\"1\",\"2\"", "\"3\",\"4\"", "\"\",\"\"", "\"\",\"\"", "\"x\",\"y\""}, 6, 6},
      {"just past the end", 4, true, {"\"a\",\"b\"", "\"1\",\"2\"", "\"3\",\"4\"", "\"x\",\"y\""}, 4, 4},
  };
  for (const Case& c : cases) {
    auto s = OpenSample();
    CStringArray v = Values({"x", "y"});
    ASSERT_TRUE(s->AddRow(v, c.row, c.replace)) << c.name;
    EXPECT_EQ(Lines(*s), c.lines) << c.name;
    EXPECT_EQ(s->GetTotalRows(), c.totalRows) << c.name;
    EXPECT_EQ(s->GetCurrentRow(), c.currentRow) << c.name;
    // Outside a transaction the edit is on disk at once, every line ending in CRLF.
    std::string expected;
    for (const std::string& l : c.lines) expected += l + "\r\n";
    EXPECT_EQ(ReadFile(Path()), expected) << c.name;
  }
}

TEST_F(EditTest, BlankRowsBeyondTheEndReadBackEmpty) {
  auto s = OpenSample();
  CStringArray v = Values({"x", "y"});
  ASSERT_TRUE(s->AddRow(v, 8L));  // a long row: AddRow(v, 8) would be the positional form
  CSpreadSheet back(Path().c_str(), ",", false);
  CString cell("?");
  for (long r = 4; r <= 7; ++r) {
    ASSERT_TRUE(back.ReadCell(cell, 2, r)) << r;
    EXPECT_EQ(cell, CString("")) << r;
  }
  ASSERT_TRUE(back.ReadCell(cell, 2, 8));
  EXPECT_EQ(cell, CString("y"));
}

TEST_F(EditTest, WiderRowsRaiseTheColumnCount) {
  auto s = OpenSample();
  CStringArray v = Values({"1", "2", "3", "4", "5"});
  ASSERT_TRUE(s->AddRow(v));
  EXPECT_EQ(s->GetTotalColumns(), 5);
  CStringArray one = Values({"z"});
  ASSERT_TRUE(s->AddRow(one));
  EXPECT_EQ(s->GetTotalColumns(), 5);  // never shrinks
}

TEST_F(EditTest, NegativeAndOutOfRangeRowsRaise) {
  auto s = OpenSample();
  CStringArray v = Values({"x"});
  EXPECT_THROW(s->AddRow(v, -1, false), CInvalidArgException*);
  EXPECT_THROW(s->AddRow(v, -1, true), CInvalidArgException*);
  EXPECT_THROW(s->AddCell("x", 1, -2), CInvalidArgException*);
  EXPECT_EQ(s->GetTotalRows(), 3);
  EXPECT_EQ(ReadFile(Path()), "\"a\",\"b\"\r\n\"1\",\"2\"\r\n\"3\",\"4\"\r\n");
}

TEST_F(EditTest, HeadersOnANewFile) {
  CSpreadSheet s(Path().c_str(), ";", false);
  EXPECT_EQ(std::string(s.GetLastError()), "Error in opening file\n");
  CStringArray h = Values({"Name", "Qty"});
  ASSERT_TRUE(s.AddHeaders(h));
  EXPECT_EQ(s.GetTotalRows(), 1);
  EXPECT_EQ(s.GetTotalColumns(), 2);
  CStringArray names;
  s.GetFieldNames(names);
  EXPECT_EQ(names.GetSize(), 2);
  // appendMode stays false, so a second call sets the header again rather than widening.
  CStringArray h2 = Values({"X"});
  ASSERT_TRUE(s.AddHeaders(h2, false));
  EXPECT_EQ(ReadFile(Path()), "\"X\"\r\n");
  EXPECT_EQ(s.GetTotalColumns(), 1);
}

TEST_F(EditTest, HeadersWidenOrReplaceAnExistingHeader) {
  auto s = OpenSample();
  CStringArray more = Values({"c", "a"});  // text mode checks no duplicates
  ASSERT_TRUE(s->AddHeaders(more, false));
  EXPECT_EQ(Lines(*s)[0], "\"a\",\"b\",\"c\",\"a\"");
  EXPECT_EQ(s->GetTotalColumns(), 4);
  EXPECT_EQ(s->GetCurrentRow(), 2);
  CStringArray names;
  s->GetFieldNames(names);
  EXPECT_EQ(names.GetSize(), 4);

  CStringArray fresh = Values({"p", "q"});
  ASSERT_TRUE(s->AddHeaders(fresh, true));
  EXPECT_EQ(Lines(*s)[0], "\"p\",\"q\"");
  EXPECT_EQ(s->GetTotalColumns(), 4);
}

TEST_F(EditTest, SingleFieldHeaderCannotBeWidened) {
  WriteFile(Path(), "\"only\"\r\n\"1\"\r\n");
  CSpreadSheet s(Path().c_str(), ",", false);
  CStringArray more = Values({"two"});
  EXPECT_FALSE(s.AddHeaders(more, false));
  EXPECT_EQ(std::string(s.GetLastError()),
            "Desired row is greater than total number of rows in spreadsheet\n");
  EXPECT_EQ(ReadFile(Path()), "\"only\"\r\n\"1\"\r\n");
}

TEST_F(EditTest, CellsInExistingAndNewRows) {
  auto s = OpenSample();
  ASSERT_TRUE(s->AddCell("z", 4, 2));  // grows row 2 and the column count
  EXPECT_EQ(Lines(*s)[1], "\"1\",\"2\",\"\",\"z\"");
  EXPECT_EQ(s->GetTotalColumns(), 4);
  EXPECT_EQ(s->GetCurrentRow(), 3);

  ASSERT_TRUE(s->AddCell("new", 2, 0));  // appended: a row of totalColumns cells
  EXPECT_EQ(Lines(*s).back(), "\"\",\"new\",\"\",\"\"");
  EXPECT_EQ(s->GetTotalRows(), 4);
  EXPECT_EQ(s->GetCurrentRow(), 3);

  ASSERT_TRUE(s->AddCell("far", "A", 7, true));  // beyond the end: blank rows first
  EXPECT_EQ(s->GetTotalRows(), 7);
  EXPECT_EQ(s->GetCurrentRow(), 7);
  EXPECT_EQ(Lines(*s)[4], "\"\",\"\",\"\",\"\"");
  EXPECT_EQ(Lines(*s)[6], "\"far\",\"\",\"\",\"\"");

  ASSERT_TRUE(s->AddCell("B!", 2, 1));  // row 1: the header names follow
  CStringArray names;
  s->GetFieldNames(names);
  EXPECT_EQ(std::string(names[1]), "B!");

  EXPECT_FALSE(s->AddCell("x", 0, 1));
  EXPECT_EQ(std::string(s->GetLastError()), "Column cannot be zero\n");
  EXPECT_FALSE(s->AddCell("x", "Missing", 1, false));
  EXPECT_EQ(std::string(s->GetLastError()), "Invalid field name or column alphabet\n");

  CSpreadSheet back(Path().c_str(), ",", false);
  CString cell;
  ASSERT_TRUE(back.ReadCell(cell, 1, 7));
  EXPECT_EQ(cell, CString("far"));
}

TEST_F(EditTest, ReplaceRowsIsForWorkbooksOnly) {
  auto s = OpenSample();
  CStringArray a = Values({"1"}), b = Values({"2"});
  EXPECT_FALSE(s->ReplaceRows(a, b));
  EXPECT_EQ(std::string(s->GetLastError()), "Function not available for text delimited file\n");
}

}  // namespace
