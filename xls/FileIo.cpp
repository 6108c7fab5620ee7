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

#include "fileio/Files.h"
#include "fileio/SysCalls.h"

namespace xls {

namespace {

Status ErrnoStatus(const char* what, const std::string& path, int err) {
  return Status::IOError(std::string(what) + " " + path + ": " + std::strerror(err));
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
  fileio::SysCalls& sys = fileio::Sys();
  int fd = sys.open(path.c_str(), O_RDONLY | O_CLOEXEC, 0);
  if (fd < 0) {
    int err = errno;
    if (err == ENOENT) return Status::NotFound(path);
    return ErrnoStatus("open", path, err);
  }
  struct stat st;
  if (sys.fstat(fd, &st) != 0) {
    int err = errno;
    sys.close(fd);
    return ErrnoStatus("stat", path, err);
  }
  if (!S_ISREG(st.st_mode)) {
    sys.close(fd);
    return Status::IOError(path + " is not a regular file");
  }
  int err = 0;
  const bool ok = ReadToEnd(fd, static_cast<std::size_t>(st.st_size), out, sys.read, &err);
  sys.close(fd);
  if (!ok) return ErrnoStatus("read", path, err);
  return Status::OK();
}

FileOps& FileOps::Default() {
  static FileOps ops;
  return ops;
}

Status WriteFileAtomically(const std::string& path, const std::vector<ByteSpan>& pieces) {
  std::vector<fileio::Piece> out;
  out.reserve(pieces.size());
  for (const ByteSpan& p : pieces) out.push_back(fileio::Piece{p.data, p.size});
  fileio::Result r = fileio::ReplaceFile(path, out);
  // A folder that could not be synced after the rename is still a save (fileio/Files.h).
  if (!r.ok()) return Status::IOError(r.message());
  return Status::OK();
}

}  // namespace xls
