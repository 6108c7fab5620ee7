// Reads an Office Open XML workbook: the package relationships lead to the workbook part,
// its relationships to the shared strings, the styles and each sheet's part.
#include <charconv>
#include <cmath>
#include <cstring>
#include <set>

#include "xls/Xlsx.h"
#include "xls/XlsxParts.h"
#include "xls/XlsxXml.h"

namespace xls {

namespace {

// Cells the model may hold densely before the sheet's own cells justify it: rows are dense
// up to their last cell, so a few cells far to the right cost a whole row each.
constexpr std::uint64_t kDenseCellAllowance = 4u << 20;
constexpr std::uint64_t kDenseCellsPerCell = 64;
// <col> ranges may overlap; past this many column assignments a sheet is hostile.
constexpr std::uint64_t kMaxColumnAssignments = 4 * kXlsxMaxColumns;

std::string CellRef(int row, int col) {
  std::string letters;
  for (int c = col + 1; c > 0; c = (c - 1) / 26)
    letters.insert(letters.begin(), static_cast<char>('A' + (c - 1) % 26));
  return letters + std::to_string(row + 1);
}

// "AB12" as 0-based row and column; false when malformed or past the grid.
bool ParseCellRef(const char* s, int* row, int* col) {
  int c = 0, letters = 0;
  for (; *s >= 'A' && *s <= 'Z'; ++s, ++letters) c = c * 26 + (*s - 'A' + 1);
  if (letters == 0 || letters > 3 || c > kXlsxMaxColumns) return false;
  long r = 0;
  int digits = 0;
  for (; *s >= '0' && *s <= '9'; ++s, ++digits) {
    r = r * 10 + (*s - '0');
    if (r > kXlsxMaxRows) return false;
  }
  if (digits == 0 || *s != '\0' || r < 1) return false;
  *row = static_cast<int>(r - 1);
  *col = c - 1;
  return true;
}

bool ParseCount(const char* s, long max, long* out) {
  long v = 0;
  if (*s == '\0') return false;
  for (; *s != '\0'; ++s) {
    if (*s < '0' || *s > '9') return false;
    v = v * 10 + (*s - '0');
    if (v > max) return false;
  }
  *out = v;
  return true;
}

std::string_view Trimmed(std::string_view s) {
  while (!s.empty() &&
         (s.front() == ' ' || s.front() == '\t' || s.front() == '\n' || s.front() == '\r'))
    s.remove_prefix(1);
  while (!s.empty() &&
         (s.back() == ' ' || s.back() == '\t' || s.back() == '\n' || s.back() == '\r'))
    s.remove_suffix(1);
  return s;
}

bool ParseNumber(std::string_view s, double* out) {
  s = Trimmed(s);
  if (!s.empty() && s.front() == '+') s.remove_prefix(1);
  auto [end, ec] = std::from_chars(s.data(), s.data() + s.size(), *out);
  return ec == std::errc() && end == s.data() + s.size() && !s.empty();
}

std::uint8_t ErrorCode(std::string_view text) {
  static constexpr std::pair<std::string_view, std::uint8_t> kErrors[] = {
      {"#NULL!", 0x00}, {"#DIV/0!", 0x07}, {"#VALUE!", 0x0F}, {"#REF!", 0x17},
      {"#NAME?", 0x1D}, {"#NUM!", 0x24},   {"#N/A", 0x2A},    {"#GETTING_DATA", 0x2B}};
  for (const auto& [name, code] : kErrors) {
    if (Trimmed(text) == name) return code;
  }
  return 0x0F;  // an error Excel does not know reads as #VALUE!
}

enum class ValueKind : std::uint8_t {
  kNumber,
  kShared,
  kFormulaText,
  kInline,
  kBool,
  kError,
  kDate
};

ValueKind KindOf(const char* t) {
  switch (t[0]) {
    case 's':
      return t[1] == '\0' ? ValueKind::kShared : ValueKind::kFormulaText;  // "s", "str"
    case 'i':
      return ValueKind::kInline;
    case 'b':
      return ValueKind::kBool;
    case 'e':
      return ValueKind::kError;
    case 'd':
      return ValueKind::kDate;
    default:
      return ValueKind::kNumber;
  }
}

class SheetHandler : public XmlHandler {
 public:
  SheetHandler(Sheet* sheet, Workbook* book, const SharedStringPool& strings,
               XlsxStyleTable* styles)
      : sheet_(sheet), book_(book), strings_(strings), styles_(styles) {}

  void Start(std::string_view name, const char** attrs) override {
    if (name.size() == 1) {
      if (name[0] == 'c' && inSheetData_) {
        StartCell(attrs);
      } else if (name[0] == 'v' && inCell_) {
        value_.clear();
        hasValue_ = wantText = true;
      } else if (name[0] == 't' && inInline_ && phonetic_ == 0) {
        wantText = true;
      }
    } else if (name == "row") {
      StartRow(attrs);
    } else if (name == "is" && inCell_) {
      inInline_ = hasValue_ = true;
      inline_.clear();
    } else if (name == "rPh") {
      ++phonetic_;
    } else if (name == "col") {
      Column(attrs);
    } else if (name == "sheetData") {
      inSheetData_ = true;
    }
  }

  void End(std::string_view name) override {
    if (name.size() == 1) {
      if (name[0] == 'c' && inCell_) {
        EndCell();
      } else if (name[0] == 'v' || name[0] == 't') {
        wantText = false;
      }
    } else if (name == "is") {
      inInline_ = false;
    } else if (name == "rPh") {
      --phonetic_;
    } else if (name == "sheetData") {
      inSheetData_ = false;
    }
  }

  void Text(std::string_view s) override { (inInline_ ? inline_ : value_).append(s); }

 private:
  void StartRow(const char** attrs) {
    const char* r = FindAttr(attrs, "r");
    long n;
    if (r == nullptr) {
      ++row_;
    } else if (ParseCount(r, kXlsxMaxRows, &n) && n >= 1) {
      row_ = static_cast<int>(n - 1);
    } else {
      failure = Status::Corruption(std::string("row number ") + r + " is not within 1-1048576");
      return;
    }
    if (row_ >= kXlsxMaxRows) failure = Status::Corruption("more than 1,048,576 rows");
    col_ = -1;
  }

  void StartCell(const char** attrs) {
    const char* ref = nullptr;
    const char* t = nullptr;
    const char* s = nullptr;
    for (; *attrs != nullptr; attrs += 2) {
      std::string_view a = LocalName(*attrs);
      if (a == "r")
        ref = attrs[1];
      else if (a == "t")
        t = attrs[1];
      else if (a == "s")
        s = attrs[1];
    }
    if (ref != nullptr) {
      int r;
      if (!ParseCellRef(ref, &r, &col_)) {
        failure = Status::Corruption(std::string("cell reference \"") + ref +
                                     "\" is not a cell of the 1,048,576 x 16,384 grid");
        return;
      }
      row_ = r;
    } else if (++col_ >= kXlsxMaxColumns || row_ < 0) {
      failure = Status::Corruption("a cell without a reference past column XFD or outside a row");
      return;
    }
    kind_ = t == nullptr ? ValueKind::kNumber : KindOf(t);
    long xf = 0;
    if (s != nullptr && !ParseCount(s, 0xFFFFFFFFL, &xf)) xf = 0;
    xf_ = static_cast<std::uint32_t>(xf);
    inCell_ = true;
    hasValue_ = false;
  }

  void EndCell() {
    inCell_ = false;
    // <v></v> stands for no value (a formula never calculated, as openpyxl writes it).
    if (hasValue_ && kind_ != ValueKind::kInline && Trimmed(value_).empty()) hasValue_ = false;
    bool isDate = false;
    std::uint16_t style = xf_ == 0 ? 0 : styles_->ModelStyle(xf_, book_, &isDate);
    if (!hasValue_ && style == 0) return;  // nothing to keep
    if (!Reserve()) return;
    Cell& cell = sheet_->mutableAt(row_, col_);
    cell.style = style;
    if (!hasValue_) return;  // a formatted empty cell
    ++cellsRead_;
    switch (kind_) {
      case ValueKind::kShared: {
        double index;
        if (!ParseNumber(value_, &index) || index < 0 || index >= strings_.size() ||
            index != std::floor(index)) {
          Fail("shared string index " + value_ + " is not one of the " +
               std::to_string(strings_.size()) + " strings");
          return;
        }
        cell.type = CellType::kText;
        cell.text.assign(strings_.at(static_cast<std::size_t>(index)));
        return;
      }
      case ValueKind::kFormulaText:
      case ValueKind::kInline: {
        std::string& text = kind_ == ValueKind::kInline ? inline_ : value_;
        if (text.find("_x") != std::string::npos) text = DecodeXlsxEscapes(text);
        cell.type = CellType::kText;
        cell.text.assign(text);
        return;
      }
      case ValueKind::kBool: {
        std::string_view v = Trimmed(value_);
        cell.type = CellType::kBoolean;
        cell.number = v == "0" || v == "false" || v == "FALSE" ? 0 : 1;
        return;
      }
      case ValueKind::kError:
        cell.type = CellType::kError;
        cell.number = ErrorCode(value_);
        return;
      case ValueKind::kDate:
        if (!ParseIsoDateTime(Trimmed(value_), book_->date1904, &cell.number)) {
          Fail("\"" + value_ + "\" is not an ISO 8601 date");
          return;
        }
        cell.type = CellType::kDateTime;
        return;
      case ValueKind::kNumber:
        if (!ParseNumber(value_, &cell.number)) {
          Fail("\"" + value_ + "\" is not a number");
          return;
        }
        cell.type = isDate ? CellType::kDateTime : CellType::kNumber;
        return;
    }
  }

  // Counts the cells the model will hold for a cell at (row_, col_): a hostile sheet could
  // otherwise make a small file fill memory with empty cells.
  bool Reserve() {
    const auto& rows = sheet_->rows();
    std::size_t have = static_cast<unsigned>(row_) < rows.size() ? rows[row_].size() : 0;
    if (static_cast<std::size_t>(col_) >= have) {
      denseCells_ += static_cast<std::size_t>(col_) + 1 - have;
      if (denseCells_ > kDenseCellAllowance + kDenseCellsPerCell * cellsRead_) {
        Fail("cells too sparse to hold (" + std::to_string(denseCells_) + " cells for " +
             std::to_string(cellsRead_) + " values)");
        return false;
      }
    }
    return true;
  }

  void Column(const char** attrs) {
    long first, last;
    const char* min = FindAttr(attrs, "min");
    const char* max = FindAttr(attrs, "max");
    const char* width = FindAttr(attrs, "width");
    if (min == nullptr || max == nullptr || !ParseCount(min, kXlsxMaxColumns, &first) ||
        !ParseCount(max, kXlsxMaxColumns, &last) || first < 1 || last < first) {
      failure = Status::Corruption("a <col> range is not within columns 1-16384");
      return;
    }
    double w;
    if (width == nullptr || !ParseNumber(width, &w) || !(w > 0)) return;
    double units = std::round(w * 256);
    auto w256 = static_cast<std::uint16_t>(units > 65535 ? 65535 : units);
    columnAssignments_ += static_cast<std::uint64_t>(last - first + 1);
    if (columnAssignments_ > kMaxColumnAssignments) {
      failure = Status::Corruption("overlapping <col> ranges set too many columns");
      return;
    }
    for (long c = first - 1; c < last; ++c) sheet_->setColumnWidth(static_cast<int>(c), w256);
  }

  void Fail(const std::string& what) {
    failure = Status::Corruption("cell " + CellRef(row_, col_) + ": " + what);
  }

  Sheet* sheet_;
  Workbook* book_;
  const SharedStringPool& strings_;
  XlsxStyleTable* styles_;

  int row_ = -1, col_ = -1;
  bool inSheetData_ = false, inCell_ = false, inInline_ = false, hasValue_ = false;
  int phonetic_ = 0;
  ValueKind kind_ = ValueKind::kNumber;
  std::uint32_t xf_ = 0;
  std::string value_, inline_;
  std::uint64_t cellsRead_ = 0, denseCells_ = 0, columnAssignments_ = 0;
};

Status ReadPackage(ZipPartReader& zip, Workbook* out) {
  std::vector<XlsxRelationship> rels;
  Status s = ReadRelationships(zip, "", &rels);
  if (!s.ok()) return s;
  const XlsxRelationship* main = FindRelationshipOfType(rels, "officeDocument");
  if (main == nullptr)
    return Status::Corruption(
        "the package names no workbook part (_rels/.rels is missing or empty)");
  const std::string bookPart = main->target;
  XlsxWorkbookPart book;
  s = ReadWorkbookPart(zip, bookPart, &book);
  if (!s.ok()) return s;
  if (book.sheets.empty()) return Status::Corruption(bookPart + " lists no sheets");
  out->date1904 = book.date1904;

  s = ReadRelationships(zip, bookPart, &rels);
  if (!s.ok()) return s;
  XlsxStyleTable styles;
  if (const XlsxRelationship* r = FindRelationshipOfType(rels, "styles")) {
    s = ReadStyles(zip, r->target, &styles);
    if (!s.ok()) return s;
  }
  SharedStringPool strings;
  if (const XlsxRelationship* r = FindRelationshipOfType(rels, "sharedStrings")) {
    s = ReadSharedStrings(zip, r->target, &strings);
    if (!s.ok()) return s;
  }

  std::set<std::string> partsRead;  // each part once: a crafted list could repeat a big one
  for (const auto& entry : book.sheets) {
    const XlsxRelationship* rel = nullptr;
    for (const auto& r : rels) {
      if (r.id == entry.relationshipId) rel = &r;
    }
    if (rel == nullptr) {
      return Status::Corruption("sheet \"" + entry.name + "\" points at relationship " +
                                entry.relationshipId + ", which " + bookPart + " lacks");
    }
    // Chart sheets, dialog sheets and macro sheets hold no cells the model can carry.
    if (FindRelationshipOfType({*rel}, "worksheet") == nullptr) continue;
    if (!partsRead.insert(rel->target).second)
      return Status::Corruption("two sheets share the part " + rel->target);
    if (!Workbook::isValidSheetName(entry.name) || out->findSheet(entry.name) != nullptr)
      return Status::Corruption("sheet name \"" + entry.name + "\" is not valid or repeats");
    Sheet& sheet = out->addSheet(entry.name);
    SheetHandler handler(&sheet, out, strings, &styles);
    s = ParseXmlPart(zip, rel->target, &handler);
    if (!s.ok()) return s;
  }
  if (out->sheets().empty()) return Status::Corruption(bookPart + " has no worksheet");
  for (const auto& [name, formula] : book.names) {
    DefinedName n;
    // Excel's own names (print areas, filters) carry the _xlnm. prefix in the file.
    constexpr std::string_view kBuiltin = "_xlnm.";
    n.builtin = name.compare(0, kBuiltin.size(), kBuiltin) == 0;
    n.name = n.builtin ? name.substr(kBuiltin.size()) : name;
    // Only names of one rectangle on one sheet are kept, as for .xls.
    if (ParseAreaReference(formula, *out, &n)) out->addName(std::move(n));
  }
  return Status::OK();
}

}  // namespace

bool ParseAreaReference(std::string_view formula, const Workbook& book, DefinedName* out) {
  std::size_t bang = formula.rfind('!');
  if (bang == std::string_view::npos || bang == 0) return false;
  std::string sheet(formula.substr(0, bang));
  if (sheet.size() >= 2 && sheet.front() == '\'' && sheet.back() == '\'') {
    std::string unquoted;
    for (std::size_t i = 1; i + 1 < sheet.size(); ++i) {
      unquoted += sheet[i];
      if (sheet[i] == '\'' && sheet[i + 1] == '\'') ++i;  // '' stands for '
    }
    sheet = unquoted;
  }
  int index = -1;
  for (std::size_t i = 0; i < book.sheets().size(); ++i) {
    if (book.sheets()[i].name() == sheet) index = static_cast<int>(i);
  }
  if (index < 0) return false;
  // $A$1 or $A$1:$C$10; the dollar signs are optional.
  auto cell = [](std::string_view text, int* row, int* column) {
    std::size_t i = 0;
    if (i < text.size() && text[i] == '$') ++i;
    long c = 0;
    std::size_t letters = 0;
    while (i < text.size() && text[i] >= 'A' && text[i] <= 'Z' && letters < 3) {
      c = c * 26 + (text[i++] - 'A' + 1);
      ++letters;
    }
    if (i < text.size() && text[i] == '$') ++i;
    long r = 0;
    std::size_t digits = 0;
    while (i < text.size() && text[i] >= '0' && text[i] <= '9' && digits < 8) {
      r = r * 10 + (text[i++] - '0');
      ++digits;
    }
    if (letters == 0 || digits == 0 || i != text.size() || c > kXlsxMaxColumns || r < 1 ||
        r > kXlsxMaxRows) {
      return false;
    }
    *row = static_cast<int>(r - 1);
    *column = static_cast<int>(c - 1);
    return true;
  };
  std::string_view area = formula.substr(bang + 1);
  std::size_t colon = area.find(':');
  int r1, c1, r2, c2;
  if (!cell(area.substr(0, colon), &r1, &c1)) return false;
  if (colon == std::string_view::npos) {
    r2 = r1;
    c2 = c1;
  } else if (!cell(area.substr(colon + 1), &r2, &c2)) {
    return false;
  }
  out->sheet = index;
  out->firstRow = std::min(r1, r2);
  out->lastRow = std::max(r1, r2);
  out->firstColumn = std::min(c1, c2);
  out->lastColumn = std::max(c1, c2);
  return true;
}

Status ReadXlsxFromMemory(const std::uint8_t* data, std::size_t size, Workbook* out) {
  *out = Workbook();
  ZipPartReader zip;
  Status s = zip.Open(data, size);
  if (!s.ok()) return s;
  return ReadPackage(zip, out);
}

WorkbookFormat FormatOfBytes(const std::uint8_t* data, std::size_t size) {
  return size >= 4 && std::memcmp(data, "PK\3\4", 4) == 0 ? WorkbookFormat::kXlsx
                                                          : WorkbookFormat::kXls;
}

WorkbookFormat FormatOfPath(std::string_view path) {
  auto dot = path.rfind('.');
  if (dot == std::string_view::npos) return WorkbookFormat::kXls;
  std::string ext;
  for (char c : path.substr(dot + 1))
    ext.push_back(static_cast<char>(c >= 'A' && c <= 'Z' ? c + 32 : c));
  return ext == "xlsx" || ext == "xlsm" ? WorkbookFormat::kXlsx : WorkbookFormat::kXls;
}

}  // namespace xls
