#include "storegen/store_generator.h"

#include <cstdio>

#include "platform/win32_error.h"
#include "storegen/message_generator.h"

namespace qaaisp::storegen {

const FolderShare kFolderShares[5] = {
    {"INBOX", 50}, {"Sent Items", 15}, {"Archive/2023", 15}, {"Projects", 10}, {"Newsletters", 10},
};

std::string MessageFileName(uint32_t seed, uint32_t serial) {
  // A multiplicative hash spreads the serials, as time-based names spread;
  // the mix is a bijection, so no two serials share a name.
  uint32_t x = serial * 2654435761u ^ seed * 40503u;
  char name[16];
  std::snprintf(name, sizeof name, "%08X.MAI", x);
  return name;
}

bool MakeDirectories(platform::Env* env, const std::string& path) {
  if (path.empty() || platform::DirectoryExists(env, path)) return true;
  const size_t slash = path.find_last_of('/');
  if (slash != std::string::npos && slash > 0 && !MakeDirectories(env, path.substr(0, slash))) {
    return false;
  }
  return env->MakeDirectory(path) || platform::DirectoryExists(env, path);
}

bool WriteFileBytes(platform::Env* env, const std::string& path, std::string_view bytes) {
  platform::OpenOptions options;
  options.write = true;
  options.disposition = platform::OpenDisposition::kCreateAlways;
  std::unique_ptr<platform::File> file = env->OpenFile(path, options);
  return file && file->WriteAt(0, bytes.data(), bytes.size());
}

bool GenerateStore(platform::Env* env, const StorePlan& plan, StoreReport* report,
                   std::string* error) {
  *report = StoreReport{};
  if (plan.mailboxes.empty()) {
    *error = "no mailboxes to generate";
    return false;
  }
  // The first mailbox gets the most mail, as the busiest user of a
  // postoffice does: shares of 3, 2, 1, 1, ... parts.
  std::vector<uint32_t> parts;
  uint32_t total_parts = 0;
  for (size_t i = 0; i < plan.mailboxes.size(); ++i) {
    parts.push_back(i == 0 ? 3 : i == 1 ? 2 : 1);
    total_parts += parts.back();
  }
  MessageGenerator generator(plan.seed);
  generator.set_latest_date(plan.latest_date);
  const std::string postoffice = plan.root + "/" + plan.postoffice;
  uint32_t serial = 0;
  uint32_t left = plan.messages;
  for (size_t b = 0; b < plan.mailboxes.size(); ++b) {
    const uint32_t box_messages =
        b + 1 == plan.mailboxes.size()
            ? left
            : static_cast<uint32_t>(uint64_t{plan.messages} * parts[b] / total_parts);
    left -= box_messages;
    uint32_t box_left = box_messages;
    for (size_t f = 0; f < sizeof kFolderShares / sizeof kFolderShares[0]; ++f) {
      GeneratedFolder folder;
      folder.mailbox = plan.mailboxes[b];
      folder.folder = kFolderShares[f].name;
      folder.path = postoffice + "/MAILROOT/" + folder.mailbox + "/" + folder.folder;
      folder.messages = f + 1 == sizeof kFolderShares / sizeof kFolderShares[0]
                            ? box_left
                            : box_messages * kFolderShares[f].percent / 100;
      box_left -= folder.messages;
      if (!MakeDirectories(env, folder.path)) {
        *error =
            "cannot make " + folder.path + " (error " + std::to_string(platform::LastError()) + ")";
        return false;
      }
      for (uint32_t i = 0; i < folder.messages; ++i) {
        GeneratedMessage message = generator.Next();
        const std::string path = folder.path + "/" + MessageFileName(plan.seed, ++serial);
        if (!WriteFileBytes(env, path, message.text)) {
          *error =
              "cannot write " + path + " (error " + std::to_string(platform::LastError()) + ")";
          return false;
        }
        report->bytes += message.text.size();
        report->with_attachments += message.has_attachment ? 1 : 0;
        report->invitations += message.calendar_method.empty() ? 0 : 1;
      }
      report->messages += folder.messages;
      report->folders.push_back(std::move(folder));
    }
  }
  return true;
}

}  // namespace qaaisp::storegen
