// Message boxes. The library shows a message only where a user must be told that
// something outside it is missing (the ODBC installer, Excel). By default Windows shows
// a MessageBoxA; elsewhere one line goes to stderr. A GUI host or a test replaces that
// with SetMessageBoxHook; the hook gets the text, the caption and the MB_* style bits,
// and returns the button pressed (IDOK = 1).
#pragma once

#include "platform/Export.h"

namespace platform {

constexpr unsigned kMbOk = 0x0;
constexpr unsigned kMbIconInformation = 0x40;
constexpr unsigned kMbIconExclamation = 0x30;
constexpr int kIdOk = 1;

using MessageBoxHook = int (*)(const char* text, const char* caption, unsigned style, void* context);

// Shows the message through the hook, or the platform default when no hook is set.
SPREADSHEET_API int ShowMessageBox(const char* text, const char* caption, unsigned style);
// Installs hook (nullptr restores the default); returns the previous hook.
SPREADSHEET_API MessageBoxHook SetMessageBoxHook(MessageBoxHook hook, void* context = nullptr);

}  // namespace platform
