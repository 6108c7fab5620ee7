// .xlsx through the driver manager: each statement family, the types and the limits an .xls
// has, at the edges of the .xlsx grid; what decides the format a workbook is saved in; a
// workbook with macros. The rules themselves are the .xls suites'; this checks they hold on
// the other format.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "OdbcTestSupport.h"
#include "xls/Xls.h"
#include "xls/Xlsx.h"
#include "xls/XlsxZip.h"

namespace xlsodbc::test {
namespace {

using Rows = std::vector<std::vector<std::string>>;

std::string Bytes(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

std::string FormatOf(const std::string& path) {
  const std::string b = Bytes(path);
  if (b.compare(0, 2, "PK") == 0) return "xlsx";
  if (b.compare(0, 4, "\xD0\xCF\x11\xE0") == 0) return "xls";
  return "none";
}

void WriteBytes(const std::string& path, const std::vector<std::uint8_t>& bytes) {
  std::ofstream(path, std::ios::binary)
      .write(reinterpret_cast<const char*>(bytes.data()),
             static_cast<std::streamsize>(bytes.size()));
}

SQLUSMALLINT MaxColumns(Connection& c) {
  SQLUSMALLINT n = 0;
  SQLGetInfo(c.dbc(), SQL_MAX_COLUMNS_IN_TABLE, &n, sizeof n, nullptr);
  return n;
}

std::string DbmsVersion(Connection& c) {
  char text[64] = "";
  SQLGetInfo(c.dbc(), SQL_DBMS_VER, text, sizeof text, nullptr);
  return text;
}

// One workbook, one connection: each step's SQLSTATE ("" for success) and, for a query, its
// rows with the header first. The dialect and the engine both run, on the .xlsx grid.
TEST(XlsxTest, StatementsTypesAndLimitsHoldAtTheXlsxEdges) {
  TempDir dir;
  const std::string book = dir.file("book.xlsx");
  xls::Workbook wb;  // a sheet taken down to its last row but one
  xls::Sheet& tall = wb.addSheet("Tall");
  tall.set(0, 0, xls::Cell::Text("n"));
  tall.set(xls::kXlsxMaxRows - 2, 0, xls::Cell::Number(1));
  ASSERT_TRUE(xls::WriteWorkbook(book, wb).ok());

  Connection c;
  ASSERT_TRUE(c.Open(LibraryConnectionString(book)).ok());
  EXPECT_EQ(MaxColumns(c), 16384);
  std::string wide = "CREATE TABLE [Wide] ([c0] char(255)";
  for (int i = 1; i <= 16384; ++i) wide += ", [c" + std::to_string(i) + "] char(255)";
  wide += ")";
  const std::string fits(32767, 'y'), over(32768, 'x');
  struct Step {
    std::string sql;
    const char* state;
    Rows rows;
  } steps[] = {
      {"CREATE TABLE [T] ([Name] char(255), [Qty] float, [Day] date)", "", {}},
      {"INSERT INTO [T] VALUES ('Ann', 3, NULL)", "", {}},
      {"INSERT INTO [T] VALUES ('Bob', 4, {d '2024-02-29'}), ('Cy', 5, NULL)", "", {}},
      {"UPDATE [T] SET [Qty] = 6 WHERE [Name] = 'Bob'", "", {}},
      {"DELETE FROM [T] WHERE [Name] = 'Cy'", "", {}},
      {"SELECT [Name], [Qty] + 1 AS q, [Day] FROM [T] ORDER BY [Name]",
       "",
       {{"Name", "q", "Day"}, {"Ann", "4", "NULL"}, {"Bob", "7", "2024-02-29 00:00:00"}}},
      {"SELECT [Name] FROM [T] WHERE [Day] IN ('2024-02-29')", "", {{"Name"}, {"Bob"}}},
      {"INSERT INTO [T] VALUES ('" + fits + "', 0, NULL)", "", {}},
      {"INSERT INTO [T] VALUES ('" + over + "', 0, NULL)", "22001", {}},
      {"UPDATE [T] SET [Name] = '" + over + "' WHERE [Qty] = 0", "22001", {}},
      {wide, "54011", {}},
      {"CREATE TABLE [W$XFC1:XFD1] ([a] char(255), [b] char(255))", "", {}},
      {"INSERT INTO [W$XFC1:XFD1] VALUES (1, 2)", "", {}},
      {"INSERT INTO [W$XFC1:XFE1] VALUES (1, 2)", "54011", {}},
      {"SELECT * FROM [W$XFC1:XFD1048576]", "", {{"a", "b"}, {"1", "2"}}},
      {"SELECT [b] FROM [W$XFD1:XFD1048576] WHERE [b] IN (2)", "", {{"b"}, {"2"}}},
      {"INSERT INTO [Tall] VALUES (last)", "", {}},
      {"INSERT INTO [Tall] VALUES (more)", "HY000", {}},
      {"INSERT INTO [Tall] ([n]) SELECT 'more'", "HY000", {}},
      {"SELECT COUNT([n]) AS k FROM [Tall]", "", {{"k"}, {"2"}}},
  };
  for (const Step& s : steps) {
    const std::string shown = s.sql.substr(0, 70);
    if (s.rows.empty()) {
      Diag d = c.Exec(s.sql);
      EXPECT_EQ(d.state, s.state) << shown << ": " << d.message;
    } else {
      Diag d;
      EXPECT_EQ(c.Query(s.sql, &d), s.rows) << shown << ": " << d.message;
    }
  }
  EXPECT_TRUE(std::filesystem::exists(book + "-journal"));  // changes wait in the journal
  EXPECT_EQ(FormatOf(book), "xlsx");
  c.Close();

  // Folded on disconnect into an .xlsx that holds every accepted change, typed.
  EXPECT_FALSE(std::filesystem::exists(book + "-journal"));
  ASSERT_EQ(FormatOf(book), "xlsx");
  xls::Workbook saved;
  ASSERT_TRUE(xls::ReadWorkbook(book, &saved).ok());
  const xls::Sheet& t = *saved.findSheet("T");
  EXPECT_EQ(t.at(2, 2).type, xls::CellType::kDateTime);
  EXPECT_EQ(t.at(2, 1).type, xls::CellType::kNumber);
  EXPECT_EQ(t.at(3, 0).text.size(), fits.size());
  EXPECT_EQ(t.usedRows(), 4);
  EXPECT_EQ(saved.findSheet("W")->at(1, 16383).number, 2);
  EXPECT_EQ(saved.findSheet("Tall")->at(xls::kXlsxMaxRows - 1, 0).text, "last");
  EXPECT_EQ(saved.findSheet("Wide"), nullptr);
}

// A new workbook takes the format its name asks for; a name asking for none is refused
// before anything is made. An existing workbook keeps the format it holds, whatever its
// name says, and its sheet size with it.
TEST(XlsxTest, ANewWorkbookTakesItsNamesFormatAnExistingOneKeepsItsOwn) {
  TempDir dir;
  xls::Workbook tall;
  tall.addSheet("S").set(0, 0, xls::Cell::Text("n"));
  tall.findSheet("S")->set(69999, 0, xls::Cell::Text("deep"));  // past what .xls holds
  std::vector<std::uint8_t> xlsxBytes, xlsBytes;
  ASSERT_TRUE(xls::WriteXlsxToMemory(tall, &xlsxBytes).ok());
  tall.findSheet("S")->clear(69999, 0);
  ASSERT_TRUE(xls::WriteWorkbookToMemory(tall, &xlsBytes).ok());
  WriteBytes(dir.file("renamed.xls"), xlsxBytes);
  WriteBytes(dir.file("renamed.xlsx"), xlsBytes);

  struct Case {
    const char* name;
    const char* connectState;
    const char* format;  // after an INSERT and disconnect
    int maxColumns;
  } cases[] = {
      {"new.xls", "", "xls", 256},      {"new.xlsx", "", "xlsx", 16384},
      {"new.XLSM", "", "xlsx", 16384},  {"new.csv", "08001", "none", 0},
      {"new", "08001", "none", 0},      {"renamed.xls", "", "xlsx", 16384},
      {"renamed.xlsx", "", "xls", 256},
  };
  for (const Case& k : cases) {
    SCOPED_TRACE(k.name);
    const std::string path = dir.file(k.name);
    Connection c;
    Diag opened = c.Open(LibraryConnectionString(path));
    EXPECT_EQ(opened.state, k.connectState) << opened.message;
    if (!opened.ok()) {
      EXPECT_NE(opened.message.find(".xlsx"), std::string::npos) << opened.message;
      EXPECT_FALSE(std::filesystem::exists(path));
      continue;
    }
    EXPECT_TRUE(c.Exec("CREATE TABLE [S] ([n] char(255))").ok());
    Diag inserted = c.Exec("INSERT INTO [S] VALUES (x)");
    EXPECT_TRUE(inserted.ok()) << inserted.message;
    EXPECT_EQ(MaxColumns(c), k.maxColumns);
    EXPECT_EQ(DbmsVersion(c).substr(0, 4), k.maxColumns == 256 ? "8.0 " : "12.0");
    c.Close();
    EXPECT_EQ(FormatOf(path), k.format);
  }
  xls::Workbook back;
  ASSERT_TRUE(xls::ReadWorkbook(dir.file("renamed.xls"), &back).ok());
  EXPECT_EQ(back.findSheet("S")->at(69999, 0).text, "deep");
  EXPECT_EQ(back.findSheet("S")->at(70000, 0).text, "x");
}

// The driver does not write macros: a workbook holding a VBA project is read, and every
// change is refused with a reason instead of being saved without them.
TEST(XlsxTest, AWorkbookWithMacrosIsReadAndNotChanged) {
  TempDir dir;
  const std::string book = dir.file("macros.xlsm");
  xls::Workbook wb;
  wb.addSheet("S").set(0, 0, xls::Cell::Text("n"));
  wb.findSheet("S")->set(1, 0, xls::Cell::Text("a"));
  std::vector<std::uint8_t> plain, withMacros;
  ASSERT_TRUE(xls::WriteXlsxToMemory(wb, &plain, true).ok());
  xls::ZipPartReader in;
  ASSERT_TRUE(in.Open(plain.data(), plain.size()).ok());
  xls::ZipBuilder out;
  std::vector<std::string> parts;
  for (const char* name :
       {"[Content_Types].xml", "_rels/.rels", "xl/workbook.xml", "xl/_rels/workbook.xml.rels",
        "xl/styles.xml", "xl/sharedStrings.xml", "xl/worksheets/sheet1.xml"}) {
    parts.emplace_back();
    ASSERT_TRUE(in.Read(name,
                        [&](const char* p, std::size_t n) {
                          parts.back().append(p, n);
                          return xls::Status();
                        })
                    .ok())
        << name;
  }
  parts.emplace_back("not really VBA, but where Excel keeps it");
  const char* names[] = {"[Content_Types].xml",        "_rels/.rels",      "xl/workbook.xml",
                         "xl/_rels/workbook.xml.rels", "xl/styles.xml",    "xl/sharedStrings.xml",
                         "xl/worksheets/sheet1.xml",   "xl/vbaProject.bin"};
  for (std::size_t i = 0; i < parts.size(); ++i) ASSERT_TRUE(out.Add(names[i], parts[i]).ok());
  ASSERT_TRUE(out.Finish(&withMacros).ok());
  WriteBytes(book, withMacros);

  Connection c;
  ASSERT_TRUE(c.Open(LibraryConnectionString(book)).ok());
  EXPECT_EQ(c.Query("SELECT * FROM [S]"), (Rows{{"n"}, {"a"}}));
  for (const char* sql : {"INSERT INTO [S] VALUES (b)", "UPDATE [S] SET n = 'b'",
                          "DELETE FROM [S] WHERE n = 'a'", "CREATE TABLE [T] ([x] char(255))"}) {
    Diag d = c.Exec(sql);
    EXPECT_EQ(d.state, "HY000") << sql;
    EXPECT_NE(d.message.find("macros"), std::string::npos) << sql << ": " << d.message;
  }
  c.Close();
  EXPECT_EQ(Bytes(book), std::string(withMacros.begin(), withMacros.end()));
}

}  // namespace
}  // namespace xlsodbc::test
