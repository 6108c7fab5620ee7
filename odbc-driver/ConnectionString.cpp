#include "odbc-driver/ConnectionString.h"

namespace xlsodbc {

namespace {

bool IsSpace(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

std::string Trim(std::string_view s) {
  std::size_t a = 0, b = s.size();
  while (a < b && IsSpace(s[a])) ++a;
  while (b > a && IsSpace(s[b - 1])) --b;
  return std::string(s.substr(a, b - a));
}

std::string Upper(std::string s) {
  for (char& c : s) {
    if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 32);
  }
  return s;
}

}  // namespace

std::map<std::string, std::string> ParseConnectionString(std::string_view text) {
  std::map<std::string, std::string> out;
  std::size_t p = 0;
  while (p < text.size()) {
    std::size_t eq = text.find('=', p);
    std::size_t semi = text.find(';', p);
    if (eq == std::string_view::npos || (semi != std::string_view::npos && semi < eq)) {
      if (semi == std::string_view::npos) break;
      p = semi + 1;  // a piece without '=': skipped
      continue;
    }
    std::string key = Upper(Trim(text.substr(p, eq - p)));
    p = eq + 1;
    while (p < text.size() && IsSpace(text[p])) ++p;
    std::string value;
    char open = p < text.size() ? text[p] : '\0';
    if (open == '{' || open == '"' || open == '\'') {
      char close = open == '{' ? '}' : open;
      ++p;
      while (p < text.size()) {
        if (text[p] == close) {
          if (p + 1 < text.size() && text[p + 1] == close) {
            value.push_back(close);
            p += 2;
            continue;
          }
          ++p;
          break;
        }
        value.push_back(text[p++]);
      }
      // Anything between the closing quote and the ';' is dropped.
      std::size_t next = text.find(';', p);
      p = next == std::string_view::npos ? text.size() : next + 1;
    } else {
      std::size_t next = text.find(';', p);
      std::size_t end = next == std::string_view::npos ? text.size() : next;
      value = Trim(text.substr(p, end - p));
      p = next == std::string_view::npos ? text.size() : next + 1;
    }
    if (!key.empty()) out.emplace(std::move(key), std::move(value));
  }
  return out;
}

bool ParseFlag(const std::string& value, bool fallback) {
  std::string v = Upper(Trim(value));
  if (v == "1" || v == "TRUE" || v == "YES" || v == "ON") return true;
  if (v == "0" || v == "FALSE" || v == "NO" || v == "OFF") return false;
  return fallback;
}

bool ParseSyncMode(const std::string& value, SyncMode* mode) {
  std::string v = Upper(Trim(value));
  if (v.empty() || v == "NORMAL") {
    *mode = SyncMode::kNormal;
  } else if (v == "FULL") {
    *mode = SyncMode::kFull;
  } else if (v == "OFF") {
    *mode = SyncMode::kOff;
  } else {
    return false;
  }
  return true;
}

}  // namespace xlsodbc
