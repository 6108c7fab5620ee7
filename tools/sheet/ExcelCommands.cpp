// sheet convert / sql: the workbook commands, through the registered ODBC driver.
#include <chrono>
#include <cstdio>
#include <cstring>
#include <string>

#include "platform/Database.h"
#include "platform/OdbcInstaller.h"
#include "tools/sheet/Commands.h"
#include "tools/sheet/Options.h"

namespace sheet {
namespace {

constexpr long kProgressRows = 10000;  // sheets this big get a progress line

bool IsWorkbook(const std::string& file) {
  if (file.size() < 4) return false;
  std::string tail = file.substr(file.size() - 4);
  for (char& c : tail) c = static_cast<char>((c >= 'A' && c <= 'Z') ? c + 32 : c);
  return tail == ".xls";
}

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

}  // namespace

// convert FILE [-s SHEET] [-d DELIM]: a workbook's sheet SHEET to FILE less ".xls" plus
// ".csv" delimited by DELIM, or a text file delimited by DELIM to the sheet SHEET of FILE
// less its extension plus ".xls". Both default as elsewhere (Sheet1, ",").
int Convert(const Args& args) {
  const char* usage = "convert FILE [-s SHEET] [-d DELIM]";
  std::string file, sheetName = "Sheet1", delimiter = ",";
  for (std::size_t i = 0; i < args.size(); ++i) {
    if (args[i] == "-s" || args[i] == "-d") {
      if (i + 1 >= args.size()) return Usage("option " + args[i] + " needs a value", usage);
      (args[i] == "-s" ? sheetName : delimiter) = args[i + 1];
      ++i;
    } else if (file.empty()) {
      file = args[i];
    } else {
      return Usage("convert takes one file", usage);
    }
  }
  if (file.empty()) return Usage("convert takes one file", usage);
  if (delimiter.empty()) return Usage("the delimiter cannot be empty", usage);
  if (sheetName.empty()) return Usage("the sheet name cannot be empty", usage);

  const bool workbook = IsWorkbook(file);
  const std::string target = file.substr(0, file.size() >= 4 ? file.size() - 4 : 0) + (workbook ? ".csv" : ".xls");
  CSpreadSheet s(file.c_str(), (workbook ? sheetName : delimiter).c_str(), false);
  if (s.GetTotalRows() == 0) {
    if (!s.GetLastError().IsEmpty()) return Fail("convert", s);
    std::fprintf(stderr, "sheet: convert: %s holds no rows%s\n", file.c_str(),
                 workbook ? " (or no such sheet)" : "");
    return 1;
  }
  const bool big = s.GetTotalRows() >= kProgressRows;
  if (big) {
    std::fprintf(stderr, "sheet: convert: %ld rows x %d columns, %s -> %s ...\n", s.GetTotalRows(),
                 s.GetTotalColumns(), file.c_str(), target.c_str());
  }
  const auto start = std::chrono::steady_clock::now();
  const CString before = s.GetLastError();
  if (!s.Convert((workbook ? delimiter : sheetName).c_str())) {
    if (s.GetLastError() != before) return Fail("convert", s);
    std::fprintf(stderr, "sheet: convert: %s already holds %s\n", target.c_str(),
                 workbook ? "rows" : "a sheet of that name with columns");
    return 1;
  }
  if (s.GetLastError() != before && s.GetLastError().Find("Duplicate header") == 0) {
    CString note = s.GetLastError();
    note.TrimRight();
    std::fprintf(stderr, "sheet: convert: %s: columns named 1, 2, 3...; the header is the first row\n",
                 note.GetString());
  }
  if (big) {
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    std::fprintf(stderr, "sheet: convert: done in %.2f s\n", seconds);
  }
  std::printf("%s\n", target.c_str());
  return 0;
}

// sql BOOK.xls "STATEMENT": one statement through the registered driver; a result set is
// printed as tab-separated lines, column names first.
int Sql(const Args& args) {
  const char* usage = "sql BOOK.xls \"STATEMENT\"";
  if (args.size() != 2) return Usage("sql takes a workbook and one statement", usage);
  const std::string& book = args[0];
  if (!IsWorkbook(book)) return Usage("sql works on .xls workbooks only", usage);
  const std::string driver = ExcelDriver();
  if (driver.empty()) {
    std::fprintf(stderr, "sheet: sql: no ODBC driver for Excel is registered\n");
    return 1;
  }
  CString connect;
  connect.Format("DRIVER={%s};DSN='';FIRSTROWHASNAMES=1;READONLY=FALSE;CREATE_DB=\"%s\";DBQ=%s",
                 driver.c_str(), book.c_str(), book.c_str());
  try {
    CDatabase db;
    db.OpenEx(connect, CDatabase::noOdbcDialog);
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
    std::fprintf(stderr, "sheet: sql: %s\n", message.GetString());
    e->Delete();
    return 1;
  }
  return 0;
}

}  // namespace sheet
