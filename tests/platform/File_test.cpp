#include "platform/File.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "tests/support/FailNth.h"
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

using testing_support::FailNth;
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

// Each file read through the usual 4096-byte buffer and through a 4-byte one, where a CR and
// its LF land in different refills.
TEST(ArchiveReadTest, LineEnds) {
  const std::string big(10 * 1024 * 1024, 'q');
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
      {"nul and high bytes pass through",
       std::string("x\0y\xff\n", 5),
       {std::string("x\0y\xff", 4)}},
      {"crlf at a refill boundary", "abc\r\ndefgh\r\nij", {"abc", "defgh", "ij"}},
      {"line longer than many buffers", big + "\r\nz", {big, "z"}},
  };
  TempDir dir;
  for (const Case& c : cases) {
    WriteFile(dir.file("f"), c.bytes);
    for (int buffer : {4096, 4}) {
      EXPECT_TRUE(ReadLines(dir.file("f"), buffer) == c.lines) << c.name << ", buffer " << buffer;
    }
  }
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

// A text file is rewritten in place through a 4096-byte buffer: 10,000 bytes leave as
// open, three writes (4096 + 4096 + 1808), the cut at their end and close. Failing each call
// in turn, once or for good: the error reaches the caller, and the file holds what had been
// written by then (the old bytes when the open failed, or when the disk failed for good
// before anything was written: there was nothing to write over them and no cut; on Windows
// the open truncates, and there is no cut).
TEST(ArchiveWriteTest, EachFailingCallIsReportedAndLeavesWhatWasWritten) {
  TempDir dir;
  const std::string path = dir.file("out");
  const std::string chunk(1000, 'w');
  struct Expected {
    int cause;
    std::size_t size;                                  // SIZE_MAX: the old contents
  } expected[] = {{CFileException::hardIO, SIZE_MAX},  // open
                  {CFileException::diskFull, 0},      {CFileException::diskFull, 4096},
                  {CFileException::diskFull, 8192},   {CFileException::hardIO, 10000},  // the cut
                  {CFileException::hardIO, 10000}};                                     // close
  for (FailNth::Mode mode : {FailNth::kOnce, FailNth::kForGood}) {
    bool completed = false;
    for (int n = 1; !completed; ++n) {
      ASSERT_LE(n, 7) << "more calls than the rewrite makes";
      WriteFile(path, "old");
      int cause = CFileException::none;
      {
        FailNth fail(n, mode);
        try {
          CFile file(path.c_str(), CFile::modeCreate | CFile::modeWrite | CFile::shareDenyNone);
          CArchive archive(&file, CArchive::store, 4096);
          for (int i = 0; i < 10; ++i) archive.Write(chunk.data(), 1000);
          archive.Close();
          file.Close();
        } catch (CFileException* e) {
          cause = e->m_cause;
          e->Delete();
        }
        completed = !fail.fired();
      }
      const std::string bytes = ReadFile(path);
      if (completed) {
        EXPECT_EQ(cause, CFileException::none);
        EXPECT_EQ(bytes, std::string(10000, 'w'));
        continue;
      }
      Expected e = expected[n - 1];
#if !defined(_WIN32)
      // Nothing was written over the old bytes and the cut failed too. (Windows truncates
      // at open, so there the file is empty.)
      if (n == 2 && mode == FailNth::kForGood) e.size = SIZE_MAX;
#endif
      EXPECT_EQ(cause, e.cause) << "call " << n;
      if (e.size == SIZE_MAX) {
        EXPECT_EQ(bytes, "old") << "call " << n;
      } else {
        EXPECT_EQ(bytes, std::string(e.size, 'w')) << "call " << n;
      }
    }
  }
}

// Rewriting over a longer file leaves exactly the new bytes, in the same file (same inode:
// links and open readers keep following it), and no other file beside it.
TEST(ArchiveWriteTest, RewriteOverALongerFileKeepsTheFileAndOnlyTheNewBytes) {
  TempDir dir;
  const std::string path = dir.file("out");
  struct Case {
    std::string old, written;
  } cases[] = {{std::string(9000, 'o'), "short\r\n"},
               {"old", std::string(5000, 'n')},
               {std::string(100, 'o'), ""}};
  for (const Case& c : cases) {
    WriteFile(path, c.old);
    std::filesystem::create_hard_link(path, dir.file("link"));
    CFile file(path.c_str(), CFile::modeCreate | CFile::modeWrite | CFile::shareDenyNone);
    CArchive archive(&file, CArchive::store, 4096);
    archive.WriteString(c.written.c_str());
    archive.Close();
    file.Close();
    EXPECT_EQ(ReadFile(path), c.written);
    EXPECT_EQ(ReadFile(dir.file("link")), c.written) << "not rewritten in place";
    std::filesystem::remove(dir.file("link"));
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir.path()), {}), 1);
  }
}

}  // namespace
