// Text into the C types applications ask for: pieces, UTF-16, numbers, dates, and the
// SQLSTATEs for what does not fit.
#include <gtest/gtest.h>

#include <cstring>

#include "odbc-driver/Convert.h"

namespace xlsodbc {
namespace {

TEST(ConvertTest, NumbersAndDates) {
  struct Case {
    const char* text;
    SQLSMALLINT type;
    SQLRETURN ret;
    const char* state;
  } cases[] = {
      {"42", SQL_C_SLONG, SQL_SUCCESS, nullptr},
      {"2.5", SQL_C_SLONG, SQL_SUCCESS_WITH_INFO, "01S07"},
      {"abc", SQL_C_SLONG, SQL_ERROR, "22018"},
      {"70000", SQL_C_SSHORT, SQL_ERROR, "22003"},
      {"-1", SQL_C_ULONG, SQL_ERROR, "22003"},
      {"1e300", SQL_C_SBIGINT, SQL_ERROR, "22003"},
      {" 7 ", SQL_C_DOUBLE, SQL_SUCCESS, nullptr},
      {"2023-03-15 18:00:00", SQL_C_TYPE_TIMESTAMP, SQL_SUCCESS, nullptr},
      {"2023-03-15", SQL_C_TYPE_DATE, SQL_SUCCESS, nullptr},
      {"2023-13-15", SQL_C_TYPE_DATE, SQL_ERROR, "22018"},
      {"x", 9999, SQL_ERROR, "HY003"},
  };
  for (const Case& c : cases) {
    std::string text = c.text;
    unsigned char buf[64];
    SQLLEN ind = 0;
    std::size_t offset = 0;
    ConvertResult r = ConvertText(&text, c.type, buf, sizeof buf, &ind, &offset);
    EXPECT_EQ(r.ret, c.ret) << c.text << " as " << c.type;
    if (c.state) {
      EXPECT_STREQ(CodeOf(r.state), c.state) << c.text;
    }
  }
  std::string ts = "2023-03-15 18:00:05";
  SQL_TIMESTAMP_STRUCT t{};
  std::size_t offset = 0;
  ConvertText(&ts, SQL_C_TYPE_TIMESTAMP, &t, sizeof t, nullptr, &offset);
  EXPECT_EQ(t.year, 2023);
  EXPECT_EQ(t.hour, 18);
  EXPECT_EQ(t.second, 5);
}

TEST(ConvertTest, WideTextInPieces) {
  std::string text = "a€😀";  // 1 + 1 + 2 UTF-16 units
  std::u16string all;
  std::size_t offset = 0;
  SQLWCHAR buf[3];  // room for 2 units and the NUL
  SQLLEN ind = 0;
  int calls = 0;
  while (true) {
    ConvertResult r = ConvertText(&text, SQL_C_WCHAR, buf, sizeof buf, &ind, &offset);
    if (r.ret == SQL_NO_DATA) break;
    ASSERT_NE(r.ret, SQL_ERROR);
    for (int i = 0; buf[i]; ++i) all.push_back(static_cast<char16_t>(buf[i]));
    ASSERT_LT(++calls, 5);
  }
  EXPECT_EQ(all, u"a€😀");
  EXPECT_EQ(calls, 2);
  EXPECT_EQ(Utf16ToUtf8(reinterpret_cast<const SQLWCHAR*>(all.data()), all.size()), text);
  EXPECT_EQ(Utf8ToUtf16("\xff"
                        "a"),
            u"\xfffd"
            "a");  // a malformed byte is replaced
}

TEST(ConvertTest, NullAndEmptyValues) {
  std::size_t offset = 0;
  SQLLEN ind = 0;
  char buf[8];
  EXPECT_EQ(ConvertText(nullptr, SQL_C_CHAR, buf, sizeof buf, &ind, &offset).ret, SQL_SUCCESS);
  EXPECT_EQ(ind, SQL_NULL_DATA);
  EXPECT_EQ(ConvertText(nullptr, SQL_C_CHAR, buf, sizeof buf, &ind, &offset).ret, SQL_NO_DATA);
  offset = 0;
  EXPECT_STREQ(CodeOf(ConvertText(nullptr, SQL_C_CHAR, buf, sizeof buf, nullptr, &offset).state),
               "22002");
  std::string empty;
  offset = 0;
  EXPECT_EQ(ConvertText(&empty, SQL_C_CHAR, buf, sizeof buf, &ind, &offset).ret, SQL_SUCCESS);
  EXPECT_EQ(ind, 0);
  EXPECT_EQ(ConvertText(&empty, SQL_C_CHAR, buf, sizeof buf, &ind, &offset).ret, SQL_NO_DATA);
}

TEST(ConvertTest, BoundParameters) {
  Value v;
  SQLINTEGER i = -7;
  ASSERT_EQ(ParameterValue(SQL_C_SLONG, &i, 0, nullptr, &v).ret, SQL_SUCCESS);
  EXPECT_EQ(v.kind, Value::Kind::kNumber);
  EXPECT_EQ(v.number, -7);
  char text[] = "abcdef";
  SQLLEN len = 3;
  ParameterValue(SQL_C_CHAR, text, sizeof text, &len, &v);
  EXPECT_EQ(v.text, "abc");
  len = SQL_NULL_DATA;
  ParameterValue(SQL_C_CHAR, text, sizeof text, &len, &v);
  EXPECT_EQ(v.kind, Value::Kind::kNull);
  EXPECT_EQ(ParameterValue(SQL_C_GUID, text, sizeof text, nullptr, &v).ret, SQL_ERROR);
}

}  // namespace
}  // namespace xlsodbc
