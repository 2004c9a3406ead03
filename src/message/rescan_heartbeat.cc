#include "message/rescan_heartbeat.h"

#include <cstdio>

#include "base/report.h"
#include "platform/win32_error.h"

namespace qaaisp {
namespace {

// What one check reads at most; the client's bytes are of no use here.
constexpr size_t kScratchBytes = 255;

}  // namespace

RescanHeartbeat::RescanHeartbeat(platform::SocketHandle socket) : socket_(socket) {
  if (socket_ != platform::kNoSocket) platform::SetSocketNonBlocking(socket_, true);
}

bool RescanHeartbeat::ClientGone(uint32_t file_count) {
  if (socket_ == platform::kNoSocket || file_count % kInterval != 0) return false;
  char scratch[kScratchBytes];
  const int64_t got = platform::ReceiveFromSocket(socket_, scratch, sizeof scratch);
  if (got > 0 || platform::LastError() == platform::kWsaEWouldBlock) return false;
  char text[112];
  std::snprintf(text, sizeof text,
                "Socket: %ld was disconnected while re-indexing folder. Reindexing aborted.\n",
                static_cast<long>(socket_));
  Trace(8, text);
  return true;
}

void RescanHeartbeat::Restore() {
  if (socket_ == platform::kNoSocket) return;
  if (!platform::SetSocketNonBlocking(socket_, false)) {
    std::fputs("ScanFoldersOrdered::Unable to change socket to BLOCKING\r\n", stdout);
    std::fflush(stdout);
  }
  socket_ = platform::kNoSocket;
}

}  // namespace qaaisp
