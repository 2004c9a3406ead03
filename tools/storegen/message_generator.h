// Realistic message files, deterministic by seed: the header lines a mail
// server stores after delivery (a "Received" chain, dates in the forms
// senders really write, encoded words in several charsets, folded lines),
// bodies in quoted-printable, base64 and 8-bit, alternatives with HTML,
// attachments, forwarded messages and calendar invitations and answers.
//
// The same seed gives the same messages on every machine: only the
// generator's own arithmetic decides, never a library's distribution.
#pragma once

#include <cstdint>
#include <random>
#include <string>
#include <string_view>

#include "storegen/sample_text.h"

namespace qaaisp::storegen {

enum class MessageKind {
  kPlain,        // one text part
  kAlternative,  // text and HTML
  kMixed,        // alternatives or text with attachments
  kInvitation,   // a calendar request, reply or cancellation
  kMailingList,  // a list post with "List-Unsubscribe"
  kForward,      // a message carried as message/rfc822
  kLegacy,       // no MIME at all: an 8-bit body in the sender's charset
};

struct GeneratedMessage {
  std::string text;  // CRLF line ends throughout
  MessageKind kind = MessageKind::kPlain;
  // What a reader must find, so tests and benchmarks can check themselves.
  bool has_attachment = false;
  std::string calendar_method;  // "REQUEST", "REPLY", "CANCEL" or empty
};

class MessageGenerator {
 public:
  explicit MessageGenerator(uint32_t seed) : random_(seed) {}

  // The next message; its kind is drawn with the weights of a typical inbox.
  GeneratedMessage Next();
  // The next message of a given kind.
  GeneratedMessage Next(MessageKind kind);

  // Unix time of the messages' dates: a window of about a year before this.
  void set_latest_date(int64_t unix_seconds) { latest_date_ = unix_seconds; }

 private:
  struct Person {
    std::string display;  // UTF-8
    std::string address;
    const Language* language;
  };

  uint32_t Below(uint32_t n) { return n == 0 ? 0 : static_cast<uint32_t>(random_() % n); }
  bool Chance(uint32_t percent) { return Below(100) < percent; }
  template <typename T>
  const T& Pick(std::span<const T> items) {
    return items[Below(static_cast<uint32_t>(items.size()))];
  }

  const Language& PickLanguage();
  Person PickPerson(const Language& language);
  std::string Address(const Person& person);
  std::string Subject(const Language& language);
  std::string Paragraphs(const Language& language, int sentences);

  std::string Header(const Person& from, const Language& language, MessageKind kind,
                     std::string_view subject);
  void TextPart(const Language& language, std::string_view text, std::string* out);
  void HtmlPart(std::string_view text, std::string* out);
  void AttachmentPart(std::string* out);
  void CalendarBody(const Person& organiser, const Person& attendee, std::string_view method,
                    std::string_view summary, std::string* out);
  std::string Boundary();

  std::mt19937 random_;
  int64_t latest_date_ = 1700000000;
  uint32_t serial_ = 0;
};

// Header text of an encoded word list for a UTF-8 text in a charset ("Q" or
// "B"), split into words of at most 75 characters and folded; plain ASCII
// stays as it is. A charset the text cannot be converted to falls back to
// UTF-8.
std::string EncodeHeaderText(std::string_view utf8, std::string_view charset, bool base64);

// RFC 2822 date text in one of the forms senders write (with and without
// the day name, obsolete zone names, a comment).
std::string MailDate(int64_t unix_seconds, int zone_minutes, uint32_t form);

}  // namespace qaaisp::storegen
