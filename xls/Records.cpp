#include "xls/Records.h"

#include <cstdio>

namespace xls {

bool RecordCursor::Next(Record* r, Status* status) {
  if (pos_ >= size_) return false;
  if (size_ - pos_ < 4) {
    *status = Status::Corruption("record header at offset " + std::to_string(pos_) +
                                 " is cut off by the end of the stream");
    return false;
  }
  r->id = GetU16(data_ + pos_);
  r->size = GetU16(data_ + pos_ + 2);
  r->offset = pos_;
  if (r->size > size_ - pos_ - 4) {
    char id[8];
    std::snprintf(id, sizeof id, "0x%04X", r->id);
    *status = Status::Corruption("record " + std::string(id) + " at offset " + std::to_string(pos_) +
                                 " has length " + std::to_string(r->size) +
                                 ", past the end of the stream");
    return false;
  }
  r->data = data_ + pos_ + 4;
  pos_ += 4 + r->size;
  return true;
}

}  // namespace xls
