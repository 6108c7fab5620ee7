// Automation seam: MFC's COleDispatchDriver, COleVariant and COleSafeArray names over
// COM on Windows and over the built-in "Excel.Application" server elsewhere.
// (Placeholder declarations; the automation work completes this header.)
#pragma once

#include "platform/Export.h"
#include "platform/WinTypes.h"

class SPREADSHEET_API COleVariant {
 public:
  COleVariant() = default;
};

class SPREADSHEET_API COleSafeArray {
 public:
  COleSafeArray() = default;
};

class SPREADSHEET_API COleDispatchDriver {
 public:
  COleDispatchDriver() = default;
};
