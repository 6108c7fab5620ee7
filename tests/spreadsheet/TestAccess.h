// A window onto the private state of CSpreadSheet for tests in this program.
#pragma once

#include "spreadsheet/SpreadSheet.h"

class CSpreadSheetTestAccess {
 public:
  explicit CSpreadSheetTestAccess(CSpreadSheet& s) : s_(s) {}
  bool appendMode() const { return s_.appendMode; }
  const CStringArray& rowLines() const { return s_.rowLines; }
  const CStringArray& rowValues() const { return s_.rowValues; }
  const CString& fileName() const { return s_.fileName; }
  const CString& delimiter() const { return s_.delimiter; }
  const CString& sheetName() const { return s_.sheetName; }
  const CString& scratchValue() const { return s_.scratchValue; }
  bool isExcel() const { return s_.isExcel; }
  short column(const char* text, bool autoDetect) { return s_.CalculateColumnNumber(text, autoDetect); }

 private:
  CSpreadSheet& s_;
};
