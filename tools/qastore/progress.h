// Progress of long work on standard error: a line that rewrites itself
// ("Processed 12 of 40 folders ...") when standard error is a terminal and
// silence when it is not, or, for scripts, one JSON event a line.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>

#include "platform/env.h"

namespace qaaisp::qastore {

enum class ProgressMode {
  kAuto,  // text on a terminal, nothing otherwise
  kText,
  kJson,
  kNone,
};

// False for an unknown name ("auto", "text", "json", "none").
bool ParseProgressMode(const std::string& name, ProgressMode* mode);

class Progress {
 public:
  // unit names what is counted ("folders", "messages"). sink is where the
  // lines go: standard error unless a test gives another.
  Progress(ProgressMode mode, std::string unit, size_t total, platform::Env* env,
           std::FILE* sink = nullptr);
  ~Progress() { Finish(); }
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  // Records that done units are finished, the last being item.
  void Update(size_t done, const std::string& item);
  // Ends the display: clears a text line, or writes the "done" event.
  void Finish();

  bool text() const { return text_; }
  bool json() const { return json_; }

 private:
  void Write(const std::string& line);

  bool text_ = false;
  bool json_ = false;
  bool finished_ = false;
  std::string unit_;
  size_t total_;
  size_t done_ = 0;
  platform::Env* env_;
  std::FILE* sink_;
  uint64_t started_ms_;
  uint64_t last_shown_ms_ = 0;
  size_t shown_width_ = 0;
};

}  // namespace qaaisp::qastore
