// A process writing through the driver is killed with SIGKILL mid-way: the workbook still
// opens, and it holds every statement that had returned, once, in order.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>

#include "OdbcTestSupport.h"
#include "xls/Xls.h"

namespace xlsodbc::test {
namespace {

// In every SYNC mode a returned change is in the journal through a plain write before the
// statement returns, so killing the process loses none of them; an .xlsx is recovered as
// an .xlsx.
TEST(DurabilityTest, KilledWriterLosesNothingThatReturned) {
  RegisterDriverOnce();
  const std::pair<const char*, const char*> runs[] = {
      {"killed.xls", "FULL"},  {"killed.xls", "NORMAL"},  {"killed.xls", "OFF"},
      {"killed.xlsx", "FULL"}, {"killed.xlsx", "NORMAL"}, {"killed.xlsx", "OFF"}};
  for (const auto& [name, sync] : runs) {
    SCOPED_TRACE(std::string(name) + " " + sync);
    TempDir dir;
    std::string book = dir.file(name);
    int fds[2];
    ASSERT_EQ(pipe(fds), 0);
    pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
      close(fds[0]);
      Connection c;
      if (!c.Open(LibraryConnectionString(book) + ";SYNC=" + sync).ok()) _exit(2);
      if (!c.Exec("CREATE TABLE [S] ([n] char(255), [pad] char(255))").ok()) _exit(3);
      for (int i = 1;; ++i) {
        std::string sql = "INSERT INTO [S$A1:X1] VALUES (" + std::to_string(i) +
                          ", 'padding that makes the journal grow faster')";
        if (!c.Exec(sql).ok()) _exit(4);
        if (write(fds[1], &i, sizeof i) != sizeof i) _exit(5);  // i has returned
      }
    }
    close(fds[1]);
    int returned = 0, n;
    while (returned < 300 && read(fds[0], &n, sizeof n) == sizeof n) returned = n;
    kill(child, SIGKILL);
    while (read(fds[0], &n, sizeof n) == sizeof n) returned = n;
    close(fds[0]);
    int status = 0;
    waitpid(child, &status, 0);
    ASSERT_TRUE(WIFSIGNALED(status)) << "writer stopped early with " << WEXITSTATUS(status);
    ASSERT_GE(returned, 300);

    // The file alone is a whole workbook (possibly behind the journal).
    xls::Workbook wb;
    ASSERT_TRUE(xls::ReadWorkbook(book, &wb).ok());

    Connection c;
    ASSERT_TRUE(c.Open(LibraryConnectionString(book)).ok());
    auto rows = c.Query("SELECT [n] FROM [S]");
    ASSERT_GE(rows.size(), 1u + returned);
    ASSERT_LE(rows.size(), 2u + returned);  // the statement in flight may have landed too
    for (std::size_t i = 1; i < rows.size(); ++i) EXPECT_EQ(rows[i][0], std::to_string(i));
    c.Close();

    // Recovery folded the journal: the file holds everything on its own, in its format.
    ASSERT_TRUE(xls::ReadWorkbook(book, &wb).ok());
    EXPECT_EQ(wb.findSheet("S")->usedRows(), static_cast<int>(rows.size()));
    char magic[2] = {0, 0};
    std::ifstream(book, std::ios::binary).read(magic, 2);
    EXPECT_EQ(magic[0] == 'P' && magic[1] == 'K', book.back() == 'x') << "the format changed";
  }
}

// SYNC takes OFF, NORMAL or FULL; anything else fails to connect and says what it takes.
TEST(DurabilityTest, UnknownSyncModeFailsToConnect) {
  TempDir dir;
  RegisterDriverOnce();
  Connection c;
  Diag d = c.Open(LibraryConnectionString(dir.file("s.xls")) + ";SYNC=sometimes");
  EXPECT_EQ(d.state, "08001");
  EXPECT_NE(d.message.find("SYNC must be OFF, NORMAL or FULL, not 'sometimes'"), std::string::npos)
      << d.message;
  EXPECT_FALSE(std::filesystem::exists(dir.file("s.xls")));
  ASSERT_TRUE(c.Open(LibraryConnectionString(dir.file("s.xls")) + "; sync = full").ok());
}

// Two processes append to one workbook at once: the file locks serialize them, so every row
// of each lands exactly once and each writer's rows keep their order.
TEST(DurabilityTest, TwoWritingProcessesAreSerialized) {
  TempDir dir;
  std::string book = dir.file("two.xls");
  RegisterDriverOnce();
  {
    Connection c;
    ASSERT_TRUE(c.Open(LibraryConnectionString(book)).ok());
    ASSERT_TRUE(c.Exec("CREATE TABLE [S] ([who] char(255), [n] char(255))").ok());
  }
  const int kRows = 150;
  pid_t writers[2];
  for (int w = 0; w < 2; ++w) {
    writers[w] = fork();
    ASSERT_GE(writers[w], 0);
    if (writers[w] == 0) {
      Connection c;
      if (!c.Open(LibraryConnectionString(book)).ok()) _exit(2);
      for (int i = 0; i < kRows; ++i) {
        std::string sql =
            "INSERT INTO [S$A1:X1] VALUES (w" + std::to_string(w) + ", " + std::to_string(i) + ")";
        if (!c.Exec(sql).ok()) _exit(3);
      }
      c.Close();
      _exit(0);
    }
  }
  for (pid_t p : writers) {
    int status = 0;
    waitpid(p, &status, 0);
    ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
  }
  Connection c;
  ASSERT_TRUE(c.Open(LibraryConnectionString(book)).ok());
  auto rows = c.Query("SELECT * FROM [S]");
  ASSERT_EQ(rows.size(), 1u + 2 * kRows);
  int next[2] = {0, 0};
  for (std::size_t i = 1; i < rows.size(); ++i) {
    int w = rows[i][0] == "w1" ? 1 : 0;
    EXPECT_EQ(rows[i][0], "w" + std::to_string(w));
    EXPECT_EQ(rows[i][1], std::to_string(next[w]++));
  }
  EXPECT_EQ(next[0], kRows);
  EXPECT_EQ(next[1], kRows);
}

}  // namespace
}  // namespace xlsodbc::test
