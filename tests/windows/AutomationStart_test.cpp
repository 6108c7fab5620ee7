// The report automation on Windows without Excel (as under Wine): CoCreateInstance fails,
// the user is told once through the message box, and the rest of the sequence is refused
// rather than crashing. The message box goes through the test hook, so nothing waits for
// a click.
#include <objbase.h>

#include <gtest/gtest.h>

#include <string>

#include "platform/MessageBox.h"
#include "spreadsheet/SpreadSheet.h"
#include "tests/support/RecordBox.h"

namespace {

using testing_support::RecordBox;
using testing_support::Shown;

bool ExcelIsRegistered() {
  CLSID clsid;
  return SUCCEEDED(CLSIDFromProgID(L"Excel.Application", &clsid));
}

TEST(AutomationStartTest, NoExcelShowsTheMessageOnceAndRefusesTheTables) {
  if (ExcelIsRegistered()) GTEST_SKIP() << "Excel is installed here; this checks its absence";
  Shown shown;
  platform::MessageBoxHook previous = platform::SetMessageBoxHook(&RecordBox, &shown);
  {
    CSpreadSheet s("automation-start.txt", ";");
    s.initExcel("");
    EXPECT_EQ(shown.count, 1);
    EXPECT_EQ(shown.text, "Couldn't start Excel and get Application object.");
    EXPECT_EQ(shown.style, static_cast<unsigned>(MB_OK));
    bool refused = false;
    try {
      s.initTable(1, "RMS");
    } catch (COleDispatchException* e) {
      refused = true;
      e->Delete();
    }
    EXPECT_TRUE(refused);
    CStringArray none;
    EXPECT_TRUE(s.WriteInExcel(none)) << "counting rows needs no Excel";
  }
  platform::SetMessageBoxHook(previous);
  EXPECT_EQ(shown.count, 1);
}

}  // namespace
