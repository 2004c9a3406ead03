// Reports of index persistence: an information event prefixed with the
// running program's name, and the warning about a failed read or write of
// the index file.
#pragma once

#include <string>
#include <utility>

#include "base/failure_guard.h"

namespace qaaisp {

// The source name the persistence guards and warnings carry.
inline constexpr const char* kSerialisationSource =
    "..\\SERVICES\\Library\\LIBStoreIndexSerialisation";

// Writes "[<program>] <text>" to the event log as an information event.
void ReportIndexEvent(const std::string& text);

// The state bits of a file stream.
struct StreamState {
  bool fail = false;
  bool bad = false;
};

// Warns when the stream has failed: "Warning. Read/write error on index
// file (<state>). Function: ..., Module Line: <line>". A good stream does
// nothing, and the stream is not repaired here.
void ReportStreamState(const StreamState& state, int line, const std::string& extra);

// Runs body inside the failure guard named function; a failure is reported
// there and gives fallback here instead of leaving the call.
template <typename Result, typename Body>
Result GuardedOr(Result fallback, const char* function, int32_t guard_line, Body&& body) {
  LineTrace trace = 0;
  try {
    return Guarded(function, kSerialisationSource, guard_line, trace, std::forward<Body>(body));
  } catch (...) {
    return fallback;
  }
}

}  // namespace qaaisp
