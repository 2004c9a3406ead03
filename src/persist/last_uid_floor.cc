#include "persist/last_uid_floor.h"

#include <algorithm>
#include <cstddef>
#include <memory>
#include <string_view>

#include "base/store_files.h"
#include "persist/index_text.h"
#include "platform/env.h"
#include "qaaisp/qaaisp.h"

namespace qaaisp::persist {
namespace {

// The attribute sits in the first few bytes of either form of the file.
constexpr size_t kHeaderBytes = 64;
constexpr std::string_view kLastUidAttribute = "LASTUID=\"";

}  // namespace

uint32_t LastUidInIndexFile(const std::string& folder, int item_class) {
  platform::OpenOptions options;
  options.share = platform::ShareMode::kShareAny;
  std::unique_ptr<platform::File> file =
      platform::Env::Default()->OpenFile(IndexFilePath(folder, item_class), options);
  if (!file) return 0;
  char bytes[kHeaderBytes];
  const int64_t n = file->ReadAt(0, bytes, sizeof bytes);
  if (n <= 0) return 0;
  const std::string_view head(bytes, static_cast<size_t>(n));
  const size_t at = head.find(kLastUidAttribute);
  if (at == std::string_view::npos) return 0;
  std::string_view value = head.substr(at + kLastUidAttribute.size());
  // A header cut off inside the value says nothing reliable.
  if (value.find('"') == std::string_view::npos) return 0;
  uint32_t last_uid = 0;
  ParseLastUID(&last_uid, value.substr(0, value.find('"')));
  return last_uid;
}

uint32_t LastUidInFolderStatus(const std::string& folder) {
  std::string bytes;
  if (!platform::ReadWholeFile(platform::Env::Default(), JoinPath(folder, files::kFolderDat),
                               &bytes) ||
      bytes.size() != sizeof(FolderDetails)) {
    return 0;
  }
  // Little-endian on disk, whatever the host.
  const size_t at = offsetof(FolderDetails, LastUID);
  uint32_t value = 0;
  for (size_t i = 0; i < 4; ++i) {
    value |= static_cast<uint32_t>(static_cast<unsigned char>(bytes[at + i])) << (8 * i);
  }
  return static_cast<int32_t>(value) < 0 ? 0 : value;
}

uint32_t RecoveryLastUidFloor(const std::string& folder, int item_class) {
  if (folder.empty()) return 0;
  return std::max(LastUidInIndexFile(folder, item_class), LastUidInFolderStatus(folder));
}

bool RaiseToFloor(uint32_t* last_uid, uint32_t floor) {
  if (*last_uid >= floor) return false;
  *last_uid = floor;
  return true;
}

}  // namespace qaaisp::persist
