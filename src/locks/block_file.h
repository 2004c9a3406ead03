// Index block files: the lock between processes on a folder's index. The
// lock is the existence of a file made with create-new; a holder may keep it
// open exclusively, so that nobody else can delete it while it lives.
//
// A kept handle is an opaque pointer, 0 for none, as it crosses the C
// boundary. Every successful wait is paired by its caller with one unblock,
// with close_handle equal to the keep_handle of the wait.
#pragma once

#include <string>

#include "base/report.h"

namespace qaaisp {

using BlockHandle = void*;

// Takes the block file at path, polling once a second while someone else
// has it. After 61 polls the file is deleted by force (waiting for a holder
// that keeps it open) and taken. With "Index Unblock Mode" on, an existing
// "_index.blk" is deleted at the first retry of a caller that keeps a handle.
// A path that cannot exist fails at once. Gives 1 with the lock held (with
// keep_handle 1, *handle is the open file; otherwise 0) and 0 without it;
// *handle is written only on success. diagnostic_level stands in for the
// library's level, which tests raise to reach the detail branches.
int WaitForAccessToIndexFileEx(const std::string& path, int keep_handle, BlockHandle* handle,
                               int diagnostic_level = kDiagnosticLevel);

// Drops the block file: closes *handle when close_handle is 1, then deletes
// the file, retrying once a second for up to 81 attempts while the delete
// fails for a reason other than a missing file. Gives 1 if the file was
// deleted, 0 otherwise (a file that was already gone counts as failure).
int UnBlockIndexFileAccessEx(const std::string& path, int close_handle, BlockHandle* handle);

// Waits for the block file and leaves it in place with no handle.
int WaitForIndexFileReleased(const std::string& path);
// Deletes a block file held without a handle.
int RemoveBlockFile(const std::string& path);

// A block file that a wait deletes by force had a holder that never let go,
// perhaps a process that died half-way through a write. The layer that can
// mark a folder as changed registers a routine that is given the path of
// every such file; null registers none.
using BrokenBlockRoutine = void (*)(const std::string& block_path);
void SetBrokenBlockRoutine(BrokenBlockRoutine routine);
// Whether the calling thread's last wait took its block file by deleting
// somebody else's.
bool LastWaitBrokeBlock();

// "Index Unblock Mode", read at the first wait that needs it and kept.
uint32_t IndexUnblockMode();
// Forgets the kept value (tests).
void ResetIndexUnblockModeForTesting();

}  // namespace qaaisp
