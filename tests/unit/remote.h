#pragma once
// Remote calls as a caller makes them: a message through the queue and the loop.

#include "tests/unit/frames.h"

Bytes u32(uint32_t value);
uint32_t numberIn(const Bytes &bytes); // the first 32 bits

// Sends a call through the message loop. The buffers come back as the call left them.
int32_t call(uint32_t id, std::vector<Bytes> *arguments);
int32_t call(uint32_t id, std::vector<Bytes> arguments = {});
