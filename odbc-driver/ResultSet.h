// ResultSet: the rows a statement or catalog call produced, read by position.
// Values are produced on demand as text; a result owns (or shares) everything it reads, so it
// stays valid after the statement that made it and after later changes to the workbook.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace xlsodbc {

struct ColumnInfo {
  std::string name;
  short sqlType = 12;  // SQL_VARCHAR: cells come back as text
  long size = 255;
  bool nullable = true;
  std::string table;  // the sheet, for SQLColAttribute
};

class ResultSet {
 public:
  virtual ~ResultSet() = default;
  virtual const std::vector<ColumnInfo>& columns() const = 0;
  virtual long rowCount() const = 0;
  // REQUIRES: row < rowCount(), column < columns().size(). False for NULL (*out empty).
  virtual bool value(long row, int column, std::string* out) const = 0;
  // The same value without a copy where the result can give one: *out views the result's
  // own storage, buf (kTextBuffer bytes) or *scratch, and stays valid until the next call
  // with them. False for NULL. This is the path of every SQLGetData.
  static constexpr std::size_t kTextBuffer = 64;
  virtual bool text(long row, int column, char* buf, std::string* scratch,
                    std::string_view* out) const {
    (void)buf;
    bool present = value(row, column, scratch);
    *out = *scratch;
    return present;
  }
};

// A result held as text, for catalog calls and small answers.
class TextResult : public ResultSet {
 public:
  explicit TextResult(std::vector<ColumnInfo> columns) : columns_(std::move(columns)) {}
  void addRow(std::vector<std::optional<std::string>> row) { rows_.push_back(std::move(row)); }

  const std::vector<ColumnInfo>& columns() const override { return columns_; }
  long rowCount() const override { return static_cast<long>(rows_.size()); }
  bool value(long row, int column, std::string* out) const override {
    const auto& v = rows_[static_cast<std::size_t>(row)][static_cast<std::size_t>(column)];
    out->assign(v ? *v : std::string());
    return v.has_value();
  }

 private:
  std::vector<ColumnInfo> columns_;
  std::vector<std::vector<std::optional<std::string>>> rows_;
};

}  // namespace xlsodbc
