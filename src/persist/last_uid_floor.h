// Where a folder's LastUID can be read without loading its index: the
// header of the index file and the folder's status record. A save or a
// rebuild never goes below what these show, so that a UID handed out once
// is never handed out again, whoever wrote last and whatever was lost.
#pragma once

#include <cstdint>
#include <string>

namespace qaaisp::persist {

// LastUID in the header of the folder's index file; 0 when the file is
// missing or its header cannot be read.
uint32_t LastUidInIndexFile(const std::string& folder, int item_class);

// LastUID in the folder's status record (_FOLDER.DAT); 0 when absent.
uint32_t LastUidInFolderStatus(const std::string& folder);

// The highest of the two: what a rebuild after a lost or damaged index must
// count on from.
uint32_t RecoveryLastUidFloor(const std::string& folder, int item_class);

// Raises *last_uid to the floor; true if it was lower.
bool RaiseToFloor(uint32_t* last_uid, uint32_t floor);

}  // namespace qaaisp::persist
