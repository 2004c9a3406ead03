#include "message/message_header_info.h"

#include "base/dates.h"
#include "mime/mime_text.h"

namespace qaaisp {

void MessageHeaderInfo::Reset() {
  for (std::string* field :
       {&Header, &To, &Cc, &From, &Sender, &ReplyTo, &MessageId, &FileName, &Received, &MessageDate,
        &Subject, &Class, &Flags, &Keywords, &Thread, &Attributes}) {
    field->clear();
  }
  Attachments = 0;
  Read = 0;
  Size = 0;
  FolderStamp = 0;
  Importance = 3;
  Uid = 0;
  ModifiedDate = 0;
}

void MessageHeaderInfo::AddFlag(std::string_view flag) {
  if (flag.empty()) return;
  // The text searched for is the flag as it will stand in the list.
  std::string spelled;
  std::string_view wanted = flag;
  if (flag[0] != '$' && flag[0] != '\\') {
    spelled.reserve(flag.size() + 1);
    spelled.push_back('\\');
    spelled.append(flag);
    wanted = spelled;
  }
  if (HoldsNoCase(Flags, wanted)) return;
  if (!Flags.empty()) Flags.push_back(' ');
  Flags.append(wanted);
}

void SetBounded(std::string* field, std::string_view value, size_t size) {
  field->assign(value.substr(0, size - 1));
}

void AppendBounded(std::string* field, std::string_view value, size_t size) {
  if (field->size() >= size - 1) return;
  field->append(value.substr(0, size - 1 - field->size()));
}

void NormaliseDateInto(std::string_view date, std::string* field) {
  char out[kMessageDateFieldSize];
  const size_t kept = field->copy(out, sizeof out - 1);
  out[kept] = '\0';
  char text[256];
  if (date.size() < sizeof text) {
    text[date.copy(text, date.size())] = '\0';
    NormaliseHeaderDate(text, out, sizeof out);
  } else {
    NormaliseHeaderDate(std::string(date).c_str(), out, sizeof out);
  }
  field->assign(out);
}

uint32_t PackedModifiedDate(platform::FileTime write_time) {
  SystemTime t;
  if (!SystemTimeFromFileTime(write_time, &t)) return 0;
  if (t.year < 1980 || t.year > 2107) return 0;
  const uint32_t date = (static_cast<uint32_t>(t.year - 1980) << 9) |
                        (static_cast<uint32_t>(t.month) << 5) | static_cast<uint32_t>(t.day);
  const uint32_t time = (static_cast<uint32_t>(t.hour) << 11) |
                        (static_cast<uint32_t>(t.minute) << 5) |
                        static_cast<uint32_t>(t.second / 2);
  return (date << 16) | time;
}

bool HoldsNoCase(std::string_view text, std::string_view needle) {
  return mime::FindNoCase(text, needle) != std::string_view::npos;
}

void ApplyCalendarClass(std::string_view content_type, std::string_view body,
                        MessageHeaderInfo* info) {
  if (!HoldsNoCase(content_type, "text/calendar")) return;
  std::string_view message_class;
  if (HoldsNoCase(content_type, "REQUEST")) {
    message_class = "IPM.Schedule.Meeting.Request";
  } else if (HoldsNoCase(content_type, "REPLY")) {
    if (HoldsNoCase(body, "PARTSTAT=ACCEPTED")) {
      message_class = "IPM.Schedule.Meeting.Resp.Pos";
    } else if (HoldsNoCase(body, "PARTSTAT=DECLINED")) {
      message_class = "IPM.Schedule.Meeting.Resp.Neg";
    } else if (HoldsNoCase(body, "PARTSTAT=TENTATIVE")) {
      message_class = "IPM.Schedule.Meeting.Resp.Tent";
    } else {
      message_class = "IPM.Schedule.Meeting.Resp";
    }
  } else if (HoldsNoCase(content_type, "CANCEL")) {
    message_class = "IPM.Schedule.Meeting.Canceled";
  } else if (HoldsNoCase(content_type, "PUBLISH")) {
    message_class = "IPM.Schedule";
  } else {
    return;
  }
  SetBounded(&info->Class, message_class, kClassFieldSize);
}

}  // namespace qaaisp
