#include "message/parse_ahead.h"

#include <algorithm>
#include <atomic>
#include <system_error>
#include <utility>

#include "message/message_index.h"
#include "message/message_settings.h"
#include "persist/index_text.h"
#include "platform/env.h"

namespace qaaisp {
namespace {

constexpr unsigned kMostHelpers = 3;
std::atomic<int> g_helpers_for_testing{-1};

}  // namespace

void IndexNewMessageFile(const std::string& folder, const std::string& name, uint32_t stamp,
                         IndexedMessage* out) {
  MessageHeaderInfo& info = out->info;
  info.Reset();
  info.FolderStamp = stamp;
  SetBounded(&info.FileName, name, kFileNameFieldSize);
  out->read_size = 0;
  out->indexed = IndexMessage(persist::JoinPath(folder, name), &info, /*clear_flags=*/false,
                              UidBrandingSetting(), kAttachmentsVerified, /*ignore_read=*/false,
                              &out->read_size) != 0;
}

ParseAhead::ParseAhead(const std::string& folder,
                       const std::vector<const platform::DirEntry*>& listing,
                       std::vector<size_t> positions, uint32_t stamp, unsigned helpers)
    : folder_(folder),
      listing_(listing),
      positions_(std::move(positions)),
      stamp_(stamp),
      slots_(std::make_unique<SlotState[]>(kWindow)) {
  if (positions_.size() < kLeastFiles) return;
  try {
    for (unsigned i = 0; i < helpers; ++i) helpers_.emplace_back([this] { Help(); });
  } catch (const std::system_error&) {
    // No more threads to be had: those started carry on, and the scan
    // reads the rest itself.
  }
}

ParseAhead::~ParseAhead() {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    stopping_ = true;
  }
  work_.notify_all();
  for (std::thread& helper : helpers_) helper.join();
}

// Gives up the slot of current_ and moves on. A slot a helper is still
// filling is waited for, so that no two threads ever fill one slot.
void ParseAhead::Release(std::unique_lock<std::mutex>& lock) {
  const size_t k = current_;
  if (next_claim_ == k) {
    ++next_claim_;  // untouched: passed over without a read
  } else if (!held_) {
    finished_.wait(lock, [&] { return slots_[k % kWindow].done; });
  }
  slots_[k % kWindow].done = false;
  held_ = false;
  ++current_;
  work_.notify_all();
}

IndexedMessage* ParseAhead::Take(size_t position) {
  std::unique_lock<std::mutex> lock(mutex_);
  if (held_) Release(lock);
  while (current_ < positions_.size() && positions_[current_] < position) Release(lock);
  if (current_ >= positions_.size() || positions_[current_] != position) return nullptr;
  const size_t k = current_;
  held_ = true;
  if (next_claim_ == k) {
    // No helper has reached it: reading it here is quicker than waiting.
    ++next_claim_;
    lock.unlock();
    IndexNewMessageFile(folder_, NameOf(k), stamp_, &Slot(k));
    return &Slot(k);
  }
  // A helper has it: rather than wait, read the files after it meanwhile.
  while (!slots_[k % kWindow].done) {
    if (!ReadOneAhead(lock)) finished_.wait(lock);
  }
  if (slots_[k % kWindow].read_again) {
    lock.unlock();
    IndexNewMessageFile(folder_, NameOf(k), stamp_, &Slot(k));
  }
  return &Slot(k);
}

// Takes up the first file no thread has and reads it into its slot, if
// the window has room; with the lock held on entry and on return.
bool ParseAhead::ReadOneAhead(std::unique_lock<std::mutex>& lock) {
  if (stopping_ || next_claim_ >= positions_.size() || next_claim_ >= current_ + kWindow)
    return false;
  const size_t k = next_claim_++;
  lock.unlock();
  bool failed = false;
  try {
    IndexNewMessageFile(folder_, NameOf(k), stamp_, &Slot(k));
  } catch (...) {
    // Read again when the scan takes it, so that what is thrown reaches
    // the scan's caller rather than ending the process on a helper.
    failed = true;
  }
  lock.lock();
  slots_[k % kWindow].done = true;
  slots_[k % kWindow].read_again = failed;
  finished_.notify_one();
  return true;
}

void ParseAhead::Help() {
  const platform::HeldDirectory held(folder_);
  std::unique_lock<std::mutex> lock(mutex_);
  for (;;) {
    // A file may be taken up while its slot is free: the window ends one
    // short of the slot the scan holds.
    work_.wait(lock, [&] {
      return stopping_ || next_claim_ >= positions_.size() || next_claim_ < current_ + kWindow;
    });
    if (!ReadOneAhead(lock)) return;
  }
}

unsigned ParseAhead::HelperCount() {
  const int forced = g_helpers_for_testing.load(std::memory_order_relaxed);
  if (forced >= 0) return static_cast<unsigned>(forced);
  if (!platform::Env::Default()->TakesConcurrentCalls()) return 0;
  const unsigned processors = std::thread::hardware_concurrency();
  return std::min(processors > 1 ? processors - 1 : 0, kMostHelpers);
}

void ParseAhead::SetHelperCountForTesting(int helpers) {
  g_helpers_for_testing.store(helpers, std::memory_order_relaxed);
}

}  // namespace qaaisp
