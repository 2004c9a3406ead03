// The strategies that move a folder's index between memory and its file.
// StoreIndexSerialiser is the frame: it picks the member for a folder and a
// call, wraps each load and save in a failure guard, and keeps a backup of
// the index file from which a damaged one is recovered. A serialiser object
// lives for one call.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "index/sorted_store_index.h"

struct StoreIndex;

namespace qaaisp {

// The arguments of a load, as a hook receives them. reserved is always 0;
// any verify_files above 0 drops rows whose item file is gone.
struct LoadRequest {
  std::string folder;  // never ends in a separator
  int32_t item_class = 0;
  std::string postoffice;
  std::string mailbox;
  int32_t mode = LoadFull;
  bool keep = false;
  int32_t reserved = 0;
  int32_t verify_files = 0;
  bool quiet = false;
};

class StoreIndexSerialiser {
 public:
  virtual ~StoreIndexSerialiser() = default;

  // Copies the index file to its backup. The base does nothing.
  virtual void BackupSerialisation(const std::string& folder);
  // Puts the backup in place of the index file; false if there was none.
  virtual bool RestoreSerialisationBackup(const std::string& folder);
  // Moves a bad index file aside to ".bad".
  virtual bool QuarantineSerialisation(const std::string& folder);
  // Writes the index; 1 for success.
  virtual int SerialiseHook(SORTEDSTOREINDEXTYPE* index, const std::string& folder,
                            int32_t item_class) = 0;
  // Loads the index; gives the LoadState reached.
  virtual int32_t DeserialiseHook(SORTEDSTOREINDEXTYPE* index, const LoadRequest& request) = 0;
  virtual bool RequiresFullLoad() const = 0;
  virtual bool SupportsBackup() const = 0;
  virtual bool SupportsFieldFilter() const = 0;
  virtual bool IndexXMLBackupExists(const std::string& folder);
  // Age of the backup in minutes (0 when there is none).
  virtual uint32_t BackupAgeMinutes(const std::string& folder);
  virtual void IndexXMLDeleteBackupSerialisation(const std::string& folder);

  // Runs the load hook in a failure guard, stores the LoadState in the index,
  // and then keeps the backup fresh after a full load or recovers from it
  // after a failed one. Never throws.
  int32_t Deserialise(SORTEDSTOREINDEXTYPE* index, const LoadRequest& request,
                      bool delete_change_file);
  // Runs the save hook in a failure guard; 0 for a caught failure.
  int Serialise(SORTEDSTOREINDEXTYPE* index, const std::string& folder, int32_t item_class);

 private:
  void RecoverFromBackup(SORTEDSTOREINDEXTYPE* index, const LoadRequest& request);
};

// Loads nothing: an empty index (kept as it is with keep) at level 4.
class NullStoreIndexDeserialiser : public StoreIndexSerialiser {
 public:
  int SerialiseHook(SORTEDSTOREINDEXTYPE*, const std::string&, int32_t) override { return 0; }
  int32_t DeserialiseHook(SORTEDSTOREINDEXTYPE* index, const LoadRequest& request) override;
  bool RequiresFullLoad() const override { return true; }
  bool SupportsBackup() const override { return false; }
  bool SupportsFieldFilter() const override { return false; }
};

// Chooses the member that loads a folder: none for an empty path; the stream
// reader or the document reader for an existing index file; a rebuild from
// the item files when there is none (with rebuild), when the change marker
// asks for it, when forced, or for every calendar load with "Calendar
// ReIndex Mode". *change_marker_seen, if given, tells whether the marker
// was found (so the caller may delete it after a full load).
std::unique_ptr<StoreIndexSerialiser> CreateIndexDeserialiser(const std::string& folder,
                                                              int32_t item_class, bool rebuild,
                                                              bool force_rebuild,
                                                              bool* change_marker_seen = nullptr);
// The member that saves: the stream writer with "Use XML Stream Index
// Serialisation" 1, the document writer otherwise.
std::unique_ptr<StoreIndexSerialiser> CreateIndexSerialiser();

// The one load entry of the index layer. Records its arguments in the table
// so that a later load can repeat them, takes the folder's index access
// through lock_owner unless lock_held, loads, and gives whether the level
// reached is at least mode. With only_if_unloaded a loaded table gives 1 at
// once.
bool LoadIndexFile(SORTEDSTOREINDEXTYPE* index, StoreIndex* lock_owner, const std::string& folder,
                   int32_t item_class, const std::string& postoffice, const std::string& mailbox,
                   bool only_if_unloaded, bool lock_held, int32_t mode, int32_t verify_files,
                   bool rebuild, bool force_rebuild, bool report_failures, bool keep);
// LoadIndexFile with the mode raised so that a process that saves through a
// full-only writer never holds a partial index; class 55 loads contacts and
// then groups into one table.
bool LoadIndexForClass(SORTEDSTOREINDEXTYPE* index, StoreIndex* lock_owner,
                       const std::string& folder, int32_t item_class, const std::string& postoffice,
                       const std::string& mailbox, bool only_if_unloaded, bool lock_held,
                       int32_t mode, int32_t verify_files, bool rebuild, bool force_rebuild,
                       bool report_failures, bool keep);
// Saves through the chosen writer. On success the modification marks are
// cleared and IndexFileDate is read back from the file. Always gives 1: the
// writer has reported any failure itself. written, if given, says whether
// the writer succeeded.
int SaveIndexFile(SORTEDSTOREINDEXTYPE* index, const std::string& folder, int32_t item_class,
                  bool* written = nullptr);
// Whether "_index.xml" is in the folder (for every class, groups included).
bool IndexFileExists(const std::string& folder, int32_t item_class);

// Repeats the table's stored load at a new level (registered with the index
// layer for EnsureLevel).
int ReloadIndexAtLevel(SORTEDSTOREINDEXTYPE* index, int32_t level);

}  // namespace qaaisp
