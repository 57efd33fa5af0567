#include "tests/unit/remote.h"

#include <cstring>
#include <gtest/gtest.h>

#include "l2/dhcp6snooping/main/Dhcp6Snooping.h"
#include "tests/platform/recording.h"

Bytes u32(uint32_t value) {
    Bytes bytes(4);
    memcpy(bytes.data(), &value, 4);
    return bytes;
}

int32_t call(uint32_t id, std::vector<Bytes> *arguments) {
    Bytes payload = u32(id);
    const auto add = [&payload](const Bytes &bytes) { payload.insert(payload.end(), bytes.begin(), bytes.end()); };
    add(u32(static_cast<uint32_t>(arguments->size())));
    for (const Bytes &argument : *arguments) {
        add(u32(static_cast<uint32_t>(argument.size())));
        add(u32(0));
        add(argument);
        payload.resize((payload.size() + 7) / 8 * 8);
    }
    recordingQueueMessage(VOS_MSG_TYPE_REMOTE_CALL, payload);
    dhcp6snooping_serve_message(7);
    const RecordingReply &reply = recordingReplies.back();
    EXPECT_EQ(reply.bytes.size(), payload.size() + 24);
    size_t at = 24 + 8;
    for (Bytes &argument : *arguments) {
        const auto start = reply.bytes.begin() + static_cast<long>(at + 8);
        argument.assign(start, start + static_cast<long>(argument.size()));
        at += 8 + (argument.size() + 7) / 8 * 8;
    }
    return reply.result;
}

int32_t call(uint32_t id, std::vector<Bytes> arguments) { return call(id, &arguments); }

uint32_t numberIn(const Bytes &bytes) {
    uint32_t value = 0;
    memcpy(&value, bytes.data(), 4);
    return value;
}
