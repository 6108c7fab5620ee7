#include "odbc-driver/CellText.h"

#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>

namespace xlsodbc {

namespace {

constexpr double kPow10[] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,  1e8,  1e9,
                             1e10, 1e11, 1e12, 1e13, 1e14, 1e15, 1e16, 1e17, 1e18, 1e19};
constexpr std::uint64_t kPow10Int[] = {1ull,
                                       10ull,
                                       100ull,
                                       1000ull,
                                       10000ull,
                                       100000ull,
                                       1000000ull,
                                       10000000ull,
                                       100000000ull,
                                       1000000000ull,
                                       10000000000ull,
                                       100000000000ull,
                                       1000000000000ull,
                                       10000000000000ull,
                                       100000000000000ull,
                                       1000000000000000ull,
                                       10000000000000000ull,
                                       100000000000000000ull,
                                       1000000000000000000ull,
                                       10000000000000000000ull};

constexpr char kDigitPairs[] =
    "00010203040506070809101112131415161718192021222324252627282930313233343536373839"
    "40414243444546474849505152535455565758596061626364656667686970717273747576777879"
    "8081828384858687888990919293949596979899";

// Writes the two digits of v (< 100) just before q; returns the new start.
inline char* PutTwoDigits(char* q, std::uint64_t v) {
  q -= 2;
  std::memcpy(q, kDigitPairs + 2 * v, 2);
  return q;
}

// The shortest fixed-notation text of a (positive, not whole) by trying 1, 2, ... decimals:
// a k-decimal number n / 10^k reads back as a exactly when the IEEE quotient of the two
// exact values n and 10^k is a, since division rounds as reading the decimal does. While
// 10^k times the gap to the next double stays under 1, at most one n can read back and it is
// within one of a * 10^k, so the first k with such an n gives the shortest form, which is
// what to_chars would find with its general search, at a fraction of the cost. Returns the
// length written into out, 0 when the value is left to to_chars.
std::size_t ShortDecimals(double a, char* out) {
  std::uint64_t bits;
  std::memcpy(&bits, &a, sizeof bits);
  ++bits;  // the next double up (a is finite and below 2^53)
  double next;
  std::memcpy(&next, &bits, sizeof next);
  const double gap = next - a;
  for (int k = 1; k < 20; ++k) {
    const double spread = gap * kPow10[k];
    if (spread >= 1) return 0;  // more than one n could read back
    double x = a * kPow10[k];
    if (x >= 9007199254740991.0) return 0;  // n would not be exact
    auto c = static_cast<double>(static_cast<std::int64_t>(x + 0.5));
    // An n that reads back lies within spread / 2 of a * 10^k, which x holds to within half
    // a unit in its last place: farther from x than that, no division need tell.
    const double d = std::fabs(x - c), slack = spread / 2 + x * 2.3e-16;
    double n = -1;
    if (d <= slack && c / kPow10[k] == a) {
      n = c;
    } else if (1 - d <= slack) {
      // Only near a midpoint can the one n be a neighbour of the nearest whole number.
      if (c - 1 > 0 && (c - 1) / kPow10[k] == a) {
        n = c - 1;
      } else if ((c + 1) / kPow10[k] == a) {
        n = c + 1;
      }
    }
    if (n < 0) continue;
    // n / 10^k lies strictly between the whole numbers around a (both are doubles, and
    // rounding keeps order), so its whole part is a's.
    auto digits = static_cast<std::uint64_t>(n);
    if (digits % 10 == 0) return 0;  // cannot happen: k - 1 decimals would have read back
    if (digits <= static_cast<std::uint64_t>(a) * kPow10Int[k]) return 0;
    // The digits of n from the right, two at a time, with the point k digits in (n < 2^53:
    // 16 digits).
    char tmp[24];
    char* q = tmp + sizeof tmp;
    int i = 0;
    for (; i + 2 <= k; i += 2, digits /= 100) q = PutTwoDigits(q, digits % 100);
    if (i < k) {
      *--q = static_cast<char>('0' + digits % 10);
      digits /= 10;
    }
    *--q = '.';
    while (digits >= 10) {
      q = PutTwoDigits(q, digits % 100);
      digits /= 100;
    }
    if (digits != 0 || *q == '.') *--q = static_cast<char>('0' + digits);
    const auto length = static_cast<std::size_t>(tmp + sizeof tmp - q);
    std::memcpy(out, q, length);
    return length;
  }
  return 0;
}

}  // namespace

std::size_t FormatNumberTo(double v, char* out) {
  if (v == 0) {  // also -0
    out[0] = '0';
    return 1;
  }
  if (!std::isfinite(v)) {
    const char* t = std::isnan(v) ? "NaN" : (v < 0 ? "-Infinity" : "Infinity");
    std::size_t n = std::strlen(t);
    std::memcpy(out, t, n);
    return n;
  }
  double a = std::fabs(v);
  if (a < 9007199254740992.0 && v == std::trunc(v)) {
    // Whole numbers below 2^53, most numbers in sheets: the digits the shortest form gives
    // anyway, without the floating-point search for it.
    return static_cast<std::size_t>(
        std::to_chars(out, out + kNumberTextMax, static_cast<long long>(v)).ptr - out);
  }
  if (a >= 1e-5 && a < 1e16) {
    std::size_t sign = v < 0 ? 1 : 0;
    out[0] = '-';
    if (std::size_t n = ShortDecimals(a, out + sign)) return sign + n;
  }
  auto fmt = (a >= 1e-5 && a < 1e16) ? std::chars_format::fixed : std::chars_format::scientific;
  return static_cast<std::size_t>(std::to_chars(out, out + kNumberTextMax, v, fmt).ptr - out);
}

void AppendNumber(double v, std::string* out) {
  char buf[kNumberTextMax];
  out->append(buf, FormatNumberTo(v, buf));
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
