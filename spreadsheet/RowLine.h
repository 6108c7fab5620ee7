// The row line format: one row of a sheet held as one string, each value in double
// quotes, values joined by the whole delimiter string, nothing after the last value.
// Values are never escaped, so a quote or a delimiter inside a value is written as it
// stands and a value holding the separator pattern (quote, delimiter, quote) comes back
// cut in two. Callers depend on these exact forms.
//
// Splitting tries three forms in order:
//   quoted  the line holds quote+delimiter+quote: cut at each occurrence (left to right,
//           never overlapping), then drop the first character of the first value and the
//           last character of the last value without looking at them;
//   plain   the line holds the delimiter: cut at each occurrence, values kept as they are;
//   single  neither: the whole line is one value, less a leading and trailing quote when
//           the line's first quote is its first character and its last quote its last.
// An empty delimiter never separates: every line is then in the single form.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "platform/CString.h"

namespace rowline {

enum class Form { kQuoted, kPlain, kSingle };

// Appends the values of line to out and returns the form found.
Form Split(const std::string& line, const std::string& delimiter, std::vector<CString>& out);

// The number of values Split would give, and the form, without building them.
std::size_t CountValues(const std::string& line, const std::string& delimiter, Form* form);

// The written form of values: "v1"<delimiter>"v2"...; an empty array gives "".
// REQUIRES: out is not one of values.
void Build(const CStringArray& values, const CString& delimiter, CString& out);

// A line of columns blank cells: "" cells in text mode, " " cells in Excel mode.
void BuildBlank(int columns, const CString& delimiter, bool excel, CString& out);

}  // namespace rowline
