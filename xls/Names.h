// Defined names as the workbook globals declare them: NAME records (BIFF5 and BIFF8),
// resolved once the globals are read, through EXTERNSHEET and SUPBOOK, to one sheet and
// one rectangle each. Names whose formula is anything else (several areas, constants,
// other workbooks, macros) are not kept: the model holds areas only. The writer's side,
// WriteNameRecords, stores the model's names in the BIFF8 form the reader takes.
//
// A NameTable owns copies of what it needs from the records; nothing points into the stream.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "xls/Records.h"
#include "xls/Strings.h"
#include "xls/Workbook.h"

namespace xls {

// The one-character code a file stores for one of Excel's built-in names ("Print_Area" is
// 6), or -1 when name is none of them.
int BuiltinNameCode(std::string_view name);

// The NAME records of wb's names, with the SUPBOOK and EXTERNSHEET records their 3-D
// references need; nothing when wb has no names. An area past the .xls grid is cut to it
// (a name over whole columns of an .xlsx sheet stays whole columns); a name whose area
// starts past it, or on a sheet wb lacks, is left out.
void WriteNameRecords(const Workbook& wb, RecordWriter& w);

class NameTable {
 public:
  // BIFF8 SUPBOOK: whether it is this workbook's own (references to its sheets).
  void AddSupBook(const std::uint8_t* p, std::size_t n);
  // BIFF8 EXTERNSHEET: the table the names' 3-D references index. BIFF5's form lists
  // sheet names, which its references repeat as indexes, and is not needed.
  void AddExternSheet(const std::uint8_t* p, std::size_t n);
  // A NAME record; 8-bit text (before BIFF8) is decoded with cp. A record too short for
  // what it declares is skipped: a name is not worth refusing a workbook for.
  void AddName(const std::uint8_t* p, std::size_t n, int biff, const CodepageDecoder& cp);
  // Adds each name that resolves to one rectangle on one worksheet. tabToSheet maps the
  // position of a BOUNDSHEET record (sheets of every kind, in file order) to the model's
  // sheet index, or -1 for a sheet the model does not hold (charts, macro sheets).
  void Resolve(const std::vector<int>& tabToSheet, Workbook* wb) const;

 private:
  struct Pending {
    DefinedName name;
    int scopeTab = -1;  // BOUNDSHEET position, -1 for the workbook
    int biff = 8;
    std::vector<std::uint8_t> formula;
  };
  struct Xti {
    std::uint16_t supBook;
    std::int16_t firstTab, lastTab;
  };
  bool AreaOf(const Pending& p, const std::vector<int>& tabToSheet, DefinedName* out) const;
  std::vector<bool> supBookInternal_;
  std::vector<Xti> xti_;
  std::vector<Pending> pending_;
};

}  // namespace xls
