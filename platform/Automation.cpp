// The portable half of the automation seam: variants, the BSTR array, the dispatch
// driver's calls and the exceptions. Creation and CoInitialize are per platform.
#include "platform/Automation.h"

#include <cstdio>
#include <string>

COleException::COleException(SCODE status) { SetStatus(status); }

void COleException::SetStatus(SCODE status) {
  m_sc = status;
  message_.Format("OLE error 0x%08X", static_cast<unsigned>(status));
}

COleDispatchException::COleDispatchException(HRESULT status, const char* description)
    : m_scError(status), m_strDescription(description) {
  message_ = m_strDescription;
}

void AfxThrowOleException(SCODE status) { throw new COleException(status); }

void AfxThrowOleDispatchException(HRESULT status, const char* description) {
  throw new COleDispatchException(status, description);
}

BSTR AutomationStringFromText(const char* text) {
  std::wstring wide;
  for (const char* p = text; p != nullptr && *p != 0; ++p)
    wide.push_back(static_cast<wchar_t>(static_cast<unsigned char>(*p)));
  BSTR b = SysAllocStringLen(wide.data(), static_cast<UINT>(wide.size()));
  if (b == nullptr) AfxThrowMemoryException();
  return b;
}

CString AutomationTextFromString(BSTR value) {
  std::string narrow;
  for (UINT i = 0; i < SysStringLen(value); ++i)
    narrow.push_back(value[i] < 256 ? static_cast<char>(value[i]) : '?');
  return CString(narrow.c_str());
}

// ---- COleVariant

COleVariant::COleVariant(short value, VARTYPE type) {
  VariantInit(&v_);
  v_.vt = type;
  if (type == VT_BOOL)
    v_.boolVal = value ? VARIANT_TRUE : VARIANT_FALSE;
  else
    v_.iVal = value;
}

COleVariant::COleVariant(LPCTSTR text) {
  VariantInit(&v_);
  v_.bstrVal = AutomationStringFromText(text);
  v_.vt = VT_BSTR;
}

COleVariant::COleVariant(const COleVariant& other) {
  VariantInit(&v_);
  if (FAILED(VariantCopy(&v_, const_cast<VARIANT*>(&other.v_)))) AfxThrowMemoryException();
}

COleVariant& COleVariant::operator=(const COleVariant& other) {
  if (this != &other && FAILED(VariantCopy(&v_, const_cast<VARIANT*>(&other.v_))))
    AfxThrowMemoryException();
  return *this;
}

void COleVariant::SetI2(short value) {
  VariantClear(&v_);
  v_.vt = VT_I2;
  v_.iVal = value;
}

void COleVariant::SetError(SCODE code) {
  VariantClear(&v_);
  v_.vt = VT_ERROR;
  v_.scode = code;
}

// ---- COleDispatchDriver

void COleDispatchDriver::AttachDispatch(IDispatch* dispatch, BOOL autoRelease) {
  ReleaseDispatch();
  m_lpDispatch = dispatch;
  m_bAutoRelease = autoRelease;
}

IDispatch* COleDispatchDriver::DetachDispatch() {
  IDispatch* d = m_lpDispatch;
  m_lpDispatch = nullptr;
  return d;
}

void COleDispatchDriver::ReleaseDispatch() {
  if (m_lpDispatch != nullptr) {
    if (m_bAutoRelease) m_lpDispatch->Release();
    m_lpDispatch = nullptr;
  }
}

void COleDispatchDriver::Invoke(DISPID member, WORD flags, const VARIANT* args, UINT argCount,
                                VARIANT* result) {
  if (m_lpDispatch == nullptr) AfxThrowOleDispatchException(E_FAIL, "No automation object.");
  // COM passes the arguments last first; the variants are borrowed, not copied.
  VARIANT reversed[8];
  if (argCount > 8) AfxThrowInvalidArgException();
  for (UINT i = 0; i < argCount; ++i) reversed[argCount - 1 - i] = args[i];
  DISPID named = DISPID_PROPERTYPUT;
  DISPPARAMS params{};
  params.rgvarg = argCount ? reversed : nullptr;
  params.cArgs = argCount;
  if (flags & DISPATCH_PROPERTYPUT) {
    params.rgdispidNamedArgs = &named;
    params.cNamedArgs = 1;
  }
  VARIANT out;
  VariantInit(&out);
  EXCEPINFO info{};
#if defined(_WIN32)
  UINT badArgument = 0;
  HRESULT hr = m_lpDispatch->Invoke(member, GUID{}, LOCALE_USER_DEFAULT, flags, &params, &out,
                                    &info, &badArgument);
  if (hr == DISP_E_EXCEPTION && info.pfnDeferredFillIn != nullptr) info.pfnDeferredFillIn(&info);
#else
  HRESULT hr = m_lpDispatch->Invoke(member, flags, &params, &out, &info);
#endif
  if (FAILED(hr)) {
    VariantClear(&out);
    CString description;
    if (hr == DISP_E_EXCEPTION && info.bstrDescription != nullptr)
      description = AutomationTextFromString(info.bstrDescription);
    else
      description.Format("Automation call 0x%X failed with 0x%08X", static_cast<unsigned>(member),
                         static_cast<unsigned>(hr));
    SCODE code = (hr == DISP_E_EXCEPTION && info.scode != 0) ? info.scode : hr;
    SysFreeString(info.bstrSource);
    SysFreeString(info.bstrDescription);
    AfxThrowOleDispatchException(code, description.GetString());
  }
  if (result != nullptr)
    *result = out;
  else
    VariantClear(&out);
}

IDispatch* COleDispatchDriver::GetDispatchProperty(DISPID member, const VARIANT* args,
                                                   UINT argCount) {
  VARIANT out;
  Invoke(member, DISPATCH_PROPERTYGET, args, argCount, &out);
  if (out.vt != VT_DISPATCH || out.pdispVal == nullptr) {
    VariantClear(&out);
    AfxThrowOleDispatchException(DISP_E_TYPEMISMATCH, "The property did not give an object.");
  }
  return out.pdispVal;
}

IDispatch* COleDispatchDriver::CallObjectMethod(DISPID member, const VARIANT* args, UINT argCount) {
  VARIANT out;
  Invoke(member, DISPATCH_METHOD, args, argCount, &out);
  if (out.vt != VT_DISPATCH || out.pdispVal == nullptr) {
    VariantClear(&out);
    AfxThrowOleDispatchException(DISP_E_TYPEMISMATCH, "The method did not give an object.");
  }
  return out.pdispVal;
}

void COleDispatchDriver::SetProperty(DISPID member, const VARIANT& value) {
  Invoke(member, DISPATCH_PROPERTYPUT, &value, 1, nullptr);
}

void COleDispatchDriver::SetStringProperty(DISPID member, LPCTSTR value) {
  COleVariant v(value);
  SetProperty(member, v.get());
}

void COleDispatchDriver::SetBoolProperty(DISPID member, bool value) {
  COleVariant v(value ? 1 : 0, VT_BOOL);
  SetProperty(member, v.get());
}
