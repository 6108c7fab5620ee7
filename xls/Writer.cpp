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

// The cell records of one row, laid out as NumberRecord, LabelSstRecord, BlankRecord and
// BoolErrRecord (BiffRecords.h) encode them, written straight into a buffer and appended
// to the stream once a row: a full sheet has millions of cells.
class CellRecords {
 public:
  static constexpr std::size_t kLargest = 4 + 14;  // NUMBER
  explicit CellRecords(std::uint8_t* p) : p_(p) {}
  void Blank(const CellHead& at) { Head(rec::kBlank, 6, at); }
  void LabelSst(const CellHead& at, std::uint32_t index) {
    Head(rec::kLabelSst, 10, at);
    PutU32(p_, index);
    p_ += 4;
  }
  void Number(const CellHead& at, double value) {
    std::uint64_t bits;
    std::memcpy(&bits, &value, sizeof bits);
    Head(rec::kNumber, 14, at);
    PutU64(p_, bits);
    p_ += 8;
  }
  void BoolErr(const CellHead& at, std::uint8_t value, std::uint8_t isError) {
    Head(rec::kBoolErr, 8, at);
    p_[0] = value;
    p_[1] = isError;
    p_ += 2;
  }
  std::uint8_t* end() const { return p_; }

 private:
  void Head(std::uint16_t id, std::uint16_t length, const CellHead& at) {
    PutU16(p_, id);
    PutU16(p_ + 2, length);
    PutU16(p_ + 4, at.row);
    PutU16(p_ + 6, at.column);
    PutU16(p_ + 8, at.xf);
    p_ += 10;
  }
  std::uint8_t* p_;
};

// An upper bound on the distinct strings the workbook's cells hold.
std::size_t TextCells(const Workbook& wb) {
  std::size_t n = 0;
  for (const Sheet& sheet : wb.sheets()) {
    for (const auto& row : sheet.rows()) {
      for (const Cell& cell : row) n += cell.type == CellType::kText;
    }
  }
  return n;
}

// Whether a cell has a record of its own.
bool IsWritten(const Cell& cell) { return !cell.isEmpty() || cell.style != 0; }

// The XF of each written cell. A run of cells in one style asks the style table once: it
// answers the same for the same question, and adds an XF only the first time.
class XfOfCells {
 public:
  explicit XfOfCells(StyleTableWriter* styles) : styles_(styles) {}
  Status For(const Cell& cell, std::uint16_t* xf) {
    auto force = StyleTableWriter::DateForce::kNone;
    if (cell.type == CellType::kDateTime) {
      force = cell.number == std::floor(cell.number) ? StyleTableWriter::DateForce::kDate
                                                     : StyleTableWriter::DateForce::kDateTime;
    }
    if (!known_ || cell.style != style_ || force != force_) {
      Status s = styles_->XfFor(cell.style, force, &xf_);
      if (!s.ok()) return s;
      known_ = true;
      style_ = cell.style;
      force_ = force;
    }
    *xf = xf_;
    return Status::OK();
  }

 private:
  StyleTableWriter* styles_;
  bool known_ = false;
  std::uint16_t style_ = 0, xf_ = 0;
  StyleTableWriter::DateForce force_ = StyleTableWriter::DateForce::kNone;
};

// The first pass over a sheet, in the order its records are written: each style its
// cells use gets its XF and each text its place in the SST (appended to *labels, one per
// text cell), and the first fault stops the workbook as writing the record would. Adds an
// upper bound on the sheet's record bytes to *bytes.
Status PlanSheet(const Sheet& sheet, SharedStringTable* sst, StyleTableWriter* styles,
                 std::vector<std::uint32_t>* labels, std::size_t* bytes) {
  const auto& rows = sheet.rows();
  if (rows.size() > static_cast<std::size_t>(kMaxRows) || sheet.extentColumns() > kMaxColumns) {
    return Status::InvalidArgument("sheet \"" + sheet.name() +
                                   "\" is larger than an .xls sheet (65,536 x 256); save as .xlsx");
  }
  *bytes += 256 + 20 * sheet.columnWidths().size();
  XfOfCells xfs(styles);
  std::uint64_t hashes[kMaxColumns];
  for (std::size_t r = 0; r < rows.size(); ++r) {
    const auto& row = rows[r];
    const int width = std::min(static_cast<int>(row.size()), kMaxColumns);
    *bytes += 20 + CellRecords::kLargest * static_cast<std::size_t>(width);
    // The row's strings are hashed first and their slots loaded together: in a large
    // table each lookup would otherwise wait for memory on its own.
    for (int c = 0; c < width; ++c) {
      if (row[c].type != CellType::kText) continue;
      hashes[c] = SharedStringTable::Hash(row[c].text);
      sst->Prefetch(hashes[c]);
    }
    for (int c = 0; c < width; ++c) {
      const Cell& cell = row[c];
      if (!IsWritten(cell)) continue;
      std::uint16_t xf;
      Status s = xfs.For(cell, &xf);
      if (!s.ok()) return s;
      if (cell.type != CellType::kText) continue;
      std::uint32_t index;
      if (!sst->Add(cell.text, hashes[c], &index)) {
        return Status::InvalidArgument("text in " + CellName(sheet, static_cast<int>(r), c) +
                                       " is longer than 32,767 characters");
      }
      labels->push_back(index);
    }
  }
  return Status::OK();
}

// One sheet substream, appended to out; lbPlyPos is patched when the globals size is known.
// *label walks the SST indices PlanSheet gave the text cells, in the same order.
// unitsPerDay[style]: the model holds a number under an elapsed-time format as a count of
// hours, minutes or seconds, the file as days; 0 for every other style.
// REQUIRES: PlanSheet succeeded for the sheet with these styles.
void BuildSheet(const Sheet& sheet, bool active, const std::uint32_t** label,
                StyleTableWriter* styles, const std::vector<double>& unitsPerDay,
                std::vector<std::uint8_t>* out) {
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
  DimensionsRecord dimensions;
  dimensions.rowsEnd = static_cast<std::uint32_t>(nRows);
  dimensions.columnsEnd = static_cast<std::uint16_t>(sheet.extentColumns());
  dimensions.EncodeTo(w);
  XfOfCells xfs(styles);
  std::uint8_t buffer[kMaxColumns * CellRecords::kLargest];
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
      const int width = std::min(static_cast<int>(row.size()), kMaxColumns);
      CellRecords records(buffer);
      for (int c = 0; c < width; ++c) {
        const Cell& cell = row[c];
        if (!IsWritten(cell)) continue;
        std::uint16_t xf = 0;
        (void)xfs.For(cell, &xf);  // known since PlanSheet: cannot fail
        const CellHead at{static_cast<std::uint16_t>(r), static_cast<std::uint16_t>(c), xf};
        switch (cell.type) {
          case CellType::kEmpty:
            records.Blank(at);
            break;
          case CellType::kText:
            records.LabelSst(at, *(*label)++);
            break;
          case CellType::kNumber:
          case CellType::kDateTime:
            if (std::isfinite(cell.number)) {
              const double perDay =
                  cell.type == CellType::kNumber && cell.style < unitsPerDay.size()
                      ? unitsPerDay[cell.style]
                      : 0;
              records.Number(at, perDay != 0 ? cell.number / perDay : cell.number);
            } else {
              records.BoolErr(at, 0x24, 1);  // a file cannot hold NaN or infinity: #NUM!
            }
            break;
          case CellType::kBoolean:
          case CellType::kError:
            records.BoolErr(at, static_cast<std::uint8_t>(cell.number),
                            static_cast<std::uint8_t>(cell.type == CellType::kError ? 1 : 0));
            break;
        }
      }
      w.Bytes(buffer, static_cast<std::size_t>(records.end() - buffer));
    }
  }
  Window2Record window;
  window.options = active ? 0x06B6 : 0x00B6;
  window.EncodeTo(w);
  w.Begin(rec::kEof);
  w.End();
}

// The workbook stream, appended to the base bytes already in *stream (room the caller keeps
// in front of it): offsets inside the stream are counted from its own start.
Status BuildWorkbookStream(const Workbook& wb, std::size_t base,
                           std::vector<std::uint8_t>* stream) {
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
  // The strings and styles first, so that the globals, which list them, can be written
  // before the sheets, and each sheet straight after them.
  SharedStringTable sst;
  const std::size_t texts = TextCells(wb);
  sst.Reserve(texts);
  std::vector<std::uint32_t> labels;
  labels.reserve(texts);
  StyleTableWriter styles(wb.styles());
  std::vector<double> unitsPerDay;
  for (const Style& style : wb.styles())
    unitsPerDay.push_back(ElapsedUnitsPerDay(ClassifyNumberFormat(style.numberFormat)));
  std::size_t bodyBytes = 0;
  for (const Sheet& sheet : sheets) {
    Status s = PlanSheet(sheet, &sst, &styles, &labels, &bodyBytes);
    if (!s.ok()) return s;
  }

  // The globals are small beside the sheets and the strings: room for all of it at once.
  std::size_t room = base + (std::size_t{64} << 10) + sst.WrittenSizeBound() + bodyBytes;
  room += room / 64 + 8192;  // and the container's tables, which follow a stream in memory
  stream->resize(base);
  stream->reserve(room);
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
  sst.Write(base, stream);
  w.Begin(rec::kEof);
  w.End();
  const std::uint32_t* label = labels.data();
  for (std::size_t i = 0; i < sheets.size(); ++i) {
    PutU32(stream->data() + plyPos[i], static_cast<std::uint32_t>(stream->size() - base));
    BuildSheet(sheets[i], i == 0, &label, &styles, unitsPerDay, stream);
  }
  if (stream->size() - base > 0xFFFFFFFFu) {
    return Status::InvalidArgument("workbook larger than 4 GB");
  }
  return Status::OK();
}

}  // namespace

Status WriteWorkbookToMemory(const Workbook& workbook, std::vector<std::uint8_t>* out) {
  // The stream is built where it lies in the file, after room for the header, and the
  // container is finished around it: a large workbook is not copied again.
  std::vector<std::uint8_t> file;
  Status s = BuildWorkbookStream(workbook, kCompoundHeaderRoom, &file);
  if (!s.ok()) return s;
  s = FinishCompoundFileInPlace("Workbook", &file);
  if (!s.ok()) return s;
  *out = std::move(file);
  return Status::OK();
}

Status WriteWorkbook(const std::string& path, const Workbook& workbook) {
  if (FormatOfPath(path) == WorkbookFormat::kXlsx) return WriteXlsx(path, workbook);
  std::vector<std::uint8_t> stream;
  Status s = BuildWorkbookStream(workbook, 0, &stream);
  if (!s.ok()) return s;
  CompoundFileImage image;
  s = BuildCompoundFile({{"Workbook", &stream}}, 9, &image);
  if (!s.ok()) return s;
  return WriteFileAtomically(path, image.pieces);
}

}  // namespace xls
