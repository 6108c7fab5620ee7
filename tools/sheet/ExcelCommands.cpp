// sheet convert / sql: the workbook commands, through the registered ODBC driver.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "platform/Database.h"
#include "tools/sheet/Commands.h"
#include "tools/sheet/DriverBook.h"
#include "tools/sheet/Files.h"
#include "tools/sheet/Options.h"

namespace sheet {
namespace {

constexpr long kProgressRows = 10000;  // sheets this big get a progress line

void PrintFields(const CStringArray& values) {
  for (INT_PTR i = 0; i < values.GetSize(); ++i) {
    if (i) std::fputc('\t', stdout);
    std::fwrite(values[i].GetString(), 1, values[i].GetLength(), stdout);
  }
  std::fputc('\n', stdout);
}

// A value as SQL text: quoted, any quote in it doubled.
std::string Quoted(const CString& value) {
  std::string out = "'";
  for (const char* p = value.GetString(); *p; ++p) {
    out += *p;
    if (*p == '\'') out += '\'';
  }
  return out + "'";
}

// The rows the class finds in a sheet it loads from book (its header line and every
// record below it; none when the region holds no columns), asked of the driver rather than
// loaded: loading fetches every cell, a seventh of a large convert's time. 0 when the
// sheet cannot be read.
long RowsInSheet(const std::string& book, const std::string& sheetName) {
  const std::string driver = ExcelDriver();
  if (driver.empty()) return 0;
  const std::string region = "[" + sheetName + "$A1:IV65536]";  // the class's own range
  try {
    CDatabase db;
    db.OpenEx(ConnectString(driver, book).c_str(), CDatabase::noOdbcDialog);
    CRecordset columns(&db);
    columns.Open(CRecordset::forwardOnly, ("SELECT * FROM " + region + " WHERE 1 = 0").c_str(),
                 CRecordset::readOnly);
    if (columns.GetODBCFieldCount() == 0) return 0;
    CRecordset count(&db);
    count.Open(CRecordset::forwardOnly, ("SELECT COUNT(*) FROM " + region).c_str(),
               CRecordset::readOnly);
    CString records;
    if (count.IsEOF()) return 0;
    count.GetFieldValue(0, records);
    return 1 + std::strtol(records.GetString(), nullptr, 10);
  } catch (CDBException* e) {
    e->Delete();
    return 0;
  }
}

// --quoted: the header through the class (which makes the sheet), then one INSERT per row
// with every value quoted, so that no value is left out for what it holds.
int ConvertQuoted(CSpreadSheet& source, const std::string& file, const std::string& target,
                  const std::string& sheetName) {
  const std::string driver = ExcelDriver();
  if (driver.empty()) return FailWith("convert", target, "no ODBC driver for Excel is registered");
  CStringArray names;
  source.GetFieldNames(names);
  for (INT_PTR i = 0; i < names.GetSize(); ++i) {
    for (INT_PTR j = i + 1; j < names.GetSize(); ++j) {
      if (names[i] == names[j]) {
        return FailWith("convert", file,
                        std::string("the header names \"") + names[i].GetString() +
                            "\" twice; convert without --quoted numbers the columns");
      }
    }
  }
  {
    CSpreadSheet book(target.c_str(), sheetName.c_str(), false);
    if (book.GetTotalColumns() != 0)
      return FailWith("convert", target, "already holds a sheet \"" + sheetName + "\"");
    const CString before = book.GetLastError();
    if (!book.AddHeaders(names, false) ||
        (book.GetLastError() != before && !book.GetLastError().IsEmpty()))
      return Fail("convert", target, book);
  }
  std::string columns;
  for (INT_PTR i = 0; i < names.GetSize(); ++i)
    columns += std::string(i ? ", [" : "[") + names[i].GetString() + "]";
  const long rows = source.GetTotalRows();
  long r = 2;
  try {
    CDatabase db;
    db.OpenEx(ConnectString(driver, target).c_str(), CDatabase::noOdbcDialog);
    Progress progress("convert", rows - 1);
    CStringArray row;
    for (; r <= rows; ++r) {
      source.ReadRow(row, r);
      std::string values;
      for (INT_PTR i = 0; i < names.GetSize(); ++i)
        values += (i ? ", " : "") + Quoted(i < row.GetSize() ? row[i] : CString());
      db.ExecuteSQL(
          ("INSERT INTO [" + sheetName + "] (" + columns + ") VALUES (" + values + ")").c_str());
      progress.Update(r - 1);
    }
  } catch (CDBException* e) {
    CString message = e->m_strError;
    message.TrimRight();
    e->Delete();
    return FailWith("convert", target,
                    "row " + std::to_string(r) + " of " + file + ": " + message.GetString() + " (" +
                        std::to_string(r - 2) + " of " + std::to_string(rows - 1) +
                        " data rows written)");
  }
  std::printf("%s\n", target.c_str());
  return 0;
}

// A file's rows, row 1 first: a workbook's sheet through the driver (.xls and .xlsx alike),
// a text file through the class. 0, or the exit status after saying why.
int ReadRows(const std::string& file, const std::string& sheetName, const std::string& delimiter,
             Rows* rows) {
  if (IsWorkbook(file) || IsXlsx(file)) {
    DriverBook book;
    if (const std::string why = book.Open(file, false); !why.empty())
      return FailWith("convert", file, why);
    bool missing = false;
    const std::string why = book.Read(sheetName, rows, &missing);
    if (missing) return FailWith("convert", file, "no sheet named \"" + sheetName + "\"");
    if (!why.empty()) return FailWith("convert", file, why);
  } else {
    CSpreadSheet s(file.c_str(), delimiter.c_str(), false);
    if (s.GetTotalRows() == 0 && !s.GetLastError().IsEmpty()) return Fail("convert", file, s);
    CStringArray row;
    for (long r = 1; r <= s.GetTotalRows(); ++r) {
      s.ReadRow(row, r);
      rows->emplace_back();
      for (INT_PTR i = 0; i < row.GetSize(); ++i) rows->back().emplace_back(row[i].GetString());
    }
  }
  if (rows->empty()) return FailWith("convert", file, "holds no rows");
  return 0;
}

// .xlsb, .xltx, .ods and the like: a spreadsheet format the driver does not write, which a
// text file under that name would only pass for.
bool NamesOtherSpreadsheet(const std::string& file) {
  const std::size_t dot = file.rfind('.');
  if (dot == std::string::npos || IsWorkbook(file) || IsXlsx(file)) return false;
  std::string ext = file.substr(dot + 1);
  for (char& c : ext) c = static_cast<char>((c >= 'A' && c <= 'Z') ? c + 32 : c);
  return ext.compare(0, 2, "xl") == 0 || ext == "ods" || ext == "numbers";
}

bool Blank(const std::vector<std::string>& row) {
  for (const std::string& v : row) {
    if (!v.empty()) return false;
  }
  return true;
}

// Writes rows into a new sheet of the workbook TARGET through the driver: row 1 made by
// CREATE TABLE and set by position (so any header text goes in as it is), then one INSERT a
// row, each just below the last. A blank row holds nothing to insert, and is left out.
int WriteWorkbook(const std::string& target, const std::string& sheetName, const Rows& rows,
                  const std::string& source) {
  DriverBook book;
  if (const std::string why = book.Open(target, true); !why.empty())
    return FailWith("convert", target, why);
  Rows existing;
  bool missing = false;
  book.Read(sheetName, &existing, &missing);
  if (!missing && !existing.empty())
    return FailWith("convert", target, "already holds a sheet \"" + sheetName + "\"");
  if (Blank(rows[0])) return FailWith("convert", source, "its first row is blank");
  std::size_t width = 0;
  for (const auto& r : rows) width = r.size() > width ? r.size() : width;
  std::string create, header;
  for (std::size_t i = 1; i <= width; ++i) {
    create += (i > 1 ? ", [F" : "[F") + std::to_string(i) + "] char(255)";
    header += (i > 1 ? ", [F" : "[F") + std::to_string(i) +
              "] = " + SqlValue(i <= rows[0].size() ? rows[0][i - 1] : std::string());
  }
  const std::string region = DriverBook::Cells(sheetName, 1, 1, 1, static_cast<long>(width));
  std::string why = book.Exec("CREATE TABLE [" + sheetName + "] (" + create + ")");
  if (why.empty()) {
    // The engine's row id of a sheet's table is the row's index, 0 for row 1.
    why = book.Exec("UPDATE " + region + " SET " + header + " WHERE ROWID IN (0)");
  }
  if (!why.empty()) return FailWith("convert", target, why);
  Progress progress("convert", static_cast<long>(rows.size()) - 1);
  long written = 0, blank = 0;
  for (std::size_t r = 1; r < rows.size(); ++r) {
    if (Blank(rows[r])) {
      ++blank;
      continue;
    }
    std::string values;
    for (const std::string& v : rows[r]) values += (values.empty() ? "" : ", ") + SqlValue(v);
    why = book.Exec("INSERT INTO " + region + " VALUES (" + values + ")");
    if (!why.empty()) {
      return FailWith("convert", target,
                      "row " + std::to_string(r + 1) + " of " + source + ": " + why + " (" +
                          std::to_string(written) + " of " + std::to_string(rows.size() - 1) +
                          " data rows written)");
    }
    progress.Update(++written);
  }
  if (blank > 0) {
    std::fprintf(stderr, "sheet: convert: %s: %ld blank rows left out\n", source.c_str(), blank);
  }
  return 0;
}

// Writes rows to the text file TARGET through the class, in one transaction.
int WriteText(const std::string& target, const std::string& delimiter, const Rows& rows) {
  if (Exists(target) && !ReadProblem(target).empty())
    return FailWith("convert", target, ReadProblem(target));
  {
    CSpreadSheet existing(target.c_str(), delimiter.c_str(), false);
    if (existing.GetTotalRows() > 0) return FailWith("convert", target, "already holds rows");
  }
  CSpreadSheet t(target.c_str(), delimiter.c_str(), false);
  const CString before = t.GetLastError();
  auto array = [](const std::vector<std::string>& values) {
    CStringArray a;
    for (const std::string& v : values) a.Add(v.c_str());
    return a;
  };
  t.BeginTransaction();
  CStringArray header = array(rows[0]);
  bool ok = t.AddHeaders(header, false);
  for (std::size_t r = 1; ok && r < rows.size(); ++r) {
    CStringArray row = array(rows[r]);
    ok = t.AddRow(row, 0L, false);
  }
  ok = ok && t.Commit();
  if (!ok || (t.GetLastError() != before && !t.GetLastError().IsEmpty()))
    return Fail("convert", target, t);
  return 0;
}

// Any conversion the class does not make itself: to or from .xlsx, between workbook
// formats, or to a target named on the command line. The target is read back.
int ConvertRows(const std::string& file, const std::string& target, const std::string& sheetName,
                const std::string& delimiter) {
  Rows rows;
  if (int status = ReadRows(file, sheetName, delimiter, &rows)) return status;
  const bool toWorkbook = IsWorkbook(target) || IsXlsx(target);
  if (int status = toWorkbook ? WriteWorkbook(target, sheetName, rows, file)
                              : WriteText(target, delimiter, rows)) {
    return status;
  }
  std::size_t expected = 0;
  for (const auto& r : rows) expected += toWorkbook && Blank(r) ? 0 : 1;
  Rows landed;
  if (int status = ReadRows(target, sheetName, delimiter, &landed)) return status;
  if (landed.size() < expected) {
    return FailWith("convert", target,
                    std::to_string(expected - landed.size()) + " of " +
                        std::to_string(expected - 1) + " data rows did not land");
  }
  std::printf("%s\n", target.c_str());
  return 0;
}

}  // namespace

// convert FILE [TARGET] [-s SHEET] [-d DELIM] [--quoted]: a workbook's sheet SHEET to FILE
// less ".xls" (".xlsx") plus ".csv" delimited by DELIM, or a text file delimited by DELIM to
// the sheet SHEET of FILE less its extension plus ".xls". Both default as elsewhere (Sheet1,
// ","). TARGET names another file, its extension the format. The class makes the two
// default conversions of .xls; the driver the rest (ConvertRows). The target is read back
// afterwards: rows the conversion left out make it fail.
int Convert(const Args& args) {
  std::string file, target, sheetName = "Sheet1", delimiter = ",";
  bool quoted = false;
  for (std::size_t i = 0; i < args.size(); ++i) {
    if (args[i] == "-s" || args[i] == "-d") {
      if (i + 1 >= args.size()) return Usage("option " + args[i] + " needs a value", "convert");
      (args[i] == "-s" ? sheetName : delimiter) = args[i + 1];
      ++i;
    } else if (args[i] == "--quoted") {
      quoted = true;
    } else if (args[i].size() > 1 && args[i][0] == '-') {
      return Usage("unknown option " + args[i], "convert");
    } else if (file.empty()) {
      file = args[i];
    } else if (target.empty()) {
      target = args[i];
    } else {
      return Usage("convert takes a file and at most one target", "convert");
    }
  }
  if (file.empty()) return Usage("convert takes a file and at most one target", "convert");
  if (delimiter.empty()) return Usage("the delimiter cannot be empty", "convert");
  if (sheetName.empty()) return Usage("the sheet name cannot be empty", "convert");
  const bool workbook = IsWorkbook(file);
  if (quoted && (workbook || IsXlsx(file)))
    return Usage("--quoted applies to a text file made into a workbook", "convert");
  if (const std::string why = ReadProblem(file); !why.empty())
    return FailWith("convert", file, why);

  const std::size_t extension = IsXlsx(file) ? 5 : 4;
  const std::string byDefault =
      file.substr(0, file.size() >= extension ? file.size() - extension : 0) +
      (workbook || IsXlsx(file) ? ".csv" : ".xls");
  if (target.empty()) target = byDefault;
  if (target == file) return Usage("the target is the file itself", "convert");
  if (NamesOtherSpreadsheet(target)) {
    return Usage(
        target + ": workbooks are written as .xls, .xlsx or .xlsm, not as its extension says",
        "convert");
  }
  if (target != byDefault || IsXlsx(file)) {
    if (quoted && !(IsWorkbook(target) || IsXlsx(target)))
      return Usage("--quoted applies to a text file made into a workbook", "convert");
    return ConvertRows(file, target, sheetName, delimiter);
  }
  CSpreadSheet s(file.c_str(), (workbook ? sheetName : delimiter).c_str(), false);
  if (s.GetTotalRows() == 0) {
    if (!s.GetLastError().IsEmpty()) return Fail("convert", file, s);
    return FailWith(
        "convert", file,
        workbook ? "no sheet named \"" + sheetName + "\"" : std::string("holds no rows"));
  }
  if (quoted) return ConvertQuoted(s, file, target, sheetName);
  if (s.GetTotalRows() >= kProgressRows && StderrIsTerminal()) {
    std::fprintf(stderr, "sheet: convert: %ld rows x %d columns, %s -> %s ...\n", s.GetTotalRows(),
                 s.GetTotalColumns(), file.c_str(), target.c_str());
  }
  const CString before = s.GetLastError();
  if (!s.Convert((workbook ? delimiter : sheetName).c_str())) {
    if (s.GetLastError() != before) return Fail("convert", target, s);
    return FailWith(
        "convert", target,
        workbook ? "already holds rows" : "already holds a sheet \"" + sheetName + "\"");
  }
  // Duplicate header names: the class numbers the columns and keeps the header as a row.
  const bool numbered =
      s.GetLastError() != before && s.GetLastError().Find("Duplicate header") == 0;
  if (numbered) {
    CString note = s.GetLastError();
    note.TrimRight();
    std::fprintf(stderr,
                 "sheet: convert: %s: %s: columns named 1, 2, 3...; the header is the first row\n",
                 file.c_str(), note.GetString());
  }
  const long expected = s.GetTotalRows() + (numbered ? 1 : 0);
  const long landed = workbook
                          ? CSpreadSheet(target.c_str(), delimiter.c_str(), false).GetTotalRows()
                          : RowsInSheet(target, sheetName);
  if (landed < expected) {
    const long missing = expected - landed;
    return FailWith("convert", target,
                    std::to_string(missing) + " of " + std::to_string(expected - 1) +
                        " data rows did not land" +
                        (workbook ? std::string()
                                  : " (the class saves each row unquoted and the driver "
                                    "rejects a value holding a space or \"/\"; --quoted "
                                    "writes every row)"));
  }
  std::printf("%s\n", target.c_str());
  return 0;
}

// sql BOOK.xls "STATEMENT": one statement through the registered driver; a result set is
// printed as tab-separated lines, column names first.
int Sql(const Args& args) {
  if (args.size() != 2) return Usage("sql takes a workbook and one statement", "sql");
  const std::string& book = args[0];
  if (!IsWorkbook(book) && !IsXlsx(book))
    return Usage("sql works on .xls and .xlsx workbooks only", "sql");
  const std::string driver = ExcelDriver();
  if (driver.empty()) {
    return FailWith("sql", book, "no ODBC driver for Excel is registered");
  }
  try {
    CDatabase db;
    db.OpenEx(ConnectString(driver, book).c_str(), CDatabase::noOdbcDialog);
    CRecordset rs(&db);
    rs.Open(CRecordset::forwardOnly, args[1].c_str(), CRecordset::readOnly);
    const short columns = rs.GetODBCFieldCount();
    if (columns > 0) {
      CStringArray row;
      CODBCFieldInfo info;
      for (short i = 0; i < columns; ++i) {
        rs.GetODBCFieldInfo(i, info);
        row.Add(info.m_strName);
      }
      PrintFields(row);
      CString value;
      for (; !rs.IsEOF(); rs.MoveNext()) {
        row.RemoveAll();
        for (short i = 0; i < columns; ++i) {
          rs.GetFieldValue(i, value);
          row.Add(value);
        }
        PrintFields(row);
      }
    }
  } catch (CDBException* e) {
    CString message = e->m_strError;
    message.TrimRight();
    e->Delete();
    return FailWith("sql", book, message.GetString());
  }
  return 0;
}

}  // namespace sheet
