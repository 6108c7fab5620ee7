// Writes and reads a 65,536 x 31 sheet of distinct short strings with our codec, then
// times python3-xlwt writing and python3-xlrd reading the same sheet in the same run
// (reads best of three on both sides). Then the same cells as an Excel 95 (BIFF5) workbook,
// four sheets of 16,384 rows (that version's limit) written by gnumeric's ssconvert, read
// by our codec and by xlrd.
// Usage: xls_bench [folder]   (prints seconds and the ratios)
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>

#include "xls/Xls.h"

namespace {

double Seconds(std::chrono::steady_clock::time_point since) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - since).count();
}

// Best of three reads of path by our codec, in seconds; negative on failure.
double OurRead(const std::string& path) {
  double best = 1e9;
  for (int i = 0; i < 3; ++i) {
    xls::Workbook back;
    auto t = std::chrono::steady_clock::now();
    xls::Status s = xls::ReadWorkbook(path, &back);
    best = std::min(best, Seconds(t));
    if (!s.ok()) return std::fprintf(stderr, "%s\n", s.ToString().c_str()), -1;
  }
  return best;
}

// Best of three reads of path by python3-xlrd, in seconds; 0 on failure.
double XlrdRead(const std::string& path) {
  std::string py =
      "/usr/bin/python3 -c \"import sys,time,xlrd\n"
      "r=1e9\n"
      "for i in range(3):\n"
      "  t=time.time();xlrd.open_workbook(sys.argv[1]);r=min(r,time.time()-t)\n"
      "print(r)\" " +
      path;
  FILE* f = ::popen(py.c_str(), "r");
  double seconds = 0;
  if (f == nullptr || std::fscanf(f, "%lf", &seconds) != 1) seconds = 0;
  if (f != nullptr) ::pclose(f);
  return seconds;
}

// The same 65,536 x 31 cells as an Excel 95 workbook of four sheets, written by ssconvert.
void Biff5(const std::string& folder) {
  std::string csvs;
  for (int part = 0; part < 4; ++part) {
    const std::string csv = folder + "/xls_bench_part" + std::to_string(part) + ".csv";
    std::ofstream out(csv);
    for (int r = part * 16384; r < (part + 1) * 16384; ++r) {
      for (int c = 0; c < 31; ++c) out << (c ? "," : "") << 'r' << r << 'c' << c;
      out << '\n';
    }
    csvs += " '" + csv + "'";
  }
  const std::string book = folder + "/xls_bench_biff5.xls";
  const std::string cmd = "ssconvert --export-type=Gnumeric_Excel:excel_biff7 --merge-to='" + book +
                          "'" + csvs + " > /dev/null 2>&1";
  if (std::system(cmd.c_str()) != 0) {
    std::printf("biff5: ssconvert could not write the workbook; skipped\n");
  } else {
    const double ours = OurRead(book), xlrd = XlrdRead(book);
    if (ours > 0) {
      std::printf(
          "read Excel 95 (4 x 16,384 x 31 text cells): ours %.3f s, xlrd %.3f s, ratio %.1fx\n",
          ours, xlrd, xlrd / ours);
    }
  }
  for (int part = 0; part < 4; ++part)
    std::remove((folder + "/xls_bench_part" + std::to_string(part) + ".csv").c_str());
  std::remove(book.c_str());
}

}  // namespace

int main(int argc, char** argv) {
  std::string folder = argc > 1 ? argv[1] : "/tmp";
  std::string ours = folder + "/xls_bench_ours.xls";
  std::string theirs = folder + "/xls_bench_xlwt.xls";
  xls::Workbook wb;
  xls::Sheet& sheet = wb.addSheet("Data");
  for (int r = 0; r < 65536; ++r) {
    for (int c = 0; c < 31; ++c)
      sheet.set(r, c, xls::Cell::Text("r" + std::to_string(r) + "c" + std::to_string(c)));
  }
  auto t = std::chrono::steady_clock::now();
  xls::Status s = xls::WriteWorkbook(ours, wb);
  double write = Seconds(t);
  if (!s.ok()) return std::fprintf(stderr, "%s\n", s.ToString().c_str()), 1;
  // Reads are timed best of three on both sides: on a shared machine one run can be
  // slowed by others' work, and the best run is the one that shows the code.
  double read = 1e9;
  for (int i = 0; i < 3; ++i) {
    xls::Workbook back;
    t = std::chrono::steady_clock::now();
    s = xls::ReadWorkbook(ours, &back);
    read = std::min(read, Seconds(t));
    if (!s.ok()) return std::fprintf(stderr, "%s\n", s.ToString().c_str()), 1;
  }

  std::string py =
      "/usr/bin/python3 -c \"import sys,time,xlwt,xlrd\n"
      "b=xlwt.Workbook();s=b.add_sheet('Data')\n"
      "t=time.time()\n"
      "for r in range(65536):\n"
      "  for c in range(31): s.write(r,c,'r%dc%d'%(r,c))\n"
      "b.save(sys.argv[1]);w=time.time()-t\n"
      "r=1e9\n"
      "for i in range(3):\n"
      "  t=time.time();xlrd.open_workbook(sys.argv[2]);r=min(r,time.time()-t)\n"
      "print(w,r)\" " +
      theirs + " " + ours;
  FILE* f = ::popen(py.c_str(), "r");
  double xlwtWrite = 0, xlrdRead = 0;
  if (f == nullptr || std::fscanf(f, "%lf %lf", &xlwtWrite, &xlrdRead) != 2) {
    std::fprintf(stderr, "python3-xlwt/xlrd comparison failed\n");
  }
  if (f != nullptr) ::pclose(f);
  std::printf("65,536 x 31 text cells\n");
  std::printf("write: ours %.3f s, xlwt %.3f s, ratio %.1fx\n", write, xlwtWrite,
              xlwtWrite / write);
  std::printf("read:  ours %.3f s, xlrd %.3f s, ratio %.1fx\n", read, xlrdRead, xlrdRead / read);
  std::remove(ours.c_str());
  std::remove(theirs.c_str());
  Biff5(folder);
  return 0;
}
