// Excel mode end to end: the class through unixODBC and our .xls driver, registered for
// this process in a private odbcinst.ini. Workbooks are made at test time by python3-xlwt
// and LibreOffice; what the class wrote is read back by the class and by LibreOffice.
// Statements are checked byte for byte in unixODBC's trace.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "spreadsheet/SpreadSheet.h"
#include "tests/platform/OdbcTestIni.h"
#include "tests/spreadsheet/excel/ExcelTestAccess.h"
#include "tests/support/TempDir.h"

namespace {

using Lines = std::vector<std::string>;

const char kDriver[] = "Excel Workbook Driver (*.xls)";

odbc_test::Config& Odbc() { return odbc_test::Config::Install({{kDriver, XLSODBC_DRIVER_PATH}}); }

Lines ToLines(const CStringArray& a) {
  Lines out;
  for (const CString& s : a.items()) out.push_back(s.str());
  return out;
}

CStringArray Array(const Lines& values) {
  CStringArray a;
  for (const std::string& v : values) a.Add(v.c_str());
  return a;
}

// The row lines a fresh object loads from sheet of book.
Lines LoadLines(const std::string& book, const char* sheet) {
  CSpreadSheet s(book.c_str(), sheet, false);
  CSpreadSheetTestAccess a(s);
  return ToLines(a.rowLines());
}

std::string Q(const Lines& values) {  // a row line in Excel mode
  std::string line;
  for (std::size_t i = 0; i < values.size(); ++i) line += (i ? ",;.?\"" : "\"") + values[i] + "\"";
  return line;
}

int Shell(const std::string& command) { return std::system(command.c_str()); }

class ExcelDriverTest : public testing::Test {
 protected:
  void SetUp() override {
    Odbc();
    book_ = dir_.file("book.xls");
    mark_ = Odbc().TraceEnd();
  }
  Lines Sent() { return Odbc().StatementsSince(&mark_); }

  // Reads back through a fresh object; its own SELECT is kept out of what Sent() reports.
  Lines Load(const std::string& book, const char* sheet) {
    Lines lines = LoadLines(book, sheet);
    mark_ = Odbc().TraceEnd();
    return lines;
  }

  // Each sheet of book as LibreOffice reads it, one CSV per sheet: "<out>/<name>-<sheet>.csv".
  std::string SofficeCsv(const std::string& book, const std::string& sheet) {
    const std::string out = dir_.file("lo");
    const std::string command =
        "HOME='" + dir_.path() + "' soffice -env:UserInstallation=file://" + dir_.path() +
        "/profile --headless --convert-to "
        "'csv:Text - txt - csv (StarCalc):44,34,76,1,,0,false,true,false,false,false,-1' --outdir '" +
        out + "' '" + book + "' > /dev/null 2>&1";
    EXPECT_EQ(Shell(command), 0);
    const std::string stem = book.substr(book.rfind('/') + 1, book.size() - book.rfind('/') - 5);
    std::string csv = testing_support::ReadFile(out + "/" + stem + "-" + sheet + ".csv");
    while (!csv.empty() && (csv.back() == '\n' || csv.back() == '\r')) csv.pop_back();
    return csv;
  }

  testing_support::TempDir dir_;
  std::string book_;
  std::size_t mark_ = 0;
};

TEST_F(ExcelDriverTest, ReadsAWorkbookMadeByXlwt) {
  ASSERT_EQ(Shell("/usr/bin/python3 -c \"import xlwt, sys\n"
                "b = xlwt.Workbook(); s = b.add_sheet('Sheet1')\n"
                "for r, row in enumerate([('Name', 'Qty'), ('apple', 3), ('pear', None), ('x,y', 2.5)]):\n"
                "    for c, v in enumerate(row):\n"
                "        if v is not None: s.write(r, c, v)\n"
                "b.save(sys.argv[1])\" '" + book_ + "'"),
            0);
  CSpreadSheet s(book_.c_str(), "Sheet1", true);
  CSpreadSheetTestAccess a(s);
  EXPECT_EQ(a.excelDriver(), kDriver);
  EXPECT_EQ(Sent(), Lines{"SELECT * FROM [Sheet1$A1:IV65536]"});
  EXPECT_EQ(ToLines(a.rowLines()),
            (Lines{Q({"Name", "Qty"}), Q({"apple", "3"}), Q({"pear", ""}), Q({"x,y", "2.5"})}));
  EXPECT_EQ(a.rowLines()[0].GetLength(), 15);
  EXPECT_EQ(s.GetTotalRows(), 4);
  EXPECT_EQ(s.GetTotalColumns(), 2);
  EXPECT_EQ(s.GetCurrentRow(), 1);
  EXPECT_EQ(s.GetLastError(), "");

  // A missing sheet of the same workbook: the constructor completes, nothing to say.
  CSpreadSheet missing(book_.c_str(), "NoSuchSheet", false);
  EXPECT_EQ(missing.GetLastError(), "");
  EXPECT_EQ(missing.GetTotalRows(), 0);
}

TEST_F(ExcelDriverTest, ReadsAWorkbookMadeByLibreOffice) {
  testing_support::WriteFile(dir_.file("lo.csv"), "Name,Qty\napple,3\npear,\n\"x,y\",2.5\n");
  ASSERT_EQ(Shell("cd '" + dir_.path() + "' && HOME='" + dir_.path() +
                "' soffice -env:UserInstallation=file://" + dir_.path() +
                "/profile --headless --convert-to xls lo.csv > /dev/null 2>&1"),
            0);
  // LibreOffice names the sheet after the file.
  EXPECT_EQ(Load(dir_.file("lo.xls"), "lo"),
            (Lines{Q({"Name", "Qty"}), Q({"apple", "3"}), Q({"pear", ""}), Q({"x,y", "2.5"})}));
}

TEST_F(ExcelDriverTest, WholeSheetCommitWritesWhatItsNumberingGives) {
  CSpreadSheet s(book_.c_str(), "Sheet1", false);
  Sent();
  s.BeginTransaction();
  CStringArray header = Array({"Name", "Qty"});
  CStringArray r2 = Array({"r2", "2"}), r3 = Array({"r3", "3"}), r4 = Array({"r4", "4"});
  s.AddHeaders(header);
  s.AddRow(r2);
  s.AddRow(r3);
  s.AddRow(r4);
  EXPECT_TRUE(s.Commit());
  EXPECT_EQ(Sent(), (Lines{"CREATE TABLE [Sheet1] ([Name] char(255), [Qty] char(255))",
                           "INSERT INTO [Sheet1$A4:X4] VALUES ('r3', '3')",
                           "INSERT INTO [Sheet1$A5:X5] VALUES ('r4', '4')",
                           "INSERT INTO [Sheet1$A6:X6] VALUES ('r4', '4')"}));
  EXPECT_EQ(s.GetLastError(), "Desired row is greater than total number of rows in spreadsheet\n");
  // Row 2 never reaches the workbook; the last row does twice.
  EXPECT_EQ(Load(book_, "Sheet1"),
            (Lines{Q({"Name", "Qty"}), Q({"r3", "3"}), Q({"r4", "4"}), Q({"r4", "4"})}));

  // The sheet is there now: the next commit declares it from row 4 and appends again.
  EXPECT_TRUE(s.Commit());
  EXPECT_EQ(Sent()[0], "CREATE TABLE [Sheet1$A4:IV65536] ([Name] char(255), [Qty] char(255))");
  EXPECT_EQ(Load(book_, "Sheet1").size(), 7u);

  // ReplaceRows: one UPDATE (the last old value unused), then a reload.
  CStringArray newRow = Array({"r9", "9"});
  CStringArray oldRow = Array({"r3", "3", "unused"});
  EXPECT_TRUE(s.ReplaceRows(newRow, oldRow));
  EXPECT_EQ(Sent(), (Lines{"UPDATE [Sheet1] SET [Name]='r9', [Qty]='9' WHERE ([Name]='r3' AND [Qty]='3' )",
                           "SELECT * FROM [Sheet1$A1:IV65536]"}));
  EXPECT_EQ(Load(book_, "Sheet1")[1], Q({"r9", "9"}));
  CStringArray one = Array({"r9"});
  EXPECT_FALSE(s.ReplaceRows(newRow, one));
  EXPECT_EQ(Sent(), Lines{"UPDATE [Sheet1] SET [Name]='r9', [Qty]='9' WHE)"});
  EXPECT_NE(s.GetLastError().Find("[Excel Workbook Driver]"), -1) << s.GetLastError().str();

  // DROP clears the region; a fresh object then finds no columns.
  EXPECT_TRUE(s.DeleteSheet());
  EXPECT_EQ(Sent(), Lines{"DROP TABLE [Sheet1$A1:IV65536]"});
  CSpreadSheet after(book_.c_str(), "Sheet1", false);
  EXPECT_EQ(after.GetTotalColumns(), 0);
  EXPECT_EQ(after.GetTotalRows(), 0);
}

TEST_F(ExcelDriverTest, SingleRowCommitAndConvertBothWays) {
  // A text file with a duplicate header: the workbook's columns become 1, 2, 3 and the
  // old header its first row; each row goes in through the single-row commit, unquoted.
  const std::string text = dir_.file("list.txt");
  testing_support::WriteFile(text, "a,b,a\r\n1,2,3\r\n");
  CSpreadSheet list(text.c_str(), ",", false);
  Sent();
  EXPECT_TRUE(list.Convert("Dup"));
  EXPECT_EQ(list.GetLastError(), "Duplicate header row field:a\n");
  EXPECT_EQ(Sent(), (Lines{"SELECT * FROM [Dup$A1:IV65536]",
                           "CREATE TABLE [Dup] ([1] char(255), [2] char(255), [3] char(255))",
                           "INSERT INTO [Dup$A2:IV1] VALUES (a, b, a)",
                           "CREATE TABLE [Dup$A2:IV65536] ([1] char(255), [2] char(255), [3] char(255))",
                           "INSERT INTO [Dup$A3:IV1] VALUES (1, 2, 3)"}));
  const std::string book = dir_.file("list.xls");
  EXPECT_EQ(Load(book, "Dup"), (Lines{Q({"1", "2", "3"}), Q({"a", "b", "a"}), Q({"1", "2", "3"})}));

  // Back to text: header and rows, each value quoted, CRLF after every line.
  CSpreadSheet dup(book.c_str(), "Dup", false);
  EXPECT_TRUE(dup.Convert(";"));
  EXPECT_EQ(testing_support::ReadFile(dir_.file("list.csv")),
            "\"1\";\"2\";\"3\"\r\n\"a\";\"b\";\"a\"\r\n\"1\";\"2\";\"3\"\r\n");

  // A value with a space reaches the driver bare and is refused; the row is lost and
  // AddRow still answers true.
  CSpreadSheet s(book.c_str(), "Dup", false);
  CStringArray spaced = Array({"x y", "2", "3"});
  EXPECT_TRUE(s.AddRow(spaced, 4));
  EXPECT_EQ(Sent().back(), "INSERT INTO [Dup$A4:IV1] VALUES (x y, 2, 3)");
  EXPECT_NE(s.GetLastError().Find("[Excel Workbook Driver]"), -1) << s.GetLastError().str();

  // LibreOffice reads the sheet the class wrote.
  EXPECT_EQ(SofficeCsv(book, "Dup"), "1,2,3\na,b,a\n1,2,3");
}

}  // namespace
