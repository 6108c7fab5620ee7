// The installer seam: the real libodbcinst over a private odbcinst.ini, and the two
// messages shown when the library or its function is missing.
//
// POSIX only: they configure unixODBC directly (Wine's installer reads its registry).
#if !defined(_WIN32)
#include "platform/OdbcInstaller.h"

#include <dlfcn.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/MessageBox.h"
#include "tests/platform/OdbcTestIni.h"

namespace {

struct Shown {
  std::string text, caption;
  unsigned style = 0;
};

int Record(const char* text, const char* caption, unsigned style, void* context) {
  static_cast<std::vector<Shown>*>(context)->push_back({text, caption, style});
  return platform::kIdOk;
}

class OdbcInstallerTest : public testing::Test {
 protected:
  void SetUp() override {
    odbc_test::Config::Install({{"SQLite3 Peer", odbc_test::SqliteDriverLibrary()},
                                {"Excel Files Peer", odbc_test::SqliteDriverLibrary()}});
    platform::SetMessageBoxHook(Record, &shown_);
  }
  void TearDown() override {
    platform::SetMessageBoxHook(nullptr);
    platform::SetOdbcInstallerNamesForTest(nullptr, nullptr);
  }
  std::vector<Shown> shown_;
};

// The list as descriptions, stopping at the empty one.
std::vector<std::string> Split(const char* list) {
  std::vector<std::string> out;
  for (const char* p = list; *p; p += out.back().size() + 1) out.emplace_back(p);
  return out;
}

TEST_F(OdbcInstallerTest, ListsTheRegisteredDriversAndStaysLoaded) {
  char buffer[2000];
  std::fill(std::begin(buffer), std::end(buffer), 'x');
  WORD used = 0;
  ASSERT_TRUE(platform::GetInstalledOdbcDrivers(buffer, sizeof buffer, &used));
  EXPECT_EQ(Split(buffer), (std::vector<std::string>{"SQLite3 Peer", "Excel Files Peer"}));
  EXPECT_TRUE(shown_.empty());
  // Kept loaded for the process: a no-load open finds it.
  void* again = dlopen("libodbcinst.so.2", RTLD_NOW | RTLD_NOLOAD);
  EXPECT_NE(again, nullptr);
  if (again) dlclose(again);
}

TEST_F(OdbcInstallerTest, MissingLibraryIsReportedOnce) {
  platform::SetOdbcInstallerNamesForTest("libodbcinst-not-here.so.9", nullptr);
  char buffer[64] = "untouched";
  EXPECT_FALSE(platform::GetInstalledOdbcDrivers(buffer, sizeof buffer, nullptr));
  ASSERT_EQ(shown_.size(), 1u);
  EXPECT_EQ(shown_[0].text, "The ODBC installer DLL (ODBCCP32.DLL) is not installed on this system.");
  EXPECT_EQ(shown_[0].caption, "ODBC Installer Error");
  EXPECT_EQ(shown_[0].style, platform::kMbOk | platform::kMbIconInformation);
  EXPECT_STREQ(buffer, "untouched");
}

TEST_F(OdbcInstallerTest, MissingFunctionNamesProgramFunctionAndLibrary) {
  platform::SetOdbcInstallerNamesForTest("libodbcinst.so.2", "SQLGetInstalledDriversGone");
  char buffer[64];
  EXPECT_FALSE(platform::GetInstalledOdbcDrivers(buffer, sizeof buffer, nullptr));
  ASSERT_EQ(shown_.size(), 1u);
  char self[4096] = {0};
  ASSERT_GT(readlink("/proc/self/exe", self, sizeof self - 1), 0);
  const std::string head = std::string("The program ") + self +
                           ", or one of its DLLs attempted to call the function "
                           "SQLGetInstalledDriversGone which is not supported in the loaded ODBC "
                           "installer DLL (";
  const std::string& text = shown_[0].text;
  EXPECT_EQ(text.substr(0, head.size()), head) << text;
  const std::string tail = "). Press OK to proceed.";
  ASSERT_GT(text.size(), head.size() + tail.size());
  EXPECT_EQ(text.substr(text.size() - tail.size()), tail);
  const std::string library = text.substr(head.size(), text.size() - head.size() - tail.size());
  EXPECT_EQ(library.front(), '/') << "the library's full path: " << library;
  EXPECT_NE(library.find("libodbcinst.so.2"), std::string::npos) << library;
  EXPECT_EQ(shown_[0].caption, "ODBC Installer Error");
  EXPECT_EQ(shown_[0].style, platform::kMbIconInformation);
}

BOOL FakeList(char* buffer, WORD size, WORD* used) {
  const char list[] = "One\0Two\0";
  if (size < sizeof list) return FALSE;
  std::copy(std::begin(list), std::end(list), buffer);
  if (used) *used = sizeof list;
  return TRUE;
}

TEST_F(OdbcInstallerTest, ReplacementFunctionStandsInForTheLibrary) {
  platform::SetOdbcInstallerNamesForTest("libodbcinst-not-here.so.9", nullptr);
  auto previous = platform::SetInstalledDriversForTest(FakeList);
  char buffer[32];
  WORD used = 0;
  EXPECT_TRUE(platform::GetInstalledOdbcDrivers(buffer, sizeof buffer, &used));
  EXPECT_EQ(Split(buffer), (std::vector<std::string>{"One", "Two"}));
  EXPECT_EQ(used, 9);
  EXPECT_FALSE(platform::GetInstalledOdbcDrivers(buffer, 4, &used)) << "its failure is the call's";
  platform::SetInstalledDriversForTest(previous);
  EXPECT_TRUE(shown_.empty()) << "no library was loaded";
}

}  // namespace

#endif  // !defined(_WIN32)
