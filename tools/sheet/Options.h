// Command-line parsing shared by the sheet commands: positional words plus the options
// -d DELIM (text files) and -s SHEET (workbooks).
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
  std::string error;  // set when the arguments are malformed
};

Options Parse(const std::vector<std::string>& args);

// The constructor's second argument for FILE: the sheet for workbooks, else the delimiter.
std::string SecondArgument(const std::string& file, const Options& options);

// Prints "sheet: <what>: <GetLastError text>" to stderr and returns 1.
int Fail(const char* what, CSpreadSheet& s);
// Prints "sheet: <message>" and the usage line to stderr and returns 2.
int Usage(const std::string& message, const char* usage);

}  // namespace sheet
