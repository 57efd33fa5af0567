#pragma once
// Both ends of the daemon's socket in one process: the callers are sockets, the daemon is vosMsgRecv. A message that was sent
// is in the kernel when the call returns, so that no test has to wait for anything.

#include <cstdint>
#include <gtest/gtest.h>
#include <vector>

#include "platform/libvos.h"

using Bytes = std::vector<uint8_t>;

inline constexpr size_t HEADER = sizeof(VosMsgHeader);

// The queue of this process; opened by the first test that asks for it.
uint32_t queueOpened();

// ---- The callers' end ----------------------------------------------------------------------------------------------

// A connection, or -1.
int callerConnect();

Bytes message(uint16_t type, uint32_t requestId, const Bytes &payload);

void callerSend(int fd, const Bytes &bytes);

enum class Got { nothing, reply, hangUp };

struct Reply {
    Got got;
    VosMsgHeader header;
    Bytes payload;
};

// What is there at this moment.
Reply callerRead(int fd);

// ---- The daemon's end ----------------------------------------------------------------------------------------------

struct Taken {
    int32_t result;
    Bytes bytes;
    VosMsgReplyCtx ctx;
};

// A message that was sent takes up to two turns of the loop: its connection is accepted first.
Taken daemonTake(int32_t timeoutMs = 1000);

int32_t daemonReply(Taken *taken, int32_t result);

// Turns of the loop without a message for the daemon.
void daemonIdle();

// A whole call, from the caller to its reply.
void expectServed(int fd, uint32_t requestId);

// Tests of the socket start with one caller and end with an idle daemon.
class Queue : public testing::Test {
  protected:
    void SetUp() override;
    void TearDown() override;
    int caller = -1;
};
