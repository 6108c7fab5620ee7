#include "xls/Styles.h"

#include "xls/BiffRecords.h"
#include "xls/Strings.h"

namespace xls {

namespace {

struct BuiltinFormat {
  std::uint16_t index;
  const char* format;
};

constexpr BuiltinFormat kBuiltinFormats[] = {
    {0, ""},
    {1, "0"},
    {2, "0.00"},
    {3, "#,##0"},
    {4, "#,##0.00"},
    {5, "\"$\"#,##0_);(\"$\"#,##0)"},
    {6, "\"$\"#,##0_);[Red](\"$\"#,##0)"},
    {7, "\"$\"#,##0.00_);(\"$\"#,##0.00)"},
    {8, "\"$\"#,##0.00_);[Red](\"$\"#,##0.00)"},
    {9, "0%"},
    {10, "0.00%"},
    {11, "0.00E+00"},
    {12, "# ?/?"},
    {13, "# ?\?/?\?"},
    {14, "m/d/yy"},
    {15, "d-mmm-yy"},
    {16, "d-mmm"},
    {17, "mmm-yy"},
    {18, "h:mm AM/PM"},
    {19, "h:mm:ss AM/PM"},
    {20, "h:mm"},
    {21, "h:mm:ss"},
    {22, "m/d/yy h:mm"},
    {37, "#,##0_);(#,##0)"},
    {38, "#,##0_);[Red](#,##0)"},
    {39, "#,##0.00_);(#,##0.00)"},
    {40, "#,##0.00_);[Red](#,##0.00)"},
    {41, "_(* #,##0_);_(* (#,##0);_(* \"-\"_);_(@_)"},
    {42, "_(\"$\"* #,##0_);_(\"$\"* (#,##0);_(\"$\"* \"-\"_);_(@_)"},
    {43, "_(* #,##0.00_);_(* (#,##0.00);_(* \"-\"?\?_);_(@_)"},
    {44, "_(\"$\"* #,##0.00_);_(\"$\"* (#,##0.00);_(\"$\"* \"-\"?\?_);_(@_)"},
    {45, "mm:ss"},
    {46, "[h]:mm:ss"},
    {47, "mm:ss.0"},
    {48, "##0.0E+0"},
    {49, "@"},
};

constexpr std::uint16_t kFirstCustomFormat = 164;
constexpr std::uint16_t kFirstCellXf = 15;
constexpr std::size_t kMaxXfs = 4050;
constexpr std::uint16_t kBoldFont = 5;  // the fifth FONT record; index 4 does not exist

unsigned LineStyleCode(Border b) {
  switch (b) {
    case Border::kNone:
      return 0;
    case Border::kThin:
      return 1;
    case Border::kMedium:
      return 2;
    case Border::kThick:
      return 5;
    case Border::kHair:
      return 7;
  }
  return 0;
}

}  // namespace

const char* BuiltinNumberFormat(std::uint16_t index) {
  for (const BuiltinFormat& f : kBuiltinFormats) {
    if (f.index == index) return f.format;
  }
  return nullptr;
}

NumberKind ClassifyNumberFormat(std::string_view f) {
  for (std::size_t i = 0; i < f.size(); ++i) {
    char c = f[i];
    switch (c) {
      case '"': {
        std::size_t end = f.find('"', i + 1);
        if (end == std::string_view::npos) return NumberKind::kNumber;
        i = end;
        break;
      }
      case '\\':
      case '_':
      case '*':
        ++i;  // the next character is literal text or padding
        break;
      case '[': {
        std::size_t end = f.find(']', i + 1);
        if (end == std::string_view::npos) return NumberKind::kNumber;
        std::string_view inside = f.substr(i + 1, end - i - 1);
        if (!inside.empty() && inside.find_first_not_of(inside[0]) == std::string_view::npos) {
          switch (inside[0] | 0x20) {
            case 'h':
              return NumberKind::kHours;
            case 'm':
              return NumberKind::kMinutes;
            case 's':
              return NumberKind::kSeconds;
          }
        }
        i = end;
        break;
      }
      default: {
        char k = c | 0x20;
        if (k == 'd' || k == 'm' || k == 'y' || k == 'h' || k == 's') return NumberKind::kDate;
        break;
      }
    }
  }
  return NumberKind::kNumber;
}

double ElapsedUnitsPerDay(NumberKind kind) {
  switch (kind) {
    case NumberKind::kHours:
      return 24;
    case NumberKind::kMinutes:
      return 24 * 60;
    case NumberKind::kSeconds:
      return 24 * 60 * 60;
    default:
      return 0;
  }
}

Border BorderFromLineStyle(unsigned code) {
  switch (code) {
    case 0:
      return Border::kNone;
    case 2:
    case 8:
    case 10:
    case 12:
    case 13:
      return Border::kMedium;
    case 5:
    case 6:
      return Border::kThick;
    case 7:
      return Border::kHair;
    default:
      return Border::kThin;  // thin and its dashed and dotted variants
  }
}

bool ParseXf(const std::uint8_t* p, std::size_t n, bool biff8, XfRecord* out) {
  // BIFF5 keeps font, format and alignment where BIFF8 does, its lines elsewhere and in 3 bits.
  XfRecord8 xf;
  if (biff8) {
    if (!xf.DecodeFrom(Record{rec::kXf, 0, p, n})) return false;
  } else {
    if (n < 16) return false;
    xf.font = GetU16(p);
    xf.format = GetU16(p + 2);
    xf.alignment = p[6];
    const std::uint32_t a = GetU32(p + 8), b = GetU32(p + 12);
    xf.lines =
        ((b >> 3) & 0x7) | (((b >> 6) & 0x7) << 4) | ((b & 0x7) << 8) | (((a >> 22) & 0x7) << 12);
  }
  out->font = xf.font;
  out->format = xf.format;
  const unsigned h = xf.alignment & 0x07;
  const unsigned v = (xf.alignment >> 4) & 0x07;
  out->horizontal = h <= 6 ? static_cast<HAlign>(h) : HAlign::kGeneral;
  out->vertical = v <= 3 ? static_cast<VAlign>(v) : (v == 4 ? VAlign::kJustify : VAlign::kBottom);
  out->left = BorderFromLineStyle(xf.lines & 0xF);
  out->right = BorderFromLineStyle((xf.lines >> 4) & 0xF);
  out->top = BorderFromLineStyle((xf.lines >> 8) & 0xF);
  out->bottom = BorderFromLineStyle((xf.lines >> 12) & 0xF);
  return true;
}

bool ParseFontBold(const std::uint8_t* p, std::size_t n, bool* bold) {
  if (n < 8) return false;
  *bold = GetU16(p + 6) >= 700 || (GetU16(p + 2) & 1) != 0;
  return true;
}

StyleTableWriter::StyleTableWriter(const std::vector<Style>& styles) : styles_(styles) {
  cellXfs_.emplace_back();  // XF 15, the default cell format, is style 0
  xfIndex_.emplace(std::make_pair(std::uint16_t{0}, DateForce::kNone), kFirstCellXf);
}

std::uint16_t StyleTableWriter::LookupFormat(const std::string& format) const {
  for (const BuiltinFormat& f : kBuiltinFormats) {
    if (format == f.format) return f.index;
  }
  auto it = customFormats_.find(format);
  return it == customFormats_.end() ? 0 : it->second;
}

std::uint16_t StyleTableWriter::FormatIndex(const std::string& format) {
  std::uint16_t known = LookupFormat(format);
  if (known != 0 || format.empty()) return known;
  auto index = static_cast<std::uint16_t>(kFirstCustomFormat + customFormats_.size());
  customFormats_.emplace(format, index);
  return index;
}

Status StyleTableWriter::XfFor(std::uint16_t style, DateForce force, std::uint16_t* xf) {
  if (style >= styles_.size()) style = 0;
  Style s = styles_[style];
  if (force != DateForce::kNone && !IsDateFormat(s.numberFormat)) {
    s.numberFormat = force == DateForce::kDate ? "yyyy-mm-dd" : "yyyy-mm-dd hh:mm:ss";
  } else {
    force = DateForce::kNone;
  }
  auto key = std::make_pair(style, force);
  auto it = xfIndex_.find(key);
  if (it != xfIndex_.end()) {
    *xf = it->second;
    return Status::OK();
  }
  if (cellXfs_.size() >= kMaxXfs) {
    return Status::InvalidArgument("workbook uses more than " + std::to_string(kMaxXfs) +
                                   " distinct cell styles");
  }
  if (!s.numberFormat.empty()) FormatIndex(s.numberFormat);
  *xf = static_cast<std::uint16_t>(kFirstCellXf + cellXfs_.size());
  cellXfs_.push_back(s);
  xfIndex_.emplace(key, *xf);
  return Status::OK();
}

void StyleTableWriter::Write(RecordWriter& w) const {
  for (int i = 0; i < 5; ++i) {
    FontRecord font;
    if (i == 4) {             // the fifth record is font index 5
      font.options = 0x0001;  // the bold flag bit, which xlrd reads; the weight for others
      font.weight = 700;
    }
    font.EncodeTo(w);
  }
  for (const auto& [format, index] : customFormats_) FormatRecord{index, format}.EncodeTo(w);
  // Style XFs 0-14, as every workbook has them: locked, parent 0xFFF, bottom-aligned.
  for (std::uint16_t i = 0; i < 15; ++i) {
    XfRecord8 xf;
    xf.font = (i == 1 || i == 2) ? 1 : (i == 3 || i == 4) ? 2 : 0;
    xf.typeAndParent = 0xFFF5;
    xf.used = i == 0 ? 0 : 0xF4;
    xf.EncodeTo(w);
  }
  // Cell XFs from 15; XF 15 is style 0, the default look.
  for (const Style& s : cellXfs_) {
    XfRecord8 xf;
    xf.format = LookupFormat(s.numberFormat);
    xf.font = s.bold ? kBoldFont : 0;
    xf.lines = LineStyleCode(s.left) | (LineStyleCode(s.right) << 4) | (LineStyleCode(s.top) << 8) |
               (LineStyleCode(s.bottom) << 12);
    // Line colours automatic (64) where a line is drawn: left and right in the lines
    // field, top and bottom in the next.
    if (s.left != Border::kNone) xf.lines |= 64u << 16;
    if (s.right != Border::kNone) xf.lines |= 64u << 23;
    xf.lineColours = (xf.lines & 0x0F00 ? 64u : 0u) | (xf.lines & 0xF000 ? 64u << 7 : 0u);
    xf.alignment = static_cast<std::uint8_t>(static_cast<unsigned>(s.horizontal) |
                                             (static_cast<unsigned>(s.vertical) << 4));
    if (xf.format != 0) xf.used |= 0x04;
    if (s.bold) xf.used |= 0x08;
    if (s.horizontal != HAlign::kGeneral || s.vertical != VAlign::kBottom) xf.used |= 0x10;
    if (xf.lines != 0) xf.used |= 0x20;
    xf.EncodeTo(w);
  }
  StyleRecord{}.EncodeTo(w);  // "Normal" on XF 0
}

}  // namespace xls
