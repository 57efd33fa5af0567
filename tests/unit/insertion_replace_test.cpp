// An option that is replaced counts for as many bytes as its own contents say: the low byte of the number at its offset 8. What
// that leaves behind, byte by byte.

#include "l2/dhcp6snooping/clients/limits.h"
#include "tests/unit/infoopt.h"

namespace {

const Bytes NEW_18 = hexBytes("0012 0002 4e31"), NEW_37 = hexBytes("0025 0006 0000b80f 4e33");

struct InsertionReplaceTest : InfoTest {
    void SetUp() override {
        InfoTest::SetUp();
        useString(OPTION_18, "N1");
        useString(OPTION_37, "N3");
        enableOptions({OPTION_18, OPTION_37});
    }
    void expectArea(const Bytes &area, const std::vector<Bytes> &expected, uint32_t capacity = 300) {
        const Processed made = processed(area, capacity);
        const Bytes whole = together(expected);
        EXPECT_EQ(made.result, 0);
        EXPECT_EQ(made.newLen, whole.size());
        EXPECT_EQ(made.message, messageBytes(msgType, whole));
        EXPECT_EQ(recordingTraces, Lines{});
    }
    void expectRefused(const Bytes &area, const std::vector<Bytes> &expected) {
        recordingTraces.clear();
        const Processed made = processed(area, static_cast<uint32_t>(std::max(area.size(), together(expected).size())));
        EXPECT_EQ(made.result, 0);
        EXPECT_EQ(made.message, messageBytes(msgType, together(expected)));
        EXPECT_EQ(recordingTraces, Lines{SAID_TOO_LONG});
        recordingTraces.clear();
    }
};

TEST_F(InsertionReplaceTest, ASizeThatIsItsOwnRemovesItCleanly) {
    enableOptions({OPTION_37});
    const Bytes before = optionBytes(8, {0, 1}), old = hexBytes("0025 0008 0000b80f 000c aabb"),
                behind = optionBytes(6, {0, 23});
    expectArea(together({before, old, behind}), {before, behind, NEW_37});
    expectArea(together({old, before, behind}), {before, behind, NEW_37});
    expectArea(together({before, behind, old}), {before, behind, NEW_37});
    expectArea(old, {NEW_37}, 12);
}

TEST_F(InsertionReplaceTest, ALargeNumberIsCutToItsLowByte) {
    enableOptions({OPTION_37});
    const Bytes old = hexBytes("0025 000a 0000b80f 012c aabbccdd"); // 14 bytes that count as 44
    const Bytes behind = together({optionBytes(6, Bytes(26, 7)), optionBytes(8, {0, 1})});
    // Behind the option stand 36 bytes; 30 of them go with it.
    expectArea(together({old, behind}), {optionBytes(8, {0, 1}), NEW_37});
}

TEST_F(InsertionReplaceTest, ATooSmallNumberLeavesItsTail) {
    enableOptions({OPTION_18});
    const Bytes old = hexBytes("0012 0008 71727374 0005 7778"), behind = optionBytes(8, {0, 1});
    expectArea(together({old, behind}), {hexBytes("72737400057778"), behind, NEW_18});
    const Bytes zero = hexBytes("0012 0008 71727374 ff00 7778");
    expectArea(together({zero, behind}), {zero, behind, NEW_18});
}

TEST_F(InsertionReplaceTest, ATooLargeNumberTakesWhatFollows) {
    enableOptions({OPTION_18});
    const Bytes old = hexBytes("0012 0006 71727374 0010"), behind = hexBytes("0008 0002 0001 0006 0002 0017"); // 10 + 12 bytes
    expectArea(together({old, behind}), {hexBytes("0006 0002 0017"), NEW_18});
}

TEST_F(InsertionReplaceTest, ANumberThatReachesBehindTheAreaEatsWhatStandsInFront) {
    enableOptions({OPTION_18});
    const Bytes before = hexBytes("0008 0004 01020304 0006 0004 05060708");                 // 16 bytes
    const Bytes old = hexBytes("0012 0006 71727374 0010"), behind = hexBytes("00080001aa"); // 10 + 5 bytes, counts for 16
    // Nothing is left to be moved: the area becomes 31 - 16 = 15 bytes, and what stands there stays.
    expectArea(together({before, old, behind}), {Bytes(before.begin(), before.begin() + 15), NEW_18});
    const Bytes exact = together({behind, {0xBB}});
    expectArea(together({before, old, exact}), {before, NEW_18});
}

TEST_F(InsertionReplaceTest, ANumberLargerThanTheAreaIsTooLong) {
    enableOptions({OPTION_18});
    const Bytes before = hexBytes("0008 0002 0001");
    for (const uint8_t counted : std::initializer_list<uint8_t>{17, 18, 100, 255}) {
        const Bytes area = together({before, hexBytes("0012 0006 71727374 00"), {counted}});
        expectRefused(area, {area});
    }
    const Bytes all = together({before, hexBytes("0012 0006 71727374 00"), {16}});
    expectArea(all, {NEW_18}, 16);
}

TEST_F(InsertionReplaceTest, AShortOptionIsReadOverItsEnd) {
    enableOptions({OPTION_18});
    for (size_t length = 0; length < 6; length++) {
        const Bytes old = optionBytes(18, Bytes(length, 0x11));
        expectArea(old, {old, NEW_18}, static_cast<uint32_t>(old.size() + NEW_18.size()));
        // One byte more lies where the size is read: then it counts.
        Bytes follows = together({old, Bytes(6 - length, 0)});
        follows.back() = 4;
        expectArea(follows, {Bytes(follows.begin() + 4, follows.end()), NEW_18});
    }
    const Bytes six = hexBytes("0012 0006 71727374 000a");
    expectArea(six, {NEW_18}, 10);
}

TEST_F(InsertionReplaceTest, TheFirstOfSeveralIsReplaced) {
    enableOptions({OPTION_37});
    const Bytes first = hexBytes("0025 0006 00000001 000a"), second = hexBytes("0025 0006 00000002 000a");
    expectArea(together({first, second}), {second, NEW_37});
}

TEST_F(InsertionReplaceTest, BothAreReplaced) {
    const Bytes old18 = hexBytes("0012 0008 71727374 000c 7778"), old37 = hexBytes("0025 000a 0000b80f 000e aabbccdd");
    const Bytes behind = optionBytes(8, {0, 1});
    expectArea(together({old18, old37, behind}), {behind, NEW_18, NEW_37});
    expectArea(together({old37, behind, old18}), {behind, NEW_18, NEW_37});
}

// The first pass leaves its mark: the size goes off the length a second time, with nothing moved.
TEST_F(InsertionReplaceTest, TheSizeOfTheFirstIsTakenOffAgainInTheSecondPass) {
    const Bytes old18 = hexBytes("0012 0008 71727374 000c 7778"), behind = optionBytes(8, Bytes(16, 5)); // 12, 20 bytes
    // After the first pass: behind, NEW_18 = 26 bytes; 12 of them are cut off before option 37 is written.
    expectArea(together({old18, behind}), {Bytes(behind.begin(), behind.begin() + 14), NEW_37});
    // A mark of 0 takes nothing.
    const Bytes zero = hexBytes("0012 0008 71727374 0000 7778");
    expectArea(zero, {zero, NEW_18, NEW_37});
}

TEST_F(InsertionReplaceTest, TheMarkMayBeMoreThanIsLeft) {
    const Bytes old18 = hexBytes("0012 0008 71727374 000c 7778"); // 12 bytes, then NEW_18 alone: 6 bytes
    expectRefused(old18, {NEW_18});
    const Bytes six = hexBytes("0008 0002 0001"); // 18 bytes, then 12: all of it goes
    expectArea(together({old18, six}), {NEW_37});
}

TEST_F(InsertionReplaceTest, TheMarkCountsInTheLengthTest) {
    const Bytes old18 = hexBytes("0012 0008 71727374 000c 7778"), filler = optionBytes(99, Bytes(1490, 0)); // 12 + 1494
    const Processed made = processed(together({old18, filler}), 1506);
    // 1500 after the first pass; without the mark there would be no place for option 37.
    const Bytes kept = together({filler, NEW_18});
    EXPECT_EQ(made.message, messageBytes(1, together({Bytes(kept.begin(), kept.begin() + 1488), NEW_37})));
    EXPECT_EQ(recordingTraces, Lines{});
}

TEST_F(InsertionReplaceTest, AnOption37OfItsOwnReplacesTheMark) {
    const Bytes old18 = hexBytes("0012 0008 71727374 000c 7778"), old37 = hexBytes("0025 0006 0000b80f 0000");
    expectArea(together({old18, old37}), {old37, NEW_18, NEW_37});
}

TEST_F(InsertionReplaceTest, NoMarkIsLeftForTheNextMessage) {
    expectRefused(hexBytes("0012 0008 71727374 000c 7778"), {NEW_18});
    const Bytes plain = optionBytes(8, {0, 1});
    expectArea(plain, {plain, NEW_18, NEW_37});
}

} // namespace
