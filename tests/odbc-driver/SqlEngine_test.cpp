// The SQL engine over an in-memory workbook: every statement family through SQLite, the
// column types it reports, the rule that a number equals text reading as that number, where
// INSERT puts rows, how DELETE closes the gap, and bad input.
#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>

#include "odbc-driver/SheetVtab.h"
#include "odbc-driver/SqlEngine.h"
#include "odbc-driver/SqlRewrite.h"

namespace xlsodbc {
namespace {

using Rows = std::vector<std::vector<std::string>>;

double Serial(const char* date) {
  double d = 0;
  EXPECT_TRUE(DateTextToSerial(date, false, &d)) << date;
  return d;
}

// Staff: Name, Dept, Salary, Hired (dates), Active (booleans), Code (text, one blank).
// Dept: Dept, Floor.
std::shared_ptr<xls::Workbook> MakeBook() {
  auto book = std::make_shared<xls::Workbook>();
  xls::Style dateStyle;
  dateStyle.numberFormat = "yyyy-mm-dd";
  const std::uint16_t date = book->addStyle(dateStyle);
  xls::Sheet& s = book->addSheet("Staff");
  const char* header[] = {"Name", "Dept", "Salary", "Hired", "Active", "Code"};
  for (int c = 0; c < 6; ++c) s.set(0, c, xls::Cell::Text(header[c]));
  struct Person {
    const char *name, *dept;
    double salary;
    const char* hired;
    bool active;
    const char* code;
  };
  const Person people[] = {{"Ann", "Sales", 5000, "2020-01-15", true, "007"},
                           {"Bob", "IT", 6000, "2021-06-01", false, "10"},
                           {"Cid", "Sales", 4000, "2024-02-29", true, "x"},
                           {"Dee", "IT", 7000.5, "2019-11-30 08:30:00", true, nullptr}};
  int r = 1;
  for (const Person& p : people) {
    s.set(r, 0, xls::Cell::Text(p.name));
    s.set(r, 1, xls::Cell::Text(p.dept));
    s.set(r, 2, xls::Cell::Number(p.salary));
    s.set(r, 3, xls::Cell::DateTime(Serial(p.hired), date));
    s.set(r, 4, xls::Cell::Boolean(p.active));
    if (p.code) s.set(r, 5, xls::Cell::Text(p.code));
    ++r;
  }
  xls::Sheet& d = book->addSheet("Dept");
  d.set(0, 0, xls::Cell::Text("Dept"));
  d.set(0, 1, xls::Cell::Text("Floor"));
  const char* depts[] = {"Sales", "IT", "HR"};
  for (int i = 0; i < 3; ++i) {
    d.set(i + 1, 0, xls::Cell::Text(depts[i]));
    d.set(i + 1, 1, xls::Cell::Number(i + 1));
  }
  return book;
}

// Every cell that holds a value or a style, as "sheet row,column type style text number":
// two workbooks compare equal cell for cell when these lists do.
std::vector<std::string> CellsOf(const xls::Workbook& wb) {
  std::vector<std::string> out;
  for (const xls::Sheet& s : wb.sheets()) {
    for (int r = 0; r < s.extentRows(); ++r) {
      for (int c = 0; c < s.extentColumns(); ++c) {
        const xls::Cell& cell = s.at(r, c);
        if (cell.isEmpty() && cell.style == 0) continue;
        char number[32];
        std::snprintf(number, sizeof number, "%.17g", cell.number);
        out.push_back(s.name() + " " + std::to_string(r) + "," + std::to_string(c) + " " +
                      std::to_string(static_cast<int>(cell.type)) + " " +
                      std::to_string(cell.style) + " " + cell.text.str() + " " + number);
      }
    }
  }
  return out;
}

class SqlEngineTest : public ::testing::Test {
 protected:
  Error Run(const std::string& sql, Outcome* out = nullptr, bool hdr = true) {
    Outcome local;
    ExecOptions o;
    o.firstRowHasNames = hdr;
    o.parameters = &params_;
    return engine_.Execute(sql, o, &book_, out ? out : &local);
  }
  long Change(const std::string& sql) {
    Outcome out;
    Error e = Run(sql, &out);
    EXPECT_TRUE(e.ok()) << sql << ": " << e.message();
    EXPECT_FALSE(out.result);
    return out.rowCount;
  }
  // The result as text, the header first; "NULL" for NULL.
  Rows Select(const std::string& sql, bool hdr = true) {
    Outcome out;
    Error e = Run(sql, &out, hdr);
    EXPECT_TRUE(e.ok()) << sql << ": " << e.message();
    Rows rows;
    if (!out.result) return rows;
    std::vector<std::string> names;
    for (const auto& c : out.result->columns()) names.push_back(c.name);
    rows.push_back(names);
    for (long r = 0; r < out.result->rowCount(); ++r) {
      std::vector<std::string> row;
      std::string v;
      for (std::size_t c = 0; c < names.size(); ++c) {
        row.push_back(out.result->value(r, static_cast<int>(c), &v) ? v : "NULL");
      }
      rows.push_back(row);
    }
    return rows;
  }
  // A cell as "text", "#number", "@date text", "?bool", "" when empty.
  std::string CellAt(const char* sheet, int row, int col) {
    const xls::Cell& c = book_->findSheet(sheet)->at(row, col);
    switch (c.type) {
      case xls::CellType::kText:
        return c.text.str();
      case xls::CellType::kNumber: {
        std::string s = std::to_string(c.number);
        s.erase(s.find_last_not_of('0') + 1);
        if (s.back() == '.') s.pop_back();
        return "#" + s;
      }
      case xls::CellType::kDateTime:
        return "@" + std::to_string(c.number);
      case xls::CellType::kBoolean:
        return c.number != 0 ? "?1" : "?0";
      default:
        return c.isEmpty() ? "" : "!";
    }
  }

  SqlEngine engine_;
  std::shared_ptr<xls::Workbook> book_ = MakeBook();
  std::vector<Value> params_;
};

Value Text(const char* s) {
  Value v;
  v.kind = Value::Kind::kText;
  v.text = s;
  return v;
}
Value Number(double d) {
  Value v;
  v.kind = Value::Kind::kNumber;
  v.number = d;
  return v;
}

struct QueryCase {
  const char* sql;
  Rows expected;
};

TEST_F(SqlEngineTest, Queries) {
  const QueryCase cases[] = {
      {"SELECT * FROM [Staff$]",
       {{"Name", "Dept", "Salary", "Hired", "Active", "Code"},
        {"Ann", "Sales", "5000", "2020-01-15 00:00:00", "1", "007"},
        {"Bob", "IT", "6000", "2021-06-01 00:00:00", "0", "10"},
        {"Cid", "Sales", "4000", "2024-02-29 00:00:00", "1", "x"},
        {"Dee", "IT", "7000.5", "2019-11-30 08:30:00", "1", "NULL"}}},
      {"SELECT Name FROM Staff ORDER BY Salary DESC",
       {{"Name"}, {"Dee"}, {"Bob"}, {"Ann"}, {"Cid"}}},
      {"SELECT DISTINCT Dept FROM [Staff$] ORDER BY Dept", {{"Dept"}, {"IT"}, {"Sales"}}},
      {"SELECT COUNT(*) AS n, SUM(Salary) AS s, AVG(Salary) AS a, MIN(Salary), MAX(Hired) FROM "
       "[Staff$]",
       {{"n", "s", "a", "MIN(Salary)", "MAX(Hired)"},
        {"4", "22000.5", "5500.125", "4000", "2024-02-29 00:00:00"}}},
      {"SELECT Dept, SUM(Salary) AS total FROM [Staff$] GROUP BY Dept HAVING SUM(Salary) >= 9000 "
       "ORDER BY Dept",
       {{"Dept", "total"}, {"IT", "13000.5"}, {"Sales", "9000"}}},
      {"SELECT Name FROM [Staff$] WHERE Name LIKE 'a%' OR Name IN ('Cid', 'Zed') ORDER BY Name",
       {{"Name"}, {"Ann"}, {"Cid"}}},
      {"SELECT Name FROM [Staff$] WHERE Salary BETWEEN 4500 AND 6500 AND NOT Active",
       {{"Name"}, {"Bob"}}},
      {"SELECT s.Name, d.Floor FROM [Staff$] s JOIN [Dept$] AS d ON s.Dept = d.Dept ORDER BY "
       "s.Name",
       {{"Name", "Floor"}, {"Ann", "1"}, {"Bob", "2"}, {"Cid", "1"}, {"Dee", "2"}}},
      {"SELECT d.Dept FROM [Dept$] d LEFT JOIN [Staff$] s ON s.Dept = d.Dept WHERE s.Name IS NULL",
       {{"Dept"}, {"HR"}}},
      {"SELECT Name FROM [Staff$] WHERE Salary > (SELECT AVG(Salary) FROM [Staff$]) ORDER BY 1",
       {{"Name"}, {"Bob"}, {"Dee"}}},
      {"SELECT Name, Salary * 2 AS pay, Name || '!' FROM [Staff$] WHERE Name = 'Ann'",
       {{"Name", "pay", "Name || '!'"}, {"Ann", "10000", "Ann!"}}},
      {"SELECT TOP 2 Name FROM [Staff$] ORDER BY Salary", {{"Name"}, {"Cid"}, {"Ann"}}},
      {"SELECT DISTINCT TOP 1 Dept FROM [Staff$] ORDER BY Dept", {{"Dept"}, {"IT"}}},
      {"SELECT Name FROM [Staff$] WHERE Dept IN (SELECT TOP 1 Dept FROM [Dept$] ORDER BY Floor)",
       {{"Name"}, {"Ann"}, {"Cid"}}},
      {"SELECT Name FROM [Staff$] ORDER BY Salary LIMIT 1", {{"Name"}, {"Cid"}}},
      {"SELECT Name -- who\nFROM [Staff$] /* IT only */ WHERE Dept = 'IT';",
       {{"Name"}, {"Bob"}, {"Dee"}}},
      {"SELECT 1, 'a' AS b, 10 / 4.0", {{"1", "b", "10 / 4.0"}, {"1", "a", "2.5"}}},
      // Dates: escapes, and text in either form, compare as dates.
      {"SELECT Name FROM [Staff$] WHERE Hired = {d '2024-02-29'}", {{"Name"}, {"Cid"}}},
      {"SELECT Name FROM [Staff$] WHERE Hired = {ts '2019-11-30 08:30:00.000'}",
       {{"Name"}, {"Dee"}}},
      {"SELECT Name FROM [Staff$] WHERE Hired = '2021-06-01'", {{"Name"}, {"Bob"}}},
      {"SELECT Name FROM [Staff$] WHERE Hired > {d '2021-01-01'} ORDER BY Hired",
       {{"Name"}, {"Bob"}, {"Cid"}}},
      {"SELECT {fn UCASE(Name)}, {fn LEFT(Dept, 2)}, {fn YEAR(Hired)}, {fn MONTH(Hired)}, "
       "{fn CONVERT(Salary, SQL_INTEGER)} FROM [Staff$] WHERE Name = 'Dee'",
       {{"UCASE(Name)", "[LEFT](Dept, 2)", "YEAR(Hired)", "MONTH(Hired)",
         "CAST(Salary AS INTEGER)"},
        {"DEE", "IT", "2019", "11", "7000"}}},
      {"SELECT {fn CONCAT(Name, Dept)} FROM [Staff$] WHERE Name LIKE 'B%' {escape '\\'}",
       {{"CONCAT(Name, Dept)"}, {"BobIT"}}},
      // A number equals text that reads as that number, either way round.
      {"SELECT Name FROM [Staff$] WHERE Salary = '5000' AND Code = '007'", {{"Name"}, {"Ann"}}},
      {"SELECT Name FROM [Staff$] WHERE Code = 10", {{"Name"}, {"Bob"}}},
      {"SELECT Name FROM [Staff$] WHERE Salary IN ('6000', '4000') ORDER BY Name",
       {{"Name"}, {"Bob"}, {"Cid"}}},
      {"SELECT s.Name FROM [Staff$] s JOIN [Dept$] d ON d.Floor = s.Code", {{"Name"}}},
      {"SELECT Name FROM [Staff$] WHERE Active = 1 AND Dept = \"IT\"", {{"Name"}, {"Dee"}}},
      // Regions, and the same sheet under two names in one statement.
      {"SELECT * FROM [Staff$A1:B3]", {{"Name", "Dept"}, {"Ann", "Sales"}, {"Bob", "IT"}}},
      {"SELECT * FROM [Staff$B3:A1]", {{"Name", "Dept"}, {"Ann", "Sales"}, {"Bob", "IT"}}},
      {"SELECT COUNT(*) FROM [Staff$] a, [Staff$A1:A3] b WHERE a.Name = b.Name",
       {{"COUNT(*)"}, {"2"}}},
      {"SELECT * FROM [Dept$D1:F9]", {{"F1"}}},  // the executor gives no column at all
  };
  for (const QueryCase& c : cases) EXPECT_EQ(Select(c.sql), c.expected) << c.sql;
}

// Statements in the executor's dialect give the same text, the same error kind and the same
// cells through the engine: what the spreadsheet library sends keeps its outcome.
TEST_F(SqlEngineTest, AgreesWithTheExecutorOnItsDialect) {
  struct Case {
    const char* sql;
    bool hdr;
  };
  const Case cases[] = {
      {"SELECT * FROM [Staff$]", true},
      {"SELECT * FROM [Staff$A1:IV65536] WHERE Salary = '5000'", true},
      {"SELECT Dept, Salary FROM [Staff$B1:C3]", true},
      {"SELECT * FROM Staff WHERE Code = 10 OR Code = '007'", true},
      {"SELECT * FROM [Staff$] WHERE Code <> 'x' AND NOT Salary < 5000", true},
      {"SELECT Name FROM [Staff$] WHERE Hired = '2024-02-29 00:00:00' OR Active = 0", true},
      {"SELECT * FROM [Staff$] WHERE Code IS NULL OR Name < 'B'", true},
      {"SELECT * FROM [Dept$A2:B4]", true},
      {"SELECT * FROM [Dept$]", false},
      {"SELECT Nope FROM [Staff$]", true},
      {"SELECT * FROM [Nope$]", true},
      {"INSERT INTO [Staff$] VALUES ('Eve', HR, 100, NULL, NULL, 007)", true},
      {"INSERT INTO [Staff$A4:X4] VALUES ('Fay', '10')", true},
      {"INSERT INTO [Dept$] (Floor) VALUES (abc)", true},
      {"INSERT INTO [Dept$] VALUES ('a', 'b', 'c')", true},
      {"INSERT INTO [Staff$A4:X4] (Name) VALUES ('Zed')", true},
      {"INSERT INTO [Dept$] VALUES ('x', 5)", false},
      {"UPDATE [Staff$] SET Code = 'y', Salary = 1 WHERE Name = 'Bob'", true},
      {"UPDATE [Staff$A1:IV65536] SET Code = NULL WHERE Active = 1", true},
      {"UPDATE Staff SET Dept = 'X' WHERE Hired = '2024-02-29 00:00:00'", true},
      {"UPDATE [Staff$] SET Name = '10' WHERE Salary = '6000' AND Code = '10'", true},
  };
  for (const Case& c : cases) {
    auto viaExecutor = MakeBook();
    book_ = MakeBook();
    Statement st;
    ASSERT_TRUE(ParseSql(c.sql, &st).ok()) << c.sql;
    ExecOptions o;
    o.firstRowHasNames = c.hdr;
    Outcome expected, got;
    Error ee = Execute(st, o, &viaExecutor, &expected);
    Error eg = Run(c.sql, &got, c.hdr);
    ASSERT_EQ(eg.kind(), ee.kind()) << c.sql << ": " << eg.message() << " / " << ee.message();
    if (!ee.ok()) continue;
    EXPECT_EQ(got.rowCount, expected.rowCount) << c.sql;
    if (expected.result) {
      ASSERT_TRUE(got.result) << c.sql;
      const auto& want = *expected.result;
      const auto& have = *got.result;
      ASSERT_EQ(have.rowCount(), want.rowCount()) << c.sql;
      ASSERT_EQ(have.columns().size(), want.columns().size()) << c.sql;
      for (std::size_t col = 0; col < want.columns().size(); ++col) {
        EXPECT_EQ(have.columns()[col].name, want.columns()[col].name) << c.sql;
      }
      std::string a, b;
      for (long r = 0; r < want.rowCount(); ++r) {
        for (int col = 0; col < static_cast<int>(want.columns().size()); ++col) {
          bool pa = have.value(r, col, &a), pb = want.value(r, col, &b);
          EXPECT_EQ(pa, pb) << c.sql;
          EXPECT_EQ(a, b) << c.sql << " row " << r << " column " << col;
        }
      }
    }
    EXPECT_EQ(CellsOf(*book_), CellsOf(*viaExecutor)) << c.sql;
  }
}

TEST_F(SqlEngineTest, ParametersAndHeaderlessTables) {
  params_ = {Number(4500), Text("Sales")};
  EXPECT_EQ(Select("SELECT Name FROM [Staff$] WHERE Salary > ? AND Dept = ?"),
            (Rows{{"Name"}, {"Ann"}}));
  params_ = {Text("2024-02-29 00:00:00")};
  EXPECT_EQ(Select("SELECT Name FROM [Staff$] WHERE Hired = ?"), (Rows{{"Name"}, {"Cid"}}));
  params_.clear();
  EXPECT_EQ(Run("SELECT Name FROM [Staff$] WHERE Salary > ?").kind(), ErrorKind::kParameter);
  // FIRSTROWHASNAMES=0: F1..Fn, the header row is a record; blank header cells named by position.
  EXPECT_EQ(Select("SELECT F1, F2 FROM [Dept$] WHERE F2 > 1 OR F2 = 'Floor'", false),
            (Rows{{"F1", "F2"}, {"Dept", "Floor"}, {"IT", "2"}, {"HR", "3"}}));
  book_->findSheet("Dept")->clear(0, 1);
  book_->findSheet("Dept")->set(0, 2, xls::Cell::Text("Dept"));
  book_->findSheet("Dept")->set(1, 2, xls::Cell::Number(9));
  EXPECT_EQ(Select("SELECT * FROM [Dept$] WHERE F3 = 9"),
            (Rows{{"Dept", "F2", "F3"}, {"Sales", "1", "9"}}));
}

TEST_F(SqlEngineTest, TypedColumns) {
  xls::Sheet& s = book_->addSheet("Kinds");
  const char* header[] = {"Mixed", "Long", "Empty", "Err"};
  for (int c = 0; c < 4; ++c) s.set(0, c, xls::Cell::Text(header[c]));
  s.set(1, 0, xls::Cell::Number(10));
  s.set(2, 0, xls::Cell::Text("ten"));
  s.set(1, 1, xls::Cell::Text(std::string(300, 'y')));
  s.set(1, 3, xls::Cell::Error(0x2A));
  Outcome out;
  ASSERT_TRUE(Run("SELECT s.*, k.*, COUNT(*) OVER () AS n, Salary / 2 AS half FROM [Staff$] s, "
                  "[Kinds$] k WHERE s.Name = 'Dee'",
                  &out)
                  .ok());
  const auto& cols = out.result->columns();
  struct Expect {
    const char* name;
    short type;
    long size;
  };
  const Expect expected[] = {{"Name", 12, 255},  {"Dept", 12, 255},   {"Salary", 8, 15},
                             {"Hired", 93, 19},  {"Active", -7, 1},   {"Code", 12, 255},
                             {"Mixed", 12, 255}, {"Long", -1, 32767}, {"Empty", 12, 255},
                             {"Err", 12, 255},   {"n", 4, 10},        {"half", 8, 15}};
  ASSERT_EQ(cols.size(), std::size(expected));
  for (std::size_t i = 0; i < cols.size(); ++i) {
    EXPECT_EQ(cols[i].name, expected[i].name);
    EXPECT_EQ(cols[i].sqlType, expected[i].type) << expected[i].name;
    EXPECT_EQ(cols[i].size, expected[i].size) << expected[i].name;
  }
  EXPECT_EQ(cols[0].table, "Staff");
  EXPECT_EQ(cols[6].table, "Kinds");
  auto* r = dynamic_cast<const SqlResult*>(out.result.get());
  ASSERT_NE(r, nullptr);
  ASSERT_EQ(r->rowCount(), 2);
  EXPECT_EQ(r->datum(0, 2).kind, Datum::Kind::kNumber);
  EXPECT_EQ(r->datum(0, 2).number, 7000.5);
  EXPECT_EQ(r->datum(0, 3).kind, Datum::Kind::kDateTime);
  EXPECT_EQ(r->textOf(r->datum(0, 3)), "2019-11-30 08:30:00");
  DateTimeParts when;
  ASSERT_TRUE(r->dateTimeOf(r->datum(0, 3), &when));
  EXPECT_EQ(when.year * 10000 + when.month * 100 + when.day, 20191130);
  EXPECT_EQ(when.hour * 100 + when.minute, 830);
  EXPECT_FALSE(r->dateTimeOf(r->datum(0, 0), &when));  // "Dee"
  EXPECT_EQ(r->datum(0, 4).kind, Datum::Kind::kBoolean);
  EXPECT_EQ(r->datum(0, 4).number, 1);
  EXPECT_EQ(r->datum(0, 5).kind, Datum::Kind::kNull);
  EXPECT_EQ(r->datum(0, 10).kind, Datum::Kind::kInteger);
  std::string text;
  EXPECT_TRUE(r->value(0, 9, &text));
  EXPECT_EQ(text, "#N/A");
  EXPECT_TRUE(r->value(1, 6, &text));
  EXPECT_EQ(text, "ten");
  // An expression's text is LONGVARCHAR past 255 characters, not bytes.
  Outcome wide;
  ASSERT_TRUE(Run("SELECT substr(replace(Long, 'y', 'é'), 1, 200) AS a, replace(Long, 'y', 'é') "
                  "AS b FROM [Kinds$] WHERE Long IS NOT NULL",
                  &wide)
                  .ok());
  EXPECT_EQ(wide.result->columns()[0].sqlType, 12);
  EXPECT_EQ(wide.result->columns()[1].sqlType, -1);
  // Text and numbers in one column: '10' finds the number and not the word.
  EXPECT_EQ(Select("SELECT COUNT(*) FROM [Kinds$] WHERE Mixed = '10' OR Mixed = 'ten'"),
            (Rows{{"COUNT(*)"}, {"2"}}));
  EXPECT_EQ(Select("SELECT Mixed FROM [Kinds$] WHERE Mixed > 5 AND Mixed < 'a'"),
            (Rows{{"Mixed"}, {"10"}}));
}

TEST_F(SqlEngineTest, InsertPlacesRowsBelowTheTable) {
  // Bare words are text, and so is a number that would not read back as written.
  EXPECT_EQ(Change("INSERT INTO [Dept$] VALUES (Ops, 4), ('QA', 007), (\"R&D\", 1.50)"), 3);
  EXPECT_EQ(CellAt("Dept", 4, 0), "Ops");
  EXPECT_EQ(CellAt("Dept", 4, 1), "#4");
  EXPECT_EQ(CellAt("Dept", 5, 1), "007");
  EXPECT_EQ(CellAt("Dept", 6, 0), "R&D");
  EXPECT_EQ(CellAt("Dept", 6, 1), "1.50");
  // Fewer values fill from the left; a column list names where they go.
  EXPECT_EQ(Change("INSERT INTO [Staff$] VALUES ('Eve', 'HR')"), 1);
  EXPECT_EQ(Change("INSERT INTO [Staff$] (Salary, Name, Hired, Active) "
                   "VALUES (100, 'Fay', {d '2025-01-02'}, 0)"),
            1);
  EXPECT_EQ(CellAt("Staff", 5, 0), "Eve");
  EXPECT_EQ(CellAt("Staff", 5, 2), "");
  EXPECT_EQ(CellAt("Staff", 6, 2), "#100");
  EXPECT_EQ(CellAt("Staff", 6, 4), "?0");  // a BIT column takes booleans
  const xls::Cell& hired = book_->findSheet("Staff")->at(6, 3);
  EXPECT_EQ(hired.type, xls::CellType::kDateTime);
  EXPECT_FALSE(book_->styles()[hired.style].numberFormat.empty());
  EXPECT_EQ(Select("SELECT Hired FROM [Staff$] WHERE Name = 'Fay'"),
            (Rows{{"Hired"}, {"2025-01-02 00:00:00"}}));
  EXPECT_EQ(Change("INSERT INTO [Dept$] (Floor, Dept) SELECT Salary, Name FROM [Staff$] "
                   "WHERE Dept = 'IT'"),
            2);
  EXPECT_EQ(CellAt("Dept", 8, 0), "Dee");
  EXPECT_EQ(CellAt("Dept", 8, 1), "#7000.5");
  // A table inserting into itself reads its rows before the first one goes in.
  EXPECT_EQ(Change("INSERT INTO [Dept$] SELECT * FROM [Dept$]"), 8);
  EXPECT_EQ(Run("INSERT INTO [Dept$] VALUES (1, 2, 3)").kind(), ErrorKind::kValueCount);
  EXPECT_EQ(Run("INSERT INTO [Nope$] VALUES (1)").kind(), ErrorKind::kTableNotFound);
}

TEST_F(SqlEngineTest, InsertIntoRegionAppendsInItsColumnsNeverOverAValue) {
  // The spreadsheet library's table: header in row 1, rows added through [Lib$A4:X4].
  xls::Sheet& s = book_->addSheet("Lib");
  s.set(0, 0, xls::Cell::Text("Name"));
  s.set(0, 1, xls::Cell::Text("Qty"));
  s.set(0, 25, xls::Cell::Text("beside"));  // column Z: outside A:X
  s.set(30, 25, xls::Cell::Text("far below, beside"));
  EXPECT_EQ(Change("INSERT INTO [Lib$A4:X4] VALUES ('abc', '10')"), 1);
  EXPECT_EQ(CellAt("Lib", 1, 0), "abc");
  EXPECT_EQ(CellAt("Lib", 1, 1), "10");  // quoted: text
  s.set(7, 3, xls::Cell::Text("note"));  // D8, inside A:X
  EXPECT_EQ(Change("INSERT INTO [Lib$A5:X5] VALUES ('d e', 2)"), 1);
  EXPECT_EQ(CellAt("Lib", 8, 0), "d e");
  EXPECT_EQ(CellAt("Lib", 7, 3), "note");
}

TEST_F(SqlEngineTest, UpdateWritesOnlyChangedCellsAndKeepsTheirFormat) {
  xls::Style bold;
  bold.bold = true;
  const std::uint16_t style = book_->addStyle(bold);
  book_->findSheet("Staff")->mutableAt(2, 2).style = style;  // Bob's salary
  EXPECT_EQ(Change("UPDATE [Staff$] SET Salary = Salary + 1 WHERE Dept = 'IT'"), 2);
  EXPECT_EQ(CellAt("Staff", 2, 2), "#6001");
  EXPECT_EQ(CellAt("Staff", 4, 2), "#7001.5");
  EXPECT_EQ(book_->findSheet("Staff")->at(2, 2).style, style);
  // The library's form: every value quoted; the text '007' and the date cell stay as they are.
  EXPECT_EQ(Change("UPDATE [Staff$A1:IV65536] SET Name = 'Anna', Salary = '5100' "
                   "WHERE Name = 'Ann' AND Salary = '5000' AND Code = '007' AND Active = '1'"),
            1);
  EXPECT_EQ(CellAt("Staff", 1, 0), "Anna");
  EXPECT_EQ(CellAt("Staff", 1, 2), "5100");
  EXPECT_EQ(CellAt("Staff", 1, 5), "007");
  EXPECT_EQ(book_->findSheet("Staff")->at(1, 3).type, xls::CellType::kDateTime);
  EXPECT_EQ(Change("UPDATE [Staff$] SET Hired = {d '2000-01-01'}, Code = NULL WHERE Name = 'Cid'"),
            1);
  EXPECT_EQ(book_->findSheet("Staff")->at(3, 3).type, xls::CellType::kDateTime);
  EXPECT_EQ(CellAt("Staff", 3, 5), "");
  EXPECT_EQ(Change("UPDATE [Staff$] SET Name = 'x' WHERE Name = 'nobody'"), 0);
}

TEST_F(SqlEngineTest, DeleteMovesTheRowsBelowUpWithinTheTable) {
  xls::Sheet& s = *book_->findSheet("Staff");
  s.set(2, 7, xls::Cell::Text("beside"));  // H3: outside A1:F5
  s.set(7, 0, xls::Cell::Text("below"));   // A8: below the region
  EXPECT_EQ(Change("DELETE FROM [Staff$A1:F5] WHERE Dept = 'Sales'"), 2);
  EXPECT_EQ(
      Select("SELECT Name, Hired FROM [Staff$A1:F5]"),
      (Rows{{"Name", "Hired"}, {"Bob", "2021-06-01 00:00:00"}, {"Dee", "2019-11-30 08:30:00"}}));
  EXPECT_EQ(CellAt("Staff", 3, 0), "");
  EXPECT_EQ(CellAt("Staff", 4, 5), "");
  EXPECT_EQ(CellAt("Staff", 2, 7), "beside");
  EXPECT_EQ(CellAt("Staff", 7, 0), "below");
  EXPECT_EQ(
      Change("DELETE FROM [Dept$] WHERE Floor IN (SELECT Floor FROM [Dept$] WHERE Floor < 3)"), 2);
  EXPECT_EQ(Select("SELECT * FROM [Dept$]"), (Rows{{"Dept", "Floor"}, {"HR", "3"}}));
  EXPECT_EQ(Change("DELETE FROM [Dept$]"), 1);
  EXPECT_EQ(CellAt("Dept", 1, 0), "");
  EXPECT_EQ(CellAt("Dept", 0, 0), "Dept");  // the header stays
}

TEST_F(SqlEngineTest, FailedStatementLeavesTheModelAsItWas) {
  // Ann and Bob are written before Cid's 40,000 characters fail; both are put back.
  Error e =
      Run("UPDATE [Staff$] SET Name = CASE WHEN Name = 'Cid' THEN printf('%.40000c', 'x') "
          "ELSE 'ok' END");
  EXPECT_EQ(e.kind(), ErrorKind::kStringTooLong) << e.message();
  EXPECT_EQ(CellAt("Staff", 1, 0), "Ann");
  EXPECT_EQ(CellAt("Staff", 2, 0), "Bob");
  // While a result shares the model, a change goes to a copy and the result keeps the old one.
  std::shared_ptr<const xls::Workbook> held = book_;
  EXPECT_EQ(Change("DELETE FROM [Staff$] WHERE Name = 'Ann'"), 1);
  EXPECT_NE(held.get(), book_.get());
  EXPECT_EQ(held->findSheet("Staff")->at(1, 0).text, "Ann");
  EXPECT_EQ(CellAt("Staff", 1, 0), "Bob");
}

TEST_F(SqlEngineTest, BadInputGetsAClearError) {
  std::string ors = "SELECT Name FROM [Staff$] WHERE Salary = 0";
  for (int i = 1; i < 60000; ++i) ors += " OR Salary = " + std::to_string(i);
  EXPECT_EQ(Run(ors).kind(), ErrorKind::kTooComplex);
  EXPECT_EQ(Run("SELECT " + std::string(100000, '(') + "1" + std::string(100000, ')')).kind(),
            ErrorKind::kTooComplex);
  // A 64 KiB statement runs.
  std::string in = "SELECT COUNT(*) FROM [Staff$] WHERE Salary IN (5000";
  while (in.size() < 65000) in += ", " + std::to_string(in.size());
  in += ")";
  EXPECT_EQ(Select(in), (Rows{{"COUNT(*)"}, {"1"}}));
  EXPECT_EQ(Run(std::string(2 << 20, ' ')).kind(), ErrorKind::kTooComplex);

  struct Bad {
    const char* sql;
    ErrorKind kind;
  };
  const Bad cases[] = {
      {"SELECT * FROM [Nope$]", ErrorKind::kTableNotFound},
      {"SELECT * FROM [Staff$A1:ZZ9]", ErrorKind::kTooManyColumns},  // past IV in .xls
      {"SELECT Nope FROM [Staff$]", ErrorKind::kColumnNotFound},
      {"SELECT * FROM [Staff$] WHERE", ErrorKind::kSyntax},
      {"SELECT 1; SELECT 2", ErrorKind::kSyntax},
      {"SELECT {d '2024-02-30'}", ErrorKind::kSyntax},
      {"SELECT {fn UCASE('a')", ErrorKind::kSyntax},
      {"SELECT TOP 5 PERCENT * FROM [Staff$]", ErrorKind::kNotSupported},
      {"PRAGMA writable_schema = 1", ErrorKind::kNotSupported},
      {"ATTACH 'x.db' AS x", ErrorKind::kNotSupported},
      {"CREATE TEMP TABLE t (a)", ErrorKind::kNotSupported},
      {"DROP TABLE temp.sqlite_temp_master", ErrorKind::kNotSupported},
      {"SELECT zeroblob(100000000)", ErrorKind::kStringTooLong},
      {"", ErrorKind::kSyntax},
  };
  for (const Bad& b : cases) {
    Error e = Run(b.sql);
    EXPECT_EQ(e.kind(), b.kind) << b.sql << ": " << e.message();
    EXPECT_FALSE(e.message().empty());
  }
  EXPECT_NE(Run("SELECT * FROM [Staff$] WHERE Name = ").message().find("position 37"),
            std::string::npos);
  // A query that never ends stops at the work limit.
  EngineLimits small;
  small.maxSteps = 1'000'000;
  SqlEngine bounded(small);
  Outcome out;
  ExecOptions o;
  EXPECT_EQ(bounded
                .Execute("WITH RECURSIVE c(x) AS (SELECT 1 UNION ALL SELECT x + 1 FROM c) "
                         "SELECT COUNT(*) FROM c",
                         o, &book_, &out)
                .kind(),
            ErrorKind::kTooComplex);
}

// The fuzz corpus and statements made to stress the rewriter, then thousands of mutations of
// them, through the whole path on the test workbook: each either runs or fails with a message.
TEST_F(SqlEngineTest, MutatedStatementsRunOrFailCleanly) {
  std::vector<std::string> seeds = {
      "SELECT TOP 2 {fn UCASE(Name)} FROM [Staff$] s JOIN [Dept$] d ON s.Dept = d.Dept",
      "INSERT INTO [Dept$] VALUES (a, 007), (\"b\", {d '2024-02-29'})",
      "UPDATE [Staff$A1:F5] SET Salary = Salary * 2 WHERE Hired > {ts '2020-01-01 00:00:00'}",
      "DELETE FROM [Staff$] WHERE Code IN (SELECT Code FROM [Staff$] WHERE Active)",
      "SELECT {fn CONVERT({fn LEFT(Name, 1)}, SQL_VARCHAR)} FROM Staff {oj LEFT JOIN Dept ON 1}",
  };
  for (const auto& f : std::filesystem::directory_iterator(XLSODBC_SQL_CORPUS)) {
    std::ifstream in(f.path(), std::ios::binary);
    std::stringstream text;
    text << in.rdbuf();
    seeds.push_back(text.str());
  }
  const std::string alphabet = "{}()[]'\"`?,;-/* \n0aZ$:.";
  std::mt19937 rng(15);
  int failures = 0;
  params_ = {Text("p"), Number(1)};
  for (int i = 0; i < 3000; ++i) {
    std::string sql = seeds[rng() % seeds.size()];
    for (int edits = 1 + static_cast<int>(rng() % 4); edits > 0 && !sql.empty(); --edits) {
      std::size_t at = rng() % sql.size();
      switch (rng() % 3) {
        case 0:
          sql.erase(at, 1 + rng() % 8);
          break;
        case 1:
          sql.insert(at, 1, alphabet[rng() % alphabet.size()]);
          break;
        default:
          sql[at] = alphabet[rng() % alphabet.size()];
      }
    }
    Outcome out;
    Error e = Run(sql, &out);
    if (!e.ok()) {
      ++failures;
      EXPECT_FALSE(e.message().empty()) << sql;
    } else if (out.result) {
      std::string v;
      for (long r = 0; r < out.result->rowCount() && r < 20; ++r) {
        for (int c = 0; c < static_cast<int>(out.result->columns().size()); ++c) {
          out.result->value(r, c, &v);
        }
      }
    }
    if (i % 500 == 0) book_ = MakeBook();  // keep the tables from growing without end
  }
  EXPECT_GT(failures, 0);
  EXPECT_LT(failures, 3000);
}

// An array of parameter sets runs its statement once per set, prepared once and repeated:
// every set must find what running the sets one at a time, each prepared anew and with its
// own date parameters only, shows it. Here each set changes what the next one finds.
TEST(SqlEngineArrayTest, RepeatedSetsMatchSetsRunOneAtATime) {
  using Kind = Value::Kind;
  auto text = [](const char* t) { return Value{Kind::kText, t, 0, 0}; };
  auto num = [](double d) { return Value{Kind::kNumber, std::to_string(d), d, 0}; };
  struct Case {
    const char* sql;
    std::vector<std::vector<Value>> sets;
    int dateParameter;  // the position of a date parameter, -1 for none
  } cases[] = {
      // A number makes the BIT column mixed, so the next 1 is a number, not TRUE.
      {"INSERT INTO [Staff$] (Name, Active) VALUES (?, ?)",
       {{text("Eve"), num(2)}, {text("Fay"), num(1)}},
       -1},
      // Each set reads the rows the sets before it inserted.
      {"INSERT INTO [Dept$] (Dept, Floor) SELECT ?, MAX(Floor) + 1 FROM [Dept$]",
       {{text("a")}, {text("b")}, {text("c")}},
       -1},
      // Text makes the date column VARCHAR: the next date-like text stays text.
      {"UPDATE [Staff$] SET Hired = ? WHERE Name = ?",
       {{text("soon"), text("Ann")}, {text("2022-02-02"), text("Bob")}},
       -1},
      // A DELETE moves the rows below up and clears the last: the next set's table ends
      // above it, so that row is no all-NULL record to delete.
      {"DELETE FROM [Staff$] WHERE Name = ? OR Name IS NULL", {{text("Ann")}, {text("x")}}, -1},
      // Set 1's date parameter is not set 2's: the text in Code is a date in set 1 only.
      {"INSERT INTO [Staff$] (Name, Hired, Code) VALUES (?, ?, '2024-05-05 00:00:00')",
       {{text("Gus"), text("2024-05-05 00:00:00")}, {text("Hal"), text("2024-06-06 00:00:00")}},
       1},
  };
  for (const Case& c : cases) {
    auto alone = MakeBook(), array = MakeBook();
    SqlEngine one, many;
    std::vector<std::string> allDates;
    std::vector<long> aloneCounts, arrayCounts;
    ExecOptions o;
    for (const auto& set : c.sets) {
      std::vector<std::string> own;
      if (c.dateParameter >= 0) own.push_back(set[static_cast<std::size_t>(c.dateParameter)].text);
      allDates.insert(allDates.end(), own.begin(), own.end());
      one.SetDateTexts(&own);
      o.parameters = &set;
      Outcome out;
      Error e = one.Execute(c.sql, o, &alone, &out);
      ASSERT_TRUE(e.ok()) << c.sql << ": " << e.message();
      aloneCounts.push_back(out.rowCount);
    }
    many.SetDateTexts(&allDates);
    for (std::size_t i = 0; i < c.sets.size(); ++i) {
      o.parameters = &c.sets[i];
      Outcome out;
      Error e = many.Execute(c.sql, o, &array, &out, /*repeat=*/i > 0);
      ASSERT_TRUE(e.ok()) << c.sql << ": " << e.message();
      arrayCounts.push_back(out.rowCount);
    }
    EXPECT_EQ(arrayCounts, aloneCounts) << c.sql;
    EXPECT_EQ(CellsOf(*array), CellsOf(*alone)) << c.sql;
  }
}

TEST(SqlRewriteTest, DialectToSqlite) {
  struct Case {
    const char* in;
    const char* out;
  };
  const Case cases[] = {
      {"SELECT TOP 3 * FROM t", "SELECT * FROM t LIMIT 3"},
      {"select distinct top 1 a from (select top 2 a from t) x;",
       "select distinct a from (select a from t LIMIT 2) x LIMIT 1;"},
      {"SELECT {d '2024-2-9'}", nullptr},
      {"SELECT {d '2024-02-09'}, {t '10:00:00'}, {ts '2024-02-09 10:00:00.5'}",
       "SELECT '2024-02-09 00:00:00', '10:00:00', '2024-02-09 10:00:00.5'"},
      {"SELECT {fn UCASE({fn LCASE(a)})} FROM t", "SELECT UCASE(LCASE(a) )  FROM t"},
      {"SELECT {fn CONVERT(a, SQL_VARCHAR)}", "SELECT CAST(a AS TEXT) "},
      {"INSERT INTO t VALUES (abc, 10, 007, -2.5, 1e3, 2024-01-05, NULL, ?, 'x''y', \"q\"\"\")",
       "INSERT INTO t VALUES ('abc', 10, '007', -2.5, '1e3', '2024-01-05', NULL, ?, 'x''y', "
       "'q\"')"},
      {"INSERT INTO t VALUES (a), (b) ,(1 + 2)", "INSERT INTO t VALUES ('a'), ('b') ,(1 + 2)"},
      {"INSERT INTO t VALUES (), (a,)", "INSERT INTO t VALUES (), ('a',)"},
      {"SELECT [Sheet1$A1:B2].x -- TOP 3 {d\n", "SELECT [Sheet1$A1:B2].x -- TOP 3 {d\n"},
  };
  for (const Case& c : cases) {
    RewrittenSql rw;
    Error e = RewriteSql(c.in, &rw);
    if (!c.out) {
      EXPECT_EQ(e.kind(), ErrorKind::kSyntax) << c.in;
      continue;
    }
    ASSERT_TRUE(e.ok()) << c.in << ": " << e.message();
    EXPECT_EQ(rw.sql, c.out);
  }
  RewrittenSql rw;
  ASSERT_TRUE(RewriteSql("INSERT OR IGNORE INTO [My Sheet$] VALUES (?, '?', [?], ?)", &rw).ok());
  EXPECT_EQ(rw.verb, RewrittenSql::Verb::kInsert);
  EXPECT_EQ(rw.parameterCount, 2);
  EXPECT_EQ(rw.target, "My Sheet$");
  EXPECT_EQ(rw.sql.substr(rw.columnListAt, 6), "VALUES");
}

}  // namespace
}  // namespace xlsodbc

namespace xlsodbc {
namespace {

// A named range is a table in full SQL too, joined like a sheet.
TEST_F(SqlEngineTest, DefinedNamesAreTables) {
  book_->addName(xls::DefinedName{"Floors", -1, false, 1, 0, 2, 0, 1});  // Dept!A1:B3
  EXPECT_EQ(Select("SELECT f.Dept, COUNT(*) AS n FROM Staff s JOIN Floors f ON s.Dept = f.Dept "
                   "GROUP BY f.Dept ORDER BY f.Dept"),
            (Rows{{"Dept", "n"}, {"IT", "2"}, {"Sales", "2"}}));
}

}  // namespace
}  // namespace xlsodbc
