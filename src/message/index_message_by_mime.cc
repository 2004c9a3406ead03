// The MIME reader of the header indexer: the whole file in memory, its
// header split into decoded fields, and a walk over its parts for
// attachments and calendar classes.
#include <cstdint>
#include <cstring>
#include <optional>
#include <string>

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

  platform::ReadBuffer file;
  std::u16string wide;
  std::string value;
  std::string joined;  // a subject whose words are joined
  std::string content_type;
  LeafWalkBuffers walk;

  void Trim() {
    if (file.capacity() > kKeptCapacity) file.Release();
  }
};

MimeScratch& Scratch() {
  thread_local MimeScratch scratch;
  return scratch;
}

bool ReadMessageFile(const std::string& path, platform::ReadBuffer* text,
                     platform::FileTime* write_time) {
  platform::FileInfo info;
  if (!platform::Env::Default()->ReadFileWhole(path, platform::ShareMode::kShareReadWrite, text,
                                               &info)) {
    return false;
  }
  *write_time = info.write_time;
  return true;
}

// Wide header values become UTF-8 without a converter: plain ASCII, the
// common case, as it stands, and any other text free of surrogates by the
// encoding's fixed rule. Surrogates, paired or not, go to the converter,
// which decides what a lone one becomes.
void ToUtf8(const std::u16string& wide, std::string* out) {
  // At most three bytes a unit, written in place and cut to size after.
  out->resize(wide.size() * 3);
  char* const begin = out->data();
  char* at = begin;
  for (char16_t c : wide) {
    if (c >= 0xD800 && c < 0xE000) {
      out->clear();
      WideToNarrow(wide, out, kUtf8CodePage);
      return;
    }
    if (c < 0x80) {
      *at++ = static_cast<char>(c);
    } else if (c < 0x800) {
      *at++ = static_cast<char>(0xC0 | (c >> 6));
      *at++ = static_cast<char>(0x80 | (c & 0x3F));
    } else {
      *at++ = static_cast<char>(0xE0 | (c >> 12));
      *at++ = static_cast<char>(0x80 | ((c >> 6) & 0x3F));
      *at++ = static_cast<char>(0x80 | (c & 0x3F));
    }
  }
  out->resize(static_cast<size_t>(at - begin));
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

// The header fields the indexer keeps.
enum class Field {
  kNone,
  kTo,
  kThreadIndex,
  kSubject,
  kSender,
  kCc,
  kContentType,
  kReplyTo,
  kReceived,
  kKeywords,
  kFrom,
  kXRead,
  kClass,
  kTempFlags,
  kPriority,
  kDate,
  kListUnsubscribe,
  kMessageId,
};

Field Classify(std::string_view name) {
  if (name.empty()) return Field::kNone;
  switch (mime::LowerAscii(name[0])) {
    case 't':
      if (EqualsNoCase(name, "to")) return Field::kTo;
      if (EqualsNoCase(name, "thread-index")) return Field::kThreadIndex;
      return Field::kNone;
    case 's':
      if (EqualsNoCase(name, "subject")) return Field::kSubject;
      if (EqualsNoCase(name, "sender")) return Field::kSender;
      return Field::kNone;
    case 'c':
      if (EqualsNoCase(name, "cc")) return Field::kCc;
      if (EqualsNoCase(name, "content-type")) return Field::kContentType;
      return Field::kNone;
    case 'r':
      if (EqualsNoCase(name, "reply-to")) return Field::kReplyTo;
      if (EqualsNoCase(name, "received")) return Field::kReceived;
      return Field::kNone;
    case 'k':
      return EqualsNoCase(name, "keywords") ? Field::kKeywords : Field::kNone;
    case 'f':
      return EqualsNoCase(name, "from") ? Field::kFrom : Field::kNone;
    case 'x':
      if (EqualsNoCase(name, "x-read")) return Field::kXRead;
      if (EqualsNoCase(name, "x-qa-class")) return Field::kClass;
      if (EqualsNoCase(name, "x-qatempflags")) return Field::kTempFlags;
      if (EqualsNoCase(name, "x-priority")) return Field::kPriority;
      return Field::kNone;
    case 'd':
      return EqualsNoCase(name, "date") ? Field::kDate : Field::kNone;
    case 'l':
      return EqualsNoCase(name, "list-unsubscribe") ? Field::kListUnsubscribe : Field::kNone;
    case 'm':
      return EqualsNoCase(name, "message-id") ? Field::kMessageId : Field::kNone;
    default:
      return Field::kNone;
  }
}

// The value as the header reader decodes it, in UTF-8. Most values are
// plain ASCII with no encoded word, which decode to themselves.
// Eight bytes at a time: header values are mostly tens of bytes long.
bool IsAsciiText(std::string_view text) {
  const char* p = text.data();
  size_t n = text.size();
  for (; n >= 8; p += 8, n -= 8) {
    uint64_t word;
    std::memcpy(&word, p, 8);
    if (word & 0x8080808080808080ull) return false;
  }
  for (; n > 0; ++p, --n) {
    if (static_cast<unsigned char>(*p) >= 0x80) return false;
  }
  return true;
}

// A plain value is its own decoding and is given back as it stands; any
// other is decoded into scratch->value.
std::string_view DecodeValue(std::string_view raw, MimeScratch* scratch) {
  if (IsAsciiText(raw) && raw.find("=?") == std::string_view::npos) return raw;
  WordDecodeOptions decode;
  decode.join_adjacent = true;
  DecodeWords(raw, &scratch->wide, decode);
  ToUtf8(scratch->wide, &scratch->value);
  return scratch->value;
}

void ApplyField(Field field, std::string_view value, MessageHeaderInfo* info,
                MimeScratch* scratch) {
  switch (field) {
    case Field::kTo:
      info->To = value;
      return;
    case Field::kThreadIndex:
      info->Thread = value;
      return;
    case Field::kSubject:
      // Only a value that still holds a word's end has words to join.
      if (value.find("?=") != std::string_view::npos) {
        scratch->joined.assign(value);
        JoinEncodedWords(&scratch->joined);
        value = scratch->joined;
      }
      SetBounded(&info->Subject, value, kSubjectFieldSize);
      return;
    case Field::kSender:
      SetBounded(&info->Sender, value, kSenderFieldSize);
      return;
    case Field::kCc:
      info->Cc = value;
      return;
    case Field::kContentType:
      scratch->content_type = value;
      return;
    case Field::kReplyTo:
      SetBounded(&info->ReplyTo, value, kReplyToFieldSize);
      return;
    case Field::kReceived: {
      // The first Received header is the newest hop; its date follows "; ".
      const size_t at = value.find("; ");
      if (at != std::string_view::npos) NormaliseDateInto(value.substr(at + 2), &info->Received);
      return;
    }
    case Field::kKeywords:
      info->Keywords = value;
      return;
    case Field::kFrom:
      SetBounded(&info->From, value, kFromFieldSize);
      return;
    case Field::kXRead:
      // Seen, but Read stays 0 in this reader.
      if (value == "1") info->AddFlag("SEEN");
      return;
    case Field::kClass:
      SetBounded(&info->Class, value, kClassFieldSize);
      return;
    case Field::kTempFlags:
      info->Flags = value;
      return;
    case Field::kPriority:
      info->Importance = LeadingDecimal(value);
      if (info->Importance < 1) info->Importance = 3;
      return;
    case Field::kDate:
      NormaliseDateInto(value, &info->MessageDate);
      return;
    case Field::kListUnsubscribe:
      info->AddFlag("$IsMailingList");
      return;
    case Field::kMessageId:
      SetBounded(&info->MessageId, value, kMessageIdFieldSize);
      return;
    case Field::kNone:
      return;
  }
}

// Attachments by disposition, and the class of a calendar part when the
// header gave none.
class LeafFacts : public LeafVisitor {
 public:
  explicit LeafFacts(MessageHeaderInfo* info) : info_(info) {}

  void Visit(const LeafView& leaf) override {
    if (HoldsNoCase(leaf.disposition, "attachment")) info_->Attachments = 1;
    if (!info_->Class.empty() || !HoldsNoCase(leaf.content_type, "text/calendar")) return;
    // The method is a parameter, so the part's whole Content-Type is read.
    std::string content_type;
    GetHeaderValue(leaf.header, kNoHeaderEnd, "Content-Type", &content_type);
    // Only a reply's class depends on the body (the attendee's answer), so
    // no other method costs a decode of it.
    std::string text;
    if (!HoldsNoCase(content_type, "REQUEST") && HoldsNoCase(content_type, "REPLY")) {
      MessagePart part;
      ReadHeaderFields(leaf.header, &part);
      part.Body.assign(leaf.body);
      DecodePart(&part, &text, true);
    }
    ApplyCalendarClass(content_type, text, info_);
  }

 private:
  MessageHeaderInfo* info_;
};

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
  if (file_size) *file_size = scratch.file.view().size();

  // Nearly every message already has CRLF line ends; the others go through
  // the reader's own normalisation.
  std::optional<MessageReader> normalised;
  std::string_view message = scratch.file.view();
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

  scratch.content_type.clear();
  HeaderFieldReader fields(header);
  std::string_view name;
  // The walk below reads the top header's part fields where this loop
  // found them.
  KnownTopHeader top;
  if (!normalised) top.blank = blank;
  // Only the values of the fields kept are put together.
  while (fields.NextName(&name)) {
    if (mime::LowerAscii(name[0]) == 'c') NoteTopField(header, name, &top);
    const Field field = Classify(name);
    if (field == Field::kNone) continue;
    // Only the first Received that carries a date counts.
    if (field == Field::kReceived && !info->Received.empty()) continue;
    // A List-Unsubscribe counts by being there.
    const std::string_view value = field == Field::kListUnsubscribe
                                       ? std::string_view()
                                       : DecodeValue(fields.Value(), &scratch);
    ApplyField(field, value, info, &scratch);
  }
  if (info->From.empty()) info->From = kUnknownSender;
  if (info->Received.empty()) info->Received = info->MessageDate;

  if (!scratch.content_type.empty()) ApplyCalendarClass(scratch.content_type, body, info);
  LeafFacts facts(info);
  top.fields_known = !normalised && !fields.stopped_at_empty_line();
  WalkMessageLeaves(message, &facts, top, &scratch.walk);
  scratch.Trim();
  return 1;
}

}  // namespace qaaisp
