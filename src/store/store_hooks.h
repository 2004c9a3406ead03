// Routines of upper layers that the index's open and commit call into: the
// folder re-scan, the contacts scan, the notification of waiting clients,
// and the message indexer. Each has a default that does what the store can
// do without it; the owning layer registers its routine at start-up.
#pragma once

#include <string>

struct StoreIndex;
class IndexItem;

namespace qaaisp {

// Scan modes of StoreIndex_Scan_Ex.
inline constexpr int QA_STOREINDEX_REINDEX = 1;
inline constexpr int QA_STOREINDEX_CHECKDIRTY = 99;

// Re-scans a message folder (or the contacts of a contacts folder) into the
// index, whose mutex the caller holds; the scan mode is the block mode of
// the scan. Gives the scan's result. Default: the folder re-scan for
// folders, nothing (giving 1) for contacts.
using FolderScanRoutine = int (*)(StoreIndex* index, int scan_mode);

// Tells the clients waiting on a mailbox that something changed. The
// mailbox directory is where its activity table lies. Default: nothing.
using NotifyRoutine = void (*)(const std::string& mailbox_directory, const std::string& postoffice,
                               const std::string& mailbox, const char* payload);

// Makes a row from an item file of the index's folder and inserts it. flags
// is the caller's flag text for the file, or null to let the indexer derive
// the status from the file. On success *row holds the inserted row (not
// owned) and the result is positive. Default: the message indexer for
// message classes, and a row with the file's "ID" and "SIZE" only for others.
using InsertFromFileRoutine = int (*)(StoreIndex* index, const std::string& file_name,
                                      const char* flags, IndexItem* row);

// Reads a message file's identifier for the duplicate test. False when it
// has none. Default: the message indexer's reading of "Message-ID".
using MessageIdRoutine = bool (*)(const std::string& path, std::string* message_id);

// The last step on a changed row: brings its item file in line with it.
// Default: nothing.
using RowFileStepRoutine = void (*)(StoreIndex* index, IndexItem* row);

struct StoreHooks {
  FolderScanRoutine scan_folder;
  FolderScanRoutine scan_contacts;
  NotifyRoutine notify;
  InsertFromFileRoutine insert_from_file;
  MessageIdRoutine message_id;
  RowFileStepRoutine row_file_step;
};

// The routines in force. Registering null restores the default.
StoreHooks Hooks();
void SetFolderScanRoutine(FolderScanRoutine routine);
void SetContactScanRoutine(FolderScanRoutine routine);
void SetNotifyRoutine(NotifyRoutine routine);
void SetInsertFromFileRoutine(InsertFromFileRoutine routine);
void SetMessageIdRoutine(MessageIdRoutine routine);
void SetRowFileStepRoutine(RowFileStepRoutine routine);

// The default insert, for indexers that fall back on it.
int InsertRowWithFileSize(StoreIndex* index, const std::string& file_name, const char* flags,
                          IndexItem* row);

}  // namespace qaaisp
