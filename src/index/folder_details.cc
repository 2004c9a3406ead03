// The status record of a folder, counted from its rows' flags.
#include "base/failure_guard.h"
#include "index/index_source_names.h"
#include "index/sorted_store_index.h"
#include "platform/path_case.h"

namespace qaaisp {
namespace {

struct SystemFlags {
  bool seen = false;
  bool answered = false;
  bool flagged = false;
  bool deleted = false;
  bool recent = false;
};

bool FlagAt(std::string_view rest, std::string_view flag) {
  return rest.size() >= flag.size() && platform::EqualsNoCase(rest.substr(0, flag.size()), flag);
}

// Which system flags occur anywhere in status, letters compared without
// case: every one starts with a backslash, so one pass over those finds
// them all.
SystemFlags SystemFlagsIn(std::string_view status) {
  SystemFlags found;
  for (size_t at = status.find('\\'); at != std::string_view::npos;
       at = status.find('\\', at + 1)) {
    const std::string_view rest = status.substr(at);
    found.seen = found.seen || FlagAt(rest, "\\SEEN");
    found.answered = found.answered || FlagAt(rest, "\\ANSWERED");
    found.flagged = found.flagged || FlagAt(rest, "\\FLAGGED");
    found.deleted = found.deleted || FlagAt(rest, "\\DELETED");
    found.recent = found.recent || FlagAt(rest, "\\RECENT");
  }
  return found;
}

}  // namespace

void SORTEDSTOREINDEXTYPE::GetFolderDetails(FolderDetails* details) {
  LineTrace trace = 0;
  Guarded("SORTEDSTOREINDEXTYPE::GetFolderDetails", kStoreIndexTypeSource, __LINE__, trace, [&] {
    if (!details || !EnsureLevel(LoadFull)) return;
    *details = FolderDetails{};
    details->LastUID = static_cast<int32_t>(LastUID);
    // One private copy of the property map serves every row, so a large
    // folder does not take the global guard per row.
    PropertyMap temporary;
    CloneGlobalPropertyMap(&temporary);
    PropertyKey flags = LookupProperty("FLAGSTATUS", &temporary);
    for (const auto& [uid, row] : by_uid_) {
      ++details->Total;
      std::string integer_text;
      std::string_view status;
      if (flags.type == kPropertyText) {
        status = row->TextViewAt(flags);
      } else {
        row->GetTextAt(flags, &integer_text);
        status = integer_text;
      }
      const SystemFlags flags_set = SystemFlagsIn(status);
      if (flags_set.seen) {
        ++details->Seen;
        // The first seen row, not the first unseen one.
        if (details->FirstSeen == 0) details->FirstSeen = details->Total;
      }
      if (flags_set.answered) ++details->Answered;
      if (flags_set.flagged) ++details->Flagged;
      if (flags_set.deleted) ++details->Deleted;
      if (flags_set.recent) ++details->Recent;
    }
  });
}

}  // namespace qaaisp
