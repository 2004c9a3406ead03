#include "store/flag_update.h"

#include <algorithm>
#include <vector>

#include "platform/path_case.h"

namespace qaaisp {
namespace {

bool IsBlank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

std::vector<std::string_view> SplitWords(std::string_view text) {
  std::vector<std::string_view> words;
  size_t i = 0;
  while (i < text.size()) {
    while (i < text.size() && IsBlank(text[i])) ++i;
    size_t start = i;
    while (i < text.size() && !IsBlank(text[i])) ++i;
    if (i > start) words.push_back(text.substr(start, i - start));
  }
  return words;
}

std::string_view BareFlag(std::string_view flag) {
  if (!flag.empty() && flag[0] == '\\') flag.remove_prefix(1);
  return flag;
}

bool HasFlag(const std::vector<std::string_view>& flags, std::string_view bare) {
  return std::any_of(flags.begin(), flags.end(),
                     [&](std::string_view f) { return platform::EqualsNoCase(BareFlag(f), bare); });
}

void Adjust(int32_t* counter, bool before, bool after) {
  if (after && !before) ++*counter;
  if (before && !after && *counter > 0) --*counter;
}

}  // namespace

bool ContainsNoCase(std::string_view text, std::string_view what) {
  if (what.empty()) return true;
  for (size_t i = 0; i + what.size() <= text.size(); ++i) {
    if (platform::EqualsNoCase(text.substr(i, what.size()), what)) return true;
  }
  return false;
}

bool ParseSizeUpdate(std::string_view update, std::string_view* value) {
  constexpr std::string_view kSize = "SIZE=";
  if (update.size() < kSize.size() ||
      !platform::EqualsNoCase(update.substr(0, kSize.size()), kSize)) {
    return false;
  }
  *value = update.substr(kSize.size());
  return true;
}

bool MergeFlagUpdate(std::string_view current, std::string_view update, std::string* merged,
                     FolderDetails* counters) {
  const std::vector<std::string_view> before = SplitWords(current);
  std::vector<std::string_view> flags = before;
  bool first = true;
  for (std::string_view word : SplitWords(update)) {
    bool remove = word[0] == '-';
    bool signed_word = remove || word[0] == '+';
    if (signed_word) word.remove_prefix(1);
    if (!signed_word && first) flags.clear();
    first = false;
    if (word.empty()) continue;
    auto same = [&](std::string_view f) { return platform::EqualsNoCase(f, word); };
    if (remove) {
      flags.erase(std::remove_if(flags.begin(), flags.end(), same), flags.end());
    } else if (std::none_of(flags.begin(), flags.end(), same)) {
      flags.push_back(word);
    }
  }

  merged->clear();
  for (std::string_view f : flags) {
    if (!merged->empty()) merged->push_back(' ');
    merged->append(f);
  }
  if (counters) {
    Adjust(&counters->Seen, HasFlag(before, "SEEN"), HasFlag(flags, "SEEN"));
    Adjust(&counters->Flagged, HasFlag(before, "FLAGGED"), HasFlag(flags, "FLAGGED"));
    Adjust(&counters->Answered, HasFlag(before, "ANSWERED"), HasFlag(flags, "ANSWERED"));
  }
  if (flags.size() != before.size()) return true;
  // Same size: changed unless every flag is still there.
  return !std::all_of(flags.begin(), flags.end(), [&](std::string_view f) {
    return std::any_of(before.begin(), before.end(),
                       [&](std::string_view b) { return platform::EqualsNoCase(f, b); });
  });
}

}  // namespace qaaisp
