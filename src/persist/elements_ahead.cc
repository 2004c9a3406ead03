#include "persist/elements_ahead.h"

#include <algorithm>
#include <system_error>

namespace qaaisp::persist {

ElementsAhead::ElementsAhead(const IndexWriteContext& context,
                             const std::vector<IndexItemPropertyContainer*>& rows, size_t start)
    : context_(context),
      rows_(rows),
      start_(start),
      blocks_((rows.size() - std::min(start, rows.size()) + kBlockRows - 1) / kBlockRows) {
  try {
    helper_ = std::thread([this] { Help(); });
  } catch (const std::system_error&) {
    // No thread to be had: the writer formats every block.
    stopping_ = true;
  }
}

ElementsAhead::~ElementsAhead() {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    stopping_ = true;
  }
  room_.notify_all();
  if (helper_.joinable()) helper_.join();
}

bool ElementsAhead::Worthwhile(size_t rows, size_t start) {
  return rows >= start + kLeastRows && std::thread::hardware_concurrency() > 1;
}

std::string_view ElementsAhead::Take(size_t i) {
  const size_t offset = i - start_;
  const size_t block = offset / kBlockRows;
  std::unique_lock<std::mutex> lock(mutex_);
  if (block != writing_) {
    // Blocks left behind are written: the helper's give up their places.
    for (size_t passed = writing_; passed < block; ++passed) {
      Block& left = HeldFor(passed);
      if (HelpersBlock(passed) && left.block == passed) left.done = false;
    }
    writing_ = block;
    room_.notify_one();
  }
  if (!HelpersBlock(block) || !helper_.joinable()) return {};
  Block& held = HeldFor(block);
  filled_.wait(lock, [&] { return failed_ || (held.done && held.block == block); });
  if (!held.done || held.block != block) return {};
  const size_t row = offset % kBlockRows;
  const size_t begin = row == 0 ? 0 : held.ends[row - 1];
  return std::string_view(held.text).substr(begin, held.ends[row] - begin);
}

void ElementsAhead::Help() {
  std::string element;
  RowElementFacts facts;
  for (size_t block = 1; block < blocks_; ++block) {
    if (!HelpersBlock(block)) continue;
    Block* held = nullptr;
    {
      std::unique_lock<std::mutex> lock(mutex_);
      room_.wait(lock, [&] { return stopping_ || !HeldFor(block).done; });
      if (stopping_) return;
      if (block < writing_) continue;  // the writer went past it already
      held = &HeldFor(block);
      held->block = block;
    }
    // The place is the helper's alone until it is marked done.
    held->text.clear();
    held->ends.clear();
    const size_t first = start_ + block * kBlockRows;
    const size_t last = std::min(first + kBlockRows, rows_.size());
    try {
      for (size_t i = first; i < last; ++i) {
        FormatRowElement(context_, *rows_[i], &element, &facts);
        held->text.append(element);
        held->ends.push_back(static_cast<uint32_t>(held->text.size()));
      }
    } catch (...) {
      // Out of memory, most likely: the writer formats the rest itself,
      // where a failure reaches the save's caller.
      std::lock_guard<std::mutex> lock(mutex_);
      failed_ = true;
      filled_.notify_one();
      return;
    }
    {
      std::lock_guard<std::mutex> lock(mutex_);
      held->done = block >= writing_;
    }
    filled_.notify_one();
  }
}

}  // namespace qaaisp::persist
