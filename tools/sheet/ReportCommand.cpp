// Placeholder until the automation server lands.
#include <cstdio>

#include "tools/sheet/Commands.h"

namespace sheet {

int Report(const Args&) {
  std::fprintf(stderr, "sheet: report: not available in this build\n");
  return 1;
}

}  // namespace sheet
