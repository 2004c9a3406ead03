// A sample store on disk: one postoffice under a mail root, its mailboxes,
// their folders, and generated message files in them, with no index yet (as
// after a migration, or a loss of every index), so that the first thing to
// run over it is a rebuild.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/env.h"

namespace qaaisp::storegen {

struct StorePlan {
  std::string root;  // the mail root; made if missing
  std::string postoffice = "example.com";
  std::vector<std::string> mailboxes = {"anna", "ben", "chen"};
  uint32_t messages = 3000;  // over all mailboxes
  uint32_t seed = 1;
  // Unix time that the messages' dates lead up to.
  int64_t latest_date = 1700000000;
};

struct GeneratedFolder {
  std::string mailbox;
  std::string folder;  // below the mailbox, "/" separated
  std::string path;
  uint32_t messages = 0;
};

struct StoreReport {
  std::vector<GeneratedFolder> folders;
  uint32_t messages = 0;
  uint64_t bytes = 0;
  uint32_t with_attachments = 0;
  uint32_t invitations = 0;
};

// The folders every generated mailbox has, with the share of its messages
// that each receives.
struct FolderShare {
  const char* name;
  uint32_t percent;
};
extern const FolderShare kFolderShares[5];

// A message file name as delivery agents make them: eight hex digits and
// ".MAI", unique within the store for one seed.
std::string MessageFileName(uint32_t seed, uint32_t serial);

// Writes the store. Message files that are already there are overwritten,
// so a second run with the same plan gives the same bytes. False with
// *error set when a directory or file cannot be written.
bool GenerateStore(platform::Env* env, const StorePlan& plan, StoreReport* report,
                   std::string* error);

// Makes a directory and any missing parents.
bool MakeDirectories(platform::Env* env, const std::string& path);

// Writes a whole file (created or truncated).
bool WriteFileBytes(platform::Env* env, const std::string& path, std::string_view bytes);

}  // namespace qaaisp::storegen
