// Excel mode: placeholders until the ODBC database layer is in place. Each fails with a
// clear message rather than pretending to succeed.
#include "spreadsheet/SpreadSheet.h"

namespace {
const char kNotAvailable[] = "Excel mode is not available in this build\n";
}

void CSpreadSheet::GetExcelDriver() {}

bool CSpreadSheet::OpenExcel() {
  lastError = kNotAvailable;
  return false;
}

bool CSpreadSheet::CommitExcel() {
  lastError = kNotAvailable;
  return false;
}

bool CSpreadSheet::DeleteSheetExcel(CString) {
  lastError = kNotAvailable;
  return false;
}

bool CSpreadSheet::CommitSingleRowExcel() {
  lastError = kNotAvailable;
  return false;
}

bool CSpreadSheet::ReplaceRows(CStringArray&, CStringArray&) {
  lastError = isExcel ? kNotAvailable : "Function not available for text delimited file\n";
  return false;
}

bool CSpreadSheet::Convert(CString) {
  lastError = kNotAvailable;
  return false;
}
