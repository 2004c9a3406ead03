// Both header readers over hand-made messages: what they agree on, and
// where each keeps its own behaviour.
#include <gtest/gtest.h>

#include <filesystem>
#include <random>

#include "message/message_index.h"
#include "message/message_properties.h"
#include "message/message_test_support.h"
#include "mime/mime_test_paths.h"

namespace qaaisp {
namespace {

using namespace message_testing;

constexpr int kLineReader = 0;
constexpr int kMimeReader = 1;

class BothReadersTest : public MessageTest, public ::testing::WithParamInterface<int> {
 protected:
  BothReadersTest() : MessageTest({Dword("New Indexing", GetParam())}) {}

  bool mime() const { return GetParam() == kMimeReader; }

  // Indexes a message as a scan would and fills row from it.
  int Index(const std::string& text, IndexItem* row, uint32_t branding = 0) {
    const std::string path = Put("1.MAI", text);
    info_.Reset();
    info_.FileName = "1.MAI";
    info_.Uid = 7;
    const int result = IndexMessage(path, &info_, false, branding, kAttachmentsVerified, false);
    row->Create();
    if (result) SetMessageProperties(row, &info_, false);
    return result;
  }

  MessageHeaderInfo info_;
};

INSTANTIATE_TEST_SUITE_P(Readers, BothReadersTest, ::testing::Values(kLineReader, kMimeReader),
                         [](const auto& info) { return info.param ? "Mime" : "Lines"; });

TEST_P(BothReadersTest, HeaderFieldsBecomeTheRowsProperties) {
  IndexItem row;
  ASSERT_EQ(Index("Received: from relay by mx; Tue, 14 Mar 2023 10:00:05 +0000\r\n"
                  "Received: from origin by relay; Tue, 14 Mar 2023 09:59:00 +0000\r\n"
                  "From: Ann <ann@example.org>\r\n"
                  "To: bob@example.org\r\n"
                  "Cc: carl@example.org\r\n"
                  "Subject: Quarterly figures\r\n"
                  "Date: Tue, 14 Mar 2023 09:58:00 +0000\r\n"
                  "Message-ID: <q1@example.org>\r\n"
                  "X-Priority: 0\r\n"
                  "\r\n"
                  "Body\r\n",
                  &row),
            1);
  EXPECT_EQ(Prop(row, "ID"), "1.MAI");
  EXPECT_EQ(Prop(row, "UID"), "7");
  EXPECT_EQ(Prop(row, "FROM"), "Ann <ann@example.org>");
  EXPECT_EQ(Prop(row, "TO"), "bob@example.org");
  EXPECT_EQ(Prop(row, "CC"), "carl@example.org");
  EXPECT_EQ(Prop(row, "SUBJECT"), "Quarterly figures");
  EXPECT_EQ(Prop(row, "MESSAGEDATE"), Normalised("Tue, 14 Mar 2023 09:58:00 +0000"));
  // The first Received, the newest hop, wins.
  EXPECT_EQ(Prop(row, "RECEIVED"), Normalised("Tue, 14 Mar 2023 10:00:05 +0000"));
  EXPECT_EQ(Prop(row, "IMPORTANCE"), "3");
  EXPECT_EQ(Prop(row, "FLAGSTATUS"), "\\RECENT");
  EXPECT_EQ(Prop(row, "READ"), "0");
  EXPECT_EQ(Prop(row, "STATE"), "0");
  EXPECT_EQ(Prop(row, "ATTACHMENTS"), "0");
  EXPECT_EQ(info_.MessageId, "<q1@example.org>");
  EXPECT_EQ(info_.Header.substr(0, 9), "Received:");
  EXPECT_TRUE(info_.Header.ends_with("X-Priority: 0"));  // without the blank line
  EXPECT_NE(info_.ModifiedDate, 0u);
  // "MSGID" is kept only to prevent duplicates.
  EXPECT_FALSE(row.container()->HasValue("MSGID"));
}

TEST_P(BothReadersTest, MissingHeadersFallBack) {
  IndexItem row;
  ASSERT_EQ(Index("Subject: no sender\r\nDate: Mon, 2 Jan 06 10:00:00 GMT\r\n\r\nBody\r\n", &row),
            1);
  EXPECT_EQ(Prop(row, "FROM"), "Unknown");
  EXPECT_EQ(Prop(row, "MESSAGEDATE"), Normalised("Mon, 2 Jan 06 10:00:00 GMT"));
  EXPECT_EQ(Prop(row, "RECEIVED"), Prop(row, "MESSAGEDATE"));

  IndexItem bare;
  ASSERT_EQ(Index("\r\nA message with no header at all\r\n", &bare), 1);
  EXPECT_EQ(Prop(bare, "FROM"), "Unknown");
  EXPECT_EQ(Prop(bare, "SUBJECT"), "");

  info_.Reset();
  EXPECT_EQ(IndexMessage(folder() + "/missing.MAI", &info_, false, 0, kAttachmentsVerified, false),
            0);
}

TEST_P(BothReadersTest, PriorityBelowOneOrNotANumberIsNormal) {
  for (const auto& [value, importance] :
       {std::pair{"2 (High)", "2"}, {"0", "3"}, {"-4", "3"}, {"urgent", "3"}, {"5", "5"}}) {
    IndexItem row;
    ASSERT_EQ(Index(std::string("X-Priority: ") + value + "\r\n\r\n", &row), 1);
    EXPECT_EQ(Prop(row, "IMPORTANCE"), importance) << value;
  }
}

TEST_P(BothReadersTest, ReadStateAndFlagsGiveFlagStatus) {
  IndexItem read;
  ASSERT_EQ(Index("From: a@b\r\nX-Read: 1\r\n\r\n", &read), 1);
  if (mime()) {
    // This reader marks the flag but leaves Read at 0, so the row is recent.
    EXPECT_EQ(Prop(read, "FLAGSTATUS"), "\\SEEN \\RECENT");
    EXPECT_EQ(Prop(read, "READ"), "0");
  } else {
    EXPECT_EQ(Prop(read, "FLAGSTATUS"), "\\SEEN");
    EXPECT_EQ(Prop(read, "READ"), "1");
  }

  // Temporary flags replace what came before; a mailing list adds its flag.
  IndexItem flagged;
  ASSERT_EQ(Index("X-QATempFlags: \\Answered\r\nList-Unsubscribe: <mailto:u@l>\r\n"
                  "X-QATempFlags: \\Flagged\r\nList-Unsubscribe: <mailto:u@l>\r\n\r\n",
                  &flagged),
            1);
  EXPECT_EQ(Prop(flagged, "FLAGSTATUS"), "\\Flagged $IsMailingList \\RECENT");
}

TEST_P(BothReadersTest, EncodedSubjectWords) {
  IndexItem row;
  ASSERT_EQ(Index("Subject: =?UTF-8?Q?Caf=C3=A9?=\r\n =?ISO-8859-1?Q?_cr=E8me?=\r\n\r\n", &row), 1);
  if (mime()) {
    EXPECT_EQ(Prop(row, "SUBJECT"), "Caf\xC3\xA9 cr\xC3\xA8me");
  } else {
    // Raw text, the fold's blank dropped behind a closing "?=".
    EXPECT_EQ(Prop(row, "SUBJECT"), "=?UTF-8?Q?Caf=C3=A9?==?ISO-8859-1?Q?_cr=E8me?=");
  }
  for (const char* gap : {" ", "\t"}) {
    IndexItem joined;
    ASSERT_EQ(Index(std::string("Subject: =?UTF-8?Q?a?=") + gap + "=?UTF-8?Q?b?=\r\n\r\n", &joined),
              1);
    EXPECT_EQ(Prop(joined, "SUBJECT"),
              mime() ? "ab" : std::string("=?UTF-8?Q?a?=") + gap + "=?UTF-8?Q?b?=");
  }
}

TEST_P(BothReadersTest, KeywordsOnlyFromTheirOwnLineInTheLineReader) {
  IndexItem same_line;
  ASSERT_EQ(Index("Keywords: alpha\r\n\r\n", &same_line), 1);
  EXPECT_EQ(Prop(same_line, "CATEGORIES"), mime() ? "alpha" : "");

  IndexItem folded;
  ASSERT_EQ(Index("Keywords:\r\n beta,\r\n gamma\r\nTo: x@y\r\n\r\n", &folded), 1);
  EXPECT_EQ(Prop(folded, "CATEGORIES"), mime() ? "beta, gamma" : " beta, gamma");
  EXPECT_EQ(Prop(folded, "TO"), "x@y");
}

TEST_P(BothReadersTest, LongHeadersStopTheLineReaderAt301Lines) {
  std::string text;
  for (int i = 1; i < 300; ++i) text += "X-Filler: " + std::to_string(i) + "\r\n";
  text += "Subject: line 300\r\n";
  text += "From: line301@x\r\n";
  text += "To: line302@x\r\n";
  text += "\r\nbody\r\n";
  IndexItem row;
  ASSERT_EQ(Index(text, &row), 1);
  EXPECT_EQ(Prop(row, "SUBJECT"), "line 300");
  EXPECT_EQ(Prop(row, "FROM"), "line301@x");
  EXPECT_EQ(Prop(row, "TO"), mime() ? "line302@x" : "");
  if (!mime()) {
    EXPECT_TRUE(info_.Header.ends_with("From: line301@x\r\n"));  // no blank line to cut at
  }
}

TEST_P(BothReadersTest, LineEndsOfBareLineFeedsReadTheSame) {
  IndexItem row;
  ASSERT_EQ(Index("From: a@b\nSubject: bare\nX-Priority: 2\n\nBody\n", &row), 1);
  EXPECT_EQ(Prop(row, "FROM"), "a@b");
  EXPECT_EQ(Prop(row, "SUBJECT"), "bare");
  EXPECT_EQ(Prop(row, "IMPORTANCE"), "2");
}

// Damaged and hostile messages: cut anywhere, bytes flipped, lines past the
// line limit, NULs. Each still gives a row (the sanitisers watch the reads).
TEST_P(BothReadersTest, DamagedMessagesStillGiveRows) {
  const std::string sound =
      "Received: from a\r\n\tby b; Tue, 14 Mar 2023 10:00:05 +0000\r\nFrom: a@b\r\n"
      "Subject: =?UTF-8?Q?x?= =?UTF-8?B?eQ==?=\r\nKeywords:\r\n k\r\nX-Priority: 9\r\n"
      "Content-Type: multipart/mixed; boundary=q\r\n\r\n--q\r\nContent-Type: text/calendar;"
      " method=REPLY\r\nContent-Transfer-Encoding: base64\r\n\r\nUEFSVFNUQVQ=\r\n--q\r\n"
      "Content-Disposition: attachment\r\n\r\n" +
      std::string(3000, 'z') + "\r\n--q--\r\n";
  std::mt19937 random(5);
  for (int i = 0; i < 150; ++i) {
    std::string text = sound.substr(0, random() % (sound.size() + 1));
    for (int flips = random() % 6; flips > 0 && !text.empty(); --flips) {
      text[random() % text.size()] = static_cast<char>(random());
    }
    IndexItem row;
    ASSERT_EQ(Index(text, &row, i % 2), 1) << i;
    EXPECT_FALSE(Prop(row, "FROM").empty() && info_.Sender.empty()) << i;
  }
}

TEST_P(BothReadersTest, EveryRealWorldMessageGivesARow) {
  namespace fs = std::filesystem;
  const std::string corpus = testing::MimeCorpusDirectory();
  std::error_code ec;
  if (!fs::is_directory(corpus, ec)) GTEST_SKIP() << "no corpus at " << corpus;
  for (const auto& entry : fs::directory_iterator(corpus, ec)) {
    info_.Reset();
    ASSERT_EQ(IndexMessage(entry.path().string(), &info_, false, 0, kAttachmentsVerified, false),
              1);
    EXPECT_FALSE(info_.From.empty()) << entry.path();
    EXPECT_LE(info_.Subject.size(), kSubjectFieldSize - 1);
    IndexItem row;
    row.Create();
    SetMessageProperties(&row, &info_, false);
  }
}

}  // namespace
}  // namespace qaaisp
