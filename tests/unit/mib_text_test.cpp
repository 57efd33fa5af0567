// Texts of the MIB: addresses, lists and durations.

#include "l2/dhcp6snooping/mib/text.h"
#include "tests/unit/fixture.h"

namespace {

struct MibTextTest : SnoopingTest {};

std::string text(const std::string &address, uint32_t prefixLength) {
    return dhcp6snooping_prefix_to_str(addressBytes(address).data(), prefixLength);
}

std::string duration(uint32_t seconds) {
    char out[32];
    EXPECT_EQ(mib_duration_to_str(seconds, out), out);
    return out;
}

std::string listOf(const Lines &items) {
    MibList list = {};
    for (const std::string &item : items)
        mib_list_add(&list, item.c_str());
    const uint32_t length = mib_list_end(&list);
    EXPECT_EQ(list.text[length], '\0');
    return {list.text, length};
}

TEST_F(MibTextTest, AddressesAndPrefixes) {
    EXPECT_EQ(text("2001:db8::1", 128), "2001:db8::1");
    EXPECT_EQ(text("2001:db8:1::", 56), "2001:db8:1::/56");
    EXPECT_EQ(text("::", 0), "::/0");
    EXPECT_EQ(text("::", 127), "::/127");
    EXPECT_EQ(text("::", 129), "::/129");
    const std::string longest = "2001:db80:1111:2222:3333:4444:5555:6666";
    EXPECT_EQ(text(longest, 0xFFFFFFFF), longest + "/4294967295");
    EXPECT_EQ(text("::ffff:192.0.2.255", 128), "::ffff:192.0.2.255");
}

TEST_F(MibTextTest, ThePlatformWritesAtMost47Characters) {
    recordingShowQuiet(true);
    text("2001:db8::1", 128);
    EXPECT_EQ(recordingTake(), Lines{"vosInetNtop family=" + std::to_string(VOS_AF_INET6) + " limit=47"});
    recordingShowQuiet(false);
}

TEST_F(MibTextTest, AnAddressThatCannotBeWrittenIsEmpty) {
    for (uint32_t call = 0; call < 4; call++)
        text("2001:db8:ffff::1", 128); // something in every buffer
    for (uint32_t call = 0; call < 4; call++) {
        recordingFailFunction("vosInetNtop", 1);
        EXPECT_EQ(text("2001:db8::1", 128), "");
    }
    recordingFailFunction("vosInetNtop", 1);
    EXPECT_EQ(text("2001:db8::1", 56), "/56");
}

TEST_F(MibTextTest, AResultStaysForFourCalls) {
    const char *kept[4];
    for (uint32_t call = 0; call < 4; call++)
        kept[call] = dhcp6snooping_prefix_to_str(addressBytes("2001:db8::" + std::to_string(call + 1)).data(), 128);
    for (uint32_t call = 0; call < 4; call++)
        EXPECT_EQ(kept[call], "2001:db8::" + std::to_string(call + 1));
    EXPECT_EQ(dhcp6snooping_prefix_to_str(addressBytes("2001:db8::9").data(), 128), kept[0]);
    EXPECT_STREQ(kept[0], "2001:db8::9");
    EXPECT_STREQ(kept[1], "2001:db8::2");
}

TEST_F(MibTextTest, DurationsFromTheFirstUnitThatIsNotZero) {
    EXPECT_EQ(duration(90061), "1d1h1m1s");
    EXPECT_EQ(duration(59), "59s");
    EXPECT_EQ(duration(3600), "1h0m0s");
    EXPECT_EQ(duration(0), "0s");
    EXPECT_EQ(duration(60), "1m0s");
    EXPECT_EQ(duration(61), "1m1s");
    EXPECT_EQ(duration(3599), "59m59s");
    EXPECT_EQ(duration(3661), "1h1m1s");
    EXPECT_EQ(duration(86399), "23h59m59s");
    EXPECT_EQ(duration(86400), "1d0h0m0s");
    EXPECT_EQ(duration(86400 + 59), "1d0h0m59s");
    EXPECT_EQ(duration(0xFFFFFFFF), "49710d6h28m15s");
}

TEST_F(MibTextTest, ListsWithoutTheLastComma) {
    EXPECT_EQ(listOf({}), "");
    EXPECT_EQ(listOf({"a"}), "a");
    EXPECT_EQ(listOf({"a", "bc"}), "a,bc");
    EXPECT_EQ(listOf({""}), ",") << "a text of one character stays as it is";
    EXPECT_EQ(listOf({"", ""}), ",");
}

TEST_F(MibTextTest, ListsFitTheirArea) {
    // An item, its comma and the end: 254 characters are the longest item.
    EXPECT_EQ(listOf({std::string(254, 'x')}), std::string(254, 'x'));
    EXPECT_EQ(listOf({std::string(255, 'x')}), "");
    EXPECT_EQ(listOf({std::string(400, 'x')}), "");
    EXPECT_EQ(listOf({std::string(200, 'x'), std::string(53, 'y')}), std::string(200, 'x') + "," + std::string(53, 'y'));
    EXPECT_EQ(listOf({std::string(200, 'x'), std::string(54, 'y')}), std::string(200, 'x'));
    EXPECT_EQ(listOf({std::string(200, 'x'), std::string(54, 'y'), "z"}), std::string(200, 'x') + ",z")
        << "an item that does not fit does not stop the next one";
    const Lines five(5, std::string(50, 'a')), six(6, std::string(50, 'a'));
    EXPECT_EQ(listOf(five).size(), 254u);
    EXPECT_EQ(listOf(six), listOf(five));
}

} // namespace
