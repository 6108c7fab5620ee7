// MFC-compatible narrow strings, string arrays and the exception types they raise.
//
// CString holds 8-bit text (no encoding is assumed; embedded bytes pass through
// unchanged) and behaves like MFC's CStringA for the members declared here.
// CStringArray is MFC's CStringArray: index checks raise the invalid-argument
// exception, thrown as a pointer the MFC way:
//
//   try { a.GetAt(99); } catch (CInvalidArgException* e) { e->Delete(); }
//
// AfxThrowInvalidArgException throws a pointer to a static object whose Delete() does
// nothing, so callers may Delete() or not, as with MFC.
#pragma once

#include <cstdarg>
#include <string>
#include <vector>

#include "platform/Export.h"
#include "platform/WinTypes.h"

class SPREADSHEET_API CString {
 public:
  CString() = default;
  CString(const char* s) : s_(s ? s : "") {}  // NOLINT: implicit, as in MFC
  CString(const char* s, int length) : s_(s ? s : "", s && length > 0 ? length : 0) {}
  explicit CString(char ch, int repeat = 1) : s_(repeat > 0 ? repeat : 0, ch) {}
  CString(const std::string& s) : s_(s) {}  // NOLINT: implicit for convenience

  int GetLength() const { return static_cast<int>(s_.size()); }
  bool IsEmpty() const { return s_.empty(); }
  void Empty() { std::string().swap(s_); }

  // REQUIRES 0 <= i <= GetLength() (i == GetLength() gives the terminating NUL);
  // otherwise raises CInvalidArgException.
  char GetAt(int i) const;
  void SetAt(int i, char ch);  // REQUIRES 0 <= i < GetLength()
  char operator[](int i) const { return GetAt(i); }

  // Counts and positions are clamped into the string, as MFC does.
  CString Left(int count) const;
  CString Right(int count) const;
  CString Mid(int first) const;
  CString Mid(int first, int count) const;

  // -1 when not found, or when start lies beyond the string.
  int Find(char ch, int start = 0) const;
  int Find(const char* sub, int start = 0) const;
  int ReverseFind(char ch) const;
  int FindOneOf(const char* chars) const;

  // ASCII letters only, whatever the locale; other bytes are unchanged.
  CString& MakeLower();
  CString& MakeUpper();
  CString& Trim();
  CString& TrimLeft();
  CString& TrimRight();

  // Returns the new length. Both clamp like MFC.
  int Delete(int index, int count = 1);
  int Insert(int index, const char* s);
  int Replace(const char* old, const char* replacement);  // number of replacements
  int Remove(char ch);

  void Format(const char* format, ...) SPREADSHEET_PRINTF(2, 3);
  void AppendFormat(const char* format, ...) SPREADSHEET_PRINTF(2, 3);
  void FormatV(const char* format, va_list args);
  void Append(const char* s) { s_ += s ? s : ""; }
  void Append(const char* s, int length) {
    if (s && length > 0) s_.append(s, length);
  }
  void AppendChar(char ch) { s_ += ch; }

  int Compare(const char* s) const;         // <0, 0, >0 as strcmp
  int CompareNoCase(const char* s) const;   // ASCII case folded

  // MFC buffer access: GetBuffer(n) gives at least n writable bytes plus a NUL;
  // ReleaseBuffer(len) sets the length (-1: up to the first NUL).
  char* GetBuffer(int minLength = 0);
  void ReleaseBuffer(int newLength = -1);
  char* GetBufferSetLength(int length);

  const char* GetString() const { return s_.c_str(); }
  operator const char*() const { return s_.c_str(); }  // NOLINT: as in MFC

  CString& operator=(const char* s) {
    s_ = s ? s : "";
    return *this;
  }
  CString& operator=(char ch) {
    s_.assign(1, ch);
    return *this;
  }
  CString& operator+=(const CString& s) {
    s_ += s.s_;
    return *this;
  }
  CString& operator+=(const char* s) {
    s_ += s ? s : "";
    return *this;
  }
  CString& operator+=(char ch) {
    s_ += ch;
    return *this;
  }

  // Comparisons are byte-wise, like strcmp on the stored bytes.
  friend bool operator==(const CString& a, const CString& b) { return a.s_ == b.s_; }
  friend bool operator==(const CString& a, const char* b) { return a.s_ == (b ? b : ""); }
  friend bool operator==(const char* a, const CString& b) { return b == a; }
  friend bool operator!=(const CString& a, const CString& b) { return !(a == b); }
  friend bool operator!=(const CString& a, const char* b) { return !(a == b); }
  friend bool operator!=(const char* a, const CString& b) { return !(b == a); }
  friend bool operator<(const CString& a, const CString& b) { return a.s_ < b.s_; }
  friend bool operator>(const CString& a, const CString& b) { return b.s_ < a.s_; }
  friend bool operator<=(const CString& a, const CString& b) { return !(b.s_ < a.s_); }
  friend bool operator>=(const CString& a, const CString& b) { return !(a.s_ < b.s_); }

  friend CString operator+(const CString& a, const CString& b) { return CString(a.s_ + b.s_); }
  friend CString operator+(const CString& a, const char* b) {
    return CString(a.s_ + (b ? b : ""));
  }
  friend CString operator+(const char* a, const CString& b) {
    return CString((a ? a : "") + b.s_);
  }
  friend CString operator+(const CString& a, char b) { return CString(a.s_ + b); }

  // Access to the underlying bytes for this library's own fast paths.
  const std::string& str() const { return s_; }
  std::string& str() { return s_; }

 private:
  std::string s_;
};

class SPREADSHEET_API CStringArray {
 public:
  CStringArray() = default;

  INT_PTR GetSize() const { return static_cast<INT_PTR>(v_.size()); }
  INT_PTR GetCount() const { return GetSize(); }
  bool IsEmpty() const { return v_.empty(); }
  INT_PTR GetUpperBound() const { return GetSize() - 1; }

  // Index checks: an index outside 0..GetSize()-1 raises CInvalidArgException.
  const CString& GetAt(INT_PTR i) const;
  void SetAt(INT_PTR i, const char* s);
  CString& ElementAt(INT_PTR i);
  const CString& operator[](INT_PTR i) const { return GetAt(i); }
  CString& operator[](INT_PTR i) { return ElementAt(i); }
  const CString* GetData() const { return v_.data(); }
  CString* GetData() { return v_.data(); }

  // Grows with empty strings (newSize < 0 raises CInvalidArgException).
  void SetSize(INT_PTR newSize, INT_PTR growBy = -1);
  // A negative index raises CInvalidArgException; beyond the end the array grows.
  void SetAtGrow(INT_PTR i, const char* s);
  INT_PTR Add(const char* s);
  INT_PTR Add(const CString& s);
  INT_PTR Append(const CStringArray& other);  // returns the index of the first added
  void Copy(const CStringArray& other);
  // Inserts count copies before index i; beyond the end the array first grows with
  // empty strings up to i. i < 0 or count <= 0 raises CInvalidArgException.
  void InsertAt(INT_PTR i, const char* s, INT_PTR count = 1);
  void InsertAt(INT_PTR start, const CStringArray* other);
  // i < 0, count < 0 or i + count > GetSize() raises CInvalidArgException.
  void RemoveAt(INT_PTR i, INT_PTR count = 1);
  void RemoveAll();  // empties and frees the storage
  void FreeExtra() { v_.shrink_to_fit(); }

  // For this library's own fast paths.
  std::vector<CString>& items() { return v_; }
  const std::vector<CString>& items() const { return v_; }

 private:
  std::vector<CString> v_;
};

// MFC exception hierarchy, thrown by pointer.
class SPREADSHEET_API CException {
 public:
  explicit CException(BOOL autoDelete = TRUE) : m_bAutoDelete(autoDelete) {}
  virtual ~CException();
  // Copies the message (NUL-terminated, cut to maxLength - 1 bytes) into buffer.
  virtual BOOL GetErrorMessage(LPTSTR buffer, UINT maxLength, UINT* helpContext = nullptr) const;
  // Frees a heap-allocated exception; does nothing for a static one.
  void Delete();

 protected:
  BOOL m_bAutoDelete;
  CString message_;
};

class SPREADSHEET_API CSimpleException : public CException {
 public:
  explicit CSimpleException(BOOL autoDelete = TRUE) : CException(autoDelete) {}
};

class SPREADSHEET_API CInvalidArgException : public CSimpleException {
 public:
  explicit CInvalidArgException(BOOL autoDelete = TRUE);
};

class SPREADSHEET_API CMemoryException : public CSimpleException {
 public:
  explicit CMemoryException(BOOL autoDelete = TRUE);
};

// Throws a pointer to a static CInvalidArgException ("Invalid argument").
[[noreturn]] SPREADSHEET_API void AfxThrowInvalidArgException();
[[noreturn]] SPREADSHEET_API void AfxThrowMemoryException();
