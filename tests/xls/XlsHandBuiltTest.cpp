// Files built byte by byte here, for what no writer at hand makes: a compound file whose
// last sector is cut short, stream names in other letter cases, an Excel 2 worksheet without
// XF records, an Excel 4 workbook, and FORMULA records under their older identifiers.
// Where python3-xlrd reads the file, its reading is the reference.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "tests/support/TempDir.h"
#include "tests/xls/PeerTools.h"
#include "xls/CompoundFile.h"
#include "xls/Records.h"
#include "xls/Styles.h"
#include "xls/Xls.h"

namespace xls {
namespace {

using testing_support::TempDir;
using xls_test::Dump;
using xls_test::XlrdCells;
using Bytes = std::vector<std::uint8_t>;

void U8(Bytes& b, unsigned v) { b.push_back(static_cast<std::uint8_t>(v)); }
void U16(Bytes& b, unsigned v) {
  U8(b, v & 0xFF);
  U8(b, (v >> 8) & 0xFF);
}
void U32(Bytes& b, std::uint32_t v) {
  U16(b, v & 0xFFFF);
  U16(b, v >> 16);
}
void F64(Bytes& b, double d) {
  std::uint64_t bits;
  std::memcpy(&bits, &d, sizeof bits);
  U32(b, static_cast<std::uint32_t>(bits));
  U32(b, static_cast<std::uint32_t>(bits >> 32));
}
void Str8(Bytes& b, const std::string& s) {  // an 8-bit count, then the bytes
  U8(b, static_cast<unsigned>(s.size()));
  b.insert(b.end(), s.begin(), s.end());
}
void Rec(Bytes& b, unsigned id, const Bytes& data) {
  U16(b, id);
  U16(b, static_cast<unsigned>(data.size()));
  b.insert(b.end(), data.begin(), data.end());
}

// What python3-xlrd reads from these bytes, written to a file of their own.
std::string XlrdCellsOf(const Bytes& file) {
  TempDir dir;
  testing_support::WriteFile(dir.file("f.xls"), std::string(file.begin(), file.end()));
  return XlrdCells(dir.file("f.xls"));
}

// A version 3 compound file of 512-byte sectors: FAT in sector 0, directory in sector 1,
// the one stream (at least 4,096 bytes, so out of the mini-stream) from sector 2 on. The file
// ends where the stream ends, its last sector cut short unless the stream fills it.
Bytes CompoundFileEndingInStream(const std::string& name, const Bytes& stream) {
  const std::uint32_t kFree = 0xFFFFFFFF, kEnd = 0xFFFFFFFE;
  const std::uint32_t sectors = static_cast<std::uint32_t>((stream.size() + 511) / 512);
  Bytes f;
  const std::uint8_t signature[8] = {0xD0, 0xCF, 0x11, 0xE0, 0xA1, 0xB1, 0x1A, 0xE1};
  f.insert(f.end(), signature, signature + 8);
  f.resize(24, 0);  // class id
  U16(f, 0x003E);   // minor version
  U16(f, 3);        // major version
  U16(f, 0xFFFE);   // byte order
  U16(f, 9);        // sector shift
  U16(f, 6);        // mini sector shift
  f.resize(44, 0);
  U32(f, 1);     // FAT sectors
  U32(f, 1);     // first directory sector
  U32(f, 0);     // transaction
  U32(f, 4096);  // mini stream cutoff
  U32(f, kEnd);  // no mini FAT
  U32(f, 0);
  U32(f, kEnd);  // no DIFAT sectors
  U32(f, 0);
  U32(f, 0);  // DIFAT[0]: the FAT is sector 0
  while (f.size() < 512) U32(f, kFree);
  U32(f, 0xFFFFFFFD);  // sector 0: FAT
  U32(f, kEnd);        // sector 1: directory
  for (std::uint32_t s = 0; s < sectors; ++s) U32(f, s + 1 == sectors ? kEnd : s + 3);
  while (f.size() < 1024) U32(f, kFree);
  auto entry = [&f](const std::string& n, unsigned type, std::uint32_t child, std::uint32_t start,
                    std::uint32_t size) {
    const std::size_t at = f.size();
    for (char c : n) U16(f, static_cast<unsigned char>(c));
    f.resize(at + 64, 0);
    U16(f, static_cast<unsigned>(2 * (n.size() + 1)));
    U8(f, type);
    U8(f, 1);  // black
    U32(f, 0xFFFFFFFF);
    U32(f, 0xFFFFFFFF);
    U32(f, child);
    f.resize(at + 116, 0);
    U32(f, start);
    U32(f, size);
    U32(f, 0);
  };
  entry("Root Entry", 5, 1, kEnd, 0);
  entry(name, 2, 0xFFFFFFFF, 2, static_cast<std::uint32_t>(stream.size()));
  while (f.size() < 1536) U8(f, 0);  // two unused entries
  f.insert(f.end(), stream.begin(), stream.end());
  return f;
}

TEST(XlsHandBuilt, LastSectorCutShortAndStreamNamesInAnyCase) {
  Workbook wb;
  Sheet& sheet = wb.addSheet("S");
  for (int r = 0; r < 400; ++r) sheet.set(r, 0, Cell::Number(r + 0.5));
  Bytes file;
  ASSERT_TRUE(WriteWorkbookToMemory(wb, &file).ok());
  CompoundFileReader ours;
  ASSERT_TRUE(ours.Open(file.data(), file.size()).ok());
  Bytes stream;
  ASSERT_TRUE(ours.ReadStream("Workbook", &stream).ok());
  ASSERT_NE(stream.size() % 512, 0u) << "the case needs a stream that ends inside a sector";
  // Excel 97 and later name the stream Workbook, Excel 5.0/95 Book; other writers use other
  // cases. The version is the BOF record's, whatever the name says.
  for (const char* name : {"Workbook", "WORKBOOK", "Book", "BOOK", "book"}) {
    SCOPED_TRACE(name);
    const Bytes cut = CompoundFileEndingInStream(name, stream);
    Workbook back;
    Status s = ReadWorkbookFromMemory(cut.data(), cut.size(), &back);
    ASSERT_TRUE(s.ok()) << s.ToString();
    ASSERT_EQ(back.sheets().size(), 1u);
    for (int r = 0; r < 400; ++r) ASSERT_EQ(back.sheets()[0].at(r, 0).number, r + 0.5) << r;
  }
}

// An Excel 2.0 worksheet: no XF records, so each cell's attribute bytes carry its format
// (formats numbered in the order of their FORMAT records) and font.
Bytes Biff2Worksheet() {
  Bytes s;
  Rec(s, 0x0009, {0x00, 0x02, 0x10, 0x00});  // BOF: version 2, worksheet
  Bytes cp;
  U16(cp, 1252);
  Rec(s, 0x0042, cp);  // CODEPAGE
  for (const char* f : {"General", "0.00", "yyyy-mm-dd", "[h]:mm"}) {
    Bytes d;
    Str8(d, f);
    Rec(s, 0x001E, d);
  }
  auto cell = [](unsigned row, unsigned col, unsigned format) {
    Bytes d;
    U16(d, row);
    U16(d, col);
    U8(d, 0);
    U8(d, format);
    U8(d, 0);
    return d;
  };
  Bytes d = cell(0, 0, 0);
  U16(d, 42);
  Rec(s, 0x0002, d);  // INTEGER
  d = cell(0, 1, 2);
  F64(d, 45351);
  Rec(s, 0x0003, d);  // NUMBER under yyyy-mm-dd: 2024-02-29
  d = cell(0, 2, 0);
  Str8(d, "caf\xE9 \x80");
  Rec(s, 0x0004, d);  // LABEL in Windows-1252
  d = cell(1, 0, 0);
  U8(d, 1);
  U8(d, 0);
  Rec(s, 0x0005, d);  // BOOLERR: TRUE
  d = cell(1, 1, 0);
  U8(d, 0x07);
  U8(d, 1);
  Rec(s, 0x0005, d);  // BOOLERR: #DIV/0!
  d = cell(1, 2, 3);
  F64(d, 1.5);
  Rec(s, 0x0003, d);  // NUMBER under [h]:mm: 36 hours
  d = cell(2, 0, 1);
  F64(d, 6.25);
  U8(d, 0);           // recalculation flags
  U8(d, 1);           // formula length
  U8(d, 0x1E);        // a token, not read
  Rec(s, 0x0006, d);  // FORMULA with a number
  d = cell(2, 1, 0);
  const std::uint8_t text[8] = {0, 0, 0, 0, 0, 0, 0xFF, 0xFF};
  d.insert(d.end(), text, text + 8);
  U8(d, 0);
  U8(d, 1);
  U8(d, 0x1E);
  Rec(s, 0x0006, d);  // FORMULA with a text result, in the STRING record after it
  Bytes str;
  Str8(str, "from formula");
  Rec(s, 0x0007, str);
  Rec(s, 0x000A, {});  // EOF
  return s;
}

TEST(XlsHandBuilt, Excel2WorksheetWithoutXfRecords) {
  const Bytes file = Biff2Worksheet();
  Workbook wb;
  Status s = ReadWorkbookFromMemory(file.data(), file.size(), &wb);
  ASSERT_TRUE(s.ok()) << s.ToString();
  EXPECT_EQ(Dump(wb),
            "sheet Sheet1\n0 0 number 42\n0 1 date 45351\n0 2 text café €\n1 0 bool 1\n"
            "1 1 error 7\n1 2 number 36\n2 0 number 6.25\n2 1 text from formula\n");
  EXPECT_EQ(wb.styles()[wb.sheets()[0].at(2, 0).style].numberFormat, "0.00");
  // xlrd reads the same file the same way, but for the elapsed time, which it takes for a date.
  EXPECT_EQ(XlrdCellsOf(file),
            "biff 20\nsheet Sheet1\n0 0 number 42\n0 1 date 45351\n0 2 text café €\n"
            "1 0 bool 1\n1 1 error 7\n1 2 date 1.5\n2 0 number 6.25\n2 1 text from formula\n");
}

// An Excel 4 workbook: its own BOF, then a SHEETHDR (size and name) before each worksheet,
// each with its own formatting records (BIFF4 FORMAT: 2 unused bytes, then the string).
Bytes Biff4Workbook(const char* firstName = "First", const char* secondName = "Second") {
  auto sheet = [](double value, const char* label) {
    Bytes s;
    Rec(s, 0x0409, {0x00, 0x00, 0x10, 0x00, 0x00, 0x00});  // BOF: worksheet
    for (const char* f : {"General", "d-mmm-yy"}) {
      Bytes d = {0, 0};
      Str8(d, f);
      Rec(s, 0x041E, d);
    }
    for (unsigned format : {0u, 1u}) {
      Bytes xf = {0, static_cast<std::uint8_t>(format)};
      xf.resize(12, 0);
      Rec(s, 0x0443, xf);  // XF: font 0, this format
    }
    Bytes d;
    U16(d, 0);
    U16(d, 0);
    U16(d, 1);  // XF 1: a date
    F64(d, value);
    Rec(s, 0x0203, d);
    d.clear();
    U16(d, 1);
    U16(d, 0);
    U16(d, 0);
    U16(d, static_cast<unsigned>(std::strlen(label)));
    d.insert(d.end(), label, label + std::strlen(label));
    Rec(s, 0x0204, d);  // LABEL
    Rec(s, 0x000A, {});
    return s;
  };
  Bytes b;
  Rec(b, 0x0409, {0x00, 0x00, 0x00, 0x01, 0x00, 0x00});  // BOF: Excel 4 workbook
  Rec(b, 0x008E, {0, 0, 0, 0});  // SHEETSOFFSET: where the first SHEETHDR is, patched below
  for (const char* name : {firstName, secondName}) {
    Bytes bound;
    Str8(bound, name);
    Rec(b, 0x0085, bound);  // BOUNDSHEET: in this version the name only
  }
  PutU32(b.data() + 14, static_cast<std::uint32_t>(b.size()));
  const Bytes first = sheet(45351, "one"), second = sheet(36525, "two");
  for (const auto& [name, body] :
       {std::make_pair(firstName, &first), std::make_pair(secondName, &second)}) {
    Bytes header;
    U32(header, static_cast<std::uint32_t>(body->size()));
    Str8(header, name);
    Rec(b, 0x008F, header);
    b.insert(b.end(), body->begin(), body->end());
  }
  Rec(b, 0x000A, {});
  return b;
}

TEST(XlsHandBuilt, Excel4WorkbookOfTwoSheets) {
  const Bytes file = Biff4Workbook();
  Workbook wb;
  Status s = ReadWorkbookFromMemory(file.data(), file.size(), &wb);
  ASSERT_TRUE(s.ok()) << s.ToString();
  const std::string cells =
      "sheet First\n0 0 date 45351\n1 0 text one\nsheet Second\n0 0 date 36525\n1 0 text two\n";
  EXPECT_EQ(Dump(wb), cells);
  EXPECT_EQ(XlrdCellsOf(file), "biff 45\n" + cells);

  // A name that is not valid is made up, and never one the file uses already.
  const Bytes clash = Biff4Workbook("Sheet2", "bad[name]");
  ASSERT_TRUE(ReadWorkbookFromMemory(clash.data(), clash.size(), &wb).ok());
  ASSERT_EQ(wb.sheets().size(), 2u);
  EXPECT_EQ(wb.sheets()[0].name(), "Sheet2");
  EXPECT_EQ(wb.sheets()[1].name(), "Sheet3");
}

// An Excel 95 workbook in code page 1251 (Cyrillic), as a bare record stream: the sheet
// name, a LABEL and an RSTRING (text with formatting runs after it) are 8-bit text in it.
Bytes Biff5Cyrillic() {
  const std::string sheetName = "\xCB\xE8\xF1\xF2";      // Лист
  const std::string hello = "\xCF\xF0\xE8\xE2\xE5\xF2";  // Привет
  Bytes globals;
  Rec(globals, 0x0809, {0x00, 0x05, 0x05, 0x00, 0x00, 0x00, 0x00, 0x00});  // BOF: BIFF5 globals
  Bytes cp;
  U16(cp, 1251);
  Rec(globals, 0x0042, cp);
  Bytes bound = {0, 0, 0, 0, 0, 0};  // position patched below, visible worksheet
  Str8(bound, sheetName);
  const std::size_t boundAt = globals.size() + 4;
  Rec(globals, 0x0085, bound);
  Rec(globals, 0x000A, {});
  PutU32(globals.data() + boundAt, static_cast<std::uint32_t>(globals.size()));
  Bytes& s = globals;
  Rec(s, 0x0809, {0x00, 0x05, 0x10, 0x00, 0x00, 0x00, 0x00, 0x00});  // BOF: worksheet
  Bytes label = {0, 0, 0, 0, 15, 0};
  U16(label, static_cast<unsigned>(hello.size()));
  label.insert(label.end(), hello.begin(), hello.end());
  Rec(s, 0x0204, label);
  Bytes rich = {1, 0, 0, 0, 15, 0};
  U16(rich, 4);
  rich.insert(rich.end(), {'r', 'i', 'c', 'h'});
  rich.insert(rich.end(), {1, 2, 1});  // one run: from character 2, font 1
  Rec(s, 0x00D6, rich);
  Rec(s, 0x000A, {});
  return globals;
}

TEST(XlsHandBuilt, Excel95TextInItsCodePage) {
  const Bytes file = Biff5Cyrillic();
  Workbook wb;
  Status s = ReadWorkbookFromMemory(file.data(), file.size(), &wb);
  ASSERT_TRUE(s.ok()) << s.ToString();
  const std::string cells = "sheet Лист\n0 0 text Привет\n1 0 text rich\n";
  EXPECT_EQ(Dump(wb), cells);
  EXPECT_EQ(XlrdCellsOf(file), "biff 50\n" + cells);
}

// python3-xlwt's formula cell (A2*2 on sheet Alpha, its cached result set here to 14) under
// each identifier FORMULA has had: generators still write the older two into Excel 97 files.
TEST(XlsHandBuilt, FormulaUnderEachIdentifierKeepsItsResult) {
  TempDir dir;
  const std::string path = dir.file("xlwt.xls");
  xls_test::Shell("/usr/bin/python3 " + xls_test::SourceDir() + "/tests/xls/make_xlwt_fixture.py " +
                  path);
  const std::string bytes = testing_support::ReadFile(path);
  Bytes file(bytes.begin(), bytes.end());
  CompoundFileReader cfb;
  ASSERT_TRUE(cfb.Open(file.data(), file.size()).ok());
  Bytes stream;
  ASSERT_TRUE(cfb.ReadStream("Workbook", &stream).ok());
  std::vector<std::size_t> formulas;
  for (std::size_t at = 0; at + 4 <= stream.size(); at += 4 + GetU16(stream.data() + at + 2)) {
    if (GetU16(stream.data() + at) == rec::kFormula) formulas.push_back(at);
  }
  ASSERT_EQ(formulas.size(), 1u);
  const double result = 14;
  std::uint64_t bits;
  std::memcpy(&bits, &result, sizeof bits);
  PutU64(stream.data() + formulas[0] + 4 + 6, bits);
  for (std::uint16_t id : {0x0006, 0x0206, 0x0406}) {
    SCOPED_TRACE(id);
    PutU16(stream.data() + formulas[0], id);
    CompoundFileImage image;
    ASSERT_TRUE(BuildCompoundFile({{"Workbook", &stream}}, 9, &image).ok());
    const Bytes patched = image.Flatten();
    Workbook wb;
    Status s = ReadWorkbookFromMemory(patched.data(), patched.size(), &wb);
    ASSERT_TRUE(s.ok()) << s.ToString();
    EXPECT_EQ(wb.sheets()[0].at(1, 1).type, CellType::kNumber);
    EXPECT_EQ(wb.sheets()[0].at(1, 1).number, 14);
  }
}

TEST(XlsHandBuilt, ElapsedTimeFormatsAreCountsNotDates) {
  const std::pair<const char*, NumberKind> formats[] = {
      {"[h]:mm", NumberKind::kHours},
      {"[HH]:MM:SS", NumberKind::kHours},
      {"[mm]:ss", NumberKind::kMinutes},
      {"[ss].00", NumberKind::kSeconds},
      {"[Red][h]:mm", NumberKind::kHours},
      {"h:mm", NumberKind::kDate},
      {"mm:ss.0", NumberKind::kDate},
      {"[$-409]h:mm AM/PM", NumberKind::kDate},
      {"\"[h]\"0.00", NumberKind::kNumber},
      {"[Red]0.00", NumberKind::kNumber},
      {"", NumberKind::kNumber},
  };
  for (const auto& [format, kind] : formats) {
    EXPECT_EQ(ClassifyNumberFormat(format), kind) << format;
  }

  // The model holds the count, the file days: written and read back, the count and the
  // format stay; xlrd, which reads the file's value, sees days.
  Workbook wb;
  Style hours, minutes;
  hours.numberFormat = "[h]:mm";
  minutes.numberFormat = "[mm]:ss";
  Sheet& sheet = wb.addSheet("S");
  sheet.set(0, 0, Cell::Number(36, wb.addStyle(hours)));
  sheet.set(0, 1, Cell::Number(90, wb.addStyle(minutes)));
  sheet.set(0, 2, Cell::Number(36));
  TempDir dir;
  ASSERT_TRUE(WriteWorkbook(dir.file("elapsed.xls"), wb).ok());
  Workbook back;
  ASSERT_TRUE(ReadWorkbook(dir.file("elapsed.xls"), &back).ok());
  for (int c = 0; c < 3; ++c) {
    const Cell& cell = back.sheets()[0].at(0, c);
    EXPECT_EQ(cell.type, CellType::kNumber);
    EXPECT_EQ(cell.number, wb.sheets()[0].at(0, c).number);
    EXPECT_EQ(back.styles()[cell.style].numberFormat,
              wb.styles()[wb.sheets()[0].at(0, c).style].numberFormat);
  }
  EXPECT_EQ(XlrdCells(dir.file("elapsed.xls")),
            "biff 80\nsheet S\n0 0 date 1.5\n0 1 date 0.0625\n0 2 number 36\n");
}

// The messages a damaged or unread file gives name what is wrong: the version, or the record.
TEST(XlsHandBuilt, ErrorsNameTheVersionOrTheRecord) {
  auto records = [](std::initializer_list<std::pair<unsigned, Bytes>> list) {
    Bytes b;
    for (const auto& [id, data] : list) Rec(b, id, data);
    return b;
  };
  const Bytes excel2Sheet = {0x00, 0x02, 0x10, 0x00};
  struct Case {
    Bytes file;
    const char* message;
  } cases[] = {
      {records({{0x0809, {0x00, 0x07, 0x05, 0x00}}}), "BIFF version 0x0700"},
      {records({{0x0009, {0x00, 0x02, 0x20, 0x00}}}), "an Excel 2 chart or macro sheet"},
      {records({{0x0009, excel2Sheet}, {0x0004, {1, 0, 0, 0, 0, 0, 0, 9, 'a'}}}),
       "LABEL record 0x0004 at offset 8: the text runs past the record"},
      {records({{0x0009, excel2Sheet}, {0x002F, {0, 0, 0, 0}}}),
       "an encrypted Excel 2/3/4 workbook"},
  };
  for (const Case& c : cases) {
    Workbook wb;
    Status s = ReadWorkbookFromMemory(c.file.data(), c.file.size(), &wb);
    EXPECT_NE(s.message().find(c.message), std::string::npos) << s.ToString();
  }
}

}  // namespace
}  // namespace xls
