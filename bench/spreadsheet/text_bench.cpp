// Text-mode benchmarks with their peers measured in the same run:
//   open    load a 1,000,000-line, 12-column quoted file and read one column, against
//           `cat FILE > /dev/null`; peak memory of the load against the file size; and,
//           for reference, the bare cost of holding the file as one string per line.
//   commit  N appends inside one transaction then one Commit, against writing the same
//           bytes with one write() loop; N = 10k, 100k, 1M to show the cost is linear.
//           Beside it, the part of that time the benchmark spends building its values,
//           and the final Commit alone against the write of the prebuilt bytes.
//   cell    100 AddCell edits outside a transaction on a 10,000-row file.
// Usage: text_bench [open|commit|cell|all] [--lines N] [--dir DIR]
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
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
  std::printf("  peak memory           %8.1f MB  (%.2f x the file)\n", peak / 1e6, peak / 1e6 / mb);
  std::filesystem::remove(path);
  std::filesystem::remove(path + ".times");
}

double WriteLoopOnce(const std::string& path, long rows) {
  // The same bytes the commit writes, built and written in 64 KiB blocks.
  auto t0 = Clock::now();
  int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
  std::string block;
  for (long r = 0; r < rows; ++r) {
    block += QuotedLine(r, 12);
    block += "\r\n";
    if (block.size() >= 65536) {
      if (::write(fd, block.data(), block.size()) < 0) std::exit(1);
      block.clear();
    }
  }
  if (::write(fd, block.data(), block.size()) < 0) std::exit(1);
  ::close(fd);
  return Seconds(t0, Clock::now());
}

// Only the write: the bytes are built before the clock starts.
double WritePrebuiltOnce(const std::string& path, long rows) {
  std::string bytes;
  for (long r = 0; r < rows; ++r) bytes += QuotedLine(r, 12) + "\r\n";
  auto t0 = Clock::now();
  int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
  for (std::size_t off = 0; off < bytes.size(); off += 65536) {
    if (::write(fd, bytes.data() + off, std::min<std::size_t>(65536, bytes.size() - off)) < 0) std::exit(1);
  }
  ::close(fd);
  return Seconds(t0, Clock::now());
}

// The caller's side of CommitOnce alone: the same values built the same way, no AddRow.
void FillValues(CStringArray& values, long r) {
  char cell[32];
  values.RemoveAll();
  for (int c = 0; c < 12; ++c) {
    std::snprintf(cell, sizeof cell, "%05ld%x", r % 100000, c);
    values.Add(cell);
  }
}

double ValuesOnce(long rows) {
  auto t0 = Clock::now();
  CStringArray values;
  std::size_t kept = 0;
  for (long r = 0; r < rows; ++r) {
    FillValues(values, r);
    kept += static_cast<std::size_t>(values.GetAt(r % 12).GetLength());
  }
  if (kept == 0) std::exit(1);
  return Seconds(t0, Clock::now());
}

// Timed whole (construct, N AddRow, Commit); *commitOnly is the final Commit by itself.
double CommitOnce(const std::string& path, long rows, double* commitOnly) {
  std::filesystem::remove(path);
  auto t0 = Clock::now();
  CSpreadSheet s(path.c_str(), ",", false);
  s.BeginTransaction();
  CStringArray values;
  for (long r = 0; r < rows; ++r) {
    FillValues(values, r);
    s.AddRow(values, 0L, false);
  }
  auto t1 = Clock::now();
  if (!s.Commit()) std::exit(2);
  auto t2 = Clock::now();
  *commitOnly = Seconds(t1, t2);
  return Seconds(t0, t2);
}

void BenchCommit(const std::string& dir) {
  const std::string path = dir + "/commit.csv";
  std::printf("commit: N appends in one transaction, then Commit\n");
  std::printf("  %9s %13s %11s %7s %14s %7s %11s | %12s %12s %7s\n", "rows", "AddRow+Commit",
              "format+write", "ratio", "prebuilt write", "ratio", "us per row", "caller values",
              "Commit alone", "ratio");
  for (long rows : {10000L, 100000L, 1000000L}) {
    double commit = 1e9, loop = 1e9, raw = 1e9, values = 1e9, commitOnly = 1e9;
    for (int i = 0; i < 3; ++i) {
      double once = 0;
      commit = std::min(commit, CommitOnce(path, rows, &once));
      commitOnly = std::min(commitOnly, once);
      loop = std::min(loop, WriteLoopOnce(path + ".loop", rows));
      raw = std::min(raw, WritePrebuiltOnce(path + ".raw", rows));
      values = std::min(values, ValuesOnce(rows));
    }
    std::filesystem::remove(path + ".raw");
    if (std::filesystem::file_size(path) != std::filesystem::file_size(path + ".loop")) {
      std::fprintf(stderr, "commit wrote other bytes than the loop\n");
      std::exit(1);
    }
    std::printf("  %9ld %12.3fs %10.3fs %6.0f%% %13.3fs %6.0f%% %11.3f | %11.3fs %11.3fs %6.0f%%\n",
                rows, commit, loop, 100.0 * loop / commit, raw, 100.0 * raw / commit,
                1e6 * commit / rows, values, commitOnly, 100.0 * raw / commitOnly);
  }
  std::printf("  (caller values: the benchmark's own snprintf and Add of the 12 values per row,\n"
              "   inside the AddRow+Commit time; Commit alone: the final Commit against the\n"
              "   prebuilt write of the same bytes)\n");
  std::filesystem::remove(path);
  std::filesystem::remove(path + ".loop");
}

void BenchCell(const std::string& dir) {
  const std::string path = dir + "/cell.csv";
  const double mb = MakeFile(path, 10000, 12) / 1e6;
  CSpreadSheet s(path.c_str(), ",", false);
  auto t0 = Clock::now();
  for (int i = 0; i < 100; ++i) s.AddCell("edited", static_cast<short>(1 + i % 12), 2 + i * 97);
  const double t = Seconds(t0, Clock::now());
  std::printf("cell: 100 AddCell edits outside a transaction, 10,000 rows (%.1f MB)\n", mb);
  std::printf("  total %.3f s, %.2f ms per edit (each edit saves the file twice)\n", t, 10 * t);
  std::filesystem::remove(path);
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
