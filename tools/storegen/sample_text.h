// The words generated mail is made of: people, subjects and sentences in
// several languages, each with the charset its senders' programs still use,
// so that a sample store carries the encoded words and 8-bit bodies a real
// one does.
#pragma once

#include <cstddef>
#include <span>
#include <string_view>

namespace qaaisp::storegen {

struct Language {
  std::string_view code;     // "de", "ja", ...
  std::string_view domain;   // where its senders' addresses are
  std::string_view charset;  // what a sender declares for header words and bodies
  bool base64_words;         // "B" encoded words rather than "Q"
  std::span<const std::string_view> names;
  std::span<const std::string_view> subjects;
  std::span<const std::string_view> sentences;
  std::span<const std::string_view> reply_prefixes;
};

// Every language the generator writes in; the first is plain English.
std::span<const Language> Languages();

// Mailer names for "X-Mailer" and "User-Agent".
std::span<const std::string_view> MailerNames();

// Host names that stand in the "Received" chain and in addresses.
std::span<const std::string_view> HostNames();

}  // namespace qaaisp::storegen
