#include "persist/index_report.h"

#include "base/report.h"
#include "platform/env.h"

namespace qaaisp {

void ReportIndexEvent(const std::string& text) {
  platform::Env* env = platform::Env::Default();
  std::string program = env->HostProgramPath();
  size_t slash = program.find_last_of("/\\");
  if (slash != std::string::npos) program.erase(0, slash + 1);
  ReportEvent(env, platform::kEventInformation, "", "[" + program + "] " + text);
}

void ReportStreamState(const StreamState& state, int line, const std::string& extra) {
  if (!state.fail && !state.bad) return;
  std::string word;
  if (state.fail) word = "fail";
  if (state.bad) word += word.empty() ? "bad" : " bad";
  if (!extra.empty()) word += "{" + extra + "}";
  ReportIndexEvent("Warning. Read/write error on index file (" + word + "). Function: " +
                   kSerialisationSource + ", Module Line: " + std::to_string(line));
}

}  // namespace qaaisp
