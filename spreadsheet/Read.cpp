// Reading rows, columns and cells from the row lines held in memory.
#include "spreadsheet/RowLine.h"
#include "spreadsheet/SpreadSheet.h"

namespace {
const char kRowOutOfRange[] = "Desired row is greater than total number of rows in spreadsheet\n";
const char kColumnZero[] = "Column cannot be zero\n";
const char kErrorReadingRow[] = "Error reading row\n";
}  // namespace

bool CSpreadSheet::ReadRow(CStringArray& RowValues, long row) {
  if (row > rowLines.GetSize()) {
    lastError = kRowOutOfRange;
    return false;
  }
  if (row != 0) {
    currentRow = row;
  } else if (currentRow > rowLines.GetSize()) {
    return false;  // the end of a sequential read; lastError stays as it was
  }
  RowValues.items().clear();  // its room kept: a save reads every row into one array
  // Split straight from the held line: RowValues is never rowLines (both are callers' own
  // or this object's other arrays).
  const CString& line = rowLines.GetAt(currentRow - 1);  // below 0 raises CInvalidArgException
  ++currentRow;
  const rowline::Form form = rowline::Split(line.str(), delimiter.str(), RowValues.items());
  if (form == rowline::Form::kSingle) {
    // Deliberate: a line without a delimiter delivers its value yet reads as a failure
    // with the out-of-range message; callers rely on this to spot one-value rows.
    lastError = kRowOutOfRange;
    return false;
  }
  return true;
}

bool CSpreadSheet::ReadColumn(CStringArray& ColumnValues, short column) {
  if (column == 0) {
    lastError = kColumnZero;
    return false;
  }
  const long saved = currentRow;
  currentRow = 1;
  ColumnValues.RemoveAll();
  const long held = static_cast<long>(rowLines.GetSize());
  for (long r = 1; r <= held; ++r) {
    if (!ReadRow(rowValues, r)) {
      currentRow = saved;
      lastError = kErrorReadingRow;
      return false;
    }
    if (column <= rowValues.GetSize()) {
      ColumnValues.Add(rowValues.GetAt(column - 1));  // negative: CInvalidArgException
    } else {
      ColumnValues.Add("");
    }
  }
  currentRow = saved;
  return true;
}

bool CSpreadSheet::ReadColumn(CStringArray& ColumnValues, CString column, bool Auto) {
  const short number = CalculateColumnNumber(column, Auto);
  if (number == 0) return false;
  return ReadColumn(ColumnValues, number);
}

bool CSpreadSheet::ReadCell(CString& CellValue, short column, long row) {
  if (column == 0) {
    lastError = kColumnZero;
    return false;
  }
  const long saved = currentRow;
  long toRead = saved;
  if (row != 0) {
    currentRow = row;
    toRead = row;
  }
  if (!ReadRow(rowValues, toRead)) {
    currentRow = saved;
    lastError = kErrorReadingRow;
    return false;
  }
  if (column > rowValues.GetSize()) {
    CellValue.Empty();
    currentRow = saved;
    return false;
  }
  CellValue = rowValues.GetAt(column - 1);  // negative: CInvalidArgException, uncaught
  currentRow = saved;
  return true;
}

bool CSpreadSheet::ReadCell(CString& CellValue, CString column, long row, bool Auto) {
  const short number = CalculateColumnNumber(column, Auto);
  if (number == 0) return false;
  return ReadCell(CellValue, number, row);
}

short CSpreadSheet::CalculateColumnNumber(CString column, bool Auto) {
  if (Auto) {
    column.MakeUpper();
    // Letters are not validated: each byte counts as a signed 8-bit code, and the sum
    // wraps in 16 bits. So a one- or two-character header can never be named by text.
    const int length = column.GetLength();
    if (length == 1) {
      return static_cast<short>(static_cast<signed char>(column.GetAt(0)) - 64);
    }
    if (length == 2) {
      const int first = static_cast<signed char>(column.GetAt(0));
      const int second = static_cast<signed char>(column.GetAt(1));
      return static_cast<short>(first * 26 + second - 1728);
    }
  }
  for (INT_PTR i = 0; i < fieldNames.GetSize(); ++i) {
    if (column == fieldNames.GetAt(i)) return static_cast<short>(i + 1);
  }
  lastError = "Invalid field name or column alphabet\n";
  return 0;
}
