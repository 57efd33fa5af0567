// Filters are values: installing twice is installing once, removing names the same values, removing what is absent is refused.

#include "platform/libqacl.h"

#include <cstring>
#include <functional>
#include <gtest/gtest.h>
#include <vector>

#include "tests/contract/setup.h"

namespace {

constexpr uint8_t MAC[6] = {2, 0, 0, 0, 0, 1};
constexpr uint8_t OTHER_MAC[6] = {2, 0, 0, 0, 0, 2};
constexpr uint8_t ANY_MAC[6] = {};
constexpr uint8_t ADDRESS[16] = {0x20, 1, 0x0D, 0xB8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1};
constexpr uint8_t OTHER_ADDRESS[16] = {0x20, 1, 0x0D, 0xB8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 2};

struct Filter {
    const char *name;
    std::function<int32_t()> install;
    std::function<int32_t()> remove;
};

Filter ofAddress(const char *name, const uint8_t *address) {
    return {name, [=] { return FRM_InstallGlobalForwardIp6AddrOnlyFilterResource(address); },
            [=] { return FRM_RemoveGlobalForwardIp6AddrOnlyFilterResource(address); }};
}

Filter ofMac(const char *name, const uint8_t *mac, const uint8_t *address) {
    return {name, [=] { return FRM_InstallGlobalForwardIp6AddrFilterResource(mac, address); },
            [=] { return FRM_RemoveGlobalForwardIp6AddrFilterResource(mac, address); }};
}

Filter ofPort(const char *name, uint32_t port, const uint8_t *mac, const uint8_t *address) {
    return {name, [=] { return FRM_InstallForwardIp6AddrFilterResource(port, mac, address); },
            [=] { return FRM_RemoveForwardIp6AddrFilterResource(port, mac, address); }};
}

Filter ofVlan(const char *name, uint32_t port, const uint8_t *mac, const uint8_t *address, uint32_t vlan) {
    return {name, [=] { return FRM_InstallForwardIp6AddrFilterResource_new(port, mac, address, vlan); },
            [=] { return FRM_RemoveForwardIp6AddrFilterResource_new(port, mac, address, vlan); }};
}

Filter denial(const char *name, uint32_t port) {
    return {name, [=] { return FRM_OperatePortDenyAllIp6FilterResource(FRM_OP_INSTALL, port); },
            [=] { return FRM_OperatePortDenyAllIp6FilterResource(FRM_OP_REMOVE, port); }};
}

Filter exemption(const char *name, uint16_t vlan) {
    return {name, [=] { return FRM_InstallGlobalForwardIp6VidOnlyFilterResource(vlan); },
            [=] { return FRM_RemoveGlobalForwardIp6VidOnlyFilterResource(vlan); }};
}

// No two of them are the same.
const std::vector<Filter> FILTERS = {
    ofAddress("address", ADDRESS),
    ofAddress("other address", OTHER_ADDRESS),
    ofMac("MAC", MAC, ADDRESS),
    ofMac("other MAC", OTHER_MAC, ADDRESS),
    ofMac("MAC, other address", MAC, OTHER_ADDRESS),
    ofPort("port 1", 1, MAC, ADDRESS),
    ofPort("port 2", 2, MAC, ADDRESS),
    ofPort("port 28", 28, MAC, ADDRESS),
    ofPort("port 1, other MAC", 1, OTHER_MAC, ADDRESS),
    ofPort("port 1, any MAC", 1, ANY_MAC, ADDRESS),
    ofPort("port 1, other address", 1, MAC, OTHER_ADDRESS),
    ofVlan("VLAN 1", 1, MAC, ADDRESS, 1),
    ofVlan("VLAN 2", 1, MAC, ADDRESS, 2),
    ofVlan("VLAN 257", 1, MAC, ADDRESS, 257),
    ofVlan("VLAN 4094", 1, MAC, ADDRESS, 4094),
    ofVlan("VLAN 1, port 2", 2, MAC, ADDRESS, 1),
    ofVlan("VLAN 1, other MAC", 1, OTHER_MAC, ADDRESS, 1),
    ofVlan("VLAN 1, any MAC", 1, ANY_MAC, ADDRESS, 1),
    ofVlan("VLAN 1, other address", 1, MAC, OTHER_ADDRESS, 1),
    denial("denial of port 1", 1),
    denial("denial of port 28", 28),
    exemption("exemption of VLAN 1", 1),
    exemption("exemption of VLAN 4094", 4094),
    {"neighbour discovery", FRM_InstallGlobalForwardIcmp6NdFilterResource, FRM_RemoveGlobalForwardIcmp6NdFilterResource},
};

class FilterContract : public testing::Test {
  protected:
    void SetUp() override {
        contractSetup();
        ASSERT_TRUE(contractSetupFilters());
    }
};

TEST_F(FilterContract, RemovingWhatIsAbsentIsRefused) {
    for (const Filter &filter : FILTERS)
        EXPECT_NE(filter.remove(), 0) << filter.name;
}

TEST_F(FilterContract, InstallingTwiceIsInstallingOnce) {
    for (const Filter &filter : FILTERS) {
        EXPECT_EQ(filter.install(), 0) << filter.name;
        EXPECT_EQ(filter.install(), 0) << filter.name;
        EXPECT_EQ(filter.remove(), 0) << filter.name;
        EXPECT_NE(filter.remove(), 0) << filter.name;
    }
}

TEST_F(FilterContract, EachIsItsOwn) {
    for (const Filter &one : FILTERS) {
        ASSERT_EQ(one.install(), 0) << one.name;
        for (const Filter &other : FILTERS)
            if (&one != &other) {
                EXPECT_NE(other.remove(), 0) << one.name << " taken for " << other.name;
            }
        EXPECT_EQ(one.remove(), 0) << one.name;
    }
}

TEST_F(FilterContract, AllTogether) {
    for (const Filter &filter : FILTERS)
        EXPECT_EQ(filter.install(), 0) << filter.name;
    for (const Filter &filter : FILTERS) // in another order than a stack's
        EXPECT_EQ(filter.remove(), 0) << filter.name;
    for (const Filter &filter : FILTERS)
        EXPECT_NE(filter.remove(), 0) << filter.name;
}

TEST_F(FilterContract, ValuesAreCopied) {
    uint8_t mac[6];
    uint8_t address[16];
    memcpy(mac, MAC, sizeof mac);
    memcpy(address, ADDRESS, sizeof address);
    ASSERT_EQ(FRM_InstallForwardIp6AddrFilterResource_new(3, mac, address, 9), 0);
    memset(mac, 0xEE, sizeof mac);
    memset(address, 0xEE, sizeof address);
    EXPECT_NE(FRM_RemoveForwardIp6AddrFilterResource_new(3, mac, address, 9), 0);
    EXPECT_EQ(FRM_RemoveForwardIp6AddrFilterResource_new(3, MAC, ADDRESS, 9), 0);
}

TEST_F(FilterContract, UnknownOperationsAreRefused) {
    for (const uint32_t operation : {0u, 1u, 2u, 5u, 0xFFFFFFFFu})
        EXPECT_NE(FRM_OperatePortDenyAllIp6FilterResource(operation, 1), 0) << operation;
    EXPECT_NE(FRM_OperatePortDenyAllIp6FilterResource(FRM_OP_REMOVE, 1), 0);
}

} // namespace
