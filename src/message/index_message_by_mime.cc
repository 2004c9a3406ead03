// The MIME reader of the header indexer: the whole file in memory, its
// header split into decoded fields, and a walk over its parts for
// attachments and calendar classes.
#include <optional>
#include <vector>

#include "base/charsets.h"
#include "base/dates.h"
#include "base/encoded_words.h"
#include "message/message_index.h"
#include "message/message_leaf_scan.h"
#include "mime/header_fields.h"
#include "mime/message_reader.h"
#include "mime/mime_header.h"
#include "mime/mime_text.h"
#include "platform/env.h"

namespace qaaisp {
namespace {

using mime::EqualsNoCase;

// Buffers a thread keeps from one message to the next, so that a folder of
// messages costs no allocation per message once they have grown. A buffer
// grown past kKeptCapacity by a large message is given back.
struct MimeScratch {
  static constexpr size_t kKeptCapacity = 1 << 20;

  std::string file;
  std::vector<HeaderField> fields;
  std::vector<MessageLeaf> leaves;
  std::string value;
  std::string content_type;

  void Trim() {
    if (file.capacity() > kKeptCapacity) std::string().swap(file);
  }
};

MimeScratch& Scratch() {
  thread_local MimeScratch scratch;
  return scratch;
}

bool ReadMessageFile(const std::string& path, std::string* text, platform::FileTime* write_time) {
  std::unique_ptr<platform::File> file =
      platform::Env::Default()->OpenFile(path, platform::OpenOptions{});
  if (!file || !file->GetWriteTime(write_time)) return false;
  const int64_t size = file->Size();
  if (size < 0) return false;
  text->resize(static_cast<size_t>(size));
  const int64_t got = size ? file->ReadAt(0, text->data(), text->size()) : 0;
  if (got < 0) return false;
  text->resize(static_cast<size_t>(got));
  return true;
}

// Wide header values become UTF-8; plain ASCII, the common case, without a
// converter.
void ToUtf8(const std::u16string& wide, std::string* out) {
  out->clear();
  for (char16_t c : wide) {
    if (c >= 0x80) {
      out->clear();
      WideToNarrow(wide, out, kUtf8CodePage);
      return;
    }
    out->push_back(static_cast<char>(c));
  }
}

// Adjacent encoded words left undecoded still join.
void JoinEncodedWords(std::string* subject) {
  for (std::string_view gap : {"?= =?", "?=\t=?"}) {
    size_t at = 0;
    while ((at = subject->find(gap, at)) != std::string::npos) {
      subject->replace(at, gap.size(), "?==?");
      at += 2;
    }
  }
}

void ApplyField(std::string_view name, std::string& value, MessageHeaderInfo* info,
                std::string* content_type) {
  if (name.empty()) return;
  switch (mime::LowerAscii(name[0])) {
    case 't':
      if (EqualsNoCase(name, "to")) {
        info->To = value;
      } else if (EqualsNoCase(name, "thread-index")) {
        info->Thread = value;
      }
      return;
    case 's':
      if (EqualsNoCase(name, "subject")) {
        JoinEncodedWords(&value);
        SetBounded(&info->Subject, value, kSubjectFieldSize);
      } else if (EqualsNoCase(name, "sender")) {
        SetBounded(&info->Sender, value, kSenderFieldSize);
      }
      return;
    case 'c':
      if (EqualsNoCase(name, "cc")) {
        info->Cc = value;
      } else if (EqualsNoCase(name, "content-type")) {
        *content_type = value;
      }
      return;
    case 'r':
      if (EqualsNoCase(name, "reply-to")) {
        SetBounded(&info->ReplyTo, value, kReplyToFieldSize);
      } else if (EqualsNoCase(name, "received") && info->Received.empty()) {
        // The first Received header is the newest hop; its date follows "; ".
        const size_t at = value.find("; ");
        if (at != std::string::npos) {
          NormaliseDateInto(std::string_view(value).substr(at + 2), &info->Received);
        }
      }
      return;
    case 'k':
      if (EqualsNoCase(name, "keywords")) info->Keywords = value;
      return;
    case 'f':
      if (EqualsNoCase(name, "from")) SetBounded(&info->From, value, kFromFieldSize);
      return;
    case 'x':
      if (EqualsNoCase(name, "x-read")) {
        // Seen, but Read stays 0 in this reader.
        if (value == "1") info->AddFlag("SEEN");
      } else if (EqualsNoCase(name, "x-qa-class")) {
        SetBounded(&info->Class, value, kClassFieldSize);
      } else if (EqualsNoCase(name, "x-qatempflags")) {
        info->Flags = value;
      } else if (EqualsNoCase(name, "x-priority")) {
        info->Importance = LeadingDecimal(value);
        if (info->Importance < 1) info->Importance = 3;
      }
      return;
    case 'd':
      if (EqualsNoCase(name, "date")) NormaliseDateInto(value, &info->MessageDate);
      return;
    case 'l':
      if (EqualsNoCase(name, "list-unsubscribe")) info->AddFlag("$IsMailingList");
      return;
    case 'm':
      if (EqualsNoCase(name, "message-id"))
        SetBounded(&info->MessageId, value, kMessageIdFieldSize);
      return;
    default:
      return;
  }
}

// Attachments by disposition, and the class of a calendar part when the
// header gave none.
void ApplyLeaves(const std::vector<MessageLeaf>& leaves, MessageHeaderInfo* info) {
  for (const MessageLeaf& leaf : leaves) {
    if (HoldsNoCase(leaf.part.Disposition, "attachment")) info->Attachments = 1;
    if (!info->Class.empty() || !HoldsNoCase(leaf.part.ContentType, "text/calendar")) continue;
    // The method is a parameter, so the part's whole Content-Type is read.
    std::string content_type;
    GetHeaderValue(leaf.part.HeaderText, kNoHeaderEnd, "Content-Type", &content_type);
    MessagePart part = leaf.part;
    part.Body.assign(leaf.body);
    std::string text;
    DecodePart(&part, &text, true);
    ApplyCalendarClass(content_type, text, info);
  }
}

}  // namespace

int IndexMessageByMime(const std::string& path, MessageHeaderInfo* info, bool /*clear_flags*/,
                       uint32_t /*branding_enabled*/, uint64_t* file_size) {
  MimeScratch& scratch = Scratch();
  platform::FileTime write_time;
  if (!ReadMessageFile(path, &scratch.file, &write_time)) {
    scratch.Trim();
    return 0;
  }
  info->ModifiedDate = PackedModifiedDate(write_time);
  if (file_size) *file_size = scratch.file.size();

  // Nearly every message already has CRLF line ends; the others go through
  // the reader's own normalisation.
  std::optional<MessageReader> normalised;
  std::string_view message = scratch.file;
  std::string_view header;
  std::string_view body;
  const size_t blank = mime::Find(message, "\r\n\r\n");
  if (blank != std::string_view::npos) {
    header = message.substr(0, blank);
    body = message.substr(blank + 4);
  } else {
    normalised.emplace(message, false, true, false);
    message = normalised->message();
    header = normalised->header();
    body = normalised->body();
  }
  info->Header.assign(header);

  scratch.fields.clear();
  scratch.content_type.clear();
  ParseHeaderFields(header, &scratch.fields, kHeaderFieldsDecoded);
  for (const HeaderField& field : scratch.fields) {
    ToUtf8(field.value, &scratch.value);
    ApplyField(field.name, scratch.value, info, &scratch.content_type);
  }
  if (info->From.empty()) info->From = kUnknownSender;
  if (info->Received.empty()) info->Received = info->MessageDate;

  ScanMessageLeaves(message, &scratch.leaves);
  if (!scratch.content_type.empty()) ApplyCalendarClass(scratch.content_type, body, info);
  ApplyLeaves(scratch.leaves, info);
  scratch.leaves.clear();
  scratch.Trim();
  return 1;
}

}  // namespace qaaisp
