#include "fileio/SysCalls.h"

#include <fcntl.h>

#if defined(_WIN32)
#include <io.h>
#else
#include <stdio.h>  // rename
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>
#endif

namespace fileio {
namespace {

#if defined(_WIN32)
int Open(const char* path, int flags, int mode) { return ::_open(path, flags, mode); }
int Close(int fd) { return ::_close(fd); }
ssize_t Read(int fd, void* buffer, std::size_t count) {
  return ::_read(fd, buffer, static_cast<unsigned>(count));
}
ssize_t Write(int fd, const void* buffer, std::size_t count) {
  return ::_write(fd, buffer, static_cast<unsigned>(count));
}

const SysCalls kDefaults = {Open, Close, Read, Write};
#else
int Open(const char* path, int flags, int mode) {
  return ::open(path, flags, static_cast<mode_t>(mode));
}

int Stat(const char* path, struct stat* out) { return ::stat(path, out); }
int Fstat(int fd, struct stat* out) { return ::fstat(fd, out); }

const SysCalls kDefaults = {Open,     ::close,  ::read,      ::write,  ::pread,
                            ::pwrite, ::fsync,  ::ftruncate, ::fchmod, ::fchown,
                            ::rename, ::unlink, ::flock,     Stat,     Fstat};
#endif

SysCalls g_sys = kDefaults;

}  // namespace

SysCalls& Sys() { return g_sys; }
const SysCalls& DefaultSysCalls() { return kDefaults; }
void ResetSysCalls() { g_sys = kDefaults; }

}  // namespace fileio
