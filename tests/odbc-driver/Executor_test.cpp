// Statement semantics on an in-memory workbook: where CREATE puts the header, where INSERT
// puts a row, what SELECT returns, what UPDATE and DROP change.
#include <gtest/gtest.h>

#include <limits>
#include <set>

#include "odbc-driver/Executor.h"
#include "xls/Xls.h"

namespace xlsodbc {
namespace {

class ExecutorTest : public ::testing::Test {
 protected:
  Error Run(const std::string& sql, Outcome* out = nullptr) {
    Statement st;
    Error e = ParseSql(sql, &st);
    if (!e.ok()) return e;
    Outcome local;
    ExecOptions o;
    o.parameters = &params_;
    o.grid = grid_;
    return Execute(st, o, &book_, out ? out : &local);
  }
  void Ok(const std::string& sql) {
    Error e = Run(sql);
    ASSERT_TRUE(e.ok()) << sql << ": " << e.message();
  }
  // Rows of a SELECT as text, "NULL" for NULL, the header first.
  std::vector<std::vector<std::string>> Select(const std::string& sql) {
    Outcome out;
    Error e = Run(sql, &out);
    EXPECT_TRUE(e.ok()) << sql << ": " << e.message();
    std::vector<std::vector<std::string>> rows;
    if (!out.result) return rows;
    std::vector<std::string> header;
    for (const auto& c : out.result->columns()) header.push_back(c.name);
    rows.push_back(header);
    for (long r = 0; r < out.result->rowCount(); ++r) {
      std::vector<std::string> row;
      std::string v;
      for (std::size_t c = 0; c < header.size(); ++c) {
        row.push_back(out.result->value(r, static_cast<int>(c), &v) ? v : "NULL");
      }
      rows.push_back(row);
    }
    return rows;
  }
  std::string CellAt(const char* sheet, int row, int col) {
    const xls::Sheet* s = book_->findSheet(sheet);
    if (!s) return "<no sheet>";
    const xls::Cell& c = s->at(row, col);
    if (c.type == xls::CellType::kText) return c.text.str();
    if (c.type == xls::CellType::kNumber) return "#" + std::to_string(c.number);
    return c.isEmpty() ? "" : "?";
  }

  std::shared_ptr<xls::Workbook> book_ = std::make_shared<xls::Workbook>();
  std::vector<Value> params_;
  SheetGrid grid_ = kXlsGrid;
};

using Rows = std::vector<std::vector<std::string>>;

// What the spreadsheet library does on a new workbook: load, create, then add rows.
TEST_F(ExecutorTest, LibraryLifecycle) {
  EXPECT_EQ(Run("SELECT * FROM [Sheet1$A1:IV65536]").kind(), ErrorKind::kTableNotFound);
  Ok("CREATE TABLE [Sheet1] ([Name] char(255), [Qty] char(255))");
  EXPECT_EQ(CellAt("Sheet1", 0, 0), "Name");
  EXPECT_EQ(CellAt("Sheet1", 0, 1), "Qty");
  // The sheet is present now: the library declares the table again over A4:IV65536.
  Ok("CREATE TABLE [Sheet1$A4:IV65536] ([Name] char(255), [Qty] char(255))");
  EXPECT_EQ(CellAt("Sheet1", 3, 0), "");  // nothing written among the records
  Ok("INSERT INTO [Sheet1$A4:X4] VALUES ('abc', '10')");
  Ok("INSERT INTO [Sheet1$A5:X5] VALUES ('d e', '')");
  EXPECT_EQ(CellAt("Sheet1", 1, 0), "abc");
  EXPECT_EQ(CellAt("Sheet1", 1, 1), "10");  // quoted: text
  EXPECT_EQ(Select("SELECT * FROM [Sheet1$A1:IV65536]"),
            (Rows{{"Name", "Qty"}, {"abc", "10"}, {"d e", ""}}));
  // Later saves declare the table again once records fill row 4 and below.
  Ok("INSERT INTO [Sheet1$A6:X6] VALUES ('x', '1')");
  Ok("INSERT INTO [Sheet1$A7:X7] VALUES ('y', '2')");
  Ok("CREATE TABLE [Sheet1$A4:IV65536] ([Name] char(255), [Qty] char(255))");
  EXPECT_EQ(
      Run("CREATE TABLE [Sheet1$A4:IV65536] ([Name] char(255), [Qty] char(255), [New] char(255))")
          .kind(),
      ErrorKind::kTableExists);
  EXPECT_EQ(Select("SELECT [Name] FROM [Sheet1$A1:IV65536]"),
            (Rows{{"Name"}, {"abc"}, {"d e"}, {"x"}, {"y"}}));
  Ok("UPDATE [Sheet1] SET [Qty]='11' WHERE ([Name]='abc' )");
  EXPECT_EQ(Select("SELECT [Qty] FROM [Sheet1$]"), (Rows{{"Qty"}, {"11"}, {""}, {"1"}, {"2"}}));
  Ok("DROP TABLE [Sheet1$A1:IV65536]");
  EXPECT_EQ(Select("SELECT * FROM [Sheet1$A1:IV65536]"), (Rows{{}}));
  ASSERT_NE(book_->findSheet("Sheet1"), nullptr);  // the sheet stays
}

TEST_F(ExecutorTest, SingleRowCommitForm) {
  Ok("CREATE TABLE [Sheet1$A2:IV65536] ([Name] char(255), [Qty] char(255))");
  EXPECT_EQ(CellAt("Sheet1", 1, 0), "Name");  // a new sheet: header at the region's corner
  Ok("INSERT INTO [Sheet1$A3:IV1] VALUES (abc, 10)");
  EXPECT_EQ(CellAt("Sheet1", 2, 0), "abc");
  EXPECT_EQ(CellAt("Sheet1", 2, 1), "#10.000000");  // a bare number is stored as a number
  EXPECT_EQ(Select("SELECT * FROM [Sheet1$A2:IV65536]"), (Rows{{"Name", "Qty"}, {"abc", "10"}}));
}

TEST_F(ExecutorTest, CreateOnExistingTables) {
  Ok("CREATE TABLE [T] ([a] char(255), [b] char(255))");
  struct Case {
    const char* sql;
    ErrorKind expected;
  } cases[] = {
      {"CREATE TABLE [T] ([a] char(255), [b] char(255))", ErrorKind::kNone},  // same header
      {"CREATE TABLE [T$] ([a] text, [b] text)", ErrorKind::kNone},
      {"CREATE TABLE [T] ([a] char(255))", ErrorKind::kTableExists},
      {"CREATE TABLE [T] ([b] char(255), [a] char(255))", ErrorKind::kTableExists},
      {"CREATE TABLE [T$A1:IV65536] ([a] char(255), [c] char(255))", ErrorKind::kTableExists},
      {"CREATE TABLE [T$A3:B9] ([a] char(255), [b] char(255))", ErrorKind::kNone},  // header above
      {"CREATE TABLE [T$A3:B9] ([p] char(255), [q] char(255))", ErrorKind::kTableExists},
      {"CREATE TABLE [T] ([x] char(255), [X] char(255))", ErrorKind::kInvalidValue},
      {"CREATE TABLE [Bad:Name] ([x] char(255))", ErrorKind::kInvalidValue},
      {"CREATE TABLE [U$IV1] ([x] char(255), [y] char(255))", ErrorKind::kTooManyColumns},
      {"CREATE TABLE [U$A1:A9] ([x] char(255), [y] char(255))", ErrorKind::kTooManyColumns},
  };
  for (const Case& c : cases) EXPECT_EQ(Run(c.sql).kind(), c.expected) << c.sql;
  EXPECT_EQ(book_->sheets().size(), 1u);
  // An empty region with nothing above it in its columns is a new table beside the first.
  Ok("CREATE TABLE [T$E3:G9] ([x] char(255))");
  EXPECT_EQ(CellAt("T", 2, 4), "x");
  // An existing empty sheet gets the header at the region's corner.
  Ok("DROP TABLE [T]");
  Ok("CREATE TABLE [T$B2:IV65536] ([p] char(255))");
  EXPECT_EQ(CellAt("T", 1, 1), "p");
}

TEST_F(ExecutorTest, InsertGoesBelowTheLastRowOfItsColumns) {
  Ok("CREATE TABLE [S] ([a] char(255), [b] char(255))");
  Ok("INSERT INTO [S] VALUES ('1', '2')");
  Ok("INSERT INTO [S] ([b]) VALUES ('only b')");
  Ok("INSERT INTO [S$A1:B1] ([B], [A]) VALUES ('y', 'x')");  // names ignore case
  EXPECT_EQ(Select("SELECT * FROM [S]"),
            (Rows{{"a", "b"}, {"1", "2"}, {"NULL", "only b"}, {"x", "y"}}));
  struct Case {
    const char* sql;
    ErrorKind expected;
  } errors[] = {
      {"INSERT INTO [S] VALUES ('1', '2', '3')", ErrorKind::kValueCount},
      {"INSERT INTO [S$A1:B1] VALUES (1, 2, 3)", ErrorKind::kValueCount},
      {"INSERT INTO [S] ([nope]) VALUES ('1')", ErrorKind::kColumnNotFound},
      {"INSERT INTO [Missing$A1:B1] VALUES ('1')", ErrorKind::kTableNotFound},
      {"INSERT INTO [S] VALUES (?)", ErrorKind::kParameter},
  };
  for (const auto& c : errors) EXPECT_EQ(Run(c.sql).kind(), c.expected) << c.sql;
  // A table beside it in other columns starts under its own header.
  Ok("CREATE TABLE [S$D1:E1] ([c] char(255))");
  Ok("INSERT INTO [S$D1:E1] VALUES (z)");
  EXPECT_EQ(CellAt("S", 1, 3), "z");
}

// Row 65,536 is the sheet's last: it takes a record, the next one is refused as a full
// table (not as a column-count mismatch), and the model is left as it was.
TEST_F(ExecutorTest, TheLastRowFillsTheTable) {
  Ok("CREATE TABLE [S] ([a] char(255))");
  book_->findSheet("S")->set(xls::kMaxRows - 2, 0, xls::Cell::Text("before"));
  Ok("INSERT INTO [S] VALUES (last)");
  EXPECT_EQ(CellAt("S", xls::kMaxRows - 1, 0), "last");
  Error full = Run("INSERT INTO [S] VALUES (x)");
  EXPECT_EQ(full.kind(), ErrorKind::kTableFull);
  EXPECT_NE(full.message().find("is full"), std::string::npos) << full.message();
  EXPECT_EQ(book_->findSheet("S")->usedRows(), xls::kMaxRows);
}

TEST_F(ExecutorTest, SelectShapesAndTypes) {
  xls::Sheet& s = book_->addSheet("Data");
  s.set(2, 1, xls::Cell::Text("Name"));
  s.set(2, 3, xls::Cell::Text("When"));  // C2 left blank: column F2
  s.set(3, 1, xls::Cell::Number(0.1));
  s.set(3, 2, xls::Cell::Boolean(true));
  s.set(3, 3, xls::Cell::DateTime(45000.5));
  s.set(5, 1, xls::Cell::Number(1e20));
  s.set(5, 3, xls::Cell::Error(0x2A));
  EXPECT_EQ(Select("SELECT * FROM [Data$]"),
            (Rows{{"Name", "F2", "When"},
                  {"0.1", "1", "2023-03-15 12:00:00"},
                  {"NULL", "NULL", "NULL"},  // a blank row inside the data
                  {"1e+20", "NULL", "#N/A"}}));
  EXPECT_EQ(Select("SELECT * FROM [Data$B3:C4]"), (Rows{{"Name", "F2"}, {"0.1", "1"}}));
  EXPECT_EQ(Select("SELECT * FROM [Data$D6:B3]"), Select("SELECT * FROM [Data$B3:D6]"));
  EXPECT_EQ(Select("SELECT * FROM [Data$H1:K9]"), (Rows{{}}));  // nothing there: no columns
  book_->addSheet("Empty");
  // An empty sheet's used range is A1, as in Excel: one column, F1, and no rows; an empty
  // region still has no columns (what the spreadsheet library reads of an empty sheet).
  EXPECT_EQ(Select("SELECT * FROM [Empty]"), (Rows{{"F1"}}));
  EXPECT_EQ(Select("SELECT * FROM [Empty$A1:IV65536]"), (Rows{{}}));
  EXPECT_EQ(Run("SELECT [Nope] FROM [Data$]").kind(), ErrorKind::kColumnNotFound);
  Error missing = Run("SELECT * FROM [Sheet9$A1:IV65536]");
  EXPECT_EQ(missing.kind(), ErrorKind::kTableNotFound);
  EXPECT_NE(missing.message().find("'Sheet9'"), std::string::npos);
}

// A defined name is a table over the region it covers; a sheet of the same name wins, and
// names Excel makes for itself (print areas, filters) are not tables.
TEST_F(ExecutorTest, DefinedNamesAreTablesOverTheirRegion) {
  xls::Sheet& s = book_->addSheet("Data");
  s.set(0, 0, xls::Cell::Text("beside"));
  s.set(2, 1, xls::Cell::Text("Name"));
  s.set(2, 2, xls::Cell::Text("Qty"));
  s.set(3, 1, xls::Cell::Text("bolt"));
  s.set(3, 2, xls::Cell::Number(1));
  book_->addName(xls::DefinedName{"Prices", -1, false, 0, 2, 3, 1, 2});  // Data!B3:C4
  book_->addName(xls::DefinedName{"Print_Area", -1, true, 0, 0, 5, 0, 3});
  EXPECT_EQ(Select("SELECT * FROM Prices"), (Rows{{"Name", "Qty"}, {"bolt", "1"}}));
  EXPECT_EQ(Select("SELECT [Name] FROM [PRICES]"), (Rows{{"Name"}, {"bolt"}}));
  Ok("UPDATE Prices SET Qty = 7");
  Ok("INSERT INTO Prices VALUES ('nut', 3)");
  EXPECT_EQ(Select("SELECT * FROM [Data$B3:C9]"),
            (Rows{{"Name", "Qty"}, {"bolt", "7"}, {"nut", "3"}}));
  EXPECT_EQ(CellAt("Data", 0, 0), "beside");
  EXPECT_EQ(Run("SELECT * FROM Print_Area").kind(), ErrorKind::kTableNotFound);
  book_->addSheet("Prices");  // a sheet of the same name wins
  EXPECT_EQ(Select("SELECT * FROM Prices"), (Rows{{"F1"}}));
}

// CREATE TABLE of a bare name also makes a workbook-wide defined name over the header and
// every row below it, as the Windows driver does; a sheet ([T$]) or a region makes none, nor
// does a text Excel would not take as a name. DROP TABLE of the bare name drops that name.
TEST_F(ExecutorTest, CreateByBareNameMakesADefinedName) {
  struct Case {
    const char* create;
    const char* name;  // nullptr: none
    int lastColumn;
  } cases[] = {
      {"CREATE TABLE People (Name char(10), Age int)", "People", 1},
      {"CREATE TABLE [Größe] (a int)", "Größe", 0},
      {"CREATE TABLE `_x.1` (a int, b int, c int)", "_x.1", 2},
      {"CREATE TABLE [Q1$] (a int)", nullptr, 0},
      {"CREATE TABLE [R$A1:C1] (a int)", nullptr, 0},
      {"CREATE TABLE [Sales 2024] (a int)", nullptr, 0},  // a space
      {"CREATE TABLE B12 (a int)", nullptr, 0},           // a cell
      {"CREATE TABLE xfd1 (a int)", nullptr, 0},
      {"CREATE TABLE rc (a int)", nullptr, 0},  // a cell in R1C1 notation
      {"CREATE TABLE R2C3 (a int)", nullptr, 0},
  };
  for (const Case& c : cases) {
    book_ = std::make_shared<xls::Workbook>();
    Ok(c.create);
    ASSERT_EQ(book_->sheets().size(), 1u) << c.create;
    if (!c.name) {
      EXPECT_TRUE(book_->names().empty()) << c.create << ": " << book_->names()[0].name;
      continue;
    }
    ASSERT_EQ(book_->names().size(), 1u) << c.create;
    const xls::DefinedName& n = book_->names()[0];
    EXPECT_EQ(n.name, c.name);
    EXPECT_EQ(book_->sheets()[0].name(), c.name);
    EXPECT_EQ(std::vector<int>({n.scopeSheet, n.builtin, n.sheet, n.firstRow, n.lastRow,
                                n.firstColumn, n.lastColumn}),
              std::vector<int>({-1, false, 0, 0, 65535, 0, c.lastColumn}))
        << c.create;
  }

  // Reading through the name reads the sheet, whatever the records below the header.
  book_ = std::make_shared<xls::Workbook>();
  Ok("CREATE TABLE People (Name char(10), Age int)");
  Ok("INSERT INTO People VALUES ('Ann', 31)");
  Ok("INSERT INTO [People$] VALUES ('Bob', 42)");
  book_->sheets()[0].setName("Renamed");
  const Rows people{{"Name", "Age"}, {"Ann", "31"}, {"Bob", "42"}};
  EXPECT_EQ(Select("SELECT * FROM People"), people);
  EXPECT_EQ(Select("SELECT * FROM [Renamed$]"), people);
  book_->sheets()[0].setName("People");

  // DROP of the sheet keeps the name; DROP of the bare name drops it, even with the sheet
  // empty already; creating again makes it once more.
  Ok("DROP TABLE [People$]");
  EXPECT_EQ(book_->names().size(), 1u);
  Outcome out;
  ASSERT_TRUE(Run("DROP TABLE People", &out).ok());
  EXPECT_TRUE(out.changed);
  EXPECT_TRUE(book_->names().empty());
  Ok("CREATE TABLE People (Name char(10), Age int)");
  Ok("CREATE TABLE [People] (Name char(10), Age int)");  // already there: no change
  EXPECT_EQ(book_->names().size(), 1u);

  // A name of the user's stays: CREATE does not take it over, DROP of the sheet that
  // shadows it leaves it; DROP of the name alone clears its region and drops it.
  xls::Sheet& data = book_->addSheet("Data");
  data.set(0, 0, xls::Cell::Text("k"));
  data.set(1, 0, xls::Cell::Number(1));
  data.set(1, 1, xls::Cell::Text("beside"));
  book_->addName(xls::DefinedName{"Keys", -1, false, 1, 0, 1, 0, 0});  // Data!A1:A2
  book_->addName(xls::DefinedName{"Mine", -1, false, 1, 0, 1, 0, 0});
  Ok("CREATE TABLE Keys (a int)");
  Ok("DROP TABLE Keys");
  EXPECT_NE(book_->findName("Keys"), nullptr);
  EXPECT_EQ(book_->findName("Keys")->sheet, 1);
  ASSERT_TRUE(Run("DROP TABLE Mine", &out).ok());
  EXPECT_EQ(out.rowCount, 2);
  EXPECT_EQ(book_->findName("Mine"), nullptr);
  EXPECT_EQ(CellAt("Data", 0, 0), "");
  EXPECT_EQ(CellAt("Data", 1, 1), "beside");
}

TEST_F(ExecutorTest, WhereComparesNumbersAsNumbersAndNullAsUnknown) {
  Ok("CREATE TABLE [S] ([k] char(255), [v] char(255))");
  Ok("INSERT INTO [S] VALUES (7, 'seven')");
  Ok("INSERT INTO [S] VALUES ('10', 'ten')");
  Ok("INSERT INTO [S] VALUES ('abc', NULL)");
  Ok("INSERT INTO [S] VALUES (NULL, 'none')");
  struct Case {
    const char* where;
    std::vector<std::string> values;
  } cases[] = {
      {"[k]='7'", {"seven"}},
      {"k = 7", {"seven"}},
      {"k > 8", {"ten", "NULL"}},  // '10' reads as a number; 'abc' compares as text
      {"k > '8'", {"NULL"}},       // text against text: "10" < "8" < "abc"
      {"k <> 'abc'", {"seven", "ten"}},
      {"k IS NULL", {"none"}},
      {"v IS NOT NULL AND (k = 7 OR k = 10)", {"seven", "ten"}},
      {"NOT (k = 7)", {"ten", "NULL"}},
      {"k = k", {"seven", "ten", "NULL"}},
  };
  for (const Case& c : cases) {
    Rows rows = Select(std::string("SELECT [v] FROM [S] WHERE ") + c.where);
    std::vector<std::string> got;
    for (std::size_t i = 1; i < rows.size(); ++i) got.push_back(rows[i][0]);
    EXPECT_EQ(got, c.values) << c.where;
  }
}

TEST_F(ExecutorTest, UpdateCountsAndKeepsOthers) {
  Ok("CREATE TABLE [S] ([K] char(255), [L] char(255), [M] char(255))");
  Ok("INSERT INTO [S] VALUES ('7', '8', '9')");
  Ok("INSERT INTO [S] VALUES ('7', '8', 'x')");
  Ok("INSERT INTO [S] VALUES ('7', '0', 'y')");
  Outcome out;
  ASSERT_TRUE(Run("UPDATE [S] SET [K]='1', [L]='2' WHERE ([K]='7' AND [L]='8' )", &out).ok());
  EXPECT_EQ(out.rowCount, 2);
  EXPECT_EQ(Select("SELECT * FROM [S]"),
            (Rows{{"K", "L", "M"}, {"1", "2", "9"}, {"1", "2", "x"}, {"7", "0", "y"}}));
  ASSERT_TRUE(Run("UPDATE [S] SET [M]=NULL", &out).ok());
  EXPECT_EQ(out.rowCount, 3);
  ASSERT_TRUE(Run("UPDATE [S] SET [M]='z' WHERE K = 'none'", &out).ok());
  EXPECT_EQ(out.rowCount, 0);
  EXPECT_FALSE(out.changed);
  EXPECT_EQ(Run("UPDATE [S] SET [Q]='1'").kind(), ErrorKind::kColumnNotFound);
  EXPECT_EQ(Run("UPDATE [S] SET [K]='1' WHERE [Q]='1'").kind(), ErrorKind::kColumnNotFound);
}

TEST_F(ExecutorTest, DropClearsOnlyItsRegion) {
  Ok("CREATE TABLE [S] ([a] char(255), [b] char(255), [c] char(255))");
  Ok("INSERT INTO [S] VALUES (1, 2, 3)");
  Outcome out;
  ASSERT_TRUE(Run("DROP TABLE [S$B1:B5]", &out).ok());
  EXPECT_EQ(out.rowCount, 2);
  EXPECT_EQ(Select("SELECT * FROM [S$A1:C9]"), (Rows{{"a", "F2", "c"}, {"1", "NULL", "3"}}));
  ASSERT_TRUE(Run("DROP TABLE [S$H1:H5]", &out).ok());
  EXPECT_FALSE(out.changed);
  EXPECT_EQ(Run("DROP TABLE [Other$A1:IV65536]").kind(), ErrorKind::kTableNotFound);
}

TEST_F(ExecutorTest, ParametersBindInOrder) {
  Ok("CREATE TABLE [S] ([a] char(255), [b] char(255))");
  params_ = {Value{Value::Kind::kText, "p", 0, 0}, Value{Value::Kind::kNumber, "", 2.5, 0}};
  Ok("INSERT INTO [S] VALUES (?, ?)");
  params_ = {Value{Value::Kind::kText, "q", 0, 0}, Value{Value::Kind::kText, "p", 0, 0}};
  Ok("UPDATE [S] SET [a]=? WHERE [a]=?");
  EXPECT_EQ(Select("SELECT * FROM [S]"), (Rows{{"a", "b"}, {"q", "2.5"}}));
}

TEST_F(ExecutorTest, WithoutHeaderRowsEveryRowIsARecord) {
  Ok("CREATE TABLE [S] ([a] char(255), [b] char(255))");
  Ok("INSERT INTO [S] VALUES (1, 2)");
  Statement st;
  ASSERT_TRUE(ParseSql("SELECT * FROM [S] WHERE F1 = 'a'", &st).ok());
  ExecOptions o;
  o.firstRowHasNames = false;
  Outcome out;
  ASSERT_TRUE(Execute(st, o, &book_, &out).ok());
  ASSERT_EQ(out.result->columns().size(), 2u);
  EXPECT_EQ(out.result->columns()[1].name, "F2");
  ASSERT_EQ(out.result->rowCount(), 1);
  std::string v;
  out.result->value(0, 1, &v);
  EXPECT_EQ(v, "b");
}

// A result keeps the rows it was made from while later statements change the workbook.
TEST_F(ExecutorTest, ResultsAreSnapshots) {
  Ok("CREATE TABLE [S] ([a] char(255))");
  Ok("INSERT INTO [S] VALUES (one)");
  Outcome out;
  ASSERT_TRUE(Run("SELECT * FROM [S]", &out).ok());
  Ok("UPDATE [S] SET [a]='two'");
  Ok("DROP TABLE [S]");
  std::string v;
  ASSERT_EQ(out.result->rowCount(), 1);
  EXPECT_TRUE(out.result->value(0, 0, &v));
  EXPECT_EQ(v, "one");
}

// Every value a statement stores is one the codec can save: each limit is checked where the
// statement writes, the refused statement changes nothing, and every accepted one leaves a
// workbook that encodes.
TEST_F(ExecutorTest, StoredValuesStayWithinWhatAWorkbookHolds) {
  Ok("CREATE TABLE [S] ([a] char(255), [b] char(255))");
  Ok("INSERT INTO [S] VALUES ('x', 'y')");
  const std::string fits(32767, 'x'), over(32768, 'x');
  std::string emoji;  // U+1F600 is two UTF-16 code units: 16,384 of them are 32,768
  for (int i = 0; i < 16384; ++i) emoji += "\xF0\x9F\x98\x80";
  std::string accents;  // U+00E9 is one code unit in two bytes: 32,767 of them fit
  for (int i = 0; i < 32767; ++i) accents += "\xC3\xA9";
  const Value kText{Value::Kind::kText, "", 0, 0};
  struct Case {
    std::string sql;
    std::string parameter;  // bound to the statement's ? when it has one
    ErrorKind expected;
  } cases[] = {
      {"INSERT INTO [S] VALUES ('" + fits + "', 1)", "", ErrorKind::kNone},
      {"INSERT INTO [S] VALUES ('" + over + "', 1)", "", ErrorKind::kStringTooLong},
      {"INSERT INTO [S] ([b]) VALUES (" + over + ")", "", ErrorKind::kStringTooLong},
      {"UPDATE [S] SET [b]='" + fits + "' WHERE [a]='x'", "", ErrorKind::kNone},
      {"UPDATE [S] SET [b]='" + over + "' WHERE [a]='x'", "", ErrorKind::kStringTooLong},
      {"UPDATE [S] SET [b]='" + over + "' WHERE [a]='none'", "", ErrorKind::kStringTooLong},
      {"INSERT INTO [S] VALUES (?, 2)", fits, ErrorKind::kNone},
      {"INSERT INTO [S] VALUES (?, 2)", over, ErrorKind::kStringTooLong},
      {"UPDATE [S] SET [a]=?", over, ErrorKind::kStringTooLong},
      {"INSERT INTO [S] VALUES (?, 3)", accents, ErrorKind::kNone},
      {"INSERT INTO [S] VALUES (?, 3)", emoji, ErrorKind::kStringTooLong},
      {"INSERT INTO [S] VALUES (?, 3)", emoji.substr(4), ErrorKind::kNone},
      {"CREATE TABLE [T] ([" + over + "] char(255))", "", ErrorKind::kStringTooLong},
      {"CREATE TABLE [T] ([" + fits + "] char(255))", "", ErrorKind::kNone},
      {"CREATE TABLE [Bad\xFF] (a)", "", ErrorKind::kInvalidValue},  // not UTF-8
      {"CREATE TABLE [" + std::string(32, 'n') + "] (a)", "", ErrorKind::kInvalidValue},
      {"CREATE TABLE [" + std::string(31, 'n') + "] (a)", "", ErrorKind::kNone},
      {"INSERT INTO [S] VALUES (NaN, Infinity)", "", ErrorKind::kNone},  // bare words: text
  };
  for (const Case& c : cases) {
    params_ = {kText};
    params_[0].text = c.parameter;
    auto before = std::make_shared<xls::Workbook>(*book_);
    Error e = Run(c.sql);
    EXPECT_EQ(e.kind(), c.expected) << c.sql.substr(0, 60) << ": " << e.message();
    if (!e.ok()) {
      EXPECT_EQ(book_->findSheet("S")->rows(), before->findSheet("S")->rows())
          << c.sql.substr(0, 60);
      EXPECT_EQ(book_->sheets().size(), before->sheets().size());
    }
    std::vector<std::uint8_t> bytes;
    xls::Status saved = xls::WriteWorkbookToMemory(*book_, &bytes);
    EXPECT_TRUE(saved.ok()) << c.sql.substr(0, 60) << ": " << saved.message();
  }
  EXPECT_EQ(Select("SELECT [a], [b] FROM [S] WHERE [b] = 'Infinity'"),
            (Rows{{"a", "b"}, {"NaN", "Infinity"}}));

  // A bound number must be finite; bytes that are not UTF-8 are stored as the codec will
  // write them (U+FFFD), so what is read now is what is read after a save.
  params_ = {Value{Value::Kind::kNumber, "", std::numeric_limits<double>::quiet_NaN(), 0}};
  EXPECT_EQ(Run("INSERT INTO [S] VALUES (?, 4)").kind(), ErrorKind::kInvalidValue);
  params_ = {Value{Value::Kind::kNumber, "", -std::numeric_limits<double>::infinity(), 0}};
  EXPECT_EQ(Run("UPDATE [S] SET [b]=?").kind(), ErrorKind::kInvalidValue);
  params_ = {kText};
  params_[0].text = "caf\xE9";
  Ok("UPDATE [S] SET [b]=? WHERE [a]='x'");
  EXPECT_EQ(Select("SELECT [b] FROM [S] WHERE [a]='x'"), (Rows{{"b"}, {"caf\xEF\xBF\xBD"}}));
}

// Too many columns for the sheet: 256 fit, the 257th is refused, at A or at a later corner.
TEST_F(ExecutorTest, TablesEndAtColumnIV) {
  auto create = [](const std::string& table, int columns) {
    std::string sql = "CREATE TABLE " + table + " (";
    for (int i = 0; i < columns; ++i) sql += (i ? ", c" : "c") + std::to_string(i);
    return sql + ")";
  };
  EXPECT_EQ(Run(create("[Wide]", 257)).kind(), ErrorKind::kTooManyColumns);
  EXPECT_EQ(Run(create("[Wide$B1]", 256)).kind(), ErrorKind::kTooManyColumns);
  EXPECT_EQ(book_->findSheet("Wide"), nullptr);
  Ok(create("[Wide]", 256));
  EXPECT_EQ(CellAt("Wide", 0, 255), "c255");
}

// Each format's grid bounds what a statement may name and write: IV65536 in .xls, XFD1048576
// in .xlsx. The same statement is refused in one and runs in the other, with the error the
// .xls limits always had; the last row of each is taken, the one after is a full table.
TEST_F(ExecutorTest, TheGridFollowsTheFormat) {
  struct Case {
    SheetGrid grid;
    const char* sql;
    ErrorKind expected;
  } cases[] = {
      {kXlsGrid, "SELECT * FROM [T$A1:IV65536]", ErrorKind::kNone},
      {kXlsGrid, "SELECT * FROM [T$A1:IW1]", ErrorKind::kTooManyColumns},
      {kXlsGrid, "SELECT * FROM [T$A1:A65537]", ErrorKind::kSyntax},
      {kXlsGrid, "INSERT INTO [T$IV1:IW1] VALUES (1)", ErrorKind::kTooManyColumns},
      {kXlsGrid, "CREATE TABLE [U$IV1:IW1] (a, b)", ErrorKind::kTooManyColumns},
      {kXlsxGrid, "SELECT * FROM [T$A1:XFD1048576]", ErrorKind::kNone},
      {kXlsxGrid, "SELECT * FROM [T$A1:A65537]", ErrorKind::kNone},
      {kXlsxGrid, "CREATE TABLE [U$XFD1:XFE1] (a, b)", ErrorKind::kTooManyColumns},
      {kXlsxGrid, "CREATE TABLE [U$IV1:IW1] (a, b)", ErrorKind::kNone},
      {kXlsxGrid, "INSERT INTO [U$IV1:IW1] VALUES (1, 2)", ErrorKind::kNone},
      {kXlsxGrid, "CREATE TABLE [V$XFC1:XFD1] (a, b)", ErrorKind::kNone},
  };
  Ok("CREATE TABLE [T] (n)");
  for (const Case& c : cases) {
    grid_ = c.grid;
    Error e = Run(c.sql);
    EXPECT_EQ(e.kind(), c.expected) << c.sql << ": " << e.message();
    if (c.expected == ErrorKind::kTooManyColumns) {
      EXPECT_NE(e.message().find(std::string("column ") + c.grid.lastColumn), std::string::npos)
          << e.message();
    }
  }
  EXPECT_EQ(CellAt("U", 1, 256), "#2.000000");  // column IW, past what .xls holds
  EXPECT_EQ(CellAt("V", 0, 16383), "b");

  for (const SheetGrid& grid : {kXlsGrid, kXlsxGrid}) {
    grid_ = grid;
    book_ = std::make_shared<xls::Workbook>();
    xls::Sheet& s = book_->addSheet("Tall");
    s.set(0, 0, xls::Cell::Text("n"));
    s.set(grid.rows - 2, 0, xls::Cell::Number(1));
    Ok("INSERT INTO [Tall] VALUES (last)");
    EXPECT_EQ(CellAt("Tall", grid.rows - 1, 0), "last");
    Error full = Run("INSERT INTO [Tall] VALUES (more)");
    EXPECT_EQ(full.kind(), ErrorKind::kTableFull) << grid.rows;
    EXPECT_EQ(Run("UPDATE [Tall] SET n = 'x' WHERE n = 'last'").kind(), ErrorKind::kNone);
  }
}

// A generated 60,000-term OR runs (the chain is flat) and gives the right rows.
TEST_F(ExecutorTest, LongOrChainsRun) {
  Ok("CREATE TABLE [S] ([a] char(255))");
  for (int i = 0; i < 5; ++i) Ok("INSERT INTO [S] VALUES (" + std::to_string(i * 30000) + ")");
  std::string sql = "SELECT [a] FROM [S] WHERE a = -1";
  for (int i = 1; i < 60000; ++i) sql += " OR a = " + std::to_string(i * 2);
  EXPECT_EQ(Select(sql), (Rows{{"a"}, {"30000"}, {"60000"}, {"90000"}}));
  Outcome out;
  ASSERT_TRUE(Run("UPDATE [S] SET [a]='hit' WHERE " + sql.substr(sql.find("a = -1")), &out).ok());
  EXPECT_EQ(out.rowCount, 3);
}

// From a few equalities on one column an OR is answered by set lookups; its rows must be
// exactly what its terms give one at a time, under NOT too, where unknown is not false.
TEST_F(ExecutorTest, AnOrOfEqualitiesMatchesItsTermsOneByOne) {
  Ok("CREATE TABLE [S] ([id] char(255), [a] char(255))");
  const std::vector<std::string> values = {"7",     "'7'", "'007'",  "10",     "'10'",
                                           "'1e1'", "0",   "'-0'",   "'abc'",  "''",
                                           "NULL",  "2.5", "'2.50'", "'#N/A'", "'Infinity'"};
  for (std::size_t i = 0; i < values.size(); ++i)
    Ok("INSERT INTO [S] VALUES (" + std::to_string(i) + ", " + values[i] + ")");
  xls::Sheet& s = *book_->findSheet("S");
  const xls::Cell fromFiles[] = {xls::Cell::Boolean(true), xls::Cell::DateTime(45000.5),
                                 xls::Cell::Error(0x2A), xls::Cell::Number(1e300)};
  for (const xls::Cell& cell : fromFiles) {
    int row = s.usedRows();
    s.set(row, 0, xls::Cell::Number(row));
    s.set(row, 1, cell);
  }
  const std::vector<std::string> terms = {
      "a = 7",       "a = '7'",       "'10' = a",   "a = 10",
      "a = '1e1'",   "a = 0",         "a = 'abc'",  "a = ''",
      "a = 1",       "a = '1'",       "a = '#N/A'", "a = 2.5",
      "a = NULL",    "a > 100",       "a = ?",      "a = '2023-03-15 12:00:00'",
      "a = '1e300'", "a = 'Infinity'"};
  params_ = {Value{Value::Kind::kNumber, "", -0.0, 0}};  // -0 meets the cell 0
  auto ids = [&](const std::string& where) {
    std::set<std::string> out;
    Rows rows = Select("SELECT [id] FROM [S] WHERE " + where);
    for (std::size_t i = 1; i < rows.size(); ++i) out.insert(rows[i][0]);
    return out;
  };
  std::vector<std::set<std::string>> trueFor, falseFor;
  for (const std::string& term : terms) {
    trueFor.push_back(ids(term));
    falseFor.push_back(ids("NOT (" + term + ")"));
  }
  const std::set<std::string> all = ids("id IS NOT NULL");
  // Every chain of four terms (each kind of match alone among others), then all of them.
  std::vector<std::vector<std::size_t>> chains;
  const std::size_t n = terms.size();
  for (std::size_t i = 0; i < n; ++i)
    for (std::size_t j = i + 1; j < n; ++j)
      for (std::size_t k = j + 1; k < n; ++k)
        for (std::size_t l = k + 1; l < n; ++l) chains.push_back({i, j, k, l});
  chains.emplace_back();
  for (std::size_t i = 0; i < n; ++i) chains.back().push_back(i);
  for (const auto& chain : chains) {
    std::string where;
    std::set<std::string> anyTrue, allFalse = all;
    for (std::size_t t : chain) {
      where += (where.empty() ? "" : " OR ") + terms[t];
      anyTrue.insert(trueFor[t].begin(), trueFor[t].end());
      std::set<std::string> keep;
      for (const std::string& id : allFalse) {
        if (falseFor[t].count(id)) keep.insert(id);
      }
      allFalse = keep;
    }
    ASSERT_EQ(ids(where), anyTrue) << where;
    ASSERT_EQ(ids("NOT (" + where + ")"), allFalse) << where;
  }
}

}  // namespace
}  // namespace xlsodbc
