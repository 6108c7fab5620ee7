// Connection strings: KEY=value pairs separated by ';'. Keys are case-insensitive. A value
// is {braced} (}} inside means }), "double quoted", 'single quoted' or bare up to the next
// ';' (a bare path may hold spaces). Unknown keys are kept and ignored by the driver.
#pragma once

#include <map>
#include <string>
#include <string_view>

namespace xlsodbc {

// Keys upper-cased; the first occurrence of a key wins.
std::map<std::string, std::string> ParseConnectionString(std::string_view text);

// "1", "TRUE", "YES", "ON" (any case) are true; "0", "FALSE", "NO", "OFF" false; else fallback.
bool ParseFlag(const std::string& value, bool fallback);

// SYNC: when the journal is flushed to disk (what each mode promises: Database.h).
enum class SyncMode { kOff, kNormal, kFull };

// "OFF", "NORMAL" or "FULL" in any case; empty (the key absent or blank) is NORMAL. Anything
// else is false, and *mode is left alone.
[[nodiscard]] bool ParseSyncMode(const std::string& value, SyncMode* mode);

}  // namespace xlsodbc
