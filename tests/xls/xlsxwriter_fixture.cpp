// Writes the workbook XlsxPeersTest expects from libxlsxwriter, as an independent writer.
// Usage: xlsxwriter_fixture PATH [constant]   ("constant": its constant-memory mode, which
// writes strings inline instead of in the shared string table)
#include <xlsxwriter.h>

#include <cstring>

int main(int argc, char** argv) {
  if (argc < 2) return 2;
  lxw_workbook_options options = {};
  options.constant_memory = argc > 2 && std::strcmp(argv[2], "constant") == 0;
  lxw_workbook* wb = workbook_new_opt(argv[1], &options);
  if (wb == nullptr) return 1;
  lxw_worksheet* ws = workbook_add_worksheet(wb, "Lxw");
  lxw_format* bold = workbook_add_format(wb);
  format_set_bold(bold);
  lxw_format* twoPlaces = workbook_add_format(wb);
  format_set_num_format(twoPlaces, "0.00");
  lxw_format* stamp = workbook_add_format(wb);
  format_set_num_format(stamp, "yyyy-mm-dd hh:mm");
  lxw_format* boxed = workbook_add_format(wb);
  format_set_border(boxed, LXW_BORDER_THIN);
  format_set_align(boxed, LXW_ALIGN_CENTER);
  worksheet_set_column(ws, 0, 0, 18, nullptr);
  worksheet_write_string(ws, 0, 0, "head", bold);
  worksheet_write_number(ws, 0, 1, 2.5, twoPlaces);
  lxw_datetime when = {2024, 2, 29, 6, 0, 0};
  worksheet_write_datetime(ws, 0, 2, &when, stamp);
  worksheet_write_boolean(ws, 0, 3, 1, nullptr);
  worksheet_write_formula_num(ws, 0, 4, "=B1*2", nullptr, 5);
  worksheet_write_string(ws, 0, 5, "ünï & <x>", nullptr);
  worksheet_write_number(ws, 1, 1, -7, boxed);
  worksheet_write_number(workbook_add_worksheet(wb, "Second"), 0, 0, 7, nullptr);
  return workbook_close(wb) == LXW_NO_ERROR ? 0 : 1;
}
