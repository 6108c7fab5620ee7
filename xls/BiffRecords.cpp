#include "xls/BiffRecords.h"

#include <algorithm>

#include "xls/Strings.h"

namespace xls {

namespace {

// A BIFF8 string at the end of a record: false when it runs past the record.
bool StringAt(const Record& r, std::size_t offset, bool shortLength, std::string* out) {
  if (r.size < offset) return false;
  SegmentReader in;
  in.Add(r.data + offset, r.size - offset);
  out->clear();
  return in.String(shortLength, out);
}

}  // namespace

void BofRecord::EncodeTo(RecordWriter& w) const {
  w.Begin(rec::kBof);
  w.U16(version);
  w.U16(type);
  w.U16(build);
  w.U16(year);
  w.U32(history);
  w.U32(lowestVersion);
  w.End();
}

bool BofRecord::DecodeFrom(const Record& r) {
  if (r.size < 4) return false;
  version = GetU16(r.data);
  type = GetU16(r.data + 2);
  build = r.size >= 8 ? GetU16(r.data + 4) : 0;
  year = r.size >= 8 ? GetU16(r.data + 6) : 0;
  history = r.size >= 16 ? GetU32(r.data + 8) : 0;
  lowestVersion = r.size >= 16 ? GetU32(r.data + 12) : 0;
  return true;
}

void U16Record::EncodeTo(RecordWriter& w) const {
  w.Begin(id);
  w.U16(value);
  w.End();
}

bool U16Record::DecodeFrom(const Record& r) {
  if (r.size < 2) return false;
  id = r.id;
  value = GetU16(r.data);
  return true;
}

void Window1Record::EncodeTo(RecordWriter& w) const {
  w.Begin(rec::kWindow1);
  for (std::uint16_t v :
       {x, y, width, height, options, activeTab, firstTab, selectedTabs, tabRatio})
    w.U16(v);
  w.End();
}

bool Window1Record::DecodeFrom(const Record& r) {
  if (r.size < 18) return false;
  std::uint16_t* fields[] = {&x,         &y,        &width,        &height,  &options,
                             &activeTab, &firstTab, &selectedTabs, &tabRatio};
  for (std::size_t i = 0; i < 9; ++i) *fields[i] = GetU16(r.data + 2 * i);
  return true;
}

void FontRecord::EncodeTo(RecordWriter& w) const {
  w.Begin(rec::kFont);
  w.U16(height);
  w.U16(options);
  w.U16(colour);
  w.U16(weight);
  w.U16(escapement);
  w.U8(underline);
  w.U8(family);
  w.U8(charset);
  w.U8(0);
  WriteString(w, name, true);
  w.End();
}

bool FontRecord::DecodeFrom(const Record& r) {
  if (r.size < 14) return false;
  height = GetU16(r.data);
  options = GetU16(r.data + 2);
  colour = GetU16(r.data + 4);
  weight = GetU16(r.data + 6);
  escapement = GetU16(r.data + 8);
  underline = r.data[10];
  family = r.data[11];
  charset = r.data[12];
  return StringAt(r, 14, true, &name);
}

void FormatRecord::EncodeTo(RecordWriter& w) const {
  w.Begin(rec::kFormat);
  w.U16(index);
  WriteString(w, format, false);
  w.End();
}

bool FormatRecord::DecodeFrom(const Record& r) {
  if (r.size < 2) return false;
  index = GetU16(r.data);
  return StringAt(r, 2, false, &format);
}

void XfRecord8::EncodeTo(RecordWriter& w) const {
  w.Begin(rec::kXf);
  w.U16(font);
  w.U16(format);
  w.U16(typeAndParent);
  w.U8(alignment);
  w.U8(rotation);
  w.U8(indent);
  w.U8(used);
  w.U32(lines);
  w.U32(lineColours);
  w.U16(fillColours);
  w.End();
}

bool XfRecord8::DecodeFrom(const Record& r) {
  if (r.size < 20) return false;
  font = GetU16(r.data);
  format = GetU16(r.data + 2);
  typeAndParent = GetU16(r.data + 4);
  alignment = r.data[6];
  rotation = r.data[7];
  indent = r.data[8];
  used = r.data[9];
  lines = GetU32(r.data + 10);
  lineColours = GetU32(r.data + 14);
  fillColours = GetU16(r.data + 18);
  return true;
}

void StyleRecord::EncodeTo(RecordWriter& w) const {
  w.Begin(rec::kStyle);
  w.U16(static_cast<std::uint16_t>(xf | 0x8000));
  w.U8(builtin);
  w.U8(level);
  w.End();
}

bool StyleRecord::DecodeFrom(const Record& r) {
  if (r.size < 4 || !(GetU16(r.data) & 0x8000)) return false;
  xf = GetU16(r.data) & 0x0FFF;
  builtin = r.data[2];
  level = r.data[3];
  return true;
}

void BoundSheetRecord::EncodeTo(RecordWriter& w) const {
  w.Begin(rec::kBoundSheet);
  w.U32(position);
  w.U8(visibility);
  w.U8(kind);
  WriteString(w, name, true);
  w.End();
}

bool BoundSheetRecord::DecodeFrom(const Record& r) {
  if (r.size < 6) return false;
  position = GetU32(r.data);
  visibility = r.data[4];
  kind = r.data[5];
  return StringAt(r, 6, true, &name);
}

void ColInfoRecord::EncodeTo(RecordWriter& w) const {
  w.Begin(rec::kColInfo);
  w.U16(first);
  w.U16(last);
  w.U16(width);
  w.U16(xf);
  w.U16(options);
  w.U16(0);
  w.End();
}

bool ColInfoRecord::DecodeFrom(const Record& r) {
  // Writers that leave out the fields after the width are read too.
  if (r.size < 6) return false;
  first = GetU16(r.data);
  last = GetU16(r.data + 2);
  width = GetU16(r.data + 4);
  xf = r.size >= 8 ? GetU16(r.data + 6) : 15;
  options = r.size >= 10 ? GetU16(r.data + 8) : 0;
  return true;
}

void DimensionsRecord::EncodeTo(RecordWriter& w) const {
  w.Begin(rec::kDimensions);
  w.U32(firstRow);
  w.U32(rowsEnd);
  w.U16(firstColumn);
  w.U16(columnsEnd);
  w.U16(0);
  w.End();
}

bool DimensionsRecord::DecodeFrom(const Record& r) {
  if (r.size < 12) return false;
  firstRow = GetU32(r.data);
  rowsEnd = GetU32(r.data + 4);
  firstColumn = GetU16(r.data + 8);
  columnsEnd = GetU16(r.data + 10);
  return true;
}

void RowRecord::EncodeTo(RecordWriter& w) const {
  w.Begin(rec::kRow);
  w.U16(row);
  w.U16(firstColumn);
  w.U16(columnsEnd);
  w.U16(height);
  w.U16(0);  // reserved
  w.U16(0);  // unused
  w.U16(options);
  w.U16(xf);
  w.End();
}

bool RowRecord::DecodeFrom(const Record& r) {
  if (r.size < 16) return false;
  row = GetU16(r.data);
  firstColumn = GetU16(r.data + 2);
  columnsEnd = GetU16(r.data + 4);
  height = GetU16(r.data + 6);
  options = GetU16(r.data + 12);
  xf = GetU16(r.data + 14);
  return true;
}

void Window2Record::EncodeTo(RecordWriter& w) const {
  w.Begin(rec::kWindow2);
  w.U16(options);
  w.U16(topRow);
  w.U16(leftColumn);
  w.U16(gridColour);
  w.U16(0);  // reserved
  w.U16(pageBreakZoom);
  w.U16(normalZoom);
  w.U32(0);  // reserved
  w.End();
}

bool Window2Record::DecodeFrom(const Record& r) {
  if (r.size < 14) return false;
  options = GetU16(r.data);
  topRow = GetU16(r.data + 2);
  leftColumn = GetU16(r.data + 4);
  gridColour = GetU16(r.data + 6);
  pageBreakZoom = GetU16(r.data + 10);
  normalZoom = GetU16(r.data + 12);
  return true;
}

void ExternSheetRecord::EncodeTo(RecordWriter& w) const {
  w.Begin(rec::kExternSheet);
  w.U16(static_cast<std::uint16_t>(entries.size()));
  for (const Entry& e : entries) {
    w.U16(e.supBook);
    w.U16(static_cast<std::uint16_t>(e.firstTab));
    w.U16(static_cast<std::uint16_t>(e.lastTab));
  }
  w.End();
}

bool ExternSheetRecord::DecodeFrom(const Record& r) {
  if (r.size < 2) return false;
  const std::size_t count = std::min<std::size_t>(GetU16(r.data), (r.size - 2) / 6);
  entries.clear();
  for (std::size_t i = 0; i < count; ++i) {
    const std::uint8_t* e = r.data + 2 + 6 * i;
    entries.push_back({GetU16(e), static_cast<std::int16_t>(GetU16(e + 2)),
                       static_cast<std::int16_t>(GetU16(e + 4))});
  }
  return true;
}

void NameRecord::EncodeTo(RecordWriter& w) const {
  std::vector<std::uint16_t> units;
  Utf8ToUtf16(name, &units);
  if (units.size() > 255) units.resize(255);
  const bool wide =
      std::any_of(units.begin(), units.end(), [](std::uint16_t u) { return u > 0xFF; });
  w.Begin(rec::kName);
  w.U16(options);
  w.U8(shortcut);
  w.U8(static_cast<std::uint8_t>(units.size()));
  w.U16(static_cast<std::uint16_t>(formula.size()));
  w.U16(0);
  w.U16(scopeTab);
  w.U32(0);  // no menu, description, help or status texts
  w.U8(wide ? 1 : 0);
  for (std::uint16_t u : units) {
    if (wide)
      w.U16(u);
    else
      w.U8(static_cast<std::uint8_t>(u));
  }
  w.Bytes(formula.data(), formula.size());
  w.End();
}

bool NameRecord::DecodeFrom(const Record& r) {
  if (r.size < 15) return false;
  options = GetU16(r.data);
  shortcut = r.data[2];
  const std::size_t cch = r.data[3];
  const std::size_t cce = GetU16(r.data + 4);
  scopeTab = GetU16(r.data + 8);
  const bool wide = (r.data[14] & 1) != 0;
  const std::size_t nameBytes = cch * (wide ? 2 : 1);
  if (r.size - 15 < nameBytes || r.size - 15 - nameBytes < cce) return false;
  SegmentReader in;
  in.Add(r.data + 15, nameBytes);
  name.clear();
  if (!in.Chars(cch, wide, &name)) return false;
  const std::uint8_t* f = r.data + 15 + nameBytes;
  formula.assign(f, f + cce);
  return true;
}

void LabelRecord::EncodeTo(RecordWriter& w) const {
  cell.BeginRecord(w, rec::kLabel);
  WriteString(w, text, false);
  w.End();
}

bool LabelRecord::DecodeFrom(const Record& r) {
  if (r.size < 6) return false;
  cell = CellHead::At(r.data);
  return StringAt(r, 6, false, &text);
}

}  // namespace xls
