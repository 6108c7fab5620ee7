// A process writing through the driver is killed with SIGKILL mid-way: the workbook still
// opens, and it holds every statement that had returned, once, in order.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>

#include "OdbcTestSupport.h"
#include "xls/Xls.h"

namespace xlsodbc::test {
namespace {

TEST(DurabilityTest, KilledWriterLosesNothingThatReturned) {
  TempDir dir;
  std::string book = dir.file("killed.xls");
  RegisterDriverOnce();
  int fds[2];
  ASSERT_EQ(pipe(fds), 0);
  pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    close(fds[0]);
    Connection c;
    if (!c.Open(LibraryConnectionString(book)).ok()) _exit(2);
    if (!c.Exec("CREATE TABLE [S] ([n] char(255), [pad] char(255))").ok()) _exit(3);
    for (int i = 1;; ++i) {
      std::string sql = "INSERT INTO [S$A1:X1] VALUES (" + std::to_string(i) +
                        ", 'padding that makes the journal fold now and then')";
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

  // Recovery folded the journal: the .xls holds everything on its own.
  ASSERT_TRUE(xls::ReadWorkbook(book, &wb).ok());
  EXPECT_EQ(wb.findSheet("S")->usedRows(), static_cast<int>(rows.size()));
}

}  // namespace
}  // namespace xlsodbc::test
