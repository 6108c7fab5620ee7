// .xlsx in the codec: our writer's files read back cell for cell, packages written by hand
// in the shapes other writers use (prefixes, inline strings, ISO dates, odd relationship
// targets), the choice of format by content and name, and damaged or hostile files.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/FailNth.h"
#include "tests/support/TempDir.h"
#include "tests/xls/PeerTools.h"
#include "xls/CompoundFile.h"
#include "xls/Xls.h"
#include "xls/Xlsx.h"
#include "xls/XlsxZip.h"

namespace xls {
namespace {

using Parts = std::vector<std::pair<std::string, std::string>>;

std::vector<std::uint8_t> Zip(const Parts& parts, int level = 1) {
  ZipBuilder zip;
  for (const auto& [name, text] : parts) EXPECT_TRUE(zip.Add(name, text, level).ok()) << name;
  std::vector<std::uint8_t> bytes;
  EXPECT_TRUE(zip.Finish(&bytes).ok());
  return bytes;
}

const char kRels[] =
    "<Relationships xmlns=\"http://schemas.openxmlformats.org/package/2006/relationships\">"
    "<Relationship Id=\"rId1\" Type=\"http://schemas.openxmlformats.org/officeDocument/2006/"
    "relationships/officeDocument\" Target=\"xl/workbook.xml\"/></Relationships>";
const char kRelType[] = "http://schemas.openxmlformats.org/officeDocument/2006/relationships/";

std::string BookRels(const std::string& extra) {
  return std::string(
             "<Relationships xmlns=\"http://schemas.openxmlformats.org/package/2006/"
             "relationships\"><Relationship Id=\"rId1\" Type=\"") +
         kRelType + "worksheet\" Target=\"worksheets/sheet1.xml\"/>" + extra + "</Relationships>";
}

const char kBook[] =
    "<workbook xmlns=\"http://schemas.openxmlformats.org/spreadsheetml/2006/main\" "
    "xmlns:r=\"http://schemas.openxmlformats.org/officeDocument/2006/relationships\">"
    "<sheets><sheet name=\"S\" sheetId=\"1\" r:id=\"rId1\"/></sheets></workbook>";

// A one-sheet package around the given sheetData contents.
Parts OneSheet(const std::string& sheetData) {
  return {{"_rels/.rels", kRels},
          {"xl/workbook.xml", kBook},
          {"xl/_rels/workbook.xml.rels", BookRels("")},
          {"xl/worksheets/sheet1.xml",
           "<worksheet xmlns=\"http://schemas.openxmlformats.org/spreadsheetml/2006/main\">"
           "<sheetData>" +
               sheetData + "</sheetData></worksheet>"}};
}

Status Read(const std::vector<std::uint8_t>& bytes, Workbook* wb) {
  return ReadWorkbookFromMemory(bytes.data(), bytes.size(), wb);
}

TEST(XlsxRoundTrip, EveryValueStyleAndSheetComesBack) {
  Workbook wb;
  wb.date1904 = true;
  Style bold;
  bold.bold = true;
  bold.horizontal = HAlign::kCenter;
  bold.vertical = VAlign::kTop;
  bold.left = Border::kThin;
  bold.bottom = Border::kThick;
  Style money;
  money.numberFormat = "#,##0.00 \"€\";[Red]-#,##0.00";
  Style date;
  date.numberFormat = "dd/mm/yyyy hh:mm";
  Style builtin;
  builtin.numberFormat = "0.00%";
  const std::uint16_t b = wb.addStyle(bold), m = wb.addStyle(money), d = wb.addStyle(date),
                      p = wb.addStyle(builtin);
  Sheet& s = wb.addSheet("Données & <co>");
  const std::vector<std::string> texts = {"plain",
                                          "  leading and trailing  ",
                                          "a&b<c>\"d'",
                                          "tab\there\nnew line",
                                          "bell\x07 and escape\x1b",
                                          "_x0041_ stays literal",
                                          "ünïcödé 日本 😀",
                                          ""};
  for (std::size_t i = 0; i < texts.size(); ++i)
    s.set(static_cast<int>(i), 0, Cell::Text(texts[i]));
  s.set(0, 1, Cell::Number(-1234.5678, m));
  s.set(1, 1, Cell::Number(1e300));
  s.set(2, 1, Cell::Number(0.1 + 0.2, p));
  s.set(3, 1, Cell::Boolean(true, b));
  s.set(4, 1, Cell::Boolean(false));
  s.set(5, 1, Cell::Error(0x07));
  s.set(6, 1, Cell::Error(0x2A));
  s.set(0, 2, Cell::DateTime(45000.5, d));
  s.set(1, 2, Cell::DateTime(45001));  // no date format: the writer gives it one
  s.set(2, 2, Cell::DateTime(45001.25));
  s.mutableAt(3, 2).style = b;  // formatted, empty
  s.set(kXlsxMaxRows - 1, kXlsxMaxColumns - 1, Cell::Text("the last cell", b));
  s.setColumnWidth(0, 20 * 256);
  s.setColumnWidth(1, 3000);
  s.setColumnWidth(2, 3000);
  wb.addSheet("Second").set(0, 0, Cell::Text("plain"));  // shares a string with sheet 1
  wb.addSheet("Empty");
  wb.addName(DefinedName{"Totals", -1, false, 0, 0, 2, 1, 1});        // first sheet, B1:B3
  wb.addName(DefinedName{"Print_Area", -1, true, 1, 0, 0, 0, 2});     // Second!A1:C1

  std::vector<std::uint8_t> bytes;
  ASSERT_TRUE(WriteXlsxToMemory(wb, &bytes).ok());
  Workbook back;
  Status st = Read(bytes, &back);
  ASSERT_TRUE(st.ok()) << st.ToString();

  EXPECT_TRUE(back.date1904);
  ASSERT_EQ(back.sheets().size(), 3u);
  EXPECT_EQ(back.sheets()[0].name(), "Données & <co>");
  EXPECT_EQ(back.sheets()[1].name(), "Second");
  EXPECT_EQ(back.sheets()[2].usedRows(), 0);
  EXPECT_EQ(back.sheets()[1].at(0, 0).text, "plain");
  const Sheet& r = back.sheets()[0];
  for (std::size_t i = 0; i < texts.size(); ++i) {
    EXPECT_EQ(r.at(static_cast<int>(i), 0).type, CellType::kText) << i;
    EXPECT_EQ(r.at(static_cast<int>(i), 0).text, texts[i]) << i;
  }
  const std::vector<std::pair<Cell, Style>> expected = {
      {Cell::Number(-1234.5678), money},  {Cell::Number(1e300), Style()},
      {Cell::Number(0.1 + 0.2), builtin}, {Cell::Boolean(true), bold},
      {Cell::Boolean(false), Style()},    {Cell::Error(0x07), Style()},
      {Cell::Error(0x2A), Style()}};
  for (std::size_t i = 0; i < expected.size(); ++i) {
    const Cell& c = r.at(static_cast<int>(i), 1);
    EXPECT_EQ(c.type, expected[i].first.type) << i;
    EXPECT_EQ(c.number, expected[i].first.number) << i;
    EXPECT_EQ(back.styles()[c.style], expected[i].second) << i;
  }
  EXPECT_EQ(r.at(0, 2).type, CellType::kDateTime);
  EXPECT_EQ(r.at(0, 2).number, 45000.5);
  EXPECT_EQ(back.styles()[r.at(0, 2).style].numberFormat, "dd/mm/yyyy hh:mm");
  EXPECT_EQ(r.at(1, 2).type, CellType::kDateTime);
  EXPECT_EQ(back.styles()[r.at(1, 2).style].numberFormat, "yyyy-mm-dd");
  EXPECT_EQ(back.styles()[r.at(2, 2).style].numberFormat, "yyyy-mm-dd hh:mm:ss");
  EXPECT_TRUE(r.at(3, 2).isEmpty());
  EXPECT_EQ(back.styles()[r.at(3, 2).style], bold);
  EXPECT_EQ(r.at(kXlsxMaxRows - 1, kXlsxMaxColumns - 1).text, "the last cell");
  EXPECT_EQ(r.columnWidth(0), 20 * 256);
  EXPECT_EQ(r.columnWidth(1), 3000);
  EXPECT_EQ(r.columnWidth(2), 3000);
  EXPECT_EQ(r.columnWidth(3), 0);
  auto names = [](const Workbook& book) {
    std::vector<std::string> out;
    for (const DefinedName& n : book.names()) {
      out.push_back(n.name + (n.builtin ? "*" : "") + " " + std::to_string(n.sheet) + ":" +
                    std::to_string(n.firstRow) + "," + std::to_string(n.firstColumn) + "-" +
                    std::to_string(n.lastRow) + "," + std::to_string(n.lastColumn));
    }
    return out;
  };
  EXPECT_EQ(names(back), names(wb));
  EXPECT_EQ(names(back), (std::vector<std::string>{"Totals 0:0,1-2,1", "Print_Area* 1:0,0-0,2"}));
}

TEST(XlsxFormatChoice, ReadByContentWriteByExtension) {
  testing_support::TempDir dir;
  Workbook wb;
  wb.addSheet("S").set(0, 0, Cell::Number(7));
  const std::pair<const char*, bool> cases[] = {
      {"a.xlsx", true}, {"b.XLSX", true}, {"c.xlsm", true}, {"d.xls", false}, {"e.bin", false}};
  for (const auto& [name, xlsx] : cases) {
    const std::string path = dir.file(name);
    ASSERT_TRUE(WriteWorkbook(path, wb).ok()) << name;
    const std::string bytes = testing_support::ReadFile(path);
    EXPECT_EQ(bytes.compare(0, 4, "PK\3\4") == 0, xlsx) << name;
    Workbook back;
    ASSERT_TRUE(ReadWorkbook(path, &back).ok()) << name;
    EXPECT_EQ(back.sheets()[0].at(0, 0).number, 7) << name;
  }
  // A password-protected .xlsx is a compound file around the encrypted package.
  std::vector<std::uint8_t> package(4096, 0x5A);
  CompoundFileImage image;
  ASSERT_TRUE(BuildCompoundFile({{"EncryptedPackage", &package}}, 9, &image).ok());
  const std::vector<std::uint8_t> protectedBytes = image.Flatten();
  Workbook none;
  Status e = ReadWorkbookFromMemory(protectedBytes.data(), protectedBytes.size(), &none);
  EXPECT_EQ(e.code(), Status::Code::kUnsupported) << e.ToString();
  EXPECT_NE(e.message().find("Excel 2007+"), std::string::npos) << e.ToString();
  // A sheet past the .xls grid is refused by the .xls writer rather than cut or wrapped.
  Workbook big;
  big.addSheet("S").set(70000, 0, Cell::Number(1));
  Status s = WriteWorkbook(dir.file("big.xls"), big);
  EXPECT_EQ(s.code(), Status::Code::kInvalidArgument) << s.ToString();
  EXPECT_TRUE(WriteWorkbook(dir.file("big.xlsx"), big).ok());
}

// The .xlsx writer goes through the file seam's one replace routine: whichever call fails,
// the path holds the old bytes or a whole new workbook, and no temporary file is left (when
// the calls fail for good, removing it fails too: it is cleared before the next run).
TEST(XlsxFormatChoice, WritesThroughTheAtomicReplace) {
  using testing_support::FailNth;
  testing_support::TempDir dir;
  const std::string path = dir.file("book.xlsx");
  Workbook wb;
  wb.addSheet("S").set(0, 0, Cell::Number(1));
  for (FailNth::Mode mode : {FailNth::kOnce, FailNth::kForGood}) {
    bool completed = false;
    for (int n = 1; !completed; ++n) {
      ASSERT_LE(n, 100) << "the save never completed";
      testing_support::WriteFile(path, "old");
      Status s;
      {
        FailNth fail(n, mode);
        s = WriteWorkbook(path, wb);
        completed = !fail.fired();
      }
      Workbook back;
      if (s.ok()) {
        EXPECT_TRUE(ReadWorkbook(path, &back).ok()) << "call " << n;
      } else {
        EXPECT_EQ(testing_support::ReadFile(path), "old") << "call " << n << ": " << s.ToString();
      }
      std::vector<std::string> left;
      for (const auto& entry : std::filesystem::directory_iterator(dir.path())) {
        if (entry.path().filename() != "book.xlsx") left.push_back(entry.path().string());
      }
      if (mode == FailNth::kOnce) {
        EXPECT_TRUE(left.empty()) << "call " << n << ": " << s.ToString();
      }
      for (const std::string& f : left) std::filesystem::remove(f);
    }
  }
}

// Shapes other writers produce: prefixed elements, sheets listed in another order than their
// part names, absolute targets, rich and phonetic runs, every cell type, built-in date ids.
TEST(XlsxReader, ReadsOtherWritersShapes) {
  const std::string ns = "http://schemas.openxmlformats.org/spreadsheetml/2006/main";
  Parts parts = {
      {"_rels/.rels",
       std::string("<Relationships xmlns=\"http://schemas.openxmlformats.org/package/2006/"
                   "relationships\"><Relationship Id=\"x\" Type=\"") +
           kRelType + "officeDocument\" Target=\"/book/main.xml\"/></Relationships>"},
      {"book/main.xml",
       "<x:workbook xmlns:x=\"" + ns +
           "\" xmlns:r=\"http://schemas.openxmlformats.org/officeDocument/2006/relationships\">"
           "<x:workbookPr date1904=\"false\"/><x:sheets>"
           "<x:sheet name=\"First\" sheetId=\"7\" r:id=\"b\"/>"
           "<x:sheet name=\"Second\" sheetId=\"3\" r:id=\"a\"/></x:sheets>"
           "<x:definedNames><x:definedName name=\"Area\">First!$A$1:$B$2</x:definedName>"
           "<x:definedName name=\"_xlnm.Print_Area\" localSheetId=\"0\">First!$A$1</x:definedName>"
           "</x:definedNames></x:workbook>"},
      {"book/_rels/main.xml.rels",
       std::string("<Relationships xmlns=\"http://schemas.openxmlformats.org/package/2006/"
                   "relationships\">") +
           "<Relationship Id=\"a\" Type=\"" + kRelType + "worksheet\" Target=\"s/one.xml\"/>" +
           "<Relationship Id=\"b\" Type=\"" + kRelType + "worksheet\" Target=\"/other/two.xml\"/>" +
           "<Relationship Id=\"c\" Type=\"" + kRelType +
           "sharedStrings\" Target=\"../strings.xml\"/>" + "<Relationship Id=\"d\" Type=\"" +
           kRelType + "styles\" Target=\"st.xml\"/>" + "<Relationship Id=\"e\" Type=\"" + kRelType +
           "hyperlink\" Target=\"http://x\" TargetMode=\"External\"/>" + "</Relationships>"},
      {"strings.xml", "<sst xmlns=\"" + ns +
                          "\"><si><t>plain</t></si><si><r><rPr><b/></rPr><t>ri</t></r>"
                          "<r><t xml:space=\"preserve\">ch </t></r><rPh><t>PHONETIC</t></rPh></si>"
                          "<si><t>tab_x0009_and_x0041_</t></si></sst>"},
      {"book/st.xml",
       "<styleSheet xmlns=\"" + ns +
           "\"><numFmts count=\"1\"><numFmt numFmtId=\"200\" "
           "formatCode=\"[$-409]d\\-mmm\\-yyyy\"/></numFmts><fonts><font/><font><b "
           "val=\"1\"/></font>"
           "<font><b val=\"0\"/></font></fonts><borders><border/><border><left style=\"hair\"/>"
           "<right style=\"dashed\"/><top style=\"mediumDashDot\"/><bottom "
           "style=\"double\"/></border>"
           "</borders><cellXfs><xf/><xf numFmtId=\"14\"/><xf numFmtId=\"200\" fontId=\"1\"/>"
           "<xf fontId=\"2\" borderId=\"1\"><alignment horizontal=\"centerContinuous\" "
           "vertical=\"center\"/></xf><xf numFmtId=\"4\"/></cellXfs>"
           "<dxfs><dxf><font><b/></font></dxf></dxfs></styleSheet>"},
      {"book/s/one.xml", "<worksheet xmlns=\"" + ns +
                             "\"><sheetData><row><c><v>1</v></c>"
                             "<c><v>2</v></c></row></sheetData></worksheet>"},
      {"other/two.xml",
       "<worksheet xmlns=\"" + ns +
           "\"><cols><col min=\"2\" max=\"3\" width=\"12.5\" "
           "customWidth=\"1\"/></cols><sheetData>"
           "<row r=\"1\"><c r=\"A1\" t=\"s\"><v>0</v></c><c r=\"B1\" t=\"s\"><v>1</v></c>"
           "<c r=\"C1\" t=\"s\"><v>2</v></c></row>"
           "<row r=\"3\"><c r=\"A3\" "
           "t=\"inlineStr\"><is><r><t>in</t></r><r><t>line</t></r></is></c>"
           "<c r=\"B3\" t=\"str\"><f>A1&amp;\"!\"</f><v>plain!</v></c>"
           "<c r=\"C3\" t=\"b\"><f>TRUE()</f><v>TRUE</v></c><c r=\"D3\" t=\"e\"><v>#DIV/0!</v></c>"
           "<c r=\"E3\"><f>1/3</f><v>0.33333333333333331</v></c><c r=\"F3\"><f>NOW()</f></c></row>"
           "<row r=\"4\"><c r=\"A4\" s=\"1\"><v>45000</v></c><c r=\"B4\" "
           "s=\"2\"><v>45000.75</v></c>"
           "<c r=\"C4\" t=\"d\"><v>2023-03-15T18:00:00Z</v></c><c r=\"D4\" "
           "t=\"d\"><v>1900-02-28</v></c>"
           "<c r=\"E4\" s=\"3\"/><c r=\"F4\" s=\"4\"><v> 12.5 </v></c></row>"
           "</sheetData></worksheet>"}};
  std::vector<std::uint8_t> bytes = Zip(parts);
  Workbook wb;
  Status st = Read(bytes, &wb);
  ASSERT_TRUE(st.ok()) << st.ToString();
  // Every cell of both sheets, its kind and exact value, and the one name; F3 (a formula
  // without a cached value) and E4 (formatted) are empty.
  EXPECT_EQ(xls_test::Dump(wb),
            "sheet First\n0 0 text plain\n0 1 text rich \n0 2 text tab\\tandA\n2 0 text inline\n"
            "2 1 text plain!\n2 2 bool 1\n2 3 error 7\n2 4 number 0.33333333333333331\n"
            "3 0 date 45000\n3 1 date 45000.75\n3 2 date 45000.75\n"
            "3 3 date 59\n"  // before Excel's 29 February 1900
            "3 5 number 12.5\nsheet Second\n0 0 number 1\n0 1 number 2\n"
            "name Area -1 0 0 1 0 1\n");
  ASSERT_EQ(wb.names().size(), 1u);
  const Sheet& s = wb.sheets()[0];
  EXPECT_TRUE(s.at(3, 4).isEmpty());
  EXPECT_EQ(wb.styles()[s.at(3, 0).style].numberFormat, "m/d/yy");
  EXPECT_TRUE(wb.styles()[s.at(3, 1).style].bold);
  EXPECT_EQ(wb.styles()[s.at(3, 1).style].numberFormat, "[$-409]d\\-mmm\\-yyyy");
  const Style& bordered = wb.styles()[s.at(3, 4).style];
  EXPECT_FALSE(bordered.bold);
  EXPECT_EQ(bordered.horizontal, HAlign::kCenterAcross);
  EXPECT_EQ(bordered.vertical, VAlign::kCenter);
  EXPECT_EQ(bordered.left, Border::kHair);
  EXPECT_EQ(bordered.right, Border::kThin);
  EXPECT_EQ(bordered.top, Border::kMedium);
  EXPECT_EQ(bordered.bottom, Border::kThick);
  EXPECT_EQ(wb.styles()[s.at(3, 5).style].numberFormat, "#,##0.00");
  EXPECT_EQ(s.columnWidth(0), 0);
  EXPECT_EQ(s.columnWidth(1), 3200);
  EXPECT_EQ(s.columnWidth(2), 3200);
}

std::string Repeat(const std::string& s, int n) {
  std::string out;
  for (int i = 0; i < n; ++i) out += s;
  return out;
}

TEST(XlsxReader, DamagedAndHostileFilesGiveAClearError) {
  std::vector<std::uint8_t> good = Zip(OneSheet("<row><c><v>1</v></c></row>"));
  Parts noRels = OneSheet("");
  noRels.erase(noRels.begin());
  Parts noSheetPart = OneSheet("");
  noSheetPart.pop_back();
  Parts laughs = OneSheet("");
  laughs.back().second =
      "<?xml version=\"1.0\"?><!DOCTYPE w [<!ENTITY a \"aaaaaaaaaa\"><!ENTITY b \"&a;&a;&a;&a;"
      "&a;&a;&a;&a;\">]><worksheet><sheetData><row><c t=\"inlineStr\"><is><t>&b;</t></is></c>"
      "</row></sheetData></worksheet>";
  Parts deep = OneSheet(Repeat("<is>", 300));
  Parts bomb = OneSheet(std::string(20 << 20, ' '));
  std::string sparse;  // a small file whose cells would fill rows 16,384 cells wide
  for (int r = 1; r <= 400; ++r)
    sparse += "<row><c r=\"XFD" + std::to_string(r) + "\"><v>1</v></c></row>";

  struct Case {
    const char* what;
    std::vector<std::uint8_t> bytes;
    const char* message;  // a part of the error's text
  } cases[] = {
      {"truncated zip", std::vector<std::uint8_t>(good.begin(), good.begin() + good.size() / 2),
       "zip"},
      {"zip magic only", {'P', 'K', 3, 4, 0, 0}, "zip"},
      {"no package relationships", Zip(noRels), "names no workbook part"},
      {"missing sheet part", Zip(noSheetPart), "no part xl/worksheets/sheet1.xml"},
      {"bad XML", Zip(OneSheet("<row><c><v>1</c></row>")), "sheet1.xml line 1"},
      {"entity expansion", Zip(laughs), "document type"},
      {"deep nesting", Zip(deep), "nest deeper"},
      {"zip bomb", Zip(bomb, 9), "sheet1.xml"},
      {"cell past the grid", Zip(OneSheet("<row><c r=\"XFE1\"><v>1</v></c></row>")), "XFE1"},
      {"row past the grid", Zip(OneSheet("<row r=\"1048577\"/>")), "1048577"},
      {"shared string index", Zip(OneSheet("<row><c t=\"s\"><v>0</v></c></row>")), "shared string"},
      {"not a number", Zip(OneSheet("<row><c r=\"B2\"><v>1x</v></c></row>")), "B2"},
      {"sparse cells", Zip(OneSheet(sparse)), "sparse"},
  };
  for (const Case& c : cases) {
    Workbook wb;
    Status s = Read(c.bytes, &wb);
    EXPECT_EQ(s.code(), Status::Code::kCorruption) << c.what << ": " << s.ToString();
    EXPECT_NE(s.message().find(c.message), std::string::npos) << c.what << ": " << s.ToString();
  }
}

}  // namespace
}  // namespace xls
