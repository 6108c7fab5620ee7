// libFuzzer target for the .xlsx reader: any bytes give a status, never a crash, a hang or
// memory beyond what the cells read need; a workbook read must write back.
#include <cstddef>
#include <cstdint>
#include <vector>

#include "xls/Xlsx.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  xls::Workbook wb;
  xls::Status s = xls::ReadXlsxFromMemory(data, size, &wb);
  if (s.ok()) {
    std::vector<std::uint8_t> again;
    (void)xls::WriteXlsxToMemory(wb, &again);
  }
  return 0;
}
