// Saving a workbook over a file: every system call of the save fails in turn and the file
// is the old workbook or the new one; a save keeps what the user set on the file.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>

#include "tests/support/FailNth.h"
#include "tests/support/TempDir.h"
#include "xls/Xls.h"

namespace xls {
namespace {

namespace fs = std::filesystem;
using testing_support::FailNth;
using testing_support::TempDir;

Workbook Book(const char* sheet) {
  Workbook wb;
  wb.addSheet(sheet).set(0, 0, Cell::Text("x"));
  return wb;
}

// The first sheet's name of the workbook at path, "" when it does not read.
std::string FirstSheet(const std::string& path) {
  Workbook wb;
  return ReadWorkbook(path, &wb).ok() && !wb.sheets().empty() ? wb.sheets()[0].name() : "";
}

std::size_t Entries(const std::string& folder) {
  return static_cast<std::size_t>(
      std::distance(fs::directory_iterator(folder), fs::directory_iterator()));
}

TEST(XlsFileTest, SaveIsOldOrNewWhicheverCallFails) {
  TempDir dir;
  const std::string path = dir.file("book.xls");
  for (FailNth::Mode mode : {FailNth::kOnce, FailNth::kForGood}) {
    bool completed = false;
    for (int n = 1; !completed; ++n) {
      ASSERT_LE(n, 100) << "the save never completed";
      ASSERT_TRUE(WriteWorkbook(path, Book("Old")).ok());
      Status s;
      {
        FailNth fail(n, mode);
        s = WriteWorkbook(path, Book("New"));
        completed = !fail.fired();
      }
      // Only the folder sync comes after the rename, and its failure is still a save.
      EXPECT_EQ(FirstSheet(path), s.ok() ? "New" : "Old") << "call " << n << ": " << s.ToString();
      if (!s.ok()) {
        EXPECT_NE(s.ToString().find(path), std::string::npos) << s.ToString();
      }
      // Cleaning up is best effort: a failing unlink (kForGood) may leave the temporary.
      if (mode == FailNth::kOnce) {
        EXPECT_EQ(Entries(dir.path()), 1u) << "call " << n;
      }
      for (const auto& e : fs::directory_iterator(dir.path()))
        if (e.path() != path) fs::remove(e.path());
    }
  }
}

TEST(XlsFileTest, SaveKeepsModeGroupAndLinks) {
  TempDir dir;
  fs::create_directory(dir.file("real"));
  const std::string target = dir.file("real/book.xls"), link = dir.file("link.xls");
  ASSERT_TRUE(WriteWorkbook(target, Book("Old")).ok());
  ASSERT_EQ(::chmod(target.c_str(), 0640), 0);
  fs::create_symlink("real/book.xls", link);
  struct stat before {};
  ASSERT_EQ(::stat(target.c_str(), &before), 0);

  ASSERT_TRUE(WriteWorkbook(link, Book("New")).ok());
  struct stat after {};
  ASSERT_EQ(::stat(target.c_str(), &after), 0);
  EXPECT_TRUE(fs::is_symlink(link));
  EXPECT_EQ(FirstSheet(target), "New");
  EXPECT_NE(after.st_ino, before.st_ino);
  EXPECT_EQ(after.st_mode & 07777, 0640u);
  EXPECT_EQ(after.st_uid, before.st_uid);
  EXPECT_EQ(after.st_gid, before.st_gid);
  EXPECT_EQ(Entries(dir.path()), 2u);  // the link and its folder: no temporary file
}

// Without root's rights (a child drops them when the test runs as root), a read-only file
// in a writable folder is refused and left as it was; root may replace it, as with cp.
TEST(XlsFileTest, ReadOnlyFileIsRefusedUnlessRoot) {
  TempDir dir;
  const std::string path = dir.file("frozen.xls");
  ASSERT_TRUE(WriteWorkbook(path, Book("Old")).ok());
  ASSERT_EQ(::chmod(path.c_str(), 0444), 0);
  ASSERT_EQ(::chmod(dir.path().c_str(), 0777), 0);
  pid_t child = ::fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    if (::geteuid() == 0 && (::setgid(65534) != 0 || ::setuid(65534) != 0)) _exit(2);
    Status s = WriteWorkbook(path, Book("New"));
    const bool clear = s.ToString().find(path) != std::string::npos &&
                       s.ToString().find("Permission denied") != std::string::npos;
    _exit(s.ok() ? 3 : (clear ? 0 : 4));  // no exit handlers: leak checks cannot trace setuid
  }
  int status = 0;
  ::waitpid(child, &status, 0);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
  EXPECT_EQ(FirstSheet(path), "Old");
  EXPECT_EQ(Entries(dir.path()), 1u);
  if (::geteuid() == 0) {
    EXPECT_TRUE(WriteWorkbook(path, Book("New")).ok());
    EXPECT_EQ(FirstSheet(path), "New");
  }
}

// Another user's file that anyone may write: the writer may not give the new file away,
// so it becomes the writer's (as `cp` ignores EPERM) with the same mode, and the save works.
TEST(XlsFileTest, AnotherUsersWritableFileBecomesTheWriters) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root to act as a second user";
  TempDir dir;
  const std::string path = dir.file("shared.xls");
  ASSERT_TRUE(WriteWorkbook(path, Book("Old")).ok());
  ASSERT_EQ(::chmod(path.c_str(), 0666), 0);
  ASSERT_EQ(::chmod(dir.path().c_str(), 0777), 0);
  pid_t child = ::fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    if (::setgid(65534) != 0 || ::setuid(65534) != 0) _exit(2);
    _exit(WriteWorkbook(path, Book("New")).ok() ? 0 : 3);
  }
  int status = 0;
  ::waitpid(child, &status, 0);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
  struct stat after {};
  ASSERT_EQ(::stat(path.c_str(), &after), 0);
  EXPECT_EQ(FirstSheet(path), "New");
  EXPECT_EQ(after.st_uid, 65534u);
  EXPECT_EQ(after.st_mode & 07777, 0666u);
}

}  // namespace
}  // namespace xls
