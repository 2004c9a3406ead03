// Formats the row elements of a long save on a helper thread, a block of
// rows at a time: the writer formats one block in kCycle itself and takes
// the helper's blocks, already formatted, in their turn. The helper has the
// larger share, since the writer also writes every block out. What is
// written, and where, is the same as without it.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "persist/stream_index_writer.h"

namespace qaaisp::persist {

class ElementsAhead {
 public:
  static constexpr size_t kBlockRows = 256;
  // Saves of fewer rows than this format every row on the writer's thread.
  static constexpr size_t kLeastRows = 4096;
  // The most blocks the helper holds formatted and not yet written.
  static constexpr size_t kBlocksHeld = 4;
  // Of each run of this many blocks, the writer formats the first.
  static constexpr size_t kCycle = 3;

  // rows from start on are to be written, in order; the context's tags and
  // escaper, and the rows' values, must stay as they are until this ends.
  ElementsAhead(const IndexWriteContext& context,
                const std::vector<IndexItemPropertyContainer*>& rows, size_t start);
  // Stops the helper, which finishes the block it is formatting, and waits.
  ~ElementsAhead();
  ElementsAhead(const ElementsAhead&) = delete;
  ElementsAhead& operator=(const ElementsAhead&) = delete;

  // The element of rows[i], valid until the next call, or empty where the
  // writer is to format it. i rises from call to call.
  std::string_view Take(size_t i);

  // Whether a save of rows from start on is worth a helper on this machine.
  static bool Worthwhile(size_t rows, size_t start);

 private:
  // The helper's blocks are all but the first of each cycle, counted from
  // start.
  static bool HelpersBlock(size_t block) { return block % kCycle != 0; }
  struct Block {
    std::string text;
    std::vector<uint32_t> ends;  // where each row's element ends in text
    size_t block = 0;            // the block the place holds, or last held
    bool done = false;
  };
  // The place of a helper's block: its count among the helper's blocks.
  Block& HeldFor(size_t block) {
    const size_t ordinal = block / kCycle * (kCycle - 1) + block % kCycle - 1;
    return held_[ordinal % kBlocksHeld];
  }
  void Help();

  const IndexWriteContext& context_;
  const std::vector<IndexItemPropertyContainer*>& rows_;
  const size_t start_;
  const size_t blocks_;
  Block held_[kBlocksHeld];
  std::mutex mutex_;
  std::condition_variable room_;    // the helper waits for a block to be written
  std::condition_variable filled_;  // the writer waits for a block formatted
  size_t writing_ = 0;              // the block the writer is in
  bool stopping_ = false;
  bool failed_ = false;  // the helper gave up
  std::thread helper_;
};

}  // namespace qaaisp::persist
