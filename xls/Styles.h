// Cell formatting in BIFF: FONT, FORMAT, XF and STYLE records to and from the model's
// Style (bold, alignment, border line styles, number format), and which number formats
// make a number a date/time.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "xls/Records.h"
#include "xls/Status.h"
#include "xls/Workbook.h"

namespace xls {

// Excel's built-in format string for an index, or nullptr when the index has none that
// does not depend on the locale. Index 0 ("General") gives "".
const char* BuiltinNumberFormat(std::uint16_t index);
// How a number reads under a format: as a number, a date/time (d, m, y, h or s outside
// quotes, escapes and colour/condition brackets), or an elapsed time ([h]:mm, [mm]:ss,
// [ss].00), which Excel shows as a count of its first unit: 1.0 under [h]:mm is 24 hours.
enum class NumberKind : std::uint8_t { kNumber, kDate, kHours, kMinutes, kSeconds };
NumberKind ClassifyNumberFormat(std::string_view format);
inline bool IsDateFormat(std::string_view format) {
  return ClassifyNumberFormat(format) == NumberKind::kDate;
}
// How many of an elapsed-time format's units make a day (24 for hours); 0 for the other
// kinds. The model holds the count of units (36 under [h]:mm), the file days (1.5).
double ElapsedUnitsPerDay(NumberKind kind);

// One XF record as read: indexes into the font and format tables and the looks.
struct XfRecord {
  std::uint16_t font = 0;
  std::uint16_t format = 0;
  HAlign horizontal = HAlign::kGeneral;
  VAlign vertical = VAlign::kBottom;
  Border left = Border::kNone, right = Border::kNone, top = Border::kNone, bottom = Border::kNone;
};
// biff8 false means the 16-byte Excel 5/95 layout. False when the record is too short.
bool ParseXf(const std::uint8_t* p, std::size_t n, bool biff8, XfRecord* out);
// Bold from a FONT record (weight 700 or more, or the bold flag bit some writers set).
bool ParseFontBold(const std::uint8_t* p, std::size_t n, bool* bold);
// A line style code (0-13) as the nearest border the model carries.
Border BorderFromLineStyle(unsigned code);

// Assigns XF indexes to the styles cells use and writes the formatting records.
class StyleTableWriter {
 public:
  enum class DateForce : std::uint8_t { kNone, kDate, kDateTime };
  explicit StyleTableWriter(const std::vector<Style>& styles);
  // The XF index for a model style; with a DateForce the number format becomes a date
  // format when the style's own is not one (a date/time cell must look like a date).
  // Fails when a workbook needs more XFs than Excel allows.
  Status XfFor(std::uint16_t style, DateForce force, std::uint16_t* xf);
  // FONT, FORMAT, XF and STYLE records, in that order.
  void Write(RecordWriter& w) const;

 private:
  std::uint16_t FormatIndex(const std::string& format);
  std::uint16_t LookupFormat(const std::string& format) const;
  const std::vector<Style>& styles_;
  std::map<std::pair<std::uint16_t, DateForce>, std::uint16_t> xfIndex_;
  std::vector<Style> cellXfs_;  // XF 15 + i
  std::map<std::string, std::uint16_t> customFormats_;
};

}  // namespace xls
