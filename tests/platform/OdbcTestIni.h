// A private ODBC configuration for one test process: a temporary ODBCSYSINI folder with
// its own odbcinst.ini (drivers registered for the test) and odbc.ini, plus unixODBC's
// call trace, so that a test can read back the statements exactly as the driver manager
// received them. unixODBC reads these settings once per process: Install() must run
// before the first ODBC call, and only the first call's drivers count.
#pragma once

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <utility>
#include <vector>

namespace odbc_test {

struct Driver {
  std::string name;  // the section name: what DRIVER={...} and the installer list show
  std::string library;
};

// The SQLite ODBC driver shipped by Debian's libsqliteodbc, or "" when it is missing.
inline std::string SqliteDriverLibrary() {
  std::vector<std::filesystem::path> candidates = {"/usr/lib/odbc/libsqlite3odbc.so"};
  std::error_code ec;
  for (const auto& entry : std::filesystem::directory_iterator("/usr/lib", ec)) {
    candidates.push_back(entry.path() / "odbc" / "libsqlite3odbc.so");
  }
  for (const auto& path : candidates) {
    if (std::filesystem::exists(path, ec)) return path.string();
  }
  return "";
}

class Config {
 public:
  // odbcIni: the body of odbc.ini (data sources), often empty; "@DIR@" in it stands for
  // the configuration's folder.
  static Config& Install(const std::vector<Driver>& drivers, const std::string& odbcIni = "") {
    static Config* config = new Config(drivers, odbcIni);  // lives as long as the process
    return *config;
  }

  const std::string& dir() const { return dir_; }
  const std::string& traceFile() const { return trace_; }

  // Statements that reached the driver manager (SQLExecDirect and SQLPrepare) since
  // the trace offset mark; *mark moves to the end. A statement the trace cut short
  // (unixODBC shows about a hundred characters) ends in "...".
  std::vector<std::string> StatementsSince(std::size_t* mark) const {
    std::ifstream in(trace_, std::ios::binary);
    std::string all((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    std::vector<std::string> out;
    std::size_t at = *mark < all.size() ? *mark : all.size();
    const std::string head = "\t\t\tSQL = [";
    for (;;) {
      std::size_t start = all.find(head, at);
      if (start == std::string::npos) break;
      start += head.size();
      const std::size_t end = all.find("][length = ", start);
      if (end == std::string::npos) break;
      out.push_back(all.substr(start, end - start));
      at = end;
    }
    *mark = all.size();
    return out;
  }

  std::size_t TraceEnd() const {
    std::error_code ec;
    const auto size = std::filesystem::file_size(trace_, ec);
    return ec ? 0 : static_cast<std::size_t>(size);
  }

 private:
  Config(const std::vector<Driver>& drivers, const std::string& odbcIni) {
    char pattern[] = "/tmp/odbc-test-ini-XXXXXX";
    const char* made = mkdtemp(pattern);
    if (!made) std::abort();
    dir_ = made;
    trace_ = dir_ + "/trace.log";
    std::ofstream ini(dir_ + "/odbcinst.ini");
    ini << "[ODBC]\nTrace = Yes\nTraceFile = " << trace_ << "\n\n";
    for (const Driver& d : drivers) ini << "[" << d.name << "]\nDriver = " << d.library << "\n\n";
    ini.close();
    std::string body = odbcIni;
    for (std::size_t at; (at = body.find("@DIR@")) != std::string::npos;) body.replace(at, 5, dir_);
    std::ofstream(dir_ + "/odbc.ini") << body;
    setenv("ODBCSYSINI", dir_.c_str(), 1);
    setenv("ODBCINSTINI", "odbcinst.ini", 1);
    setenv("ODBCINI", (dir_ + "/odbc.ini").c_str(), 1);
    static std::string remove;
    remove = dir_;
    std::atexit([] {
      std::error_code ec;
      std::filesystem::remove_all(remove, ec);
    });
  }

  std::string dir_;
  std::string trace_;
};

}  // namespace odbc_test
