// The report automation sequence of CSpreadSheet against the in-process server: what the
// user finds in the workbook, and how the sequence fails.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "platform/MessageBox.h"
#include "spreadsheet/SpreadSheet.h"
#include "tests/excel-server/ServerProbe.h"
#include "tests/support/RecordBox.h"

class CSpreadSheetTestAccess {
 public:
  explicit CSpreadSheetTestAccess(CSpreadSheet& s) : s_(s) {}
  const CStringArray& fieldNames() const { return s_.fieldNames; }
  long totalRows() const { return s_.totalRows; }
  const CString& scratchLine() const { return s_.scratchLine; }
  const COleSafeArray& valueArray() const { return s_.valueArray; }
  IDispatch* excelApp() const { return s_.excelApp.m_lpDispatch; }
  IDispatch* workbooks() const { return s_.workbooks.m_lpDispatch; }
  IDispatch* workbook() const { return s_.workbook.m_lpDispatch; }
  IDispatch* worksheet() const { return s_.worksheet.m_lpDispatch; }
  long tableRows() const { return s_.tableRows; }
  short tableColumns() const { return s_.tableColumns; }
  long rows(int which) const {
    return which == 0 ? s_.rmsRows : which == 1 ? s_.priceProtectionRows : s_.scriptValidationRows;
  }
  CString lastColumns() {
    return s_.getRMSlastCol() + s_.getPriceProtectionlastCol() + s_.getScriptValidationlastCol();
  }

 private:
  CSpreadSheet& s_;
};

namespace {

namespace fs = std::filesystem;

using testing_support::RecordBox;
using testing_support::Shown;

class SequenceTest : public ::testing::Test {
 protected:
  void SetUp() override {
    setenv("SPREADSHEET_AUTOMATION_SERVER", EXCEL_SERVER_PATH, 1);
    setenv("SPREADSHEET_EXCEL_HANDOFF", "", 1);
    unsetenv("SPREADSHEET_AUTOMATION_DISABLE");
    unsetenv("DISPLAY");  // never launch a viewer from a test
    unsetenv("WAYLAND_DISPLAY");
    dir = fs::temp_directory_path() / ("automation-" + std::to_string(::getpid()));
    fs::create_directories(dir);
    previous = platform::SetMessageBoxHook(&RecordBox, &shown);
    sheet = std::make_unique<CSpreadSheet>((dir / "report.txt").string().c_str(), ";");
  }
  void TearDown() override {
    sheet.reset();
    platform::SetMessageBoxHook(previous);
    fs::remove_all(dir);
  }

  xls::Workbook Model() {
    xls::Workbook wb;
    EXPECT_TRUE(LastServerWorkbook(&wb));
    return wb;
  }
  template <typename Call>
  static HRESULT DispatchFailure(Call call) {
    try {
      call();
    } catch (COleDispatchException* e) {
      HRESULT hr = e->m_scError;
      e->Delete();
      return hr;
    }
    return 0;
  }

  fs::path dir;
  Shown shown;
  platform::MessageBoxHook previous = nullptr;
  std::unique_ptr<CSpreadSheet> sheet;
};

struct Layout {
  const char* name;
  int sheetIndex;  // 0-based
  int columns;
  long rows;
};

// The formatted blocks of a finished table: rows 2-3 bold and centred, header borders
// medium, data borders thin, only as wide as the layout, and no value in any cell.
void ExpectTable(const xls::Workbook& wb, const Layout& t) {
  const xls::Sheet& s = wb.sheets()[static_cast<std::size_t>(t.sheetIndex)];
  EXPECT_EQ(s.name(), t.name);
  EXPECT_EQ(s.usedRows(), 0) << t.name << ": no cell holds a value";
  int lastRow = static_cast<int>(t.rows) + 3;
  for (int r = 0; r < lastRow + 2; ++r)
    for (int c = 0; c < t.columns + 2; ++c) {
      const xls::Style& st = wb.styles()[s.at(r, c).style];
      bool inside = c < t.columns;
      bool headingRow = inside && (r == 1 || r == 2);
      xls::Border expected = !inside                     ? xls::Border::kNone
                             : r < 3                     ? xls::Border::kMedium
                             : r < lastRow && t.rows > 0 ? xls::Border::kThin
                                                         : xls::Border::kNone;
      SCOPED_TRACE(std::string(t.name) + " row " + std::to_string(r + 1) + " column " +
                   std::to_string(c + 1));
      EXPECT_EQ(st.bold, headingRow);
      EXPECT_EQ(st.vertical, headingRow ? xls::VAlign::kCenter : xls::VAlign::kBottom);
      EXPECT_EQ(st.left, expected);
      EXPECT_EQ(st.right, expected);
      EXPECT_EQ(st.top, expected);
      EXPECT_EQ(st.bottom, expected);
    }
  // Auto-fit saw only empty cells: every column of the block is back at the standard width.
  for (int c = 0; c < t.columns; ++c) EXPECT_EQ(s.columnWidth(c), 0);
}

TEST_F(SequenceTest, ThreeTablesLandOnTheirSheetsFormatted) {
  const Layout tables[] = {
      {"RMS", 0, 31, 5}, {"Price Protection", 1, 11, 10}, {"Script Validation", 2, 12, 0}};
  sheet->initExcel("ignored");
  CSpreadSheetTestAccess access(*sheet);
  ASSERT_NE(access.workbook(), nullptr);
  for (const Layout& t : tables) {
    sheet->initTable(t.rows, t.name);
    EXPECT_EQ(access.valueArray().GetRows(), t.rows + 4);
    EXPECT_EQ(access.valueArray().GetColumns(), t.columns);
    CStringArray row;
    row.Add("u1");
    row.Add("NSE");
    for (long i = 0; i < t.rows; ++i) EXPECT_TRUE(sheet->WriteInExcel(row));
    sheet->onCommitCOM(row);
    EXPECT_EQ(access.totalRows(), 2 + t.rows + 1);
    EXPECT_EQ(access.scratchLine(), "NSE");
    sheet->endTable(t.name);
    EXPECT_EQ(access.valueArray().GetDim(), 0) << "the array is handed over";
    EXPECT_EQ(access.tableRows(), t.rows);
  }
  sheet->endExcel();
  xls::Workbook wb = Model();
  ASSERT_EQ(wb.sheets().size(), 3u);
  for (const Layout& t : tables) ExpectTable(wb, t);
  EXPECT_EQ(shown.count, 0);
}

TEST_F(SequenceTest, EndTableTwiceClearsTheBlockAgain) {
  sheet->initExcel("");
  sheet->initTable(2, "Price Protection");
  sheet->endTable("Price Protection");
  sheet->endTable("Price Protection");
  ExpectTable(Model(), {"Price Protection", 1, 11, 2});
}

TEST_F(SequenceTest, EndTableWithAnotherLayoutFormatsTheSelectedSheet) {
  sheet->initExcel("");
  sheet->initTable(3, "RMS");  // rmsRows = 3
  sheet->initTable(1, "Script Validation");
  sheet->endTable("RMS");  // RMS width and row count, on the Script Validation sheet
  CSpreadSheetTestAccess access(*sheet);
  EXPECT_EQ(access.tableColumns(), 31);
  EXPECT_EQ(access.tableRows(), 3);
  const xls::Workbook wb = Model();
  const xls::Sheet& s = wb.sheets()[2];
  EXPECT_EQ(s.name(), "Script Validation");
  EXPECT_EQ(wb.styles()[s.at(5, 30).style].left, xls::Border::kThin);  // AE6
  EXPECT_EQ(wb.styles()[s.at(6, 0).style].left, xls::Border::kNone);   // A7
  // The RMS sheet got its heading rows formatted but no table finished on it.
  EXPECT_TRUE(wb.styles()[wb.sheets()[0].at(1, 30).style].bold);
  EXPECT_EQ(wb.styles()[wb.sheets()[0].at(0, 0).style].left, xls::Border::kNone);
}

TEST_F(SequenceTest, UnknownNamesRaiseTheDispatchException) {
  sheet->initExcel("");
  CSpreadSheetTestAccess access(*sheet);
  for (const char* name : {"rms", "Unknown", "", "Price protection"}) {
    EXPECT_EQ(DispatchFailure([&] { sheet->initTable(4, name); }), DISP_E_EXCEPTION) << name;
    for (int i = 0; i < 3; ++i) EXPECT_EQ(access.rows(i), 0) << name;
  }
  sheet->initTable(2, "RMS");
  EXPECT_EQ(DispatchFailure([&] { sheet->endTable("rms"); }), DISP_E_EXCEPTION)
      << "no layout: the address has no column";
}

TEST_F(SequenceTest, CallsBeforeASuccessfulStartAreRefused) {
  CStringArray none;
  EXPECT_NE(DispatchFailure([&] { sheet->initTable(1, "RMS"); }), 0);
  EXPECT_NE(DispatchFailure([&] { sheet->WriteHeader(); }), 0);
  EXPECT_NE(DispatchFailure([&] { sheet->endTable("RMS"); }), 0);
  EXPECT_NE(DispatchFailure([&] { sheet->endExcel(); }), 0);
  EXPECT_TRUE(sheet->WriteInExcel(none)) << "counting needs no Excel";
}

TEST_F(SequenceTest, NoExcelShowsTheMessageAndLeavesEverythingEmpty) {
  setenv("SPREADSHEET_AUTOMATION_DISABLE", "1", 1);
  sheet->initExcel("");
  unsetenv("SPREADSHEET_AUTOMATION_DISABLE");
  EXPECT_EQ(shown.count, 1);
  EXPECT_EQ(shown.text, "Couldn't start Excel and get Application object.");
  EXPECT_EQ(shown.style, platform::kMbOk);
  CSpreadSheetTestAccess access(*sheet);
  EXPECT_EQ(access.excelApp(), nullptr);
  EXPECT_EQ(access.workbooks(), nullptr);
  EXPECT_EQ(access.workbook(), nullptr);
  EXPECT_NE(DispatchFailure([&] { sheet->initTable(1, "RMS"); }), 0);
}

TEST_F(SequenceTest, EmptyRowStillCounts) {
  CStringArray empty;
  CSpreadSheetTestAccess access(*sheet);
  long before = access.totalRows();
  EXPECT_TRUE(sheet->WriteInExcel(empty));
  sheet->onCommitCOM(empty);
  EXPECT_EQ(access.totalRows(), before + 2);
}

TEST_F(SequenceTest, LayoutsLoadTheirHeadingsOnce) {
  struct Case {
    void (CSpreadSheet::*fill)();
    INT_PTR size;
    const char* first;
    const char* last;
  } cases[] = {
      {&CSpreadSheet::fillRMSTableColumn, 31, "User ID", "Include Open Position"},
      {&CSpreadSheet::fillPriceProtectionColumn, 11, "User ID", "Market Price [Above 100]"},
      {&CSpreadSheet::fillScriptValidationColumn, 12, "User ID", "Include Open Position"},
  };
  CSpreadSheetTestAccess access(*sheet);
  for (const Case& c : cases) {
    (sheet.get()->*c.fill)();
    (sheet.get()->*c.fill)();
    ASSERT_EQ(access.fieldNames().GetSize(), c.size);
    EXPECT_EQ(access.fieldNames().GetAt(0), c.first);
    EXPECT_EQ(access.fieldNames().GetAt(c.size - 1), c.last);
  }
  EXPECT_EQ(access.fieldNames().GetAt(10), "Force Square Off Mode");
  sheet->fillRMSTableColumn();
  EXPECT_EQ(access.fieldNames().GetAt(10), "Pending Total Qauntity");
  EXPECT_EQ(access.lastColumns(), "AEKL");
}

}  // namespace
