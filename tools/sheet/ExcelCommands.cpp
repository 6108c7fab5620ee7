// Placeholder until the ODBC layer lands: workbook commands report that they are missing.
#include <cstdio>

#include "tools/sheet/Commands.h"

namespace sheet {

int Convert(const Args&) {
  std::fprintf(stderr, "sheet: convert: not available in this build\n");
  return 1;
}

int Sql(const Args&) {
  std::fprintf(stderr, "sheet: sql: not available in this build\n");
  return 1;
}

}  // namespace sheet
