// MessageHeaderInfo: what the indexers read from one message file before it
// becomes properties of a row, with the small rules every reader shares.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "platform/file_time.h"

namespace qaaisp {

// Fixed-size fields keep at most one byte less than these sizes, as the
// record always has.
inline constexpr size_t kFromFieldSize = 512;
inline constexpr size_t kSenderFieldSize = 512;
inline constexpr size_t kReplyToFieldSize = 512;
inline constexpr size_t kMessageIdFieldSize = 512;
inline constexpr size_t kFileNameFieldSize = 64;
inline constexpr size_t kReceivedFieldSize = 64;
inline constexpr size_t kMessageDateFieldSize = 64;
inline constexpr size_t kSubjectFieldSize = 1024;
inline constexpr size_t kClassFieldSize = 128;

// What stands in for a message without a sender.
inline constexpr std::string_view kUnknownSender = "Unknown";

struct MessageHeaderInfo {
  std::string Header;  // the header block, without the blank line
  std::string To;
  std::string Cc;
  std::string From;
  std::string Sender;
  std::string ReplyTo;
  std::string MessageId;
  std::string FileName;  // the row's "ID"
  int32_t Attachments = 0;
  std::string Received;     // normalised date of the first "Received"
  std::string MessageDate;  // normalised "Date"
  std::string Subject;
  int32_t Read = 0;
  uint32_t Size = 0;
  std::string Class;
  std::string Flags;  // blank-separated flag list
  uint32_t FolderStamp = 0;
  int32_t Importance = 3;
  uint32_t Uid = 0;           // 0 until known
  uint32_t ModifiedDate = 0;  // last-write time, packed DOS date and time
  std::string Keywords;
  std::string Thread;
  std::string Attributes;

  // Empties every field (keeping the strings' room, so that one record can
  // serve a whole folder without reallocating); Importance becomes 3.
  void Reset();

  // Adds a flag to Flags: empty ones are ignored, a leading "\" is put in
  // unless the flag starts with "$" or "\", and a text the list already holds
  // (searched without regard to case) is not added twice.
  void AddFlag(std::string_view flag);
};

// Replaces field with value cut to size - 1 bytes.
void SetBounded(std::string* field, std::string_view value, size_t size);
// Appends value to field, keeping it within size - 1 bytes.
void AppendBounded(std::string* field, std::string_view value, size_t size);

// Normalises a Date header value into a date field; a text the date
// routine cannot read leaves the field as it was.
void NormaliseDateInto(std::string_view date, std::string* field);

// A file time as FileTimeToDosDateTime packs it: the DOS date in the high 16
// bits, the DOS time (two-second grain) in the low 16. Times outside
// 1980-2107 give 0.
uint32_t PackedModifiedDate(platform::FileTime write_time);

// The message class a calendar content type gives, by its method and, for a
// reply, the attendee's answer in body; Class is left alone unless the
// content type is "text/calendar" with a known method.
void ApplyCalendarClass(std::string_view content_type, std::string_view body,
                        MessageHeaderInfo* info);

// Case-insensitive search of needle in text.
bool HoldsNoCase(std::string_view text, std::string_view needle);

}  // namespace qaaisp
