// The ODBC handles: environment, connection, statement and (placeholder) descriptor, each
// with its own list of diagnostic records. A handle is a pointer to one of these structs;
// FromHandle checks the magic number and the kind before any use, so a stale or foreign
// pointer gets SQL_INVALID_HANDLE instead of a crash where it can be told.
//
// Ownership: the application frees what it allocates; an Env owns nothing, a Dbc owns its
// Database, a Stmt owns its result. Freeing a Dbc with statements left frees them too.
#pragma once

#include <sql.h>
#include <sqlext.h>

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "odbc-driver/Database.h"
#include "odbc-driver/ResultSet.h"
#include "odbc-driver/Sql.h"

namespace xlsodbc {

struct DiagRecord {
  std::string state;
  std::string message;
  SQLINTEGER native = 0;
};

enum class HandleKind : std::uint32_t { kEnv = 1, kDbc, kStmt, kDesc };

struct Handle {
  explicit Handle(HandleKind k) : kind(k) {}
  virtual ~Handle() { magic = 0; }
  static constexpr std::uint32_t kMagic = 0x584c5344;  // "XLSD"
  std::uint32_t magic = kMagic;
  HandleKind kind;
  std::vector<DiagRecord> diags;
  SQLRETURN lastReturn = SQL_SUCCESS;
};

struct Stmt;

struct Env : Handle {
  Env() : Handle(HandleKind::kEnv) {}
  SQLINTEGER odbcVersion = SQL_OV_ODBC3;
};

struct Dbc : Handle {
  explicit Dbc(Env* e) : Handle(HandleKind::kDbc), env(e) {}
  Env* env;
  std::unique_ptr<Database> db;
  std::string connectionString;  // as given, returned by SQLDriverConnect
  std::string dsn;
  bool autocommit = true;
  bool readOnlyAttr = false;
  // A BEGIN statement opened a transaction under autocommit; the COMMIT or ROLLBACK that
  // ends it (statement or SQLEndTran) turns autocommit back on.
  bool begun = false;
  SQLPOINTER quietMode = nullptr;  // a window for dialogs: the driver never shows one
  std::vector<Stmt*> stmts;
};

// Ends what a BEGIN statement opened, once its COMMIT or ROLLBACK ran: autocommit is back
// as the connection attribute has it.
void EndBegunTransaction(Dbc* dbc);

struct Desc : Handle {
  Desc() : Handle(HandleKind::kDesc) {}
};

struct ColumnBinding {
  SQLSMALLINT cType = SQL_C_CHAR;
  SQLPOINTER buffer = nullptr;
  SQLLEN bufferLength = 0;
  SQLLEN* indicator = nullptr;
};

struct ParamBinding {
  SQLSMALLINT cType = SQL_C_CHAR;
  SQLSMALLINT sqlType = SQL_VARCHAR;
  SQLPOINTER buffer = nullptr;
  SQLLEN bufferLength = 0;
  SQLLEN* indicator = nullptr;
};

struct Stmt : Handle {
  explicit Stmt(Dbc* d) : Handle(HandleKind::kStmt), dbc(d) {}
  Dbc* dbc;
  Desc ard, apd, ird, ipd;

  std::string sql;
  bool prepared = false;
  Statement parsed;
  // The dialect's parser rejected sql and the SQL engine runs it (SqlEngine.h); then parsed
  // holds only the count of ? markers, and engineQuery whether it is a SELECT.
  bool engine = false;
  bool engineQuery = false;
  // BEGIN, COMMIT or ROLLBACK as SQL text (ApiStatement.cpp); then nothing else is set.
  enum class Txn { kNone, kBegin, kCommit, kRollback } txn = Txn::kNone;

  std::unique_ptr<ResultSet> result;
  // What SQLDescribeCol and SQLColAttribute report: result's columns, with the types the
  // cells suggest where the result itself reports every column as text.
  std::vector<ColumnInfo> described;
  // result's shape, kept here for SQLGetData, which runs once a cell and would otherwise
  // ask the result through two virtual calls each time. Set only through SetResult.
  long resultRows = 0;
  int resultColumns = 0;
  long row = -1;  // first row of the current rowset; -1 before the first fetch
  SQLLEN rowCount = -1;

  // SQLGetData in pieces: which column, and how far into its value.
  int dataColumn = -1;
  std::size_t dataOffset = 0;
  std::string scratch;

  std::map<SQLUSMALLINT, ColumnBinding> columns;
  std::map<SQLUSMALLINT, ParamBinding> params;

  // Arrays of parameters: SQLExecute runs paramsetSize sets, element i of each bound
  // parameter (see ElementAddress), and reports each set's outcome in paramStatus.
  SQLULEN paramBindType = SQL_PARAM_BIND_BY_COLUMN;
  SQLULEN* paramBindOffset = nullptr;
  SQLULEN paramsetSize = 1;
  SQLULEN* paramsProcessed = nullptr;
  SQLUSMALLINT* paramStatus = nullptr;
  SQLUSMALLINT* paramOperation = nullptr;  // SQL_PARAM_IGNORE skips a set

  // Block fetches: SQLFetch fills rowArraySize rows of the bound columns.
  SQLULEN rowBindType = SQL_BIND_BY_COLUMN;
  SQLULEN* rowBindOffset = nullptr;
  SQLULEN rowArraySize = 1;
  SQLULEN* rowsFetched = nullptr;
  SQLUSMALLINT* rowStatus = nullptr;
  long rowsetRows = 0;  // rows in the current rowset, which starts at row

  SQLULEN maxRows = 0;
  SQLULEN noscan = SQL_NOSCAN_OFF;  // the dialect has no escape clauses: either value holds

  // REQUIRES: r complete (no rows added later).
  void SetResult(std::unique_ptr<ResultSet> r) {
    result = std::move(r);
    if (result) {
      described = result->columns();
    } else {
      described.clear();
    }
    resultRows = result ? result->rowCount() : 0;
    resultColumns = result ? static_cast<int>(result->columns().size()) : 0;
  }
  void CloseCursor() {
    SetResult(nullptr);
    row = -1;
    rowsetRows = 0;
    dataColumn = -1;
    dataOffset = 0;
  }
};

// The handle behind h if it is live and of kind T, else nullptr.
template <typename T>
T* FromHandle(SQLHANDLE h, HandleKind kind) {
  if (!h) return nullptr;
  auto* base = static_cast<Handle*>(h);
  if (base->magic != Handle::kMagic || base->kind != kind) return nullptr;
  return static_cast<T*>(base);
}
inline Env* ToEnv(SQLHANDLE h) { return FromHandle<Env>(h, HandleKind::kEnv); }
inline Dbc* ToDbc(SQLHANDLE h) { return FromHandle<Dbc>(h, HandleKind::kDbc); }
inline Stmt* ToStmt(SQLHANDLE h) { return FromHandle<Stmt>(h, HandleKind::kStmt); }

// Where element i of a bound array lies: base plus the bind offset (when offset is set) plus
// i times the stride, which is bindType bytes for row-wise binding and elementSize for
// column-wise (SQL_BIND_BY_COLUMN, 0). nullptr stays nullptr, as ODBC adds no offset to an
// unbound pointer. Computed on integers: a client may bind offsets from a fake base.
inline void* ElementAddress(void* base, SQLULEN bindType, std::size_t elementSize,
                            const SQLULEN* offset, SQLULEN i) {
  if (!base) return nullptr;
  auto a = reinterpret_cast<std::uintptr_t>(base);
  if (offset) a += *offset;
  a += static_cast<std::uintptr_t>(i) * (bindType != 0 ? bindType : elementSize);
  return reinterpret_cast<void*>(a);
}

// Copies text into an ODBC output string argument: NUL-terminated, truncated to fit, its
// full length (without the NUL) in *outLen. True when it had to be cut.
bool CopyOut(const std::string& text, SQLCHAR* buffer, SQLLEN bufferLength, SQLSMALLINT* outLen);
bool CopyOut(const std::string& text, SQLPOINTER buffer, SQLLEN bufferLength, SQLINTEGER* outLen);

// Text from an ODBC input argument given with a length or SQL_NTS.
std::string InText(const SQLCHAR* text, SQLINTEGER length);

}  // namespace xlsodbc
