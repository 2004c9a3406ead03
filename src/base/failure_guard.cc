#include "base/failure_guard.h"

#include <cstdio>

#include "base/report.h"

namespace qaaisp {
namespace {

void AppendLineTrace(std::string* text, LineTrace trace) {
  if (trace != 0) *text += "Line Trace = " + std::to_string(trace) + "\n";
}

}  // namespace

std::string ComErrorReportText(const char* function, const ComError& e, LineTrace trace) {
  char code[16];
  std::snprintf(code, sizeof code, "%08X", e.hresult());
  std::string text = std::string(function) + " handled a COM error.\n";
  text += "Code = 0x" + std::string(code) + "\n";
  text +=
      "Code meaning = " + (e.message().empty() ? ComErrorText(e.hresult()) : e.message()) + "\n";
  text += "Source = " + e.source() + "\n";
  text += "Error Description = " + e.description() + "\n";
  AppendLineTrace(&text, trace);
  return text;
}

std::string ExceptionReportText(const char* function, const Exception& e, LineTrace trace) {
  std::string text = std::string(function) + " handled an exception; session will be dropped.\n";
  text += "The exception was: " + e.message() + "\n";
  text += "The exception occurred in : " + e.source_file() + ", line " + std::to_string(e.line()) +
          "\n";
  AppendLineTrace(&text, trace);
  return text;
}

std::string UnknownFailureReportText(const char* function, const char* source_file,
                                     int32_t guard_line, LineTrace trace) {
  std::string text = std::string(function) + " raised an exception.\n";
  text += "The exception occurred in : " + std::string(source_file) + ", line " +
          std::to_string(guard_line) + "\n";
  AppendLineTrace(&text, trace);
  return text;
}

void ReportGuardFailure(const std::string& text) {
  ReportEvent(platform::Env::Default(), platform::kEventInformation, "", text);
  ErrorTrace(text.c_str());
}

}  // namespace qaaisp
