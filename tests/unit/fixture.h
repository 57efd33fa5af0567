#pragma once
// The switch that most tests stand on: 28 ports; VLAN 10 with ports 1 to 4, VLAN 20 with ports 1 to 5; servers behind port 4,
// which is trusted; debug lines on. Every test starts with fresh tables and an empty transcript, at second 1000.

#include <gtest/gtest.h>

#include "l2/dhcp6snooping/base/lease.h"
#include "l2/dhcp6snooping/clients/table.h"
#include "tests/platform/recording.h"
#include "tests/unit/frames.h"

using Lines = std::vector<std::string>;

struct SnoopingTest : testing::Test {
    void SetUp() override;
    void TearDown() override;
};

Lines joined(const std::vector<Lines> &parts);

// Transcript lines of one trace line, and of a frame of CLIENT, received in VLAN 10, that goes on as it came:
Lines said(const std::string &text);
// to the trusted ports of the VLAN (port 4), its destination being unknown;
Lines floodedToServers(const Frame &f, uint32_t receivingPort);
// to the VLAN's ports but the receiving one;
Lines floodedToClients(const Frame &f, uint32_t receivingPort, const std::string &ports);
// to one port, where its destination lives.
Lines sentTo(uint32_t port, const Frame &f);
// The question where the frame's destination lives.
Lines askedFor(const Frame &f);
// The last line of the floods above, with the frame's bytes given.
Lines sentToList(const std::string &ports, const Bytes &bytes, uint16_t vlan, uint32_t flags, uint32_t offset);

// The trace line of a recorded client of VLAN 10.
Lines saidRecorded(const std::string &type, const std::string &mac, uint32_t port);

Dhcp6SnoopingNode *clientOf(const std::string &mac);
// Puts a client into the table, counted on its port and VLAN the way a message would.
Dhcp6SnoopingNode *addClient(const std::string &mac, uint32_t vlan, uint32_t port);
Dhcp6SnoopingNode *addAckedClient(const std::string &mac, uint32_t vlan, uint32_t port);
void addLease(Dhcp6SnoopingNode *client, const std::string &address, uint32_t prefixLength, uint32_t valid);

// "2001:db8::1/128=100": address, prefix length and remaining seconds of a client's leases, in order.
Lines leasesOf(const Dhcp6AttrArray &leases);
// MACs of the table, in the order of a walk.
Lines tableMacs();
