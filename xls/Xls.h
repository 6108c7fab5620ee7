// Reading and writing Excel 97-2003 workbooks (.xls: BIFF8 records in an OLE2
// compound file) to and from the Workbook model.
//
// What a round trip keeps: every sheet and its order and name, every cell value, the
// styles the model carries (bold, alignment, borders, number formats), column widths,
// the date system. What it drops: charts, images, macros and VBA,
// formulas (their cached results are kept as values), defined names, comments, merged cells, fonts
// other than bold, colours and fills, conditional formats, print settings.
//
// Text: cells, sheet names and formats are UTF-8 in the model, so a narrow caller gets
// UTF-8 bytes whatever the file stored (8-bit or UTF-16 strings). Only Excel 97-2003
// (BIFF8) files are read; Excel 5.0/95 files get an Unsupported status naming the version.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "xls/FileIo.h"
#include "xls/Status.h"
#include "xls/Workbook.h"

namespace xls {

// Reading chooses the format by content and writing by the path's extension: a zip archive
// is read, and a path ending in .xlsx or .xlsm written, as Office Open XML (xls/Xlsx.h).
// WriteWorkbookToMemory always writes .xls.
//
// Reads the workbook at path into *out (which is replaced). A file that is not a
// compound file, has no Workbook/Book stream, or is malformed gives a Corruption or
// Unsupported status whose message says what and where; *out is then unspecified.
Status ReadWorkbook(const std::string& path, Workbook* out);
Status ReadWorkbookFromMemory(const std::uint8_t* data, std::size_t size, Workbook* out);

// How to read a workbook.
struct ReadOptions {
  // The password of an encrypted workbook, UTF-8. Excel's default password, which protects
  // files against editing only, is always tried first, so empty opens those.
  std::string password;
};
// As above, with options. An encrypted workbook that no password opens gives NeedsPassword
// (none given) or WrongPassword; one that opens is read with out->encrypted set, and
// WriteWorkbook then refuses it (see Workbook::encrypted).
Status ReadWorkbook(const std::string& path, const ReadOptions& options, Workbook* out);
Status ReadWorkbookFromMemory(const std::uint8_t* data, std::size_t size,
                              const ReadOptions& options, Workbook* out);

// Writes the workbook to path atomically: a temporary file in the same folder is
// written, flushed and renamed over path, so path holds either the old or the new
// workbook. REQUIRES: at least one sheet. A workbook read encrypted gives Unsupported.
Status WriteWorkbook(const std::string& path, const Workbook& workbook);
Status WriteWorkbookToMemory(const Workbook& workbook, std::vector<std::uint8_t>* out);

// The same through a caller's FileOps (tests inject I/O faults with it).
Status ReadWorkbookWith(FileOps& ops, const std::string& path, Workbook* out);
Status WriteWorkbookWith(FileOps& ops, const std::string& path, const Workbook& workbook);

}  // namespace xls
