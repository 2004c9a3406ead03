#include "mime/message_section_reader.h"

#include <gtest/gtest.h>

#include <string>

#include "mime/line_source.h"
#include "mime/mime_test_paths.h"
#include "test_env.h"

namespace qaaisp {
namespace {

std::string Section(const std::string& path, std::string_view section) {
  MessageSectionReader reader(path);
  EXPECT_TRUE(reader.ReadSection(section));
  return std::string(reader.view());
}

TEST(MessageSectionReaderTest, SectionsOfNestedPartsAndAnEmbeddedMessage) {
  const std::string path = testing::MimeTestData("nested_with_message.eml");
  EXPECT_EQ(Section(path, "1.1"), "Caf=C3=A9 figures attached.\r\n");
  EXPECT_EQ(Section(path, "1.2"), "<p>Caf&eacute; figures attached.</p>\r\n");
  EXPECT_EQ(Section(path, "1.MIME"), "Content-Type: multipart/alternative; boundary=alt-b\r\n\r\n");
  EXPECT_EQ(
      Section(path, "1"),
      "--alt-b\r\nContent-Type: text/plain; charset=utf-8\r\nContent-Transfer-Encoding: "
      "quoted-printable\r\n\r\nCaf=C3=A9 figures attached.\r\n--alt-b\r\nContent-Type: "
      "text/html; charset=utf-8\r\n\r\n<p>Caf&eacute; figures attached.</p>\r\n--alt-b--\r\n");
  EXPECT_EQ(Section(path, "2.HEADER"),
            "From: Carl <carl@example.com>\r\nSubject: Forwarded note\r\nContent-Type: "
            "multipart/mixed; boundary=\"inner-b\"\r\n\r\n");
  EXPECT_EQ(Section(path, "2.1"), "Forwarded body.\r\n");
  EXPECT_EQ(Section(path, "2.2"), "AAECAwQF\r\n");
  EXPECT_EQ(Section(path, "2.2.MIME"),
            "Content-Type: application/octet-stream; name=\"data.bin\"\r\nContent-Disposition: "
            "attachment; filename=\"data.bin\"\r\nContent-Transfer-Encoding: base64\r\n\r\n");
  EXPECT_EQ(Section(path, "2.TEXT").substr(0, 9), "--inner-b");
  const std::string whole_message = Section(path, "2");
  EXPECT_TRUE(whole_message.starts_with("From: Carl"));
  EXPECT_TRUE(whole_message.ends_with("--inner-b--\r\n"));
  EXPECT_EQ(Section(path, "3"), "JVBERi0xLjQK\r\n");
  EXPECT_TRUE(Section(path, "TEXT").starts_with("This is the preamble.\r\n--outer-b\r\n"));
  // Past the last part there is only what follows the closing delimiter.
  EXPECT_EQ(Section(path, "4"), "Epilogue.\r\n");
}

TEST(MessageSectionReaderTest, SinglePartsAndTheirOwnFirstPart) {
  const std::string path = testing::MimeTestData("nested_with_message.eml");
  ::testing::internal::CaptureStdout();
  EXPECT_EQ(Section(path, "3.1"), "JVBERi0xLjQK\r\n");
  EXPECT_EQ(::testing::internal::GetCapturedStdout(), "adjust mime\n");

  const std::string lf = testing::MimeTestData("lf_line_ends.eml");
  EXPECT_EQ(Section(lf, "1"), "Gr=FC=DFe aus M=FCnchen\nsecond line\n");
  EXPECT_EQ(Section(lf, "TEXT"), Section(lf, "1"));

  MessageSectionReader missing("/no/such/message.eml");
  EXPECT_FALSE(missing.ReadSection("1"));
  EXPECT_EQ(missing.data(), nullptr);
  EXPECT_EQ(missing.size(), 0u);
}

TEST(MessageSectionReaderTest, MemoryAndFileReadersAgree) {
  const std::string path = testing::MimeTestData("nested_with_message.eml");
  const std::string text = qaaisp::testing::ReadFile(path);
  auto reader = MessageSectionReader::ForText(text);
  for (const char* section : {"1.1", "1.2", "2.HEADER", "2.1", "2.2", "3", "3.MIME", "TEXT", "9"}) {
    ASSERT_TRUE(reader->ReadSection(section));
    EXPECT_EQ(reader->view(), Section(path, section)) << section;
  }
}

TEST(LineSourceTest, LongLinesAreCutAndUnreadRepeats) {
  std::string text = std::string(3000, 'a') + "\nshort\nend";
  mime::LineSource source(text);
  std::string_view line;
  ASSERT_TRUE(source.ReadLine(&line));
  EXPECT_EQ(line.size(), mime::kMaxLineLength);
  ASSERT_TRUE(source.ReadLine(&line));
  EXPECT_EQ(line.size(), 3001 - mime::kMaxLineLength);
  ASSERT_TRUE(source.ReadLine(&line));
  EXPECT_EQ(line, "short\n");
  source.Unread();
  ASSERT_TRUE(source.ReadLine(&line));
  EXPECT_EQ(line, "short\n");
  ASSERT_TRUE(source.ReadLine(&line));
  EXPECT_EQ(line, "end");
  EXPECT_FALSE(source.ReadLine(&line));
}

// Counts the block's growth and fails the chosen step.
class CountingSectionReader : public MessageSectionReader {
 public:
  using MessageSectionReader::MessageSectionReader;
  int calls = 0;
  int fail_at = 0;

 protected:
  char* ResizeBlock(char* block, size_t size) override {
    ++calls;
    if (calls == fail_at) return nullptr;
    return MessageSectionReader::ResizeBlock(block, size);
  }
};

std::string LargeMessage(size_t body_lines) {
  std::string text = "Content-Type: multipart/mixed; boundary=\"b\"\r\n\r\n--b\r\n\r\n";
  for (size_t i = 0; i < body_lines; ++i)
    text += std::string(98, static_cast<char>('a' + i % 26)) + "\r\n";
  return text + "--b--\r\n";
}

TEST(MessageSectionReaderTest, CollectsInAllocationUnits) {
  qaaisp::testing::TempDir dir;
  const std::string path = dir.Sub("large.eml");
  const size_t lines = 3000;  // 300,000 bytes: three units
  qaaisp::testing::WriteFile(path, LargeMessage(lines));
  ASSERT_EQ(MessagePartAllocationUnit(), 131072u);

  CountingSectionReader reader(path);
  ASSERT_TRUE(reader.ReadSection("1"));
  EXPECT_EQ(reader.size(), lines * 100);
  EXPECT_EQ(reader.calls, 3);
  EXPECT_EQ(reader.data()[reader.size()], '\0');
  EXPECT_EQ(reader.view().substr(0, 4), "aaaa");
  EXPECT_EQ(reader.view().substr(reader.size() - 4), "jj\r\n");

  // A failed step loses that chunk; the read goes on.
  CountingSectionReader failing(path);
  failing.fail_at = 2;
  ASSERT_TRUE(failing.ReadSection("1"));
  EXPECT_EQ(failing.size(), lines * 100 - 131000);
  EXPECT_EQ(failing.calls, 3);
  EXPECT_EQ(failing.data()[failing.size()], '\0');
}

}  // namespace
}  // namespace qaaisp
