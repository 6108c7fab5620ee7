// Whole-file operations over the system-call table (SysCalls.h), shared by the codec's
// save, the driver's fold and journal, and the automation server's save, so that every
// replaced file follows one set of rules:
//
// - A symbolic link stays a link: the file it names (followed to the end) is replaced,
//   and the new file is written in that file's folder.
// - The new file takes the old one's mode, owner and group. Owner and group are kept where
//   the process may set them; where it may not (EPERM, as `cp -p` ignores it), the file
//   belongs to the writer and loses its set-user-ID and set-group-ID bits. A new file gets
//   0666 less the umask.
// - A file the process may not write (access(W_OK) with the effective ids: root may, as
//   with `cp`) is refused with EACCES and left alone, even when its folder is writable.
// - The path holds the old bytes or the new ones whatever fails or crashes: the new bytes
//   go to a temporary file beside the target, synced, then renamed over it, then the
//   folder is synced.
// - The folder sync failing after the rename is success: the new file is in place and its
//   bytes are on disk; a power cut before the folder reaches the disk can only bring back
//   the old file, which is whole too. Result::folderNotSynced tells a caller that wants
//   to say so. Reporting an error instead would tell the user a save failed that did not,
//   and a retried change would then be made twice.
//
// Hard links to the old file keep the old bytes, and extended attributes and ACLs are not
// copied: the file is a new inode, as with any save by rename.
//
// POSIX only: on Windows only text mode is built, and it rewrites in place.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace fileio {

// What went wrong: errno and a sentence naming the file; ok() when nothing did.
class [[nodiscard]] Result {
 public:
  Result() = default;
  static Result Failure(int error, std::string message) {
    Result r;
    r.error_ = error;
    r.message_ = std::move(message);
    return r;
  }
  bool ok() const { return error_ == 0; }
  int error() const { return error_; }
  const std::string& message() const { return message_; }
  // True when the refusal is about rights (EACCES, EPERM, EROFS), not a failing disk.
  bool denied() const;

  bool folderNotSynced = false;  // set on success only: see the header's last rule

 private:
  int error_ = 0;
  std::string message_;
};

// What identifies one version of a file: a rename over it or a write changes one of these.
// A file that could not be examined (error set: EIO, EACCES on a folder) is not taken for
// missing: it exists, and equals no id, so whoever compares ids reads the file again.
struct FileId {
  bool exists = false;
  int error = 0;  // errno of a failed stat other than "no such file"
  std::uint64_t device = 0, inode = 0, size = 0, mtimeNs = 0;
  std::uint64_t links = 0;  // names the file has; 0 once it was removed (not compared)
  bool operator==(const FileId& o) const {
    return error == 0 && o.error == 0 && exists == o.exists && device == o.device &&
           inode == o.inode && size == o.size && mtimeNs == o.mtimeNs;
  }
  bool operator!=(const FileId& o) const { return !(*this == o); }
};

FileId StatPath(const std::string& path);
FileId StatFd(int fd);
// StatFd without the times (mtimeNs 0), for a file whose identity, size and links are all
// that is checked; see SysCalls::fstatNoTimes for why.
FileId StatFdNoTimes(int fd);

// The file path names once symbolic links are followed (at most 40 of them, as the kernel
// allows). The last one need not exist yet: a link to a missing file names that file.
Result ResolveLinks(const std::string& path, std::string* target);

// Whether the process may change the file at path (links followed): OK when it may write
// the file, or when the file does not exist (its folder then decides, on creation).
Result CheckWritable(const std::string& path);

struct Piece {
  const std::uint8_t* data;
  std::size_t size;
};

// Replaces the file at path with the pieces' bytes, following the rules above.
Result ReplaceFile(const std::string& path, const std::vector<Piece>& pieces);

// Opens path read-write, creating it when missing with the mode, owner and group of the
// file `like` (0666 less the umask when `like` does not exist). *created tells which.
Result OpenOrCreateLike(const std::string& path, const std::string& like, int* fd, bool* created);

}  // namespace fileio
