// sheet: a command-line tool over CSpreadSheet.
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "platform/CString.h"
#include "tools/sheet/Commands.h"

namespace {

struct Command {
  const char* name;
  int (*run)(const sheet::Args&);
  const char* help;
};

const Command kCommands[] = {
    {"cat", sheet::Cat, "cat FILE [-d DELIM | -s SHEET]       print every row as the class reads it"},
    {"cell", sheet::Cell, "cell FILE COL ROW [-d D | -s S]      print one cell (COL: number, letters or header)"},
    {"info", sheet::Info, "info FILE [-d D | -s S]              mode, rows, columns, header, last error"},
    {"set", sheet::Set, "set FILE COL ROW VALUE [-d D | -s S] write one cell"},
    {"add", sheet::Add, "add FILE [-d D | -s S] VALUE...      append a row"},
    {"insert", sheet::Insert, "insert FILE ROW [-d D | -s S] VALUE... insert a row before ROW"},
    {"clear", sheet::Clear, "clear FILE [-d D | -s S]             empty the file (or drop the sheet)"},
    {"convert", sheet::Convert, "convert FILE [-s SHEET] [-d DELIM]   text file <-> workbook"},
    {"sql", sheet::Sql, "sql BOOK.xls \"STATEMENT\"              run one statement through the ODBC driver"},
#ifndef _WIN32  // on Windows the report is shown by Excel itself, not saved by this tool
    {"report", sheet::Report, "report OUT.xls --rms N --price-protection N --script-validation N"},
#endif
};

void PrintUsage(std::FILE* out) {
  std::fprintf(out, "usage: sheet COMMAND ARGS...\n\n");
  for (const Command& c : kCommands) std::fprintf(out, "  sheet %s\n", c.help);
  std::fprintf(out,
               "\nFiles ending in .xls are workbooks reached through ODBC; any other file is a\n"
               "delimited text file (default delimiter \",\"). Rows count from 1, row 1 being the\n"
               "header.\n");
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2 || !std::strcmp(argv[1], "-h") || !std::strcmp(argv[1], "--help") ||
      !std::strcmp(argv[1], "help")) {
    PrintUsage(argc < 2 ? stderr : stdout);
    return argc < 2 ? 2 : 0;
  }
  const sheet::Args args(argv + 2, argv + argc);
  for (const Command& c : kCommands) {
    if (std::strcmp(argv[1], c.name) != 0) continue;
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
  PrintUsage(stderr);
  return 2;
}
