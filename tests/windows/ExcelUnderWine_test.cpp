// Excel mode of the Windows DLL under Wine: odbc32 hands the calls to the host's unixODBC,
// which loads our Linux .xls driver. Wine lists ODBC drivers from its registry and does not
// copy unixODBC's list there, so the test registers the driver in Wine's registry the way
// an installer would on Windows. The workbook path is a host path: the driver runs on the
// host side and Wine maps the same path to drive Z: for the DLL's own file calls.
#include <windows.h>

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>

#include "spreadsheet/SpreadSheet.h"

namespace {

const char kDriver[] = "Excel Workbook Driver (*.xls)";

bool SetValue(const std::string& key, const char* name, const char* value) {
  HKEY k = nullptr;
  if (RegCreateKeyExA(HKEY_LOCAL_MACHINE, key.c_str(), 0, nullptr, 0, KEY_WRITE, nullptr, &k,
                      nullptr) != ERROR_SUCCESS)
    return false;
  const LONG r = RegSetValueExA(k, name, 0, REG_SZ, reinterpret_cast<const BYTE*>(value),
                                static_cast<DWORD>(std::strlen(value) + 1));
  RegCloseKey(k);
  return r == ERROR_SUCCESS;
}

CStringArray Array(std::initializer_list<const char*> values) {
  CStringArray a;
  for (const char* v : values) a.Add(v);
  return a;
}

std::string Row(CSpreadSheet& s, long row) {
  CStringArray values;
  if (!s.ReadRow(values, row)) return "(no row)";
  std::string out;
  for (int i = 0; i < values.GetSize(); ++i) out += (i ? "|" : "") + values[i].str();
  return out;
}

std::string ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream out;
  out << in.rdbuf();
  return out.str();
}

class ExcelUnderWineTest : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(SetValue("Software\\ODBC\\ODBCINST.INI\\ODBC Drivers", kDriver, "Installed"));
    ASSERT_TRUE(SetValue(std::string("Software\\ODBC\\ODBCINST.INI\\") + kDriver, "Driver",
                         XLSODBC_HOST_DRIVER));
    stem_ = std::string(WINE_WORK_DIR) + "/book-" + std::to_string(GetCurrentProcessId());
    std::remove((stem_ + ".xls").c_str());
    std::remove((stem_ + ".csv").c_str());
  }
  void TearDown() override {
    std::remove((stem_ + ".xls").c_str());
    std::remove((stem_ + ".csv").c_str());
  }
  std::string stem_;
};

TEST_F(ExcelUnderWineTest, CommitReadBackAndConvertThroughTheHostDriver) {
  const std::string book = stem_ + ".xls";
  {
    CSpreadSheet s(book.c_str(), "Limits", false);
    ASSERT_EQ(s.GetLastError(), "") << "the registered driver was not found or refused";
    s.BeginTransaction();
    CStringArray header = Array({"Name", "Qty"});
    CStringArray r2 = Array({"r2", "2"}), r3 = Array({"r3", "3"}), r4 = Array({"r4", "4"});
    s.AddHeaders(header);
    s.AddRow(r2);
    s.AddRow(r3);
    s.AddRow(r4);
    EXPECT_TRUE(s.Commit());
  }
  // The same numbering as on Linux: row 2 never reaches the workbook, the last row twice.
  CSpreadSheet back(book.c_str(), "Limits", false);
  EXPECT_EQ(back.GetLastError(), "");
  ASSERT_EQ(back.GetTotalRows(), 4);
  EXPECT_EQ(back.GetTotalColumns(), 2);
  EXPECT_EQ(Row(back, 1), "Name|Qty");
  EXPECT_EQ(Row(back, 2), "r3|3");
  EXPECT_EQ(Row(back, 3), "r4|4");
  EXPECT_EQ(Row(back, 4), "r4|4");

  // To text through the DLL's own file layer, on the path Wine maps.
  EXPECT_TRUE(back.Convert(";"));
  EXPECT_EQ(ReadFile(stem_ + ".csv"),
            "\"Name\";\"Qty\"\r\n\"r3\";\"3\"\r\n\"r4\";\"4\"\r\n\"r4\";\"4\"\r\n");
}

TEST_F(ExcelUnderWineTest, MissingSheetCompletesQuietly) {
  CSpreadSheet s((stem_ + ".xls").c_str(), "NoSuchSheet", false);
  EXPECT_EQ(s.GetLastError(), "");
  EXPECT_EQ(s.GetTotalRows(), 0);
  EXPECT_EQ(s.GetTotalColumns(), 0);
}

}  // namespace
