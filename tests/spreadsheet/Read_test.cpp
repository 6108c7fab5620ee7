// Reading rows, columns and cells, and naming columns by letters or header text.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/spreadsheet/TestAccess.h"
#include "tests/support/TempDir.h"

namespace {

using testing_support::TempDir;
using testing_support::WriteFile;

const char kRowOutOfRange[] = "Desired row is greater than total number of rows in spreadsheet\n";

std::vector<std::string> Strings(const CStringArray& a) {
  std::vector<std::string> out;
  for (INT_PTR i = 0; i < a.GetSize(); ++i) out.push_back(a[i].str());
  return out;
}

class ReadTest : public ::testing::Test {
 protected:
  // Header ID, Name, PRICE, Price; three data rows, the last one short.
  void SetUp() override {
    WriteFile(dir_.file("t.csv"),
              "\"ID\",\"Name\",\"PRICE\",\"Price\"\r\n"
              "\"1\",\"apple\",\"10\",\"11\"\r\n"
              "\"2\",\"pear\",\"20\",\"21\"\r\n"
              "\"3\",\"fig\"\r\n");
    sheet_ = std::make_unique<CSpreadSheet>(dir_.file("t.csv").c_str(), ",", false);
  }
  TempDir dir_;
  std::unique_ptr<CSpreadSheet> sheet_;
};

TEST_F(ReadTest, SequentialReadsRunToTheEndThenStopQuietly) {
  CSpreadSheet& s = *sheet_;
  CStringArray row;
  ASSERT_TRUE(s.ReadRow(row, 1));
  EXPECT_EQ(Strings(row), (std::vector<std::string>{"ID", "Name", "PRICE", "Price"}));
  EXPECT_EQ(s.GetCurrentRow(), 2);
  ASSERT_TRUE(s.ReadRow(row));
  EXPECT_EQ(row[1], CString("apple"));
  ASSERT_TRUE(s.ReadRow(row));
  ASSERT_TRUE(s.ReadRow(row));
  EXPECT_EQ(Strings(row), (std::vector<std::string>{"3", "fig"}));
  EXPECT_EQ(s.GetCurrentRow(), 5);
  const CString before = s.GetLastError();
  EXPECT_FALSE(s.ReadRow(row));
  EXPECT_EQ(s.GetLastError(), before);  // the end of a sequential read says nothing
  EXPECT_EQ(Strings(row), (std::vector<std::string>{"3", "fig"}));

  EXPECT_FALSE(s.ReadRow(row, 5));
  EXPECT_EQ(std::string(s.GetLastError()), kRowOutOfRange);
  EXPECT_EQ(s.GetCurrentRow(), 5);
}

TEST_F(ReadTest, NegativeRowsRaiseInvalidArgument) {
  CSpreadSheet& s = *sheet_;
  CStringArray row;
  row.Add("kept?");
  EXPECT_THROW(s.ReadRow(row, -1), CInvalidArgException*);
  EXPECT_EQ(row.GetSize(), 0);           // emptied before the index was checked
  EXPECT_EQ(s.GetCurrentRow(), -1);      // left where the read set it
  CString cell;
  EXPECT_THROW(s.ReadCell(cell, 1, -3), CInvalidArgException*);
}

TEST_F(ReadTest, ColumnsIncludeTheHeaderAndPadShortRows) {
  CSpreadSheet& s = *sheet_;
  CStringArray col;
  s.ReadRow(col, 2);
  ASSERT_TRUE(s.ReadColumn(col, 3));
  EXPECT_EQ(Strings(col), (std::vector<std::string>{"PRICE", "10", "20", ""}));
  EXPECT_EQ(s.GetCurrentRow(), 3);  // restored
  ASSERT_TRUE(s.ReadColumn(col, 9));
  EXPECT_EQ(Strings(col), (std::vector<std::string>{"", "", "", ""}));
  EXPECT_FALSE(s.ReadColumn(col, 0));
  EXPECT_EQ(std::string(s.GetLastError()), "Column cannot be zero\n");
  EXPECT_THROW(s.ReadColumn(col, -2), CInvalidArgException*);
}

TEST_F(ReadTest, CellsNeverMoveTheCurrentRow) {
  CSpreadSheet& s = *sheet_;
  CString cell("untouched");
  ASSERT_TRUE(s.ReadCell(cell, 2, 3));
  EXPECT_EQ(cell, CString("pear"));
  EXPECT_EQ(s.GetCurrentRow(), 4);  // as the load left it
  ASSERT_TRUE(s.ReadCell(cell, 1));  // row 0: the current row
  EXPECT_EQ(cell, CString("3"));
  EXPECT_EQ(s.GetCurrentRow(), 4);

  // Beyond the row's values: false, the string emptied, no new message.
  const CString before = s.GetLastError();
  EXPECT_FALSE(s.ReadCell(cell, 3, 4));
  EXPECT_TRUE(cell.IsEmpty());
  EXPECT_EQ(s.GetLastError(), before);

  cell = "untouched";
  EXPECT_FALSE(s.ReadCell(cell, 1, 9));
  EXPECT_EQ(std::string(s.GetLastError()), "Error reading row\n");
  EXPECT_EQ(cell, CString("untouched"));
  EXPECT_EQ(s.GetCurrentRow(), 4);
  EXPECT_FALSE(s.ReadCell(cell, 0, 1));
  EXPECT_EQ(std::string(s.GetLastError()), "Column cannot be zero\n");
}

TEST_F(ReadTest, ColumnNamesByLettersOrHeaderText) {
  CSpreadSheetTestAccess peek(*sheet_);
  struct Case {
    const char* text;
    bool autoDetect;
    short column;
  } cases[] = {
      {"a", true, 1},    {"A", true, 1},     {"Z", true, 26},  {"AA", true, 27},
      {"az", true, 52},  {"BA", true, 53},   {"iv", true, 256},
      // Two letters win over a header of that name when detecting.
      {"ID", true, 238},
      // Longer texts are upper-cased first, so only an upper-case header matches.
      {"Price", true, 3}, {"price", true, 3}, {"PRICE", true, 3},
      {"Price", false, 4}, {"PRICE", false, 3}, {"Name", false, 2}, {"ID", false, 1},
      // Letters without detection are header names too.
      {"A", false, 0},   {"Nope", false, 0}, {"Name", true, 0},
      // Nothing is validated: a digit is negative, an at sign zero, bytes are signed.
      {"1", true, -15},  {"@", true, 0},     {"\xC1", true, -127},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(peek.column(c.text, c.autoDetect), c.column) << c.text << " " << c.autoDetect;
  }
  EXPECT_EQ(std::string(sheet_->GetLastError()), "Invalid field name or column alphabet\n");
}

TEST_F(ReadTest, TextColumnOverloads) {
  CSpreadSheet& s = *sheet_;
  CString cell;
  ASSERT_TRUE(s.ReadCell(cell, "b", 2, true));
  EXPECT_EQ(cell, CString("apple"));
  ASSERT_TRUE(s.ReadCell(cell, "Price", 3, false));
  EXPECT_EQ(cell, CString("21"));
  EXPECT_FALSE(s.ReadCell(cell, "Missing", 2, false));
  EXPECT_EQ(std::string(s.GetLastError()), "Invalid field name or column alphabet\n");
  CStringArray col;
  // Detection upper-cases Name to NAME, which is no header.
  EXPECT_FALSE(s.ReadColumn(col, "Name", true));
  EXPECT_FALSE(s.ReadColumn(col, "Qty", false));
  ASSERT_TRUE(s.ReadColumn(col, "Name", false));
  EXPECT_EQ(Strings(col), (std::vector<std::string>{"Name", "apple", "pear", "fig"}));
  // A digit resolves to a negative column, which raises.
  EXPECT_THROW(s.ReadCell(cell, "1", 2, true), CInvalidArgException*);
}

TEST(ReadOneColumnTest, OneValueRowsDeliverTheirValueButFail) {
  TempDir dir;
  WriteFile(dir.file("t.csv"), "\"only\"\r\n\"x\"\r\n");
  CSpreadSheet s(dir.file("t.csv").c_str(), ",", false);
  CStringArray row;
  EXPECT_FALSE(s.ReadRow(row, 2));
  EXPECT_EQ(Strings(row), (std::vector<std::string>{"x"}));
  EXPECT_EQ(std::string(s.GetLastError()), kRowOutOfRange);
  EXPECT_EQ(s.GetCurrentRow(), 3);
  CStringArray col;
  EXPECT_FALSE(s.ReadColumn(col, 1));
  EXPECT_EQ(std::string(s.GetLastError()), "Error reading row\n");
  CString cell;
  EXPECT_FALSE(s.ReadCell(cell, 1, 1));
  EXPECT_EQ(std::string(s.GetLastError()), "Error reading row\n");
}

}  // namespace
