// Whether a standard stream of the process is a terminal, for programs that
// show progress to people but stay silent when their output is captured.
#pragma once

namespace qaaisp::platform {

enum class StandardStream { kOutput, kError };

bool IsTerminal(StandardStream stream);

}  // namespace qaaisp::platform
