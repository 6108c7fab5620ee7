// The Windows scalar types and macros that callers of the MFC-style API use. On Windows
// they come from <windows.h>; elsewhere they are defined here with the same meaning.
#pragma once

#if defined(_WIN32)
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <windows.h>
#else
#include <cstdint>

typedef int BOOL;
typedef unsigned int UINT;
typedef std::uint8_t BYTE;
typedef std::uint16_t WORD;
typedef std::uint32_t DWORD;
typedef std::int32_t LONG;
typedef std::int32_t HRESULT;
typedef std::intptr_t INT_PTR;
typedef std::uintptr_t UINT_PTR;
typedef char TCHAR;
typedef char* LPSTR;
typedef const char* LPCSTR;
typedef char* LPTSTR;
typedef const char* LPCTSTR;
#ifndef TRUE
#define TRUE 1
#endif
#ifndef FALSE
#define FALSE 0
#endif
#ifndef _T
#define _T(x) x
#endif
#endif
