#include "odbc-driver/WorkbookStore.h"

#include <fcntl.h>

#include <cerrno>
#include <cstring>

#include "fileio/SysCalls.h"

namespace xlsodbc {

namespace {

Error IoError(const std::string& what, const std::string& path, int err) {
  return Error(ErrorKind::kIO, "Cannot " + what + " '" + path + "': " + ErrnoText(err) + ".");
}

}  // namespace

std::string ErrnoText(int err) { return std::strerror(err); }

Error ReadAt(int fd, std::uint64_t offset, std::uint64_t size, std::vector<std::uint8_t>* out) {
  out->resize(static_cast<std::size_t>(size));
  std::size_t done = 0;
  while (done < out->size()) {
    ssize_t n = fileio::Sys().pread(fd, out->data() + done, out->size() - done,
                                    static_cast<off_t>(offset + done));
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) return Error(ErrorKind::kIO, "Cannot read the journal: " + ErrnoText(errno) + ".");
    if (n == 0) break;
    done += static_cast<std::size_t>(n);
  }
  out->resize(done);
  return Error();
}

Error ReadWholeFile(const std::string& path, xls::FileBytes* out) {
  int fd = fileio::Sys().open(path.c_str(), O_RDONLY | O_CLOEXEC, 0);
  if (fd < 0) return IoError("open", path, errno);
  // Straight into the buffer the decoder reads: a workbook can be tens of megabytes, and a
  // copy through a bounce buffer costs as much as a good part of decoding it.
  int err = 0;
  const bool ok =
      xls::ReadToEnd(fd, static_cast<std::size_t>(StatFd(fd).size), out, fileio::Sys().read, &err);
  fileio::Sys().close(fd);
  if (!ok) return IoError("read", path, err);
  return Error();
}

Error WriteAt(int fd, std::uint64_t offset, const std::uint8_t* data, std::size_t size) {
  std::size_t done = 0;
  while (done < size) {
    ssize_t n =
        fileio::Sys().pwrite(fd, data + done, size - done, static_cast<off_t>(offset + done));
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0)
      return Error(ErrorKind::kIO, "Cannot write: " + ErrnoText(n < 0 ? errno : EIO) + ".");
    done += static_cast<std::size_t>(n);
  }
  return Error();
}

Error ReplaceWorkbook(const std::string& path, const std::vector<std::uint8_t>& data) {
  fileio::Result r = fileio::ReplaceFile(path, {fileio::Piece{data.data(), data.size()}});
  if (r.ok()) return Error();
  return Error(r.denied() ? ErrorKind::kReadOnly : ErrorKind::kIO, r.message());
}

Error CheckWritable(const std::string& path) {
  fileio::Result r = fileio::CheckWritable(path);
  if (r.ok()) return Error();
  return Error(r.denied() ? ErrorKind::kReadOnly : ErrorKind::kIO, r.message());
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

namespace {

// CRC-32C (Castagnoli, reflected polynomial 0x82F63B78): the journal's record checksum. The
// x86-64 crc32 instruction computes it 8 bytes at a time; elsewhere, a table a byte at a time.
struct Crc32cTable {
  std::uint32_t entry[256];
  Crc32cTable() {
    for (std::uint32_t i = 0; i < 256; ++i) {
      std::uint32_t c = i;
      for (int k = 0; k < 8; ++k) c = (c >> 1) ^ (0x82F63B78u & (0u - (c & 1u)));
      entry[i] = c;
    }
  }
};

std::uint32_t Crc32cBytes(std::uint32_t crc, const std::uint8_t* data, std::size_t size) {
  static const Crc32cTable table;
  for (std::size_t i = 0; i < size; ++i) crc = table.entry[(crc ^ data[i]) & 0xFFu] ^ (crc >> 8);
  return crc;
}

#if defined(__x86_64__)
__attribute__((target("sse4.2"))) std::uint32_t Crc32cWords(std::uint32_t crc,
                                                             const std::uint8_t* data,
                                                             std::size_t size) {
  std::uint64_t c = crc;
  std::size_t i = 0;
  for (; i + 8 <= size; i += 8) {
    std::uint64_t word;
    std::memcpy(&word, data + i, sizeof word);
    c = __builtin_ia32_crc32di(c, word);
  }
  std::uint32_t rest = static_cast<std::uint32_t>(c);
  for (; i < size; ++i) rest = __builtin_ia32_crc32qi(rest, data[i]);
  return rest;
}
#endif

}  // namespace

std::uint32_t Crc32c(const std::uint8_t* data, std::size_t size) {
#if defined(__x86_64__)
  static const bool words = __builtin_cpu_supports("sse4.2");
  if (words) return ~Crc32cWords(~0u, data, size);
#endif
  return ~Crc32cBytes(~0u, data, size);
}

std::uint32_t Crc32cPortable(const std::uint8_t* data, std::size_t size) {
  return ~Crc32cBytes(~0u, data, size);
}

}  // namespace xlsodbc
