#include "tests/unit/fixture.h"

#include <arpa/inet.h>

#include "l2/dhcp6snooping/clients/limits.h"
#include "l2/dhcp6snooping/main/Dhcp6Snooping.h"
#include "tests/unit/infoopt.h"

void SnoopingTest::SetUp() {
    recordingReset();
    dhcp6SnoopingOn = 0;
    bDhcp6SnoopingFastRemove = 1;
    dhcp6L2Relay = 0;
    resetInfoPolicy();
    dhcp6snooping_init();
    recordingVlan(10, {1, 2, 3, 4});
    recordingVlan(20, {1, 2, 3, 4, 5});
    dhcp6SnoopingTrustPort[3] = 1;
    recordingDebugOn = 1;
    recordingTake();
}

void SnoopingTest::TearDown() {
    recordingFailNone();
    resetInfoPolicy();
    dhcp6snooping_delete_allavlnode();
    EXPECT_EQ(listDhcp6SnoopingAvlNode.count, DHCP6SNOOPING_CLIENTS_MAX) << "records lost";
}

Lines joined(const std::vector<Lines> &parts) {
    Lines all;
    for (const Lines &part : parts)
        all.insert(all.end(), part.begin(), part.end());
    return all;
}

Lines said(const std::string &text) { return {recordingTraceLine(text)}; }

namespace {

std::string frameText(const Bytes &bytes, uint16_t vlan, uint32_t flags, uint32_t offset) {
    char numbers[64];
    snprintf(numbers, sizeof numbers, " flags=%x offset=%u one=1", flags, offset);
    return "vlan=" + std::to_string(vlan) + " len=" + std::to_string(bytes.size()) + " bytes=" + recordingFrameName(bytes) +
           numbers;
}

Lines membersAsked(const Frame &f, uint32_t receivingPort) {
    const std::string members = f.outerVlan == 10 ? "f000000000000000" : "f800000000000000";
    return {"VLAN_Api_PortList_Get vlan=" + std::to_string(f.outerVlan) + " list=0000000000000000 zero=0",
            "lac_ap_2_ag_hi_hi_excpt_cur list=" + members + " port0=" + std::to_string(receivingPort - 1)};
}

} // namespace

Lines askedFor(const Frame &f) {
    if (f.destination == macBytes(BROADCAST))
        return {};
    return {"smdVDMacGet vlan=" + std::to_string(f.outerVlan) + " mac=" + recordingHex(f.destination.data(), 6)};
}

Lines sentToList(const std::string &ports, const Bytes &bytes, uint16_t vlan, uint32_t flags, uint32_t offset) {
    return {"smdVDPktSendPortlist ports=" + ports + " " + frameText(bytes, vlan, flags, offset)};
}

Lines floodedToServers(const Frame &f, uint32_t receivingPort) { return floodedToClients(f, receivingPort, "4"); }

Lines floodedToClients(const Frame &f, uint32_t receivingPort, const std::string &ports) {
    return joined({askedFor(f), membersAsked(f, receivingPort),
                   sentToList(ports, bytesOf(f), f.outerVlan, flagsOf(f), messageOffset(f))});
}

Lines sentTo(uint32_t port, const Frame &f) {
    return {"smdVDPktSendPort port=" + std::to_string(port) + " " +
            frameText(bytesOf(f), f.outerVlan, flagsOf(f), messageOffset(f))};
}

Lines saidRecorded(const std::string &type, const std::string &mac, uint32_t port) {
    return said("\r\n receive dhcpv6 " + type + " msg, record user: mac " + mac + ", vlan 10, port 0/" + std::to_string(port));
}

Dhcp6SnoopingNode *clientOf(const std::string &mac) { return dhcp6snooping_get_avlnode(macBytes(mac).data()); }

Dhcp6SnoopingNode *addClient(const std::string &mac, uint32_t vlan, uint32_t port) {
    Dhcp6SnoopingNode *client = dhcp6snooping_add_avlnode(macBytes(mac).data());
    client->vlan = vlan;
    client->port = port;
    client->counted = 1;
    client->unack_timeout = 180;
    client->last_update = recordingClock;
    dhcp6SnoopingPortIpNum[port - 1]++;
    dhcp6SnoopingDhcpVlanIpNum[vlan]++;
    return client;
}

Dhcp6SnoopingNode *addAckedClient(const std::string &mac, uint32_t vlan, uint32_t port) {
    Dhcp6SnoopingNode *client = addClient(mac, vlan, port);
    client->acked = 1;
    return client;
}

void addLease(Dhcp6SnoopingNode *client, const std::string &address, uint32_t prefixLength, uint32_t valid) {
    Dhcp6LeaseAttr lease = {};
    const Bytes bytes = addressBytes(address);
    std::copy(bytes.begin(), bytes.end(), lease.address);
    lease.prefix_len = prefixLength;
    lease.preferred_lifetime = valid;
    lease.valid_lifetime = valid;
    lease.learned_at = recordingClock;
    dhcp6snooping_attr_array_add(&client->leases, &lease, sizeof lease);
}

Lines leasesOf(const Dhcp6AttrArray &leases) {
    Lines lines;
    for (uint32_t i = 0; i < leases.count; i++) {
        const auto *lease = static_cast<const Dhcp6LeaseAttr *>(leases.items[i]);
        char text[INET6_ADDRSTRLEN] = "";
        inet_ntop(AF_INET6, lease->address, text, sizeof text);
        lines.push_back(std::string(text) + "/" + std::to_string(lease->prefix_len) + "=" +
                        std::to_string(lease->valid_lifetime));
    }
    return lines;
}

Lines tableMacs() {
    Lines macs;
    for (const Dhcp6SnoopingNode *node = dhcp6snooping_first_avlnode(); node != nullptr;
         node = dhcp6snooping_next_avlnode(node->mac)) {
        char text[18];
        macs.emplace_back(macToStr(node->mac, text));
    }
    return macs;
}
