// The redo journal's format (README.md, "Durability"). The file "<workbook>-journal" is:
//
//   header  "XLSJRNL1" | u64 size of the workbook file it follows | u64 FNV-1a of its bytes
//   record* u32 payload length | u32 FNV-1a of the payload | payload
//   payload u8 flags | u32 n | n bytes of SQL | u32 count | count x (u8 kind | u32 n | n bytes)
//   flags   bit 0: FIRSTROWHASNAMES of the connection that ran it; kind 0 NULL, 1 text, 2 number
//           (8 bytes, the double's bits)
//
// Integers are little-endian. A record is whole or it is not there: decoding stops at the
// first record that is cut short or fails its checksum (a crash while appending).
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "odbc-driver/Sql.h"

namespace xlsodbc {

constexpr std::size_t kJournalHeaderSize = 24;

struct JournalHeader {
  std::uint64_t baseSize = 0;
  std::uint64_t baseHash = 0;
};

struct JournalRecord {
  bool firstRowHasNames = true;
  std::string sql;
  std::vector<Value> parameters;
};

std::vector<std::uint8_t> EncodeJournalHeader(const JournalHeader& h);
[[nodiscard]] bool DecodeJournalHeader(const std::vector<std::uint8_t>& bytes, JournalHeader* h);

std::vector<std::uint8_t> EncodeJournalRecord(const JournalRecord& r);
// Decodes the records in bytes[0, size); *consumed is the end of the last whole record.
std::vector<JournalRecord> DecodeJournalRecords(const std::uint8_t* bytes, std::size_t size,
                                                std::size_t* consumed);

}  // namespace xlsodbc
