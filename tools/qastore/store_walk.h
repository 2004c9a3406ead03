// The folders a command works on: one folder, every folder of a mailbox,
// of a postoffice, or of the whole mail root, found by walking the
// directories below each mailbox.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/env.h"
#include "qastore/tool_context.h"

namespace qaaisp::qastore {

struct FolderRef {
  std::string postoffice;
  std::string mailbox;
  std::string folder;  // below the mailbox, "/" separated
  std::string path;    // the directory
  int32_t item_class = 0;

  // "postoffice/mailbox/folder", for messages and progress.
  std::string Label() const;
};

struct MailboxRef {
  std::string postoffice;
  std::string mailbox;
  std::string path;
};

// The mailboxes in scope: the one named, every one of the named postoffice,
// or every one under the mail root. Names come out as the directories spell
// them. False (with *error) when a named postoffice or mailbox is missing.
bool FindMailboxes(platform::Env* env, const Place& place, std::vector<MailboxRef>* out,
                   std::string* error);

// The folders in scope, in name order: the named folder alone when one was
// given (it must exist), otherwise every folder of the mailboxes in scope.
// Directories whose names begin with "_" or "." are not folders.
bool FindFolders(platform::Env* env, const Place& place, std::vector<FolderRef>* out,
                 std::string* error);

}  // namespace qaaisp::qastore
