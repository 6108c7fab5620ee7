#include "tools/sheet/Options.h"

#include <cstdio>

namespace sheet {

Options Parse(const std::vector<std::string>& args) {
  Options o;
  for (size_t i = 0; i < args.size(); ++i) {
    const std::string& a = args[i];
    if (a == "-d" || a == "-s") {
      if (i + 1 >= args.size()) {
        o.error = "option " + a + " needs a value";
        return o;
      }
      if (a == "-d") {
        o.delimiter = args[++i];
        o.hasDelimiter = true;
      } else {
        o.sheetName = args[++i];
        o.hasSheet = true;
      }
    } else if (a == "--") {
      o.words.insert(o.words.end(), args.begin() + static_cast<long>(i) + 1, args.end());
      break;
    } else {
      o.words.push_back(a);
    }
  }
  if (o.hasDelimiter && o.hasSheet) o.error = "give -d (text files) or -s (workbooks), not both";
  if (o.hasDelimiter && o.delimiter.empty()) o.error = "the delimiter cannot be empty";
  return o;
}

namespace {
bool IsWorkbook(const std::string& file) {
  if (file.size() < 4) return false;
  std::string tail = file.substr(file.size() - 4);
  for (char& c : tail) c = static_cast<char>((c >= 'A' && c <= 'Z') ? c + 32 : c);
  return tail == ".xls";
}
}  // namespace

std::string SecondArgument(const std::string& file, const Options& options) {
  return IsWorkbook(file) ? options.sheetName : options.delimiter;
}

int Fail(const char* what, CSpreadSheet& s) {
  CString message = s.GetLastError();
  message.TrimRight();
  std::fprintf(stderr, "sheet: %s: %s\n", what, message.IsEmpty() ? "failed" : message.GetString());
  return 1;
}

int Usage(const std::string& message, const char* usage) {
  std::fprintf(stderr, "sheet: %s\nusage: sheet %s\n", message.c_str(), usage);
  return 2;
}

}  // namespace sheet
