#include "locks/istream_buffered.h"

#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "locks/file_opener.h"
#include "platform/win32_error.h"
#include "test_env.h"

namespace qaaisp {
namespace {

using testing::FakeClockEnv;
using testing::ReadFile;
using testing::ScopedDefaultEnv;
using testing::TempDir;
using testing::WriteFile;

std::unique_ptr<platform::File> Open(const std::string& path) {
  return platform::Env::Default()->OpenFile(path, platform::OpenOptions{});
}

// Splits text at delim with at most limit bytes a piece, as ReadUntil does.
std::vector<std::string> ExpectedPieces(const std::string& text, char delim, size_t limit) {
  std::vector<std::string> pieces;
  size_t at = 0;
  while (at < text.size()) {
    size_t end = text.find(delim, at);
    size_t stop = end == std::string::npos ? text.size() : end;
    if (stop - at > limit) {
      pieces.push_back(text.substr(at, limit));
      at += limit;
      if (at < text.size() && text[at] == delim) ++at;
      continue;
    }
    pieces.push_back(text.substr(at, stop - at));
    at = stop + (end == std::string::npos ? 0 : 1);
  }
  return pieces;
}

TEST(IstreamBufferedTest, ReadUntilMatchesASimpleSplitForAnyBufferSize) {
  TempDir dir;
  std::mt19937 rng(7);
  for (int round = 0; round < 40; ++round) {
    std::string text;
    size_t len = rng() % 300;
    for (size_t i = 0; i < len; ++i) text += "ab<>\n"[rng() % 5];
    WriteFile(dir.Sub("f"), text);
    auto file = Open(dir.Sub("f"));
    for (size_t buffer : {1u, 2u, 3u, 7u, 64u, 8192u}) {
      for (size_t limit : {1u, 4u, 1000u}) {
        istream_buffered in(file.get(), buffer);
        std::vector<std::string> got;
        for (;;) {
          char out[1000];
          int64_t n = in.ReadUntil('>', out, limit);
          if (n < 0) break;
          got.emplace_back(out, static_cast<size_t>(n));
        }
        EXPECT_EQ(got, ExpectedPieces(text, '>', limit))
            << "buffer " << buffer << " limit " << limit << " text " << text;
        EXPECT_TRUE(in.Eof());
        EXPECT_EQ(in.Tell(), text.size());
      }
    }
  }
}

TEST(IstreamBufferedTest, OffsetsPeekAndLines) {
  TempDir dir;
  WriteFile(dir.Sub("f"), "skip|one\r\ntwo\n\nlast");
  auto file = Open(dir.Sub("f"));
  istream_buffered in(file.get(), 4, /*offset=*/5);
  EXPECT_EQ(in.Tell(), 5u);
  EXPECT_EQ(in.Peek(), 'o');
  std::string line;
  ASSERT_TRUE(in.GetLine(&line));
  EXPECT_EQ(line, "one");
  EXPECT_EQ(in.Tell(), 10u);
  ASSERT_TRUE(in.GetLine(&line));
  EXPECT_EQ(line, "two");
  ASSERT_TRUE(in.GetLine(&line));
  EXPECT_EQ(line, "");
  EXPECT_EQ(in.Get(), 'l');
  char rest[10];
  EXPECT_EQ(in.Read(rest, sizeof rest), 3u);
  EXPECT_EQ(std::string(rest, 3), "ast");
  EXPECT_FALSE(in.GetLine(&line));
  EXPECT_EQ(in.Get(), -1);
  EXPECT_FALSE(in.failed());

  std::string appended = "x";
  istream_buffered again(file.get(), 3);
  EXPECT_EQ(again.ReadUntil('|', &appended, 100), 4);
  EXPECT_EQ(appended, "xskip");
}

TEST(FileOpenerTest, ModesReadWriteAndAppend) {
  TempDir dir;
  std::string path = dir.Sub("t.txt");
  {
    FileOpener out(path, "wb");
    ASSERT_TRUE(out.is_open());
    EXPECT_TRUE(out.Write("line1\n"));
    EXPECT_TRUE(out.Write("line2\n"));
  }
  {
    FileOpener append(path, "a");
    append.Seek(0);  // appending ignores the position
    EXPECT_TRUE(append.Write("line3\n"));
  }
  EXPECT_EQ(ReadFile(path), "line1\nline2\nline3\n");
  {
    FileOpener in(path, "r");
    char buffer[6];
    EXPECT_EQ(in.Read(buffer, 6), 6);
    EXPECT_EQ(in.position(), 6u);
    EXPECT_FALSE(in.Write("x"));  // read only
  }
  FileOpener truncate(path, "w+");
  EXPECT_EQ(ReadFile(path), "");
  FileOpener bad(path, "q");
  EXPECT_FALSE(bad.is_open());
  EXPECT_EQ(bad.error(), platform::kErrorInvalidParameter);
}

TEST(FileOpenerTest, FailedOpensPauseOnceUnlessTheFileIsMissing) {
  TempDir dir;
  FakeClockEnv env;
  ScopedDefaultEnv scoped(&env);
  FileOpener missing(dir.Sub("none"), "r");
  EXPECT_FALSE(missing.is_open());
  EXPECT_EQ(missing.error(), platform::kErrorFileNotFound);
  EXPECT_EQ(env.sleep_count(), 0);

  std::string path = dir.Sub("held");
  FileOpener writer(path, "w", /*secure=*/true);
  ASSERT_TRUE(writer.is_open());
  FileOpener reader(path, "r");
  EXPECT_FALSE(reader.is_open());
  EXPECT_EQ(reader.error(), platform::kErrorSharingViolation);
  EXPECT_EQ(env.sleeps(), std::vector<uint32_t>{1000});

  writer.Close();
  FileOpener secure_reader(path, "rb", true);
  FileOpener plain_reader(path, "r");
  EXPECT_TRUE(secure_reader.is_open());
  EXPECT_TRUE(plain_reader.is_open());
  FileOpener missing_dir(dir.Sub("no/such"), "r");
  EXPECT_EQ(missing_dir.error(), platform::kErrorPathNotFound);
  EXPECT_EQ(env.sleep_count(), 2);
}

}  // namespace
}  // namespace qaaisp
