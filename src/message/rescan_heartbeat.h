// The watch a folder re-scan keeps on the client it runs for: a long scan
// gives up when the client's connection has gone, rather than finish work
// nobody waits for. The socket is switched to non-blocking mode for the
// scan, so a check never waits on a client that is merely quiet.
#pragma once

#include <cstdint>

#include "platform/socket.h"

namespace qaaisp {

class RescanHeartbeat {
 public:
  // The client is checked at every this many files.
  static constexpr uint32_t kInterval = 100;

  // kNoSocket watches nothing. A socket that refuses non-blocking mode is
  // watched all the same, unreported.
  explicit RescanHeartbeat(platform::SocketHandle socket);
  ~RescanHeartbeat() { Restore(); }
  RescanHeartbeat(const RescanHeartbeat&) = delete;
  RescanHeartbeat& operator=(const RescanHeartbeat&) = delete;

  // Given the count of files seen so far: true if this is a checking point
  // and the client has closed its end or its connection failed. Whatever
  // the client sent meanwhile is read and dropped.
  bool ClientGone(uint32_t file_count);

  // Puts the socket back in blocking mode (once).
  void Restore();

 private:
  platform::SocketHandle socket_;
};

}  // namespace qaaisp
