// Failure guards: a function that touches files or documents runs its body
// inside one, so a fault in one folder is reported with enough to find it,
// and then rethrown. A guard never swallows a failure.
#pragma once

#include <cstdint>
#include <string>
#include <utility>

#include "base/exception.h"
#include "platform/env.h"

namespace qaaisp {

// Line trace of a guarded body: set to a line number as the body proceeds;
// 0 means not set.
using LineTrace = int32_t;

// The texts the three handlers report.
std::string ComErrorReportText(const char* function, const ComError& e, LineTrace trace);
std::string ExceptionReportText(const char* function, const Exception& e, LineTrace trace);
std::string UnknownFailureReportText(const char* function, const char* source_file,
                                     int32_t guard_line, LineTrace trace);

// Reports text to the event log and the error trace.
void ReportGuardFailure(const std::string& text);

// Runs body() and, on a failure, reports it with the guard's texts and
// rethrows. The line trace is read when a failure arrives.
template <typename Body>
auto Guarded(const char* function, const char* source_file, int32_t guard_line,
             const LineTrace& trace, Body&& body) -> decltype(body()) {
  try {
    return std::forward<Body>(body)();
  } catch (const ComError& e) {
    ReportGuardFailure(ComErrorReportText(function, e, trace));
    throw;
  } catch (const Exception& e) {
    ReportGuardFailure(ExceptionReportText(function, e, trace));
    throw;
  } catch (...) {
    ReportGuardFailure(UnknownFailureReportText(function, source_file, guard_line, trace));
    throw;
  }
}

}  // namespace qaaisp
