#include "platform/console.h"

#include <unistd.h>

namespace qaaisp::platform {

bool IsTerminal(StandardStream stream) {
  return ::isatty(stream == StandardStream::kOutput ? STDOUT_FILENO : STDERR_FILENO) == 1;
}

}  // namespace qaaisp::platform
