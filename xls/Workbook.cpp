#include "xls/Workbook.h"

#include <algorithm>
#include <cassert>
#include <cctype>
#include <ostream>

#include "xls/Status.h"

namespace xls {

std::string Status::ToString() const {
  switch (code_) {
    case Code::kOk:
      return "OK";
    case Code::kNotFound:
      return "not found: " + message_;
    case Code::kIOError:
      return "I/O error: " + message_;
    case Code::kCorruption:
      return "corruption: " + message_;
    case Code::kUnsupported:
      return "unsupported: " + message_;
    case Code::kInvalidArgument:
      return "invalid argument: " + message_;
    case Code::kNeedsPassword:
      return "password needed: " + message_;
    case Code::kWrongPassword:
      return "wrong password: " + message_;
  }
  return message_;
}

bool Style::operator==(const Style& o) const {
  return bold == o.bold && horizontal == o.horizontal && vertical == o.vertical && left == o.left &&
         right == o.right && top == o.top && bottom == o.bottom && numberFormat == o.numberFormat;
}

void CellString::assignSlow(std::string_view s) {
  // Reached when the text goes to the heap or leaves it. The new text is copied before the
  // old block is released, since s may point into it. A block is never reused: cell text
  // seldom changes once written.
  const std::size_t n = s.size();
  if (n > kInline) {
    char* block = new char[n];
    std::memcpy(block, s.data(), n);
    release();
    std::memcpy(bytes_, &block, sizeof block);
    std::memcpy(bytes_ + sizeof block, &n, sizeof n);
    bytes_[kInline] = kOnHeap;
  } else {
    char in[kInline];
    if (n != 0) std::memcpy(in, s.data(), n);
    release();
    if (n != 0) std::memcpy(bytes_, in, n);
    bytes_[kInline] = static_cast<char>(n);
  }
}

void CellString::releaseSlow() {
  char* block;
  std::memcpy(&block, bytes_, sizeof block);
  delete[] block;
}

std::ostream& operator<<(std::ostream& os, const CellString& s) { return os << s.view(); }

Cell Cell::Text(std::string_view s, std::uint16_t style) {
  Cell c;
  c.type = CellType::kText;
  c.text = s;
  c.style = style;
  return c;
}

Cell Cell::Number(double v, std::uint16_t style) {
  Cell c;
  c.type = CellType::kNumber;
  c.number = v;
  c.style = style;
  return c;
}

Cell Cell::Boolean(bool v, std::uint16_t style) {
  Cell c;
  c.type = CellType::kBoolean;
  c.number = v ? 1 : 0;
  c.style = style;
  return c;
}

Cell Cell::Error(std::uint8_t code, std::uint16_t style) {
  Cell c;
  c.type = CellType::kError;
  c.number = code;
  c.style = style;
  return c;
}

Cell Cell::DateTime(double serial, std::uint16_t style) {
  Cell c;
  c.type = CellType::kDateTime;
  c.number = serial;
  c.style = style;
  return c;
}

bool Cell::operator==(const Cell& o) const {
  if (type != o.type || style != o.style) return false;
  switch (type) {
    case CellType::kEmpty:
      return true;
    case CellType::kText:
      return text == o.text;
    default:
      return number == o.number;
  }
}

namespace {
const Cell kEmptyCell;
}

const Cell& Sheet::at(int row, int column) const {
  assert(row >= 0 && row < kXlsxMaxRows && column >= 0 && column < kXlsxMaxColumns);
  if (row >= static_cast<int>(rows_.size())) return kEmptyCell;
  const auto& r = rows_[row];
  if (column >= static_cast<int>(r.size())) return kEmptyCell;
  return r[column];
}

Cell& Sheet::grow(int row, int column) {
  assert(row >= 0 && row < kXlsxMaxRows && column >= 0 && column < kXlsxMaxColumns);
  if (row >= static_cast<int>(rows_.size())) rows_.resize(row + 1);
  auto& r = rows_[row];
  if (column >= static_cast<int>(r.size())) {
    // A new row is likely as long as the one above it: reserving that much spares the
    // row its doublings while it fills, and never reserves more than cells already stored.
    if (r.capacity() == 0 && row > 0)
      r.reserve(std::max<std::size_t>(column + 1, rows_[row - 1].size()));
    r.resize(column + 1);
  }
  return r[column];
}

void Sheet::clear(int row, int column) {
  if (row >= static_cast<int>(rows_.size())) return;
  auto& r = rows_[row];
  if (column >= static_cast<int>(r.size())) return;
  r[column] = Cell();
  // Keep rows dense only up to their last stored cell, and the sheet up to its last row.
  while (!r.empty() && r.back().isEmpty() && r.back().style == 0) r.pop_back();
  while (!rows_.empty() && rows_.back().empty()) rows_.pop_back();
}

int Sheet::usedRows() const {
  for (int r = static_cast<int>(rows_.size()) - 1; r >= 0; --r) {
    for (const Cell& c : rows_[r]) {
      if (!c.isEmpty()) return r + 1;
    }
  }
  return 0;
}

int Sheet::usedColumns() const {
  int used = 0;
  for (const auto& r : rows_) {
    for (int c = static_cast<int>(r.size()) - 1; c >= used; --c) {
      if (!r[c].isEmpty()) {
        used = c + 1;
        break;
      }
    }
  }
  return used;
}

int Sheet::extentColumns() const {
  std::size_t widest = 0;
  for (const auto& r : rows_) widest = std::max(widest, r.size());
  return static_cast<int>(widest);
}

std::uint16_t Sheet::columnWidth(int column) const {
  auto it = columnWidths_.find(column);
  return it == columnWidths_.end() ? 0 : it->second;
}

void Sheet::setColumnWidth(int column, std::uint16_t width256) {
  if (width256 == 0) {
    columnWidths_.erase(column);
  } else {
    columnWidths_[column] = width256;
  }
}

Workbook::Workbook() { styles_.emplace_back(); }

namespace {
bool EqualIgnoringAsciiCase(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i) {
    unsigned char x = a[i], y = b[i];
    if (x >= 'A' && x <= 'Z') x += 32;
    if (y >= 'A' && y <= 'Z') y += 32;
    if (x != y) return false;
  }
  return true;
}
}  // namespace

Sheet* Workbook::findSheet(std::string_view name) {
  for (Sheet& s : sheets_) {
    if (s.name() == name) return &s;
  }
  for (Sheet& s : sheets_) {
    if (EqualIgnoringAsciiCase(s.name(), name)) return &s;
  }
  return nullptr;
}

const Sheet* Workbook::findSheet(std::string_view name) const {
  return const_cast<Workbook*>(this)->findSheet(name);
}

Sheet& Workbook::addSheet(std::string name) {
  sheets_.emplace_back(std::move(name));
  return sheets_.back();
}

void Workbook::removeSheet(std::size_t index) {
  if (index >= sheets_.size()) return;
  sheets_.erase(sheets_.begin() + static_cast<std::ptrdiff_t>(index));
  const int gone = static_cast<int>(index);
  std::vector<DefinedName> kept;
  for (DefinedName& n : names_) {
    if (n.sheet == gone || n.scopeSheet == gone) continue;
    if (n.sheet > gone) --n.sheet;
    if (n.scopeSheet > gone) --n.scopeSheet;
    kept.push_back(std::move(n));
  }
  names_.swap(kept);
}

const DefinedName* Workbook::findName(std::string_view name, int scopeSheet) const {
  auto equalIgnoringCase = [](std::string_view a, std::string_view b) {
    return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) {
             return std::tolower(static_cast<unsigned char>(x)) ==
                    std::tolower(static_cast<unsigned char>(y));
           });
  };
  const DefinedName* best = nullptr;
  int bestRank = 0;  // 4 scoped exact, 3 scoped folded, 2 workbook exact, 1 workbook folded
  for (const DefinedName& n : names_) {
    if (n.scopeSheet != -1 && n.scopeSheet != scopeSheet) continue;
    int rank = n.name == name ? 2 : equalIgnoringCase(n.name, name) ? 1 : 0;
    if (rank == 0) continue;
    if (n.scopeSheet != -1) rank += 2;
    if (rank > bestRank) {
      best = &n;
      bestRank = rank;
    }
  }
  return best;
}

bool Workbook::isValidSheetName(std::string_view name) {
  // Length is counted in characters; UTF-8 continuation bytes do not count.
  std::size_t chars = 0;
  for (unsigned char ch : name) {
    if ((ch & 0xC0) != 0x80) ++chars;
    switch (ch) {
      case ':':
      case '\\':
      case '/':
      case '?':
      case '*':
      case '[':
      case ']':
        return false;
      default:
        break;
    }
  }
  if (chars < 1 || chars > 31) return false;
  return name.front() != '\'' && name.back() != '\'';
}

std::uint16_t Workbook::addStyle(const Style& style) {
  for (std::size_t i = 0; i < styles_.size(); ++i) {
    if (styles_[i] == style) return static_cast<std::uint16_t>(i);
  }
  styles_.push_back(style);
  return static_cast<std::uint16_t>(styles_.size() - 1);
}

}  // namespace xls
