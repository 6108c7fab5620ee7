// Command-line parsing and failure reporting shared by the sheet commands: positional words
// plus the options -d DELIM (text files), -s SHEET (workbooks) and --force (workbook edits).
// Every failure message has the form "sheet: COMMAND: FILE: reason".
#pragma once

#include <string>
#include <vector>

#include "spreadsheet/SpreadSheet.h"

namespace sheet {

struct Options {
  std::vector<std::string> words;  // positional arguments, in order
  std::string delimiter = ",";
  std::string sheetName = "Sheet1";
  bool hasDelimiter = false;
  bool hasSheet = false;
  bool force = false;
  std::string error;  // set when the arguments are malformed
};

Options Parse(const std::vector<std::string>& args);

// A name ending in ".xls", any letter case: the class's own mode decision.
bool IsWorkbook(const std::string& file);

// The constructor's second argument for FILE: the sheet for workbooks, else the delimiter.
std::string SecondArgument(const std::string& file, const Options& options);

// Prints "sheet: COMMAND: FILE: <GetLastError text>" (with the system's reason when the
// file cannot be written, for a write failure) to stderr and returns 1.
int Fail(const char* command, const std::string& file, CSpreadSheet& s);
// Prints "sheet: COMMAND: FILE: reason" and returns 1.
int FailWith(const char* command, const std::string& file, const std::string& reason);
// Prints "sheet: message" and the command's usage line to stderr and returns 2.
int Usage(const std::string& message, const char* command);

}  // namespace sheet
