#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <thread>

#include "platform/env.h"
#include "platform/win32_error.h"
#include "test_env.h"

namespace qaaisp::platform {
namespace {

using testing::TempDir;

class PosixEnvTest : public ::testing::Test {
 protected:
  Env* env = Env::Default();
  TempDir dir;

  std::unique_ptr<File> Open(const std::string& path, ShareMode share, bool write = false,
                             OpenDisposition disp = OpenDisposition::kOpenExisting) {
    OpenOptions o;
    o.write = write;
    o.share = share;
    o.disposition = disp;
    return env->OpenFile(path, o);
  }
};

TEST_F(PosixEnvTest, MissingFileAndMissingParentGiveDistinctErrors) {
  FileInfo info;
  EXPECT_FALSE(env->Stat(dir.Sub("nothing"), &info));
  EXPECT_EQ(LastError(), kErrorFileNotFound);
  EXPECT_FALSE(env->Stat(dir.Sub("no/such/dir/file"), &info));
  EXPECT_EQ(LastError(), kErrorPathNotFound);
  EXPECT_EQ(Open(dir.Sub("no/file"), ShareMode::kShareRead), nullptr);
  EXPECT_EQ(LastError(), kErrorPathNotFound);
  EXPECT_FALSE(env->RemoveFile(dir.Sub("nothing")));
  EXPECT_EQ(LastError(), kErrorFileNotFound);
}

TEST_F(PosixEnvTest, CreateNewIsExclusiveAndExistingNamesReportTheirKind) {
  auto first = Open(dir.Sub("x.blk"), ShareMode::kShareRead, true, OpenDisposition::kCreateNew);
  ASSERT_NE(first, nullptr);
  EXPECT_EQ(Open(dir.Sub("x.blk"), ShareMode::kShareAny, true, OpenDisposition::kCreateNew),
            nullptr);
  EXPECT_EQ(LastError(), kErrorFileExists);
  ASSERT_TRUE(env->MakeDirectory(dir.Sub("d")));
  EXPECT_FALSE(env->MakeDirectory(dir.Sub("d")));
  EXPECT_EQ(LastError(), kErrorAlreadyExists);
}

TEST_F(PosixEnvTest, HeldFileCannotBeDeletedOrReplacedUntilReleased) {
  testing::WriteFile(dir.Sub("_index.blk"), "");
  testing::WriteFile(dir.Sub("new"), "n");
  auto holder = Open(dir.Sub("_index.blk"), ShareMode::kShareRead);
  ASSERT_NE(holder, nullptr);
  EXPECT_FALSE(env->RemoveFile(dir.Sub("_index.blk")));
  EXPECT_EQ(LastError(), kErrorSharingViolation);
  EXPECT_FALSE(env->RenamePath(dir.Sub("new"), dir.Sub("_index.blk"), true));
  EXPECT_EQ(LastError(), kErrorSharingViolation);
  holder.reset();
  EXPECT_TRUE(env->RemoveFile(dir.Sub("_index.blk")));
}

// Two lockers take turns on one block file while a third keeps deleting
// it, as waiters that gave up do. A delete may only ever take a file that
// nobody holds: never one created again after the deleter opened the old.
TEST_F(PosixEnvTest, ADeleteNeverTakesAFileThatReplacedTheOneItLocked) {
  const std::string path = dir.Sub("_index.blk");
  std::atomic<bool> done{false};
  std::atomic<int> stolen{0};
  auto lock_and_check = [&](char token) {
    for (int i = 0; i < 100; ++i) {
      auto held = Open(path, ShareMode::kShareNone, true, OpenDisposition::kCreateNew);
      if (!held) continue;
      held->WriteAt(0, &token, 1);
      for (int spin = 0; spin < 10; ++spin) std::this_thread::yield();
      // Still ours under the name, or somebody deleted it while held.
      char seen = 0;
      const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
      if (fd < 0 || ::pread(fd, &seen, 1, 0) != 1 || seen != token) ++stolen;
      if (fd >= 0) ::close(fd);
      held.reset();
      env->RemoveFile(path);
    }
  };
  std::thread deleter([&] {
    while (!done) env->RemoveFile(path);
  });
  std::thread first(lock_and_check, 'a'), second(lock_and_check, 'b');
  first.join();
  second.join();
  done = true;
  deleter.join();
  EXPECT_EQ(stolen.load(), 0);
}

TEST_F(PosixEnvTest, ExclusiveOpenShutsOutReadersAndReadersShutOutExclusive) {
  testing::WriteFile(dir.Sub("_index.xml"), "<x/>");
  auto writer = Open(dir.Sub("_index.xml"), ShareMode::kShareNone, true);
  ASSERT_NE(writer, nullptr);
  EXPECT_EQ(Open(dir.Sub("_index.xml"), ShareMode::kShareRead), nullptr);
  EXPECT_EQ(LastError(), kErrorSharingViolation);
  writer.reset();
  auto reader1 = Open(dir.Sub("_index.xml"), ShareMode::kShareRead);
  auto reader2 = Open(dir.Sub("_index.xml"), ShareMode::kShareReadWrite);
  EXPECT_NE(reader1, nullptr);
  EXPECT_NE(reader2, nullptr);
  EXPECT_EQ(Open(dir.Sub("_index.xml"), ShareMode::kShareNone, true), nullptr);
}

TEST_F(PosixEnvTest, PositionalIoTruncateAndTimes) {
  auto f = Open(dir.Sub("f"), ShareMode::kShareAny, true, OpenDisposition::kCreateAlways);
  ASSERT_NE(f, nullptr);
  ASSERT_TRUE(f->WriteAt(0, "hello world", 11));
  ASSERT_TRUE(f->WriteAt(6, "WORLD", 5));
  char buf[16] = {};
  EXPECT_EQ(f->ReadAt(0, buf, sizeof buf), 11);
  EXPECT_STREQ(buf, "hello WORLD");
  ASSERT_TRUE(f->Truncate(5));
  EXPECT_EQ(f->Size(), 5);
  FileTime t = FileTimeFromUnixNanos(1600000000, 123456700);
  ASSERT_TRUE(f->SetTimes(nullptr, nullptr, &t));
  FileTime got;
  ASSERT_TRUE(f->GetWriteTime(&got));
  EXPECT_EQ(got, t);
  FileInfo info;
  ASSERT_TRUE(env->Stat(dir.Sub("f"), &info));
  EXPECT_EQ(info.write_time, t);
  EXPECT_EQ(info.size, 5u);
  EXPECT_EQ(UnixSecondsFromFileTime(t), 1600000000);
}

TEST_F(PosixEnvTest, CopyKeepsTheWriteTimeAndRenameRefusesExistingWithoutReplace) {
  testing::WriteFile(dir.Sub("a"), "abc");
  FileInfo a;
  ASSERT_TRUE(env->Stat(dir.Sub("a"), &a));
  ASSERT_TRUE(env->CopyFileTo(dir.Sub("a"), dir.Sub("b"), true));
  FileInfo b;
  ASSERT_TRUE(env->Stat(dir.Sub("b"), &b));
  EXPECT_EQ(a.write_time, b.write_time);
  EXPECT_FALSE(env->CopyFileTo(dir.Sub("a"), dir.Sub("b"), true));
  EXPECT_EQ(LastError(), kErrorFileExists);
  EXPECT_FALSE(env->RenamePath(dir.Sub("a"), dir.Sub("b"), false));
  EXPECT_EQ(LastError(), kErrorAlreadyExists);
  EXPECT_TRUE(env->RenamePath(dir.Sub("a"), dir.Sub("b"), true));
  EXPECT_EQ(testing::ReadFile(dir.Sub("b")), "abc");
}

TEST_F(PosixEnvTest, ListingGivesNamesWithAndWithoutInfo) {
  testing::WriteFile(dir.Sub("1.MAI"), "12345");
  ASSERT_TRUE(env->MakeDirectory(dir.Sub("Sub")));
  std::vector<DirEntry> entries;
  ASSERT_TRUE(env->ListDirectory(dir.path(), true, &entries));
  ASSERT_EQ(entries.size(), 2u);
  for (const auto& e : entries) {
    if (e.name == "1.MAI") {
      EXPECT_FALSE(e.is_directory);
      EXPECT_EQ(e.size, 5u);
    } else {
      EXPECT_EQ(e.name, "Sub");
      EXPECT_TRUE(e.is_directory);
    }
  }
  ASSERT_TRUE(env->ListDirectory(dir.path(), false, &entries));
  EXPECT_EQ(entries.size(), 2u);
  EXPECT_FALSE(env->ListDirectory(dir.Sub("missing"), false, &entries));
}

TEST_F(PosixEnvTest, WholeFileWriteIsAtomicAndLeavesNoTemporary) {
  ASSERT_TRUE(WriteWholeFileAtomic(env, dir.Sub("_FOLDER.DAT"), std::string(52, '\0')));
  std::string back;
  ASSERT_TRUE(ReadWholeFile(env, dir.Sub("_FOLDER.DAT"), &back));
  EXPECT_EQ(back.size(), 52u);
  std::vector<DirEntry> entries;
  ASSERT_TRUE(env->ListDirectory(dir.path(), false, &entries));
  EXPECT_EQ(entries.size(), 1u);
}

// The backend's one-open read and the portable form every other Env gets
// must give the same bytes, size, time and errors.
TEST_F(PosixEnvTest, WholeFileReadsAgreeWithTheOpenAndFileCalls) {
  EnvWrapper portable(env);  // takes the default, OpenFile-based read
  ReadBuffer buffer;
  ASSERT_TRUE(WriteWholeFileAtomic(env, dir.Sub("big"), std::string(70000, 'x') + "end"));
  ASSERT_TRUE(WriteWholeFileAtomic(env, dir.Sub("small"), "abc"));
  ASSERT_TRUE(WriteWholeFileAtomic(env, dir.Sub("empty"), ""));
  for (Env* reader : {env, static_cast<Env*>(&portable)}) {
    SCOPED_TRACE(reader == env ? "backend" : "portable");
    // Larger, smaller and empty files one after the other through one buffer.
    for (const char* name : {"big", "small", "empty", "big"}) {
      FileInfo info;
      FileInfo stat;
      ASSERT_TRUE(reader->ReadFileWhole(dir.Sub(name), ShareMode::kShareReadWrite, &buffer, &info));
      std::string whole;
      ASSERT_TRUE(ReadWholeFile(env, dir.Sub(name), &whole));
      EXPECT_EQ(buffer.view(), whole) << name;
      ASSERT_TRUE(env->Stat(dir.Sub(name), &stat));
      EXPECT_TRUE(info.exists);
      EXPECT_EQ(info.size, whole.size());
      EXPECT_EQ(info.write_time.ticks(), stat.write_time.ticks());
    }
    FileInfo info;
    EXPECT_FALSE(reader->ReadFileWhole(dir.Sub("none"), ShareMode::kShareRead, &buffer, &info));
    EXPECT_EQ(LastError(), kErrorFileNotFound);
    EXPECT_FALSE(reader->ReadFileWhole(dir.path(), ShareMode::kShareRead, &buffer, &info));
    EXPECT_EQ(LastError(), kErrorAccessDenied);
    // A writer's exclusive hold shuts a shared read out, but not an unshared one.
    {
      auto held = Open(dir.Sub("small"), ShareMode::kShareNone, true);
      ASSERT_NE(held, nullptr);
      EXPECT_FALSE(reader->ReadFileWhole(dir.Sub("small"), ShareMode::kShareRead, &buffer, &info));
      EXPECT_EQ(LastError(), kErrorSharingViolation);
      EXPECT_TRUE(reader->ReadFileWhole(dir.Sub("small"), ShareMode::kShareAny, &buffer, &info));
      EXPECT_EQ(buffer.view(), "abc");
    }
  }
  buffer.Release();
  EXPECT_EQ(buffer.capacity(), 0u);
  EXPECT_TRUE(buffer.view().empty());
}

TEST_F(PosixEnvTest, AHeldDirectoryIsReadByNameAndOnlyOnItsThread) {
  const std::string top = dir.Sub("top");
  ASSERT_TRUE(env->MakeDirectory(top));
  ASSERT_TRUE(env->MakeDirectory(top + "/sub"));
  ASSERT_TRUE(WriteWholeFileAtomic(env, top + "/a", "outer"));
  ASSERT_TRUE(WriteWholeFileAtomic(env, top + "/sub/b", "inner"));
  ReadBuffer buffer;
  FileInfo info;
  const auto read = [&](const std::string& path) {
    return env->ReadFileWhole(path, ShareMode::kShareReadWrite, &buffer, &info)
               ? std::string(buffer.view())
               : "error " + std::to_string(LastError());
  };
  int handle = -1;
  {
    const HeldDirectory held(top + "/");
    EXPECT_STREQ(HeldDirectory::NameInHeld(top + "/a", &handle), "a");
    for (const std::string& other : {top + "/sub/b", top + "/..", top + "/", top, dir.Sub("a")})
      EXPECT_EQ(HeldDirectory::NameInHeld(other, &handle), nullptr) << other;
    std::thread([&] { EXPECT_EQ(HeldDirectory::NameInHeld(top + "/a", &handle), nullptr); }).join();
    {
      const HeldDirectory inner(top + "/sub");
      EXPECT_STREQ(HeldDirectory::NameInHeld(top + "/sub/b", &handle), "b");
      EXPECT_EQ(HeldDirectory::NameInHeld(top + "/a", &handle), nullptr);
      EXPECT_EQ(read(top + "/a"), "outer");
    }
    EXPECT_STREQ(HeldDirectory::NameInHeld(top + "/a", &handle), "a");
    // Errors and share checks are those of a read by the whole path.
    EXPECT_EQ(read(top + "/none"), "error " + std::to_string(kErrorFileNotFound));
    EXPECT_EQ(read(top + "/sub"), "error " + std::to_string(kErrorAccessDenied));
    {
      auto writer = Open(top + "/a", ShareMode::kShareNone, true);
      ASSERT_NE(writer, nullptr);
      EXPECT_EQ(read(top + "/a"), "error " + std::to_string(kErrorSharingViolation));
    }
    EXPECT_EQ(read(top + "/sub/b"), "inner");
    // The handle, not the name, leads to the files: moved away, the
    // directory is still read.
    ASSERT_TRUE(env->RenamePath(top, dir.Sub("moved"), false));
    EXPECT_EQ(read(top + "/a"), "outer");
    EXPECT_EQ(read(top + "/sub/b"), "error " + std::to_string(kErrorPathNotFound));
  }
  EXPECT_EQ(HeldDirectory::NameInHeld(top + "/a", &handle), nullptr);
  EXPECT_EQ(read(top + "/a"), "error " + std::to_string(kErrorPathNotFound));
  // A directory that cannot be held leaves reads to the whole path.
  const HeldDirectory missing(dir.Sub("missing"));
  EXPECT_EQ(HeldDirectory::NameInHeld(dir.Sub("missing") + "/a", &handle), nullptr);
  EXPECT_EQ(read(dir.Sub("moved") + "/a"), "outer");
}

TEST(Win32ErrorTest, LastErrorIsPerThread) {
  SetLastErrorCode(32);
  std::thread([] {
    EXPECT_EQ(LastError(), 0u);
    SetLastErrorCode(5);
  }).join();
  EXPECT_EQ(LastError(), 32u);
}

}  // namespace
}  // namespace qaaisp::platform
