#include "xls/Names.h"

#include <algorithm>

#include "xls/BiffRecords.h"
#include "xls/Records.h"

namespace xls {

namespace {

// Excel's built-in names, which the file stores as one character code.
const char* const kBuiltinNames[] = {
    "Consolidate_Area", "Auto_Open",       "Auto_Close",   "Extract",        "Database",
    "Criteria",         "Print_Area",      "Print_Titles", "Recorder",       "Data_Form",
    "Auto_Activate",    "Auto_Deactivate", "Sheet_Title",  "_FilterDatabase"};

// Formula tokens of a 3-D reference, in their reference, value and array classes.
bool IsArea3d(std::uint8_t t) { return t == 0x3B || t == 0x5B || t == 0x7B; }
bool IsRef3d(std::uint8_t t) { return t == 0x3A || t == 0x5A || t == 0x7A; }

}  // namespace

int BuiltinNameCode(std::string_view name) {
  for (std::size_t i = 0; i < sizeof kBuiltinNames / sizeof kBuiltinNames[0]; ++i) {
    if (name == kBuiltinNames[i]) return static_cast<int>(i);
  }
  return -1;
}

void WriteNameRecords(const Workbook& wb, RecordWriter& w) {
  const auto sheetCount = static_cast<int>(wb.sheets().size());
  std::vector<const DefinedName*> kept;
  for (const DefinedName& n : wb.names()) {
    if (n.sheet < 0 || n.sheet >= sheetCount || n.scopeSheet >= sheetCount) continue;
    if (n.firstRow < 0 || n.firstColumn < 0 || n.firstRow >= kMaxRows ||
        n.firstColumn >= kMaxColumns || n.name.empty()) {
      continue;
    }
    if (n.builtin && BuiltinNameCode(n.name) < 0) continue;
    kept.push_back(&n);
  }
  if (kept.empty()) return;
  // This workbook's own SUPBOOK, then one EXTERNSHEET entry per sheet a name points at.
  w.Begin(rec::kSupBook);
  w.U16(static_cast<std::uint16_t>(sheetCount));
  w.U16(0x0401);
  w.End();
  ExternSheetRecord refs;
  std::vector<int> entryOfSheet(static_cast<std::size_t>(sheetCount), -1);
  for (const DefinedName* n : kept) {
    int& entry = entryOfSheet[static_cast<std::size_t>(n->sheet)];
    if (entry >= 0) continue;
    entry = static_cast<int>(refs.entries.size());
    const auto tab = static_cast<std::int16_t>(n->sheet);
    refs.entries.push_back({0, tab, tab});
  }
  refs.EncodeTo(w);
  for (const DefinedName* n : kept) {
    NameRecord out;
    if (n->builtin) {
      out.options = 0x0020;
      out.name = std::string(1, static_cast<char>(BuiltinNameCode(n->name)));
    } else {
      out.name = n->name;
    }
    out.scopeTab = static_cast<std::uint16_t>(n->scopeSheet + 1);
    // tArea3d: EXTERNSHEET entry, rows, columns; no relative flags, so the area is absolute.
    std::uint8_t f[11];
    f[0] = 0x3B;
    PutU16(f + 1, static_cast<std::uint16_t>(entryOfSheet[static_cast<std::size_t>(n->sheet)]));
    PutU16(f + 3, static_cast<std::uint16_t>(n->firstRow));
    PutU16(f + 5, static_cast<std::uint16_t>(std::min(n->lastRow, kMaxRows - 1)));
    PutU16(f + 7, static_cast<std::uint16_t>(n->firstColumn));
    PutU16(f + 9, static_cast<std::uint16_t>(std::min(n->lastColumn, kMaxColumns - 1)));
    out.formula.assign(f, f + sizeof f);
    out.EncodeTo(w);
  }
}

void NameTable::AddSupBook(const std::uint8_t* p, std::size_t n) {
  // This workbook's own SUPBOOK is the sheet count and the marker 0x0401 in place of a path.
  supBookInternal_.push_back(n >= 4 && GetU16(p + 2) == 0x0401);
}

void NameTable::AddExternSheet(const std::uint8_t* p, std::size_t n) {
  ExternSheetRecord table;
  if (!table.DecodeFrom(Record{rec::kExternSheet, 0, p, n})) return;
  xti_.clear();
  for (const auto& e : table.entries) xti_.push_back({e.supBook, e.firstTab, e.lastTab});
}

void NameTable::AddName(const std::uint8_t* p, std::size_t n, int biff, const CodepageDecoder& cp) {
  Pending out;
  out.biff = biff;
  if (biff >= 8) {
    NameRecord name;
    if (!name.DecodeFrom(Record{rec::kName, 0, p, n})) return;
    out.scopeTab = static_cast<int>(name.scopeTab) - 1;
    out.name.builtin = (name.options & 0x0020) != 0;
    out.name.name = std::move(name.name);
    out.formula = std::move(name.formula);
  } else {
    // BIFF5 keeps the BIFF8 layout up to the name, which is 8-bit text in the code page
    // without an option byte; the field BIFF8 leaves unused indexes EXTERNSHEET.
    if (n < 14) return;
    const std::size_t cch = p[3];
    const std::size_t cce = GetU16(p + 4);
    if (n - 14 < cch || n - 14 - cch < cce) return;
    out.scopeTab = static_cast<int>(GetU16(p + 8)) - 1;
    out.name.builtin = (GetU16(p) & 0x0020) != 0;
    cp.Append(p + 14, cch, &out.name.name);
    out.formula.assign(p + 14 + cch, p + 14 + cch + cce);
  }
  std::string& text = out.name.name;
  if (out.name.builtin && !text.empty()) {
    const auto code = static_cast<unsigned char>(text[0]);
    if (code >= sizeof kBuiltinNames / sizeof kBuiltinNames[0]) return;
    text = kBuiltinNames[code];
  }
  if (text.empty()) return;
  pending_.push_back(std::move(out));
}

bool NameTable::AreaOf(const Pending& p, const std::vector<int>& tabToSheet,
                       DefinedName* out) const {
  const std::vector<std::uint8_t>& f = p.formula;
  if (f.empty()) return false;
  const std::uint8_t token = f[0];
  int firstTab, lastTab;
  unsigned row1, row2, col1, col2;
  if (p.biff >= 8) {
    // ixti u16, then rows u16 and columns u16 (low 14 bits; the top two mark relative ones).
    const std::size_t size = IsArea3d(token) ? 11 : IsRef3d(token) ? 7 : 0;
    if (size == 0 || f.size() != size) return false;
    const std::uint16_t ixti = GetU16(f.data() + 1);
    if (ixti >= xti_.size()) return false;
    const Xti& x = xti_[ixti];
    if (x.supBook < supBookInternal_.size() && !supBookInternal_[x.supBook]) return false;
    firstTab = x.firstTab;
    lastTab = x.lastTab;
    row1 = GetU16(f.data() + 3);
    if (IsArea3d(token)) {
      row2 = GetU16(f.data() + 5);
      col1 = GetU16(f.data() + 7) & 0x3FFF;
      col2 = GetU16(f.data() + 9) & 0x3FFF;
    } else {
      row2 = row1;
      col1 = col2 = GetU16(f.data() + 5) & 0x3FFF;
    }
  } else {
    // EXTERNSHEET index i16 (negative: this workbook), 8 unused bytes, first and last
    // sheet i16, rows u16 (low 14 bits), columns u8.
    const std::size_t size = IsArea3d(token) ? 21 : IsRef3d(token) ? 18 : 0;
    if (size == 0 || f.size() != size) return false;
    if (static_cast<std::int16_t>(GetU16(f.data() + 1)) > 0) return false;
    firstTab = static_cast<std::int16_t>(GetU16(f.data() + 11));
    lastTab = static_cast<std::int16_t>(GetU16(f.data() + 13));
    row1 = GetU16(f.data() + 15) & 0x3FFF;
    if (IsArea3d(token)) {
      row2 = GetU16(f.data() + 17) & 0x3FFF;
      col1 = f[19];
      col2 = f[20];
    } else {
      row2 = row1;
      col1 = col2 = f[17];
    }
  }
  if (firstTab != lastTab || firstTab < 0 ||
      static_cast<std::size_t>(firstTab) >= tabToSheet.size())
    return false;
  if (tabToSheet[static_cast<std::size_t>(firstTab)] < 0) return false;
  if (row1 > row2) std::swap(row1, row2);
  if (col1 > col2) std::swap(col1, col2);
  if (row2 >= static_cast<unsigned>(kMaxRows) || col2 >= static_cast<unsigned>(kMaxColumns))
    return false;
  out->sheet = tabToSheet[static_cast<std::size_t>(firstTab)];
  out->firstRow = static_cast<int>(row1);
  out->lastRow = static_cast<int>(row2);
  out->firstColumn = static_cast<int>(col1);
  out->lastColumn = static_cast<int>(col2);
  return true;
}

void NameTable::Resolve(const std::vector<int>& tabToSheet, Workbook* wb) const {
  for (const Pending& p : pending_) {
    DefinedName name = p.name;
    if (p.scopeTab >= 0) {
      if (static_cast<std::size_t>(p.scopeTab) >= tabToSheet.size()) continue;
      name.scopeSheet = tabToSheet[static_cast<std::size_t>(p.scopeTab)];
      if (name.scopeSheet < 0) continue;  // scoped to a sheet the model does not hold
    }
    if (AreaOf(p, tabToSheet, &name)) wb->addName(std::move(name));
  }
}

}  // namespace xls
