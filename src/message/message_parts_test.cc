// Classes and attachment marks: the calendar rule of the MIME reader, and
// the attachment hints of the line reader with its second pass.
#include <gtest/gtest.h>

#include "base/base64.h"
#include "message/message_index.h"
#include "message/message_test_support.h"

namespace qaaisp {
namespace {

using namespace message_testing;

class MimeReaderPartsTest : public MessageTest {
 protected:
  MessageHeaderInfo Read(const std::string& text) {
    MessageHeaderInfo info;
    EXPECT_EQ(IndexMessageByMime(Put("1.MAI", text), &info, false, 0), 1);
    return info;
  }
};

TEST_F(MimeReaderPartsTest, CalendarMethodsGiveMeetingClasses) {
  struct Case {
    const char* content_type;
    const char* body;
    const char* message_class;
  };
  for (const Case& c : {
           Case{"text/calendar; method=REQUEST", "", "IPM.Schedule.Meeting.Request"},
           Case{"text/calendar; method=REPLY", "ATTENDEE;PARTSTAT=ACCEPTED:x",
                "IPM.Schedule.Meeting.Resp.Pos"},
           Case{"text/calendar; method=reply", "ATTENDEE;partstat=declined:x",
                "IPM.Schedule.Meeting.Resp.Neg"},
           Case{"text/calendar; method=REPLY", "ATTENDEE;PARTSTAT=TENTATIVE:x",
                "IPM.Schedule.Meeting.Resp.Tent"},
           Case{"text/calendar; method=REPLY", "ATTENDEE:x", "IPM.Schedule.Meeting.Resp"},
           Case{"text/calendar; method=CANCEL", "", "IPM.Schedule.Meeting.Canceled"},
           Case{"text/calendar; method=PUBLISH", "", "IPM.Schedule"},
           Case{"text/calendar", "METHOD:REQUEST", ""},
           Case{"text/plain; method=REQUEST", "", ""},
       }) {
    MessageHeaderInfo info = Read(std::string("Content-Type: ") + c.content_type +
                                  "\r\n\r\nBEGIN:VCALENDAR\r\n" + c.body + "\r\nEND:VCALENDAR\r\n");
    EXPECT_EQ(info.Class, c.message_class) << c.content_type << " / " << c.body;
  }
}

TEST_F(MimeReaderPartsTest, ACalendarPartGivesTheClassWhenTheHeaderGaveNone) {
  const std::string ics = Base64EncodeToString(
      "BEGIN:VCALENDAR\r\nMETHOD:REPLY\r\nATTENDEE;PARTSTAT=DECLINED:mailto:a@b\r\n"
      "END:VCALENDAR\r\n");
  const std::string body =
      "--b1\r\nContent-Type: text/plain\r\n\r\nSee the reply.\r\n"
      "--b1\r\nContent-Type: text/calendar;\r\n\tmethod=REPLY; charset=utf-8\r\n"
      "Content-Transfer-Encoding: base64\r\n\r\n" +
      ics + "\r\n--b1--\r\n";
  const std::string header = "Content-Type: multipart/alternative; boundary=b1\r\n";
  EXPECT_EQ(Read(header + "\r\n" + body).Class, "IPM.Schedule.Meeting.Resp.Neg");
  EXPECT_EQ(Read("X-QA-Class: IPM.Note.Custom\r\n" + header + "\r\n" + body).Class,
            "IPM.Note.Custom");
  // The header's own calendar type outranks a class the file recorded.
  EXPECT_EQ(
      Read("X-QA-Class: IPM.Note\r\nContent-Type: text/calendar; method=CANCEL\r\n\r\nx\r\n").Class,
      "IPM.Schedule.Meeting.Canceled");
}

TEST_F(MimeReaderPartsTest, AttachmentsComeFromDispositions) {
  const std::string mixed =
      "Content-Type: multipart/mixed; boundary=m\r\n\r\n--m\r\n"
      "Content-Type: text/plain\r\n\r\nhello\r\n--m\r\n";
  EXPECT_EQ(Read(mixed + "Content-Type: application/pdf\r\n"
                         "Content-Disposition: attachment; filename=a.pdf\r\n\r\nJVBE\r\n--m--\r\n")
                .Attachments,
            1);
  EXPECT_EQ(Read(mixed + "Content-Type: image/png\r\nContent-Disposition: inline\r\n\r\niVBO\r\n"
                         "--m--\r\n")
                .Attachments,
            0);
  // A part that never reaches its delimiter is not listed.
  EXPECT_EQ(
      Read(mixed + "Content-Disposition: attachment\r\n\r\nno closing delimiter\r\n").Attachments,
      0);
}

class LineReaderHintsTest : public MessageTest {
 protected:
  int Attachments(const std::string& header, const std::string& body,
                  int mode = kAttachmentsVerified) {
    MessageHeaderInfo info;
    EXPECT_EQ(
        IndexMessageByLines(Put("1.MAI", header + "\r\n" + body), &info, false, 0, mode, false), 1);
    return info.Attachments;
  }
};

TEST_F(LineReaderHintsTest, HeaderHintsAreCheckedAgainstTheBody) {
  const std::string mixed = "Content-Type: multipart/mixed; boundary=m\r\n";
  const std::string real =
      "--m\r\nContent-Disposition: attachment; filename=a\r\n\r\nx\r\n--m--\r\n";
  const std::string none = "--m\r\nContent-Type: text/plain\r\n\r\nx\r\n--m--\r\n";
  EXPECT_EQ(Attachments(mixed, real), 1);
  EXPECT_EQ(Attachments(mixed, none), 0);  // the second pass takes the paper clip away
  EXPECT_EQ(Attachments(mixed, none, kAttachmentsAsHeaderSays), 1);
  // A later Content-Type undoes an earlier one.
  EXPECT_EQ(Attachments(mixed + "Content-Type: text/plain\r\n", real), 0);
  // An attachment disposition in the header is believed without a check.
  EXPECT_EQ(Attachments("Content-Disposition: attachment; filename=x\r\n", none), 1);
  EXPECT_EQ(Attachments("X-MS-Has-Attach: yes\r\n", real), 1);
  EXPECT_EQ(Attachments("X-MS-Has-Attach: yes\r\n", none), 0);
  EXPECT_EQ(Attachments("Content-Type: multipart/alternative; boundary=m\r\n", real), 0);

  UseSettings({Dword("Indexing Parses Multipart Alternative For Attachments", 1)});
  EXPECT_EQ(Attachments("Content-Type: multipart/alternative; boundary=m\r\n", real), 1);
}

TEST_F(LineReaderHintsTest, AddressesDatesAndFolds) {
  MessageHeaderInfo info;
  ASSERT_EQ(IndexMessageByLines(Put("1.MAI",
                                    "Sender: list@x\r\n"
                                    "Received: from a by b\r\n"
                                    "\tid 42; Wed, 1 Feb 2023 08:00:00 +0000\r\n"
                                    "To: one@x,\r\n two@x\r\n"
                                    "reply-to: back@x\r\n"
                                    "Date: Wed, 1 Feb 2023 07:00:00 +0000\r\n"
                                    "\r\n"),
                                &info, false, 0, kAttachmentsVerified, false),
            1);
  EXPECT_EQ(info.From, "list@x");  // a Sender stands in for a missing From
  EXPECT_EQ(info.Received, Normalised("Wed, 1 Feb 2023 08:00:00 +0000"));
  EXPECT_EQ(info.To, "one@x,two@x");
  EXPECT_EQ(info.ReplyTo, "back@x");

  // An empty From leaves From empty and makes Sender "Unknown".
  MessageHeaderInfo empty;
  ASSERT_EQ(IndexMessageByLines(Put("2.MAI", "From:\r\nX-Read: 1\r\n\r\n"), &empty, false, 0,
                                kAttachmentsVerified, /*ignore_read=*/true),
            1);
  EXPECT_EQ(empty.From, "");
  EXPECT_EQ(empty.Sender, "Unknown");
  EXPECT_EQ(empty.Read, 0);
  EXPECT_EQ(empty.Flags, "");
}

TEST_F(LineReaderHintsTest, BrandingReadsOnlyTheUidOfThisFolder) {
  const std::string text =
      "X-UID: 1700000000.42\r\nX-QA-Class: IPM.Note\r\nDate: Wed, 1 Feb 2023 07:00:00 +0000\r\n"
      "Message-ID: <m@x>\r\nContent-Type: multipart/mixed; boundary=m\r\n\r\n";
  MessageHeaderInfo info;
  info.FolderStamp = 1700000000;
  ASSERT_EQ(IndexMessageByLines(Put("1.MAI", text), &info, false, 1, kAttachmentsVerified, false),
            1);
  EXPECT_EQ(info.Uid, 42u);
  EXPECT_EQ(info.Class, "");
  EXPECT_EQ(info.MessageDate, "");
  EXPECT_EQ(info.MessageId, "");
  EXPECT_EQ(info.Attachments, 0);
  EXPECT_EQ(info.Received, Normalised("Wed, 1 Feb 2023 07:00:00 +0000"));

  MessageHeaderInfo foreign;
  foreign.FolderStamp = 1700000001;
  ASSERT_EQ(IndexMessageByLines(Put("1.MAI", text), &foreign, false, 1, 2, false), 1);
  EXPECT_EQ(foreign.Uid, 0u);

  MessageHeaderInfo unbranded;
  unbranded.FolderStamp = 1700000000;
  unbranded.Flags = "\\Old";
  ASSERT_EQ(IndexMessageByLines(Put("1.MAI", text), &unbranded, true, 0, 2, false), 1);
  EXPECT_EQ(unbranded.Uid, 0u);
  EXPECT_EQ(unbranded.Class, "IPM.Note");
  EXPECT_EQ(unbranded.MessageId, "<m@x>");
  EXPECT_EQ(unbranded.Flags, "");  // cleared on request
}

}  // namespace
}  // namespace qaaisp
