#include "platform/CString.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace {

char AsciiLower(char c) { return (c >= 'A' && c <= 'Z') ? static_cast<char>(c + 32) : c; }
char AsciiUpper(char c) { return (c >= 'a' && c <= 'z') ? static_cast<char>(c - 32) : c; }
bool IsSpace(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\v' || c == '\f'; }

}  // namespace

char CString::GetAt(int i) const {
  if (i < 0 || i > GetLength()) AfxThrowInvalidArgException();
  return s_.c_str()[i];
}

void CString::SetAt(int i, char ch) {
  if (i < 0 || i >= GetLength()) AfxThrowInvalidArgException();
  s_[i] = ch;
}

CString CString::Left(int count) const {
  count = std::clamp(count, 0, GetLength());
  return CString(s_.substr(0, count));
}

CString CString::Right(int count) const {
  count = std::clamp(count, 0, GetLength());
  return CString(s_.substr(s_.size() - count));
}

CString CString::Mid(int first) const { return Mid(first, GetLength()); }

CString CString::Mid(int first, int count) const {
  first = std::clamp(first, 0, GetLength());
  count = std::clamp(count, 0, GetLength() - first);
  return CString(s_.substr(first, count));
}

int CString::Find(char ch, int start) const {
  if (start < 0) start = 0;
  if (start > GetLength()) return -1;
  std::size_t pos = s_.find(ch, start);
  return pos == std::string::npos ? -1 : static_cast<int>(pos);
}

int CString::Find(const char* sub, int start) const {
  if (start < 0) start = 0;
  if (start > GetLength()) return -1;
  std::size_t pos = s_.find(sub ? sub : "", start);
  return pos == std::string::npos ? -1 : static_cast<int>(pos);
}

int CString::ReverseFind(char ch) const {
  std::size_t pos = s_.rfind(ch);
  return pos == std::string::npos ? -1 : static_cast<int>(pos);
}

int CString::FindOneOf(const char* chars) const {
  std::size_t pos = s_.find_first_of(chars ? chars : "");
  return pos == std::string::npos ? -1 : static_cast<int>(pos);
}

CString& CString::MakeLower() {
  for (char& c : s_) c = AsciiLower(c);
  return *this;
}

CString& CString::MakeUpper() {
  for (char& c : s_) c = AsciiUpper(c);
  return *this;
}

CString& CString::Trim() { return TrimRight().TrimLeft(); }

CString& CString::TrimLeft() {
  std::size_t n = 0;
  while (n < s_.size() && IsSpace(s_[n])) ++n;
  s_.erase(0, n);
  return *this;
}

CString& CString::TrimRight() {
  while (!s_.empty() && IsSpace(s_.back())) s_.pop_back();
  return *this;
}

int CString::Delete(int index, int count) {
  if (index < 0) index = 0;
  if (count > 0 && index < GetLength()) {
    count = std::min(count, GetLength() - index);
    s_.erase(index, count);
  }
  return GetLength();
}

int CString::Insert(int index, const char* s) {
  index = std::clamp(index, 0, GetLength());
  s_.insert(index, s ? s : "");
  return GetLength();
}

int CString::Replace(const char* old, const char* replacement) {
  if (!old || !*old) return 0;
  const std::size_t oldLen = std::strlen(old);
  const char* rep = replacement ? replacement : "";
  int n = 0;
  std::string out;
  std::size_t from = 0;
  for (std::size_t pos; (pos = s_.find(old, from)) != std::string::npos; from = pos + oldLen) {
    out.append(s_, from, pos - from).append(rep);
    ++n;
  }
  if (n) {
    out.append(s_, from, std::string::npos);
    s_.swap(out);
  }
  return n;
}

int CString::Remove(char ch) {
  std::size_t before = s_.size();
  s_.erase(std::remove(s_.begin(), s_.end(), ch), s_.end());
  return static_cast<int>(before - s_.size());
}

void CString::Format(const char* format, ...) {
  va_list args;
  va_start(args, format);
  FormatV(format, args);
  va_end(args);
}

void CString::AppendFormat(const char* format, ...) {
  CString piece;
  va_list args;
  va_start(args, format);
  piece.FormatV(format, args);
  va_end(args);
  s_ += piece.s_;
}

void CString::FormatV(const char* format, va_list args) {
  if (!format) {
    s_.clear();
    return;
  }
  char small[256];
  va_list copy;
  va_copy(copy, args);
  int n = std::vsnprintf(small, sizeof small, format, copy);
  va_end(copy);
  if (n < 0) AfxThrowInvalidArgException();
  if (static_cast<std::size_t>(n) < sizeof small) {
    s_.assign(small, n);
    return;
  }
  std::string big(static_cast<std::size_t>(n), '\0');
  std::vsnprintf(&big[0], big.size() + 1, format, args);
  s_.swap(big);
}

int CString::Compare(const char* s) const { return std::strcmp(s_.c_str(), s ? s : ""); }

int CString::CompareNoCase(const char* s) const {
  const char* a = s_.c_str();
  const char* b = s ? s : "";
  for (;; ++a, ++b) {
    unsigned char x = static_cast<unsigned char>(AsciiLower(*a));
    unsigned char y = static_cast<unsigned char>(AsciiLower(*b));
    if (x != y || x == 0) return x < y ? -1 : (x > y ? 1 : 0);
  }
}

char* CString::GetBuffer(int minLength) {
  if (minLength > GetLength()) s_.resize(minLength);
  return &s_[0];
}

void CString::ReleaseBuffer(int newLength) {
  if (newLength < 0) newLength = static_cast<int>(std::strlen(s_.c_str()));
  s_.resize(std::min<std::size_t>(newLength, s_.size()));
}

char* CString::GetBufferSetLength(int length) {
  s_.resize(length > 0 ? length : 0);
  return &s_[0];
}

// CStringArray

const CString& CStringArray::GetAt(INT_PTR i) const {
  if (i < 0 || i >= GetSize()) AfxThrowInvalidArgException();
  return v_[static_cast<std::size_t>(i)];
}

void CStringArray::SetAt(INT_PTR i, const char* s) {
  if (i < 0 || i >= GetSize()) AfxThrowInvalidArgException();
  v_[static_cast<std::size_t>(i)] = s;
}

CString& CStringArray::ElementAt(INT_PTR i) {
  if (i < 0 || i >= GetSize()) AfxThrowInvalidArgException();
  return v_[static_cast<std::size_t>(i)];
}

void CStringArray::SetSize(INT_PTR newSize, INT_PTR) {
  if (newSize < 0) AfxThrowInvalidArgException();
  if (newSize == 0) {
    std::vector<CString>().swap(v_);
  } else {
    v_.resize(static_cast<std::size_t>(newSize));
  }
}

void CStringArray::SetAtGrow(INT_PTR i, const char* s) {
  if (i < 0) AfxThrowInvalidArgException();
  if (i >= GetSize()) v_.resize(static_cast<std::size_t>(i) + 1);
  v_[static_cast<std::size_t>(i)] = s;
}

// An emptied array starts again with room for a few values, as MFC's arrays grow by at
// least four: rows of a dozen values are refilled often, and growing them one, two,
// four, eight at a time would cost a reallocation per doubling.
constexpr std::size_t kFirstCapacity = 4;

INT_PTR CStringArray::Add(const char* s) {
  if (v_.capacity() == 0) v_.reserve(kFirstCapacity);
  v_.emplace_back(s);
  return GetSize() - 1;
}

INT_PTR CStringArray::Add(const CString& s) {
  if (v_.capacity() == 0) v_.reserve(kFirstCapacity);
  v_.push_back(s);
  return GetSize() - 1;
}

INT_PTR CStringArray::Append(const CStringArray& other) {
  INT_PTR first = GetSize();
  if (&other == this) {
    std::vector<CString> copy(v_);
    v_.insert(v_.end(), copy.begin(), copy.end());
  } else {
    v_.insert(v_.end(), other.v_.begin(), other.v_.end());
  }
  return first;
}

void CStringArray::Copy(const CStringArray& other) {
  if (&other != this) v_ = other.v_;
}

void CStringArray::InsertAt(INT_PTR i, const char* s, INT_PTR count) {
  if (i < 0 || count <= 0) AfxThrowInvalidArgException();
  CString value(s);
  if (i >= GetSize()) {
    v_.resize(static_cast<std::size_t>(i + count));
    std::fill(v_.begin() + i, v_.end(), value);
  } else {
    v_.insert(v_.begin() + i, static_cast<std::size_t>(count), value);
  }
}

void CStringArray::InsertAt(INT_PTR start, const CStringArray* other) {
  if (!other) AfxThrowInvalidArgException();
  if (other->IsEmpty()) return;
  std::vector<CString> copy(other->v_);
  if (start < 0) AfxThrowInvalidArgException();
  if (start > GetSize()) v_.resize(static_cast<std::size_t>(start));
  v_.insert(v_.begin() + start, copy.begin(), copy.end());
}

void CStringArray::RemoveAt(INT_PTR i, INT_PTR count) {
  if (i < 0 || count < 0 || i + count > GetSize()) AfxThrowInvalidArgException();
  v_.erase(v_.begin() + i, v_.begin() + i + count);
}

void CStringArray::RemoveAll() { std::vector<CString>().swap(v_); }

// Exceptions

CException::~CException() = default;

BOOL CException::GetErrorMessage(LPTSTR buffer, UINT maxLength, UINT* helpContext) const {
  if (helpContext) *helpContext = 0;
  if (!buffer || maxLength == 0) return FALSE;
  std::size_t n = std::min<std::size_t>(message_.GetLength(), maxLength - 1);
  std::memcpy(buffer, message_.GetString(), n);
  buffer[n] = '\0';
  return TRUE;
}

void CException::Delete() {
  if (m_bAutoDelete) delete this;
}

CInvalidArgException::CInvalidArgException(BOOL autoDelete) : CSimpleException(autoDelete) {
  message_ = "Invalid argument";
}

CMemoryException::CMemoryException(BOOL autoDelete) : CSimpleException(autoDelete) {
  message_ = "Out of memory";
}

void AfxThrowInvalidArgException() {
  static CInvalidArgException instance(FALSE);
  throw &instance;
}

void AfxThrowMemoryException() {
  static CMemoryException instance(FALSE);
  throw &instance;
}
