// What a change through the driver does to the workbook file beyond its contents: the file
// keeps its mode and group, the journal beside it takes the same, a symbolic link stays a
// link and its target gets the change, and a file the user may not write is left alone
// with a clear error, as `cp` would leave it.
#include <grp.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

#include "OdbcTestSupport.h"
#include "tests/support/TempDir.h"
#include "xls/Xls.h"

namespace xlsodbc::test {
namespace {

struct stat Stat(const std::string& path) {
  struct stat st {};
  EXPECT_EQ(::stat(path.c_str(), &st), 0) << path;
  return st;
}

// A group the file can be given that is not the process's own, or -1 when there is none
// (an ordinary user in one group only).
gid_t OtherGroup() {
  if (::geteuid() == 0) return ::getegid() == 65534 ? 65533 : 65534;
  std::vector<gid_t> groups(static_cast<std::size_t>(::getgroups(0, nullptr)) + 1);
  int n = ::getgroups(static_cast<int>(groups.size()), groups.data());
  for (int i = 0; i < n; ++i)
    if (groups[static_cast<std::size_t>(i)] != ::getegid())
      return groups[static_cast<std::size_t>(i)];
  return static_cast<gid_t>(-1);
}

// A workbook with one table S (one column n) and the given mode.
void MakeBook(const std::string& path, mode_t mode) {
  Connection c;
  ASSERT_TRUE(c.Open(LibraryConnectionString(path)).ok());
  ASSERT_TRUE(c.Exec("CREATE TABLE [S] ([n] char(255))").ok());
  c.Close();
  ASSERT_EQ(::chmod(path.c_str(), mode), 0);
}

int RowsIn(const std::string& path) {
  xls::Workbook wb;
  if (!xls::ReadWorkbook(path, &wb).ok() || wb.findSheet("S") == nullptr) return -1;
  return wb.findSheet("S")->usedRows() - 1;
}

TEST(FileSafetyTest, WorkbookAndJournalKeepTheWorkbooksModeAndGroup) {
  TempDir dir;
  const std::string book = dir.file("private.xls");
  MakeBook(book, 0640);
  const gid_t group = OtherGroup();
  if (group != static_cast<gid_t>(-1)) {
    ASSERT_EQ(::chown(book.c_str(), -1, group), 0);
  }
  const struct stat before = Stat(book);

  Connection c;
  ASSERT_TRUE(c.Open(LibraryConnectionString(book)).ok());
  ASSERT_TRUE(c.Exec("INSERT INTO [S] VALUES ('1')").ok());
  const struct stat journal = Stat(book + "-journal");
  EXPECT_EQ(journal.st_mode & 07777, 0640u);
  EXPECT_EQ(journal.st_gid, before.st_gid);
  c.Close();

  const struct stat after = Stat(book);
  EXPECT_NE(after.st_ino, before.st_ino);  // replaced, not rewritten in place
  EXPECT_EQ(after.st_mode & 07777, 0640u);
  EXPECT_EQ(after.st_uid, before.st_uid);
  EXPECT_EQ(after.st_gid, before.st_gid);
  EXPECT_EQ(RowsIn(book), 1);
  if (group == static_cast<gid_t>(-1)) GTEST_SKIP() << "the process has one group only";
}

TEST(FileSafetyTest, SymlinkedWorkbookStaysALinkAndItsTargetChanges) {
  TempDir dir;
  std::filesystem::create_directory(dir.file("real"));
  const std::string target = dir.file("real/book.xls"), link = dir.file("link.xls");
  MakeBook(target, 0644);
  std::filesystem::create_symlink("real/book.xls", link);  // relative, as users make them

  Connection c;
  ASSERT_TRUE(c.Open(LibraryConnectionString(link)).ok());
  ASSERT_TRUE(c.Exec("INSERT INTO [S] VALUES ('1')").ok());
  c.Close();

  EXPECT_TRUE(std::filesystem::is_symlink(link));
  EXPECT_EQ(std::filesystem::read_symlink(link), "real/book.xls");
  EXPECT_EQ(RowsIn(target), 1);
  // Nothing left beside the link: no temporary file, no journal.
  std::vector<std::string> names;
  for (const auto& e : std::filesystem::directory_iterator(dir.path()))
    names.push_back(e.path().filename().string());
  std::sort(names.begin(), names.end());
  EXPECT_EQ(names, (std::vector<std::string>{"link.xls", "real"}));
}

// The change runs in a child without root's rights (root may overwrite a read-only file,
// as with cp); the folder stays writable, so only the file's own mode can stop it.
TEST(FileSafetyTest, ReadOnlyWorkbookRefusesChangesAndStaysByteIdentical) {
  TempDir dir;
  const std::string book = dir.file("frozen.xls");
  MakeBook(book, 0444);
  ASSERT_EQ(::chmod(dir.path().c_str(), 0777), 0);
  if (const char* ini = std::getenv("ODBCSYSINI")) ::chmod(ini, 0755);
  const std::string bytes = testing_support::ReadFile(book);

  int out[2];
  ASSERT_EQ(::pipe(out), 0);
  pid_t child = ::fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    ::close(out[0]);
    if (::geteuid() == 0 &&
        (::setgroups(0, nullptr) != 0 || ::setgid(65534) != 0 || ::setuid(65534) != 0)) {
      _exit(2);
    }
    Connection c;
    Diag d = c.Open(LibraryConnectionString(book));
    if (d.ok()) d = c.Exec("INSERT INTO [S] VALUES ('1')");
    std::string report = d.state + "|" + d.message;
    if (::write(out[1], report.data(), report.size()) < 0) _exit(3);
    c.Close();
    _exit(0);  // no exit handlers: the sanitizer's leak check cannot trace a setuid process
  }
  ::close(out[1]);
  std::string report;
  char buf[512];
  for (ssize_t n; (n = ::read(out[0], buf, sizeof buf)) > 0;) report.append(buf, n);
  ::close(out[0]);
  int status = 0;
  ::waitpid(child, &status, 0);
  ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;

  EXPECT_EQ(report.substr(0, 6), "HY000|") << report;
  EXPECT_NE(report.find(book), std::string::npos) << report;
  EXPECT_NE(report.find("ermission"), std::string::npos) << report;
  EXPECT_TRUE(testing_support::ReadFile(book) == bytes) << "the workbook changed";
  EXPECT_EQ(Stat(book).st_mode & 07777, 0444u);
  EXPECT_FALSE(std::filesystem::exists(book + "-journal"));
}

}  // namespace
// Encrypted workbooks: PWD opens them (Excel's default password needs none), a missing or
// wrong password is 28000, and changes are refused rather than saved without the password.
TEST(FileSafetyTest, EncryptedWorkbooksOpenWithTheirPasswordAndRefuseChanges) {
  TempDir dir;
  struct Case {
    const char* seed;
    const char* pwd;  // nullptr: no PWD key
    const char* state;  // of the connect; "" when it opens
  } cases[] = {
      {"encrypted-cryptoapi128-s3cret", nullptr, "28000"},
      {"encrypted-cryptoapi128-s3cret", "wrong", "28000"},
      {"encrypted-cryptoapi128-s3cret", "s3cret", ""},
      {"encrypted-rc4-default", nullptr, ""},
  };
  for (const Case& c : cases) {
    const std::string book = dir.file(std::string(c.seed) + ".xls");
    std::filesystem::copy_file(std::string(XLS_CORPUS) + "/" + c.seed, book,
                               std::filesystem::copy_options::overwrite_existing);
    const std::string bytes = testing_support::ReadFile(book);
    xls::Workbook plain;
    xls::ReadOptions read;
    read.password = c.pwd ? c.pwd : "";
    const bool readable = xls::ReadWorkbook(book, read, &plain).ok();
    std::string cs = LibraryConnectionString(book);
    if (c.pwd) cs += std::string(";PWD=") + c.pwd;
    Connection conn;
    Diag d = conn.Open(cs);
    EXPECT_EQ(d.state, c.state) << c.seed << ": " << d.message;
    if (!d.ok()) {
      EXPECT_NE(d.message.find("encrypted"), std::string::npos) << d.message;
      continue;
    }
    ASSERT_TRUE(readable);
    ASSERT_FALSE(plain.sheets().empty());
    const std::string sheet = plain.sheets()[0].name();
    Diag q;
    auto rows = conn.Query("SELECT * FROM [" + sheet + "$]", &q);
    EXPECT_TRUE(q.ok()) << q.message;
    EXPECT_EQ(static_cast<int>(rows.size()), plain.sheets()[0].usedRows()) << c.seed;
    Diag change = conn.Exec("CREATE TABLE [New] ([a] char(10))");
    EXPECT_EQ(change.state, "HY000") << change.message;
    EXPECT_NE(change.message.find("password-protected"), std::string::npos) << change.message;
    conn.Close();
    EXPECT_EQ(testing_support::ReadFile(book), bytes) << c.seed;
  }
}

}  // namespace xlsodbc::test
