#include "base/report.h"

#include <cstdio>

#include "platform/win32_error.h"

namespace qaaisp {
namespace {

void TraceToFile(const char* text) {
  if (!text) return;
  platform::Env* env = platform::Env::Default();
  std::string file = env->GetEnvVar("QAAISP_TRACE");
  if (file.empty()) return;
  platform::OpenOptions o;
  o.write = true;
  o.read = false;
  o.disposition = platform::OpenDisposition::kOpenAlways;
  o.share = platform::ShareMode::kShareAny;
  auto f = env->OpenFile(file, o);
  if (!f) return;
  std::string line = text;
  if (line.empty() || line.back() != '\n') line += '\n';
  f->WriteAt(static_cast<uint64_t>(f->Size()), line.data(), line.size());
}

}  // namespace

void ReportEvent(platform::Env* env, platform::EventType type, const std::string& source,
                 const std::string& message, uint32_t event_id) {
  uint32_t saved_error = platform::LastError();
  std::string src = source.empty() ? kDefaultEventSource : source;
  std::string host = env->HostProgramPath();
  if (host.size() > 259) host.resize(259);  // the host path is read into 260 bytes
  char second[256];
  std::snprintf(second, sizeof second, "%s (%s) error: %d", kModuleTitle, host.c_str(),
                static_cast<int>(saved_error));
  env->ReportEvent(type, event_id, src, message, second);
  platform::SetLastErrorCode(saved_error);
}

int Trace(int /*level*/, const char* text) {
  TraceToFile(text);
  return 1;
}

int Trace(int level, const std::string& text) { return Trace(level, text.c_str()); }

int ErrorTrace(const char* text) {
  TraceToFile(text);
  return 1;
}

std::string ComErrorText(uint32_t hresult) {
  // The few codes the document layer raises have system texts; any other
  // code gets the fallback forms.
  switch (hresult) {
    case 0x80004005u:
      return "Unspecified error";
    case 0x8007000Eu:
      return "Not enough memory resources are available to complete this operation.";
    case 0x80070057u:
      return "The parameter is incorrect.";
    case 0x80070002u:
      return "The system cannot find the file specified.";
    case 0x80070005u:
      return "Access is denied.";
    case 0x80004001u:
      return "Not implemented";
    default:
      break;
  }
  char buffer[32];
  // IDispatch codes are the range 0x80040200 to 0x8004FFFF.
  if (hresult >= 0x80040200u && hresult <= 0x8004FFFFu) {
    std::snprintf(buffer, sizeof buffer, "IDispatch error #%d",
                  static_cast<int>(hresult - 0x80040200u));
  } else {
    std::snprintf(buffer, sizeof buffer, "Unknown error 0x%0lX",
                  static_cast<unsigned long>(hresult));
  }
  return buffer;
}

}  // namespace qaaisp
