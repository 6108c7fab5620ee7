// ODBC entry points: preparing and executing statements, parameters, statement attributes.
#include <algorithm>
#include <optional>
#include <string_view>

#include "odbc-driver/Convert.h"
#include "odbc-driver/Diagnostics.h"
#include "odbc-driver/Handles.h"
#include "odbc-driver/SheetVtab.h"
#include "odbc-driver/SqlRewrite.h"

using namespace xlsodbc;

namespace {

// Transaction statements as SQL text, as most engines take them: BEGIN [TRANSACTION | WORK]
// or START TRANSACTION, COMMIT [TRANSACTION | WORK], ROLLBACK [TRANSACTION | WORK], any
// case, with an optional closing semicolon.
Stmt::Txn TransactionVerb(std::string_view sql) {
  // At most two words and a semicolon: any longer text is another statement.
  if (sql.size() > 64) return Stmt::Txn::kNone;
  // One statement only: nothing but blanks after a semicolon.
  if (const std::size_t semi = sql.find(';'); semi != std::string_view::npos) {
    if (sql.find_first_not_of(" \t\r\n", semi + 1) != std::string_view::npos) {
      return Stmt::Txn::kNone;
    }
    sql = sql.substr(0, semi);
  }
  std::vector<std::string> words;
  std::string word;
  for (char c : std::string(sql) + ' ') {
    if (c == ' ' || c == '\t' || c == '\r' || c == '\n') {
      if (!word.empty()) words.push_back(std::move(word));
      word.clear();
    } else {
      word += static_cast<char>(c >= 'a' && c <= 'z' ? c - 'a' + 'A' : c);
    }
  }
  if (words.empty() || words.size() > 2) return Stmt::Txn::kNone;
  if (words[0] == "START") {
    return words.size() == 2 && words[1] == "TRANSACTION" ? Stmt::Txn::kBegin : Stmt::Txn::kNone;
  }
  if (words.size() == 2 && words[1] != "TRANSACTION" && words[1] != "WORK") {
    return Stmt::Txn::kNone;
  }
  if (words[0] == "BEGIN") return Stmt::Txn::kBegin;
  if (words[0] == "COMMIT") return Stmt::Txn::kCommit;
  if (words[0] == "ROLLBACK") return Stmt::Txn::kRollback;
  return Stmt::Txn::kNone;
}

// BEGIN under autocommit opens a unit that the next COMMIT or ROLLBACK ends; with autocommit
// off every change is in a unit already, so BEGIN only checks that none was begun before.
// COMMIT and ROLLBACK end the open unit as SQLEndTran does.
SQLRETURN RunTransactionVerb(Stmt* stmt) {
  Dbc* dbc = stmt->dbc;
  switch (stmt->txn) {
    case Stmt::Txn::kBegin:
      if (dbc->begun) {
        return PostError(stmt, State::kTransactionOpen,
                         "A transaction begun with BEGIN is open: COMMIT or ROLLBACK it first.");
      }
      if (dbc->autocommit) {
        (void)dbc->db->SetAutocommit(false);  // nothing is open: it cannot fail
        dbc->begun = true;
      }
      return SQL_SUCCESS;
    case Stmt::Txn::kCommit: {
      Error e = dbc->db->Commit();
      EndBegunTransaction(dbc);
      return e.ok() ? SQL_SUCCESS : PostError(stmt, e);
    }
    case Stmt::Txn::kRollback:
      dbc->db->Rollback();
      EndBegunTransaction(dbc);
      return SQL_SUCCESS;
    case Stmt::Txn::kNone:
      break;
  }
  return SQL_SUCCESS;
}

// The dialect's parser takes every statement it knows, so each keeps its outcome; a SELECT,
// INSERT, UPDATE or DELETE it rejects goes to the SQL engine instead.
SQLRETURN Prepare(Stmt* stmt, std::string sql) {
  stmt->CloseCursor();
  stmt->prepared = false;
  stmt->engine = false;
  stmt->rowCount = -1;
  stmt->txn = TransactionVerb(sql);
  if (stmt->txn != Stmt::Txn::kNone) {
    stmt->parsed = Statement();
    stmt->sql = std::move(sql);
    stmt->prepared = true;
    return SQL_SUCCESS;
  }
  Error e = ParseSql(sql, &stmt->parsed);
  if (!e.ok() && e.kind() == ErrorKind::kSyntax) {
    if (std::optional<std::string> bare = WithoutColumnConstraints(sql)) {
      if (ParseSql(*bare, &stmt->parsed).ok()) {
        e = Error();
        sql = std::move(*bare);
      }
    }
  }
  if (!e.ok() && e.kind() == ErrorKind::kSyntax) {
    RewrittenSql rw;
    Error r = RewriteSql(sql, &rw);
    if (r.ok() && rw.verb != RewrittenSql::Verb::kOther) {
      stmt->parsed = Statement();
      stmt->parsed.parameterCount = rw.parameterCount;
      stmt->engine = true;
      stmt->engineQuery = rw.verb == RewrittenSql::Verb::kSelect;
      e = Error();
    } else if (!r.ok() && r.kind() == ErrorKind::kNotSupported) {
      e = r;
    }
  }
  if (!e.ok()) return PostError(stmt, e);
  stmt->sql = std::move(sql);
  stmt->prepared = true;
  return SQL_SUCCESS;
}

bool IsQuery(const Stmt* stmt) {
  return stmt->engine ? stmt->engineQuery : !stmt->parsed.changesData();
}

// A parameter bound as a date or timestamp, by its C type or its SQL type. Times stay text.
bool IsDateParameter(const ParamBinding& b) {
  switch (b.cType) {
    case SQL_C_TYPE_DATE:
    case SQL_C_TYPE_TIMESTAMP:
    case SQL_C_DATE:
    case SQL_C_TIMESTAMP:
      return true;
    default:
      break;
  }
  switch (b.sqlType) {
    case SQL_TYPE_DATE:
    case SQL_TYPE_TIMESTAMP:
    case SQL_DATE:
    case SQL_TIMESTAMP:
      return true;
    default:
      return false;
  }
}

// The texts of the date parameters of a set: stored as date cells, compared as dates.
void DateTexts(const Stmt* stmt, const std::vector<Value>& values, std::vector<std::string>* out) {
  for (std::size_t n = 0; n < values.size(); ++n) {
    auto it = stmt->params.find(static_cast<SQLUSMALLINT>(n + 1));
    if (it == stmt->params.end() || !IsDateParameter(it->second)) continue;
    if (values[n].kind == Value::Kind::kText) out->push_back(values[n].text);
  }
}

// A statement of the dialect with a date parameter runs on the engine, which stores dates as
// date cells and compares them as dates; the dialect's executor has text and numbers only.
bool RoutesToEngine(const Stmt* stmt) {
  if (stmt->engine) return true;
  const auto kind = stmt->parsed.kind;
  if (kind != Statement::Kind::kSelect && kind != Statement::Kind::kInsert &&
      kind != Statement::Kind::kUpdate) {
    return false;
  }
  for (int n = 1; n <= stmt->parsed.parameterCount; ++n) {
    auto it = stmt->params.find(static_cast<SQLUSMALLINT>(n));
    if (it != stmt->params.end() && IsDateParameter(it->second)) return true;
  }
  return false;
}

// Parameter set i's values into *out. Column-wise, a text parameter's elements are its
// bufferLength apart, a number's its type's size; indicators are SQLLENs.
SQLRETURN SetValues(Stmt* stmt, SQLULEN i, std::vector<Value>* out) {
  out->clear();
  for (int n = 1; n <= stmt->parsed.parameterCount; ++n) {
    auto it = stmt->params.find(static_cast<SQLUSMALLINT>(n));
    if (it == stmt->params.end()) {
      return PostError(stmt, State::kWrongParameterCount,
                       "Parameter " + std::to_string(n) + " has no bound value.");
    }
    const ParamBinding& b = it->second;
    std::size_t size = FixedSizeOf(b.cType);
    if (size == 0) size = static_cast<std::size_t>(std::max<SQLLEN>(b.bufferLength, 0));
    if (i > 0 && stmt->paramBindType == SQL_PARAM_BIND_BY_COLUMN && size == 0 && b.buffer) {
      return PostError(stmt, State::kInvalidLength,
                       "Parameter " + std::to_string(n) +
                           " is bound to an array of text without a buffer length.");
    }
    void* data = ElementAddress(b.buffer, stmt->paramBindType, size, stmt->paramBindOffset, i);
    auto* ind = static_cast<SQLLEN*>(
        ElementAddress(b.indicator, stmt->paramBindType, sizeof(SQLLEN), stmt->paramBindOffset, i));
    Value v;
    ConvertResult r = ParameterValue(b.cType, data, b.bufferLength, ind, &v);
    if (r.ret == SQL_ERROR) return PostError(stmt, r.state, r.message);
    out->push_back(std::move(v));
  }
  return SQL_SUCCESS;
}

// Names the parameter set (1-based) in the last record's message.
void NameSet(Stmt* stmt, SQLULEN i) {
  if (stmt->diags.empty()) return;
  stmt->diags.back().message.insert(std::string_view(kMessagePrefix).size(),
                                    "Parameter set " + std::to_string(i + 1) + ": ");
}

// The dialect's executor reports every column as text: describe each as the cells of its
// table column suggest, the same guess the engine makes, while values stay text.
void DescribeTypes(Stmt* stmt) {
  std::shared_ptr<const xls::Workbook> book = stmt->dbc->db->model();
  const Statement& st = stmt->parsed;
  const xls::Sheet* s = book ? book->findSheet(st.table.sheet) : nullptr;
  if (!s) return;
  TableView v = ResolveTable(*s, st.table, stmt->dbc->db->firstRowHasNames(), book->date1904);
  std::vector<ColumnType> types = GuessColumnTypes(*s, v);
  for (std::size_t k = 0; k < stmt->described.size(); ++k) {
    if (!st.columns.empty() && k >= st.columns.size()) break;
    int i = st.columns.empty() ? static_cast<int>(k) : FindColumn(v, st.columns[k]);
    if (i >= 0 && static_cast<std::size_t>(i) < types.size())
      SetColumnType(types[static_cast<std::size_t>(i)], &stmt->described[k]);
  }
}

SQLRETURN RunOnce(Stmt* stmt) {
  std::vector<Value> params;
  SQLRETURN ret = SetValues(stmt, 0, &params);
  if (ret != SQL_SUCCESS) return ret;
  Outcome out;
  Error e;
  if (RoutesToEngine(stmt)) {
    std::vector<std::string> dates;
    DateTexts(stmt, params, &dates);
    std::vector<long> counts;
    std::size_t failed = 0;
    e = stmt->dbc->db->ExecuteEngine(stmt->sql, IsQuery(stmt), {std::move(params)}, dates, &out,
                                     &counts, &failed);
  } else {
    e = stmt->dbc->db->Execute(stmt->sql, stmt->parsed, params, &out);
  }
  if (!e.ok()) return PostError(stmt, e);
  stmt->SetResult(std::move(out.result));
  if (stmt->result && !stmt->engine && !RoutesToEngine(stmt)) DescribeTypes(stmt);
  stmt->rowCount = stmt->result ? stmt->result->rowCount() : out.rowCount;
  return SQL_SUCCESS;
}

// Runs every parameter set through one Database batch. The sets run in order and stop at
// the first that fails: sets before it are saved (SQL_PARAM_SUCCESS), it is SQL_PARAM_ERROR
// and SQLExecute fails with its diagnostic, later ones are SQL_PARAM_UNUSED. SQLRowCount
// gives the rows of every set saved, added up.
SQLRETURN RunArray(Stmt* stmt) {
  const SQLULEN n = stmt->paramsetSize;
  auto status = [&](SQLULEN i, SQLUSMALLINT s) {
    if (stmt->paramStatus) stmt->paramStatus[i] = s;
  };
  if (stmt->paramStatus) {
    for (SQLULEN i = 0; i < n; ++i) stmt->paramStatus[i] = SQL_PARAM_UNUSED;
  }
  if (stmt->paramsProcessed) *stmt->paramsProcessed = 0;
  if (IsQuery(stmt)) {
    return PostError(stmt, State::kNotImplemented,
                     "A SELECT runs with one parameter set: set SQL_ATTR_PARAMSET_SIZE to 1.");
  }
  // Gather the values first, so that a set whose values cannot be read stops the batch
  // before it, as a set that fails to run does.
  std::vector<std::vector<Value>> sets;
  std::vector<SQLULEN> index;  // parameter set of each entry of sets
  SQLULEN stop = n;            // the set whose values could not be read
  SQLRETURN bad = SQL_SUCCESS;
  for (SQLULEN i = 0; i < n; ++i) {
    if (stmt->paramOperation && stmt->paramOperation[i] == SQL_PARAM_IGNORE) continue;
    std::vector<Value> values;
    bad = SetValues(stmt, i, &values);
    if (bad != SQL_SUCCESS) {
      stop = i;
      NameSet(stmt, i);
      break;
    }
    sets.push_back(std::move(values));
    index.push_back(i);
  }
  std::vector<long> counts;
  std::size_t failed = sets.size();
  Error e;
  if (!sets.empty() && RoutesToEngine(stmt)) {
    std::vector<std::string> dates;
    for (const auto& set : sets) DateTexts(stmt, set, &dates);
    Outcome out;
    e = stmt->dbc->db->ExecuteEngine(stmt->sql, false, sets, dates, &out, &counts, &failed);
  } else if (!sets.empty()) {
    e = stmt->dbc->db->ExecuteBatch(stmt->sql, stmt->parsed, sets, &counts, &failed);
  }
  long rows = 0;
  for (std::size_t k = 0; k < counts.size(); ++k) {
    status(index[k], SQL_PARAM_SUCCESS);
    rows += counts[k];
  }
  stmt->rowCount = rows;
  SQLULEN processed = n;
  if (!e.ok()) {
    if (failed < sets.size()) {
      status(index[failed], SQL_PARAM_ERROR);
      processed = index[failed] + 1;
    } else {  // nothing was saved
      for (SQLULEN i : index) status(i, SQL_PARAM_ERROR);
      processed = stop < n ? stop + 1 : n;
    }
  } else if (stop < n) {
    status(stop, SQL_PARAM_ERROR);
    processed = stop + 1;
  }
  if (stmt->paramsProcessed) *stmt->paramsProcessed = processed;
  if (!e.ok()) {
    if (bad != SQL_SUCCESS) stmt->diags.clear();  // the batch's error comes first
    PostError(stmt, e);
    if (failed < sets.size()) NameSet(stmt, index[failed]);
    return SQL_ERROR;
  }
  return bad;
}

SQLRETURN Run(Stmt* stmt) {
  stmt->CloseCursor();
  stmt->rowCount = -1;
  if (stmt->txn != Stmt::Txn::kNone) return RunTransactionVerb(stmt);
  if (stmt->dbc->readOnlyAttr && !IsQuery(stmt)) {
    return PostError(stmt, Error(ErrorKind::kReadOnly,
                                 "The connection is read-only (SQL_ATTR_ACCESS_MODE): the "
                                 "workbook cannot be changed."));
  }
  if (stmt->parsed.parameterCount == 0 ||
      (stmt->paramsetSize == 1 && (!stmt->paramOperation || IsQuery(stmt)))) {
    SQLRETURN ret = RunOnce(stmt);
    if (stmt->paramStatus)
      stmt->paramStatus[0] = ret == SQL_ERROR ? SQL_PARAM_ERROR : SQL_PARAM_SUCCESS;
    if (stmt->paramsProcessed) *stmt->paramsProcessed = 1;
    return ret;
  }
  return RunArray(stmt);
}

// Statement attributes. Each value is either acted on or refused: HYC00 where the driver
// cannot honour it, 01S02 where ODBC lets a driver put its own value in place (the value
// then read back is the one in force), HY092 for attributes it does not know.
SQLRETURN SetStmtAttr(Stmt* stmt, SQLINTEGER attr, SQLPOINTER value) {
  auto v = static_cast<SQLULEN>(reinterpret_cast<SQLLEN>(value));
  auto only = [&](SQLULEN allowed, const char* why) {
    return v == allowed ? SQL_SUCCESS : PostError(stmt, State::kNotImplemented, why);
  };
  switch (attr) {
    case SQL_ATTR_PARAM_BIND_TYPE:
      stmt->paramBindType = v;
      return SQL_SUCCESS;
    case SQL_ATTR_PARAM_BIND_OFFSET_PTR:
      stmt->paramBindOffset = static_cast<SQLULEN*>(value);
      return SQL_SUCCESS;
    case SQL_ATTR_PARAMSET_SIZE:
      if (v == 0)
        return PostError(stmt, State::kInvalidAttributeValue,
                         "SQL_ATTR_PARAMSET_SIZE must be at least 1.");
      stmt->paramsetSize = v;
      return SQL_SUCCESS;
    case SQL_ATTR_PARAMS_PROCESSED_PTR:
      stmt->paramsProcessed = static_cast<SQLULEN*>(value);
      return SQL_SUCCESS;
    case SQL_ATTR_PARAM_STATUS_PTR:
      stmt->paramStatus = static_cast<SQLUSMALLINT*>(value);
      return SQL_SUCCESS;
    case SQL_ATTR_PARAM_OPERATION_PTR:
      stmt->paramOperation = static_cast<SQLUSMALLINT*>(value);
      return SQL_SUCCESS;
    case SQL_ATTR_ROW_BIND_TYPE:
      stmt->rowBindType = v;
      return SQL_SUCCESS;
    case SQL_ATTR_ROW_BIND_OFFSET_PTR:
      stmt->rowBindOffset = static_cast<SQLULEN*>(value);
      return SQL_SUCCESS;
    case SQL_ATTR_ROW_ARRAY_SIZE:
      if (v == 0)
        return PostError(stmt, State::kInvalidAttributeValue,
                         "SQL_ATTR_ROW_ARRAY_SIZE must be at least 1.");
      stmt->rowArraySize = v;
      return SQL_SUCCESS;
    case SQL_ATTR_ROWS_FETCHED_PTR:
      stmt->rowsFetched = static_cast<SQLULEN*>(value);
      return SQL_SUCCESS;
    case SQL_ATTR_ROW_STATUS_PTR:
      stmt->rowStatus = static_cast<SQLUSMALLINT*>(value);
      return SQL_SUCCESS;
    case SQL_ATTR_MAX_ROWS:
      stmt->maxRows = v;
      return SQL_SUCCESS;
    case SQL_ATTR_NOSCAN:
      stmt->noscan = v;
      return SQL_SUCCESS;
    case SQL_ATTR_CURSOR_TYPE:
      if (v != SQL_CURSOR_FORWARD_ONLY) {
        return PostWarning(stmt, State::kOptionValueChanged,
                           "Cursors are forward-only; value changed.");
      }
      return SQL_SUCCESS;
    case SQL_ATTR_CONCURRENCY:
      if (v != SQL_CONCUR_READ_ONLY) {
        return PostWarning(stmt, State::kOptionValueChanged,
                           "Cursors are read-only; value changed.");
      }
      return SQL_SUCCESS;
    case SQL_ATTR_CURSOR_SENSITIVITY:
      // A result is a snapshot taken when the statement ran.
      if (v != SQL_UNSPECIFIED && v != SQL_INSENSITIVE) {
        return PostError(stmt, State::kNotImplemented, "Cursors are insensitive.");
      }
      return SQL_SUCCESS;
    case SQL_ATTR_CURSOR_SCROLLABLE:
      return only(SQL_NONSCROLLABLE, "Cursors are forward-only.");
    case SQL_ATTR_KEYSET_SIZE:
    case SQL_ATTR_MAX_LENGTH:
    case SQL_ATTR_QUERY_TIMEOUT:
      if (v != 0) {
        return PostWarning(stmt, State::kOptionValueChanged,
                           "Values come whole and statements run to the end; value changed to 0.");
      }
      return SQL_SUCCESS;
    case SQL_ATTR_ASYNC_ENABLE:
      return only(SQL_ASYNC_ENABLE_OFF, "Statements run synchronously.");
    case SQL_ATTR_ENABLE_AUTO_IPD:
      return only(SQL_FALSE, "Parameters are not described automatically.");
    case SQL_ATTR_RETRIEVE_DATA:
      return only(SQL_RD_ON, "Fetching always retrieves the bound values.");
    case SQL_ATTR_USE_BOOKMARKS:
      return only(SQL_UB_OFF, "Bookmarks are not supported.");
    case SQL_ATTR_FETCH_BOOKMARK_PTR:
      return only(0, "Bookmarks are not supported.");
    case SQL_ATTR_ROW_OPERATION_PTR:
      return only(0, "SQLSetPos is not supported.");
    case SQL_ATTR_METADATA_ID:
      return only(SQL_FALSE, "Catalog arguments are patterns (SQL_ATTR_METADATA_ID off).");
    case SQL_ATTR_SIMULATE_CURSOR:
      return PostError(stmt, State::kNotImplemented, "Positioned statements are not supported.");
    case SQL_ATTR_APP_ROW_DESC:
    case SQL_ATTR_APP_PARAM_DESC:
      return PostError(stmt, State::kNotImplemented, "Explicit descriptors are not supported.");
    case SQL_ATTR_IMP_ROW_DESC:
    case SQL_ATTR_IMP_PARAM_DESC:
      return PostError(stmt, State::kImplicitDescriptor,
                       "Implementation descriptors cannot be set.");
    case SQL_ROWSET_SIZE:  // for SQLExtendedFetch, which the driver does not have
      if (v != 1) {
        return PostWarning(stmt, State::kOptionValueChanged,
                           "SQL_ROWSET_SIZE is 1: use SQL_ATTR_ROW_ARRAY_SIZE; value changed.");
      }
      return SQL_SUCCESS;
    case SQL_ATTR_ROW_NUMBER:
      return PostError(stmt, State::kInvalidOption, "SQL_ATTR_ROW_NUMBER is read-only.");
    default:
      return PostError(stmt, State::kInvalidOption,
                       "Unknown statement attribute " + std::to_string(attr) + ".");
  }
}

SQLRETURN GetStmtAttr(Stmt* stmt, SQLINTEGER attr, SQLPOINTER value, SQLINTEGER* length) {
  SQLPOINTER p = nullptr;
  SQLULEN v = 0;
  bool pointer = true;
  switch (attr) {
    case SQL_ATTR_APP_ROW_DESC:
      p = &stmt->ard;
      break;
    case SQL_ATTR_APP_PARAM_DESC:
      p = &stmt->apd;
      break;
    case SQL_ATTR_IMP_ROW_DESC:
      p = &stmt->ird;
      break;
    case SQL_ATTR_IMP_PARAM_DESC:
      p = &stmt->ipd;
      break;
    case SQL_ATTR_ROWS_FETCHED_PTR:
      p = stmt->rowsFetched;
      break;
    case SQL_ATTR_ROW_STATUS_PTR:
      p = stmt->rowStatus;
      break;
    case SQL_ATTR_ROW_BIND_OFFSET_PTR:
      p = stmt->rowBindOffset;
      break;
    case SQL_ATTR_PARAM_BIND_OFFSET_PTR:
      p = stmt->paramBindOffset;
      break;
    case SQL_ATTR_PARAMS_PROCESSED_PTR:
      p = stmt->paramsProcessed;
      break;
    case SQL_ATTR_PARAM_STATUS_PTR:
      p = stmt->paramStatus;
      break;
    case SQL_ATTR_PARAM_OPERATION_PTR:
      p = stmt->paramOperation;
      break;
    case SQL_ATTR_FETCH_BOOKMARK_PTR:
    case SQL_ATTR_ROW_OPERATION_PTR:
      break;
    default:
      pointer = false;
      switch (attr) {
        case SQL_ATTR_ROW_ARRAY_SIZE:
          v = stmt->rowArraySize;
          break;
        case SQL_ROWSET_SIZE:
          v = 1;
          break;
        case SQL_ATTR_ROW_BIND_TYPE:
          v = stmt->rowBindType;
          break;
        case SQL_ATTR_PARAMSET_SIZE:
          v = stmt->paramsetSize;
          break;
        case SQL_ATTR_PARAM_BIND_TYPE:
          v = stmt->paramBindType;
          break;
        case SQL_ATTR_MAX_ROWS:
          v = stmt->maxRows;
          break;
        case SQL_ATTR_NOSCAN:
          v = stmt->noscan;
          break;
        case SQL_ATTR_CURSOR_TYPE:
          v = SQL_CURSOR_FORWARD_ONLY;
          break;
        case SQL_ATTR_CONCURRENCY:
          v = SQL_CONCUR_READ_ONLY;
          break;
        case SQL_ATTR_CURSOR_SENSITIVITY:
          v = SQL_INSENSITIVE;
          break;
        case SQL_ATTR_CURSOR_SCROLLABLE:
          v = SQL_NONSCROLLABLE;
          break;
        case SQL_ATTR_ASYNC_ENABLE:
          v = SQL_ASYNC_ENABLE_OFF;
          break;
        case SQL_ATTR_ENABLE_AUTO_IPD:
        case SQL_ATTR_METADATA_ID:
          v = SQL_FALSE;
          break;
        case SQL_ATTR_RETRIEVE_DATA:
          v = SQL_RD_ON;
          break;
        case SQL_ATTR_USE_BOOKMARKS:
          v = SQL_UB_OFF;
          break;
        case SQL_ATTR_KEYSET_SIZE:
        case SQL_ATTR_MAX_LENGTH:
        case SQL_ATTR_QUERY_TIMEOUT:
          v = 0;
          break;
        case SQL_ATTR_ROW_NUMBER:
          v = stmt->row >= 0 && stmt->row < stmt->resultRows ? static_cast<SQLULEN>(stmt->row + 1)
                                                             : 0;
          break;
        default:
          return PostError(stmt, State::kInvalidOption,
                           "Unknown statement attribute " + std::to_string(attr) + ".");
      }
  }
  if (pointer) {
    if (value) *static_cast<SQLPOINTER*>(value) = p;
    if (length) *length = sizeof(SQLPOINTER);
  } else {
    if (value) *static_cast<SQLULEN*>(value) = v;
    if (length) *length = sizeof(SQLULEN);
  }
  return SQL_SUCCESS;
}

}  // namespace

extern "C" {

SQLRETURN SQL_API SQLPrepare(SQLHSTMT handle, SQLCHAR* text, SQLINTEGER length) {
  Stmt* stmt = ToStmt(handle);
  if (!stmt) return SQL_INVALID_HANDLE;
  ClearDiag(stmt);
  if (!text) return PostError(stmt, State::kInvalidNullPointer, "No statement text.");
  return Prepare(stmt, InText(text, length));
}

SQLRETURN SQL_API SQLExecute(SQLHSTMT handle) {
  Stmt* stmt = ToStmt(handle);
  if (!stmt) return SQL_INVALID_HANDLE;
  ClearDiag(stmt);
  if (!stmt->prepared) return PostError(stmt, State::kSequenceError, "No statement was prepared.");
  return Run(stmt);
}

SQLRETURN SQL_API SQLExecDirect(SQLHSTMT handle, SQLCHAR* text, SQLINTEGER length) {
  Stmt* stmt = ToStmt(handle);
  if (!stmt) return SQL_INVALID_HANDLE;
  ClearDiag(stmt);
  if (!text) return PostError(stmt, State::kInvalidNullPointer, "No statement text.");
  SQLRETURN ret = Prepare(stmt, InText(text, length));
  return ret == SQL_SUCCESS ? Run(stmt) : ret;
}

SQLRETURN SQL_API SQLNumParams(SQLHSTMT handle, SQLSMALLINT* count) {
  Stmt* stmt = ToStmt(handle);
  if (!stmt) return SQL_INVALID_HANDLE;
  ClearDiag(stmt);
  if (count) *count = static_cast<SQLSMALLINT>(stmt->prepared ? stmt->parsed.parameterCount : 0);
  return SQL_SUCCESS;
}

SQLRETURN SQL_API SQLDescribeParam(SQLHSTMT handle, SQLUSMALLINT number, SQLSMALLINT* type,
                                   SQLULEN* size, SQLSMALLINT* digits, SQLSMALLINT* nullable) {
  Stmt* stmt = ToStmt(handle);
  if (!stmt) return SQL_INVALID_HANDLE;
  ClearDiag(stmt);
  if (!stmt->prepared || number < 1 || number > stmt->parsed.parameterCount) {
    return PostError(stmt, State::kInvalidDescriptorIndex,
                     "No parameter " + std::to_string(number) + ".");
  }
  if (type) *type = SQL_VARCHAR;
  if (size) *size = 255;
  if (digits) *digits = 0;
  if (nullable) *nullable = SQL_NULLABLE;
  return SQL_SUCCESS;
}

SQLRETURN SQL_API SQLBindParameter(SQLHSTMT handle, SQLUSMALLINT number, SQLSMALLINT ioType,
                                   SQLSMALLINT cType, SQLSMALLINT sqlType, SQLULEN, SQLSMALLINT,
                                   SQLPOINTER buffer, SQLLEN bufferLength, SQLLEN* indicator) {
  Stmt* stmt = ToStmt(handle);
  if (!stmt) return SQL_INVALID_HANDLE;
  ClearDiag(stmt);
  if (number < 1)
    return PostError(stmt, State::kInvalidDescriptorIndex, "Parameters are numbered from 1.");
  if (!buffer && !indicator) {
    return PostError(
        stmt, State::kInvalidNullPointer,
        "Parameter " + std::to_string(number) + " has neither a value nor an indicator.");
  }
  if (bufferLength < 0) {
    return PostError(stmt, State::kInvalidLength, "The buffer length is negative.");
  }
  if (ioType != SQL_PARAM_INPUT)
    return PostError(stmt, State::kNotImplemented, "Only input parameters.");
  stmt->params[number] = ParamBinding{cType, sqlType, buffer, bufferLength, indicator};
  return SQL_SUCCESS;
}

SQLRETURN SQL_API SQLRowCount(SQLHSTMT handle, SQLLEN* count) {
  Stmt* stmt = ToStmt(handle);
  if (!stmt) return SQL_INVALID_HANDLE;
  ClearDiag(stmt);
  if (count) *count = stmt->rowCount;
  return SQL_SUCCESS;
}

SQLRETURN SQL_API SQLMoreResults(SQLHSTMT handle) {
  Stmt* stmt = ToStmt(handle);
  if (!stmt) return SQL_INVALID_HANDLE;
  ClearDiag(stmt);
  stmt->CloseCursor();
  return SQL_NO_DATA;
}

SQLRETURN SQL_API SQLCancel(SQLHSTMT handle) {
  Stmt* stmt = ToStmt(handle);
  if (!stmt) return SQL_INVALID_HANDLE;
  ClearDiag(stmt);
  return SQL_SUCCESS;  // statements run to completion inside the call; nothing to cancel
}

SQLRETURN SQL_API SQLCloseCursor(SQLHSTMT handle) {
  Stmt* stmt = ToStmt(handle);
  if (!stmt) return SQL_INVALID_HANDLE;
  ClearDiag(stmt);
  if (!stmt->result) return PostError(stmt, State::kInvalidCursorState, "No cursor is open.");
  stmt->CloseCursor();
  return SQL_SUCCESS;
}

SQLRETURN SQL_API SQLSetStmtAttr(SQLHSTMT handle, SQLINTEGER attr, SQLPOINTER value, SQLINTEGER) {
  Stmt* stmt = ToStmt(handle);
  if (!stmt) return SQL_INVALID_HANDLE;
  ClearDiag(stmt);
  return SetStmtAttr(stmt, attr, value);
}

SQLRETURN SQL_API SQLGetStmtAttr(SQLHSTMT handle, SQLINTEGER attr, SQLPOINTER value, SQLINTEGER,
                                 SQLINTEGER* length) {
  Stmt* stmt = ToStmt(handle);
  if (!stmt) return SQL_INVALID_HANDLE;
  ClearDiag(stmt);
  return GetStmtAttr(stmt, attr, value, length);
}

}  // extern "C"
