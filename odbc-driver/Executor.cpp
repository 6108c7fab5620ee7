#include "odbc-driver/Executor.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "odbc-driver/CellText.h"
#include "odbc-driver/Journal.h"
#include "odbc-driver/TableRegion.h"
#include "odbc-driver/Where.h"
#include "xls/Strings.h"

namespace xlsodbc {

namespace {

using xls::Cell;
using xls::Sheet;
using xls::Workbook;

std::string Quote(const std::string& name) { return "'" + name + "'"; }

// A name as a message shows it: a generated 32,000-character name would bury the message
// (and overflow the buffers clients give SQLGetDiagRec).
std::string QuoteShort(const std::string& name) {
  if (name.size() <= 64) return Quote(name);
  std::size_t cut = 60;
  while (cut > 0 && (static_cast<unsigned char>(name[cut]) & 0xC0) == 0x80) --cut;
  return "'" + name.substr(0, cut) + "...'";
}

Error TableNotFound(const TableRef& t) {
  return Error(ErrorKind::kTableNotFound,
               "Table " + Quote(t.sheet) + " not found: the workbook has no sheet of that name.");
}

const std::vector<Cell>* RowAt(const Sheet& s, int r) {
  return r < static_cast<int>(s.rows().size()) ? &s.rows()[static_cast<std::size_t>(r)] : nullptr;
}

// The table a query reads. A sheet with no values has the used range A1, so it reads as one
// column, F1, and no rows; an empty region keeps having no columns, which is what the
// spreadsheet library sees of an empty or dropped sheet.
TableView ResolveForReading(const Sheet& s, const TableRef& t, bool firstRowHasNames,
                            bool date1904) {
  TableView v = ResolveTable(s, t, firstRowHasNames, date1904);
  if (v.empty && !t.hasRange) {
    v.empty = false;
    v.firstData = firstRowHasNames ? 1 : 0;
    v.lastData = v.firstData - 1;
    v.right = 0;
    v.names = {"F1"};
  }
  return v;
}

Error ColumnNotFound(const std::string& col, const TableRef& t) {
  return Error(ErrorKind::kColumnNotFound,
               "Column " + Quote(col) + " not found in table " + Quote(t.written) + ".");
}

Error Bind(const Value& in, const ExecOptions& o, Value* out) {
  if (in.kind != Value::Kind::kParameter) {
    *out = in;
    return Error();
  }
  if (!o.parameters || in.parameter >= static_cast<int>(o.parameters->size())) {
    return Error(ErrorKind::kParameter,
                 "No value was bound for parameter " + std::to_string(in.parameter + 1) + ".");
  }
  *out = (*o.parameters)[static_cast<std::size_t>(in.parameter)];
  return Error();
}

std::string WithCommas(std::size_t n) {
  std::string digits = std::to_string(n), out;
  for (std::size_t i = 0; i < digits.size(); ++i) {
    if (i > 0 && (digits.size() - i) % 3 == 0) out.push_back(',');
    out.push_back(digits[i]);
  }
  return out;
}

bool IsAscii(std::string_view s) {
  for (char c : s) {
    if (static_cast<unsigned char>(c) >= 0x80) return false;
  }
  return true;
}

// Text as the codec stores it: UTF-16 code units, invalid UTF-8 each byte a U+FFFD. *units
// is the length a cell counts; *stored the UTF-8 that reads back.
void AsStored(std::string_view text, std::string* stored, std::size_t* units) {
  std::vector<std::uint16_t> utf16;
  xls::Utf8ToUtf16(text, &utf16);
  *units = utf16.size();
  stored->clear();
  for (std::size_t i = 0; i < utf16.size(); ++i) {
    std::uint32_t u = utf16[i];
    if (u >= 0xD800 && u <= 0xDBFF && i + 1 < utf16.size()) {  // always paired here
      u = 0x10000 + ((u - 0xD800) << 10) + (utf16[++i] - 0xDC00u);
    }
    xls::AppendUtf8(u, stored);
  }
}

}  // namespace

Error CellWrites::Set(int row, int column, const Value& v, bool keepStyle,
                      const std::string& columnName) {
  if (row >= grid_.rows) {
    return Error(ErrorKind::kTableFull,
                 "No row left for column " + QuoteShort(columnName) + ": a sheet holds " +
                     WithCommas(static_cast<std::size_t>(grid_.rows)) + " rows.");
  }
  if (column >= grid_.columns) {
    return Error(ErrorKind::kTooManyColumns,
                 "Column " + QuoteShort(columnName) + " would lie past column " + grid_.lastColumn +
                     ": a sheet has " + std::to_string(grid_.columns) + " columns.");
  }
  // Checked first, then made where it is queued: a row of cells costs no temporaries.
  if (v.kind == Value::Kind::kNumber) {
    if (!std::isfinite(v.number)) {
      return Error(ErrorKind::kInvalidValue, "The value for column " + QuoteShort(columnName) +
                                                 " is not a finite number: a cell cannot "
                                                 "hold NaN or infinity.");
    }
    Write& w = Queue(row, column, keepStyle);
    w.cell.type = xls::CellType::kNumber;
    w.cell.number = v.number;
  } else if (v.kind == Value::Kind::kText) {
    if (IsAscii(v.text) && v.text.size() <= xls::kMaxCellChars) {
      Write& w = Queue(row, column, keepStyle);
      w.cell.type = xls::CellType::kText;
      w.cell.text = v.text;
    } else {
      std::string stored;
      std::size_t units;
      AsStored(v.text, &stored, &units);
      if (units > xls::kMaxCellChars) {
        return Error(ErrorKind::kStringTooLong,
                     "The text for column " + QuoteShort(columnName) + " has " + WithCommas(units) +
                         " characters; a cell holds at most " + WithCommas(xls::kMaxCellChars) +
                         " (counted in UTF-16 code units).");
      }
      Write& w = Queue(row, column, keepStyle);
      w.cell.type = xls::CellType::kText;
      w.cell.text = stored;
    }
  } else {
    Queue(row, column, keepStyle);  // cleared
  }
  return Error();
}

CellWrites::Write& CellWrites::Queue(int row, int column, bool keepStyle) {
  Write& w = writes_.emplace_back();
  w.row = row;
  w.column = column;
  w.keepStyle = keepStyle;
  return w;
}

void CellWrites::ApplyTo(Sheet* sheet, EffectLog* effects) {
  if (effects && !writes_.empty()) effects->NameSheet(sheet->name());
  for (Write& w : writes_) {
    if (w.cell.isEmpty()) {
      sheet->clear(w.row, w.column);
      if (effects) effects->AddCell(w.row, w.column, sheet->at(w.row, w.column));
      continue;
    }
    Cell& cell = sheet->mutableAt(w.row, w.column);
    if (w.keepStyle) w.cell.style = cell.style;
    cell = std::move(w.cell);
    if (effects) effects->AddCell(w.row, w.column, cell);
  }
  writes_.clear();
}

Error CheckNewSheetName(const std::string& name) {
  std::string stored;
  std::size_t units;
  AsStored(name, &stored, &units);
  if (stored != name || !Workbook::isValidSheetName(name)) {
    return Error(ErrorKind::kInvalidValue,
                 "Cannot create table " + QuoteShort(name) +
                     ": a sheet name has 1 to 31 characters of UTF-8, none of : \\ / ? * [ ], "
                     "and does not begin or end with an apostrophe.");
  }
  return Error();
}

namespace {

// ---- WHERE ----

Error MatchingRows(const Sheet& s, const TableView& v, const Statement& st, const ExecOptions& o,
                   bool date1904, std::vector<int>* rows) {
  RowFilter filter;
  Error e = filter.Compile(
      st.where.get(),
      [&](const std::string& name, int* index) {
        *index = FindColumn(v, name);
        return *index < 0 ? ColumnNotFound(name, st.table) : Error();
      },
      [&](const Value& marker, Value* bound) { return Bind(marker, o, bound); });
  if (!e.ok()) return e;
  for (int r = v.firstData; r <= v.lastData; ++r) {
    if (filter.Matches(s, r, v.left, date1904)) rows->push_back(r);
  }
  return Error();
}

// ---- SELECT ----

// Rows of one sheet, read from a snapshot of the workbook that the result shares.
class SheetResult final : public ResultSet {
 public:
  SheetResult(std::shared_ptr<const Workbook> book, const Sheet* sheet,
              std::vector<ColumnInfo> cols, std::vector<int> columnIndex, std::vector<int> rows)
      : book_(std::move(book)),
        sheet_(sheet),
        cols_(std::move(cols)),
        columnIndex_(std::move(columnIndex)),
        rows_(std::move(rows)) {}

  const std::vector<ColumnInfo>& columns() const override { return cols_; }
  long rowCount() const override { return static_cast<long>(rows_.size()); }
  bool value(long row, int column, std::string* out) const override {
    return CellText(sheet_->at(rows_[static_cast<std::size_t>(row)],
                               columnIndex_[static_cast<std::size_t>(column)]),
                    book_->date1904, out);
  }
  bool text(long row, int column, char* buf, std::string* scratch,
            std::string_view* out) const override {
    // The row's cells directly, not through Sheet::at: this runs once a cell fetched.
    const auto& cells = sheet_->rows();
    const auto r = static_cast<std::size_t>(rows_[static_cast<std::size_t>(row)]);
    const auto c = static_cast<std::size_t>(columnIndex_[static_cast<std::size_t>(column)]);
    if (r >= cells.size() || c >= cells[r].size()) return false;
    const xls::Cell& cell = cells[r][c];
    switch (cell.type) {
      case xls::CellType::kEmpty:
        return false;
      case xls::CellType::kText:
        *out = cell.text;
        return true;
      case xls::CellType::kNumber:
        static_assert(kTextBuffer >= kNumberTextMax, "a number's text fits the buffer");
        *out = std::string_view(buf, FormatNumberTo(cell.number, buf));
        return true;
      default:
        CellText(cell, book_->date1904, scratch);
        *out = *scratch;
        return true;
    }
  }

 private:
  std::shared_ptr<const Workbook> book_;
  const Sheet* sheet_;
  std::vector<ColumnInfo> cols_;
  std::vector<int> columnIndex_;
  std::vector<int> rows_;
};

Error RunSelect(const Statement& st, const ExecOptions& o, const std::shared_ptr<Workbook>& book,
                Outcome* out) {
  const TableRef t = NamedTable(*book, st.table);
  const Sheet* s = book->findSheet(t.sheet);
  if (!s) return TableNotFound(t);
  TableView v = ResolveForReading(*s, t, o.firstRowHasNames, book->date1904);
  std::vector<ColumnInfo> cols;
  std::vector<int> index;
  auto add = [&](int i) {
    ColumnInfo c;
    c.name = v.names[static_cast<std::size_t>(i)];
    c.table = s->name();
    cols.push_back(std::move(c));
    index.push_back(v.left + i);
  };
  if (st.columns.empty()) {
    for (int i = 0; i < static_cast<int>(v.names.size()); ++i) add(i);
  } else {
    for (const std::string& name : st.columns) {
      int i = FindColumn(v, name);
      if (i < 0) return ColumnNotFound(name, st.table);
      add(i);
    }
  }
  std::vector<int> rows;
  if (!v.empty) {
    Error e = MatchingRows(*s, v, st, o, book->date1904, &rows);
    if (!e.ok()) return e;
  }
  out->result =
      std::make_unique<SheetResult>(book, s, std::move(cols), std::move(index), std::move(rows));
  return Error();
}

// ---- changes ----

// Write access to the model, copying it first while a result still reads the old one.
// Also where a change's effects go, when the caller keeps them.
class Writable {
 public:
  Writable(std::shared_ptr<Workbook>* book, EffectLog* effects) : book_(book), effects_(effects) {}
  Workbook& get() {
    if (book_->use_count() > 1) *book_ = std::make_shared<Workbook>(**book_);
    return **book_;
  }
  EffectLog* effects() const { return effects_; }

 private:
  std::shared_ptr<Workbook>* book_;
  EffectLog* effects_;
};

// Whether the statement names the table bare (`t`, [t]), not as a sheet ([t$]) or a region.
bool WrittenAsName(const TableRef& t) {
  if (t.hasRange) return false;
  std::string_view w = t.written;
  if (!w.empty() && (w.back() == ']' || w.back() == '`')) w.remove_suffix(1);
  return w.empty() || w.back() != '$';
}

// Whether Excel takes text as a defined name: a letter, '_' or '\' first, then letters,
// digits, '_', '.' or '\' (any non-ASCII character counts as a letter), and not a cell
// reference in either notation (B12, iv1, R, C, R1C1, rc2).
bool IsDefinedNameText(std::string_view text) {
  auto letter = [](char c) {
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') ||
           static_cast<unsigned char>(c) >= 0x80;
  };
  auto digit = [](char c) { return c >= '0' && c <= '9'; };
  if (text.empty() || text.size() > 255 || !(letter(text[0]) || text[0] == '_' || text[0] == '\\'))
    return false;
  for (char c : text) {
    if (!letter(c) && !digit(c) && c != '_' && c != '.' && c != '\\') return false;
  }
  // A1 notation: one to three letters up to XFD, then a row number up to 1,048,576.
  std::size_t i = 0;
  long column = 0, row = 0;
  while (i < text.size() && i < 3 && letter(text[i]) && static_cast<unsigned char>(text[i]) < 0x80)
    column = column * 26 + ((text[i++] | 0x20) - 'a' + 1);
  std::size_t digits = 0;
  while (i < text.size() && digit(text[i]) && digits < 8)
    row = row * 10 + (text[i++] - '0'), ++digits;
  if (i == text.size() && column >= 1 && column <= 16384 && digits > 0 && row >= 1 &&
      row <= 1048576)
    return false;
  // R1C1 notation: R[n][C[n]] or C[n].
  i = 0;
  auto number = [&] {
    while (i < text.size() && digit(text[i])) ++i;
  };
  if ((text[0] | 0x20) == 'r') {
    ++i;
    number();
    if (i < text.size() && (text[i] | 0x20) == 'c') ++i, number();
  } else if ((text[0] | 0x20) == 'c') {
    ++i;
    number();
  }
  return i != text.size();
}

Error RunCreate(const Statement& st, const SheetGrid& grid, Writable w, const Workbook& book,
                Outcome* out) {
  const TableRef& t = st.table;
  for (std::size_t i = 0; i < st.columns.size(); ++i) {
    for (std::size_t j = 0; j < i; ++j) {
      if (EqualNoCase(st.columns[i], st.columns[j])) {
        return Error(ErrorKind::kInvalidValue,
                     "Column " + Quote(st.columns[i]) + " is declared twice in CREATE TABLE.");
      }
    }
  }
  int top = t.hasRange ? t.range.top : 0;
  int left = t.hasRange ? t.range.left : 0;
  int width = static_cast<int>(st.columns.size());
  if (left + width > grid.columns || (t.hasRange && left + width - 1 > t.range.right)) {
    return Error(ErrorKind::kTooManyColumns,
                 "Table " + Quote(t.written) + " cannot hold " + std::to_string(width) +
                     " columns: " +
                     (left + width > grid.columns
                          ? std::string("a sheet ends at column ") + grid.lastColumn + "."
                          : std::string("the region is narrower.")));
  }
  // The header as it will be stored, for comparing with a header already there.
  CellWrites header(grid);
  std::vector<std::string> names(st.columns.size());
  for (int i = 0; i < width; ++i) {
    const std::string& name = st.columns[static_cast<std::size_t>(i)];
    Error e = header.Set(top, left + i, Value{Value::Kind::kText, name, 0, 0}, false, name);
    if (!e.ok()) return e;
    std::size_t units;
    AsStored(name, &names[static_cast<std::size_t>(i)], &units);
  }
  const Sheet* existing = book.findSheet(t.sheet);
  if (!existing) {
    Error e = CheckNewSheetName(t.sheet);
    if (!e.ok()) return e;
  }
  if (existing && existing->usedRows() > 0) {
    // A non-empty sheet: the statement may only declare a table that is already there, with
    // these names in this order in its header row, either at the region's top row or at the
    // top of the values in its columns (the spreadsheet library declares its table again
    // over [Sheet1$A4:IV65536] before each save, with the header in row 1).
    int right = t.hasRange ? t.range.right : grid.columns - 1;
    TableView used = ResolveTable(*existing, t, true, book.date1904);
    if (!t.hasRange) left = used.left, top = used.top;
    auto headerIs = [&](int row) {
      std::string text;
      for (int i = 0; i < width; ++i) {
        if (!CellText(existing->at(row, left + i), book.date1904, &text) ||
            text != names[static_cast<std::size_t>(i)]) {
          return false;
        }
      }
      return left + width > right || existing->at(row, left + width).isEmpty();
    };
    int firstInColumns = -1;
    for (int r = 0; r < static_cast<int>(existing->rows().size()); ++r) {
      if (LastInRow(*existing, r, left, right) >= 0) {
        firstInColumns = r;
        break;
      }
    }
    if (headerIs(top) || (firstInColumns >= 0 && headerIs(firstInColumns))) {
      out->rowCount = 0;
      return Error();
    }
    // Columns that hold nothing down to the region's bottom take a new table, beside the
    // others on the sheet; anything else is a different table in the way.
    int bottom = t.hasRange ? t.range.bottom : grid.rows - 1;
    if (!t.hasRange || LastRowInColumns(*existing, left, right, bottom) >= 0) {
      return Error(ErrorKind::kTableExists, "Table " + Quote(t.written) + " already exists.");
    }
  }
  Workbook& wb = w.get();
  Sheet* s = wb.findSheet(t.sheet);
  if (!s) {
    s = &wb.addSheet(t.sheet);
    if (w.effects()) w.effects()->AddSheet(t.sheet);
  }
  header.ApplyTo(s, w.effects());
  // As the Windows driver does, a table created by a bare name is also a defined name of
  // the workbook, so that catalog clients list it as a TABLE. It covers the header through
  // the sheet's last row: reading through the name reads what reading the sheet does (and
  // a sheet of the same name comes first anyway). A name already there is the user's: kept.
  if (WrittenAsName(t) && IsDefinedNameText(t.sheet) && !wb.findName(t.sheet)) {
    xls::DefinedName name;
    name.name = t.sheet;
    name.sheet = static_cast<int>(s - wb.sheets().data());
    name.firstRow = top;
    name.lastRow = grid.rows - 1;
    name.firstColumn = left;
    name.lastColumn = left + width - 1;
    if (w.effects()) {
      w.effects()->AddName(s->name(), name.name,
                           CellRange{name.firstRow, name.firstColumn, name.lastRow,
                                     name.lastColumn});
    }
    wb.addName(std::move(name));
  }
  out->changed = true;
  out->rowCount = 0;
  return Error();
}

Error RunInsert(const Statement& st, const ExecOptions& o, Writable w, const Workbook& book,
                Outcome* out) {
  const TableRef t = NamedTable(book, st.table);
  const Sheet* s = book.findSheet(t.sheet);
  if (!s) return TableNotFound(t);
  // The statement's own values are read where they are; only parameters are looked up.
  std::vector<const Value*> values(st.values.size());
  for (std::size_t i = 0; i < values.size(); ++i) {
    const Value& v = st.values[i];
    if (v.kind != Value::Kind::kParameter) {
      values[i] = &v;
      continue;
    }
    if (!o.parameters || v.parameter >= static_cast<int>(o.parameters->size())) {
      Value unused;
      return Bind(v, o, &unused);  // the error for a parameter without a value
    }
    values[i] = &(*o.parameters)[static_cast<std::size_t>(v.parameter)];
  }
  // Where the table's columns lie; for a used range, the header row's extent.
  int top, left, right;
  if (t.hasRange) {
    top = t.range.top, left = t.range.left, right = t.range.right;
  } else {
    int bottom = s->usedRows() - 1;
    if (bottom < 0) {
      return Error(ErrorKind::kValueCount,
                   "Table " + Quote(t.written) + " has no columns: create it first.");
    }
    top = 0;
    while (LastInRow(*s, top, 0, o.grid.columns - 1) < 0) ++top;
    const auto& header = *RowAt(*s, top);
    left = 0;
    while (header[static_cast<std::size_t>(left)].isEmpty()) ++left;
    right = LastInRow(*s, top, 0, o.grid.columns - 1);
  }
  std::vector<int> target(values.size());
  if (st.columns.empty()) {
    if (static_cast<int>(values.size()) > right - left + 1) {
      return Error(ErrorKind::kValueCount, "INSERT gives " + std::to_string(values.size()) +
                                               " values but table " + Quote(t.written) + " has " +
                                               std::to_string(right - left + 1) + " columns.");
    }
    for (std::size_t i = 0; i < values.size(); ++i) target[i] = left + static_cast<int>(i);
  } else {
    TableView v;
    v.top = top, v.left = left, v.right = right;
    int lastHeader = LastInRow(*s, top, left, right);
    v.right = lastHeader;
    NameColumns(*s, o.firstRowHasNames, book.date1904, &v);
    for (std::size_t i = 0; i < values.size(); ++i) {
      int idx = FindColumn(v, st.columns[i]);
      if (idx < 0) return ColumnNotFound(st.columns[i], t);
      target[i] = left + idx;
    }
  }
  // Just below the last record in the table's columns: never over a value.
  int last = LastRowInColumns(*s, left, right, o.grid.rows - 1);
  int row = last >= 0 ? last + 1 : (o.firstRowHasNames ? top + 1 : top);
  if (row >= o.grid.rows) {
    return Error(ErrorKind::kTableFull,
                 "Table " + Quote(t.written) + " is full: a sheet ends at row " +
                     WithCommas(static_cast<std::size_t>(o.grid.rows)) + ".");
  }
  // A column's name only appears in a message: it is worked out when a value is refused,
  // and that value is then checked again under it (Set is the same for any name).
  auto columnName = [&](std::size_t i) {
    std::string name;
    if (!st.columns.empty()) {
      name = st.columns[i];
    } else if (!CellText(s->at(top, target[i]), book.date1904, &name) || name.empty()) {
      name = "F" + std::to_string(target[i] - left + 1);
    }
    return name;
  };
  const std::string unnamed;
  CellWrites writes(o.grid);
  writes.Reserve(values.size());
  for (std::size_t i = 0; i < values.size(); ++i) {
    if (values[i]->kind == Value::Kind::kNull) continue;
    if (!writes.Set(row, target[i], *values[i], false, unnamed).ok()) {
      return CellWrites(o.grid).Set(row, target[i], *values[i], false, columnName(i));
    }
  }
  writes.ApplyTo(w.get().findSheet(t.sheet), w.effects());
  out->changed = true;
  out->rowCount = 1;
  return Error();
}

Error RunUpdate(const Statement& st, const ExecOptions& o, Writable w, const Workbook& book,
                Outcome* out) {
  const TableRef t = NamedTable(book, st.table);
  const Sheet* s = book.findSheet(t.sheet);
  if (!s) return TableNotFound(t);
  TableView v = ResolveTable(*s, t, o.firstRowHasNames, book.date1904);
  std::vector<int> cols;
  std::vector<Value> values(st.values.size());
  for (std::size_t i = 0; i < st.columns.size(); ++i) {
    int idx = FindColumn(v, st.columns[i]);
    if (idx < 0) return ColumnNotFound(st.columns[i], st.table);
    cols.push_back(v.left + idx);
    Error e = Bind(st.values[i], o, &values[i]);
    if (!e.ok()) return e;
  }
  // The values are checked even when no row matches: the statement is refused either way.
  CellWrites probe(o.grid);
  for (std::size_t i = 0; i < cols.size(); ++i) {
    Error e = probe.Set(0, cols[i], values[i], true, st.columns[i]);
    if (!e.ok()) return e;
  }
  std::vector<int> rows;
  Error e = MatchingRows(*s, v, st, o, book.date1904, &rows);
  if (!e.ok()) return e;
  out->rowCount = static_cast<long>(rows.size());
  if (rows.empty()) return Error();
  CellWrites writes(o.grid);
  for (int r : rows) {
    for (std::size_t i = 0; i < cols.size(); ++i) {
      Error e = writes.Set(r, cols[i], values[i], true, st.columns[i]);  // keeps the format
      if (!e.ok()) return e;
    }
  }
  writes.ApplyTo(w.get().findSheet(t.sheet), w.effects());
  out->changed = true;
  return Error();
}

// The defined name that DROP TABLE of a bare name drops with the table: the workbook-wide
// name of that text over the sheet the table lies on (the one CREATE TABLE made).
const xls::DefinedName* NameDroppedWith(const Workbook& book, const TableRef& written,
                                        const Sheet* s) {
  if (!WrittenAsName(written)) return nullptr;
  const xls::DefinedName* n = book.findName(written.sheet);
  if (!n || n->builtin || n->sheet != static_cast<int>(s - book.sheets().data())) return nullptr;
  return n;
}

Error RunDrop(const Statement& st, Writable w, const Workbook& book, Outcome* out) {
  const TableRef t = NamedTable(book, st.table);
  const Sheet* s = book.findSheet(t.sheet);
  if (!s) return TableNotFound(t);
  const bool dropsName = NameDroppedWith(book, st.table, s) != nullptr;
  CellRange r{0, 0, xls::kXlsxMaxRows - 1, xls::kXlsxMaxColumns - 1};
  if (t.hasRange) r = t.range;
  // Count what is there first, so that dropping an empty region changes nothing.
  long cleared = 0;
  bool stored = false;
  int lastRow = std::min(r.bottom, static_cast<int>(s->rows().size()) - 1);
  for (int row = r.top; row <= lastRow; ++row) {
    const auto& cells = *RowAt(*s, row);
    bool any = false;
    for (int c = r.left; c <= r.right && c < static_cast<int>(cells.size()); ++c) {
      const Cell& cell = cells[static_cast<std::size_t>(c)];
      if (!cell.isEmpty()) any = true;
      if (!cell.isEmpty() || cell.style != 0) stored = true;
    }
    cleared += any;
  }
  out->rowCount = cleared;
  if (!stored && !dropsName) return Error();
  Workbook& wb = w.get();
  Sheet* ws = wb.findSheet(t.sheet);
  if (dropsName) {
    const xls::DefinedName* n = NameDroppedWith(wb, st.table, ws);
    if (w.effects()) w.effects()->RemoveName(n->name);
    wb.removeName(n);
  }
  out->changed = true;
  if (!stored) return Error();
  if (!t.hasRange) {
    ws->clearAll();
    if (w.effects()) w.effects()->ClearSheet(ws->name());
  } else {
    ClearRange(ws, r);
    if (w.effects()) w.effects()->ClearRange(ws->name(), r);
  }
  return Error();
}

}  // namespace

Error Execute(const Statement& st, const ExecOptions& options, std::shared_ptr<Workbook>* book,
              Outcome* out) {
  *out = Outcome();
  // Each statement reads the model as it is and calls Writable::get() only after its last
  // read; if that copies, the old model stays alive in the result that shares it.
  const Workbook& before = **book;
  Writable w(book, options.effects);
  Error e = CheckRegion(st.table, options.grid);
  if (!e.ok()) return e;
  switch (st.kind) {
    case Statement::Kind::kSelect:
      return RunSelect(st, options, *book, out);
    case Statement::Kind::kCreate:
      return RunCreate(st, options.grid, w, before, out);
    case Statement::Kind::kInsert:
      return RunInsert(st, options, w, before, out);
    case Statement::Kind::kUpdate:
      return RunUpdate(st, options, w, before, out);
    case Statement::Kind::kDrop:
      return RunDrop(st, w, before, out);
  }
  return Error(ErrorKind::kSyntax, "Unknown statement.");
}

TableRef NamedTable(const Workbook& book, const TableRef& t) {
  if (t.hasRange || book.findSheet(t.sheet)) return t;
  const xls::DefinedName* n = book.findName(t.sheet);
  if (!n || n->builtin || n->sheet < 0 || n->sheet >= static_cast<int>(book.sheets().size())) {
    return t;
  }
  TableRef named = t;
  named.sheet = book.sheets()[static_cast<std::size_t>(n->sheet)].name();
  named.hasRange = true;
  named.range = CellRange{n->firstRow, n->firstColumn, n->lastRow, n->lastColumn};
  return named;
}

std::vector<std::string> TableColumnNames(const Workbook& book, const TableRef& table,
                                          bool firstRowHasNames) {
  const TableRef t = NamedTable(book, table);
  const Sheet* s = book.findSheet(t.sheet);
  if (!s) return {};
  return ResolveForReading(*s, t, firstRowHasNames, book.date1904).names;
}

}  // namespace xlsodbc
