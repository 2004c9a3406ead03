// Reads and indexes the new message files of a scan on helper threads,
// ahead of the scan, which takes the results one by one in its own order
// and does everything else (UIDs, branding, rows, the save) itself. Only the
// reading of files moves: what the scan writes, and in what order, is the
// same as without it.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "message/message_header_info.h"
#include "platform/env.h"

namespace qaaisp {

// One message file indexed: what IndexMessage gave and the size it read.
struct IndexedMessage {
  MessageHeaderInfo info;
  uint64_t read_size = 0;
  bool indexed = false;
};

// Indexes a message file of folder as the scan does for a row it lacks:
// the folder stamp and file name set first, flags kept.
void IndexNewMessageFile(const std::string& folder, const std::string& name, uint32_t stamp,
                         IndexedMessage* out);

class ParseAhead {
 public:
  // Files that scans of fewer new files than this read on the caller's
  // thread: starting helpers would cost more than it saves.
  static constexpr size_t kLeastFiles = 64;
  // The most files indexed ahead of the one the scan is at, so that a scan
  // stopped part way has read little it did not need.
  static constexpr size_t kWindow = 32;

  // listing is the scan's listing and positions those of its new files, in
  // the order the scan will take them; the listing must outlive this.
  // helpers is the number of threads to start (with none, every file is
  // read on the caller's thread, at Take).
  ParseAhead(const std::string& folder, const std::vector<const platform::DirEntry*>& listing,
             std::vector<size_t> positions, uint32_t stamp, unsigned helpers);
  // Stops the helpers, which finish the file each is reading, and waits.
  ~ParseAhead();
  ParseAhead(const ParseAhead&) = delete;
  ParseAhead& operator=(const ParseAhead&) = delete;

  // The result for the file at position of the listing, valid until the
  // next call; positions are asked in rising order. Files passed over were
  // found to have rows after all, and their results are dropped. Null if
  // position is not one of the new files.
  IndexedMessage* Take(size_t position);

  // Helper threads a scan of this process starts: one fewer than the
  // processors, at most three, and none unless the platform layer takes
  // calls from several threads at once.
  static unsigned HelperCount();
  // Replaces HelperCount's answer for tests; a negative count restores it.
  static void SetHelperCountForTesting(int helpers);

 private:
  void Help();
  IndexedMessage& Slot(size_t k) { return slots_[k % kWindow].message; }
  const std::string& NameOf(size_t k) const { return listing_[positions_[k]]->name; }
  void Release(std::unique_lock<std::mutex>& lock);
  bool ReadOneAhead(std::unique_lock<std::mutex>& lock);

  struct SlotState {
    IndexedMessage message;
    bool done = false;
    bool read_again = false;  // the helper's read threw
  };

  const std::string folder_;
  const std::vector<const platform::DirEntry*>& listing_;
  const std::vector<size_t> positions_;
  const uint32_t stamp_;
  std::unique_ptr<SlotState[]> slots_;
  std::mutex mutex_;
  std::condition_variable work_;      // helpers wait for room in the window
  std::condition_variable finished_;  // the scan waits for a file a helper reads
  size_t next_claim_ = 0;             // the first file no thread has taken up
  size_t current_ = 0;                // the file the scan holds, or will next
  bool held_ = false;                 // whether the scan holds current_
  bool stopping_ = false;
  std::vector<std::thread> helpers_;
};

}  // namespace qaaisp
