// Options 18 and 37 in a message: which messages get them, in what order, and what a message that has them already means.

#include "l2/dhcp6snooping/clients/limits.h"
#include "tests/unit/infoopt.h"

namespace {

const uint8_t HANDLED[] = {1, 3, 4, 5, 6, 11, 12};

const Bytes CLIENT_ID = options().clientId().bytes;
const Bytes NEW_18 = hexBytes("0012 0002 4e31"), NEW_37 = hexBytes("0025 0006 0000b80f 4e33");
// Options that count for the size that they have: 14 bytes, which stand at their offset 9.
const Bytes OLD_18 = hexBytes("0012 000a 61 62 63 64 65 0e 67 68 69 6a");
const Bytes OLD_37 = hexBytes("0025 000a 61 62 63 64 65 0e 67 68 69 6a");

struct InsertionProcessTest : InfoTest {
    void SetUp() override {
        InfoTest::SetUp();
        useString(OPTION_18, "N1");
        useString(OPTION_37, "N3");
        enableOptions({OPTION_18, OPTION_37});
        recordingTake();
    }
    void expectArea(const Processed &made, const std::vector<Bytes> &area) const {
        const Bytes whole = together(area);
        EXPECT_EQ(made.result, 0);
        EXPECT_EQ(made.newLen, whole.size());
        EXPECT_EQ(made.message, messageBytes(msgType, whole));
        EXPECT_EQ(made.udp, UDP_FROM_CLIENT);
    }
};

TEST_F(InsertionProcessTest, SevenTypesGetOptionsAndNoOther) {
    for (uint32_t number = 0; number < 256; number++) {
        msgType = static_cast<uint8_t>(number);
        const bool handled = std::find(std::begin(HANDLED), std::end(HANDLED), number) != std::end(HANDLED);
        SCOPED_TRACE(number);
        dhcp6L2Relay = 0;
        if (handled) {
            expectArea(processed(CLIENT_ID), {CLIENT_ID, NEW_18, NEW_37});
            continue;
        }
        recordingTake();
        for (dhcp6L2Relay = 0; dhcp6L2Relay < 2; dhcp6L2Relay++) {
            recordingShowQuiet(true);
            expectArea(processed(CLIENT_ID, 14), {CLIENT_ID});
            EXPECT_EQ(recordingTake(), Lines{}) << "not even a question";
            recordingShowQuiet(false);
        }
    }
}

TEST_F(InsertionProcessTest, ThePlatformIsAskedInOrder) {
    useTemplate(OPTION_18, TemplateWords().element(1).element(2).made);
    processed(CLIENT_ID);
    const Lines lines = recordingTake();
    const Lines start = {"vosHostNameGet size=128", "getSysMacAdress", "smdVDPortSnmpToUser port=1", "l3ifSwPrimIpGet switch=0",
                         "vosHostNameGet size=128"};
    ASSERT_GE(lines.size(), start.size());
    EXPECT_EQ(Lines(lines.begin(), lines.begin() + 5), start);
    for (size_t i = 5; i < lines.size(); i++)
        EXPECT_TRUE(lines[i] == "oemPenGet" || lines[i] == "oem_type_check name=\"quorvel\"") << lines[i];
    enableOptions({OPTION_18});
    processed(CLIENT_ID);
    EXPECT_EQ(recordingTake(), start);
}

TEST_F(InsertionProcessTest, TheContextLearnsItsOwn) {
    innerVlan = 300;
    recordingIdentity.systemMac = {2, 4, 6, 8, 10, 12};
    const Dhcp6InfoContext after = processed(CLIENT_ID).ctx;
    EXPECT_EQ(after.innerVlan, 300);
    EXPECT_EQ(Bytes(after.systemMac, after.systemMac + 6), (Bytes{2, 4, 6, 8, 10, 12}));
    EXPECT_EQ(Bytes(after.clientMac, after.clientMac + 6), macBytes(CLIENT));
    EXPECT_EQ(after.vlan, 10);
}

TEST_F(InsertionProcessTest, TheClientMacComesFromTwoKindsOfDuid) {
    const Bytes llt = hexBytes("0001 0001 11223344 0200000000f7"), ll = hexBytes("0003 0001 0200000000f3");
    struct Duid {
        Bytes data;
        std::string mac;
    };
    const Duid duids[] = {{ll, "02:00:00:00:00:f3"},
                          {llt, "02:00:00:00:00:f7"},
                          {together({ll, {9, 9}}), "02:00:00:00:00:f3"},
                          {together({llt, {9}}), "02:00:00:00:00:f7"},
                          {hexBytes("0003 0006 0200000000f3"), NO_MAC},
                          {hexBytes("0001 0006 11223344 0200000000f7"), NO_MAC},
                          {hexBytes("0003 0101 0200000000f3"), NO_MAC},
                          {hexBytes("0103 0001 0200000000f3"), NO_MAC},
                          {hexBytes("0002 0001 0200000000f3 0000"), NO_MAC},
                          {hexBytes("0004 0001 0200000000f3 0000 0000"), NO_MAC},
                          {hexBytes("0000 0001 0200000000f3 0000 0000"), NO_MAC}};
    enableOptions({});
    for (const Duid &duid : duids) {
        const Bytes area = optionBytes(1, duid.data);
        const Processed made = processed(area, static_cast<uint32_t>(area.size()));
        EXPECT_EQ(Bytes(made.ctx.clientMac, made.ctx.clientMac + 6), macBytes(duid.mac));
    }
    for (const Bytes &whole : {ll, llt})
        for (size_t length = 0; length < whole.size(); length++) {
            const Bytes area = optionBytes(1, Bytes(whole.begin(), whole.begin() + static_cast<long>(length)));
            Processed made = processed(area, static_cast<uint32_t>(area.size()));
            EXPECT_EQ(Bytes(made.ctx.clientMac, made.ctx.clientMac + 6), Bytes(6, 0)) << length;
            made = processed(together({area, optionBytes(8, {1, 2})}));
            EXPECT_EQ(Bytes(made.ctx.clientMac, made.ctx.clientMac + 6), Bytes(6, 0)) << "not out of the next option";
        }
    EXPECT_EQ(processed(together({optionBytes(8, {0, 0}), optionBytes(1, ll), optionBytes(1, llt)})).ctx.clientMac[5], 0xF3);
    EXPECT_EQ(processed(together({optionBytes(1, {0, 2, 0, 1}), optionBytes(1, ll)})).ctx.clientMac[5], 0)
        << "the first one counts";
    EXPECT_EQ(processed({}, 0).ctx.clientMac[5], 0);
}

TEST_F(InsertionProcessTest, OnlyOneMeansOn) {
    for (const uint32_t enable : {0u, 2u, 0x101u, 0xFFFFFFFFu}) {
        dhcp6InfoOptionPolicy.option18Enable = enable;
        dhcp6InfoOptionPolicy.option37Enable = 1;
        expectArea(processed(CLIENT_ID), {CLIENT_ID, NEW_37});
        dhcp6InfoOptionPolicy.option18Enable = 1;
        dhcp6InfoOptionPolicy.option37Enable = enable;
        expectArea(processed(CLIENT_ID), {CLIENT_ID, NEW_18});
        dhcp6InfoOptionPolicy.option18Enable = enable;
        expectArea(processed(CLIENT_ID, 14), {CLIENT_ID});
    }
}

TEST_F(InsertionProcessTest, AnEmptyMessageGetsThem) { expectArea(processed({}, 16), {NEW_18, NEW_37}); }

// Behind an option that claims more than there is, the new ones are appended all the same.
TEST_F(InsertionProcessTest, TheEndIsTheEndOfTheArea) {
    const Bytes cut = hexBytes("0008 0020 0102");
    expectArea(processed(together({cut, OLD_18}), 100), {cut, OLD_18, NEW_18, NEW_37});
    expectArea(processed({9, 9, 9}, 100), {{9, 9, 9}, NEW_18, NEW_37});
}

TEST_F(InsertionProcessTest, TheStrategyDropDrops) {
    dhcp6InfoOptionPolicy.strategy = 1;
    dhcp6L2Relay = 1;
    for (const Bytes &old : {OLD_18, OLD_37}) {
        recordingTraces.clear();
        const Processed made = processed(together({CLIENT_ID, old}));
        EXPECT_EQ(made.result, -1);
        EXPECT_EQ(recordingTraces, Lines{SAID_STRATEGY});
        EXPECT_EQ(made.newLen, old == OLD_18 ? 28u : 34u) << "the length agrees with what is in the buffer";
        EXPECT_EQ(made.udp, UDP_FROM_CLIENT);
    }
    recordingTraces.clear();
    dhcp6L2Relay = 0;
    expectArea(processed(CLIENT_ID), {CLIENT_ID, NEW_18, NEW_37});
    enableOptions({OPTION_37});
    expectArea(processed(OLD_18), {OLD_18, NEW_37});
    enableOptions({OPTION_18});
    expectArea(processed(OLD_37), {OLD_37, NEW_18});
    EXPECT_EQ(recordingTraces, Lines{}) << "an option that is not asked for is nobody's business";
}

TEST_F(InsertionProcessTest, TheStrategyKeepStopsThere) {
    dhcp6InfoOptionPolicy.strategy = 2;
    for (dhcp6L2Relay = 0; dhcp6L2Relay < 2; dhcp6L2Relay++) {
        expectArea(processed(together({CLIENT_ID, OLD_18}), 28), {CLIENT_ID, OLD_18});
        expectArea(processed(together({OLD_18, OLD_37}), 28), {OLD_18, OLD_37});
        expectArea(processed(together({OLD_37, CLIENT_ID}), 34), {OLD_37, CLIENT_ID, NEW_18});
    }
    EXPECT_EQ(recordingTraces, Lines{});
    dhcp6L2Relay = 0;
    enableOptions({OPTION_37});
    expectArea(processed(OLD_18), {OLD_18, NEW_37});
}

TEST_F(InsertionProcessTest, AnyOtherStrategyReplaces) {
    for (const uint32_t strategy : {0u, 3u, 4u, 0x101u, 0xFFFFFFFFu}) {
        dhcp6InfoOptionPolicy.strategy = strategy;
        enableOptions({OPTION_18});
        expectArea(processed(together({OLD_18, CLIENT_ID})), {CLIENT_ID, NEW_18});
        enableOptions({OPTION_37});
        expectArea(processed(together({OLD_37, CLIENT_ID})), {CLIENT_ID, NEW_37});
    }
    EXPECT_EQ(recordingTraces, Lines{});
}

TEST_F(InsertionProcessTest, TheStrategyIsReadForEveryMessage) {
    enableOptions({OPTION_18});
    for (const uint32_t strategy : {1u, 3u, 2u, 1u}) {
        dhcp6InfoOptionPolicy.strategy = strategy;
        const Processed made = processed(OLD_18);
        EXPECT_EQ(made.result, strategy == 1 ? -1 : 0);
        EXPECT_EQ(made.message, messageBytes(msgType, strategy == 3 ? NEW_18 : OLD_18));
    }
}

TEST_F(InsertionProcessTest, AnIdThatCannotBeMadeEndsIt) {
    for (dhcp6L2Relay = 0; dhcp6L2Relay < 2; dhcp6L2Relay++) {
        recordingTraces.clear();
        useTemplate(OPTION_18, templateOfLength(509));
        expectArea(processed(together({OLD_18, CLIENT_ID})), {OLD_18, CLIENT_ID});
        EXPECT_EQ(recordingTraces, Lines{SAID_NO_INTERFACE_ID}) << "neither option 37 nor a relay header";
        useString(OPTION_18, "N1");
        useTemplate(OPTION_37, templateOfLength(505));
        recordingTraces.clear();
        expectArea(processed(together({CLIENT_ID, OLD_37})), {CLIENT_ID, OLD_37, NEW_18});
        EXPECT_EQ(recordingTraces, Lines{SAID_NO_REMOTE_ID});
        useString(OPTION_37, "N3");
    }
}

TEST_F(InsertionProcessTest, TheStrategyComesBeforeTheId) {
    useTemplate(OPTION_18, templateOfLength(509));
    dhcp6InfoOptionPolicy.strategy = 1;
    EXPECT_EQ(processed(OLD_18).result, -1);
    EXPECT_EQ(recordingTraces, Lines{SAID_STRATEGY});
    dhcp6InfoOptionPolicy.strategy = 2;
    recordingTraces.clear();
    expectArea(processed(OLD_18), {OLD_18});
    EXPECT_EQ(recordingTraces, Lines{});
}

TEST_F(InsertionProcessTest, TheAreaEndsAt1500Bytes) {
    enableOptions({OPTION_18});
    const auto filler = [](uint32_t length) { return Bytes(length, 0); };
    expectArea(processed(filler(1494), 1500), {filler(1494), NEW_18});
    EXPECT_EQ(recordingTraces, Lines{});
    expectArea(processed(filler(1495), 1495), {filler(1495)});
    EXPECT_EQ(recordingTraces, Lines{SAID_TOO_LONG});
    expectArea(processed(filler(1800), 1800), {filler(1800)});
}

TEST_F(InsertionProcessTest, TheSecondOptionIsMeasuredWithTheFirst) {
    const auto filler = [](uint32_t length) { return Bytes(length, 0); };
    expectArea(processed(filler(1484), 1500), {filler(1484), NEW_18, NEW_37});
    EXPECT_EQ(recordingTraces, Lines{});
    for (dhcp6L2Relay = 0; dhcp6L2Relay < 2; dhcp6L2Relay++) {
        recordingTraces.clear();
        expectArea(processed(filler(1485), 1491), {filler(1485), NEW_18});
        EXPECT_EQ(recordingTraces, Lines{SAID_TOO_LONG}) << "no relay header either, and one line";
        recordingTraces.clear();
        expectArea(processed(filler(1495), 1495), {filler(1495)});
        EXPECT_EQ(recordingTraces, Lines{SAID_TOO_LONG}) << "the second is not tried";
    }
}

TEST_F(InsertionProcessTest, WhatIsReplacedMakesRoom) {
    enableOptions({OPTION_18});
    const Bytes filler = optionBytes(99, Bytes(1482, 0));
    expectArea(processed(together({OLD_18, filler}), 1500), {filler, NEW_18}); // 14 + 1486 - 14 + 6
    EXPECT_EQ(recordingTraces, Lines{});
    const Bytes more = optionBytes(99, Bytes(1491, 0)); // 1495 bytes
    expectArea(processed(together({OLD_18, more}), 1509), {OLD_18, more});
    EXPECT_EQ(recordingTraces, Lines{SAID_TOO_LONG}) << "nothing has been removed";
}

TEST_F(InsertionProcessTest, TheRoomOfTheBufferCountsAsWell) {
    enableOptions({OPTION_18});
    ctx.room = 20;
    expectArea(processed(CLIENT_ID, 20), {CLIENT_ID, NEW_18});
    EXPECT_EQ(recordingTraces, Lines{});
    ctx.room = 19;
    expectArea(processed(CLIENT_ID, 14), {CLIENT_ID});
    EXPECT_EQ(recordingTraces, Lines{SAID_TOO_LONG});
    enableOptions({OPTION_18, OPTION_37});
    recordingTraces.clear();
    ctx.room = 29;
    expectArea(processed(CLIENT_ID, 20), {CLIENT_ID, NEW_18});
    EXPECT_EQ(recordingTraces, Lines{SAID_TOO_LONG});
}

} // namespace
