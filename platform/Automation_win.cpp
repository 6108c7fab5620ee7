// The automation seam on Windows: the real COM calls. The ProgID is resolved through the
// registry and the object created with CLSCTX_SERVER, so an in-process server registered
// under "Excel.Application" works as well as Excel itself.
#include "platform/Automation.h"

#include <string>

namespace {
// Spelled out here so the library needs no uuid import library.
const IID kIUnknown = {0x00000000, 0x0000, 0x0000, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};
const IID kIDispatch = {0x00020400, 0x0000, 0x0000, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};
}  // namespace

BOOL COleDispatchDriver::CreateDispatch(LPCTSTR progId, COleException* error) {
  std::wstring wide;
  for (const char* p = progId; p != nullptr && *p != 0; ++p)
    wide.push_back(static_cast<wchar_t>(static_cast<unsigned char>(*p)));
  CLSID clsid;
  HRESULT hr = CLSIDFromProgID(wide.c_str(), &clsid);
  IUnknown* unknown = nullptr;
  if (SUCCEEDED(hr))
    hr = CoCreateInstance(clsid, nullptr, CLSCTX_SERVER, kIUnknown,
                          reinterpret_cast<void**>(&unknown));
  IDispatch* dispatch = nullptr;
  if (SUCCEEDED(hr)) {
    hr = unknown->QueryInterface(kIDispatch, reinterpret_cast<void**>(&dispatch));
    unknown->Release();
  }
  if (FAILED(hr) || dispatch == nullptr) {
    if (error != nullptr) error->SetStatus(FAILED(hr) ? hr : E_FAIL);
    return FALSE;
  }
  AttachDispatch(dispatch, TRUE);
  return TRUE;
}

void COleSafeArray::Create(VARTYPE type, DWORD dims, const DWORD* elements) {
  if (type != VT_BSTR || dims != 2 || elements == nullptr) AfxThrowInvalidArgException();
  VariantClear(&v_);
  SAFEARRAYBOUND bounds[2] = {{elements[0], 0}, {elements[1], 0}};
  SAFEARRAY* a = SafeArrayCreate(VT_BSTR, 2, bounds);
  if (a == nullptr) AfxThrowMemoryException();
  v_.vt = VT_ARRAY | VT_BSTR;
  v_.parray = a;
}

void COleSafeArray::PutElement(const long* index, BSTR value) {
  if (v_.vt != (VT_ARRAY | VT_BSTR)) AfxThrowOleException(E_INVALIDARG);
  LONG at[2] = {index[0], index[1]};
  HRESULT hr = SafeArrayPutElement(v_.parray, at, value);
  if (FAILED(hr)) AfxThrowOleException(hr);
}

void COleSafeArray::GetElement(const long* index, BSTR* value) const {
  if (v_.vt != (VT_ARRAY | VT_BSTR)) AfxThrowOleException(E_INVALIDARG);
  LONG at[2] = {index[0], index[1]};
  HRESULT hr = SafeArrayGetElement(v_.parray, at, value);
  if (FAILED(hr)) AfxThrowOleException(hr);
}

long COleSafeArray::GetDim() const {
  return v_.vt == (VT_ARRAY | VT_BSTR) ? static_cast<long>(SafeArrayGetDim(v_.parray)) : 0;
}

namespace {
long Extent(const VARIANT& v, UINT dim) {
  if (v.vt != (VT_ARRAY | VT_BSTR)) return 0;
  LONG low = 0, high = -1;
  SafeArrayGetLBound(v.parray, dim, &low);
  SafeArrayGetUBound(v.parray, dim, &high);
  return static_cast<long>(high - low + 1);
}
}  // namespace

long COleSafeArray::GetRows() const { return Extent(v_, 1); }
long COleSafeArray::GetColumns() const { return Extent(v_, 2); }

VARIANT COleSafeArray::Detach() {
  VARIANT out = v_;
  VariantInit(&v_);
  return out;
}
