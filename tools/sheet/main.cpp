// sheet: a command-line tool over CSpreadSheet.
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "platform/CString.h"
#include "tools/sheet/Commands.h"
#include "tools/sheet/Usage.h"

namespace {

struct Command {
  const char* name;
  int (*run)(const sheet::Args&);
};

const Command kCommands[] = {
    {"cat", sheet::Cat},       {"cell", sheet::Cell},       {"info", sheet::Info},
    {"set", sheet::Set},       {"add", sheet::Add},         {"insert", sheet::Insert},
    {"clear", sheet::Clear},   {"convert", sheet::Convert}, {"sql", sheet::Sql},
#ifndef _WIN32  // on Windows the report is shown by Excel itself, not saved by this tool
    {"report", sheet::Report},
#endif
};

bool IsHelp(const char* arg) { return !std::strcmp(arg, "-h") || !std::strcmp(arg, "--help"); }

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    sheet::PrintUsage(stderr);
    return 2;
  }
  const std::string first = argv[1];
  if (IsHelp(argv[1]) || (first == "help" && argc == 2)) {
    sheet::PrintUsage(stdout);
    return 0;
  }
  if (first == "--version" || first == "-V") {
    sheet::PrintVersion(stdout);
    return 0;
  }
  if (first == "help") {  // sheet help COMMAND
    const sheet::CommandHelp* help = sheet::FindHelp(argv[2]);
    if (!help) {
      std::fprintf(stderr, "sheet: unknown command '%s'\n", argv[2]);
      return 2;
    }
    sheet::PrintCommandHelp(*help, stdout);
    return 0;
  }
  const sheet::Args args(argv + 2, argv + argc);
  for (const Command& c : kCommands) {
    if (first != c.name) continue;
    // --help anywhere before a "--" asks for help; a file named so is given after "--".
    for (const std::string& a : args) {
      if (a == "--") break;
      if (IsHelp(a.c_str())) {
        sheet::PrintCommandHelp(*sheet::FindHelp(c.name), stdout);
        return 0;
      }
    }
    try {
      return c.run(args);
    } catch (CException* e) {
      char message[1024] = "";
      e->GetErrorMessage(message, sizeof message);
      std::fprintf(stderr, "sheet: %s: %s\n", c.name, message[0] ? message : "error");
      e->Delete();
      return 1;
    }
  }
  std::fprintf(stderr, "sheet: unknown command '%s'\n\n", argv[1]);
  sheet::PrintUsage(stderr);
  return 2;
}
