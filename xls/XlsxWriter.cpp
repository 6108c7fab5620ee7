// Writes an Office Open XML workbook: the package parts, one styles part built from the
// model's styles, one shared string table, and a worksheet part per sheet.
#include <array>
#include <cctype>
#include <charconv>
#include <cmath>
#include <map>
#include <string>
#include <unordered_map>

#include "xls/Styles.h"
#include "xls/Xlsx.h"
#include "xls/XlsxParts.h"
#include "xls/XlsxZip.h"

namespace xls {

namespace {

constexpr char kXmlHead[] = "<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"yes\"?>\n";
constexpr char kMainNs[] = "http://schemas.openxmlformats.org/spreadsheetml/2006/main";
constexpr char kRelNs[] = "http://schemas.openxmlformats.org/officeDocument/2006/relationships";
constexpr std::size_t kMaxCellChars = 32767;

bool IsHex(char c) {
  return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}

void AppendHex4(std::string* out, unsigned v) {
  static constexpr char kDigits[] = "0123456789ABCDEF";
  out->append("_x");
  for (int shift = 12; shift >= 0; shift -= 4) out->push_back(kDigits[(v >> shift) & 0xF]);
  out->push_back('_');
}

// XML text or attribute value. Control characters XML cannot hold become _xHHHH_, and a
// literal "_xHHHH_" is escaped so a reader does not decode it.
void AppendEscaped(std::string* out, std::string_view s) {
  std::size_t clean = 0;
  for (std::size_t i = 0; i < s.size(); ++i) {
    auto c = static_cast<unsigned char>(s[i]);
    const char* rep = nullptr;
    switch (c) {
      case '&':
        rep = "&amp;";
        break;
      case '<':
        rep = "&lt;";
        break;
      case '>':
        rep = "&gt;";
        break;
      case '"':
        rep = "&quot;";
        break;
      case '_':
        if (i + 6 < s.size() && s[i + 1] == 'x' && IsHex(s[i + 2]) && IsHex(s[i + 3]) &&
            IsHex(s[i + 4]) && IsHex(s[i + 5]) && s[i + 6] == '_')
          rep = "_x005F_";
        break;
      case '\t':
      case '\n':
      case '\r':
        break;
      default:
        if (c < 0x20) {
          out->append(s.substr(clean, i - clean));
          AppendHex4(out, c);
          clean = i + 1;
        }
        break;
    }
    if (rep != nullptr) {
      out->append(s.substr(clean, i - clean));
      out->append(rep);
      clean = i + 1;
    }
  }
  out->append(s.substr(clean));
}

std::size_t Utf16Units(std::string_view s) {
  std::size_t n = 0;
  for (unsigned char c : s) n += (c & 0xC0) != 0x80 ? 1 : 0, n += c >= 0xF0 ? 1 : 0;
  return n;
}

std::string ColumnLetters(int col) {
  std::string letters;
  for (int c = col + 1; c > 0; c = (c - 1) / 26)
    letters.insert(letters.begin(), static_cast<char>('A' + (c - 1) % 26));
  return letters;
}

void AppendInt(std::string* out, long v) {
  char buf[24];
  auto [end, ec] = std::to_chars(buf, buf + sizeof buf, v);
  out->append(buf, end);
}

void AppendDouble(std::string* out, double v) {
  char buf[32];
  auto [end, ec] = std::to_chars(buf, buf + sizeof buf, v);
  out->append(buf, end);
}

const char* BorderName(Border b) {
  switch (b) {
    case Border::kHair:
      return "hair";
    case Border::kThin:
      return "thin";
    case Border::kMedium:
      return "medium";
    case Border::kThick:
      return "thick";
    case Border::kNone:
      break;
  }
  return nullptr;
}

const char* HorizontalName(HAlign h) {
  switch (h) {
    case HAlign::kLeft:
      return "left";
    case HAlign::kCenter:
      return "center";
    case HAlign::kRight:
      return "right";
    case HAlign::kFill:
      return "fill";
    case HAlign::kJustify:
      return "justify";
    case HAlign::kCenterAcross:
      return "centerContinuous";
    case HAlign::kGeneral:
      break;
  }
  return nullptr;
}

const char* VerticalName(VAlign v) {
  switch (v) {
    case VAlign::kTop:
      return "top";
    case VAlign::kCenter:
      return "center";
    case VAlign::kJustify:
      return "justify";
    case VAlign::kBottom:
      break;
  }
  return nullptr;
}

// Cell formats for the model's styles, one per style used (and one more per style a
// date/time cell forces to a date format), with the fonts, borders and formats they need.
class StylesPart {
 public:
  enum Force { kAsIs, kDate, kDateTime };
  explicit StylesPart(const std::vector<Style>& styles)
      : styles_(styles), cache_(styles.size() * 3, -1) {
    (void)XfFor(0, kAsIs);  // cell format 0 is the default style
  }

  std::uint32_t XfFor(std::uint16_t style, Force force) {
    if (style >= styles_.size()) style = 0;
    int& slot = cache_[style * 3u + force];
    if (slot >= 0) return static_cast<std::uint32_t>(slot);
    Style s = styles_[style];
    if (force != kAsIs && !IsDateFormat(s.numberFormat))
      s.numberFormat = force == kDate ? "yyyy-mm-dd" : "yyyy-mm-dd hh:mm:ss";
    Xf xf{FormatId(s.numberFormat), s.bold ? 1u : 0u, BorderId(s), s.horizontal, s.vertical};
    slot = static_cast<int>(xfs_.size());
    xfs_.push_back(xf);
    return static_cast<std::uint32_t>(slot);
  }

  std::string Xml() const {
    std::string x = kXmlHead;
    x += "<styleSheet xmlns=\"";
    x += kMainNs;
    x += "\">";
    if (!customFormats_.empty()) {
      x += "<numFmts count=\"" + std::to_string(customFormats_.size()) + "\">";
      for (const auto& [code, id] : customFormats_) {
        x += "<numFmt numFmtId=\"" + std::to_string(id) + "\" formatCode=\"";
        AppendEscaped(&x, code);
        x += "\"/>";
      }
      x += "</numFmts>";
    }
    x += "<fonts count=\"2\"><font><sz val=\"11\"/><name val=\"Calibri\"/><family val=\"2\"/>"
         "</font><font><b/><sz val=\"11\"/><name val=\"Calibri\"/><family val=\"2\"/></font>"
         "</fonts><fills count=\"2\"><fill><patternFill patternType=\"none\"/></fill><fill>"
         "<patternFill patternType=\"gray125\"/></fill></fills>";
    x += "<borders count=\"" + std::to_string(borders_.size() + 1) +
         "\"><border><left/><right/><top/><bottom/><diagonal/></border>";
    for (const auto& b : borders_) {
      x += "<border>";
      static constexpr const char* kSides[] = {"left", "right", "top", "bottom"};
      for (int i = 0; i < 4; ++i) {
        const char* name = BorderName(b[i]);
        x += std::string("<") + kSides[i];
        if (name != nullptr) {
          x += std::string(" style=\"") + name + "\"><color indexed=\"64\"/></" + kSides[i] + ">";
        } else {
          x += "/>";
        }
      }
      x += "<diagonal/></border>";
    }
    x += "</borders><cellStyleXfs count=\"1\"><xf numFmtId=\"0\" fontId=\"0\" fillId=\"0\" "
         "borderId=\"0\"/></cellStyleXfs>";
    x += "<cellXfs count=\"" + std::to_string(xfs_.size()) + "\">";
    for (const Xf& xf : xfs_) {
      x += "<xf numFmtId=\"" + std::to_string(xf.numFmt) + "\" fontId=\"" +
           std::to_string(xf.font) + "\" fillId=\"0\" borderId=\"" + std::to_string(xf.border) +
           "\" xfId=\"0\"";
      if (xf.numFmt != 0) x += " applyNumberFormat=\"1\"";
      if (xf.font != 0) x += " applyFont=\"1\"";
      if (xf.border != 0) x += " applyBorder=\"1\"";
      const char* h = HorizontalName(xf.horizontal);
      const char* v = VerticalName(xf.vertical);
      if (h == nullptr && v == nullptr) {
        x += "/>";
        continue;
      }
      x += " applyAlignment=\"1\"><alignment";
      if (h != nullptr) x += std::string(" horizontal=\"") + h + "\"";
      if (v != nullptr) x += std::string(" vertical=\"") + v + "\"";
      x += "/></xf>";
    }
    x += "</cellXfs><cellStyles count=\"1\"><cellStyle name=\"Normal\" xfId=\"0\" "
         "builtinId=\"0\"/></cellStyles></styleSheet>";
    return x;
  }

 private:
  struct Xf {
    std::uint32_t numFmt, font, border;
    HAlign horizontal;
    VAlign vertical;
  };

  std::uint32_t FormatId(const std::string& code) {
    if (code.empty()) return 0;
    for (std::uint16_t id = 1; id < 50; ++id) {
      const char* builtin = BuiltinNumberFormat(id);
      if (builtin != nullptr && code == builtin) return id;
    }
    auto it = customFormats_.find(code);
    if (it != customFormats_.end()) return it->second;
    auto id = static_cast<std::uint32_t>(164 + customFormats_.size());
    customFormats_.emplace(code, id);
    return id;
  }

  std::uint32_t BorderId(const Style& s) {
    std::array<Border, 4> sides{s.left, s.right, s.top, s.bottom};
    if (sides == std::array<Border, 4>{}) return 0;
    for (std::size_t i = 0; i < borders_.size(); ++i) {
      if (borders_[i] == sides) return static_cast<std::uint32_t>(i + 1);
    }
    borders_.push_back(sides);
    return static_cast<std::uint32_t>(borders_.size());
  }

  const std::vector<Style>& styles_;
  std::vector<int> cache_;  // (style, force) -> cell format, -1 until used
  std::vector<Xf> xfs_;
  std::map<std::string, std::uint32_t> customFormats_;
  std::vector<std::array<Border, 4>> borders_;
};

class SharedStrings {
 public:
  // False when the text is longer than a cell may hold.
  bool Add(std::string_view s, std::uint32_t* index) {
    if (s.size() > kMaxCellChars && Utf16Units(s) > kMaxCellChars) return false;
    ++references_;
    auto [it, added] = index_.try_emplace(s, static_cast<std::uint32_t>(order_.size()));
    if (added) order_.push_back(s);
    *index = it->second;
    return true;
  }

  std::string Xml() const {
    std::string x = kXmlHead;
    x += "<sst xmlns=\"";
    x += kMainNs;
    x += "\" count=\"" + std::to_string(references_) + "\" uniqueCount=\"" +
         std::to_string(order_.size()) + "\">";
    for (std::string_view s : order_) {
      bool keepSpace = !s.empty() && (std::isspace(static_cast<unsigned char>(s.front())) ||
                                      std::isspace(static_cast<unsigned char>(s.back())));
      x += keepSpace ? "<si><t xml:space=\"preserve\">" : "<si><t>";
      AppendEscaped(&x, s);
      x += "</t></si>";
    }
    x += "</sst>";
    return x;
  }

 private:
  // Views into the workbook's cells, which outlive the writer.
  std::unordered_map<std::string_view, std::uint32_t> index_;
  std::vector<std::string_view> order_;
  std::uint64_t references_ = 0;
};

const char* ErrorText(std::uint8_t code) {
  switch (code) {
    case 0x00:
      return "#NULL!";
    case 0x07:
      return "#DIV/0!";
    case 0x17:
      return "#REF!";
    case 0x1D:
      return "#NAME?";
    case 0x24:
      return "#NUM!";
    case 0x2A:
      return "#N/A";
    case 0x2B:
      return "#GETTING_DATA";
    default:
      return "#VALUE!";
  }
}

Status SheetXml(const Sheet& sheet, bool active, SharedStrings* strings, StylesPart* styles,
                std::string* out) {
  const auto& rows = sheet.rows();
  const int nRows = static_cast<int>(rows.size());
  const int nCols = sheet.extentColumns();
  if (nRows > kXlsxMaxRows || nCols > kXlsxMaxColumns)
    return Status::InvalidArgument("sheet \"" + sheet.name() +
                                   "\" is larger than 1,048,576 x 16,384");
  std::vector<std::string> letters(static_cast<std::size_t>(nCols));
  for (int c = 0; c < nCols; ++c) letters[c] = ColumnLetters(c);

  std::string& x = *out;
  x = kXmlHead;
  x += "<worksheet xmlns=\"";
  x += kMainNs;
  x += "\" xmlns:r=\"";
  x += kRelNs;
  x += "\">";
  if (nRows > 0 && nCols > 0)
    x += "<dimension ref=\"A1:" + letters[nCols - 1] + std::to_string(nRows) + "\"/>";
  x += active ? "<sheetViews><sheetView tabSelected=\"1\" workbookViewId=\"0\"/></sheetViews>"
              : "<sheetViews><sheetView workbookViewId=\"0\"/></sheetViews>";
  x += "<sheetFormatPr defaultRowHeight=\"15\"/>";
  const auto& widths = sheet.columnWidths();
  bool anyWidth = false;
  for (auto it = widths.begin(); it != widths.end();) {
    auto run = it;
    int last = it->first;
    while (++it != widths.end() && it->first == last + 1 && it->second == run->second) ++last;
    if (run->first < 0 || last >= kXlsxMaxColumns) continue;
    if (!anyWidth) x += "<cols>";
    anyWidth = true;
    x += "<col min=\"" + std::to_string(run->first + 1) + "\" max=\"" + std::to_string(last + 1) +
         "\" width=\"";
    AppendDouble(&x, run->second / 256.0);
    x += "\" customWidth=\"1\"/>";
  }
  if (anyWidth) x += "</cols>";
  x += "<sheetData>";
  for (int r = 0; r < nRows; ++r) {
    const auto& row = rows[r];
    if (row.empty()) continue;
    x += "<row r=\"";
    AppendInt(&x, r + 1);
    x += "\">";
    for (int c = 0; c < static_cast<int>(row.size()); ++c) {
      const Cell& cell = row[c];
      if (cell.isEmpty() && cell.style == 0) continue;
      auto force = StylesPart::kAsIs;
      if (cell.type == CellType::kDateTime)
        force = cell.number == std::floor(cell.number) ? StylesPart::kDate : StylesPart::kDateTime;
      std::uint32_t xf =
          cell.style == 0 && force == StylesPart::kAsIs ? 0 : styles->XfFor(cell.style, force);
      x += "<c r=\"";
      x += letters[c];
      AppendInt(&x, r + 1);
      x += '"';
      if (xf != 0) {
        x += " s=\"";
        AppendInt(&x, xf);
        x += '"';
      }
      switch (cell.type) {
        case CellType::kEmpty:
          x += "/>";
          continue;
        case CellType::kText: {
          std::uint32_t index;
          if (!strings->Add(cell.text.view(), &index)) {
            return Status::InvalidArgument("text in " + sheet.name() + " " + letters[c] +
                                           std::to_string(r + 1) +
                                           " is longer than 32,767 characters");
          }
          x += " t=\"s\"><v>";
          AppendInt(&x, index);
          break;
        }
        case CellType::kNumber:
        case CellType::kDateTime:
          if (std::isfinite(cell.number)) {
            x += "><v>";
            AppendDouble(&x, cell.number);
          } else {
            x += " t=\"e\"><v>#NUM!";  // a file cannot hold NaN or infinity
          }
          break;
        case CellType::kBoolean:
          x += cell.number != 0 ? " t=\"b\"><v>1" : " t=\"b\"><v>0";
          break;
        case CellType::kError:
          x += " t=\"e\"><v>";
          x += ErrorText(static_cast<std::uint8_t>(cell.number));
          break;
      }
      x += "</v></c>";
    }
    x += "</row>";
  }
  x += "</sheetData></worksheet>";
  return Status::OK();
}

Status Build(const Workbook& wb, bool macroEnabled, std::vector<std::uint8_t>* out) {
  if (wb.sheets().empty()) return Status::InvalidArgument("a workbook needs at least one sheet");
  if (wb.encrypted)
    return Status::Unsupported("the workbook was read from a password-protected file");
  const auto& sheets = wb.sheets();
  SharedStrings strings;
  StylesPart styles(wb.styles());
  std::vector<std::string> sheetXml(sheets.size());
  for (std::size_t i = 0; i < sheets.size(); ++i) {
    Status s = SheetXml(sheets[i], i == 0, &strings, &styles, &sheetXml[i]);
    if (!s.ok()) return s;
  }

  std::string types = kXmlHead;
  types +=
      "<Types xmlns=\"http://schemas.openxmlformats.org/package/2006/content-types\">"
      "<Default Extension=\"rels\" "
      "ContentType=\"application/vnd.openxmlformats-package.relationships+xml\"/>"
      "<Default Extension=\"xml\" ContentType=\"application/xml\"/>"
      "<Override PartName=\"/xl/workbook.xml\" ContentType=\"";
  types += macroEnabled
               ? "application/vnd.ms-excel.sheet.macroEnabled.main+xml"
               : "application/vnd.openxmlformats-officedocument.spreadsheetml.sheet.main+xml";
  types += "\"/>";
  std::string bookRels = kXmlHead;
  bookRels +=
      "<Relationships xmlns=\"http://schemas.openxmlformats.org/package/2006/relationships\">";
  std::string book = kXmlHead;
  book += "<workbook xmlns=\"";
  book += kMainNs;
  book += "\" xmlns:r=\"";
  book += kRelNs;
  book += wb.date1904 ? "\"><workbookPr date1904=\"1\"/>" : "\"><workbookPr/>";
  book += "<bookViews><workbookView activeTab=\"0\"/></bookViews><sheets>";
  for (std::size_t i = 0; i < sheets.size(); ++i) {
    std::string n = std::to_string(i + 1);
    types += "<Override PartName=\"/xl/worksheets/sheet" + n +
             ".xml\" ContentType=\"application/vnd.openxmlformats-officedocument.spreadsheetml."
             "worksheet+xml\"/>";
    bookRels += "<Relationship Id=\"rId" + n + "\" Type=\"" + kRelNs +
                "/worksheet\" Target=\"worksheets/sheet" + n + ".xml\"/>";
    book += "<sheet name=\"";
    AppendEscaped(&book, sheets[i].name());
    book += "\" sheetId=\"" + n + "\" r:id=\"rId" + n + "\"/>";
  }
  book += "</sheets>";
  if (!wb.names().empty()) {
    book += "<definedNames>";
    for (const DefinedName& n : wb.names()) {
      book += "<definedName name=\"";
      AppendEscaped(&book, n.builtin ? "_xlnm." + n.name : n.name);
      book += "\"";
      if (n.scopeSheet >= 0) book += " localSheetId=\"" + std::to_string(n.scopeSheet) + "\"";
      book += ">";
      AppendEscaped(&book, AreaReference(wb, n));
      book += "</definedName>";
    }
    book += "</definedNames>";
  }
  book += "</workbook>";
  std::string count = std::to_string(sheets.size());
  bookRels += "<Relationship Id=\"rId" + std::to_string(sheets.size() + 1) + "\" Type=\"" + kRelNs +
              "/styles\" Target=\"styles.xml\"/><Relationship Id=\"rId" +
              std::to_string(sheets.size() + 2) + "\" Type=\"" + kRelNs +
              "/sharedStrings\" Target=\"sharedStrings.xml\"/></Relationships>";
  types +=
      "<Override PartName=\"/xl/styles.xml\" ContentType=\"application/"
      "vnd.openxmlformats-officedocument.spreadsheetml.styles+xml\"/>"
      "<Override PartName=\"/xl/sharedStrings.xml\" ContentType=\"application/"
      "vnd.openxmlformats-officedocument.spreadsheetml.sharedStrings+xml\"/></Types>";
  std::string packageRels = kXmlHead;
  packageRels +=
      "<Relationships xmlns=\"http://schemas.openxmlformats.org/package/2006/relationships\">"
      "<Relationship Id=\"rId1\" Type=\"";
  packageRels += kRelNs;
  packageRels += "/officeDocument\" Target=\"xl/workbook.xml\"/></Relationships>";
  const std::string stylesXml = styles.Xml();
  const std::string stringsXml = strings.Xml();

  ZipBuilder zip;
  Status s = zip.Add("[Content_Types].xml", types);
  if (s.ok()) s = zip.Add("_rels/.rels", packageRels);
  if (s.ok()) s = zip.Add("xl/workbook.xml", book);
  if (s.ok()) s = zip.Add("xl/_rels/workbook.xml.rels", bookRels);
  if (s.ok()) s = zip.Add("xl/styles.xml", stylesXml);
  if (s.ok()) s = zip.Add("xl/sharedStrings.xml", stringsXml);
  for (std::size_t i = 0; i < sheets.size() && s.ok(); ++i)
    s = zip.Add("xl/worksheets/sheet" + std::to_string(i + 1) + ".xml", sheetXml[i]);
  if (!s.ok()) return s;
  return zip.Finish(out);
}

}  // namespace

std::string AreaReference(const Workbook& book, const DefinedName& name) {
  std::string sheet = book.sheets()[static_cast<std::size_t>(name.sheet)].name();
  std::string out = "'";
  for (char c : sheet) {
    out += c;
    if (c == '\'') out += c;
  }
  out += "'!";
  auto cell = [&out](int row, int column) {
    std::string letters;
    for (int c = column + 1; c > 0; c = (c - 1) / 26) {
      letters.insert(letters.begin(), static_cast<char>('A' + (c - 1) % 26));
    }
    out += "$" + letters + "$" + std::to_string(row + 1);
  };
  cell(name.firstRow, name.firstColumn);
  out += ':';
  cell(name.lastRow, name.lastColumn);
  return out;
}

Status WriteXlsxToMemory(const Workbook& workbook, std::vector<std::uint8_t>* out,
                         bool macroEnabled) {
  return Build(workbook, macroEnabled, out);
}

Status WriteXlsx(const std::string& path, const Workbook& workbook) {
  std::string_view ext = path.size() >= 5 ? std::string_view(path).substr(path.size() - 5) : "";
  bool macroEnabled = ext == ".xlsm" || ext == ".XLSM";
  std::vector<std::uint8_t> bytes;
  Status s = Build(workbook, macroEnabled, &bytes);
  if (!s.ok()) return s;
  return WriteFileAtomically(path, {ByteSpan{bytes.data(), bytes.size()}});
}

}  // namespace xls
