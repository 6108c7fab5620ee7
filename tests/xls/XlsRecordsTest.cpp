// Each BIFF record struct against the bytes its layout gives, written out by hand here:
// EncodeTo must give exactly them, and DecodeFrom of them must encode to them again.
#include <gtest/gtest.h>

#include <cstdio>
#include <functional>
#include <string>
#include <vector>

#include "xls/BiffRecords.h"

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
};

template <typename T>
Case Make(const char* name, T value, const char* hex) {
  return {name, [value](RecordWriter& w) { value.EncodeTo(w); },
          [](const Record& r, RecordWriter& w) {
            T back;
            if (!back.DecodeFrom(r)) return false;
            back.EncodeTo(w);
            return true;
          },
          hex};
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
      Make("NUMBER", NumberRecord{{1, 2, 15}, 1.5},
           "03 02 0E 00 01 00 02 00 0F 00 00 00 00 00 00 00 F8 3F"),
      Make("LABELSST", LabelSstRecord{{0, 0, 15}, 0x10203},
           "FD 00 0A 00 00 00 00 00 0F 00 03 02 01 00"),
      Make("BOOLERR", BoolErrRecord{{3, 1, 16}, 0x2A, 1}, "05 02 08 00 03 00 01 00 10 00 2A 01"),
      Make("BLANK", BlankRecord{{5, 6, 17}}, "01 02 06 00 05 00 06 00 11 00"),
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
      if (n == 0) {
        EXPECT_FALSE(read);
      }
    }
  }
}

}  // namespace
}  // namespace xls
