// The sheet tool's help: one table of commands (synopsis, one-line summary, details) from
// which `sheet --help`, `sheet CMD --help`, every usage error and the README's usage block
// are printed, so that they cannot disagree (tests/tools/sheet_test.sh compares the README).
#pragma once

#include <cstdio>
#include <string>

namespace sheet {

struct CommandHelp {
  const char* name;
  const char* synopsis;  // after "sheet "
  const char* summary;   // one line
  const char* details;   // paragraphs for `sheet CMD --help`, each line ended by '\n'
};

// nullptr when no command has that name.
const CommandHelp* FindHelp(const std::string& name);

// The whole tool's usage (`sheet --help`): every synopsis with its summary, then the notes.
void PrintUsage(std::FILE* out);
// One command's synopsis, summary and details.
void PrintCommandHelp(const CommandHelp& help, std::FILE* out);

// "sheet 0.4.0" and the license line.
void PrintVersion(std::FILE* out);

}  // namespace sheet
