// Editing headers, rows and cells in memory; outside a transaction every edit saves the
// whole sheet at once through Commit, whose result the edit does not look at.
#include <utility>

#include "spreadsheet/RowLine.h"
#include "spreadsheet/SpreadSheet.h"

namespace {

// The first equal pair among values (every ordered pair of different positions), or -1.
INT_PTR FirstDuplicate(const CStringArray& values) {
  const INT_PTR n = values.GetSize();
  for (INT_PTR i = 0; i < n; ++i) {
    for (INT_PTR j = 0; j < n; ++j) {
      if (i != j && values.GetAt(i) == values.GetAt(j)) return i;
    }
  }
  return -1;
}

}  // namespace

bool CSpreadSheet::AddRow(CStringArray& RowValues, long row, bool replace) {
  if (row == 1) {
    if (isExcel) {
      const INT_PTR dup = FirstDuplicate(RowValues);
      if (dup >= 0) {
        lastError.Format("Duplicate header row field:%s\n", RowValues.GetAt(dup).GetString());
        return false;
      }
      if (RowValues.GetSize() < totalColumns) {
        lastError =
            "Number of columns in new header row cannot be less than the number of columns in "
            "previous header row";
        return false;
      }
      totalColumns = static_cast<short>(RowValues.GetSize());
    }
    fieldNames.RemoveAll();
    fieldNames.Copy(RowValues);
  } else if (isExcel && totalColumns == 0) {
    lastError = "No header row. Add header row first\n";
    return false;
  }

  if (isExcel) {
    if (RowValues.GetSize() > fieldNames.GetSize()) {
      lastError = "Number of columns to be added cannot be greater than the number of fields\n";
      return false;
    }
  } else if (RowValues.GetSize() > totalColumns) {
    totalColumns = static_cast<short>(RowValues.GetSize());
  }

  rowline::Build(RowValues, delimiter, scratchLine);

  if (row == 0) {
    // The built line moves into the new row: appending a long run of rows copies no
    // line twice. The work area is left empty; its contents mean nothing to later calls.
    rowLines.items().push_back(std::move(scratchLine));
    scratchLine.Empty();
    ++totalRows;
  } else if (row > totalRows) {
    rowline::BuildBlank(totalColumns, delimiter, isExcel, scratchValue);
    for (long i = 0; i < row - totalRows - 1; ++i) rowLines.Add(scratchValue);
    rowLines.Add(scratchLine);
    totalRows = row;
    currentRow = row;
  } else if (replace) {
    rowLines.SetAt(row - 1, scratchLine);  // outside the held lines: CInvalidArgException
  } else {
    rowLines.InsertAt(row - 1, scratchLine);  // negative: CInvalidArgException
    ++totalRows;
  }

  if (!inTransaction) Commit();
  return true;
}

bool CSpreadSheet::AddHeaders(CStringArray& FieldNames, bool replace) {
  if (!appendMode) {
    // The opened file held no sheet: set the header; appendMode stays false, so a
    // second call sets it again.
    totalColumns = static_cast<short>(FieldNames.GetSize());
    if (!AddRow(FieldNames, 1, true)) return false;
    totalRows = 1;
    return true;
  }
  if (replace) return AddRow(FieldNames, 1, true);

  // Widen the existing header to the right. A one-field header reads as a one-value
  // line, which fails, so it cannot be widened: callers know this limit.
  if (!ReadRow(rowValues, 1)) return false;
  if (isExcel) {
    for (INT_PTR i = 0; i < FieldNames.GetSize(); ++i) {
      for (INT_PTR j = 0; j < rowValues.GetSize(); ++j) {
        if (FieldNames.GetAt(i) == rowValues.GetAt(j)) {
          lastError.Format("Duplicate header row field:%s\n", FieldNames.GetAt(i).GetString());
          return false;
        }
      }
    }
  }
  rowValues.Append(FieldNames);
  if (!AddRow(rowValues, 1, true)) {
    lastError = "Problems with adding headers\n";
    return false;
  }
  if (rowValues.GetSize() > totalColumns) totalColumns = static_cast<short>(rowValues.GetSize());
  return true;
}

bool CSpreadSheet::AddCell(CString CellValue, short column, long row) {
  if (column == 0) {
    lastError = "Column cannot be zero\n";
    return false;
  }
  if (isExcel) {
    // One past the last field is allowed on purpose: in row 1 it adds a header field.
    if (column > fieldNames.GetSize() + 1) {
      lastError = "Cell column to be added cannot be greater than the number of fields\n";
      return false;
    }
  } else if (column > totalColumns) {
    totalColumns = column;
  }

  if (row >= 1 ? row <= totalRows : row < 0) {
    ReadRow(rowValues, row);  // a one-value row still delivers its value
    if (column > rowValues.GetSize()) rowValues.SetSize(column);
    rowValues.SetAt(column - 1, CellValue);
    if (row == 1) {
      if (isExcel) {
        const INT_PTR dup = FirstDuplicate(rowValues);
        if (dup >= 0) {
          lastError.Format("Duplicate header row field:%s\n", rowValues.GetAt(dup).GetString());
          return false;
        }
      }
      fieldNames.RemoveAll();
      fieldNames.Copy(rowValues);
    }
    if (!AddRow(rowValues, row, true)) return false;
    // Deliberate second save: AddRow has saved once already.
    if (!inTransaction) Commit();
    return true;
  }

  // A new row, appended (row 0) or placed beyond the end with blank lines before it.
  if (row > totalRows) {
    rowline::BuildBlank(totalColumns, delimiter, isExcel, scratchValue);
    for (long i = 0; i < row - totalRows - 1; ++i) rowLines.Add(scratchValue);
  }
  const char* blank = isExcel ? "\" \"" : "\"\"";
  std::string& line = scratchLine.str();
  line.clear();
  for (int c = 1; c <= totalColumns; ++c) {
    if (c == column) {
      line += '"';
      line += CellValue.str();
      line += '"';
    } else {
      line += blank;
    }
    if (c < totalColumns) line += delimiter.str();
  }
  rowLines.Add(scratchLine);
  if (row == 0) {
    ++totalRows;
  } else {
    totalRows = row;
    currentRow = row;
  }
  if (!inTransaction) Commit();
  return true;
}

bool CSpreadSheet::AddCell(CString CellValue, CString column, long row, bool Auto) {
  const short number = CalculateColumnNumber(column, Auto);
  if (number == 0) return false;
  return AddCell(CellValue, number, row);
}
