// Automation seam: MFC's COleDispatchDriver, COleVariant and COleSafeArray over COM on
// Windows and over the in-process "Excel.Application" server elsewhere (a shared library
// loaded at run time, see Automation_posix.cpp).
//
// Ownership: a COleDispatchDriver owns one reference to m_lpDispatch (AttachDispatch
// takes it, ReleaseDispatch and the destructor drop it); a COleVariant owns its VARIANT;
// a COleSafeArray owns its array until Detach hands it out. Default constructors do
// nothing but zero their state. Failing calls throw COleDispatchException* (an HRESULT
// and the server's description) or COleException* (an OLE status); the catcher calls
// Delete().
#pragma once

#include "platform/AutomationTypes.h"
#include "platform/CString.h"
#include "platform/Export.h"
#include "platform/WinTypes.h"

class SPREADSHEET_API COleException : public CException {
 public:
  // The message reads "OLE error 0x%08X" for the status.
  explicit COleException(SCODE status = S_OK);
  void SetStatus(SCODE status);
  SCODE m_sc;
};

class SPREADSHEET_API COleDispatchException : public CException {
 public:
  // The message is the description.
  COleDispatchException(HRESULT status, const char* description);
  HRESULT m_scError;
  CString m_strDescription;
};

[[noreturn]] SPREADSHEET_API void AfxThrowOleException(SCODE status);
[[noreturn]] SPREADSHEET_API void AfxThrowOleDispatchException(HRESULT status,
                                                               const char* description);

#if !defined(_WIN32)
// Enters the calling thread into the automation apartment; always succeeds here.
SPREADSHEET_API HRESULT CoInitialize(void* reserved);
#endif

class SPREADSHEET_API COleVariant {
 public:
  COleVariant() { VariantInit(&v_); }
  COleVariant(short value, VARTYPE type);  // VT_I2 or VT_BOOL
  COleVariant(LPCTSTR text);               // VT_BSTR
  COleVariant(const COleVariant& other);
  COleVariant& operator=(const COleVariant& other);
  ~COleVariant() { VariantClear(&v_); }

  void SetI2(short value);
  void SetError(SCODE code);
  void Clear() { VariantClear(&v_); }
  VARTYPE vt() const { return v_.vt; }
  const VARIANT& get() const { return v_; }
  VARIANT* operator&() { return &v_; }  // NOLINT: MFC hands out the VARIANT this way
  operator const VARIANT&() const { return v_; }

 private:
  VARIANT v_;
};

// A two-dimensional array of VT_BSTR, lower bounds 0, first dimension rows.
class SPREADSHEET_API COleSafeArray {
 public:
  COleSafeArray() { VariantInit(&v_); }
  COleSafeArray(const COleSafeArray&) = delete;
  COleSafeArray& operator=(const COleSafeArray&) = delete;
  ~COleSafeArray() { VariantClear(&v_); }

  // REQUIRES: type == VT_BSTR, dims == 2. Every element starts as an empty string.
  // Releases what the object held before.
  void Create(VARTYPE type, DWORD dims, const DWORD* elements);
  // index is {row, column}; the string is copied. Out of range throws COleException*.
  void PutElement(const long* index, BSTR value);
  void GetElement(const long* index, BSTR* value) const;  // caller frees *value
  long GetDim() const;
  long GetRows() const;
  long GetColumns() const;
  void Clear() { VariantClear(&v_); }
  // Hands the array out as a VARIANT and leaves this object empty.
  VARIANT Detach();
  const VARIANT& get() const { return v_; }
  operator const VARIANT&() const { return v_; }

 private:
  VARIANT v_;
};

class SPREADSHEET_API COleDispatchDriver {
 public:
  COleDispatchDriver() : m_lpDispatch(nullptr), m_bAutoRelease(TRUE) {}
  COleDispatchDriver(IDispatch* dispatch, BOOL autoRelease = TRUE)
      : m_lpDispatch(dispatch), m_bAutoRelease(autoRelease) {}
  COleDispatchDriver(const COleDispatchDriver&) = delete;
  COleDispatchDriver& operator=(const COleDispatchDriver&) = delete;
  ~COleDispatchDriver() { ReleaseDispatch(); }

  // Creates the object registered under progId. On failure returns FALSE and, when
  // given, sets *error->m_sc to the status.
  BOOL CreateDispatch(LPCTSTR progId, COleException* error = nullptr);
  // Releases the held object and takes over dispatch (one reference).
  void AttachDispatch(IDispatch* dispatch, BOOL autoRelease = TRUE);
  IDispatch* DetachDispatch();
  void ReleaseDispatch();

  // One call by DISPID. args are in call order. The result is copied into *result when
  // given. A failure throws COleDispatchException* (or COleException* with no object).
  void Invoke(DISPID member, WORD flags, const VARIANT* args, UINT argCount, VARIANT* result);
  IDispatch* GetDispatchProperty(DISPID member, const VARIANT* args = nullptr, UINT argCount = 0);
  void SetProperty(DISPID member, const VARIANT& value);
  void SetStringProperty(DISPID member, LPCTSTR value);  // narrow text sent as a BSTR
  void SetBoolProperty(DISPID member, bool value);       // sent as VT_BOOL
  IDispatch* CallObjectMethod(DISPID member, const VARIANT* args, UINT argCount);

  IDispatch* m_lpDispatch;
  BOOL m_bAutoRelease;
};

// Narrow text to a new BSTR (each byte one character) and back.
SPREADSHEET_API BSTR AutomationStringFromText(const char* text);
SPREADSHEET_API CString AutomationTextFromString(BSTR value);
