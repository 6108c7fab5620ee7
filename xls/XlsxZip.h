// The zip container of an Office Open XML workbook, over libzip: reading parts as streams
// with limits a crafted archive cannot get past, and building a new archive in memory.
//
// Ownership: a ZipPartReader reads bytes the caller keeps alive for the reader's lifetime;
// a ZipBuilder copies nothing until Finish() and needs the parts' text to outlive it.
// Part names are as stored in the archive, without a leading '/'; lookups ignore ASCII case,
// as part names do.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "xls/Status.h"

struct zip;
struct zip_source;

namespace xls {

// What inflating one part may cost. A deflate stream can expand about 1,000 to 1; real
// worksheets stay far below kMaxRatio, so a part past it is a bomb, not a workbook.
struct ZipLimits {
  std::uint64_t maxPartBytes = 4ull << 30;  // absolute, per part
  std::uint64_t maxRatio = 250;             // inflated / compressed, beyond the allowance
  std::uint64_t ratioAllowance = 1 << 20;   // small parts compress better: never refused
};

class ZipPartReader {
 public:
  ZipPartReader() = default;
  ~ZipPartReader();
  ZipPartReader(const ZipPartReader&) = delete;
  ZipPartReader& operator=(const ZipPartReader&) = delete;

  // REQUIRES: data stays valid and unchanged while the reader is used.
  Status Open(const std::uint8_t* data, std::size_t size, ZipLimits limits = ZipLimits());
  bool Has(std::string_view part) const;
  // Inflates the part a chunk at a time into sink; a sink's failure stops the read and is
  // returned. Corruption when the part is missing, its data is damaged (CRC), or it inflates
  // past the limits (checked against its declared size first, then against what it yields).
  Status Read(std::string_view part, const std::function<Status(const char*, std::size_t)>& sink);

 private:
  zip* archive_ = nullptr;
  ZipLimits limits_;
};

// Builds an archive in memory. Parts are deflated at a fast level by default: worksheets
// are large and repetitive, so a fast level loses little size and saves most of the time.
class ZipBuilder {
 public:
  ZipBuilder();
  ~ZipBuilder();
  ZipBuilder(const ZipBuilder&) = delete;
  ZipBuilder& operator=(const ZipBuilder&) = delete;

  // REQUIRES: text stays valid until Finish() returns; level is zlib's, 1 (fast) to 9.
  Status Add(const std::string& part, std::string_view text, int level = 1);
  // Writes the archive to *out. The builder is spent afterwards.
  Status Finish(std::vector<std::uint8_t>* out);

 private:
  zip_source* buffer_ = nullptr;
  zip* archive_ = nullptr;
  Status error_;
};

}  // namespace xls
