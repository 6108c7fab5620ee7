#include "xls/XlsxParts.h"

#include <cstring>

#include "xls/Styles.h"
#include "xls/XlsxXml.h"

namespace xls {

namespace {

bool IsTrue(const char* v) {
  return v != nullptr && (std::strcmp(v, "1") == 0 || std::strcmp(v, "true") == 0);
}

// A non-negative decimal, or false. Values past 2^32 - 1 do not fit any table here.
bool ParseIndex(const char* v, std::uint32_t* out) {
  if (v == nullptr || *v == '\0') return false;
  std::uint64_t n = 0;
  for (; *v != '\0'; ++v) {
    if (*v < '0' || *v > '9') return false;
    n = n * 10 + static_cast<unsigned>(*v - '0');
    if (n > 0xFFFFFFFFu) return false;
  }
  *out = static_cast<std::uint32_t>(n);
  return true;
}

std::uint32_t IndexOr(const char* v, std::uint32_t fallback) {
  std::uint32_t n;
  return ParseIndex(v, &n) ? n : fallback;
}

class RelsHandler : public XmlHandler {
 public:
  RelsHandler(const std::string& source, std::vector<XlsxRelationship>* out)
      : source_(source), out_(out) {}
  void Start(std::string_view name, const char** attrs) override {
    if (name != "Relationship") return;
    const char* mode = FindAttr(attrs, "TargetMode");
    if (mode != nullptr && std::strcmp(mode, "External") == 0) return;
    const char* id = FindAttr(attrs, "Id");
    const char* type = FindAttr(attrs, "Type");
    const char* target = FindAttr(attrs, "Target");
    if (id == nullptr || type == nullptr || target == nullptr) {
      failure = Status::Corruption("a Relationship lacks its Id, Type or Target");
      return;
    }
    XlsxRelationship r{id, type, ""};
    if (!ResolvePartName(source_, target, &r.target)) {
      failure =
          Status::Corruption(std::string("relationship target outside the package: ") + target);
      return;
    }
    out_->push_back(std::move(r));
  }
  void End(std::string_view) override {}

 private:
  const std::string& source_;
  std::vector<XlsxRelationship>* out_;
};

class WorkbookHandler : public XmlHandler {
 public:
  explicit WorkbookHandler(XlsxWorkbookPart* out) : out_(out) {}
  void Start(std::string_view name, const char** attrs) override {
    if (name == "sheet") {
      const char* sheetName = FindAttr(attrs, "name");
      const char* id = FindAttr(attrs, "id");  // r:id
      if (sheetName == nullptr || id == nullptr) {
        failure = Status::Corruption("a sheet entry lacks its name or relationship id");
        return;
      }
      out_->sheets.push_back({sheetName, id});
    } else if (name == "workbookPr") {
      out_->date1904 = IsTrue(FindAttr(attrs, "date1904"));
    } else if (name == "definedName") {
      const char* n = FindAttr(attrs, "name");
      inName_ = n != nullptr && FindAttr(attrs, "localSheetId") == nullptr;
      if (inName_) {
        nameText_.clear();
        name_ = n;
        wantText = true;
      }
    }
  }
  void End(std::string_view name) override {
    if (name == "definedName" && inName_) {
      out_->names.emplace_back(name_, nameText_);
      inName_ = wantText = false;
    }
  }
  void Text(std::string_view s) override { nameText_.append(s); }

 private:
  XlsxWorkbookPart* out_;
  bool inName_ = false;
  std::string name_, nameText_;
};

class SharedStringsHandler : public XmlHandler {
 public:
  explicit SharedStringsHandler(SharedStringPool* out) : out_(out) {}
  void Start(std::string_view name, const char**) override {
    if (name == "si") {
      text_.clear();
      inItem_ = true;
    } else if (name == "rPh") {
      ++phonetic_;
    } else if (name == "t" && inItem_ && phonetic_ == 0) {
      wantText = true;
    }
  }
  void End(std::string_view name) override {
    if (name == "t") {
      wantText = false;
    } else if (name == "rPh") {
      --phonetic_;
    } else if (name == "si") {
      if (text_.find("_x") != std::string::npos) text_ = DecodeXlsxEscapes(text_);
      out_->Append(text_);
      inItem_ = false;
    }
  }
  void Text(std::string_view s) override { text_.append(s); }

 private:
  SharedStringPool* out_;
  std::string text_;
  bool inItem_ = false;
  int phonetic_ = 0;
};

HAlign HorizontalFrom(const char* v) {
  if (v == nullptr) return HAlign::kGeneral;
  std::string_view s(v);
  if (s == "left") return HAlign::kLeft;
  if (s == "center") return HAlign::kCenter;
  if (s == "right") return HAlign::kRight;
  if (s == "fill") return HAlign::kFill;
  if (s == "justify" || s == "distributed") return HAlign::kJustify;
  if (s == "centerContinuous") return HAlign::kCenterAcross;
  return HAlign::kGeneral;
}

VAlign VerticalFrom(const char* v) {
  if (v == nullptr) return VAlign::kBottom;
  std::string_view s(v);
  if (s == "top") return VAlign::kTop;
  if (s == "center") return VAlign::kCenter;
  if (s == "justify" || s == "distributed") return VAlign::kJustify;
  return VAlign::kBottom;
}

Border BorderFrom(const char* v) {
  if (v == nullptr) return Border::kNone;
  std::string_view s(v);
  if (s == "none") return Border::kNone;
  if (s == "hair") return Border::kHair;
  if (s == "medium" || s.substr(0, 6) == "medium" || s == "slantDashDot") return Border::kMedium;
  if (s == "thick" || s == "double") return Border::kThick;
  return Border::kThin;  // thin and its dashed and dotted variants
}

class StylesHandler : public XmlHandler {
 public:
  explicit StylesHandler(XlsxStyleTable* out) : out_(out) {}
  void Start(std::string_view name, const char** attrs) override {
    static constexpr std::string_view kSections[] = {"numFmts", "fonts", "borders", "cellXfs"};
    for (std::string_view section : kSections) {
      if (name == section) {
        section_ = section;
        return;
      }
    }
    if (name == "dxfs" || name == "cellStyleXfs" || name == "cellStyles") {
      section_ = "";
      return;
    }
    if (section_ == "numFmts" && name == "numFmt") {
      std::uint32_t id;
      const char* code = FindAttr(attrs, "formatCode");
      if (ParseIndex(FindAttr(attrs, "numFmtId"), &id) && code != nullptr)
        out_->numFmts[id] = DecodeXlsxEscapes(code);
    } else if (section_ == "fonts") {
      if (name == "font") out_->fontBold.push_back(false);
      if (name == "b" && !out_->fontBold.empty()) {
        const char* val = FindAttr(attrs, "val");
        out_->fontBold.back() = val == nullptr || IsTrue(val);
      }
    } else if (section_ == "borders") {
      if (name == "border") {
        out_->borders.emplace_back();
      } else if (!out_->borders.empty()) {
        auto& b = out_->borders.back();
        Border* side = name == "left" || name == "start"  ? &b.left
                       : name == "right" || name == "end" ? &b.right
                       : name == "top"                    ? &b.top
                       : name == "bottom"                 ? &b.bottom
                                                          : nullptr;
        if (side != nullptr) *side = BorderFrom(FindAttr(attrs, "style"));
      }
    } else if (section_ == "cellXfs") {
      if (name == "xf") {
        if (out_->xfs.size() >= kXlsxMaxCellFormats) {
          failure = Status::Corruption("more than 64,000 cell formats");
          return;
        }
        XlsxStyleTable::Xf xf;
        xf.numFmt = IndexOr(FindAttr(attrs, "numFmtId"), 0);
        xf.font = IndexOr(FindAttr(attrs, "fontId"), 0);
        xf.border = IndexOr(FindAttr(attrs, "borderId"), 0);
        out_->xfs.push_back(xf);
      } else if (name == "alignment" && !out_->xfs.empty()) {
        out_->xfs.back().horizontal = HorizontalFrom(FindAttr(attrs, "horizontal"));
        out_->xfs.back().vertical = VerticalFrom(FindAttr(attrs, "vertical"));
      }
    }
  }
  void End(std::string_view name) override {
    if (name == section_) section_ = "";
  }

 private:
  XlsxStyleTable* out_;
  std::string_view section_;  // points at a literal above
};

void AppendUtf8(std::uint32_t cp, std::string* out) {
  if (cp < 0x80) {
    out->push_back(static_cast<char>(cp));
  } else if (cp < 0x800) {
    out->push_back(static_cast<char>(0xC0 | (cp >> 6)));
    out->push_back(static_cast<char>(0x80 | (cp & 0x3F)));
  } else if (cp < 0x10000) {
    out->push_back(static_cast<char>(0xE0 | (cp >> 12)));
    out->push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
    out->push_back(static_cast<char>(0x80 | (cp & 0x3F)));
  } else {
    out->push_back(static_cast<char>(0xF0 | (cp >> 18)));
    out->push_back(static_cast<char>(0x80 | ((cp >> 12) & 0x3F)));
    out->push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
    out->push_back(static_cast<char>(0x80 | (cp & 0x3F)));
  }
}

// The unit of an _xHHHH_ escape at s[i], or -1.
int EscapeAt(std::string_view s, std::size_t i) {
  if (i + 7 > s.size() || s[i] != '_' || s[i + 1] != 'x' || s[i + 6] != '_') return -1;
  int unit = 0;
  for (std::size_t k = i + 2; k < i + 6; ++k) {
    char c = s[k];
    int d = c >= '0' && c <= '9'   ? c - '0'
            : c >= 'a' && c <= 'f' ? c - 'a' + 10
            : c >= 'A' && c <= 'F' ? c - 'A' + 10
                                   : -1;
    if (d < 0) return -1;
    unit = unit * 16 + d;
  }
  return unit;
}

std::int64_t DaysFromCivil(std::int64_t y, unsigned m, unsigned d) {
  y -= m <= 2;
  const std::int64_t era = (y >= 0 ? y : y - 399) / 400;
  const unsigned yoe = static_cast<unsigned>(y - era * 400);
  const unsigned doy = (153 * (m + (m > 2 ? -3 : 9)) + 2) / 5 + d - 1;
  const unsigned doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
  return era * 146097 + static_cast<std::int64_t>(doe) - 719468;
}

// Reads exactly n digits at s[*i].
bool Digits(std::string_view s, std::size_t* i, int n, int* out) {
  int v = 0;
  for (int k = 0; k < n; ++k, ++*i) {
    if (*i >= s.size() || s[*i] < '0' || s[*i] > '9') return false;
    v = v * 10 + (s[*i] - '0');
  }
  *out = v;
  return true;
}

}  // namespace

bool ResolvePartName(const std::string& sourcePart, std::string_view target, std::string* out) {
  std::vector<std::string_view> segments;
  std::string_view base;
  if (!target.empty() && target.front() == '/') {
    target.remove_prefix(1);
  } else {
    auto slash = sourcePart.rfind('/');
    if (slash != std::string::npos) base = std::string_view(sourcePart).substr(0, slash);
  }
  auto push = [&](std::string_view path) {
    while (!path.empty()) {
      auto slash = path.find('/');
      std::string_view seg = path.substr(0, slash);
      path = slash == std::string_view::npos ? std::string_view() : path.substr(slash + 1);
      if (seg.empty() || seg == ".") continue;
      if (seg == "..") {
        if (segments.empty()) return false;
        segments.pop_back();
      } else {
        segments.push_back(seg);
      }
    }
    return true;
  };
  if (!push(base) || !push(target)) return false;
  out->clear();
  for (std::string_view seg : segments) {
    if (!out->empty()) out->push_back('/');
    out->append(seg);
  }
  return true;
}

Status ReadRelationships(ZipPartReader& zip, const std::string& sourcePart,
                         std::vector<XlsxRelationship>* out) {
  out->clear();
  auto slash = sourcePart.rfind('/');
  std::string relsPart = slash == std::string::npos ? "_rels/" + sourcePart + ".rels"
                                                    : sourcePart.substr(0, slash + 1) + "_rels/" +
                                                          sourcePart.substr(slash + 1) + ".rels";
  if (!zip.Has(relsPart)) return Status::OK();
  RelsHandler handler(sourcePart, out);
  return ParseXmlPart(zip, relsPart, &handler);
}

const XlsxRelationship* FindRelationshipOfType(const std::vector<XlsxRelationship>& rels,
                                               std::string_view kind) {
  for (const auto& r : rels) {
    std::string_view type = r.type;
    if (type.size() > kind.size() && type.substr(type.size() - kind.size()) == kind &&
        type[type.size() - kind.size() - 1] == '/')
      return &r;
  }
  return nullptr;
}

Status ReadWorkbookPart(ZipPartReader& zip, const std::string& part, XlsxWorkbookPart* out) {
  WorkbookHandler handler(out);
  return ParseXmlPart(zip, part, &handler);
}

Status ReadSharedStrings(ZipPartReader& zip, const std::string& part, SharedStringPool* out) {
  SharedStringsHandler handler(out);
  return ParseXmlPart(zip, part, &handler);
}

Status ReadStyles(ZipPartReader& zip, const std::string& part, XlsxStyleTable* out) {
  StylesHandler handler(out);
  return ParseXmlPart(zip, part, &handler);
}

std::uint16_t XlsxStyleTable::ModelStyle(std::uint32_t xf, Workbook* book, bool* isDate) {
  auto it = resolved_.find(xf);
  if (it == resolved_.end()) {
    Resolved r{0, false};
    if (xf < xfs.size()) {
      const Xf& x = xfs[xf];
      Style style;
      auto custom = numFmts.find(x.numFmt);
      if (custom != numFmts.end()) {
        // LibreOffice declares "General" as a custom format; the model spells it "".
        if (custom->second != "General" && custom->second != "GENERAL")
          style.numberFormat = custom->second;
      } else if (x.numFmt <= 0xFFFF && BuiltinNumberFormat(static_cast<std::uint16_t>(x.numFmt))) {
        style.numberFormat = BuiltinNumberFormat(static_cast<std::uint16_t>(x.numFmt));
      } else if ((x.numFmt >= 27 && x.numFmt <= 36) || (x.numFmt >= 50 && x.numFmt <= 58)) {
        style.numberFormat = "yyyy-mm-dd";  // the locale's own date formats
      }
      style.bold = x.font < fontBold.size() && fontBold[x.font];
      if (x.border < borders.size()) {
        style.left = borders[x.border].left;
        style.right = borders[x.border].right;
        style.top = borders[x.border].top;
        style.bottom = borders[x.border].bottom;
      }
      style.horizontal = x.horizontal;
      style.vertical = x.vertical;
      r.date = IsDateFormat(style.numberFormat);
      r.style = book->addStyle(style);
    }
    it = resolved_.emplace(xf, r).first;
  }
  *isDate = it->second.date;
  return it->second.style;
}

std::string DecodeXlsxEscapes(std::string_view s) {
  std::string out;
  out.reserve(s.size());
  for (std::size_t i = 0; i < s.size();) {
    int unit = EscapeAt(s, i);
    if (unit < 0) {
      out.push_back(s[i++]);
      continue;
    }
    i += 7;
    std::uint32_t cp = static_cast<std::uint32_t>(unit);
    if (cp >= 0xD800 && cp <= 0xDBFF) {
      int low = EscapeAt(s, i);
      if (low >= 0xDC00 && low <= 0xDFFF) {
        cp = 0x10000 + ((cp - 0xD800) << 10) + (static_cast<std::uint32_t>(low) - 0xDC00);
        i += 7;
      } else {
        cp = 0xFFFD;
      }
    } else if (cp >= 0xDC00 && cp <= 0xDFFF) {
      cp = 0xFFFD;
    }
    AppendUtf8(cp, &out);
  }
  return out;
}

bool ParseIsoDateTime(std::string_view s, bool date1904, double* serial) {
  std::size_t i = 0;
  int y, mo, d, h = 0, mi = 0, sec = 0;
  double frac = 0;
  if (!Digits(s, &i, 4, &y) || i >= s.size() || s[i++] != '-' || !Digits(s, &i, 2, &mo) ||
      i >= s.size() || s[i++] != '-' || !Digits(s, &i, 2, &d))
    return false;
  if (mo < 1 || mo > 12 || d < 1 || d > 31) return false;
  if (i < s.size() && s[i] == 'T') {
    ++i;
    if (!Digits(s, &i, 2, &h) || i >= s.size() || s[i++] != ':' || !Digits(s, &i, 2, &mi))
      return false;
    if (i < s.size() && s[i] == ':') {
      ++i;
      if (!Digits(s, &i, 2, &sec)) return false;
      if (i < s.size() && s[i] == '.') {
        double scale = 0.1;
        for (++i; i < s.size() && s[i] >= '0' && s[i] <= '9'; ++i, scale /= 10)
          frac += (s[i] - '0') * scale;
      }
    }
    if (h > 24 || mi > 59 || sec > 60) return false;
  }
  // A time zone, if any, is dropped: cells hold local wall-clock times.
  if (i < s.size() && s[i] != 'Z' && s[i] != '+' && s[i] != '-') return false;
  std::int64_t days = DaysFromCivil(y, static_cast<unsigned>(mo), static_cast<unsigned>(d));
  double day;
  if (date1904) {
    day = static_cast<double>(days - DaysFromCivil(1904, 1, 1));
  } else {
    day = static_cast<double>(days - DaysFromCivil(1899, 12, 30));
    if (day < 61) day -= 1;  // serials before March 1900 count Excel's 29 February 1900
  }
  *serial = day + (h * 3600 + mi * 60 + sec + frac) / 86400.0;
  return true;
}

}  // namespace xls
