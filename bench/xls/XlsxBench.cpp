// Writes and reads a 1,048,576 x 10 sheet (five columns of numbers, five of short text)
// as .xlsx with our codec, and times the same work by python3-openpyxl (write-only and
// read-only modes) and by SheetJS (reading), taking turns in one run.
// Usage: xlsx_bench [folder [sheetjs-node-modules]]   (prints seconds and ratios; a peer
// that is missing is reported and left out)
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "xls/Xls.h"

namespace {

constexpr int kRows = 1048576;
constexpr int kColumns = 10;

double Seconds(std::chrono::steady_clock::time_point since) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - since).count();
}

// A peer script prints its own seconds (start-up excluded) as the first word; -1 on failure.
double Peer(const std::string& command) {
  FILE* pipe = popen(command.c_str(), "r");
  if (pipe == nullptr) return -1;
  std::string out;  // read to the end, so the peer never writes into a closed pipe
  char buf[256];
  for (std::size_t n; (n = std::fread(buf, 1, sizeof buf, pipe)) > 0;) out.append(buf, n);
  double seconds = -1;
  if (std::sscanf(out.c_str(), "%lf", &seconds) != 1) seconds = -1;
  return pclose(pipe) == 0 ? seconds : -1;
}

void Report(const char* what, double ours, double theirs) {
  if (theirs < 0) {
    std::printf("%-34s ours %6.2f s   peer unavailable\n", what, ours);
  } else {
    std::printf("%-34s ours %6.2f s   peer %7.2f s   %5.1fx faster\n", what, ours, theirs,
                theirs / ours);
  }
}

}  // namespace

int main(int argc, char** argv) {
  const std::string folder = argc > 1 ? argv[1] : ".";
  const std::string modules = argc > 2 ? argv[2] : "";
  const std::string here = SPREADSHEET_BENCH_DIR;
  const std::string ours = folder + "/xlsx_bench_ours.xlsx";
  const std::string theirs = folder + "/xlsx_bench_openpyxl.xlsx";

  xls::Workbook wb;
  xls::Sheet& sheet = wb.addSheet("Data");
  for (int r = 0; r < kRows; ++r) {
    for (int c = 0; c < kColumns / 2; ++c) sheet.set(r, c, xls::Cell::Number(r * 0.5 + c));
    for (int c = kColumns / 2; c < kColumns; ++c)
      sheet.set(r, c, xls::Cell::Text("item " + std::to_string((r * 7 + c) % 100000)));
  }

  auto t = std::chrono::steady_clock::now();
  xls::Status s = xls::WriteWorkbook(ours, wb);
  const double write = Seconds(t);
  if (!s.ok()) return std::fprintf(stderr, "%s\n", s.ToString().c_str()), 1;
  const double openpyxlWrite = Peer("/usr/bin/python3 " + here + "/xlsx_peers.py write " + theirs +
                                    " " + std::to_string(kRows));

  // Reads take turns with the peers; ours is timed best of three, as the machine is shared.
  double read = 1e9;
  double openpyxlRead = -1, sheetjsRead = -1;
  for (int round = 0; round < 3; ++round) {
    xls::Workbook back;
    t = std::chrono::steady_clock::now();
    s = xls::ReadWorkbook(ours, &back);
    read = std::min(read, Seconds(t));
    if (!s.ok() || back.sheets()[0].usedRows() != kRows)
      return std::fprintf(stderr, "read back: %s\n", s.ToString().c_str()), 1;
    if (round == 0) openpyxlRead = Peer("/usr/bin/python3 " + here + "/xlsx_peers.py read " + ours);
    if (round == 1 && !modules.empty())
      sheetjsRead = Peer("node --max-old-space-size=16000 " + here + "/xlsx_sheetjs_read.js " +
                         modules + " " + ours);
  }
  std::printf("%d x %d cells, half numbers and half short text\n", kRows, kColumns);
  Report("write .xlsx vs openpyxl write-only", write, openpyxlWrite);
  Report("read .xlsx vs openpyxl read-only", read, openpyxlRead);
  Report("read .xlsx vs SheetJS", read, sheetjsRead);
  std::remove(ours.c_str());
  std::remove(theirs.c_str());
  return 0;
}
