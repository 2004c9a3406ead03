// Joins the folder re-scan of the message layer to the store: the scan
// writes the folder's status file through the store's writer, and a
// rebuild of a message folder's index runs the scan. Every entry of the
// store that can lead to a scan or a rebuild calls this first.
#pragma once

namespace qaaisp {

// Cheap and safe to call from any thread, any number of times.
void WireFolderRescan();

}  // namespace qaaisp
