// ODBC entry points: the catalog. Sheets are tables; a sheet "Sheet1" is listed as the
// SYSTEM TABLE "Sheet1$", the name under which other drivers for workbooks show it, and
// SELECT accepts it as written. The workbook's defined names (CREATE TABLE of a bare name
// makes one) are listed as TABLEs. Catalog calls that have nothing to report (keys, indexes,
// procedures, privileges) answer an empty result of the shape ODBC gives them.
#include <algorithm>

#include "odbc-driver/Convert.h"
#include "odbc-driver/Diagnostics.h"
#include "odbc-driver/Executor.h"
#include "odbc-driver/Handles.h"
#include "odbc-driver/SheetVtab.h"

using namespace xlsodbc;

namespace {

std::vector<ColumnInfo> Shape(std::initializer_list<std::pair<const char*, short>> cols) {
  std::vector<ColumnInfo> out;
  for (const auto& [name, type] : cols) {
    ColumnInfo c;
    c.name = name;
    c.sqlType = type;
    c.size = type == SQL_VARCHAR ? 255 : 10;
    out.push_back(std::move(c));
  }
  return out;
}

char Lower(char c) { return (c >= 'A' && c <= 'Z') ? static_cast<char>(c + 32) : c; }

// A search pattern: % any run, _ any one character, \ escapes; case-insensitive like sheet
// names. An absent pattern matches everything.
bool Like(const char* p, const char* s) {
  for (; *p; ++p, ++s) {
    if (*p == '%') {
      while (*p == '%') ++p;
      if (!*p) return true;
      for (; *s; ++s) {
        if (Like(p, s)) return true;
      }
      return false;
    }
    if (!*s) return false;
    if (*p == '\\' && p[1])
      ++p;
    else if (*p == '_')
      continue;
    if (Lower(*p) != Lower(*s)) return false;
  }
  return *s == '\0';
}

bool Matches(const SQLCHAR* pattern, SQLSMALLINT length, const std::string& name) {
  if (!pattern) return true;
  std::string p = InText(pattern, length);
  return Like(p.c_str(), name.c_str());
}

SQLRETURN Answer(Stmt* stmt, std::unique_ptr<TextResult> result) {
  stmt->CloseCursor();
  stmt->rowCount = result->rowCount();
  stmt->SetResult(std::move(result));
  return SQL_SUCCESS;
}

SQLRETURN Empty(SQLHSTMT handle, std::initializer_list<std::pair<const char*, short>> cols) {
  Stmt* stmt = ToStmt(handle);
  if (!stmt) return SQL_INVALID_HANDLE;
  ClearDiag(stmt);
  return Answer(stmt, std::make_unique<TextResult>(Shape(cols)));
}

// Whether a SQLTables type list ("TABLE,'SYSTEM TABLE'", "%", or none) asks for `type`.
bool WantsType(const SQLCHAR* types, const std::string& list, const std::string& type) {
  if (!types || list.empty() || list == "%") return true;
  std::size_t start = 0;
  while (start <= list.size()) {
    std::size_t end = list.find(',', start);
    if (end == std::string::npos) end = list.size();
    std::string item = list.substr(start, end - start);
    auto trim = [&item](const char* chars) {
      item.erase(0, item.find_first_not_of(chars));
      item.erase(item.find_last_not_of(chars) + 1);
    };
    trim(" ");
    trim("'");
    if (item == type) return true;
    start = end + 1;
  }
  return false;
}

constexpr short V = SQL_VARCHAR, S = SQL_SMALLINT, I = SQL_INTEGER;

}  // namespace

extern "C" {

SQLRETURN SQL_API SQLTables(SQLHSTMT handle, SQLCHAR*, SQLSMALLINT, SQLCHAR*, SQLSMALLINT,
                            SQLCHAR* table, SQLSMALLINT tableLength, SQLCHAR* types,
                            SQLSMALLINT typesLength) {
  Stmt* stmt = ToStmt(handle);
  if (!stmt) return SQL_INVALID_HANDLE;
  ClearDiag(stmt);
  auto result = std::make_unique<TextResult>(Shape({{"TABLE_CAT", V},
                                                    {"TABLE_SCHEM", V},
                                                    {"TABLE_NAME", V},
                                                    {"TABLE_TYPE", V},
                                                    {"REMARKS", V}}));
  std::string typeList = InText(types, typesLength);
  if (InText(table, tableLength) == "" && typeList == "%") {
    result->addRow({std::nullopt, std::nullopt, std::nullopt, "SYSTEM TABLE", std::nullopt});
    result->addRow({std::nullopt, std::nullopt, std::nullopt, "TABLE", std::nullopt});
    return Answer(stmt, std::move(result));
  }
  std::shared_ptr<const xls::Workbook> book;
  Error e = stmt->dbc->db->Snapshot(&book);
  if (!e.ok()) return PostError(stmt, e);
  // Rows in TABLE_TYPE order: the workbook's defined names (named ranges) are TABLEs, its
  // sheets SYSTEM TABLEs.
  if (WantsType(types, typeList, "TABLE")) {
    for (const xls::DefinedName& n : book->names()) {
      if (n.builtin || n.scopeSheet >= 0) continue;  // sheet-scoped names are not tables
      if (Matches(table, tableLength, n.name)) {
        result->addRow({std::nullopt, std::nullopt, n.name, "TABLE", std::nullopt});
      }
    }
  }
  if (WantsType(types, typeList, "SYSTEM TABLE")) {
    for (const xls::Sheet& s : book->sheets()) {
      std::string name = s.name() + "$";
      if (Matches(table, tableLength, name) || Matches(table, tableLength, s.name())) {
        result->addRow({std::nullopt, std::nullopt, name, "SYSTEM TABLE", std::nullopt});
      }
    }
  }
  return Answer(stmt, std::move(result));
}

SQLRETURN SQL_API SQLColumns(SQLHSTMT handle, SQLCHAR*, SQLSMALLINT, SQLCHAR*, SQLSMALLINT,
                             SQLCHAR* table, SQLSMALLINT tableLength, SQLCHAR* column,
                             SQLSMALLINT columnLength) {
  Stmt* stmt = ToStmt(handle);
  if (!stmt) return SQL_INVALID_HANDLE;
  ClearDiag(stmt);
  auto result = std::make_unique<TextResult>(Shape({{"TABLE_CAT", V},
                                                    {"TABLE_SCHEM", V},
                                                    {"TABLE_NAME", V},
                                                    {"COLUMN_NAME", V},
                                                    {"DATA_TYPE", S},
                                                    {"TYPE_NAME", V},
                                                    {"COLUMN_SIZE", I},
                                                    {"BUFFER_LENGTH", I},
                                                    {"DECIMAL_DIGITS", S},
                                                    {"NUM_PREC_RADIX", S},
                                                    {"NULLABLE", S},
                                                    {"REMARKS", V},
                                                    {"COLUMN_DEF", V},
                                                    {"SQL_DATA_TYPE", S},
                                                    {"SQL_DATETIME_SUB", S},
                                                    {"CHAR_OCTET_LENGTH", I},
                                                    {"ORDINAL_POSITION", I},
                                                    {"IS_NULLABLE", V}}));
  std::shared_ptr<const xls::Workbook> book;
  Error e = stmt->dbc->db->Snapshot(&book);
  if (!e.ok()) return PostError(stmt, e);
  const bool names1 = stmt->dbc->db->firstRowHasNames();
  // The columns a statement naming `written` reads, under TABLE_NAME tableName.
  auto addColumns = [&](const std::string& tableName, const TableRef& written) {
    const TableRef ref = NamedTable(*book, written);
    const xls::Sheet* s = book->findSheet(ref.sheet);
    if (!s) return;
    std::vector<std::string> names = TableColumnNames(*book, ref, names1);
    std::vector<ColumnType> types =
        GuessColumnTypes(*s, ResolveTable(*s, ref, names1, book->date1904));
    for (std::size_t i = 0; i < names.size(); ++i) {
      if (!Matches(column, columnLength, names[i])) continue;
      ColumnInfo c;
      if (i < types.size()) SetColumnType(types[i], &c);
      const SqlTypeInfo& t = SqlTypeOf(c.sqlType);
      const bool isChar = !t.isNumber && t.datetimeSub == 0;
      auto number = [](long v) { return std::optional<std::string>(std::to_string(v)); };
      std::optional<std::string> none;
      result->addRow({none, none, tableName, names[i], number(c.sqlType), t.name, number(c.size),
                      number(isChar ? c.size : t.octetLength),
                      t.isNumber || t.datetimeSub ? number(t.decimalDigits) : none,
                      t.isNumber ? number(10) : none, number(SQL_NULLABLE), none, none,
                      number(t.verboseType), t.datetimeSub ? number(t.datetimeSub) : none,
                      isChar ? number(c.size) : none, number(static_cast<long>(i + 1)), "YES"});
    }
  };
  // Defined names first, in SQLTables' order. A sheet that the pattern matches only by its
  // bare name is left out when a name of that text was listed: the pattern named the TABLE.
  std::vector<std::string> listed;
  for (const xls::DefinedName& n : book->names()) {
    if (n.builtin || n.scopeSheet >= 0 || !Matches(table, tableLength, n.name)) continue;
    TableRef ref;
    ref.sheet = n.name;
    addColumns(n.name, ref);
    listed.push_back(n.name);
  }
  for (const xls::Sheet& s : book->sheets()) {
    std::string name = s.name() + "$";
    const bool bare = std::any_of(listed.begin(), listed.end(),
                                  [&](const std::string& n) { return EqualNoCase(n, s.name()); });
    if (!Matches(table, tableLength, name) && (bare || !Matches(table, tableLength, s.name())))
      continue;
    TableRef ref;
    ref.sheet = s.name();
    ref.written = name;
    addColumns(name, ref);
  }
  return Answer(stmt, std::move(result));
}

SQLRETURN SQL_API SQLGetTypeInfo(SQLHSTMT handle, SQLSMALLINT type) {
  Stmt* stmt = ToStmt(handle);
  if (!stmt) return SQL_INVALID_HANDLE;
  ClearDiag(stmt);
  auto result = std::make_unique<TextResult>(Shape({{"TYPE_NAME", V},
                                                    {"DATA_TYPE", S},
                                                    {"COLUMN_SIZE", I},
                                                    {"LITERAL_PREFIX", V},
                                                    {"LITERAL_SUFFIX", V},
                                                    {"CREATE_PARAMS", V},
                                                    {"NULLABLE", S},
                                                    {"CASE_SENSITIVE", S},
                                                    {"SEARCHABLE", S},
                                                    {"UNSIGNED_ATTRIBUTE", S},
                                                    {"FIXED_PREC_SCALE", S},
                                                    {"AUTO_UNIQUE_VALUE", S},
                                                    {"LOCAL_TYPE_NAME", V},
                                                    {"MINIMUM_SCALE", S},
                                                    {"MAXIMUM_SCALE", S},
                                                    {"SQL_DATA_TYPE", S},
                                                    {"SQL_DATETIME_SUB", S},
                                                    {"NUM_PREC_RADIX", I},
                                                    {"INTERVAL_PRECISION", S}}));
  // Every type a column is reported as or CREATE TABLE takes; a type the driver lacks gives
  // no rows, as ODBC has it.
  auto number = [](long v) { return std::optional<std::string>(std::to_string(v)); };
  std::optional<std::string> none;
  const bool odbc2 = stmt->dbc->env->odbcVersion == SQL_OV_ODBC2;
  for (const SqlTypeInfo& t : SqlTypes()) {
    SQLSMALLINT data = t.type;
    // An ODBC 2 application knows dates by their old numbers.
    if (odbc2 && t.datetimeSub) data = static_cast<SQLSMALLINT>(t.type - 82);
    if (type != SQL_ALL_TYPES && type != t.type && type != data) continue;
    const std::optional<std::string> literal =
        t.literal ? std::optional<std::string>(t.literal) : none;
    const bool exact =
        t.isNumber && t.type != SQL_FLOAT && t.type != SQL_REAL && t.type != SQL_DOUBLE;
    result->addRow(
        {t.name, number(data), number(t.columnSize), literal, literal,
         t.createParams ? std::optional<std::string>(t.createParams) : none, number(SQL_NULLABLE),
         number(t.caseSensitive ? SQL_TRUE : SQL_FALSE), number(SQL_SEARCHABLE),
         t.isNumber ? number(t.type == SQL_BIT ? SQL_TRUE : SQL_FALSE) : none, number(SQL_FALSE),
         t.isNumber ? number(SQL_FALSE) : none, t.name, exact || t.datetimeSub ? number(0) : none,
         exact || t.datetimeSub ? number(t.createParams && t.isNumber ? 15 : 0) : none,
         number(t.verboseType), t.datetimeSub ? number(t.datetimeSub) : none,
         t.isNumber ? number(10) : none, none});
  }
  return Answer(stmt, std::move(result));
}

SQLRETURN SQL_API SQLPrimaryKeys(SQLHSTMT h, SQLCHAR*, SQLSMALLINT, SQLCHAR*, SQLSMALLINT, SQLCHAR*,
                                 SQLSMALLINT) {
  return Empty(h, {{"TABLE_CAT", V},
                   {"TABLE_SCHEM", V},
                   {"TABLE_NAME", V},
                   {"COLUMN_NAME", V},
                   {"KEY_SEQ", S},
                   {"PK_NAME", V}});
}

SQLRETURN SQL_API SQLForeignKeys(SQLHSTMT h, SQLCHAR*, SQLSMALLINT, SQLCHAR*, SQLSMALLINT, SQLCHAR*,
                                 SQLSMALLINT, SQLCHAR*, SQLSMALLINT, SQLCHAR*, SQLSMALLINT,
                                 SQLCHAR*, SQLSMALLINT) {
  return Empty(h, {{"PKTABLE_CAT", V},
                   {"PKTABLE_SCHEM", V},
                   {"PKTABLE_NAME", V},
                   {"PKCOLUMN_NAME", V},
                   {"FKTABLE_CAT", V},
                   {"FKTABLE_SCHEM", V},
                   {"FKTABLE_NAME", V},
                   {"FKCOLUMN_NAME", V},
                   {"KEY_SEQ", S},
                   {"UPDATE_RULE", S},
                   {"DELETE_RULE", S},
                   {"FK_NAME", V},
                   {"PK_NAME", V},
                   {"DEFERRABILITY", S}});
}

SQLRETURN SQL_API SQLStatistics(SQLHSTMT h, SQLCHAR*, SQLSMALLINT, SQLCHAR*, SQLSMALLINT, SQLCHAR*,
                                SQLSMALLINT, SQLUSMALLINT, SQLUSMALLINT) {
  return Empty(h, {{"TABLE_CAT", V},
                   {"TABLE_SCHEM", V},
                   {"TABLE_NAME", V},
                   {"NON_UNIQUE", S},
                   {"INDEX_QUALIFIER", V},
                   {"INDEX_NAME", V},
                   {"TYPE", S},
                   {"ORDINAL_POSITION", S},
                   {"COLUMN_NAME", V},
                   {"ASC_OR_DESC", V},
                   {"CARDINALITY", I},
                   {"PAGES", I},
                   {"FILTER_CONDITION", V}});
}

SQLRETURN SQL_API SQLSpecialColumns(SQLHSTMT h, SQLUSMALLINT, SQLCHAR*, SQLSMALLINT, SQLCHAR*,
                                    SQLSMALLINT, SQLCHAR*, SQLSMALLINT, SQLUSMALLINT,
                                    SQLUSMALLINT) {
  return Empty(h, {{"SCOPE", S},
                   {"COLUMN_NAME", V},
                   {"DATA_TYPE", S},
                   {"TYPE_NAME", V},
                   {"COLUMN_SIZE", I},
                   {"BUFFER_LENGTH", I},
                   {"DECIMAL_DIGITS", S},
                   {"PSEUDO_COLUMN", S}});
}

SQLRETURN SQL_API SQLProcedures(SQLHSTMT h, SQLCHAR*, SQLSMALLINT, SQLCHAR*, SQLSMALLINT, SQLCHAR*,
                                SQLSMALLINT) {
  return Empty(h, {{"PROCEDURE_CAT", V},
                   {"PROCEDURE_SCHEM", V},
                   {"PROCEDURE_NAME", V},
                   {"NUM_INPUT_PARAMS", I},
                   {"NUM_OUTPUT_PARAMS", I},
                   {"NUM_RESULT_SETS", I},
                   {"REMARKS", V},
                   {"PROCEDURE_TYPE", S}});
}

SQLRETURN SQL_API SQLProcedureColumns(SQLHSTMT h, SQLCHAR*, SQLSMALLINT, SQLCHAR*, SQLSMALLINT,
                                      SQLCHAR*, SQLSMALLINT, SQLCHAR*, SQLSMALLINT) {
  return Empty(h, {{"PROCEDURE_CAT", V},
                   {"PROCEDURE_SCHEM", V},
                   {"PROCEDURE_NAME", V},
                   {"COLUMN_NAME", V},
                   {"COLUMN_TYPE", S},
                   {"DATA_TYPE", S},
                   {"TYPE_NAME", V},
                   {"COLUMN_SIZE", I},
                   {"BUFFER_LENGTH", I},
                   {"DECIMAL_DIGITS", S},
                   {"NUM_PREC_RADIX", S},
                   {"NULLABLE", S},
                   {"REMARKS", V},
                   {"COLUMN_DEF", V},
                   {"SQL_DATA_TYPE", S},
                   {"SQL_DATETIME_SUB", S},
                   {"CHAR_OCTET_LENGTH", I},
                   {"ORDINAL_POSITION", I},
                   {"IS_NULLABLE", V}});
}

SQLRETURN SQL_API SQLTablePrivileges(SQLHSTMT h, SQLCHAR*, SQLSMALLINT, SQLCHAR*, SQLSMALLINT,
                                     SQLCHAR*, SQLSMALLINT) {
  return Empty(h, {{"TABLE_CAT", V},
                   {"TABLE_SCHEM", V},
                   {"TABLE_NAME", V},
                   {"GRANTOR", V},
                   {"GRANTEE", V},
                   {"PRIVILEGE", V},
                   {"IS_GRANTABLE", V}});
}

SQLRETURN SQL_API SQLColumnPrivileges(SQLHSTMT h, SQLCHAR*, SQLSMALLINT, SQLCHAR*, SQLSMALLINT,
                                      SQLCHAR*, SQLSMALLINT, SQLCHAR*, SQLSMALLINT) {
  return Empty(h, {{"TABLE_CAT", V},
                   {"TABLE_SCHEM", V},
                   {"TABLE_NAME", V},
                   {"COLUMN_NAME", V},
                   {"GRANTOR", V},
                   {"GRANTEE", V},
                   {"PRIVILEGE", V},
                   {"IS_GRANTABLE", V}});
}

}  // extern "C"
