// Event reports, trace sinks and the diagnostic level.
#pragma once

#include <cstdint>
#include <string>

#include "platform/env.h"

namespace qaaisp {

// Every report of the library is an information event with this identifier.
inline constexpr uint32_t kReportEventId = 1073741825u;  // 0x40000001
inline constexpr const char* kDefaultEventSource = "Quillarbor";
inline constexpr const char* kModuleTitle = "Quillarbor Store Provider";

// The library-wide diagnostic level. Branches for levels above it are kept
// but never taken.
inline constexpr int kDiagnosticLevel = 5;

// Writes an event: the message, then "<module title> (<host path>) error: <n>"
// with the thread's last error as it was on entry. An empty source is the
// default source.
void ReportEvent(platform::Env* env, platform::EventType type, const std::string& source,
                 const std::string& message, uint32_t event_id = kReportEventId);

// Trace sinks: they accept anything, null included, and drop it (or append it
// to QAAISP_TRACE for diagnosis). Level 8 is progress, 9 detail. Return 1.
int Trace(int level, const char* text);
int Trace(int level, const std::string& text);
int ErrorTrace(const char* text);

// The system's text for an HRESULT, without a trailing line end.
std::string ComErrorText(uint32_t hresult);

}  // namespace qaaisp
