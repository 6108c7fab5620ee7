// Round trips through our writer and reader, and our files as python3-xlrd sees them.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>

#include "tests/support/TempDir.h"
#include "tests/xls/PeerTools.h"
#include "xls/CompoundFile.h"
#include "xls/Strings.h"
#include "xls/Xls.h"

namespace xls {
namespace {

using testing_support::TempDir;

Workbook Sample() {
  Workbook wb;
  Style bold;
  bold.bold = true;
  bold.bottom = Border::kThick;
  bold.vertical = VAlign::kTop;
  bold.horizontal = HAlign::kCenter;
  std::uint16_t boldStyle = wb.addStyle(bold);
  Style date;
  date.numberFormat = "yyyy-mm-dd";
  std::uint16_t dateStyle = wb.addStyle(date);
  Style hair;
  hair.left = Border::kHair;
  hair.right = Border::kMedium;
  hair.top = Border::kThin;
  std::uint16_t hairStyle = wb.addStyle(hair);
  Sheet& s = wb.addSheet("Data");
  s.set(0, 0, Cell::Text("Name", boldStyle));
  s.set(0, 1, Cell::Text("Amount", boldStyle));
  s.set(1, 0, Cell::Text("Zoë ünïcode €"));
  s.set(1, 1, Cell::Number(12.5));
  s.set(2, 0, Cell::Text("日本語 and 😀"));
  s.set(2, 1, Cell::Number(-3));
  s.set(3, 0, Cell::Boolean(true));
  s.set(3, 1, Cell::Error(0x07));
  s.set(4, 0, Cell::DateTime(45000, dateStyle));
  s.mutableAt(6, 2).style = hairStyle;
  s.setColumnWidth(0, 20 * 256);
  Sheet& t = wb.addSheet("Second sheet");
  t.set(0, 0, Cell::Text("Name"));  // shared with the first sheet
  t.set(10, 255, Cell::Number(1e300));
  return wb;
}

void ExpectSameWorkbook(const Workbook& a, const Workbook& b) {
  ASSERT_EQ(a.sheets().size(), b.sheets().size());
  EXPECT_EQ(a.date1904, b.date1904);
  for (std::size_t i = 0; i < a.sheets().size(); ++i) {
    const Sheet& x = a.sheets()[i];
    const Sheet& y = b.sheets()[i];
    EXPECT_EQ(x.name(), y.name());
    EXPECT_EQ(x.columnWidths(), y.columnWidths());
    ASSERT_EQ(x.extentRows(), y.extentRows()) << x.name();
    const int columns = std::max(x.extentColumns(), y.extentColumns());
    for (int r = 0; r < x.extentRows(); ++r) {
      for (int c = 0; c < columns; ++c) {
        const Cell& p = x.at(r, c);
        const Cell& q = y.at(r, c);
        EXPECT_EQ(p.type, q.type) << x.name() << " " << r << "," << c;
        EXPECT_EQ(p.text, q.text) << x.name() << " " << r << "," << c;
        EXPECT_EQ(p.number, q.number) << x.name() << " " << r << "," << c;
        EXPECT_EQ(a.styles()[p.style], b.styles()[q.style]) << x.name() << " " << r << "," << c;
      }
    }
  }
}

TEST(XlsRoundTrip, KeepsSheetsValuesAndStyles) {
  for (bool date1904 : {false, true}) {
    Workbook wb = Sample();
    wb.date1904 = date1904;
    std::vector<std::uint8_t> bytes;
    ASSERT_TRUE(WriteWorkbookToMemory(wb, &bytes).ok());
    Workbook back;
    Status s = ReadWorkbookFromMemory(bytes.data(), bytes.size(), &back);
    ASSERT_TRUE(s.ok()) << s.ToString();
    ExpectSameWorkbook(wb, back);
  }
}

std::uint32_t U32At(const std::vector<std::uint8_t>& b, std::size_t at) {
  return b[at] | (b[at + 1] << 8) | (b[at + 2] << 16) | (std::uint32_t{b[at + 3]} << 24);
}
void PutU32At(std::vector<std::uint8_t>& b, std::size_t at, std::uint32_t v) {
  for (int i = 0; i < 4; ++i) b[at + i] = static_cast<std::uint8_t>(v >> (8 * i));
}

// The workbook stream is read in place when its sectors follow one another, and copied
// together when they do not: the same cells either way. The file is reordered by hand: the
// stream's second and third sectors trade places and the FAT chain follows them.
TEST(XlsRoundTrip, StreamInPlaceOrGatheredFromSectorsOutOfOrder) {
  Workbook wb = Sample();
  for (int r = 0; r < 300; ++r) wb.sheets()[0].set(10 + r, 0, Cell::Number(r + 0.5));
  std::vector<std::uint8_t> bytes;
  ASSERT_TRUE(WriteWorkbookToMemory(wb, &bytes).ok());
  ASSERT_EQ(bytes[30], 9);  // 512-byte sectors, one FAT sector listed first in the header
  auto sector = [](std::uint32_t s) { return (std::size_t{s} + 1) * 512; };
  const std::size_t fat = sector(U32At(bytes, 76));
  const std::size_t dir = sector(U32At(bytes, 48));
  std::uint32_t start = 0xFFFFFFFE;
  for (std::size_t e = dir; e < dir + 512; e += 128) {
    if (bytes[e] == 'W' && bytes[e + 2] == 'o' && bytes[e + 4] == 'r')
      start = U32At(bytes, e + 116);
  }
  ASSERT_NE(start, 0xFFFFFFFEu);
  CompoundFileReader cfb;
  ASSERT_TRUE(cfb.Open(bytes.data(), bytes.size()).ok());
  ByteSpan span{nullptr, 0};
  ASSERT_TRUE(cfb.StreamInPlace("Workbook", &span));
  std::vector<std::uint8_t> copied;
  ASSERT_TRUE(cfb.ReadStream("Workbook", &copied).ok());
  ASSERT_GT(copied.size(), 4u * 512);
  EXPECT_TRUE(std::equal(copied.begin(), copied.end(), span.data, span.data + span.size));

  const std::uint32_t s0 = start, s1 = U32At(bytes, fat + 4 * s0), s2 = U32At(bytes, fat + 4 * s1),
                      s3 = U32At(bytes, fat + 4 * s2);
  std::swap_ranges(bytes.begin() + sector(s1), bytes.begin() + sector(s1) + 512,
                   bytes.begin() + sector(s2));
  PutU32At(bytes, fat + 4 * s0, s2);
  PutU32At(bytes, fat + 4 * s2, s1);
  PutU32At(bytes, fat + 4 * s1, s3);
  ASSERT_TRUE(cfb.Open(bytes.data(), bytes.size()).ok());
  EXPECT_FALSE(cfb.StreamInPlace("Workbook", &span));
  std::vector<std::uint8_t> gathered;
  ASSERT_TRUE(cfb.ReadStream("Workbook", &gathered).ok());
  EXPECT_EQ(gathered, copied);
  Workbook back;
  Status st = ReadWorkbookFromMemory(bytes.data(), bytes.size(), &back);
  ASSERT_TRUE(st.ok()) << st.ToString();
  ExpectSameWorkbook(wb, back);
}

// Strings as the shared string table holds them, read one after another from segments:
// whole 8-bit ASCII ones, and those that need more care (Latin-1 bytes, UTF-16, rich-text
// runs, a string split by a CONTINUE boundary, one ending where its segment ends).
TEST(XlsStrings, SegmentStringsOfEachShape) {
  const std::vector<std::uint8_t> first = {
      3,  0, 0, 'a',  'b',  'c',                                            // ASCII
      3,  0, 0, 0xE9, 't',  0xE9,                                           // Latin-1
      11, 0, 0, 'l',  'o',  'n',  'g', 'e', 'r', ' ', 'c', 'a', 'f', 0xE9,  // Latin-1 past 8 bytes
      1,  0, 1, 0x3B, 0x26,                                                 // UTF-16
      2,  0, 8, 1,    0,    'h',  'i', 0,   0,   0,   0,  // one rich-text run after the characters
      0,  0, 0,                                           // empty
      2,  0, 0, 'e',  'n',                                // ends with its segment
  };
  const std::vector<std::uint8_t> second = {4, 0, 0, 'a', 'b'};
  const std::vector<std::uint8_t> third = {0, 'c', 'd', 1, 0, 0, 'z'};
  SegmentReader in;
  in.Add(first.data(), first.size());
  in.Add(second.data(), second.size());
  in.Add(third.data(), third.size());
  std::vector<std::string> got;
  for (int i = 0; i < 9; ++i) {
    in.SkipSegmentEnd();
    std::string s;
    ASSERT_TRUE(in.String(false, &s)) << i;
    got.push_back(s);
  }
  EXPECT_EQ(got, (std::vector<std::string>{"abc", "\u00e9t\u00e9", "longer caf\u00e9", "\u263b",
                                           "hi", "", "en", "abcd", "z"}));
  std::string more;
  EXPECT_FALSE(in.String(false, &more));
}

// Each distinct string gets the next index and keeps it, also across the table's growth
// and a Reserve that re-places every entry; the SST counts every reference.
TEST(XlsStrings, SharedStringIndicesAndCounts) {
  SharedStringTable table;
  const std::vector<std::string> added = {
      "a", "b", "a", "\u00e9t\u00e9", "", "\u00e9t\u00e9", "\xff\xfe", "\U0001F600", "b"};
  std::vector<std::uint32_t> indices;
  for (const std::string& s : added) {
    std::uint32_t i = 99;
    ASSERT_TRUE(table.Add(s, &i)) << s;
    indices.push_back(i);
  }
  EXPECT_EQ(indices, (std::vector<std::uint32_t>{0, 1, 0, 2, 3, 2, 4, 5, 1}));
  std::vector<std::string> many;
  for (int i = 0; i < 5000; ++i) many.push_back("s" + std::to_string(i));
  for (std::size_t i = 0; i < many.size(); ++i) {
    std::uint32_t index = 0;
    ASSERT_TRUE(table.Add(many[i], &index));
    ASSERT_EQ(index, 6 + i);
    if (i == 2500) table.Reserve(100000);
  }
  for (std::size_t i = 0; i < added.size(); ++i) {
    std::uint32_t index = 99;
    ASSERT_TRUE(table.Add(added[i], &index));
    EXPECT_EQ(index, indices[i]) << i;
  }

  std::vector<std::uint8_t> out;
  table.Write(0, &out);
  ASSERT_EQ(GetU16(out.data()), rec::kSst);
  EXPECT_EQ(GetU32(out.data() + 4), 2 * added.size() + many.size());  // references
  EXPECT_EQ(GetU32(out.data() + 8), 6 + many.size());                 // distinct strings
  SegmentReader in;
  for (std::size_t at = 0; GetU16(out.data() + at) != rec::kExtSst;) {
    const std::size_t length = GetU16(out.data() + at + 2);
    in.Add(out.data() + at + 4, length);
    at += 4 + length;
  }
  SharedStrings back;
  ASSERT_TRUE(ReadSharedStrings(&in, &back).ok());
  ASSERT_EQ(back.size(), 6 + many.size());
  const std::vector<std::string> stored = {"a",         "b", "\u00e9t\u00e9", "", "\ufffd\ufffd",
                                           "\U0001F600"};
  for (std::size_t i = 0; i < stored.size(); ++i) EXPECT_EQ(back.at(i), stored[i]) << i;
  EXPECT_EQ(back.at(6 + 4999), "s4999");
}

// The file made in memory (the stream built after room for the header) is byte for byte
// the one written to disk (the stream apart, then laid out): stream offsets inside it,
// such as EXTSST's, do not count the header.
TEST(XlsWriter, InMemoryFileIsTheFileWrittenToDisk) {
  TempDir dir;
  Workbook big = Sample();
  for (int r = 0; r < 2000; ++r)
    big.sheets()[0].set(10 + r, 3, Cell::Text("row " + std::to_string(r)));
  Workbook tiny;
  tiny.addSheet("T").set(0, 0, Cell::Text("x"));
  for (const Workbook* wb : {&tiny, &big}) {
    std::vector<std::uint8_t> bytes;
    ASSERT_TRUE(WriteWorkbookToMemory(*wb, &bytes).ok());
    const std::string path = dir.file("book.xls");
    ASSERT_TRUE(WriteWorkbook(path, *wb).ok());
    std::ifstream in(path, std::ios::binary);
    const std::vector<std::uint8_t> disk((std::istreambuf_iterator<char>(in)),
                                         std::istreambuf_iterator<char>());
    EXPECT_EQ(bytes, disk) << wb->sheets()[0].name();
  }
}

// A stream written after kCompoundHeaderRoom bytes and finished in place gives the file
// BuildCompoundFile lays out for it: at the mini-stream cutoff, on and off a sector's end,
// and past the 109 FAT sectors the header lists.
TEST(XlsWriter, CompoundFileFinishedInPlace) {
  for (std::size_t size : {std::size_t{1}, std::size_t{4095}, std::size_t{4096}, std::size_t{4097},
                           std::size_t{5120}, std::size_t{7000001}}) {
    std::vector<std::uint8_t> stream(size);
    for (std::size_t i = 0; i < size; ++i) stream[i] = static_cast<std::uint8_t>(i * 7 + i / 251);
    CompoundFileImage image;
    ASSERT_TRUE(BuildCompoundFile({{"Workbook", &stream}}, 9, &image).ok());
    std::vector<std::uint8_t> file(kCompoundHeaderRoom, 0xAA);
    file.insert(file.end(), stream.begin(), stream.end());
    ASSERT_TRUE(FinishCompoundFileInPlace("Workbook", &file).ok());
    EXPECT_TRUE(file == image.Flatten()) << size;
  }
}

TEST(XlsRoundTrip, ManyStringsCrossContinueRecordsAndBigFilesUseDifat) {
  // 400,000 distinct strings make an SST of many CONTINUE records and a file over 7 MB,
  // past the 109 FAT sectors the header can list.
  Workbook wb;
  Sheet& s = wb.addSheet("Big");
  for (int r = 0; r < 40000; ++r) {
    for (int c = 0; c < 10; ++c) {
      std::string text =
          (r % 7 == 0 ? "ünï-" : "text-") + std::to_string(r) + "-" + std::to_string(c);
      if (r == 5 && c == 5) text.assign(20000, 'x');
      if (r == 6 && c == 6) text = std::string(9000, 'y') + "€";
      s.set(r, c, Cell::Text(text));
    }
  }
  std::vector<std::uint8_t> bytes;
  ASSERT_TRUE(WriteWorkbookToMemory(wb, &bytes).ok());
  EXPECT_GT(bytes.size(), 109u * 128 * 512);
  Workbook back;
  Status st = ReadWorkbookFromMemory(bytes.data(), bytes.size(), &back);
  ASSERT_TRUE(st.ok()) << st.ToString();
  ExpectSameWorkbook(wb, back);
}

TEST(XlsRoundTrip, RejectsWhatAFileCannotHold) {
  struct Case {
    const char* what;
    std::function<void(Workbook&)> make;
  } cases[] = {
      {"no sheets", [](Workbook&) {}},
      {"bad name", [](Workbook& wb) { wb.addSheet("a/b"); }},
      {"duplicate names",
       [](Workbook& wb) {
         wb.addSheet("Same");
         wb.addSheet("SAME");
       }},
      {"text too long",
       [](Workbook& wb) { wb.addSheet("S").set(0, 0, Cell::Text(std::string(40000, 'a'))); }},
  };
  for (const Case& c : cases) {
    Workbook wb;
    c.make(wb);
    std::vector<std::uint8_t> bytes;
    Status s = WriteWorkbookToMemory(wb, &bytes);
    EXPECT_EQ(s.code(), Status::Code::kInvalidArgument) << c.what;
  }
}

TEST(XlsInterop, XlrdReadsValuesAndFormatting) {
  TempDir dir;
  const std::string path = dir.file("ours.xls");
  ASSERT_TRUE(WriteWorkbook(path, Sample()).ok());
  std::string out = xls_test::Shell("/usr/bin/python3 " + xls_test::SourceDir() +
                                    "/tests/xls/xlrd_dump.py " + path + " 2>&1");
  const char* expected =
      "sheet Data\n"
      "0 0 text 'Name' bold=1 valign=0 halign=2 bottom=5\n"
      "0 1 text 'Amount' bold=1 valign=0 halign=2 bottom=5\n"
      "1 0 text 'Zoë ünïcode €' bold=0 valign=2 halign=0 bottom=0\n"
      "1 1 number 12.5 bold=0 valign=2 halign=0 bottom=0\n"
      "2 0 text '日本語 and 😀' bold=0 valign=2 halign=0 bottom=0\n"
      "2 1 number -3.0 bold=0 valign=2 halign=0 bottom=0\n"
      "3 0 bool 1 bold=0 valign=2 halign=0 bottom=0\n"
      "3 1 error 7 bold=0 valign=2 halign=0 bottom=0\n"
      "4 0 date (2023, 3, 15, 0, 0, 0) bold=0 valign=2 halign=0 bottom=0\n"
      "6 2 blank left=7 right=2 top=1\n"
      "width 0 5120\n"
      "sheet Second sheet\n"
      "0 0 text 'Name' bold=0 valign=2 halign=0 bottom=0\n"
      "10 255 number 1e+300 bold=0 valign=2 halign=0 bottom=0\n";
  EXPECT_EQ(out, expected);
}

TEST(XlsInterop, ReadsWhatXlwtWrites) {
  TempDir dir;
  const std::string path = dir.file("xlwt.xls");
  xls_test::Shell("/usr/bin/python3 " + xls_test::SourceDir() + "/tests/xls/make_xlwt_fixture.py " +
                  path);
  Workbook wb;
  Status s = ReadWorkbook(path, &wb);
  ASSERT_TRUE(s.ok()) << s.ToString();
  // Every cell, its kind and exact value: 0 3 is 2024-02-29 12:00 in the 1900 system, and
  // 1 1 the formula xlwt leaves without a result.
  std::string expected =
      "sheet Alpha\n0 0 text Zoë ünïcode €\n0 1 number 42.25\n0 2 bool 1\n0 3 date 45351.5\n"
      "0 5 text 日本語\n1 0 number 7\n1 1 text \n2 0 text bold\nsheet Beta\n";
  for (int r = 0; r < 2000; ++r) {
    expected +=
        std::to_string(r) + " 0 text string number " + std::to_string(r) + " with some padding\n";
  }
  EXPECT_EQ(xls_test::Dump(wb), expected);
  const Style& bold = wb.styles()[wb.sheets().at(0).at(2, 0).style];
  EXPECT_TRUE(bold.bold);
  EXPECT_EQ(bold.bottom, Border::kThick);
  EXPECT_EQ(bold.vertical, VAlign::kTop);
}

// Defined names go out as NAME records over one SUPBOOK and EXTERNSHEET, and come back the
// same through our reader and through xlrd: workbook-wide and sheet-scoped, built-in,
// non-ASCII, on the second sheet. An area past the .xls grid is cut to it; one that starts
// past it has no place in the file and is left out.
TEST(XlsRoundTrip, KeepsDefinedNames) {
  Workbook wb = Sample();
  auto name = [](std::string text, int scope, bool builtin, int sheet, int r0, int r1, int c0,
                 int c1) {
    return DefinedName{std::move(text), scope, builtin, sheet, r0, r1, c0, c1};
  };
  const std::vector<DefinedName> kept = {
      name("Totals", -1, false, 1, 0, 2, 1, 1),
      name("Größe", -1, false, 0, 0, 65535, 0, 1),
      name("Local", 0, false, 0, 1, 1, 0, 0),
      name("Print_Area", 1, true, 1, 0, 10, 0, 255),
  };
  for (const DefinedName& n : kept) wb.addName(n);
  wb.addName(name("WholeColumn", -1, false, 0, 0, 1048575, 2, 2));  // from an .xlsx sheet
  wb.addName(name("PastTheGrid", -1, false, 0, 70000, 70001, 0, 0));
  std::vector<DefinedName> expected = kept;
  expected.push_back(name("WholeColumn", -1, false, 0, 0, 65535, 2, 2));

  TempDir dir;
  const std::string path = dir.file("names.xls");
  ASSERT_TRUE(WriteWorkbook(path, wb).ok());
  Workbook back;
  Status s = ReadWorkbook(path, &back);
  ASSERT_TRUE(s.ok()) << s.ToString();
  ASSERT_EQ(back.names().size(), expected.size());
  std::string xlrdExpected;
  for (std::size_t i = 0; i < expected.size(); ++i) {
    const DefinedName& e = expected[i];
    const DefinedName& n = back.names()[i];
    EXPECT_EQ(n.name, e.name);
    EXPECT_EQ(n.scopeSheet, e.scopeSheet) << e.name;
    EXPECT_EQ(n.builtin, e.builtin) << e.name;
    EXPECT_EQ(n.sheet, e.sheet) << e.name;
    EXPECT_EQ(std::vector<int>({n.firstRow, n.lastRow, n.firstColumn, n.lastColumn}),
              std::vector<int>({e.firstRow, e.lastRow, e.firstColumn, e.lastColumn}))
        << e.name;
    xlrdExpected += "name " + e.name + " " + std::to_string(e.scopeSheet) + " " +
                    std::to_string(e.sheet) + " " + std::to_string(e.firstRow) + " " +
                    std::to_string(e.lastRow) + " " + std::to_string(e.firstColumn) + " " +
                    std::to_string(e.lastColumn) + "\n";
  }
  const std::string xlrd = xls_test::XlrdCells(path);
  const std::size_t names = xlrd.find("\nname ");
  ASSERT_NE(names, std::string::npos) << xlrd;
  EXPECT_EQ(xlrd.substr(names + 1), xlrdExpected);
}

}  // namespace
}  // namespace xls
