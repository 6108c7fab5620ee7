#include "tools/sheet/Usage.h"

#include <cstring>

namespace sheet {
namespace {

const CommandHelp kHelp[] = {
    {"cat", "cat FILE [-d DELIM | -s SHEET]",
     "print every row as the class reads it (tab-separated)",
     "FILE may be - for standard input (a text file, or a workbook when -s is given).\n"},
    {"cell", "cell FILE COL ROW [-d D | -s S]",
     "print one cell; COL is a number, letters (A, IV) or a header",
     "Rows count from 1; row 1 is the header line. On an .xlsx, COL letters run to XFD\n"
     "and a header text comes first (\"Qty\" is a header before it is a column).\n"},
    {"info", "info FILE [-d D | -s S]", "mode, rows, columns, header, last error", ""},
    {"set", "set FILE COL ROW VALUE [-d D | -s S] [--force]", "write one cell", ""},
    {"add", "add FILE [-d D | -s S] [--force] VALUE...", "append a row (a new text file is made)",
     ""},
    {"insert", "insert FILE ROW [-d D | -s S] [--force] VALUE...", "insert a row before ROW", ""},
    {"clear", "clear FILE [-d D | -s S]", "empty the file (text) or drop the sheet (workbook)",
     "FILE must exist: a mistyped name is an error, not a new empty file.\n"},
    {"convert", "convert FILE [TARGET] [-s SHEET] [-d DELIM] [--quoted]",
     "workbook -> .csv, text file -> .xls, or FILE -> TARGET",
     "A workbook BOOK.xls or BOOK.xlsx becomes BOOK.csv (sheet SHEET, delimiter DELIM);\n"
     "any other file NAME.EXT becomes the sheet SHEET of NAME.xls. Defaults: Sheet1 and\n"
     "\",\". TARGET names the file to write instead, its extension the format: .xls,\n"
     ".xlsx or .xlsm, or text. Conversions to or from .xlsx, between .xls and .xlsx and\n"
     "to a TARGET go through the ODBC driver a row at a time: values as text and\n"
     "numbers, blank rows left out; each sheet holds what its format holds (65536 rows\n"
     "x 256 columns in .xls, 1048576 x 16384 in .xlsx).\n"
     "The class saves each row of a text file unquoted, and the driver rejects such a row\n"
     "when a value holds a space or a \"/\": the rows that did not land are counted and the\n"
     "command fails. --quoted writes every row through the driver with quoted values\n"
     "instead of the class's conversion.\n"},
    {"sql", "sql BOOK \"STATEMENT\"", "run one statement through the ODBC driver",
     "BOOK is an .xls, .xlsx or .xlsm workbook.\n"
     "A result set prints as tab-separated lines, column names first.\n"},
#ifndef _WIN32  // on Windows the report is shown by Excel itself, not saved by this tool
    {"report", "report OUT.xls [--rms N] [--price-protection N] [--script-validation N]",
     "lay out the risk-limit tables in a new workbook",
     "Runs the report automation and saves its workbook to OUT.xls.\n"},
#endif
};

constexpr const char* kWorkbookEdits =
    "On an .xls the class saves an edit by inserting every row of the sheet again: the\n"
    "sheet gains duplicate rows and a changed cell keeps its old value. set, add and insert\n"
    "refuse an .xls unless --force is given; `sheet sql` changes cells in place. On an\n"
    ".xlsx, set and add change cells in place; insert writes the rows below again, without\n"
    "their formats, and asks for --force.\n";

constexpr const char* kNotes =
    "Files ending in .xls are workbooks the class reaches through ODBC; .xlsx and .xlsm\n"
    "workbooks the tool reaches through the ODBC driver itself (the class takes them as\n"
    "text); any other file is a delimited text file (default delimiter \",\"). Rows count\n"
    "from 1, row 1 being the header. Exit status: 0 done, 1 failed (the message names the\n"
    "file and the reason), 2 bad usage. `sheet COMMAND --help` describes one command.\n";

}  // namespace

const CommandHelp* FindHelp(const std::string& name) {
  for (const CommandHelp& h : kHelp) {
    if (name == h.name) return &h;
  }
  return nullptr;
}

void PrintUsage(std::FILE* out) {
  std::fprintf(out, "usage: sheet COMMAND ARGS...\n       sheet --version | --help\n\n");
  for (const CommandHelp& h : kHelp)
    std::fprintf(out, "  sheet %s\n      %s\n", h.synopsis, h.summary);
  std::fprintf(out, "\n%s\n%s", kNotes, kWorkbookEdits);
}

void PrintCommandHelp(const CommandHelp& help, std::FILE* out) {
  std::fprintf(out, "usage: sheet %s\n\n%s.\n", help.synopsis, help.summary);
  if (help.details[0]) std::fprintf(out, "\n%s", help.details);
  const char* name = help.name;
  if (!std::strcmp(name, "set") || !std::strcmp(name, "add") || !std::strcmp(name, "insert"))
    std::fprintf(out, "\n%s", kWorkbookEdits);
}

void PrintVersion(std::FILE* out) {
  std::fprintf(out, "sheet %s\nCopyright (c) the spreadsheet authors; MIT License.\n",
               SHEET_VERSION);
}

}  // namespace sheet
