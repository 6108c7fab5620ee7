// The in-process "Excel.Application" by DISPID, as the report path and other callers see
// it through the automation seam.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <functional>
#include <string>

#include "platform/Automation.h"
#include "platform/ExcelDispIds.h"
#include "tests/excel-server/ServerProbe.h"

namespace {

using namespace excel_dispid;

class ServerTest : public ::testing::Test {
 protected:
  void SetUp() override {
    setenv("SPREADSHEET_AUTOMATION_SERVER", EXCEL_SERVER_PATH, 1);
    setenv("SPREADSHEET_EXCEL_HANDOFF", "", 1);
    unsetenv("SPREADSHEET_AUTOMATION_DISABLE");
    unsetenv("DISPLAY");  // never launch a viewer from a test
    unsetenv("WAYLAND_DISPLAY");
    ASSERT_TRUE(app.CreateDispatch("Excel.Application"));
    books.AttachDispatch(app.GetDispatchProperty(kWorkbooks));
    COleVariant missing;
    missing.SetError(DISP_E_PARAMNOTFOUND);
    book.AttachDispatch(books.CallObjectMethod(kAdd, &missing.get(), 1));
    sheets.AttachDispatch(book.GetDispatchProperty(kSheets));
    sheet.AttachDispatch(Item(1));
  }

  IDispatch* Item(short index) {
    COleVariant v(index, VT_I2);
    return sheets.GetDispatchProperty(kItem, &v.get(), 1);
  }
  IDispatch* Range(COleDispatchDriver& on, const char* a, const char* b) {
    COleVariant args[2] = {COleVariant(a), COleVariant(b)};
    VARIANT raw[2] = {args[0].get(), args[1].get()};
    return on.GetDispatchProperty(kRange, raw, 2);
  }
  xls::Workbook Model() {
    xls::Workbook wb;
    EXPECT_TRUE(LastServerWorkbook(&wb));
    return wb;
  }
  // HRESULT and description of the dispatch exception the call raises; 0 when none.
  template <typename Call>
  static std::pair<HRESULT, std::string> Failure(Call call) {
    try {
      call();
    } catch (COleDispatchException* e) {
      std::pair<HRESULT, std::string> out{e->m_scError, e->m_strDescription.GetString()};
      e->Delete();
      return out;
    }
    return {0, ""};
  }

  COleDispatchDriver app, books, book, sheets, sheet;
};

// Made visible with the hand-off variable set but empty, the workbook stays in memory as it
// was (a named file needs the codec's writer: the runtime-folder test below covers that).
TEST_F(ServerTest, NewWorkbookHasThreeDefaultSheetsAndStaysWhenMadeVisible) {
  app.SetProperty(kVisible, COleVariant(1, VT_BOOL).get());
  xls::Workbook wb = Model();
  ASSERT_EQ(wb.sheets().size(), 3u);
  EXPECT_EQ(wb.sheets()[0].name(), "Sheet1");
  EXPECT_EQ(wb.sheets()[1].name(), "Sheet2");
  EXPECT_EQ(wb.sheets()[2].name(), "Sheet3");
}

TEST_F(ServerTest, BadCallsRaiseExcelLikeErrors) {
  COleDispatchDriver range(Range(sheet, "A1", "B2"));
  COleDispatchDriver borders(range.GetDispatchProperty(kBorders));
  struct Case {
    const char* what;
    std::function<void()> call;
    HRESULT status;
    const char* description;
  } cases[] = {
      {"sheet 0", [&] { COleDispatchDriver s(Item(0)); }, DISP_E_EXCEPTION, "Invalid index."},
      {"sheet 4", [&] { COleDispatchDriver s(Item(4)); }, DISP_E_EXCEPTION, "Invalid index."},
      {"address without a column", [&] { COleDispatchDriver r(Range(sheet, "A1", "5")); },
       DISP_E_EXCEPTION, "Method 'Range' of object '_Worksheet' failed"},
      {"column past IV", [&] { COleDispatchDriver r(Range(sheet, "A1", "IW1")); }, DISP_E_EXCEPTION,
       "Method 'Range' of object '_Worksheet' failed"},
      {"row past 65536", [&] { COleDispatchDriver r(Range(sheet, "A1", "A65537")); },
       DISP_E_EXCEPTION, "Method 'Range' of object '_Worksheet' failed"},
      {"weight 5", [&] { borders.SetProperty(kWeight, COleVariant(5, VT_I2).get()); },
       DISP_E_EXCEPTION, "Unable to set the Weight property of the Borders class"},
      {"weight 0", [&] { borders.SetProperty(kWeight, COleVariant(0, VT_I2).get()); },
       DISP_E_EXCEPTION, "Unable to set the Weight property of the Borders class"},
      {"duplicate sheet name", [&] { sheet.SetStringProperty(kName, "sheet2"); }, DISP_E_EXCEPTION,
       "That name is already taken. Try a different one."},
      {"unknown DISPID", [&] { sheet.Invoke(0x7777, DISPATCH_PROPERTYGET, nullptr, 0, nullptr); },
       DISP_E_MEMBERNOTFOUND, nullptr},
      {"put of a get-only member", [&] { sheet.SetProperty(kRange, COleVariant("A1").get()); },
       DISP_E_MEMBERNOTFOUND, nullptr},
  };
  for (const Case& c : cases) {
    auto [status, description] = Failure(c.call);
    EXPECT_EQ(status, c.status) << c.what;
    if (c.description != nullptr) {
      EXPECT_EQ(description, c.description) << c.what;
    }
  }
}

TEST_F(ServerTest, BorderWeightsMapToLineStyles) {
  const std::pair<short, xls::Border> weights[] = {{1, xls::Border::kHair},
                                                   {2, xls::Border::kThin},
                                                   {3, xls::Border::kMedium},
                                                   {4, xls::Border::kThick}};
  short column = 0;
  for (auto [weight, border] : weights) {
    std::string cell(1, static_cast<char>('A' + column));
    COleDispatchDriver range(Range(sheet, (cell + "1").c_str(), (cell + "2").c_str()));
    COleDispatchDriver borders(range.GetDispatchProperty(kBorders));
    borders.SetProperty(kWeight, COleVariant(weight, VT_I2).get());
    xls::Workbook wb = Model();
    for (int row = 0; row < 2; ++row) {
      const xls::Style& s = wb.styles()[wb.sheets()[0].at(row, column).style];
      EXPECT_EQ(s.left, border) << "weight " << weight;
      EXPECT_EQ(s.right, border);
      EXPECT_EQ(s.top, border);
      EXPECT_EQ(s.bottom, border);
    }
    EXPECT_EQ(wb.styles()[wb.sheets()[0].at(2, column).style].top, xls::Border::kNone);
    ++column;
  }
}

TEST_F(ServerTest, Value2TakesTheArrayPartThatFitsAndScalarsFillTheRange) {
  COleSafeArray array;
  DWORD bounds[2] = {3, 3};  // larger than the 2 x 2 range
  array.Create(VT_BSTR, 2, bounds);
  for (long r = 0; r < 3; ++r)
    for (long c = 0; c < 3; ++c) {
      long index[2] = {r, c};
      std::string text = "r" + std::to_string(r) + "c" + std::to_string(c);
      BSTR b = AutomationStringFromText(text.c_str());
      array.PutElement(index, b);
      SysFreeString(b);
    }
  COleDispatchDriver range(Range(sheet, "B2", "C3"));
  range.SetProperty(kValue2, array.get());
  xls::Workbook wb = Model();
  const xls::Sheet& s = wb.sheets()[0];
  EXPECT_EQ(s.at(1, 1).text, "r0c0");
  EXPECT_EQ(s.at(2, 2).text, "r1c1");
  EXPECT_TRUE(s.at(1, 3).isEmpty());
  EXPECT_TRUE(s.at(3, 1).isEmpty());
  EXPECT_EQ(s.usedRows(), 3);
  EXPECT_EQ(s.usedColumns(), 3);

  range.SetProperty(kValue2, COleVariant("x").get());
  wb = Model();
  for (int r = 1; r <= 2; ++r)
    for (int c = 1; c <= 2; ++c) EXPECT_EQ(wb.sheets()[0].at(r, c).text, "x");

  COleVariant empty;
  range.SetProperty(kValue2, empty.get());
  EXPECT_EQ(Model().sheets()[0].usedRows(), 0);
}

TEST_F(ServerTest, AutoFitSizesColumnsToTheirLongestText) {
  COleDispatchDriver a(Range(sheet, "A1", "A1"));
  a.SetProperty(kValue2, COleVariant("a much longer text").get());
  COleDispatchDriver b(Range(sheet, "B5", "B5"));
  b.SetProperty(kValue2, COleVariant("ab").get());
  COleDispatchDriver block(Range(sheet, "A1", "C2"));
  COleDispatchDriver columns(block.GetDispatchProperty(kEntireColumn));
  columns.Invoke(kAutoFit, DISPATCH_METHOD, nullptr, 0, nullptr);
  const xls::Sheet s = Model().sheets()[0];
  // The whole column counts, not only the rows of the range it came from.
  EXPECT_GT(s.columnWidth(0), s.columnWidth(1));
  EXPECT_GE(s.columnWidth(0), 18 * 256);
  EXPECT_GE(s.columnWidth(1), 2 * 256);
  EXPECT_LT(s.columnWidth(1), 4 * 256);
  EXPECT_EQ(s.columnWidth(2), 0) << "an empty column keeps the standard width";
}

TEST_F(ServerTest, ResizeKeepsTheTopLeftCorner) {
  COleDispatchDriver range(Range(sheet, "B2", "B2"));
  COleVariant missing, columnsWanted(3, VT_I2);
  missing.SetError(DISP_E_PARAMNOTFOUND);
  VARIANT size[2] = {missing.get(), columnsWanted.get()};
  COleDispatchDriver resized(range.GetDispatchProperty(kResize, size, 2));
  COleDispatchDriver font(resized.GetDispatchProperty(kFont));
  font.SetProperty(kBold, COleVariant(1, VT_I2).get());
  const xls::Workbook wb = Model();
  const xls::Sheet& s = wb.sheets()[0];
  for (int c = 0; c < 6; ++c)
    EXPECT_EQ(wb.styles()[s.at(1, c).style].bold, c >= 1 && c <= 3) << "column " << c;
  EXPECT_FALSE(wb.styles()[s.at(2, 1).style].bold);
}

TEST_F(ServerTest, VisibleSavesABookNamedFileInTheRuntimeFolder) {
  namespace fs = std::filesystem;
  fs::path folder = fs::temp_directory_path() / ("handoff-" + std::to_string(::getpid()));
  fs::create_directories(folder);
  unsetenv("SPREADSHEET_EXCEL_HANDOFF");
  unsetenv("DISPLAY");
  unsetenv("WAYLAND_DISPLAY");
  setenv("XDG_RUNTIME_DIR", folder.c_str(), 1);
  std::string name;
  xls::Workbook wb;
  ASSERT_TRUE(LastServerWorkbook(&wb, &name));
  auto [status, description] =
      Failure([&] { app.SetProperty(kVisible, COleVariant(1, VT_BOOL).get()); });
  std::vector<std::string> files;
  for (const auto& entry : fs::directory_iterator(folder))
    files.push_back(entry.path().filename().string());
  if (status != 0) {
    // A codec without a writer: the failure says so and leaves no half-made file behind.
    EXPECT_EQ(status, DISP_E_EXCEPTION);
    EXPECT_NE(description.find("no workbook writer"), std::string::npos) << description;
    EXPECT_TRUE(files.empty());
  } else {
    ASSERT_EQ(files.size(), 1u);
    EXPECT_EQ(files[0], name + ".xls");
  }
  setenv("SPREADSHEET_EXCEL_HANDOFF", "", 1);
  unsetenv("XDG_RUNTIME_DIR");
  fs::remove_all(folder);
}

TEST(ServerCreation, DisabledOrMissingServerFailsLikeNoExcel) {
  struct Case {
    const char* disable;
    const char* server;
    const char* progId;
  } cases[] = {
      {"1", EXCEL_SERVER_PATH, "Excel.Application"},
      {nullptr, "/nonexistent/libexcelserver.so", "Excel.Application"},
      {nullptr, EXCEL_SERVER_PATH, "Word.Application"},
  };
  for (const Case& c : cases) {
    if (c.disable)
      setenv("SPREADSHEET_AUTOMATION_DISABLE", c.disable, 1);
    else
      unsetenv("SPREADSHEET_AUTOMATION_DISABLE");
    setenv("SPREADSHEET_AUTOMATION_SERVER", c.server, 1);
    COleDispatchDriver app;
    COleException error;
    EXPECT_FALSE(app.CreateDispatch(c.progId, &error)) << c.server;
    EXPECT_TRUE(FAILED(error.m_sc));
    EXPECT_EQ(app.m_lpDispatch, nullptr);
  }
  unsetenv("SPREADSHEET_AUTOMATION_DISABLE");
}

}  // namespace

namespace {

TEST(ServerCreation, FoundBesideTheLibraryWithoutTheVariable) {
  unsetenv("SPREADSHEET_AUTOMATION_SERVER");
  unsetenv("SPREADSHEET_AUTOMATION_DISABLE");
  COleDispatchDriver app;
  COleException error;
  ASSERT_TRUE(app.CreateDispatch("Excel.Application", &error)) << std::hex << error.m_sc;
  COleDispatchDriver books(app.GetDispatchProperty(kWorkbooks));
  EXPECT_NE(books.m_lpDispatch, nullptr);
}

}  // namespace
