// Saving the whole sheet, transactions, rollback and deleting the sheet.
#include "platform/File.h"
#include "spreadsheet/SpreadSheet.h"

void CSpreadSheet::BeginTransaction() { inTransaction = true; }

bool CSpreadSheet::Commit() {
  if (isExcel) return CommitExcel();

  // The text file is rewritten in place (created or truncated, shared with everyone):
  // every row line byte for byte, each followed by "\r\n". Any failure is caught and
  // reported the same way; the transaction then stays open.
  try {
    CFile file(fileName, CFile::modeCreate | CFile::modeWrite | CFile::shareDenyNone);
    CArchive archive(&file, CArchive::store, 4096);
    for (const CString& line : rowLines.items()) {
      archive.Write(line.str().data(), static_cast<UINT>(line.str().size()));
      archive.Write("\r\n", 2);
    }
    archive.Close();
    file.Close();
  } catch (CException* e) {
    e->Delete();
    lastError = "Error writing file\n";
    return false;
  } catch (...) {
    lastError = "Error writing file\n";
    return false;
  }
  inTransaction = false;
  return true;
}

bool CSpreadSheet::RollBack() {
  // A reload has exactly the effects of a second Open, kept as they are: in Excel mode
  // the column names are appended again and the rows added to totalRows.
  if (Open()) {
    inTransaction = false;
    return true;
  }
  lastError = "Error in returning to previous state\n";
  return false;
}

bool CSpreadSheet::DeleteSheet() {
  if (isExcel) {
    if (!DeleteSheet(CString(sheetName))) {
      lastError = "Error deleting sheet\n";
      return false;
    }
    return true;
  }
  rowLines.RemoveAll();
  fieldNames.RemoveAll();
  totalColumns = 0;
  totalRows = 0;
  if (!inTransaction) Commit();  // writes an empty file; its result is not reported
  appendMode = false;
  return true;
}

bool CSpreadSheet::DeleteSheet(CString SheetName) {
  if (!isExcel) return DeleteSheet();
  return DeleteSheetExcel(SheetName);
}
