// The ODBC installer's list of installed drivers. The installer library ("odbccp32.dll"
// on Windows, unixODBC's "libodbcinst.so.2" elsewhere) is loaded by name on first use and
// kept loaded for the life of the process; SQLGetInstalledDrivers is looked up in it by
// name. That handle is the library's only process-wide state; it is set without locking,
// so the first call must not race another.
//
// When the library cannot be loaded, or lacks the function, the user is told once per
// call through platform::ShowMessageBox (caption "ODBC Installer Error", information
// icon) and the call fails.
#pragma once

#include "platform/CString.h"
#include "platform/Export.h"
#include "platform/WinTypes.h"

namespace platform {

// Fills buffer with the installed drivers' descriptions, each ended by a NUL, the list
// ended by an empty one; *used (when given) receives the bytes used. Returns false when
// the library or the function is missing or the installer reports a failure; the buffer
// then holds what the installer left, or is untouched.
// REQUIRES: buffer holds size bytes.
SPREADSHEET_API bool GetInstalledOdbcDrivers(char* buffer, WORD size, WORD* used);

// Test seams.
using InstalledDriversFunction = BOOL (*)(char* buffer, WORD size, WORD* used);
// Calls f instead of the installer's function (no library is loaded); nullptr goes back
// to the library. Returns the previous replacement.
SPREADSHEET_API InstalledDriversFunction SetInstalledDriversForTest(InstalledDriversFunction f);
// Loads library and looks up function instead of the usual names, forgetting the handle
// held so far (it stays loaded) so that the next call loads again; nullptr for either
// restores its usual name. REQUIRES: both strings outlive their use (literals do).
SPREADSHEET_API void SetOdbcInstallerNamesForTest(const char* library, const char* function);

namespace installer_detail {
// The operating-system side (OdbcInstaller_posix.cpp, OdbcInstaller_win.cpp).
void* LoadLibraryByName(const char* name);  // nullptr when it cannot be loaded
void* FindFunction(void* library, const char* name);
BOOL CallInstalledDrivers(void* function, char* buffer, WORD size, WORD* used);
CString ProgramPath();                      // the running program's path
CString LibraryPath(void* library, const char* name);  // name when unknown
const char* DefaultLibraryName();
}  // namespace installer_detail

}  // namespace platform
