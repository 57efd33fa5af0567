// Remote calls: what a message must look like, and what a function sees of it.

#include <algorithm>
#include <array>
#include <cstring>
#include <gtest/gtest.h>
#include <random>
#include <string>
#include <vector>

#include "platform/libsmd.h"
#include "platform/libvos.h"
#include "tests/contract/setup.h"

using Bytes = std::vector<uint8_t>;

static uint32_t calls;
static uint32_t seenCount;
static std::vector<uint64_t> seenLengths;
static std::vector<Bytes> seenSlots;
static bool slotsAligned;

static int32_t echoBackwards(void *, SmdRmArg *argv, uint32_t argc) {
    calls++;
    seenCount = argc;
    seenLengths.clear();
    seenSlots.clear();
    slotsAligned = true;
    for (uint32_t i = 0; i < argc; i++) {
        uint8_t *data = static_cast<uint8_t *>(argv[i].data);
        slotsAligned = slotsAligned && reinterpret_cast<uintptr_t>(data) % 16 == 0;
        seenLengths.push_back(argv[i].length);
        seenSlots.emplace_back(data, data + SMD_RM_SLOT);
        std::reverse(data, data + argv[i].length);
    }
    return 4711;
}

// Writes all over its arguments, as a target may whose caller declared too little.
static int32_t fillSlots(void *, SmdRmArg *argv, uint32_t argc) {
    for (uint32_t i = 0; i < argc; i++) {
        memset(argv[i].data, 0xEE, SMD_RM_SLOT);
    }
    return -1;
}

static int32_t noteOnly(void *, SmdRmArg *, uint32_t) {
    calls++;
    return 0;
}

class Remote : public testing::Test {
  protected:
    void SetUp() override {
        contractSetup();
        calls = 0;
        ASSERT_EQ(smdRMWrapInit(37), 0);
        ASSERT_EQ(__smdRmWrapRegister(0, 0, echoBackwards, "ECHO", "echoBackwards"), 0);
        ASSERT_EQ(__smdRmWrapRegister(36, 0, fillSlots, "FILL", "fillSlots"), 0);
        ASSERT_EQ(__smdRmWrapRegister(5, 0, noteOnly, "NOTE", "noteOnly"), 0);
    }
};

static void put32(Bytes *to, uint32_t value) {
    for (uint32_t i = 0; i < 4; i++) {
        to->push_back(static_cast<uint8_t>(value >> (8 * i)));
    }
}

static Bytes payloadOf(uint32_t id, const std::vector<Bytes> &arguments) {
    Bytes payload;
    put32(&payload, id);
    put32(&payload, static_cast<uint32_t>(arguments.size()));
    for (const Bytes &argument : arguments) {
        put32(&payload, static_cast<uint32_t>(argument.size()));
        put32(&payload, 0);
        payload.insert(payload.end(), argument.begin(), argument.end());
        payload.resize((payload.size() + 7) / 8 * 8, 0);
    }
    return payload;
}

// Runs a message whose header declares `declared` payload bytes; what stands behind the payload is no part of it. The message
// lies in a block of its own length, so that a sanitizer sees a step behind it.
static int32_t runDeclared(Bytes *payload, uint32_t declared) {
    const VosMsgHeader header = {.type = VOS_MSG_TYPE_REMOTE_CALL,
                                 .version = 1,
                                 .requestId = 9,
                                 .flags = 0,
                                 .payloadLength = static_cast<uint16_t>(declared),
                                 .result = 0,
                                 .reserved = 0};
    Bytes message(sizeof header + payload->size());
    memcpy(message.data(), &header, sizeof header);
    std::copy(payload->begin(), payload->end(), message.begin() + sizeof header);
    message.shrink_to_fit();
    const int32_t result = smdCfgRmWrapProcess(message.data());
    EXPECT_EQ(memcmp(message.data(), &header, sizeof header), 0);
    payload->assign(message.begin() + sizeof header, message.end());
    return result;
}

static int32_t run(Bytes *payload) { return runDeclared(payload, static_cast<uint32_t>(payload->size())); }

static void expectRefused(Bytes payload, int32_t result) {
    const Bytes before = payload;
    EXPECT_EQ(run(&payload), result);
    EXPECT_EQ(payload, before);
    EXPECT_EQ(calls, 0u);
}

TEST_F(Remote, RegistrationRefusesTakenAndForeignIdentifiers) {
    EXPECT_NE(__smdRmWrapRegister(0, 0, noteOnly, "AGAIN", "noteOnly"), 0);
    EXPECT_NE(__smdRmWrapRegister(37, 0, noteOnly, "BEHIND", "noteOnly"), 0);
    EXPECT_NE(__smdRmWrapRegister(0xFFFFFFFF, 0, noteOnly, "FAR", "noteOnly"), 0);
    Bytes payload = payloadOf(0, {});
    EXPECT_EQ(run(&payload), 4711);
}

TEST_F(Remote, PreparingTheTableEmptiesIt) {
    ASSERT_EQ(smdRMWrapInit(37), 0);
    expectRefused(payloadOf(0, {}), SMD_RM_UNKNOWN);
}

TEST_F(Remote, ArgumentsArriveInSlotsAndGoBack) {
    Bytes payload = payloadOf(0, {{1, 2, 3, 4}, {}, {9, 8, 7, 6, 5, 4, 3, 2, 1}});
    EXPECT_EQ(run(&payload), 4711);
    EXPECT_EQ(payload, payloadOf(0, {{4, 3, 2, 1}, {}, {1, 2, 3, 4, 5, 6, 7, 8, 9}}));
    EXPECT_EQ(seenCount, 3u);
    EXPECT_EQ(seenLengths, (std::vector<uint64_t>{4, 0, 9}));
    EXPECT_TRUE(slotsAligned);
    Bytes expected = {1, 2, 3, 4};
    expected.resize(SMD_RM_SLOT, 0);
    EXPECT_EQ(seenSlots[0], expected);
}

TEST_F(Remote, SlotsHoldNothingOfTheCallBefore) {
    Bytes dirty = payloadOf(36, {{1}, {2}});
    EXPECT_EQ(run(&dirty), -1);
    Bytes payload = payloadOf(0, {{}, {7}});
    EXPECT_EQ(run(&payload), 4711);
    Bytes expected(SMD_RM_SLOT, 0);
    EXPECT_EQ(seenSlots[0], expected);
    expected[0] = 7;
    EXPECT_EQ(seenSlots[1], expected);
}

TEST_F(Remote, OnlyDeclaredBytesGoBack) {
    Bytes payload = payloadOf(36, {{1, 2, 3}, Bytes(13, 5)});
    EXPECT_EQ(run(&payload), -1);
    EXPECT_EQ(payload, payloadOf(36, {Bytes(3, 0xEE), Bytes(13, 0xEE)}));
}

TEST_F(Remote, LargestArguments) {
    std::vector<Bytes> arguments(SMD_RM_ARGS, Bytes(SMD_RM_SLOT, 3));
    Bytes payload = payloadOf(36, arguments);
    EXPECT_EQ(run(&payload), -1);
    EXPECT_EQ(payload, payloadOf(36, std::vector<Bytes>(SMD_RM_ARGS, Bytes(SMD_RM_SLOT, 0xEE))));
}

TEST_F(Remote, UnknownIdentifiers) {
    for (const uint32_t id : {1u, 35u, 37u, 64u, 0x80000000u, 0xFFFFFFFFu}) {
        expectRefused(payloadOf(id, {{1, 2, 3, 4}}), SMD_RM_UNKNOWN);
    }
}

TEST_F(Remote, TooLargeOrTooMany) {
    expectRefused(payloadOf(5, {Bytes(SMD_RM_SLOT + 1, 1)}), SMD_RM_BAD_MESSAGE);
    expectRefused(payloadOf(5, std::vector<Bytes>(SMD_RM_ARGS + 1)), SMD_RM_BAD_MESSAGE);
    Bytes lying = payloadOf(5, {});
    for (const uint32_t count : {1u, 9u, 0x20000000u, 0x80000000u, 0xFFFFFFFFu}) {
        memcpy(&lying[4], &count, 4);
        expectRefused(lying, SMD_RM_BAD_MESSAGE);
    }
}

TEST_F(Remote, ArgumentLengthsThatLie) {
    for (const uint32_t length : {5u, 8u, 9u, 16u, 4096u, 0x7FFFFFFFu, 0xFFFFFFF8u, 0xFFFFFFF9u, 0xFFFFFFFFu}) {
        Bytes payload = payloadOf(5, {{1, 2, 3, 4}, {5, 6}});
        memcpy(&payload[24], &length, 4);
        if (length > 8) {
            expectRefused(payload, SMD_RM_BAD_MESSAGE);
        } else {
            EXPECT_EQ(run(&payload), 0);
            calls = 0;
        }
    }
}

TEST_F(Remote, TheWordBehindALengthIsZero) {
    Bytes payload = payloadOf(5, {{1, 2, 3, 4}});
    payload[12] = 1;
    expectRefused(payload, SMD_RM_BAD_MESSAGE);
}

TEST_F(Remote, BytesBehindTheArguments) {
    Bytes payload = payloadOf(5, {{1, 2, 3, 4}});
    payload.resize(payload.size() + 8, 0);
    expectRefused(payload, SMD_RM_BAD_MESSAGE);
}

TEST_F(Remote, CutAtEveryByte) {
    const Bytes whole = payloadOf(5, {{1, 2, 3, 4}, Bytes(12, 7)});
    for (uint32_t length = 0; length < whole.size(); length++) {
        expectRefused(Bytes(whole.begin(), whole.begin() + length), SMD_RM_BAD_MESSAGE);
        Bytes payload = whole; // the bytes are there, but the header does not declare them
        EXPECT_EQ(runDeclared(&payload, length), SMD_RM_BAD_MESSAGE);
    }
    EXPECT_EQ(calls, 0u);
}

static uint32_t pick(std::mt19937 *random, uint32_t choices) { return static_cast<uint32_t>((*random)() % choices); }

TEST_F(Remote, RandomMessagesStayInsideTheirMemory) {
    std::mt19937 random(37);
    uint32_t accepted = 0;
    for (uint32_t round = 0; round < 20000; round++) {
        Bytes payload = payloadOf(pick(&random, 3) == 0 ? 36 : 5, {Bytes(pick(&random, 40), 1), Bytes(pick(&random, 40), 2)});
        for (uint32_t change = pick(&random, 4); change > 0; change--) {
            payload[pick(&random, static_cast<uint32_t>(payload.size()))] =
                static_cast<uint8_t>(pick(&random, pick(&random, 5) == 0 ? 256 : 16));
        }
        if (pick(&random, 4) == 0) {
            payload.resize(pick(&random, static_cast<uint32_t>(payload.size()) + 1));
        }
        const size_t size = payload.size();
        const int32_t result = run(&payload);
        ASSERT_TRUE(result == SMD_RM_BAD_MESSAGE || result == SMD_RM_UNKNOWN || result == 0 || result == 4711);
        ASSERT_EQ(payload.size(), size);
        accepted += result == 0;
    }
    EXPECT_GT(accepted, 1000u);
}
