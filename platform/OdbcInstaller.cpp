// The portable half of the installer seam: load once, look up once, tell the user.
#include "platform/CString.h"
#include "platform/MessageBox.h"
#include "platform/OdbcInstaller.h"

namespace platform {

namespace {

const char kCaption[] = "ODBC Installer Error";
const char kFunctionName[] = "SQLGetInstalledDrivers";

// Process-wide on purpose: the installer library stays loaded once it has been found.
void* g_library = nullptr;
InstalledDriversFunction g_replacement = nullptr;
const char* g_libraryName = nullptr;   // nullptr: the platform's usual name
const char* g_functionName = nullptr;  // nullptr: kFunctionName

}  // namespace

bool GetInstalledOdbcDrivers(char* buffer, WORD size, WORD* used) {
  if (g_replacement) return g_replacement(buffer, size, used) != FALSE;

  const char* libraryName = g_libraryName ? g_libraryName : installer_detail::DefaultLibraryName();
  const char* functionName = g_functionName ? g_functionName : kFunctionName;
  if (!g_library) g_library = installer_detail::LoadLibraryByName(libraryName);
  if (!g_library) {
    ShowMessageBox("The ODBC installer DLL (ODBCCP32.DLL) is not installed on this system.",
                   kCaption, kMbOk | kMbIconInformation);
    return false;
  }
  void* function = installer_detail::FindFunction(g_library, functionName);
  if (!function) {
    CString text;
    text.Format(
        "The program %s, or one of its DLLs attempted to call the function %s which is not "
        "supported in the loaded ODBC installer DLL (%s). Press OK to proceed.",
        installer_detail::ProgramPath().GetString(), functionName,
        installer_detail::LibraryPath(g_library, libraryName).GetString());
    ShowMessageBox(text, kCaption, kMbOk | kMbIconInformation);
    return false;
  }
  return installer_detail::CallInstalledDrivers(function, buffer, size, used) != FALSE;
}

InstalledDriversFunction SetInstalledDriversForTest(InstalledDriversFunction f) {
  InstalledDriversFunction previous = g_replacement;
  g_replacement = f;
  return previous;
}

void SetOdbcInstallerNamesForTest(const char* library, const char* function) {
  g_libraryName = library;
  g_functionName = function;
  g_library = nullptr;
}

}  // namespace platform
