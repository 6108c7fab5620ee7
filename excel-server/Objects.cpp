#include "excel-server/Objects.h"

#include <algorithm>
#include <cctype>

#include "excel-server/HandOff.h"
#include "platform/ExcelDispIds.h"

namespace excelserver {

namespace {

using namespace excel_dispid;

constexpr int kXlCenter = -4108, kXlTop = -4160, kXlBottom = -4107, kXlJustify = -4130;

[[noreturn]] void Fail(std::string description) { throw Failure{std::move(description)}; }

bool IsMissing(const VARIANT* v) {
  return v->vt == VT_EMPTY || (v->vt == VT_ERROR && v->scode == DISP_E_PARAMNOTFOUND);
}

long ToLong(const VARIANT* v, const char* what) {
  switch (v->vt) {
    case VT_I2:
      return v->iVal;
    case VT_I4:
      return v->lVal;
    case VT_BOOL:
      return v->boolVal ? -1 : 0;
    default:
      Fail(std::string("Type mismatch: ") + what + " needs a number");
  }
}

bool ToBool(const VARIANT* v, const char* what) { return ToLong(v, what) != 0; }

std::string ToText(const VARIANT* v) {
  std::string s;
  for (UINT i = 0; i < SysStringLen(v->bstrVal); ++i)
    s.push_back(v->bstrVal[i] < 256 ? static_cast<char>(v->bstrVal[i]) : '?');
  return s;
}

void ReturnObject(VARIANT* result, IDispatch* object) {
  if (result == nullptr) {
    object->Release();
    return;
  }
  result->vt = VT_DISPATCH;
  result->pdispVal = object;
}

void Expect(const std::vector<const VARIANT*>& args, std::size_t n) {
  if (args.size() != n) throw DISP_E_BADPARAMCOUNT;
}

using BookRef = std::shared_ptr<Book>;

// Applies change to the style of every cell in the area.
template <typename Change>
void Restyle(xls::Workbook& wb, int sheet, const Area& a, Change change) {
  xls::Sheet& s = wb.sheets()[static_cast<std::size_t>(sheet)];
  for (int r = a.top; r <= a.bottom; ++r)
    for (int c = a.left; c <= a.right; ++c) {
      xls::Style style = wb.styles()[s.at(r, c).style];
      change(style);
      std::uint16_t index = wb.addStyle(style);
      if (index != s.at(r, c).style) s.mutableAt(r, c).style = index;
    }
}

class Borders : public Object {
 public:
  Borders(BookRef book, int sheet, Area area)
      : book_(std::move(book)), sheet_(sheet), area_(area) {}

 protected:
  HRESULT Call(DISPID member, WORD flags, const std::vector<const VARIANT*>& args,
               VARIANT*) override {
    if (member != kWeight || !(flags & DISPATCH_PROPERTYPUT)) return DISP_E_MEMBERNOTFOUND;
    Expect(args, 1);
    xls::Border weight;
    switch (ToLong(args[0], "Weight")) {
      case 1:
        weight = xls::Border::kHair;
        break;
      case 2:
        weight = xls::Border::kThin;
        break;
      case -4138:
      case 3:
        weight = xls::Border::kMedium;
        break;
      case 4:
        weight = xls::Border::kThick;
        break;
      default:
        Fail("Unable to set the Weight property of the Borders class");
    }
    // The Borders collection of a range covers its outer edges and its inner lines.
    Restyle(book_->workbook, sheet_, area_,
            [weight](xls::Style& s) { s.left = s.right = s.top = s.bottom = weight; });
    return S_OK;
  }

 private:
  BookRef book_;
  int sheet_;
  Area area_;
};

class Font : public Object {
 public:
  Font(BookRef book, int sheet, Area area) : book_(std::move(book)), sheet_(sheet), area_(area) {}

 protected:
  HRESULT Call(DISPID member, WORD flags, const std::vector<const VARIANT*>& args,
               VARIANT*) override {
    if (member != kBold || !(flags & DISPATCH_PROPERTYPUT)) return DISP_E_MEMBERNOTFOUND;
    Expect(args, 1);
    bool bold = ToBool(args[0], "Bold");
    Restyle(book_->workbook, sheet_, area_, [bold](xls::Style& s) { s.bold = bold; });
    return S_OK;
  }

 private:
  BookRef book_;
  int sheet_;
  Area area_;
};

class Range : public Object {
 public:
  Range(BookRef book, int sheet, Area area) : book_(std::move(book)), sheet_(sheet), area_(area) {}

 protected:
  HRESULT Call(DISPID member, WORD flags, const std::vector<const VARIANT*>& args,
               VARIANT* result) override {
    xls::Workbook& wb = book_->workbook;
    if (member == kFont && (flags & DISPATCH_PROPERTYGET)) {
      Expect(args, 0);
      ReturnObject(result, new Font(book_, sheet_, area_));
    } else if (member == kBorders && (flags & DISPATCH_PROPERTYGET)) {
      Expect(args, 0);
      ReturnObject(result, new Borders(book_, sheet_, area_));
    } else if (member == kEntireColumn && (flags & DISPATCH_PROPERTYGET)) {
      Expect(args, 0);
      ReturnObject(result,
                   new Range(book_, sheet_, Area{0, area_.left, xls::kMaxRows - 1, area_.right}));
    } else if (member == kResize && (flags & DISPATCH_PROPERTYGET)) {
      Expect(args, 2);
      Area a = area_;
      if (!IsMissing(args[0])) a.bottom = a.top + static_cast<int>(ToLong(args[0], "RowSize")) - 1;
      if (!IsMissing(args[1]))
        a.right = a.left + static_cast<int>(ToLong(args[1], "ColumnSize")) - 1;
      if (a.bottom < a.top || a.right < a.left || a.bottom >= xls::kMaxRows ||
          a.right >= xls::kMaxColumns)
        Fail("Application-defined or object-defined error");
      ReturnObject(result, new Range(book_, sheet_, a));
    } else if (member == kAutoFit && (flags & DISPATCH_METHOD)) {
      Expect(args, 0);
      AutoFit(wb.sheets()[static_cast<std::size_t>(sheet_)]);
      if (result != nullptr) {
        result->vt = VT_BOOL;
        result->boolVal = VARIANT_TRUE;
      }
    } else if (member == kVerticalAlignment && (flags & DISPATCH_PROPERTYPUT)) {
      Expect(args, 1);
      xls::VAlign v;
      switch (ToLong(args[0], "VerticalAlignment")) {
        case kXlCenter:
          v = xls::VAlign::kCenter;
          break;
        case kXlTop:
          v = xls::VAlign::kTop;
          break;
        case kXlBottom:
          v = xls::VAlign::kBottom;
          break;
        case kXlJustify:
          v = xls::VAlign::kJustify;
          break;
        default:
          Fail("Unable to set the VerticalAlignment property of the Range class");
      }
      Restyle(wb, sheet_, area_, [v](xls::Style& s) { s.vertical = v; });
    } else if (member == kValue2 && (flags & DISPATCH_PROPERTYPUT)) {
      Expect(args, 1);
      PutValue(wb.sheets()[static_cast<std::size_t>(sheet_)], args[0]);
    } else {
      return DISP_E_MEMBERNOTFOUND;
    }
    return S_OK;
  }

 private:
  static void Store(xls::Sheet& s, int r, int c, const VARIANT* v) {
    // A stored value keeps the cell's formatting; an empty string or Empty clears the
    // value only, as in Excel.
    xls::Cell& cell = s.mutableAt(r, c);
    cell.type = xls::CellType::kEmpty;
    cell.text.clear();
    cell.number = 0;
    switch (v->vt) {
      case VT_BSTR:
        if (SysStringLen(v->bstrVal) > 0) {
          cell.type = xls::CellType::kText;
          cell.text = ToText(v);
        }
        break;
      case VT_I2:
      case VT_I4:
        cell.type = xls::CellType::kNumber;
        cell.number = static_cast<double>(ToLong(v, "Value2"));
        break;
      case VT_BOOL:
        cell.type = xls::CellType::kBoolean;
        cell.number = v->boolVal ? 1 : 0;
        break;
      default:
        break;
    }
  }

  void PutValue(xls::Sheet& s, const VARIANT* value) {
    if (value->vt == (VT_ARRAY | VT_BSTR)) {
      // Cells beyond the array get #N/A in Excel; the report never asks for that, so
      // only the part the array covers is written and extra array cells are ignored.
      const SAFEARRAY* a = value->parray;
      for (int r = area_.top; r <= area_.bottom; ++r)
        for (int c = area_.left; c <= area_.right; ++c) {
          ULONG i = static_cast<ULONG>(r - area_.top), j = static_cast<ULONG>(c - area_.left);
          if (i >= a->rows || j >= a->columns) continue;
          VARIANT element;
          element.vt = VT_BSTR;
          element.bstrVal = a->data[i * a->columns + j];
          Store(s, r, c, &element);
        }
      return;
    }
    if (value->vt != VT_EMPTY && value->vt != VT_BSTR && value->vt != VT_I2 && value->vt != VT_I4 &&
        value->vt != VT_BOOL)
      Fail("Type mismatch");
    for (int r = area_.top; r <= area_.bottom; ++r)
      for (int c = area_.left; c <= area_.right; ++c) Store(s, r, c, value);
  }

  void AutoFit(xls::Sheet& s) const {
    for (int c = area_.left; c <= area_.right; ++c) {
      std::uint16_t width = 0;
      for (int r = area_.top; r <= area_.bottom && r < s.extentRows(); ++r) {
        const xls::Cell& cell = s.at(r, c);
        std::string shown = cell.type == xls::CellType::kText ? cell.text.str()
                            : cell.type == xls::CellType::kEmpty
                                ? std::string()
                                : std::to_string(static_cast<long long>(cell.number));
        width = std::max(width, FitWidth(shown));
      }
      s.setColumnWidth(c, width);  // 0: an empty column goes back to the standard width
    }
  }

  BookRef book_;
  int sheet_;
  Area area_;
};

class Worksheet : public Object {
 public:
  Worksheet(BookRef book, int sheet) : book_(std::move(book)), sheet_(sheet) {}

 protected:
  HRESULT Call(DISPID member, WORD flags, const std::vector<const VARIANT*>& args,
               VARIANT* result) override {
    xls::Workbook& wb = book_->workbook;
    if (member == kName && (flags & DISPATCH_PROPERTYPUT)) {
      Expect(args, 1);
      if (args[0]->vt != VT_BSTR) Fail("Type mismatch");
      std::string name = ToText(args[0]);
      if (!xls::Workbook::isValidSheetName(name))
        Fail("You typed an invalid name for a sheet or chart.");
      const xls::Sheet* same = wb.findSheet(name);
      if (same != nullptr && same != &wb.sheets()[static_cast<std::size_t>(sheet_)])
        Fail("That name is already taken. Try a different one.");
      wb.sheets()[static_cast<std::size_t>(sheet_)].setName(name);
    } else if (member == kRange && (flags & DISPATCH_PROPERTYGET)) {
      if (args.empty() || args.size() > 2) throw DISP_E_BADPARAMCOUNT;
      Area a;
      int r2, c2;
      bool ok = args[0]->vt == VT_BSTR && ParseCellAddress(ToText(args[0]), &a.top, &a.left);
      if (ok && args.size() == 2 && !IsMissing(args[1])) {
        ok = args[1]->vt == VT_BSTR && ParseCellAddress(ToText(args[1]), &r2, &c2);
      } else {
        r2 = a.top;
        c2 = a.left;
      }
      if (!ok) Fail("Method 'Range' of object '_Worksheet' failed");
      Area area{std::min(a.top, r2), std::min(a.left, c2), std::max(a.top, r2),
                std::max(a.left, c2)};
      ReturnObject(result, new Range(book_, sheet_, area));
    } else {
      return DISP_E_MEMBERNOTFOUND;
    }
    return S_OK;
  }

 private:
  BookRef book_;
  int sheet_;
};

class Sheets : public Object {
 public:
  explicit Sheets(BookRef book) : book_(std::move(book)) {}

 protected:
  HRESULT Call(DISPID member, WORD flags, const std::vector<const VARIANT*>& args,
               VARIANT* result) override {
    if (member != kItem || !(flags & DISPATCH_PROPERTYGET)) return DISP_E_MEMBERNOTFOUND;
    Expect(args, 1);
    int index = -1;
    if (args[0]->vt == VT_BSTR) {
      const xls::Sheet* s = book_->workbook.findSheet(ToText(args[0]));
      if (s != nullptr) index = static_cast<int>(s - book_->workbook.sheets().data());
    } else {
      long i = ToLong(args[0], "Index");
      if (i >= 1 && i <= static_cast<long>(book_->workbook.sheets().size()))
        index = static_cast<int>(i - 1);
    }
    if (index < 0) Fail("Invalid index.");
    ReturnObject(result, new Worksheet(book_, index));
    return S_OK;
  }

 private:
  BookRef book_;
};

class Workbook : public Object {
 public:
  explicit Workbook(BookRef book) : book_(std::move(book)) {}

 protected:
  HRESULT Call(DISPID member, WORD flags, const std::vector<const VARIANT*>& args,
               VARIANT* result) override {
    if (member != kSheets || !(flags & DISPATCH_PROPERTYGET)) return DISP_E_MEMBERNOTFOUND;
    Expect(args, 0);
    ReturnObject(result, new Sheets(book_));
    return S_OK;
  }

 private:
  BookRef book_;
};

class Workbooks : public Object {
 public:
  explicit Workbooks(std::shared_ptr<Instance> app) : app_(std::move(app)) {}

 protected:
  HRESULT Call(DISPID member, WORD flags, const std::vector<const VARIANT*>& args,
               VARIANT* result) override {
    if (member != kAdd || !(flags & DISPATCH_METHOD)) return DISP_E_MEMBERNOTFOUND;
    if (args.size() > 1) throw DISP_E_BADPARAMCOUNT;
    if (!args.empty() && !IsMissing(args[0]))
      Fail("Adding a workbook from a template is not supported");
    auto book = std::make_shared<Book>();
    book->name = "Book" + std::to_string(NextBookNumber());
    // A new workbook has the default three sheets.
    for (const char* name : {"Sheet1", "Sheet2", "Sheet3"}) book->workbook.addSheet(name);
    app_->books.push_back(book);
    NoteNewBook(book);
    ReturnObject(result, new Workbook(book));
    return S_OK;
  }

 private:
  std::shared_ptr<Instance> app_;
};

class Application : public Object {
 public:
  Application() : app_(std::make_shared<Instance>()) {}

 protected:
  HRESULT Call(DISPID member, WORD flags, const std::vector<const VARIANT*>& args,
               VARIANT* result) override {
    if (member == kWorkbooks && (flags & DISPATCH_PROPERTYGET)) {
      Expect(args, 0);
      ReturnObject(result, new Workbooks(app_));
    } else if (member == kVisible && (flags & DISPATCH_PROPERTYPUT)) {
      Expect(args, 1);
      bool show = ToBool(args[0], "Visible");
      if (show && !app_->visible) {
        std::string error = HandOff(*app_);
        if (!error.empty()) Fail(error);
      }
      app_->visible = show;
    } else if (member == kUserControl && (flags & DISPATCH_PROPERTYPUT)) {
      Expect(args, 1);
      app_->userControl = ToBool(args[0], "UserControl");
      // Under the user's control the instance outlives its last reference, as Excel does.
      if (app_->userControl) KeepForUser(app_);
    } else {
      return DISP_E_MEMBERNOTFOUND;
    }
    return S_OK;
  }

 private:
  std::shared_ptr<Instance> app_;
};

}  // namespace

ULONG Object::Release() {
  ULONG left = --refs_;
  if (left == 0) delete this;
  return left;
}

HRESULT Object::Invoke(DISPID member, WORD flags, DISPPARAMS* params, VARIANT* result,
                       EXCEPINFO* exception) {
  if (result != nullptr) VariantInit(result);
  std::vector<const VARIANT*> args;
  if (params != nullptr)
    for (UINT i = params->cArgs; i > 0; --i) args.push_back(&params->rgvarg[i - 1]);
  try {
    return Call(member, flags, args, result);
  } catch (const Failure& f) {
    if (result != nullptr) VariantClear(result);
    if (exception != nullptr) {
      *exception = EXCEPINFO{};
      std::wstring wide(f.description.begin(), f.description.end());
      exception->bstrSource = SysAllocString(L"Microsoft Excel");
      exception->bstrDescription = SysAllocString(wide.c_str());
      exception->scode = DISP_E_EXCEPTION;
    }
    return DISP_E_EXCEPTION;
  } catch (HRESULT hr) {
    return hr;
  } catch (const std::bad_alloc&) {
    return E_OUTOFMEMORY;
  }
}

IDispatch* NewApplication() { return new Application(); }

bool ParseCellAddress(const std::string& text, int* row, int* column) {
  std::size_t i = 0;
  auto skipDollar = [&] {
    if (i < text.size() && text[i] == '$') ++i;
  };
  skipDollar();
  long c = 0;
  std::size_t letters = 0;
  for (; i < text.size() && std::isalpha(static_cast<unsigned char>(text[i])); ++i, ++letters)
    c = c * 26 + (std::toupper(static_cast<unsigned char>(text[i])) - 'A' + 1);
  skipDollar();
  long r = 0;
  std::size_t digits = 0;
  for (; i < text.size() && std::isdigit(static_cast<unsigned char>(text[i])) && digits < 7;
       ++i, ++digits)
    r = r * 10 + (text[i] - '0');
  if (letters == 0 || letters > 2 || digits == 0 || i != text.size()) return false;
  if (c > xls::kMaxColumns || r < 1 || r > xls::kMaxRows) return false;
  *row = static_cast<int>(r - 1);
  *column = static_cast<int>(c - 1);
  return true;
}

std::uint16_t FitWidth(const std::string& text) {
  if (text.empty()) return 0;
  // One character of the default font is 256 units; Excel adds about five pixels (of a
  // seven-pixel digit) of padding. Widths stop at 255 characters.
  long width = static_cast<long>(text.size()) * 256 + 183;
  return static_cast<std::uint16_t>(std::min<long>(width, 255 * 256));
}

}  // namespace excelserver
