// A window onto the private state of CSpreadSheet for the Excel-mode tests.
#pragma once

#include "platform/Database.h"
#include "spreadsheet/SpreadSheet.h"

class CSpreadSheetTestAccess {
 public:
  explicit CSpreadSheetTestAccess(CSpreadSheet& s) : s_(s) {}
  bool appendMode() const { return s_.appendMode; }
  const CStringArray& rowLines() const { return s_.rowLines; }
  const CStringArray& fieldNames() const { return s_.fieldNames; }
  const CString& excelDriver() const { return s_.excelDriver; }
  const CString& connectString() const { return s_.connectString; }
  bool connected() const { return s_.database && s_.database->IsOpen(); }
  bool recordsetGone() const { return s_.recordset == nullptr; }
  void setExcelDriver(const char* name) { s_.excelDriver = name; }
  void GetExcelDriver() { s_.GetExcelDriver(); }

 private:
  CSpreadSheet& s_;
};
