// Commit, transactions, rollback, deletion and positional rows in text mode.
#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <vector>

#include "fileio/SysCalls.h"
#include "tests/spreadsheet/TestAccess.h"
#include "tests/support/TempDir.h"

namespace {

using testing_support::ReadFile;
using testing_support::TempDir;
using testing_support::WriteFile;

CStringArray Values(std::initializer_list<const char*> values) {
  CStringArray a;
  for (const char* v : values) a.Add(v);
  return a;
}

class SaveTest : public ::testing::Test {
 protected:
  std::string Path() const { return dir_.file("t.txt"); }
  TempDir dir_;
};

TEST_F(SaveTest, CommitWritesEveryLineVerbatimWithCrLf) {
  WriteFile(Path(), "a;b\n1;2");  // LF and a missing final end become CRLF
  CSpreadSheet s(Path().c_str(), ";", false);
  ASSERT_TRUE(s.Commit());
  EXPECT_EQ(ReadFile(Path()), "a;b\r\n1;2\r\n");
  EXPECT_EQ(ReadFile(Path()).size(), 10u);
}

TEST_F(SaveTest, EmptySheetCommitsAnEmptyFile) {
  WriteFile(Path(), "");
  CSpreadSheet s(Path().c_str(), ";", false);
  ASSERT_TRUE(s.Commit());
  EXPECT_TRUE(std::filesystem::exists(Path()));
  EXPECT_EQ(std::filesystem::file_size(Path()), 0u);
}

TEST_F(SaveTest, TransactionHoldsEditsUntilCommit) {
  WriteFile(Path(), "a;b\r\n");
  CSpreadSheet s(Path().c_str(), ";", false);
  s.BeginTransaction();
  EXPECT_TRUE(s.GetTransactionStatus());
  CStringArray r1 = Values({"1", "2"}), r2 = Values({"3", "4"});
  ASSERT_TRUE(s.AddRow(r1));
  ASSERT_TRUE(s.AddRow(r2));
  EXPECT_EQ(ReadFile(Path()), "a;b\r\n");
  ASSERT_TRUE(s.Commit());
  EXPECT_FALSE(s.GetTransactionStatus());
  EXPECT_EQ(ReadFile(Path()), "a;b\r\n\"1\";\"2\"\r\n\"3\";\"4\"\r\n");
}

TEST_F(SaveTest, RollBackReloadsTheFileAndLeavesItUntouched) {
  WriteFile(Path(), "a;b\r\n1;2\r\n");
  CSpreadSheet s(Path().c_str(), ";", false);
  s.BeginTransaction();
  CStringArray wide = Values({"1", "2", "3"});
  ASSERT_TRUE(s.AddRow(wide));
  ASSERT_TRUE(s.AddRow(wide));
  EXPECT_EQ(s.GetTotalRows(), 4);
  ASSERT_TRUE(s.RollBack());
  EXPECT_FALSE(s.GetTransactionStatus());
  EXPECT_EQ(ReadFile(Path()), "a;b\r\n1;2\r\n");
  EXPECT_EQ(s.GetTotalRows(), 2);
  EXPECT_EQ(s.GetTotalColumns(), 3);  // the column count never shrinks on reload
  CSpreadSheetTestAccess peek(s);
  ASSERT_EQ(peek.rowLines().GetSize(), 2);
  EXPECT_EQ(std::string(peek.rowLines()[1]), "1;2");
}

TEST_F(SaveTest, RollBackFailureKeepsTheTransaction) {
  WriteFile(Path(), "a;b\r\n");
  CSpreadSheet s(Path().c_str(), ";", false);
  s.BeginTransaction();
  std::filesystem::remove(Path());
  EXPECT_FALSE(s.RollBack());
  EXPECT_EQ(std::string(s.GetLastError()), "Error in returning to previous state\n");
  EXPECT_TRUE(s.GetTransactionStatus());
}

// Makes every write fail with ENOSPC while alive.
struct DiskFull {
  DiskFull() {
    fileio::Sys().write = [](int, const void*, size_t) -> ssize_t {
      errno = ENOSPC;
      return -1;
    };
  }
  ~DiskFull() { fileio::ResetSysCalls(); }
};

TEST_F(SaveTest, WriteFailuresReportAndKeepTheTransaction) {
  WriteFile(Path(), "a;b\r\n");
  CSpreadSheet s(Path().c_str(), ";", false);
  s.BeginTransaction();
  {
    DiskFull full;
    EXPECT_FALSE(s.Commit());
  }
  EXPECT_EQ(std::string(s.GetLastError()), "Error writing file\n");
  EXPECT_TRUE(s.GetTransactionStatus());

  // A path that cannot be opened for writing at all (a folder).
  CSpreadSheet folder(dir_.path().c_str(), ";", false);
  folder.BeginTransaction();
  EXPECT_FALSE(folder.Commit());
  EXPECT_EQ(std::string(folder.GetLastError()), "Error writing file\n");
  EXPECT_TRUE(folder.GetTransactionStatus());

  // An edit outside a transaction does not report its failed save.
  CSpreadSheet t(Path().c_str(), ";", false);
  CStringArray row = Values({"x"});
  DiskFull full;
  EXPECT_TRUE(t.AddRow(row));
  EXPECT_EQ(std::string(t.GetLastError()), "Error writing file\n");
}

TEST_F(SaveTest, DeleteSheetEmptiesTheFileOrWaitsForCommit) {
  WriteFile(Path(), "a;b\r\n1;2\r\n");
  {
    CSpreadSheet s(Path().c_str(), ";", false);
    s.BeginTransaction();
    ASSERT_TRUE(s.DeleteSheet());
    EXPECT_EQ(s.GetTotalRows(), 0);
    EXPECT_EQ(s.GetTotalColumns(), 0);
    EXPECT_EQ(ReadFile(Path()), "a;b\r\n1;2\r\n");
    ASSERT_TRUE(s.Commit());
    EXPECT_TRUE(std::filesystem::exists(Path()));
    EXPECT_EQ(std::filesystem::file_size(Path()), 0u);
  }
  WriteFile(Path(), "a;b\r\n1;2\r\n");
  CSpreadSheet s(Path().c_str(), ";", false);
  ASSERT_TRUE(s.DeleteSheet("ignored"));
  EXPECT_EQ(std::filesystem::file_size(Path()), 0u);
  CSpreadSheetTestAccess peek(s);
  EXPECT_FALSE(peek.appendMode());
  // With appendMode false the next AddHeaders sets a fresh header.
  CStringArray h = Values({"x", "y"});
  ASSERT_TRUE(s.AddHeaders(h));
  EXPECT_EQ(ReadFile(Path()), "\"x\";\"y\"\r\n");
}

TEST_F(SaveTest, RoundTripThroughCommitAndAFreshObject) {
  // What the row line format carries: anything but the separator pattern, and a value
  // that is the whole line of a one-column row still reads back (as a failed read).
  const std::vector<std::string> values = {
      "plain", "", " spaced out ", "semi;colon", "quote\"inside", "\"", "caf\xC3\xA9",
      "\xFF\xFE raw", "tab\there", ";;", "\";x"};
  CSpreadSheet s(Path().c_str(), ";", false);
  CStringArray header, row;
  for (size_t i = 0; i < values.size(); ++i) {
    header.Add(CString(("c" + std::to_string(i)).c_str()));
    row.Add(values[i].c_str());
  }
  s.BeginTransaction();
  ASSERT_TRUE(s.AddHeaders(header));
  ASSERT_TRUE(s.AddRow(row));
  ASSERT_TRUE(s.Commit());

  CSpreadSheet back(Path().c_str(), ";", false);
  for (size_t i = 0; i < values.size(); ++i) {
    CString cell;
    ASSERT_TRUE(back.ReadCell(cell, static_cast<short>(i + 1), 2)) << i;
    EXPECT_EQ(cell.str(), values[i]) << i;
  }

  // A value holding quote + delimiter + quote is cut in two on reading.
  CSpreadSheet cut(dir_.file("cut.txt").c_str(), ";", false);
  CStringArray bad = Values({"a\";\"b", "c"});
  ASSERT_TRUE(cut.AddRow(bad, 1L, true));
  CSpreadSheet cutBack(dir_.file("cut.txt").c_str(), ";", false);
  CStringArray got;
  ASSERT_TRUE(cutBack.ReadRow(got, 1));
  ASSERT_EQ(got.GetSize(), 3);
  EXPECT_EQ(std::string(got[0]), "a");
  EXPECT_EQ(std::string(got[1]), "b");
}

TEST_F(SaveTest, PositionalRowsInsertWithoutWriting) {
  WriteFile(Path(), "a,b\r\n");
  CSpreadSheet s(Path().c_str(), ",", false);
  CStringArray v = Values({"a", "b"});
  EXPECT_TRUE(s.AddRow(v, 0));  // int row 0: nothing happens
  EXPECT_EQ(s.GetTotalRows(), 1);
  EXPECT_TRUE(s.AddRow(v, 2));
  EXPECT_EQ(s.GetTotalRows(), 2);
  EXPECT_TRUE(s.AddRowData("x;y", 1));
  CSpreadSheetTestAccess peek(s);
  ASSERT_EQ(peek.rowLines().GetSize(), 3);
  EXPECT_EQ(std::string(peek.rowLines()[0]), "x;y");
  EXPECT_EQ(std::string(peek.rowLines()[2]), "\"a\",\"b\"");
  EXPECT_TRUE(s.AddRowData("far", 6));  // grows with empty lines up to the position
  EXPECT_EQ(peek.rowLines().GetSize(), 6);
  EXPECT_EQ(std::string(peek.rowLines()[4]), "");
  EXPECT_EQ(s.GetTotalRows(), 4);  // one per insertion, whatever the growth
  EXPECT_EQ(s.GetCurrentRow(), 2);  // as the load left it
  EXPECT_THROW(s.AddRowData("neg", -1), CInvalidArgException*);
  EXPECT_TRUE(s.Commit(true));
  EXPECT_EQ(ReadFile(Path()), "a,b\r\n");  // the single-row commit writes no text file
}

}  // namespace
