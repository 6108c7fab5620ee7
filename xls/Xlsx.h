// Reading and writing Excel 2007+ workbooks (.xlsx, and reading .xlsm: Office Open XML,
// parts of XML in a zip archive) to and from the Workbook model, and the choice between
// this format and .xls.
//
// What a round trip keeps: the same as .xls (xls/Xls.h): sheets, cell values, the styles
// the model carries, column widths, the date system, and workbook-wide defined names.
// Formulas give their cached results; macros, charts, comments and the rest are dropped.
// Sheets hold up to 1,048,576 rows x 16,384 columns (kXlsxMaxRows, kXlsxMaxColumns).
//
// Reading streams each part through the XML parser as it inflates. A damaged or hostile
// file (bad zip, missing part, bad XML, a zip bomb, cells past the grid) gives Corruption
// with a message naming the part and place; memory stays within what the cells read need.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "xls/FileIo.h"
#include "xls/Status.h"
#include "xls/Workbook.h"

namespace xls {

// *out is replaced; it is unspecified after a failure.
Status ReadXlsxFromMemory(const std::uint8_t* data, std::size_t size, Workbook* out);

// Writes atomically, like WriteWorkbook. REQUIRES: at least one sheet. A workbook read
// encrypted gives Unsupported. A path ending in .xlsm gets the macro-enabled content type
// (with no macros), so Excel accepts the name.
Status WriteXlsx(const std::string& path, const Workbook& workbook);
Status WriteXlsxToMemory(const Workbook& workbook, std::vector<std::uint8_t>* out,
                         bool macroEnabled = false);

// A defined name's area as the workbook part writes it ('Sheet 1'!$A$1:$C$10), and back:
// false for anything but one rectangle on one sheet of book (unions, constants, #REF!).
// REQUIRES (AreaReference): name.sheet indexes book.sheets().
std::string AreaReference(const Workbook& book, const DefinedName& name);
[[nodiscard]] bool ParseAreaReference(std::string_view formula, const Workbook& book,
                                      DefinedName* out);

enum class WorkbookFormat : std::uint8_t { kXls, kXlsx };
// By content: a zip archive (it starts "PK\3\4") is Office Open XML, anything else is
// left to the .xls reader.
WorkbookFormat FormatOfBytes(const std::uint8_t* data, std::size_t size);
// By name: .xlsx and .xlsm (any case) are Office Open XML, anything else .xls.
WorkbookFormat FormatOfPath(std::string_view path);

}  // namespace xls
