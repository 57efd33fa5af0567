// The relay header that the l2-relay puts around a message.

#include "l2/dhcp6snooping/clients/limits.h"
#include "tests/unit/infoopt.h"

namespace {

const Bytes NEW_18 = hexBytes("0012 000a 6162636465666768696a"); // 14 bytes

struct InsertionRelayTest : InfoTest {
    void SetUp() override {
        InfoTest::SetUp();
        useString(OPTION_18, "abcdefghij");
        enableOptions({OPTION_18});
        dhcp6L2Relay = 1;
    }
    Bytes wrapper(uint8_t hops, uint32_t relayed) const {
        return together(
            {{12, hops}, Bytes(16, 0), peer, {0, 9, static_cast<uint8_t>(relayed >> 8), static_cast<uint8_t>(relayed)}});
    }
    void expectWrapped(const Processed &made, uint8_t hops, uint32_t relayed, const Bytes &inside) const {
        EXPECT_EQ(made.result, 0);
        EXPECT_EQ(made.message, together({wrapper(hops, relayed), inside}));
        EXPECT_EQ(made.newLen, inside.size() - 4 + 38);
        EXPECT_EQ(made.udp, UDP_FROM_RELAY);
        EXPECT_EQ(recordingTraces, Lines{});
    }
    void expectBare(const Processed &made, const Bytes &area) const {
        EXPECT_EQ(made.result, 0);
        EXPECT_EQ(made.message, messageBytes(msgType, area));
        EXPECT_EQ(made.newLen, area.size());
        EXPECT_EQ(made.udp, UDP_FROM_CLIENT);
    }
};

TEST_F(InsertionRelayTest, ByteForByte) {
    enableOptions({});
    peer = addressBytes("2001:db8:1:2:3:4:5:6");
    const Processed made = processed(hexBytes("0008 0002 0001"), 44);
    EXPECT_EQ(made.message, hexBytes("0c 00 00000000000000000000000000000000 20010db8000100020003000400050006 0009 000a"
                                     "01 123456 0008 0002 0001"));
    EXPECT_EQ(made.newLen, 44u);
    EXPECT_EQ(made.udp, UDP_FROM_RELAY) << "only the source port";
}

TEST_F(InsertionRelayTest, TheLengthIsThatOfTheMessageAsItCame) {
    const Bytes area = optionBytes(8, Bytes(46, 3)); // 50 bytes
    const Processed made = processed(area, 50 + 14 + 38);
    expectWrapped(made, 0, 54, messageBytes(1, together({area, NEW_18})));
    EXPECT_EQ(made.message.size() - 38, 68u) << "4 more than the options, which are 64 bytes by now";
}

TEST_F(InsertionRelayTest, AlsoWhenTheMessageBecameShorter) {
    const Bytes old = hexBytes("0012 0008 71727374 0023 7778"), behind = optionBytes(8, Bytes(24, 3)); // 12 + 28 bytes
    expectWrapped(processed(together({old, behind})), 0, 44,
                  messageBytes(1, together({Bytes(behind.begin() + 23, behind.end()), NEW_18})));
}

TEST_F(InsertionRelayTest, AnyOtherFlagThanZeroWraps) {
    for (const uint32_t flag : {1u, 2u, 0x100u, 0xFFFFFFFFu}) {
        dhcp6L2Relay = flag;
        expectWrapped(processed({}), 0, 4, messageBytes(1, NEW_18));
    }
    dhcp6L2Relay = 0;
    expectBare(processed({}), NEW_18);
}

TEST_F(InsertionRelayTest, EveryHandledTypeStartsAtNoHops) {
    for (const uint8_t handled : std::initializer_list<uint8_t>{1, 3, 4, 5, 6, 11}) {
        msgType = handled;
        expectWrapped(processed({}), 0, 4, messageBytes(handled, NEW_18));
    }
}

TEST_F(InsertionRelayTest, OptionsThatAreOffDoNotStopIt) {
    enableOptions({});
    expectWrapped(processed({}, 38), 0, 4, messageBytes(1, {}));
    const Bytes own = hexBytes("0012 0008 71727374 000c 7778");
    dhcp6InfoOptionPolicy.strategy = 1;
    expectWrapped(processed(own, 50), 0, 16, messageBytes(1, own));
}

TEST_F(InsertionRelayTest, ARelayedMessageKeepsItsHopCount) {
    msgType = 12;
    for (const uint8_t hops : std::initializer_list<uint8_t>{0, 1, 32, 255}) {
        Bytes relayed = relayMessage(12, options().relayMessage(message(1)));
        relayed[1] = hops;
        // As long as it is no option, what stands in the header is passed over; the new option goes to the end.
        const Bytes area(relayed.begin() + 4, relayed.end());
        const uint32_t total = static_cast<uint32_t>(area.size()) + 14 + 38;
        Bytes block = together({UDP_FROM_CLIENT, relayed});
        block.resize(12 + total);
        uint32_t newLen = static_cast<uint32_t>(area.size());
        EXPECT_EQ(dhcp6_info_option_process(12, block.data() + 12, newLen, &newLen, &ctx, 0, peer.data()), 0);
        EXPECT_EQ(newLen, total);
        EXPECT_EQ(Bytes(block.begin() + 8, block.end()),
                  together({wrapper(hops, static_cast<uint32_t>(relayed.size())), relayed, NEW_18}));
    }
}

// The walk over the options of a relayed message starts within its link address.
TEST_F(InsertionRelayTest, ARelayedMessageIsReadFromItsFifthByteOn) {
    msgType = 12;
    dhcp6L2Relay = 0;
    dhcp6InfoOptionPolicy.strategy = 2;
    const Bytes rest = together({hexBytes("0012 0002 aabb"), Bytes(24, 0), optionBytes(9, message(1))});
    expectBare(processed(rest), rest);
    const Bytes real = together({Bytes(30, 0), hexBytes("0012 0002 aabb")});
    const Bytes shifted = together({hexBytes("00ff 0018"), Bytes(26, 0), hexBytes("0012 0002 aabb")});
    expectBare(processed(shifted), together({shifted, NEW_18}));
    expectBare(processed(real), together({real, NEW_18}));
}

TEST_F(InsertionRelayTest, UpTo1458Bytes) {
    enableOptions({});
    expectWrapped(processed(Bytes(1458, 0), 1496), 0, 1462, messageBytes(1, Bytes(1458, 0)));
    expectBare(processed(Bytes(1459, 0), 1459), Bytes(1459, 0));
    EXPECT_EQ(recordingTraces, Lines{SAID_TOO_LONG});
}

TEST_F(InsertionRelayTest, TheLimitIsOfTheMessageWithItsOptions) {
    expectWrapped(processed(Bytes(1444, 0), 1496), 0, 1448, messageBytes(1, together({Bytes(1444, 0), NEW_18})));
    expectBare(processed(Bytes(1445, 0), 1459), together({Bytes(1445, 0), NEW_18}));
    EXPECT_EQ(recordingTraces, Lines{SAID_TOO_LONG}) << "the options stay";
}

TEST_F(InsertionRelayTest, TheRoomOfTheBufferCountsAsWell) {
    enableOptions({});
    ctx.room = 138;
    expectWrapped(processed(Bytes(100, 0), 138), 0, 104, messageBytes(1, Bytes(100, 0)));
    expectBare(processed(Bytes(101, 0), 101), Bytes(101, 0));
    EXPECT_EQ(recordingTraces, Lines{SAID_TOO_LONG});
}

} // namespace
