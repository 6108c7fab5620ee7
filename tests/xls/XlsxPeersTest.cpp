// Independent writers and readers of .xlsx, run at test time: openpyxl (python3-openpyxl),
// SheetJS (npm "xlsx" under node, installed into the build folder by the first test that
// needs it), libxlsxwriter (a fixture program built with the tests) and LibreOffice headless. Files
// they write must read cell by cell as they meant; files we write must show them our values and
// formats.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "tests/support/TempDir.h"
#include "tests/xls/PeerTools.h"
#include "xls/Xls.h"

namespace xls {
namespace {

using testing_support::TempDir;

using xls_test::Shell;
using xls_test::Soffice;

std::string Source(const std::string& file) { return xls_test::SourceDir() + "/tests/xls/" + file; }

// A peer's dump: "SHEET!REF" -> the tab-separated fields after it.
std::map<std::string, std::vector<std::string>> ParseDump(const std::string& text) {
  std::map<std::string, std::vector<std::string>> cells;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    std::vector<std::string> fields;
    std::istringstream in(line);
    for (std::string f; std::getline(in, f, '\t');) fields.push_back(f);
    if (fields.size() < 2) continue;
    std::string key = fields[0];
    fields.erase(fields.begin());
    cells[key] = fields;
  }
  return cells;
}

using Fields = std::vector<std::string>;

// What every peer is given to open: each value kind, bold, number formats (built-in and
// custom), dates with and without a format of their own, a column width, two sheets.
Workbook Ours() {
  Workbook wb;
  Style bold;
  bold.bold = true;
  Style money;
  money.numberFormat = "#,##0.00";
  Style day;
  day.numberFormat = "yyyy-mm-dd";
  Style percent;
  percent.numberFormat = "0.0%";
  Sheet& s = wb.addSheet("Main");
  const std::uint16_t b = wb.addStyle(bold);
  s.set(0, 0, Cell::Text("name", b));
  s.set(0, 1, Cell::Text("amount", b));
  s.set(0, 2, Cell::Text("day", b));
  s.set(1, 0, Cell::Text("Zoë & <co>"));
  s.set(1, 1, Cell::Number(1234.5, wb.addStyle(money)));
  s.set(1, 2, Cell::DateTime(45351, wb.addStyle(day)));
  s.set(2, 0, Cell::Text("  spaced"));
  s.set(2, 1, Cell::Number(-0.25, wb.addStyle(percent)));
  s.set(2, 2, Cell::DateTime(45351.5));
  s.set(3, 0, Cell::Boolean(true));
  s.set(3, 1, Cell::Error(0x07));
  s.setColumnWidth(0, 30 * 256);
  Sheet& z = wb.addSheet("Zweite");
  z.set(0, 0, Cell::Number(42));
  z.set(4, 1, Cell::Text("far"));
  return wb;
}

TEST(XlsxOpenpyxl, ReadsWhatOpenpyxlWrote) {
  TempDir dir;
  const std::string path = dir.file("openpyxl.xlsx");
  int status = 0;
  Shell("/usr/bin/python3 " + Source("xlsx_openpyxl.py") + " write " + path, &status);
  ASSERT_EQ(status, 0) << "python3-openpyxl is needed (scripts/packages/xls.txt)";
  Workbook wb;
  Status st = ReadWorkbook(path, &wb);
  ASSERT_TRUE(st.ok()) << st.ToString();
  ASSERT_EQ(wb.sheets().size(), 2u);
  const Sheet& s = wb.sheets()[0];
  EXPECT_EQ(s.name(), "Data");
  for (int c = 0; c < 5; ++c) EXPECT_TRUE(wb.styles()[s.at(0, c).style].bold) << c;
  EXPECT_EQ(s.at(1, 0).text, "Zoë");
  EXPECT_EQ(s.at(1, 1).number, 3);
  EXPECT_EQ(s.at(1, 2).number, -2.5);
  EXPECT_EQ(wb.styles()[s.at(1, 2).style].numberFormat, "0.000");
  EXPECT_EQ(s.at(1, 3).type, CellType::kDateTime);
  EXPECT_DOUBLE_EQ(s.at(1, 3).number, 45351 + (13 * 60 + 45) / 1440.0);
  EXPECT_EQ(s.at(1, 4).type, CellType::kBoolean);
  EXPECT_EQ(s.at(1, 4).number, 1);
  EXPECT_EQ(s.at(2, 0).text, "x & <y>");
  EXPECT_EQ(wb.styles()[s.at(2, 0).style].horizontal, HAlign::kRight);
  EXPECT_EQ(wb.styles()[s.at(2, 0).style].vertical, VAlign::kTop);
  EXPECT_EQ(s.at(2, 1).number, 1234567890123.0);
  EXPECT_EQ(wb.styles()[s.at(2, 1).style].left, Border::kThin);
  EXPECT_EQ(wb.styles()[s.at(2, 1).style].bottom, Border::kThick);
  EXPECT_EQ(s.at(2, 2).number, 0.1);
  EXPECT_EQ(s.at(2, 3).type, CellType::kDateTime);
  EXPECT_EQ(s.at(2, 3).number, 36525);
  EXPECT_EQ(s.at(2, 4).type, CellType::kBoolean);
  EXPECT_EQ(s.at(2, 4).number, 0);
  EXPECT_TRUE(s.at(3, 4).isEmpty());  // a formula never calculated
  EXPECT_EQ(s.at(4, 0).type, CellType::kError);
  EXPECT_EQ(s.at(4, 0).number, 0x2A);
  EXPECT_EQ(s.columnWidth(0), 25 * 256);
  const Sheet& z = wb.sheets()[1];
  EXPECT_EQ(z.name(), "Zweite Seite");
  EXPECT_EQ(z.at(1, 1).text, "second sheet");
  EXPECT_EQ(z.at(kXlsxMaxRows - 1, kXlsxMaxColumns - 1).number, 42);
}

TEST(XlsxOpenpyxl, OpensOursWithValuesAndStyles) {
  TempDir dir;
  const std::string path = dir.file("ours.xlsx");
  ASSERT_TRUE(WriteWorkbook(path, Ours()).ok());
  int status = 0;
  auto cells =
      ParseDump(Shell("/usr/bin/python3 " + Source("xlsx_openpyxl.py") + " dump " + path, &status));
  ASSERT_EQ(status, 0);
  // type, value, bold, number format, as openpyxl reports them
  const std::map<std::string, Fields> expected = {
      {"Main!A1", {"s", "'name'", "1", "General"}},
      {"Main!C1", {"s", "'day'", "1", "General"}},
      {"Main!A2", {"s", "'Zoë & <co>'", "0", "General"}},
      {"Main!B2", {"n", "1234.5", "0", "#,##0.00"}},
      {"Main!C2", {"d", "2024-02-29T00:00:00", "0", "yyyy-mm-dd"}},
      {"Main!A3", {"s", "'  spaced'", "0", "General"}},
      {"Main!B3", {"n", "-0.25", "0", "0.0%"}},
      {"Main!C3", {"d", "2024-02-29T12:00:00", "0", "yyyy-mm-dd hh:mm:ss"}},
      {"Main!A4", {"b", "True", "0", "General"}},
      {"Main!B4", {"e", "'#DIV/0!'", "0", "General"}},
      {"Main!A", {"width", "30"}},
      {"Zweite!A1", {"n", "42", "0", "General"}},
      {"Zweite!B5", {"s", "'far'", "0", "General"}},
  };
  for (const auto& [ref, fields] : expected) EXPECT_EQ(cells[ref], fields) << ref;
}

// SheetJS, installed once into the build folder; empty when it cannot be had.
std::string SheetJsModules() {
  const std::string prefix = XLSX_NPM_PREFIX;
  const std::string modules = prefix + "/node_modules";
  int status = 0;
  Shell("test -f " + modules + "/xlsx/package.json", &status);
  if (status == 0) return modules;
  Shell(
      "command -v node >/dev/null && command -v npm >/dev/null && npm install --no-audit "
      "--no-fund --prefix '" +
          prefix + "' xlsx > '" + prefix + ".log' 2>&1",
      &status);
  return status == 0 ? modules : "";
}

TEST(XlsxSheetJs, BothWays) {
  const std::string modules = SheetJsModules();
  if (modules.empty())
    GTEST_SKIP() << "SheetJS not available: node and npm with the npm registry are needed";
  TempDir dir;
  const std::string theirs = dir.file("sheetjs.xlsx");
  const std::string script = "node " + Source("xlsx_sheetjs.js") + " " + modules;
  int status = 0;
  Shell(script + " write " + theirs, &status);
  ASSERT_EQ(status, 0);
  Workbook wb;
  Status st = ReadWorkbook(theirs, &wb);
  ASSERT_TRUE(st.ok()) << st.ToString();
  EXPECT_EQ(
      xls_test::Dump(wb),
      "sheet Tabelle\n0 0 text label\n0 1 text amount\n0 2 text day\n1 0 text Ünïcode ☃\n"
      "1 1 number 12.75\n1 2 date 44381\n"  // 2021-07-04
      "2 0 text negative\n2 1 number -3\n2 2 bool 1\nsheet Zwei\n0 0 number 1\n1 0 number 2\n");
  const Sheet& s = wb.sheets().at(0);
  EXPECT_EQ(wb.styles()[s.at(1, 1).style].numberFormat, "#,##0.00");
  EXPECT_GE(s.columnWidth(0), 30 * 256);
  EXPECT_LE(s.columnWidth(0), 32 * 256);

  const std::string ours = dir.file("ours.xlsx");
  ASSERT_TRUE(WriteWorkbook(ours, Ours()).ok());
  auto cells = ParseDump(Shell(script + " dump " + ours, &status));
  ASSERT_EQ(status, 0);
  // type, value, number format, as SheetJS reports them (dates as serial numbers)
  const std::map<std::string, Fields> expected = {
      {"Main!A1", {"s", "name", "General"}},
      {"Main!A2", {"s", "Zoë & <co>", "General"}},
      {"Main!B2", {"n", "1234.5", "#,##0.00"}},
      {"Main!C2", {"n", "45351", "yyyy-mm-dd"}},
      {"Main!A3", {"s", "  spaced", "General"}},
      {"Main!B3", {"n", "-0.25", "0.0%"}},
      {"Main!C3", {"n", "45351.5", "yyyy-mm-dd hh:mm:ss"}},
      {"Main!A4", {"b", "true", "General"}},
      {"Main!B4", {"e", "7", "General"}},
      {"Zweite!A1", {"n", "42", "General"}},
      {"Zweite!B5", {"s", "far", "General"}},
  };
  for (const auto& [ref, fields] : expected) EXPECT_EQ(cells[ref], fields) << ref;
  ASSERT_EQ(cells["Main!A"].size(), 2u);
  EXPECT_NEAR(std::stod(cells["Main!A"][1]), 30, 1.5);  // SheetJS reports characters less padding
}

TEST(XlsxLibxlsxwriter, ReadsWhatItWroteInBothModes) {
  for (const char* mode : {"", "constant"}) {
    TempDir dir;
    const std::string path = dir.file("lxw.xlsx");
    int status = 0;
    Shell(std::string(XLSXWRITER_FIXTURE) + " " + path + " " + mode, &status);
    ASSERT_EQ(status, 0) << mode;
    Workbook wb;
    Status st = ReadWorkbook(path, &wb);
    ASSERT_TRUE(st.ok()) << mode << ": " << st.ToString();
    EXPECT_EQ(xls_test::Dump(wb),
              "sheet Lxw\n0 0 text head\n0 1 number 2.5\n0 2 date 45351.25\n0 3 bool 1\n"
              "0 4 number 5\n"  // the formula's cached result
              "0 5 text ünï & <x>\n1 1 number -7\nsheet Second\n0 0 number 7\n")
        << mode;
    ASSERT_EQ(wb.sheets().size(), 2u) << mode;
    const Sheet& s = wb.sheets()[0];
    EXPECT_TRUE(wb.styles()[s.at(0, 0).style].bold) << mode;
    EXPECT_EQ(wb.styles()[s.at(0, 1).style].numberFormat, "0.00") << mode;
    EXPECT_EQ(wb.styles()[s.at(0, 2).style].numberFormat, "yyyy-mm-dd hh:mm") << mode;
    const Style& boxed = wb.styles()[s.at(1, 1).style];
    EXPECT_EQ(boxed.horizontal, HAlign::kCenter) << mode;
    EXPECT_EQ(boxed.left, Border::kThin) << mode;
    EXPECT_EQ(boxed.bottom, Border::kThin) << mode;
    EXPECT_NEAR(s.columnWidth(0), 18.71 * 256, 256) << mode;  // 18 characters and padding
  }
}

TEST(XlsxLibreOffice, BothWays) {
  TempDir dir;
  testing_support::WriteFile(dir.file("in.csv"),
                             "text,42,3.5,2024-02-29,-0.001\n"
                             "\"a, b\",,x,2024-02-29 13:45:00,1E+300\n");
  // CSV options: comma, double quote, UTF-8, from line 1, en-US, detect dates and numbers.
  ASSERT_EQ(Soffice(dir,
                    "--infilter=\"CSV:44,34,76,1,,1033,false,true\" --convert-to "
                    "xlsx:\"Calc Office Open XML\" in.csv"),
            0);
  Workbook wb;
  Status st = ReadWorkbook(dir.file("in.xlsx"), &wb);
  ASSERT_TRUE(st.ok()) << st.ToString();
  const Sheet& s = wb.sheets()[0];
  EXPECT_EQ(s.at(0, 0).text, "text");
  EXPECT_EQ(s.at(0, 1).number, 42);
  EXPECT_EQ(s.at(0, 2).number, 3.5);
  EXPECT_EQ(s.at(0, 3).type, CellType::kDateTime);
  EXPECT_EQ(s.at(0, 3).number, 45351);
  EXPECT_EQ(s.at(0, 4).number, -0.001);
  EXPECT_EQ(s.at(1, 0).text, "a, b");
  EXPECT_TRUE(s.at(1, 1).isEmpty());
  EXPECT_EQ(s.at(1, 3).type, CellType::kDateTime);
  EXPECT_NEAR(s.at(1, 3).number, 45351 + (13 * 60 + 45) / 1440.0, 1e-9);  // 15 digits written
  EXPECT_EQ(s.at(1, 4).number, 1e300);

  ASSERT_TRUE(WriteWorkbook(dir.file("ours.xlsx"), Ours()).ok());
  // Every sheet to its own CSV (ours-Main.csv, ours-Zweite.csv), cells as shown.
  ASSERT_EQ(Soffice(dir,
                    "--convert-to csv:\"Text - txt - csv (StarCalc)\":44,34,76,1,,1033,"
                    "false,true,true,false,false,-1 ours.xlsx"),
            0);
  EXPECT_EQ(testing_support::ReadFile(dir.file("ours-Main.csv")),
            "name,amount,day\n"
            "Zoë & <co>,\"1,234.50\",2024-02-29\n"
            "  spaced,-25.0%,2024-02-29 12:00:00\n"
            "TRUE,#DIV/0!,\n");
  EXPECT_EQ(testing_support::ReadFile(dir.file("ours-Zweite.csv")), "42,\n,\n,\n,\n,far\n");
}

}  // namespace
}  // namespace xls
