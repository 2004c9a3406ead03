// From the record to a row: a new row, a full refresh, and the summary
// refresh that keeps a user's flags.
#include <gtest/gtest.h>

#include "message/message_properties.h"
#include "message/message_test_support.h"

namespace qaaisp {
namespace {

using namespace message_testing;

MessageHeaderInfo Filled() {
  MessageHeaderInfo info;
  info.FileName = "5.MAI";
  info.Uid = 5;
  info.MessageDate = "2023-01-02T03:04:05";
  info.Received = "2023-01-02T03:05:00";
  info.ModifiedDate = 0xF0000001u;  // past 2^31: stored as its 32 bits
  info.Importance = 1;
  info.Attachments = 1;
  info.From = "a@b";
  info.To = "c@d";
  info.Cc = "e@f";
  info.Subject = "Hello";
  info.Read = 1;
  info.Flags = "\\Flagged";
  info.Class = "IPM.Note";
  info.Keywords = "red";
  info.Thread = "AQHX";
  info.Size = 1234;
  info.MessageId = "<id@x>";
  return info;
}

class MessagePropertiesTest : public MessageTest {
 protected:
  MessagePropertiesTest() { row_.Create(); }
  IndexItem row_;
};

TEST_F(MessagePropertiesTest, ANewRowGetsEveryField) {
  MessageHeaderInfo info = Filled();
  SetMessageProperties(&row_, &info, false);
  EXPECT_EQ(Prop(row_, "ID"), "5.MAI");
  EXPECT_EQ(Prop(row_, "UID"), "5");
  EXPECT_EQ(Prop(row_, "MODIFIEDDATE"), "4026531841");
  EXPECT_EQ(Prop(row_, "FLAGSTATUS"), "\\Flagged \\SEEN");
  EXPECT_EQ(Prop(row_, "READ"), "1");
  EXPECT_EQ(Prop(row_, "CATEGORIES"), "red");
  EXPECT_EQ(Prop(row_, "THREAD"), "AQHX");
  EXPECT_EQ(Prop(row_, "SIZE"), "1234");
  EXPECT_EQ(Prop(row_, "CLASS"), "IPM.Note");
  EXPECT_EQ(Prop(row_, "STATE"), "0");
  EXPECT_FALSE(row_.container()->HasValue("ATTRIBUTES"));
  EXPECT_FALSE(row_.container()->HasValue("MSGID"));

  UseSettings({Dword("Prevent Message Duplicates", 1)});
  IndexItem keyed;
  keyed.Create();
  info = Filled();
  SetMessageProperties(&keyed, &info, false);
  EXPECT_EQ(Prop(keyed, "MSGID"), "<id@x>");

  IndexItem keys_only;
  keys_only.Create();
  SetMessageProperties(&keys_only, &info, true);
  std::map<std::string, std::string> values;
  keys_only.container()->Flatten(nullptr, &values);
  EXPECT_EQ(values, (std::map<std::string, std::string>{{"ID", "5.MAI"}, {"UID", "5"}}));
}

TEST_F(MessagePropertiesTest, RefreshesKeepKeysAndWhatTheyDoNotOwn) {
  MessageHeaderInfo info = Filled();
  SetMessageProperties(&row_, &info, false);
  row_.SetProperty("FLAGSTATUS", "\\Answered \\SEEN");  // a user's change

  MessageHeaderInfo changed;
  changed.FileName = "other.MAI";
  changed.Uid = 99;
  changed.Subject = "";
  changed.MessageDate = "2024-05-06T07:08:09";
  changed.Size = 2000;
  changed.Keywords = "blue";
  UpdateMessageSummaryProperties(&row_, changed);
  EXPECT_EQ(Prop(row_, "FLAGSTATUS"), "\\Answered \\SEEN");
  EXPECT_EQ(Prop(row_, "SUBJECT"), "");  // cleared: the file has none now
  EXPECT_EQ(Prop(row_, "MESSAGEDATE"), "2024-05-06T07:08:09");
  EXPECT_EQ(Prop(row_, "SIZE"), "2000");
  EXPECT_EQ(Prop(row_, "FROM"), "a@b");  // not part of the summary

  UpdateMessageProperties(&row_, &changed);
  EXPECT_EQ(Prop(row_, "ID"), "5.MAI");
  EXPECT_EQ(Prop(row_, "UID"), "5");
  EXPECT_EQ(Prop(row_, "CATEGORIES"), "red");
  EXPECT_EQ(Prop(row_, "FROM"), "");
  EXPECT_EQ(Prop(row_, "FLAGSTATUS"), "\\RECENT");
  EXPECT_EQ(Prop(row_, "THREAD"), "AQHX");  // only written when the file has one
}

TEST_F(MessagePropertiesTest, ReindexReadsTheFileAgain) {
  const std::string text = "From: new@x\r\nSubject: Revised\r\nX-Read: 1\r\n\r\nBody\r\n";
  Put("5.MAI", text);
  MessageHeaderInfo info = Filled();
  SetMessageProperties(&row_, &info, false);
  platform::DirEntry entry;
  entry.name = "5.MAI";
  entry.size = text.size();

  ASSERT_EQ(ReindexMessage(&row_, folder(), entry, 0, /*refresh_all=*/false), 1);
  EXPECT_EQ(Prop(row_, "SUBJECT"), "Revised");
  EXPECT_EQ(Prop(row_, "FROM"), "a@b");
  EXPECT_EQ(Prop(row_, "FLAGSTATUS"), "\\Flagged \\SEEN");
  EXPECT_EQ(Prop(row_, "SIZE"), std::to_string(text.size()));

  ASSERT_EQ(ReindexMessage(&row_, folder(), entry, 0, /*refresh_all=*/true), 1);
  EXPECT_EQ(Prop(row_, "FROM"), "new@x");
  EXPECT_EQ(Prop(row_, "FLAGSTATUS"), "\\SEEN \\RECENT");

  entry.name = "gone.MAI";
  EXPECT_EQ(ReindexMessage(&row_, folder(), entry, 0, true), 0);
  EXPECT_EQ(Prop(row_, "FROM"), "new@x");
}

TEST(MessageHeaderInfoTest, FlagsFieldsAndFileTimes) {
  MessageHeaderInfo info;
  for (const char* flag : {"SEEN", "", "$IsMailingList", "\\Flagged", "seen", "\\SEEN"}) {
    info.AddFlag(flag);
  }
  EXPECT_EQ(info.Flags, "\\SEEN $IsMailingList \\Flagged");

  std::string from;
  SetBounded(&from, std::string(600, 'x'), kFromFieldSize);
  EXPECT_EQ(from.size(), 511u);
  AppendBounded(&from, "more", kFromFieldSize);
  EXPECT_EQ(from.size(), 511u);

  info.Reset();
  EXPECT_EQ(info.Flags, "");
  EXPECT_EQ(info.Importance, 3);

  // 2023-03-14 09:58:31 UTC: DOS date and time, the seconds halved.
  const platform::FileTime t = platform::FileTimeFromUnixNanos(1678787911, 0);
  EXPECT_EQ(PackedModifiedDate(t),
            ((43u << 9 | 3u << 5 | 14u) << 16) | (9u << 11 | 58u << 5 | 15u));
  EXPECT_EQ(PackedModifiedDate(platform::FileTimeFromUnixNanos(0, 0)), 0u);  // before 1980
}

}  // namespace
}  // namespace qaaisp
