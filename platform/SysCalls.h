// The system calls of the file layer, in one replaceable table, so that tests can make
// the Nth call fail (or every call from then on) and check what the file is afterwards.
#pragma once

#include <sys/types.h>

#include "platform/Export.h"

namespace platform {

struct SysCalls {
  int (*open)(const char* path, int flags, int mode);
  ssize_t (*read)(int fd, void* buffer, size_t count);
  ssize_t (*write)(int fd, const void* buffer, size_t count);
  int (*close)(int fd);
};

// The table in use; tests swap entries and restore them with DefaultSysCalls().
SPREADSHEET_API SysCalls& Sys();
SPREADSHEET_API const SysCalls& DefaultSysCalls();

}  // namespace platform
