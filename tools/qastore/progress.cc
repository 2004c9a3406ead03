#include "qastore/progress.h"

#include <nlohmann/json.hpp>

#include "platform/console.h"

namespace qaaisp::qastore {
namespace {

// A terminal line is redrawn at most this often, so progress costs nothing
// beside the work.
constexpr uint64_t kRedrawMs = 100;

}  // namespace

bool ParseProgressMode(const std::string& name, ProgressMode* mode) {
  if (name == "auto") {
    *mode = ProgressMode::kAuto;
  } else if (name == "text") {
    *mode = ProgressMode::kText;
  } else if (name == "json") {
    *mode = ProgressMode::kJson;
  } else if (name == "none") {
    *mode = ProgressMode::kNone;
  } else {
    return false;
  }
  return true;
}

Progress::Progress(ProgressMode mode, std::string unit, size_t total, platform::Env* env,
                   std::FILE* sink)
    : unit_(std::move(unit)),
      total_(total),
      env_(env),
      sink_(sink ? sink : stderr),
      started_ms_(env->TickCountMs()) {
  json_ = mode == ProgressMode::kJson;
  text_ = mode == ProgressMode::kText || (mode == ProgressMode::kAuto && !sink &&
                                          platform::IsTerminal(platform::StandardStream::kError));
  if (json_) {
    nlohmann::ordered_json event = {{"event", "start"}, {"unit", unit_}, {"total", total_}};
    Write(event.dump());
  }
}

void Progress::Update(size_t done, const std::string& item) {
  done_ = done;
  if (json_) {
    nlohmann::ordered_json event = {
        {"event", "progress"}, {"done", done}, {"total", total_}, {"unit", unit_}, {"item", item}};
    Write(event.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace));
    return;
  }
  if (!text_) return;
  const uint64_t now = env_->TickCountMs();
  if (done < total_ && now - last_shown_ms_ < kRedrawMs) return;
  last_shown_ms_ = now;
  std::string line = "Processed " + std::to_string(done) + " of " + std::to_string(total_) + " " +
                     unit_ + (item.empty() ? "" : " (" + item + ")");
  if (line.size() > 100) line = line.substr(0, 97) + "...";
  const size_t width = line.size();
  if (width < shown_width_) line += std::string(shown_width_ - width, ' ');
  shown_width_ = width;
  std::fputs(("\r" + line).c_str(), sink_);
  std::fflush(sink_);
}

void Progress::Finish() {
  if (finished_) return;
  finished_ = true;
  if (json_) {
    nlohmann::ordered_json event = {{"event", "done"},
                                    {"done", done_},
                                    {"total", total_},
                                    {"unit", unit_},
                                    {"elapsed_ms", env_->TickCountMs() - started_ms_}};
    Write(event.dump());
  } else if (text_ && shown_width_ > 0) {
    std::fputs(("\r" + std::string(shown_width_, ' ') + "\r").c_str(), sink_);
    std::fflush(sink_);
  }
}

void Progress::Write(const std::string& line) {
  std::fputs((line + "\n").c_str(), sink_);
  std::fflush(sink_);
}

}  // namespace qaaisp::qastore
