#include "platform/File.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <vector>

#include "platform/SysCalls.h"
#include "tests/support/TempDir.h"

namespace {

// Heap-allocated MFC exceptions must be deleted by whoever catches them.
template <typename F>
bool ThrowsFileException(F f) {
  try {
    f();
  } catch (CFileException* e) {
    e->Delete();
    return true;
  }
  return false;
}

using testing_support::ReadFile;
using testing_support::TempDir;
using testing_support::WriteFile;

std::vector<std::string> ReadLines(const std::string& path, int bufferSize = 4096) {
  CFile file;
  EXPECT_TRUE(file.Open(path.c_str(), CFile::modeRead | CFile::shareDenyNone));
  CArchive archive(&file, CArchive::load, bufferSize);
  std::vector<std::string> lines;
  CString line;
  while (archive.ReadString(line)) lines.emplace_back(line.str());
  return lines;
}

TEST(ArchiveReadTest, LineEnds) {
  struct Case {
    const char* name;
    std::string bytes;
    std::vector<std::string> lines;
  } cases[] = {
      {"empty file", "", {}},
      {"crlf", "a\r\nb\r\n", {"a", "b"}},
      {"lf", "a\nb\n", {"a", "b"}},
      {"last line without end", "a\nb", {"a", "b"}},
      {"empty lines are lines", "\n\r\n\n", {"", "", ""}},
      {"lone cr is data", "a\rb\n", {"a\rb"}},
      {"trailing cr without lf is data", "a\r", {"a\r"}},
      {"nul and high bytes pass through", std::string("x\0y\xff\n", 5), {std::string("x\0y\xff", 4)}},
  };
  TempDir dir;
  for (const Case& c : cases) {
    WriteFile(dir.file("f"), c.bytes);
    EXPECT_EQ(ReadLines(dir.file("f")), c.lines) << c.name;
  }
}

TEST(ArchiveReadTest, CrLfSplitAcrossBufferRefills) {
  TempDir dir;
  // With a 4-byte buffer the "\r" and the "\n" land in different refills.
  WriteFile(dir.file("f"), "abc\r\ndefgh\r\nij");
  EXPECT_EQ(ReadLines(dir.file("f"), 4), (std::vector<std::string>{"abc", "defgh", "ij"}));
}

TEST(ArchiveReadTest, LineLongerThanManyBuffers) {
  TempDir dir;
  const std::string big(10 * 1024 * 1024, 'q');
  WriteFile(dir.file("f"), big + "\r\nz");
  auto lines = ReadLines(dir.file("f"));
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_EQ(lines[0].size(), big.size());
  EXPECT_EQ(lines[1], "z");
}

TEST(FileTest, OpenFailureFillsTheException) {
  TempDir dir;
  CFile file;
  CFileException error(CFileException::none, 0, "");
  EXPECT_FALSE(file.Open(dir.file("missing").c_str(), CFile::modeRead, &error));
  EXPECT_EQ(error.m_cause, CFileException::fileNotFound);
  EXPECT_EQ(error.m_lOsError, ENOENT);
  EXPECT_TRUE(ThrowsFileException([&] { CFile f(dir.file("missing").c_str(), CFile::modeRead); }));
  EXPECT_TRUE(ThrowsFileException(
      [&] { CFile f(dir.path().c_str(), CFile::modeCreate | CFile::modeWrite); }));
}

// Fails the Nth write (and every write after it) through the system-call table.
class FailingWrites {
 public:
  explicit FailingWrites(int failFrom) {
    remaining_ = failFrom;
    platform::Sys().write = [](int fd, const void* p, size_t n) -> ssize_t {
      if (--remaining_ < 0) {
        errno = ENOSPC;
        return -1;
      }
      return platform::DefaultSysCalls().write(fd, p, n);
    };
  }
  ~FailingWrites() { platform::Sys() = platform::DefaultSysCalls(); }

 private:
  static inline int remaining_ = 0;
};

TEST(ArchiveWriteTest, BuffersInto4096ByteWritesAndReportsFailures) {
  TempDir dir;
  const std::string path = dir.file("out");
  const std::string chunk(1000, 'w');
  for (int failAt = 0; failAt < 4; ++failAt) {
    FailingWrites fail(failAt);
    bool threw = false;
    try {
      CFile file(path.c_str(), CFile::modeCreate | CFile::modeWrite | CFile::shareDenyNone);
      CArchive archive(&file, CArchive::store, 4096);
      for (int i = 0; i < 10; ++i) archive.Write(chunk.data(), 1000);
      archive.Close();
      file.Close();
    } catch (CFileException* e) {
      EXPECT_EQ(e->m_cause, CFileException::diskFull);
      e->Delete();
      threw = true;
    }
    // 10,000 bytes leave as 4096 + 4096 + 1808: three writes.
    EXPECT_EQ(threw, failAt < 3) << failAt;
    EXPECT_EQ(ReadFile(path).size(), static_cast<size_t>(std::min(failAt, 2) * 4096 + (failAt >= 3 ? 1808 : 0)));
  }
}

}  // namespace
