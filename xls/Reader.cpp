#include <cmath>
#include <cstring>
#include <string>

#include "xls/BiffRecords.h"
#include "xls/BookReader.h"
#include "xls/CompoundFile.h"
#include "xls/Encryption.h"
#include "xls/FileIo.h"
#include "xls/Records.h"
#include "xls/Strings.h"
#include "xls/Styles.h"
#include "xls/Xls.h"
#include "xls/Xlsx.h"

namespace xls {

namespace {

std::string Hex(std::uint16_t v) {
  char b[8];
  std::snprintf(b, sizeof b, "0x%04X", v);
  return b;
}

const char* RecordName(std::uint16_t id) {
  switch (id) {
    case rec::kBof:
    case rec::kBof2:
    case rec::kBof3:
    case rec::kBof4:
      return "BOF";
    case rec::kBoundSheet:
      return "BOUNDSHEET";
    case rec::kSst:
      return "SST";
    case rec::kLabelSst:
      return "LABELSST";
    case rec::kLabel:
    case rec::kLabel2:
      return "LABEL";
    case rec::kRString:
      return "RSTRING";
    case rec::kNumber:
    case rec::kNumber2:
      return "NUMBER";
    case rec::kInteger2:
      return "INTEGER";
    case rec::kRk:
      return "RK";
    case rec::kMulRk:
      return "MULRK";
    case rec::kMulBlank:
      return "MULBLANK";
    case rec::kBlank:
    case rec::kBlank2:
      return "BLANK";
    case rec::kBoolErr:
    case rec::kBoolErr2:
      return "BOOLERR";
    case rec::kFormula:
    case rec::kFormula3:
    case rec::kFormula4:
      return "FORMULA";
    case rec::kString:
    case rec::kString2:
      return "STRING";
    case rec::kSheetHeader4:
      return "SHEETHDR";
    default:
      return "";
  }
}

}  // namespace

Status DamagedRecord(const Record& r, const std::string& what) {
  std::string name = RecordName(r.id);
  return Status::Corruption((name.empty() ? "record " : name + " record ") + Hex(r.id) +
                            " at offset " + std::to_string(r.offset) + ": " + what);
}

Status ReadStreamVersion(const std::uint8_t* data, std::size_t size, StreamVersion* out) {
  RecordCursor cur(data, size, 0);
  Record r;
  Status st;
  if (!cur.Next(&r, &st)) return st.ok() ? Status::Corruption("empty workbook stream") : st;
  const bool oldBof = r.id == rec::kBof2 || r.id == rec::kBof3 || r.id == rec::kBof4;
  if ((r.id != rec::kBof && !oldBof) || r.size < 4) {
    return Status::Corruption("workbook stream does not start with a BOF record (found " +
                              Hex(r.id) + " at offset " + std::to_string(r.offset) + ")");
  }
  out->type = GetU16(r.data + 2);
  if (oldBof) {
    out->biff = r.id == rec::kBof2 ? 2 : r.id == rec::kBof3 ? 3 : 4;
    return Status::OK();
  }
  const std::uint16_t vers = GetU16(r.data);
  switch (vers) {
    case 0x0600:
      out->biff = 8;
      break;
    case 0x0500:
      out->biff = 5;
      break;
    // Some generators write the later BOF record (0x0809) over an older version's records.
    case 0x0000:
    case 0x0007:
    case 0x0200:
      out->biff = 2;
      break;
    case 0x0300:
      out->biff = 3;
      break;
    case 0x0400:
      out->biff = 4;
      break;
    default:
      return Status::Unsupported("BOF record declares BIFF version " + Hex(vers) +
                                 "; Excel 2 to Excel 2003 workbooks (BIFF2-BIFF8) are read");
  }
  if (out->biff >= 5 && out->type == 0x0100) {
    return Status::Unsupported(
        "an Excel workspace file (.xlw): it lists workbooks, holds no sheets");
  }
  return Status::OK();
}

Status BookReader::Read() {
  if (biff_ < 5) return ReadOldBook();
  std::vector<SheetInfo> sheets;
  Status s = ReadGlobals(&sheets);
  if (!s.ok()) return s;
  std::vector<int> tabToSheet;
  for (const SheetInfo& info : sheets) {
    if (info.offset == 0) {  // a chart, macro or module sheet: not kept
      tabToSheet.push_back(-1);
      continue;
    }
    if (info.offset >= size_) {
      return Status::Corruption("sheet \"" + info.name + "\" starts at offset " +
                                std::to_string(info.offset) + ", past the end of the stream");
    }
    tabToSheet.push_back(static_cast<int>(wb_->sheets().size()));
    Sheet& sheet = wb_->addSheet(SheetName(info.name));
    s = ReadSheet(info.offset, &sheet);
    if (!s.ok()) return s;
  }
  names_.Resolve(tabToSheet, wb_);
  return Status::OK();
}

std::string BookReader::SheetName(const std::string& name) const {
  if (Workbook::isValidSheetName(name) && wb_->findSheet(name) == nullptr) return name;
  for (std::size_t k = wb_->sheets().size() + 1;; ++k) {
    std::string made = "Sheet" + std::to_string(k);
    if (wb_->findSheet(made) == nullptr) return made;
  }
}

Status BookReader::OnFilePass(const Record& filepass) {
  if (decrypted_) return Status::OK();
  return Status::Unsupported("the workbook is encrypted (FILEPASS record at offset " +
                             std::to_string(filepass.offset) + ")");
}

void BookReader::SetCodepage(std::uint16_t codepage) {
  codepage_ = std::make_unique<CodepageDecoder>(codepage);
}

void BookReader::Text8(const std::uint8_t* p, std::size_t n, std::string* out) const {
  codepage_->Append(p, n, out);
}

bool BookReader::ByteString(const std::uint8_t* p, std::size_t n, int lengthBytes,
                            std::string* out) const {
  if (n < static_cast<std::size_t>(lengthBytes)) return false;
  const std::size_t cch = lengthBytes == 1 ? p[0] : GetU16(p);
  if (n - lengthBytes < cch) return false;
  Text8(p + lengthBytes, cch, out);
  return true;
}

void BookReader::AddFont(bool bold) {
  fontBold_.push_back(bold);
  if (fontBold_.size() == 4) fontBold_.push_back(false);  // index 4 does not exist
}

void BookReader::AddFormat(std::uint16_t index, std::string format) {
  formats_[index] = std::move(format);
}

Status BookReader::ReadGlobals(std::vector<SheetInfo>* sheets) {
  RecordCursor cur(data_, size_, 0);
  Record r;
  Status st;
  if (!cur.Next(&r, &st)) return st.ok() ? Status::Corruption("empty workbook stream") : st;
  while (cur.Next(&r, &st)) {
    switch (r.id) {
      case rec::kEof:
        return Status::OK();
      case rec::kFilePass:
        st = OnFilePass(r);
        if (!st.ok()) return st;
        cur = RecordCursor(data_, size_, r.offset + 4 + r.size);
        break;
      case rec::kCodepage:
        if (r.size >= 2) SetCodepage(GetU16(r.data));
        break;
      case rec::kDateMode:
        if (r.size >= 2) wb_->date1904 = GetU16(r.data) == 1;
        break;
      case rec::kFont: {
        bool bold = false;
        ParseFontBold(r.data, r.size, &bold);
        AddFont(bold);
        break;
      }
      case rec::kFormat: {
        if (r.size < 2) break;
        std::string f;
        if (biff_ >= 8) {
          SegmentReader in;
          in.Add(r.data + 2, r.size - 2);
          if (in.String(false, &f)) AddFormat(GetU16(r.data), std::move(f));
        } else if (ByteString(r.data + 2, r.size - 2, 1, &f)) {
          AddFormat(GetU16(r.data), std::move(f));
        }
        break;
      }
      case rec::kXf: {
        XfRecord xf;
        if (ParseXf(r.data, r.size, biff_ >= 8, &xf)) xfs_.push_back(xf);
        break;
      }
      case rec::kBoundSheet: {
        BoundSheetRecord bound;
        if (biff_ >= 8) {
          if (!bound.DecodeFrom(r)) return DamagedRecord(r, "too short for its sheet name");
        } else {  // BIFF5: the same, but the name is 8-bit text in the code page
          if (r.size < 7 || !ByteString(r.data + 6, r.size - 6, 1, &bound.name))
            return DamagedRecord(r, "too short for its sheet name");
          bound.position = GetU32(r.data);
          bound.kind = r.data[5];
        }
        // Charts, macro and module sheets are not kept: position 0 marks them.
        sheets->push_back({bound.kind == 0 ? bound.position : 0, std::move(bound.name)});
        break;
      }
      case rec::kSst: {
        const Record sst = r;
        SegmentReader in;
        in.Add(r.data, r.size);
        while (cur.PeekId() == rec::kContinue) {
          if (!cur.Next(&r, &st)) return st;
          in.Add(r.data, r.size);
        }
        st = ReadSharedStrings(&in, &sst_);
        if (!st.ok()) return DamagedRecord(sst, st.message());
        break;
      }
      case rec::kSupBook:
        names_.AddSupBook(r.data, r.size);
        break;
      case rec::kExternSheet:
        if (biff_ >= 8) names_.AddExternSheet(r.data, r.size);
        break;
      case rec::kName:
        names_.AddName(r.data, r.size, biff_, *codepage_);
        break;
      default:
        break;
    }
  }
  if (!st.ok()) return st;
  return Status::Corruption("workbook globals end without an EOF record");
}

std::uint16_t BookReader::ResolveStyle(std::uint16_t xf, NumberKind* kind) {
  *kind = NumberKind::kNumber;
  if (xf >= xfs_.size()) return 0;
  if (xfResolved_.size() < xfs_.size()) xfResolved_.resize(xfs_.size(), 0);
  const XfRecord& x = xfs_[xf];
  std::string format;
  auto it = formats_.find(x.format);
  if (it != formats_.end()) {
    format = it->second;
  } else if (biff_ < 5) {
    // Before BIFF5 every format a file uses is in its FORMAT records: no built-in numbers.
  } else if (const char* builtin = BuiltinNumberFormat(x.format)) {
    format = builtin;
  } else if ((x.format >= 27 && x.format <= 36) || (x.format >= 50 && x.format <= 58)) {
    format = "yyyy-mm-dd";  // locale-specific date formats
  }
  if (format == "General") format.clear();
  *kind = ClassifyNumberFormat(format);
  Style s;
  s.bold = x.font < fontBold_.size() && fontBold_[x.font];
  s.horizontal = x.horizontal;
  s.vertical = x.vertical;
  s.left = x.left;
  s.right = x.right;
  s.top = x.top;
  s.bottom = x.bottom;
  s.numberFormat = format;
  const std::uint16_t style = wb_->addStyle(s);
  xfResolved_[xf] = kResolved | (static_cast<std::uint32_t>(*kind) << 16) | style;
  return style;
}

namespace {

// An elapsed time's count of its first unit, without the float noise of the product.
double ElapsedCount(double days, NumberKind kind) {
  const double count = days * ElapsedUnitsPerDay(kind);
  const double rounded = std::round(count * 1e9) / 1e9;
  return std::isfinite(rounded) ? rounded : count;
}

}  // namespace

Cell* BookReader::Place(Sheet* sheet, const std::uint8_t* p, std::size_t n, CellType type,
                        std::uint16_t xf, double number, Status* st) {
  if (n < 6) {
    *st = DamagedRecord(current_, "too short in sheet \"" + sheet->name() + "\"");
    return nullptr;
  }
  std::uint16_t row = GetU16(p), col = GetU16(p + 2);
  if (col >= kMaxColumns) {
    *st = DamagedRecord(current_, "a cell in column " + std::to_string(col + 1) + " of sheet \"" +
                                      sheet->name() + "\", outside 256 columns");
    return nullptr;
  }
  NumberKind kind;
  const std::uint16_t style = StyleFor(xf, &kind);
  if (type == CellType::kEmpty && style == 0) return nullptr;
  Cell& cell = sheet->mutableAt(row, col);
  cell.type = type;
  cell.style = style;
  cell.number = number;
  cell.text.clear();
  if (kind != NumberKind::kNumber && type == CellType::kNumber) {
    if (kind == NumberKind::kDate)
      cell.type = CellType::kDateTime;
    else
      cell.number = ElapsedCount(number, kind);
  }
  return &cell;
}

void BookReader::Put(Sheet* sheet, const std::uint8_t* p, std::size_t n, Cell cell,
                     std::uint16_t xf, Status* st) {
  if (Cell* slot = Place(sheet, p, n, cell.type, xf, cell.number, st)) {
    slot->text = std::move(cell.text);
  }
}

void BookReader::PutValue(Sheet* sheet, const std::uint8_t* p, std::size_t n, CellType type,
                          double value, std::uint16_t xf, Status* st) {
  Place(sheet, p, n, type, xf, value, st);
}

void BookReader::PutFormulaResult(Sheet* sheet, const std::uint8_t* p, std::size_t n,
                                  const std::uint8_t* v, std::uint16_t xf, Status* st) {
  if (GetU16(v + 6) != 0xFFFF) {
    PutValue(sheet, p, n, CellType::kNumber, GetDouble(v), xf, st);
  } else if (v[0] == 0) {
    pendingString_ = true;
    std::memcpy(pendingCell_, p, 4);
    pendingXf_ = xf;
  } else if (v[0] == 1) {
    Put(sheet, p, n, Cell::Boolean(v[2] != 0), xf, st);
  } else if (v[0] == 2) {
    Put(sheet, p, n, Cell::Error(v[2]), xf, st);
  } else if (v[0] == 3) {
    Put(sheet, p, n, Cell::Text(""), xf, st);
  }
}

Status BookReader::ReadSheet(std::size_t offset, Sheet* sheet) {
  RecordCursor cur(data_, size_, offset);
  Record& r = current_;
  Status st;
  if (!cur.Next(&r, &st))
    return st.ok() ? Status::Corruption("sheet \"" + sheet->name() + "\" is empty") : st;
  if (r.id != rec::kBof && r.id != rec::kBof2 && r.id != rec::kBof3 && r.id != rec::kBof4) {
    return Status::Corruption("sheet \"" + sheet->name() +
                              "\" does not start with a BOF record (found " + Hex(r.id) +
                              " at offset " + std::to_string(r.offset) + ")");
  }
  pendingString_ = false;
  // Decoded into again and again: their vectors keep their storage across records.
  MulRkRecord mulRk;
  MulBlankRecord mulBlank;
  FormulaRecord formula;
  while (cur.Next(&r, &st)) {
    const std::uint8_t* p = r.data;
    const std::size_t n = r.size;
    switch (r.id) {
      case rec::kEof:
        return Status::OK();
      case rec::kBof:
      case rec::kBof2:
      case rec::kBof3:
      case rec::kBof4: {  // an embedded chart or other substream: skip to its EOF
        int depth = 1;
        while (depth > 0 && cur.Next(&r, &st)) {
          if (r.id == rec::kBof || r.id == rec::kBof2 || r.id == rec::kBof3 || r.id == rec::kBof4)
            ++depth;
          if (r.id == rec::kEof) --depth;
        }
        if (!st.ok()) return st;
        break;
      }
      case rec::kColInfo: {
        ColInfoRecord info;
        if (info.DecodeFrom(r)) {
          const int last = std::min<int>(info.last, kMaxColumns - 1);
          for (int c = info.first; c <= last; ++c) sheet->setColumnWidth(c, info.width);
        }
        break;
      }
      case rec::kLabelSst: {
        LabelSstRecord label;
        if (!label.DecodeFrom(r)) return DamagedRecord(r, "too short");
        if (label.index >= sst_.size()) {
          return DamagedRecord(r, "refers to string " + std::to_string(label.index) +
                                      " of a table of " + std::to_string(sst_.size()));
        }
        if (Cell* cell = Place(sheet, p, n, CellType::kText, label.cell.xf, 0, &st))
          cell->text.assign(sst_.at(label.index));
        break;
      }
      case rec::kLabel:
      case rec::kRString: {
        if (n < 8) return DamagedRecord(r, "too short");
        if (biff_ >= 8 && r.id == rec::kLabel) {
          LabelRecord label;
          if (!label.DecodeFrom(r)) return DamagedRecord(r, "the text runs past the record");
          Put(sheet, p, n, Cell::Text(label.text), label.cell.xf, &st);
          break;
        }
        std::string text;
        if (biff_ >= 8) {  // RSTRING
          SegmentReader in;
          in.Add(p + 6, n - 6);
          // Rich-text runs after the characters are not part of the string; a string cut
          // short is kept as far as it goes.
          in.String(false, &text);
        } else if (!ByteString(p + 6, n - 6, 2, &text)) {
          return DamagedRecord(r, "the text runs past the record");
        }
        Put(sheet, p, n, Cell::Text(text), GetU16(p + 4), &st);
        break;
      }
      case rec::kNumber: {
        NumberRecord number;
        if (!number.DecodeFrom(r)) return DamagedRecord(r, "too short");
        PutValue(sheet, p, n, CellType::kNumber, number.value, number.cell.xf, &st);
        break;
      }
      case rec::kRk: {
        RkRecord rk;
        if (!rk.DecodeFrom(r)) return DamagedRecord(r, "too short");
        PutValue(sheet, p, n, CellType::kNumber, rk.value(), rk.cell.xf, &st);
        break;
      }
      case rec::kMulRk: {
        if (!mulRk.DecodeFrom(r)) return DamagedRecord(r, "too short, or its last column is wrong");
        std::uint8_t cell[6] = {};
        PutU16(cell, mulRk.row);
        std::uint16_t col = mulRk.firstColumn;
        for (std::size_t i = 0; i < mulRk.cells.size() && st.ok(); ++i, ++col) {
          PutU16(cell + 2, col);
          PutValue(sheet, cell, 6, CellType::kNumber, RkValue(mulRk.cells[i].rk),
                   mulRk.cells[i].xf, &st);
        }
        break;
      }
      case rec::kBlank: {
        BlankRecord blank;
        if (!blank.DecodeFrom(r)) return DamagedRecord(r, "too short");
        Put(sheet, p, n, Cell(), blank.cell.xf, &st);
        break;
      }
      case rec::kMulBlank: {
        if (!mulBlank.DecodeFrom(r))
          return DamagedRecord(r, "too short, or its last column is wrong");
        std::uint8_t cell[6] = {};
        PutU16(cell, mulBlank.row);
        std::uint16_t col = mulBlank.firstColumn;
        for (std::size_t i = 0; i < mulBlank.xfs.size() && st.ok(); ++i, ++col) {
          PutU16(cell + 2, col);
          Put(sheet, cell, 6, Cell(), mulBlank.xfs[i], &st);
        }
        break;
      }
      case rec::kBoolErr: {
        BoolErrRecord boolErr;
        if (!boolErr.DecodeFrom(r)) return DamagedRecord(r, "too short");
        Put(sheet, p, n,
            boolErr.isError ? Cell::Error(boolErr.value) : Cell::Boolean(boolErr.value != 0),
            boolErr.cell.xf, &st);
        break;
      }
      case rec::kFormula:
      case rec::kFormula3:
      case rec::kFormula4:
        if (biff_ == 2 && r.id == rec::kFormula) {  // row, column, 3 attribute bytes, result
          if (n < 15) return DamagedRecord(r, "too short");
          PutFormulaResult(sheet, p, n, p + 7, Biff2Xf(p + 4), &st);
        } else if (biff_ >= 5) {  // under any of the three identifiers, as generators write
          if (!formula.DecodeFrom(r)) return DamagedRecord(r, "too short for its formula");
          PutFormulaResult(sheet, p, n, formula.result, formula.cell.xf, &st);
        } else {
          if (n < 14) return DamagedRecord(r, "too short");
          PutFormulaResult(sheet, p, n, p + 6, GetU16(p + 4), &st);
        }
        break;
      case rec::kString:
      case rec::kString2: {
        if (!pendingString_) break;
        pendingString_ = false;
        std::string text;
        if (biff_ >= 8) {
          SegmentReader in;
          in.Add(p, n);
          while (cur.PeekId() == rec::kContinue) {
            if (!cur.Next(&r, &st)) return st;
            in.Add(r.data, r.size);
          }
          if (!in.String(false, &text)) return DamagedRecord(r, "the text runs past the record");
        } else if (!ByteString(p, n, r.id == rec::kString2 ? 1 : 2, &text)) {
          return DamagedRecord(r, "the text runs past the record");
        }
        Put(sheet, pendingCell_, 6, Cell::Text(text), pendingXf_, &st);
        break;
      }
      default:
        if (biff_ < 5) OldRecord(r, sheet, &st);
        break;
    }
    if (!st.ok()) return st;
  }
  if (!st.ok()) return st;
  return Status::Corruption("sheet \"" + sheet->name() + "\" ends without an EOF record");
}

namespace {

// The stream a workbook's records are in: "Workbook" (Excel 97 and later) before "Book"
// (Excel 5.0/95), any letter case; a file that is itself a BIFF stream (Excel 2-4 files
// are) is its own stream.
Status FindStream(const std::uint8_t* data, std::size_t size, CompoundFileReader* cfb,
                  std::vector<std::uint8_t>* copy, ByteSpan* in) {
  if (size >= 4 && data[0] == 0x09 &&
      (data[1] == 0x00 || data[1] == 0x02 || data[1] == 0x04 || data[1] == 0x08)) {
    *in = ByteSpan{data, size};
    return Status::OK();
  }
  Status s = cfb->Open(data, size);
  if (!s.ok()) return s;
  const char* name = cfb->HasStream("Workbook") ? "Workbook"
                     : cfb->HasStream("Book")   ? "Book"
                                                : nullptr;
  if (name == nullptr && cfb->HasStream("EncryptedPackage")) {
    return Status::Unsupported(
        "a password-protected Excel 2007+ workbook (.xlsx); save it without a password");
  }
  if (name == nullptr) return Status::Corruption("compound file has no Workbook or Book stream");
  // Read in place when the sectors are in order, as they are in most files: copying a
  // large stream first costs as much as a good part of decoding it.
  if (!cfb->StreamInPlace(name, in)) {
    s = cfb->ReadStream(name, copy);
    *in = ByteSpan{copy->data(), copy->size()};
  }
  return s;
}

}  // namespace

Status ReadWorkbookFromMemory(const std::uint8_t* data, std::size_t size, Workbook* out) {
  return ReadWorkbookFromMemory(data, size, ReadOptions(), out);
}

Status ReadWorkbookFromMemory(const std::uint8_t* data, std::size_t size,
                              const ReadOptions& options, Workbook* out) {
  if (FormatOfBytes(data, size) == WorkbookFormat::kXlsx) return ReadXlsxFromMemory(data, size, out);
  *out = Workbook();
  CompoundFileReader cfb;
  std::vector<std::uint8_t> stream;
  ByteSpan in{nullptr, 0};
  Status s = FindStream(data, size, &cfb, &stream, &in);
  if (!s.ok()) return s;
  // An encrypted stream is read from a decrypted copy (xls/Encryption.h); a plain one costs
  // a walk over the globals' record headers.
  std::vector<std::uint8_t> decrypted;
  Encryption encryption;
  s = DecryptWorkbookStream(in, options.password, &decrypted, &encryption);
  if (!s.ok()) return s;
  if (encryption != Encryption::kNone) in = ByteSpan{decrypted.data(), decrypted.size()};
  out->encrypted = encryption != Encryption::kNone;
  StreamVersion version;
  s = ReadStreamVersion(in.data, in.size, &version);
  if (!s.ok()) return s;
  BookReader reader(in.data, in.size, version, out);
  reader.set_decrypted(encryption != Encryption::kNone);
  return reader.Read();
}

Status ReadWorkbookWith(FileOps& ops, const std::string& path, Workbook* out) {
  FileBytes bytes;
  Status s = ops.ReadFile(path, &bytes);
  if (!s.ok()) return s;
  return ReadWorkbookFromMemory(bytes.data(), bytes.size(), out);
}

Status ReadWorkbook(const std::string& path, Workbook* out) {
  return ReadWorkbookWith(FileOps::Default(), path, out);
}

Status ReadWorkbook(const std::string& path, const ReadOptions& options, Workbook* out) {
  FileBytes bytes;
  Status s = FileOps::Default().ReadFile(path, &bytes);
  if (!s.ok()) return s;
  return ReadWorkbookFromMemory(bytes.data(), bytes.size(), options, out);
}

}  // namespace xls
