// What the sheet tool needs of files beyond the class: the system's reason when a file
// cannot be read or written, standard input as a file, and a progress bar.
#pragma once

#include <chrono>
#include <string>

namespace sheet {

// "" when FILE is a file that can be opened for reading; otherwise the reason
// ("No such file or directory", "Is a directory", ...).
std::string ReadProblem(const std::string& file);
// "" when FILE, which exists, can be opened for writing; otherwise the system's reason.
// Never creates FILE.
std::string WriteProblem(const std::string& file);
bool Exists(const std::string& file);
bool StderrIsTerminal();

// FILE as the class can open it: itself, or for "-" a temporary copy of standard input
// (named *.xls when a sheet was asked for), removed when this object goes.
class Input {
 public:
  Input(const std::string& file, bool workbook);
  ~Input();
  Input(const Input&) = delete;
  Input& operator=(const Input&) = delete;

  const std::string& path() const { return path_; }
  // How messages name it: the argument, or "(standard input)".
  const std::string& name() const { return name_; }
  const std::string& error() const { return error_; }  // "" when ready

 private:
  std::string path_, name_, error_, folder_;
};

// A bar on standard error for work that has run over a second (SHEET_PROGRESS_AFTER
// milliseconds when set), when standard error is a terminal; redrawn at most ten times a
// second, erased when done.
class Progress {
 public:
  Progress(const char* label, long total);
  ~Progress();
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;
  void Update(long done);

 private:
  const char* label_;
  long total_;
  bool terminal_;
  bool drawn_ = false;
  std::chrono::milliseconds delay_;
  std::chrono::steady_clock::time_point start_, last_;
};

}  // namespace sheet
