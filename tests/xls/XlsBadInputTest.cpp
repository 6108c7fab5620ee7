// Malformed files: each gets a clear error, never a crash or a hang.
#include <gtest/gtest.h>

#include <functional>

#include "xls/Records.h"
#include "xls/Xls.h"

namespace xls {
namespace {

std::vector<std::uint8_t> GoodFile() {
  Workbook wb;
  Sheet& s = wb.addSheet("S");
  for (int r = 0; r < 300; ++r) s.set(r, 0, Cell::Text("row " + std::to_string(r)));
  std::vector<std::uint8_t> bytes;
  EXPECT_TRUE(WriteWorkbookToMemory(wb, &bytes).ok());
  return bytes;
}

// Byte offset of the Workbook stream: our writer puts it right after the 512-byte header.
constexpr std::size_t kStream = 512;

TEST(XlsBadInput, EachFaultGivesAClearError) {
  struct Case {
    const char* what;
    std::function<void(std::vector<std::uint8_t>&)> damage;
    Status::Code code;
    const char* message;
  } cases[] = {
      {"truncated header", [](auto& b) { b.resize(100); }, Status::Code::kCorruption, "too short"},
      {"truncated body", [](auto& b) { b.resize(b.size() / 2); }, Status::Code::kCorruption, "sector"},
      {"wrong magic", [](auto& b) { b[0] = 'X'; }, Status::Code::kCorruption, "signature"},
      {"zip magic on a non-zip", [](auto& b) { b[0] = 'P'; b[1] = 'K'; b[2] = 3; b[3] = 4; }, Status::Code::kCorruption, "zip"},
      {"FAT loop", [](auto& b) {
         // The first FAT sector's first entry points at itself.
         std::uint32_t fat = GetU32(b.data() + 76);
         PutU32(b.data() + 512 + 512 * fat, 0);
       }, Status::Code::kCorruption, "loops"},
      {"sector index out of range", [](auto& b) { PutU32(b.data() + 48, 0x00FFFFFF); },
       Status::Code::kCorruption, "out of range"},
      {"FAT sector out of range", [](auto& b) { PutU32(b.data() + 76, 0x00FFFFFF); },
       Status::Code::kCorruption, "out of range"},
      {"record past the stream", [](auto& b) { PutU16(b.data() + kStream + 2, 0xFFF0); },
       Status::Code::kCorruption, "past the end"},
      {"no BOF", [](auto& b) { PutU16(b.data() + kStream, 0x1234); }, Status::Code::kCorruption, "BOF"},
      {"unknown BIFF version", [](auto& b) { PutU16(b.data() + kStream + 4, 0x0700); },
       Status::Code::kUnsupported, "BIFF version 0x0700"},
      {"cell record too short", [](auto& b) {
         for (std::size_t i = kStream; i + 4 < b.size(); ++i) {
           if (GetU16(b.data() + i) == rec::kLabelSst && GetU16(b.data() + i + 2) == 10) {
             PutU16(b.data() + i + 2, 4);
             return;
           }
         }
       }, Status::Code::kCorruption, "LABELSST record 0x00FD at offset"},
      {"SST count lies", [](auto& b) {
         for (std::size_t i = kStream; i + 12 < b.size(); ++i) {
           if (GetU16(b.data() + i) == rec::kSst) { PutU32(b.data() + i + 8, 1000000); return; }
         }
       }, Status::Code::kCorruption, "SST declares"},
  };
  for (const Case& c : cases) {
    std::vector<std::uint8_t> bytes = GoodFile();
    c.damage(bytes);
    Workbook wb;
    Status s = ReadWorkbookFromMemory(bytes.data(), bytes.size(), &wb);
    EXPECT_EQ(s.code(), c.code) << c.what << ": " << s.ToString();
    EXPECT_NE(s.message().find(c.message), std::string::npos) << c.what << ": " << s.ToString();
  }
}

// A file cut short is refused with a message, or read whole when only bytes of its last
// sector that mean nothing were cut (a partial last sector is read padded, as Excel does).
TEST(XlsBadInput, EveryTruncationIsRefusedOrRead) {
  std::vector<std::uint8_t> bytes = GoodFile();
  int read = 0;
  for (std::size_t n = 0; n < bytes.size(); n += 97) {
    Workbook wb;
    Status s = ReadWorkbookFromMemory(bytes.data(), n, &wb);
    if (!s.ok()) {
      EXPECT_FALSE(s.message().empty()) << n;
      continue;
    }
    ++read;
    EXPECT_GT(n, bytes.size() - 512) << "read although cut before the last sector";
    ASSERT_EQ(wb.sheets().size(), 1u) << n;
    for (int r = 0; r < 300; ++r) ASSERT_EQ(wb.sheets()[0].at(r, 0).text, "row " + std::to_string(r));
  }
  EXPECT_GT(read, 0);
}

}  // namespace
}  // namespace xls
