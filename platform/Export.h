// SPREADSHEET_API marks what libspreadsheet exports; everything else is hidden.
#pragma once

#if defined(_WIN32)
#if defined(SPREADSHEET_BUILDING)
#define SPREADSHEET_API __declspec(dllexport)
#else
#define SPREADSHEET_API __declspec(dllimport)
#endif
#else
#define SPREADSHEET_API __attribute__((visibility("default")))
#endif

#if defined(__GNUC__)
// printf-style checking; for a member function the format string is argument 2.
#define SPREADSHEET_PRINTF(fmt, args) __attribute__((format(printf, fmt, args)))
#else
#define SPREADSHEET_PRINTF(fmt, args)
#endif
