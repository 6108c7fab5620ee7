// FileIo: the driver's only door to the file system. Every system call goes through the
// table Sys() so that tests can make the Nth write, sync or rename fail and check that the
// workbook on disk is still the old one or the new one, never a mix.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <vector>

#include "odbc-driver/Error.h"
#include "xls/FileIo.h"

namespace xlsodbc {

struct SysCalls {
  int (*open)(const char* path, int flags, mode_t mode);
  int (*close)(int fd);
  ssize_t (*read)(int fd, void* buf, size_t n);
  ssize_t (*pwrite)(int fd, const void* buf, size_t n, off_t offset);
  int (*fsync)(int fd);
  int (*ftruncate)(int fd, off_t size);
  int (*rename)(const char* from, const char* to);
  int (*unlink)(const char* path);
  int (*flock)(int fd, int op);
};

// The table in use; tests replace entries and put the defaults back with ResetSys().
SysCalls& Sys();
void ResetSys();

// What identifies one version of a file: a rename over it or a write changes one of these.
struct FileId {
  bool exists = false;
  std::uint64_t device = 0, inode = 0, size = 0, mtimeNs = 0;
  bool operator==(const FileId& o) const {
    return exists == o.exists && device == o.device && inode == o.inode && size == o.size &&
           mtimeNs == o.mtimeNs;
  }
  bool operator!=(const FileId& o) const { return !(*this == o); }
};

FileId StatPath(const std::string& path);
FileId StatFd(int fd);

Error ReadWholeFile(const std::string& path, xls::FileBytes* out);
Error ReadAt(int fd, std::uint64_t offset, std::uint64_t size, std::vector<std::uint8_t>* out);
Error WriteAt(int fd, std::uint64_t offset, const std::uint8_t* data, std::size_t size);

// Writes a temporary file beside path, syncs it, renames it over path and syncs the folder:
// path then holds the old bytes or the new ones, whatever fails or crashes.
Error WriteFileAtomic(const std::string& path, const std::vector<std::uint8_t>& data);

// FNV-1a, 64 bits: tells a journal which workbook bytes it was written against.
std::uint64_t Fnv64(const std::uint8_t* data, std::size_t size);
std::uint32_t Fnv32(const std::uint8_t* data, std::size_t size);

std::string ErrnoText(int err);

}  // namespace xlsodbc
