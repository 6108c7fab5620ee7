// The automation seam away from Windows. A ProgID resolves to an in-process server: a
// shared library exporting AutomationServerCreate, looked for as libexcelserver.so next
// to this library (SPREADSHEET_AUTOMATION_SERVER names another file). Setting
// SPREADSHEET_AUTOMATION_DISABLE makes every creation fail with REGDB_E_CLASSNOTREG, as
// on a machine without Excel. The server stays loaded for the life of the process.
#include <dlfcn.h>

#include <cstdlib>
#include <cstring>
#include <string>

#include "platform/Automation.h"

HRESULT CoInitialize(void*) { return S_OK; }

namespace {

AutomationServerFactory LoadServer() {
  std::string path;
  if (const char* named = std::getenv("SPREADSHEET_AUTOMATION_SERVER"); named && *named) {
    path = named;
  } else {
    Dl_info self{};
    if (dladdr(reinterpret_cast<void*>(&LoadServer), &self) == 0 || self.dli_fname == nullptr)
      return nullptr;
    path = self.dli_fname;
    std::size_t slash = path.rfind('/');
    path = (slash == std::string::npos ? std::string() : path.substr(0, slash + 1)) +
           "libexcelserver.so";
  }
  void* handle = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (handle == nullptr) return nullptr;
  return reinterpret_cast<AutomationServerFactory>(dlsym(handle, AUTOMATION_SERVER_FACTORY_NAME));
}

}  // namespace

BOOL COleDispatchDriver::CreateDispatch(LPCTSTR progId, COleException* error) {
  HRESULT hr = S_OK;
  IDispatch* created = nullptr;
  if (progId == nullptr || std::strcmp(progId, "Excel.Application") != 0) {
    hr = CO_E_CLASSSTRING;
  } else if (const char* off = std::getenv("SPREADSHEET_AUTOMATION_DISABLE"); off && *off) {
    hr = REGDB_E_CLASSNOTREG;
  } else if (AutomationServerFactory create = LoadServer(); create == nullptr) {
    hr = REGDB_E_CLASSNOTREG;
  } else {
    hr = create(progId, &created);
  }
  if (FAILED(hr) || created == nullptr) {
    if (error != nullptr) error->SetStatus(FAILED(hr) ? hr : E_FAIL);
    return FALSE;
  }
  AttachDispatch(created, TRUE);
  return TRUE;
}

// ---- COleSafeArray over the two-dimensional BSTR array of AutomationTypes.h

void COleSafeArray::Create(VARTYPE type, DWORD dims, const DWORD* elements) {
  if (type != VT_BSTR || dims != 2 || elements == nullptr) AfxThrowInvalidArgException();
  VariantClear(&v_);
  SAFEARRAY* a = SafeArrayCreate2D(elements[0], elements[1]);
  if (a == nullptr) AfxThrowMemoryException();
  for (ULONG i = 0; i < a->rows * a->columns; ++i) {
    a->data[i] = SysAllocStringLen(nullptr, 0);
    if (a->data[i] == nullptr) {
      SafeArrayDestroyData2D(a);
      AfxThrowMemoryException();
    }
  }
  v_.vt = VT_ARRAY | VT_BSTR;
  v_.parray = a;
}

namespace {
BSTR* Element(const VARIANT& v, const long* index) {
  if (v.vt != (VT_ARRAY | VT_BSTR) || index == nullptr) AfxThrowOleException(E_INVALIDARG);
  const SAFEARRAY* a = v.parray;
  if (index[0] < 0 || index[1] < 0 || static_cast<ULONG>(index[0]) >= a->rows ||
      static_cast<ULONG>(index[1]) >= a->columns)
    AfxThrowOleException(static_cast<SCODE>(0x8002000Bu));  // DISP_E_BADINDEX
  return &a->data[static_cast<ULONG>(index[0]) * a->columns + static_cast<ULONG>(index[1])];
}
}  // namespace

void COleSafeArray::PutElement(const long* index, BSTR value) {
  BSTR* slot = Element(v_, index);
  BSTR copy = SysAllocStringLen(value, SysStringLen(value));
  if (copy == nullptr) AfxThrowMemoryException();
  SysFreeString(*slot);
  *slot = copy;
}

void COleSafeArray::GetElement(const long* index, BSTR* value) const {
  BSTR* slot = Element(v_, index);
  *value = SysAllocStringLen(*slot, SysStringLen(*slot));
}

long COleSafeArray::GetDim() const { return v_.vt == (VT_ARRAY | VT_BSTR) ? 2 : 0; }
long COleSafeArray::GetRows() const { return GetDim() ? static_cast<long>(v_.parray->rows) : 0; }
long COleSafeArray::GetColumns() const {
  return GetDim() ? static_cast<long>(v_.parray->columns) : 0;
}

VARIANT COleSafeArray::Detach() {
  VARIANT out = v_;
  VariantInit(&v_);
  return out;
}
