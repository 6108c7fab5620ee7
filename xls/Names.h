// Defined names as the workbook globals declare them: NAME records (BIFF5 and BIFF8),
// resolved once the globals are read, through EXTERNSHEET and SUPBOOK, to one sheet and
// one rectangle each. Names whose formula is anything else (several areas, constants,
// other workbooks, macros) are not kept: the model holds areas only.
//
// A NameTable owns copies of what it needs from the records; nothing points into the stream.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "xls/Strings.h"
#include "xls/Workbook.h"

namespace xls {

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
