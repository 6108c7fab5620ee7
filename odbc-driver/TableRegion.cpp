#include "odbc-driver/TableRegion.h"

#include <algorithm>

#include "odbc-driver/CellText.h"

namespace xlsodbc {

namespace {

const std::vector<xls::Cell>* RowAt(const xls::Sheet& s, int r) {
  return r < static_cast<int>(s.rows().size()) ? &s.rows()[static_cast<std::size_t>(r)] : nullptr;
}

}  // namespace

bool EqualNoCase(const std::string& a, const std::string& b) {
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i) {
    char x = a[i], y = b[i];
    if (x >= 'A' && x <= 'Z') x = static_cast<char>(x + 32);
    if (y >= 'A' && y <= 'Z') y = static_cast<char>(y + 32);
    if (x != y) return false;
  }
  return true;
}

int LastInRow(const xls::Sheet& s, int r, int left, int right) {
  const auto* row = RowAt(s, r);
  if (!row) return -1;
  for (int c = std::min(right, static_cast<int>(row->size()) - 1); c >= left; --c) {
    if (!(*row)[static_cast<std::size_t>(c)].isEmpty()) return c;
  }
  return -1;
}

int LastRowInColumns(const xls::Sheet& s, int left, int right, int maxRow) {
  // Up from the bottom, so appending to a table costs as much as its last row, not its height.
  for (int r = std::min(maxRow, static_cast<int>(s.rows().size()) - 1); r >= 0; --r) {
    if (LastInRow(s, r, left, right) >= 0) return r;
  }
  return -1;
}

void NameColumns(const xls::Sheet& s, bool firstRowHasNames, bool date1904, TableView* v) {
  v->names.clear();
  std::string text;
  for (int c = v->left; c <= v->right; ++c) {
    bool named = firstRowHasNames && CellText(s.at(v->top, c), date1904, &text) && !text.empty();
    v->names.push_back(named ? text : "F" + std::to_string(c - v->left + 1));
  }
}

TableView ResolveTable(const xls::Sheet& s, const TableRef& t, bool firstRowHasNames,
                       bool date1904) {
  TableView v;
  int top, left, bottom, right;
  if (t.hasRange) {
    top = t.range.top;
    left = t.range.left;
    bottom = -1;
    right = -1;
    int lastRow = std::min(t.range.bottom, static_cast<int>(s.rows().size()) - 1);
    for (int r = top; r <= lastRow; ++r) {
      int c = LastInRow(s, r, left, t.range.right);
      if (c >= 0) {
        bottom = r;
        right = std::max(right, c);
      }
    }
    if (bottom < 0) return v;
  } else {
    bottom = s.usedRows() - 1;
    if (bottom < 0) return v;
    right = s.usedColumns() - 1;
    top = 0;
    while (LastInRow(s, top, 0, right) < 0) ++top;
    left = right;
    for (int r = top; r <= bottom && left > 0; ++r) {
      const auto* row = RowAt(s, r);
      for (int c = 0; c < left && c < static_cast<int>(row->size()); ++c) {
        if (!(*row)[static_cast<std::size_t>(c)].isEmpty()) {
          left = c;
          break;
        }
      }
    }
  }
  v.empty = false;
  v.top = top;
  v.left = left;
  v.right = right;
  v.firstData = firstRowHasNames ? top + 1 : top;
  v.lastData = bottom;
  NameColumns(s, firstRowHasNames, date1904, &v);
  return v;
}

int FindColumn(const TableView& v, const std::string& name) {
  for (std::size_t i = 0; i < v.names.size(); ++i) {
    if (v.names[i] == name) return static_cast<int>(i);
  }
  for (std::size_t i = 0; i < v.names.size(); ++i) {
    if (EqualNoCase(v.names[i], name)) return static_cast<int>(i);
  }
  return -1;
}

std::string ColumnLetters(int column) {
  std::string out;
  for (int c = column + 1; c > 0; c = (c - 1) / 26) {
    out.insert(out.begin(), static_cast<char>('A' + (c - 1) % 26));
  }
  return out;
}

Error CheckRegion(const TableRef& t, const SheetGrid& grid) {
  if (!t.hasRange) return Error();
  const CellRange& r = t.range;
  const std::string region = ColumnLetters(r.left) + std::to_string(r.top + 1) + ":" +
                             ColumnLetters(r.right) + std::to_string(r.bottom + 1);
  if (r.right >= grid.columns) {
    return Error(ErrorKind::kTooManyColumns, "The region " + region + " reaches past column " +
                                                 grid.lastColumn + ": a sheet has " +
                                                 std::to_string(grid.columns) + " columns.");
  }
  if (r.bottom >= grid.rows) {
    return Error(ErrorKind::kSyntax, "The region " + region + " reaches past row " +
                                         std::to_string(grid.rows) + ": a sheet has " +
                                         std::to_string(grid.rows) + " rows.");
  }
  return Error();
}

Error InsertSpan(const xls::Sheet& s, const TableRef& t, bool firstRowHasNames, bool date1904,
                 const SheetGrid& grid, TableView* v) {
  *v = TableView();
  if (t.hasRange) {
    v->top = t.range.top, v->left = t.range.left, v->right = t.range.right;
  } else {
    if (s.usedRows() == 0) {
      return Error(ErrorKind::kValueCount,
                   "Table '" + t.written + "' has no columns: create it first.");
    }
    v->top = 0;
    while (LastInRow(s, v->top, 0, grid.columns - 1) < 0) ++v->top;
    const auto& header = *RowAt(s, v->top);
    v->left = 0;
    while (header[static_cast<std::size_t>(v->left)].isEmpty()) ++v->left;
    v->right = LastInRow(s, v->top, 0, grid.columns - 1);
  }
  v->empty = false;
  v->firstData = firstRowHasNames ? v->top + 1 : v->top;
  NameColumns(s, firstRowHasNames, date1904, v);
  return Error();
}

Error InsertRow(const xls::Sheet& s, const TableView& v, bool firstRowHasNames, const TableRef& t,
                const SheetGrid& grid, int* row) {
  int last = LastRowInColumns(s, v.left, v.right, grid.rows - 1);
  *row = last >= 0 ? last + 1 : (firstRowHasNames ? v.top + 1 : v.top);
  if (*row >= grid.rows) {
    return Error(ErrorKind::kTableFull, "Table '" + t.written + "' is full: a sheet holds " +
                                            std::to_string(grid.rows) + " rows.");
  }
  return Error();
}

}  // namespace xlsodbc
