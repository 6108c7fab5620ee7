// The sheet tool's commands. Each takes the arguments after its name and returns the
// process exit code: 0 success, 1 the operation failed, 2 bad usage.
#pragma once

#include <string>
#include <vector>

namespace sheet {

using Args = std::vector<std::string>;

// Text and workbook reading and editing (ReadCommands.cpp, EditCommands.cpp).
int Cat(const Args& args);
int Cell(const Args& args);
int Info(const Args& args);
int Set(const Args& args);
int Add(const Args& args);
int Insert(const Args& args);
int Clear(const Args& args);

// The same on .xlsx/.xlsm workbooks, through the driver (XlsxCommands.cpp). REQUIRES: the
// command's usage was checked (the number of words).
struct Options;
int XlsxCat(const Options& o);
int XlsxCell(const Options& o);
int XlsxInfo(const Options& o);
int XlsxSet(const Options& o);
int XlsxAdd(const Options& o);
int XlsxInsert(const Options& o);
int XlsxClear(const Options& o);

// Workbooks through ODBC (ExcelCommands.cpp).
int Convert(const Args& args);
int Sql(const Args& args);

// The risk-limit report (ReportCommand.cpp).
int Report(const Args& args);

}  // namespace sheet
