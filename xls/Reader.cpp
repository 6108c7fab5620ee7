#include <cmath>
#include <cstring>
#include <string>

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

double DecodeRk(std::uint32_t rk) {
  double v;
  if (rk & 2) {
    v = static_cast<double>(static_cast<std::int32_t>(rk) >> 2);
  } else {
    std::uint64_t bits = std::uint64_t{rk & 0xFFFFFFFCu} << 32;
    std::memcpy(&v, &bits, sizeof v);
  }
  return (rk & 1) ? v / 100 : v;
}

class BookReader {
 public:
  BookReader(const std::uint8_t* data, std::size_t size, Workbook* wb)
      : data_(data), size_(size), wb_(wb) {}
  Status Read();

 private:
  struct SheetInfo {
    std::uint32_t offset;
    std::string name;
  };
  Status ReadGlobals(std::vector<SheetInfo>* sheets);
  Status ReadSheet(std::size_t offset, Sheet* sheet);
  // The model style of an XF and whether it formats dates, resolved once per XF (cells
  // reuse a handful of them); inline, since it runs once a cell.
  std::uint16_t StyleFor(std::uint16_t xf, bool* isDate) {
    if (std::uint32_t known = xf < xfResolved_.size() ? xfResolved_[xf] : 0) {
      *isDate = (known >> 16) & 1;
      return static_cast<std::uint16_t>(known);
    }
    return ResolveStyle(xf, isDate);
  }
  std::uint16_t ResolveStyle(std::uint16_t xf, bool* isDate);
  // These set *st only on failure: a full sheet has millions of cells, and an OK status
  // made and moved for each is a good part of the cost of reading them.
  void Put(Sheet* sheet, const std::uint8_t* p, std::size_t n, Cell cell, std::uint16_t xf,
           Status* st);
  // A number, boolean or error cell, set in place without a temporary cell.
  void PutValue(Sheet* sheet, const std::uint8_t* p, std::size_t n, CellType type, double value,
                std::uint16_t xf, Status* st);
  // The cell a record at p addresses, made `type` with its style resolved, for the caller
  // to fill in place; nullptr when the cell is not kept (empty, default style) or on failure.
  Cell* Place(Sheet* sheet, const std::uint8_t* p, std::size_t n, CellType type, std::uint16_t xf,
              Status* st);

  const std::uint8_t* data_;
  std::size_t size_;
  Workbook* wb_;
  SharedStrings sst_;
  std::vector<bool> fontBold_;
  std::map<std::uint16_t, std::string> formats_;
  std::vector<XfRecord> xfs_;
  // Per XF, once first used: kResolved | isDate << 16 | the model's style index; 0 before.
  static constexpr std::uint32_t kResolved = 1u << 31;
  std::vector<std::uint32_t> xfResolved_;
};

std::string Hex(std::uint16_t v) {
  char b[8];
  std::snprintf(b, sizeof b, "0x%04X", v);
  return b;
}

Status CheckBof(const Record& r) {
  if (r.id == rec::kBof2 || r.id == rec::kBof3 || r.id == rec::kBof4) {
    return Status::Unsupported(
        "an Excel 2/3/4 (BIFF2-4) workbook; only Excel 97 and later are read");
  }
  if (r.id != rec::kBof || r.size < 4) {
    return Status::Corruption("workbook stream does not start with a BOF record (found " +
                              Hex(r.id) + " at offset " + std::to_string(r.offset) + ")");
  }
  std::uint16_t vers = GetU16(r.data);
  if (vers == 0x0500) {
    return Status::Unsupported("an Excel 5.0/95 (BIFF5/BIFF7) workbook; save it as Excel 97-2003");
  }
  if (vers != 0x0600) {
    return Status::Unsupported("BIFF version " + Hex(vers) +
                               "; only BIFF8 (Excel 97-2003) is read");
  }
  return Status::OK();
}

Status BookReader::Read() {
  std::vector<SheetInfo> sheets;
  Status s = ReadGlobals(&sheets);
  if (!s.ok()) return s;
  for (const SheetInfo& info : sheets) {
    if (info.offset >= size_) {
      return Status::Corruption("sheet \"" + info.name + "\" starts at offset " +
                                std::to_string(info.offset) + ", past the end of the stream");
    }
    std::string name = info.name;
    if (!Workbook::isValidSheetName(name) || wb_->findSheet(name) != nullptr) {
      name = "Sheet" + std::to_string(wb_->sheets().size() + 1);
    }
    Sheet& sheet = wb_->addSheet(name);
    s = ReadSheet(info.offset, &sheet);
    if (!s.ok()) return s;
  }
  return Status::OK();
}

Status BookReader::ReadGlobals(std::vector<SheetInfo>* sheets) {
  RecordCursor cur(data_, size_, 0);
  Record r;
  Status st;
  if (!cur.Next(&r, &st)) return st.ok() ? Status::Corruption("empty workbook stream") : st;
  st = CheckBof(r);
  if (!st.ok()) return st;
  while (cur.Next(&r, &st)) {
    switch (r.id) {
      case rec::kEof:
        return Status::OK();
      case rec::kDateMode:
        if (r.size >= 2) wb_->date1904 = GetU16(r.data) == 1;
        break;
      case rec::kFont: {
        bool bold = false;
        ParseFontBold(r.data, r.size, &bold);
        fontBold_.push_back(bold);
        if (fontBold_.size() == 4) fontBold_.push_back(false);  // index 4 does not exist
        break;
      }
      case rec::kFormat: {
        if (r.size < 2) break;
        SegmentReader in;
        in.Add(r.data + 2, r.size - 2);
        std::string f;
        if (in.String(false, &f)) formats_[GetU16(r.data)] = f;
        break;
      }
      case rec::kXf: {
        XfRecord xf;
        if (ParseXf(r.data, r.size, true, &xf)) xfs_.push_back(xf);
        break;
      }
      case rec::kBoundSheet: {
        if (r.size < 8) return Status::Corruption("BOUNDSHEET record too short");
        if (r.data[5] != 0) break;  // charts, macro and module sheets are not kept
        SegmentReader in;
        in.Add(r.data + 6, r.size - 6);
        SheetInfo info{GetU32(r.data), ""};
        if (!in.String(true, &info.name))
          return Status::Corruption("BOUNDSHEET name runs past its record");
        sheets->push_back(std::move(info));
        break;
      }
      case rec::kSst: {
        SegmentReader in;
        in.Add(r.data, r.size);
        while (cur.PeekId() == rec::kContinue) {
          if (!cur.Next(&r, &st)) return st;
          in.Add(r.data, r.size);
        }
        st = ReadSharedStrings(&in, &sst_);
        if (!st.ok()) return st;
        break;
      }
      default:
        break;
    }
  }
  if (!st.ok()) return st;
  return Status::Corruption("workbook globals end without an EOF record");
}

std::uint16_t BookReader::ResolveStyle(std::uint16_t xf, bool* isDate) {
  *isDate = false;
  if (xf >= xfs_.size()) return 0;
  if (xfResolved_.size() < xfs_.size()) xfResolved_.assign(xfs_.size(), 0);
  const XfRecord& x = xfs_[xf];
  std::string format;
  auto it = formats_.find(x.format);
  if (it != formats_.end()) {
    format = it->second;
  } else if (const char* builtin = BuiltinNumberFormat(x.format)) {
    format = builtin;
  } else if ((x.format >= 27 && x.format <= 36) || (x.format >= 50 && x.format <= 58)) {
    format = "yyyy-mm-dd";  // locale-specific date formats
  }
  if (format == "General") format.clear();
  *isDate = IsDateFormat(format);
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
  xfResolved_[xf] = kResolved | (*isDate ? 1u << 16 : 0u) | style;
  return style;
}

Cell* BookReader::Place(Sheet* sheet, const std::uint8_t* p, std::size_t n, CellType type,
                        std::uint16_t xf, Status* st) {
  if (n < 6) {
    *st = Status::Corruption("cell record too short");
    return nullptr;
  }
  std::uint16_t row = GetU16(p), col = GetU16(p + 2);
  if (col >= kMaxColumns) {
    *st = Status::Corruption("cell in column " + std::to_string(col + 1) + " of sheet \"" +
                             sheet->name() + "\" is outside 256 columns");
    return nullptr;
  }
  bool isDate;
  const std::uint16_t style = StyleFor(xf, &isDate);
  if (isDate && type == CellType::kNumber) type = CellType::kDateTime;
  if (type == CellType::kEmpty && style == 0) return nullptr;
  Cell& cell = sheet->mutableAt(row, col);
  cell.type = type;
  cell.style = style;
  cell.number = 0;
  cell.text.clear();
  return &cell;
}

void BookReader::Put(Sheet* sheet, const std::uint8_t* p, std::size_t n, Cell cell,
                     std::uint16_t xf, Status* st) {
  if (Cell* slot = Place(sheet, p, n, cell.type, xf, st)) {
    slot->number = cell.number;
    slot->text = std::move(cell.text);
  }
}

void BookReader::PutValue(Sheet* sheet, const std::uint8_t* p, std::size_t n, CellType type,
                          double value, std::uint16_t xf, Status* st) {
  if (Cell* slot = Place(sheet, p, n, type, xf, st)) slot->number = value;
}

Status BookReader::ReadSheet(std::size_t offset, Sheet* sheet) {
  RecordCursor cur(data_, size_, offset);
  Record r;
  Status st;
  if (!cur.Next(&r, &st))
    return st.ok() ? Status::Corruption("sheet \"" + sheet->name() + "\" is empty") : st;
  if (r.id != rec::kBof) {
    return Status::Corruption("sheet \"" + sheet->name() + "\" does not start with a BOF record");
  }
  // The last FORMULA whose cached result is text waits for the STRING record after it.
  bool pendingString = false;
  std::uint8_t pendingCell[6] = {};
  while (cur.Next(&r, &st)) {
    const std::uint8_t* p = r.data;
    const std::size_t n = r.size;
    switch (r.id) {
      case rec::kEof:
        return Status::OK();
      case rec::kBof: {  // an embedded chart or other substream: skip to its EOF
        int depth = 1;
        while (depth > 0 && cur.Next(&r, &st)) {
          if (r.id == rec::kBof) ++depth;
          if (r.id == rec::kEof) --depth;
        }
        if (!st.ok()) return st;
        break;
      }
      case rec::kColInfo:
        if (n >= 6) {
          int last = std::min<int>(GetU16(p + 2), kMaxColumns - 1);
          for (int c = GetU16(p); c <= last; ++c) sheet->setColumnWidth(c, GetU16(p + 4));
        }
        break;
      case rec::kLabelSst: {
        if (n < 10) return Status::Corruption("LABELSST record too short");
        std::uint32_t index = GetU32(p + 6);
        if (index >= sst_.size()) {
          return Status::Corruption("LABELSST refers to string " + std::to_string(index) +
                                    " of a table of " + std::to_string(sst_.size()));
        }
        if (Cell* cell = Place(sheet, p, n, CellType::kText, GetU16(p + 4), &st))
          cell->text.assign(sst_.at(index));
        break;
      }
      case rec::kLabel:
      case rec::kRString: {
        if (n < 8) return Status::Corruption("LABEL record too short");
        SegmentReader in;
        in.Add(p + 6, n - 6);
        std::string text;
        // Rich-text runs after the characters of RSTRING are not part of the string.
        if (!in.String(false, &text) && r.id == rec::kLabel) {
          return Status::Corruption("LABEL text runs past its record");
        }
        Put(sheet, p, n, Cell::Text(text), GetU16(p + 4), &st);
        break;
      }
      case rec::kNumber:
        if (n < 14) return Status::Corruption("NUMBER record too short");
        PutValue(sheet, p, n, CellType::kNumber, GetDouble(p + 6), GetU16(p + 4), &st);
        break;
      case rec::kRk:
        if (n < 10) return Status::Corruption("RK record too short");
        PutValue(sheet, p, n, CellType::kNumber, DecodeRk(GetU32(p + 6)), GetU16(p + 4), &st);
        break;
      case rec::kMulRk: {
        if (n < 6) return Status::Corruption("MULRK record too short");
        std::uint8_t cell[6];
        std::memcpy(cell, p, 2);
        std::uint16_t col = GetU16(p + 2);
        for (std::size_t off = 4; off + 6 <= n - 2 && st.ok(); off += 6, ++col) {
          PutU16(cell + 2, col);
          PutValue(sheet, cell, 6, CellType::kNumber, DecodeRk(GetU32(p + off + 2)),
                   GetU16(p + off), &st);
        }
        break;
      }
      case rec::kBlank:
        Put(sheet, p, n, Cell(), n >= 6 ? GetU16(p + 4) : 0, &st);
        break;
      case rec::kMulBlank: {
        if (n < 6) return Status::Corruption("MULBLANK record too short");
        std::uint8_t cell[6];
        std::memcpy(cell, p, 2);
        std::uint16_t col = GetU16(p + 2);
        for (std::size_t off = 4; off + 2 <= n - 2 && st.ok(); off += 2, ++col) {
          PutU16(cell + 2, col);
          Put(sheet, cell, 6, Cell(), GetU16(p + off), &st);
        }
        break;
      }
      case rec::kBoolErr:
        if (n < 8) return Status::Corruption("BOOLERR record too short");
        Put(sheet, p, n, p[7] ? Cell::Error(p[6]) : Cell::Boolean(p[6] != 0), GetU16(p + 4), &st);
        break;
      case rec::kFormula: {
        if (n < 20) return Status::Corruption("FORMULA record too short");
        const std::uint8_t* v = p + 6;
        if (GetU16(v + 6) != 0xFFFF) {
          Put(sheet, p, n, Cell::Number(GetDouble(v)), GetU16(p + 4), &st);
        } else if (v[0] == 0) {
          pendingString = true;
          std::memcpy(pendingCell, p, 6);
        } else if (v[0] == 1) {
          Put(sheet, p, n, Cell::Boolean(v[2] != 0), GetU16(p + 4), &st);
        } else if (v[0] == 2) {
          Put(sheet, p, n, Cell::Error(v[2]), GetU16(p + 4), &st);
        } else if (v[0] == 3) {
          Put(sheet, p, n, Cell::Text(""), GetU16(p + 4), &st);
        }
        break;
      }
      case rec::kString: {
        if (!pendingString) break;
        pendingString = false;
        SegmentReader in;
        in.Add(p, n);
        while (cur.PeekId() == rec::kContinue) {
          if (!cur.Next(&r, &st)) return st;
          in.Add(r.data, r.size);
        }
        std::string text;
        if (!in.String(false, &text))
          return Status::Corruption("STRING record text runs past its record");
        Put(sheet, pendingCell, 6, Cell::Text(text), GetU16(pendingCell + 4), &st);
        break;
      }
      default:
        break;
    }
    if (!st.ok()) return st;
  }
  if (!st.ok()) return st;
  return Status::Corruption("sheet \"" + sheet->name() + "\" ends without an EOF record");
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
  Status s = cfb.Open(data, size);
  if (!s.ok()) return s;
  std::vector<std::uint8_t> stream;
  ByteSpan in{nullptr, 0};
  if (cfb.HasStream("Workbook")) {
    // Read in place when the sectors are in order, as they are in most files: copying a
    // large stream first costs as much as a good part of decoding it.
    if (!cfb.StreamInPlace("Workbook", &in)) {
      s = cfb.ReadStream("Workbook", &stream);
      in = ByteSpan{stream.data(), stream.size()};
    }
  } else if (cfb.HasStream("Book")) {
    return Status::Unsupported(
        "an Excel 5.0/95 (BIFF5) workbook (\"Book\" stream); save it as Excel 97-2003");
  } else if (cfb.HasStream("EncryptedPackage")) {
    return Status::Unsupported(
        "a password-protected Excel 2007+ workbook (.xlsx); save it without a password");
  } else {
    return Status::Corruption("compound file has no Workbook stream");
  }
  if (!s.ok()) return s;
  // An encrypted stream is read from a decrypted copy (xls/Encryption.h); a plain one costs
  // a walk over the globals' record headers.
  std::vector<std::uint8_t> decrypted;
  Encryption encryption;
  s = DecryptWorkbookStream(in, options.password, &decrypted, &encryption);
  if (!s.ok()) return s;
  if (encryption != Encryption::kNone) in = ByteSpan{decrypted.data(), decrypted.size()};
  out->encrypted = encryption != Encryption::kNone;
  BookReader reader(in.data, in.size, out);
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
