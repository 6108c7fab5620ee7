// The report automation: initExcel, initTable, WriteHeader, WriteInExcel, onCommitCOM,
// endTable, endExcel. Every call reaches Excel by the DISPIDs of its type library.
//
// Deliberate behaviour that callers depend on: the headings are walked but never sent,
// data rows are only counted (the data cells stay empty, users fill them by hand), the
// value block is one row shorter than the array, and a second endTable for the same
// table writes an empty value, clearing the block.
#include <cstdio>
#include <memory>
#include <vector>

#include "platform/MessageBox.h"
#include "platform/ExcelDispIds.h"
#include "spreadsheet/SpreadSheet.h"

namespace {

using namespace excel_dispid;
constexpr short kXlCenter = -4108;
constexpr short kHeaderWeight = 3;
constexpr short kDataWeight = 2;                                    // xlThin
constexpr HRESULT kNotStarted = static_cast<HRESULT>(0x8000FFFFu);  // E_UNEXPECTED

// The creation error records and the arrays handed to Excel are never disposed of by the
// sequence; they stay reachable here until the process ends.
std::vector<std::unique_ptr<COleException>>& CreationErrors() {
  static std::vector<std::unique_ptr<COleException>> kept;
  return kept;
}
struct DetachedArrays {
  std::vector<VARIANT> arrays;
  ~DetachedArrays() {
    for (VARIANT& v : arrays) VariantClear(&v);
  }
};
DetachedArrays& Detached() {
  static DetachedArrays kept;
  return kept;
}

void Require(const COleDispatchDriver& driver) {
  if (driver.m_lpDispatch == nullptr)
    AfxThrowOleDispatchException(kNotStarted, "Excel is not running: initExcel has not succeeded.");
}

// driver = object.Range(cell1, cell2)
void TakeRange(COleDispatchDriver& worksheet, COleDispatchDriver& driver, const char* cell1,
               const char* cell2) {
  COleVariant args[2] = {COleVariant(cell1), COleVariant(cell2)};
  VARIANT raw[2] = {args[0].get(), args[1].get()};
  driver.AttachDispatch(worksheet.GetDispatchProperty(kRange, raw, 2));
}

// Selects the layout named tableName; false when the name is none of the three.
bool Layout(const CString& tableName, short* columns, CString* lastColumn, short* sheetIndex) {
  if (tableName == "RMS") {
    *columns = 31, *lastColumn = "AE", *sheetIndex = 1;
  } else if (tableName == "Price Protection") {
    *columns = 11, *lastColumn = "K", *sheetIndex = 2;
  } else if (tableName == "Script Validation") {
    *columns = 12, *lastColumn = "L", *sheetIndex = 3;
  } else {
    return false;
  }
  return true;
}

}  // namespace

void CSpreadSheet::initExcel(CString) {
  CoInitialize(nullptr);
  trueVariant.SetI2(1);
  falseVariant.SetI2(0);
  missingVariant.SetError(DISP_E_PARAMNOTFOUND);
  CreationErrors().push_back(std::make_unique<COleException>(S_OK));
  COleException* error = CreationErrors().back().get();
  if (!excelApp.CreateDispatch("Excel.Application", error)) {
    char buffer[1024] = {};
    error->GetErrorMessage(buffer, sizeof buffer);  // kept for a debugger, not shown
    platform::ShowMessageBox("Couldn't start Excel and get Application object.", "",
                             platform::kMbOk);
    return;
  }
  workbooks.AttachDispatch(excelApp.GetDispatchProperty(kWorkbooks));
  VARIANT missing = missingVariant.get();
  workbook.AttachDispatch(workbooks.CallObjectMethod(kAdd, &missing, 1));
}

void CSpreadSheet::initTable(long rowCount, CString tableName) {
  Require(workbook);
  short sheetIndex = 0;
  if (tableName == "RMS") {
    fillRMSTableColumn();
    tableColumns = 31, lastColumn = "AE", sheetIndex = 1, rmsRows = rowCount;
  } else if (tableName == "Price Protection") {
    fillPriceProtectionColumn();
    tableColumns = 11, lastColumn = "K", sheetIndex = 2, priceProtectionRows = rowCount;
  } else if (tableName == "Script Validation") {
    fillScriptValidationColumn();
    tableColumns = 12, lastColumn = "L", sheetIndex = 3, scriptValidationRows = rowCount;
  }
  if (sheetIndex != 0) totalRows = 2;

  if (rowCount < 0 || rowCount > 65532) AfxThrowInvalidArgException();
  DWORD bounds[2] = {static_cast<DWORD>(rowCount + 4), static_cast<DWORD>(tableColumns)};
  valueArray.Create(VT_BSTR, 2, bounds);

  sheets.AttachDispatch(workbook.GetDispatchProperty(kSheets));
  COleVariant index(sheetIndex, VT_I2);
  VARIANT rawIndex = index.get();
  worksheet.AttachDispatch(sheets.GetDispatchProperty(kItem, &rawIndex, 1));
  worksheet.SetStringProperty(kName, tableName.GetString());
  WriteHeader();
}

bool CSpreadSheet::WriteHeader() {
  Require(worksheet);
  for (INT_PTR i = 1; i <= fieldNames.GetSize(); ++i) scratchLine.Format("%d", static_cast<int>(i));
  CString lastCell;
  lastCell.Format("%s2", lastColumn.GetString());
  TakeRange(worksheet, range, "A2", lastCell.GetString());
  font.AttachDispatch(range.GetDispatchProperty(kFont));
  font.SetProperty(kBold, trueVariant.get());
  range.SetProperty(kVerticalAlignment, COleVariant(kXlCenter, VT_I2).get());

  for (INT_PTR i = 0; i < fieldNames.GetSize(); ++i)
    scratchLine.Format("%s", fieldNames.GetAt(i).GetString());
  lastCell.Format("%s3", lastColumn.GetString());
  TakeRange(worksheet, range, "A3", lastCell.GetString());
  font.AttachDispatch(range.GetDispatchProperty(kFont));
  font.SetProperty(kBold, trueVariant.get());
  range.SetProperty(kVerticalAlignment, COleVariant(kXlCenter, VT_I2).get());
  return true;
}

bool CSpreadSheet::WriteInExcel(CStringArray& row) {
  for (INT_PTR i = 0; i < row.GetSize(); ++i) scratchLine.Format("%s", row.GetAt(i).GetString());
  ++totalRows;
  return true;
}

void CSpreadSheet::onCommitCOM(CStringArray& row) { WriteInExcel(row); }

void CSpreadSheet::endTable(CString tableName) {
  Require(worksheet);
  CString last;
  short sheetIndex = 0;
  if (Layout(tableName, &tableColumns, &last, &sheetIndex)) {
    tableRows = tableName == "RMS"                ? rmsRows
                : tableName == "Price Protection" ? priceProtectionRows
                                                  : scriptValidationRows;
  }
  // Two letters and a seven-digit row fit the ten bytes Excel's addresses need here.
  char bottomRight[10];
  std::snprintf(bottomRight, sizeof bottomRight, "%s%lu", last.GetString(),
                static_cast<unsigned long>(tableRows + 3));

  TakeRange(worksheet, range, "A1", bottomRight);
  VARIANT copy;
  VariantInit(&copy);
  if (FAILED(VariantCopy(&copy, const_cast<VARIANT*>(&valueArray.get()))))
    AfxThrowMemoryException();
  try {
    range.SetProperty(kValue2, copy);
  } catch (...) {
    VariantClear(&copy);
    throw;
  }
  VariantClear(&copy);
  Detached().arrays.push_back(valueArray.Detach());

  TakeRange(worksheet, range, "A1", bottomRight);
  columns.AttachDispatch(range.GetDispatchProperty(kEntireColumn));
  columns.Invoke(kAutoFit, DISPATCH_METHOD, nullptr, 0, nullptr);

  COleDispatchDriver resized, borders;
  COleVariant width(tableColumns, VT_I2);
  VARIANT size[2] = {missingVariant.get(), width.get()};
  COleVariant weight(kHeaderWeight, VT_I2);
  CString headerEnd;
  headerEnd.Format("%s3", last.GetString());
  TakeRange(worksheet, range, "A1", headerEnd.GetString());
  resized.AttachDispatch(range.GetDispatchProperty(kResize, size, 2));
  borders.AttachDispatch(resized.GetDispatchProperty(kBorders));
  borders.SetProperty(kWeight, weight.get());

  if (tableRows > 0) {
    TakeRange(worksheet, range, "A4", bottomRight);
    resized.AttachDispatch(range.GetDispatchProperty(kResize, size, 2));
    borders.AttachDispatch(resized.GetDispatchProperty(kBorders));
    weight.SetI2(kDataWeight);
    borders.SetProperty(kWeight, weight.get());
  }
}

void CSpreadSheet::endExcel() {
  Require(excelApp);
  excelApp.SetBoolProperty(kVisible, true);
  excelApp.SetBoolProperty(kUserControl, true);
}
