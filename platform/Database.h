// ODBC through MFC's names: CDatabase (a connection), CRecordset (a forward-only,
// read-only query whose values are read as text) and CDBException (a failed ODBC call,
// thrown by pointer, with the driver's message text in m_strError).
//
// Over unixODBC on Linux and odbc32 on Windows. Handles are kept opaque here so that
// callers need no ODBC headers.
//
// Errors: OpenEx, ExecuteSQL, CRecordset::Open, GetFieldValue and MoveNext throw
// CDBException* (allocated with new; the catcher calls Delete()). Close never throws.
//
// Ownership: a CRecordset borrows its CDatabase, which must outlive it; closing the
// database first closes every recordset still open on it, so a recordset never holds a
// statement of a connection that is gone.
#pragma once

#include <vector>

#include "platform/CString.h"
#include "platform/Export.h"

class CRecordset;

class SPREADSHEET_API CDBException : public CException {
 public:
  CDBException(short retCode, CString error, CString state);
  short m_nRetCode;               // the ODBC return code (SQL_ERROR ...)
  CString m_strError;             // the driver's message text(s), each followed by "\n"
  CString m_strStateNativeOrigin; // "State:S0002,Native:0,Origin:[...]" per record
};

class SPREADSHEET_API CDatabase {
 public:
  enum DbOpenOptions {
    openExclusive = 0x0001,
    openReadOnly = 0x0002,
    useCursorLib = 0x0004,
    noOdbcDialog = 0x0008,
    forceOdbcDialog = 0x0010,
  };

  CDatabase();
  virtual ~CDatabase();  // closes
  CDatabase(const CDatabase&) = delete;
  CDatabase& operator=(const CDatabase&) = delete;

  // Connects with a full connection string; never prompts, whatever the options. Throws
  // CDBException* when the driver manager or the driver refuses. Returns TRUE when
  // connected. Already connected with the same string: the connection is kept and TRUE
  // returned; with another string the old connection is closed first.
  virtual BOOL OpenEx(LPCTSTR connectString, DWORD options = 0);
  BOOL IsOpen() const { return m_hdbc != nullptr; }
  // Executes one statement directly, discarding any result; throws CDBException* on
  // failure, or when not connected (SQLSTATE 08003).
  void ExecuteSQL(LPCTSTR sql);
  void Close();
  // The connection string as the driver completed it (the one given while unconnected).
  const CString& GetConnect() const { return connect_; }

  void* m_hdbc = nullptr;  // SQLHDBC while connected

 private:
  friend class CRecordset;
  void FreeHandles();

  // The connection's environment and the statement ExecuteSQL runs on, behind one pointer
  // (Database.cpp) so that the class keeps the size and layout it was released with.
  void* handles_ = nullptr;
  CString connect_;
  CString requested_;      // the string OpenEx was given
  std::vector<CRecordset*> recordsets_;  // open on this connection, closed with it
};

struct SPREADSHEET_API CODBCFieldInfo {
  CString m_strName;
  short m_nSQLType = 0;
  unsigned long m_nPrecision = 0;
  short m_nScale = 0;
  short m_nNullability = 0;
};

class SPREADSHEET_API CRecordset {
 public:
  enum OpenType { dynaset, snapshot, forwardOnly, dynamic };
  enum OpenOptions { none = 0x0, readOnly = 0x0004 };

  explicit CRecordset(CDatabase* database = nullptr);
  virtual ~CRecordset();  // closes
  CRecordset(const CRecordset&) = delete;
  CRecordset& operator=(const CRecordset&) = delete;

  // Runs the query and positions on the first record (IsEOF() when there is none).
  // Only forwardOnly is supported (another type raises CInvalidArgException*); the
  // recordset is always read-only. Throws CDBException* on failure, or when the
  // database is not connected. An open recordset is closed first.
  virtual BOOL Open(UINT openType, LPCTSTR sql, DWORD options = none);
  BOOL IsOpen() const { return hstmt_ != nullptr; }
  short GetODBCFieldCount() const { return static_cast<short>(fields_.GetSize()); }
  // Column name and type; an index outside the columns throws CInvalidArgException*.
  void GetODBCFieldInfo(short index, CODBCFieldInfo& info) const;
  // The value of column index of the current record as text; NULL reads as empty.
  // No current record throws CDBException*; an index outside the columns
  // CInvalidArgException*.
  void GetFieldValue(short index, CString& value);
  BOOL IsEOF() const { return eof_; }
  // Past the last record throws CDBException*.
  void MoveNext();
  void Close();

 private:
  void Fetch();

  CDatabase* database_;
  void* hstmt_ = nullptr;  // SQLHSTMT while open
  CStringArray fields_;    // column names
  std::vector<CODBCFieldInfo> info_;
  CStringArray values_;    // the current record, read whole at each fetch
  std::vector<char> buffer_;  // SQLGetData's work area, kept across records
  bool eof_ = true;
};
