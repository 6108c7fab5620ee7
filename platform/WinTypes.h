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

// unixODBC's <sqltypes.h> declares several of these names for programs without
// <windows.h>: each typedef below names the very type sqltypes.h gives it (a repeated
// typedef of the same type is allowed), and BOOL, which sqltypes.h makes a macro, is left
// to that macro when it came first. Callers include either header first.
#ifndef BOOL
typedef int BOOL;
#endif
typedef unsigned int UINT;
typedef unsigned char BYTE;
typedef unsigned short WORD;
#if __SIZEOF_LONG__ == 4
typedef unsigned long DWORD;
#else
typedef unsigned int DWORD;
#endif
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
