#include "platform/path_case.h"

#include <vector>

namespace qaaisp::platform {
namespace {

char Lower(char c) { return (c >= 'A' && c <= 'Z') ? static_cast<char>(c + 32) : c; }

}  // namespace

std::string ToNativeSeparators(std::string_view path) {
  std::string out(path);
  for (char& c : out) {
    if (c == '\\') c = '/';
  }
  return out;
}

bool EqualsNoCase(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i) {
    if (Lower(a[i]) != Lower(b[i])) return false;
  }
  return true;
}

int CompareNoCase(std::string_view a, std::string_view b) {
  size_t n = a.size() < b.size() ? a.size() : b.size();
  for (size_t i = 0; i < n; ++i) {
    unsigned char x = static_cast<unsigned char>(Lower(a[i]));
    unsigned char y = static_cast<unsigned char>(Lower(b[i]));
    if (x != y) return x < y ? -1 : 1;
  }
  if (a.size() == b.size()) return 0;
  return a.size() < b.size() ? -1 : 1;
}

std::string ResolveCaseInsensitive(Env* env, const std::string& path) {
  FileInfo info;
  if (path.empty() || env->Stat(path, &info)) return path;
  size_t slash = path.find_last_of('/');
  if (slash == std::string::npos) return path;
  std::string parent = slash == 0 ? std::string("/") : path.substr(0, slash);
  std::string leaf = path.substr(slash + 1);
  if (leaf.empty()) {
    // Trailing separator: resolve what comes before it.
    return ResolveCaseInsensitive(env, parent) + "/";
  }
  std::string resolved_parent = parent == "/" ? parent : ResolveCaseInsensitive(env, parent);
  std::string joined = resolved_parent == "/" ? "/" + leaf : resolved_parent + "/" + leaf;
  if (resolved_parent != parent && env->Stat(joined, &info)) return joined;
  std::vector<DirEntry> entries;
  if (env->ListDirectory(resolved_parent, /*with_info=*/false, &entries)) {
    const DirEntry* best = nullptr;
    for (const auto& e : entries) {
      if (EqualsNoCase(e.name, leaf)) {
        // Prefer a directory, then the first in byte order, so every process
        // picks the same one when names differ only by case.
        if (!best || (e.is_directory && !best->is_directory) ||
            (e.is_directory == best->is_directory && e.name < best->name)) {
          best = &e;
        }
      }
    }
    if (best) {
      return resolved_parent == "/" ? "/" + best->name : resolved_parent + "/" + best->name;
    }
  }
  return joined;
}

bool MatchPattern(std::string_view pattern, std::string_view name) {
  // Iterative glob with one backtrack point for the last "*".
  size_t p = 0, n = 0, star = std::string_view::npos, mark = 0;
  while (n < name.size()) {
    if (p < pattern.size() && (pattern[p] == '?' || Lower(pattern[p]) == Lower(name[n]))) {
      ++p;
      ++n;
    } else if (p < pattern.size() && pattern[p] == '*') {
      star = p++;
      mark = n;
    } else if (star != std::string_view::npos) {
      p = star + 1;
      n = ++mark;
    } else {
      return false;
    }
  }
  while (p < pattern.size() && pattern[p] == '*') ++p;
  return p == pattern.size();
}

}  // namespace qaaisp::platform
