// Line handling of vCard and vCalendar text: unfolding, folding, escapes,
// the quoted-printable form of stored calendar text, and the UTF-8 check.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace qaaisp {

// Removes every "\r\n " and "\r\n\t".
std::string Unfold(std::string_view text);

// "\r\n", "\r" and "\n" each become the two characters "\n".
std::string EscapeLineEnds(std::string_view text);

// "\;", "\," and "\\" become ";", "," and "\", in that order of passes.
std::string Unescape(std::string_view text);

// Folds text into chunks of width bytes joined by separator ("\r\n" when
// empty). A chunk that is followed by more text is cut behind its last
// soft_break character; if it has none it stays whole, and from then on a
// blank goes in behind every separator. A chunk that would end in a run of
// no_break characters leaves that run to the next one. With blank set, every
// separator is followed by a blank. Text no longer than width is returned as
// it is.
std::string FoldText(std::string_view text, size_t width, std::string_view separator = "\r\n",
                     char no_break = '\\', char soft_break = ' ', bool blank = false);

// Text to store as a calendar item: unless it already carries
// ";ENCODING=QUOTED-PRINTABLE", every property whose value has 8-bit bytes
// gets its value quoted-printable encoded and ";ENCODING=QUOTED-PRINTABLE;
// CHARSET=UTF-8:" in place of its ":". Other lines stay byte for byte.
std::string EncodeCalendarText(std::string_view text);

// The reverse for callers that want plain text: each quoted-printable line is
// decoded, its line breaks written as "\n" followed by a folded line end of
// the text's own kind and a tab, and the two parameters removed.
std::string DecodeCalendarText(std::string_view text);

// True if text is well-formed UTF-8 whose ASCII part is tab, LF, CR or 32 to
// 126. With copy, the text is copied there first, whatever the result.
bool IsValidUTF8(std::string_view text, std::string* copy = nullptr);

}  // namespace qaaisp
