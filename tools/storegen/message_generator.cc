#include "storegen/message_generator.h"

#include <cctype>
#include <string>

#include "base/encoded_words.h"
#include "base/quoted_printable.h"
#include "storegen/mail_text.h"

namespace qaaisp::storegen {
namespace {

// Kinds by how often a mailbox holds them, in percent.
struct KindWeight {
  MessageKind kind;
  uint32_t percent;
};
constexpr KindWeight kKindWeights[] = {
    {MessageKind::kPlain, 25},      {MessageKind::kAlternative, 22}, {MessageKind::kMixed, 18},
    {MessageKind::kInvitation, 10}, {MessageKind::kMailingList, 12}, {MessageKind::kForward, 5},
    {MessageKind::kLegacy, 8},
};

constexpr int kZones[] = {0, 60, 120, -300, -480, 540, 330, 600};
constexpr int64_t kSecondsPerYear = 365 * 86400;

bool IsAscii(std::string_view text) {
  for (unsigned char c : text) {
    if (c >= 0x80) return false;
  }
  return true;
}

// A body line of at most about 72 characters per line, broken at blanks.
std::string Wrap(std::string_view text) {
  std::string out;
  size_t column = 0;
  size_t i = 0;
  while (i < text.size()) {
    size_t blank = text.find(' ', i);
    if (blank == std::string_view::npos) blank = text.size();
    std::string_view word = text.substr(i, blank - i);
    if (column > 0 && column + word.size() > 72) {
      out += "\r\n";
      column = 0;
    } else if (column > 0) {
      out += ' ';
      ++column;
    }
    out += word;
    column += word.size();
    i = blank + 1;
  }
  return out;
}

// The local part of an address made from a display name: Latin letters
// with their marks dropped, words joined by dots. Other scripts give
// nothing, and the caller makes up a name.
std::string AsciiLocalPart(std::string_view display) {
  static const std::pair<std::string_view, std::string_view> kFolds[] = {
      {"ä", "ae"}, {"ö", "oe"}, {"ü", "ue"}, {"ß", "ss"}, {"é", "e"}, {"è", "e"}, {"ê", "e"},
      {"ë", "e"},  {"à", "a"},  {"á", "a"},  {"ç", "c"},  {"ñ", "n"}, {"í", "i"}, {"ï", "i"},
      {"ó", "o"},  {"ł", "l"},  {"Ł", "l"},  {"ś", "s"},  {"ż", "z"}, {"Ż", "z"}, {"ź", "z"},
      {"ń", "n"},  {"ć", "c"},  {"ą", "a"},  {"ę", "e"},  {"Í", "i"}, {"É", "e"}, {"Ü", "ue"},
  };
  std::string local;
  for (size_t i = 0; i < display.size();) {
    const unsigned char c = static_cast<unsigned char>(display[i]);
    if (std::isalpha(c)) {
      local += static_cast<char>(std::tolower(c));
      ++i;
      continue;
    }
    if (c == ' ' && !local.empty() && local.back() != '.') local += '.';
    bool folded = false;
    for (const auto& [from, to] : kFolds) {
      if (display.substr(i, from.size()) == from) {
        local += to;
        i += from.size();
        folded = true;
        break;
      }
    }
    if (!folded) ++i;
  }
  while (!local.empty() && local.back() == '.') local.pop_back();
  return local;
}

}  // namespace

GeneratedMessage MessageGenerator::Next() {
  uint32_t draw = Below(100);
  for (const KindWeight& w : kKindWeights) {
    if (draw < w.percent) return Next(w.kind);
    draw -= w.percent;
  }
  return Next(MessageKind::kPlain);
}

const Language& MessageGenerator::PickLanguage() {
  // Half the mail is English; the rest is spread over the other languages.
  std::span<const Language> all = Languages();
  if (Chance(50)) return all[0];
  return all[1 + Below(static_cast<uint32_t>(all.size() - 1))];
}

MessageGenerator::Person MessageGenerator::PickPerson(const Language& language) {
  Person p;
  p.display = std::string(Pick(language.names));
  p.language = &language;
  std::string local = AsciiLocalPart(p.display);
  if (local.size() < 3) local = "member" + std::to_string(100 + Below(900));
  p.address = local + "@" + std::string(language.domain);
  return p;
}

std::string MessageGenerator::Address(const Person& person) {
  if (IsAscii(person.display)) {
    if (person.display.find('\'') != std::string::npos) {
      return "\"" + person.display + "\" <" + person.address + ">";
    }
    return person.display + " <" + person.address + ">";
  }
  return EncodeHeaderText(person.display, person.language->charset, person.language->base64_words) +
         " <" + person.address + ">";
}

std::string MessageGenerator::Subject(const Language& language) {
  std::string subject;
  if (Chance(30)) subject = std::string(Pick(language.reply_prefixes));
  subject += Pick(language.subjects);
  return subject;
}

std::string MessageGenerator::Paragraphs(const Language& language, int sentences) {
  std::string text;
  for (int i = 0; i < sentences; ++i) {
    if (i > 0) text += (i % 3 == 0) ? "\n\n" : " ";
    text += Pick(language.sentences);
  }
  return text;
}

std::string MessageGenerator::Boundary() {
  return "----=_NextPart_" + std::to_string(serial_) + "_" + std::to_string(Below(1u << 30));
}

std::string MessageGenerator::Header(const Person& from, const Language& language, MessageKind kind,
                                     std::string_view subject) {
  const int zone = kZones[Below(sizeof kZones / sizeof kZones[0])];
  const int64_t sent = latest_date_ - Below(kSecondsPerYear);
  std::span<const std::string_view> hosts = HostNames();
  std::string h = "Return-Path: <" + from.address + ">\r\n";
  // The newest hop stands first; each earlier hop is a little older.
  const uint32_t hops = 1 + Below(3);
  int64_t hop_time = sent + 5 + Below(300);
  for (uint32_t i = 0; i < hops; ++i) {
    h += "Received: from " + std::string(Pick(hosts)) + " (" + std::string(Pick(hosts)) +
         " [192.0.2." + std::to_string(1 + Below(250)) + "])\r\n\tby " +
         std::string(hosts[i % hosts.size()]) + " with ESMTP id " +
         std::to_string(100000 + Below(900000)) + "\r\n\tfor <" + from.address + ">; " +
         MailDate(hop_time, zone, Below(4)) + "\r\n";
    hop_time -= 1 + Below(30);
  }
  h += "Message-ID: <" + std::to_string(sent) + "." + std::to_string(serial_) + "@" +
       std::string(Pick(hosts)) + ">\r\n";
  // Now and then a sender leaves out the seconds, which the standard
  // allows and not every reader copes with.
  h += "Date: " + MailDate(sent, zone, Chance(3) ? 4 : Below(4)) + "\r\n";
  h += "From: " + Address(from) + "\r\n";
  const uint32_t recipients = 1 + Below(3);
  h += "To: ";
  for (uint32_t i = 0; i < recipients; ++i) {
    if (i > 0) h += ",\r\n\t";
    h += Address(PickPerson(i == 0 ? language : PickLanguage()));
  }
  h += "\r\n";
  if (Chance(30)) h += "Cc: " + Address(PickPerson(PickLanguage())) + "\r\n";
  h += "Subject: " + EncodeHeaderText(subject, language.charset, language.base64_words) + "\r\n";
  if (kind != MessageKind::kLegacy) h += "MIME-Version: 1.0\r\n";
  h += (Chance(50) ? "X-Mailer: " : "User-Agent: ") + std::string(Pick(MailerNames())) + "\r\n";
  if (Chance(10)) {
    static const char* const kPriorities[] = {"1 (Highest)", "5 (Lowest)", "3", "0", "Normal"};
    h += std::string("X-Priority: ") + kPriorities[Below(5)] + "\r\n";
  }
  if (Chance(5)) h += "Keywords: project, follow-up\r\n";
  if (Chance(10)) {
    std::string raw(22, '\0');
    for (char& c : raw) c = static_cast<char>(Below(256));
    h += "Thread-Index: " + FoldedBase64(raw);
  }
  if (kind == MessageKind::kMailingList) {
    h += "List-Id: <announce.lists.example.org>\r\nPrecedence: list\r\n";
    h += "List-Unsubscribe: <mailto:leave-" + std::to_string(Below(10000)) +
         "@lists.example.org>,\r\n <https://lists.example.org/unsubscribe>\r\n";
  }
  // What the store itself writes into delivered files that were read.
  if (Chance(35)) h += "X-Read: 1\r\n";
  return h;
}

void MessageGenerator::TextPart(const Language& language, std::string_view text, std::string* out) {
  std::string wrapped = Wrap(text);
  std::string bytes;
  std::string charset(language.charset);
  if (IsAscii(wrapped)) {
    *out += "Content-Type: text/plain; charset=us-ascii\r\nContent-Transfer-Encoding: 7bit\r\n\r\n";
    *out += wrapped + "\r\n";
    return;
  }
  if (!ConvertCharset("UTF-8", wrapped, &bytes, charset)) {
    bytes = wrapped;
    charset = "UTF-8";
  }
  *out += "Content-Type: text/plain; charset=\"" + charset + "\"\r\n";
  if (charset == "ISO-2022-JP") {
    // Already seven bits wide.
    *out += "Content-Transfer-Encoding: 7bit\r\n\r\n" + bytes + "\r\n";
  } else if (language.base64_words || Chance(20)) {
    *out += "Content-Transfer-Encoding: base64\r\n\r\n" + FoldedBase64(bytes);
  } else {
    *out += "Content-Transfer-Encoding: quoted-printable\r\n\r\n";
    QPEncodeLines(bytes, out, kNoStop, false, 76, false, false);
    *out += "\r\n";
  }
}

void MessageGenerator::HtmlPart(std::string_view text, std::string* out) {
  std::string html = "<html><head><meta charset=\"utf-8\"></head><body>\r\n<p>";
  for (char c : EscapeHtml(text)) {
    if (c == '\n') {
      html += "</p>\r\n<p>";
    } else {
      html += c;
    }
  }
  html += "</p>\r\n</body></html>\r\n";
  *out +=
      "Content-Type: text/html; charset=\"utf-8\"\r\n"
      "Content-Transfer-Encoding: quoted-printable\r\n\r\n";
  QPEncodeLines(html, out, kNoStop, false, 76, false, false);
  *out += "\r\n";
}

void MessageGenerator::AttachmentPart(std::string* out) {
  struct Kind {
    const char* type;
    const char* stem;
    const char* extension;
    std::string_view magic;
  };
  static const Kind kKinds[] = {
      {"application/pdf", "report", "pdf", "%PDF-1.7\n"},
      {"image/png", "photo", "png", std::string_view("\x89PNG\r\n\x1a\n", 8)},
      {"application/zip", "archive", "zip", std::string_view("PK\x03\x04", 4)},
      {"application/vnd.openxmlformats-officedocument.wordprocessingml.document", "proposal",
       "docx", std::string_view("PK\x03\x04", 4)},
      {"text/csv", "figures", "csv", "region,quarter,amount\r\n"},
  };
  const Kind& kind = kKinds[Below(sizeof kKinds / sizeof kKinds[0])];
  // Mostly small, now and then a large one.
  const uint32_t size = Chance(10) ? 60000 + Below(90000) : 1500 + Below(24000);
  std::string data(kind.magic);
  data.reserve(size);
  while (data.size() < size) data += static_cast<char>(Below(256));
  const std::string year = std::to_string(2018 + Below(7));
  std::string disposition;
  switch (Below(3)) {
    case 0:
      disposition = "attachment; filename=\"" + std::string(kind.stem) + "-" + year + "." +
                    kind.extension + "\"";
      break;
    case 1:  // a parameter value with a charset, percent-encoded
      disposition =
          "attachment;\r\n filename*=UTF-8''%C3%9Cbersicht-" + year + "." + kind.extension;
      break;
    default:  // an encoded word in the parameter, as many mailers write it
      disposition = "attachment;\r\n filename=\"" +
                    EncodeHeaderText("Résumé " + year + "." + kind.extension, "UTF-8", true) + "\"";
      break;
  }
  *out += std::string("Content-Type: ") + kind.type + ";\r\n name=\"" + kind.stem + "." +
          kind.extension +
          "\"\r\nContent-Transfer-Encoding: base64\r\nContent-Disposition: " + disposition +
          "\r\n\r\n" + FoldedBase64(data);
}

}  // namespace qaaisp::storegen
