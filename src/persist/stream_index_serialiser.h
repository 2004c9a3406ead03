// The stream member: reads the index file in one forward pass without
// building a document, and writes it in place (see stream_index_writer.cc).
#pragma once

#include <map>
#include <string>

#include "persist/index_serialiser.h"
#include "persist/stream_index_reader.h"

namespace qaaisp {

namespace persist {
struct IndexWriteContext;
class IndexWriteStream;
}  // namespace persist

class StreamXMLStoreIndexSerialiser : public StoreIndexSerialiser {
 public:
  StreamXMLStoreIndexSerialiser() = default;

  void BackupSerialisation(const std::string& folder) override;
  bool RestoreSerialisationBackup(const std::string& folder) override;
  bool QuarantineSerialisation(const std::string& folder) override;
  int SerialiseHook(SORTEDSTOREINDEXTYPE* index, const std::string& folder,
                    int32_t item_class) override;
  int32_t DeserialiseHook(SORTEDSTOREINDEXTYPE* index, const LoadRequest& request) override;
  bool RequiresFullLoad() const override { return false; }
  bool SupportsBackup() const override { return true; }
  bool SupportsFieldFilter() const override { return true; }
  bool IndexXMLBackupExists(const std::string& folder) override;
  uint32_t BackupAgeMinutes(const std::string& folder) override;
  void IndexXMLDeleteBackupSerialisation(const std::string& folder) override;

  // The inner pass over an open file: 0 malformed (reported unless quiet),
  // 1 good, 2 too much garbage for a partial load (load again in full).
  int DeserialiseKeysOrBetter(SORTEDSTOREINDEXTYPE* index, persist::IndexByteSource* stream,
                              size_t buffer_size, int64_t file_length, int32_t mode,
                              persist::NameSet* filter, persist::NameSet* fields,
                              const std::string& folder, int32_t verify_files, bool quiet,
                              bool keep);

  // The in-place writer's steps (stream_index_writer.cc): one row with the
  // bytes behind it that memory does not hold, giving where the next row
  // goes; one row's element, giving its length; the offset of the root end
  // tag in the file as it was when the save began.
  int64_t WriteRow(persist::IndexWriteContext* context, int64_t position,
                   IndexItemPropertyContainer* row, IndexItemPropertyContainer* next_row,
                   bool row_is_new);
  uint32_t WriteRowElement(persist::IndexWriteContext* context, IndexItemPropertyContainer* row);
  int64_t FindRowsEnd(persist::IndexWriteStream* stream);

  bool index_valid() const { return index_valid_; }
  // The first malformed-index message of the last pass.
  const std::string& malformed_message() const { return malformed_message_; }

 protected:
  // One-character text to its entity, rebuilt by each save.
  std::map<std::string, std::string> escape_table_;

 private:
  int32_t LoadHeaderOnly(SORTEDSTOREINDEXTYPE* index, const std::string& path, int32_t* mode,
                         persist::NameSet* filter);

  bool index_valid_ = true;
  std::string malformed_message_;
};

}  // namespace qaaisp
