// Checks on the names and paths that callers hand to the exports. A name
// that does not fit a store field, or that would lead out of the directory
// it names a part of, is refused at the boundary rather than cut or
// followed, so no call can reach a file outside the store.
#pragma once

#include <cstring>
#include <string_view>

namespace qaaisp {

// Longest text a store field holds (1024 bytes with the terminator).
inline constexpr size_t kMaxCallerName = 1023;

inline bool FitsField(const char* text) {
  return text != nullptr && ::strnlen(text, kMaxCallerName + 1) <= kMaxCallerName;
}

// No path component of text is "..", with "/" and "\" both separators.
inline bool ClimbsNowhere(std::string_view text) {
  size_t start = 0;
  while (start <= text.size()) {
    size_t end = text.find_first_of("/\\", start);
    if (end == std::string_view::npos) end = text.size();
    if (text.substr(start, end - start) == "..") return false;
    start = end + 1;
  }
  return true;
}

// A postoffice, a mailbox or an item file name: one component.
inline bool IsPlainName(const char* text) {
  if (!FitsField(text)) return false;
  std::string_view name(text);
  return name.find_first_of("/\\") == std::string_view::npos && name != "." && name != "..";
}

// A folder name (a path below its mailbox) or a full path named by the
// caller: any depth, but never up.
inline bool IsContainedPath(const char* text) { return FitsField(text) && ClimbsNowhere(text); }

// A comma-separated list of item file names; the list as a whole may be
// longer than a field, each name may not.
inline bool IsPlainNameList(const char* text) {
  if (text == nullptr) return false;
  std::string_view list(text);
  if (list.find_first_of("/\\") != std::string_view::npos) return false;
  size_t start = 0;
  while (start <= list.size()) {
    size_t end = list.find(',', start);
    if (end == std::string_view::npos) end = list.size();
    std::string_view name = list.substr(start, end - start);
    if (name == "." || name == ".." || name.size() > kMaxCallerName) return false;
    start = end + 1;
  }
  return true;
}

// A postoffice, a mailbox and a folder; a null folder means the mailbox's
// own directory.
inline bool NamesAFolder(const char* postoffice, const char* mailbox, const char* folder) {
  return IsPlainName(postoffice) && IsPlainName(mailbox) &&
         (folder == nullptr || IsContainedPath(folder));
}

}  // namespace qaaisp
