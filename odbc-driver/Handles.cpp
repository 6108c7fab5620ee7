#include "odbc-driver/Handles.h"

#include <cstring>

namespace xlsodbc {

namespace {

bool CopyOutImpl(const std::string& text, char* buffer, SQLLEN bufferLength) {
  // No buffer asks for the length only: nothing is cut, so no 01004.
  if (!buffer) return false;
  if (bufferLength <= 0) return !text.empty();
  std::size_t room = static_cast<std::size_t>(bufferLength) - 1;
  std::size_t n = std::min(room, text.size());
  std::memcpy(buffer, text.data(), n);
  buffer[n] = '\0';
  return n < text.size();
}

}  // namespace

void EndBegunTransaction(Dbc* dbc) {
  if (!dbc->begun) return;
  dbc->begun = false;
  (void)dbc->db->SetAutocommit(dbc->autocommit);  // nothing is open after COMMIT or ROLLBACK
}

bool CopyOut(const std::string& text, SQLCHAR* buffer, SQLLEN bufferLength, SQLSMALLINT* outLen) {
  if (outLen) *outLen = static_cast<SQLSMALLINT>(std::min<std::size_t>(text.size(), 32767));
  return CopyOutImpl(text, reinterpret_cast<char*>(buffer), bufferLength);
}

bool CopyOut(const std::string& text, SQLPOINTER buffer, SQLLEN bufferLength, SQLINTEGER* outLen) {
  if (outLen) *outLen = static_cast<SQLINTEGER>(text.size());
  return CopyOutImpl(text, static_cast<char*>(buffer), bufferLength);
}

std::string InText(const SQLCHAR* text, SQLINTEGER length) {
  if (!text) return std::string();
  const char* p = reinterpret_cast<const char*>(text);
  if (length == SQL_NTS) return std::string(p);
  if (length < 0) return std::string();
  return std::string(p, static_cast<std::size_t>(length));
}

}  // namespace xlsodbc
