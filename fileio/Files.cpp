#include "fileio/Files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "fileio/SysCalls.h"

namespace fileio {

namespace {

std::string FolderOf(const std::string& path) {
  std::size_t slash = path.rfind('/');
  if (slash == std::string::npos) return ".";
  return slash == 0 ? "/" : path.substr(0, slash);
}

std::string BaseOf(const std::string& path) {
  std::size_t slash = path.rfind('/');
  return slash == std::string::npos ? path : path.substr(slash + 1);
}

Result Fail(int err, const std::string& what, const std::string& path, const char* tail = "") {
  return Result::Failure(err,
                         "Cannot " + what + " '" + path + "': " + std::strerror(err) + "." + tail);
}

FileId FromStat(const struct stat& st) {
  FileId id;
  id.exists = true;
  id.device = static_cast<std::uint64_t>(st.st_dev);
  id.inode = static_cast<std::uint64_t>(st.st_ino);
  id.size = static_cast<std::uint64_t>(st.st_size);
  id.links = static_cast<std::uint64_t>(st.st_nlink);
  id.mtimeNs = static_cast<std::uint64_t>(st.st_mtim.tv_sec) * 1000000000ull +
               static_cast<std::uint64_t>(st.st_mtim.tv_nsec);
  return id;
}

// Gives the file open at fd the mode, owner and group of `like`, as far as the process may.
Result CopyOwnerAndMode(int fd, const struct stat& like, const std::string& path) {
  mode_t mode = like.st_mode & 07777;
  if (Sys().fchown(fd, like.st_uid, like.st_gid) != 0) {
    if (errno != EPERM) return Fail(errno, "keep the owner of", path);
    // Not allowed to give the file away; a member of the group may still keep the group.
    if (Sys().fchown(fd, static_cast<uid_t>(-1), like.st_gid) != 0 && errno != EPERM) {
      return Fail(errno, "keep the group of", path);
    }
    mode &= ~static_cast<mode_t>(S_ISUID | S_ISGID);  // as chown clears them
  }
  if (Sys().fchmod(fd, mode) != 0) return Fail(errno, "keep the mode of", path);
  return Result();
}

Result WriteAll(int fd, const std::uint8_t* data, std::size_t size) {
  // At most 1 MiB a call keeps each write bounded.
  constexpr std::size_t kChunk = std::size_t{1} << 20;
  while (size > 0) {
    ssize_t n = Sys().write(fd, data, std::min(size, kChunk));
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return Result::Failure(n < 0 ? errno : ENOSPC, "");
    data += n;
    size -= static_cast<std::size_t>(n);
  }
  return Result();
}

bool SyncFolder(const std::string& folder) {
  int fd = Sys().open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC, 0);
  if (fd < 0) return false;
  bool synced = Sys().fsync(fd) == 0;
  Sys().close(fd);
  return synced;
}

}  // namespace

bool Result::denied() const { return error_ == EACCES || error_ == EPERM || error_ == EROFS; }

FileId StatPath(const std::string& path) {
  struct stat st;
  if (Sys().stat(path.c_str(), &st) == 0) return FromStat(st);
  FileId id;
  if (errno != ENOENT && errno != ENOTDIR) id.exists = true, id.error = errno;
  return id;
}

namespace {

// An open file exists: a failed fstat is an error, never "missing".
FileId StatOpenFile(int (*fstatCall)(int, struct stat*), int fd) {
  struct stat st;
  if (fstatCall(fd, &st) == 0) return FromStat(st);
  FileId id;
  id.exists = true;
  id.error = errno;
  return id;
}

}  // namespace

FileId StatFd(int fd) { return StatOpenFile(Sys().fstat, fd); }
FileId StatFdNoTimes(int fd) { return StatOpenFile(Sys().fstatNoTimes, fd); }

Result ResolveLinks(const std::string& path, std::string* target) {
  std::string at = path;
  for (int hops = 0; hops <= 40; ++hops) {
    struct stat st;
    if (::lstat(at.c_str(), &st) != 0) {
      if (errno != ENOENT) return Fail(errno, "follow", path);
      break;  // a new file, or a link to one
    }
    if (!S_ISLNK(st.st_mode)) break;
    std::string link(static_cast<std::size_t>(st.st_size) + 1, '\0');
    ssize_t n = ::readlink(at.c_str(), &link[0], link.size());
    if (n < 0) return Fail(errno, "follow", path);
    if (static_cast<std::size_t>(n) == link.size()) continue;  // the link changed: read again
    link.resize(static_cast<std::size_t>(n));
    at = link.front() == '/' ? link : FolderOf(at) + "/" + link;
  }
  struct stat st;
  if (::lstat(at.c_str(), &st) == 0 && S_ISLNK(st.st_mode)) return Fail(ELOOP, "follow", path);
  *target = at;
  return Result();
}

Result CheckWritable(const std::string& path) {
  std::string target;
  Result r = ResolveLinks(path, &target);
  if (!r.ok()) return r;
  if (::faccessat(AT_FDCWD, target.c_str(), W_OK, AT_EACCESS) == 0 || errno == ENOENT) {
    return Result();
  }
  const char* why = errno == EACCES ? " The user may not write this file." : "";
  return Fail(errno, "change", path, why);
}

Result ReplaceFile(const std::string& path, const std::vector<Piece>& pieces) {
  std::string target;
  Result r = ResolveLinks(path, &target);
  if (!r.ok()) return r;
  struct stat old;
  const bool exists = Sys().stat(target.c_str(), &old) == 0;
  if (!exists && errno != ENOENT) return Fail(errno, "read the attributes of", path);
  if (exists && !S_ISREG(old.st_mode)) {
    return Result::Failure(EINVAL, "Cannot replace '" + path + "': it is not a regular file.");
  }
  if (exists && !(r = CheckWritable(path)).ok()) return r;

  static unsigned counter = 0;
  const std::string folder = FolderOf(target);
  std::string temp;
  int fd = -1;
  for (int attempt = 0; attempt < 100 && fd < 0; ++attempt) {
    temp = folder + "/." + BaseOf(target) + ".tmp" + std::to_string(::getpid()) + "-" +
           std::to_string(++counter);
    // An existing file's bytes are not shown to others before its mode is copied.
    fd = Sys().open(temp.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, exists ? 0600 : 0666);
    if (fd < 0 && errno != EEXIST) break;
  }
  if (fd < 0) return Fail(errno, "create a file in the folder of", path);

  const char* const kLeft = " The file was left as it was.";
  if (exists) r = CopyOwnerAndMode(fd, old, path);
  for (const Piece& piece : pieces) {
    if (r.ok() && !(r = WriteAll(fd, piece.data, piece.size)).ok()) {
      r = Fail(r.error(), "write", path, kLeft);
    }
  }
  if (r.ok() && Sys().fsync(fd) != 0) r = Fail(errno, "write", path, kLeft);
  if (Sys().close(fd) != 0 && r.ok()) r = Fail(errno, "write", path, kLeft);
  if (r.ok() && Sys().rename(temp.c_str(), target.c_str()) != 0) {
    r = Fail(errno, "replace", path, kLeft);
  }
  if (!r.ok()) {
    Sys().unlink(temp.c_str());  // best effort: the target is untouched either way
    return r;
  }
  r.folderNotSynced = !SyncFolder(folder);
  return r;
}

Result OpenOrCreateLike(const std::string& path, const std::string& like, int* fd, bool* created) {
  struct stat model;
  *created = false;
  *fd = -1;
  const bool examined = Sys().stat(like.c_str(), &model) == 0;
  if (!examined && errno != ENOENT && errno != ENOTDIR) return Fail(errno, "examine", like);
  const bool hasModel = examined && S_ISREG(model.st_mode);
  *fd = Sys().open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, hasModel ? 0600 : 0666);
  if (*fd >= 0) {
    *created = true;
    Result r = hasModel ? CopyOwnerAndMode(*fd, model, path) : Result();
    if (!r.ok()) {
      Sys().close(*fd);
      Sys().unlink(path.c_str());
      *fd = -1;
    }
    return r;
  }
  if (errno != EEXIST) return Fail(errno, "create", path);
  *fd = Sys().open(path.c_str(), O_RDWR | O_CLOEXEC, 0);
  if (*fd < 0) return Fail(errno, "open", path);
  return Result();
}

}  // namespace fileio
