// The record reader behind ReadWorkbookFromMemory, for every BIFF version the codec reads:
// Excel 2, 3 and 4 worksheets and Excel 4 workbooks (BIFF2-4, OldBiff.cpp), Excel 5.0/95
// (BIFF5; BIFF7 is the same layout) and Excel 97-2003 (BIFF8) workbooks (Reader.cpp).
//
// The reader keeps a pointer to the stream's bytes, which must outlive it, and fills the
// caller's Workbook. The version comes from the stream's first BOF record; the cell records
// of every version meet in one loop (ReadSheet), and what differs is how text is stored
// (BIFF8 UTF-16 or Latin-1 strings; 8-bit text in the workbook's code page before) and the
// layouts of the formatting records. Internal to the codec.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "xls/Names.h"
#include "xls/Records.h"
#include "xls/Status.h"
#include "xls/Strings.h"
#include "xls/Styles.h"
#include "xls/Workbook.h"

namespace xls {

// What the first BOF record of a stream says.
struct StreamVersion {
  int biff = 0;            // 2, 3, 4, 5 or 8
  std::uint16_t type = 0;  // 0x0005 workbook globals, 0x0010 worksheet, 0x0100 Excel 4 workbook
};
// Reads the BOF record at the start of a stream. Corruption when there is none; Unsupported,
// naming the version, for one the codec does not read.
Status ReadStreamVersion(const std::uint8_t* data, std::size_t size, StreamVersion* out);

// "LABEL record 0x0204 at offset 1234: <what>", as a Corruption status.
Status DamagedRecord(const Record& r, const std::string& what);

class BookReader {
 public:
  BookReader(const std::uint8_t* data, std::size_t size, StreamVersion version, Workbook* wb)
      : data_(data),
        size_(size),
        version_(version),
        biff_(version.biff),
        wb_(wb),
        codepage_(std::make_unique<CodepageDecoder>()) {}
  Status Read();
  // The stream was decrypted before reading: FILEPASS records are passed over.
  void set_decrypted(bool decrypted) { decrypted_ = decrypted; }

 private:
  struct SheetInfo {
    std::uint32_t offset;
    std::string name;
  };
  Status ReadGlobals(std::vector<SheetInfo>* sheets);
  // Where the reader meets encryption: a FILEPASS record in the globals (or, before BIFF5,
  // in the worksheet), after which every record's data is encrypted. A stream decrypted
  // before reading (Encryption.h) passes on to the record after FILEPASS; any other is
  // refused as encrypted.
  Status OnFilePass(const Record& filepass);
  Status ReadSheet(std::size_t offset, Sheet* sheet);
  // The file's sheet name, or "Sheet<n>" when it is not a valid name or is taken already.
  std::string SheetName(const std::string& name) const;
  // BIFF2-4 (OldBiff.cpp): one worksheet, or the worksheets of an Excel 4 workbook.
  Status ReadOldBook();
  // The records only BIFF2-4 sheets hold: formatting tables and the BIFF2 cell records.
  // False when r is none of them.
  bool OldRecord(const Record& r, Sheet* sheet, Status* st);
  // The XF of a BIFF2 cell from its 3 attribute bytes.
  std::uint16_t Biff2Xf(const std::uint8_t* attr);
  void ResetFormatting();

  void SetCodepage(std::uint16_t codepage);
  // Appends n bytes of 8-bit text (before BIFF8) in the workbook's code page as UTF-8.
  void Text8(const std::uint8_t* p, std::size_t n, std::string* out) const;
  // A string of BIFF5 and before: an 8-bit (lengthBytes 1) or 16-bit count, then the bytes.
  // False when it runs past n.
  bool ByteString(const std::uint8_t* p, std::size_t n, int lengthBytes, std::string* out) const;
  void AddFont(bool bold);
  void AddFormat(std::uint16_t index, std::string format);

  // The model style of an XF and how its numbers read, resolved once per XF (cells
  // reuse a handful of them); inline, since it runs once a cell.
  std::uint16_t StyleFor(std::uint16_t xf, NumberKind* kind) {
    if (std::uint32_t known = xf < xfResolved_.size() ? xfResolved_[xf] : 0) {
      *kind = static_cast<NumberKind>((known >> 16) & 7);
      return static_cast<std::uint16_t>(known);
    }
    return ResolveStyle(xf, kind);
  }
  std::uint16_t ResolveStyle(std::uint16_t xf, NumberKind* kind);
  // These set *st only on failure: a full sheet has millions of cells, and an OK status
  // made and moved for each is a good part of the cost of reading them.
  void Put(Sheet* sheet, const std::uint8_t* p, std::size_t n, Cell cell, std::uint16_t xf,
           Status* st);
  // A number, boolean or error cell, set in place without a temporary cell.
  void PutValue(Sheet* sheet, const std::uint8_t* p, std::size_t n, CellType type, double value,
                std::uint16_t xf, Status* st);
  // The cell a record at p (row, column first) addresses, made `type` with its style
  // resolved, for the caller to fill in place; nullptr when the cell is not kept (empty,
  // default style) or on failure.
  // A number is stored as given, or as a count of hours, minutes or seconds under an
  // elapsed-time format.
  Cell* Place(Sheet* sheet, const std::uint8_t* p, std::size_t n, CellType type, std::uint16_t xf,
              double number, Status* st);
  // A FORMULA record's cached result (8 bytes at v) into the cell; a text result waits for
  // the STRING record that follows.
  void PutFormulaResult(Sheet* sheet, const std::uint8_t* p, std::size_t n, const std::uint8_t* v,
                        std::uint16_t xf, Status* st);

  const std::uint8_t* data_;
  std::size_t size_;
  StreamVersion version_;
  int biff_;
  Workbook* wb_;
  SharedStrings sst_;
  std::unique_ptr<CodepageDecoder> codepage_;  // Windows-1252 until a CODEPAGE record
  std::vector<bool> fontBold_;
  std::map<std::uint16_t, std::string> formats_;
  std::uint16_t formatCount_ = 0;  // before BIFF5, formats are numbered in file order
  std::vector<XfRecord> xfs_;
  std::uint16_t ixfe_ = 0;                            // BIFF2: the XF of cells whose own says 63
  std::map<std::uint8_t, std::uint16_t> biff2Attrs_;  // BIFF2 without XF records: made XFs
  // Per XF, once first used: kResolved | kind << 16 | the model's style index; 0 before.
  static constexpr std::uint32_t kResolved = 1u << 31;
  std::vector<std::uint32_t> xfResolved_;
  // The FORMULA whose cached result is text, waiting for its STRING record.
  bool pendingString_ = false;
  std::uint8_t pendingCell_[6] = {};
  std::uint16_t pendingXf_ = 0;
  NameTable names_;
  Record current_;  // the record ReadSheet is on, for Place's errors
  bool decrypted_ = false;
};

}  // namespace xls
