// Provider libraries of the suite, found by their Windows names: "X.DLL"
// is the file "libx.so" (lower case) in the same directory.
#pragma once

#include <memory>
#include <string>

#include "platform/env.h"

namespace qaaisp::platform {

// Maps "C:/dir/QAAISO.DLL" or "dir\QAAISO.DLL" to "dir/libqaaiso.so"; a bare
// name stays bare so the dynamic loader searches for it.
std::string ProviderFileName(const std::string& windows_path);

// Directory of the host program (from /proc/self/exe), without a separator.
std::string HostProgramDirectory(Env* env);

}  // namespace qaaisp::platform
