// The small parts of an Office Open XML workbook as the reader needs them: relationships,
// the workbook part (sheets, date system, defined names), shared strings and styles.
// Private to the codec (XlsxReader.cpp and its tests).
//
// Every table is filled from untrusted bytes: counts in the file are never used to size
// anything, indexes into the tables are checked by their users.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "xls/Status.h"
#include "xls/Workbook.h"
#include "xls/XlsxZip.h"

namespace xls {

struct XlsxRelationship {
  std::string id;
  std::string type;    // a URI ending in "/worksheet", "/styles", ...
  std::string target;  // resolved to a part name, no leading '/'
};
// The relationships of sourcePart ("" for the package), from its _rels part. A part without
// relationships gives an empty list. External targets are left out.
Status ReadRelationships(ZipPartReader& zip, const std::string& sourcePart,
                         std::vector<XlsxRelationship>* out);
// The first relationship whose type ends in "/" + kind, nullptr when none.
const XlsxRelationship* FindRelationshipOfType(const std::vector<XlsxRelationship>& rels,
                                               std::string_view kind);
// Resolves a relationship target against the folder of sourcePart; false when it climbs
// above the package root.
bool ResolvePartName(const std::string& sourcePart, std::string_view target, std::string* out);

struct XlsxWorkbookPart {
  struct SheetEntry {
    std::string name;
    std::string relationshipId;
  };
  std::vector<SheetEntry> sheets;
  bool date1904 = false;
  // Workbook-wide defined names in file order: name, formula text. Sheet-local names are
  // left out (the model keys names by name alone).
  std::vector<std::pair<std::string, std::string>> names;
};
Status ReadWorkbookPart(ZipPartReader& zip, const std::string& part, XlsxWorkbookPart* out);

// Shared strings, their text concatenated from rich runs, phonetic runs left out.
class SharedStringPool {
 public:
  std::size_t size() const { return ends_.size(); }
  // REQUIRES: i < size().
  std::string_view at(std::size_t i) const {
    std::size_t begin = i == 0 ? 0 : ends_[i - 1];
    return std::string_view(text_.data() + begin, ends_[i] - begin);
  }
  void Append(std::string_view s) {
    text_.append(s);
    ends_.push_back(text_.size());
  }

 private:
  std::string text_;
  std::vector<std::size_t> ends_;
};
Status ReadSharedStrings(ZipPartReader& zip, const std::string& part, SharedStringPool* out);

// Cell formats (cellXfs) with the fonts, borders and number formats they point at; each
// becomes a model style the first time a cell uses it.
class XlsxStyleTable {
 public:
  struct Xf {
    std::uint32_t numFmt = 0, font = 0, border = 0;
    HAlign horizontal = HAlign::kGeneral;
    VAlign vertical = VAlign::kBottom;
  };
  struct BorderSides {
    Border left = Border::kNone, right = Border::kNone, top = Border::kNone, bottom = Border::kNone;
  };
  // The model style of cell format xf (style 0 for one the table lacks), and whether it
  // shows a date or time.
  std::uint16_t ModelStyle(std::uint32_t xf, Workbook* book, bool* isDate);

  std::map<std::uint32_t, std::string> numFmts;
  std::vector<bool> fontBold;
  std::vector<BorderSides> borders;
  std::vector<Xf> xfs;

 private:
  struct Resolved {
    std::uint16_t style;
    bool date;
  };
  std::map<std::uint32_t, Resolved> resolved_;
};
// Excel's limit on cell formats: more in a file is damage or an attack.
constexpr std::size_t kXlsxMaxCellFormats = 64000;
Status ReadStyles(ZipPartReader& zip, const std::string& part, XlsxStyleTable* out);

// Text as stored: _xHHHH_ stands for the UTF-16 unit HHHH (characters XML cannot hold).
std::string DecodeXlsxEscapes(std::string_view s);
// An ISO 8601 date or date-time ("2024-02-29", "2024-02-29T13:45:00Z") as a serial day in
// the date system given; false when it is not one.
bool ParseIsoDateTime(std::string_view s, bool date1904, double* serial);

}  // namespace xls
