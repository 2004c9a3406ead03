#include "mime/mime_header.h"

#include "base/charsets.h"
#include "base/encoded_words.h"
#include "base/quoted_printable.h"
#include "mime/mime_text.h"

namespace qaaisp {
namespace {

using mime::IsBlank;
using mime::StartsWithNoCase;

// Offset of the value behind "name:" when text at pos holds the field name.
bool MatchFieldName(std::string_view text, size_t pos, std::string_view name, size_t* value) {
  std::string_view rest = text.substr(pos);
  if (rest.size() <= name.size() || rest[name.size()] != ':' || !StartsWithNoCase(rest, name)) {
    return false;
  }
  *value = pos + name.size() + 1;
  return true;
}

// Start of the field's value, or npos. Only a match that begins before limit
// counts; the value itself may run on past it.
size_t FindField(std::string_view text, std::string_view name, std::string_view line_end,
                 size_t limit) {
  size_t value = 0;
  if (limit == 0) return std::string_view::npos;
  if (MatchFieldName(text, 0, name, &value)) return value;
  if (line_end.empty()) return std::string_view::npos;
  size_t pos = 0;
  while ((pos = mime::Find(text, line_end, pos)) != std::string_view::npos && pos < limit) {
    pos += line_end.size();
    if (MatchFieldName(text, pos, name, &value)) return value;
  }
  return std::string_view::npos;
}

std::string_view BeforeSemicolon(std::string_view value) {
  size_t semi = value.find(';');
  return mime::TrimBlanks(semi == std::string_view::npos ? value : value.substr(0, semi));
}

// Reads one parameter value at pos (blanks already skipped): a quoted string
// with its escapes undone, or a token up to ";" with trailing blanks dropped.
void ReadParameterValue(std::string_view text, size_t pos, std::string* value) {
  value->clear();
  if (pos < text.size() && text[pos] == '"') {
    // Most quoted values, boundaries above all, hold no escape: taken whole.
    size_t end = pos + 1;
    while (end < text.size() && text[end] != '"' && text[end] != '\\') ++end;
    if (end == text.size() || text[end] == '"') {
      value->assign(text.substr(pos + 1, end - pos - 1));
      return;
    }
    for (++pos; pos < text.size() && text[pos] != '"'; ++pos) {
      if (text[pos] == '\\' && pos + 1 < text.size()) ++pos;
      value->push_back(text[pos]);
    }
    return;
  }
  size_t end = text.find(';', pos);
  if (end == std::string_view::npos) end = text.size();
  value->assign(mime::TrimBlanks(text.substr(pos, end - pos)));
}

// Parameters are looked for in both headers: Content-Type first for "name"
// and its pieces, Content-Disposition first for "filename".
bool FindParameter(std::string_view first, std::string_view second, std::string_view name,
                   std::string* value) {
  return GetParameter(first, name, value) || GetParameter(second, name, value);
}

std::string DecodeWordsToUtf8(std::string_view text) {
  std::u16string wide;
  DecodeWords(text, &wide, 1);
  std::string narrow;
  WideToNarrow(wide, &narrow, kUtf8CodePage);
  return narrow;
}

// A long parameter can be cut into at most this many numbered pieces; each
// piece costs a scan of the header value.
constexpr int kMaxNamePieces = 1000;

// Joins the numbered pieces "name*0", "name*1", ... of a long parameter.
// A piece with a "%" is percent-decoded; a charset named before the first
// piece's value is converted to UTF-8. Any other piece is taken unquoted as
// it stands.
std::string JoinNamePieces(std::string_view type_value, std::string_view disposition_value) {
  std::string joined;
  std::string piece;
  std::string charset;
  for (int n = 0; n < kMaxNamePieces; ++n) {
    std::string name = "name*" + std::to_string(n);
    bool extended = FindParameter(type_value, disposition_value, name + "*", &piece);
    if (!extended && !FindParameter(type_value, disposition_value, name, &piece)) break;
    if (piece.find('%') == std::string::npos) {
      joined += piece;
      continue;
    }
    std::string_view encoded = piece;
    if (n == 0 && extended) {
      size_t first = encoded.find('\'');
      size_t second = first == std::string_view::npos ? first : encoded.find('\'', first + 1);
      if (second != std::string_view::npos) {
        charset.assign(encoded.substr(0, first));
        encoded.remove_prefix(second + 1);
      }
    }
    std::string as_qp(encoded);
    for (char& c : as_qp) {
      if (c == '%') c = '=';
    }
    joined += QPDecode(as_qp);
  }
  if (charset.empty()) return joined;
  std::string converted;
  ConvertCharset(charset, joined, &converted, "UTF-8");
  return converted;
}

}  // namespace

void FindHeaderFields(std::string_view text, std::initializer_list<std::string_view> names,
                      size_t* offsets, std::string_view line_end) {
  size_t missing = names.size();
  for (size_t i = 0; i < names.size(); ++i) offsets[i] = std::string_view::npos;
  size_t pos = 0;
  while (true) {
    if (pos < text.size()) {
      const char first = mime::LowerAscii(text[pos]);
      size_t i = 0;
      for (std::string_view name : names) {
        size_t value = 0;
        if (offsets[i] == std::string_view::npos && !name.empty() &&
            mime::LowerAscii(name[0]) == first && MatchFieldName(text, pos, name, &value)) {
          offsets[i] = value;
          --missing;
        }
        ++i;
      }
    }
    if (missing == 0 || line_end.empty()) return;
    pos = mime::Find(text, line_end, pos);
    if (pos == std::string_view::npos) return;
    pos += line_end.size();
  }
}

void HeaderValueAt(std::string_view text, size_t pos, std::string* value, std::string_view line_end,
                   bool first_token_only) {
  while (pos < text.size() && IsBlank(text[pos])) ++pos;
  auto line_stop = [&](size_t from) {
    size_t stop = line_end.empty() ? std::string_view::npos : mime::Find(text, line_end, from);
    return stop == std::string_view::npos ? text.size() : stop;
  };
  size_t stop = line_stop(pos);
  if (first_token_only) {
    size_t semi = text.find(';', pos);
    if (semi != std::string_view::npos && semi < stop) stop = semi;
    while (stop > pos && IsBlank(text[stop - 1])) --stop;
    value->assign(text.substr(pos, stop - pos));
    return;
  }
  value->assign(text.substr(pos, stop - pos));
  // Continuation lines are joined with their leading white space removed.
  while (stop < text.size()) {
    size_t next = stop + line_end.size();
    if (next >= text.size() || !IsBlank(text[next])) break;
    while (next < text.size() && IsBlank(text[next])) ++next;
    stop = line_stop(next);
    value->append(text.substr(next, stop - next));
  }
}

bool GetHeaderValue(std::string_view text, size_t end, std::string_view name, std::string* value,
                    std::string_view line_end, bool first_token_only) {
  value->clear();
  size_t pos = FindField(text, name, line_end, end);
  if (pos == std::string_view::npos) return false;
  HeaderValueAt(text, pos, value, line_end, first_token_only);
  return true;
}

bool GetParameter(std::string_view text, std::string_view name, std::string* value) {
  // Parameters start behind the first ";"; quoted values may hold ";".
  size_t pos = text.find(';');
  while (pos != std::string_view::npos && pos < text.size()) {
    ++pos;
    while (pos < text.size() && (IsBlank(text[pos]) || text[pos] == '\r' || text[pos] == '\n')) {
      ++pos;
    }
    size_t attr_end = pos;
    while (attr_end < text.size() && text[attr_end] != '=' && text[attr_end] != ';') ++attr_end;
    if (attr_end >= text.size()) return false;
    if (text[attr_end] == ';') {
      pos = attr_end;
      continue;
    }
    std::string_view attribute = mime::TrimBlanks(text.substr(pos, attr_end - pos));
    size_t v = attr_end + 1;
    while (v < text.size() && IsBlank(text[v])) ++v;
    if (mime::EqualsNoCase(attribute, name)) {
      ReadParameterValue(text, v, value);
      return true;
    }
    // Skip this value, minding a quoted one.
    if (v < text.size() && text[v] == '"') {
      for (++v; v < text.size() && text[v] != '"'; ++v) {
        if (text[v] == '\\') ++v;
      }
    }
    pos = v < text.size() ? text.find(';', v) : std::string_view::npos;
  }
  return false;
}

void ReadHeaderFields(std::string_view header, MessagePart* part, std::string_view line_end) {
  std::string type_value;
  std::string disposition_value;
  size_t at[4];
  FindHeaderFields(
      header, {"Content-Type", "Content-Disposition", "Content-Transfer-Encoding", "Content-ID"},
      at, line_end);
  if (at[0] != std::string_view::npos) HeaderValueAt(header, at[0], &type_value, line_end);
  part->ContentType.assign(BeforeSemicolon(type_value));
  GetParameter(type_value, "boundary", &part->Boundary);
  GetParameter(type_value, "charset", &part->Charset);
  if (at[1] != std::string_view::npos) {
    HeaderValueAt(header, at[1], &disposition_value, line_end);
    part->Disposition.assign(BeforeSemicolon(disposition_value));
  }
  part->TransferEncoding.clear();
  if (at[2] != std::string_view::npos) {
    HeaderValueAt(header, at[2], &part->TransferEncoding, line_end, true);
  }
  if (at[3] != std::string_view::npos) {
    std::string id;
    HeaderValueAt(header, at[3], &id, line_end, true);
    std::string_view view = id;
    if (!view.empty() && view.front() == '<') view.remove_prefix(1);
    for (char c : view) {
      if (c != '>') part->ContentId.push_back(c);
    }
  }
  // File names, best first: "filename", then "name", then "name*N" pieces.
  if (!type_value.empty() || !disposition_value.empty()) {
    if (FindParameter(disposition_value, type_value, "filename", &part->FileName)) {
      part->DisplayName = part->FileName;
    }
    if (FindParameter(type_value, disposition_value, "name", &part->Name) &&
        part->DisplayName.empty()) {
      part->DisplayName = part->Name.starts_with("=?") ? DecodeWordsToUtf8(part->Name) : part->Name;
    }
    if (part->DisplayName.empty()) {
      std::string joined = JoinNamePieces(type_value, disposition_value);
      if (!joined.empty()) {
        part->DisplayName = joined;
        part->Name = std::move(joined);
      }
    }
  }
  if (part->ContentType.empty()) part->ContentType = "text/plain";
}

bool ReadPartHeader(std::string_view text, size_t* body, MessagePart* part) {
  part->Clear();
  size_t blank = mime::Find(text, "\r\n\r\n");
  std::string_view header = blank == std::string_view::npos ? text : text.substr(0, blank);
  part->HeaderText.assign(header);
  ReadHeaderFields(header, part);
  *body = blank == std::string_view::npos ? text.size() : blank + 4;
  return blank != std::string_view::npos;
}

}  // namespace qaaisp
