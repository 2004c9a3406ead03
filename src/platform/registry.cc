#include "platform/registry.h"

#include <cctype>
#include <cstdlib>

namespace qaaisp::platform {
namespace {

std::string Upper(std::string_view s) {
  std::string out(s);
  for (char& c : out) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  return out;
}

std::string NormaliseKey(std::string_view key) {
  std::string k = Upper(key);
  for (const char* prefix : {"HKEY_LOCAL_MACHINE\\", "HKLM\\"}) {
    if (k.rfind(prefix, 0) == 0) {
      k.erase(0, std::string_view(prefix).size());
      break;
    }
  }
  while (!k.empty() && k.back() == '\\') k.pop_back();
  return k;
}

// UTF-16LE .reg files (what the registry editor writes) become UTF-8.
std::string ToUtf8(std::string_view content) {
  if (content.size() >= 2 && static_cast<unsigned char>(content[0]) == 0xFF &&
      static_cast<unsigned char>(content[1]) == 0xFE) {
    std::string out;
    for (size_t i = 2; i + 1 < content.size(); i += 2) {
      uint32_t cp = static_cast<unsigned char>(content[i]) |
                    (static_cast<unsigned char>(content[i + 1]) << 8);
      if (cp >= 0xD800 && cp < 0xDC00 && i + 3 < content.size()) {
        uint32_t lo = static_cast<unsigned char>(content[i + 2]) |
                      (static_cast<unsigned char>(content[i + 3]) << 8);
        if (lo >= 0xDC00 && lo < 0xE000) {
          cp = 0x10000 + ((cp - 0xD800) << 10) + (lo - 0xDC00);
          i += 2;
        }
      }
      if (cp < 0x80) {
        out += static_cast<char>(cp);
      } else if (cp < 0x800) {
        out += static_cast<char>(0xC0 | (cp >> 6));
        out += static_cast<char>(0x80 | (cp & 0x3F));
      } else if (cp < 0x10000) {
        out += static_cast<char>(0xE0 | (cp >> 12));
        out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (cp & 0x3F));
      } else {
        out += static_cast<char>(0xF0 | (cp >> 18));
        out += static_cast<char>(0x80 | ((cp >> 12) & 0x3F));
        out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (cp & 0x3F));
      }
    }
    return out;
  }
  if (content.size() >= 3 && content.substr(0, 3) == "\xEF\xBB\xBF") {
    return std::string(content.substr(3));
  }
  return std::string(content);
}

// Reads a quoted string starting at s[i] == '"'; i ends after the closing quote.
bool ReadQuoted(const std::string& s, size_t& i, std::string* out) {
  out->clear();
  ++i;
  while (i < s.size()) {
    char c = s[i++];
    if (c == '\\' && i < s.size()) {
      *out += s[i++];
    } else if (c == '"') {
      return true;
    } else {
      *out += c;
    }
  }
  return false;
}

bool ParseHexBytes(std::string_view text, std::vector<uint8_t>* out) {
  out->clear();
  size_t i = 0;
  while (i < text.size()) {
    while (
        i < text.size() &&
        (text[i] == ',' || std::isspace(static_cast<unsigned char>(text[i])) || text[i] == '\\')) {
      ++i;
    }
    if (i >= text.size()) break;
    size_t start = i;
    while (i < text.size() && std::isxdigit(static_cast<unsigned char>(text[i]))) ++i;
    if (i == start || i - start > 2) return false;
    out->push_back(static_cast<uint8_t>(
        std::strtoul(std::string(text.substr(start, i - start)).c_str(), nullptr, 16)));
  }
  return true;
}

}  // namespace

RegistryData ParseRegFile(std::string_view raw) {
  std::string content = ToUtf8(raw);
  RegistryData data;
  std::string current;
  bool in_key = false;
  // Join continuation lines (a trailing "\" inside hex lists).
  std::vector<std::string> lines;
  {
    std::string line;
    size_t pos = 0;
    while (pos <= content.size()) {
      size_t end = content.find('\n', pos);
      if (end == std::string::npos) end = content.size();
      std::string piece = content.substr(pos, end - pos);
      if (!piece.empty() && piece.back() == '\r') piece.pop_back();
      pos = end + 1;
      if (!line.empty()) {
        size_t first = piece.find_first_not_of(" \t");
        piece = first == std::string::npos ? "" : piece.substr(first);
      }
      line += piece;
      if (!line.empty() && line.back() == '\\' && line.find("=hex") != std::string::npos) {
        line.pop_back();
        continue;
      }
      lines.push_back(std::move(line));
      line.clear();
      if (end == content.size()) break;
    }
  }
  for (const std::string& line : lines) {
    size_t i = line.find_first_not_of(" \t");
    if (i == std::string::npos || line[i] == ';') continue;
    if (line[i] == '[') {
      size_t close = line.rfind(']');
      if (close == std::string::npos || close <= i) continue;
      std::string key = line.substr(i + 1, close - i - 1);
      in_key = !key.empty() && key[0] != '-';
      if (in_key) current = NormaliseKey(key);
      continue;
    }
    if (!in_key) continue;
    std::string name;
    if (line[i] == '@') {
      ++i;
    } else if (line[i] == '"') {
      if (!ReadQuoted(line, i, &name)) continue;
    } else {
      continue;
    }
    while (i < line.size() && line[i] == ' ') ++i;
    if (i >= line.size() || line[i] != '=') continue;
    ++i;
    while (i < line.size() && line[i] == ' ') ++i;
    std::string rest = line.substr(i);
    RegistryValue value;
    if (!rest.empty() && rest[0] == '"') {
      size_t j = 0;
      if (!ReadQuoted(rest, j, &value.text)) continue;
      value.kind = RegistryValue::Kind::kString;
    } else if (rest.rfind("dword:", 0) == 0) {
      value.kind = RegistryValue::Kind::kDword;
      value.dword = static_cast<uint32_t>(std::strtoul(rest.c_str() + 6, nullptr, 16));
    } else if (rest.rfind("hex", 0) == 0) {
      size_t colon = rest.find(':');
      if (colon == std::string::npos) continue;
      value.kind = RegistryValue::Kind::kBinary;
      if (!ParseHexBytes(std::string_view(rest).substr(colon + 1), &value.bytes)) continue;
    } else {
      continue;  // "-" deletes, or a form we do not know
    }
    data[current][Upper(name)] = std::move(value);
  }
  return data;
}

Registry::Registry(Env* env, std::vector<std::string> files)
    : env_(env), files_(std::move(files)) {}

namespace {
std::mutex g_process_registry_mutex;
Registry* g_process_registry = nullptr;

std::vector<std::string> ProcessRegistryFiles(Env* env) {
  std::vector<std::string> files;
  std::string base = env->GetEnvVar("QAAISP_BASE_REGISTRY");
  if (!base.empty()) files.push_back(base);
  files.push_back(env->GetEnvVar("QAAISP_REGISTRY"));
  return files;
}
}  // namespace

Registry& Registry::Process() {
  std::lock_guard<std::mutex> lock(g_process_registry_mutex);
  if (!g_process_registry) {
    Env* env = Env::Default();
    // The process registry reads through whatever Env is current, so a test
    // Env installed and removed later is never kept.
    g_process_registry = new Registry(nullptr, ProcessRegistryFiles(env));
  }
  return *g_process_registry;
}

void Registry::ResetProcessForTesting(std::vector<std::string> files) {
  Registry& r = Process();
  std::lock_guard<std::mutex> lock(r.mutex_);
  r.files_ = std::move(files);
  r.stamps_.clear();
  r.present_.clear();
  r.data_.clear();
  r.loaded_ = false;
}

void Registry::RefreshLocked() {
  bool changed = !loaded_;
  stamps_.resize(files_.size());
  present_.resize(files_.size());
  for (size_t i = 0; i < files_.size(); ++i) {
    FileInfo info;
    bool present = !files_[i].empty() && env()->Stat(files_[i], &info);
    FileTime stamp = present ? info.write_time : FileTime{};
    if (present != present_[i] || !(stamp == stamps_[i])) changed = true;
    present_[i] = present;
    stamps_[i] = stamp;
  }
  if (!changed) return;
  data_.clear();
  for (size_t i = 0; i < files_.size(); ++i) {
    if (!present_[i]) continue;
    std::string content;
    if (!ReadWholeFile(env(), files_[i], &content)) continue;
    for (auto& [key, values] : ParseRegFile(content)) {
      for (auto& [name, value] : values) data_[key][name] = std::move(value);
    }
  }
  loaded_ = true;
}

bool Registry::Find(std::string_view key, std::string_view name, RegistryValue* out) {
  std::lock_guard<std::mutex> lock(mutex_);
  RefreshLocked();
  auto k = data_.find(NormaliseKey(key));
  if (k == data_.end()) return false;
  auto v = k->second.find(Upper(name));
  if (v == k->second.end()) return false;
  *out = v->second;
  return true;
}

bool Registry::ReadDword(std::string_view key, std::string_view name, uint32_t* out) {
  RegistryValue v;
  if (!Find(key, name, &v)) return false;
  switch (v.kind) {
    case RegistryValue::Kind::kDword:
      *out = v.dword;
      return true;
    case RegistryValue::Kind::kBinary:
      if (v.bytes.size() < 4) return false;
      *out = v.bytes[0] | (v.bytes[1] << 8) | (v.bytes[2] << 16) |
             (static_cast<uint32_t>(v.bytes[3]) << 24);
      return true;
    case RegistryValue::Kind::kString:
      return false;
  }
  return false;
}

bool Registry::ReadString(std::string_view key, std::string_view name, std::string* out) {
  RegistryValue v;
  if (!Find(key, name, &v) || v.kind != RegistryValue::Kind::kString) return false;
  *out = v.text;
  return true;
}

bool Registry::ReadBinary(std::string_view key, std::string_view name, std::vector<uint8_t>* out) {
  RegistryValue v;
  if (!Find(key, name, &v) || v.kind != RegistryValue::Kind::kBinary) return false;
  *out = v.bytes;
  return true;
}

}  // namespace qaaisp::platform
