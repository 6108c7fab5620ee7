// The object model of the in-process "Excel.Application": Application, Workbooks,
// Workbook, Sheets, Worksheet, Range, Font and Borders, each an IDispatch answering the
// DISPIDs of the Excel type library that the report path uses. Objects share the
// workbook they belong to; a Range is a rectangle of one sheet (0-based, inclusive).
#pragma once

#include <atomic>
#include <memory>
#include <string>
#include <vector>

#include "platform/AutomationTypes.h"
#include "xls/Workbook.h"

namespace excelserver {

struct Book {
  std::string name;  // "Book1", "Book2", ...
  xls::Workbook workbook;
};

struct Instance {
  std::vector<std::shared_ptr<Book>> books;
  bool visible = false;
  bool userControl = false;
};

struct Area {
  int top = 0, left = 0, bottom = 0, right = 0;
};

// Base for every object: reference count and the dispatch of one call.
class Object : public IDispatch {
 public:
  ULONG AddRef() override { return ++refs_; }
  ULONG Release() override;
  HRESULT Invoke(DISPID member, WORD flags, DISPPARAMS* params, VARIANT* result,
                 EXCEPINFO* exception) override;

 protected:
  virtual ~Object() = default;
  // Answers one call; throws Failure for an Excel-like error.
  virtual HRESULT Call(DISPID member, WORD flags, const std::vector<const VARIANT*>& args,
                       VARIANT* result) = 0;

 private:
  std::atomic<ULONG> refs_{1};
};

// An error with Excel's description, raised inside Call and turned into DISP_E_EXCEPTION.
struct Failure {
  std::string description;
};

IDispatch* NewApplication();

// Column letters and 1-based row ("AE3") to 0-based coordinates; false when malformed.
bool ParseCellAddress(const std::string& text, int* row, int* column);
// Auto-fit width in 1/256 of a character for the given text; 0 for empty text.
std::uint16_t FitWidth(const std::string& text);

}  // namespace excelserver
