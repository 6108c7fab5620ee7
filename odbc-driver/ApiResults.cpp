// ODBC entry points: result set shape, fetching and getting values.
#include <algorithm>
#include <climits>
#include <cstring>

#include "odbc-driver/Convert.h"
#include "odbc-driver/Diagnostics.h"
#include "odbc-driver/Handles.h"

using namespace xlsodbc;

namespace {

int ColumnCount(const Stmt* s) {
  return s->result ? static_cast<int>(s->result->columns().size()) : 0;
}

const ColumnInfo* Column(Stmt* s, SQLUSMALLINT number) {
  if (number < 1 || number > static_cast<int>(s->described.size())) return nullptr;
  return &s->described[number - 1u];
}

// SQL_C_DEFAULT: the C type of the column's SQL type (text for text, a double for DOUBLE, a
// timestamp for TIMESTAMP...).
SQLSMALLINT DefaultCType(const Stmt* s, SQLUSMALLINT number) {
  if (number < 1 || number > s->described.size()) return SQL_C_CHAR;
  return SqlTypeOf(s->described[number - 1u].sqlType).defaultCType;
}

// Writes the bound columns of rowset row i (result row stmt->row + i); the diagnostic of a
// value that does not convert names the row and column.
SQLRETURN FillBound(Stmt* stmt, SQLULEN i) {
  SQLRETURN ret = SQL_SUCCESS;
  char buf[ResultSet::kTextBuffer];
  std::string_view text;
  for (auto& [number, b] : stmt->columns) {
    if (number < 1 || number > ColumnCount(stmt)) continue;
    bool present = stmt->result->text(stmt->row + static_cast<long>(i), number - 1, buf,
                                      &stmt->scratch, &text);
    std::size_t size = FixedSizeOf(b.cType == SQL_C_DEFAULT ? DefaultCType(stmt, number) : b.cType);
    if (size == 0) size = static_cast<std::size_t>(std::max<SQLLEN>(b.bufferLength, 0));
    void* data = ElementAddress(b.buffer, stmt->rowBindType, size, stmt->rowBindOffset, i);
    auto* ind = static_cast<SQLLEN*>(
        ElementAddress(b.indicator, stmt->rowBindType, sizeof(SQLLEN), stmt->rowBindOffset, i));
    // A row-wise array may put the indicator at any address: it is written bytewise.
    SQLLEN length = 0;
    std::size_t offset = 0;
    const SQLSMALLINT cType = b.cType == SQL_C_DEFAULT ? DefaultCType(stmt, number) : b.cType;
    ConvertResult r = ConvertView(present ? &text : nullptr, cType, data, b.bufferLength,
                                  ind ? &length : nullptr, &offset);
    if (ind && r.ret != SQL_ERROR) std::memcpy(ind, &length, sizeof length);
    if (r.ret == SQL_ERROR) {
      std::string where = stmt->rowArraySize > 1
                              ? "Row " + std::to_string(i + 1) + " of the rowset, column " +
                                    std::to_string(number) + ": "
                              : std::string();
      return PostError(stmt, r.state, where + r.message);
    }
    if (r.ret == SQL_SUCCESS_WITH_INFO) ret = PostWarning(stmt, r.state, r.message);
  }
  return ret;
}

// Fetches the next rowset: up to SQL_ATTR_ROW_ARRAY_SIZE rows into the bound arrays. A row
// whose value does not convert is SQL_ROW_ERROR and the others are still filled; the call
// fails only when every row did.
SQLRETURN Fetch(Stmt* stmt) {
  if (!stmt->result) {
    return PostError(stmt, State::kInvalidCursorState,
                     "No result set: the statement returned no rows.");
  }
  stmt->dataColumn = -1;
  stmt->dataOffset = 0;
  long limit = stmt->result->rowCount();
  if (stmt->maxRows > 0 && static_cast<long>(stmt->maxRows) < limit)
    limit = static_cast<long>(stmt->maxRows);
  long start = stmt->row < 0 ? 0 : stmt->row + stmt->rowsetRows;
  if (start >= limit) {
    stmt->row = limit;
    stmt->rowsetRows = 0;
    if (stmt->rowsFetched) *stmt->rowsFetched = 0;
    return SQL_NO_DATA;
  }
  const SQLULEN size = stmt->rowArraySize;
  const auto n = static_cast<SQLULEN>(
      std::min<long>(limit - start, static_cast<long>(std::min<SQLULEN>(size, LONG_MAX))));
  stmt->row = start;
  stmt->rowsetRows = static_cast<long>(n);
  if (stmt->rowsFetched) *stmt->rowsFetched = n;
  SQLULEN errors = 0;
  bool warned = false;
  for (SQLULEN i = 0; i < n; ++i) {
    SQLRETURN r = stmt->columns.empty() ? SQL_SUCCESS : FillBound(stmt, i);
    if (r == SQL_ERROR) ++errors;
    if (r == SQL_SUCCESS_WITH_INFO) warned = true;
    if (stmt->rowStatus) {
      stmt->rowStatus[i] = r == SQL_ERROR               ? SQL_ROW_ERROR
                           : r == SQL_SUCCESS_WITH_INFO ? SQL_ROW_SUCCESS_WITH_INFO
                                                        : SQL_ROW_SUCCESS;
    }
  }
  if (stmt->rowStatus) {
    for (SQLULEN i = n; i < size; ++i) stmt->rowStatus[i] = SQL_ROW_NOROW;
  }
  if (errors == n) return SQL_ERROR;
  if (errors > 0 || warned) {
    stmt->lastReturn = SQL_SUCCESS_WITH_INFO;
    return SQL_SUCCESS_WITH_INFO;
  }
  return SQL_SUCCESS;
}

// Writes text as UTF-16 with a terminating NUL into out (room for text.size() + 1 units)
// when it is all ASCII; false, with out's contents unspecified, when it is not.
bool WidenAscii(std::string_view text, SQLWCHAR* out) {
  for (std::size_t i = 0; i < text.size(); ++i) {
    const auto c = static_cast<unsigned char>(text[i]);
    if (c >= 0x80) return false;
    out[i] = c;
  }
  out[text.size()] = 0;
  return true;
}

[[gnu::noinline]] SQLRETURN NoSuchCell(Stmt* stmt, SQLUSMALLINT number) {
  if (stmt->rowArraySize != 1) {
    return PostError(stmt, State::kNotImplemented,
                     "SQLGetData reads one row at a time: set SQL_ATTR_ROW_ARRAY_SIZE to 1.");
  }
  if (stmt->row < 0 || stmt->row >= stmt->resultRows) {
    return PostError(stmt, State::kInvalidCursorState, "No current row: call SQLFetch first.");
  }
  return PostError(stmt, State::kInvalidDescriptorIndex,
                   "No column " + std::to_string(number) + ".");
}

// The general conversion, out of line: kept apart, SQLGetData's common path needs fewer
// registers saved and less stack on each of its millions of calls.
[[gnu::noinline]] SQLRETURN ConvertData(Stmt* stmt, const std::string_view* text, SQLSMALLINT cType,
                                        SQLPOINTER buffer, SQLLEN bufferLength, SQLLEN* indicator) {
  ConvertResult r = ConvertView(text, cType, buffer, bufferLength, indicator, &stmt->dataOffset);
  if (r.ret == SQL_ERROR) return PostError(stmt, r.state, r.message);
  if (r.ret == SQL_SUCCESS_WITH_INFO) return PostWarning(stmt, r.state, r.message);
  return r.ret;
}

}  // namespace

extern "C" {

SQLRETURN SQL_API SQLNumResultCols(SQLHSTMT handle, SQLSMALLINT* count) {
  Stmt* stmt = ToStmt(handle);
  if (!stmt) return SQL_INVALID_HANDLE;
  ClearDiag(stmt);
  if (count) *count = static_cast<SQLSMALLINT>(ColumnCount(stmt));
  return SQL_SUCCESS;
}

SQLRETURN SQL_API SQLDescribeCol(SQLHSTMT handle, SQLUSMALLINT number, SQLCHAR* name,
                                 SQLSMALLINT nameMax, SQLSMALLINT* nameLength, SQLSMALLINT* type,
                                 SQLULEN* size, SQLSMALLINT* digits, SQLSMALLINT* nullable) {
  Stmt* stmt = ToStmt(handle);
  if (!stmt) return SQL_INVALID_HANDLE;
  ClearDiag(stmt);
  const ColumnInfo* c = Column(stmt, number);
  if (!c)
    return PostError(stmt, State::kInvalidDescriptorIndex,
                     "No column " + std::to_string(number) + ".");
  if (type) *type = c->sqlType;
  if (size) *size = static_cast<SQLULEN>(c->size);
  if (digits) *digits = SqlTypeOf(c->sqlType).decimalDigits;
  if (nullable) *nullable = c->nullable ? SQL_NULLABLE : SQL_NO_NULLS;
  if (CopyOut(c->name, name, nameMax, nameLength)) {
    return PostWarning(stmt, State::kStringTruncated);
  }
  return SQL_SUCCESS;
}

SQLRETURN SQL_API SQLColAttribute(SQLHSTMT handle, SQLUSMALLINT number, SQLUSMALLINT field,
                                  SQLPOINTER text, SQLSMALLINT textMax, SQLSMALLINT* textLength,
                                  SQLLEN* numeric) {
  Stmt* stmt = ToStmt(handle);
  if (!stmt) return SQL_INVALID_HANDLE;
  ClearDiag(stmt);
  if (field == SQL_DESC_COUNT) {
    if (numeric) *numeric = ColumnCount(stmt);
    return SQL_SUCCESS;
  }
  const ColumnInfo* c = Column(stmt, number);
  if (!c)
    return PostError(stmt, State::kInvalidDescriptorIndex,
                     "No column " + std::to_string(number) + ".");
  const SqlTypeInfo& t = SqlTypeOf(c->sqlType);
  const bool isChar = !t.isNumber && t.datetimeSub == 0;
  std::string s;
  bool isText = true;
  SQLLEN n = 0;
  switch (field) {
    case SQL_DESC_NAME:
    case SQL_DESC_LABEL:
    case SQL_DESC_BASE_COLUMN_NAME:
      s = c->name;
      break;
    case SQL_DESC_TABLE_NAME:
    case SQL_DESC_BASE_TABLE_NAME:
      s = c->table;
      break;
    case SQL_DESC_TYPE_NAME:
    case SQL_DESC_LOCAL_TYPE_NAME:
      s = t.name;
      break;
    case SQL_DESC_LITERAL_PREFIX:
    case SQL_DESC_LITERAL_SUFFIX:
      s = t.literal ? t.literal : "";
      break;
    case SQL_DESC_CATALOG_NAME:
    case SQL_DESC_SCHEMA_NAME:
      s = "";
      break;
    default:
      isText = false;
      switch (field) {
        case SQL_DESC_TYPE:
          n = t.verboseType;
          break;
        case SQL_DESC_CONCISE_TYPE:
          n = c->sqlType;
          break;
        case SQL_DESC_LENGTH:
        case SQL_COLUMN_LENGTH:
          n = isChar ? c->size : (t.isNumber ? c->size : t.columnSize);
          break;
        case SQL_DESC_OCTET_LENGTH:
          n = isChar ? c->size : t.octetLength;
          break;
        case SQL_DESC_PRECISION:
        case SQL_COLUMN_PRECISION:
          // For a date, the digits of its fractions of a second: cells keep none.
          n = t.datetimeSub != 0 ? 0 : c->size;
          break;
        case SQL_DESC_SCALE:
        case SQL_COLUMN_SCALE:
          n = t.decimalDigits;
          break;
        case SQL_DESC_DISPLAY_SIZE:
          n = isChar ? c->size : t.displaySize;
          break;
        case SQL_DESC_DATETIME_INTERVAL_CODE:
          n = t.datetimeSub;
          break;
        case SQL_DESC_NULLABLE:
        case SQL_COLUMN_NULLABLE:
          n = c->nullable ? SQL_NULLABLE : SQL_NO_NULLS;
          break;
        case SQL_DESC_SEARCHABLE:
          n = SQL_PRED_SEARCHABLE;
          break;
        case SQL_DESC_UPDATABLE:
          n = SQL_ATTR_READONLY;
          break;
        case SQL_DESC_CASE_SENSITIVE:
          n = t.caseSensitive ? SQL_TRUE : SQL_FALSE;
          break;
        case SQL_DESC_UNSIGNED:
          n = t.isNumber && c->sqlType != SQL_BIT ? SQL_FALSE : SQL_TRUE;
          break;
        case SQL_DESC_UNNAMED:
          n = c->name.empty() ? SQL_UNNAMED : SQL_NAMED;
          break;
        case SQL_DESC_NUM_PREC_RADIX:
          n = t.isNumber ? 10 : 0;
          break;
        default:
          n = 0;
          break;  // auto-unique, fixed precision...: none apply
      }
  }
  if (!isText) {
    if (numeric) *numeric = n;
    return SQL_SUCCESS;
  }
  if (CopyOut(s, static_cast<SQLCHAR*>(text), textMax, textLength)) {
    return PostWarning(stmt, State::kStringTruncated);
  }
  return SQL_SUCCESS;
}

SQLRETURN SQL_API SQLBindCol(SQLHSTMT handle, SQLUSMALLINT number, SQLSMALLINT cType,
                             SQLPOINTER buffer, SQLLEN bufferLength, SQLLEN* indicator) {
  Stmt* stmt = ToStmt(handle);
  if (!stmt) return SQL_INVALID_HANDLE;
  ClearDiag(stmt);
  if (number < 1)
    return PostError(stmt, State::kInvalidDescriptorIndex, "Bookmarks are not supported.");
  if (bufferLength < 0) {
    return PostError(stmt, State::kInvalidLength, "The buffer length is negative.");
  }
  if (!buffer && !indicator) {
    stmt->columns.erase(number);
  } else {
    stmt->columns[number] = ColumnBinding{cType, buffer, bufferLength, indicator};
  }
  return SQL_SUCCESS;
}

SQLRETURN SQL_API SQLFetch(SQLHSTMT handle) {
  Stmt* stmt = ToStmt(handle);
  if (!stmt) return SQL_INVALID_HANDLE;
  ClearDiag(stmt);
  return Fetch(stmt);
}

SQLRETURN SQL_API SQLFetchScroll(SQLHSTMT handle, SQLSMALLINT orientation, SQLLEN) {
  Stmt* stmt = ToStmt(handle);
  if (!stmt) return SQL_INVALID_HANDLE;
  ClearDiag(stmt);
  if (orientation != SQL_FETCH_NEXT) {
    return PostError(stmt, State::kFetchTypeOutOfRange,
                     "Cursors are forward-only: only SQL_FETCH_NEXT.");
  }
  return Fetch(stmt);
}

SQLRETURN SQL_API SQLGetData(SQLHSTMT handle, SQLUSMALLINT number, SQLSMALLINT cType,
                             SQLPOINTER buffer, SQLLEN bufferLength, SQLLEN* indicator) {
  Stmt* stmt = ToStmt(handle);
  if (!stmt) return SQL_INVALID_HANDLE;
  ClearDiag(stmt);
  if (stmt->row < 0 || stmt->row >= stmt->resultRows || number < 1 ||
      number > stmt->resultColumns || stmt->rowArraySize != 1) {
    return NoSuchCell(stmt, number);
  }
  if (stmt->dataColumn != number) {
    stmt->dataColumn = number;
    stmt->dataOffset = 0;
  }
  if (cType == SQL_C_DEFAULT) cType = DefaultCType(stmt, number);
  char buf[ResultSet::kTextBuffer];
  std::string_view text;
  bool present = stmt->result->text(stmt->row, number - 1, buf, &stmt->scratch, &text);
  if (present && cType == SQL_C_CHAR && stmt->dataOffset == 0 && buffer && bufferLength > 0 &&
      text.size() < static_cast<std::size_t>(bufferLength)) {
    // The whole value fits, the common case: what ConvertView does, without building its
    // result. The offset marks the value delivered, so another call answers SQL_NO_DATA.
    std::memcpy(buffer, text.data(), text.size());
    static_cast<char*>(buffer)[text.size()] = '\0';
    if (indicator) *indicator = static_cast<SQLLEN>(text.size());
    stmt->dataOffset = text.empty() ? 1 : text.size();
    return SQL_SUCCESS;
  }
  if (present && cType == SQL_C_WCHAR && stmt->dataOffset == 0 && buffer &&
      (text.size() + 1) * sizeof(SQLWCHAR) <=
          static_cast<std::size_t>(std::max<SQLLEN>(bufferLength, 0)) &&
      WidenAscii(text, static_cast<SQLWCHAR*>(buffer))) {
    // The same for wide text (what pyodbc asks for) when the value is ASCII, as most cells
    // are: each byte is its UTF-16 unit, so no UTF-16 string need be built per cell.
    if (indicator) *indicator = static_cast<SQLLEN>(text.size() * sizeof(SQLWCHAR));
    stmt->dataOffset = text.empty() ? 1 : text.size() * sizeof(SQLWCHAR);
    return SQL_SUCCESS;
  }
  return ConvertData(stmt, present ? &text : nullptr, cType, buffer, bufferLength, indicator);
}

}  // extern "C"
