// Fuzz target for the journal decoders: the bytes are a journal file (header, then records),
// read both as records of effects (today's format) and as records of SQL text (the format
// replayed once after an upgrade). Decoding never reads past the bytes, stops at a whole
// record, and is exact: the records it returns encode to bytes that decode to the same
// records, and a header it accepts encodes back to the bytes it came from. Effects that
// decode apply to a small workbook or fail cleanly.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "odbc-driver/Journal.h"

namespace {

void Require(bool ok, const char* what) {
  if (ok) return;
  std::fprintf(stderr, "journal decoder: %s\n", what);
  std::abort();
}

bool SameValue(const xlsodbc::Value& a, const xlsodbc::Value& b) {
  if (a.kind != b.kind) return false;
  if (a.kind == xlsodbc::Value::Kind::kText) return a.text == b.text;
  if (a.kind == xlsodbc::Value::Kind::kNumber) {
    return std::memcmp(&a.number, &b.number, sizeof a.number) == 0;  // NaNs keep their bits
  }
  return true;  // NULL: the decoder may have read (and dropped) bytes after its kind
}

bool SameRecords(const std::vector<xlsodbc::JournalRecord>& a,
                 const std::vector<xlsodbc::JournalRecord>& b) {
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i) {
    if (a[i].firstRowHasNames != b[i].firstRowHasNames || a[i].sql != b[i].sql ||
        a[i].parameters.size() != b[i].parameters.size()) {
      return false;
    }
    for (std::size_t k = 0; k < a[i].parameters.size(); ++k) {
      if (!SameValue(a[i].parameters[k], b[i].parameters[k])) return false;
    }
  }
  return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::vector<std::uint8_t> head(data, data + (size < 40 ? size : 40));
  xlsodbc::JournalHeader h;
  if (xlsodbc::DecodeJournalHeader(head, &h)) {
    std::vector<std::uint8_t> again = xlsodbc::EncodeJournalHeader(h);
    Require(again.size() == xlsodbc::kJournalHeaderSize &&
                std::memcmp(again.data(), data, again.size()) == 0,
            "a header does not encode back to its bytes");
  }
  // Records from the start of the input, and from just past a header's length, as the
  // driver reads them.
  for (std::size_t start : {std::size_t{0}, xlsodbc::kJournalHeaderSize}) {
    if (start > size) break;
    std::size_t consumed = 0;
    auto records = xlsodbc::DecodeJournalRecords(data + start, size - start, &consumed);
    Require(consumed <= size - start, "consumed past the end");
    Require(records.empty() == (consumed == 0), "records without bytes, or bytes without records");
    std::vector<std::uint8_t> encoded;
    for (const auto& r : records) {
      std::vector<std::uint8_t> one = xlsodbc::EncodeJournalRecord(r);
      encoded.insert(encoded.end(), one.begin(), one.end());
    }
    std::size_t reread = 0;
    auto again = xlsodbc::DecodeJournalRecords(encoded.data(), encoded.size(), &reread);
    Require(reread == encoded.size(), "re-encoded records do not decode whole");
    Require(SameRecords(records, again), "re-encoded records decode differently");

    // Both checksums: version 2's records (FNV-1a) and this driver's (CRC-32C).
    for (int version : {xlsodbc::kFnvJournalVersion, xlsodbc::kJournalVersion}) {
      std::vector<std::vector<xlsodbc::Effect>> units;
      xlsodbc::Error e =
          xlsodbc::DecodeEffectRecords(data + start, size - start, &units, &consumed, version);
      Require(consumed <= size - start, "effects consumed past the end");
      Require(e.ok() || !e.message().empty(), "a decoding error without a message");
      encoded.clear();
      xls::Workbook book;
      book.addSheet("S");
      for (const auto& unit : units) {
        xlsodbc::EffectLog log;
        for (const auto& effect : unit) log.Add(effect);
        std::vector<std::uint8_t> one = xlsodbc::EncodeEffectRecord(log, version);
        encoded.insert(encoded.end(), one.begin(), one.end());
        // Cells far out would only measure the allocator: a full grid is gigabytes.
        bool small = true;
        for (const auto& effect : unit) small = small && effect.row < 4096 && effect.column < 256;
        if (small) (void)xlsodbc::ApplyEffects(unit, &book);
      }
      std::vector<std::vector<xlsodbc::Effect>> units2;
      Require(xlsodbc::DecodeEffectRecords(encoded.data(), encoded.size(), &units2, &reread,
                                           version)
                      .ok() &&
                  reread == encoded.size(),
              "re-encoded effects do not decode whole");
      Require(units == units2, "re-encoded effects decode differently");
    }
  }
  return 0;
}
