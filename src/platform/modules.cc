#include "platform/modules.h"

#include <cctype>

#include "platform/path_case.h"

namespace qaaisp::platform {

std::string ProviderFileName(const std::string& windows_path) {
  std::string path = ToNativeSeparators(windows_path);
  size_t slash = path.find_last_of('/');
  std::string dir = slash == std::string::npos ? "" : path.substr(0, slash + 1);
  std::string name = slash == std::string::npos ? path : path.substr(slash + 1);
  for (char& c : name) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  if (name.size() > 4 && name.compare(name.size() - 4, 4, ".dll") == 0) {
    name.resize(name.size() - 4);
  }
  return dir + "lib" + name + ".so";
}

std::string HostProgramDirectory(Env* env) {
  std::string exe = env->HostProgramPath();
  size_t slash = exe.find_last_of('/');
  return slash == std::string::npos ? std::string() : exe.substr(0, slash);
}

}  // namespace qaaisp::platform
