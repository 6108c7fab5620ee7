// The workbook model shared by the .xls codec, the ODBC driver and the automation
// server: ordered sheets of cells within the .xlsx grid (1,048,576 rows x 16,384 columns;
// .xls files hold 65,536 x 256), a table of cell styles, column widths and defined names.
//
// Ownership: a Workbook owns its sheets by value; a Sheet owns its cells by value.
// References returned by accessors stay valid until the next call that adds or
// removes a sheet (Workbook) or writes a cell of the same row (Sheet).
// Text is UTF-8 throughout. Rows and columns are 0-based here (A1 is row 0, column 0).
#pragma once

#include <cstdint>
#include <cstring>
#include <iosfwd>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace xls {

// The .xls grid. A sheet may hold up to the .xlsx grid below; .xls files take this one.
constexpr int kMaxRows = 65536;
constexpr int kMaxColumns = 256;
constexpr int kXlsxMaxRows = 1048576;
constexpr int kXlsxMaxColumns = 16384;

enum class CellType : std::uint8_t { kEmpty, kText, kNumber, kBoolean, kError, kDateTime };
enum class HAlign : std::uint8_t {
  kGeneral,
  kLeft,
  kCenter,
  kRight,
  kFill,
  kJustify,
  kCenterAcross
};
enum class VAlign : std::uint8_t { kTop, kCenter, kBottom, kJustify };
enum class Border : std::uint8_t { kNone, kHair, kThin, kMedium, kThick };

struct Style {
  bool bold = false;
  HAlign horizontal = HAlign::kGeneral;
  VAlign vertical = VAlign::kBottom;
  Border left = Border::kNone;
  Border right = Border::kNone;
  Border top = Border::kNone;
  Border bottom = Border::kNone;
  // Empty means "General". A date/time format (for example "yyyy-mm-dd hh:mm:ss") makes
  // a number cell a date/time cell. Under an elapsed-time format ([h]:mm, [mm]:ss, [ss])
  // a number cell holds the count Excel shows: 36 hours, where the file holds 1.5 days.
  std::string numberFormat;

  bool operator==(const Style& o) const;
  bool operator!=(const Style& o) const { return !(*this == o); }
};

// A cell's text, UTF-8: up to kInline bytes are kept in the object itself, longer text in
// one heap block it owns. Most cell text is short, and a full sheet holds a million text
// cells: in place, they cost neither an allocation each nor the 32 bytes of a std::string.
// Unaligned on purpose (alignment 1), so a Cell packs it beside its other members. A
// moved-from CellString is empty.
class CellString {
 public:
  static constexpr std::size_t kInline = 20;

  CellString() { bytes_[kInline] = 0; }
  CellString(std::string_view s) {  // implicit, as std::string's is
    bytes_[kInline] = 0;
    assign(s);
  }
  CellString(const CellString& o) : CellString(o.view()) {}
  CellString(CellString&& o) noexcept {
    std::memcpy(bytes_, o.bytes_, sizeof bytes_);
    o.bytes_[kInline] = 0;
  }
  CellString& operator=(const CellString& o) {
    if (this != &o) assign(o.view());
    return *this;
  }
  CellString& operator=(CellString&& o) noexcept {
    if (this != &o) {
      release();
      std::memcpy(bytes_, o.bytes_, sizeof bytes_);
      o.bytes_[kInline] = 0;
    }
    return *this;
  }
  CellString& operator=(std::string_view s) {
    assign(s);
    return *this;
  }
  ~CellString() { release(); }

  void assign(std::string_view s) {
    if (s.size() <= kInline && !onHeap()) {
      if (!s.empty()) std::memmove(bytes_, s.data(), s.size());  // s may be this very text
      bytes_[kInline] = static_cast<char>(s.size());
    } else {
      assignSlow(s);
    }
  }
  void clear() {
    release();
    bytes_[kInline] = 0;
  }

  bool empty() const { return size() == 0; }
  std::size_t size() const {
    if (!onHeap()) return static_cast<unsigned char>(bytes_[kInline]);
    std::size_t n;
    std::memcpy(&n, bytes_ + sizeof(char*), sizeof n);
    return n;
  }
  const char* data() const {
    if (!onHeap()) return bytes_;
    const char* p;
    std::memcpy(&p, bytes_, sizeof p);
    return p;
  }
  std::string_view view() const { return std::string_view(data(), size()); }
  operator std::string_view() const { return view(); }
  std::string str() const { return std::string(view()); }

  friend bool operator==(const CellString& a, std::string_view b) { return a.view() == b; }
  friend bool operator==(const CellString& a, const CellString& b) { return a.view() == b.view(); }

 private:
  static constexpr char kOnHeap = static_cast<char>(0xFF);
  bool onHeap() const { return bytes_[kInline] == kOnHeap; }
  void release() {
    if (onHeap()) releaseSlow();
  }
  void assignSlow(std::string_view s);
  void releaseSlow();

  // In place: the text, then its length in bytes_[kInline]. On the heap: the block's
  // address and the text's length, then kOnHeap in bytes_[kInline].
  char bytes_[kInline + 1];
};
static_assert(2 * sizeof(char*) <= CellString::kInline, "a heap block's address and length fit");

std::ostream& operator<<(std::ostream& os, const CellString& s);

// The members are ordered so a cell takes 32 bytes: a full sheet holds millions of them.
struct Cell {
  // kNumber: the value; kDateTime: the serial day number in the workbook's date system;
  // kBoolean: 0 or 1; kError: the BIFF error code (0x07 #DIV/0!, 0x2A #N/A, ...).
  double number = 0;
  std::uint16_t style = 0;  // index into Workbook::styles(); 0 is the default style
  CellType type = CellType::kEmpty;
  CellString text;  // kText only

  static Cell Text(std::string_view s, std::uint16_t style = 0);
  static Cell Number(double v, std::uint16_t style = 0);
  static Cell Boolean(bool v, std::uint16_t style = 0);
  static Cell Error(std::uint8_t code, std::uint16_t style = 0);
  static Cell DateTime(double serial, std::uint16_t style = 0);

  bool isEmpty() const { return type == CellType::kEmpty; }
  bool operator==(const Cell& o) const;
};
static_assert(sizeof(void*) != 8 || sizeof(Cell) == 32, "a cell stays 32 bytes on 64-bit hosts");

class Sheet {
 public:
  explicit Sheet(std::string name) : name_(std::move(name)) {}

  const std::string& name() const { return name_; }
  void setName(std::string name) { name_ = std::move(name); }

  // REQUIRES: 0 <= row < kXlsxMaxRows and 0 <= column < kXlsxMaxColumns for every cell access.
  // A cell never written reads as an empty cell with the default style.
  const Cell& at(int row, int column) const;
  // Creates the cell (and the row) when needed. Inline for the usual cases, a stored cell
  // and the next one along a row, since a reader calls it once a cell.
  Cell& mutableAt(int row, int column) {
    if (static_cast<unsigned>(row) < rows_.size()) {
      auto& r = rows_[static_cast<unsigned>(row)];
      if (static_cast<unsigned>(column) < r.size()) return r[static_cast<unsigned>(column)];
      if (static_cast<unsigned>(column) == r.size() && r.capacity() > r.size())
        return r.emplace_back();
    }
    return grow(row, column);
  }
  void set(int row, int column, Cell cell) { mutableAt(row, column) = std::move(cell); }
  // Makes the cell empty with the default style.
  void clear(int row, int column);
  // Removes every cell (values and styles); column widths stay.
  void clearAll() { rows_.clear(); }

  // 1 + the last row that holds a non-empty cell, 0 when none does. Styled empty cells
  // do not count (usedRows/usedColumns describe values, which is what SQL sees).
  int usedRows() const;
  // 1 + the last column that holds a non-empty cell in any row, 0 when none does.
  int usedColumns() const;
  // 1 + the last row / column holding any stored cell, styled empty cells included.
  int extentRows() const { return static_cast<int>(rows_.size()); }
  int extentColumns() const;

  // Column width in 1/256 of the width of the digit zero; 0 means "not set" (default).
  std::uint16_t columnWidth(int column) const;
  void setColumnWidth(int column, std::uint16_t width256);
  const std::map<int, std::uint16_t>& columnWidths() const { return columnWidths_; }

  // Direct row access for fast whole-sheet walks: rows()[r][c] for c < rows()[r].size().
  const std::vector<std::vector<Cell>>& rows() const { return rows_; }

 private:
  Cell& grow(int row, int column);

  std::string name_;
  std::vector<std::vector<Cell>> rows_;  // each row dense up to its last stored cell
  std::map<int, std::uint16_t> columnWidths_;
};

// A defined name (named range) over one rectangle of one sheet: `Data` for
// Sheet1!$A$1:$C$10 is sheet 0, rows 0-9, columns 0-2 (inclusive, 0-based).
struct DefinedName {
  std::string name;     // as the user typed it; built-in names as Excel shows them
  int scopeSheet = -1;  // -1: the whole workbook; else the sheet the name belongs to
  bool builtin = false; // Excel's own (Print_Area, _FilterDatabase, ...)
  int sheet = 0;        // index into Workbook::sheets() of the area
  int firstRow = 0, lastRow = 0, firstColumn = 0, lastColumn = 0;
};

class Workbook {
 public:
  Workbook();  // one style (index 0, the default), no sheets, 1900 date system

  std::vector<Sheet>& sheets() { return sheets_; }
  const std::vector<Sheet>& sheets() const { return sheets_; }
  // Exact, case-sensitive match first; failing that, a match ignoring ASCII case (sheet
  // names are unique ignoring case in a workbook). nullptr when none.
  Sheet* findSheet(std::string_view name);
  const Sheet* findSheet(std::string_view name) const;
  // REQUIRES: isValidSheetName(name) and no sheet of that name ignoring case.
  Sheet& addSheet(std::string name);
  void removeSheet(std::size_t index);

  // 1 to 31 characters, none of : \ / ? * [ ], not starting or ending with an apostrophe.
  static bool isValidSheetName(std::string_view name);

  const std::vector<Style>& styles() const { return styles_; }
  // Index of an equal style, added when new.
  std::uint16_t addStyle(const Style& style);

  bool date1904 = false;
  // Read from a password-protected file. WriteWorkbook refuses such a workbook rather than
  // store its contents without the password; clear this to write it unprotected on purpose.
  bool encrypted = false;

  // Defined names that stand for one rectangle on one sheet, in file order; both writers
  // store them. Removing a sheet drops the names on it or scoped to it.
  const std::vector<DefinedName>& names() const { return names_; }
  // Exact, case-sensitive match first, then ignoring ASCII case (as Excel compares names).
  // A name scoped to sheet `scopeSheet` wins over a workbook-wide one of the same name;
  // -1 looks at workbook-wide names only. nullptr when none.
  const DefinedName* findName(std::string_view name, int scopeSheet = -1) const;
  void addName(DefinedName name) { names_.push_back(std::move(name)); }
  // REQUIRES: n points into names().
  void removeName(const DefinedName* n) { names_.erase(names_.begin() + (n - names_.data())); }

 private:
  std::vector<Sheet> sheets_;
  std::vector<Style> styles_;
  std::vector<DefinedName> names_;
};

}  // namespace xls
