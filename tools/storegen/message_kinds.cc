// The structure of each kind of generated message.
#include <string>

#include "base/encoded_words.h"
#include "storegen/mail_text.h"
#include "storegen/message_generator.h"

namespace qaaisp::storegen {

void MessageGenerator::CalendarBody(const Person& organiser, const Person& attendee,
                                    std::string_view method, std::string_view summary,
                                    std::string* out) {
  const int64_t start = latest_date_ + 86400 * (1 + Below(60)) + 3600 * Below(10);
  std::string cal = "BEGIN:VCALENDAR\r\nPRODID:-//Quill Arbor//Calendar 9.2//EN\r\nVERSION:2.0\r\n";
  cal += "METHOD:" + std::string(method) + "\r\n";
  cal +=
      "BEGIN:VTIMEZONE\r\nTZID:W. Europe Standard Time\r\nBEGIN:STANDARD\r\n"
      "DTSTART:16010101T030000\r\nTZOFFSETFROM:+0200\r\nTZOFFSETTO:+0100\r\n"
      "RRULE:FREQ=YEARLY;BYDAY=-1SU;BYMONTH=10\r\nEND:STANDARD\r\nBEGIN:DAYLIGHT\r\n"
      "DTSTART:16010101T020000\r\nTZOFFSETFROM:+0100\r\nTZOFFSETTO:+0200\r\n"
      "RRULE:FREQ=YEARLY;BYDAY=-1SU;BYMONTH=3\r\nEND:DAYLIGHT\r\nEND:VTIMEZONE\r\n";
  cal += "BEGIN:VEVENT\r\nUID:" + std::to_string(start) + "-" + std::to_string(serial_) +
         "@example.com\r\nDTSTAMP:" + CalendarStamp(latest_date_) + "Z\r\n";
  cal += "DTSTART;TZID=\"W. Europe Standard Time\":" + CalendarStamp(start) + "\r\n";
  cal += "DTEND;TZID=\"W. Europe Standard Time\":" + CalendarStamp(start + 3600) + "\r\n";
  cal += "SUMMARY;CHARSET=utf-8:" + std::string(summary) + "\r\nLOCATION:Room 4.12\r\n";
  cal += "ORGANIZER;CN=\"" + organiser.display + "\":mailto:" + organiser.address + "\r\n";
  std::string partstat = "NEEDS-ACTION";
  if (method == "REPLY") {
    static const char* const kAnswers[] = {"ACCEPTED", "DECLINED", "TENTATIVE", nullptr};
    const char* answer = kAnswers[Below(4)];
    // A reply without an answer still happens: some clients leave it out.
    partstat = answer ? answer : "";
  }
  cal += "ATTENDEE;CN=\"" + attendee.display + "\";ROLE=REQ-PARTICIPANT" +
         (partstat.empty() ? std::string() : ";PARTSTAT=" + partstat) +
         ";RSVP=TRUE:mailto:" + attendee.address + "\r\n";
  if (method == "CANCEL") cal += "STATUS:CANCELLED\r\n";
  cal += "SEQUENCE:" + std::to_string(method == "CANCEL" ? 1 : 0) + "\r\nEND:VEVENT\r\n";
  cal += "END:VCALENDAR\r\n";
  *out += cal;
}

GeneratedMessage MessageGenerator::Next(MessageKind kind) {
  ++serial_;
  GeneratedMessage message;
  message.kind = kind;
  const Language& language = PickLanguage();
  const Person from = PickPerson(language);
  std::string subject = Subject(language);
  const std::string text = Paragraphs(language, 3 + static_cast<int>(Below(9)));

  if (kind == MessageKind::kInvitation) {
    static const char* const kMethods[] = {"REQUEST", "REQUEST", "REQUEST",
                                           "REPLY",   "REPLY",   "CANCEL"};
    message.calendar_method = kMethods[Below(6)];
    const std::string prefix = message.calendar_method == "REQUEST" ? "Invitation: "
                               : message.calendar_method == "REPLY" ? "Answer: "
                                                                    : "Cancelled: ";
    subject = prefix + std::string(Pick(language.subjects));
  }

  std::string& m = message.text;
  m = Header(from, language, kind, subject);
  const std::string outer = Boundary();
  const std::string inner = Boundary() + "_alt";

  switch (kind) {
    case MessageKind::kPlain:
      TextPart(language, text, &m);
      break;
    case MessageKind::kLegacy: {
      // Raw 8-bit text in the sender's charset, as old mailers sent it.
      std::string bytes;
      if (!ConvertCharset("UTF-8", text, &bytes, language.charset)) bytes = text;
      m += "\r\n" + bytes + "\r\n";
      break;
    }
    case MessageKind::kAlternative:
    case MessageKind::kMailingList:
      m += "Content-Type: multipart/alternative;\r\n\tboundary=\"" + inner + "\"\r\n\r\n";
      m += "This is a multi-part message in MIME format.\r\n\r\n--" + inner + "\r\n";
      TextPart(language, text, &m);
      m += "\r\n--" + inner + "\r\n";
      HtmlPart(text, &m);
      m += "\r\n--" + inner + "--\r\n";
      break;
    case MessageKind::kMixed: {
      m += "Content-Type: multipart/mixed;\r\n\tboundary=\"" + outer + "\"\r\n\r\n";
      m += "This is a multi-part message in MIME format.\r\n\r\n--" + outer + "\r\n";
      if (Chance(50)) {
        m += "Content-Type: multipart/alternative; boundary=\"" + inner + "\"\r\n\r\n--" + inner +
             "\r\n";
        TextPart(language, text, &m);
        m += "\r\n--" + inner + "\r\n";
        HtmlPart(text, &m);
        m += "\r\n--" + inner + "--\r\n";
      } else {
        TextPart(language, text, &m);
      }
      const uint32_t attachments = 1 + Below(3);
      for (uint32_t i = 0; i < attachments; ++i) {
        m += "\r\n--" + outer + "\r\n";
        AttachmentPart(&m);
      }
      m += "\r\n--" + outer + "--\r\n";
      message.has_attachment = true;
      break;
    }
    case MessageKind::kForward: {
      m += "Content-Type: multipart/mixed; boundary=\"" + outer + "\"\r\n\r\n--" + outer + "\r\n";
      TextPart(language, "---------- Forwarded message ----------\n" + text, &m);
      m += "\r\n--" + outer +
           "\r\nContent-Type: message/rfc822\r\n"
           "Content-Disposition: attachment\r\n\r\n";
      const Language& inner_language = PickLanguage();
      m += Header(PickPerson(inner_language), inner_language, MessageKind::kPlain,
                  Subject(inner_language));
      TextPart(inner_language, Paragraphs(inner_language, 3), &m);
      m += "\r\n--" + outer + "--\r\n";
      message.has_attachment = true;
      break;
    }
    case MessageKind::kInvitation: {
      const Person attendee = PickPerson(PickLanguage());
      const std::string& method = message.calendar_method;
      std::string calendar;
      CalendarBody(method == "REPLY" ? attendee : from, method == "REPLY" ? from : attendee, method,
                   Pick(language.subjects), &calendar);
      if (method == "REPLY" && Chance(30)) {
        // Some clients answer with the calendar text alone.
        m += "Content-Type: text/calendar; method=REPLY; charset=\"utf-8\"\r\n"
             "Content-Transfer-Encoding: 8bit\r\n\r\n" +
             calendar;
        break;
      }
      m += "Content-Type: multipart/mixed; boundary=\"" + outer + "\"\r\n\r\n--" + outer + "\r\n";
      m += "Content-Type: multipart/alternative; boundary=\"" + inner + "\"\r\n\r\n--" + inner +
           "\r\n";
      TextPart(language, text, &m);
      m += "\r\n--" + inner + "\r\nContent-Type: text/calendar; method=" + method +
           "; charset=\"utf-8\"\r\nContent-Transfer-Encoding: base64\r\n\r\n" +
           FoldedBase64(calendar) + "\r\n--" + inner + "--\r\n";
      if (method == "REQUEST") {
        m += "\r\n--" + outer +
             "\r\nContent-Type: application/ics; name=\"invite.ics\"\r\n"
             "Content-Disposition: attachment; filename=\"invite.ics\"\r\n"
             "Content-Transfer-Encoding: base64\r\n\r\n" +
             FoldedBase64(calendar);
        message.has_attachment = true;
      }
      m += "\r\n--" + outer + "--\r\n";
      break;
    }
  }
  return message;
}

}  // namespace qaaisp::storegen
