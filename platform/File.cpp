#include "platform/File.h"

#include <fcntl.h>

#include <cerrno>
#include <cstring>
#include <memory>

#include "fileio/SysCalls.h"

#ifndef O_BINARY
#define O_BINARY 0
#endif
#ifndef O_CLOEXEC
#define O_CLOEXEC 0
#endif

namespace {

int CauseFromErrno(int err) {
  switch (err) {
    case ENOENT:
      return CFileException::fileNotFound;
    case ENOTDIR:
    case ENAMETOOLONG:
    case EISDIR:
      return CFileException::badPath;
    case EMFILE:
    case ENFILE:
      return CFileException::tooManyOpenFiles;
    case EACCES:
    case EPERM:
    case EROFS:
      return CFileException::accessDenied;
    case ENOSPC:
      return CFileException::diskFull;
    case EIO:
      return CFileException::hardIO;
    default:
      return CFileException::genericException;
  }
}

[[noreturn]] void ThrowFileError(int err, const CString& path) {
  throw new CFileException(CauseFromErrno(err), err, path);
}

}  // namespace

CFileException::CFileException(int cause, long osError, const char* fileName)
    : m_cause(cause), m_lOsError(osError), m_strFileName(fileName) {
  message_.Format("%s: %s", fileName ? fileName : "", osError ? std::strerror(osError) : "error");
}

CFile::CFile(LPCTSTR fileName, UINT openFlags) {
  CFileException error(CFileException::none, 0, fileName);
  if (!Open(fileName, openFlags, &error))
    ThrowFileError(static_cast<int>(error.m_lOsError), fileName);
}

CFile::~CFile() { Abort(); }

BOOL CFile::Open(LPCTSTR fileName, UINT openFlags, CFileException* error) {
  Abort();
  int flags = O_BINARY | O_CLOEXEC;
  switch (openFlags & 0x3) {
    case modeWrite:
      flags |= O_WRONLY;
      break;
    case modeReadWrite:
      flags |= O_RDWR;
      break;
    default:
      flags |= O_RDONLY;
      break;
  }
  bool cut = false;
  if (openFlags & modeCreate) {
    flags |= O_CREAT;
#if defined(_WIN32)
    if (!(openFlags & modeNoTruncate)) flags |= O_TRUNC;
#else
    // Emptied at the end, not now: see the header on ext4's flush after a truncation.
    cut = !(openFlags & modeNoTruncate) && (openFlags & 0x3) != modeRead;
    if ((openFlags & 0x3) == modeRead && !(openFlags & modeNoTruncate)) flags |= O_TRUNC;
#endif
  }
  int fd;
  do {
    fd = fileio::Sys().open(fileName ? fileName : "", flags, 0666);
  } while (fd < 0 && errno == EINTR);
  if (fd < 0) {
    int err = errno;
    if (error) {
      error->m_cause = CauseFromErrno(err);
      error->m_lOsError = err;
      error->m_strFileName = fileName;
    }
    return FALSE;
  }
  fd_ = fd;
  path_ = fileName;
  cutPending_ = cut;
  written_ = 0;
  return TRUE;
}

int CFile::CutToWritten() {
#if defined(_WIN32)
  return 0;
#else
  if (!cutPending_) return 0;
  cutPending_ = false;
  return fileio::Sys().ftruncate(fd_, static_cast<off_t>(written_)) == 0 ? 0 : errno;
#endif
}

UINT CFile::Read(void* buffer, UINT count) {
  for (;;) {
    ssize_t n = fileio::Sys().read(fd_, buffer, count);
    if (n >= 0) return static_cast<UINT>(n);
    if (errno != EINTR) ThrowFileError(errno, path_);
  }
}

void CFile::Write(const void* buffer, UINT count) {
  const char* p = static_cast<const char*>(buffer);
  while (count > 0) {
    ssize_t n = fileio::Sys().write(fd_, p, count);
    if (n <= 0) {
      if (n < 0 && errno == EINTR) continue;
      const int err = n < 0 ? errno : ENOSPC;
      CutToWritten();  // what was written stays, nothing of the old bytes after it
      ThrowFileError(err, path_);
    }
    p += n;
    written_ += static_cast<unsigned long long>(n);
    count -= static_cast<UINT>(n);
  }
}

void CFile::Close() {
  if (fd_ < 0) return;
  const int cutError = CutToWritten();
  int fd = fd_;
  fd_ = -1;
  if (fileio::Sys().close(fd) != 0 && errno != EINTR) ThrowFileError(errno, path_);
  if (cutError != 0) ThrowFileError(cutError, path_);
}

void CFile::Abort() {
  if (fd_ < 0) return;
  CutToWritten();
  fileio::Sys().close(fd_);
  fd_ = -1;
}

// CArchive

CArchive::CArchive(CFile* file, UINT mode, int bufferSize)
    : file_(file),
      loading_((mode & load) != 0),
      buffer_(new char[bufferSize > 0 ? bufferSize : 4096]),
      capacity_(bufferSize > 0 ? static_cast<std::size_t>(bufferSize) : 4096) {}

CArchive::~CArchive() {
  if (file_ && !loading_ && end_ > 0) {
    try {
      Flush();
    } catch (CException* e) {
      e->Delete();
    }
  }
  delete[] buffer_;
}

bool CArchive::Refill() {
  if (eof_) return false;
  begin_ = 0;
  end_ = file_->Read(buffer_, static_cast<UINT>(capacity_));
  if (end_ == 0) eof_ = true;
  return end_ > 0;
}

BOOL CArchive::ReadString(CString& line) {
  std::string& out = line.str();
  out.clear();
  bool any = false;
  for (;;) {
    if (begin_ == end_ && !Refill()) break;
    any = true;
    const char* start = buffer_ + begin_;
    const void* nl = std::memchr(start, '\n', end_ - begin_);
    if (nl) {
      std::size_t n = static_cast<const char*>(nl) - start;
      out.append(start, n);
      begin_ += n + 1;
      if (!out.empty() && out.back() == '\r') out.resize(out.size() - 1);
      return TRUE;
    }
    out.append(start, end_ - begin_);
    begin_ = end_;
  }
  // A last line without an end: a trailing "\r" there is data, not a line end.
  return any ? TRUE : FALSE;
}

void CArchive::WriteThroughFlush(const void* data, UINT count) {
  const char* p = static_cast<const char*>(data);
  while (count > 0) {
    if (end_ == capacity_) Flush();
    std::size_t n = capacity_ - end_;
    if (n > count) n = count;
    std::memcpy(buffer_ + end_, p, n);
    end_ += n;
    p += n;
    count -= static_cast<UINT>(n);
  }
}

void CArchive::WriteString(LPCTSTR text) {
  if (text) Write(text, static_cast<UINT>(std::strlen(text)));
}

void CArchive::Flush() {
  if (loading_ || end_ == 0) return;
  std::size_t pending = end_;
  end_ = 0;
  file_->Write(buffer_, static_cast<UINT>(pending));
}

void CArchive::Close() {
  if (!loading_) Flush();
  file_ = nullptr;
}

void CArchive::Abort() {
  end_ = 0;
  file_ = nullptr;
}
