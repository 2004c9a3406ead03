// The line reader of the header indexer: reads the header line by line, as
// stores indexed by it expect, with no decoding. Its quirks (the line limit,
// "Keywords" only on a line of its own, the choice that branding makes) are
// kept on purpose: rows it made before must come out the same again.
#include <algorithm>
#include <memory>

#include "base/dates.h"
#include "message/message_index.h"
#include "message/message_settings.h"
#include "mime/line_source.h"
#include "mime/mime_text.h"
#include "platform/env.h"

namespace qaaisp {
namespace {

using mime::StartsWithNoCase;

// The field that a folded line (one that starts with a blank or a tab)
// continues.
enum class Folded { kNone, kTo, kCc, kKeywords, kReplyTo, kSender, kSubject, kFrom };

bool IsHeaderEnd(std::string_view line) {
  return !line.empty() && (line[0] == '\r' || line[0] == '\n');
}

std::string_view StripLineEnd(std::string_view line) {
  while (!line.empty() && (line.back() == '\n' || line.back() == '\r')) line.remove_suffix(1);
  return line;
}

// The value behind a name of the given length, without leading blanks.
std::string_view ValueAfter(std::string_view line, size_t name_length) {
  std::string_view value = line.substr(name_length);
  while (!value.empty() && mime::IsBlank(value.front())) value.remove_prefix(1);
  return value;
}

// A decimal number as the C library reads an unsigned long of 32 bits:
// leading blanks, digits, saturated on overflow.
uint32_t ReadUnsigned(std::string_view text) {
  size_t i = 0;
  while (i < text.size() && mime::IsBlank(text[i])) ++i;
  uint64_t value = 0;
  for (; i < text.size() && text[i] >= '0' && text[i] <= '9'; ++i) {
    value = value * 10 + static_cast<uint64_t>(text[i] - '0');
    if (value > 0xFFFFFFFFull) return 0xFFFFFFFFu;
  }
  return static_cast<uint32_t>(value);
}

class HeaderLineReader {
 public:
  HeaderLineReader(mime::LineSource* lines, MessageHeaderInfo* info, uint32_t branding,
                   int attachment_mode, bool ignore_read)
      : lines_(lines),
        info_(info),
        branding_(branding),
        attachment_mode_(attachment_mode),
        ignore_read_(ignore_read) {}

  void ReadHeader() {
    std::string_view raw;
    while (line_count_ < kMaxHeaderLines && NextLine(&raw)) {
      if (IsHeaderEnd(raw)) break;
      Line(StripLineEnd(raw));
      if (ended_) break;
    }
    const size_t blank = info_->Header.find("\r\n\r\n");
    if (blank != std::string::npos) info_->Header.resize(blank);
    if (has_attach_) info_->Attachments = 1;
    if (!from_seen_ && info_->From.empty()) info_->From = kUnknownSender;
  }

  // A header that promised attachments is held to the body's parts.
  void VerifyAttachments() {
    if (info_->Attachments != 1 || attachment_mode_ != kAttachmentsVerified) return;
    std::string_view line;
    while (lines_->ReadLine(&line)) {
      if (StartsWithNoCase(line, "Content-Disposition: attachment")) return;
    }
    info_->Attachments = 0;
  }

 private:
  bool NextLine(std::string_view* raw) {
    if (!lines_->ReadLine(raw)) return false;
    ++line_count_;
    info_->Header.append(*raw);
    return true;
  }

  void Line(std::string_view line) {
    if (line.empty()) return;
    if (mime::IsBlank(line[0])) {
      Continuation(line);
      return;
    }
    folded_ = Folded::kNone;
    Addresses(line);
    if (!ignore_read_ && StartsWithNoCase(line, "X-Read: 1")) {
      info_->Read = 1;
      info_->AddFlag("SEEN");
    }
    if (branding_ == 0) {
      MessageData(line);
      AttachmentHints(line);
    } else if (StartsWithNoCase(line, "X-UID: ")) {
      BrandedUid(ValueAfter(line, 7));
    }
    Dates(line);
  }

  void Continuation(std::string_view line) {
    switch (folded_) {
      case Folded::kTo:
        info_->To.append(line.substr(1));
        break;
      case Folded::kCc:
        info_->Cc.append(line.substr(1));
        break;
      case Folded::kKeywords:
        info_->Keywords.append(line);
        break;
      case Folded::kReplyTo:
        AppendBounded(&info_->ReplyTo, line.substr(1), kReplyToFieldSize);
        break;
      case Folded::kSender:
      case Folded::kFrom:
        AppendBounded(&info_->From, line.substr(1), kFromFieldSize);
        break;
      case Folded::kSubject: {
        // A folded run of encoded words joins without the blank.
        const std::string& subject = info_->Subject;
        const bool after_word = subject.size() >= 3 && subject.ends_with("?=");
        AppendBounded(&info_->Subject, after_word ? line.substr(1) : line, kSubjectFieldSize);
        break;
      }
      case Folded::kNone:
        break;
    }
  }

  void Addresses(std::string_view line) {
    if (StartsWithNoCase(line, "To:")) {
      info_->To.assign(ValueAfter(line, 3));
      folded_ = Folded::kTo;
    }
    if (StartsWithNoCase(line, "CC:")) {
      info_->Cc.assign(ValueAfter(line, 3));
      folded_ = Folded::kCc;
    }
    // Compared with the terminator: only a line with nothing behind the
    // colon matches, so keywords on the name's own line are not read.
    if (line.size() == 9 && StartsWithNoCase(line, "Keywords:")) {
      info_->Keywords.clear();
      folded_ = Folded::kKeywords;
    }
    if (StartsWithNoCase(line, "reply-to:")) {
      SetBounded(&info_->ReplyTo, ValueAfter(line, 9), kReplyToFieldSize);
      folded_ = Folded::kReplyTo;
    }
    if (StartsWithNoCase(line, "sender:") && info_->From.empty()) {
      SetBounded(&info_->From, ValueAfter(line, 7), kFromFieldSize);
      folded_ = Folded::kSender;
    }
    if (StartsWithNoCase(line, "Subject:")) {
      SetBounded(&info_->Subject, ValueAfter(line, 8), kSubjectFieldSize);
      folded_ = Folded::kSubject;
    }
    if (StartsWithNoCase(line, "From:")) {
      SetBounded(&info_->From, ValueAfter(line, 5), kFromFieldSize);
      from_seen_ = true;
      // It is Sender that falls back here, not From.
      if (info_->From.empty()) SetBounded(&info_->Sender, kUnknownSender, kSenderFieldSize);
      folded_ = Folded::kFrom;
    }
  }

  void MessageData(std::string_view line) {
    if (StartsWithNoCase(line, "X-QA-Class: ")) {
      SetBounded(&info_->Class, line.substr(12), kClassFieldSize);
    }
    if (StartsWithNoCase(line, "X-QATempFlags: ")) info_->Flags.assign(line.substr(15));
    if (StartsWithNoCase(line, "X-Priority: ")) {
      info_->Importance = LeadingDecimal(line.substr(12));
      if (info_->Importance < 1) info_->Importance = 3;
    }
    if (StartsWithNoCase(line, "Date: ")) NormaliseDateInto(line.substr(6), &info_->MessageDate);
    if (StartsWithNoCase(line, "Message-ID: ")) {
      SetBounded(&info_->MessageId, line.substr(12), kMessageIdFieldSize);
    }
    if (StartsWithNoCase(line, "List-Unsubscribe:")) info_->AddFlag("$IsMailingList");
  }

  void AttachmentHints(std::string_view line) {
    if (StartsWithNoCase(line, "Content-Type: ")) {
      const std::string_view type = line.substr(14);
      // A later Content-Type undoes an earlier one.
      info_->Attachments = StartsWithNoCase(type, "multipart/mixed") ||
                                   (MultipartAlternativeAttachmentsSetting() == 1 &&
                                    StartsWithNoCase(type, "multipart/alternative"))
                               ? 1
                               : 0;
    }
    if (StartsWithNoCase(line, "Content-Disposition: ") &&
        StartsWithNoCase(line.substr(21), "attachment")) {
      info_->Attachments = 1;
      attachment_mode_ = kAttachmentsAsHeaderSays;
    }
    if (StartsWithNoCase(line, "X-MS-Has-Attach: yes")) has_attach_ = true;
  }

  // "X-UID: stamp.uid" gives the UID only when the stamp is this folder's.
  void BrandedUid(std::string_view value) {
    const size_t dot = value.find('.');
    if (dot == std::string_view::npos) return;
    if (ReadUnsigned(value.substr(0, dot)) == info_->FolderStamp) {
      info_->Uid = ReadUnsigned(value.substr(dot + 1));
    }
  }

  void Dates(std::string_view line) {
    if (!info_->Received.empty()) return;
    if (StartsWithNoCase(line, "Received: ")) {
      // The date follows "; ", on this line or the next; the next line is
      // taken here and not read as a header of its own.
      size_t at = line.find("; ");
      std::string next_line;
      std::string_view raw;
      if (at == std::string_view::npos && line_count_ < kMaxHeaderLines && NextLine(&raw)) {
        if (IsHeaderEnd(raw)) {
          ended_ = true;
          return;
        }
        next_line.assign(StripLineEnd(raw));
        line = next_line;
        at = line.find("; ");
      }
      if (at != std::string_view::npos) NormaliseDateInto(line.substr(at + 2), &info_->Received);
      return;
    }
    if (StartsWithNoCase(line, "Date: ")) NormaliseDateInto(line.substr(6), &info_->Received);
  }

  mime::LineSource* lines_;
  MessageHeaderInfo* info_;
  const uint32_t branding_;
  int attachment_mode_;
  const bool ignore_read_;
  int line_count_ = 0;
  Folded folded_ = Folded::kNone;
  bool from_seen_ = false;
  bool has_attach_ = false;
  bool ended_ = false;
};

}  // namespace

int IndexMessageByLines(const std::string& path, MessageHeaderInfo* info, bool clear_flags,
                        uint32_t branding_enabled, int attachment_mode, bool ignore_read,
                        uint64_t* file_size) {
  if (clear_flags) info->Flags.clear();
  std::unique_ptr<platform::File> file =
      platform::Env::Default()->OpenFile(path, platform::OpenOptions{});
  if (!file) return 0;
  platform::FileTime write_time;
  if (file->GetWriteTime(&write_time)) info->ModifiedDate = PackedModifiedDate(write_time);
  if (file_size) *file_size = static_cast<uint64_t>(std::max<int64_t>(file->Size(), 0));
  mime::LineSource lines(std::move(file));
  HeaderLineReader reader(&lines, info, branding_enabled, attachment_mode, ignore_read);
  reader.ReadHeader();
  reader.VerifyAttachments();
  return 1;
}

int IndexMessage(const std::string& path, MessageHeaderInfo* info, bool clear_flags,
                 uint32_t branding_enabled, int attachment_mode, bool ignore_read,
                 uint64_t* file_size) {
  if (NewIndexingSetting() == 0) {
    return IndexMessageByLines(path, info, clear_flags, branding_enabled, attachment_mode,
                               ignore_read, file_size);
  }
  return IndexMessageByMime(path, info, clear_flags, branding_enabled, file_size);
}

}  // namespace qaaisp
