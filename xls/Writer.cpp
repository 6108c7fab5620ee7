#include <algorithm>
#include <cctype>
#include <cmath>
#include <string>

#include "xls/CompoundFile.h"
#include "xls/FileIo.h"
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
Status BuildSheet(const Sheet& sheet, bool active, SharedStringTable* sst, StyleTableWriter* styles,
                  std::vector<std::uint8_t>* out) {
  RecordWriter w(out);
  w.Begin(rec::kBof);
  w.U16(0x0600);
  w.U16(0x0010);
  w.U16(0x0DBB);
  w.U16(0x07CC);
  w.U32(0);
  w.U32(0x00000006);
  w.End();
  for (const auto& [col, width] : sheet.columnWidths()) {
    if (col < 0 || col >= kMaxColumns) continue;
    w.Begin(rec::kColInfo);
    w.U16(static_cast<std::uint16_t>(col));
    w.U16(static_cast<std::uint16_t>(col));
    w.U16(width);
    w.U16(15);
    w.U16(0x0002);  // width set by the user
    w.U16(0);
    w.End();
  }
  const auto& rows = sheet.rows();
  const int nRows = static_cast<int>(rows.size());
  if (nRows > kMaxRows || sheet.extentColumns() > kMaxColumns) {
    return Status::InvalidArgument("sheet \"" + sheet.name() +
                                   "\" is larger than an .xls sheet (65,536 x 256); save as .xlsx");
  }
  w.Begin(rec::kDimensions);
  w.U32(0);
  w.U32(static_cast<std::uint32_t>(nRows));
  w.U16(0);
  w.U16(static_cast<std::uint16_t>(sheet.extentColumns()));
  w.U16(0);
  w.End();
  // Rows in blocks of 32: the ROW records of a block, then its cells.
  for (int block = 0; block < nRows; block += 32) {
    int end = std::min(nRows, block + 32);
    for (int r = block; r < end; ++r) {
      if (rows[r].empty()) continue;
      w.Begin(rec::kRow);
      w.U16(static_cast<std::uint16_t>(r));
      w.U16(0);
      w.U16(static_cast<std::uint16_t>(rows[r].size()));
      w.U16(0x00FF);
      w.U16(0);
      w.U16(0);
      w.U16(0x0100);
      w.U16(0x000F);
      w.End();
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
        auto head = [&](std::uint16_t id) {
          w.Begin(id);
          w.U16(static_cast<std::uint16_t>(r));
          w.U16(static_cast<std::uint16_t>(c));
          w.U16(xf);
        };
        switch (cell.type) {
          case CellType::kEmpty:
            head(rec::kBlank);
            break;
          case CellType::kText: {
            std::uint32_t index;
            if (!sst->Add(cell.text, &index)) {
              return Status::InvalidArgument("text in " + CellName(sheet, r, c) +
                                             " is longer than 32,767 characters");
            }
            head(rec::kLabelSst);
            w.U32(index);
            break;
          }
          case CellType::kNumber:
          case CellType::kDateTime:
            if (std::isfinite(cell.number)) {
              head(rec::kNumber);
              w.Double(cell.number);
            } else {
              head(rec::kBoolErr);  // a file cannot hold NaN or infinity: #NUM!
              w.U8(0x24);
              w.U8(1);
            }
            break;
          case CellType::kBoolean:
          case CellType::kError:
            head(rec::kBoolErr);
            w.U8(static_cast<std::uint8_t>(cell.number));
            w.U8(cell.type == CellType::kError ? 1 : 0);
            break;
        }
        w.End();
      }
    }
  }
  w.Begin(rec::kWindow2);
  w.U16(active ? 0x06B6 : 0x00B6);
  w.U16(0);
  w.U16(0);
  w.U16(0x40);
  w.U16(0);
  w.U16(0);
  w.U16(0);
  w.U16(0);
  w.U16(0);
  w.End();
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
      if (a.size() == b.size() &&
          std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) {
            return std::tolower(static_cast<unsigned char>(x)) ==
                   std::tolower(static_cast<unsigned char>(y));
          })) {
        return Status::InvalidArgument("duplicate sheet name \"" + sheets[i].name() + "\"");
      }
    }
  }
  SharedStringTable sst;
  StyleTableWriter styles(wb.styles());
  std::vector<std::vector<std::uint8_t>> bodies(sheets.size());
  for (std::size_t i = 0; i < sheets.size(); ++i) {
    Status s = BuildSheet(sheets[i], i == 0, &sst, &styles, &bodies[i]);
    if (!s.ok()) return s;
  }

  stream->clear();
  RecordWriter w(stream);
  w.Begin(rec::kBof);
  w.U16(0x0600);
  w.U16(0x0005);
  w.U16(0x0DBB);
  w.U16(0x07CC);
  w.U32(0);
  w.U32(0x00000006);
  w.End();
  w.Begin(rec::kCodepage);
  w.U16(1200);
  w.End();
  w.Begin(rec::kWindow1);
  for (std::uint16_t v : {0x0000, 0x0000, 0x4000, 0x2000, 0x0038, 0x0000, 0x0000, 0x0001, 0x0258}) {
    w.U16(v);
  }
  w.End();
  w.Begin(rec::kDateMode);
  w.U16(wb.date1904 ? 1 : 0);
  w.End();
  styles.Write(w);
  std::vector<std::size_t> plyPos(sheets.size());
  for (std::size_t i = 0; i < sheets.size(); ++i) {
    plyPos[i] = stream->size() + 4;
    w.Begin(rec::kBoundSheet);
    w.U32(0);
    w.U8(0);  // visible
    w.U8(0);  // worksheet
    WriteString(w, sheets[i].name(), true);
    w.End();
  }
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

Status WriteWorkbookWith(FileOps& ops, const std::string& path, const Workbook& workbook) {
  if (FormatOfPath(path) == WorkbookFormat::kXlsx) return WriteXlsxWith(ops, path, workbook);
  std::vector<std::uint8_t> stream;
  Status s = BuildWorkbookStream(workbook, &stream);
  if (!s.ok()) return s;
  CompoundFileImage image;
  s = BuildCompoundFile({{"Workbook", &stream}}, 9, &image);
  if (!s.ok()) return s;
  return WriteFileAtomically(ops, path, image.pieces);
}

Status WriteWorkbook(const std::string& path, const Workbook& workbook) {
  return WriteWorkbookWith(FileOps::Default(), path, workbook);
}

}  // namespace xls
