// Text-mode benchmarks with their peers measured in the same run:
//   open    load a 1,000,000-line, 12-column quoted file and read one column, against
//           `cat FILE > /dev/null`; peak memory of the load against the file size; and,
//           for reference, the bare cost of holding the file as one string per line and
//           of merely reading it into one buffer.
//   commit  N AddRow appends inside one transaction then one Commit, the caller's values
//           in hand, against writing the same bytes with one write() loop (4 KiB blocks,
//           as the archive writes, and 64 KiB); N = 10k, 100k, 1M to show the cost is
//           linear. Beside it, the final Commit alone.
//   cell    100 AddCell edits outside a transaction on a 10,000-row file, against a write()
//           loop of the same bytes, in turns.
// Usage: text_bench [open|commit|cell|all] [--lines N] [--dir DIR]
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "spreadsheet/SpreadSheet.h"

namespace {

using Clock = std::chrono::steady_clock;

double Seconds(Clock::time_point a, Clock::time_point b) {
  return std::chrono::duration<double>(b - a).count();
}

std::string QuotedLine(long row, int columns) {
  std::string line;
  char cell[32];
  for (int c = 0; c < columns; ++c) {
    std::snprintf(cell, sizeof cell, "\"%05ld%x\"", row % 100000, c);
    line += cell;
    if (c + 1 < columns) line += ',';
  }
  return line;
}

std::uintmax_t MakeFile(const std::string& path, long lines, int columns) {
  std::FILE* f = std::fopen(path.c_str(), "wb");
  if (!f) {
    std::perror(path.c_str());
    std::exit(1);
  }
  for (long r = 0; r < lines; ++r) {
    std::string l = QuotedLine(r, columns);
    l += "\r\n";
    std::fwrite(l.data(), 1, l.size(), f);
  }
  std::fclose(f);
  return std::filesystem::file_size(path);
}

// Runs fn in a child process; returns its wall time and peak resident memory (bytes).
template <typename Fn>
void InChild(Fn fn, double* seconds, long* peakBytes) {
  int pipefd[2];
  if (pipe(pipefd) != 0) std::exit(1);
  pid_t pid = fork();
  if (pid == 0) {
    close(pipefd[0]);
    auto t0 = Clock::now();
    fn();
    double s = Seconds(t0, Clock::now());
    if (write(pipefd[1], &s, sizeof s) != sizeof s) _exit(1);
    _exit(0);
  }
  close(pipefd[1]);
  if (read(pipefd[0], seconds, sizeof *seconds) != sizeof *seconds) *seconds = -1;
  close(pipefd[0]);
  int status = 0;
  struct rusage usage {};
  wait4(pid, &status, 0, &usage);
  *peakBytes = usage.ru_maxrss * 1024L;
}

double BestOf(int runs, double (*once)(const std::string&), const std::string& arg) {
  double best = 1e9;
  for (int i = 0; i < runs; ++i) best = std::min(best, once(arg));
  return best;
}

double CatOnce(const std::string& path) {
  std::string cmd = "cat '" + path + "' > /dev/null";
  auto t0 = Clock::now();
  if (std::system(cmd.c_str()) != 0) std::exit(1);
  return Seconds(t0, Clock::now());
}

// What any loader that keeps one heap string per line pays before parsing anything:
// 4096-byte reads, a line search, one allocation and copy per line, the growing array.
double LinesIntoStringsOnce(const std::string& path) {
  double seconds = 0;
  long peak = 0;
  InChild(
      [&] {
        int fd = ::open(path.c_str(), O_RDONLY);
        std::vector<std::string> lines;
        std::string current;
        char buffer[4096];
        ssize_t n;
        while ((n = ::read(fd, buffer, sizeof buffer)) > 0) {
          const char* p = buffer;
          const char* end = buffer + n;
          while (p < end) {
            const char* nl = static_cast<const char*>(std::memchr(p, '\n', end - p));
            if (!nl) {
              current.append(p, end - p);
              break;
            }
            current.append(p, nl - p);
            lines.push_back(std::move(current));
            current = std::string();
            p = nl + 1;
          }
        }
        ::close(fd);
        if (lines.empty()) _exit(3);
      },
      &seconds, &peak);
  return seconds;
}

// Less than any line loader: the whole file read into one buffer of its size, no lines,
// no strings; what keeping the file in memory costs by itself. The buffer is a private
// mapping advised to use huge pages (fewest page faults this machine allows) and the
// reads are of the given size: 4096 bytes as the archive reads, or 1 MiB.
double WholeFileOnce(const std::string& path, std::size_t readSize) {
  double seconds = 0;
  long peak = 0;
  InChild(
      [&] {
        const std::size_t size = std::filesystem::file_size(path);
        void* mapped =
            ::mmap(nullptr, size + 1, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (mapped == MAP_FAILED) _exit(3);
        ::madvise(mapped, size + 1, MADV_HUGEPAGE);
        char* all = static_cast<char*>(mapped);
        int fd = ::open(path.c_str(), O_RDONLY);
        std::size_t at = 0;
        ssize_t n;
        while (at < size && (n = ::read(fd, all + at, std::min(readSize, size - at))) > 0) {
          at += static_cast<std::size_t>(n);
        }
        ::close(fd);
        if (at != size) _exit(3);
      },
      &seconds, &peak);
  return seconds;
}

double WholeFile4KOnce(const std::string& path) { return WholeFileOnce(path, 4096); }
double WholeFile1MOnce(const std::string& path) { return WholeFileOnce(path, 1 << 20); }

void BenchOpen(const std::string& dir, long lines) {
  const std::string path = dir + "/open.csv";
  const double mb = MakeFile(path, lines, 12) / 1e6;
  CatOnce(path);  // warm the page cache for both sides
  const double cat = BestOf(3, CatOnce, path);

  double bestOpen = 1e9, bestColumn = 1e9;
  long peak = 0;
  for (int run = 0; run < 3; ++run) {
    double total = 0;
    long runPeak = 0;
    InChild(
        [&] {
          auto t0 = Clock::now();
          CSpreadSheet s(path.c_str(), ",", false);
          auto t1 = Clock::now();
          CStringArray column;
          s.ReadColumn(column, 5);
          auto t2 = Clock::now();
          if (s.GetTotalRows() != lines || column.GetSize() != lines) _exit(3);
          std::fprintf(stderr, "  run %d: open %.3f s, column %.3f s\n", run, Seconds(t0, t1),
                       Seconds(t1, t2));
          double both[2] = {Seconds(t0, t1), Seconds(t1, t2)};
          std::FILE* f = std::fopen((path + ".times").c_str(), "wb");
          std::fwrite(both, sizeof both, 1, f);
          std::fclose(f);
        },
        &total, &runPeak);
    double both[2] = {0, 0};
    std::FILE* f = std::fopen((path + ".times").c_str(), "rb");
    if (!f || std::fread(both, sizeof both, 1, f) != 1) std::exit(1);
    std::fclose(f);
    bestOpen = std::min(bestOpen, both[0]);
    bestColumn = std::min(bestColumn, both[1]);
    peak = std::max(peak, runPeak);
  }
  std::printf("open: %ld lines, 12 quoted columns, %.1f MB\n", lines, mb);
  std::printf("  cat FILE >/dev/null   %8.3f s  %8.1f MB/s\n", cat, mb / cat);
  std::printf("  CSpreadSheet open     %8.3f s  %8.1f MB/s  (%.0f%% of cat)\n", bestOpen,
              mb / bestOpen, 100.0 * cat / bestOpen);
  const double floor = BestOf(3, LinesIntoStringsOnce, path);
  std::printf("  ReadColumn(5)         %8.3f s  %8.1f MB/s\n", bestColumn, mb / bestColumn);
  std::printf("  lines into strings    %8.3f s  %8.1f MB/s  (%.0f%% of cat; no parsing)\n", floor,
              mb / floor, 100.0 * cat / floor);
  const double whole4k = BestOf(3, WholeFile4KOnce, path);
  const double whole1m = BestOf(3, WholeFile1MOnce, path);
  std::printf(
      "  file into one buffer  %8.3f s  %8.1f MB/s  (%.0f%% of cat; 4 KiB reads, huge pages)\n",
      whole4k, mb / whole4k, 100.0 * cat / whole4k);
  std::printf(
      "  file into one buffer  %8.3f s  %8.1f MB/s  (%.0f%% of cat; 1 MiB reads, huge pages)\n",
      whole1m, mb / whole1m, 100.0 * cat / whole1m);
  std::printf("  peak memory           %8.1f MB  (%.2f x the file)\n", peak / 1e6, peak / 1e6 / mb);
  std::filesystem::remove(path);
  std::filesystem::remove(path + ".times");
}

// The same bytes the commit writes, built before the clock starts and written with one
// write() loop in blocks of the given size: 4096 bytes is the archive buffer the commit
// writes through, 64 KiB what a program free to choose would use.
double WriteLoopOnce(const std::string& path, const std::string& bytes, std::size_t block) {
  std::filesystem::remove(path);  // a new file on both sides, as CommitOnce makes
  auto t0 = Clock::now();
  int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
  for (std::size_t off = 0; off < bytes.size(); off += block) {
    if (::write(fd, bytes.data() + off, std::min(block, bytes.size() - off)) < 0) std::exit(1);
  }
  ::close(fd);
  return Seconds(t0, Clock::now());
}

// What holding the rows costs before any writing: each row's bytes copied into a heap
// string of its own in a growing array, as a sheet kept one string per row must.
double HoldRowsOnce(const std::string& bytes) {
  auto t0 = Clock::now();
  std::vector<std::string> rows;
  for (std::size_t at = 0; at < bytes.size();) {
    const std::size_t end = bytes.find('\r', at);
    rows.emplace_back(bytes, at, end - at);
    at = end + 2;
  }
  const double s = Seconds(t0, Clock::now());
  if (rows.empty()) std::exit(1);
  return s;
}

// The caller's values: row r holds the 12 values of QuotedLine(r) without their quotes.
// They repeat every 100,000 rows, so 100,000 arrays made once serve every size.
const std::vector<CStringArray>& CallerRows() {
  static const std::vector<CStringArray> rows = [] {
    std::vector<CStringArray> made(100000);
    char cell[32];
    for (long r = 0; r < 100000; ++r) {
      for (int c = 0; c < 12; ++c) {
        std::snprintf(cell, sizeof cell, "%05ld%x", r, c);
        made[r].Add(cell);
      }
    }
    return made;
  }();
  return rows;
}

// Timed whole (construct, N AddRow, Commit) with the caller's values already in hand;
// *commitOnly is the final Commit by itself.
double CommitOnce(const std::string& path, long rows, double* commitOnly) {
  const std::vector<CStringArray>& values = CallerRows();
  std::filesystem::remove(path);
  auto t0 = Clock::now();
  CSpreadSheet s(path.c_str(), ",", false);
  s.BeginTransaction();
  for (long r = 0; r < rows; ++r) {
    s.AddRow(const_cast<CStringArray&>(values[r % 100000]), 0L, false);
  }
  auto t1 = Clock::now();
  if (!s.Commit()) std::exit(2);
  auto t2 = Clock::now();
  *commitOnly = Seconds(t1, t2);
  return Seconds(t0, t2);
}

void BenchCommit(const std::string& dir) {
  const std::string path = dir + "/commit.csv";
  std::printf(
      "commit: N AddRow appends in one transaction, then Commit, against one write()\n"
      "loop writing the same prebuilt bytes in 4 KiB and in 64 KiB blocks (best of 5)\n");
  std::printf("  %9s %7s %13s %10s %6s %10s %6s %7s | %12s %6s | %10s %6s\n", "rows", "MB",
              "AddRow+Commit", "4 KiB", "ratio", "64 KiB", "ratio", "ns/row", "Commit alone",
              "ratio", "hold rows", "floor");
  for (long rows : {10000L, 100000L, 1000000L}) {
    std::string bytes;
    for (long r = 0; r < rows; ++r) bytes += QuotedLine(r, 12) + "\r\n";
    double commit = 1e9, loop4 = 1e9, loop64 = 1e9, commitOnly = 1e9, hold = 1e9;
    for (int i = 0; i < 5; ++i) {
      double once = 0;
      commit = std::min(commit, CommitOnce(path, rows, &once));
      commitOnly = std::min(commitOnly, once);
      loop4 = std::min(loop4, WriteLoopOnce(path + ".loop", bytes, 4096));
      loop64 = std::min(loop64, WriteLoopOnce(path + ".loop", bytes, 65536));
      hold = std::min(hold, HoldRowsOnce(bytes));
    }
    if (std::filesystem::file_size(path) != bytes.size()) {
      std::fprintf(stderr, "commit wrote other bytes than the loop\n");
      std::exit(1);
    }
    std::printf(
        "  %9ld %7.1f %12.4fs %9.4fs %5.0f%% %9.4fs %5.0f%% %7.0f | %11.4fs %5.0f%% | "
        "%9.4fs %5.0f%%\n",
        rows, bytes.size() / 1e6, commit, loop4, 100.0 * loop4 / commit, loop64,
        100.0 * loop64 / commit, 1e9 * commit / rows, commitOnly, 100.0 * loop4 / commitOnly, hold,
        100.0 * loop4 / (hold + loop4));
  }
  std::printf(
      "  (ratio: the loop's time over AddRow+Commit's, i.e. its throughput as a share of\n"
      "   the loop's; Commit alone: the final Commit against the 4 KiB loop; hold rows:\n"
      "   the rows' bytes copied into one heap string per row; floor: the 4 KiB loop\n"
      "   against hold rows + the 4 KiB loop, the best ratio a sheet held one string\n"
      "   per row and written through a 4096-byte buffer can reach)\n");
  std::filesystem::remove(path);
  std::filesystem::remove(path + ".loop");
}

// Each AddCell outside a transaction saves the whole file twice; the peer writes the same
// bytes (200 times the file) with a plain write() loop in 4 KiB blocks over one open file,
// from its start each time: what writing those bytes costs, without any open or cut.
double CellLoopOnce(const std::string& path, const std::string& bytes, int saves) {
  auto t0 = Clock::now();
  int fd = ::open(path.c_str(), O_WRONLY | O_CREAT, 0644);
  for (int i = 0; i < saves; ++i) {
    for (std::size_t off = 0; off < bytes.size(); off += 4096) {
      const std::size_t n = std::min<std::size_t>(4096, bytes.size() - off);
      if (::pwrite(fd, bytes.data() + off, n, static_cast<off_t>(off)) < 0) std::exit(1);
    }
  }
  ::close(fd);
  return Seconds(t0, Clock::now());
}

void BenchCell(const std::string& dir) {
  const std::string path = dir + "/cell.csv";
  std::printf(
      "cell: 100 AddCell edits outside a transaction, 10,000 rows, against a write()\n"
      "loop of the same bytes (each edit saves the file twice: 200 x the file), in turns\n");
  for (int turn = 1; turn <= 3; ++turn) {
    const double mb = MakeFile(path, 10000, 12) / 1e6;
    CSpreadSheet s(path.c_str(), ",", false);
    auto t0 = Clock::now();
    for (int i = 0; i < 100; ++i) s.AddCell("edited", static_cast<short>(1 + i % 12), 2 + i * 97);
    const double t = Seconds(t0, Clock::now());
    std::ifstream in(path, std::ios::binary);
    const std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    const double loop = CellLoopOnce(path + ".loop", bytes, 200);
    std::printf(
        "  turn %d: edits %.3f s (%.2f ms per edit), loop %.3f s (%.1f MB x 200): edits "
        "take %.1fx the loop\n",
        turn, t, 10 * t, loop, mb, t / loop);
    std::filesystem::remove(path);
    std::filesystem::remove(path + ".loop");
  }
}

}  // namespace

int main(int argc, char** argv) {
  std::string what = "all";
  long lines = 1000000;
  std::string dir = std::filesystem::temp_directory_path().string();
  for (int i = 1; i < argc; ++i) {
    if (!std::strcmp(argv[i], "--lines") && i + 1 < argc) {
      lines = std::atol(argv[++i]);
    } else if (!std::strcmp(argv[i], "--dir") && i + 1 < argc) {
      dir = argv[++i];
    } else {
      what = argv[i];
    }
  }
  if (what == "open" || what == "all") BenchOpen(dir, lines);
  if (what == "commit" || what == "all") BenchCommit(dir);
  if (what == "cell" || what == "all") BenchCell(dir);
  return 0;
}
