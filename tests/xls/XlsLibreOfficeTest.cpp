// LibreOffice as the independent party, run headless at test time: it writes a workbook from
// a flat ODS document this test writes, our reader must get every value; and it converts our
// writer's workbook to CSV, which must hold what we wrote. Each test starts soffice once.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

#include "tests/support/TempDir.h"
#include "tests/xls/PeerTools.h"
#include "xls/Xls.h"

namespace xls {
namespace {

using testing_support::TempDir;

using testing_support::ReadFile;
using xls_test::Soffice;

std::string Cells(const std::vector<std::string>& cells) {
  std::string row = "<table:table-row>";
  for (const auto& c : cells) row += c;
  return row + "</table:table-row>\n";
}
std::string Float(const std::string& v) {
  return "<table:table-cell office:value-type=\"float\" office:value=\"" + v + "\"/>";
}
std::string Text(const std::string& t) {
  return "<table:table-cell office:value-type=\"string\"><text:p>" + t +
         "</text:p></table:table-cell>";
}
const char* const kEmpty = "<table:table-cell/>";

std::string SharedText(int i) {
  char buf[64];
  std::snprintf(buf, sizeof buf, "shared string %04d – ünïcode", i);
  return buf;
}

// Three sheets: values of every kind with empty cells between them, 1,200 distinct strings
// (about 36 KB of shared strings, several CONTINUE records), and a sheet with a non-ASCII name.
std::string FlatOds() {
  std::string x =
      "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
      "<office:document xmlns:office=\"urn:oasis:names:tc:opendocument:xmlns:office:1.0\""
      " xmlns:table=\"urn:oasis:names:tc:opendocument:xmlns:table:1.0\""
      " xmlns:text=\"urn:oasis:names:tc:opendocument:xmlns:text:1.0\""
      " xmlns:style=\"urn:oasis:names:tc:opendocument:xmlns:style:1.0\""
      " xmlns:number=\"urn:oasis:names:tc:opendocument:xmlns:datastyle:1.0\""
      " xmlns:of=\"urn:oasis:names:tc:opendocument:xmlns:of:1.2\" office:version=\"1.2\""
      " office:mimetype=\"application/vnd.oasis.opendocument.spreadsheet\">\n"
      "<office:automatic-styles>\n"
      "<number:date-style style:name=\"N1\"><number:year number:style=\"long\"/>"
      "<number:text>-</number:text><number:month number:style=\"long\"/><number:text>-"
      "</number:text><number:day number:style=\"long\"/></number:date-style>\n"
      "<number:date-style style:name=\"N2\"><number:year number:style=\"long\"/>"
      "<number:text>-</number:text><number:month number:style=\"long\"/><number:text>-"
      "</number:text><number:day number:style=\"long\"/><number:text> </number:text>"
      "<number:hours number:style=\"long\"/><number:text>:</number:text>"
      "<number:minutes number:style=\"long\"/></number:date-style>\n"
      "<number:boolean-style style:name=\"N3\"><number:boolean/></number:boolean-style>\n"
      "<style:style style:name=\"ce1\" style:family=\"table-cell\" style:data-style-name=\"N1\"/>\n"
      "<style:style style:name=\"ce2\" style:family=\"table-cell\" style:data-style-name=\"N2\"/>\n"
      "<style:style style:name=\"ce3\" style:family=\"table-cell\" style:data-style-name=\"N3\"/>\n"
      "</office:automatic-styles>\n"
      "<office:body><office:spreadsheet>\n<table:table table:name=\"Values\">\n";
  x +=
      Cells({Float("42.25"), Float("-1e-7"), Float("123456789012"), kEmpty, Text("Zoë ünïcode €")});
  x +=
      Cells({"<table:table-cell table:style-name=\"ce1\" office:value-type=\"date\""
             " office:date-value=\"2024-02-29\"/>",
             "<table:table-cell table:style-name=\"ce2\" office:value-type=\"date\""
             " office:date-value=\"1999-12-31T18:30:00\"/>",
             "<table:table-cell table:style-name=\"ce3\" office:value-type=\"boolean\""
             " office:boolean-value=\"true\"/>",
             "<table:table-cell table:style-name=\"ce3\" office:value-type=\"boolean\""
             " office:boolean-value=\"false\"/>"});
  x += "<table:table-row table:number-rows-repeated=\"2\"><table:table-cell/></table:table-row>\n";
  x +=
      Cells({"<table:table-cell table:formula=\"of:=[.A1]*2\" office:value-type=\"float\""
             " office:value=\"84.5\"/>",
             "<table:table-cell table:formula=\"of:=&quot;abc&quot;&amp;&quot;déf&quot;\""
             " office:value-type=\"string\"><text:p>abcdéf</text:p></table:table-cell>",
             "<table:table-cell table:formula=\"of:=1&lt;2\" office:value-type=\"boolean\""
             " office:boolean-value=\"true\"/>",
             "<table:table-cell table:formula=\"of:=1/0\"/>",
             "<table:table-cell table:formula=\"of:=[.E1]\" office:value-type=\"string\">"
             "<text:p>Zoë ünïcode €</text:p></table:table-cell>"});
  x += "</table:table>\n<table:table table:name=\"Strings\">\n";
  for (int r = 0; r < 1200; ++r) x += Cells({Text(SharedText(r)), Float(std::to_string(r))});
  x += "</table:table>\n<table:table table:name=\"Ünïcode sheet\">\n";
  x += Cells({kEmpty, Text("日本語 and 😀")});
  x += "</table:table>\n</office:spreadsheet></office:body></office:document>\n";
  return x;
}

TEST(XlsLibreOffice, ReadsEveryValueLibreOfficeWrites) {
  TempDir dir;
  std::ofstream(dir.file("lo.fods"), std::ios::binary) << FlatOds();
  ASSERT_EQ(
      Soffice(dir, "--convert-to xls --outdir '" + dir.path() + "' '" + dir.file("lo.fods") + "'"),
      0);
  Workbook wb;
  Status s = ReadWorkbook(dir.file("lo.xls"), &wb);
  ASSERT_TRUE(s.ok()) << s.ToString();
  // Every cell of the three sheets, its kind and exact value; the formulas' cached results
  // in row 5, #DIV/0! among them.
  std::string expected = "sheet Values\n0 0 number 42.25\n0 1 number " + xls_test::Exact(-1e-7) +
                         "\n0 2 number 123456789012\n0 4 text Zoë ünïcode €\n"
                         "1 0 date 45351\n"  // 2024-02-29
                         "1 1 date " +
                         xls_test::Exact(36525 + 18.5 / 24) +  // 1999-12-31 18:30
                         "\n1 2 bool 1\n1 3 bool 0\n4 0 number 84.5\n4 1 text abcdéf\n"
                         "4 2 bool 1\n4 3 error 7\n4 4 text Zoë ünïcode €\nsheet Strings\n";
  for (int r = 0; r < 1200; ++r) {
    expected += std::to_string(r) + " 0 text " + SharedText(r) + "\n" + std::to_string(r) +
                " 1 number " + std::to_string(r) + "\n";
  }
  expected += "sheet Ünïcode sheet\n0 1 text 日本語 and 😀\n";
  EXPECT_EQ(xls_test::Dump(wb), expected);
  EXPECT_EQ(wb.sheets().at(0).usedRows(), 5);
  EXPECT_EQ(wb.sheets().at(0).usedColumns(), 5);
}

// LibreOffice's CSV export of every sheet (the trailing -1), cells as shown.
const char* const kCsvEverySheet =
    "'csv:Text - txt - csv (StarCalc):44,34,76,1,,0,false,true,false,false,false,-1'";

TEST(XlsLibreOffice, ConvertsOurWorkbookToTheExpectedCsv) {
  Workbook wb;
  Style date;
  date.numberFormat = "yyyy-mm-dd";
  const std::uint16_t dateStyle = wb.addStyle(date);
  Style bold;
  bold.bold = true;
  bold.bottom = Border::kMedium;
  const std::uint16_t boldStyle = wb.addStyle(bold);
  Sheet& data = wb.addSheet("Data");
  data.set(0, 0, Cell::Text("Name", boldStyle));
  data.set(0, 1, Cell::Text("Amount", boldStyle));
  data.set(0, 2, Cell::Text("When", boldStyle));
  data.set(1, 0, Cell::Text("Zoë, \"quoted\" €"));
  data.set(1, 1, Cell::Number(12.5));
  data.set(1, 2, Cell::DateTime(45000, dateStyle));
  data.set(2, 0, Cell::Text("日本語 and 😀"));
  data.set(2, 1, Cell::Number(-3));
  data.set(3, 0, Cell::Boolean(true));
  data.set(3, 1, Cell::Error(0x07));
  data.mutableAt(3, 2).style = boldStyle;  // formatted, empty
  Sheet& many = wb.addSheet("Many strings");
  std::string expectedMany;
  for (int r = 0; r < 1200; ++r) {
    many.set(r, 0, Cell::Text(SharedText(r)));
    many.set(r, 1, Cell::Number(r));
    expectedMany += SharedText(r) + "," + std::to_string(r) + "\n";
  }
  TempDir dir;
  ASSERT_TRUE(WriteWorkbook(dir.file("ours.xls"), wb).ok());
  ASSERT_EQ(Soffice(dir, std::string("--convert-to ") + kCsvEverySheet + " --outdir '" +
                             dir.path() + "' '" + dir.file("ours.xls") + "'"),
            0);
  EXPECT_EQ(ReadFile(dir.file("ours-Data.csv")),
            "Name,Amount,When\n"
            "\"Zoë, \"\"quoted\"\" €\",12.5,2023-03-15\n"
            "日本語 and 😀,-3,\n"
            "1,#DIV/0!,\n");  // a boolean in a General cell shows as 1, as xlwt's do
  EXPECT_EQ(ReadFile(dir.file("ours-Many strings.csv")), expectedMany);
}

}  // namespace
}  // namespace xls
