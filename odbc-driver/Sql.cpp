#include "odbc-driver/Sql.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>

#include "odbc-driver/CellText.h"

namespace xlsodbc {

namespace {

bool IsSpace(char c) {
  return c == ' ' || c == '\t' || c == '\r' || c == '\n' || c == '\f' || c == '\v';
}
bool IsDigit(char c) { return c >= '0' && c <= '9'; }
bool IsAlpha(char c) { return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z'); }
char Upper(char c) { return (c >= 'a' && c <= 'z') ? static_cast<char>(c - 32) : c; }
// Bare names: ASCII letters, digits, _ and $, and any byte of a UTF-8 sequence.
bool IsNameChar(char c) {
  return IsAlpha(c) || IsDigit(c) || c == '_' || c == '$' || static_cast<unsigned char>(c) >= 0x80;
}

// Bytes of a bare word in a VALUES list, by what they do to it; 0 for the word's own.
constexpr unsigned char kEndsValue = 1, kNotInWord = 2;
constexpr std::array<unsigned char, 256> MakeListBytes() {
  std::array<unsigned char, 256> kinds{};
  kinds[','] = kinds[')'] = kEndsValue;
  for (unsigned char c : {' ', '\t', '\r', '\n', '\f', '\v', '\'', '"', '(', ';'}) {
    kinds[c] = kNotInWord;
  }
  return kinds;
}
constexpr std::array<unsigned char, 256> kListByte = MakeListBytes();

// Recursive descent over the raw text. Values are read straight from the text because a
// bare word ("2024-01-01", "x@y.com") is not one token in any ordinary lexer.
class Parser {
 public:
  explicit Parser(std::string_view s) : s_(s) {}

  Error Parse(Statement* st) {
    if (Keyword("SELECT")) {
      st->kind = Statement::Kind::kSelect;
      if (!ParseSelect(st)) return error_;
    } else if (Keyword("CREATE")) {
      st->kind = Statement::Kind::kCreate;
      if (!ExpectKeyword("TABLE") || !ParseTable(&st->table) || !ParseColumnDefs(st)) return error_;
    } else if (Keyword("INSERT")) {
      st->kind = Statement::Kind::kInsert;
      if (!ExpectKeyword("INTO") || !ParseTable(&st->table) || !ParseInsert(st)) return error_;
    } else if (Keyword("UPDATE")) {
      st->kind = Statement::Kind::kUpdate;
      if (!ParseTable(&st->table) || !ParseUpdate(st)) return error_;
    } else if (Keyword("DROP")) {
      st->kind = Statement::Kind::kDrop;
      if (!ExpectKeyword("TABLE") || !ParseTable(&st->table)) return error_;
    } else {
      Fail("expected SELECT, CREATE TABLE, INSERT INTO, UPDATE or DROP TABLE");
      return error_;
    }
    Skip();
    if (Peek() == ';') {
      ++p_;
      Skip();
    }
    if (p_ < s_.size()) {
      Fail("unexpected text after the end of the statement");
      return error_;
    }
    st->parameterCount = parameters_;
    return Error();
  }

 private:
  void Skip() {
    while (p_ < s_.size() && IsSpace(s_[p_])) ++p_;
  }
  char Peek() {
    Skip();
    return p_ < s_.size() ? s_[p_] : '\0';
  }
  bool AtEnd() {
    Skip();
    return p_ >= s_.size();
  }

  // Records the first failure only, with the position it happened at.
  bool Fail(const std::string& what) {
    if (!error_.ok()) return false;
    std::string near;
    if (p_ >= s_.size()) {
      near = "at the end of the statement";
    } else {
      std::size_t n = 0;
      while (p_ + n < s_.size() && n < 16 && !(n > 0 && IsSpace(s_[p_ + n]))) ++n;
      near = "near '" + std::string(s_.substr(p_, n)) + "'";
    }
    error_ = Error(ErrorKind::kSyntax, "Syntax error at position " + std::to_string(p_ + 1) + " " +
                                           near + ": " + what + ".");
    return false;
  }

  // A statement that parses but goes past what the driver takes: also the first failure only.
  bool FailLimit(ErrorKind kind, const std::string& message) {
    if (error_.ok()) error_ = Error(kind, message);
    return false;
  }

  bool Keyword(const char* kw) {
    Skip();
    std::size_t n = 0;
    while (kw[n] != '\0') {
      if (p_ + n >= s_.size() || Upper(s_[p_ + n]) != kw[n]) return false;
      ++n;
    }
    if (p_ + n < s_.size() && IsNameChar(s_[p_ + n])) return false;
    p_ += n;
    return true;
  }
  bool ExpectKeyword(const char* kw) { return Keyword(kw) || Fail(std::string("expected ") + kw); }
  bool Expect(char c) {
    if (Peek() == c) {
      ++p_;
      return true;
    }
    return Fail(std::string("expected '") + c + "'");
  }

  // [name] (no escapes inside: a name ends at the first ']') or a bare name.
  bool ParseName(std::string* out, const char* what) {
    char c = Peek();
    if (c == '[') {
      std::size_t close = s_.find(']', p_ + 1);
      if (close == std::string_view::npos) return Fail("unterminated '['");
      *out = std::string(s_.substr(p_ + 1, close - p_ - 1));
      if (out->empty()) return Fail(std::string("empty ") + what);
      p_ = close + 1;
      return true;
    }
    if (c == '`') {
      std::size_t close = s_.find('`', p_ + 1);
      if (close == std::string_view::npos || close == p_ + 1)
        return Fail(std::string("bad ") + what);
      *out = std::string(s_.substr(p_ + 1, close - p_ - 1));
      p_ = close + 1;
      return true;
    }
    std::size_t start = p_;
    while (p_ < s_.size() && IsNameChar(s_[p_])) ++p_;
    if (p_ == start) return Fail(std::string("expected ") + what);
    *out = std::string(s_.substr(start, p_ - start));
    return true;
  }

  bool ParseTable(TableRef* t) {
    std::size_t start = (Skip(), p_);
    std::string name;
    if (!ParseName(&name, "table name")) return false;
    t->written = std::string(s_.substr(start, p_ - start));
    if (!ParseTableName(name, t)) {
      std::size_t dollar = name.rfind('$');
      if (dollar != std::string::npos &&
          IsRangePastLastColumn(std::string_view(name).substr(dollar + 1))) {
        // The region alone: it is short, where the sheet's name may not be.
        return FailLimit(ErrorKind::kTooManyColumns,
                         "The region " + name.substr(dollar + 1) +
                             " reaches past column XFD: no workbook has more than " +
                             std::to_string(xls::kXlsxMaxColumns) + " columns.");
      }
      p_ = start;
      return Fail("bad table name or cell range");
    }
    return true;
  }

  bool ParseSelect(Statement* st) {
    if (Peek() == '*') {
      ++p_;
    } else {
      do {
        std::string col;
        if (!ParseName(&col, "column name or *")) return false;
        st->columns.push_back(std::move(col));
      } while (Peek() == ',' && (++p_, true));
    }
    if (!ExpectKeyword("FROM") || !ParseTable(&st->table)) return false;
    if (Keyword("WHERE")) {
      st->where = ParseOr();
      if (!st->where) return false;
    }
    return true;
  }

  bool ParseColumnDefs(Statement* st) {
    if (!Expect('(')) return false;
    do {
      std::string col;
      if (!ParseName(&col, "column name")) return false;
      // The type is accepted and not kept: every cell holds text or a number.
      while (IsAlpha(Peek())) {
        std::string type;
        if (!ParseName(&type, "type")) return false;
      }
      if (Peek() == '(') {
        ++p_;
        Skip();
        std::size_t start = p_;
        while (p_ < s_.size() && (IsDigit(s_[p_]) || s_[p_] == ',' || IsSpace(s_[p_]))) ++p_;
        if (p_ == start) return Fail("expected a type size");
        if (!Expect(')')) return false;
      }
      st->columns.push_back(std::move(col));
    } while (Peek() == ',' && (++p_, true));
    return Expect(')');
  }

  bool ParseInsert(Statement* st) {
    if (Peek() == '(') {
      ++p_;
      do {
        std::string col;
        if (!ParseName(&col, "column name")) return false;
        st->columns.push_back(std::move(col));
      } while (Peek() == ',' && (++p_, true));
      if (!Expect(')')) return false;
    }
    if (!ExpectKeyword("VALUES") || !Expect('(')) return false;
    // A value ends at a ',' or the closing ')': the commas left bound the count, so the
    // list is sized once (a spreadsheet row sends dozens of values a statement). A row has
    // at most 256 columns; commas inside quoted text do not reserve more than that.
    const auto commas = static_cast<std::size_t>(std::count(s_.begin() + p_, s_.end(), ','));
    st->values.reserve(std::min<std::size_t>(commas + 1, xls::kMaxColumns));
    do {
      Value v;
      if (!ParseValue(&v, Place::kList)) return false;
      st->values.push_back(std::move(v));
    } while (Peek() == ',' && (++p_, true));
    if (!Expect(')')) return false;
    if (!st->columns.empty() && st->columns.size() != st->values.size()) {
      return Fail("the number of values differs from the number of columns");
    }
    return true;
  }

  bool ParseUpdate(Statement* st) {
    if (!ExpectKeyword("SET")) return false;
    do {
      std::string col;
      Value v;
      if (!ParseName(&col, "column name") || !Expect('=') || !ParseValue(&v, Place::kSet))
        return false;
      st->columns.push_back(std::move(col));
      st->values.push_back(std::move(v));
    } while (Peek() == ',' && (++p_, true));
    if (Keyword("WHERE")) {
      st->where = ParseOr();
      if (!st->where) return false;
    }
    return true;
  }

  // 'text' with '' for a quote; "text" likewise with "".
  bool ParseQuoted(std::string* out) {
    const char q = s_[p_];
    std::size_t i = p_ + 1;
    out->clear();
    while (true) {  // a run of text up to the next quote at a time
      const std::size_t close = s_.find(q, i);
      if (close == std::string_view::npos) return Fail("unterminated quoted text");
      out->append(s_.data() + i, close - i);
      if (close + 1 < s_.size() && s_[close + 1] == q) {
        out->push_back(q);
        i = close + 2;
        continue;
      }
      p_ = close + 1;
      return true;
    }
  }

  // Where a value stands decides where a bare word ends: in a VALUES list at the next ','
  // or ')' (so a space inside is an error: the value needed quotes), after SET at the next
  // space, ',' or ')'; in a condition bare words are column names, not values.
  enum class Place { kList, kSet, kCondition };

  // A value: quoted text, a number, NULL, ? or a bare word (taken as text).
  bool ParseValue(Value* v, Place place) {
    char c = Peek();
    if (c == '\'' || c == '"') {
      v->kind = Value::Kind::kText;
      if (!ParseQuoted(&v->text)) return false;
      char next = Peek();
      if (place == Place::kList && next != ',' && next != ')') {
        return Fail("expected ',' or ')' after quoted text");
      }
      return true;
    }
    if (c == '?') {
      ++p_;
      v->kind = Value::Kind::kParameter;
      v->parameter = parameters_++;
      return true;
    }
    std::size_t start = p_;
    std::size_t end = start;
    if (place == Place::kList) {
      // One pass over the word: its end, and the first byte it may not hold, which is an
      // error unless it lies in the spaces trimmed from the end.
      std::size_t bad = std::string_view::npos;
      for (; end < s_.size(); ++end) {
        const unsigned char kind = kListByte[static_cast<unsigned char>(s_[end])];
        if (kind == kEndsValue) break;
        if (kind == kNotInWord && bad == std::string_view::npos) bad = end;
      }
      while (end > start && IsSpace(s_[end - 1])) --end;
      if (end == start) return Fail("expected a value");
      if (bad < end) return FailInWord(bad);
      p_ = end;
      SetWordValue(s_.substr(start, end - start), v);
      return true;
    }
    if (place == Place::kSet) {
      while (end < s_.size() && s_[end] != ',' && s_[end] != ')' && !IsSpace(s_[end])) ++end;
    }
    if (place != Place::kCondition) {
      std::string_view word = s_.substr(start, end - start);
      if (word.empty()) return Fail("expected a value");
      for (std::size_t i = 0; i < word.size(); ++i) {
        if (IsNotInWord(word[i])) return FailInWord(start + i);
      }
      p_ = end;
      SetWordValue(word, v);
      return true;
    }
    if (Keyword("NULL")) {
      v->kind = Value::Kind::kNull;
      return true;
    }
    if (c == '-' || c == '+' || c == '.' || IsDigit(c)) {
      ++end;
      while (end < s_.size() &&
             (IsDigit(s_[end]) || s_[end] == '.' || s_[end] == 'e' || s_[end] == 'E' ||
              ((s_[end] == '-' || s_[end] == '+') && (s_[end - 1] == 'e' || s_[end - 1] == 'E')))) {
        ++end;
      }
      std::string_view digits = s_.substr(start, end - start);
      const char* b = digits.data() + (digits[0] == '+' ? 1 : 0);
      double d;
      auto res = std::from_chars(b, digits.data() + digits.size(), d);
      if (res.ec != std::errc() || res.ptr != digits.data() + digits.size()) {
        return Fail("bad number");
      }
      v->kind = Value::Kind::kNumber;
      v->number = d;
      v->text = std::string(digits);
      p_ = end;
      return true;
    }
    return Fail("expected a value");
  }

  // What a bare word may not hold: it needed quotes.
  static bool IsNotInWord(char c) { return kListByte[static_cast<unsigned char>(c)] == kNotInWord; }
  bool FailInWord(std::size_t at) {
    p_ = at;
    return Fail(IsSpace(s_[at]) ? "a value with spaces must be quoted"
                                : "a value with quotes, '(' or ';' must be quoted");
  }

  static void SetWordValue(std::string_view word, Value* v) {
    double d;
    if (word.size() == 4 && Upper(word[0]) == 'N' && Upper(word[1]) == 'U' &&
        Upper(word[2]) == 'L' && Upper(word[3]) == 'L') {
      v->kind = Value::Kind::kNull;
    } else if (IsCanonicalNumber(word, &d)) {
      v->kind = Value::Kind::kNumber;
      v->number = d;
      v->text.assign(word.data(), word.size());
    } else {
      v->kind = Value::Kind::kText;
      v->text.assign(word.data(), word.size());
    }
  }

  // A chain of one operator is read in a loop into one node (see Condition).
  std::unique_ptr<Condition> ParseChain(Condition::Kind kind) {
    const bool isOr = kind == Condition::Kind::kOr;
    auto term = [&] { return isOr ? ParseChain(Condition::Kind::kAnd) : ParseNot(); };
    auto first = term();
    if (!first || !Keyword(isOr ? "OR" : "AND")) return first;
    auto node = std::make_unique<Condition>();
    node->kind = kind;
    node->terms.push_back(std::move(first));
    do {
      auto next = term();
      if (!next) return nullptr;
      node->terms.push_back(std::move(next));
    } while (Keyword(isOr ? "OR" : "AND"));
    return node;
  }
  std::unique_ptr<Condition> ParseOr() { return ParseChain(Condition::Kind::kOr); }

  std::unique_ptr<Condition> ParseNot() {
    if (++depth_ > kMaxConditionDepth) {
      FailLimit(ErrorKind::kTooComplex, "The condition nests parentheses and NOT more than " +
                                            std::to_string(kMaxConditionDepth) + " deep.");
      return nullptr;
    }
    std::unique_ptr<Condition> result;
    if (Keyword("NOT")) {
      auto inner = ParseNot();
      if (inner) {
        result = std::make_unique<Condition>();
        result->kind = Condition::Kind::kNot;
        result->terms.push_back(std::move(inner));
      }
    } else if (Peek() == '(') {
      ++p_;
      result = ParseOr();
      if (result && !Expect(')')) result.reset();
    } else {
      result = ParseComparison();
    }
    --depth_;
    return result;
  }

  bool ParseOperand(Condition::Operand* o) {
    char c = Peek();
    std::size_t save = p_;
    if (Keyword("NULL")) {
      p_ = save;
    } else if (c == '[' || c == '`' || (IsNameChar(c) && !IsDigit(c))) {
      o->isColumn = true;
      return ParseName(&o->column, "column name");
    }
    return ParseValue(&o->value, Place::kCondition);
  }

  std::unique_ptr<Condition> ParseComparison() {
    if (++comparisons_ > kMaxConditionTerms) {
      FailLimit(ErrorKind::kTooComplex, "The condition has more than " +
                                            std::to_string(kMaxConditionTerms) + " comparisons.");
      return nullptr;
    }
    auto node = std::make_unique<Condition>();
    if (!ParseOperand(&node->lhs)) return nullptr;
    if (Keyword("IS")) {
      node->kind = Keyword("NOT") ? Condition::Kind::kIsNotNull : Condition::Kind::kIsNull;
      if (!ExpectKeyword("NULL")) return nullptr;
      return node;
    }
    Skip();
    std::string_view rest = s_.substr(p_);
    auto starts = [&](std::string_view op) { return rest.substr(0, op.size()) == op; };
    if (starts("<>") || starts("!=")) {
      node->op = Condition::Op::kNe, p_ += 2;
    } else if (starts("<=")) {
      node->op = Condition::Op::kLe, p_ += 2;
    } else if (starts(">=")) {
      node->op = Condition::Op::kGe, p_ += 2;
    } else if (starts("=")) {
      node->op = Condition::Op::kEq, p_ += 1;
    } else if (starts("<")) {
      node->op = Condition::Op::kLt, p_ += 1;
    } else if (starts(">")) {
      node->op = Condition::Op::kGt, p_ += 1;
    } else {
      Fail("expected a comparison (=, <>, <, <=, >, >=, IS NULL)");
      return nullptr;
    }
    if (!ParseOperand(&node->rhs)) return nullptr;
    return node;
  }

  std::string_view s_;
  std::size_t p_ = 0;
  int parameters_ = 0;
  int depth_ = 0;
  int comparisons_ = 0;
  Error error_;
};

// "A1" -> row 0, column 0; false when malformed or past row 1,048,576. Columns run to ZZZ
// here: the callers decide what past XFD means. The workbook's own grid is held to later
// (CheckRegion), since a statement is parsed before it meets a workbook.
bool ParseCellAnyColumn(std::string_view t, int* row, int* col) {
  std::size_t i = 0;
  int c = 0;
  while (i < t.size() && IsAlpha(t[i]) && i < 3) c = c * 26 + (Upper(t[i++]) - 'A' + 1);
  if (i == 0 || i == t.size()) return false;
  long r = 0;
  std::size_t digits = i;
  while (i < t.size() && IsDigit(t[i]) && i - digits < 7) r = r * 10 + (t[i++] - '0');
  if (i != t.size() || r < 1 || r > xls::kXlsxMaxRows) return false;
  *row = static_cast<int>(r - 1);
  *col = c - 1;
  return true;
}

bool ParseCell(std::string_view t, int* row, int* col) {
  return ParseCellAnyColumn(t, row, col) && *col < xls::kXlsxMaxColumns;
}

}  // namespace

bool ParseCellRange(std::string_view text, CellRange* out) {
  std::size_t colon = text.find(':');
  int r1, c1, r2, c2;
  if (colon == std::string_view::npos) {
    if (!ParseCell(text, &r1, &c1)) return false;
    r2 = r1, c2 = c1;
  } else if (!ParseCell(text.substr(0, colon), &r1, &c1) ||
             !ParseCell(text.substr(colon + 1), &r2, &c2)) {
    return false;
  }
  out->top = std::min(r1, r2);
  out->bottom = std::max(r1, r2);
  out->left = std::min(c1, c2);
  out->right = std::max(c1, c2);
  return true;
}

bool IsRangePastLastColumn(std::string_view text) {
  std::size_t colon = text.find(':');
  int r1, c1, r2 = 0, c2 = 0;
  if (colon == std::string_view::npos) {
    if (!ParseCellAnyColumn(text, &r1, &c1)) return false;
  } else if (!ParseCellAnyColumn(text.substr(0, colon), &r1, &c1) ||
             !ParseCellAnyColumn(text.substr(colon + 1), &r2, &c2)) {
    return false;
  }
  return c1 >= xls::kXlsxMaxColumns || c2 >= xls::kXlsxMaxColumns;
}

bool ParseTableName(std::string_view name, TableRef* out) {
  std::size_t dollar = name.rfind('$');
  out->hasRange = false;
  if (dollar == std::string_view::npos) {
    out->sheet = std::string(name);
  } else if (dollar + 1 == name.size()) {
    out->sheet = std::string(name.substr(0, dollar));
  } else if (ParseCellRange(name.substr(dollar + 1), &out->range)) {
    out->sheet = std::string(name.substr(0, dollar));
    out->hasRange = true;
  } else {
    return false;
  }
  return !out->sheet.empty();
}

bool IsCanonicalNumber(std::string_view text, double* value) {
  if (text.empty() || text.size() > 40) return false;
  // Canonical text starts with a digit or '-'. Whole numbers of up to 15 digits are exact
  // as doubles, and canonical exactly when written without a leading zero (nor "-0").
  const bool negative = text[0] == '-';
  const std::string_view digits = text.substr(negative ? 1 : 0);
  if (digits.empty() || !IsDigit(digits[0])) return false;
  if (digits.size() <= 15 && std::all_of(digits.begin(), digits.end(), IsDigit)) {
    if (digits[0] == '0' && (digits.size() > 1 || negative)) return false;
    long long n = 0;
    for (char c : digits) n = n * 10 + (c - '0');
    *value = static_cast<double>(negative ? -n : n);
    return true;
  }
  double d;
  auto res = std::from_chars(text.data(), text.data() + text.size(), d);
  if (res.ec != std::errc() || res.ptr != text.data() + text.size()) return false;
  char canonical[kNumberTextMax];
  if (!std::isfinite(d) || std::string_view(canonical, FormatNumberTo(d, canonical)) != text) {
    return false;
  }
  *value = d;
  return true;
}

Error ParseSql(std::string_view sql, Statement* out) {
  // Emptied, keeping the lists' room: a statement handle parses one INSERT a row.
  out->kind = Statement::Kind::kSelect;
  out->table = TableRef();
  out->columns.clear();
  out->values.clear();
  out->where.reset();
  out->parameterCount = 0;
  return Parser(sql).Parse(out);
}

}  // namespace xlsodbc
