// Folder re-scan export.
#include "exports/caller_names.h"
#include "message/folder_rescan.h"
#include "qaaisp/qaaisp.h"
#include "store/rescan_wiring.h"

extern "C" {

int ScanFolders(const char* folderPath) {
  if (!qaaisp::IsContainedPath(folderPath)) return 0;
  try {
    qaaisp::WireFolderRescan();
    return qaaisp::ScanFolders(folderPath) ? 1 : 0;
  } catch (...) {
    return 0;
  }
}

}  // extern "C"
