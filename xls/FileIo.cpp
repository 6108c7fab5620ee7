#include "xls/FileIo.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <new>

namespace xls {

namespace {

Status ErrnoStatus(const char* what, const std::string& path, int err) {
  return Status::IOError(std::string(what) + " " + path + ": " + std::strerror(err));
}

std::string FolderOf(const std::string& path) {
  std::size_t slash = path.rfind('/');
  if (slash == std::string::npos) return ".";
  if (slash == 0) return "/";
  return path.substr(0, slash);
}

// Transparent huge pages come in 2 MiB; a buffer under two of them gains little from asking.
constexpr std::size_t kHugePage = std::size_t{2} << 20;

}  // namespace

FileBytes& FileBytes::operator=(FileBytes&& o) noexcept {
  if (this != &o) {
    Release();
    data_ = o.data_;
    size_ = o.size_;
    mapped_ = o.mapped_;
    o.data_ = nullptr;
    o.size_ = o.mapped_ = 0;
  }
  return *this;
}

void FileBytes::Release() {
  if (mapped_ != 0) {
    ::munmap(data_, mapped_);
  } else {
    delete[] data_;
  }
  data_ = nullptr;
  size_ = mapped_ = 0;
}

bool FileBytes::Allocate(std::size_t n) {
  Release();
  if (n >= 2 * kHugePage && n <= SIZE_MAX - 2 * kHugePage) {
    // Map a huge page more than needed and keep the aligned middle, so that the whole
    // buffer can be backed by huge pages; without them it is ordinary memory.
    const std::size_t length = (n + kHugePage - 1) / kHugePage * kHugePage;
    void* raw = ::mmap(nullptr, length + kHugePage, PROT_READ | PROT_WRITE,
                       MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (raw != MAP_FAILED) {
      auto start = reinterpret_cast<std::uintptr_t>(raw);
      const std::uintptr_t aligned = (start + kHugePage - 1) / kHugePage * kHugePage;
      if (aligned > start) ::munmap(raw, aligned - start);
      const std::size_t tail = start + length + kHugePage - (aligned + length);
      if (tail > 0) ::munmap(reinterpret_cast<void*>(aligned + length), tail);
#ifdef MADV_HUGEPAGE
      ::madvise(reinterpret_cast<void*>(aligned), length, MADV_HUGEPAGE);  // a hint only
#endif
      data_ = reinterpret_cast<std::uint8_t*>(aligned);
      size_ = n;
      mapped_ = length;
      return true;
    }
  }
  data_ = new (std::nothrow) std::uint8_t[n == 0 ? 1 : n];
  if (data_ == nullptr) return false;
  size_ = n;
  return true;
}

bool ReadToEnd(int fd, std::size_t sizeHint, FileBytes* out,
               ssize_t (*read)(int fd, void* buf, std::size_t n), int* err) {
  // One byte over the hint, so that a file that grew is seen without another call.
  if (sizeHint == SIZE_MAX || !out->Allocate(sizeHint + 1)) return *err = ENOMEM, false;
  std::size_t done = 0;
  while (true) {
    if (done == out->size()) {
      FileBytes bigger;
      if (done > SIZE_MAX / 2 || !bigger.Allocate(done * 2)) return *err = ENOMEM, false;
      std::memcpy(bigger.data(), out->data(), done);
      *out = std::move(bigger);
    }
    ssize_t n = read(fd, out->data() + done, out->size() - done);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) return *err = errno, false;
    if (n == 0) break;
    done += static_cast<std::size_t>(n);
  }
  out->Truncate(done);
  return true;
}

Status FileOps::ReadFile(const std::string& path, FileBytes* out) {
  int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) {
    int err = errno;
    if (err == ENOENT) return Status::NotFound(path);
    return ErrnoStatus("open", path, err);
  }
  struct stat st;
  if (::fstat(fd, &st) != 0) {
    int err = errno;
    ::close(fd);
    return ErrnoStatus("stat", path, err);
  }
  if (!S_ISREG(st.st_mode)) {
    ::close(fd);
    return Status::IOError(path + " is not a regular file");
  }
  int err = 0;
  const bool ok = ReadToEnd(fd, static_cast<std::size_t>(st.st_size), out, ::read, &err);
  ::close(fd);
  if (!ok) return ErrnoStatus("read", path, err);
  return Status::OK();
}

Status FileOps::CreateNew(const std::string& path, int* fd) {
  *fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
  if (*fd < 0) return ErrnoStatus("create", path, errno);
  return Status::OK();
}

Status FileOps::Write(int fd, const void* data, std::size_t n) {
  const char* p = static_cast<const char*>(data);
  while (n > 0) {
    ssize_t w = ::write(fd, p, n);
    if (w < 0 && errno == EINTR) continue;
    if (w < 0) return ErrnoStatus("write", "fd " + std::to_string(fd), errno);
    p += w;
    n -= static_cast<std::size_t>(w);
  }
  return Status::OK();
}

Status FileOps::Sync(int fd) {
  if (::fsync(fd) != 0) return ErrnoStatus("fsync", "fd " + std::to_string(fd), errno);
  return Status::OK();
}

Status FileOps::Close(int fd) {
  if (::close(fd) != 0) return ErrnoStatus("close", "fd " + std::to_string(fd), errno);
  return Status::OK();
}

Status FileOps::Rename(const std::string& from, const std::string& to) {
  if (::rename(from.c_str(), to.c_str()) != 0) return ErrnoStatus("rename", from + " to", errno);
  return Status::OK();
}

Status FileOps::Remove(const std::string& path) {
  if (::unlink(path.c_str()) != 0) return ErrnoStatus("remove", path, errno);
  return Status::OK();
}

Status FileOps::SyncFolder(const std::string& folder) {
  int fd = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd < 0) return ErrnoStatus("open folder", folder, errno);
  int rc = ::fsync(fd);
  int err = errno;
  ::close(fd);
  // Some file systems cannot sync a folder; the rename itself has happened.
  if (rc != 0 && err != EINVAL) return ErrnoStatus("fsync folder", folder, err);
  return Status::OK();
}

FileOps& FileOps::Default() {
  static FileOps ops;
  return ops;
}

Status WriteFileAtomically(FileOps& ops, const std::string& path,
                           const std::vector<ByteSpan>& pieces) {
  static unsigned counter = 0;
  std::string folder = FolderOf(path);
  std::string base = path.substr(path.rfind('/') == std::string::npos ? 0 : path.rfind('/') + 1);
  std::string temp;
  int fd = -1;
  Status s;
  for (int attempt = 0; attempt < 100; ++attempt) {
    temp = folder + "/." + base + ".tmp" + std::to_string(::getpid()) + "-" +
           std::to_string(++counter);
    s = ops.CreateNew(temp, &fd);
    if (s.ok() || ::access(temp.c_str(), F_OK) != 0) break;
  }
  if (!s.ok()) return s;

  // Chunks of at most 1 MiB keep each write call bounded.
  constexpr std::size_t kChunk = 1 << 20;
  for (const ByteSpan& piece : pieces) {
    for (std::size_t off = 0; off < piece.size && s.ok(); off += kChunk) {
      s = ops.Write(fd, piece.data + off, std::min(kChunk, piece.size - off));
    }
    if (!s.ok()) break;
  }
  if (s.ok()) s = ops.Sync(fd);
  Status closed = ops.Close(fd);
  if (s.ok()) s = closed;
  if (s.ok()) s = ops.Rename(temp, path);
  if (!s.ok()) {
    ops.Remove(temp);  // best effort; the target is untouched either way
    return s;
  }
  return ops.SyncFolder(folder);
}

}  // namespace xls
