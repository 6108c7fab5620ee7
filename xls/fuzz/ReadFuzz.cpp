// libFuzzer target: any bytes given to the reader give a status, never a crash or a hang.
#include <cstddef>
#include <cstdint>

#include "xls/Xls.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  xls::Workbook wb;
  xls::Status s = xls::ReadWorkbookFromMemory(data, size, &wb);
  if (s.ok()) {
    std::vector<std::uint8_t> again;  // whatever was read must write back
    (void)xls::WriteWorkbookToMemory(wb, &again);
  }
  return 0;
}
