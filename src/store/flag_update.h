// The update text of Direct_StoreIndex_UpdateItem applied to a row's
// "FLAGSTATUS": words split at blanks, "+F" adds F, "-F" removes it, and a
// first word with no sign replaces every flag before it is added. Flags
// compare without regard to case. "SIZE=<n>" instead sets the row's size.
#pragma once

#include <string>
#include <string_view>

#include "qaaisp/qaaisp.h"

namespace qaaisp {

// True if the update text is a size update ("SIZE=", in any case), with the
// value after the "=" in *value.
bool ParseSizeUpdate(std::string_view update, std::string_view* value);

// Merges update into the flag list current. Sets *merged to the new list
// (flags joined by one blank) and gives true if the set of flags changed.
// With counters given, its seen, flagged and answered counts follow the
// "\Seen", "\Flagged" and "\Answered" flags (a leading backslash is
// optional), never falling below 0.
bool MergeFlagUpdate(std::string_view current, std::string_view update, std::string* merged,
                     FolderDetails* counters);

// Case-insensitive substring test, as flag texts are searched.
bool ContainsNoCase(std::string_view text, std::string_view what);

}  // namespace qaaisp
