// Store paths: how a postoffice, a mailbox and a folder name become a
// directory under the mail root, and what kind of items a folder or a file
// holds. Paths come out native, cut at 1023 bytes as the store's 1024-byte
// fields cut them, with each existing component matched without regard to
// case.
//
// Folder name forms, compared without regard to case:
//   "$VCFROOT"[/path]   the postoffice's contacts root
//   "$FILEROOT"[/path]  the mailbox's file share
//   [x]"Public"[/path]  the public folders (x: any one character, as "$")
//   ""                  the mailbox's INBOX
//   anything else       a path below the mailbox
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

class IndexItem;
struct StoreIndex;

namespace qaaisp {

// Item classes of folders and items.
inline constexpr int32_t kClassMessage = 0;
inline constexpr int32_t kClassContact = 1;
inline constexpr int32_t kClassAppointment = 2;
inline constexpr int32_t kClassTask = 3;
inline constexpr int32_t kClassFile = 4;
inline constexpr int32_t kClassRemoteCalendar = 5;
inline constexpr int32_t kClassGroup = 54;
inline constexpr int32_t kClassContactsAndGroups = 55;

// Longest path a store field holds.
inline constexpr size_t kMaxPathLength = 1023;

// The options layer answers for postoffice options ("PostofficeRoot") and
// folder options ("container-class") once it registers its readers; until
// then every option is unset. A reader gives true with a value.
inline constexpr int kOptionScopePostoffice = 1;
inline constexpr int kOptionScopeMailbox = 2;
using ProviderOptionReader = bool (*)(int scope, const std::string& key, const char* name,
                                      std::string* value);
using FolderOptionReader = bool (*)(const std::string& postoffice, const std::string& mailbox,
                                    const std::string& folder, const char* name,
                                    std::string* value);
void SetProviderOptionReader(ProviderOptionReader reader);
void SetFolderOptionReader(FolderOptionReader reader);

// "Public Folders Enabled", read at each use (default on).
bool PublicFoldersEnabled();

// "Public" at the first or second character, followed by the end, "/" or "\".
bool IsPublicForm(std::string_view folder);
// "$FILEROOT" at the first or second character, followed by the end, "/" or "\".
bool IsFileRootForm(std::string_view folder);

// The folder directory of an index: the rules StoreIndex_SetPaths applies to
// its names under mail_root. The "$VCFROOT", "$FILEROOT" and "Public"
// directories are made when missing (one level each); mailbox folders are
// not. Custom postoffice roots play no part here.
std::string BuildIndexFolderPath(const std::string& mail_root, const std::string& postoffice,
                                 const std::string& mailbox, const std::string& folder);

// The postoffice's root: its "PostofficeRoot" option when "Allow Custom
// Postoffice Paths" is 1 and the option is set, else the mail root and the
// postoffice.
std::string PostofficeRoot(const std::string& postoffice);

// A folder's directory below the postoffice root; a null folder gives the
// mailbox's directory.
std::string FolderPath(const std::string& postoffice, const std::string& mailbox,
                       const char* folder);

// The item class of a folder: by its name, then by its "container-class"
// option. Null names are allowed.
int32_t FolderClass(const char* postoffice, const char* mailbox, const char* folder);

// The item class of a file by its extension. ".CAL" alone is tested with its
// case as written, so "x.cal" is a message.
int32_t ClassByFileName(std::string_view file_name);

// Fills the folder path of an index from its names, once: a path already
// set is kept even if the names changed since. 0 (with a warning on standard
// output) for a null index, else 1.
int SetStoreIndexPaths(StoreIndex* index);

// Sets an item's class from a file's extension.
void SetItemClassFromFileName(IndexItem* item, std::string_view file_name);

// True if two folder names are the same folder: leading separators are
// ignored, "/" and "\" are one, case does not matter. A null name matches
// anything.
bool SameFolder(const char* a, const char* b);

}  // namespace qaaisp
