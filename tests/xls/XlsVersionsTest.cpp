// Workbooks of every BIFF version, made at test time by independent writers (SheetJS for
// Excel 2, 3, 4, 5 and 97; gnumeric's ssconvert for Excel 95 and 97; LibreOffice for Excel
// 97 with defined names), each read cell by cell and compared with what python3-xlrd reads
// from the same file (tests/xls/xlrd_cells.py prints both sides' form).
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "tests/support/TempDir.h"
#include "tests/xls/PeerTools.h"
#include "xls/Xls.h"

namespace xls {
namespace {

using testing_support::TempDir;
using xls_test::Dump;
using xls_test::Shell;
using xls_test::SourceDir;

struct Xlrd {
  std::string version;  // "biff 80"
  std::string cells;    // the rest
};
Xlrd ReadWithXlrd(const std::string& path) {
  const std::string out = xls_test::XlrdCells(path);
  const std::size_t eol = out.find('\n');
  if (eol == std::string::npos) return {out, ""};
  return {out.substr(0, eol), out.substr(eol + 1)};
}

// Drops the line of one cell ("<row> <column> ...") in the sheet section `sheet`.
std::string WithoutCell(const std::string& dump, const std::string& sheet, int row, int column) {
  std::istringstream in(dump);
  std::string line, out, current;
  const std::string prefix = std::to_string(row) + " " + std::to_string(column) + " ";
  while (std::getline(in, line)) {
    if (line.rfind("sheet ", 0) == 0) current = line.substr(6);
    if (current == sheet && line.rfind(prefix, 0) == 0) continue;
    out += line + "\n";
  }
  return out;
}

void ExpectReadAsXlrd(const std::string& path, const std::string& version) {
  SCOPED_TRACE(path);
  Workbook wb;
  Status s = ReadWorkbook(path, &wb);
  ASSERT_TRUE(s.ok()) << s.ToString();
  const Xlrd xlrd = ReadWithXlrd(path);
  EXPECT_EQ(xlrd.version, version);  // the writer made the version this case is about
  EXPECT_EQ(Dump(wb), xlrd.cells);
}

TEST(XlsVersions, EveryVersionSheetJsWritesReadsAsXlrdReadsIt) {
  const std::string modules = std::filesystem::absolute("npm/node_modules").string();
  if (!std::filesystem::exists(modules + "/xlsx")) {
    GTEST_SKIP() << "SheetJS (npm package xlsx) is not installed in the build folder: the "
                    "xls_sheetjs_setup test installs it with npm, which needs the npm registry";
  }
  TempDir dir;
  Shell("node '" + SourceDir() + "/tests/xls/make_sheetjs_fixtures.js' '" + modules + "' '" +
        dir.path() + "'");
  const std::pair<const char*, const char*> files[] = {{"biff2.xls", "biff 20"},
                                                       {"biff3.xls", "biff 30"},
                                                       {"biff4.xls", "biff 40"},
                                                       {"biff5.xls", "biff 70"},
                                                       {"biff8.xls", "biff 80"}};
  for (const auto& [file, version] : files) ExpectReadAsXlrd(dir.file(file), version);
}

TEST(XlsVersions, Excel95AndExcel97FromGnumericReadAsXlrdReadsThem) {
  TempDir dir;
  std::ofstream(dir.file("in.csv"), std::ios::binary) << "Name,Amount,When,Flag\n"
                                                         "Zoë €,12.5,2024-02-29,TRUE\n"
                                                         "plain,=B2*2,1999-12-31 18:30,FALSE\n"
                                                         "\"=\"\"ab\"\"&\"\"ç\"\"\",-0.001,,\n";
  for (const char* type : {"excel_biff7", "excel_biff8"}) {
    Shell("ssconvert --export-type=Gnumeric_Excel:" + std::string(type) + " '" +
          dir.file("in.csv") + "' '" + dir.file(std::string(type) + ".xls") + "' 2>/dev/null");
  }
  ExpectReadAsXlrd(dir.file("excel_biff7.xls"), "biff 50");
  ExpectReadAsXlrd(dir.file("excel_biff8.xls"), "biff 80");
  Workbook wb;
  ASSERT_TRUE(ReadWorkbook(dir.file("excel_biff7.xls"), &wb).ok());
  EXPECT_EQ(wb.sheets()[0].at(3, 0).text, "abç");  // a formula's text result, cp1252
}

// A flat ODS document: a formula with a text result, an elapsed time, and defined names of
// workbook and sheet scope.
const char* const kNamesOds =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
    "<office:document xmlns:office=\"urn:oasis:names:tc:opendocument:xmlns:office:1.0\""
    " xmlns:table=\"urn:oasis:names:tc:opendocument:xmlns:table:1.0\""
    " xmlns:text=\"urn:oasis:names:tc:opendocument:xmlns:text:1.0\""
    " xmlns:style=\"urn:oasis:names:tc:opendocument:xmlns:style:1.0\""
    " xmlns:number=\"urn:oasis:names:tc:opendocument:xmlns:datastyle:1.0\""
    " xmlns:of=\"urn:oasis:names:tc:opendocument:xmlns:of:1.2\" office:version=\"1.2\""
    " office:mimetype=\"application/vnd.oasis.opendocument.spreadsheet\">\n"
    "<office:automatic-styles><number:time-style style:name=\"N1\""
    " number:truncate-on-overflow=\"false\"><number:hours/><number:text>:</number:text>"
    "<number:minutes number:style=\"long\"/></number:time-style>\n"
    "<style:style style:name=\"ce1\" style:family=\"table-cell\" style:data-style-name=\"N1\"/>"
    "</office:automatic-styles>\n<office:body><office:spreadsheet>\n"
    "<table:table table:name=\"Data\"><table:table-row>"
    "<table:table-cell office:value-type=\"string\"><text:p>Name</text:p></table:table-cell>"
    "<table:table-cell office:value-type=\"string\"><text:p>Zoë €</text:p></table:table-cell>"
    "</table:table-row><table:table-row>"
    "<table:table-cell office:value-type=\"float\" office:value=\"1.5\"/>"
    "<table:table-cell table:formula=\"of:=&quot;ab&quot;&amp;&quot;ç&quot;\""
    " office:value-type=\"string\"><text:p>abç</text:p></table:table-cell></table:table-row>"
    "<table:table-row><table:table-cell table:style-name=\"ce1\" office:value-type=\"time\""
    " office:time-value=\"PT36H00M00S\"/></table:table-row>\n"
    "<table:named-expressions><table:named-range table:name=\"Local\""
    " table:base-cell-address=\"$Data.$A$1\" table:cell-range-address=\"$Data.$B$1:.$B$2\"/>"
    "</table:named-expressions></table:table>\n"
    "<table:table table:name=\"Other\"><table:table-row>"
    "<table:table-cell office:value-type=\"float\" office:value=\"7\"/></table:table-row>"
    "</table:table>\n<table:named-expressions>"
    "<table:named-range table:name=\"MyRange\" table:base-cell-address=\"$Data.$A$1\""
    " table:cell-range-address=\"$Data.$A$1:.$B$3\"/>"
    "<table:named-range table:name=\"One\" table:base-cell-address=\"$Other.$A$1\""
    " table:cell-range-address=\"$Other.$A$1\"/></table:named-expressions>\n"
    "</office:spreadsheet></office:body></office:document>\n";

TEST(XlsVersions, DefinedNamesAndElapsedTimesInExcel95And97) {
  TempDir dir;
  std::ofstream(dir.file("names.fods"), std::ios::binary) << kNamesOds;
  xls_test::Soffice(dir, "--convert-to 'xls:MS Excel 97' names.fods");
  // gnumeric saves LibreOffice's workbook again as Excel 95 and as Excel 97.
  for (const char* type : {"excel_biff7", "excel_biff8"}) {
    Shell("ssconvert --export-type=Gnumeric_Excel:" + std::string(type) + " '" +
          dir.file("names.xls") + "' '" + dir.file(std::string(type) + ".xls") + "' 2>/dev/null");
  }
  const std::string expected =
      "sheet Data\n0 0 text Name\n0 1 text Zoë €\n1 0 number 1.5\n1 1 text abç\n"
      "2 0 number 36\n"  // 1.5 days under [HH]:MM: the 36 hours Excel shows
      "sheet Other\n0 0 number 7\n"
      "name MyRange -1 0 0 2 0 1\nname One -1 1 0 0 0 0\nname Local 0 0 0 1 1 1\n";
  for (const char* file : {"names.xls", "excel_biff8.xls", "excel_biff7.xls"}) {
    SCOPED_TRACE(file);
    Workbook wb;
    Status s = ReadWorkbook(dir.file(file), &wb);
    ASSERT_TRUE(s.ok()) << s.ToString();
    EXPECT_EQ(Dump(wb), expected);
    const Xlrd xlrd = ReadWithXlrd(dir.file(file));
    // xlrd reads the elapsed time as a date; it cannot read gnumeric's Excel 95 file, whose
    // code page 1200 it takes for UTF-16 throughout.
    if (std::string(file) != "excel_biff7.xls") {
      EXPECT_EQ(WithoutCell(Dump(wb), "Data", 2, 0), WithoutCell(xlrd.cells, "Data", 2, 0));
    }
  }
}

}  // namespace
}  // namespace xls
