// The read-only side of qastore in process: finding folders, auditing one
// against its files, decoding the binary side files and reading settings.
// Real files under a fake clock, so no wait of the library takes time.
#include <gtest/gtest.h>

#include <map>
#include <string>

#include "base/library_settings.h"
#include "message/message_settings.h"
#include "persist/persist_settings.h"
#include "platform/env.h"
#include "qaaisp/qaaisp.h"
#include "qastore/folder_audit.h"
#include "qastore/folder_rescan.h"
#include "qastore/settings_catalogue.h"
#include "qastore/store_dump.h"
#include "qastore/store_walk.h"
#include "storegen/message_generator.h"
#include "test_env.h"

namespace qaaisp::qastore {
namespace {

using testing::Exists;
using testing::FakeClockEnv;
using testing::MakeDirs;
using testing::ProductRegText;
using testing::ScopedDefaultEnv;
using testing::ScopedRegistry;
using testing::TempDir;
using testing::WriteFile;

class AuditTest : public ::testing::Test {
 protected:
  AuditTest()
      : registry_(ProductRegText({"\"Offset Index\"=dword:00000001",
                                  "\"Use XML Stream Index Deserialisation\"=dword:00000001",
                                  "\"Use XML Stream Index Serialisation\"=dword:00000001",
                                  "\"Backup Index Interval\"=dword:00000172"})),
        scoped_env_(&env_) {
    persist::ResetPersistSettingsForTesting();
    ResetMessageSettingsForTesting();
    saved_ = ModuleSettings();
    ModuleSettings().mail_root = root_.path();
  }
  ~AuditTest() override {
    ModuleSettings() = saved_;
    persist::ResetPersistSettingsForTesting();
    ResetMessageSettingsForTesting();
  }

  // A folder of generated messages, indexed by the library's re-scan.
  FolderRef IndexedFolder(const std::string& folder, int messages) {
    FolderRef ref{"po", "box", folder, root_.Sub("po/MAILROOT/box/" + folder), 0};
    MakeDirs(ref.path);
    storegen::MessageGenerator generator(3);
    for (int i = 0; i < messages; ++i) {
      WriteFile(ref.path + "/M" + std::to_string(1000 + i) + ".MAI", generator.Next().text);
    }
    EXPECT_TRUE(RepairFolder(ref, RepairKind::kRescan).ok);
    return ref;
  }

  FolderAudit Audit(const FolderRef& folder, bool flags = false) {
    FolderAudit audit;
    std::string error;
    AuditOptions options;
    options.check_flags = flags;
    EXPECT_TRUE(AuditFolder(&env_, folder, options, &audit, &error)) << error;
    return audit;
  }

  TempDir root_;
  ScopedRegistry registry_;
  FakeClockEnv env_;
  ScopedDefaultEnv scoped_env_;
  LibrarySettings saved_;
};

TEST_F(AuditTest, FindsFoldersByAnyCaseBelowEveryMailbox) {
  for (const char* dir :
       {"po/MAILROOT/box/INBOX", "po/MAILROOT/box/Archive/2023", "po/MAILROOT/box/_hidden",
        "po/MAILROOT/box/.stamp", "po/MAILROOT/other/Calendar", "po2/mailroot/x/Inbox"}) {
    MakeDirs(root_.Sub(dir));
  }
  std::vector<FolderRef> folders;
  std::string error;
  ASSERT_TRUE(FindFolders(&env_, Place{"PO", "", "INBOX", false}, &folders, &error)) << error;
  std::vector<std::string> labels;
  for (const FolderRef& f : folders)
    labels.push_back(f.Label() + ":" + std::to_string(f.item_class));
  EXPECT_EQ(labels, (std::vector<std::string>{"po/box/Archive:0", "po/box/Archive/2023:0",
                                              "po/box/INBOX:0", "po/other/Calendar:2"}));

  ASSERT_TRUE(FindFolders(&env_, Place{}, &folders, &error));
  EXPECT_EQ(folders.size(), 5u) << "the whole root, the lower-case MAILROOT included";
  EXPECT_FALSE(FindFolders(&env_, Place{"po", "nobody", "INBOX", false}, &folders, &error));
  EXPECT_NE(error.find("nobody"), std::string::npos);
  EXPECT_FALSE(FindFolders(&env_, Place{"po", "box", "Missing", true}, &folders, &error));
}

TEST_F(AuditTest, ReportsEachWayAFolderDriftsFromItsIndex) {
  const FolderRef folder = IndexedFolder("INBOX", 6);
  FolderAudit clean = Audit(folder, /*flags=*/true);
  EXPECT_FALSE(clean.HasFindings());
  EXPECT_EQ(clean.rows, 6u);
  EXPECT_TRUE(clean.flags_at_risk.empty()) << "rows made from files lose nothing";

  // A file changed in place, a new file, one too long to index, one gone,
  // and a status file that counts differently.
  WriteFile(folder.path + "/M1000.MAI", "Subject: rewritten\r\n\r\nshorter\r\n");
  WriteFile(folder.path + "/NEW.MAI", "Subject: new\r\n\r\nbody\r\n");
  WriteFile(folder.path + "/" + std::string(64, 'L') + ".MAI", "Subject: long\r\n\r\n");
  ASSERT_TRUE(env_.RemoveFile(folder.path + "/M1001.MAI"));
  WriteFile(folder.path + "/_FOLDER.DAT", std::string(52, '\0'));
  const FolderAudit drift = Audit(folder);
  EXPECT_TRUE(drift.HasFindings());
  EXPECT_EQ(drift.changed_files, std::vector<std::string>{"M1000.MAI"});
  EXPECT_EQ(drift.files_without_rows, std::vector<std::string>{"NEW.MAI"});
  EXPECT_EQ(drift.rows_without_files, std::vector<std::string>{"M1001.MAI"});
  EXPECT_EQ(drift.unindexable_files.size(), 1u);
  EXPECT_TRUE(drift.status_differs);
  Json findings = Json::array();
  drift.AppendFindings(folder, &findings);
  EXPECT_EQ(findings.size(), 5u);

  // The re-scan cures all but the name no scan takes.
  ASSERT_TRUE(RepairFolder(folder, RepairKind::kRescan).ok);
  const FolderAudit repaired = Audit(folder);
  EXPECT_TRUE(repaired.changed_files.empty());
  EXPECT_TRUE(repaired.files_without_rows.empty());
  EXPECT_TRUE(repaired.rows_without_files.empty());
  EXPECT_FALSE(repaired.status_differs);
  EXPECT_EQ(repaired.unindexable_files.size(), 1u);
}

TEST_F(AuditTest, AMalformedOrMissingIndexIsAFinding) {
  const FolderRef folder = IndexedFolder("Projects", 2);
  WriteFile(folder.path + "/_index.xml", "<BASEELEMENT LASTUID=\"x00000002\"><ELEMENT ID=");
  FolderAudit broken = Audit(folder);
  EXPECT_FALSE(broken.index_fault.empty());
  EXPECT_TRUE(broken.HasFindings());
  ASSERT_TRUE(env_.RemoveFile(folder.path + "/_index.xml"));
  FolderAudit missing = Audit(folder);
  EXPECT_FALSE(missing.index_present);
  EXPECT_TRUE(missing.HasFindings());
  Json findings = Json::array();
  missing.AppendFindings(folder, &findings);
  ASSERT_EQ(findings.size(), 1u) << "one finding, not one per file";
  EXPECT_EQ(findings[0]["finding"], "missing index");
  EXPECT_FALSE(Exists(folder.path + "/_index.xml")) << "an audit writes nothing";
}

TEST_F(AuditTest, FlagsOnlyTheIndexKeepsAreAtRisk) {
  const FolderRef folder = IndexedFolder("INBOX", 1);
  // The file records a read message; the index adds a flag of its own.
  WriteFile(folder.path + "/M1000.MAI", "X-Read: 1\r\nSubject: s\r\n\r\nbody\r\n");
  EXPECT_NE(FlagsFromFile(folder.path, "M1000.MAI").find("\\SEEN"), std::string::npos);
  ASSERT_TRUE(RepairFolder(folder, RepairKind::kRebuildFromFiles).ok);
  ASSERT_EQ(Direct_StoreIndex_UpdateItem("po", "box", "INBOX", "M1000.MAI", "+$Work +\\Flagged"),
            1);
  const FolderAudit audit = Audit(folder, /*flags=*/true);
  ASSERT_EQ(audit.flags_at_risk.size(), 1u);
  EXPECT_EQ(audit.flags_at_risk[0].flags, (std::vector<std::string>{"$Work", "\\Flagged"}));
  EXPECT_FALSE(audit.HasFindings()) << "a risk, not a difference";
}

TEST_F(AuditTest, DumpsDecodeTheBinarySideFiles) {
  std::string record(52, '\0');
  record[6 * 4] = 7;                             // total
  record[7 * 4] = 3;                             // seen
  record[11 * 4 + 3] = static_cast<char>(0x80);  // last UID above 2^31
  std::string error;
  const Json details = FolderDetailsRecord(record, &error);
  EXPECT_EQ(details["total"], 7);
  EXPECT_EQ(details["seen"], 3);
  EXPECT_EQ(details["last_uid"], 0x80000000u);
  EXPECT_TRUE(FolderDetailsRecord(record + "x", &error).is_null());

  // The offset table the writer keeps with "Offset Index" on.
  const FolderRef folder = IndexedFolder("INBOX", 3);
  std::string table;
  ASSERT_TRUE(platform::ReadWholeFile(&env_, folder.path + "/_index.bin", &table));
  Json header;
  Json rows = Json::array();
  ASSERT_TRUE(OffsetTableRecords(table + "xyz", &header, &rows, &error)) << error;
  EXPECT_EQ(header["version"], 1);
  EXPECT_EQ(header["trailing_bytes"], 3);
  ASSERT_EQ(rows.size(), 3u);
  EXPECT_EQ(rows[2]["uid"], 3);
  EXPECT_GT(rows[2]["offset"].get<uint32_t>(), rows[1]["offset"].get<uint32_t>());
  EXPECT_FALSE(OffsetTableRecords("short", &header, &rows, &error));

  Result overview;
  ASSERT_TRUE(DumpPath(&env_, folder.path, &overview, &error)) << error;
  EXPECT_EQ(overview.summary.rfind("3 message files", 0), 0u);
  bool index_seen = false;
  for (const Json& f : overview.records) {
    if (f["file"] == "_index.xml") index_seen = f["summary"] == "3 rows, last UID 3";
  }
  EXPECT_TRUE(index_seen) << overview.records.dump();
  Result unknown;
  WriteFile(folder.path + "/notes.txt", "x");
  EXPECT_FALSE(DumpPath(&env_, folder.path + "/notes.txt", &unknown, &error));
}

TEST_F(AuditTest, SettingsInForceComeFromTheFileOrTheirDefaults) {
  std::map<std::string, EffectiveSetting> seen;
  for (const SettingEntry& entry : SettingCatalogue()) seen[entry.name] = ReadEffective(entry);
  EXPECT_EQ(seen["Offset Index"].value, "1");
  EXPECT_TRUE(seen["Offset Index"].differs);
  EXPECT_EQ(seen["Backup Index Interval"].value, "370");
  EXPECT_TRUE(seen["Backup Index Interval"].from_file);
  EXPECT_FALSE(seen["Backup Index Interval"].differs) << "set to its default";
  EXPECT_EQ(seen["Maximum Index Rows"].value, "1000000");
  EXPECT_FALSE(seen["Maximum Index Rows"].from_file);
  EXPECT_EQ(ShortKey("SOFTWARE\\Wow6432Node\\Quill Arbor\\Quill Arbor\\Providers"), "Providers");
}

}  // namespace
}  // namespace qaaisp::qastore
