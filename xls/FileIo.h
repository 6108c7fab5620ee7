// The codec's reading and writing of whole files, over the file seam (fileio/): every
// system call goes through fileio::Sys(), where a test can fail any one of them (the Nth
// write, the rename) and check that the file on disk is still whole.
//
// Ownership: FileOps::Default() is a process-lifetime object.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "xls/Status.h"

namespace xls {

// A file's bytes in memory. The memory is not zero-filled before the read, and a big file's
// is asked to be backed by huge pages where the system offers them: touching 50 MB a 4 KiB
// page at a time costs more than reading the file.
class FileBytes {
 public:
  FileBytes() = default;
  ~FileBytes() { Release(); }
  FileBytes(FileBytes&& o) noexcept : data_(o.data_), size_(o.size_), mapped_(o.mapped_) {
    o.data_ = nullptr;
    o.size_ = o.mapped_ = 0;
  }
  FileBytes& operator=(FileBytes&& o) noexcept;
  FileBytes(const FileBytes&) = delete;
  FileBytes& operator=(const FileBytes&) = delete;

  // Makes room for n bytes, their contents unspecified, dropping the old ones. False when
  // the memory cannot be had.
  [[nodiscard]] bool Allocate(std::size_t n);
  // REQUIRES: n <= size().
  void Truncate(std::size_t n) { size_ = n; }

  std::uint8_t* data() { return data_; }
  const std::uint8_t* data() const { return data_; }
  std::size_t size() const { return size_; }

 private:
  void Release();
  std::uint8_t* data_ = nullptr;
  std::size_t size_ = 0;
  std::size_t mapped_ = 0;  // bytes mapped for data_, 0 when it came from new[]
};

// Reads fd from where it stands to its end into *out, which starts with room for
// sizeHint bytes and grows if the file turns out longer (it grew while read). `read` is the
// system call to use, so that a caller's fault-injection seam applies. False with *err set
// to an errno value on failure (ENOMEM when the memory cannot be had).
bool ReadToEnd(int fd, std::size_t sizeHint, FileBytes* out,
               ssize_t (*read)(int fd, void* buf, std::size_t n), int* err);

// Reads whole files through the seam; the one instance is FileOps::Default().
class FileOps {
 public:
  Status ReadFile(const std::string& path, FileBytes* out);
  static FileOps& Default();
};

// A contiguous run of bytes to write; pieces let a big stream go out without a copy.
struct ByteSpan {
  const std::uint8_t* data;
  std::size_t size;
};

// Replaces the file at path with the pieces, by the seam's rules (fileio/Files.h): the
// old bytes or the new ones whatever fails; mode, owner, group and symbolic links kept; a
// file the process may not write refused. An IOError names the file and the reason.
Status WriteFileAtomically(const std::string& path, const std::vector<ByteSpan>& pieces);

}  // namespace xls
