// The text codecs of messages, vCard and vCalendar in one include:
// quoted-printable, RFC 2047 words with charset conversion, and the line
// handling of VData text.
#pragma once

#include "base/encoded_words.h"
#include "base/quoted_printable.h"
#include "base/vdata_text.h"
