// SqlRewrite: turns a statement in the Jet-like dialect our users send into one SQLite reads,
// before the SQL engine prepares it. What it changes:
//   SELECT TOP n ...            -> SELECT ... LIMIT n (at the end of that SELECT's scope)
//   {d '2024-02-29'}            -> '2024-02-29 00:00:00' (the text a date cell reads as)
//   {ts '...'} {t '...'}        -> the same text form
//   {fn UCASE(x)}               -> UCASE(x) (the engine registers the ODBC scalar functions)
//   {oj ...} {escape '\'}       -> ... / ESCAPE '\'
//   CONVERT(x, SQL_VARCHAR)     -> CAST(x AS TEXT)
//   "text"                      -> 'text' (double quotes delimit text, as in Jet; names are
//                                  quoted with [] or ``)
//   VALUES (abc, 007, 10)       -> VALUES ('abc', '007', 10): a bare word is text, and so is
//                                  a number that would not read back as written
// Everything else, [bracketed] names and comments included, passes through unchanged.
// It also reports what the engine needs before preparing: the statement's verb, the table an
// INSERT, UPDATE or DELETE writes, and where an INSERT without a column list could take one.
//
// WithoutColumnConstraints serves the dialect's parser instead: the driver ignores NOT NULL
// and PRIMARY KEY in a CREATE TABLE, which stays with the dialect.
//
// Iterative over a token list: input nesting costs heap, never stack.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "odbc-driver/Error.h"

namespace xlsodbc {

struct RewrittenSql {
  enum class Verb { kSelect, kInsert, kUpdate, kDelete, kOther };
  std::string sql;
  Verb verb = Verb::kOther;
  std::string target;      // INSERT/UPDATE/DELETE: the table's name without its quotes
  int parameterCount = 0;  // ? markers, for SQLNumParams before the statement runs
  // INSERT with no column list: the offset in sql just after the table name, else npos.
  std::size_t columnListAt = std::string::npos;
  // The texts {d '...'} and {ts '...'} became: such a value written to a cell is a date.
  std::vector<std::string> dateLiterals;
  // (offset in sql, offset in the input) at each place the two part ways, ascending.
  std::vector<std::pair<std::size_t, std::size_t>> anchors;

  // The input offset a position in sql came from, for error messages.
  std::size_t InputOffset(std::size_t at) const;
};

// kSyntax on a malformed escape ({d 'x'} that is no date, an unclosed {fn}); kNotSupported
// on {call ...} and TOP n PERCENT.
Error RewriteSql(std::string_view in, RewrittenSql* out);

// "YYYY-MM-DD", "YYYY-MM-DD HH:MM:SS[.fff]" or "HH:MM:SS" (time alone only when allowTime):
// the text a date cell reads as (fractions of a second dropped when zero). False when the
// text is no valid date or time.
[[nodiscard]] bool NormalizeDateText(std::string_view text, bool allowTime, std::string* out);

// CREATE TABLE with column constraints (NOT NULL, NULL, PRIMARY KEY, UNIQUE), which the
// dialect's parser does not take and the driver ignores, as the Windows driver does: the
// statement without them, or nothing when it is no CREATE or has none. Names in [], ``
// or quotes are left alone.
std::optional<std::string> WithoutColumnConstraints(std::string_view sql);

}  // namespace xlsodbc
