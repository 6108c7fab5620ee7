// The OLE2 compound file container that holds an .xls workbook stream: a FAT-chained
// sector file with a directory of named streams, a mini-stream for streams under
// 4,096 bytes, and a DIFAT for files with more than 109 FAT sectors.
//
// CompoundFileReader keeps a pointer to the caller's bytes, which must outlive it.
// Every index and length read from the file is checked before use: a malformed file
// gives a Corruption status naming the fault, never a crash or a loop.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "xls/FileIo.h"
#include "xls/Status.h"

namespace xls {

class CompoundFileReader {
 public:
  Status Open(const std::uint8_t* data, std::size_t size);
  // True when a stream of that name (ASCII, case-insensitive) exists.
  bool HasStream(std::string_view name) const;
  // REQUIRES: Open succeeded.
  Status ReadStream(std::string_view name, std::vector<std::uint8_t>* out) const;
  // The stream's bytes where they lie, without a copy, when its sectors follow one another
  // in the file (writers lay out a large stream so): *out points into the caller's bytes.
  // False when they do not, when the stream is held in the mini-stream or is damaged; then
  // ReadStream copies it, or names the fault. REQUIRES: Open succeeded.
  bool StreamInPlace(std::string_view name, ByteSpan* out) const;

 private:
  struct Entry {
    std::string name;  // ASCII-folded to upper case; other characters kept as '?'
    std::uint8_t type = 0;
    std::uint32_t start = 0;
    std::uint64_t size = 0;
  };
  const std::uint8_t* sectorData(std::uint32_t sector) const;
  Status Chain(std::uint32_t start, const std::vector<std::uint32_t>& table, std::uint64_t limit,
               const char* what, std::vector<std::uint32_t>* out) const;
  Status ReadRegular(std::uint32_t start, std::uint64_t size, const char* what,
                     std::vector<std::uint8_t>* out) const;
  const Entry* Find(std::string_view name) const;

  const std::uint8_t* data_ = nullptr;
  std::size_t size_ = 0;
  unsigned sectorShift_ = 9;
  std::uint32_t sectorCount_ = 0;
  std::uint32_t miniCutoff_ = 4096;
  std::vector<std::uint8_t> lastSector_;  // a last sector cut short, padded with zeros
  std::vector<std::uint32_t> fat_;
  std::vector<std::uint32_t> miniFat_;
  std::vector<Entry> entries_;
};

// A compound file image made of an owned head and tail around the caller's stream bytes,
// so that a large stream is written without being copied.
struct CompoundFileImage {
  std::vector<std::uint8_t> head;
  std::vector<std::uint8_t> tail;
  std::vector<std::uint8_t> padding;  // zeros used to finish partly filled sectors
  std::vector<ByteSpan> pieces;       // in file order; point into the above and the streams
  std::vector<std::uint8_t> Flatten() const;
};

struct NamedStream {
  std::string name;  // ASCII, at most 31 characters
  const std::vector<std::uint8_t>* data;
};

// Lays out the streams in the root storage. sectorShift is 9 (512-byte sectors, version 3,
// what Excel writes) or 12 (4,096-byte sectors, version 4).
Status BuildCompoundFile(const std::vector<NamedStream>& streams, unsigned sectorShift,
                         CompoundFileImage* out);

// The bytes in front of the first stream of a file of 512-byte sectors: its header.
constexpr std::size_t kCompoundHeaderRoom = 512;

// Makes *file, which holds kCompoundHeaderRoom bytes of room and then one stream's bytes,
// into the file BuildCompoundFile lays out for that stream alone, with 512-byte sectors.
// A large stream is not copied: the header goes into the room and the rest after it.
Status FinishCompoundFileInPlace(const std::string& name, std::vector<std::uint8_t>* file);

}  // namespace xls
