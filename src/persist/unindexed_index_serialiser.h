// Rebuilds a folder's index from its item files. It loads what the wrapped
// serialiser can give first, so that flags and UIDs survive where they can,
// then scans the folder, and saves the result at the end of its own load.
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "index/index_item.h"
#include "persist/index_serialiser.h"

namespace qaaisp {

// The scans live in layers above this one and register themselves here;
// until they do, a rebuild of that kind does nothing.
struct UnindexedScanRoutines {
  // The re-scan of a message folder; block_mode 99 says the caller holds the
  // folder's index access.
  int (*scan_messages)(SORTEDSTOREINDEXTYPE* index, const std::string& folder,
                       int block_mode) = nullptr;
  // The scan of a contacts folder.
  int (*scan_contacts)(SORTEDSTOREINDEXTYPE* index, const std::string& folder,
                       int block_mode) = nullptr;
  // Parses the text of one appointment (class 2) or task (class 3) into the
  // row, whose item carries the names of where it lives, and writes the
  // item file back under its name.
  void (*index_calendar_item)(IndexItem* row, int32_t item_class, const std::string& path,
                              std::string_view text) = nullptr;
};
void SetUnindexedScanRoutines(const UnindexedScanRoutines& routines);
const UnindexedScanRoutines& GetUnindexedScanRoutines();

// Whether the index file of the class is, as far as the table can tell,
// exactly the table as it stands: saved by it, nothing changed since, and
// the file's time still the one that save (or a later stamp the table
// took note of) left. Saving such a table again would write the same
// bytes and make every other process reload them.
bool IndexSavedAsItStands(const SORTEDSTOREINDEXTYPE& index, const std::string& folder,
                          int32_t item_class);

class UnindexedStoreIndexSerialiser : public StoreIndexSerialiser {
 public:
  // Owns wrapped (which may be null) unless told otherwise.
  explicit UnindexedStoreIndexSerialiser(StoreIndexSerialiser* wrapped, bool owns_wrapped = true);
  ~UnindexedStoreIndexSerialiser() override;

  // Nothing is ever saved through this member but its own load's save.
  int SerialiseHook(SORTEDSTOREINDEXTYPE*, const std::string&, int32_t) override { return 0; }
  int32_t DeserialiseHook(SORTEDSTOREINDEXTYPE* index, const LoadRequest& request) override;
  bool RequiresFullLoad() const override { return true; }
  bool SupportsBackup() const override { return false; }
  bool SupportsFieldFilter() const override { return false; }

  StoreIndexSerialiser* wrapped() const { return wrapped_; }

 private:
  // The walk of appointment or task files of a folder.
  void WalkCalendarFiles(SORTEDSTOREINDEXTYPE* index, const LoadRequest& request,
                         const char* extension);

  StoreIndexSerialiser* wrapped_;
  bool owns_wrapped_;
};

}  // namespace qaaisp
