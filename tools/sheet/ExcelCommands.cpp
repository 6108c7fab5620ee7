// sheet convert / sql: the workbook commands, through the registered ODBC driver.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "platform/Database.h"
#include "platform/OdbcInstaller.h"
#include "tools/sheet/Commands.h"
#include "tools/sheet/Files.h"
#include "tools/sheet/Options.h"

namespace sheet {
namespace {

constexpr long kProgressRows = 10000;  // sheets this big get a progress line

// The first installed driver whose description holds "Excel", as the library picks it.
std::string ExcelDriver() {
  char list[2000 + 2] = {0};
  if (!platform::GetInstalledOdbcDrivers(list, 2000, nullptr)) return "";
  for (const char* p = list; *p; p += std::strlen(p) + 1) {
    if (std::strstr(p, "Excel")) return p;
  }
  return "";
}

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

std::string ConnectString(const std::string& driver, const std::string& book) {
  CString connect;
  connect.Format("DRIVER={%s};DSN='';FIRSTROWHASNAMES=1;READONLY=FALSE;CREATE_DB=\"%s\";DBQ=%s",
                 driver.c_str(), book.c_str(), book.c_str());
  return connect.GetString();
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

}  // namespace

// convert FILE [-s SHEET] [-d DELIM] [--quoted]: a workbook's sheet SHEET to FILE less
// ".xls" plus ".csv" delimited by DELIM, or a text file delimited by DELIM to the sheet
// SHEET of FILE less its extension plus ".xls". Both default as elsewhere (Sheet1, ",").
// The target is read back afterwards: rows the conversion left out make it fail.
int Convert(const Args& args) {
  std::string file, sheetName = "Sheet1", delimiter = ",";
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
    } else {
      return Usage("convert takes one file", "convert");
    }
  }
  if (file.empty()) return Usage("convert takes one file", "convert");
  if (delimiter.empty()) return Usage("the delimiter cannot be empty", "convert");
  if (sheetName.empty()) return Usage("the sheet name cannot be empty", "convert");
  const bool workbook = IsWorkbook(file);
  if (quoted && workbook)
    return Usage("--quoted applies to a text file made into a workbook", "convert");
  if (const std::string why = ReadProblem(file); !why.empty())
    return FailWith("convert", file, why);

  const std::string target =
      file.substr(0, file.size() >= 4 ? file.size() - 4 : 0) + (workbook ? ".csv" : ".xls");
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
  if (!IsWorkbook(book)) return Usage("sql works on .xls workbooks only", "sql");
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
