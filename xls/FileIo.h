// The codec's only contact with the file system. Every call that touches a file goes
// through a FileOps so that a test can fail any one of them (the Nth write, the rename)
// and check that the file on disk is still whole.
//
// Ownership: FileOps::Default() is a process-lifetime object; callers own any other.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "xls/Status.h"

namespace xls {

class FileOps {
 public:
  virtual ~FileOps() = default;

  virtual Status ReadFile(const std::string& path, std::vector<std::uint8_t>* out);
  // Creates a new file for writing; fails with IOError when it already exists.
  virtual Status CreateNew(const std::string& path, int* fd);
  // Writes all n bytes or fails.
  virtual Status Write(int fd, const void* data, std::size_t n);
  virtual Status Sync(int fd);
  virtual Status Close(int fd);
  virtual Status Rename(const std::string& from, const std::string& to);
  virtual Status Remove(const std::string& path);
  // Makes a rename in the folder durable.
  virtual Status SyncFolder(const std::string& folder);

  // The POSIX implementation.
  static FileOps& Default();
};

// A contiguous run of bytes to write; pieces let a big stream go out without a copy.
struct ByteSpan {
  const std::uint8_t* data;
  std::size_t size;
};

// Writes the pieces to a temporary file in path's folder, flushes it, and renames it over
// path. On failure before the rename the temporary file is removed (best effort) and
// path is untouched.
Status WriteFileAtomically(FileOps& ops, const std::string& path,
                           const std::vector<ByteSpan>& pieces);

}  // namespace xls
