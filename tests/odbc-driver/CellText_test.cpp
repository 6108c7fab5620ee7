// How cells read as text, and how connection strings split.
#include <gtest/gtest.h>

#include <charconv>
#include <cmath>
#include <random>
#include <vector>

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

// The general shortest-form search, against which the decimal shortcut is checked.
std::string ShortestByToChars(double v) {
  char buf[64];
  double a = std::fabs(v);
  auto fmt = (a >= 1e-5 && a < 1e16) ? std::chars_format::fixed : std::chars_format::scientific;
  return std::string(buf, std::to_chars(buf, buf + sizeof buf, v, fmt).ptr);
}

TEST(CellTextTest, NumbersMatchTheGeneralSearchOverManyValues) {
  std::vector<double> values = {0.1 + 0.2,
                                1.0 / 3,
                                2.0 / 3,
                                3.141592653589793,
                                0.00001,
                                0.0000125,
                                1e-5 * 1.5,
                                9999999999999999.0 / 7,
                                4503599627370495.5,
                                2251799813685247.75,
                                0.5,
                                1.5,
                                1e15 + 0.5};
  for (int r = -3000; r < 3000; ++r) {
    for (double d : {2.0, 4.0, 8.0, 10.0, 100.0, 1000.0, 3.0, 7.0, 1e6, 1e9}) {
      values.push_back(r / d);
      values.push_back(r * 31 + 0.25 + r / d * 1e-3);
    }
  }
  // Neighbours of powers of two and of ten, where the gaps between doubles change.
  for (int e = -16; e < 53; ++e) {
    double p = std::ldexp(1.0, e);
    values.insert(values.end(), {std::nextafter(p, 0.0), std::nextafter(p, 1e300), p * 1.1});
  }
  for (int e = -5; e < 17; ++e) {
    double p = std::pow(10.0, e);
    values.insert(values.end(), {std::nextafter(p, 0.0), std::nextafter(p, 1e300)});
  }
  // Random bit patterns over the whole plain-digit range and beyond it.
  std::mt19937_64 rng(20261123);
  std::uniform_real_distribution<double> exponent(-7, 18);
  for (int i = 0; i < 50000; ++i) {
    double v = std::pow(10.0, exponent(rng));
    values.push_back(i % 2 ? v : -v);
    values.push_back(std::round(v * 1000) / 1000);  // a few decimals, as sheets hold
  }
  int mismatches = 0;
  for (double v : values) {
    std::string want = ShortestByToChars(v);
    if (v == 0) want = "0";
    if (FormatNumber(v) != want && ++mismatches < 10) {
      ADD_FAILURE() << FormatNumber(v) << " != " << want;
    }
  }
  EXPECT_EQ(mismatches, 0);
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
