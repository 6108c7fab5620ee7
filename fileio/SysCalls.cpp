#include "fileio/SysCalls.h"

#include <fcntl.h>

#if defined(_WIN32)
#include <io.h>
#else
#include <stdio.h>  // rename
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>  // makedev
#include <unistd.h>

#include <cerrno>
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

int FstatNoTimes(int fd, struct stat* out) {
#if defined(STATX_INO)
  struct statx x;
  if (::statx(fd, "", AT_EMPTY_PATH, STATX_TYPE | STATX_INO | STATX_SIZE | STATX_NLINK, &x) == 0) {
    *out = {};
    out->st_dev = makedev(x.stx_dev_major, x.stx_dev_minor);
    out->st_ino = static_cast<ino_t>(x.stx_ino);
    out->st_mode = x.stx_mode;
    out->st_nlink = static_cast<nlink_t>(x.stx_nlink);
    out->st_size = static_cast<off_t>(x.stx_size);
    return 0;
  }
  if (errno != ENOSYS) return -1;
#endif
  return ::fstat(fd, out);
}

const SysCalls kDefaults = {Open,     ::close,  ::read,      ::write,  ::pread,
                            ::pwrite, ::fsync,  ::ftruncate, ::fchmod, ::fchown,
                            ::rename, ::unlink, ::flock,     Stat,     Fstat, FstatNoTimes};
#endif

SysCalls g_sys = kDefaults;

}  // namespace

SysCalls& Sys() { return g_sys; }
const SysCalls& DefaultSysCalls() { return kDefaults; }
void ResetSysCalls() { g_sys = kDefaults; }

}  // namespace fileio
