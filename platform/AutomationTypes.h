// The automation ABI shared by the seam and the in-process "Excel.Application" server:
// on Windows the real COM and OLE Automation types; elsewhere minimal equivalents with
// the same names and meaning (IDispatch::Invoke by DISPID, VARIANT, 2-D SAFEARRAY of
// BSTR, EXCEPINFO). Strings are allocated with malloc behind a length prefix, inline
// here, so a BSTR made on one side of the library boundary is freed on the other.
#pragma once

#if defined(_WIN32)
#include <ole2.h>
#include <oleauto.h>
#include "platform/WinTypes.h"
#else
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "platform/WinTypes.h"

typedef std::int32_t DISPID;
typedef std::int32_t SCODE;
typedef unsigned long ULONG;  // as in <windows.h> and unixODBC's <sqltypes.h>
typedef unsigned short VARTYPE;
typedef short VARIANT_BOOL;
typedef wchar_t OLECHAR;
typedef OLECHAR* BSTR;

constexpr VARIANT_BOOL VARIANT_TRUE = -1;
constexpr VARIANT_BOOL VARIANT_FALSE = 0;

enum : VARTYPE {
  VT_EMPTY = 0,
  VT_I2 = 2,
  VT_I4 = 3,
  VT_BSTR = 8,
  VT_DISPATCH = 9,
  VT_ERROR = 10,
  VT_BOOL = 11,
  VT_VARIANT = 12,
  VT_ARRAY = 0x2000
};
enum : WORD { DISPATCH_METHOD = 1, DISPATCH_PROPERTYGET = 2, DISPATCH_PROPERTYPUT = 4 };
constexpr DISPID DISPID_PROPERTYPUT = -3;

constexpr HRESULT S_OK = 0;
constexpr HRESULT E_FAIL = static_cast<HRESULT>(0x80004005u);
constexpr HRESULT E_INVALIDARG = static_cast<HRESULT>(0x80070057u);
constexpr HRESULT E_OUTOFMEMORY = static_cast<HRESULT>(0x8007000Eu);
constexpr HRESULT DISP_E_MEMBERNOTFOUND = static_cast<HRESULT>(0x80020003u);
constexpr HRESULT DISP_E_PARAMNOTFOUND = static_cast<HRESULT>(0x80020004u);
constexpr HRESULT DISP_E_TYPEMISMATCH = static_cast<HRESULT>(0x80020005u);
constexpr HRESULT DISP_E_EXCEPTION = static_cast<HRESULT>(0x80020009u);
constexpr HRESULT DISP_E_BADPARAMCOUNT = static_cast<HRESULT>(0x8002000Eu);
constexpr HRESULT CO_E_CLASSSTRING = static_cast<HRESULT>(0x800401F3u);
constexpr HRESULT REGDB_E_CLASSNOTREG = static_cast<HRESULT>(0x80040154u);
#ifndef SUCCEEDED
#define SUCCEEDED(hr) (static_cast<HRESULT>(hr) >= 0)
#define FAILED(hr) (static_cast<HRESULT>(hr) < 0)
#endif

// Only two-dimensional arrays of BSTR exist on this side: rows first, lower bounds 0.
// data holds rows * columns strings, row-major; a null entry reads as "".
struct SAFEARRAY {
  ULONG rows;
  ULONG columns;
  BSTR* data;
};

struct IDispatch;

struct VARIANT {
  VARTYPE vt;
  union {
    short iVal;
    std::int32_t lVal;
    SCODE scode;
    VARIANT_BOOL boolVal;
    BSTR bstrVal;
    IDispatch* pdispVal;
    SAFEARRAY* parray;
  };
};

// Arguments arrive in reverse order, as COM passes them: rgvarg[cArgs - 1] is the first.
struct DISPPARAMS {
  VARIANT* rgvarg;
  DISPID* rgdispidNamedArgs;
  UINT cArgs;
  UINT cNamedArgs;
};

struct EXCEPINFO {
  WORD wCode;
  BSTR bstrSource;
  BSTR bstrDescription;
  SCODE scode;
};

// Reference counted: the creator holds one reference; Release at zero destroys.
struct IDispatch {
  virtual ULONG AddRef() = 0;
  virtual ULONG Release() = 0;
  virtual HRESULT Invoke(DISPID member, WORD flags, DISPPARAMS* params, VARIANT* result,
                         EXCEPINFO* exception) = 0;

 protected:
  ~IDispatch() = default;
};

// The server's one entry point, found by name after loading it for a ProgID.
extern "C" typedef HRESULT (*AutomationServerFactory)(const char* progId, IDispatch** out);
#define AUTOMATION_SERVER_FACTORY_NAME "AutomationServerCreate"

inline BSTR SysAllocStringLen(const OLECHAR* s, UINT length) {
  void* block = std::malloc(sizeof(UINT) * 2 + (length + 1) * sizeof(OLECHAR));
  if (block == nullptr) return nullptr;
  std::memcpy(block, &length, sizeof(UINT));
  BSTR b = reinterpret_cast<BSTR>(static_cast<char*>(block) + sizeof(UINT) * 2);
  if (s != nullptr)
    std::memcpy(b, s, length * sizeof(OLECHAR));
  else
    std::memset(b, 0, length * sizeof(OLECHAR));
  b[length] = 0;
  return b;
}
inline BSTR SysAllocString(const OLECHAR* s) {
  UINT n = 0;
  while (s != nullptr && s[n] != 0) ++n;
  return SysAllocStringLen(s, n);
}
inline UINT SysStringLen(BSTR b) {
  if (b == nullptr) return 0;
  UINT n;
  std::memcpy(&n, reinterpret_cast<char*>(b) - sizeof(UINT) * 2, sizeof(UINT));
  return n;
}
inline void SysFreeString(BSTR b) {
  if (b != nullptr) std::free(reinterpret_cast<char*>(b) - sizeof(UINT) * 2);
}
inline void VariantInit(VARIANT* v) { std::memset(static_cast<void*>(v), 0, sizeof(VARIANT)); }
inline void SafeArrayDestroyData2D(SAFEARRAY* a) {
  if (a == nullptr) return;
  for (ULONG i = 0; i < a->rows * a->columns; ++i) SysFreeString(a->data[i]);
  std::free(a->data);
  std::free(a);
}
inline HRESULT VariantClear(VARIANT* v) {
  if (v->vt == VT_BSTR)
    SysFreeString(v->bstrVal);
  else if (v->vt == VT_DISPATCH && v->pdispVal != nullptr)
    v->pdispVal->Release();
  else if (v->vt == (VT_ARRAY | VT_BSTR))
    SafeArrayDestroyData2D(v->parray);
  VariantInit(v);
  return S_OK;
}
inline SAFEARRAY* SafeArrayCreate2D(ULONG rows, ULONG columns) {
  SAFEARRAY* a = static_cast<SAFEARRAY*>(std::malloc(sizeof(SAFEARRAY)));
  if (a == nullptr) return nullptr;
  a->rows = rows;
  a->columns = columns;
  a->data =
      static_cast<BSTR*>(std::calloc(static_cast<std::size_t>(rows) * columns + 1, sizeof(BSTR)));
  if (a->data == nullptr) {
    std::free(a);
    return nullptr;
  }
  return a;
}
inline HRESULT VariantCopy(VARIANT* to, const VARIANT* from) {
  VariantClear(to);
  *to = *from;
  if (from->vt == VT_BSTR) {
    to->bstrVal = SysAllocStringLen(from->bstrVal, SysStringLen(from->bstrVal));
  } else if (from->vt == VT_DISPATCH && from->pdispVal != nullptr) {
    from->pdispVal->AddRef();
  } else if (from->vt == (VT_ARRAY | VT_BSTR)) {
    const SAFEARRAY* a = from->parray;
    to->parray = SafeArrayCreate2D(a->rows, a->columns);
    if (to->parray == nullptr) {
      VariantInit(to);
      return E_OUTOFMEMORY;
    }
    for (ULONG i = 0; i < a->rows * a->columns; ++i)
      if (a->data[i] != nullptr)
        to->parray->data[i] = SysAllocStringLen(a->data[i], SysStringLen(a->data[i]));
  }
  return S_OK;
}
#endif
