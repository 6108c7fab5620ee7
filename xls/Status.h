// Status: the result of a codec operation. OK carries no message; every failure
// carries a kind and a human-readable message naming what was wrong and where.
#pragma once

#include <string>
#include <utility>

namespace xls {

class Status {
 public:
  // kNeedsPassword: encrypted, and no password was given (nor does Excel's default one open
  // it); kWrongPassword: the password given does not open it.
  enum class Code {
    kOk,
    kNotFound,
    kIOError,
    kCorruption,
    kUnsupported,
    kInvalidArgument,
    kNeedsPassword,
    kWrongPassword
  };

  Status() = default;
  static Status OK() { return Status(); }
  static Status NotFound(std::string msg) { return Status(Code::kNotFound, std::move(msg)); }
  static Status IOError(std::string msg) { return Status(Code::kIOError, std::move(msg)); }
  static Status Corruption(std::string msg) { return Status(Code::kCorruption, std::move(msg)); }
  static Status Unsupported(std::string msg) { return Status(Code::kUnsupported, std::move(msg)); }
  static Status InvalidArgument(std::string msg) {
    return Status(Code::kInvalidArgument, std::move(msg));
  }

  static Status NeedsPassword(std::string msg) {
    return Status(Code::kNeedsPassword, std::move(msg));
  }
  static Status WrongPassword(std::string msg) {
    return Status(Code::kWrongPassword, std::move(msg));
  }

  bool ok() const { return code_ == Code::kOk; }
  Code code() const { return code_; }
  const std::string& message() const { return message_; }
  // "corruption: <message>" and so on; "OK" when ok.
  std::string ToString() const;

 private:
  Status(Code code, std::string msg) : code_(code), message_(std::move(msg)) {}
  Code code_ = Code::kOk;
  std::string message_;
};

}  // namespace xls
