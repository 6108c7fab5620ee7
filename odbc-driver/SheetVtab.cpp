#include "odbc-driver/SheetVtab.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstring>

#include "odbc-driver/CellText.h"
#include "odbc-driver/Executor.h"
#include "odbc-driver/Journal.h"
#include "odbc-driver/SqlRewrite.h"
#include "odbc-driver/TableRegion.h"

namespace xlsodbc {

namespace {

using xls::Cell;
using xls::CellType;

constexpr const char* kDateFormat = "yyyy-mm-dd hh:mm:ss";

std::size_t Utf8Chars(std::string_view s) {
  std::size_t n = 0;
  for (unsigned char c : s) n += (c & 0xC0) != 0x80;
  return n;
}

// Whether SQLite's numeric affinity turns this text into a number: optional spaces, a sign,
// digits with an optional point and exponent. Used to key the equality index so that it finds
// every row the comparison would accept.
bool SqliteNumeric(std::string_view s, double* d) {
  while (!s.empty() &&
         (s.front() == ' ' || s.front() == '\t' || s.front() == '\n' || s.front() == '\r'))
    s.remove_prefix(1);
  while (!s.empty() &&
         (s.back() == ' ' || s.back() == '\t' || s.back() == '\n' || s.back() == '\r'))
    s.remove_suffix(1);
  if (!s.empty() && s.front() == '+') s.remove_prefix(1);
  std::size_t digitAt = !s.empty() && s.front() == '-' ? 1 : 0;
  if (s.size() <= digitAt ||
      !(std::isdigit(static_cast<unsigned char>(s[digitAt])) || s[digitAt] == '.'))
    return false;
  auto r = std::from_chars(s.data(), s.data() + s.size(), *d);
  return r.ec == std::errc() && r.ptr == s.data() + s.size() && std::isfinite(*d);
}

// An equality-index key: numbers (and text that reads as one) by value, other text by bytes.
struct Key {
  bool text = false;
  double number = 0;
  std::string str;
  bool operator<(const Key& o) const {
    if (text != o.text) return !text;
    return text ? str < o.str : number < o.number;
  }
};

Key TextKey(std::string_view s, bool dateColumn) {
  Key k;
  if (SqliteNumeric(s, &k.number)) return k;
  k.text = true;
  std::string normal;
  if (dateColumn && NormalizeDateText(s, false, &normal)) {
    k.str = normal;
  } else {
    k.str = std::string(s);
  }
  return k;
}

}  // namespace

struct SheetModule::Table : sqlite3_vtab {
  SheetModule* module = nullptr;
  std::string name;
  std::size_t sheet = 0;
  TableRef ref;
  TableView view;
  bool insertTarget = false;
  ColumnKinds kinds;
  std::vector<ColumnType> types;
  std::vector<std::string> columns;
  std::vector<int> deleted;
  // The equality index of one column, built on first use and dropped on any write.
  int indexed = -1;
  std::vector<std::pair<Key, int>> index;
};

namespace {

struct Cursor : sqlite3_vtab_cursor {
  const xls::Sheet* sheet = nullptr;
  int row = 0, last = -1;
  std::vector<int> matches;  // rows an index lookup found
  std::size_t at = 0;
  bool useMatches = false;
};

}  // namespace

const char* DeclaredType(ColumnType t) {
  switch (t) {
    case ColumnType::kDouble:
      return "DOUBLE";
    case ColumnType::kTimestamp:
      return "TIMESTAMP";
    case ColumnType::kBit:
      return "BIT";
    case ColumnType::kLongVarchar:
      return "LONGSTRING";
    case ColumnType::kVarchar:
      break;
  }
  return "STRING";
}

std::string QuoteName(const std::string& name) {
  std::string out = "\"";
  for (char c : name) {
    out.push_back(c);
    if (c == '"') out.push_back('"');
  }
  return out + "\"";
}

bool ColumnInfoForDeclared(const char* decl, ColumnInfo* info) {
  if (!decl) return false;
  struct Entry {
    const char* decl;
    short type;
    long size;
  };
  // SQL_DOUBLE, SQL_TYPE_TIMESTAMP, SQL_BIT, SQL_LONGVARCHAR, SQL_VARCHAR.
  static const Entry kTypes[] = {{"DOUBLE", 8, 15},
                                 {"TIMESTAMP", 93, 19},
                                 {"BIT", -7, 1},
                                 {"LONGSTRING", -1, static_cast<long>(kMaxCellChars)},
                                 {"STRING", 12, 255}};
  for (const Entry& e : kTypes) {
    if (std::strcmp(decl, e.decl) == 0) {
      info->sqlType = e.type;
      info->size = e.size;
      return true;
    }
  }
  return false;
}

void ColumnKinds::Add(const xls::Sheet& s, const TableView& v, int first, int last) {
  const auto width = static_cast<std::size_t>(std::max(0, v.right - v.left + 1));
  seen.resize(width, 0);
  longest.resize(width, 0);
  const auto& rows = s.rows();
  const int lastRow = std::min(last, static_cast<int>(rows.size()) - 1);
  for (int r = std::max(0, first); r <= lastRow; ++r) {
    const auto& row = rows[static_cast<std::size_t>(r)];
    const int end = std::min(v.right + 1, static_cast<int>(row.size()));
    for (int c = v.left; c < end; ++c) {
      const Cell& cell = row[static_cast<std::size_t>(c)];
      const auto i = static_cast<std::size_t>(c - v.left);
      seen[i] |= 1u << static_cast<unsigned>(cell.type);
      if (cell.type == CellType::kText && cell.text.size() > 255) {
        longest[i] = std::max(longest[i], Utf8Chars(cell.text));
      }
    }
  }
}

std::vector<ColumnType> ColumnKinds::Types() const {
  const unsigned kind = ~(1u << static_cast<unsigned>(CellType::kEmpty));
  std::vector<ColumnType> types;
  for (std::size_t i = 0; i < seen.size(); ++i) {
    const unsigned k = seen[i] & kind;
    ColumnType type = ColumnType::kVarchar;
    if (k == 1u << static_cast<unsigned>(CellType::kNumber)) type = ColumnType::kDouble;
    if (k == 1u << static_cast<unsigned>(CellType::kDateTime)) type = ColumnType::kTimestamp;
    if (k == 1u << static_cast<unsigned>(CellType::kBoolean)) type = ColumnType::kBit;
    if (type == ColumnType::kVarchar && longest[i] > 255) type = ColumnType::kLongVarchar;
    types.push_back(type);
  }
  return types;
}

std::vector<ColumnType> GuessColumnTypes(const xls::Sheet& s, const TableView& v) {
  ColumnKinds kinds;
  kinds.Add(s, v, v.firstData, v.lastData);
  return kinds.Types();
}

void SetColumnType(ColumnType t, ColumnInfo* info) {
  const bool known = ColumnInfoForDeclared(DeclaredType(t), info);
  (void)known;  // every ColumnType has a declared name in the table
}

namespace {

// Writes a cell that needs no check (one moved within its sheet), logging the old one.
void PutCell(xls::Workbook* book, std::size_t sheet, int row, int column, Cell cell,
             std::vector<CellUndo>* undo) {
  xls::Sheet& s = book->sheets()[sheet];
  const Cell& old = s.at(row, column);
  if (old == cell) return;
  undo->push_back({sheet, row, column, old});
  if (cell.isEmpty() && cell.style == 0) {
    s.clear(row, column);
  } else {
    s.set(row, column, std::move(cell));
  }
}

}  // namespace

Error StoreCell(xls::Workbook* book, std::size_t sheet, int row, int column, Cell cell,
                std::vector<CellUndo>* undo) {
  if (cell.type == CellType::kText && cell.text.size() > kMaxCellChars &&
      Utf8Chars(cell.text) > kMaxCellChars) {
    return Error(ErrorKind::kStringTooLong, "A text of " + std::to_string(Utf8Chars(cell.text)) +
                                                " characters is longer than a cell holds (" +
                                                std::to_string(kMaxCellChars) + ").");
  }
  PutCell(book, sheet, row, column, std::move(cell), undo);
  return Error();
}

bool DateTextToSerial(std::string_view text, bool date1904, double* serial) {
  std::string n;
  if (!NormalizeDateText(text, false, &n)) return false;
  auto num = [&](std::size_t at, std::size_t len) {
    int v = 0;
    for (std::size_t i = at; i < at + len; ++i) v = v * 10 + (n[i] - '0');
    return v;
  };
  int y = num(0, 4);
  unsigned m = static_cast<unsigned>(num(5, 2)), d = static_cast<unsigned>(num(8, 2));
  // Days since 1970-01-01 (the inverse of CellText's civil-from-days).
  y -= m <= 2;
  const long era = (y >= 0 ? y : y - 399) / 400;
  const unsigned yoe = static_cast<unsigned>(y - era * 400);
  const unsigned doy = (153 * (m > 2 ? m - 3 : m + 9) + 2) / 5 + d - 1;
  const unsigned doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
  const long days = era * 146097 + static_cast<long>(doe) - 719468;
  double day;
  if (date1904) {
    day = static_cast<double>(days + 24107);
  } else {
    long s = days + 25569;
    if (s < 61) s = days + 25568;  // before the 1900 system's phantom 29 February
    day = static_cast<double>(s);
  }
  if (day < 0) return false;
  double seconds = num(11, 2) * 3600.0 + num(14, 2) * 60.0 + num(17, 2);
  if (n.size() > 19) seconds += std::strtod(n.c_str() + 19, nullptr);
  *serial = day + seconds / 86400.0;
  return true;
}

struct ModuleCallbacks {
  using Table = SheetModule::Table;

  static SheetModule* Module(void* aux) { return static_cast<SheetModule*>(aux); }

  static int Create(sqlite3* db, void* aux, int argc, const char* const* argv, sqlite3_vtab** out,
                    char** err) {
    SheetModule* m = Module(aux);
    if (argc < 3) return SQLITE_ERROR;
    const xls::Workbook& book = **m->book_;
    const TableRef ref = NamedTable(book, m->pending_);
    const auto& sheets = book.sheets();
    const xls::Sheet* sheet = book.findSheet(ref.sheet);
    if (Error e = CheckRegion(ref, m->grid_); !e.ok()) {
      m->error_ = e;
      *err = sqlite3_mprintf("%s", e.message().c_str());
      return SQLITE_ERROR;
    }
    if (!sheet) {
      m->error_ =
          Error(ErrorKind::kTableNotFound,
                "Table '" + ref.sheet + "' not found: the workbook has no sheet of that name.");
      *err = sqlite3_mprintf("%s", m->error_.message().c_str());
      return SQLITE_ERROR;
    }
    auto t = std::make_unique<Table>();
    t->module = m;
    t->name = argv[2];
    t->sheet = static_cast<std::size_t>(sheet - sheets.data());
    t->ref = ref;
    t->insertTarget = m->pendingInsert_;
    Error e = View(*sheet, ref, t->insertTarget, m->firstRowHasNames_, book.date1904, m->grid_,
                   &t->view);
    if (!e.ok()) {
      m->error_ = e;
      *err = sqlite3_mprintf("%s", e.message().c_str());
      return SQLITE_ERROR;
    }
    GuessTypes(*sheet, t.get());
    std::string decl = "CREATE TABLE x(";
    for (std::size_t i = 0; i < t->columns.size(); ++i) {
      if (i) decl += ", ";
      decl += QuoteName(t->columns[i]);
      decl += ' ';
      decl += DeclaredType(t->types[i]);
      if (t->types[i] == ColumnType::kTimestamp) decl += " COLLATE xlsdate";
    }
    decl += ")";
    int rc = sqlite3_declare_vtab(db, decl.c_str());
    if (rc != SQLITE_OK) {
      *err = sqlite3_mprintf("%s", sqlite3_errmsg(db));
      return rc;
    }
    m->tables_.push_back(t.get());
    *out = t.release();
    return SQLITE_OK;
  }

  // What a table shows of s: an INSERT's target from its header down to the last record in
  // its columns, anything else the region or used range.
  static Error View(const xls::Sheet& s, const TableRef& ref, bool insertTarget,
                    bool firstRowHasNames, bool date1904, const SheetGrid& grid, TableView* v) {
    if (insertTarget) {
      Error e = InsertSpan(s, ref, firstRowHasNames, date1904, grid, v);
      if (!e.ok()) return e;
      v->lastData = LastRowInColumns(s, v->left, v->right, grid.rows - 1);
    } else {
      *v = ResolveTable(s, ref, firstRowHasNames, date1904);
    }
    if (v->names.empty()) {
      // A region holding nothing has no columns, but a SQLite table needs one (a hidden one
      // leaves SELECT * with nothing to select, an error): F1, with no rows.
      v->names.push_back("F1");
      v->right = v->left;
      v->firstData = 0;
      v->lastData = -1;
    }
    return Error();
  }

  // Names unique ignoring case (SQLite's rule): a repeated header takes its F-name.
  static void GuessTypes(const xls::Sheet& s, Table* t) {
    t->kinds = ColumnKinds();
    t->kinds.Add(s, t->view, t->view.firstData, t->view.lastData);
    t->types = t->kinds.Types();
    const int width = t->view.right - t->view.left + 1;
    for (int i = 0; i < width; ++i) {
      std::string name = t->view.names[static_cast<std::size_t>(i)];
      auto taken = [&](const std::string& n) {
        for (const auto& c : t->columns) {
          if (EqualNoCase(c, n)) return true;
        }
        return false;
      };
      if (taken(name)) name = "F" + std::to_string(i + 1);
      for (int k2 = 2; taken(name); ++k2)
        name = "F" + std::to_string(i + 1) + "_" + std::to_string(k2);
      t->columns.push_back(name);
    }
  }

  static int Disconnect(sqlite3_vtab* vt) {
    auto* t = static_cast<Table*>(vt);
    auto& tables = t->module->tables_;
    tables.erase(std::remove(tables.begin(), tables.end(), t), tables.end());
    delete t;
    return SQLITE_OK;
  }

  static int BestIndex(sqlite3_vtab* vt, sqlite3_index_info* info) {
    auto* t = static_cast<Table*>(vt);
    const double rows = std::max(1, t->view.lastData - t->view.firstData + 1);
    info->idxNum = 0;
    info->estimatedCost = rows;
    info->estimatedRows = static_cast<sqlite3_int64>(rows);
    for (int i = 0; i < info->nConstraint; ++i) {
      const auto& c = info->aConstraint[i];
      if (!c.usable || c.op != SQLITE_INDEX_CONSTRAINT_EQ || c.iColumn < 0) continue;
      const char* coll = sqlite3_vtab_collation(info, i);
      if (coll && sqlite3_stricmp(coll, "BINARY") != 0 && sqlite3_stricmp(coll, "xlsdate") != 0) {
        continue;
      }
      // SQLite checks the constraint again (omit stays 0): the index only narrows the rows.
      info->aConstraintUsage[i].argvIndex = 1;
      info->idxNum = c.iColumn + 1;
      info->estimatedCost = std::log2(rows) + 10;
      info->estimatedRows = 10;
      break;
    }
    return SQLITE_OK;
  }

  static int Open(sqlite3_vtab*, sqlite3_vtab_cursor** out) {
    *out = new Cursor();
    return SQLITE_OK;
  }
  static int Close(sqlite3_vtab_cursor* c) {
    delete static_cast<Cursor*>(c);
    return SQLITE_OK;
  }

  static bool CellKey(const Cell& cell, bool date1904, bool dateColumn, Key* k) {
    switch (cell.type) {
      case CellType::kEmpty:
        return false;
      case CellType::kNumber:
      case CellType::kBoolean:
        k->number = cell.number;
        return true;
      case CellType::kText:
        *k = TextKey(cell.text, dateColumn);
        return true;
      default: {
        std::string text;
        CellText(cell, date1904, &text);
        *k = TextKey(text, dateColumn);
        return true;
      }
    }
  }

  static int Filter(sqlite3_vtab_cursor* vc, int idxNum, const char*, int argc,
                    sqlite3_value** argv) {
    auto* c = static_cast<Cursor*>(vc);
    auto* t = static_cast<Table*>(vc->pVtab);
    const xls::Workbook& book = **t->module->book_;
    c->sheet = &book.sheets()[t->sheet];
    c->row = t->view.firstData;
    c->last = t->view.lastData;
    c->useMatches = idxNum > 0 && argc == 1;
    if (!c->useMatches) return SQLITE_OK;
    const int col = idxNum - 1;
    const bool dateColumn = t->types[static_cast<std::size_t>(col)] == ColumnType::kTimestamp;
    if (t->indexed != col) {
      t->index.clear();
      Key k;
      for (int r = t->view.firstData; r <= t->view.lastData; ++r) {
        if (CellKey(c->sheet->at(r, t->view.left + col), book.date1904, dateColumn, &k)) {
          t->index.emplace_back(std::move(k), r);
          k = Key();
        }
      }
      std::sort(t->index.begin(), t->index.end(),
                [](const auto& a, const auto& b) { return a.first < b.first; });
      t->indexed = col;
    }
    c->matches.clear();
    c->at = 0;
    Key want;
    switch (sqlite3_value_type(argv[0])) {
      case SQLITE_NULL:
        return SQLITE_OK;
      case SQLITE_INTEGER:
      case SQLITE_FLOAT:
        want.number = sqlite3_value_double(argv[0]);
        break;
      default:
        want = TextKey(std::string_view(reinterpret_cast<const char*>(sqlite3_value_text(argv[0])),
                                        static_cast<std::size_t>(sqlite3_value_bytes(argv[0]))),
                       dateColumn);
        break;
    }
    auto range = std::equal_range(t->index.begin(), t->index.end(), std::make_pair(want, 0),
                                  [](const auto& a, const auto& b) { return a.first < b.first; });
    for (auto it = range.first; it != range.second; ++it) c->matches.push_back(it->second);
    std::sort(c->matches.begin(), c->matches.end());
    return SQLITE_OK;
  }

  static int Next(sqlite3_vtab_cursor* vc) {
    auto* c = static_cast<Cursor*>(vc);
    if (c->useMatches) {
      ++c->at;
    } else {
      ++c->row;
    }
    return SQLITE_OK;
  }
  static int Eof(sqlite3_vtab_cursor* vc) {
    auto* c = static_cast<Cursor*>(vc);
    return c->useMatches ? c->at >= c->matches.size() : c->row > c->last;
  }
  static int CurrentRow(const Cursor* c) { return c->useMatches ? c->matches[c->at] : c->row; }
  static int Rowid(sqlite3_vtab_cursor* vc, sqlite3_int64* out) {
    *out = CurrentRow(static_cast<Cursor*>(vc));
    return SQLITE_OK;
  }

  static int Column(sqlite3_vtab_cursor* vc, sqlite3_context* ctx, int i) {
    auto* c = static_cast<Cursor*>(vc);
    auto* t = static_cast<Table*>(vc->pVtab);
    if (sqlite3_vtab_nochange(ctx)) return SQLITE_OK;  // UPDATE leaves this column alone
    const auto& rows = c->sheet->rows();
    const auto r = static_cast<std::size_t>(CurrentRow(c));
    const auto col = static_cast<std::size_t>(t->view.left + i);
    if (r >= rows.size() || col >= rows[r].size()) return SQLITE_OK;
    const Cell& cell = rows[r][col];
    switch (cell.type) {
      case CellType::kEmpty:
        break;
      case CellType::kNumber:
        sqlite3_result_double(ctx, cell.number);
        break;
      case CellType::kBoolean:
        sqlite3_result_int(ctx, cell.number != 0);
        break;
      case CellType::kText:
        sqlite3_result_text(ctx, cell.text.data(), static_cast<int>(cell.text.size()),
                            t->module->readOnly_ ? SQLITE_STATIC : SQLITE_TRANSIENT);
        break;
      default: {
        std::string text;
        CellText(cell, (*t->module->book_)->date1904, &text);
        sqlite3_result_text(ctx, text.data(), static_cast<int>(text.size()), SQLITE_TRANSIENT);
      }
    }
    return SQLITE_OK;
  }

  // Whether v is what the cell already gives, so an UPDATE need not write it.
  static bool Unchanged(const Cell& cell, bool date1904, sqlite3_value* v) {
    const int type = sqlite3_value_type(v);
    switch (cell.type) {
      case CellType::kEmpty:
        return type == SQLITE_NULL;
      case CellType::kNumber:
      case CellType::kBoolean:
        return (type == SQLITE_FLOAT || type == SQLITE_INTEGER) &&
               sqlite3_value_double(v) == cell.number;
      default: {
        if (type != SQLITE_TEXT) return false;
        std::string text;
        CellText(cell, date1904, &text);
        return text == std::string_view(reinterpret_cast<const char*>(sqlite3_value_text(v)),
                                        static_cast<std::size_t>(sqlite3_value_bytes(v)));
      }
    }
  }

  // The cell a value becomes in a column of this type; style is the cell's present format.
  static Error ToCell(SheetModule* m, sqlite3_value* v, ColumnType type, const Cell& old,
                      Cell* out) {
    xls::Workbook& book = m->Writable();
    const std::uint16_t style = old.style;
    switch (sqlite3_value_type(v)) {
      case SQLITE_NULL:
        *out = Cell();
        return Error();
      case SQLITE_INTEGER:
      case SQLITE_FLOAT: {
        double d = sqlite3_value_double(v);
        *out = type == ColumnType::kBit && (d == 0 || d == 1) ? Cell::Boolean(d != 0, style)
                                                              : Cell::Number(d, style);
        return Error();
      }
      case SQLITE_TEXT: {
        std::string_view text(reinterpret_cast<const char*>(sqlite3_value_text(v)),
                              static_cast<std::size_t>(sqlite3_value_bytes(v)));
        double serial;
        const auto* dates = m->dateTexts_;
        const bool dateParameter =
            dates && std::find(dates->begin(), dates->end(), text) != dates->end();
        if ((type == ColumnType::kTimestamp || dateParameter) &&
            DateTextToSerial(text, book.date1904, &serial)) {
          std::uint16_t s = style;
          if (old.type != CellType::kDateTime) {
            xls::Style date = book.styles()[style];
            date.numberFormat = kDateFormat;
            s = book.addStyle(date);
          }
          *out = Cell::DateTime(serial, s);
          return Error();
        }
        *out = Cell::Text(text, style);
        return Error();
      }
      default:
        return Error(ErrorKind::kInvalidValue, "A binary value cannot be stored in a cell.");
    }
  }

  static int Fail(Table* t, const Error& e) {
    if (t->module->error_.ok()) t->module->error_ = e;
    sqlite3_free(t->zErrMsg);
    t->zErrMsg = sqlite3_mprintf("%s", e.message().c_str());
    return SQLITE_ERROR;
  }

  static int Update(sqlite3_vtab* vt, int argc, sqlite3_value** argv, sqlite3_int64* rowid) {
    auto* t = static_cast<Table*>(vt);
    SheetModule* m = t->module;
    t->indexed = -1;
    t->index.clear();
    if (argc == 1) {  // DELETE: applied once the statement has run (Finish)
      t->deleted.push_back(static_cast<int>(sqlite3_value_int64(argv[0])));
      return SQLITE_OK;
    }
    const bool insert = sqlite3_value_type(argv[0]) == SQLITE_NULL;
    if (sqlite3_value_type(argv[1]) != SQLITE_NULL &&
        (insert || sqlite3_value_int64(argv[0]) != sqlite3_value_int64(argv[1]))) {
      return Fail(t, Error(ErrorKind::kInvalidValue, "A row's ROWID cannot be set."));
    }
    xls::Workbook& book = m->Writable();
    int row;
    if (insert) {
      Error e =
          InsertRow(book.sheets()[t->sheet], t->view, m->firstRowHasNames_, t->ref, m->grid_, &row);
      if (!e.ok()) return Fail(t, e);
    } else {
      row = static_cast<int>(sqlite3_value_int64(argv[0]));
    }
    for (int i = 0; i + 2 < argc && i < static_cast<int>(t->columns.size()); ++i) {
      sqlite3_value* v = argv[i + 2];
      const int col = t->view.left + i;
      const Cell& old = book.sheets()[t->sheet].at(row, col);
      if (insert ? sqlite3_value_type(v) == SQLITE_NULL
                 : (sqlite3_value_nochange(v) || Unchanged(old, book.date1904, v))) {
        continue;
      }
      Cell cell;
      Error e = ToCell(m, v, t->types[static_cast<std::size_t>(i)], old, &cell);
      if (e.ok()) e = StoreCell(&book, t->sheet, row, col, std::move(cell), &m->undo_);
      if (!e.ok()) return Fail(t, e);
      m->changed_ = true;
    }
    *rowid = row;
    return SQLITE_OK;
  }
};

int SheetModule::Register(sqlite3* db) {
  static const sqlite3_module kModule = {
      /* iVersion */ 2,
      ModuleCallbacks::Create,
      ModuleCallbacks::Create,
      ModuleCallbacks::BestIndex,
      ModuleCallbacks::Disconnect,
      ModuleCallbacks::Disconnect,
      ModuleCallbacks::Open,
      ModuleCallbacks::Close,
      ModuleCallbacks::Filter,
      ModuleCallbacks::Next,
      ModuleCallbacks::Eof,
      ModuleCallbacks::Column,
      ModuleCallbacks::Rowid,
      ModuleCallbacks::Update,
      nullptr,  // xBegin
      nullptr,  // xSync
      nullptr,  // xCommit
      nullptr,  // xRollback
      nullptr,  // xFindFunction
      nullptr,  // xRename
      nullptr,  // xSavepoint
      nullptr,  // xRelease
      nullptr,  // xRollbackTo
      nullptr,  // xShadowName
  };
  return sqlite3_create_module(db, "xls", &kModule, this);
}

void SheetModule::Bind(std::shared_ptr<xls::Workbook>* book, bool firstRowHasNames,
                       const SheetGrid& grid) {
  book_ = book;
  firstRowHasNames_ = firstRowHasNames;
  grid_ = grid;
  undo_.clear();
  changed_ = false;
  error_ = Error();
}

xls::Workbook& SheetModule::Writable() {
  if (book_->use_count() > 1) *book_ = std::make_shared<xls::Workbook>(**book_);
  return **book_;
}

bool SheetModule::Refresh(bool appendedOnly) {
  const xls::Workbook& book = **book_;
  for (Table* t : tables_) {
    if (t->sheet >= book.sheets().size()) return false;
    const xls::Sheet& s = book.sheets()[t->sheet];
    t->indexed = -1;
    t->index.clear();
    if (t->insertTarget && appendedOnly) {
      const int last = LastRowInColumns(s, t->view.left, t->view.right, grid_.rows - 1);
      if (last > t->view.lastData) {
        t->kinds.Add(s, t->view, std::max(t->view.lastData + 1, t->view.firstData), last);
        t->view.lastData = last;
      }
    } else {
      TableView v;
      if (!ModuleCallbacks::View(s, t->ref, t->insertTarget, firstRowHasNames_, book.date1904,
                                 grid_, &v)
               .ok() ||
          v.left != t->view.left || v.names != t->view.names) {
        return false;
      }
      t->view = v;
      t->kinds = ColumnKinds();
      t->kinds.Add(s, v, v.firstData, v.lastData);
    }
    if (t->kinds.Types() != t->types) return false;
  }
  return true;
}

Error SheetModule::Finish() {
  for (Table* t : tables_) {
    if (t->deleted.empty()) continue;
    std::vector<int> gone = std::move(t->deleted);
    t->deleted.clear();
    std::sort(gone.begin(), gone.end());
    gone.erase(std::unique(gone.begin(), gone.end()), gone.end());
    xls::Workbook& book = Writable();
    const xls::Sheet& s = book.sheets()[t->sheet];
    // Rows below a deleted one move up within the table's rows and columns; what is left at
    // the bottom of the table is cleared.
    int write = gone.front();
    std::size_t next = 0;
    for (int r = gone.front(); r <= t->view.lastData; ++r) {
      if (next < gone.size() && gone[next] == r) {
        ++next;
        continue;
      }
      for (int c = t->view.left; c <= t->view.right; ++c) {
        PutCell(&book, t->sheet, write, c, s.at(r, c), &undo_);
      }
      ++write;
    }
    for (int r = write; r <= t->view.lastData; ++r) {
      for (int c = t->view.left; c <= t->view.right; ++c) {
        PutCell(&book, t->sheet, r, c, Cell(), &undo_);
      }
    }
    changed_ = true;
  }
  return Error();
}

void SheetModule::CaptureEffects(EffectLog* out) const {
  const xls::Workbook& book = **book_;
  // Every write went through PutCell, which logged its place; a place written twice is
  // logged twice, and its final state twice is harmless.
  for (const CellUndo& u : undo_) {
    const xls::Sheet& s = book.sheets()[u.sheet];
    out->SetCell(s.name(), u.row, u.column, s.at(u.row, u.column));
  }
}

void SheetModule::Undo() {
  if (!undo_.empty()) {
    xls::Workbook& book = **book_;
    for (auto it = undo_.rbegin(); it != undo_.rend(); ++it) {
      xls::Sheet& s = book.sheets()[it->sheet];
      if (it->old.isEmpty() && it->old.style == 0) {
        s.clear(it->row, it->column);
      } else {
        s.set(it->row, it->column, std::move(it->old));
      }
    }
  }
  undo_.clear();
  for (Table* t : tables_) t->deleted.clear();
}

Error SheetModule::TakeError() {
  Error e = error_;
  error_ = Error();
  return e;
}

std::string SheetModule::SheetOf(const std::string& table) const {
  for (const Table* t : tables_) {
    if (EqualNoCase(t->name, table)) return (*book_)->sheets()[t->sheet].name();
  }
  return std::string();
}

std::vector<std::string> SheetModule::ColumnsOf(const std::string& table) const {
  for (const Table* t : tables_) {
    if (EqualNoCase(t->name, table)) return t->columns;
  }
  return {};
}

}  // namespace xlsodbc
