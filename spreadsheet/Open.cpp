// Construction, loading and the accessors.
#include <memory>

#include "platform/Database.h"
#include "platform/File.h"
#include "spreadsheet/RowLine.h"
#include "spreadsheet/SpreadSheet.h"

namespace {
const char kOpenError[] = "Error in opening file\n";
const char kEmptyDelimiter[] = "Delimiter cannot be empty\n";
const char kRowOutOfRange[] = "Desired row is greater than total number of rows in spreadsheet\n";

// What the column count needs from a set of lines: the most values on one line, and
// whether one of them reads as a single value (which leaves the out-of-range message).
struct Width {
  std::size_t most = 0;
  bool anySingle = false;
};

void Fold(Width& into, const Width& w) {
  if (w.most > into.most) into.most = w.most;
  into.anySingle = into.anySingle || w.anySingle;
}

Width CountWidth(const std::string& line, const std::string& delimiter) {
  rowline::Form form;
  const std::size_t n = rowline::CountValues(line, delimiter, &form);
  return Width{n, form == rowline::Form::kSingle};
}

// The widths of the lines loaded so far, the newest apart.
struct Measure {
  Width done;
  Width newest;
  bool haveNewest = false;
  bool anyOverflow = false;  // a count beyond 16 bits: the order of the updates matters

  void Add(const Width& w) {
    if (haveNewest) Fold(done, newest);
    newest = w;
    haveNewest = true;
    if (w.most > 32767) anyOverflow = true;
  }
  Width WithNewest() const {
    Width w = done;
    Fold(w, newest);
    return w;
  }
};

}  // namespace

CSpreadSheet::CSpreadSheet(CString File, CString SheetOrSeparator, bool Backup)
    : appendMode(false),
      backupEnabled(Backup),
      isExcel(false),
      inTransaction(false),
      currentRow(1),
      totalRows(0),
      totalColumns(0),
      fileName(File),
      database(nullptr),
      recordset(nullptr),
      tableRows(0),
      tableColumns(0),
      rmsRows(0),
      priceProtectionRows(0),
      scriptValidationRows(0) {
  // The mode follows the last four characters of the name, lowered: ".xls" in any case
  // is a workbook, anything else (".xlsx" included) a delimited text file.
  scratchLine = fileName.Right(4);
  scratchLine.MakeLower();
  if (scratchLine == ".xls") {
    isExcel = true;
    sheetName = SheetOrSeparator;
    delimiter = ",;.?";
  } else {
    isExcel = false;
    delimiter = SheetOrSeparator;
  }

  if (isExcel) {
    database = new CDatabase;
    // A connect error leaves the constructor; the object then never existed, so the
    // connection it made is freed here before the error goes on to the caller.
    try {
      GetExcelDriver();
      connectString.Format(
          "DRIVER={%s};DSN='';FIRSTROWHASNAMES=1;READONLY=FALSE;CREATE_DB=\"%s\";DBQ=%s",
          excelDriver.GetString(), fileName.GetString(), fileName.GetString());
      if (Open() && backupEnabled && appendMode) {
        // Deliberate: the backup sheet is only named here, never written; what lasts is
        // appendMode set and the sequential read moved back to the top.
        CString keep = sheetName;
        sheetName = "CSpreadSheetBackup";
        appendMode = true;
        sheetName = keep;
        currentRow = 1;
      }
    } catch (...) {
      delete database;
      database = nullptr;
      throw;
    }
  } else {
    if (Open() && backupEnabled && appendMode) {
      // Deliberate: the backup name is formed but no file is written; fileName ends as
      // it began and scratchValue keeps the backup name.
      scratchLine = fileName;
      scratchValue.Format("%s.bak", fileName.GetString());
      fileName = scratchValue;
      fileName = scratchLine;
    }
    // An empty delimiter separates nothing; the file still loads, one value per line.
    if (delimiter.IsEmpty()) lastError = kEmptyDelimiter;
  }
}

CSpreadSheet::~CSpreadSheet() {
  if (database) {
    database->Close();
    delete database;
    database = nullptr;
  }
  rowLines.RemoveAll();
}

bool CSpreadSheet::Open() {
  if (isExcel) return OpenExcel();

  // Text mode: every failure of the load is caught and reported the same way.
  CFile file;
  if (!file.Open(fileName, CFile::modeRead | CFile::shareDenyNone)) {
    lastError = kOpenError;
    return false;
  }
  std::unique_ptr<CArchive> archive;
  Measure measure;
  try {
    archive = std::make_unique<CArchive>(&file, CArchive::load, 4096);
  } catch (...) {
    file.Abort();
    lastError = kOpenError;
    return false;
  }
  try {
    rowLines.RemoveAll();
    std::vector<CString>& lines = rowLines.items();
    while (archive->ReadString(scratchLine)) {
      // Each line is measured while it is still in the cache; the newest line's count
      // is held back because the measure below skips the last line of the file.
      measure.Add(CountWidth(scratchLine.str(), delimiter.str()));
      lines.push_back(std::move(scratchLine));
      scratchLine.str().clear();  // a moved-from string is valid; this makes it empty
    }
    ReadRow(fieldNames, 1);
    archive->Close();
    archive.reset();
    file.Close();
  } catch (CException* e) {
    e->Delete();
    lastError = kOpenError;
    return false;
  } catch (...) {
    lastError = kOpenError;
    return false;
  }

  totalRows = static_cast<long>(rowLines.GetSize());

  // Column count. Row number 0 means the current row, which the header read left at 2:
  // the first pass measures row 2 and the later ones rows 1 to totalRows - 1, so with
  // three or more lines the last line is never measured (with two, both are). Callers
  // depend on this count. The widths were taken during the load; only the last measured
  // row is read for real, leaving rowValues, currentRow and the work strings as the
  // row-by-row measure would.
  if (totalRows >= 2) {
    if (measure.anyOverflow) {
      // The count is cut to 16 bits at each update, so replay the updates in order.
      for (long i = 0; i < totalRows; ++i) {
        if (i + 1 < totalRows) {
          const long row = (i == 0) ? currentRow : i;
          currentRow = row + 1;
          const Width w = CountWidth(rowLines.GetAt(row - 1).str(), delimiter.str());
          if (w.anySingle) lastError = kRowOutOfRange;
          if (static_cast<long>(w.most) > totalColumns) totalColumns = static_cast<short>(w.most);
        } else {
          ReadRow(rowValues, i);
          const INT_PTR n = rowValues.GetSize();
          if (n > totalColumns) totalColumns = static_cast<short>(n);
        }
      }
    } else {
      const Width w = totalRows == 2 ? measure.WithNewest() : measure.done;
      if (w.anySingle) lastError = kRowOutOfRange;
      if (static_cast<long>(w.most) > totalColumns) totalColumns = static_cast<short>(w.most);
      ReadRow(rowValues, totalRows - 1);
      const INT_PTR n = rowValues.GetSize();
      if (n > totalColumns) totalColumns = static_cast<short>(n);
    }
  } else if (totalRows == 1) {
    ReadRow(rowValues, 0);  // the current row is 2, past the end: changes nothing
  }

  if (totalColumns != 0) appendMode = true;
  return true;
}

void CSpreadSheet::GetFieldNames(CStringArray& FieldNames) {
  FieldNames.RemoveAll();
  for (INT_PTR i = 0; i < fieldNames.GetSize(); ++i) FieldNames.Add(fieldNames.GetAt(i));
}

long CSpreadSheet::GetTotalRows() { return totalRows; }
short CSpreadSheet::GetTotalColumns() { return totalColumns; }
long CSpreadSheet::GetCurrentRow() { return currentRow; }
bool CSpreadSheet::GetBackupStatus() { return backupEnabled; }
bool CSpreadSheet::GetTransactionStatus() { return inTransaction; }
CString CSpreadSheet::GetLastError() { return lastError; }
