#include <algorithm>
#include <cctype>
#include <cmath>
#include <string>

#include "xls/BiffRecords.h"
#include "xls/CompoundFile.h"
#include "xls/FileIo.h"
#include "xls/Names.h"
#include "xls/Records.h"
#include "xls/Strings.h"
#include "xls/Styles.h"
#include "xls/Xls.h"
#include "xls/Xlsx.h"

namespace xls {

namespace {

std::string CellName(const Sheet& sheet, int row, int col) {
  return sheet.name() + " row " + std::to_string(row + 1) + " column " + std::to_string(col + 1);
}

// One sheet substream; lbPlyPos is patched when the globals size is known.
// unitsPerDay[style]: the model holds a number under an elapsed-time format as a count of
// hours, minutes or seconds, the file as days; 0 for every other style.
Status BuildSheet(const Sheet& sheet, bool active, SharedStringTable* sst, StyleTableWriter* styles,
                  const std::vector<double>& unitsPerDay, std::vector<std::uint8_t>* out) {
  RecordWriter w(out);
  BofRecord bof;
  bof.type = 0x0010;
  bof.EncodeTo(w);
  for (const auto& [col, width] : sheet.columnWidths()) {
    if (col < 0 || col >= kMaxColumns) continue;
    ColInfoRecord info;
    info.first = info.last = static_cast<std::uint16_t>(col);
    info.width = width;
    info.EncodeTo(w);
  }
  const auto& rows = sheet.rows();
  const int nRows = static_cast<int>(rows.size());
  if (nRows > kMaxRows || sheet.extentColumns() > kMaxColumns) {
    return Status::InvalidArgument("sheet \"" + sheet.name() +
                                   "\" is larger than an .xls sheet (65,536 x 256); save as .xlsx");
  }
  DimensionsRecord dimensions;
  dimensions.rowsEnd = static_cast<std::uint32_t>(nRows);
  dimensions.columnsEnd = static_cast<std::uint16_t>(sheet.extentColumns());
  dimensions.EncodeTo(w);
  // Rows in blocks of 32: the ROW records of a block, then its cells.
  for (int block = 0; block < nRows; block += 32) {
    int end = std::min(nRows, block + 32);
    for (int r = block; r < end; ++r) {
      if (rows[r].empty()) continue;
      RowRecord row;
      row.row = static_cast<std::uint16_t>(r);
      row.columnsEnd = static_cast<std::uint16_t>(rows[r].size());
      row.EncodeTo(w);
    }
    for (int r = block; r < end; ++r) {
      const auto& row = rows[r];
      for (int c = 0; c < static_cast<int>(row.size()) && c < kMaxColumns; ++c) {
        const Cell& cell = row[c];
        if (cell.isEmpty() && cell.style == 0) continue;
        std::uint16_t xf;
        auto force = StyleTableWriter::DateForce::kNone;
        if (cell.type == CellType::kDateTime) {
          force = cell.number == std::floor(cell.number) ? StyleTableWriter::DateForce::kDate
                                                         : StyleTableWriter::DateForce::kDateTime;
        }
        Status s = styles->XfFor(cell.style, force, &xf);
        if (!s.ok()) return s;
        const CellHead at{static_cast<std::uint16_t>(r), static_cast<std::uint16_t>(c), xf};
        switch (cell.type) {
          case CellType::kEmpty:
            BlankRecord{at}.EncodeTo(w);
            break;
          case CellType::kText: {
            std::uint32_t index;
            if (!sst->Add(cell.text, &index)) {
              return Status::InvalidArgument("text in " + CellName(sheet, r, c) +
                                             " is longer than 32,767 characters");
            }
            LabelSstRecord{at, index}.EncodeTo(w);
            break;
          }
          case CellType::kNumber:
          case CellType::kDateTime:
            if (std::isfinite(cell.number)) {
              const double perDay =
                  cell.type == CellType::kNumber && cell.style < unitsPerDay.size()
                      ? unitsPerDay[cell.style]
                      : 0;
              NumberRecord{at, perDay != 0 ? cell.number / perDay : cell.number}.EncodeTo(w);
            } else {
              BoolErrRecord{at, 0x24, 1}.EncodeTo(w);  // a file cannot hold NaN or infinity: #NUM!
            }
            break;
          case CellType::kBoolean:
          case CellType::kError:
            BoolErrRecord{at, static_cast<std::uint8_t>(cell.number),
                          static_cast<std::uint8_t>(cell.type == CellType::kError ? 1 : 0)}
                .EncodeTo(w);
            break;
        }
      }
    }
  }
  Window2Record window;
  window.options = active ? 0x06B6 : 0x00B6;
  window.EncodeTo(w);
  w.Begin(rec::kEof);
  w.End();
  return Status::OK();
}

Status BuildWorkbookStream(const Workbook& wb, std::vector<std::uint8_t>* stream) {
  const auto& sheets = wb.sheets();
  if (sheets.empty()) return Status::InvalidArgument("a workbook needs at least one sheet");
  if (wb.encrypted) {
    return Status::Unsupported(
        "the workbook was read from a password-protected file, and writing encrypted files is "
        "not supported: saving would leave it without its password");
  }
  for (std::size_t i = 0; i < sheets.size(); ++i) {
    if (!Workbook::isValidSheetName(sheets[i].name())) {
      return Status::InvalidArgument("invalid sheet name \"" + sheets[i].name() + "\"");
    }
    for (std::size_t j = 0; j < i; ++j) {
      const std::string& a = sheets[i].name();
      const std::string& b = sheets[j].name();
      if (a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) {
            return std::tolower(static_cast<unsigned char>(x)) ==
                   std::tolower(static_cast<unsigned char>(y));
          })) {
        return Status::InvalidArgument("duplicate sheet name \"" + sheets[i].name() + "\"");
      }
    }
  }
  SharedStringTable sst;
  StyleTableWriter styles(wb.styles());
  std::vector<double> unitsPerDay;
  for (const Style& style : wb.styles())
    unitsPerDay.push_back(ElapsedUnitsPerDay(ClassifyNumberFormat(style.numberFormat)));
  std::vector<std::vector<std::uint8_t>> bodies(sheets.size());
  for (std::size_t i = 0; i < sheets.size(); ++i) {
    Status s = BuildSheet(sheets[i], i == 0, &sst, &styles, unitsPerDay, &bodies[i]);
    if (!s.ok()) return s;
  }

  stream->clear();
  RecordWriter w(stream);
  BofRecord{}.EncodeTo(w);
  U16Record{rec::kCodepage, 1200}.EncodeTo(w);
  Window1Record{}.EncodeTo(w);
  U16Record{rec::kDateMode, static_cast<std::uint16_t>(wb.date1904 ? 1 : 0)}.EncodeTo(w);
  styles.Write(w);
  std::vector<std::size_t> plyPos(sheets.size());
  for (std::size_t i = 0; i < sheets.size(); ++i) {
    plyPos[i] = stream->size() + BoundSheetRecord::kPositionOffset;
    BoundSheetRecord bound;  // a visible worksheet, its position patched below
    bound.name = sheets[i].name();
    bound.EncodeTo(w);
  }
  WriteNameRecords(wb, w);
  sst.Write(stream);
  w.Begin(rec::kEof);
  w.End();
  for (std::size_t i = 0; i < sheets.size(); ++i) {
    PutU32(stream->data() + plyPos[i], static_cast<std::uint32_t>(stream->size()));
    stream->insert(stream->end(), bodies[i].begin(), bodies[i].end());
    std::vector<std::uint8_t>().swap(bodies[i]);
  }
  if (stream->size() > 0xFFFFFFFFu) return Status::InvalidArgument("workbook larger than 4 GB");
  return Status::OK();
}

}  // namespace

Status WriteWorkbookToMemory(const Workbook& workbook, std::vector<std::uint8_t>* out) {
  std::vector<std::uint8_t> stream;
  Status s = BuildWorkbookStream(workbook, &stream);
  if (!s.ok()) return s;
  CompoundFileImage image;
  s = BuildCompoundFile({{"Workbook", &stream}}, 9, &image);
  if (!s.ok()) return s;
  *out = image.Flatten();
  return Status::OK();
}

Status WriteWorkbook(const std::string& path, const Workbook& workbook) {
  if (FormatOfPath(path) == WorkbookFormat::kXlsx) return WriteXlsx(path, workbook);
  std::vector<std::uint8_t> stream;
  Status s = BuildWorkbookStream(workbook, &stream);
  if (!s.ok()) return s;
  CompoundFileImage image;
  s = BuildCompoundFile({{"Workbook", &stream}}, 9, &image);
  if (!s.ok()) return s;
  return WriteFileAtomically(path, image.pieces);
}

}  // namespace xls
