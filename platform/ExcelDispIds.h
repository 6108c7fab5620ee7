// DISPIDs of the members of Excel's type library that the report automation calls. The
// caller (CSpreadSheet) and the Linux "Excel.Application" server answer to the same
// numbers; nothing is looked up by name.
#pragma once

#include "platform/AutomationTypes.h"

namespace excel_dispid {

enum : DISPID {
  kBold = 0x60,
  kName = 0x6E,
  kWeight = 0x78,
  kVerticalAlignment = 0x89,
  kFont = 0x92,
  kItem = 0xAA,
  kAdd = 0xB5,
  kRange = 0xC5,
  kAutoFit = 0xED,
  kEntireColumn = 0xF6,
  kResize = 0x100,
  kBorders = 0x1B3,
  kSheets = 0x1E5,
  kVisible = 0x22E,
  kWorkbooks = 0x23C,
  kUserControl = 0x4BA,
  kValue2 = 0x56C
};

}  // namespace excel_dispid
