#include "odbc-driver/SqlEngine.h"

#include <sqlite3.h>

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <limits>

#include "odbc-driver/CellText.h"
#include "odbc-driver/SheetVtab.h"
#include "odbc-driver/SqlFunctions.h"
#include "odbc-driver/SqlRewrite.h"
#include "odbc-driver/TableRegion.h"

namespace xlsodbc {

namespace {

// A statement names at most this many sheets and regions.
constexpr std::size_t kMaxTables = 64;
// The longest text (and blob) a value may grow to inside SQLite.
constexpr int kMaxValueBytes = 32 << 20;

bool StartsWith(const std::string& s, const char* prefix) {
  return s.compare(0, std::strlen(prefix), prefix) == 0;
}

// Whether only blanks, comments and semicolons follow.
bool OnlyBlankAfter(const char* p, const char* end) {
  while (p < end) {
    if (*p == ' ' || *p == '\t' || *p == '\n' || *p == '\r' || *p == '\f' || *p == ';') {
      ++p;
    } else if (end - p >= 2 && p[0] == '-' && p[1] == '-') {
      while (p < end && *p != '\n') ++p;
    } else if (end - p >= 2 && p[0] == '/' && p[1] == '*') {
      const std::size_t close =
          std::string_view(p, static_cast<std::size_t>(end - p)).find("*/", 2);
      p = close == std::string_view::npos ? end : p + close + 2;
    } else {
      return false;
    }
  }
  return true;
}

// "table T has N columns but M values were supplied": N and M.
bool ParseValueCount(const std::string& msg, long* columns, long* values) {
  std::size_t has = msg.find(" has "), but = msg.find(" columns but ");
  if (!StartsWith(msg, "table ") || has == std::string::npos || but == std::string::npos) {
    return false;
  }
  *columns = std::strtol(msg.c_str() + has + 5, nullptr, 10);
  *values = std::strtol(msg.c_str() + but + 13, nullptr, 10);
  return *columns > 0 && *values > 0;
}

Error TableNotFound(const std::string& name) {
  return Error(ErrorKind::kTableNotFound,
               "Table '" + name + "' not found: the workbook has no sheet of that name.");
}

}  // namespace

struct EngineHooks {
  static int Authorize(void* self, int action, const char*, const char*, const char*, const char*) {
    if (static_cast<SqlEngine*>(self)->internal_) return SQLITE_OK;
    switch (action) {
      case SQLITE_SELECT:
      case SQLITE_READ:
      case SQLITE_INSERT:
      case SQLITE_UPDATE:
      case SQLITE_DELETE:
      case SQLITE_FUNCTION:
      case SQLITE_RECURSIVE:
        return SQLITE_OK;
      default:
        return SQLITE_DENY;
    }
  }
  static int Progress(void* self) {
    auto* e = static_cast<SqlEngine*>(self);
    e->steps_ += kProgressSteps;
    return e->steps_ > e->limits_.maxSteps ? 1 : 0;
  }
  static constexpr int kProgressSteps = 1000;
};

SqlEngine::SqlEngine(EngineLimits limits)
    : limits_(limits), module_(std::make_unique<SheetModule>()) {
  sqlite3* db = nullptr;
  // No mutex: one thread uses a connection, and each of the millions of value calls a big
  // result makes would otherwise take and release one.
  if (sqlite3_open_v2(":memory:", &db,
                      SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX,
                      nullptr) != SQLITE_OK) {
    sqlite3_close(db);
    return;
  }
  // Double quotes never name anything here: the rewriter turns them into text.
  sqlite3_db_config(db, SQLITE_DBCONFIG_DQS_DML, 0, nullptr);
  sqlite3_db_config(db, SQLITE_DBCONFIG_DQS_DDL, 0, nullptr);
  sqlite3_db_config(db, SQLITE_DBCONFIG_DEFENSIVE, 1, nullptr);
  sqlite3_limit(db, SQLITE_LIMIT_LENGTH, kMaxValueBytes);
  // The rewrite may lengthen a statement: quoting a bare word adds two bytes to it.
  const std::size_t sqlBytes =
      std::min<std::size_t>(3 * limits_.maxSqlBytes + 1024, kMaxValueBytes);
  sqlite3_limit(db, SQLITE_LIMIT_SQL_LENGTH, static_cast<int>(sqlBytes));
  sqlite3_limit(db, SQLITE_LIMIT_EXPR_DEPTH, limits_.maxExpressionDepth);
  sqlite3_limit(db, SQLITE_LIMIT_ATTACHED, 0);
  sqlite3_limit(db, SQLITE_LIMIT_TRIGGER_DEPTH, 0);
  sqlite3_limit(db, SQLITE_LIMIT_WORKER_THREADS, 0);
  if (RegisterSqlFunctions(db) != SQLITE_OK || module_->Register(db) != SQLITE_OK) {
    sqlite3_close(db);
    return;
  }
  sqlite3_set_authorizer(db, EngineHooks::Authorize, this);
  sqlite3_progress_handler(db, EngineHooks::kProgressSteps, EngineHooks::Progress, this);
  db_ = db;
}

void SqlEngine::SetDateTexts(const std::vector<std::string>* texts) {
  callerDates_ = texts;
  callerDateSet_.clear();
  if (texts) callerDateSet_.insert(texts->begin(), texts->end());
}

SqlEngine::~SqlEngine() {
  if (db_) {
    Forget();
    sqlite3_close(db_);
  }
}

void SqlEngine::Forget() {
  sqlite3_finalize(kept_);
  kept_ = nullptr;
  keptRw_.reset();
  keptSql_.clear();
  DropTables();
}

void SqlEngine::DropTables() {
  internal_ = true;
  for (const std::string& name : tables_) {
    std::string drop = "DROP TABLE temp." + QuoteName(name);
    sqlite3_exec(db_, drop.c_str(), nullptr, nullptr, nullptr);
  }
  internal_ = false;
  tables_.clear();
}

Error SqlEngine::SqliteError(int rc, const RewrittenSql* rw) const {
  const std::string msg = sqlite3_errmsg(db_);
  if (StartsWith(msg, "no such column: ")) {
    return Error(ErrorKind::kColumnNotFound, "Column '" + msg.substr(16) + "' not found.");
  }
  const std::size_t named = msg.find(" has no column named ");
  if (StartsWith(msg, "table ") && named != std::string::npos) {
    return Error(ErrorKind::kColumnNotFound, "Column '" + msg.substr(named + 21) +
                                                 "' not found in table '" +
                                                 msg.substr(6, named - 6) + "'.");
  }
  if (msg.find("too large") != std::string::npos ||
      msg.find("stack overflow") != std::string::npos ||
      msg.find("too many") != std::string::npos || (rc & 0xFF) == SQLITE_TOOBIG) {
    return Error(ErrorKind::kTooComplex,
                 "The statement is too complex or too long for the engine (" + msg + ").");
  }
  if (msg.find("not authorized") != std::string::npos) {
    return Error(ErrorKind::kNotSupported,
                 "Only SELECT, INSERT, UPDATE and DELETE run through the SQL engine.");
  }
  // Where SQLite names no place, the statement ended too soon: the place is its end.
  int at = sqlite3_error_offset(db_);
  std::string where;
  if (rw) {
    std::size_t out = at >= 0 ? static_cast<std::size_t>(at) : rw->sql.size();
    where = " at position " + std::to_string(rw->InputOffset(out) + 1);
  }
  return Error(ErrorKind::kSyntax, "Syntax error" + where + ": " + msg + ".");
}

Error SqlEngine::Prepare(RewrittenSql* rw, sqlite3_stmt** stmt) {
  bool listAdded = false;
  for (;;) {
    const char* tail = nullptr;
    int rc =
        sqlite3_prepare_v3(db_, rw->sql.data(), static_cast<int>(rw->sql.size()), 0, stmt, &tail);
    if (rc == SQLITE_OK) {
      if (!*stmt) return Error(ErrorKind::kSyntax, "The statement is empty.");
      if (!OnlyBlankAfter(tail, rw->sql.data() + rw->sql.size())) {
        return Error(ErrorKind::kSyntax,
                     "Syntax error at position " +
                         std::to_string(
                             rw->InputOffset(static_cast<std::size_t>(tail - rw->sql.data())) + 1) +
                         ": one statement at a time.");
      }
      return Error();
    }
    Error fromTable = module_->TakeError();
    if (!fromTable.ok()) return fromTable;
    const std::string msg = sqlite3_errmsg(db_);
    if (StartsWith(msg, "no such table: ")) {
      const std::string name = msg.substr(15);
      TableRef ref;
      bool seen = std::any_of(tables_.begin(), tables_.end(),
                              [&](const std::string& t) { return EqualNoCase(t, name); });
      if (seen || !ParseTableName(name, &ref)) return TableNotFound(name);
      if (tables_.size() >= kMaxTables) {
        return Error(ErrorKind::kTooComplex,
                     "A statement names at most " + std::to_string(kMaxTables) + " tables.");
      }
      ref.written = name;
      module_->Expect(ref,
                      rw->verb == RewrittenSql::Verb::kInsert && EqualNoCase(name, rw->target));
      internal_ = true;
      std::string create = "CREATE VIRTUAL TABLE temp." + QuoteName(name) + " USING xls";
      rc = sqlite3_exec(db_, create.c_str(), nullptr, nullptr, nullptr);
      internal_ = false;
      if (rc != SQLITE_OK) {
        Error e = module_->TakeError();
        return e.ok() ? SqliteError(rc, nullptr) : e;
      }
      tables_.push_back(name);
      continue;
    }
    long columns, values;
    if (rw->verb == RewrittenSql::Verb::kInsert && ParseValueCount(msg, &columns, &values)) {
      if (values > columns) {
        return Error(ErrorKind::kValueCount, "INSERT gives " + std::to_string(values) +
                                                 " values but table '" + rw->target + "' has " +
                                                 std::to_string(columns) + " columns.");
      }
      // Fewer values than columns fill the table's columns from the left.
      std::vector<std::string> names = module_->ColumnsOf(rw->target);
      if (!listAdded && rw->columnListAt != std::string::npos &&
          static_cast<std::size_t>(values) <= names.size()) {
        std::string list = "(";
        for (long i = 0; i < values; ++i) {
          if (i) list += ", ";
          list += QuoteName(names[static_cast<std::size_t>(i)]);
        }
        list += ") ";
        rw->sql.insert(rw->columnListAt, list);
        for (auto& a : rw->anchors) {
          if (a.first >= rw->columnListAt) a.first += list.size();
        }
        listAdded = true;
        continue;
      }
    }
    return SqliteError(rc, rw);
  }
}

Error SqlEngine::Step(sqlite3_stmt* stmt, bool query, Outcome* out) {
  std::unique_ptr<SqlResult> r;
  const int n = sqlite3_column_count(stmt);
  std::vector<const char*> declared;
  if (query) {
    r = std::make_unique<SqlResult>();
    for (int i = 0; i < n; ++i) {
      ColumnInfo c;
      const char* name = sqlite3_column_name(stmt, i);
      c.name = name ? name : "";
      const char* table = sqlite3_column_table_name(stmt, i);
      if (table) c.table = module_->SheetOf(table);
      declared.push_back(sqlite3_column_decltype(stmt, i));
      r->columns_.push_back(std::move(c));
    }
  }
  for (;;) {
    int rc = sqlite3_step(stmt);
    if (rc == SQLITE_DONE) break;
    if (rc != SQLITE_ROW) {
      Error e = module_->TakeError();
      if (!e.ok()) return e;
      if (rc == SQLITE_INTERRUPT) {
        return Error(ErrorKind::kTooComplex, "The statement ran past the engine's work limit.");
      }
      if (rc == SQLITE_TOOBIG) {
        return Error(ErrorKind::kStringTooLong,
                     "A value grew past " + std::to_string(kMaxValueBytes) + " bytes.");
      }
      return Error(ErrorKind::kInvalidValue, std::string(sqlite3_errmsg(db_)) + ".");
    }
    if (!query) continue;
    if (r->data_.size() + static_cast<std::size_t>(n) > limits_.maxResultValues) {
      return Error(
          ErrorKind::kTooComplex,
          "The result holds more than " + std::to_string(limits_.maxResultValues) + " values.");
    }
    for (int i = 0; i < n; ++i) {
      Datum d;
      // Through the value, not sqlite3_column_*: each of those checks the statement again.
      sqlite3_value* v = sqlite3_column_value(stmt, i);
      const int type = sqlite3_value_type(v);
      switch (type) {
        case SQLITE_INTEGER:
          d.kind = Datum::Kind::kInteger;
          d.integer = sqlite3_value_int64(v);
          break;
        case SQLITE_FLOAT:
          d.kind = Datum::Kind::kNumber;
          d.number = sqlite3_value_double(v);
          break;
        case SQLITE_TEXT:
        case SQLITE_BLOB: {
          const void* p = type == SQLITE_TEXT ? static_cast<const void*>(sqlite3_value_text(v))
                                              : sqlite3_value_blob(v);
          const auto size = static_cast<std::size_t>(sqlite3_value_bytes(v));
          if (r->text_.size() + size > std::numeric_limits<std::uint32_t>::max()) {
            return Error(ErrorKind::kTooComplex, "The result's text passes 4 GiB.");
          }
          d.kind = Datum::Kind::kText;
          d.offset = static_cast<std::uint32_t>(r->text_.size());
          d.size = static_cast<std::uint32_t>(size);
          if (size) r->text_.append(static_cast<const char*>(p), size);
          break;
        }
        default:
          break;
      }
      r->data_.push_back(d);
    }
    ++r->rows_;
  }
  if (query) {
    // A column SQLite knows the declared type of takes it; an expression's, from its values.
    for (int i = 0; i < n; ++i) {
      ColumnInfo& c = r->columns_[static_cast<std::size_t>(i)];
      const bool typed = ColumnInfoForDeclared(declared[static_cast<std::size_t>(i)], &c);
      bool integers = true, numbers = true, any = false;
      std::size_t longest = 0;
      for (long row = 0; row < r->rows_; ++row) {
        Datum& d = r->data_[static_cast<std::size_t>(row) * static_cast<std::size_t>(n) +
                            static_cast<std::size_t>(i)];
        if (typed && c.sqlType == 93 && d.kind == Datum::Kind::kText)
          d.kind = Datum::Kind::kDateTime;
        if (typed && c.sqlType == -7 && d.kind == Datum::Kind::kInteger) {
          const bool on = d.integer != 0;
          d.kind = Datum::Kind::kBoolean;
          d.number = on;
        }
        if (d.kind == Datum::Kind::kNull) continue;
        any = true;
        integers &= d.kind == Datum::Kind::kInteger;
        numbers &= d.kind == Datum::Kind::kInteger || d.kind == Datum::Kind::kNumber;
        if (d.kind == Datum::Kind::kText && d.size > 255) {
          std::size_t chars = 0;
          for (char ch : r->textOf(d)) chars += (static_cast<unsigned char>(ch) & 0xC0) != 0x80;
          longest = std::max(longest, chars);
        }
      }
      if (typed) continue;
      c.sqlType = 12, c.size = 255;  // SQL_VARCHAR
      if (any && integers) {
        c.sqlType = 4, c.size = 10;  // SQL_INTEGER, or SQL_BIGINT past 32 bits
        for (long row = 0; row < r->rows_; ++row) {
          const Datum& d = r->datum(row, i);
          if (d.kind == Datum::Kind::kInteger &&
              (d.integer > std::numeric_limits<std::int32_t>::max() ||
               d.integer < std::numeric_limits<std::int32_t>::min())) {
            c.sqlType = -5, c.size = 19;
          }
        }
      } else if (any && numbers) {
        c.sqlType = 8, c.size = 15;  // SQL_DOUBLE
      } else if (longest > 255) {
        c.sqlType = -1, c.size = static_cast<long>(kMaxCellChars);  // SQL_LONGVARCHAR
      }
    }
    out->result = std::move(r);
  }
  return Error();
}

Error SqlEngine::Execute(std::string_view sql, const ExecOptions& options,
                         std::shared_ptr<xls::Workbook>* book, Outcome* out, bool repeat) {
  *out = Outcome();
  if (!db_) return Error(ErrorKind::kIO, "The SQL engine could not start (out of memory).");
  if (sql.size() > limits_.maxSqlBytes) {
    return Error(ErrorKind::kTooComplex, "The statement is " + std::to_string(sql.size()) +
                                             " bytes long; the engine takes up to " +
                                             std::to_string(limits_.maxSqlBytes) + ".");
  }
  steps_ = 0;
  const bool firstRowHasNames = options.firstRowHasNames;
  bool reuse = repeat && kept_ && keptSql_ == sql && keptFirstRowHasNames_ == firstRowHasNames;
  module_->Bind(book, firstRowHasNames, options.grid);
  // A repeat of an INSERT has only appended rows since its tables were made.
  if (reuse && !module_->Refresh(keptRw_->verb == RewrittenSql::Verb::kInsert)) reuse = false;
  Error e;
  if (reuse) {
    sqlite3_reset(kept_);
    sqlite3_clear_bindings(kept_);
  } else {
    Forget();
    auto rw = std::make_unique<RewrittenSql>();
    e = RewriteSql(sql, rw.get());
    if (!e.ok()) return e;
    e = Prepare(rw.get(), &kept_);
    keptRw_ = std::move(rw);
    keptSql_ = std::string(sql);
    keptFirstRowHasNames_ = firstRowHasNames;
  }
  sqlite3_stmt* stmt = kept_;
  const int markers = e.ok() ? sqlite3_bind_parameter_count(stmt) : 0;
  // The dates of this run: the statement's escapes and those of its parameters that the
  // caller marked as dates, so one set never takes another's.
  dates_ = keptRw_->dateLiterals;
  for (int i = 1; e.ok() && i <= markers; ++i) {
    if (!options.parameters || i > static_cast<int>(options.parameters->size())) {
      e = Error(ErrorKind::kParameter,
                "No value was bound for parameter " + std::to_string(i) + ".");
      break;
    }
    const Value& v = (*options.parameters)[static_cast<std::size_t>(i - 1)];
    if (v.kind == Value::Kind::kText) {
      sqlite3_bind_text(stmt, i, v.text.data(), static_cast<int>(v.text.size()), SQLITE_TRANSIENT);
      if (callerDateSet_.count(v.text)) dates_.push_back(v.text);
    } else if (v.kind == Value::Kind::kNumber) {
      sqlite3_bind_double(stmt, i, v.number);
    } else {
      sqlite3_bind_null(stmt, i);
    }
  }
  module_->SetDateTexts(&dates_);
  if (e.ok()) {
    const bool readOnly = sqlite3_stmt_readonly(stmt) != 0;
    const bool query = sqlite3_column_count(stmt) > 0;
    module_->SetReadOnly(readOnly);
    // A change works on a copy while an open result still reads the model; that copy is
    // also the way back when the statement fails.
    std::shared_ptr<xls::Workbook> before;
    if (!readOnly && book->use_count() > 1) {
      before = *book;
      *book = std::make_shared<xls::Workbook>(**book);
    }
    e = Step(stmt, query, out);
    if (e.ok()) e = module_->Finish();
    if (!e.ok()) {
      if (before) {
        *book = before;
      } else {
        module_->Undo();
      }
      out->result.reset();
    } else {
      out->changed = module_->changed();
      if (before && !out->changed) *book = before;
      if (out->changed && options.effects) module_->CaptureEffects(options.effects);
      out->rowCount = query ? -1 : static_cast<long>(sqlite3_changes64(db_));
    }
    module_->Commit();
  }
  if (e.ok()) {
    // Kept for a repeat; reset, so that it holds no read on the tables meanwhile.
    sqlite3_reset(stmt);
  } else {
    Forget();
  }
  return e;
}

bool SqlResult::text(long row, int column, char* buf, std::string* scratch,
                     std::string_view* out) const {
  (void)scratch;
  const Datum& d = datum(row, column);
  switch (d.kind) {
    case Datum::Kind::kNull:
      *out = std::string_view();
      return false;
    case Datum::Kind::kNumber:
      *out = std::string_view(buf, FormatNumberTo(d.number, buf));
      return true;
    case Datum::Kind::kInteger: {
      auto r = std::to_chars(buf, buf + kTextBuffer, d.integer);
      *out = std::string_view(buf, static_cast<std::size_t>(r.ptr - buf));
      return true;
    }
    case Datum::Kind::kBoolean:
      *out = d.number != 0 ? "1" : "0";
      return true;
    case Datum::Kind::kText:
    case Datum::Kind::kDateTime:
      *out = textOf(d);
      return true;
  }
  return false;
}

bool SqlResult::dateTimeOf(const Datum& d, DateTimeParts* out) const {
  std::string n;
  if ((d.kind != Datum::Kind::kDateTime && d.kind != Datum::Kind::kText) ||
      !NormalizeDateText(textOf(d), false, &n)) {
    return false;
  }
  auto num = [&](std::size_t at, std::size_t len) {
    int v = 0;
    for (std::size_t i = at; i < at + len; ++i) v = v * 10 + (n[i] - '0');
    return v;
  };
  out->year = num(0, 4), out->month = num(5, 2), out->day = num(8, 2);
  out->hour = num(11, 2), out->minute = num(14, 2), out->second = num(17, 2);
  out->fraction = n.size() > 19 ? std::strtod(n.c_str() + 19, nullptr) : 0;
  return true;
}

bool SqlResult::value(long row, int column, std::string* out) const {
  char buf[kTextBuffer];
  std::string_view v;
  bool present = text(row, column, buf, out, &v);
  out->assign(v);
  return present;
}

}  // namespace xlsodbc
