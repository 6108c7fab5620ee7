// Construction and loading in text mode, and the mode decision.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/spreadsheet/TestAccess.h"
#include "tests/support/TempDir.h"

namespace {

using testing_support::TempDir;
using testing_support::WriteFile;

const char kRowOutOfRange[] = "Desired row is greater than total number of rows in spreadsheet\n";

TEST(ModeTest, LastFourCharactersLoweredDecide) {
  struct Case {
    const char* name;
    bool excel;
  } cases[] = {
      {"data.xls", true}, {"data.XLS", true}, {"DATA.XlS", true}, {".xls", true},
      {"data.xlsx", false}, {"data.csv", false}, {"xls", false}, {"a", false}, {"", false},
  };
  TempDir dir;
  for (const Case& c : cases) {
    if (c.excel) continue;  // Excel mode needs a driver; its tests live elsewhere
    CSpreadSheet s(dir.file(c.name).c_str(), ";", false);
    CSpreadSheetTestAccess peek(s);
    EXPECT_EQ(peek.isExcel(), c.excel) << c.name;
    EXPECT_EQ(std::string(peek.delimiter()), ";") << c.name;
    EXPECT_TRUE(peek.sheetName().IsEmpty()) << c.name;
  }
}

struct Loaded {
  long rows;
  short columns;
  bool appendMode;
  long currentRow;
  std::vector<std::string> header;
  std::string lastError;
};

Loaded Load(const std::string& path, const char* delimiter = ",") {
  CSpreadSheet s(path.c_str(), delimiter, false);
  CSpreadSheetTestAccess peek(s);
  CStringArray names;
  s.GetFieldNames(names);
  Loaded out{s.GetTotalRows(), s.GetTotalColumns(), peek.appendMode(), s.GetCurrentRow(), {}, s.GetLastError().str()};
  for (INT_PTR i = 0; i < names.GetSize(); ++i) out.header.push_back(names[i].str());
  return out;
}

std::string WideLine(int values) {
  std::string line = "1";
  for (int i = 1; i < values; ++i) line += ",1";
  return line;
}

TEST(TextOpenTest, CountsRowsAndColumnsTheWayCallersExpect) {
  const std::string wide = "a,b\n" + WideLine(40000) + "\n1,2,3\n";
  struct Case {
    const char* name;
    std::string bytes;
    long rows;
    short columns;
    bool appendMode;
    long currentRow;
    std::vector<std::string> header;
    std::string lastError;
  } cases[] = {
      // The header read of row 1 fails on an empty file and leaves its message behind.
      {"empty file", "", 0, 0, false, 1, {}, kRowOutOfRange},
      // One line: the only measuring pass asks for row 2, which is not there.
      {"one line", "\"a\",\"b\"\r\n", 1, 0, false, 2, {"a", "b"}, ""},
      {"two lines", "a,b\r\n1,2,3\r\n", 2, 3, true, 2, {"a", "b"}, ""},
      // With three or more lines the last one is never measured.
      {"wide last line", "a,b\r\n1,2\r\n1,2,3,4\r\n", 3, 2, true, 3, {"a", "b"}, ""},
      {"wide middle line", "a,b\n1,2,3,4\n1,2\n", 3, 4, true, 3, {"a", "b"}, ""},
      {"no final line end", "a,b\n1,2", 2, 2, true, 2, {"a", "b"}, ""},
      // A one-value line reads as a failure with the out-of-range message.
      {"one column", "a\nb\nc\n", 3, 1, true, 3, {"a"}, kRowOutOfRange},
      {"empty lines kept", "a,b\n\n\n", 3, 2, true, 3, {"a", "b"}, kRowOutOfRange},
      // The unmeasured last line leaves no message; with two lines both are measured.
      {"one-value last line", "a,b\n1,2\nx\n", 3, 2, true, 3, {"a", "b"}, ""},
      {"one-value second of two", "a,b\nx\n", 2, 2, true, 2, {"a", "b"}, kRowOutOfRange},
      // The count is cut to 16 bits at each update: row 2, then row 1, then row 2 again.
      {"beyond 16 bits", wide, 3, -25536, true, 3, {"a", "b"}, ""},
  };
  TempDir dir;
  for (const Case& c : cases) {
    WriteFile(dir.file("t.txt"), c.bytes);
    Loaded got = Load(dir.file("t.txt"));
    EXPECT_EQ(got.rows, c.rows) << c.name;
    EXPECT_EQ(got.columns, c.columns) << c.name;
    EXPECT_EQ(got.appendMode, c.appendMode) << c.name;
    EXPECT_EQ(got.currentRow, c.currentRow) << c.name;
    EXPECT_EQ(got.header, c.header) << c.name;
    EXPECT_EQ(got.lastError, c.lastError) << c.name;
  }
}

TEST(TextOpenTest, MissingFile) {
  TempDir dir;
  Loaded got = Load(dir.file("nope.csv"));
  EXPECT_EQ(got.lastError, "Error in opening file\n");
  EXPECT_EQ(got.rows, 0);
  EXPECT_EQ(got.currentRow, 1);
  EXPECT_FALSE(got.appendMode);
}

TEST(TextOpenTest, BackupWritesNothingAndKeepsTheName) {
  TempDir dir;
  WriteFile(dir.file("t.csv"), "a,b\n1,2\n");
  CSpreadSheet s(dir.file("t.csv").c_str(), ",", true);
  CSpreadSheetTestAccess peek(s);
  EXPECT_TRUE(s.GetBackupStatus());
  EXPECT_EQ(std::string(peek.fileName()), dir.file("t.csv"));
  EXPECT_EQ(std::string(peek.scratchValue()), dir.file("t.csv") + ".bak");
  EXPECT_FALSE(std::filesystem::exists(dir.file("t.csv.bak")));
}

TEST(TextOpenTest, EmptyDelimiterLoadsOneValuePerLineWithAClearMessage) {
  TempDir dir;
  WriteFile(dir.file("t.csv"), "a,b\n1,2\n");
  CSpreadSheet s(dir.file("t.csv").c_str(), "", false);
  EXPECT_EQ(std::string(s.GetLastError()), "Delimiter cannot be empty\n");
  EXPECT_EQ(s.GetTotalRows(), 2);
  EXPECT_EQ(s.GetTotalColumns(), 1);
  CString cell;
  EXPECT_FALSE(s.ReadCell(cell, 1, 2));
  CStringArray row;
  EXPECT_FALSE(s.ReadRow(row, 2));
  ASSERT_EQ(row.GetSize(), 1);
  EXPECT_EQ(std::string(row[0]), "1,2");
}

TEST(TextOpenTest, HostileContentNeverBreaksLoading) {
  TempDir dir;
  std::string binary;
  for (int i = 0; i < 4096; ++i) binary += static_cast<char>((i * 131 + 7) & 0xff);
  WriteFile(dir.file("bin.csv"), binary);
  Loaded got = Load(dir.file("bin.csv"));
  EXPECT_GE(got.rows, 1);

  const std::string longLine(10 * 1024 * 1024, 'x');
  WriteFile(dir.file("long.csv"), "\"" + longLine + "\",\"y\"\r\nz,w\r\n");
  CSpreadSheet s(dir.file("long.csv").c_str(), ",", false);
  CString cell;
  ASSERT_TRUE(s.ReadCell(cell, 1, 1));
  EXPECT_EQ(cell.GetLength(), static_cast<int>(longLine.size()));

  std::string many;
  many.reserve(1000000 * 6);
  for (int i = 0; i < 1000000; ++i) many += "a,b,c\n";
  WriteFile(dir.file("many.csv"), many);
  CSpreadSheet m(dir.file("many.csv").c_str(), ",", false);
  EXPECT_EQ(m.GetTotalRows(), 1000000);
  EXPECT_EQ(m.GetTotalColumns(), 3);
  CStringArray column;
  ASSERT_TRUE(m.ReadColumn(column, 3));
  EXPECT_EQ(column.GetSize(), 1000000);
  EXPECT_EQ(std::string(column[999999]), "c");
}

}  // namespace
