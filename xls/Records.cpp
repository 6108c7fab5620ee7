#include "xls/Records.h"

#include <cstdio>

namespace xls {

bool RecordCursor::Fail(Status* status) const {
  if (size_ - pos_ < 4) {
    *status = Status::Corruption("record header at offset " + std::to_string(pos_) +
                                 " is cut off by the end of the stream");
    return false;
  }
  char id[8];
  std::snprintf(id, sizeof id, "0x%04X", GetU16(data_ + pos_));
  *status = Status::Corruption("record " + std::string(id) + " at offset " + std::to_string(pos_) +
                               " has length " + std::to_string(GetU16(data_ + pos_ + 2)) +
                               ", past the end of the stream");
  return false;
}

}  // namespace xls
