#include "index/store_paths.h"

#include <gtest/gtest.h>

#include "base/library_settings.h"
#include "base/setting_names.h"
#include "test_env.h"

namespace qaaisp {
namespace {

using testing::Exists;
using testing::MakeDirs;
using testing::RegText;
using testing::ScopedRegistry;
using testing::TempDir;

std::string PublicFoldersRegistry(int enabled) {
  return RegText({{settings::kProductKey,
                   {std::string("\"") + settings::kPublicFoldersEnabled + "\"=dword:0000000" +
                    std::to_string(enabled)}}});
}

// Points the module's mail root at a temporary tree for one test.
class StorePathsTest : public ::testing::Test {
 protected:
  StorePathsTest() : saved_(ModuleSettings()) {
    ModuleSettings().mail_root = root_.path();
    ModuleSettings().allow_custom_paths = 0;
  }
  ~StorePathsTest() override {
    ModuleSettings() = saved_;
    SetProviderOptionReader(nullptr);
    SetFolderOptionReader(nullptr);
  }

  std::string Root(const std::string& rel) const { return root_.Sub(rel); }
  std::string Index(const std::string& folder) const {
    return BuildIndexFolderPath(root_.path(), "PO", "mbox", folder);
  }

  TempDir root_;
  LibrarySettings saved_;
};

TEST_F(StorePathsTest, IndexPathsOfMailboxFolders) {
  EXPECT_EQ(Index(""), Root("PO/MAILROOT/mbox/INBOX"));
  EXPECT_EQ(Index("Sent Items"), Root("PO/MAILROOT/mbox/Sent Items"));
  // Leading separators stay, and "\" becomes native.
  EXPECT_EQ(Index("\\Sales\\2024"), Root("PO/MAILROOT/mbox//Sales/2024"));
  EXPECT_EQ(Index("Publicity"), Root("PO/MAILROOT/mbox/Publicity"));
  EXPECT_EQ(Index("Public Notes"), Root("PO/MAILROOT/mbox/Public Notes"));
  // Mailbox folders are never made here.
  EXPECT_FALSE(Exists(Root("PO")));
}

TEST_F(StorePathsTest, IndexPathsFindExistingDirectoriesInAnyCase) {
  MakeDirs(Root("Po/MailRoot/MBox/Inbox"));
  EXPECT_EQ(Index(""), Root("Po/MailRoot/MBox/Inbox"));
  EXPECT_EQ(Index("INBOX/New"), Root("Po/MailRoot/MBox/Inbox/New"));
}

TEST_F(StorePathsTest, PublicFormsGoToThePublicRootAndAreMade) {
  MakeDirs(Root("PO"));
  EXPECT_EQ(Index("\\Public\\Sales"), Root("PO/PUBROOT/Sales"));
  EXPECT_FALSE(Exists(Root("PO/PUBROOT/Sales")));  // one level only: PUBROOT was missing
  EXPECT_EQ(Index("Public"), Root("PO/PUBROOT"));
  EXPECT_TRUE(Exists(Root("PO/PUBROOT")));
  EXPECT_EQ(Index("\\Public\\Sales"), Root("PO/PUBROOT/Sales"));
  EXPECT_TRUE(Exists(Root("PO/PUBROOT/Sales")));
  EXPECT_EQ(Index("$Public/Sales/East"), Root("PO/PUBROOT/Sales/East"));
  EXPECT_EQ(Index("public"), Root("PO/PUBROOT"));
  // Any one character may stand before the word.
  EXPECT_EQ(Index("xPublic"), Root("PO/PUBROOT"));
  EXPECT_EQ(Index("xyPublic"), Root("PO/MAILROOT/mbox/xyPublic"));
}

TEST_F(StorePathsTest, PublicFormFallsToTheMailboxWhenDisabled) {
  ScopedRegistry registry(PublicFoldersRegistry(0));
  EXPECT_FALSE(PublicFoldersEnabled());
  EXPECT_EQ(Index("\\Public\\Sales"), Root("PO/MAILROOT/mbox//Public/Sales"));
  EXPECT_FALSE(Exists(Root("PO/PUBROOT")));
  registry.Rewrite(PublicFoldersRegistry(1));  // read at each use
  EXPECT_EQ(Index("\\Public\\Sales"), Root("PO/PUBROOT/Sales"));
}

TEST_F(StorePathsTest, FileRootFormsMakeTheMailboxShare) {
  MakeDirs(Root("PO"));
  EXPECT_EQ(Index("$FILEROOT\\"), Root("PO/FILEROOT/mbox"));
  EXPECT_TRUE(Exists(Root("PO/FILEROOT/mbox")));
  EXPECT_EQ(Index("$FILEROOT"), Root("PO/FILEROOT/mbox"));
  EXPECT_EQ(Index("$FILEROOT/"), Root("PO/FILEROOT/mbox"));
  EXPECT_EQ(Index("$fileroot\\Docs\\"), Root("PO/FILEROOT/mbox/Docs"));
  EXPECT_TRUE(Exists(Root("PO/FILEROOT/mbox/Docs")));
  // The sub-path counts from the field's own start: a leading separator
  // shifts it by one, onto the last letter of the word.
  EXPECT_EQ(Index("\\$FILEROOT\\Docs"), Root("PO/FILEROOT/mboxT/Docs"));
}

TEST_F(StorePathsTest, ContactRootFormsAndTheirOffsetQuirk) {
  MakeDirs(Root("PO"));
  EXPECT_EQ(Index("$VCFROOT"), Root("PO/VCFROOT"));
  EXPECT_TRUE(Exists(Root("PO/VCFROOT")));
  EXPECT_EQ(Index("$VCFROOT\\Team"), Root("PO/VCFROOT/Team"));
  EXPECT_TRUE(Exists(Root("PO/VCFROOT/Team")));
  EXPECT_EQ(Index("\\$VCFROOT\\Team"), Root("PO/VCFROOT//Team"));
  EXPECT_EQ(Index("\\\\$VCFROOT\\Team"), Root("PO/VCFROOT/T/Team"));
  EXPECT_FALSE(Exists(Root("PO/VCFROOT/T/Team")));  // one level only
}

TEST_F(StorePathsTest, PostofficeRootHonoursCustomPathsOnlyWhenAllowed) {
  EXPECT_EQ(PostofficeRoot("PO"), Root("PO"));
  SetProviderOptionReader([](int scope, const std::string& key, const char* name,
                             std::string* value) {
    if (scope != kOptionScopePostoffice || key != "PO" || std::string(name) != "PostofficeRoot") {
      return false;
    }
    *value = "\\srv\\custom";
    return true;
  });
  EXPECT_EQ(PostofficeRoot("PO"), Root("PO"));
  ModuleSettings().allow_custom_paths = 1;
  EXPECT_EQ(PostofficeRoot("PO"), "/srv/custom");
  EXPECT_EQ(PostofficeRoot("Other"), Root("Other"));
  EXPECT_EQ(FolderPath("PO", "mbox", "Inbox"), "/srv/custom/MAILROOT/mbox/Inbox");
  // The index path builder never looks at the option.
  EXPECT_EQ(Index("Inbox"), Root("PO/MAILROOT/mbox/Inbox"));
}

TEST_F(StorePathsTest, PostofficeRootReadsTheMailRootWhenItIsEmpty) {
  ModuleSettings().mail_root.clear();
  ScopedRegistry registry(
      RegText({{settings::kProductKey, {"\"Mail Root\"=\"" + root_.path() + "\\\\Other Root\""}}}));
  EXPECT_EQ(PostofficeRoot("PO"), Root("Other Root/PO"));
}

TEST_F(StorePathsTest, FolderPathForms) {
  EXPECT_EQ(FolderPath("PO", "mbox", nullptr), Root("PO/MAILROOT/mbox"));
  EXPECT_EQ(FolderPath("PO", "mbox", ""), Root("PO/MAILROOT/mbox/"));
  EXPECT_EQ(FolderPath("PO", "mbox", "Inbox\\Sub"), Root("PO/MAILROOT/mbox/Inbox/Sub"));
  EXPECT_EQ(FolderPath("PO", "mbox", "Public"), Root("PO/PUBROOT"));
  EXPECT_EQ(FolderPath("PO", "mbox", "\\Public\\Sales"), Root("PO/PUBROOT/Sales"));
  EXPECT_EQ(FolderPath("PO", "mbox", "PUBLIC/Sales"), Root("PO/PUBROOT/Sales"));
  // "$Public" is the public form, but only "Public/" carries a sub-path.
  EXPECT_EQ(FolderPath("PO", "mbox", "$Public\\Sales"), Root("PO/PUBROOT"));
  EXPECT_EQ(FolderPath("PO", "mbox", "$FILEROOT"), Root("PO/FILEROOT/mbox"));
  EXPECT_EQ(FolderPath("PO", "mbox", "$FILEROOT/a/b"), Root("PO/FILEROOT/mbox/a/b"));
  EXPECT_EQ(FolderPath("PO", "mbox", "\\$FILEROOT\\a"), Root("PO/FILEROOT/mbox"));
  // No contacts form here: it is a mailbox folder of that name.
  EXPECT_EQ(FolderPath("PO", "mbox", "$VCFROOT"), Root("PO/MAILROOT/mbox/$VCFROOT"));
  EXPECT_FALSE(Exists(Root("PO")));  // nothing is made

  ScopedRegistry registry(PublicFoldersRegistry(0));
  EXPECT_EQ(FolderPath("PO", "mbox", "Public/Sales"), Root("PO/MAILROOT/mbox/Public/Sales"));
}

TEST_F(StorePathsTest, LongPathsAreCutToTheFieldSize) {
  std::string path = FolderPath("PO", "mbox", std::string(2000, 'f').c_str());
  EXPECT_EQ(path.size(), kMaxPathLength);
  EXPECT_EQ(path.substr(0, root_.path().size()), root_.path());
}

TEST_F(StorePathsTest, FolderClassByNameThenByOption) {
  EXPECT_EQ(FolderClass("PO", "mbox", "calendar"), kClassAppointment);
  EXPECT_EQ(FolderClass("PO", "mbox", "/Tasks"), kClassTask);
  EXPECT_EQ(FolderClass("PO", "mbox", "\\$vcfroot"), kClassContact);
  EXPECT_EQ(FolderClass(nullptr, nullptr, "Contacts"), kClassContact);
  EXPECT_EQ(FolderClass("PO", "mbox", "$FILEROOT"), kClassFile);
  EXPECT_EQ(FolderClass("PO", "mbox", "Calendar/Old"), kClassMessage);
  EXPECT_EQ(FolderClass("PO", "mbox", "Inbox"), kClassMessage);

  SetFolderOptionReader([](const std::string&, const std::string&, const std::string& folder,
                           const char* name, std::string* value) {
    if (std::string(name) != "container-class") return false;
    if (folder == "People") *value = "IPF.Contact";
    if (folder == "Diary") *value = "IPF.Appointment";
    if (folder == "Jobs") *value = "IPF.Task";
    if (folder == "Notes") *value = "IPF.StickyNote";
    return true;
  });
  EXPECT_EQ(FolderClass("PO", "mbox", "People"), kClassContact);
  EXPECT_EQ(FolderClass("PO", "mbox", "Diary"), kClassAppointment);
  EXPECT_EQ(FolderClass("PO", "mbox", "Jobs"), kClassTask);
  EXPECT_EQ(FolderClass("PO", "mbox", "Notes"), kClassMessage);
  EXPECT_EQ(FolderClass("PO", "", "Jobs"), kClassMessage);  // no option without a mailbox
}

TEST(ClassByFileNameTest, ExtensionsWithTheOneCaseSensitiveTest) {
  EXPECT_EQ(ClassByFileName("1.CAL"), kClassAppointment);
  EXPECT_EQ(ClassByFileName("1.Cal"), kClassMessage);
  EXPECT_EQ(ClassByFileName("1.tsk"), kClassTask);
  EXPECT_EQ(ClassByFileName("1.MAI"), kClassMessage);
  EXPECT_EQ(ClassByFileName("1.Vcf"), kClassContact);
  EXPECT_EQ(ClassByFileName("1.grp"), kClassContactsAndGroups);
  EXPECT_EQ(ClassByFileName("VCF"), kClassMessage);
}

TEST(SameFolderTest, SeparatorsAndCaseDoNotMatter) {
  EXPECT_TRUE(SameFolder("/Inbox", "INBOX"));
  EXPECT_TRUE(SameFolder("\\\\a/b", "A\\B"));
  EXPECT_FALSE(SameFolder("a/b/", "a/b"));
  EXPECT_FALSE(SameFolder("Inbox", "Inbox2"));
  EXPECT_TRUE(SameFolder(nullptr, "x"));
  EXPECT_TRUE(SameFolder("x", nullptr));
  EXPECT_TRUE(SameFolder("", "/"));
}

TEST(FolderFormsTest, WordsCountOnlyAtTheStartAndBeforeASeparator) {
  EXPECT_TRUE(IsPublicForm("Public"));
  EXPECT_TRUE(IsPublicForm("/public/x"));
  EXPECT_TRUE(IsPublicForm("$PUBLIC\\x"));
  EXPECT_FALSE(IsPublicForm("Publicity"));
  EXPECT_FALSE(IsPublicForm("//Public"));
  EXPECT_FALSE(IsPublicForm("Publi"));
  EXPECT_TRUE(IsFileRootForm("$FILEROOT"));
  EXPECT_TRUE(IsFileRootForm("\\$fileroot/x"));
  EXPECT_FALSE(IsFileRootForm("$FILEROOTS"));
}

}  // namespace
}  // namespace qaaisp
