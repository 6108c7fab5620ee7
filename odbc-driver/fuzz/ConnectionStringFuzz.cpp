// Fuzz target for connection strings: any text parses to keys and values without a crash,
// the keys are upper-case, trimmed and not empty, and writing each pair back in braces
// ("KEY={value}", with } doubled) parses to the same pairs.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "odbc-driver/ConnectionString.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  const auto pairs = xlsodbc::ParseConnectionString(text);
  std::string written;
  for (const auto& [key, value] : pairs) {
    bool ok = !key.empty() && key.find('=') == std::string::npos &&
              key.find(';') == std::string::npos && key.front() != ' ' && key.back() != ' ';
    for (char c : key) ok = ok && !(c >= 'a' && c <= 'z');
    if (!ok) {
      std::fprintf(stderr, "connection string: bad key \"%s\"\n", key.c_str());
      std::abort();
    }
    (void)xlsodbc::ParseFlag(value, false);
    written += key + "={";
    for (char c : value) written += c == '}' ? std::string("}}") : std::string(1, c);
    written += "};";
  }
  if (xlsodbc::ParseConnectionString(written) != pairs) {
    std::fprintf(stderr, "connection string: \"%s\" does not read back\n", written.c_str());
    std::abort();
  }
  return 0;
}
