// Convert: the sheet written out in the other mode through a second, temporary
// CSpreadSheet on "<name less its last four characters>.csv" or ".xls". Nothing here is
// caught: an error of the target (a failed connect, say) reaches the caller, and the
// target is destroyed on every way out.
#include "spreadsheet/SpreadSheet.h"

bool CSpreadSheet::Convert(CString SheetOrSeparator) {
  scratchLine = fileName.Left(fileName.GetLength() - 4);  // a short name leaves nothing

  if (isExcel) {
    // Workbook to text: the rows collect in the target's memory and are written once.
    scratchLine += ".csv";
    CSpreadSheet target(scratchLine, SheetOrSeparator, false);
    if (target.totalColumns != 0) return false;  // the file already holds a sheet
    target.inTransaction = true;
    for (long i = 1; i <= totalRows; ++i) {
      if (!ReadRow(rowValues, i)) return false;
      if (!target.AddRow(rowValues, static_cast<int>(i))) return false;
    }
    return target.Commit();
  }

  // Text to workbook: the target is outside a transaction, so the header and then every
  // row reach the workbook at once, one statement per row.
  scratchLine += ".xls";
  CSpreadSheet target(scratchLine, SheetOrSeparator, false);
  if (target.totalColumns != 0) return false;  // the sheet exists with columns

  // Every ordered pair is tested and each hit rewrites the message, so it names the
  // duplicated header that stands last; callers show that message.
  rowValues.Copy(fieldNames);
  bool duplicate = false;
  for (INT_PTR i = 0; i < rowValues.GetSize(); ++i) {
    for (INT_PTR j = 0; j < rowValues.GetSize(); ++j) {
      if (i != j && rowValues.GetAt(i) == rowValues.GetAt(j)) {
        lastError.Format("Duplicate header row field:%s\n", rowValues.GetAt(i).GetString());
        duplicate = true;
      }
    }
  }

  if (!duplicate) {
    if (!target.AddHeaders(rowValues, false)) return false;
    for (long i = 2; i <= totalRows; ++i) {
      if (!ReadRow(rowValues, i)) return false;
      if (!target.AddRow(rowValues, static_cast<int>(i))) return false;
    }
    return true;
  }

  // Duplicate names: the columns are numbered 1, 2, 3... instead and the old header
  // becomes the first row under them. The duplicate message stays in lastError.
  rowValues.RemoveAll();
  for (short k = 1; k <= totalColumns; ++k) {
    scratchLine.Format("%d", k);
    rowValues.Add(scratchLine);
  }
  if (!target.AddHeaders(rowValues, false)) return false;
  for (long i = 1; i <= totalRows; ++i) {
    if (!ReadRow(rowValues, i)) return false;
    if (!target.AddRow(rowValues, static_cast<int>(i + 1))) return false;
  }
  return true;
}
