// Fuzz target for the whole SQL engine path: any bytes go through the rewriter, SQLite and
// the virtual tables over a small workbook, twice (the second run sees the first's changes).
// Nothing may crash, hang or read out of bounds; a failure must say why. Built with
// -DSPREADSHEET_FUZZ=ON (clang); the engine's tests run the corpus and mutations of it.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "odbc-driver/SqlEngine.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static xlsodbc::SqlEngine* engine = [] {
    xlsodbc::EngineLimits limits;
    limits.maxSteps = 5'000'000;        // a runaway query stops in well under a second
    limits.maxResultValues = 1u << 18;  // and so does a cross join
    return new xlsodbc::SqlEngine(limits);
  }();
  std::string sql(reinterpret_cast<const char*>(data), size);
  auto book = std::make_shared<xls::Workbook>();
  xls::Sheet& s = book->addSheet("Sheet1");
  s.set(0, 0, xls::Cell::Text("Name"));
  s.set(0, 1, xls::Cell::Text("Qty"));
  s.set(1, 0, xls::Cell::Text("abc"));
  s.set(1, 1, xls::Cell::Number(10));
  s.set(2, 1, xls::Cell::Boolean(true));
  s.set(3, 2, xls::Cell::DateTime(45000.25));
  std::vector<xlsodbc::Value> params(2);
  params[0].kind = xlsodbc::Value::Kind::kText;
  params[0].text = "p";
  xlsodbc::ExecOptions o;
  o.parameters = &params;
  for (int i = 0; i < 2; ++i) {
    xlsodbc::Outcome out;
    xlsodbc::Error e = engine->Execute(sql, o, &book, &out);
    if (!e.ok() && e.message().empty()) std::abort();
    if (!out.result) continue;
    std::string v;
    long rows = out.result->rowCount() < 50 ? out.result->rowCount() : 50;
    for (long r = 0; r < rows; ++r) {
      for (int c = 0; c < static_cast<int>(out.result->columns().size()); ++c)
        out.result->value(r, c, &v);
    }
  }
  return 0;
}
