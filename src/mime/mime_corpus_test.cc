// The readers over real-world messages written by others, and over damaged
// copies of our own: nothing may fault, and hand-counted structures match.
#include <gtest/gtest.h>

#include <map>
#include <random>
#include <string>
#include <vector>

#include "mime/message_reader.h"
#include "mime/mime_fuzz.h"
#include "mime/mime_test_paths.h"
#include "platform/env.h"
#include "test_env.h"

namespace qaaisp {
namespace {

std::vector<std::string> CorpusFiles() {
  std::vector<platform::DirEntry> entries;
  std::vector<std::string> files;
  const std::string dir = testing::MimeCorpusDirectory();
  if (!platform::Env::Default()->ListDirectory(dir, false, &entries)) return files;
  for (const platform::DirEntry& e : entries) {
    if (!e.is_directory) files.push_back(dir + "/" + e.name);
  }
  return files;
}

TEST(MimeCorpusTest, EveryMessageReads) {
  std::vector<std::string> files = CorpusFiles();
  if (files.empty()) GTEST_SKIP() << "no corpus at " << testing::MimeCorpusDirectory();
  size_t parsed = 0;
  for (const std::string& path : files) {
    SCOPED_TRACE(path);
    std::string text = qaaisp::testing::ReadFile(path);
    MessageReader reader(text, false);
    ASSERT_LE(reader.parts().size(), kMaxMessageParts + 1);
    if (!reader.parts().empty()) ++parsed;
    for (const MessagePart& part : reader.parts()) {
      EXPECT_EQ(part.Kind, kPartLeaf);
      EXPECT_FALSE(part.ContentType.empty());
    }
    // Everything else the store does with a message, through the fuzz entry.
    FuzzMessageReader(reinterpret_cast<const uint8_t*>(text.data()), text.size());
    FuzzSectionReader(reinterpret_cast<const uint8_t*>(text.data()), text.size());
  }
  // Nearly every message of the corpus has a listable structure.
  EXPECT_GT(parsed, files.size() * 9 / 10);
}

TEST(MimeCorpusTest, HandCountedStructures) {
  const std::map<std::string, std::vector<std::string>> expected = {
      {"spamassassin__nice__mime7", {"AUDIO/BASIC", "AUDIO/BASIC"}},
      {"mikel-mail__mime_emails__email_with_similar_boundaries.eml",
       {"text/plain", "text/html", "application/octetstream"}},
      {"mime4j__testmsgs__intermediate-boundaries.msg", {"text/plain", "text/plain"}},
      {"mimekit__messages__simple-embedded-message.eml", {"text/plain", "message/rfc822"}},
      {"mimekit__messages__epilogue.txt", {"text/plain", "application/postscript"}},
  };
  const std::string dir = testing::MimeCorpusDirectory();
  if (!platform::DirectoryExists(platform::Env::Default(), dir)) GTEST_SKIP();
  for (const auto& [name, types] : expected) {
    SCOPED_TRACE(name);
    MessageReader reader(dir + "/" + name, true);
    ASSERT_TRUE(reader.loaded());
    std::vector<std::string> got;
    for (const MessagePart& part : reader.parts()) got.push_back(part.ContentType);
    EXPECT_EQ(got, types);
  }
  MessageReader similar(dir + "/mikel-mail__mime_emails__email_with_similar_boundaries.eml", true);
  ASSERT_EQ(similar.parts().size(), 3u);
  EXPECT_EQ(similar.parts()[2].DisplayName, "LOGO.png");
  MessageReader padded(dir + "/mime4j__testmsgs__intermediate-boundaries.msg", true);
  ASSERT_EQ(padded.parts().size(), 2u);
  EXPECT_EQ(padded.parts()[0].Body, "first part\r\n");
}

// Every prefix of a message, and copies with bytes flipped, go through both
// readers; ASan is the judge.
TEST(MimeRobustnessTest, TruncatedAndBitFlippedMessages) {
  const std::string text =
      qaaisp::testing::ReadFile(testing::MimeTestData("nested_with_message.eml")) +
      qaaisp::testing::ReadFile(testing::MimeTestData("file_names.eml"));
  for (size_t length = 0; length <= text.size(); ++length) {
    // A copy of exactly that size, so reading past it is caught.
    std::vector<uint8_t> prefix(text.begin(), text.begin() + static_cast<std::ptrdiff_t>(length));
    FuzzMessageReader(prefix.data(), prefix.size());
    FuzzSectionReader(prefix.data(), prefix.size());
  }
  std::mt19937 random(12345);
  const char interesting[] = {'\r', '\n', '-', ':', ';', '"', '=', '?', ' ', '\0'};
  for (int round = 0; round < 400; ++round) {
    std::vector<uint8_t> damaged(text.begin(), text.end());
    for (int flips = 0; flips < 1 + round % 8; ++flips) {
      size_t at = random() % damaged.size();
      damaged[at] = (round % 2) ? static_cast<uint8_t>(interesting[random() % sizeof interesting])
                                : static_cast<uint8_t>(damaged[at] ^ (1u << (random() % 8)));
    }
    size_t cut = damaged.size() - random() % 64;
    damaged.resize(cut);
    FuzzMessageReader(damaged.data(), damaged.size());
    FuzzSectionReader(damaged.data(), damaged.size());
  }
}

}  // namespace
}  // namespace qaaisp
