// The library's own exception: a message, the source file it was raised in
// and the line. Thrown by value; the failure guards catch it at the boundary.
#pragma once

#include <cstdint>
#include <string>

namespace qaaisp {

class Exception {
 public:
  Exception(std::string message, std::string source_file, int32_t line)
      : message_(std::move(message)), source_file_(std::move(source_file)), line_(line) {}
  virtual ~Exception() = default;

  const std::string& message() const { return message_; }
  const std::string& source_file() const { return source_file_; }
  int32_t line() const { return line_; }

 private:
  std::string message_;
  std::string source_file_;
  int32_t line_;
};

// Stands for a COM error of the document library: an HRESULT with the
// error's source and description.
class ComError {
 public:
  ComError(uint32_t hresult, std::string source = {}, std::string description = {},
           std::string message = {})
      : hresult_(hresult),
        source_(std::move(source)),
        description_(std::move(description)),
        message_(std::move(message)) {}

  uint32_t hresult() const { return hresult_; }
  const std::string& source() const { return source_; }
  const std::string& description() const { return description_; }
  // The error's own message text; empty lets ComErrorText() form one.
  const std::string& message() const { return message_; }

 private:
  uint32_t hresult_;
  std::string source_;
  std::string description_;
  std::string message_;
};

}  // namespace qaaisp
