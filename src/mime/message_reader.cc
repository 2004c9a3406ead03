#include "mime/message_reader.h"

#include "base/base64.h"
#include "base/encoded_words.h"
#include "base/quoted_printable.h"
#include "mime/mime_header.h"
#include "mime/mime_text.h"

namespace qaaisp {
namespace {

using mime::EqualsNoCase;

constexpr size_t kEncodedLineWidth = 72;

// Bare LF line ends become CRLF; existing CRLF stay as they are.
std::string NormaliseLineEnds(std::string_view text) {
  size_t bare = 0;
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '\n' && (i == 0 || text[i - 1] != '\r')) ++bare;
  }
  std::string out;
  out.reserve(text.size() + bare);
  size_t pos = 0;
  while (pos < text.size()) {
    size_t lf = text.find('\n', pos);
    if (lf == std::string_view::npos) {
      out.append(text.substr(pos));
      break;
    }
    out.append(text.substr(pos, lf - pos));
    if (lf == 0 || text[lf - 1] != '\r') out.push_back('\r');
    out.push_back('\n');
    pos = lf + 1;
  }
  return out;
}

bool AddPart(std::vector<MessagePart>* list, MessagePart part) {
  list->push_back(std::move(part));
  return list->size() <= kMaxMessageParts;
}

}  // namespace

MessageReader::MessageReader(std::string_view text_or_path, bool is_file, bool normalise_line_ends,
                             bool parse_now, platform::Env* env) {
  if (is_file) {
    if (!env) env = platform::Env::Default();
    loaded_ = platform::ReadWholeFile(env, std::string(text_or_path), &message_);
    if (!loaded_) message_.clear();
  } else {
    message_.assign(text_or_path);
  }
  Load(normalise_line_ends, parse_now);
}

void MessageReader::DetectLineEnds() {
  blank_line_ = mime::Find(message_, "\r\n\r\n");
  bool crlf = blank_line_ != std::string_view::npos;
  if (!crlf) {
    size_t lf_blank = mime::Find(message_, "\n\n");
    if (lf_blank != std::string_view::npos) {
      blank_line_ = lf_blank;
    } else {
      // No blank line at all: go by the first line end.
      size_t lf = message_.find('\n');
      crlf = lf != std::string::npos && lf > 0 && message_[lf - 1] == '\r';
    }
  }
  separator_ = crlf ? "\r\n\r\n" : "\n\n";
  line_end_ = crlf ? "\r\n" : "\n";
  separator_length_ = static_cast<uint32_t>(separator_.size());
  line_end_length_ = static_cast<uint32_t>(line_end_.size());
}

void MessageReader::Load(bool normalise_line_ends, bool parse_now) {
  DetectLineEnds();
  if (normalise_line_ends && line_end_length_ == 1 && message_.find('\n') != std::string::npos) {
    message_ = NormaliseLineEnds(message_);
    DetectLineEnds();
  }
  std::string_view text = message_;
  if (blank_line_ == std::string_view::npos) {
    header_ = text;
    body_ = text.substr(text.size());
  } else {
    header_ = text.substr(0, blank_line_);
    body_ = text.substr(blank_line_ + separator_length_);
  }
  if (!parse_now) return;
  header_part_.HeaderText.assign(header_);
  ReadHeaderFields(header_, &header_part_, line_end_);
  main_part_ = header_part_;
  main_part_.Body.assign(body_);
  main_part_.BodyLength = static_cast<int32_t>(body_.size());
  main_part_.Number = 1;
  ParseParts();
}

bool MessageReader::HasMimeVersion() const {
  std::string value;
  return GetHeaderValue(header_, kNoHeaderEnd, "MIME-Version", &value, line_end_, true);
}

int MessageReader::ParseParts() {
  if (parts_made_) return 1;
  parts_made_ = true;
  size_t cursor = 0;
  int counter = 0;
  bool nested = false;
  return ParseStructure(&parts_, &cursor, nullptr, &counter, false, &nested);
}

int MessageReader::ParseFullStructure() {
  if (structure_made_) return 1;
  structure_made_ = true;
  size_t cursor = 0;
  int counter = 0;
  bool nested = false;
  return ParseStructure(&structure_, &cursor, nullptr, &counter, true, &nested);
}

int MessageReader::ParseStructure(std::vector<MessagePart>* list, size_t* cursor,
                                  const MessagePart* parent, int* part_counter, bool keep_structure,
                                  bool* nested) const {
  return ParseLevel(list, cursor, parent, part_counter, keep_structure, nested, 0);
}

int MessageReader::ParseLevel(std::vector<MessagePart>* list, size_t* cursor,
                              const MessagePart* parent, int* part_counter, bool keep_structure,
                              bool* nested, int depth) const {
  const std::string_view text = message_;
  if (*cursor > text.size()) *cursor = text.size();
  std::string delimiter;
  std::string line_delimiter;
  if (parent) {
    if (depth > kMaxMultipartDepth) return 0;
    delimiter = "--" + parent->Boundary;
    line_delimiter = "\r\n" + delimiter;
    size_t at = mime::Find(text, delimiter, *cursor);
    if (at == std::string_view::npos) return 0;
    if (keep_structure && at > *cursor) {
      MessagePart preamble;
      preamble.Kind = kPartPreamble;
      preamble.ParentBoundary = parent->Boundary;
      preamble.Body.assign(text.substr(*cursor, at - *cursor));
      preamble.BodyLength = static_cast<int32_t>(preamble.Body.size());
      if (!AddPart(list, std::move(preamble))) return 0;
    }
    *cursor = mime::NextLine(text, at + delimiter.size());
  }

  while (true) {
    MessagePart part;
    if (*cursor < text.size() && text[*cursor] == '\r') {
      // No header: the blank line comes first.
      part.ContentType = "text/plain";
      *cursor = mime::NextLine(text, *cursor);
    } else {
      size_t body = 0;
      if (!ReadPartHeader(text.substr(*cursor), &body, &part)) return 0;
      *cursor += body;
    }
    if (parent) part.ParentBoundary = parent->Boundary;

    const bool container = mime::FindNoCase(part.ContentType, "multipart/") != std::string::npos;
    if (container) {
      *nested = true;
      part.Number = ++*part_counter;
      part.Kind = kPartContainer;
      if (keep_structure && !AddPart(list, part)) return 0;
      if (!ParseLevel(list, cursor, &part, part_counter, keep_structure, nested, depth + 1)) {
        return 0;
      }
    }

    if (!parent) {
      // The top part takes the rest of the text.
      part.Number = ++*part_counter;
      part.Body.assign(text.substr(*cursor));
      part.BodyLength = static_cast<int32_t>(part.Body.size());
      *cursor = text.size();
      if (!*nested || (part.Boundary.empty() && part.ContentId.empty())) {
        if (!container) part.Kind = kPartLeaf;
        return AddPart(list, std::move(part)) ? 1 : 0;
      }
      if (keep_structure) return AddPart(list, std::move(part)) ? 1 : 0;
      return 1;
    }

    size_t body_end;
    size_t behind;
    if (text.substr(*cursor).starts_with(delimiter)) {
      body_end = *cursor;
      behind = *cursor + delimiter.size();
    } else {
      size_t at = mime::Find(text, line_delimiter, *cursor);
      if (at == std::string_view::npos) return 0;
      body_end = at;
      behind = at + line_delimiter.size();
    }
    if (!container) {
      part.Number = ++*part_counter;
      part.Body.assign(text.substr(*cursor, body_end - *cursor));
      part.BodyLength = static_cast<int32_t>(part.Body.size());
      if (!AddPart(list, std::move(part))) return 0;
    }
    if (text.substr(behind).starts_with("--")) {
      if (keep_structure) {
        MessagePart closing;
        closing.Kind = kPartClosingBoundary;
        closing.ParentBoundary = parent->Boundary;
        closing.Body = delimiter + "--";
        closing.BodyLength = static_cast<int32_t>(closing.Body.size());
        if (!AddPart(list, std::move(closing))) return 0;
      }
      *cursor = behind + 2;
      return 1;
    }
    *cursor = mime::NextLine(text, behind);
  }
}

bool DecodePart(MessagePart* part, std::string* out, bool decode, std::string_view target_charset) {
  bool ok = true;
  if (decode) {
    if (EqualsNoCase(part->TransferEncoding, "quoted-printable")) {
      size_t length = 0;
      QPDecode(part->Body, part->Body.data(), part->Body.size(), &length, false);
      part->Body.resize(length);
      part->TransferEncoding.clear();
    } else if (EqualsNoCase(part->TransferEncoding, "base64")) {
      std::string decoded;
      if (Base64DecodeToString(part->Body, &decoded)) {
        part->Body = std::move(decoded);
      } else {
        ok = false;
      }
      part->TransferEncoding.clear();
    } else if (EqualsNoCase(part->TransferEncoding, "x-uuencode")) {
      // Recognised, but left as it is.
    }
  }
  if (!target_charset.empty() && !part->Charset.empty()) {
    std::string converted;
    ConvertCharset(part->Charset, part->Body, &converted, target_charset);
    part->Body = std::move(converted);
    part->Charset.assign(target_charset);
  }
  *out = part->Body;
  return ok;
}

int GetBodyOfType(MessageReader* reader, std::string* out, std::string_view content_type,
                  bool decode, std::string_view target_charset) {
  out->clear();
  if (reader->parts().empty()) reader->ParseParts();
  for (MessagePart& part : reader->parts()) {
    if (part.Kind == kPartLeaf && EqualsNoCase(part.ContentType, content_type)) {
      return DecodePart(&part, out, decode, target_charset) ? 1 : 0;
    }
  }
  // A message without MIME structure is one plain text.
  if (EqualsNoCase(content_type, "text/plain") && !reader->HasMimeVersion()) {
    out->assign(reader->body());
    return 1;
  }
  return 0;
}

bool ChangeTransferEncoding(std::string* body, std::string_view from_encoding,
                            std::string_view to_encoding) {
  std::string decoded;
  if (from_encoding.empty() || EqualsNoCase(from_encoding, "7bit") ||
      EqualsNoCase(from_encoding, "8bit") || EqualsNoCase(from_encoding, "binary")) {
    decoded = *body;
  } else if (EqualsNoCase(from_encoding, "base64")) {
    if (!Base64DecodeToString(*body, &decoded)) return false;
  } else if (EqualsNoCase(from_encoding, "quoted-printable")) {
    decoded = QPDecode(*body);
  } else {
    return false;
  }

  if (EqualsNoCase(to_encoding, "base64")) {
    std::string encoded = Base64EncodeToString(decoded);
    std::string lines;
    lines.reserve(encoded.size() + encoded.size() / kEncodedLineWidth * 2 + 2);
    for (size_t pos = 0; pos < encoded.size(); pos += kEncodedLineWidth) {
      if (pos > 0) lines.append("\r\n");
      lines.append(encoded, pos, kEncodedLineWidth);
    }
    *body = std::move(lines);
  } else if (EqualsNoCase(to_encoding, "quoted-printable")) {
    std::string encoded;
    QPEncodeLines(decoded, &encoded, kNoStop, false, static_cast<int>(kEncodedLineWidth), false,
                  false);
    *body = std::move(encoded);
  } else {
    *body = std::move(decoded);
  }
  return true;
}

}  // namespace qaaisp
