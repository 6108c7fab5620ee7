#include "xls/XlsxZip.h"

#include <zip.h>

#include <algorithm>
#include <memory>

namespace xls {

namespace {

std::string ZipErrorText(zip_error_t* error) {
  std::string text = zip_error_strerror(error);
  zip_error_fini(error);
  return text;
}

std::string Stored(std::string_view part) {
  if (!part.empty() && part.front() == '/') part.remove_prefix(1);
  return std::string(part);
}

}  // namespace

ZipPartReader::~ZipPartReader() {
  if (archive_ != nullptr) zip_discard(archive_);
}

Status ZipPartReader::Open(const std::uint8_t* data, std::size_t size, ZipLimits limits) {
  limits_ = limits;
  zip_error_t error;
  zip_error_init(&error);
  zip_source_t* source = zip_source_buffer_create(data, size, 0, &error);
  if (source == nullptr) return Status::IOError("zip: " + ZipErrorText(&error));
  archive_ = zip_open_from_source(source, ZIP_RDONLY | ZIP_CHECKCONS, &error);
  if (archive_ == nullptr) {
    zip_source_free(source);
    return Status::Corruption("not a readable zip archive: " + ZipErrorText(&error));
  }
  zip_error_fini(&error);
  return Status::OK();
}

bool ZipPartReader::Has(std::string_view part) const {
  return archive_ != nullptr && zip_name_locate(archive_, Stored(part).c_str(), ZIP_FL_NOCASE) >= 0;
}

Status ZipPartReader::Read(std::string_view part,
                           const std::function<Status(const char*, std::size_t)>& sink) {
  const std::string name = Stored(part);
  zip_int64_t index =
      archive_ == nullptr ? -1 : zip_name_locate(archive_, name.c_str(), ZIP_FL_NOCASE);
  if (index < 0) return Status::Corruption("the workbook has no part " + name);
  zip_stat_t st;
  zip_stat_init(&st);
  if (zip_stat_index(archive_, static_cast<zip_uint64_t>(index), 0, &st) != 0)
    return Status::Corruption("zip: cannot read the entry of " + name);
  std::uint64_t cap = limits_.maxPartBytes;
  if (st.valid & ZIP_STAT_COMP_SIZE) {
    std::uint64_t compressed = st.comp_size;
    // Overflow-safe: a ratio cap only narrows the absolute one.
    if (compressed < cap / limits_.maxRatio)
      cap = std::min(cap, limits_.ratioAllowance + compressed * limits_.maxRatio);
  }
  if ((st.valid & ZIP_STAT_SIZE) && st.size > cap) {
    return Status::Corruption(name + " declares " + std::to_string(st.size) +
                              " bytes inflated, more than its " + std::to_string(st.comp_size) +
                              " compressed bytes can hold in a workbook (limit " +
                              std::to_string(cap) + ")");
  }
  zip_file_t* file = zip_fopen_index(archive_, static_cast<zip_uint64_t>(index), 0);
  if (file == nullptr)
    return Status::Corruption("zip: cannot open " + name + ": " + zip_strerror(archive_));
  std::unique_ptr<zip_file_t, int (*)(zip_file_t*)> closer(file, zip_fclose);
  std::vector<char> chunk(1 << 16);
  std::uint64_t total = 0;
  for (;;) {
    zip_int64_t n = zip_fread(file, chunk.data(), chunk.size());
    if (n < 0)
      return Status::Corruption("zip: damaged data in " + name + ": " + zip_file_strerror(file));
    if (n == 0) break;
    total += static_cast<std::uint64_t>(n);
    if (total > cap) {
      return Status::Corruption(name + " inflates past " + std::to_string(cap) +
                                " bytes: a zip bomb or a damaged archive");
    }
    Status s = sink(chunk.data(), static_cast<std::size_t>(n));
    if (!s.ok()) return s;
  }
  return Status::OK();
}

ZipBuilder::ZipBuilder() {
  zip_error_t error;
  zip_error_init(&error);
  buffer_ = zip_source_buffer_create(nullptr, 0, 0, &error);
  if (buffer_ != nullptr) {
    zip_source_keep(buffer_);  // the archive releases its reference on close; we read after
    archive_ = zip_open_from_source(buffer_, ZIP_TRUNCATE, &error);
  }
  if (archive_ == nullptr) error_ = Status::IOError("zip: " + ZipErrorText(&error));
  zip_error_fini(&error);
}

ZipBuilder::~ZipBuilder() {
  if (archive_ != nullptr) zip_discard(archive_);
  if (buffer_ != nullptr) zip_source_free(buffer_);
}

Status ZipBuilder::Add(const std::string& part, std::string_view text, int level) {
  if (!error_.ok()) return error_;
  zip_source_t* source = zip_source_buffer(archive_, text.data(), text.size(), 0);
  if (source == nullptr) return Status::IOError("zip: " + std::string(zip_strerror(archive_)));
  zip_int64_t index = zip_file_add(archive_, part.c_str(), source, ZIP_FL_ENC_UTF_8);
  if (index < 0) {
    zip_source_free(source);
    return Status::IOError("zip: cannot add " + part + ": " + zip_strerror(archive_));
  }
  if (zip_set_file_compression(archive_, static_cast<zip_uint64_t>(index), ZIP_CM_DEFLATE,
                               static_cast<zip_uint32_t>(level)) != 0)
    return Status::IOError("zip: " + std::string(zip_strerror(archive_)));
  return Status::OK();
}

Status ZipBuilder::Finish(std::vector<std::uint8_t>* out) {
  if (!error_.ok()) return error_;
  if (zip_close(archive_) != 0) {
    Status s = Status::IOError("zip: " + std::string(zip_strerror(archive_)));
    return s;  // the destructor discards the archive
  }
  archive_ = nullptr;
  zip_stat_t st;
  zip_stat_init(&st);
  if (zip_source_stat(buffer_, &st) != 0 || !(st.valid & ZIP_STAT_SIZE) ||
      zip_source_open(buffer_) != 0)
    return Status::IOError("zip: cannot read the built archive");
  out->resize(st.size);
  zip_int64_t n = st.size == 0 ? 0 : zip_source_read(buffer_, out->data(), st.size);
  zip_source_close(buffer_);
  if (n < 0 || static_cast<zip_uint64_t>(n) != st.size)
    return Status::IOError("zip: cannot read the built archive");
  return Status::OK();
}

}  // namespace xls
