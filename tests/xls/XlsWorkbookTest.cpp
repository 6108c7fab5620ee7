// The cell model's own behaviour: cell text kept in place or on the heap, and cells that
// move as their rows grow.
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "xls/Xls.h"

namespace {

using xls::CellString;

// n bytes, with a NUL and bytes above 0x7F among them, different for each seed.
std::string Bytes(std::size_t n, char seed) {
  std::string s;
  for (std::size_t i = 0; i < n; ++i) s.push_back(static_cast<char>(seed + i * 37));
  if (n > 2) s[n / 2] = '\0';
  return s;
}

TEST(XlsCellString, KeepsEveryLengthAcrossCopyAndMove) {
  for (std::size_t n :
       {std::size_t{0}, std::size_t{1}, CellString::kInline - 1, CellString::kInline,
        CellString::kInline + 1, std::size_t{300}, std::size_t{40000}}) {
    const std::string text = Bytes(n, 'a');
    CellString s(text);
    EXPECT_EQ(s.size(), n);
    EXPECT_EQ(s, text) << n;

    CellString copy(s);
    copy = std::string_view("changed");
    EXPECT_EQ(s, text) << "a copy shares nothing with its source, " << n;

    CellString moved(std::move(s));
    EXPECT_EQ(moved, text) << n;
    EXPECT_TRUE(s.empty()) << n;  // a moved-from text is empty
    s = std::move(moved);
    EXPECT_EQ(s, text) << n;

    CellString assigned;
    assigned = s;
    EXPECT_EQ(assigned, text) << n;
  }
}

TEST(XlsCellString, ReassignedBetweenInPlaceAndHeap) {
  // Each step starts from what the one before left: short to long, long to long, long to
  // short; under the leak checker, a block not freed on the way fails the run.
  CellString s;
  std::size_t lengths[] = {5, 30, 3, 25, 25, 0, 21, 20, 64, 1};
  char seed = 'A';
  for (std::size_t n : lengths) {
    const std::string text = Bytes(n, seed++);
    s = std::string_view(text);
    EXPECT_EQ(s, text) << n;
    EXPECT_EQ(std::string(s.view()), text) << n;
  }
  s.clear();
  EXPECT_TRUE(s.empty());
  EXPECT_EQ(s, "");
}

TEST(XlsCellString, AssignsFromAViewOfItsOwnText) {
  for (std::size_t n : {std::size_t{12}, std::size_t{20}, std::size_t{50}}) {
    for (std::size_t from : {std::size_t{0}, std::size_t{1}, n - 5, n - 1}) {
      const std::string text = Bytes(n, 'k');
      CellString s(text);
      s = s.view().substr(from);
      EXPECT_EQ(s, text.substr(from)) << n << " from " << from;
    }
    CellString s(Bytes(n, 'k'));
    const CellString& same = s;
    s = same;
    EXPECT_EQ(s, Bytes(n, 'k')) << "self-assignment, " << n;
  }
}

TEST(XlsSheet, CellsKeepTheirTextAsRowsGrowAndClear) {
  // Rows reallocate as they grow, moving every cell; long texts must come along unharmed.
  xls::Sheet sheet("S");
  for (int c = 255; c >= 0; c -= 3) {
    sheet.set(0, c, xls::Cell::Text(Bytes(static_cast<std::size_t>(c % 40), 'a')));
  }
  for (int c = 0; c < 256; ++c) sheet.set(1, c, xls::Cell::Text(Bytes(25, static_cast<char>(c))));
  for (int c = 255; c >= 0; c -= 3) {
    EXPECT_EQ(sheet.at(0, c).text, Bytes(static_cast<std::size_t>(c % 40), 'a')) << c;
  }
  for (int c = 0; c < 256; ++c) ASSERT_EQ(sheet.at(1, c).text, Bytes(25, static_cast<char>(c)));

  xls::Sheet copy = sheet;
  sheet.clear(1, 255);
  sheet.set(1, 0, xls::Cell::Number(2));
  EXPECT_EQ(copy.at(1, 255).text, Bytes(25, static_cast<char>(255)));
  EXPECT_EQ(copy.at(1, 0), xls::Cell::Text(Bytes(25, 0)));
  EXPECT_TRUE(sheet.at(1, 0).text.empty());
  EXPECT_EQ(sheet.at(1, 0).number, 2);
}

// A name scoped to a sheet hides a workbook-wide one of the same name there, names match
// ignoring case, and removing a sheet drops the names on it and renumbers the rest.
TEST(XlsDefinedNames, ScopeCaseAndSheetRemoval) {
  xls::Workbook wb;
  for (const char* name : {"A", "B", "C"}) wb.addSheet(name);
  auto add = [&wb](const char* name, int scope, int sheet) {
    xls::DefinedName n;
    n.name = name;
    n.scopeSheet = scope;
    n.sheet = sheet;
    wb.addName(n);
  };
  add("Data", -1, 0);
  add("Data", 2, 2);
  add("Other", 1, 1);
  add("Late", -1, 2);
  struct Lookup {
    const char* name;
    int scope;
    int sheet;  // of the name found, -1 for none
  } lookups[] = {{"Data", -1, 0},   {"data", -1, 0}, {"DATA", 2, 2}, {"Data", 0, 0},
                 {"Other", -1, -1}, {"other", 1, 1}, {"Late", 1, 2}, {"Nope", -1, -1}};
  for (const Lookup& l : lookups) {
    const xls::DefinedName* found = wb.findName(l.name, l.scope);
    EXPECT_EQ(found ? found->sheet : -1, l.sheet) << l.name << " in " << l.scope;
  }
  wb.removeSheet(1);
  ASSERT_EQ(wb.names().size(), 3u);                  // "Other" was scoped to the removed sheet
  EXPECT_EQ(wb.findName("Data", 1)->scopeSheet, 1);  // sheet C is now index 1
  EXPECT_EQ(wb.findName("Late")->sheet, 1);
  wb.removeSheet(1);
  ASSERT_EQ(wb.names().size(), 1u);
  EXPECT_EQ(wb.names()[0].sheet, 0);
}

}  // namespace
