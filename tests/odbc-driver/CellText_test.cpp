// How cells read as text, and how connection strings split.
#include <gtest/gtest.h>

#include "odbc-driver/CellText.h"
#include "odbc-driver/ConnectionString.h"

namespace xlsodbc {
namespace {

TEST(CellTextTest, NumbersInShortestExactForm) {
  struct Case {
    double v;
    const char* text;
  } cases[] = {{10, "10"},
               {-2.5, "-2.5"},
               {0.1, "0.1"},
               {1.0 / 3, "0.3333333333333333"},
               {1e15, "1000000000000000"},
               {1e16, "1e+16"},
               {1e-5, "0.00001"},
               {1.5e-7, "1.5e-07"},
               {-0.0, "0"},
               {123456789.125, "123456789.125"},
               // whole numbers either side of 2^53 (the integer path's edge)
               {-42, "-42"},
               {9007199254740991.0, "9007199254740991"},
               {-9007199254740991.0, "-9007199254740991"},
               {9007199254740992.0, "9007199254740992"},
               {9999999999999998.0, "9999999999999998"},
               {4503599627370495.5, "4503599627370495.5"}};
  for (const Case& c : cases) EXPECT_EQ(FormatNumber(c.v), c.text) << c.v;
}

TEST(CellTextTest, DatesInBothSystems) {
  struct Case {
    double serial;
    bool date1904;
    const char* text;
  } cases[] = {{1, false, "1900-01-01 00:00:00"},          {59, false, "1900-02-28 00:00:00"},
               {60, false, "1900-02-29 00:00:00"},         {61, false, "1900-03-01 00:00:00"},
               {45000.75, false, "2023-03-15 18:00:00"},   {0, true, "1904-01-01 00:00:00"},
               {1.5 / 86400, true, "1904-01-01 00:00:02"},  // rounded to the second
               {0.999999, false, "1900-01-01 00:00:00"}};
  for (const Case& c : cases) EXPECT_EQ(FormatDateTime(c.serial, c.date1904), c.text) << c.serial;
}

TEST(CellTextTest, KindsOfCells) {
  std::string s;
  EXPECT_FALSE(CellText(xls::Cell(), false, &s));
  EXPECT_TRUE(CellText(xls::Cell::Boolean(false), false, &s));
  EXPECT_EQ(s, "0");
  EXPECT_TRUE(CellText(xls::Cell::Error(0x07), false, &s));
  EXPECT_EQ(s, "#DIV/0!");
  EXPECT_TRUE(CellText(xls::Cell::Text(""), false, &s));  // empty text is a value, not NULL
  EXPECT_EQ(s, "");
}

TEST(ConnectionStringTest, TheLibrarysStringAndOtherForms) {
  auto keys = ParseConnectionString(
      "DRIVER={Excel Workbook Driver (*.xls)};DSN='';FIRSTROWHASNAMES=1;READONLY=FALSE;"
      "CREATE_DB=\"/tmp/my book.xls\";DBQ=/tmp/my book.xls");
  EXPECT_EQ(keys["DRIVER"], "Excel Workbook Driver (*.xls)");
  EXPECT_EQ(keys["DSN"], "");
  EXPECT_EQ(keys["CREATE_DB"], "/tmp/my book.xls");
  EXPECT_EQ(keys["DBQ"], "/tmp/my book.xls");
  EXPECT_FALSE(ParseFlag(keys["READONLY"], true));
  EXPECT_TRUE(ParseFlag(keys["FIRSTROWHASNAMES"], false));

  auto other = ParseConnectionString(" dbq = a;b ; Driver={x}}y};;junk;readonly=yes");
  EXPECT_EQ(other["DBQ"], "a");
  EXPECT_EQ(other["DRIVER"], "x}y");
  EXPECT_TRUE(ParseFlag(other["READONLY"], false));
  EXPECT_TRUE(ParseFlag("maybe", true));
  EXPECT_FALSE(ParseFlag("maybe", false));
  EXPECT_TRUE(ParseConnectionString("").empty());
  EXPECT_EQ(ParseConnectionString("DBQ={unterminated")["DBQ"], "unterminated");
}

}  // namespace
}  // namespace xlsodbc
