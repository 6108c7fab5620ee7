// sheet report OUT.xls [--rms N] [--price-protection N] [--script-validation N]: runs the
// report automation (the three risk-limit tables) and saves the workbook to OUT.xls
// instead of showing it, for users without a display.
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>

#include "platform/MessageBox.h"
#include "spreadsheet/SpreadSheet.h"
#include "tools/sheet/Commands.h"
#include "tools/sheet/Options.h"

namespace sheet {

namespace {

constexpr long kMaxRows = 65532;  // data rows below the three heading rows of a sheet

[[nodiscard]] bool ParseCount(const std::string& text, long* out) {
  if (text.empty() || text.size() > 5 || text.find_first_not_of("0123456789") != std::string::npos)
    return false;
  *out = std::strtol(text.c_str(), nullptr, 10);
  return *out <= kMaxRows;
}

int ReportBox(const char* text, const char*, unsigned, void* context) {
  *static_cast<std::string*>(context) = text;
  return platform::kIdOk;
}

}  // namespace

int Report(const Args& args) {
  std::string out;
  long counts[3] = {0, 0, 0};
  const char* const names[3] = {"--rms", "--price-protection", "--script-validation"};
  for (std::size_t i = 0; i < args.size(); ++i) {
    int which = -1;
    for (int k = 0; k < 3; ++k)
      if (args[i] == names[k]) which = k;
    if (which >= 0) {
      if (i + 1 >= args.size() || !ParseCount(args[i + 1], &counts[which]))
        return Usage(args[i] + " needs a row count from 0 to 65532", "report");
      ++i;
    } else if (!args[i].empty() && args[i][0] == '-') {
      return Usage("unknown option " + args[i], "report");
    } else if (out.empty()) {
      out = args[i];
    } else {
      return Usage("one output file only", "report");
    }
  }
  if (out.empty()) return Usage("missing OUT.xls", "report");

  std::error_code ec;
  std::string target = std::filesystem::absolute(out, ec).string();
  char work[] = "/tmp/sheet-report-XXXXXX";
  if (ec || mkdtemp(work) == nullptr) {
    std::fprintf(stderr, "sheet: report: cannot make a work folder: %s\n", std::strerror(errno));
    return 1;
  }
  setenv("SPREADSHEET_EXCEL_HANDOFF", target.c_str(), 1);
  std::string shown;
  platform::MessageBoxHook previous = platform::SetMessageBoxHook(&ReportBox, &shown);
  int status = 0;
  {
    // The object only carries the automation state; its text file is never written.
    CSpreadSheet s((std::string(work) + "/report.txt").c_str(), ",");
    try {
      s.initExcel("");
      if (!shown.empty()) {
        std::fprintf(stderr, "sheet: report: %s\n", shown.c_str());
        status = 1;
      } else {
        const char* const tables[3] = {"RMS", "Price Protection", "Script Validation"};
        for (int k = 0; k < 3; ++k) {
          s.initTable(counts[k], tables[k]);
          s.endTable(tables[k]);
        }
        s.endExcel();
      }
    } catch (CException* e) {
      char message[512] = {};
      e->GetErrorMessage(message, sizeof message);
      e->Delete();
      std::fprintf(stderr, "sheet: report: %s\n", message);
      status = 1;
    }
  }
  platform::SetMessageBoxHook(previous);
  std::filesystem::remove_all(work, ec);
  return status;
}

}  // namespace sheet
