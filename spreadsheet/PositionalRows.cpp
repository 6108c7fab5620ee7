// Positional row insertion: no header, width or duplicate checks; outside a transaction
// each insertion is followed by the single-row commit.
#include "spreadsheet/RowLine.h"
#include "spreadsheet/SpreadSheet.h"

bool CSpreadSheet::AddRow(CStringArray& RowValues, int row) {
  rowline::Build(RowValues, delimiter, scratchLine);  // built even for row 0
  return AddRowData(scratchLine, row);
}

bool CSpreadSheet::AddRowData(const char* line, int row) {
  if (row == 0) return true;
  // Beyond the end the array first grows with empty lines; negative raises
  // CInvalidArgException before anything changes.
  rowLines.InsertAt(row - 1, line);
  ++totalRows;
  if (!inTransaction) Commit(true);
  return true;
}

bool CSpreadSheet::Commit(bool) {
  if (!isExcel) return true;  // text files are written only by the whole-sheet Commit
  return CommitSingleRowExcel();
}
