// Excel mode against its peers on one 65,536 x 31 workbook (a header row and 65,535
// records, text and numbers alternating by column) made by python3-xlwt:
//   load:    constructing CSpreadSheet (the whole sheet through ODBC and our driver)
//            against python3-xlrd reading every cell;
//   convert: CSpreadSheet::Convert to CSV against gnumeric's ssconvert and LibreOffice
//            headless converting the same workbook.
// Best of N wall-clock runs each; run it from a Release build without sanitizers.
//
// usage: excel_bench [--peers-only] [--runs N] [DRIVER.so]  (default: the driver built here)
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>

#include "spreadsheet/SpreadSheet.h"

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
    std::printf("  %-34s %8.3f s %10.0f cells/s   %6.2fx ours\n", what, seconds, cells / seconds, seconds / ours);
  } else {
    std::printf("  %-34s %8.3f s %10.0f cells/s\n", what, seconds, cells / seconds);
  }
}

}  // namespace

int main(int argc, char** argv) {
  bool peersOnly = false;
  int runs = 3;
  std::string driver;
  for (int i = 1; i < argc; ++i) {
    const std::string a = argv[i];
    if (a == "--peers-only") {
      peersOnly = true;
    } else if (a == "--runs" && i + 1 < argc) {
      runs = std::atoi(argv[++i]);
    } else {
      driver = a;
    }
  }
#ifdef XLSODBC_DRIVER_PATH
  if (driver.empty()) driver = XLSODBC_DRIVER_PATH;  // the driver built beside this program
#endif
  if (!peersOnly && driver.empty()) {
    std::fprintf(stderr, "usage: excel_bench [--peers-only] [--runs N] [DRIVER.so]\n");
    return 2;
  }

  char pattern[] = "/tmp/excel-bench-XXXXXX";
  const std::string dir = mkdtemp(pattern);
  const std::string book = dir + "/book.xls";
  const std::string csv = dir + "/book.csv";
  std::printf("workbook: %d rows x %d columns (python3-xlwt), best of %d\n", kRows, kColumns, runs);
  Shell("/usr/bin/python3 -c \"import xlwt, sys\n"
        "b = xlwt.Workbook(); s = b.add_sheet('Sheet1')\n"
        "for c in range(31): s.write(0, c, 'col%d' % c)\n"
        "for r in range(1, 65536):\n"
        "    for c in range(31): s.write(r, c, 'v%d_%d' % (r, c) if c % 2 else r * 31 + c)\n"
        "b.save(sys.argv[1])\" '" + book + "'");

  double load = 0, convert = 0;
  if (!peersOnly) {
    std::ofstream(dir + "/odbcinst.ini") << "[Excel Workbook Driver (*.xls)]\nDriver = " << driver << "\n";
    std::ofstream(dir + "/odbc.ini") << "";
    setenv("ODBCSYSINI", dir.c_str(), 1);
    setenv("ODBCINSTINI", "odbcinst.ini", 1);
    setenv("ODBCINI", (dir + "/odbc.ini").c_str(), 1);
    long rows = 0;
    load = Best(runs, [] {}, [&] {
      CSpreadSheet s(book.c_str(), "Sheet1", false);
      rows = s.GetTotalRows();
    });
    if (rows != kRows) {
      std::fprintf(stderr, "excel_bench: loaded %ld rows, expected %d\n", rows, kRows);
      return 1;
    }
    CSpreadSheet s(book.c_str(), "Sheet1", false);
    convert = Best(runs, [&] { std::filesystem::remove(csv); }, [&] {
      if (!s.Convert(",")) std::fprintf(stderr, "excel_bench: Convert failed\n");
    });
  }

  std::printf("load the whole sheet:\n");
  if (!peersOnly) Row("CSpreadSheet (ODBC, our driver)", load, 0);
  Row("python3-xlrd, every cell", Best(runs, [] {}, [&] {
        Shell("/usr/bin/python3 -c \"import xlrd, sys\n"
              "s = xlrd.open_workbook(sys.argv[1]).sheet_by_index(0)\n"
              "n = sum(len(s.row_values(r)) for r in range(s.nrows))\n"
              "assert n == 65536 * 31, n\" '" + book + "'");
      }), load);

  std::printf("convert to CSV:\n");
  if (!peersOnly) Row("CSpreadSheet::Convert", convert, 0);
  Row("ssconvert (gnumeric)", Best(runs, [&] { std::filesystem::remove(csv); }, [&] {
        Shell("ssconvert '" + book + "' '" + csv + "' > /dev/null 2>&1");
      }), convert);
  Row("LibreOffice headless", Best(runs, [&] { std::filesystem::remove(csv); }, [&] {
        Shell("HOME='" + dir + "' soffice -env:UserInstallation=file://" + dir +
              "/profile --headless --convert-to csv --outdir '" + dir + "' '" + book + "' > /dev/null 2>&1");
      }), convert);

  std::filesystem::remove_all(dir);
  return 0;
}
