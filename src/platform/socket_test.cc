#include "platform/socket.h"

#include <gtest/gtest.h>

#include "platform/win32_error.h"

namespace qaaisp::platform {
namespace {

TEST(SocketTest, AQuietPeerWouldBlockAndAClosedOneReadsAsNothing) {
  SocketHandle ours = kNoSocket, peer = kNoSocket;
  ASSERT_TRUE(MakeSocketPair(&ours, &peer));
  ASSERT_TRUE(SetSocketNonBlocking(ours, true));
  char buffer[8];
  EXPECT_EQ(ReceiveFromSocket(ours, buffer, sizeof buffer), -1);
  EXPECT_EQ(LastError(), kWsaEWouldBlock);

  ASSERT_TRUE(SendToSocket(peer, "abc", 3));
  EXPECT_EQ(ReceiveFromSocket(ours, buffer, sizeof buffer), 3);
  EXPECT_EQ(std::string(buffer, 3), "abc");

  // The end of the stream carries no stale "would block" from before.
  SetLastErrorCode(kWsaEWouldBlock);
  CloseSocket(peer);
  EXPECT_EQ(ReceiveFromSocket(ours, buffer, sizeof buffer), 0);
  EXPECT_EQ(LastError(), kErrorSuccess);

  // Writing to a peer that has gone fails without a signal.
  EXPECT_FALSE(SendToSocket(ours, "x", 1));
  EXPECT_EQ(LastError(), kWsaEConnReset);
  CloseSocket(ours);

  EXPECT_FALSE(SetSocketNonBlocking(ours, false));
  EXPECT_EQ(LastError(), kWsaENotSocket);
}

}  // namespace
}  // namespace qaaisp::platform
