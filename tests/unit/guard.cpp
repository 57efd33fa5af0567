#include "tests/unit/guard.h"

#include <arpa/inet.h>
#include <cstring>

#include "l2/dhcp6snooping/sourceguard/exemption.h"
#include "l2/dhcp6snooping/sourceguard/portmode.h"

namespace {

void clearGuard() {
    ip6_source_guard_port_init();
    ip6_source_guard_bind_node_delete_all();
    memset(no_ip6_source_guard_vlan, 0, sizeof no_ip6_source_guard_vlan);
    gIp6SourceguardFilterInsatlledNum = 0;
    recordingTake();
}

std::string macText(const uint8_t *mac) {
    char text[18];
    return macToStr(mac, text);
}

Lines filterLine(const std::string &verb, uint32_t kind, const std::string &address, const std::string &mac, uint32_t port,
                 uint32_t vlan) {
    const std::string host =
        "mac=" + recordingHex(macBytes(mac).data(), 6) + " address=" + recordingHex(addressBytes(address).data(), 16);
    const std::string onPort = "port=" + std::to_string(port) + " " + host;
    switch (kind) {
    case 1:
        return {"FRM_" + verb +
                "GlobalForwardIp6AddrOnlyFilterResource address=" + recordingHex(addressBytes(address).data(), 16)};
    case 2: return {"FRM_" + verb + "GlobalForwardIp6AddrFilterResource " + host};
    case 3: return {"FRM_" + verb + "ForwardIp6AddrFilterResource " + onPort};
    default: return {"FRM_" + verb + "ForwardIp6AddrFilterResource_new " + onPort + " vlan=" + std::to_string(vlan)};
    }
}

Lines denyLine(uint32_t operation, uint32_t port) {
    return {"FRM_OperatePortDenyAllIp6FilterResource operation=" + std::to_string(operation) + " port=" + std::to_string(port)};
}

} // namespace

void GuardTest::SetUp() {
    SnoopingTest::SetUp();
    clearGuard();
}

void GuardTest::TearDown() {
    recordingFailNone();
    clearGuard();
    SnoopingTest::TearDown();
}

Ip6Address ip6(const std::string &text) {
    Ip6Address address = {};
    const Bytes bytes = addressBytes(text);
    std::copy(bytes.begin(), bytes.end(), address.bytes);
    return address;
}

void guard(std::initializer_list<uint32_t> ports) {
    for (const uint32_t port : ports)
        Ip6SourceGuardPort[port - 1] = 0;
}

void unguard(std::initializer_list<uint32_t> ports) {
    for (const uint32_t port : ports)
        Ip6SourceGuardPort[port - 1] = 1;
}

void addBinding(const std::string &address, const std::string &mac, uint32_t port, uint32_t vlan) {
    EXPECT_EQ(ip6_source_guard_bind_node_add(ip6(address), macBytes(mac).data(), port, vlan), 0) << address;
    recordingTake();
}

Lines bindings() {
    Lines lines;
    const Ip6SourceGuardBindNode *previous = &Ip6SourceGuardBindListHead;
    for (const Ip6SourceGuardBindNode *node = previous->next; node != &Ip6SourceGuardBindListHead; node = node->next) {
        EXPECT_EQ(node->previous, previous);
        previous = node;
        char text[INET6_ADDRSTRLEN] = "";
        inet_ntop(AF_INET6, node->address.bytes, text, sizeof text);
        lines.push_back(std::string(text) + " " + macText(node->mac) + " port " + std::to_string(node->port) + " vlan " +
                        std::to_string(node->vlan));
    }
    EXPECT_EQ(Ip6SourceGuardBindListHead.previous, previous);
    EXPECT_EQ(gIp6SourceGuardBindNum, lines.size());
    EXPECT_EQ(ip6_source_guard_bind_entry_num_get(), lines.size());
    return lines;
}

Lines installed(uint32_t kind, const std::string &address, const std::string &mac, uint32_t port, uint32_t vlan) {
    return filterLine("Install", kind, address, mac, port, vlan);
}

Lines removed(uint32_t kind, const std::string &address, const std::string &mac, uint32_t port, uint32_t vlan) {
    return filterLine("Remove", kind, address, mac, port, vlan);
}

Lines failing(const Lines &call) {
    Lines lines = call;
    lines.back() += " -> fails";
    return lines;
}

Lines saidInstallFailed(int32_t total) {
    return said("dhcpv6 snooping install filter failed. Total filters installed:" + std::to_string(total) +
                "(inluding renew times).\r\n");
}

Lines saidRemoveFailed(int32_t total) {
    return said("dhcpv6 snooping remove filter failed. Total filters installed:" + std::to_string(total) +
                "(inluding renew times).\r\n");
}

Lines denyInstalled(uint32_t port) { return denyLine(3, port); }

Lines denyRemoved(uint32_t port) { return denyLine(4, port); }
