// sheet set / add / insert / clear: editing through the public API. Each edit is saved
// at once (no transaction), and a failed save is reported from GetLastError.
#include <cstdio>
#include <cstdlib>
#include <string>

#include "tools/sheet/Commands.h"
#include "tools/sheet/Options.h"

namespace sheet {
namespace {

bool ParsePositive(const std::string& s, long* out) {
  if (s.empty() || s.size() > 9) return false;
  for (char c : s) {
    if (c < '0' || c > '9') return false;
  }
  *out = std::strtol(s.c_str(), nullptr, 10);
  return *out >= 1;
}

// The edit methods return true even when their save fails; the save's message is the
// only sign, so compare the last error before and after.
int Finish(const char* what, bool ok, CSpreadSheet& s, const CString& before) {
  if (!ok) return Fail(what, s);
  if (s.GetLastError() != before && s.GetLastError() == "Error writing file\n") return Fail(what, s);
  return 0;
}

}  // namespace

int Set(const Args& args) {
  const char* usage = "set FILE COL ROW VALUE [-d DELIM | -s SHEET]";
  Options o = Parse(args);
  if (!o.error.empty()) return Usage(o.error, usage);
  if (o.words.size() != 4) return Usage("set takes a file, a column, a row and a value", usage);
  const std::string& file = o.words[0];
  long row, col;
  if (!ParsePositive(o.words[2], &row)) return Usage("ROW must be a number from 1", usage);
  CSpreadSheet s(file.c_str(), SecondArgument(file, o).c_str(), false);
  const CString before = s.GetLastError();
  bool ok;
  if (ParsePositive(o.words[1], &col)) {
    if (col > 32767) return Usage("COL must be from 1 to 32767", usage);
    ok = s.AddCell(o.words[3].c_str(), static_cast<short>(col), row);
  } else {
    const std::string& name = o.words[1];
    const bool letters = name.size() <= 2 && name.find_first_not_of(
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz") == std::string::npos;
    ok = s.AddCell(o.words[3].c_str(), CString(name.c_str()), row, letters);
  }
  return Finish("set", ok, s, before);
}

int Add(const Args& args) {
  const char* usage = "add FILE [-d DELIM | -s SHEET] VALUE...";
  Options o = Parse(args);
  if (!o.error.empty()) return Usage(o.error, usage);
  if (o.words.size() < 2) return Usage("add takes a file and at least one value", usage);
  const std::string& file = o.words[0];
  CSpreadSheet s(file.c_str(), SecondArgument(file, o).c_str(), false);
  const CString before = s.GetLastError();
  CStringArray values;
  for (size_t i = 1; i < o.words.size(); ++i) values.Add(o.words[i].c_str());
  return Finish("add", s.AddRow(values, 0L, false), s, before);
}

int Insert(const Args& args) {
  const char* usage = "insert FILE ROW [-d DELIM | -s SHEET] VALUE...";
  Options o = Parse(args);
  if (!o.error.empty()) return Usage(o.error, usage);
  if (o.words.size() < 3) return Usage("insert takes a file, a row and at least one value", usage);
  const std::string& file = o.words[0];
  long row;
  if (!ParsePositive(o.words[1], &row)) return Usage("ROW must be a number from 1", usage);
  CSpreadSheet s(file.c_str(), SecondArgument(file, o).c_str(), false);
  const CString before = s.GetLastError();
  CStringArray values;
  for (size_t i = 2; i < o.words.size(); ++i) values.Add(o.words[i].c_str());
  return Finish("insert", s.AddRow(values, row, false), s, before);
}

int Clear(const Args& args) {
  const char* usage = "clear FILE [-d DELIM | -s SHEET]";
  Options o = Parse(args);
  if (!o.error.empty()) return Usage(o.error, usage);
  if (o.words.size() != 1) return Usage("clear takes one file", usage);
  const std::string& file = o.words[0];
  CSpreadSheet s(file.c_str(), SecondArgument(file, o).c_str(), false);
  const CString before = s.GetLastError();
  return Finish("clear", s.DeleteSheet(), s, before);
}

}  // namespace sheet
