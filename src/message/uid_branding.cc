#include "message/uid_branding.h"

#include <cstdio>
#include <memory>

#include "base/store_files.h"
#include "message/message_settings.h"
#include "mime/line_source.h"
#include "mime/mime_text.h"
#include "platform/env.h"
#include "platform/folder_stamp.h"

namespace qaaisp {
namespace {

// 2014-04-01 00:00:01 UTC. Folders made before it were branded with the raw
// file time; the cut-off must never move, or their UIDs stop matching.
constexpr int64_t kUnixStampCutOff = 1396310401;

// Work files are flushed in blocks of this size.
constexpr size_t kCopyBlock = 64 * 1024;

void Print(const char* text) {
  std::fputs(text, stdout);
  std::fflush(stdout);
}

bool IsBlankLine(std::string_view line) {
  return !line.empty() && (line[0] == '\r' || line[0] == '\n');
}

// Appends to a file through one buffer; remembers whether every write went
// through.
class WorkFileWriter {
 public:
  explicit WorkFileWriter(platform::File* file) : file_(file) {}

  void Append(std::string_view bytes) {
    buffer_.append(bytes);
    if (buffer_.size() >= kCopyBlock) Flush();
  }
  bool Flush() {
    if (ok_ && !buffer_.empty()) {
      ok_ = file_->WriteAt(offset_, buffer_.data(), buffer_.size());
      offset_ += buffer_.size();
    }
    buffer_.clear();
    return ok_;
  }

 private:
  platform::File* file_;
  std::string buffer_;
  uint64_t offset_ = 0;
  bool ok_ = true;
};

struct MessagePaths {
  MessagePaths(const std::string& folder, const std::string& file)
      : message(folder + "/" + file), work(folder + "/_" + file) {}
  std::string message;
  std::string work;
};

std::unique_ptr<platform::File> OpenForInput(platform::Env* env, const std::string& path) {
  std::unique_ptr<platform::File> file = env->OpenFile(path, platform::OpenOptions{});
  if (!file) Print(kCannotOpenForInput);
  return file;
}

std::unique_ptr<platform::File> OpenWorkFile(platform::Env* env, const std::string& path) {
  platform::OpenOptions options;
  options.write = true;
  options.disposition = platform::OpenDisposition::kCreateAlways;
  return env->OpenFile(path, options);
}

// The work file takes the message's place in one rename, so that a process
// killed at any moment leaves the message under its own name, old or new.
// Should the rename fail, the work file stays.
void ReplaceMessage(platform::Env* env, const MessagePaths& paths) {
  env->RenamePath(paths.work, paths.message, /*replace=*/true);
}

void CopyRest(mime::LineSource* lines, WorkFileWriter* writer) {
  std::string_view line;
  while (lines->ReadLine(&line)) writer->Append(line);
}

}  // namespace

uint32_t GetFolderStamp(const std::string& folder) {
  platform::FileTime created;
  if (!platform::FolderCreationTime(platform::Env::Default(), folder, files::kFolderStampFile,
                                    &created)) {
    return 0;
  }
  const int64_t unix_seconds = platform::UnixSecondsFromFileTime(created);
  if (unix_seconds < kUnixStampCutOff) return created.low;
  return static_cast<uint32_t>(unix_seconds);
}

std::string UidLine(uint32_t stamp, uint32_t uid) {
  char line[48];
  if (stamp != 0) {
    std::snprintf(line, sizeof line, "X-UID: %u.%u\r\n", stamp, uid);
  } else {
    std::snprintf(line, sizeof line, "X-UID: %u\r\n", uid);
  }
  return line;
}

void BrandMessageUID(const std::string& folder, const std::string& file, uint32_t stamp,
                     uint32_t uid) {
  if (!UidBrandingSetting()) return;
  platform::Env* env = platform::Env::Default();
  const MessagePaths paths(folder, file);
  std::unique_ptr<platform::File> input = OpenForInput(env, paths.message);
  if (!input) return;
  std::unique_ptr<platform::File> output = OpenWorkFile(env, paths.work);
  if (!output) {
    // The message goes even though there is no copy: this path has always
    // done so, and callers rely on the file being gone afterwards.
    Print(kCannotOpenForWriting);
    input.reset();
    env->RemoveFile(paths.message);
    env->RenamePath(paths.work, paths.message, /*replace=*/false);
    return;
  }
  const std::string uid_line = UidLine(stamp, uid);
  WorkFileWriter writer(output.get());
  bool written;
  {
    mime::LineSource lines(std::move(input));
    std::string_view line;
    bool seen = false;
    while (lines.ReadLine(&line)) {
      if (IsBlankLine(line)) {
        if (!seen) writer.Append(uid_line);
        writer.Append(line);
        break;
      }
      if (mime::StartsWithNoCase(line, "X-UID: ")) {
        writer.Append(uid_line);
        seen = true;
      } else {
        writer.Append(line);
      }
    }
    CopyRest(&lines, &writer);
    written = writer.Flush();
  }  // both files are closed before the message is replaced
  output.reset();
  if (!written) {
    // A short copy must never replace the message.
    env->RemoveFile(paths.work);
    return;
  }
  ReplaceMessage(env, paths);
}

int MessageHasTempFlags(const std::string& folder, const std::string& file) {
  if (!UidBrandingSetting()) return 0;
  platform::Env* env = platform::Env::Default();
  std::unique_ptr<platform::File> input = OpenForInput(env, folder + "/" + file);
  if (!input) return 0;
  mime::LineSource lines(std::move(input));
  std::string_view line;
  while (lines.ReadLine(&line) && !IsBlankLine(line)) {
    if (mime::StartsWithNoCase(line, "X-QATempFlags: ")) return 1;
  }
  return 0;
}

void RebrandMessage(const std::string& folder, const std::string& file, uint32_t stamp,
                    uint32_t uid) {
  if (!UidBrandingSetting()) return;
  platform::Env* env = platform::Env::Default();
  const MessagePaths paths(folder, file);
  std::unique_ptr<platform::File> input = OpenForInput(env, paths.message);
  if (!input) return;
  std::unique_ptr<platform::File> output = OpenWorkFile(env, paths.work);
  if (!output) {
    Print(kCannotOpenForWriting);
    input.reset();
    env->RemoveFile(paths.work);
    return;
  }
  WorkFileWriter writer(output.get());
  bool left_out = false;
  bool written = true;
  {
    mime::LineSource lines(std::move(input));
    std::string_view line;
    // The header is held back until its end says whether anything was left
    // out: a file with nothing to strip keeps its bytes, and its copy is
    // thrown away unwritten.
    std::string header;
    while (lines.ReadLine(&line)) {
      if (IsBlankLine(line)) {
        if (!left_out) header.append(UidLine(stamp, uid));
        header.append(line);
        break;
      }
      if (mime::StartsWithNoCase(line, "X-UID: ") ||
          mime::StartsWithNoCase(line, "X-QATempFlags: ")) {
        left_out = true;
      } else {
        header.append(line);
      }
    }
    if (left_out) {
      writer.Append(header);
      CopyRest(&lines, &writer);
      written = writer.Flush();
    }
  }
  output.reset();
  if (left_out && written) {
    ReplaceMessage(env, paths);
  } else {
    env->RemoveFile(paths.work);
  }
}

}  // namespace qaaisp
