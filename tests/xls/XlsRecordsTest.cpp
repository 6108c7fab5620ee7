// Each BIFF record struct against the bytes its layout gives, written out by hand here:
// EncodeTo must give exactly them, and DecodeFrom of them must encode to them again.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "xls/BiffRecords.h"
#include "xls/Names.h"

namespace xls {
namespace {

std::string Hex(const std::vector<std::uint8_t>& b) {
  std::string s;
  char buf[4];
  for (std::size_t i = 0; i < b.size(); ++i) {
    std::snprintf(buf, sizeof buf, i ? " %02X" : "%02X", b[i]);
    s += buf;
  }
  return s;
}

std::vector<std::uint8_t> Bytes(const std::string& hex) {
  std::vector<std::uint8_t> b;
  for (std::size_t i = 0; i + 1 < hex.size(); i += 3)
    b.push_back(static_cast<std::uint8_t>(std::stoul(hex.substr(i, 2), nullptr, 16)));
  return b;
}

struct Case {
  const char* record;
  std::function<void(RecordWriter&)> encode;
  // Decodes r into a fresh struct and encodes that; false when DecodeFrom refuses r.
  std::function<bool(const Record&, RecordWriter&)> reencode;
  const char* hex;
  // Every shorter prefix is refused, not read as a smaller record: cell records.
  bool refusesPrefixes = false;
};

template <typename T>
Case Make(const char* name, T value, const char* hex, bool refusesPrefixes = false) {
  return {name, [value](RecordWriter& w) { value.EncodeTo(w); },
          [](const Record& r, RecordWriter& w) {
            T back;
            if (!back.DecodeFrom(r)) return false;
            back.EncodeTo(w);
            return true;
          },
          hex, refusesPrefixes};
}

BofRecord SheetBof() {
  BofRecord b;
  b.type = 0x0010;
  return b;
}
FontRecord BoldFont() {
  FontRecord f;
  f.options = 0x0001;
  f.weight = 700;
  return f;
}
XfRecord8 BorderedXf() {
  XfRecord8 x;
  x.font = 5;
  x.format = 14;
  x.alignment = 0x21;
  x.used = 0x3C;
  x.lines = 0x00401001;  // thin left and bottom, automatic left colour
  x.lineColours = 0x00002000;
  return x;
}
BoundSheetRecord DataSheet() {
  BoundSheetRecord b;
  b.position = 0x1234;
  b.name = "Data";
  return b;
}
ColInfoRecord Column2() {
  ColInfoRecord c;
  c.first = c.last = 2;
  c.width = 0x1400;
  return c;
}
DimensionsRecord Used() {
  DimensionsRecord d;
  d.rowsEnd = 300;
  d.columnsEnd = 5;
  return d;
}
RowRecord Row7() {
  RowRecord r;
  r.row = 7;
  r.columnsEnd = 3;
  return r;
}
NameRecord DataName() {
  NameRecord n;
  n.name = "Data";
  n.formula = {0x3B, 0, 0, 0, 0, 9, 0, 0, 0, 2, 0};  // tArea3d: reference 0, A1:C10
  return n;
}
ExternSheetRecord TwoSheets() {
  ExternSheetRecord e;
  e.entries = {{0, 0, 0}, {0, 2, 2}};
  return e;
}
MulRkRecord ThreeNumbers() {
  MulRkRecord m;
  m.row = 4;
  m.firstColumn = 1;
  m.cells = {{15, 0x3FF00000}, {16, 0x0000000A}, {17, 0x00000C93}};  // 1.0, 2, 8.04
  return m;
}
MulBlankRecord TwoBlanks() {
  MulBlankRecord m;
  m.row = 9;
  m.firstColumn = 3;
  m.xfs = {21, 22};
  return m;
}
FormulaRecord CachedTrue() {
  FormulaRecord f;
  f.cell = {1, 1, 15};
  const std::uint8_t result[8] = {1, 0, 1, 0, 0, 0, 0xFF, 0xFF};  // boolean TRUE
  std::memcpy(f.result, result, sizeof result);
  f.options = 0x0002;                            // calculate on load
  f.tokens = {0x24, 0, 0, 0, 0xC0, 0x1E, 2, 0, 0x05};  // tRef A1, tInt 2, tMul
  return f;
}

Window2Record ActiveWindow() {
  Window2Record w;
  w.options = 0x06B6;
  return w;
}

TEST(XlsRecords, EachEncodesToItsLayoutAndDecodesBack) {
  const Case cases[] = {
      Make("BOF globals", BofRecord{},
           "09 08 10 00 00 06 05 00 BB 0D CC 07 00 00 00 00 06 00 00 00"),
      Make("BOF sheet", SheetBof(), "09 08 10 00 00 06 10 00 BB 0D CC 07 00 00 00 00 06 00 00 00"),
      Make("CODEPAGE", U16Record{rec::kCodepage, 1200}, "42 00 02 00 B0 04"),
      Make("DATEMODE", U16Record{rec::kDateMode, 1}, "22 00 02 00 01 00"),
      Make("WINDOW1", Window1Record{},
           "3D 00 12 00 00 00 00 00 00 40 00 20 38 00 00 00 00 00 01 00 58 02"),
      Make("FONT", BoldFont(),
           "31 00 15 00 C8 00 01 00 FF 7F BC 02 00 00 00 02 00 00 05 00 41 72 69 61 6C"),
      Make("FORMAT", FormatRecord{164, "0.0%"}, "1E 04 09 00 A4 00 04 00 00 30 2E 30 25"),
      Make("FORMAT UTF-16", FormatRecord{165, "日"}, "1E 04 07 00 A5 00 01 00 01 E5 65"),
      Make("XF", BorderedXf(),
           "E0 00 14 00 05 00 0E 00 01 00 21 00 00 3C 01 10 40 00 00 20 00 00 C0 20"),
      Make("STYLE", StyleRecord{}, "93 02 04 00 00 80 00 FF"),
      Make("BOUNDSHEET", DataSheet(), "85 00 0C 00 34 12 00 00 00 00 04 00 44 61 74 61"),
      Make("COLINFO", Column2(), "7D 00 0C 00 02 00 02 00 00 14 0F 00 02 00 00 00"),
      Make("DIMENSIONS", Used(), "00 02 0E 00 00 00 00 00 2C 01 00 00 00 00 05 00 00 00"),
      Make("ROW", Row7(), "08 02 10 00 07 00 00 00 03 00 FF 00 00 00 00 00 00 01 0F 00"),
      Make("WINDOW2", ActiveWindow(),
           "3E 02 12 00 B6 06 00 00 00 00 40 00 00 00 00 00 00 00 00 00 00 00"),
      Make("NAME", DataName(),
           "18 00 1E 00 00 00 00 04 0B 00 00 00 00 00 00 00 00 00 00 44 61 74 61 3B 00 00 00 00 09 "
           "00 00 00 02 00"),
      Make("EXTERNSHEET", TwoSheets(), "17 00 0E 00 02 00 00 00 00 00 00 00 00 00 02 00 02 00"),
      Make("NUMBER", NumberRecord{{1, 2, 15}, 1.5},
           "03 02 0E 00 01 00 02 00 0F 00 00 00 00 00 00 00 F8 3F", true),
      Make("LABELSST", LabelSstRecord{{0, 0, 15}, 0x10203},
           "FD 00 0A 00 00 00 00 00 0F 00 03 02 01 00", true),
      Make("BOOLERR", BoolErrRecord{{3, 1, 16}, 0x2A, 1}, "05 02 08 00 03 00 01 00 10 00 2A 01",
           true),
      Make("BLANK", BlankRecord{{5, 6, 17}}, "01 02 06 00 05 00 06 00 11 00", true),
      Make("RK", RkRecord{{2, 0, 15}, 0x000F4243}, "7E 02 0A 00 02 00 00 00 0F 00 43 42 0F 00",
           true),
      Make("MULRK", ThreeNumbers(),
           "BD 00 18 00 04 00 01 00 0F 00 00 00 F0 3F 10 00 0A 00 00 00 11 00 93 0C 00 00 03 00",
           true),
      Make("MULBLANK", TwoBlanks(), "BE 00 0A 00 09 00 03 00 15 00 16 00 04 00", true),
      Make("FORMULA", CachedTrue(),
           "06 00 1F 00 01 00 01 00 0F 00 01 00 01 00 00 00 FF FF 02 00 00 00 00 00 09 00 24 00 "
           "00 00 C0 1E 02 00 05",
           true),
      Make("LABEL", LabelRecord{{2, 3, 15}, "abc"},
           "04 02 0C 00 02 00 03 00 0F 00 03 00 00 61 62 63", true),
      Make("LABEL UTF-16", LabelRecord{{2, 3, 15}, "日"}, "04 02 0B 00 02 00 03 00 0F 00 01 00 01 E5 65",
           true),
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.record);
    std::vector<std::uint8_t> out;
    RecordWriter w(&out);
    c.encode(w);
    EXPECT_EQ(Hex(out), c.hex);

    const std::vector<std::uint8_t> bytes = Bytes(c.hex);
    const Record r{GetU16(bytes.data()), 0, bytes.data() + 4, bytes.size() - 4};
    std::vector<std::uint8_t> again;
    RecordWriter w2(&again);
    ASSERT_TRUE(c.reencode(r, w2));
    EXPECT_EQ(Hex(again), c.hex);

    // Cut short, the data is refused or read within its bounds (the sanitizers watch).
    for (std::size_t n = 0; n < r.size; ++n) {
      std::vector<std::uint8_t> cut(r.data, r.data + n);  // its own block: overreads show
      std::vector<std::uint8_t> ignored;
      RecordWriter w3(&ignored);
      const bool read = c.reencode(Record{r.id, 0, cut.data(), n}, w3);
      if (n == 0 || c.refusesPrefixes) {
        EXPECT_FALSE(read) << n << " bytes";
      }
    }
  }
}

std::vector<std::uint8_t> Data(const std::function<void(RecordWriter&)>& encode) {
  std::vector<std::uint8_t> out;
  RecordWriter w(&out);
  encode(w);
  return std::vector<std::uint8_t>(out.begin() + 4, out.end());
}

// Which names become areas: through EXTERNSHEET to this workbook's SUPBOOK, one sheet (not
// a chart), one rectangle; sheet positions count charts, the model's indexes do not.
TEST(XlsRecords, NamesResolveToOneAreaOfOneWorksheet) {
  NameTable table;
  const std::uint8_t own[] = {3, 0, 0x01, 0x04}, other[] = {1, 0, 5, 0, 0, 'a', '.', 'x', 'l', 's'};
  table.AddSupBook(own, sizeof own);
  table.AddSupBook(other, sizeof other);
  ExternSheetRecord refs;
  refs.entries = {{0, 2, 2}, {0, 0, 2}, {1, 0, 0}, {0, 1, 1}};
  const auto refData = Data([&](RecordWriter& w) { refs.EncodeTo(w); });
  table.AddExternSheet(refData.data(), refData.size());
  auto area3d = [](std::uint8_t ref, std::uint16_t r1, std::uint16_t r2, std::uint16_t c1,
                   std::uint16_t c2) {
    return std::vector<std::uint8_t>{0x3B,
                                     ref,
                                     0,
                                     std::uint8_t(r1),
                                     std::uint8_t(r1 >> 8),
                                     std::uint8_t(r2),
                                     std::uint8_t(r2 >> 8),
                                     std::uint8_t(c1),
                                     std::uint8_t(c1 >> 8),
                                     std::uint8_t(c2),
                                     std::uint8_t(c2 >> 8)};
  };
  auto add = [&](const char* name, std::uint16_t options, std::uint16_t scope,
                 std::vector<std::uint8_t> formula) {
    NameRecord n;
    n.name = name;
    n.options = options;
    n.scopeTab = scope;
    n.formula = std::move(formula);
    const auto data = Data([&](RecordWriter& w) { n.EncodeTo(w); });
    table.AddName(data.data(), data.size(), 8, CodepageDecoder());
  };
  add("Area", 0, 0, area3d(0, 4, 9, 1, 3));
  add("Cell", 0, 0, {0x5A, 0, 0, 7, 0, 0x02, 0xC0});  // tRef3d, relative row and column
  add("Reversed", 0, 0, area3d(0, 9, 4, 3, 1));
  add("Across", 0, 0, area3d(1, 0, 0, 0, 0));
  add("Elsewhere", 0, 0, area3d(2, 0, 0, 0, 0));
  add("OnChart", 0, 0, area3d(3, 0, 0, 0, 0));
  add("BadRef", 0, 0, area3d(9, 0, 0, 0, 0));
  std::vector<std::uint8_t> two = area3d(0, 0, 0, 0, 0);
  const auto second = area3d(0, 5, 5, 5, 5);
  two.insert(two.end(), second.begin(), second.end());
  two.push_back(0x10);  // union
  add("TwoAreas", 0, 0, two);
  add("Scoped", 0, 3, area3d(0, 0, 1, 0, 1));
  add("\x06", 0x0020, 1, area3d(0, 0, 99, 0, 4));  // Print_Area of the first sheet
  add("ScopedToChart", 0, 2, area3d(0, 0, 0, 0, 0));

  Workbook wb;
  table.Resolve({0, -1, 1}, &wb);  // sheet positions: worksheet, chart, worksheet
  std::string got;
  for (const DefinedName& n : wb.names()) {
    got += n.name + " " + std::to_string(n.scopeSheet) + " " + std::to_string(n.builtin) + " " +
           std::to_string(n.sheet) + " " + std::to_string(n.firstRow) + ":" +
           std::to_string(n.lastRow) + " " + std::to_string(n.firstColumn) + ":" +
           std::to_string(n.lastColumn) + "\n";
  }
  EXPECT_EQ(got,
            "Area -1 0 1 4:9 1:3\n"
            "Cell -1 0 1 7:7 2:2\n"
            "Reversed -1 0 1 4:9 1:3\n"
            "Scoped 1 0 1 0:1 0:1\n"
            "Print_Area 0 1 1 0:99 0:4\n");
}

// An RK holds an integer or a double's top 30 bits, either possibly divided by 100.
TEST(XlsRecords, RkValuesDecodeInEachForm) {
  const struct {
    std::uint32_t rk;
    double value;
  } cases[] = {
      {0x3FF00000, 1.0},       // double 1.0
      {0x3FF00001, 0.01},      // double 1.0 / 100
      {0x0000000A, 2.0},       // integer 2
      {0x00000C93, 8.04},      // integer 804 / 100
      {0xFFFFFFFE, -1.0},      // integer -1: the shift keeps the sign
      {0xC0590000, -100.0},    // double -100
  };
  for (const auto& c : cases) EXPECT_DOUBLE_EQ(RkValue(c.rk), c.value) << std::hex << c.rk;
}

}  // namespace
}  // namespace xls
