// Excel mode against its peers on one 65,536 x 31 workbook (a header row and 65,535
// records, text and numbers alternating by column) made by python3-xlwt:
//   load:    constructing CSpreadSheet (the whole sheet through ODBC and our driver)
//            against python3-xlrd reading every cell;
//   convert: CSpreadSheet::Convert to CSV against gnumeric's ssconvert and LibreOffice
//            headless converting the same workbook.
//   save:    the class's whole-sheet save of a new 65,533 x 24 sheet (BeginTransaction,
//            AddHeaders, AddRow x N, Commit, disconnect: CREATE TABLE and one INSERT per row
//            through the driver) against the codec writing the very sheet that save made,
//            in turns.
// Best of N wall-clock runs each; run it from a Release build without sanitizers.
//
// usage: excel_bench [--peers-only | --save-only] [--runs N] [DRIVER.so]
//        (default: the driver built here)
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include "spreadsheet/SpreadSheet.h"
#include "xls/Xls.h"

namespace {

constexpr int kRows = 65536;  // header included
constexpr int kColumns = 31;

double Seconds(const std::function<void()>& f) {
  const auto start = std::chrono::steady_clock::now();
  f();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

double Best(int runs, const std::function<void()>& prepare, const std::function<void()>& f) {
  double best = 1e9;
  for (int i = 0; i < runs; ++i) {
    prepare();
    const double s = Seconds(f);
    if (s < best) best = s;
  }
  return best;
}

void Shell(const std::string& command) {
  if (std::system(command.c_str()) != 0) {
    std::fprintf(stderr, "excel_bench: failed: %s\n", command.c_str());
    std::exit(1);
  }
}

void Row(const char* what, double seconds, double ours) {
  const double cells = static_cast<double>(kRows) * kColumns;
  if (ours > 0) {
    std::printf("  %-34s %8.3f s %10.0f cells/s   %6.2fx ours\n", what, seconds, cells / seconds,
                seconds / ours);
  } else {
    std::printf("  %-34s %8.3f s %10.0f cells/s\n", what, seconds, cells / seconds);
  }
}

// The whole-sheet save of a new 65,533 x 24 sheet of text (the class quotes every value)
// against the codec writing what that save made, in turns.
void BenchSave(const std::string& dir, int runs) {
  constexpr int kSaveRows = 65533, kSaveColumns = 24;
  CStringArray header;
  std::vector<CStringArray> rows(kSaveRows);
  for (int c = 0; c < kSaveColumns; ++c) header.Add(CString(("col" + std::to_string(c)).c_str()));
  for (int r = 0; r < kSaveRows; ++r) {
    for (int c = 0; c < kSaveColumns; ++c) {
      const std::string v = c % 2 ? "v" + std::to_string(r) + "_" + std::to_string(c)
                                  : std::to_string(r * kSaveColumns + c);
      rows[static_cast<std::size_t>(r)].Add(CString(v.c_str()));
    }
  }
  const std::string book = dir + "/save.xls", copy = dir + "/codec.xls";
  std::printf("whole-sheet save, %d rows x %d columns, in turns:\n", kSaveRows, kSaveColumns);
  double bestSave = 1e9, bestCodec = 1e9;
  std::vector<double> ratios;
  for (int turn = 1; turn <= runs; ++turn) {
    std::filesystem::remove(book);
    const double save = Seconds([&] {
      CSpreadSheet s(book.c_str(), "Sheet1", false);
      s.BeginTransaction();
      s.AddHeaders(header);
      for (CStringArray& row : rows) s.AddRow(row);
      if (!s.Commit()) std::fprintf(stderr, "excel_bench: Commit failed\n");
    });
    xls::Workbook wb;
    if (!xls::ReadWorkbook(book, &wb).ok() || wb.findSheet("Sheet1") == nullptr) {
      std::fprintf(stderr, "excel_bench: the saved workbook does not read back\n");
      std::exit(1);
    }
    std::filesystem::remove(copy);
    const double codec = Seconds([&] {
      if (!xls::WriteWorkbook(copy, wb).ok()) std::fprintf(stderr, "excel_bench: write failed\n");
    });
    std::printf(
        "  turn %d: CSpreadSheet save %.3f s, codec write %.3f s (%d rows, %.1f MB): "
        "%.2fx the codec\n",
        turn, save, codec, wb.findSheet("Sheet1")->usedRows(),
        std::filesystem::file_size(book) / 1e6, save / codec);
    bestSave = std::min(bestSave, save);
    bestCodec = std::min(bestCodec, codec);
    ratios.push_back(save / codec);
  }
  // Within a turn both sides meet the machine in one state: the figure is the median turn.
  std::sort(ratios.begin(), ratios.end());
  const std::size_t n = ratios.size();
  const double median = n % 2 ? ratios[n / 2] : (ratios[n / 2 - 1] + ratios[n / 2]) / 2;
  std::printf("  median turn: %.2fx the codec; best against best: %.3f s / %.3f s = %.2fx\n",
              median, bestSave, bestCodec, bestSave / bestCodec);
}

}  // namespace

int main(int argc, char** argv) {
  bool peersOnly = false, saveOnly = false;
  int runs = 3;
  std::string driver;
  for (int i = 1; i < argc; ++i) {
    const std::string a = argv[i];
    if (a == "--peers-only") {
      peersOnly = true;
    } else if (a == "--save-only") {
      saveOnly = true;
    } else if (a == "--runs" && i + 1 < argc) {
      runs = std::atoi(argv[++i]);
    } else if (!a.empty() && a[0] == '-') {
      std::fprintf(stderr, "usage: excel_bench [--peers-only | --save-only] [--runs N] [DRIVER.so]\n");
      return a == "--help" ? 0 : 2;
    } else {
      driver = a;
    }
  }
#ifdef XLSODBC_DRIVER_PATH
  if (driver.empty()) driver = XLSODBC_DRIVER_PATH;  // the driver built beside this program
#endif
  if (!peersOnly && driver.empty()) {
    std::fprintf(stderr, "usage: excel_bench [--peers-only | --save-only] [--runs N] [DRIVER.so]\n");
    return 2;
  }

  char pattern[] = "/tmp/excel-bench-XXXXXX";
  const std::string dir = mkdtemp(pattern);
  const std::string book = dir + "/book.xls";
  const std::string csv = dir + "/book.csv";
  if (!peersOnly) {
    std::ofstream(dir + "/odbcinst.ini")
        << "[Excel Workbook Driver (*.xls)]\nDriver = " << driver << "\n";
    std::ofstream(dir + "/odbc.ini") << "";
    setenv("ODBCSYSINI", dir.c_str(), 1);
    setenv("ODBCINSTINI", "odbcinst.ini", 1);
    setenv("ODBCINI", (dir + "/odbc.ini").c_str(), 1);
  }
  if (saveOnly) {
    BenchSave(dir, runs);
    std::filesystem::remove_all(dir);
    return 0;
  }
  std::printf("workbook: %d rows x %d columns (python3-xlwt), best of %d\n", kRows, kColumns, runs);
  Shell(
      "/usr/bin/python3 -c \"import xlwt, sys\n"
      "b = xlwt.Workbook(); s = b.add_sheet('Sheet1')\n"
      "for c in range(31): s.write(0, c, 'col%d' % c)\n"
      "for r in range(1, 65536):\n"
      "    for c in range(31): s.write(r, c, 'v%d_%d' % (r, c) if c % 2 else r * 31 + c)\n"
      "b.save(sys.argv[1])\" '" +
      book + "'");

  double load = 0, convert = 0;
  if (!peersOnly) {
    long rows = 0;
    load = Best(
        runs, [] {},
        [&] {
          CSpreadSheet s(book.c_str(), "Sheet1", false);
          rows = s.GetTotalRows();
        });
    if (rows != kRows) {
      std::fprintf(stderr, "excel_bench: loaded %ld rows, expected %d\n", rows, kRows);
      return 1;
    }
    CSpreadSheet s(book.c_str(), "Sheet1", false);
    convert = Best(
        runs, [&] { std::filesystem::remove(csv); },
        [&] {
          if (!s.Convert(",")) std::fprintf(stderr, "excel_bench: Convert failed\n");
        });
  }

  std::printf("load the whole sheet:\n");
  if (!peersOnly) Row("CSpreadSheet (ODBC, our driver)", load, 0);
  Row("python3-xlrd, every cell",
      Best(
          runs, [] {},
          [&] {
            Shell(
                "/usr/bin/python3 -c \"import xlrd, sys\n"
                "s = xlrd.open_workbook(sys.argv[1]).sheet_by_index(0)\n"
                "n = sum(len(s.row_values(r)) for r in range(s.nrows))\n"
                "assert n == 65536 * 31, n\" '" +
                book + "'");
          }),
      load);

  std::printf("convert to CSV:\n");
  if (!peersOnly) Row("CSpreadSheet::Convert", convert, 0);
  Row("ssconvert (gnumeric)",
      Best(
          runs, [&] { std::filesystem::remove(csv); },
          [&] { Shell("ssconvert '" + book + "' '" + csv + "' > /dev/null 2>&1"); }),
      convert);
  Row("LibreOffice headless",
      Best(
          runs, [&] { std::filesystem::remove(csv); },
          [&] {
            Shell("HOME='" + dir + "' soffice -env:UserInstallation=file://" + dir +
                  "/profile --headless --convert-to csv --outdir '" + dir + "' '" + book +
                  "' > /dev/null 2>&1");
          }),
      convert);

  if (!peersOnly) BenchSave(dir, runs);
  std::filesystem::remove_all(dir);
  return 0;
}
