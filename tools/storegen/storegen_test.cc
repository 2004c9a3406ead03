// The generator must make what it promises: the same store for the same
// seed, and messages that the store's own readers take apart as a real
// mailbox's would be (decoded words, attachments, calendar classes).
#include <gtest/gtest.h>

#include <map>
#include <string>

#include "base/charsets.h"
#include "base/dates.h"
#include "base/encoded_words.h"
#include "message/message_header_info.h"
#include "message/message_index.h"
#include "platform/env.h"
#include "storegen/mail_text.h"
#include "storegen/message_generator.h"
#include "storegen/store_generator.h"
#include "test_env.h"

namespace qaaisp::storegen {
namespace {

using testing::ReadFile;
using testing::TempDir;
using testing::WriteFile;

std::map<std::string, std::string> StoreFiles(const std::string& root) {
  std::map<std::string, std::string> files;
  platform::Env* env = platform::Env::Default();
  std::vector<std::string> pending = {root};
  while (!pending.empty()) {
    const std::string dir = pending.back();
    pending.pop_back();
    std::vector<platform::DirEntry> entries;
    env->ListDirectory(dir, false, &entries);
    for (const auto& e : entries) {
      const std::string path = dir + "/" + e.name;
      if (e.is_directory) {
        pending.push_back(path);
      } else {
        files[path.substr(root.size())] = ReadFile(path);
      }
    }
  }
  return files;
}

StorePlan SmallStore(const std::string& root, uint32_t seed) {
  StorePlan plan;
  plan.root = root;
  plan.messages = 120;
  plan.seed = seed;
  return plan;
}

TEST(StoreGeneratorTest, SameSeedSameStoreOtherSeedOtherMail) {
  TempDir a, b, c;
  StoreReport report;
  std::string error;
  platform::Env* env = platform::Env::Default();
  ASSERT_TRUE(GenerateStore(env, SmallStore(a.path(), 5), &report, &error)) << error;
  EXPECT_EQ(report.messages, 120u);
  EXPECT_EQ(report.folders.size(), 15u);
  ASSERT_TRUE(GenerateStore(env, SmallStore(b.path(), 5), &report, &error));
  ASSERT_TRUE(GenerateStore(env, SmallStore(c.path(), 6), &report, &error));
  const auto first = StoreFiles(a.path());
  EXPECT_EQ(first.size(), 120u);
  EXPECT_EQ(first, StoreFiles(b.path()));
  EXPECT_NE(first, StoreFiles(c.path()));
}

// Every kind, read back by the store's MIME indexer, gives the row a real
// message of that kind gives.
TEST(StoreGeneratorTest, MessagesIndexAsTheirKindPromises) {
  TempDir dir;
  MessageGenerator generator(11);
  std::map<std::string, int> classes;
  int lists = 0;
  for (int i = 0; i < 300; ++i) {
    const GeneratedMessage m = generator.Next();
    const std::string path = dir.Sub("m.MAI");
    WriteFile(path, m.text);
    MessageHeaderInfo info;
    info.Reset();
    ASSERT_EQ(IndexMessageByMime(path, &info, false, 0), 1);
    SCOPED_TRACE(m.text.substr(0, 2000));
    EXPECT_EQ(info.Attachments, m.has_attachment ? 1 : 0);
    EXPECT_EQ(info.Subject.find("=?"), std::string::npos) << "every encoded word decodes";
    EXPECT_EQ(info.From.find("=?"), std::string::npos);
    EXPECT_FALSE(info.Received.empty()) << "every hop is dated with seconds";
    if (m.calendar_method == "REQUEST") {
      EXPECT_EQ(info.Class, "IPM.Schedule.Meeting.Request");
    } else if (m.calendar_method == "REPLY") {
      EXPECT_EQ(info.Class.rfind("IPM.Schedule.Meeting.Resp", 0), 0u) << info.Class;
    } else if (m.calendar_method == "CANCEL") {
      EXPECT_EQ(info.Class, "IPM.Schedule.Meeting.Canceled");
    } else {
      EXPECT_EQ(info.Class, "");
    }
    if (m.kind == MessageKind::kMailingList) {
      ++lists;
      EXPECT_NE(info.Flags.find("$IsMailingList"), std::string::npos);
    }
    ++classes[info.Class];
  }
  EXPECT_GT(lists, 0);
  EXPECT_GE(classes.size(), 4u) << "requests, replies and cancellations all occur";
}

TEST(StoreGeneratorTest, EncodedWordsRoundTripInEveryCharsetWithinTheWordLimit) {
  const std::string texts[][2] = {
      {"Übersicht der Aufgaben für März und April, mit allen Änderungen", "ISO-8859-1"},
      {"会議の日程について、来週の火曜日はいかがでしょうか。資料を添付いたしました", "ISO-2022-JP"},
      {"Отчёт за квартал и новая версия договора", "KOI8-R"},
      {"关于合同的修改，请在周五之前审阅附件中的文件", "GB2312"},
      {"Réunion de lundi — compte rendu", "windows-1252"},
  };
  for (const auto& [text, charset] : texts) {
    for (bool base64 : {false, true}) {
      const std::string encoded = EncodeHeaderText(text, charset, base64);
      size_t start = 0;
      while (start < encoded.size()) {
        size_t end = encoded.find("\r\n ", start);
        if (end == std::string::npos) end = encoded.size();
        EXPECT_LE(end - start, 75u) << encoded;
        start = end + 3;
      }
      WordDecodeOptions options;
      options.join_adjacent = true;
      std::u16string wide;
      std::string unfolded;
      for (char ch : encoded) {
        if (ch != '\r' && ch != '\n') unfolded += ch;
      }
      DecodeWords(unfolded, &wide, options);
      std::string utf8;
      WideToNarrow(wide, &utf8, kUtf8CodePage);
      EXPECT_EQ(utf8, text) << charset << " " << encoded;
    }
  }
  EXPECT_EQ(EncodeHeaderText("plain words", "KOI8-R", true), "plain words");
}

TEST(StoreGeneratorTest, DatesInEveryFormNameTheSameInstant) {
  EXPECT_EQ(MailDate(0, 0, 0), "Thu, 1 Jan 1970 00:00:00 +0000");
  EXPECT_EQ(MailDate(1700000000, 60, 1), "Tue, 14 Nov 2023 23:13:20 +0100 (CET)");
  EXPECT_EQ(MailDate(1700000000, -300, 3), "Tue, 14 Nov 2023 17:13:20 EST");
  char first[64] = "";
  NormaliseHeaderDate(MailDate(1700000000, 120, 0).c_str(), first, sizeof first);
  for (uint32_t form : {1u, 2u}) {
    char other[64] = "";
    NormaliseHeaderDate(MailDate(1700000000, 120, form).c_str(), other, sizeof other);
    EXPECT_STREQ(other, first) << form;
  }
  const CivilTime leap = ToCivil(951782400);  // 2000-02-29
  EXPECT_EQ(leap.year * 10000 + leap.month * 100 + leap.day, 20000229);
}

}  // namespace
}  // namespace qaaisp::storegen
