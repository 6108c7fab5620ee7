// Fuzz target for the SQL parser and the executor behind it: any bytes are parsed as a
// statement and, when they parse, run twice against a small workbook (the second run sees
// the first one's changes), once on each format's grid. Nothing may crash, hang or read out
// of bounds, and a statement the executor accepts must leave a workbook that fits the grid
// and that the codec can encode in that format.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "odbc-driver/Executor.h"
#include "xls/Xls.h"
#include "xls/Xlsx.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::string sql(reinterpret_cast<const char*>(data), size);
  xlsodbc::Statement st;
  if (!xlsodbc::ParseSql(sql, &st).ok()) return 0;
  for (const xlsodbc::SheetGrid& grid : {xlsodbc::kXlsGrid, xlsodbc::kXlsxGrid}) {
    auto book = std::make_shared<xls::Workbook>();
    xls::Sheet& s = book->addSheet("Sheet1");
    s.set(0, 0, xls::Cell::Text("Name"));
    s.set(0, 1, xls::Cell::Text("Qty"));
    s.set(1, 0, xls::Cell::Text("abc"));
    s.set(1, 1, xls::Cell::Number(10));
    s.set(3, 2, xls::Cell::DateTime(45000.25));
    std::vector<xlsodbc::Value> params(2);
    params[0].kind = xlsodbc::Value::Kind::kText;
    params[0].text = "p";
    xlsodbc::ExecOptions o;
    o.parameters = &params;
    o.grid = grid;
    xlsodbc::Outcome out;
    for (int i = 0; i < 2; ++i) {
      if (!xlsodbc::Execute(st, o, &book, &out).ok()) continue;
      if (out.changed) {
        for (const xls::Sheet& sheet : book->sheets()) {
          if (sheet.extentRows() > grid.rows || sheet.extentColumns() > grid.columns) {
            std::fprintf(stderr, "accepted statement wrote past the grid\n");
            std::abort();
          }
        }
        std::vector<std::uint8_t> bytes;
        xls::Status saved = grid == xlsodbc::kXlsGrid ? xls::WriteWorkbookToMemory(*book, &bytes)
                                                      : xls::WriteXlsxToMemory(*book, &bytes);
        if (!saved.ok()) {
          std::fprintf(stderr, "accepted statement left an unsavable workbook: %s\n",
                       saved.message().c_str());
          std::abort();
        }
      }
      if (!out.result) continue;
      std::string v;
      long rows = out.result->rowCount() < 50 ? out.result->rowCount() : 50;
      for (long r = 0; r < rows; ++r) {
        for (int c = 0; c < static_cast<int>(out.result->columns().size()); ++c)
          out.result->value(r, c, &v);
      }
    }
  }
  return 0;
}
