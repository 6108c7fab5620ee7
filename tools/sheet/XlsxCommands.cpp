// cat, cell, info, set, add, insert and clear on .xlsx/.xlsm workbooks, through the driver
// (DriverBook.h): the class takes those names as text files, as its callers rely on. Cells
// change in place, so set and add need no --force; insert does, since the rows below move.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "tools/sheet/Commands.h"
#include "tools/sheet/DriverBook.h"
#include "tools/sheet/Files.h"
#include "tools/sheet/Options.h"

namespace sheet {
namespace {

constexpr long kXlsxRows = 1048576;
constexpr long kXlsxColumns = 16384;

std::size_t Width(const Rows& rows) {
  std::size_t w = 0;
  for (const auto& r : rows) w = r.size() > w ? r.size() : w;
  return w;
}

// Opens FILE and reads the sheet o.sheetName; 0, or the exit status after saying why.
int Load(const char* command, const std::string& file, const Options& o, DriverBook* book,
         Rows* rows) {
  if (const std::string why = ReadProblem(file); !why.empty()) return FailWith(command, file, why);
  if (const std::string why = book->Open(file, false); !why.empty())
    return FailWith(command, file, why);
  bool missing = false;
  const std::string why = book->Read(o.sheetName, rows, &missing);
  if (missing) return FailWith(command, file, "no sheet named \"" + o.sheetName + "\"");
  if (!why.empty()) return FailWith(command, file, why);
  return 0;
}

// A 1-based column by number, by the text of its row-1 cell, or by letters (A to XFD); 0
// and a message when none. A header text comes before letters: "Qty" is a header before it
// is column 12,037.
long ResolveColumn(const std::string& name, const Rows& rows, std::string* why) {
  long n = 0;
  bool digits = !name.empty(), letters = !name.empty() && name.size() <= 3;
  for (char c : name) {
    digits = digits && c >= '0' && c <= '9';
    letters = letters && ((c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z'));
  }
  if (digits) {
    n = name.size() <= 5 ? std::strtol(name.c_str(), nullptr, 10) : kXlsxColumns + 1;
  } else {
    for (std::size_t i = 0; !rows.empty() && i < rows[0].size() && n == 0; ++i) {
      if (rows[0][i] == name) n = static_cast<long>(i) + 1;
    }
    if (letters && n == 0) {
      for (char c : name) n = n * 26 + ((c & ~0x20) - 'A' + 1);
    }
  }
  const long width = static_cast<long>(Width(rows));
  if (n == 0) {
    *why = "Invalid field name or column alphabet";
  } else if (n > width) {
    *why =
        "column " + std::to_string(n) + " is past the last column (" + std::to_string(width) + ")";
    n = 0;
  }
  return n;
}

bool ParseRow(const std::string& s, long* row) {
  if (s.empty() || s.size() > 9 || s.find_first_not_of("0123456789") != std::string::npos)
    return false;
  *row = std::strtol(s.c_str(), nullptr, 10);
  return *row >= 1;
}

std::string PastLastRow(long row, const Rows& rows) {
  return "row " + std::to_string(row) + " is past the last row (" + std::to_string(rows.size()) +
         ")";
}

int CheckWritable(const char* command, const std::string& file) {
  if (!Exists(file)) return FailWith(command, file, ReadProblem(file));
  if (const std::string why = WriteProblem(file); !why.empty()) return FailWith(command, file, why);
  return 0;
}

// The values of one row as a VALUES list, NULL for "".
std::string ValuesList(const std::vector<std::string>& values) {
  std::string out;
  for (const std::string& v : values) out += (out.empty() ? "" : ", ") + SqlValue(v);
  return "(" + out + ")";
}

}  // namespace

int XlsxCat(const Options& o) {
  DriverBook book;
  Rows rows;
  if (int status = Load("cat", o.words[0], o, &book, &rows)) return status;
  Progress progress("cat", static_cast<long>(rows.size()));
  long done = 0;
  for (const auto& row : rows) {
    for (std::size_t i = 0; i < row.size(); ++i) {
      if (i) std::fputc('\t', stdout);
      std::fwrite(row[i].data(), 1, row[i].size(), stdout);
    }
    std::fputc('\n', stdout);
    progress.Update(++done);
  }
  if (std::fflush(stdout) != 0 || std::ferror(stdout))
    return FailWith("cat", "(standard output)", "write failed");
  return 0;
}

int XlsxCell(const Options& o) {
  const std::string& file = o.words[0];
  long row;
  if (!ParseRow(o.words[2], &row)) return Usage("ROW must be a number from 1", "cell");
  DriverBook book;
  Rows rows;
  if (int status = Load("cell", file, o, &book, &rows)) return status;
  std::string why;
  const long column = ResolveColumn(o.words[1], rows, &why);
  if (column == 0) return FailWith("cell", file, why);
  if (row > static_cast<long>(rows.size())) return FailWith("cell", file, PastLastRow(row, rows));
  const std::string& value =
      rows[static_cast<std::size_t>(row - 1)][static_cast<std::size_t>(column - 1)];
  std::fwrite(value.data(), 1, value.size(), stdout);
  std::fputc('\n', stdout);
  return 0;
}

int XlsxInfo(const Options& o) {
  DriverBook book;
  Rows rows;
  if (int status = Load("info", o.words[0], o, &book, &rows)) return status;
  std::printf("file:       %s\n", o.words[0].c_str());
  std::printf("mode:       Excel workbook (.xlsx) through the ODBC driver, sheet \"%s\"\n",
              o.sheetName.c_str());
  std::printf("rows:       %zu (header included)\n", rows.size());
  std::printf("columns:    %zu\n", Width(rows));
  std::printf("header:    ");
  if (!rows.empty()) {
    for (const std::string& name : rows[0]) std::printf(" [%s]", name.c_str());
  }
  std::printf("\nlast error: (none)\n");
  return 0;
}

int XlsxSet(const Options& o) {
  const std::string& file = o.words[0];
  long row;
  if (!ParseRow(o.words[2], &row)) return Usage("ROW must be a number from 1", "set");
  if (int status = CheckWritable("set", file)) return status;
  DriverBook book;
  Rows rows;
  if (int status = Load("set", file, o, &book, &rows)) return status;
  std::string why;
  const long column = ResolveColumn(o.words[1], rows, &why);
  if (column == 0) return FailWith("set", file, why);
  if (row > static_cast<long>(rows.size())) return FailWith("set", file, PastLastRow(row, rows));
  // The engine's row id of a sheet's table is the row's index, 0 for row 1. The engine
  // reads text that looks like a number as the number ("1.50" as 1.5): the dialect then
  // sets it again as text over the row as a one-row table, which now reaches the column.
  const std::string set = " SET [F" + std::to_string(column) + "] = ";
  why = book.Exec("UPDATE " + book.Region(o.sheetName) + set + SqlValue(o.words[3]) +
                  " WHERE ROWID IN (" + std::to_string(row - 1) + ")");
  for (int attempt = 0; why.empty(); ++attempt) {
    bool missing;
    why = book.Read(o.sheetName, &rows, &missing);
    if (!why.empty()) break;
    const std::string& now =
        rows[static_cast<std::size_t>(row - 1)][static_cast<std::size_t>(column - 1)];
    if (now == o.words[3]) return 0;
    if (attempt == 1) {
      why = "row " + std::to_string(row) + " reads \"" + now + "\", not \"" + o.words[3] + "\"";
      break;
    }
    std::string text = "'";
    for (char c : o.words[3]) text += c == '\'' ? std::string("''") : std::string(1, c);
    why = book.Exec("UPDATE " + DriverBook::Cells(o.sheetName, row, 1, row, column) + set + text +
                    "'");
  }
  return FailWith("set", file, why);
}

int XlsxAdd(const Options& o) {
  const std::string& file = o.words[0];
  if (int status = CheckWritable("add", file)) return status;
  DriverBook book;
  Rows rows;
  if (int status = Load("add", file, o, &book, &rows)) return status;
  const std::vector<std::string> values(o.words.begin() + 1, o.words.end());
  if (values.size() > static_cast<std::size_t>(kXlsxColumns))
    return FailWith("add", file, "a sheet has 16384 columns");
  const long width = static_cast<long>(std::max(Width(rows), values.size()));
  const std::string why =
      book.Exec("INSERT INTO " + DriverBook::Cells(o.sheetName, 1, 1, 1, width) + " VALUES " +
                ValuesList(values));
  return why.empty() ? 0 : FailWith("add", file, why);
}

// Cells from ROW down are cleared and written again one row lower, as text and numbers:
// what the driver can do in place. Their formats go, and a date becomes its text.
int XlsxInsert(const Options& o) {
  const std::string& file = o.words[0];
  long row;
  if (!ParseRow(o.words[1], &row)) return Usage("ROW must be a number from 1", "insert");
  if (!o.force) {
    return FailWith("insert", file,
                    "inserting moves every row below it, which the driver does not do in place: "
                    "the rows from " +
                        o.words[1] +
                        " down would be written again without their formats (a date becomes "
                        "text); append with `sheet add`, or give --force to insert anyway");
  }
  if (int status = CheckWritable("insert", file)) return status;
  DriverBook book;
  Rows rows;
  if (int status = Load("insert", file, o, &book, &rows)) return status;
  if (row > static_cast<long>(rows.size()) + 1)
    return FailWith("insert", file, PastLastRow(row, rows));
  if (static_cast<long>(rows.size()) >= kXlsxRows)
    return FailWith("insert", file, "sheet \"" + o.sheetName + "\" is full (1048576 rows)");
  Rows moved(rows.begin() + (row - 1), rows.end());
  moved.insert(moved.begin(), std::vector<std::string>(o.words.begin() + 2, o.words.end()));
  // Each INSERT lands just below the last row holding a value, so the row above ROW and
  // every row moved must hold one, or the rows after it would not keep their places.
  auto blank = [](const std::vector<std::string>& cells) {
    for (const std::string& v : cells) {
      if (!v.empty()) return false;
    }
    return true;
  };
  if (blank(moved[0])) return FailWith("insert", file, "the new row holds no value");
  for (long r = std::max(1L, row - 1); r <= static_cast<long>(rows.size()); ++r) {
    if (blank(rows[static_cast<std::size_t>(r - 1)])) {
      return FailWith(
          "insert", file,
          "row " + std::to_string(r) + " is blank, and rows would not keep their places");
    }
  }
  const long width = static_cast<long>(std::max(Width(rows), moved[0].size()));
  std::string why;
  if (row <= static_cast<long>(rows.size())) {
    why = book.Exec("DROP TABLE " +
                    DriverBook::Cells(o.sheetName, row, 1, static_cast<long>(rows.size()), width));
  }
  for (std::size_t i = 0; i < moved.size() && why.empty(); ++i) {
    why = book.Exec("INSERT INTO " + DriverBook::Cells(o.sheetName, row, 1, row, width) +
                    " VALUES " + ValuesList(moved[i]));
  }
  return why.empty() ? 0 : FailWith("insert", file, why);
}

int XlsxClear(const Options& o) {
  const std::string& file = o.words[0];
  if (int status = CheckWritable("clear", file)) return status;
  DriverBook book;
  Rows rows;
  if (int status = Load("clear", file, o, &book, &rows)) return status;
  if (rows.empty()) return FailWith("clear", file, "no sheet named \"" + o.sheetName + "\"");
  const std::string why = book.Exec("DROP TABLE [" + o.sheetName + "]");
  return why.empty() ? 0 : FailWith("clear", file, why);
}

}  // namespace sheet
