// A name of at most 1023 bytes in a fixed 1024-byte field, as the store's
// records keep postoffice, mailbox, folder and path names. Longer input is
// cut at 1023 bytes. Construction writes one byte, so records full of names
// stay cheap to make.
#pragma once

#include <cstddef>
#include <cstring>
#include <string>
#include <string_view>

namespace qaaisp {

class NameText {
 public:
  static constexpr size_t kCapacity = 1024;

  NameText() { text_[0] = '\0'; }
  NameText(std::string_view value) { assign(value); }  // NOLINT: plain text converts
  NameText& operator=(std::string_view value) {
    assign(value);
    return *this;
  }

  void assign(std::string_view value) {
    size_t n = value.size() < kCapacity - 1 ? value.size() : kCapacity - 1;
    std::memmove(text_, value.data(), n);
    text_[n] = '\0';
  }
  void clear() { text_[0] = '\0'; }
  bool empty() const { return text_[0] == '\0'; }
  size_t size() const { return std::strlen(text_); }
  const char* c_str() const { return text_; }
  std::string_view view() const { return text_; }
  std::string str() const { return text_; }
  // The raw field, for code that fills it in place.
  char* data() { return text_; }

  friend bool operator==(const NameText& a, std::string_view b) { return a.view() == b; }

 private:
  char text_[kCapacity];
};

}  // namespace qaaisp
