// The installer seam on POSIX systems: unixODBC's libodbcinst through dlopen.
#include <dlfcn.h>
#include <link.h>
#include <unistd.h>

#include <vector>

#include "platform/OdbcInstaller.h"

namespace platform::installer_detail {

const char* DefaultLibraryName() { return "libodbcinst.so.2"; }

void* LoadLibraryByName(const char* name) { return dlopen(name, RTLD_NOW | RTLD_LOCAL); }

void* FindFunction(void* library, const char* name) { return dlsym(library, name); }

BOOL CallInstalledDrivers(void* function, char* buffer, WORD size, WORD* used) {
  using Fn = int (*)(char*, WORD, WORD*);
  return reinterpret_cast<Fn>(function)(buffer, size, used) ? TRUE : FALSE;
}

CString ProgramPath() {
  std::vector<char> path(4096);
  const ssize_t n = readlink("/proc/self/exe", path.data(), path.size());
  if (n <= 0) return CString("(unknown program)");
  return CString(path.data(), static_cast<int>(n));
}

CString LibraryPath(void* library, const char* name) {
  struct link_map* map = nullptr;
  if (dlinfo(library, RTLD_DI_LINKMAP, &map) == 0 && map && map->l_name && *map->l_name) {
    return CString(map->l_name);
  }
  return CString(name);
}

}  // namespace platform::installer_detail
