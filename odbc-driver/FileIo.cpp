#include "odbc-driver/FileIo.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace xlsodbc {

namespace {

int DefaultOpen(const char* path, int flags, mode_t mode) { return ::open(path, flags, mode); }

SysCalls Defaults() {
  return SysCalls{DefaultOpen, ::close,  ::read,   ::pwrite, ::fsync,
                  ::ftruncate, ::rename, ::unlink, ::flock};
}

SysCalls g_sys = Defaults();

FileId FromStat(const struct stat& st) {
  FileId id;
  id.exists = true;
  id.device = static_cast<std::uint64_t>(st.st_dev);
  id.inode = static_cast<std::uint64_t>(st.st_ino);
  id.size = static_cast<std::uint64_t>(st.st_size);
  id.mtimeNs = static_cast<std::uint64_t>(st.st_mtim.tv_sec) * 1000000000ull +
               static_cast<std::uint64_t>(st.st_mtim.tv_nsec);
  return id;
}

Error IoError(const std::string& what, const std::string& path, int err) {
  return Error(ErrorKind::kIO, "Cannot " + what + " '" + path + "': " + ErrnoText(err) + ".");
}

std::string Folder(const std::string& path) {
  std::size_t slash = path.rfind('/');
  if (slash == std::string::npos) return ".";
  return slash == 0 ? "/" : path.substr(0, slash);
}

}  // namespace

SysCalls& Sys() { return g_sys; }
void ResetSys() { g_sys = Defaults(); }

std::string ErrnoText(int err) { return std::strerror(err); }

FileId StatPath(const std::string& path) {
  struct stat st;
  if (::stat(path.c_str(), &st) != 0) return FileId();
  return FromStat(st);
}

FileId StatFd(int fd) {
  struct stat st;
  if (::fstat(fd, &st) != 0) return FileId();
  return FromStat(st);
}

Error ReadAt(int fd, std::uint64_t offset, std::uint64_t size, std::vector<std::uint8_t>* out) {
  out->resize(static_cast<std::size_t>(size));
  std::size_t done = 0;
  while (done < out->size()) {
    ssize_t n =
        ::pread(fd, out->data() + done, out->size() - done, static_cast<off_t>(offset + done));
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) return Error(ErrorKind::kIO, "Cannot read the journal: " + ErrnoText(errno) + ".");
    if (n == 0) break;
    done += static_cast<std::size_t>(n);
  }
  out->resize(done);
  return Error();
}

Error ReadWholeFile(const std::string& path, xls::FileBytes* out) {
  int fd = Sys().open(path.c_str(), O_RDONLY | O_CLOEXEC, 0);
  if (fd < 0) return IoError("open", path, errno);
  // Straight into the buffer the decoder reads: a workbook can be tens of megabytes, and a
  // copy through a bounce buffer costs as much as a good part of decoding it.
  int err = 0;
  const bool ok =
      xls::ReadToEnd(fd, static_cast<std::size_t>(StatFd(fd).size), out, Sys().read, &err);
  Sys().close(fd);
  if (!ok) return IoError("read", path, err);
  return Error();
}

Error WriteAt(int fd, std::uint64_t offset, const std::uint8_t* data, std::size_t size) {
  std::size_t done = 0;
  while (done < size) {
    ssize_t n = Sys().pwrite(fd, data + done, size - done, static_cast<off_t>(offset + done));
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0)
      return Error(ErrorKind::kIO, "Cannot write: " + ErrnoText(n < 0 ? errno : EIO) + ".");
    done += static_cast<std::size_t>(n);
  }
  return Error();
}

Error WriteFileAtomic(const std::string& path, const std::vector<std::uint8_t>& data) {
  std::string temp = path + ".tmp-" + std::to_string(::getpid());
  int fd = Sys().open(temp.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  if (fd < 0) return IoError("create", temp, errno);
  Error e = WriteAt(fd, 0, data.data(), data.size());
  if (e.ok() && Sys().fsync(fd) != 0) e = IoError("sync", temp, errno);
  if (Sys().close(fd) != 0 && e.ok()) e = IoError("close", temp, errno);
  if (e.ok() && Sys().rename(temp.c_str(), path.c_str()) != 0) e = IoError("replace", path, errno);
  if (!e.ok()) {
    Sys().unlink(temp.c_str());
    return Error(ErrorKind::kIO, e.message() + " The workbook was left as it was.");
  }
  // The rename is durable once the folder is synced; failing that, the data is safe anyway.
  int dir = Sys().open(Folder(path).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC, 0);
  if (dir >= 0) {
    Sys().fsync(dir);
    Sys().close(dir);
  }
  return Error();
}

std::uint64_t Fnv64(const std::uint8_t* data, std::size_t size) {
  std::uint64_t h = 14695981039346656037ull;
  for (std::size_t i = 0; i < size; ++i) {
    h ^= data[i];
    h *= 1099511628211ull;
  }
  return h;
}

std::uint32_t Fnv32(const std::uint8_t* data, std::size_t size) {
  std::uint32_t h = 2166136261u;
  for (std::size_t i = 0; i < size; ++i) {
    h ^= data[i];
    h *= 16777619u;
  }
  return h;
}

}  // namespace xlsodbc
