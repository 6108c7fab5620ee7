// CSpreadSheet: reads and writes one tabular file, either an Excel 97-2003 workbook
// reached through the ODBC Excel driver (a file name ending in ".xls", any case) or a
// delimited text file read and written directly (any other name). The whole sheet is
// held in memory as row lines, element 0 being the header line; every value crosses
// this interface as a narrow CString.
//
// The same object can also drive the "Excel.Application" automation server to lay out
// the risk-limit tables (initExcel ... endExcel).
//
// Errors: operations return false and leave a message for GetLastError; the
// constructor never reports failure itself. Some errors are raised as MFC-style
// exception pointers (CInvalidArgException*, CDBException*, COleDispatchException*) as
// the individual members describe. Not thread-safe: one object, one thread.
//
// Text mode and the delimiter: an empty delimiter is accepted but never separates
// anything; a line then always reads as one value (see RowLine.h).
//
// Row numbers are counted from 1 (row 1 is the header line); 0 means "the current row"
// to ReadRow/ReadCell and "append" to AddRow/AddCell. Column numbers are counted from 1.
#pragma once

#include "platform/Automation.h"
#include "platform/CString.h"
#include "platform/Export.h"

class CDatabase;
class CRecordset;
class CSpreadSheetTestAccess;

class SPREADSHEET_API CSpreadSheet {
 public:
  // File: the path; SheetOrSeparator: the sheet name (Excel mode) or the delimiter
  // (text mode); Backup: reported by GetBackupStatus.
  CSpreadSheet(CString File, CString SheetOrSeparator, bool Backup = true);
  ~CSpreadSheet();
  CSpreadSheet(const CSpreadSheet&) = delete;
  CSpreadSheet& operator=(const CSpreadSheet&) = delete;

  // Editing (outside a transaction each edit saves the whole sheet at once).
  bool AddHeaders(CStringArray& FieldNames, bool replace = false);
  bool AddRow(CStringArray& RowValues, long row = 0, bool replace = false);
  bool AddCell(CString CellValue, short column, long row = 0);
  bool AddCell(CString CellValue, CString column, long row = 0, bool Auto = true);
  bool ReplaceRows(CStringArray& NewRowValues, CStringArray& OldRowValues);

  // Reading (memory only).
  bool ReadRow(CStringArray& RowValues, long row = 0);
  bool ReadColumn(CStringArray& ColumnValues, short column);
  bool ReadColumn(CStringArray& ColumnValues, CString column, bool Auto = true);
  bool ReadCell(CString& CellValue, short column, long row = 0);
  bool ReadCell(CString& CellValue, CString column, long row = 0, bool Auto = true);

  // Saving, transactions and deletion.
  void BeginTransaction();
  bool Commit();
  bool RollBack();
  bool DeleteSheet();
  bool DeleteSheet(CString SheetName);

  // Positional rows and the single-row commit.
  bool AddRow(CStringArray& RowValues, int row);
  bool AddRowData(const char* line, int row);
  bool Commit(bool singleRow);

  // Conversion: Excel mode writes <name>.csv with SheetOrSeparator as delimiter; text
  // mode writes the sheet SheetOrSeparator of <name>.xls.
  bool Convert(CString SheetOrSeparator);

  // Accessors; none of them changes anything.
  void GetFieldNames(CStringArray& FieldNames);
  long GetTotalRows();
  short GetTotalColumns();
  long GetCurrentRow();
  bool GetBackupStatus();
  bool GetTransactionStatus();
  CString GetLastError();

  // Automation: initExcel once; per table initTable, WriteInExcel/onCommitCOM, endTable;
  // endExcel once. Failing automation calls raise COleDispatchException*.
  void initExcel(CString unused);
  void initTable(long rowCount, CString tableName);
  bool WriteHeader();
  bool WriteInExcel(CStringArray& row);
  void onCommitCOM(CStringArray& row);
  void endTable(CString tableName);
  void endExcel();
  void fillRMSTableColumn();
  void fillPriceProtectionColumn();
  void fillScriptValidationColumn();

 private:
  friend class CSpreadSheetTestAccess;

  bool Open();
  void GetExcelDriver();
  // The Excel-mode halves of Open, Commit, DeleteSheet and the single-row Commit
  // (ExcelMode.cpp); the public members call them when isExcel is true.
  bool OpenExcel();
  bool CommitExcel();
  bool DeleteSheetExcel(CString SheetName);
  bool CommitSingleRowExcel();
  short CalculateColumnNumber(CString column, bool Auto);
  CString getRMSlastCol();
  CString getPriceProtectionlastCol();
  CString getScriptValidationlastCol();

  // Storage state, in this order.
  bool appendMode;      // the file held a sheet with at least one column when opened
  bool backupEnabled;   // the constructor's third argument
  bool isExcel;         // Excel mode (true) or text mode
  bool inTransaction;
  long currentRow;      // the row the next sequential read returns
  long totalRows;       // header row included
  short totalColumns;
  CString sqlText;
  CString connectString;
  CString scratchValue;
  CString scratchLine;
  CString sheetName;
  CString excelDriver;
  CString fileName;
  CString delimiter;
  CString lastError;
  CStringArray rowValues;
  CStringArray fieldNames;
  CStringArray rowLines;  // element 0 is the header line
  CDatabase* database;    // owned; Excel mode only
  CRecordset* recordset;  // owned; lives only while Open runs

  // Automation state.
  COleSafeArray valueArray;
  COleDispatchDriver excelApp;
  COleDispatchDriver workbooks;
  COleDispatchDriver workbook;
  COleDispatchDriver sheets;
  COleDispatchDriver worksheet;
  COleDispatchDriver range;
  COleDispatchDriver font;
  COleDispatchDriver columns;
  COleVariant trueVariant;
  COleVariant falseVariant;
  COleVariant missingVariant;
  long tableRows;
  short tableColumns;
  CString lastColumn;
  long rmsRows;
  long priceProtectionRows;
  long scriptValidationRows;
};
