// Stream sockets of the library's callers, as far as the store touches them:
// it watches a client's connection during long work and gives up when the
// client has gone. Errors are Win32 socket numbers in the last error.
#pragma once

#include <cstddef>
#include <cstdint>

namespace qaaisp::platform {

// A socket as callers pass it across the C boundary; 0 stands for none.
using SocketHandle = std::uintptr_t;
inline constexpr SocketHandle kNoSocket = 0;

// Socket error numbers besides kWsaEWouldBlock (win32_error.h).
inline constexpr uint32_t kWsaEInterrupted = 10004;
inline constexpr uint32_t kWsaENotSocket = 10038;
inline constexpr uint32_t kWsaEConnReset = 10054;

// Switches the socket between blocking and non-blocking mode. False, with
// the last error set, if the socket refuses.
bool SetSocketNonBlocking(SocketHandle socket, bool non_blocking);

// Reads up to n bytes. Gives the count read, 0 when the peer has closed its
// end, or -1 with the last error set (kWsaEWouldBlock when a non-blocking
// socket has nothing to read). A read that succeeds clears the last error,
// so a 0 never carries a stale "would block" with it.
int64_t ReceiveFromSocket(SocketHandle socket, void* buffer, size_t n);

// Writes all n bytes; false with the last error set otherwise. A closed
// peer is an error, never a signal to the process.
bool SendToSocket(SocketHandle socket, const void* data, size_t n);

// A connected pair of local stream sockets (for a caller that talks to
// itself, and for tests). False with the last error set.
bool MakeSocketPair(SocketHandle* first, SocketHandle* second);

// Closes the socket; kNoSocket is ignored.
void CloseSocket(SocketHandle socket);

}  // namespace qaaisp::platform
