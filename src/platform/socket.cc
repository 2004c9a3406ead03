#include "platform/socket.h"

#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>

#include "platform/win32_error.h"

namespace qaaisp::platform {
namespace {

uint32_t SocketErrorFromErrno(int err) {
  switch (err) {
    case EAGAIN:
#if EWOULDBLOCK != EAGAIN
    case EWOULDBLOCK:
#endif
      return kWsaEWouldBlock;
    case EINTR:
      return kWsaEInterrupted;
    case EBADF:
    case ENOTSOCK:
      return kWsaENotSocket;
    case ECONNRESET:
    case EPIPE:
      return kWsaEConnReset;
    default:
      return Win32ErrorFromErrno(err);
  }
}

int Descriptor(SocketHandle socket) { return static_cast<int>(socket); }

}  // namespace

bool SetSocketNonBlocking(SocketHandle socket, bool non_blocking) {
  int on = non_blocking ? 1 : 0;
  if (::ioctl(Descriptor(socket), FIONBIO, &on) != 0) {
    SetLastErrorCode(SocketErrorFromErrno(errno));
    return false;
  }
  return true;
}

int64_t ReceiveFromSocket(SocketHandle socket, void* buffer, size_t n) {
  while (true) {
    ssize_t r = ::recv(Descriptor(socket), buffer, n, 0);
    if (r >= 0) {
      SetLastErrorCode(kErrorSuccess);
      return r;
    }
    if (errno == EINTR) continue;
    SetLastErrorCode(SocketErrorFromErrno(errno));
    return -1;
  }
}

bool SendToSocket(SocketHandle socket, const void* data, size_t n) {
  size_t done = 0;
  while (done < n) {
    ssize_t r =
        ::send(Descriptor(socket), static_cast<const char*>(data) + done, n - done, MSG_NOSIGNAL);
    if (r < 0) {
      if (errno == EINTR) continue;
      SetLastErrorCode(SocketErrorFromErrno(errno));
      return false;
    }
    done += static_cast<size_t>(r);
  }
  return true;
}

bool MakeSocketPair(SocketHandle* first, SocketHandle* second) {
  int fds[2];
  if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, fds) != 0) {
    SetLastErrorCode(SocketErrorFromErrno(errno));
    return false;
  }
  *first = static_cast<SocketHandle>(fds[0]);
  *second = static_cast<SocketHandle>(fds[1]);
  return true;
}

void CloseSocket(SocketHandle socket) {
  if (socket != kNoSocket) ::close(Descriptor(socket));
}

}  // namespace qaaisp::platform
