// A process that works on a folder through the direct index exports, driven
// by the cross-process tests. The mail root comes from QAAISP_REGISTRY.
//
//   deliver <po> <mailbox> <folder> <prefix> <count>
//       indexes <prefix><i>.MAI for i = 1..count; exits 0 if every call gave 1
//   flag <po> <mailbox> <folder> <id> <count>
//       sets and clears "\Seen" on a row, count updates in all; exits 0 if
//       every call gave 1
//   list <po> <mailbox> <folder>
//       prints "row <id> <uid> <flags>" per row in UID order, then "lastuid <n>"
#include <cstdio>
#include <cstdlib>
#include <string>

#include "index/store_index.h"
#include "index/store_paths.h"
#include "persist/index_serialiser.h"
#include "qaaisp/qaaisp.h"

namespace {

int Deliver(const char* po, const char* mailbox, const char* folder, const std::string& prefix,
            int count) {
  int failures = 0;
  for (int i = 1; i <= count; ++i) {
    std::string name = prefix + std::to_string(i) + ".MAI";
    if (Direct_StoreIndex_InsertItem(po, mailbox, folder, name.c_str()) != 1) ++failures;
  }
  return failures == 0 ? 0 : 1;
}

int Flag(const char* po, const char* mailbox, const char* folder, const char* id, int count) {
  int failures = 0;
  for (int i = 0; i < count; ++i) {
    const char* update = i % 2 == 0 ? "+\\Seen" : "-\\Seen";
    if (Direct_StoreIndex_UpdateItem(po, mailbox, folder, id, update) != 1) ++failures;
  }
  return failures == 0 ? 0 : 1;
}

int List(const char* po, const char* mailbox, const char* folder) {
  StoreIndex index;
  qaaisp::SetStoreIndexNames(&index, po, mailbox, folder, 0);
  qaaisp::SetStoreIndexPaths(&index);
  if (!qaaisp::LoadIndexForClass(&index.table, &index, index.folder_path.str(), 0, po, mailbox,
                                 false, false, qaaisp::LoadFull, 0, false, false, true, false)) {
    return 1;
  }
  for (const auto& [uid, row] : index.table.by_uid()) {
    std::printf("row %s %u %s\n", row->GetText("ID").c_str(), uid,
                row->GetText("FLAGSTATUS").c_str());
  }
  std::printf("lastuid %u\n", index.table.LastUID);
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  // As a service starts the library: the settings, the mail root among them.
  if (StoreLibrary_Init() != 1) return 3;
  std::string command = argc > 1 ? argv[1] : "";
  if (command == "deliver" && argc == 7) {
    return Deliver(argv[2], argv[3], argv[4], argv[5], std::atoi(argv[6]));
  }
  if (command == "flag" && argc == 7)
    return Flag(argv[2], argv[3], argv[4], argv[5], std::atoi(argv[6]));
  if (command == "list" && argc == 5) return List(argv[2], argv[3], argv[4]);
  std::fprintf(stderr, "usage: deliver|flag|list ...\n");
  return 2;
}
