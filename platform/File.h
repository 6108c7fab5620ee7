// Files the MFC way: CFile (open, read, write, close; errors thrown as CFileException*)
// and CArchive (a 4096-byte buffer over a CFile: ReadString line by line, WriteString).
//
// Lines: "\r\n" or "\n" ends a line and is not returned; a lone "\r" is data; a last line
// without an end is still a line. No translation of bytes or encodings happens.
// Sharing flags are accepted and mean nothing on POSIX, where files are never locked.
//
// Every system call goes through the file seam's table (fileio/SysCalls.h), so that tests
// can fail the Nth call.
//
// modeCreate without modeNoTruncate empties an existing file, but on POSIX not when it is
// opened: the new bytes are written over the old ones from the start of the same file and
// the file is cut at their end when it is closed (or when a write fails, or on Abort). On
// ext4, a file truncated to zero and then written is flushed to disk when it is closed
// (the auto_da_alloc heuristic for programs that replace a file without fsync), and the
// next truncation waits for that write; rewriting a file that way costs a disk flush per
// save. A rewrite that fails leaves what was written; one that fails before writing
// anything leaves the old bytes. On Windows the file is truncated when opened.
#pragma once

#include <cstddef>
#include <cstring>

#include "platform/CString.h"
#include "platform/Export.h"

class SPREADSHEET_API CFileException : public CException {
 public:
  enum Cause {
    none,
    genericException,
    fileNotFound,
    badPath,
    tooManyOpenFiles,
    accessDenied,
    invalidFile,
    removeCurrentDir,
    directoryFull,
    badSeek,
    hardIO,
    sharingViolation,
    lockViolation,
    diskFull,
    endOfFile
  };
  CFileException(int cause, long osError, const char* fileName);
  int m_cause;
  long m_lOsError;  // errno
  CString m_strFileName;
};

class SPREADSHEET_API CFile {
 public:
  enum OpenFlags {
    modeRead = 0x0000,
    modeWrite = 0x0001,
    modeReadWrite = 0x0002,
    shareCompat = 0x0000,
    shareExclusive = 0x0010,
    shareDenyWrite = 0x0020,
    shareDenyRead = 0x0030,
    shareDenyNone = 0x0040,
    modeNoInherit = 0x0080,
    modeCreate = 0x1000,
    modeNoTruncate = 0x2000,
    typeText = 0x4000,
    typeBinary = 0x8000,
  };

  CFile() = default;
  CFile(LPCTSTR fileName, UINT openFlags);  // throws CFileException* on failure
  virtual ~CFile();                         // closes, ignoring errors
  CFile(const CFile&) = delete;
  CFile& operator=(const CFile&) = delete;

  // Returns FALSE and fills *error (when given) instead of throwing.
  virtual BOOL Open(LPCTSTR fileName, UINT openFlags, CFileException* error = nullptr);
  // Reads up to count bytes; 0 at the end. Throws CFileException* on error.
  virtual UINT Read(void* buffer, UINT count);
  // Writes all count bytes or throws CFileException*.
  virtual void Write(const void* buffer, UINT count);
  virtual void Close();  // throws CFileException* if closing reports an error
  virtual void Abort();  // closes, ignoring errors
  bool IsOpen() const { return fd_ >= 0; }
  const CString& GetFilePath() const { return path_; }

 private:
  // Cuts the file at what was written when it is to be emptied (see above); errno on failure.
  int CutToWritten();

  int fd_ = -1;
  CString path_;
  bool cutPending_ = false;  // opened to be emptied: the end of written_ is the end of the file
  unsigned long long written_ = 0;
};

class SPREADSHEET_API CArchive {
 public:
  enum Mode { store = 0, load = 1 };

  // REQUIRES: file is open for reading (load) or writing (store) and outlives this.
  CArchive(CFile* file, UINT mode, int bufferSize = 4096);
  ~CArchive();  // flushes a store archive, ignoring errors (call Close to see them)
  CArchive(const CArchive&) = delete;
  CArchive& operator=(const CArchive&) = delete;

  // Load: the next line without its end into line; FALSE at the end of the file.
  BOOL ReadString(CString& line);
  // Store: buffered writes; Flush/Close throw CFileException* when the file does.
  void WriteString(LPCTSTR text);
  // Bytes that fit in the buffer are copied here; only a full buffer calls out.
  void Write(const void* data, UINT count) {
    if (count <= capacity_ - end_) {
      if (count != 0) std::memcpy(buffer_ + end_, data, count);
      end_ += count;
      return;
    }
    WriteThroughFlush(data, count);
  }
  void Flush();
  void Close();  // flushes (store), then detaches from the file
  void Abort();  // detaches without flushing

 private:
  bool Refill();
  void WriteThroughFlush(const void* data, UINT count);

  CFile* file_;
  bool loading_;
  char* buffer_;
  std::size_t capacity_;
  std::size_t begin_ = 0;  // load: next unread byte
  std::size_t end_ = 0;    // load: bytes held; store: bytes pending
  bool eof_ = false;
};
