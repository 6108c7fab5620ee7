#include "odbc-driver/SqlRewrite.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <optional>

#include "odbc-driver/Sql.h"

namespace xlsodbc {

namespace {

struct Token {
  enum Kind { kSpace, kString, kDqString, kName, kWord, kNumber, kParam, kPunct, kLBrace, kRBrace };
  Kind kind;
  std::size_t begin, end;
};

bool IsWordByte(unsigned char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' ||
         c == '$' || c >= 0x80;
}
bool IsDigit(char c) { return c >= '0' && c <= '9'; }
bool IsSpace(char c) {
  return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\f' || c == '\v';
}

// Quoted runs end at their closing quote; a doubled quote stays inside. An unclosed one runs
// to the end, and SQLite reports it.
std::size_t SkipQuoted(std::string_view s, std::size_t i, char close, bool doubled) {
  for (++i; i < s.size(); ++i) {
    if (s[i] != close) continue;
    if (doubled && i + 1 < s.size() && s[i + 1] == close) {
      ++i;
      continue;
    }
    return i + 1;
  }
  return s.size();
}

std::vector<Token> Tokenize(std::string_view s) {
  std::vector<Token> out;
  std::size_t i = 0;
  while (i < s.size()) {
    const std::size_t b = i;
    const char c = s[i];
    Token::Kind k = Token::kPunct;
    if (IsSpace(c)) {
      while (i < s.size() && IsSpace(s[i])) ++i;
      k = Token::kSpace;
    } else if (c == '-' && i + 1 < s.size() && s[i + 1] == '-') {
      while (i < s.size() && s[i] != '\n') ++i;
      k = Token::kSpace;
    } else if (c == '/' && i + 1 < s.size() && s[i + 1] == '*') {
      std::size_t e = s.find("*/", i + 2);
      i = e == std::string_view::npos ? s.size() : e + 2;
      k = Token::kSpace;
    } else if (c == '\'') {
      i = SkipQuoted(s, i, '\'', true), k = Token::kString;
    } else if (c == '"') {
      i = SkipQuoted(s, i, '"', true), k = Token::kDqString;
    } else if (c == '[') {
      i = SkipQuoted(s, i, ']', false), k = Token::kName;
    } else if (c == '`') {
      i = SkipQuoted(s, i, '`', true), k = Token::kName;
    } else if (IsDigit(c) || (c == '.' && i + 1 < s.size() && IsDigit(s[i + 1]))) {
      while (i < s.size() && (IsWordByte(static_cast<unsigned char>(s[i])) || s[i] == '.')) {
        // An exponent's sign belongs to the number: 1e-5.
        bool exp = (s[i] == 'e' || s[i] == 'E') && i + 1 < s.size() &&
                   (s[i + 1] == '-' || s[i + 1] == '+');
        i += exp ? 2 : 1;
      }
      k = Token::kNumber;
    } else if (IsWordByte(static_cast<unsigned char>(c))) {
      while (i < s.size() && IsWordByte(static_cast<unsigned char>(s[i]))) ++i;
      k = Token::kWord;
    } else if (c == '?') {
      ++i;
      while (i < s.size() && IsDigit(s[i])) ++i;
      k = Token::kParam;
    } else {
      ++i;
      k = c == '{' ? Token::kLBrace : (c == '}' ? Token::kRBrace : Token::kPunct);
    }
    out.push_back({k, b, i});
  }
  return out;
}

bool WordIs(std::string_view s, const Token& t, std::string_view word) {
  if (t.kind != Token::kWord || t.end - t.begin != word.size()) return false;
  for (std::size_t i = 0; i < word.size(); ++i) {
    char c = s[t.begin + i];
    if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 32);
    if (c != word[i]) return false;
  }
  return true;
}

std::string Unquote(std::string_view text) {
  if (text.size() >= 2) {
    char q = text.front();
    char close = q == '[' ? ']' : q;
    if ((q == '[' || q == '`' || q == '"' || q == '\'') && text.back() == close) {
      std::string out;
      for (std::size_t i = 1; i + 1 < text.size(); ++i) {
        out.push_back(text[i]);
        if (q != '[' && text[i] == q && i + 2 < text.size() && text[i + 1] == q) ++i;
      }
      return out;
    }
  }
  return std::string(text);
}

std::string SingleQuoted(std::string_view text) {
  std::string out = "'";
  for (char c : text) {
    out.push_back(c);
    if (c == '\'') out.push_back('\'');
  }
  out.push_back('\'');
  return out;
}

const char* CastType(std::string_view sqlType) {
  std::string t(sqlType);
  for (char& c : t) c = static_cast<char>(c >= 'a' && c <= 'z' ? c - 32 : c);
  static const std::pair<const char*, const char*> kTypes[] = {
      {"SQL_CHAR", "TEXT"},           {"SQL_VARCHAR", "TEXT"},    {"SQL_LONGVARCHAR", "TEXT"},
      {"SQL_WCHAR", "TEXT"},          {"SQL_WVARCHAR", "TEXT"},   {"SQL_WLONGVARCHAR", "TEXT"},
      {"SQL_DATE", "TEXT"},           {"SQL_TYPE_DATE", "TEXT"},  {"SQL_TIMESTAMP", "TEXT"},
      {"SQL_TYPE_TIMESTAMP", "TEXT"}, {"SQL_INTEGER", "INTEGER"}, {"SQL_SMALLINT", "INTEGER"},
      {"SQL_TINYINT", "INTEGER"},     {"SQL_BIGINT", "INTEGER"},  {"SQL_BIT", "INTEGER"},
      {"SQL_DOUBLE", "REAL"},         {"SQL_FLOAT", "REAL"},      {"SQL_REAL", "REAL"},
      {"SQL_NUMERIC", "REAL"},        {"SQL_DECIMAL", "REAL"}};
  for (const auto& [name, cast] : kTypes) {
    if (t == name) return cast;
  }
  return nullptr;
}

class Rewriter {
 public:
  Rewriter(std::string_view in, RewrittenSql* out) : in_(in), out_(out), t_(Tokenize(in)) {}

  Error Run() {
    std::string& o = out_->sql;
    o.reserve(in_.size() + 16);
    for (i_ = 0; i_ < t_.size();) {
      const Token& t = t_[i_];
      if (t.kind != Token::kSpace) {
        Error e = Significant();
        if (!e.ok()) return e;
        continue;
      }
      Emit(t);
      ++i_;
    }
    if (!braces_.empty()) return Fail(in_.size(), "an escape sequence '{' is not closed");
    FlushLimits(0);
    return Error();
  }

 private:
  std::string_view Text(const Token& t) const { return in_.substr(t.begin, t.end - t.begin); }
  void Anchor(std::size_t inputAt) { out_->anchors.emplace_back(out_->sql.size(), inputAt); }
  void Emit(const Token& t) {
    Anchor(t.begin);
    out_->sql.append(Text(t));
  }
  // Index of the next token that is not space or comment, at or after j.
  std::size_t Next(std::size_t j) const {
    while (j < t_.size() && t_[j].kind == Token::kSpace) ++j;
    return j;
  }
  bool NextIs(std::size_t j, char c) const {
    j = Next(j);
    return j < t_.size() && t_[j].kind != Token::kString && Text(t_[j]) == std::string_view(&c, 1);
  }
  Error Fail(std::size_t at, const std::string& what) const {
    return Error(ErrorKind::kSyntax,
                 "Syntax error at position " + std::to_string(at + 1) + ": " + what + ".");
  }
  void FlushLimits(int depth) {
    while (!limits_.empty() && limits_.back().first == depth) {
      out_->sql += " LIMIT " + limits_.back().second;
      limits_.pop_back();
    }
  }

  // Handles the significant token at i_ and moves past what it consumed.
  Error Significant() {
    const Token& t = t_[i_];
    const std::string_view text = Text(t);
    TrackVerb(t);
    if (t.kind == Token::kParam) ++out_->parameterCount;
    if (itemStart_) {
      itemStart_ = false;
      if (BareItem()) return Error();
    }
    if (valuesNext_ && !(t.kind == Token::kPunct && text == "(")) valuesNext_ = false;
    if (afterTuple_) {
      afterTuple_ = false;
      if (t.kind == Token::kPunct && text == ",") valuesNext_ = true;
    }
    switch (t.kind) {
      case Token::kDqString:
        Anchor(t.begin);
        out_->sql += SingleQuoted(Unquote(text));
        ++i_;
        return Error();
      case Token::kLBrace:
        return Escape();
      case Token::kRBrace:
        if (!braces_.empty()) {
          braces_.pop_back();
          Anchor(t.begin);
          out_->sql += ' ';
          ++i_;
          return Error();
        }
        break;
      case Token::kWord:
        if (WordIs(in_, t, "SELECT")) return Select();
        if (WordIs(in_, t, "VALUES")) valuesNext_ = true;
        // LEFT and RIGHT are join keywords to SQLite; bracketed, they name the functions.
        if ((WordIs(in_, t, "LEFT") || WordIs(in_, t, "RIGHT")) && NextIs(i_ + 1, '(')) {
          Anchor(t.begin);
          out_->sql += "[" + std::string(text) + "]";
          ++i_;
          return Error();
        }
        if (WordIs(in_, t, "CONVERT") && NextIs(i_ + 1, '(')) {
          Anchor(t.begin);
          out_->sql += "CAST";
          converts_.push_back(depth_ + 1);
          ++i_;
          return Error();
        }
        break;
      case Token::kPunct:
        return Punct(t);
      default:
        break;
    }
    Emit(t);
    ++i_;
    return Error();
  }

  Error Punct(const Token& t) {
    const char c = in_[t.begin];
    if (c == '(') {
      ++depth_;
      if (valuesNext_) {
        valuesNext_ = false;
        tuples_.push_back(depth_);
        itemStart_ = true;
      }
    } else if (c == ')') {
      FlushLimits(depth_);
      if (!tuples_.empty() && tuples_.back() == depth_) {
        tuples_.pop_back();
        afterTuple_ = true;
      }
      if (!converts_.empty() && converts_.back() == depth_) converts_.pop_back();
      if (depth_ > 0) --depth_;
    } else if (c == ',') {
      if (!tuples_.empty() && tuples_.back() == depth_) itemStart_ = true;
      if (!converts_.empty() && converts_.back() == depth_) {
        std::size_t j = Next(i_ + 1);
        const char* cast =
            j < t_.size() && t_[j].kind == Token::kWord ? CastType(Text(t_[j])) : nullptr;
        if (cast) {
          Anchor(t.begin);
          out_->sql += std::string(" AS ") + cast;
          i_ = j + 1;
          return Error();
        }
      }
    } else if (c == ';' && depth_ == 0) {
      FlushLimits(0);
    }
    Emit(t);
    ++i_;
    return Error();
  }

  // SELECT [DISTINCT | ALL] TOP n: TOP goes, and LIMIT n closes this SELECT's scope.
  Error Select() {
    Emit(t_[i_]);
    ++i_;
    std::size_t j = Next(i_);
    if (j < t_.size() && (WordIs(in_, t_[j], "DISTINCT") || WordIs(in_, t_[j], "ALL"))) {
      j = Next(j + 1);
    }
    if (j >= t_.size() || !WordIs(in_, t_[j], "TOP")) return Error();
    std::size_t n = Next(j + 1);
    if (n >= t_.size() || t_[n].kind != Token::kNumber) {
      return Fail(t_[j].begin, "TOP takes a whole number of rows");
    }
    std::size_t after = Next(n + 1);
    if (after < t_.size() && WordIs(in_, t_[after], "PERCENT")) {
      return Error(ErrorKind::kNotSupported, "TOP n PERCENT is not supported; use TOP n.");
    }
    for (; i_ < j; ++i_) Emit(t_[i_]);  // the space and DISTINCT before TOP
    limits_.emplace_back(depth_, std::string(Text(t_[n])));
    i_ = Next(n + 1);
    return Error();
  }

  // { d | t | ts 'text' }, { fn ... }, { oj ... }, { escape 'c' }.
  Error Escape() {
    const Token& open = t_[i_];
    std::size_t k = Next(i_ + 1);
    if (k >= t_.size() || t_[k].kind != Token::kWord) {
      return Fail(open.begin, "'{' starts no escape sequence");
    }
    const Token& kw = t_[k];
    bool date = WordIs(in_, kw, "D"), time = WordIs(in_, kw, "T"), ts = WordIs(in_, kw, "TS");
    if (date || time || ts) {
      std::size_t s = Next(k + 1), close = s < t_.size() ? Next(s + 1) : s;
      if (s >= t_.size() || t_[s].kind != Token::kString || close >= t_.size() ||
          t_[close].kind != Token::kRBrace) {
        return Fail(open.begin, "a date escape is {d 'YYYY-MM-DD'}");
      }
      std::string normal;
      if (!NormalizeDateText(Unquote(Text(t_[s])), time, &normal) ||
          (date && normal.size() != 19) || (time && normal.size() != 8)) {
        return Fail(t_[s].begin, "'" + Unquote(Text(t_[s])) + "' is no valid date or time");
      }
      Anchor(open.begin);
      out_->sql += SingleQuoted(normal);
      if (!time) out_->dateLiterals.push_back(normal);
      i_ = close + 1;
      return Error();
    }
    if (WordIs(in_, kw, "FN") || WordIs(in_, kw, "OJ") || WordIs(in_, kw, "ESCAPE")) {
      braces_.push_back(open.begin);
      Anchor(open.begin);
      if (WordIs(in_, kw, "ESCAPE")) out_->sql += "ESCAPE ";
      i_ = Next(k + 1);
      return Error();
    }
    if (WordIs(in_, kw, "CALL")) {
      return Error(ErrorKind::kNotSupported, "Procedure calls are not supported.");
    }
    return Fail(kw.begin, "unknown escape sequence '{" + std::string(Text(kw)) + "'");
  }

  // At the start of a VALUES item: a lone bare word or number-like run goes in as text unless
  // it reads back unchanged as a number. True when it consumed the item.
  bool BareItem() {
    std::size_t j = i_, last = i_;
    for (; j < t_.size(); ++j) {
      const Token& t = t_[j];
      char c = t.kind == Token::kPunct ? in_[t.begin] : 0;
      if (c == ',' || c == ')') break;
      if (c == '(') return false;
      if (t.kind == Token::kSpace) continue;
      if (j > i_ && t_[j - 1].kind == Token::kSpace) return false;  // a space inside
      if (t.kind != Token::kWord && t.kind != Token::kNumber && t.kind != Token::kPunct) {
        return false;
      }
      last = j;
    }
    if (j >= t_.size() || j == i_) return false;  // unclosed, or an empty item: SQLite says
    std::string_view raw = in_.substr(t_[i_].begin, t_[last].end - t_[i_].begin);
    double d;
    if (IsCanonicalNumber(raw, &d)) return false;
    if (last == i_ && (WordIs(in_, t_[i_], "NULL") || WordIs(in_, t_[i_], "DEFAULT"))) {
      return false;
    }
    Anchor(t_[i_].begin);
    out_->sql += SingleQuoted(raw);
    i_ = last + 1;
    return true;
  }

  // The verb, and the table an INSERT, UPDATE or DELETE writes.
  void TrackVerb(const Token& t) {
    using Verb = RewrittenSql::Verb;
    if (seen_ == 0) {
      seen_ = 1;
      if (WordIs(in_, t, "SELECT") || WordIs(in_, t, "WITH") || WordIs(in_, t, "VALUES")) {
        out_->verb = Verb::kSelect;
      } else if (WordIs(in_, t, "INSERT") || WordIs(in_, t, "REPLACE")) {
        out_->verb = Verb::kInsert;
        wantTarget_ = 1;
      } else if (WordIs(in_, t, "UPDATE")) {
        out_->verb = Verb::kUpdate;
        wantTarget_ = 2;
      } else if (WordIs(in_, t, "DELETE")) {
        out_->verb = Verb::kDelete;
        wantTarget_ = 1;
      }
      return;
    }
    if (listCheck_) {
      listCheck_ = false;
      if (!(t.kind == Token::kPunct && in_[t.begin] == '(')) out_->columnListAt = out_->sql.size();
    }
    if (wantTarget_ == 1) {  // INSERT [OR x] INTO name, DELETE FROM name
      if (WordIs(in_, t, "INTO") || WordIs(in_, t, "FROM")) wantTarget_ = 2;
      return;
    }
    if (wantTarget_ == 2) {
      if (WordIs(in_, t, "OR")) {
        wantTarget_ = 3;
        return;
      }
      wantTarget_ = 0;
      out_->target = Unquote(Text(t));
      // A column list would go where the next token starts, once the name is emitted.
      listCheck_ = out_->verb == Verb::kInsert;
      return;
    }
    if (wantTarget_ == 3) wantTarget_ = out_->verb == RewrittenSql::Verb::kInsert ? 1 : 2;
  }

  std::string_view in_;
  RewrittenSql* out_;
  std::vector<Token> t_;
  std::size_t i_ = 0;
  int depth_ = 0;
  int seen_ = 0, wantTarget_ = 0;
  bool listCheck_ = false;
  bool valuesNext_ = false, itemStart_ = false, afterTuple_ = false;
  std::vector<int> tuples_, converts_;
  std::vector<std::size_t> braces_;
  std::vector<std::pair<int, std::string>> limits_;
};

int Digits(std::string_view s, std::size_t at, std::size_t n) {
  if (at + n > s.size()) return -1;
  int v = 0;
  for (std::size_t i = at; i < at + n; ++i) {
    if (!IsDigit(s[i])) return -1;
    v = v * 10 + (s[i] - '0');
  }
  return v;
}

}  // namespace

std::size_t RewrittenSql::InputOffset(std::size_t at) const {
  auto it = std::upper_bound(anchors.begin(), anchors.end(), std::make_pair(at, ~std::size_t{0}));
  if (it == anchors.begin()) return at;
  --it;
  return it->second + (at - it->first);
}

bool NormalizeDateText(std::string_view s, bool allowTime, std::string* out) {
  while (!s.empty() && IsSpace(s.front())) s.remove_prefix(1);
  while (!s.empty() && IsSpace(s.back())) s.remove_suffix(1);
  int y = 0, mo = 0, d = 0, h = 0, mi = 0, sec = 0;
  std::size_t at = 0;
  bool hasDate = s.size() >= 10 && s[4] == '-' && s[7] == '-';
  if (hasDate) {
    y = Digits(s, 0, 4), mo = Digits(s, 5, 2), d = Digits(s, 8, 2);
    static const int kDays[] = {31, 29, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    if (y < 0 || mo < 1 || mo > 12 || d < 1 || d > kDays[mo - 1]) return false;
    bool leap = (y % 4 == 0 && y % 100 != 0) || y % 400 == 0;
    if (mo == 2 && d == 29 && !leap) return false;
    at = 10;
    if (at < s.size()) {
      if (s[at] != ' ' && s[at] != 'T') return false;
      ++at;
    }
  } else if (!allowTime) {
    return false;
  }
  if (at < s.size() || !hasDate) {
    if (s.size() < at + 8 || s[at + 2] != ':' || s[at + 5] != ':') return false;
    h = Digits(s, at, 2), mi = Digits(s, at + 3, 2), sec = Digits(s, at + 6, 2);
    if (h < 0 || h > 23 || mi < 0 || mi > 59 || sec < 0 || sec > 59) return false;
    at += 8;
    if (at < s.size()) {  // a fraction of a second, kept only when not zero
      if (s[at] != '.') return false;
      for (std::size_t i = at + 1; i < s.size(); ++i) {
        if (!IsDigit(s[i])) return false;
      }
      if (s.find_first_not_of("0", at + 1) == std::string_view::npos) s = s.substr(0, at);
    }
  }
  char buf[80];  // room for any int, so the compiler sees no truncation
  if (hasDate) {
    std::snprintf(buf, sizeof buf, "%04d-%02d-%02d %02d:%02d:%02d", y, mo, d, h, mi, sec);
  } else {
    std::snprintf(buf, sizeof buf, "%02d:%02d:%02d", h, mi, sec);
  }
  *out = buf;
  if (at < s.size()) out->append(s.substr(at));
  return true;
}

Error RewriteSql(std::string_view in, RewrittenSql* out) {
  *out = RewrittenSql();
  Rewriter r(in, out);
  Error e = r.Run();
  if (!e.ok()) return e;
  return Error();
}

namespace {

// Whether a CREATE TABLE's words from at on are a column constraint the dialect's parser
// does not take, and how many bytes it spans.
std::size_t ConstraintAt(std::string_view sql, std::size_t at) {
  auto word = [&](std::size_t from, std::string_view w) -> std::size_t {
    while (from < sql.size() && std::isspace(static_cast<unsigned char>(sql[from]))) ++from;
    if (sql.size() - from < w.size()) return 0;
    for (std::size_t i = 0; i < w.size(); ++i) {
      if (std::toupper(static_cast<unsigned char>(sql[from + i])) != w[i]) return 0;
    }
    std::size_t end = from + w.size();
    if (end < sql.size() && (std::isalnum(static_cast<unsigned char>(sql[end])) || sql[end] == '_'))
      return 0;
    return end;
  };
  if (std::size_t n = word(at, "NOT")) {
    if (std::size_t m = word(n, "NULL")) return m - at;
    return 0;
  }
  if (std::size_t n = word(at, "PRIMARY")) {
    if (std::size_t m = word(n, "KEY")) return m - at;
    return 0;
  }
  if (std::size_t n = word(at, "NULL")) return n - at;
  if (std::size_t n = word(at, "UNIQUE")) return n - at;
  return 0;
}

}  // namespace

std::optional<std::string> WithoutColumnConstraints(std::string_view sql) {
  std::size_t i = 0;
  while (i < sql.size() && std::isspace(static_cast<unsigned char>(sql[i]))) ++i;
  static constexpr std::string_view kCreate = "CREATE";
  if (sql.size() - i < kCreate.size()) return std::nullopt;
  for (std::size_t k = 0; k < kCreate.size(); ++k) {
    if (std::toupper(static_cast<unsigned char>(sql[i + k])) != kCreate[k]) return std::nullopt;
  }
  std::string out;
  bool stripped = false;
  int depth = 0;
  while (i < sql.size()) {
    char c = sql[i];
    char close = c == '[' ? ']' : (c == '`' || c == '\'' || c == '"') ? c : 0;
    if (close) {
      std::size_t end = sql.find(close, i + 1);
      end = end == std::string_view::npos ? sql.size() : end + 1;
      out.append(sql.substr(i, end - i));
      i = end;
      continue;
    }
    if (c == '(') ++depth;
    if (c == ')') --depth;
    const bool wordStart =
        !out.empty() && !std::isalnum(static_cast<unsigned char>(out.back())) && out.back() != '_';
    if (depth > 0 && wordStart) {
      if (std::size_t n = ConstraintAt(sql, i)) {
        i += n;
        stripped = true;
        continue;
      }
    }
    out.push_back(c);
    ++i;
  }
  if (!stripped) return std::nullopt;
  return out;
}

}  // namespace xlsodbc
