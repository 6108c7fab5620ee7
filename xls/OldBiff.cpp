// Excel 2, 3 and 4 files (BIFF2-4): a worksheet is a stream of its own, with its formatting
// tables (FONT, FORMAT, XF) among its cell records; an Excel 4 workbook is a stream of
// worksheets, each after a SHEETHDR record. Cell records that BIFF3 and later share are read
// by BookReader::ReadSheet; here are the rest.
#include "xls/BookReader.h"

namespace xls {

void BookReader::ResetFormatting() {
  fontBold_.clear();
  formats_.clear();
  formatCount_ = 0;
  xfs_.clear();
  xfResolved_.clear();
  biff2Attrs_.clear();
  ixfe_ = 0;
}

std::uint16_t BookReader::Biff2Xf(const std::uint8_t* attr) {
  if (!xfs_.empty() && biff2Attrs_.empty()) {
    const std::uint16_t xf = attr[0] & 0x3F;
    return xf == 63 ? ixfe_ : xf;  // 63: the XF of the last IXFE record
  }
  // Excel 2.0 wrote no XF records: a cell's own attribute bytes hold its format (bits 0-5),
  // its font (bits 6-7) and its alignment. Each different set becomes an XF of its own.
  auto it = biff2Attrs_.find(attr[1]);
  if (it != biff2Attrs_.end()) return it->second;
  XfRecord xf;
  xf.format = attr[1] & 0x3F;
  xf.font = attr[1] >> 6;
  const auto xfIndex = static_cast<std::uint16_t>(xfs_.size());
  xfs_.push_back(xf);
  biff2Attrs_.emplace(attr[1], xfIndex);
  return xfIndex;
}

bool BookReader::OldRecord(const Record& r, Sheet* sheet, Status* st) {
  const std::uint8_t* p = r.data;
  const std::size_t n = r.size;
  auto tooShort = [&](std::size_t need) {
    if (n >= need) return false;
    *st = DamagedRecord(r, "too short");
    return true;
  };
  switch (r.id) {
    case rec::kFilePass:
      *st = OnFilePass(r);
      return true;
    case rec::kCodepage:
      if (n >= 2) SetCodepage(GetU16(p));
      return true;
    case rec::kDateMode:
      if (n >= 2) wb_->date1904 = GetU16(p) == 1;
      return true;
    case rec::kFont:
    case rec::kFont3:  // height, options (bit 0 bold), [colour,] name
      if (n >= 4) AddFont((GetU16(p + 2) & 1) != 0);
      return true;
    case rec::kFormat2:
    case rec::kFormat: {  // numbered in file order; BIFF4 puts 2 unused bytes first
      std::string f;
      const std::size_t skip = r.id == rec::kFormat ? 2 : 0;
      if (n >= skip && ByteString(p + skip, n - skip, 1, &f)) AddFormat(formatCount_, std::move(f));
      ++formatCount_;
      return true;
    }
    case rec::kXf2:
    case rec::kXf3:
    case rec::kXf4: {
      if (n < (r.id == rec::kXf2 ? 4u : 6u)) return true;
      XfRecord xf;
      xf.font = p[0];
      xf.format = r.id == rec::kXf2 ? (p[2] & 0x3F) : p[1];
      const unsigned align = r.id == rec::kXf2 ? p[3] : p[4];
      if ((align & 7) <= 6) xf.horizontal = static_cast<HAlign>(align & 7);
      if (r.id == rec::kXf4) xf.vertical = static_cast<VAlign>((align >> 4) & 3);
      xfs_.push_back(xf);
      return true;
    }
    case rec::kIxfe2:
      if (n >= 2) ixfe_ = GetU16(p);
      return true;
    // BIFF2 cells: row, column, 3 attribute bytes, then the value.
    case rec::kInteger2:
      if (!tooShort(9)) PutValue(sheet, p, n, CellType::kNumber, GetU16(p + 7), Biff2Xf(p + 4), st);
      return true;
    case rec::kNumber2:
      if (!tooShort(15))
        PutValue(sheet, p, n, CellType::kNumber, GetDouble(p + 7), Biff2Xf(p + 4), st);
      return true;
    case rec::kBoolErr2:
      if (!tooShort(9))
        Put(sheet, p, n, p[8] ? Cell::Error(p[7]) : Cell::Boolean(p[7] != 0), Biff2Xf(p + 4), st);
      return true;
    case rec::kBlank2:
      if (!tooShort(7)) Put(sheet, p, n, Cell(), Biff2Xf(p + 4), st);
      return true;
    case rec::kLabel2: {
      if (tooShort(8)) return true;
      std::string text;
      if (!ByteString(p + 7, n - 7, 1, &text)) {
        *st = DamagedRecord(r, "the text runs past the record");
        return true;
      }
      Put(sheet, p, n, Cell::Text(text), Biff2Xf(p + 4), st);
      return true;
    }
    default:
      return false;
  }
}

Status BookReader::ReadOldBook() {
  if (version_.type != 0x0100) {
    if (version_.type != 0x0010) {
      return Status::Unsupported("an Excel " + std::to_string(biff_) +
                                 " chart or macro sheet, not a worksheet");
    }
    Sheet& sheet = wb_->addSheet("Sheet1");
    return ReadSheet(0, &sheet);
  }
  // An Excel 4 workbook: records of its own, among them a SHEETHDR before each worksheet.
  RecordCursor cur(data_, size_, 0);
  Record r;
  Status st;
  cur.Next(&r, &st);  // the BOF, read before
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
      case rec::kSheetHeader4: {
        // The size of the worksheet's records, which follow, and its name.
        std::string name;
        if (r.size < 5 || !ByteString(r.data + 4, r.size - 4, 1, &name))
          return DamagedRecord(r, "too short");
        const std::size_t start = r.offset + 4 + r.size;
        const std::uint32_t length = GetU32(r.data);
        if (length < 4 || length > size_ - start)
          return DamagedRecord(
              r, "the sheet's size " + std::to_string(length) + " runs past the end of the stream");
        ResetFormatting();  // each worksheet carries its own
        Sheet& sheet = wb_->addSheet(SheetName(name));
        st = ReadSheet(start, &sheet);
        if (!st.ok()) return st;
        cur = RecordCursor(data_, size_, start + length);
        break;
      }
      default:
        break;
    }
  }
  if (!st.ok()) return st;
  return Status::Corruption("Excel 4 workbook ends without an EOF record");
}

}  // namespace xls
