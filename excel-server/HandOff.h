// Giving the finished workbook to the user, and the process-wide state that needs:
// book numbering, the instances the user controls, the last workbook added.
//
// Application.Visible = true saves each open workbook as BookN.xls (the first free N)
// in $XDG_RUNTIME_DIR (else $TMPDIR, else /tmp) and opens it with xdg-open when
// DISPLAY or WAYLAND_DISPLAY is set. SPREADSHEET_EXCEL_HANDOFF=PATH saves the latest
// workbook to PATH instead and launches nothing (tests, headless hosts).
#pragma once

#include <memory>
#include <string>

#include "excel-server/Objects.h"

namespace excelserver {

int NextBookNumber();
void NoteNewBook(const std::shared_ptr<Book>& book);
void KeepForUser(const std::shared_ptr<Instance>& app);
// Empty on success, else Excel-like text of what failed.
std::string HandOff(const Instance& app);

}  // namespace excelserver

// For tests in the same process: a copy of the workbook most recently added by any
// Application, and its name; false when none was added.
extern "C" __attribute__((visibility("default"))) bool ExcelServerLastWorkbook(xls::Workbook* out,
                                                                               std::string* name);
