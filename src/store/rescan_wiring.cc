#include "store/rescan_wiring.h"

#include "message/folder_rescan.h"
#include "platform/env.h"
#include "store/folder_status_file.h"

namespace qaaisp {
namespace {

void WriteStatusOfFolder(const std::string& folder, const FolderDetails& details) {
  WriteFolderStatusFile(platform::Env::Default(), FolderStatusPathIn(folder), details);
}

}  // namespace

void WireFolderRescan() {
  RegisterMessageRescan();
  SetFolderStatusWriter(&WriteStatusOfFolder);
}

}  // namespace qaaisp
