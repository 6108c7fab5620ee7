// The BIFF8 records the codec writes and reads, one struct each: its fields in file order,
// EncodeTo appending the whole record (header included) and DecodeFrom reading a record's
// data back. The layout of a record is here and nowhere else. The cell records' members
// are inline: the reader's per-cell loop decodes one a cell, as fast as reading in place.
//
// DecodeFrom is false when the data is shorter than the record's fixed part or a string in
// it runs past the end; it never reads outside [r.data, r.data + r.size). Extra trailing
// bytes are ignored, as other readers do. Strings are UTF-8 here, as in the model.
#pragma once

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "xls/Records.h"

namespace xls {

// BOF: the first record of the globals (type 0x0005) and of each sheet (0x0010).
struct BofRecord {
  std::uint16_t version = 0x0600;  // BIFF8; 0x0500 in BIFF5, whose record ends after year
  std::uint16_t type = 0x0005;
  std::uint16_t build = 0x0DBB;
  std::uint16_t year = 0x07CC;
  std::uint32_t history = 0;
  std::uint32_t lowestVersion = 0x00000006;
  void EncodeTo(RecordWriter& w) const;
  [[nodiscard]] bool DecodeFrom(const Record& r);
};

// A record of one 16-bit value: CODEPAGE (1200 = UTF-16), DATEMODE (1 = 1904 system).
struct U16Record {
  std::uint16_t id = 0;
  std::uint16_t value = 0;
  void EncodeTo(RecordWriter& w) const;
  [[nodiscard]] bool DecodeFrom(const Record& r);
};

// WINDOW1: the workbook window, in twips, and which sheet tab is active.
struct Window1Record {
  std::uint16_t x = 0, y = 0, width = 0x4000, height = 0x2000;
  std::uint16_t options = 0x0038;  // horizontal and vertical scroll bars, sheet tabs
  std::uint16_t activeTab = 0, firstTab = 0, selectedTabs = 1, tabRatio = 0x0258;
  void EncodeTo(RecordWriter& w) const;
  [[nodiscard]] bool DecodeFrom(const Record& r);
};

// FONT: height in twips, option bits (bit 0 bold, which some readers take from here),
// colour index, weight (400 normal, 700 bold), escapement, underline, family, charset, name.
struct FontRecord {
  std::uint16_t height = 200;
  std::uint16_t options = 0;
  std::uint16_t colour = 0x7FFF;  // automatic
  std::uint16_t weight = 400;
  std::uint16_t escapement = 0;
  std::uint8_t underline = 0;
  std::uint8_t family = 2;  // swiss
  std::uint8_t charset = 0;
  std::string name = "Arial";
  void EncodeTo(RecordWriter& w) const;
  [[nodiscard]] bool DecodeFrom(const Record& r);
};

// FORMAT: a number format string and the index XF records refer to it by.
struct FormatRecord {
  std::uint16_t index = 0;
  std::string format;
  void EncodeTo(RecordWriter& w) const;
  [[nodiscard]] bool DecodeFrom(const Record& r);
};

// XF (20 bytes): font and format indexes, type and parent, alignment (bits 0-2 horizontal,
// 4-6 vertical), rotation, indent, which attributes are set, line styles (4 bits each: left,
// right, top, bottom; then left and right colours), top and bottom colours, fill colours.
struct XfRecord8 {
  std::uint16_t font = 0;
  std::uint16_t format = 0;
  std::uint16_t typeAndParent = 0x0001;  // a cell XF whose parent is style XF 0
  std::uint8_t alignment = 0x20;         // general, bottom
  std::uint8_t rotation = 0;
  std::uint8_t indent = 0;
  std::uint8_t used = 0;
  std::uint32_t lines = 0;
  std::uint32_t lineColours = 0;
  std::uint16_t fillColours = 0x20C0;  // foreground 64, background 65 (automatic)
  void EncodeTo(RecordWriter& w) const;
  [[nodiscard]] bool DecodeFrom(const Record& r);
};

// STYLE for a built-in style ("Normal" is 0) on an XF.
struct StyleRecord {
  std::uint16_t xf = 0;
  std::uint8_t builtin = 0;
  std::uint8_t level = 0xFF;
  void EncodeTo(RecordWriter& w) const;
  [[nodiscard]] bool DecodeFrom(const Record& r);  // false too for a user-defined style
};

// BOUNDSHEET: stream offset of a sheet's BOF, visibility, kind (0 worksheet), name.
struct BoundSheetRecord {
  std::uint32_t position = 0;
  std::uint8_t visibility = 0;
  std::uint8_t kind = 0;
  std::string name;
  // Where position lies from the start of the record: patched once the globals are laid out.
  static constexpr std::size_t kPositionOffset = 4;
  void EncodeTo(RecordWriter& w) const;
  [[nodiscard]] bool DecodeFrom(const Record& r);
};

// COLINFO: columns first..last share a width (1/256 of a digit), an XF and options.
struct ColInfoRecord {
  std::uint16_t first = 0, last = 0;
  std::uint16_t width = 0;
  std::uint16_t xf = 15;
  std::uint16_t options = 0x0002;  // width set by the user
  void EncodeTo(RecordWriter& w) const;
  [[nodiscard]] bool DecodeFrom(const Record& r);
};

// DIMENSIONS: the used range, last row and column exclusive.
struct DimensionsRecord {
  std::uint32_t firstRow = 0, rowsEnd = 0;
  std::uint16_t firstColumn = 0, columnsEnd = 0;
  void EncodeTo(RecordWriter& w) const;
  [[nodiscard]] bool DecodeFrom(const Record& r);
};

// ROW: a row's cell span (end exclusive), height in twips and options.
struct RowRecord {
  std::uint16_t row = 0;
  std::uint16_t firstColumn = 0, columnsEnd = 0;
  std::uint16_t height = 0x00FF;
  std::uint16_t options = 0x0100;  // always set
  std::uint16_t xf = 0x000F;
  void EncodeTo(RecordWriter& w) const;
  [[nodiscard]] bool DecodeFrom(const Record& r);
};

// WINDOW2: a sheet window's options (0x06B6 on the active sheet: gridlines, headers,
// selected, shown), first visible cell, gridline colour and zooms.
struct Window2Record {
  std::uint16_t options = 0x00B6;
  std::uint16_t topRow = 0, leftColumn = 0;
  std::uint16_t gridColour = 0x40;
  std::uint16_t pageBreakZoom = 0, normalZoom = 0;
  void EncodeTo(RecordWriter& w) const;
  [[nodiscard]] bool DecodeFrom(const Record& r);
};

// EXTERNSHEET: the table 3-D references index, each entry a SUPBOOK (a workbook: this
// one or another) and a first and last sheet position in it (-1 and -2 for none).
struct ExternSheetRecord {
  struct Entry {
    std::uint16_t supBook = 0;
    std::int16_t firstTab = 0, lastTab = 0;
  };
  std::vector<Entry> entries;
  void EncodeTo(RecordWriter& w) const;
  // Entries past the record's end are not read, whatever its count says.
  [[nodiscard]] bool DecodeFrom(const Record& r);
};

// NAME: options (0x0020 built-in, whose name is one character code: 0x06 Print_Area...),
// keyboard shortcut, scope (1-based BOUNDSHEET position, 0 the workbook), the name and its
// formula tokens. Menu, description and help texts are neither read nor written.
struct NameRecord {
  std::uint16_t options = 0;
  std::uint8_t shortcut = 0;
  std::uint16_t scopeTab = 0;
  std::string name;
  std::vector<std::uint8_t> formula;
  void EncodeTo(RecordWriter& w) const;
  [[nodiscard]] bool DecodeFrom(const Record& r);
};

// The cell records' common head: row, column, XF.
struct CellHead {
  std::uint16_t row = 0, column = 0, xf = 0;
  void BeginRecord(RecordWriter& w, std::uint16_t id) const {
    w.Begin(id);
    w.U16(row);
    w.U16(column);
    w.U16(xf);
  }
  // REQUIRES: 6 bytes at p.
  static CellHead At(const std::uint8_t* p) { return {GetU16(p), GetU16(p + 2), GetU16(p + 4)}; }
};

// NUMBER: a cell's IEEE double.
struct NumberRecord {
  CellHead cell;
  double value = 0;
  void EncodeTo(RecordWriter& w) const {
    cell.BeginRecord(w, rec::kNumber);
    w.Double(value);
    w.End();
  }
  [[nodiscard]] bool DecodeFrom(const Record& r) {
    if (r.size < 14) return false;
    cell = CellHead::At(r.data);
    value = GetDouble(r.data + 6);
    return true;
  }
};

// LABELSST: a cell's index into the shared string table.
struct LabelSstRecord {
  CellHead cell;
  std::uint32_t index = 0;
  void EncodeTo(RecordWriter& w) const {
    cell.BeginRecord(w, rec::kLabelSst);
    w.U32(index);
    w.End();
  }
  [[nodiscard]] bool DecodeFrom(const Record& r) {
    if (r.size < 10) return false;
    cell = CellHead::At(r.data);
    index = GetU32(r.data + 6);
    return true;
  }
};

// BOOLERR: a boolean (0/1) or an error code (isError 1: 0x07 #DIV/0!, 0x2A #N/A, ...).
struct BoolErrRecord {
  CellHead cell;
  std::uint8_t value = 0;
  std::uint8_t isError = 0;
  void EncodeTo(RecordWriter& w) const {
    cell.BeginRecord(w, rec::kBoolErr);
    w.U8(value);
    w.U8(isError);
    w.End();
  }
  [[nodiscard]] bool DecodeFrom(const Record& r) {
    if (r.size < 8) return false;
    cell = CellHead::At(r.data);
    value = r.data[6];
    isError = r.data[7];
    return true;
  }
};

// BLANK: a formatted cell without a value.
struct BlankRecord {
  CellHead cell;
  void EncodeTo(RecordWriter& w) const {
    cell.BeginRecord(w, rec::kBlank);
    w.End();
  }
  [[nodiscard]] bool DecodeFrom(const Record& r) {
    if (r.size < 6) return false;
    cell = CellHead::At(r.data);
    return true;
  }
};

// An RK value: a 30-bit integer (bit 1 set) or the top 30 bits of a double, either divided
// by 100 when bit 0 is set.
inline double RkValue(std::uint32_t rk) {
  double v;
  if (rk & 2) {
    v = static_cast<double>(static_cast<std::int32_t>(rk) >> 2);
  } else {
    std::uint64_t bits = std::uint64_t{rk & 0xFFFFFFFCu} << 32;
    std::memcpy(&v, &bits, sizeof v);
  }
  return (rk & 1) ? v / 100 : v;
}

// RK: a cell's number in RK form ([MS-XLS] 2.5.217).
struct RkRecord {
  CellHead cell;
  std::uint32_t rk = 0;
  double value() const { return RkValue(rk); }
  void EncodeTo(RecordWriter& w) const {
    cell.BeginRecord(w, rec::kRk);
    w.U32(rk);
    w.End();
  }
  [[nodiscard]] bool DecodeFrom(const Record& r) {
    if (r.size < 10) return false;
    cell = CellHead::At(r.data);
    rk = GetU32(r.data + 6);
    return true;
  }
};

// MULRK: numbers in RK form for columns firstColumn.. of one row, each with its XF, then the
// last column. DecodeFrom is false unless that last column closes the run the record's size
// gives, so a cut record is not read as a shorter one. Decoding into the same struct again
// reuses the vector's storage.
struct MulRkRecord {
  struct Entry {
    std::uint16_t xf = 0;
    std::uint32_t rk = 0;
  };
  std::uint16_t row = 0, firstColumn = 0;
  std::vector<Entry> cells;
  void EncodeTo(RecordWriter& w) const {
    w.Begin(rec::kMulRk);
    w.U16(row);
    w.U16(firstColumn);
    for (const Entry& e : cells) {
      w.U16(e.xf);
      w.U32(e.rk);
    }
    w.U16(static_cast<std::uint16_t>(firstColumn + cells.size() - 1));
    w.End();
  }
  [[nodiscard]] bool DecodeFrom(const Record& r) {
    if (r.size < 12) return false;
    const std::size_t count = (r.size - 6) / 6;
    row = GetU16(r.data);
    firstColumn = GetU16(r.data + 2);
    if (std::size_t{GetU16(r.data + 4 + 6 * count)} != firstColumn + count - 1) return false;
    cells.resize(count);
    for (std::size_t i = 0; i < count; ++i)
      cells[i] = {GetU16(r.data + 4 + 6 * i), GetU32(r.data + 6 + 6 * i)};
    return true;
  }
};

// MULBLANK: formatted empty cells in columns firstColumn.. of one row, one XF each, then the
// last column, checked as MULRK's is.
struct MulBlankRecord {
  std::uint16_t row = 0, firstColumn = 0;
  std::vector<std::uint16_t> xfs;
  void EncodeTo(RecordWriter& w) const {
    w.Begin(rec::kMulBlank);
    w.U16(row);
    w.U16(firstColumn);
    for (std::uint16_t xf : xfs) w.U16(xf);
    w.U16(static_cast<std::uint16_t>(firstColumn + xfs.size() - 1));
    w.End();
  }
  [[nodiscard]] bool DecodeFrom(const Record& r) {
    if (r.size < 8) return false;
    const std::size_t count = (r.size - 6) / 2;
    row = GetU16(r.data);
    firstColumn = GetU16(r.data + 2);
    if (std::size_t{GetU16(r.data + 4 + 2 * count)} != firstColumn + count - 1) return false;
    xfs.resize(count);
    for (std::size_t i = 0; i < count; ++i) xfs[i] = GetU16(r.data + 4 + 2 * i);
    return true;
  }
};

// FORMULA: a cell's cached result, options, and its formula's tokens ([MS-XLS] 2.4.127).
// The result is 8 bytes: a double, or bytes 6-7 0xFFFF and byte 0 the kind (0 string, in a
// STRING record next; 1 boolean and 2 error, each in byte 2; 3 empty text). Bytes past the
// tokens (array and table data) are neither read nor written. Decoding into the same struct
// again reuses the tokens' storage.
struct FormulaRecord {
  CellHead cell;
  std::uint8_t result[8] = {};
  std::uint16_t options = 0;
  std::vector<std::uint8_t> tokens;
  void EncodeTo(RecordWriter& w) const {
    cell.BeginRecord(w, rec::kFormula);
    w.Bytes(result, sizeof result);
    w.U16(options);
    w.U32(0);  // a cache id no reader uses
    w.U16(static_cast<std::uint16_t>(tokens.size()));
    w.Bytes(tokens.data(), tokens.size());
    w.End();
  }
  [[nodiscard]] bool DecodeFrom(const Record& r) {
    if (r.size < 22) return false;
    const std::size_t cce = GetU16(r.data + 20);
    if (r.size - 22 < cce) return false;
    cell = CellHead::At(r.data);
    std::memcpy(result, r.data + 6, sizeof result);
    options = GetU16(r.data + 14);
    tokens.assign(r.data + 22, r.data + 22 + cce);
    return true;
  }
};

// LABEL (BIFF8): a cell's text in the record itself, as some generators write instead of
// LABELSST.
struct LabelRecord {
  CellHead cell;
  std::string text;
  void EncodeTo(RecordWriter& w) const;
  [[nodiscard]] bool DecodeFrom(const Record& r);
};

}  // namespace xls
