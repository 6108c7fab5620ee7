#include "odbc-driver/Convert.h"

#include <charconv>
#include <cmath>
#include <cstring>
#include <limits>

#include "odbc-driver/CellText.h"

namespace xlsodbc {

namespace {

ConvertResult Fail(State state, std::string message) {
  return ConvertResult{SQL_ERROR, state, std::move(message)};
}

ConvertResult Warn(State state) {
  return ConvertResult{SQL_SUCCESS_WITH_INFO, state, InfoOf(state).message};
}

bool ParseNumber(const std::string& s, double* d) {
  std::size_t a = 0, b = s.size();
  while (a < b && s[a] == ' ') ++a;
  while (b > a && s[b - 1] == ' ') --b;
  if (a < b && s[a] == '+') ++a;
  if (a == b) return false;
  auto res = std::from_chars(s.data() + a, s.data() + b, *d);
  return res.ec == std::errc() && res.ptr == s.data() + b;
}

template <typename T>
ConvertResult PutInteger(const std::string& text, SQLPOINTER buffer, SQLLEN* indicator) {
  double d;
  if (!ParseNumber(text, &d)) {
    if (text == "TRUE" || text == "FALSE") {
      d = text == "TRUE";
    } else {
      return Fail(State::kInvalidCharacterValue, "'" + text + "' is not a number.");
    }
  }
  double t = std::trunc(d);
  if (!std::isfinite(t) || t < static_cast<double>(std::numeric_limits<T>::min()) ||
      t > static_cast<double>(std::numeric_limits<T>::max())) {
    return Fail(State::kNumericOutOfRange,
                "'" + text + "' is out of range for the requested type.");
  }
  T v = static_cast<T>(t);
  if (buffer) std::memcpy(buffer, &v, sizeof v);
  if (indicator) *indicator = sizeof v;
  if (t != d) return Warn(State::kFractionalTruncation);
  return ConvertResult{};
}

template <typename T>
ConvertResult PutFloat(const std::string& text, SQLPOINTER buffer, SQLLEN* indicator) {
  double d;
  if (!ParseNumber(text, &d))
    return Fail(State::kInvalidCharacterValue, "'" + text + "' is not a number.");
  if (std::isfinite(d) && std::fabs(d) > static_cast<double>(std::numeric_limits<T>::max())) {
    return Fail(State::kNumericOutOfRange,
                "'" + text + "' is out of range for the requested type.");
  }
  T v = static_cast<T>(d);
  if (buffer) std::memcpy(buffer, &v, sizeof v);
  if (indicator) *indicator = sizeof v;
  return ConvertResult{};
}

// A bit takes 0 and 1; a number between 0 and 2 is cut to one of them, with 01S07.
ConvertResult PutBit(const std::string& text, SQLPOINTER buffer, SQLLEN* indicator) {
  double d;
  if (!ParseNumber(text, &d))
    return Fail(State::kInvalidCharacterValue, "'" + text + "' is not a number.");
  if (!(d >= 0 && d < 2)) {
    return Fail(State::kNumericOutOfRange, "'" + text + "' is out of range for a bit.");
  }
  SQLCHAR v = d >= 1 ? 1 : 0;
  if (buffer) std::memcpy(buffer, &v, sizeof v);
  if (indicator) *indicator = sizeof v;
  if (d != 0 && d != 1) return Warn(State::kFractionalTruncation);
  return ConvertResult{};
}

bool DigitsAt(const std::string& s, std::size_t at, std::size_t n, int* v) {
  if (at + n > s.size()) return false;
  *v = 0;
  for (std::size_t i = at; i < at + n; ++i) {
    if (s[i] < '0' || s[i] > '9') return false;
    *v = *v * 10 + (s[i] - '0');
  }
  return true;
}

enum class DateForm { kNone, kDate, kTime, kTimestamp };

// "YYYY-MM-DD[ HH:MM:SS[.fffffffff]]" or "HH:MM:SS[.f...]" (the texts date cells and times
// read as) into *ts, fraction in nanoseconds; *valid false when the form holds but the day
// does not exist (2023-02-29).
DateForm ParseDateTime(const std::string& text, SQL_TIMESTAMP_STRUCT* ts, bool* valid) {
  std::size_t a = 0, b = text.size();
  while (a < b && text[a] == ' ') ++a;
  while (b > a && text[b - 1] == ' ') --b;
  const std::string s = text.substr(a, b - a);
  int y = 0, mo = 1, d = 1, h = 0, mi = 0, se = 0;
  std::size_t at = 0;
  DateForm form;
  if (s.size() >= 10 && s[4] == '-' && s[7] == '-' && DigitsAt(s, 0, 4, &y) &&
      DigitsAt(s, 5, 2, &mo) && DigitsAt(s, 8, 2, &d)) {
    at = 10;
    form = DateForm::kDate;
    if (at < s.size()) {
      if (s[at] != ' ' && s[at] != 'T') return DateForm::kNone;
      ++at;
      form = DateForm::kTimestamp;
    }
  } else {
    form = DateForm::kTime;
  }
  SQLUINTEGER fraction = 0;
  if (form != DateForm::kDate) {
    if (!(s.size() >= at + 8 && s[at + 2] == ':' && s[at + 5] == ':' && DigitsAt(s, at, 2, &h) &&
          DigitsAt(s, at + 3, 2, &mi) && DigitsAt(s, at + 6, 2, &se))) {
      return DateForm::kNone;
    }
    at += 8;
    if (at < s.size()) {
      if (s[at] != '.' || at + 1 == s.size()) return DateForm::kNone;
      SQLUINTEGER scale = 100000000;
      for (++at; at < s.size(); ++at) {
        if (s[at] < '0' || s[at] > '9') return DateForm::kNone;
        fraction += static_cast<SQLUINTEGER>(s[at] - '0') * scale;
        scale /= 10;
      }
    }
  }
  // A field past its range is no date at all; a day the month lacks is a date that does not
  // exist.
  if (mo < 1 || mo > 12 || d < 1 || d > 31 || h > 23 || mi > 59 || se > 59) return DateForm::kNone;
  static const int kDays[] = {31, 29, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  const bool leap = (y % 4 == 0 && y % 100 != 0) || y % 400 == 0;
  *valid = d <= kDays[mo - 1] && (mo != 2 || d < 29 || leap);
  *ts = SQL_TIMESTAMP_STRUCT{static_cast<SQLSMALLINT>(y),
                             static_cast<SQLUSMALLINT>(mo),
                             static_cast<SQLUSMALLINT>(d),
                             static_cast<SQLUSMALLINT>(h),
                             static_cast<SQLUSMALLINT>(mi),
                             static_cast<SQLUSMALLINT>(se),
                             fraction};
  return form;
}

template <typename T>
void PutStruct(const T& v, SQLPOINTER buffer, SQLLEN* indicator) {
  if (buffer) std::memcpy(buffer, &v, sizeof v);
  if (indicator) *indicator = sizeof v;
}

// A date, time or timestamp C type from a value's text. A date drops a time of day, and a
// time drops fractions of a second, with 01S07; text in no date form (or with a month 13) is
// 22018, a day the month lacks 22007.
ConvertResult PutDateTime(const std::string& text, SQLSMALLINT cType, SQLPOINTER buffer,
                          SQLLEN* indicator) {
  SQL_TIMESTAMP_STRUCT ts{};
  bool valid = false;
  const DateForm form = ParseDateTime(text, &ts, &valid);
  const bool wantTime = cType == SQL_C_TYPE_TIME || cType == SQL_C_TIME;
  if (form == DateForm::kNone || (form == DateForm::kTime && !wantTime)) {
    return Fail(State::kInvalidCharacterValue, "'" + text + "' is not a date.");
  }
  if (!valid) return Fail(State::kInvalidDatetimeFormat, "'" + text + "' is no valid date.");
  if (wantTime) {
    if (form == DateForm::kDate) {
      return Fail(State::kInvalidCharacterValue, "'" + text + "' has no time of day.");
    }
    PutStruct(SQL_TIME_STRUCT{ts.hour, ts.minute, ts.second}, buffer, indicator);
    return ts.fraction ? Warn(State::kFractionalTruncation) : ConvertResult{};
  }
  if (cType == SQL_C_TYPE_DATE || cType == SQL_C_DATE) {
    PutStruct(SQL_DATE_STRUCT{ts.year, ts.month, ts.day}, buffer, indicator);
    const bool timeOfDay = ts.hour || ts.minute || ts.second || ts.fraction;
    return timeOfDay ? Warn(State::kFractionalTruncation) : ConvertResult{};
  }
  PutStruct(ts, buffer, indicator);
  return ConvertResult{};
}

// Delivers bytes[*offset...] into buffer, leaving room for a terminator of term bytes.
ConvertResult PutPieces(const char* bytes, std::size_t size, std::size_t term, SQLPOINTER buffer,
                        SQLLEN bufferLength, SQLLEN* indicator, std::size_t* offset) {
  if (*offset > 0 && *offset >= size) return ConvertResult{SQL_NO_DATA, State::kGeneralError, {}};
  std::size_t rest = size - *offset;
  if (indicator) *indicator = static_cast<SQLLEN>(rest);
  if (!buffer || bufferLength < 0 || static_cast<std::size_t>(bufferLength) < term) {
    if (rest == 0) {
      *offset = 1;  // an empty value is delivered once
      return ConvertResult{};
    }
    return Warn(State::kStringTruncated);
  }
  std::size_t room = static_cast<std::size_t>(bufferLength) - term;
  room -= room % (term == 0 ? 1 : term);
  std::size_t n = std::min(room, rest);
  std::memcpy(buffer, bytes + *offset, n);
  std::memset(static_cast<char*>(buffer) + n, 0, term);
  *offset += n;
  if (n < rest) return Warn(State::kStringTruncated);
  if (size == 0) *offset = 1;
  return ConvertResult{};
}

}  // namespace

const std::vector<SqlTypeInfo>& SqlTypes() {
  // Numbers are doubles in cells: fifteen significant digits whatever the declared type.
  static const std::vector<SqlTypeInfo> kTypes = {
      {"BIT", SQL_BIT, 1, nullptr, nullptr, false, true, 0, SQL_BIT, 0, 1, 1, SQL_C_BIT},
      {"TINYINT", SQL_TINYINT, 3, nullptr, nullptr, false, true, 0, SQL_TINYINT, 0, 1, 4,
       SQL_C_STINYINT},
      {"BIGINT", SQL_BIGINT, 19, nullptr, nullptr, false, true, 0, SQL_BIGINT, 0, 8, 20,
       SQL_C_SBIGINT},
      {"LONGVARCHAR", SQL_LONGVARCHAR, 32767, "'", nullptr, true, false, 0, SQL_LONGVARCHAR, 0,
       32767, 32767, SQL_C_CHAR},
      {"CHAR", SQL_CHAR, 255, "'", "length", true, false, 0, SQL_CHAR, 0, 255, 255, SQL_C_CHAR},
      {"NUMERIC", SQL_NUMERIC, 15, nullptr, "precision,scale", false, true, 0, SQL_NUMERIC, 0, 17,
       17, SQL_C_CHAR},
      {"DECIMAL", SQL_DECIMAL, 15, nullptr, "precision,scale", false, true, 0, SQL_DECIMAL, 0, 17,
       17, SQL_C_CHAR},
      {"INTEGER", SQL_INTEGER, 10, nullptr, nullptr, false, true, 0, SQL_INTEGER, 0, 4, 11,
       SQL_C_SLONG},
      {"SMALLINT", SQL_SMALLINT, 5, nullptr, nullptr, false, true, 0, SQL_SMALLINT, 0, 2, 6,
       SQL_C_SSHORT},
      {"FLOAT", SQL_FLOAT, 15, nullptr, nullptr, false, true, 0, SQL_FLOAT, 0, 8, 24, SQL_C_DOUBLE},
      {"REAL", SQL_REAL, 7, nullptr, nullptr, false, true, 0, SQL_REAL, 0, 4, 14, SQL_C_FLOAT},
      {"DOUBLE", SQL_DOUBLE, 15, nullptr, nullptr, false, true, 0, SQL_DOUBLE, 0, 8, 24,
       SQL_C_DOUBLE},
      {"VARCHAR", SQL_VARCHAR, 255, "'", "length", true, false, 0, SQL_VARCHAR, 0, 255, 255,
       SQL_C_CHAR},
      {"DATE", SQL_TYPE_DATE, 10, "'", nullptr, false, false, 0, SQL_DATETIME, SQL_CODE_DATE, 6, 10,
       SQL_C_TYPE_DATE},
      {"TIME", SQL_TYPE_TIME, 8, "'", nullptr, false, false, 0, SQL_DATETIME, SQL_CODE_TIME, 6, 8,
       SQL_C_TYPE_TIME},
      {"TIMESTAMP", SQL_TYPE_TIMESTAMP, 19, "'", nullptr, false, false, 0, SQL_DATETIME,
       SQL_CODE_TIMESTAMP, 16, 19, SQL_C_TYPE_TIMESTAMP},
  };
  return kTypes;
}

const SqlTypeInfo& SqlTypeOf(SQLSMALLINT type) {
  const auto& types = SqlTypes();
  for (const SqlTypeInfo& t : types) {
    if (t.type == type) return t;
  }
  for (const SqlTypeInfo& t : types) {
    if (t.type == SQL_VARCHAR) return t;
  }
  return types.front();
}

std::u16string Utf8ToUtf16(std::string_view s) {
  std::u16string out;
  out.reserve(s.size());
  std::size_t i = 0;
  while (i < s.size()) {
    unsigned char c = static_cast<unsigned char>(s[i]);
    char32_t cp;
    std::size_t len;
    if (c < 0x80) {
      cp = c, len = 1;
    } else if ((c & 0xE0) == 0xC0) {
      cp = c & 0x1F, len = 2;
    } else if ((c & 0xF0) == 0xE0) {
      cp = c & 0x0F, len = 3;
    } else if ((c & 0xF8) == 0xF0) {
      cp = c & 0x07, len = 4;
    } else {
      out.push_back(0xFFFD);
      ++i;
      continue;
    }
    bool ok = i + len <= s.size();
    for (std::size_t k = 1; ok && k < len; ++k) {
      unsigned char cc = static_cast<unsigned char>(s[i + k]);
      ok = (cc & 0xC0) == 0x80;
      cp = (cp << 6) | (cc & 0x3F);
    }
    if (!ok || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) {
      out.push_back(0xFFFD);
      ++i;
      continue;
    }
    if (cp >= 0x10000) {
      cp -= 0x10000;
      out.push_back(static_cast<char16_t>(0xD800 + (cp >> 10)));
      out.push_back(static_cast<char16_t>(0xDC00 + (cp & 0x3FF)));
    } else {
      out.push_back(static_cast<char16_t>(cp));
    }
    i += len;
  }
  return out;
}

std::string Utf16ToUtf8(const SQLWCHAR* s, std::size_t units) {
  std::string out;
  for (std::size_t i = 0; i < units; ++i) {
    char32_t cp = s[i];
    if (cp >= 0xD800 && cp <= 0xDBFF && i + 1 < units && s[i + 1] >= 0xDC00 && s[i + 1] <= 0xDFFF) {
      cp = 0x10000 + ((cp - 0xD800) << 10) + (s[i + 1] - 0xDC00);
      ++i;
    } else if (cp >= 0xD800 && cp <= 0xDFFF) {
      cp = 0xFFFD;
    }
    if (cp < 0x80) {
      out.push_back(static_cast<char>(cp));
    } else if (cp < 0x800) {
      out.push_back(static_cast<char>(0xC0 | (cp >> 6)));
      out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    } else if (cp < 0x10000) {
      out.push_back(static_cast<char>(0xE0 | (cp >> 12)));
      out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
      out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    } else {
      out.push_back(static_cast<char>(0xF0 | (cp >> 18)));
      out.push_back(static_cast<char>(0x80 | ((cp >> 12) & 0x3F)));
      out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
      out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    }
  }
  return out;
}

ConvertResult ConvertText(const std::string* text, SQLSMALLINT cType, SQLPOINTER buffer,
                          SQLLEN bufferLength, SQLLEN* indicator, std::size_t* offset) {
  if (!text) return ConvertView(nullptr, cType, buffer, bufferLength, indicator, offset);
  std::string_view view(*text);
  return ConvertView(&view, cType, buffer, bufferLength, indicator, offset);
}

ConvertResult ConvertView(const std::string_view* text, SQLSMALLINT cType, SQLPOINTER buffer,
                          SQLLEN bufferLength, SQLLEN* indicator, std::size_t* offset) {
  if (!text) {
    if (*offset > 0) return ConvertResult{SQL_NO_DATA, State::kGeneralError, {}};
    *offset = 1;
    if (!indicator)
      return Fail(State::kNullWithoutIndicator, InfoOf(State::kNullWithoutIndicator).message);
    *indicator = SQL_NULL_DATA;
    return ConvertResult{};
  }
  switch (cType) {
    case SQL_C_CHAR:
    case SQL_C_DEFAULT:
      return PutPieces(text->data(), text->size(), 1, buffer, bufferLength, indicator, offset);
    case SQL_C_WCHAR: {
      std::u16string w = Utf8ToUtf16(*text);
      return PutPieces(reinterpret_cast<const char*>(w.data()), w.size() * 2, 2, buffer,
                       bufferLength, indicator, offset);
    }
    case SQL_C_BINARY:
      return PutPieces(text->data(), text->size(), 0, buffer, bufferLength, indicator, offset);
    default:
      break;
  }
  if (*offset > 0) return ConvertResult{SQL_NO_DATA, State::kGeneralError, {}};
  *offset = 1;
  const std::string whole(*text);
  switch (cType) {
    case SQL_C_LONG:
    case SQL_C_SLONG:
      return PutInteger<SQLINTEGER>(whole, buffer, indicator);
    case SQL_C_ULONG:
      return PutInteger<SQLUINTEGER>(whole, buffer, indicator);
    case SQL_C_SHORT:
    case SQL_C_SSHORT:
      return PutInteger<SQLSMALLINT>(whole, buffer, indicator);
    case SQL_C_USHORT:
      return PutInteger<SQLUSMALLINT>(whole, buffer, indicator);
    case SQL_C_TINYINT:
    case SQL_C_STINYINT:
      return PutInteger<SQLSCHAR>(whole, buffer, indicator);
    case SQL_C_UTINYINT:
      return PutInteger<SQLCHAR>(whole, buffer, indicator);
    case SQL_C_BIT:
      return PutBit(whole, buffer, indicator);
    case SQL_C_SBIGINT:
      return PutInteger<SQLBIGINT>(whole, buffer, indicator);
    case SQL_C_UBIGINT:
      return PutInteger<SQLUBIGINT>(whole, buffer, indicator);
    case SQL_C_DOUBLE:
      return PutFloat<SQLDOUBLE>(whole, buffer, indicator);
    case SQL_C_FLOAT:
      return PutFloat<SQLREAL>(whole, buffer, indicator);
    case SQL_C_TYPE_TIMESTAMP:
    case SQL_C_TIMESTAMP:
    case SQL_C_TYPE_DATE:
    case SQL_C_DATE:
    case SQL_C_TYPE_TIME:
    case SQL_C_TIME:
      return PutDateTime(whole, cType, buffer, indicator);
    default:
      return Fail(State::kInvalidCType, "C type " + std::to_string(cType) + " is not supported.");
  }
}

std::size_t FixedSizeOf(SQLSMALLINT cType) {
  switch (cType) {
    case SQL_C_LONG:
    case SQL_C_SLONG:
    case SQL_C_ULONG:
      return sizeof(SQLINTEGER);
    case SQL_C_SHORT:
    case SQL_C_SSHORT:
    case SQL_C_USHORT:
      return sizeof(SQLSMALLINT);
    case SQL_C_TINYINT:
    case SQL_C_STINYINT:
    case SQL_C_UTINYINT:
    case SQL_C_BIT:
      return 1;
    case SQL_C_SBIGINT:
    case SQL_C_UBIGINT:
      return sizeof(SQLBIGINT);
    case SQL_C_DOUBLE:
      return sizeof(SQLDOUBLE);
    case SQL_C_FLOAT:
      return sizeof(SQLREAL);
    case SQL_C_TYPE_TIMESTAMP:
    case SQL_C_TIMESTAMP:
      return sizeof(SQL_TIMESTAMP_STRUCT);
    case SQL_C_TYPE_DATE:
    case SQL_C_DATE:
      return sizeof(SQL_DATE_STRUCT);
    case SQL_C_TYPE_TIME:
    case SQL_C_TIME:
      return sizeof(SQL_TIME_STRUCT);
    default:
      return 0;
  }
}

namespace {

// A row-wise array may put a value at any address: read it bytewise.
template <typename T>
T Load(const void* p) {
  T v;
  std::memcpy(&v, p, sizeof v);
  return v;
}

ConvertResult DateText(const char* format, Value* out, int a, int b, int c, int d = 0, int e = 0,
                       int f = 0) {
  char buf[48];
  std::snprintf(buf, sizeof buf, format, a, b, c, d, e, f);
  out->kind = Value::Kind::kText;
  out->text = buf;
  return ConvertResult{};
}

}  // namespace

ConvertResult ParameterValue(SQLSMALLINT cType, SQLPOINTER buffer, SQLLEN bufferLength,
                             SQLLEN* indicator, Value* out) {
  SQLLEN len = indicator ? Load<SQLLEN>(indicator) : SQL_NTS;
  if (len == SQL_NULL_DATA || !buffer) {
    out->kind = Value::Kind::kNull;
    return ConvertResult{};
  }
  if (len == SQL_DATA_AT_EXEC || len <= SQL_LEN_DATA_AT_EXEC_OFFSET) {
    return Fail(State::kNotImplemented,
                "Data at execution (SQL_DATA_AT_EXEC) is not supported: bind the value itself.");
  }
  if (len < 0 && len != SQL_NTS) {
    return Fail(State::kInvalidLength,
                "Parameter length " + std::to_string(len) + " is not valid.");
  }
  auto number = [&](double d) {
    out->kind = Value::Kind::kNumber;
    out->number = d;
    return ConvertResult{};
  };
  switch (cType) {
    case SQL_C_CHAR:
    case SQL_C_DEFAULT:
    case SQL_C_BINARY: {
      const char* p = static_cast<const char*>(buffer);
      // A NUL-terminated value ends within its buffer when the buffer's size is known.
      std::size_t n = len != SQL_NTS     ? static_cast<std::size_t>(len)
                      : bufferLength > 0 ? strnlen(p, static_cast<std::size_t>(bufferLength))
                                         : std::strlen(p);
      out->kind = Value::Kind::kText;
      out->text.assign(p, n);
      return ConvertResult{};
    }
    case SQL_C_WCHAR: {
      std::size_t n = 0;
      if (len != SQL_NTS) {
        n = static_cast<std::size_t>(len) / sizeof(SQLWCHAR);
      } else {
        auto limit =
            bufferLength > 0 ? static_cast<std::size_t>(bufferLength) / sizeof(SQLWCHAR) : SIZE_MAX;
        const char* p = static_cast<const char*>(buffer);
        while (n < limit && Load<SQLWCHAR>(p + n * sizeof(SQLWCHAR)) != 0) ++n;
      }
      std::u16string units(n, u'\0');
      std::memcpy(units.data(), buffer, n * sizeof(SQLWCHAR));
      out->kind = Value::Kind::kText;
      out->text = Utf16ToUtf8(reinterpret_cast<const SQLWCHAR*>(units.data()), n);
      return ConvertResult{};
    }
    case SQL_C_LONG:
    case SQL_C_SLONG:
      return number(Load<SQLINTEGER>(buffer));
    case SQL_C_ULONG:
      return number(Load<SQLUINTEGER>(buffer));
    case SQL_C_SHORT:
    case SQL_C_SSHORT:
      return number(Load<SQLSMALLINT>(buffer));
    case SQL_C_USHORT:
      return number(Load<SQLUSMALLINT>(buffer));
    case SQL_C_TINYINT:
    case SQL_C_STINYINT:
      return number(Load<SQLSCHAR>(buffer));
    case SQL_C_UTINYINT:
    case SQL_C_BIT:
      return number(Load<SQLCHAR>(buffer));
    case SQL_C_SBIGINT:
      return number(static_cast<double>(Load<SQLBIGINT>(buffer)));
    case SQL_C_UBIGINT:
      return number(static_cast<double>(Load<SQLUBIGINT>(buffer)));
    case SQL_C_DOUBLE:
      return number(Load<SQLDOUBLE>(buffer));
    case SQL_C_FLOAT:
      return number(Load<SQLREAL>(buffer));
    // Dates and times go in as the text cells read back as.
    case SQL_C_TYPE_TIMESTAMP:
    case SQL_C_TIMESTAMP: {
      auto t = Load<SQL_TIMESTAMP_STRUCT>(buffer);
      return DateText("%04d-%02d-%02d %02d:%02d:%02d", out, t.year, t.month, t.day, t.hour,
                      t.minute, t.second);
    }
    case SQL_C_TYPE_DATE:
    case SQL_C_DATE: {
      auto d = Load<SQL_DATE_STRUCT>(buffer);
      return DateText("%04d-%02d-%02d", out, d.year, d.month, d.day);
    }
    case SQL_C_TYPE_TIME:
    case SQL_C_TIME: {
      auto t = Load<SQL_TIME_STRUCT>(buffer);
      return DateText("%02d:%02d:%02d", out, t.hour, t.minute, t.second);
    }
    default:
      return Fail(State::kNotImplemented,
                  "Parameters of C type " + std::to_string(cType) + " are not supported.");
  }
}

}  // namespace xlsodbc
