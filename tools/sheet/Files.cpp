#include "tools/sheet/Files.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <random>

#if defined(_WIN32)
#include <io.h>
#define SHEET_ISATTY(fd) _isatty(fd)
#else
#include <unistd.h>
#define SHEET_ISATTY(fd) isatty(fd)
#endif

namespace sheet {

namespace fs = std::filesystem;

bool Exists(const std::string& file) {
  std::error_code ec;
  return fs::exists(file, ec);
}

bool StderrIsTerminal() { return SHEET_ISATTY(2) != 0; }

std::string ReadProblem(const std::string& file) {
  std::error_code ec;
  const fs::file_status st = fs::status(file, ec);
  if (ec) return ec.message();
  if (fs::is_directory(st)) return std::strerror(EISDIR);
  std::FILE* f = std::fopen(file.c_str(), "rb");
  if (!f) return std::strerror(errno);
  std::fclose(f);
  return "";
}

std::string WriteProblem(const std::string& file) {
  std::error_code ec;
  const fs::file_status st = fs::status(file, ec);
  if (ec) return ec.message();
  if (fs::is_directory(st)) return std::strerror(EISDIR);
  std::FILE* f = std::fopen(file.c_str(), "r+b");
  if (!f) return std::strerror(errno);
  std::fclose(f);
  return "";
}

Input::Input(const std::string& file, bool workbook) : path_(file), name_(file) {
  if (file != "-") return;
  name_ = "(standard input)";
  std::error_code ec;
  const fs::path base = fs::temp_directory_path(ec);
  if (ec) {
    error_ = ec.message();
    return;
  }
  std::random_device random;
  for (int attempt = 0; attempt < 16 && folder_.empty(); ++attempt) {
    const fs::path candidate = base / ("sheet-stdin-" + std::to_string(random()));
    if (fs::create_directory(candidate, ec)) folder_ = candidate.string();
  }
  if (folder_.empty()) {
    error_ = ec ? ec.message() : "cannot make a temporary folder";
    return;
  }
  path_ = (fs::path(folder_) / (workbook ? "stdin.xls" : "stdin.txt")).string();
  std::ofstream out(path_, std::ios::binary);
  out << std::cin.rdbuf();
  out.flush();
  if (!out) error_ = "cannot copy standard input to " + path_;
}

Input::~Input() {
  if (folder_.empty()) return;
  std::error_code ec;
  fs::remove_all(folder_, ec);
}

// SHEET_PROGRESS_AFTER (milliseconds) moves the one second a job runs before its bar shows.
std::chrono::milliseconds ProgressDelay() {
  const char* text = std::getenv("SHEET_PROGRESS_AFTER");
  if (!text || !*text) return std::chrono::seconds(1);
  char* end = nullptr;
  const long ms = std::strtol(text, &end, 10);
  return *end || ms < 0 ? std::chrono::seconds(1) : std::chrono::milliseconds(ms);
}

Progress::Progress(const char* label, long total)
    : label_(label),
      total_(total),
      terminal_(total > 0 && StderrIsTerminal()),
      delay_(ProgressDelay()),
      start_(std::chrono::steady_clock::now()),
      last_(start_) {}

Progress::~Progress() {
  if (drawn_) std::fprintf(stderr, "\r%*s\r", 72, "");
}

void Progress::Update(long done) {
  if (!terminal_) return;
  const auto now = std::chrono::steady_clock::now();
  if (now - start_ < delay_ || (drawn_ && now - last_ < std::chrono::milliseconds(100))) return;
  last_ = now;
  constexpr int kWidth = 30;
  const int filled = static_cast<int>(kWidth * (done > total_ ? total_ : done) / total_);
  std::fprintf(stderr, "\rsheet: %s [%.*s%*s] %ld/%ld", label_, filled,
               "##############################", kWidth - filled, "", done, total_);
  std::fflush(stderr);
  drawn_ = true;
}

}  // namespace sheet
