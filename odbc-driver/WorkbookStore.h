// WorkbookStore: the driver's file operations over the file seam (fileio/), as driver
// errors. Every system call goes through fileio::Sys(), so that tests can make the Nth
// write, sync or rename fail and check that the workbook on disk is the old one or the new
// one, never a mix. Replacing the workbook follows the seam's rules (fileio/Files.h): mode,
// owner, group and symbolic links are kept, and a file the user may not write is refused.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "fileio/Files.h"
#include "odbc-driver/Error.h"
#include "xls/FileIo.h"

namespace xlsodbc {

using fileio::FileId;
using fileio::StatFd;
using fileio::StatPath;

Error ReadWholeFile(const std::string& path, xls::FileBytes* out);
Error ReadAt(int fd, std::uint64_t offset, std::uint64_t size, std::vector<std::uint8_t>* out);
Error WriteAt(int fd, std::uint64_t offset, const std::uint8_t* data, std::size_t size);

// Replaces the workbook at path with data: afterwards path holds the old bytes or the new
// ones, whatever fails or crashes. A folder that cannot be synced after the rename is still
// a saved workbook (fileio/Files.h says why).
Error ReplaceWorkbook(const std::string& path, const std::vector<std::uint8_t>& data);

// kReadOnly naming the file and the reason when the process may not write the workbook at
// path (root may, as with cp); OK when it may, or when the file does not exist yet.
Error CheckWritable(const std::string& path);

// FNV-1a, 64 bits: tells a journal which workbook bytes it was written against.
std::uint64_t Fnv64(const std::uint8_t* data, std::size_t size);
// FNV-1a, 32 bits: the record checksum of journals of version 2.
std::uint32_t Fnv32(const std::uint8_t* data, std::size_t size);
// CRC-32C: the record checksum of journals of version 3. Crc32cPortable is the same without
// the processor's crc32 instruction (what hosts without it compute).
std::uint32_t Crc32c(const std::uint8_t* data, std::size_t size);
std::uint32_t Crc32cPortable(const std::uint8_t* data, std::size_t size);

std::string ErrnoText(int err);

}  // namespace xlsodbc
