// Excel mode: the workbook is reached only through ODBC. Finding the driver, loading the
// sheet through one query, and the statements that write it back (CREATE TABLE,
// INSERT, UPDATE, DROP TABLE). Names and values go into the statements as they stand,
// without escaping, and the ranges and row numbers below are the ones callers and
// existing workbooks depend on: they are kept exactly as written, odd ones included.
//
// Error handling is part of the contract: a statement's CDBException is turned into
// lastError (the driver's text) and a closed connection; connecting is never guarded
// here, so a connect error reaches the caller.
#include <algorithm>
#include <charconv>
#include <cstring>
#include <string>
#include <string_view>

#include "platform/Database.h"
#include "platform/OdbcInstaller.h"
#include "spreadsheet/SpreadSheet.h"

namespace {

constexpr WORD kDriverListSize = 2000;

// Appends "\"value\"" and, unless it is the last one, the delimiter.
void AppendQuoted(CString& line, const CString& value, bool last, const CString& delimiter) {
  line.AppendChar('"');
  line += value;
  line.AppendChar('"');
  if (!last) line += delimiter;
}

// The column list of a CREATE TABLE statement: "[name] char(255), " per field, then the
// last two characters cut and ")" added. With no fields the cut takes the " (" of the
// head, which the driver then rejects; that statement is sent all the same.
void AppendColumnsAndClose(CString& statement, const CStringArray& fieldNames) {
  for (const CString& name : fieldNames.items()) {
    statement += "[";
    statement += name;
    statement += "]";
    statement += " char(255), ";
  }
  statement.Delete(statement.GetLength() - 2, 2);
  statement += ")";
}

// Appends "<head><value><tail>" for each value, as Format("<head>%s<tail>") of each would:
// a value ends at its first zero byte. A sheet's save builds one statement a row, so the
// values are copied straight into it rather than formatted one by one.
void AppendEachValue(std::string& statement, const CStringArray& values, std::string_view head,
                     std::string_view tail) {
  // Room for every value whole, then each copied up to its first zero byte, then the rest
  // cut off: one pass over the values' bytes.
  const auto& items = values.items();
  std::size_t room = statement.size() + items.size() * (head.size() + tail.size());
  for (const CString& value : items) room += value.str().size();
  std::size_t at = statement.size();
  statement.resize(room);
  char* out = statement.data();
  for (const CString& value : items) {
    const char* v = value.GetString();
    const std::size_t n = std::strlen(v);
    std::memcpy(out + at, head.data(), head.size());
    std::memcpy(out + at + head.size(), v, n);
    std::memcpy(out + at + head.size() + n, tail.data(), tail.size());
    at += head.size() + n + tail.size();
  }
  statement.resize(at);
}

void AppendNumber(std::string& out, long n) {
  char digits[24];
  out.append(digits, std::to_chars(digits, digits + sizeof digits, n).ptr);
}

// "INSERT INTO [sheet$A<row>:<column><lastRow>] VALUES (", as Format("INSERT INTO
// [%s$A%ld:...] ") followed by "VALUES (" made it.
void StartInsert(std::string& statement, const CString& sheetName, long row, const char* column,
                 long lastRow) {
  statement.assign("INSERT INTO [");
  statement += sheetName.GetString();
  statement += "$A";
  AppendNumber(statement, row);
  statement += ':';
  statement += column;
  AppendNumber(statement, lastRow);
  statement += "] VALUES (";
}

}  // namespace

void CSpreadSheet::GetExcelDriver() {
  // The installer fills at most kDriverListSize bytes; the zeros behind them end every
  // scan below inside the array whatever the installer left.
  char drivers[kDriverListSize + 4] = {0};
  WORD used = 0;
  if (!platform::GetInstalledOdbcDrivers(drivers, kDriverListSize, &used)) {
    excelDriver.Empty();
    std::memset(drivers, 0, sizeof drivers);  // a failed call's buffer reads as no drivers
  }
  // The first description holding "Excel" wins. The end test looks at the second
  // character of the next description, not the first, so a one-character description
  // ends the scan: existing installations depend on this, it is kept.
  const char* description = drivers;
  for (;;) {
    if (std::strstr(description, "Excel")) {
      excelDriver = description;
      return;
    }
    description += std::strlen(description) + 1;
    if (description[1] == '\0') return;
  }
}

bool CSpreadSheet::OpenExcel() {
  if (!database->IsOpen()) database->OpenEx(connectString, CDatabase::noOdbcDialog);
  recordset = new CRecordset(database);
  sqlText.Format("SELECT * FROM [%s$A1:IV65536]", sheetName.GetString());

  // Both guarded regions catch every kind of error and end the same way.
  auto dropQuery = [this] {
    delete recordset;
    recordset = nullptr;
    database->Close();
    return false;
  };
  auto failReading = [this, &dropQuery] {
    lastError = "Error reading row\n";
    return dropQuery();
  };

  // A sheet that cannot be queried (missing, bad range) fails quietly: lastError stays.
  try {
    recordset->Open(CRecordset::forwardOnly, sqlText, CRecordset::readOnly);
  } catch (CException* e) {
    e->Delete();
    return dropQuery();
  } catch (...) {
    return dropQuery();
  }

  totalColumns = recordset->GetODBCFieldCount();
  if (totalColumns != 0) {
    // The header line; not guarded. fieldNames is appended to, never emptied, and
    // totalRows only grows: a reload (RollBack) adds the sheet again to both, which
    // callers of RollBack rely on.
    rowLines.RemoveAll();
    scratchLine.Empty();
    appendMode = true;
    ++totalRows;
    CODBCFieldInfo info;
    for (short i = 0; i < totalColumns; ++i) {
      recordset->GetODBCFieldInfo(i, info);
      scratchValue = info.m_strName;
      fieldNames.Add(scratchValue);
      AppendQuoted(scratchLine, scratchValue, i == totalColumns - 1, delimiter);
    }
    rowLines.Add(scratchLine);

    // The records, each as a row line; a failure keeps the lines read so far.
    try {
      while (!recordset->IsEOF()) {
        ++totalRows;
        scratchLine.Empty();
        for (short i = 0; i < totalColumns; ++i) {
          recordset->GetFieldValue(i, scratchValue);
          AppendQuoted(scratchLine, scratchValue, i == totalColumns - 1, delimiter);
        }
        rowLines.Add(scratchLine);
        recordset->MoveNext();
      }
    } catch (CException* e) {
      e->Delete();
      return failReading();
    } catch (...) {
      return failReading();
    }
  }

  recordset->Close();
  delete recordset;
  recordset = nullptr;
  database->Close();
  currentRow = 1;
  return true;
}

bool CSpreadSheet::CommitExcel() {
  if (!database->IsOpen()) database->OpenEx(connectString, CDatabase::noOdbcDialog);

  // A sheet present when the file was opened is re-created over the range from row 4.
  scratchValue.Format(appendMode ? "CREATE TABLE [%s$A4:IV65536] (" : "CREATE TABLE [%s] (",
                      sheetName.GetString());
  AppendColumnsAndClose(scratchValue, fieldNames);
  try {
    database->ExecuteSQL(scratchValue);
  } catch (CDBException* e) {
    lastError = e->m_strError;
    e->Delete();
    database->Close();
    return false;
  }
  if (!appendMode) {
    totalColumns = static_cast<short>(fieldNames.GetSize());
    appendMode = true;
  }

  // Row r + 2 goes to the range of row r + 3. Deliberate, and relied on by the workbooks
  // already written this way: row 2 is never inserted, and the last pass reads past the
  // end (ReadRow fails, its message stays in lastError) and so inserts the last row a
  // second time.
  for (long r = 1; r < totalRows; ++r) {
    ReadRow(rowValues, r + 2);
    StartInsert(scratchValue.str(), sheetName, r + 3, "X", r + 3);
    AppendEachValue(scratchValue.str(), rowValues, "'", "', ");
    scratchValue.Delete(scratchValue.GetLength() - 2, 2);
    scratchValue += ")";
    try {
      database->ExecuteSQL(scratchValue);
    } catch (CDBException* e) {
      lastError = e->m_strError;
      e->Delete();
      database->Close();
      return false;
    }
  }
  inTransaction = false;
  return true;  // the connection stays open for the next commit
}

bool CSpreadSheet::DeleteSheetExcel(CString SheetName) {
  // Connects without asking whether it already is (see CDatabase::OpenEx).
  database->OpenEx(connectString, CDatabase::noOdbcDialog);
  SheetName = "[" + SheetName + "$A1:IV65536]";
  scratchValue.Format("DROP TABLE %s", SheetName.GetString());
  try {
    database->ExecuteSQL(scratchValue);
  } catch (CDBException* e) {
    lastError = e->m_strError;
    e->Delete();
    database->Close();
    return false;
  }
  database->Close();
  // This object's sheet is cleared whichever sheet was named.
  rowLines.RemoveAll();
  fieldNames.RemoveAll();
  totalColumns = 0;
  totalRows = 0;
  return true;
}

bool CSpreadSheet::CommitSingleRowExcel() {
  if (!database->IsOpen()) database->OpenEx(connectString, CDatabase::noOdbcDialog);
  // These forms differ from the whole-sheet Commit on purpose and are kept: the table is
  // created from row 2 only when exactly three lines are held; the insert always writes
  // the last held line, over the range A<totalRows>:IV1, its values unquoted.
  try {
    if (totalRows == 3) {
      scratchValue.Format("CREATE TABLE [%s$A%d:IV65536] (", sheetName.GetString(), 2);
      AppendColumnsAndClose(scratchValue, fieldNames);
      database->ExecuteSQL(scratchValue);
      if (!appendMode) {
        totalColumns = static_cast<short>(fieldNames.GetSize());
        appendMode = true;
      }
    }
    ReadRow(rowValues, totalRows);
    StartInsert(scratchValue.str(), sheetName, totalRows, "IV", 1);
    AppendEachValue(scratchValue.str(), rowValues, "", ", ");
    scratchValue.Delete(scratchValue.GetLength() - 2, 2);
    scratchValue += ")";
    database->ExecuteSQL(scratchValue);
  } catch (CDBException* e) {
    lastError = e->m_strError;
    e->Delete();
    database->Close();
    return false;
  }
  inTransaction = false;
  return true;
}

bool CSpreadSheet::ReplaceRows(CStringArray& NewRowValues, CStringArray& OldRowValues) {
  if (!isExcel) {
    lastError = "Function not available for text delimited file\n";
    return false;
  }
  database->OpenEx(connectString, CDatabase::noOdbcDialog);

  scratchValue.Format("UPDATE [%s] SET ", sheetName.GetString());
  for (INT_PTR i = 0; i < NewRowValues.GetSize(); ++i) {
    scratchLine.Format("[%s]='%s', ", fieldNames.GetAt(i).GetString(), NewRowValues.GetAt(i).GetString());
    scratchValue += scratchLine;
  }
  scratchValue.Delete(scratchValue.GetLength() - 2, 2);
  scratchValue += " WHERE (";
  // The last old value is never compared, and the cut of four characters assumes a
  // trailing "AND ": with one old value or none it leaves " WHE". Both are kept as they
  // are; the driver rejects the second form and its text reaches lastError.
  for (INT_PTR i = 0; i < OldRowValues.GetSize() - 1; ++i) {
    scratchLine.Format("[%s]='%s' AND ", fieldNames.GetAt(i).GetString(), OldRowValues.GetAt(i).GetString());
    scratchValue += scratchLine;
  }
  scratchValue.Delete(scratchValue.GetLength() - 4, 4);
  scratchValue += ")";

  try {
    database->ExecuteSQL(scratchValue);
    database->Close();
    Open();  // the reload replaces rowLines: uncommitted edits are lost
  } catch (CDBException* e) {
    lastError = e->m_strError;
    e->Delete();
    database->Close();
    return false;
  }
  return true;
}
