#include "odbc-driver/CellText.h"

#include <charconv>
#include <cmath>
#include <cstdio>

namespace xlsodbc {

void AppendNumber(double v, std::string* out) {
  if (v == 0) {  // also -0
    out->push_back('0');
    return;
  }
  if (!std::isfinite(v)) {
    out->append(std::isnan(v) ? "NaN" : (v < 0 ? "-Infinity" : "Infinity"));
    return;
  }
  char buf[64];
  double a = std::fabs(v);
  if (a < 9007199254740992.0 && v == std::trunc(v)) {
    // Whole numbers below 2^53, most numbers in sheets: the digits the shortest form gives
    // anyway, without the floating-point search for it.
    auto res = std::to_chars(buf, buf + sizeof buf, static_cast<long long>(v));
    out->append(buf, res.ptr);
    return;
  }
  auto fmt = (a >= 1e-5 && a < 1e16) ? std::chars_format::fixed : std::chars_format::scientific;
  auto res = std::to_chars(buf, buf + sizeof buf, v, fmt);
  out->append(buf, res.ptr);
}

std::string FormatNumber(double v) {
  std::string s;
  AppendNumber(v, &s);
  return s;
}

namespace {

// Days since 1970-01-01 to a civil date (proleptic Gregorian).
void CivilFromDays(long long z, int* y, unsigned* m, unsigned* d) {
  z += 719468;
  const long long era = (z >= 0 ? z : z - 146096) / 146097;
  const unsigned doe = static_cast<unsigned>(z - era * 146097);
  const unsigned yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
  const long long yy = static_cast<long long>(yoe) + era * 400;
  const unsigned doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
  const unsigned mp = (5 * doy + 2) / 153;
  *d = doy - (153 * mp + 2) / 5 + 1;
  *m = mp < 10 ? mp + 3 : mp - 9;
  *y = static_cast<int>(yy + (*m <= 2));
}

}  // namespace

std::string FormatDateTime(double serial, bool date1904) {
  if (!std::isfinite(serial) || serial < 0 || serial > 2958466) return FormatNumber(serial);
  long long seconds = std::llround(serial * 86400.0);
  long long days = seconds / 86400;
  long long rest = seconds % 86400;
  int y;
  unsigned m, d;
  if (date1904) {
    CivilFromDays(days - 24107, &y, &m, &d);  // serial 0 is 1904-01-01
  } else if (days == 60) {
    // The 1900 system's day 60 is 1900-02-29, a date that never was; Excel shows it so.
    y = 1900, m = 2, d = 29;
  } else {
    // Serial 1 is 1900-01-01; from day 61 on, the phantom leap day is skipped.
    CivilFromDays(days - (days < 60 ? 25568 : 25569), &y, &m, &d);
  }
  char buf[48];
  std::snprintf(buf, sizeof buf, "%04d-%02u-%02u %02lld:%02lld:%02lld", y, m, d, rest / 3600,
                rest / 60 % 60, rest % 60);
  return buf;
}

bool CellText(const xls::Cell& cell, bool date1904, std::string* out) {
  out->clear();
  switch (cell.type) {
    case xls::CellType::kEmpty:
      return false;
    case xls::CellType::kText:
      *out = cell.text;
      return true;
    case xls::CellType::kNumber:
      AppendNumber(cell.number, out);
      return true;
    case xls::CellType::kBoolean:
      out->push_back(cell.number != 0 ? '1' : '0');
      return true;
    case xls::CellType::kDateTime:
      *out = FormatDateTime(cell.number, date1904);
      return true;
    case xls::CellType::kError:
      switch (static_cast<int>(cell.number)) {
        case 0x00:
          *out = "#NULL!";
          break;
        case 0x07:
          *out = "#DIV/0!";
          break;
        case 0x0F:
          *out = "#VALUE!";
          break;
        case 0x17:
          *out = "#REF!";
          break;
        case 0x1D:
          *out = "#NAME?";
          break;
        case 0x24:
          *out = "#NUM!";
          break;
        default:
          *out = "#N/A";
          break;
      }
      return true;
  }
  return false;
}

}  // namespace xlsodbc
