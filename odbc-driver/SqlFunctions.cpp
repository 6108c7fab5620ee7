#include "odbc-driver/SqlFunctions.h"

#include <cmath>
#include <cstring>
#include <ctime>
#include <string>
#include <string_view>

namespace xlsodbc {

namespace {

std::string_view Text(sqlite3_value* v) {
  const auto* p = reinterpret_cast<const char*>(sqlite3_value_text(v));
  return p ? std::string_view(p, static_cast<std::size_t>(sqlite3_value_bytes(v)))
           : std::string_view();
}

void ResultText(sqlite3_context* ctx, std::string_view s) {
  sqlite3_result_text(ctx, s.data(), static_cast<int>(s.size()), SQLITE_TRANSIENT);
}

bool AnyNull(int argc, sqlite3_value** argv) {
  for (int i = 0; i < argc; ++i) {
    if (sqlite3_value_type(argv[i]) == SQLITE_NULL) return true;
  }
  return false;
}

// Byte offset of the n-th character (0-based) of UTF-8 s, or s.size().
std::size_t CharOffset(std::string_view s, long long n) {
  std::size_t i = 0;
  for (; i < s.size() && n > 0; --n) {
    ++i;
    while (i < s.size() && (static_cast<unsigned char>(s[i]) & 0xC0) == 0x80) ++i;
  }
  return i;
}
long long CharCount(std::string_view s) {
  long long n = 0;
  for (unsigned char c : s) n += (c & 0xC0) != 0x80;
  return n;
}

void CaseMap(sqlite3_context* ctx, int argc, sqlite3_value** argv, bool upper) {
  if (AnyNull(argc, argv)) return;
  std::string s(Text(argv[0]));
  for (char& c : s) {
    if (upper && c >= 'a' && c <= 'z') c = static_cast<char>(c - 32);
    if (!upper && c >= 'A' && c <= 'Z') c = static_cast<char>(c + 32);
  }
  ResultText(ctx, s);
}
void Ucase(sqlite3_context* c, int n, sqlite3_value** v) { CaseMap(c, n, v, true); }
void Lcase(sqlite3_context* c, int n, sqlite3_value** v) { CaseMap(c, n, v, false); }

void Left(sqlite3_context* ctx, int argc, sqlite3_value** argv) {
  if (AnyNull(argc, argv)) return;
  std::string_view s = Text(argv[0]);
  ResultText(ctx,
             s.substr(0, CharOffset(s, std::max<sqlite3_int64>(0, sqlite3_value_int64(argv[1])))));
}
void Right(sqlite3_context* ctx, int argc, sqlite3_value** argv) {
  if (AnyNull(argc, argv)) return;
  std::string_view s = Text(argv[0]);
  long long keep = std::max<sqlite3_int64>(0, sqlite3_value_int64(argv[1]));
  long long total = CharCount(s);
  ResultText(ctx, s.substr(CharOffset(s, total > keep ? total - keep : 0)));
}
void Substring(sqlite3_context* ctx, int argc, sqlite3_value** argv) {
  if (AnyNull(argc, argv)) return;
  std::string_view s = Text(argv[0]);
  long long start = sqlite3_value_int64(argv[1]) - 1;
  long long len = argc > 2 ? sqlite3_value_int64(argv[2]) : CharCount(s);
  if (start < 0) len += start, start = 0;
  if (len <= 0) return ResultText(ctx, "");
  std::size_t b = CharOffset(s, start);
  std::string_view rest = s.substr(b);
  ResultText(ctx, rest.substr(0, CharOffset(rest, len)));
}
void Locate(sqlite3_context* ctx, int argc, sqlite3_value** argv) {
  if (AnyNull(argc, argv)) return;
  std::string_view needle = Text(argv[0]), hay = Text(argv[1]);
  long long from = argc > 2 ? std::max<sqlite3_int64>(1, sqlite3_value_int64(argv[2])) : 1;
  std::size_t at = hay.find(needle, CharOffset(hay, from - 1));
  sqlite3_result_int64(ctx, at == std::string_view::npos ? 0 : CharCount(hay.substr(0, at)) + 1);
}
void Concat(sqlite3_context* ctx, int argc, sqlite3_value** argv) {
  std::string s;
  for (int i = 0; i < argc; ++i) s.append(Text(argv[i]));
  ResultText(ctx, s);
}
void Repeat(sqlite3_context* ctx, std::string_view unit, sqlite3_int64 times) {
  if (times <= 0 || unit.empty()) return ResultText(ctx, "");
  sqlite3* db = sqlite3_context_db_handle(ctx);
  auto limit = static_cast<sqlite3_int64>(sqlite3_limit(db, SQLITE_LIMIT_LENGTH, -1));
  if (times > limit / static_cast<sqlite3_int64>(unit.size()))
    return sqlite3_result_error_toobig(ctx);
  std::string s;
  s.reserve(static_cast<std::size_t>(times) * unit.size());
  for (sqlite3_int64 i = 0; i < times; ++i) s.append(unit);
  ResultText(ctx, s);
}
void Space(sqlite3_context* ctx, int argc, sqlite3_value** argv) {
  if (!AnyNull(argc, argv)) Repeat(ctx, " ", sqlite3_value_int64(argv[0]));
}
void RepeatFn(sqlite3_context* ctx, int argc, sqlite3_value** argv) {
  if (!AnyNull(argc, argv)) Repeat(ctx, Text(argv[0]), sqlite3_value_int64(argv[1]));
}
void Ascii(sqlite3_context* ctx, int argc, sqlite3_value** argv) {
  if (AnyNull(argc, argv)) return;
  std::string_view s = Text(argv[0]);
  if (!s.empty()) sqlite3_result_int(ctx, static_cast<unsigned char>(s[0]));
}

// One-argument math: NULL in, NULL out; NaN (a domain error) gives NULL too.
template <double (*F)(double)>
void Math1(sqlite3_context* ctx, int argc, sqlite3_value** argv) {
  if (AnyNull(argc, argv)) return;
  double r = F(sqlite3_value_double(argv[0]));
  if (!std::isnan(r)) sqlite3_result_double(ctx, r);
}
double Sign(double x) { return x > 0 ? 1 : (x < 0 ? -1 : 0); }
void Mod(sqlite3_context* ctx, int argc, sqlite3_value** argv) {
  if (AnyNull(argc, argv)) return;
  double b = sqlite3_value_double(argv[1]);
  if (b != 0) sqlite3_result_double(ctx, std::fmod(sqlite3_value_double(argv[0]), b));
}
void Power(sqlite3_context* ctx, int argc, sqlite3_value** argv) {
  if (AnyNull(argc, argv)) return;
  double r = std::pow(sqlite3_value_double(argv[0]), sqlite3_value_double(argv[1]));
  if (!std::isnan(r)) sqlite3_result_double(ctx, r);
}
void Truncate(sqlite3_context* ctx, int argc, sqlite3_value** argv) {
  if (AnyNull(argc, argv)) return;
  double scale = std::pow(10.0, static_cast<double>(sqlite3_value_int(argv[1])));
  sqlite3_result_double(ctx, std::trunc(sqlite3_value_double(argv[0]) * scale) / scale);
}
void Pi(sqlite3_context* ctx, int, sqlite3_value**) { sqlite3_result_double(ctx, M_PI); }
void Empty(sqlite3_context* ctx, int, sqlite3_value**) { ResultText(ctx, ""); }

// The fields of "YYYY-MM-DD[ HH:MM:SS]": index 0 year ... 5 second. False for other text.
bool DateFields(sqlite3_value* v, int f[6]) {
  if (sqlite3_value_type(v) != SQLITE_TEXT) return false;
  std::string_view s = Text(v);
  auto num = [&](std::size_t at, std::size_t n, int* out) {
    if (at + n > s.size()) return false;
    int x = 0;
    for (std::size_t i = at; i < at + n; ++i) {
      if (s[i] < '0' || s[i] > '9') return false;
      x = x * 10 + (s[i] - '0');
    }
    *out = x;
    return true;
  };
  f[3] = f[4] = f[5] = 0;
  if (s.size() >= 10 && s[4] == '-' && s[7] == '-') {
    if (!num(0, 4, &f[0]) || !num(5, 2, &f[1]) || !num(8, 2, &f[2])) return false;
    if (s.size() >= 19) return num(11, 2, &f[3]) && num(14, 2, &f[4]) && num(17, 2, &f[5]);
    return true;
  }
  f[0] = 1899, f[1] = 12, f[2] = 30;  // a time alone
  return s.size() >= 8 && s[2] == ':' && num(0, 2, &f[3]) && num(3, 2, &f[4]) && num(6, 2, &f[5]);
}
int DayOfYear(const int f[6]) {
  static const int kBefore[] = {0, 31, 59, 90, 120, 151, 181, 212, 243, 273, 304, 334};
  bool leap = (f[0] % 4 == 0 && f[0] % 100 != 0) || f[0] % 400 == 0;
  return kBefore[(f[1] - 1) % 12] + f[2] + (leap && f[1] > 2);
}
template <int Field>
void DatePart(sqlite3_context* ctx, int, sqlite3_value** argv) {
  int f[6];
  if (!DateFields(argv[0], f) || f[1] < 1 || f[1] > 12) return;
  int r;
  if (Field < 6) {
    r = f[Field];
  } else if (Field == 6) {  // DAYOFWEEK: 1 is Sunday (Zeller's congruence, Gregorian)
    int y = f[0], m = f[1];
    if (m < 3) m += 12, --y;
    int h = (f[2] + 13 * (m + 1) / 5 + y + y / 4 - y / 100 + y / 400) % 7;  // 0 Saturday
    r = (h + 6) % 7 + 1;
  } else if (Field == 7) {
    r = DayOfYear(f);
  } else {
    r = (f[1] - 1) / 3 + 1;
  }
  sqlite3_result_int(ctx, r);
}
template <int Kind>  // 0 date, 1 time, 2 both
void Now(sqlite3_context* ctx, int, sqlite3_value**) {
  std::time_t t = std::time(nullptr);
  std::tm tm{};
  localtime_r(&t, &tm);
  char buf[32];
  const char* format =
      Kind == 0 ? "%Y-%m-%d 00:00:00" : (Kind == 1 ? "%H:%M:%S" : "%Y-%m-%d %H:%M:%S");
  std::strftime(buf, sizeof buf, format, &tm);
  ResultText(ctx, buf);
}

bool IsDateOnly(const char* p, int n) {
  if (n != 10 || p[4] != '-' || p[7] != '-') return false;
  for (int i : {0, 1, 2, 3, 5, 6, 8, 9}) {
    if (p[i] < '0' || p[i] > '9') return false;
  }
  return true;
}
int DateCollation(void*, int na, const void* a, int nb, const void* b) {
  static const char kMidnight[] = " 00:00:00";
  const auto* pa = static_cast<const char*>(a);
  const auto* pb = static_cast<const char*>(b);
  std::string sa(pa, static_cast<std::size_t>(na)), sb(pb, static_cast<std::size_t>(nb));
  if (IsDateOnly(pa, na)) sa += kMidnight;
  if (IsDateOnly(pb, nb)) sb += kMidnight;
  int c = sa.compare(sb);
  return c < 0 ? -1 : (c > 0 ? 1 : 0);
}

struct Function {
  const char* name;
  int args;
  void (*fn)(sqlite3_context*, int, sqlite3_value**);
  bool deterministic;
};

}  // namespace

int RegisterSqlFunctions(sqlite3* db) {
  static const Function kFunctions[] = {
      {"ucase", 1, Ucase, true},
      {"lcase", 1, Lcase, true},
      {"left", 2, Left, true},
      {"right", 2, Right, true},
      {"substring", 2, Substring, true},
      {"substring", 3, Substring, true},
      {"locate", 2, Locate, true},
      {"locate", 3, Locate, true},
      {"concat", -1, Concat, true},
      {"space", 1, Space, true},
      {"repeat", 2, RepeatFn, true},
      {"ascii", 1, Ascii, true},
      {"mod", 2, Mod, true},
      {"floor", 1, Math1<std::floor>, true},
      {"ceiling", 1, Math1<std::ceil>, true},
      {"sqrt", 1, Math1<std::sqrt>, true},
      {"exp", 1, Math1<std::exp>, true},
      {"log", 1, Math1<std::log>, true},
      {"log10", 1, Math1<std::log10>, true},
      {"sign", 1, Math1<Sign>, true},
      {"power", 2, Power, true},
      {"truncate", 2, Truncate, true},
      {"pi", 0, Pi, true},
      {"year", 1, DatePart<0>, true},
      {"month", 1, DatePart<1>, true},
      {"dayofmonth", 1, DatePart<2>, true},
      {"hour", 1, DatePart<3>, true},
      {"minute", 1, DatePart<4>, true},
      {"second", 1, DatePart<5>, true},
      {"dayofweek", 1, DatePart<6>, true},
      {"dayofyear", 1, DatePart<7>, true},
      {"quarter", 1, DatePart<8>, true},
      {"curdate", 0, Now<0>, false},
      {"curtime", 0, Now<1>, false},
      {"now", 0, Now<2>, false},
      {"database", 0, Empty, true},
      {"user", 0, Empty, true},
  };
  for (const Function& f : kFunctions) {
    int flags = SQLITE_UTF8 | (f.deterministic ? SQLITE_DETERMINISTIC : 0);
    int rc = sqlite3_create_function(db, f.name, f.args, flags, nullptr, f.fn, nullptr, nullptr);
    if (rc != SQLITE_OK) return rc;
  }
  return sqlite3_create_collation(db, "xlsdate", SQLITE_UTF8, nullptr, DateCollation);
}

}  // namespace xlsodbc
