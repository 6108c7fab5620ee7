// The SQL engine (SQLite over virtual tables on the model) against the executor's direct path
// and against python3's sqlite3 over the same data loaded with python3-xlrd, in one run:
//  1. SELECT * over a 65,536 x 31 sheet (half numbers with decimals, half short text), every
//     value read as text: the engine, and the executor's direct path;
//  2. GROUP BY with SUM over that sheet;
//  3. a join of two 10,000-row sheets on a number key, every row read;
//  4. an INSERT of 10,000 rows with a date parameter, run once per parameter set as an array
//     of sets runs, the statement prepared once and repeated against prepared for every set
//     (no python peer: the two are ours, before and after).
// The engine's times include making the virtual tables (guessing column types) from the
// model in memory; python's are the query alone on tables it loaded beforehand (load time
// printed apart). Each figure is the best of five runs.
// Usage: sql_engine_bench  (prints figures; no pass/fail).
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>

#include "odbc-driver/Executor.h"
#include "odbc-driver/SqlEngine.h"
#include "xls/Xls.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kRows = 65536, kCols = 31, kJoinRows = 10000, kRuns = 5;

const char* kSelectAll = "SELECT * FROM [Sheet1$A1:IV65536]";
const char* kGroupBy =
    "SELECT Col1 % 100 AS g, SUM(Col3) AS s, COUNT(*) AS n FROM [Sheet1$] GROUP BY g";
const char* kJoin = "SELECT a.Id, a.Name, b.Amount FROM [A$] a JOIN [B$] b ON a.Id = b.Id";

std::shared_ptr<xls::Workbook> MakeBook() {
  auto wb = std::make_shared<xls::Workbook>();
  xls::Sheet& s = wb->addSheet("Sheet1");
  for (int c = 0; c < kCols; ++c) s.set(0, c, xls::Cell::Text("Col" + std::to_string(c + 1)));
  for (int r = 1; r < kRows; ++r) {
    for (int c = 0; c < kCols; ++c) {
      if (c % 2 == 0) {
        s.set(r, c, xls::Cell::Number(r * 31 + c + 0.25));
      } else {
        s.set(r, c, xls::Cell::Text("text " + std::to_string(r) + "/" + std::to_string(c)));
      }
    }
  }
  // One sheet at a time: adding a sheet moves the others.
  xls::Sheet& a = wb->addSheet("A");
  a.set(0, 0, xls::Cell::Text("Id"));
  a.set(0, 1, xls::Cell::Text("Name"));
  for (int r = 1; r <= kJoinRows; ++r) {
    a.set(r, 0, xls::Cell::Number(r));
    a.set(r, 1, xls::Cell::Text("name " + std::to_string(r)));
  }
  xls::Sheet& b = wb->addSheet("B");
  b.set(0, 0, xls::Cell::Text("Id"));
  b.set(0, 1, xls::Cell::Text("Amount"));
  for (int r = 1; r <= kJoinRows; ++r) {
    b.set(r, 0, xls::Cell::Number((r * 7919L) % kJoinRows + 1));  // every id once, shuffled
    b.set(r, 1, xls::Cell::Number(r * 1.5));
  }
  return wb;
}

// Reads every value of a result as text, as SQLGetData would; returns the bytes read.
long ReadAll(const xlsodbc::ResultSet& r) {
  long bytes = 0;
  char buf[xlsodbc::ResultSet::kTextBuffer];
  std::string scratch;
  std::string_view v;
  const int cols = static_cast<int>(r.columns().size());
  for (long row = 0; row < r.rowCount(); ++row) {
    for (int c = 0; c < cols; ++c) {
      if (r.text(row, c, buf, &scratch, &v)) bytes += static_cast<long>(v.size());
    }
  }
  return bytes;
}

double Best(const std::function<long()>& run, long* rows) {
  double best = 1e9;
  for (int i = 0; i < kRuns; ++i) {
    auto t0 = Clock::now();
    *rows = run();
    best = std::min(best, std::chrono::duration<double>(Clock::now() - t0).count());
  }
  return best;
}

// Seconds to insert kInsertRows rows of (text, number, date) into an empty table, one
// Execute per row as Database::ExecuteEngine runs an array; repeat: as the next set.
constexpr int kInsertRows = 10000;
double InsertSets(bool repeat) {
  auto wb = std::make_shared<xls::Workbook>();
  xls::Sheet& s = wb->addSheet("T");
  s.set(0, 0, xls::Cell::Text("name"));
  s.set(0, 1, xls::Cell::Text("n"));
  s.set(0, 2, xls::Cell::Text("day"));
  std::vector<std::vector<xlsodbc::Value>> sets;
  std::vector<std::string> dates;
  for (int i = 0; i < kInsertRows; ++i) {
    char day[32];
    std::snprintf(day, sizeof day, "20%02d-%02d-%02d 00:00:00", i % 30, i % 12 + 1, i % 28 + 1);
    using Kind = xlsodbc::Value::Kind;
    sets.push_back({{Kind::kText, "item " + std::to_string(i), 0, 0},
                    {Kind::kNumber, std::to_string(i), static_cast<double>(i), 0},
                    {Kind::kText, day, 0, 0}});
    dates.push_back(day);
  }
  xlsodbc::SqlEngine engine;
  engine.SetDateTexts(&dates);
  xlsodbc::ExecOptions options;
  auto t0 = Clock::now();
  for (int i = 0; i < kInsertRows; ++i) {
    options.parameters = &sets[static_cast<std::size_t>(i)];
    xlsodbc::Outcome out;
    xlsodbc::Error e =
        engine.Execute("INSERT INTO [T$] VALUES (?, ?, ?)", options, &wb, &out, repeat && i > 0);
    if (!e.ok()) {
      std::fprintf(stderr, "INSERT: %s\n", e.message().c_str());
      std::exit(1);
    }
  }
  const double seconds = std::chrono::duration<double>(Clock::now() - t0).count();
  if (wb->sheets()[0].usedRows() != kInsertRows + 1 ||
      wb->sheets()[0].at(kInsertRows, 2).type != xls::CellType::kDateTime) {
    std::fprintf(stderr, "INSERT: the rows are not all there\n");
    std::exit(1);
  }
  return seconds;
}

const char* kPython = R"(
import sqlite3, sys, time, xlrd
t = time.perf_counter()
book = xlrd.open_workbook(sys.argv[1])
db = sqlite3.connect(':memory:')
for name in ('Sheet1', 'A', 'B'):
    s = book.sheet_by_name(name)
    cols = s.row_values(0)
    db.execute('CREATE TABLE [%s$] (%s)' % (name, ', '.join('[%s]' % c for c in cols)))
    db.executemany('INSERT INTO [%s$] VALUES (%s)' % (name, ', '.join('?' * len(cols))),
                   (s.row_values(r) for r in range(1, s.nrows)))
db.execute("CREATE VIEW [Sheet1$A1:IV65536] AS SELECT * FROM [Sheet1$]")
print('load', time.perf_counter() - t, 0, flush=True)
for label, sql in (('select', sys.argv[2]), ('groupby', sys.argv[3]), ('join', sys.argv[4])):
    best = 1e9
    for i in range(5):
        t = time.perf_counter()
        rows = db.execute(sql).fetchall()
        best = min(best, time.perf_counter() - t)
    print(label, best, len(rows), flush=True)
)";

}  // namespace

int main() {
  auto book = MakeBook();
  char dir[] = "/tmp/sql_engine_benchXXXXXX";
  if (!mkdtemp(dir)) return 1;
  const std::string path = std::string(dir) + "/bench.xls";
  if (!xls::WriteWorkbook(path, *book).ok()) {
    std::fprintf(stderr, "cannot write %s\n", path.c_str());
    return 1;
  }

  xlsodbc::SqlEngine engine;
  xlsodbc::ExecOptions options;
  auto viaEngine = [&](const char* sql) {
    return [&, sql]() -> long {
      xlsodbc::Outcome out;
      xlsodbc::Error e = engine.Execute(sql, options, &book, &out);
      if (!e.ok() || !out.result) {
        std::fprintf(stderr, "%s: %s\n", sql, e.message().c_str());
        std::exit(1);
      }
      ReadAll(*out.result);
      return out.result->rowCount();
    };
  };
  auto direct = [&]() -> long {
    xlsodbc::Statement st;
    xlsodbc::Outcome out;
    if (!xlsodbc::ParseSql(kSelectAll, &st).ok() ||
        !xlsodbc::Execute(st, options, &book, &out).ok()) {
      std::exit(1);
    }
    ReadAll(*out.result);
    return out.result->rowCount();
  };

  long rows[4];
  double engineSelect = Best(viaEngine(kSelectAll), &rows[0]);
  double directSelect = Best(direct, &rows[1]);
  double engineGroup = Best(viaEngine(kGroupBy), &rows[2]);
  double engineJoin = Best(viaEngine(kJoin), &rows[3]);

  std::string cmd = std::string("/usr/bin/python3 -c \"$SQL_BENCH_PY\" '") + path + "' '" +
                    kSelectAll + "' '" + kGroupBy + "' '" + kJoin + "'";
  setenv("SQL_BENCH_PY", kPython, 1);
  double py[4] = {-1, -1, -1, -1};
  long pyRows[4] = {0, 0, 0, 0};
  if (FILE* p = popen(cmd.c_str(), "r")) {
    char label[32];
    double seconds;
    long n;
    const char* labels[] = {"load", "select", "groupby", "join"};
    while (std::fscanf(p, "%31s %lf %ld", label, &seconds, &n) == 3) {
      for (int i = 0; i < 4; ++i) {
        if (std::string(label) == labels[i]) py[i] = seconds, pyRows[i] = n;
      }
    }
    pclose(p);
  }
  unlink(path.c_str());
  rmdir(dir);

  std::printf("best of %d runs; every value of the result read as text\n", kRuns);
  std::printf("%-34s %10s %10s %10s\n", "", "engine s", "python s", "py/engine");
  auto line = [](const char* what, double ours, double theirs, long n, long pn) {
    std::printf("%-34s %10.4f %10.4f %9.2fx  (%ld / %ld rows)\n", what, ours, theirs,
                theirs > 0 ? theirs / ours : 0.0, n, pn);
  };
  line("SELECT * 65,535 x 31", engineSelect, py[1], rows[0], pyRows[1]);
  line("GROUP BY Col1 % 100, SUM, COUNT", engineGroup, py[2], rows[2], pyRows[2]);
  line("JOIN 10,000 x 10,000 on Id", engineJoin, py[3], rows[3], pyRows[3]);
  std::printf("executor's direct SELECT *: %.4f s (%ld rows); engine / direct: %.2fx\n",
              directSelect, rows[1], engineSelect / directSelect);
  std::printf("python: xlrd load into sqlite3 %.3f s (not in the figures above)\n", py[0]);
  double once = 1e9, each = 1e9;
  for (int i = 0; i < 3; ++i) {  // in turns, best of three each
    once = std::min(once, InsertSets(true));
    each = std::min(each, InsertSets(false));
  }
  std::printf(
      "INSERT of %d rows with a date parameter, one run per set: prepared once %.4f s "
      "(%.0f rows/s), prepared for every set %.4f s (%.0f rows/s): %.1fx\n",
      kInsertRows, once, kInsertRows / once, each, kInsertRows / each, each / once);
  return 0;
}
