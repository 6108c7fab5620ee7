// Stateful fuzz target for the driver's Database: a short run of statements with parameters
// on a small workbook file, as a connection makes them (journal, locks, folds), then Close,
// which folds the journal into the .xls, and a new connection that reads it back.
// Invariants: after every accepted statement the model encodes (no accepted statement can
// make a workbook the codec cannot save); Close succeeds; the reopened workbook holds the
// same sheets and cell values as the model before Close.
//
// Input: one statement a line, at most 12 (a first line "!" alone: FIRSTROWHASNAMES=0).
// A line is the SQL, then its parameters, each after a tab:
//   ~          NULL
//   #<number>  a number as from_chars reads it ("nan" and "inf" included: they are refused)
//   *<n>*<t>   the text t repeated n times, so a short input reaches a cell's 32,767 limit
//   <other>    that text
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>
#include <vector>

#include "odbc-driver/Database.h"
#include "xls/Xls.h"

namespace {

using xlsodbc::Value;

[[noreturn]] void Fail(const std::string& what) {
  std::fprintf(stderr, "statements: %s\n", what.c_str());
  std::abort();
}

// A folder of its own for each input, in memory where the system has one (the journal
// syncs after every statement), removed when the input is done: libFuzzer may end the
// process without running exit handlers.
class WorkDir {
 public:
  WorkDir() {
    std::string base = access("/dev/shm", W_OK) == 0
                           ? std::string("/dev/shm")
                           : std::filesystem::temp_directory_path().string();
    path_ = base + "/statements-fuzz-XXXXXX";
    if (!mkdtemp(&path_[0])) Fail("no work folder");
  }
  ~WorkDir() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

// The workbook each input starts from: two sheets, text, numbers, a blank row, a date.
const std::vector<std::uint8_t>& StartingBytes() {
  static const std::vector<std::uint8_t> bytes = [] {
    xls::Workbook wb;
    xls::Sheet& s = wb.addSheet("Sheet1");
    s.set(0, 0, xls::Cell::Text("Name"));
    s.set(0, 1, xls::Cell::Text("Qty"));
    s.set(1, 0, xls::Cell::Text("abc"));
    s.set(1, 1, xls::Cell::Number(10));
    s.set(3, 0,
          xls::Cell::Text("d\xC3\xA9"
                          "f"));
    s.set(3, 1, xls::Cell::Number(-2.5));
    xls::Sheet& t = wb.addSheet("Other");
    t.set(2, 1, xls::Cell::Text("k"));
    t.set(3, 1, xls::Cell::Number(1e20));
    std::vector<std::uint8_t> out;
    if (!xls::WriteWorkbookToMemory(wb, &out).ok()) Fail("cannot encode the starting workbook");
    return out;
  }();
  return bytes;
}

Value Parameter(std::string_view p) {
  Value v;
  if (p == "~") return v;
  if (!p.empty() && p[0] == '#') {
    double d = 0;
    auto res = std::from_chars(p.data() + 1, p.data() + p.size(), d);
    if (res.ec == std::errc()) {
      v.kind = Value::Kind::kNumber;
      v.number = d;
      return v;
    }
  }
  v.kind = Value::Kind::kText;
  std::size_t star = p.size() > 1 && p[0] == '*' ? p.find('*', 1) : std::string_view::npos;
  std::size_t n = 0;
  if (star != std::string_view::npos &&
      std::from_chars(p.data() + 1, p.data() + star, n).ptr == p.data() + star) {
    std::string_view unit = p.substr(star + 1);
    if (!unit.empty() && n <= 100000 / unit.size()) {
      v.text.reserve(n * unit.size());
      for (std::size_t i = 0; i < n; ++i) v.text.append(unit);
      return v;
    }
  }
  v.text = std::string(p);
  return v;
}

struct Step {
  std::string sql;
  std::vector<Value> parameters;
};

std::vector<Step> Decode(std::string_view in, bool* firstRowHasNames) {
  std::vector<Step> steps;
  *firstRowHasNames = true;
  if (in.substr(0, 2) == "!\n") {
    *firstRowHasNames = false;
    in.remove_prefix(2);
  }
  while (!in.empty() && steps.size() < 12) {
    std::size_t end = in.find('\n');
    std::string_view line = in.substr(0, end);
    in.remove_prefix(end == std::string_view::npos ? in.size() : end + 1);
    Step step;
    std::size_t tab = line.find('\t');
    step.sql = std::string(line.substr(0, tab));
    while (tab != std::string_view::npos) {
      line.remove_prefix(tab + 1);
      tab = line.find('\t');
      step.parameters.push_back(Parameter(line.substr(0, tab)));
    }
    steps.push_back(std::move(step));
  }
  return steps;
}

// The sheets in order, and every cell's type and value (formats aside: the file keeps them
// as its own table of styles).
void RequireSameValues(const xls::Workbook& a, const xls::Workbook& b) {
  if (a.sheets().size() != b.sheets().size()) Fail("the number of sheets changed on reopening");
  for (std::size_t i = 0; i < a.sheets().size(); ++i) {
    const xls::Sheet& x = a.sheets()[i];
    const xls::Sheet& y = b.sheets()[i];
    if (x.name() != y.name()) Fail("sheet '" + x.name() + "' came back as '" + y.name() + "'");
    const int rows = std::max(x.usedRows(), y.usedRows());
    const int columns = std::max(x.usedColumns(), y.usedColumns());
    for (int r = 0; r < rows; ++r) {
      for (int c = 0; c < columns; ++c) {
        const xls::Cell& p = x.at(r, c);
        const xls::Cell& q = y.at(r, c);
        bool same = p.type == q.type &&
                    (p.isEmpty() ||
                     (p.type == xls::CellType::kText ? p.text == q.text : p.number == q.number));
        if (!same) {
          Fail("cell " + std::to_string(r + 1) + "," + std::to_string(c + 1) + " of '" + x.name() +
               "' changed on reopening");
        }
      }
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  bool firstRowHasNames;
  const std::vector<Step> steps =
      Decode(std::string_view(reinterpret_cast<const char*>(data), size), &firstRowHasNames);
  const WorkDir dir;
  xlsodbc::DatabaseOptions options;
  options.path = dir.path() + "/book.xls";
  options.firstRowHasNames = firstRowHasNames;
  options.lockTimeoutMs = 1000;
  {
    std::ofstream file(options.path, std::ios::binary | std::ios::trunc);
    const auto& bytes = StartingBytes();
    file.write(reinterpret_cast<const char*>(bytes.data()), static_cast<long>(bytes.size()));
    if (!file) Fail("cannot write the starting workbook");
  }

  std::shared_ptr<const xls::Workbook> before;
  {
    std::unique_ptr<xlsodbc::Database> db;
    xlsodbc::Error e = xlsodbc::Database::Open(options, &db);
    if (!e.ok()) Fail("cannot open the starting workbook: " + e.message());
    for (const Step& step : steps) {
      xlsodbc::Statement st;
      if (!xlsodbc::ParseSql(step.sql, &st).ok()) continue;
      xlsodbc::Outcome out;
      if (!db->Execute(step.sql, st, step.parameters, &out).ok() || !out.changed) continue;
      std::shared_ptr<const xls::Workbook> now;
      e = db->Snapshot(&now);
      if (!e.ok()) Fail("no snapshot after an accepted statement: " + e.message());
      std::vector<std::uint8_t> bytes;
      xls::Status saved = xls::WriteWorkbookToMemory(*now, &bytes);
      if (!saved.ok()) Fail("accepted \"" + step.sql.substr(0, 80) + "\" left " + saved.message());
    }
    e = db->Snapshot(&before);
    if (!e.ok()) Fail("no snapshot before closing: " + e.message());
    e = db->Close();
    if (!e.ok()) Fail("closing failed: " + e.message());
  }
  std::unique_ptr<xlsodbc::Database> again;
  xlsodbc::Error e = xlsodbc::Database::Open(options, &again);
  if (!e.ok()) Fail("cannot reopen: " + e.message());
  std::shared_ptr<const xls::Workbook> after;
  e = again->Snapshot(&after);
  if (!e.ok()) Fail("no snapshot after reopening: " + e.message());
  RequireSameValues(*before, *after);
  return 0;
}
