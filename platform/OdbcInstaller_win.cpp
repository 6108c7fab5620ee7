// The installer seam on Windows: odbccp32.dll through LoadLibrary.
#include "platform/OdbcInstaller.h"  // brings <windows.h>

namespace platform::installer_detail {

const char* DefaultLibraryName() { return "odbccp32.dll"; }

void* LoadLibraryByName(const char* name) { return reinterpret_cast<void*>(LoadLibraryA(name)); }

void* FindFunction(void* library, const char* name) {
  return reinterpret_cast<void*>(GetProcAddress(static_cast<HMODULE>(library), name));
}

BOOL CallInstalledDrivers(void* function, char* buffer, WORD size, WORD* used) {
  using Fn = BOOL(WINAPI*)(LPSTR, WORD, WORD*);
  return reinterpret_cast<Fn>(function)(buffer, size, used);
}

CString ProgramPath() {
  char path[MAX_PATH + 1] = {0};
  const DWORD n = GetModuleFileNameA(nullptr, path, MAX_PATH);
  return n ? CString(path, static_cast<int>(n)) : CString("(unknown program)");
}

CString LibraryPath(void* library, const char* name) {
  char path[MAX_PATH + 1] = {0};
  const DWORD n = GetModuleFileNameA(static_cast<HMODULE>(library), path, MAX_PATH);
  return n ? CString(path, static_cast<int>(n)) : CString(name);
}

}  // namespace platform::installer_detail
