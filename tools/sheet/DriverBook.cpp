#include "tools/sheet/DriverBook.h"

#include <cstring>

#include "platform/OdbcInstaller.h"

namespace sheet {

namespace {

std::string Lower(std::string s) {
  for (char& c : s) c = static_cast<char>((c >= 'A' && c <= 'Z') ? c + 32 : c);
  return s;
}

bool EndsWith(const std::string& s, const char* tail) {
  const std::size_t n = std::strlen(tail);
  return s.size() >= n && Lower(s.substr(s.size() - n)) == tail;
}

std::string MessageOf(CDBException* e) {
  CString message = e->m_strError;
  message.TrimRight();
  e->Delete();
  return message.GetString();
}

}  // namespace

bool IsXlsx(const std::string& file) { return EndsWith(file, ".xlsx") || EndsWith(file, ".xlsm"); }

std::string ExcelDriver() {
  char list[2000 + 2] = {0};
  if (!platform::GetInstalledOdbcDrivers(list, 2000, nullptr)) return "";
  for (const char* p = list; *p; p += std::strlen(p) + 1) {
    if (std::strstr(p, "Excel")) return p;
  }
  return "";
}

std::string ConnectString(const std::string& driver, const std::string& book, bool firstRowHasNames,
                          bool create) {
  CString connect;
  connect.Format("DRIVER={%s};DSN='';FIRSTROWHASNAMES=%d;READONLY=FALSE;", driver.c_str(),
                 firstRowHasNames ? 1 : 0);
  std::string out = connect.GetString();
  if (create) out += "CREATE_DB=\"" + book + "\";";
  return out + "DBQ=" + book;
}

std::string SqlValue(const std::string& value) {
  if (value.empty()) return "NULL";
  // -?(0|[1-9]digits)(.digits, the last not 0)?, 15 digits at most: a number whose text
  // reads back unchanged from the dialect and the engine alike ("007", "1.50" and "-0" do
  // not, and go in as text).
  const std::size_t sign = value[0] == '-' ? 1 : 0;
  const std::size_t point = value.find('.');
  const std::string whole =
      value.substr(sign, point == std::string::npos ? std::string::npos : point - sign);
  const std::string fraction = point == std::string::npos ? "" : value.substr(point + 1);
  auto digits = [](const std::string& s) {
    return !s.empty() && s.find_first_not_of("0123456789") == std::string::npos;
  };
  const bool number =
      digits(whole) && (whole == "0" || whole[0] != '0') &&
      (point == std::string::npos || (digits(fraction) && fraction.back() != '0')) &&
      whole.size() + fraction.size() <= 15 && value != "-0";
  if (number) return value;
  std::string out = "'";
  for (char c : value) {
    out += c;
    if (c == '\'') out += '\'';
  }
  return out + "'";
}

std::string ColumnLetters(long column) {
  std::string out;
  for (long c = column; c > 0; c = (c - 1) / 26) {
    out.insert(out.begin(), static_cast<char>('A' + (c - 1) % 26));
  }
  return out;
}

std::string DriverBook::Open(const std::string& file, bool create) {
  const std::string driver = ExcelDriver();
  if (driver.empty()) return "no ODBC driver for Excel is registered";
  xlsx_ = IsXlsx(file);
  db_ = std::make_unique<CDatabase>();
  try {
    db_->OpenEx(ConnectString(driver, file, false, create).c_str(), CDatabase::noOdbcDialog);
  } catch (CDBException* e) {
    db_.reset();
    return MessageOf(e);
  }
  return "";
}

std::string DriverBook::Region(const std::string& sheet) const {
  return "[" + sheet + (xlsx_ ? "$A1:XFD1048576]" : "$A1:IV65536]");
}

std::string DriverBook::Cells(const std::string& sheet, long top, long left, long bottom,
                              long right) {
  return "[" + sheet + "$" + ColumnLetters(left) + std::to_string(top) + ":" +
         ColumnLetters(right) + std::to_string(bottom) + "]";
}

std::string DriverBook::Read(const std::string& sheet, Rows* rows, bool* missing) {
  rows->clear();
  *missing = false;
  try {
    CRecordset rs(db_.get());
    rs.Open(CRecordset::forwardOnly, ("SELECT * FROM " + Region(sheet)).c_str(),
            CRecordset::readOnly);
    const short columns = rs.GetODBCFieldCount();
    CString value;
    for (; columns > 0 && !rs.IsEOF(); rs.MoveNext()) {
      rows->emplace_back();
      for (short i = 0; i < columns; ++i) {
        rs.GetFieldValue(i, value);
        rows->back().emplace_back(value.GetString(), value.GetLength());
      }
    }
  } catch (CDBException* e) {
    *missing = e->m_strStateNativeOrigin.Find("S0002") >= 0 ||
               e->m_strStateNativeOrigin.Find("42S02") >= 0;
    return MessageOf(e);
  }
  return "";
}

std::string DriverBook::Exec(const std::string& sql) {
  try {
    db_->ExecuteSQL(sql.c_str());
  } catch (CDBException* e) {
    return MessageOf(e);
  }
  return "";
}

}  // namespace sheet
