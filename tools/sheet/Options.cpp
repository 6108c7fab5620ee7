#include "tools/sheet/Options.h"

#include <cstdio>

#include "tools/sheet/Files.h"
#include "tools/sheet/Usage.h"

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
    } else if (a == "--force") {
      o.force = true;
    } else if (a == "--") {
      o.words.insert(o.words.end(), args.begin() + static_cast<long>(i) + 1, args.end());
      break;
    } else if (a.size() > 1 && a[0] == '-' && a[1] == '-') {
      o.error = "unknown option " + a;
      return o;
    } else {
      o.words.push_back(a);
    }
  }
  if (o.hasDelimiter && o.hasSheet) o.error = "give -d (text files) or -s (workbooks), not both";
  if (o.hasDelimiter && o.delimiter.empty()) o.error = "the delimiter cannot be empty";
  if (o.hasSheet && o.sheetName.empty()) o.error = "the sheet name cannot be empty";
  return o;
}

bool IsWorkbook(const std::string& file) {
  if (file.size() < 4) return false;
  std::string tail = file.substr(file.size() - 4);
  for (char& c : tail) c = static_cast<char>((c >= 'A' && c <= 'Z') ? c + 32 : c);
  return tail == ".xls";
}

std::string SecondArgument(const std::string& file, const Options& options) {
  return IsWorkbook(file) ? options.sheetName : options.delimiter;
}

int Fail(const char* command, const std::string& file, CSpreadSheet& s) {
  CString message = s.GetLastError();
  message.TrimRight();
  std::string reason =
      message.IsEmpty() ? "failed, and the class gave no reason" : message.GetString();
  if (message == "Error writing file") {
    const std::string why = WriteProblem(file);
    if (!why.empty()) reason += " (" + why + ")";
  }
  return FailWith(command, file, reason);
}

int FailWith(const char* command, const std::string& file, const std::string& reason) {
  std::fprintf(stderr, "sheet: %s: %s: %s\n", command, file.c_str(), reason.c_str());
  return 1;
}

int Usage(const std::string& message, const char* command) {
  const CommandHelp* help = FindHelp(command);
  std::fprintf(stderr, "sheet: %s\nusage: sheet %s\n", message.c_str(),
               help ? help->synopsis : command);
  return 2;
}

}  // namespace sheet
