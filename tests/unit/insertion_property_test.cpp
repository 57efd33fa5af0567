// A client's own option 18 or 37 of every length, at every place, under every strategy, against a slow and simple account of
// what has to become of the message.

#include "l2/dhcp6snooping/clients/limits.h"
#include "tests/unit/infoopt.h"

namespace {

const Bytes NEW_18 = hexBytes("0012 0002 4e31"), NEW_37 = hexBytes("0025 0006 0000b80f 4e33");

// What becomes of an option area, and how much of it there was at most.
struct Account {
    Bytes area;
    size_t most;
    bool goesOn = true;
    bool dropped = false;
    bool wrapped = false;
    size_t mark = 0; // bytes that a replaced option counts for
    Lines traces = {};

    void stop(const std::string &text) {
        traces.push_back(text);
        goesOn = false;
    }
    // Where the option stands; the size of the area when it is not there.
    size_t find(uint32_t code) const {
        size_t at = 0;
        while (area.size() - at >= 4) {
            const size_t length = area[at + 2] * 256u + area[at + 3];
            if (area.size() - at - 4 < length)
                break;
            if (area[at] * 256u + area[at + 1] == code)
                return at;
            at += 4 + length;
        }
        return area.size();
    }
    void pass(uint32_t code, const Bytes &option, uint32_t strategy) {
        const size_t at = find(code);
        const bool there = at != area.size();
        if (there && strategy == 1) {
            dropped = true;
            stop(SAID_STRATEGY);
        } else if (there && strategy == 2) {
            goesOn = false;
        }
        if (!goesOn)
            return;
        if (there)
            mark = at + 9 < area.size() ? area[at + 9] : 0;
        if (mark > area.size() || area.size() - mark + option.size() > 1500)
            return stop(SAID_TOO_LONG);
        const size_t left = area.size() - mark;
        if (there && at + mark < area.size())
            area.erase(area.begin() + static_cast<long>(at), area.begin() + static_cast<long>(at + mark));
        area.resize(left);
        area.insert(area.end(), option.begin(), option.end());
        most = std::max(most, area.size());
    }
};

struct Wanted {
    bool on18, on37;
    uint32_t strategy;
    bool relay;
};

Account accountOf(const Bytes &area, const Wanted &wanted) {
    Account account = {.area = area, .most = area.size()};
    if (wanted.on18)
        account.pass(18, NEW_18, wanted.strategy);
    if (wanted.on37 && account.goesOn)
        account.pass(37, NEW_37, wanted.strategy);
    if (wanted.relay && account.goesOn) {
        account.wrapped = account.area.size() + 42 <= 1500;
        if (!account.wrapped)
            account.traces.push_back(SAID_TOO_LONG);
    }
    if (account.wrapped)
        account.most = std::max(account.most, account.area.size() + 38);
    return account;
}

// An option as a client might send it: its data all of one byte.
Bytes ownOption(uint8_t code, size_t length, uint32_t pattern) {
    const uint8_t fills[] = {0, 0xFF, static_cast<uint8_t>(length + 4), 25};
    return optionBytes(code, Bytes(length, fills[pattern]));
}

struct InsertionPropertyTest : InfoTest {
    const Bytes identity = options().clientId().bytes;
    const Bytes more = options().option(8, {0, 1}).option(6, {0, 23, 0, 24}).bytes;

    void SetUp() override {
        InfoTest::SetUp();
        useString(OPTION_18, "N1");
        useString(OPTION_37, "N3");
    }
    std::vector<Bytes> areasWith(const Bytes &own) const {
        return {together({own, identity, more}), together({identity, own, more}), together({identity, more, own}), own};
    }
    void use(const Wanted &wanted) {
        dhcp6InfoOptionPolicy.option18Enable = wanted.on18 ? 1 : 0;
        dhcp6InfoOptionPolicy.option37Enable = wanted.on37 ? 1 : 0;
        dhcp6InfoOptionPolicy.strategy = wanted.strategy;
        dhcp6L2Relay = wanted.relay ? 1 : 0;
        recordingTraces.clear();
        recordingTake();
    }
    Bytes messageOf(const Account &account, size_t optLen) const {
        const Bytes inside = messageBytes(DHCP6_SOLICIT, account.area);
        if (!account.wrapped)
            return inside;
        const size_t relayed = optLen + 4;
        const Bytes header = {0, 9, static_cast<uint8_t>(relayed >> 8), static_cast<uint8_t>(relayed)};
        return together({{12, 0}, Bytes(16, 0), peer, header, inside});
    }
    // In a block that has no byte more than the message needs at any time.
    void expectAccount(const Bytes &area, const Wanted &wanted) {
        use(wanted);
        const Account account = accountOf(area, wanted);
        const Processed made = processed(area, static_cast<uint32_t>(account.most));
        ASSERT_EQ(made.result, account.dropped ? -1 : 0);
        ASSERT_EQ(made.message, messageOf(account, area.size()));
        ASSERT_EQ(made.udp, account.wrapped ? UDP_FROM_RELAY : UDP_FROM_CLIENT);
        ASSERT_EQ(recordingTraces, account.traces);
    }
};

TEST_F(InsertionPropertyTest, AnyOwnOptionAnywhere) {
    for (const uint8_t code : {OPTION_18, OPTION_37})
        for (size_t length = 0; length <= 300; length++)
            for (uint32_t pattern = 0; pattern < 4; pattern++)
                for (const Bytes &area : areasWith(ownOption(code, length, pattern)))
                    for (uint32_t strategy = 1; strategy <= 3; strategy++) {
                        SCOPED_TRACE(testing::Message() << "option " << int{code} << " of " << length << ", pattern " << pattern
                                                        << ", strategy " << strategy);
                        expectAccount(area, {true, true, strategy, length % 2 == 0});
                        if (HasFatalFailure())
                            return;
                    }
}

TEST_F(InsertionPropertyTest, OneOptionOnAndTheOtherThere) {
    for (const uint8_t code : {OPTION_18, OPTION_37})
        for (size_t length = 0; length <= 300; length += length < 20 ? 1 : 7)
            for (const Bytes &area : areasWith(ownOption(code, length, 3)))
                for (uint32_t enabled = 0; enabled < 4; enabled++)
                    for (uint32_t strategy = 1; strategy <= 3; strategy++) {
                        expectAccount(area, {(enabled & 1) != 0, (enabled & 2) != 0, strategy, false});
                        expectAccount(area, {(enabled & 1) != 0, (enabled & 2) != 0, strategy, true});
                        if (HasFatalFailure())
                            return;
                    }
}

TEST_F(InsertionPropertyTest, BothThereInEitherOrder) {
    for (size_t length = 0; length <= 300; length += length < 20 ? 1 : 11)
        for (uint32_t patterns = 0; patterns < 16; patterns++) {
            const Bytes own18 = ownOption(OPTION_18, length, patterns % 4);
            const Bytes own37 = ownOption(OPTION_37, 300 - length, patterns / 4);
            for (const Bytes &area : {together({own18, own37, more}), together({own37, identity, own18})})
                for (const bool relay : {false, true})
                    expectAccount(area, {true, true, 3, relay});
            if (HasFatalFailure())
                return;
        }
}

// Every size that an option can count for, with every number of bytes behind it.
TEST_F(InsertionPropertyTest, EveryCountedSize) {
    for (uint32_t counted = 0; counted < 256; counted++)
        for (size_t behind = 0; behind < 270; behind += behind < 24 ? 1 : 13) {
            const Bytes own = together({hexBytes("0012 0006 71727374 00"), {static_cast<uint8_t>(counted)}});
            expectAccount(together({identity, own, Bytes(behind, 0xAA)}), {true, counted % 2 == 0, 3, false});
            if (HasFatalFailure())
                return;
        }
}

TEST_F(InsertionPropertyTest, LongMessagesAroundTheLimits) {
    for (size_t length = 1400; length <= 1520; length++)
        for (uint32_t enabled = 0; enabled < 4; enabled++)
            for (const bool relay : {false, true}) {
                const Wanted wanted = {(enabled & 1) != 0, (enabled & 2) != 0, 3, relay};
                expectAccount(Bytes(length, 0), wanted);
                expectAccount(together({ownOption(OPTION_18, 21, 3), Bytes(length - 25, 0)}), wanted);
                if (HasFatalFailure())
                    return;
            }
}

// The same in whole frames, which are made anew from what the message has to be: every length and the checksum agree.
TEST_F(InsertionPropertyTest, WholeFramesAgreeWithThemselves) {
    for (size_t length = 0; length <= 300; length++)
        for (const uint8_t code : {OPTION_18, OPTION_37}) {
            const std::vector<Bytes> areas = areasWith(ownOption(code, length, 2));
            for (uint32_t round = 0; round < 12; round++) {
                const Bytes &area = areas[round % 4];
                const Wanted wanted = {true, true, 1 + round / 4, (round + length) % 2 == 0};
                use(wanted);
                Frame f = fromClient(DHCP6_SOLICIT, Options{area});
                if (length % 3 == 0)
                    f.inner(30);
                const Inserted made = inserted(f);
                const Account account = accountOf(area, wanted);
                ASSERT_EQ(made.forwarded, !account.dropped);
                if (account.dropped)
                    continue;
                f.carrying(messageOf(account, area.size())).udpFrom(account.wrapped ? 547 : 546);
                ASSERT_EQ(made.bytes, bytesOf(f)) << "option " << int{code} << " of " << length << ", round " << round;
            }
        }
}

} // namespace
