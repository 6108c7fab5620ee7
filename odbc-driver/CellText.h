// How a cell reads as text through the driver: numbers in their shortest exact form
// ("10", "2.5", "0.1", "1e+20"), dates as "YYYY-MM-DD HH:MM:SS" (time 00:00:00 kept),
// booleans as 1/0, errors as Excel shows them ("#N/A"). Empty cells are NULL.
#pragma once

#include <string>

#include "xls/Workbook.h"

namespace xlsodbc {

// Appends the shortest text that reads back as exactly v. Plain digits between 1e-5 and
// 1e16, exponent form outside. Locale-independent.
void AppendNumber(double v, std::string* out);
std::string FormatNumber(double v);
// The same text written into out, which holds at least kNumberTextMax bytes; returns its
// length (no terminator).
constexpr std::size_t kNumberTextMax = 64;
std::size_t FormatNumberTo(double v, char* out);

// Serial day number to "YYYY-MM-DD HH:MM:SS", in the 1900 or 1904 date system.
std::string FormatDateTime(double serial, bool date1904);

// Sets *out to the cell's text; false (and *out empty) when the cell is empty.
bool CellText(const xls::Cell& cell, bool date1904, std::string* out);

}  // namespace xlsodbc
