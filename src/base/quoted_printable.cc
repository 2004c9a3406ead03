#include "base/quoted_printable.h"

#include <cstring>

namespace qaaisp {
namespace {

constexpr char kHexDigits[] = "0123456789ABCDEF";

int HexValue(unsigned char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  return -1;
}

// Length of the stretch of source that the encoders look at.
std::string_view UpToStop(std::string_view source, int stop) {
  if (stop < 0 || stop > 255) return source;
  const void* hit = std::memchr(source.data(), stop, source.size());
  if (!hit) return source;
  return source.substr(0, static_cast<size_t>(static_cast<const char*>(hit) - source.data()));
}

}  // namespace

int QPDecode(std::string_view source, char* target, size_t size, size_t* length, bool underscore) {
  if (length) *length = 0;
  const size_t n = source.size();
  if (n == 0) return 0;
  const char* s = source.data();
  size_t out = 0;
  size_t i = 0;
  // The room check comes at each write, not each step: a soft break or a
  // stray "=" at the end writes nothing and needs no room.
  while (i < n) {
    unsigned char c = static_cast<unsigned char>(s[i]);
    // The last byte is copied as it stands: a trailing "=" survives.
    if (i + 1 == n) {
      if (out >= size) return 0;
      target[out++] = static_cast<char>(c);
      break;
    }
    if (c == '=') {
      unsigned char next = static_cast<unsigned char>(s[i + 1]);
      if (next == '\n') {
        i += 2;
        continue;
      }
      if (next == '\r' && i + 2 < n && s[i + 2] == '\n') {
        i += 3;
        continue;
      }
      if (i + 2 < n) {
        int high = HexValue(next);
        int low = HexValue(static_cast<unsigned char>(s[i + 2]));
        if (high >= 0 && low >= 0) {
          if (out >= size) return 0;
          target[out++] = static_cast<char>(high * 16 + low);
          i += 3;
          continue;
        }
      }
      ++i;  // a stray "=" is dropped; what follows is read as it comes
      continue;
    }
    if (out >= size) return 0;
    target[out++] = (underscore && c == '_') ? ' ' : static_cast<char>(c);
    ++i;
  }
  if (length) *length = out;
  return 1;
}

std::string QPDecode(std::string_view source, bool underscore) {
  std::string out(source.size(), '\0');
  size_t length = 0;
  if (!QPDecode(source, out.data(), out.size(), &length, underscore)) return {};
  out.resize(length);
  return out;
}

size_t QPEncodeWord(std::string_view source, char* target, size_t size, int stop, bool underscore) {
  source = UpToStop(source, stop);
  size_t out = 0;
  for (unsigned char c : source) {
    if (QPNeedsEncoding(c)) {
      if (size - out < 3) return 0;
      target[out++] = '=';
      target[out++] = kHexDigits[c >> 4];
      target[out++] = kHexDigits[c & 15];
    } else {
      if (out >= size) return 0;
      target[out++] = (underscore && c == ' ') ? '_' : static_cast<char>(c);
    }
  }
  return out;
}

void QPEncodeWord(std::string_view source, std::string* out, int stop, bool underscore) {
  source = UpToStop(source, stop);
  size_t start = out->size();
  out->resize(start + source.size() * 3);
  size_t written =
      QPEncodeWord(source, out->data() + start, source.size() * 3, kNoStop, underscore);
  out->resize(start + written);
}

void QPEncodeLines(std::string_view source, std::string* out, int stop, bool underscore, int width,
                   bool blank, bool encode_line_ends) {
  source = UpToStop(source, stop);
  out->reserve(out->size() + source.size() + source.size() / 4 + 8);
  const size_t limit = width > 0 ? static_cast<size_t>(width) : 0;
  size_t column = 0;
  for (unsigned char c : source) {
    if (!encode_line_ends && (c == '\r' || c == '\n')) {
      out->push_back(static_cast<char>(c));
      column = 0;
      continue;
    }
    const bool encoded = QPNeedsEncoding(c);
    const size_t token = encoded ? 3 : 1;
    // Leave room for the "=" of the soft break itself.
    if (limit > 0 && column > 0 && column + token >= limit) {
      out->append(blank ? "=\r\n " : "=\r\n");
      column = blank ? 1 : 0;
    }
    if (encoded) {
      out->push_back('=');
      out->push_back(kHexDigits[c >> 4]);
      out->push_back(kHexDigits[c & 15]);
    } else {
      out->push_back((underscore && c == ' ') ? '_' : static_cast<char>(c));
    }
    column += token;
  }
}

}  // namespace qaaisp
