// The SQL parser: the statements spreadsheet programs send, byte for byte, and the malformed
// ones that must fail with a syntax error naming the position.
#include <gtest/gtest.h>

#include "odbc-driver/Sql.h"

namespace xlsodbc {
namespace {

Statement Parse(const std::string& sql) {
  Statement st;
  Error e = ParseSql(sql, &st);
  EXPECT_TRUE(e.ok()) << sql << ": " << e.message();
  return st;
}

TEST(SqlTest, TableForms) {
  struct Case {
    const char* sql;
    const char* sheet;
    bool hasRange;
    CellRange range;
  } cases[] = {
      {"SELECT * FROM [Sheet1$A1:IV65536]", "Sheet1", true, {0, 0, 65535, 255}},
      {"SELECT * FROM [Sheet1]", "Sheet1", false, {}},
      {"SELECT * FROM Sheet1", "Sheet1", false, {}},
      {"SELECT * FROM [Sheet1$]", "Sheet1", false, {}},
      {"SELECT * FROM Sheet1$", "Sheet1", false, {}},
      {"SELECT * FROM [My Sheet$B2:C3]", "My Sheet", true, {1, 1, 2, 2}},
      {"INSERT INTO [Sheet1$A3:IV1] VALUES (abc, 10)", "Sheet1", true, {0, 0, 2, 255}},
      {"SELECT * FROM [Sheet1$C5]", "Sheet1", true, {4, 2, 4, 2}},
      {"SELECT * FROM [a$b$A1:B2]", "a$b", true, {0, 0, 1, 1}},
  };
  for (const Case& c : cases) {
    Statement st = Parse(c.sql);
    EXPECT_EQ(st.table.sheet, c.sheet) << c.sql;
    EXPECT_EQ(st.table.hasRange, c.hasRange) << c.sql;
    if (c.hasRange) {
      EXPECT_EQ(st.table.range.top, c.range.top) << c.sql;
      EXPECT_EQ(st.table.range.left, c.range.left) << c.sql;
      EXPECT_EQ(st.table.range.bottom, c.range.bottom) << c.sql;
      EXPECT_EQ(st.table.range.right, c.range.right) << c.sql;
    }
  }
}

TEST(SqlTest, LibraryStatementsParse) {
  Statement create = Parse("CREATE TABLE [Sheet1] ([Name] char(255), [Qty] char(255))");
  EXPECT_EQ(create.kind, Statement::Kind::kCreate);
  EXPECT_EQ(create.columns, (std::vector<std::string>{"Name", "Qty"}));

  Statement again = Parse("CREATE TABLE [Sheet1$A4:IV65536] ([Name] char(255), [Qty] char(255))");
  EXPECT_EQ(again.table.range.top, 3);
  EXPECT_EQ(again.columns.size(), 2u);

  Statement insert = Parse("INSERT INTO [Sheet1$A4:X4] VALUES ('abc', '10')");
  ASSERT_EQ(insert.values.size(), 2u);
  EXPECT_EQ(insert.values[0].kind, Value::Kind::kText);
  EXPECT_EQ(insert.values[1].kind, Value::Kind::kText);  // quoted: stays text
  EXPECT_EQ(insert.values[1].text, "10");
  EXPECT_EQ(insert.table.range.right, 23);

  Statement bare = Parse("INSERT INTO [Sheet1$A3:IV1] VALUES (abc, 10)");
  ASSERT_EQ(bare.values.size(), 2u);
  EXPECT_EQ(bare.values[0].kind, Value::Kind::kText);
  EXPECT_EQ(bare.values[0].text, "abc");
  EXPECT_EQ(bare.values[1].kind, Value::Kind::kNumber);
  EXPECT_EQ(bare.values[1].number, 10);

  Statement update = Parse("UPDATE [S] SET [K]='1', [L]='2' WHERE ([K]='7' AND [L]='8' )");
  EXPECT_EQ(update.columns, (std::vector<std::string>{"K", "L"}));
  ASSERT_TRUE(update.where);
  EXPECT_EQ(update.where->kind, Condition::Kind::kAnd);

  Statement drop = Parse("DROP TABLE [Sheet1$A1:IV65536]");
  EXPECT_EQ(drop.kind, Statement::Kind::kDrop);
}

TEST(SqlTest, ValuesAndEscapes) {
  Statement st = Parse("INSERT INTO [S$A1:C1] VALUES ('O''Brien', -2.5, NULL, 007, 2024-01-05, ?)");
  ASSERT_EQ(st.values.size(), 6u);
  EXPECT_EQ(st.values[0].text, "O'Brien");
  EXPECT_EQ(st.values[1].kind, Value::Kind::kNumber);
  EXPECT_EQ(st.values[1].number, -2.5);
  EXPECT_EQ(st.values[2].kind, Value::Kind::kNull);
  // Bare words that would not read back the same as numbers stay text.
  EXPECT_EQ(st.values[3].kind, Value::Kind::kText);
  EXPECT_EQ(st.values[3].text, "007");
  EXPECT_EQ(st.values[4].text, "2024-01-05");
  EXPECT_EQ(st.values[5].kind, Value::Kind::kParameter);
  EXPECT_EQ(st.parameterCount, 1);
}

TEST(SqlTest, MalformedStatementsFailWithPosition) {
  struct Case {
    const char* sql;
    const char* position;  // "position N" expected in the message
  } cases[] = {
      {"UPDATE [S] SET [K]='1' WHE)", "position 24"},
      {"CREATE TABLE [Sheet1])", "position 22"},
      {"INSERT INTO [S$A4:X4] VALUES)", "position 29"},
      {"INSERT INTO [S$A4:X4] VALUES ('O'Brien')", "position 34"},
      {"INSERT INTO [S$A4:X4] VALUES (a b, 1)", "position 32"},
      {"INSERT INTO [S$A4:X4] VALUES ()", "position 31"},
      {"INSERT INTO [S$A4:X4] VALUES ('abc', )", "position 38"},
      {"INSERT INTO [S$A4:X4] VALUES ('abc'", "position 36"},
      {"INSERT INTO [S$A4:X4] VALUES ('abc", "position 31"},
      {"CREATE TABLE [Sheet1] ()", "position 24"},
      {"SELECT * FROM [Sheet1$A1:IV1048577]", "position 15"},
      {"SELECT * FROM [Sheet1$A0:A1]", "position 15"},
      {"SELECT * FROM [Sheet1", "position 15"},
      {"SELECT * FROM []", "position 15"},
      {"SELECT FROM [S]", "position 13"},  // FROM taken as a column name
      {"SELECT * FROM [S] WHERE", "position 24"},
      {"SELECT * FROM [S] WHERE [a] = ", "position 31"},
      {"SELECT * FROM [S] WHERE ([a] = 1", "position 33"},
      {"DELETE FROM [S]", "position 1"},
      {"", "position 1"},
      {"DROP TABLE", "position 11"},
      {"SELECT * FROM [S] extra", "position 19"},
      {"INSERT INTO [S] ([a], [b]) VALUES (1)", "position 38"},
  };
  for (const Case& c : cases) {
    Statement st;
    Error e = ParseSql(c.sql, &st);
    EXPECT_EQ(e.kind(), ErrorKind::kSyntax) << c.sql;
    EXPECT_NE(e.message().find(c.position), std::string::npos) << c.sql << " -> " << e.message();
  }
}

TEST(SqlTest, ConditionsNestAndKeepPrecedence) {
  Statement st =
      Parse("SELECT [a] FROM [S] WHERE a = 1 OR NOT (b <> 'x' AND c IS NOT NULL) AND d >= 2");
  ASSERT_TRUE(st.where);
  EXPECT_EQ(st.where->kind, Condition::Kind::kOr);
  ASSERT_EQ(st.where->terms.size(), 2u);
  EXPECT_EQ(st.where->terms[1]->kind, Condition::Kind::kAnd);
  EXPECT_EQ(st.where->terms[1]->terms[0]->kind, Condition::Kind::kNot);
}

// Generated conditions: a long chain is one flat node (no recursion a term, however long),
// nesting past the limit and a chain past the term limit are refused as too complex.
TEST(SqlTest, LongChainsAreFlatAndLimitsAreTooComplex) {
  std::string chain = "SELECT * FROM [S] WHERE a = 0";
  for (int i = 1; i < 60000; ++i) chain += (i % 2 ? " OR a = " : " OR a=") + std::to_string(i);
  Statement st = Parse(chain);
  ASSERT_TRUE(st.where);
  EXPECT_EQ(st.where->terms.size(), 60000u);

  std::string huge = "SELECT * FROM [S] WHERE a=0";
  huge.reserve(7 * kMaxConditionTerms);
  for (int i = 0; i < kMaxConditionTerms; ++i) huge += " OR a=1";
  std::string deep =
      "SELECT * FROM [S] WHERE " + std::string(500, '(') + "a = 1" + std::string(500, ')');
  std::string notNot = "SELECT * FROM [S] WHERE ";
  for (int i = 0; i < 500; ++i) notNot += "NOT ";
  for (const std::string& sql : {huge, deep, notNot + "a = 1"}) {
    Statement refused;
    Error e = ParseSql(sql, &refused);
    EXPECT_EQ(e.kind(), ErrorKind::kTooComplex) << sql.substr(0, 60);
    EXPECT_NE(e.message().find("condition"), std::string::npos) << e.message();
  }
}

// Regions parse on the .xlsx grid, the widest a workbook has (the .xls one is held to when
// the statement runs). Past column XFD a region is well formed but beyond any sheet: too
// many columns, not a syntax error. Past row 1,048,576 it is a bad range.
TEST(SqlTest, RegionsPastTheLastColumn) {
  struct Case {
    const char* sql;
    ErrorKind expected;
  } cases[] = {
      {"SELECT * FROM [S$A1:XFD1048576]", ErrorKind::kNone},
      {"SELECT * FROM [S$A1:XFE1]", ErrorKind::kTooManyColumns},
      {"INSERT INTO [S$XFE3] VALUES (1)", ErrorKind::kTooManyColumns},
      {"CREATE TABLE [S$ZZZ1:A1] (a)", ErrorKind::kTooManyColumns},
      {"SELECT * FROM [S$A1:A1048577]", ErrorKind::kSyntax},
      {"SELECT * FROM [S$A1:A10485760]", ErrorKind::kSyntax},
      {"SELECT * FROM [S$A1:IWW]", ErrorKind::kSyntax},
  };
  for (const Case& c : cases) {
    Statement st;
    EXPECT_EQ(ParseSql(c.sql, &st).kind(), c.expected) << c.sql;
  }
}

TEST(SqlTest, CanonicalNumbers) {
  struct Case {
    const char* text;
    bool number;
    double value;
  } cases[] = {{"10", true, 10},
               {"-2.5", true, -2.5},
               {"0.1", true, 0.1},
               {"0", true, 0},
               {"007", false, 0},
               {"-007", false, 0},
               {"00", false, 0},
               {"-", false, 0},
               {"1.50", false, 0},
               {"1e3", false, 0},
               {"+1", false, 0},
               {"1.", false, 0},
               {"abc", false, 0},
               {"", false, 0},
               {"-0", false, 0},
               {"1e+20", true, 1e20},
               // Whole numbers either side of 15 digits, and past 2^53 where a double rounds.
               {"-123456789012345", true, -123456789012345.0},
               {"1234567890123456", true, 1234567890123456.0},
               {"9007199254740993", false, 0},
               {"12345678901234567", false, 0},
               // A cell holds finite numbers only: these stay text.
               {"NaN", false, 0},
               {"Infinity", false, 0},
               {"-Infinity", false, 0}};
  for (const Case& c : cases) {
    double d = -1;
    EXPECT_EQ(IsCanonicalNumber(c.text, &d), c.number) << c.text;
    if (c.number) {
      EXPECT_EQ(d, c.value) << c.text;
    }
  }
}

}  // namespace
}  // namespace xlsodbc
