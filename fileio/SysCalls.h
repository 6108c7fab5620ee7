// The one table of system calls through which text mode, the codec and the driver reach
// files, so that a test can make the Nth call fail (once, or for good) and then check that
// the file is the old one or the new one. stat and fstat are in the table too (a failing
// stat must not make a file look missing); lstat, readlink and access are not.
//
// The seam is a static library with hidden symbols: libspreadsheet, the codec and the
// driver each link it and each shared library holds its own table; no header here is
// installed. A test that injects faults links the code under test statically, so that it
// and the test share one table.
//
// Ownership: the table is process-wide state. Change it only while no other thread calls
// through it, and put the defaults back (ResetSysCalls) when done.
#pragma once

#include <sys/types.h>
#if !defined(_WIN32)
#include <sys/stat.h>
#endif

#include <cstddef>

namespace fileio {

struct SysCalls {
  int (*open)(const char* path, int flags, int mode);
  int (*close)(int fd);
  ssize_t (*read)(int fd, void* buffer, std::size_t count);
  ssize_t (*write)(int fd, const void* buffer, std::size_t count);
#if !defined(_WIN32)
  // Only text mode is built for Windows; it needs the four calls above.
  ssize_t (*pread)(int fd, void* buffer, std::size_t count, off_t offset);
  ssize_t (*pwrite)(int fd, const void* buffer, std::size_t count, off_t offset);
  int (*fsync)(int fd);
  int (*ftruncate)(int fd, off_t size);
  int (*fchmod)(int fd, mode_t mode);
  int (*fchown)(int fd, uid_t owner, gid_t group);
  int (*rename)(const char* from, const char* to);
  int (*unlink)(const char* path);
  int (*flock)(int fd, int operation);
  int (*stat)(const char* path, struct stat* out);
  int (*fstat)(int fd, struct stat* out);
  // fstat for the type, device, inode, size and links only; the times are left 0. It does
  // not ask for them because asking makes a file system with fine-grained timestamps
  // (Linux 6.13 and later) update them, and dirty the inode, on every later write: a
  // journal that is examined before each append would pay that per statement.
  int (*fstatNoTimes)(int fd, struct stat* out);
#endif
};

// The table in use.
SysCalls& Sys();
const SysCalls& DefaultSysCalls();
void ResetSysCalls();

}  // namespace fileio
