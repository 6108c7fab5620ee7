// Reading and writing .xls workbooks to and from the Workbook model. Read: Excel 97-2003
// (BIFF8 records in an OLE2 compound file), Excel 5.0/95 (BIFF5/7, the "Book" stream), and
// Excel 2, 3 and 4 worksheets and Excel 4 workbooks (BIFF2-4, bare record streams); the
// version is the first BOF record's. Written: Excel 97-2003 only.
//
// What a round trip keeps: every sheet and its order and name, every cell value, the
// styles the model carries (bold, alignment, borders, number formats), column widths,
// the date system. What it drops: charts, images, macros and VBA,
// formulas (their cached results are kept as values), comments, merged cells, fonts
// other than bold, colours and fills, conditional formats, print settings. Defined names
// over one area are read (Workbook::names()), not written.
//
// Text: cells, sheet names and formats are UTF-8 in the model, so a narrow caller gets
// UTF-8 bytes whatever the file stored (UTF-16, Latin-1, or 8-bit text in the workbook's
// code page before Excel 97). Encrypted workbooks get an Unsupported status saying so.
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
// compound file or a BIFF stream, has no Workbook/Book stream, is of a version not read,
// or is malformed gives a Corruption or Unsupported status whose message says what and
// where (a damaged record by its identifier and offset); *out is then unspecified.
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

// Writes the workbook to path atomically: a temporary file in the target's folder is
// written, flushed and renamed over it, so path holds either the old or the new
// workbook. The file keeps its mode, owner, group and symbolic links; one the process
// may not write is refused (fileio/Files.h). REQUIRES: at least one sheet.
// A workbook read encrypted gives Unsupported.
Status WriteWorkbook(const std::string& path, const Workbook& workbook);
Status WriteWorkbookToMemory(const Workbook& workbook, std::vector<std::uint8_t>* out);

// The same through FileOps (faults are injected in the file seam's table, fileio::Sys()).
Status ReadWorkbookWith(FileOps& ops, const std::string& path, Workbook* out);

}  // namespace xls
