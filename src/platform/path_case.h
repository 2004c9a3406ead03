// Case-insensitive names for store directories: "INBOX", "Inbox" and
// "inbox" are one folder. Exact spelling is tried first (one stat); only a
// miss lists the parent.
#pragma once

#include <string>
#include <string_view>

#include "platform/env.h"

namespace qaaisp::platform {

// Turns every "\" into the native "/".
std::string ToNativeSeparators(std::string_view path);

// Resolves each component of an absolute path to an existing entry whose name
// matches without regard to ASCII case. Components from the first one with no
// match on are kept as spelled, so a new directory is created as spelled.
std::string ResolveCaseInsensitive(Env* env, const std::string& path);

// Matches a name against a listing pattern with "*" and "?" without regard
// to case, as the store's directory searches always did ("*.MAI", "_*.NEW").
bool MatchPattern(std::string_view pattern, std::string_view name);

// ASCII case-insensitive equality and ordering (_stricmp).
bool EqualsNoCase(std::string_view a, std::string_view b);
int CompareNoCase(std::string_view a, std::string_view b);

}  // namespace qaaisp::platform
