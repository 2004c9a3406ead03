// The block file of a StoreIndex's folder, "_index.blk", taken and dropped
// with a kept handle in the index's block handle field.
#pragma once

struct StoreIndex;

namespace qaaisp {

// Waits for the folder's block file; true if it is now held.
bool BlockIndexFile(StoreIndex* index);
// Closes the kept handle and deletes the block file.
void UnBlockIndexFile(StoreIndex* index);

}  // namespace qaaisp
