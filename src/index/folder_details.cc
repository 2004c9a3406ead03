// The status record of a folder, counted from its rows' flags.
#include "base/failure_guard.h"
#include "index/index_source_names.h"
#include "index/sorted_store_index.h"
#include "index/text_search.h"

namespace qaaisp {

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
      if (ContainsNoCase(status, "\\SEEN")) {
        ++details->Seen;
        // The first seen row, not the first unseen one.
        if (details->FirstSeen == 0) details->FirstSeen = details->Total;
      }
      if (ContainsNoCase(status, "\\ANSWERED")) ++details->Answered;
      if (ContainsNoCase(status, "\\FLAGGED")) ++details->Flagged;
      if (ContainsNoCase(status, "\\DELETED")) ++details->Deleted;
      if (ContainsNoCase(status, "\\RECENT")) ++details->Recent;
    }
  });
}

}  // namespace qaaisp
