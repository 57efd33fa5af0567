// How filters are written in the kernel's table: set and key, byte by byte.

#include "platform/linux/guardkeys.h"

#include <bit>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace {

using Texts = std::vector<std::string>;

constexpr LinuxGuardPlace PLACE = {.ifindex = 0x01020304, .native = 1};

LinuxGuardKey filter(uint32_t kind, bool mac, uint32_t vlan) {
    LinuxGuardKey key{};
    key.kind = kind;
    key.port = 7;
    key.vlan = vlan;
    for (uint8_t i = 0; i < 6 && mac; ++i)
        key.mac[i] = static_cast<uint8_t>(0xA0 + i);
    for (uint8_t i = 0; i < 16; ++i)
        key.address[i] = static_cast<uint8_t>(0xB0 + i);
    return key;
}

// "set key", the key in hexadecimal with a space between its 4-byte fields. The interface index, in host order in the kernel,
// reads as on a big-endian machine.
Texts written(const LinuxGuardKey &key, LinuxGuardPlace place) {
    if constexpr (std::endian::native == std::endian::little)
        place.ifindex = __builtin_bswap32(place.ifindex);
    LinuxGuardElements elements;
    linuxGuardElements(&key, place, &elements);
    Texts texts;
    for (uint32_t i = 0; i < elements.count; ++i) {
        std::string text = elements.element[i].set;
        for (uint32_t at = 0; at < elements.element[i].length; ++at) {
            char byte[4];
            snprintf(byte, sizeof byte, at % 4 == 0 ? " %02x" : "%02x", elements.element[i].key[at]);
            text += byte;
        }
        texts.push_back(text);
    }
    return texts;
}

constexpr const char *ADDRESS = "b0b1b2b3 b4b5b6b7 b8b9babb bcbdbebf";

Texts with(std::initializer_list<const char *> fronts) {
    Texts texts;
    for (const char *front : fronts)
        texts.push_back(std::string(front) + " " + ADDRESS);
    return texts;
}

TEST(LinuxGuardKeys, WithoutAPort) {
    EXPECT_EQ(written(filter(LINUX_FILTER_ADDRESS, false, 0), {}), Texts{}) << "the map of sources has it";
    EXPECT_EQ(written(filter(LINUX_FILTER_MAC_ADDRESS, true, 0), {}), with({"f_mac_addr a0a1a2a3 a4a50000"}));
    // Only a filter with a port takes a zero MAC for any.
    EXPECT_EQ(written(filter(LINUX_FILTER_MAC_ADDRESS, false, 0), {}), with({"f_mac_addr 00000000 00000000"}));
}

TEST(LinuxGuardKeys, OfAPort) {
    EXPECT_EQ(written(filter(LINUX_FILTER_PORT, true, 0), PLACE), with({"f_port 01020304 a0a1a2a3 a4a50000"}));
    EXPECT_EQ(written(filter(LINUX_FILTER_PORT, false, 0), PLACE), with({"f_port_any 01020304"}));
}

TEST(LinuxGuardKeys, OfAPortAndVlan) {
    EXPECT_EQ(written(filter(LINUX_FILTER_PORT_VLAN, true, 0x0ABC), PLACE),
              with({"f_vlan 01020304 a0a1a2a3 a4a50000 0abc0000"}));
    EXPECT_EQ(written(filter(LINUX_FILTER_PORT_VLAN, false, 0x0ABC), PLACE), with({"f_vlan_any 01020304 0abc0000"}));
}

TEST(LinuxGuardKeys, OfTheNativeVlanTwice) {
    EXPECT_EQ(written(filter(LINUX_FILTER_PORT_VLAN, true, 1), PLACE),
              with({"f_vlan 01020304 a0a1a2a3 a4a50000 00010000", "f_native 01020304 a0a1a2a3 a4a50000"}));
    EXPECT_EQ(written(filter(LINUX_FILTER_PORT_VLAN, false, 1), PLACE),
              with({"f_vlan_any 01020304 00010000", "f_native_any 01020304"}));
    EXPECT_EQ(written(filter(LINUX_FILTER_PORT_VLAN, true, 1), {.ifindex = 0x01020304, .native = 0}),
              with({"f_vlan 01020304 a0a1a2a3 a4a50000 00010000"}));
}

TEST(LinuxGuardKeys, NowhereWithoutAnInterface) {
    for (const uint32_t kind : {LINUX_FILTER_PORT, LINUX_FILTER_PORT_VLAN})
        EXPECT_EQ(written(filter(kind, true, 1), {.ifindex = 0, .native = 1}), Texts{});
    EXPECT_EQ(written(filter(0, true, 1), PLACE), Texts{});
    EXPECT_EQ(written(filter(5, true, 1), PLACE), Texts{});
}

} // namespace
