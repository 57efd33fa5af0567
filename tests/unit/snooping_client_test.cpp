// SOLICIT, REQUEST, CONFIRM, RENEW and REBIND, and the messages that only pass through.

#include "l2/dhcp6snooping/clients/limits.h"
#include "l2/dhcp6snooping/packet/snooping.h"
#include "tests/unit/fixture.h"

namespace {

struct SnoopingClientTest : SnoopingTest {};

struct Type {
    uint8_t number;
    std::string name;
};
const Type RECORDED[] = {{DHCP6_SOLICIT, "SOLICIT"},
                         {DHCP6_REQUEST, "REQUEST"},
                         {DHCP6_CONFIRM, "CONFIRM"},
                         {DHCP6_RENEW, "RENEW"},
                         {DHCP6_REBIND, "REBIND"}};

Lines saidFull(const std::string &type) {
    return said("\r\n user number reaches max of port or vlan, drop dhcpv6 " + type + " msg");
}

TEST_F(SnoopingClientTest, EachTypeRecordsTheClientAndGoesToTheServers) {
    for (const Type &type : RECORDED) {
        SCOPED_TRACE(type.name);
        recordingClock = 7000;
        const Frame f = fromClient(type.number, options().clientId().iaNa(0, 0));
        const Outcome outcome = process(f, 2);
        EXPECT_EQ(outcome.result, 0);
        EXPECT_EQ(outcome.bytes, bytesOf(f));
        EXPECT_EQ(recordingTake(), joined({saidRecorded(type.name, CLIENT, 2), floodedToServers(f, 2)}));
        const Dhcp6SnoopingNode *client = clientOf(CLIENT);
        ASSERT_NE(client, nullptr);
        EXPECT_EQ(client->vlan, 10u);
        EXPECT_EQ(client->port, 2u);
        EXPECT_EQ(client->acked, 0u);
        EXPECT_EQ(client->counted, 1u);
        EXPECT_EQ(client->unack_timeout, 180u);
        EXPECT_EQ(client->last_update, 7000u);
        EXPECT_EQ(client->leases.count, 0u);
        EXPECT_EQ(dhcp6SnoopingPortIpNum[1], 1);
        EXPECT_EQ(dhcp6SnoopingDhcpVlanIpNum[10], 1);
        dhcp6snooping_delete_allavlnode();
    }
}

TEST_F(SnoopingClientTest, EachTypeWithoutAMacIsDropped) {
    for (const Type &type : RECORDED) {
        EXPECT_EQ(process(fromClient(type.number).from(NO_MAC), 2).result, 0);
        EXPECT_EQ(recordingTake(), said("\r\n client mac = 0, drop dhcpv6 " + type.name + " msg"));
    }
    EXPECT_EQ(tableMacs(), Lines{});
}

TEST_F(SnoopingClientTest, AMissingMacIsSaidBeforeAFullPort) {
    dhcp6SnoopingPortMaxIP[1] = 0;
    process(fromClient(DHCP6_SOLICIT).from(NO_MAC), 2);
    EXPECT_EQ(recordingTake(), said("\r\n client mac = 0, drop dhcpv6 SOLICIT msg"));
}

TEST_F(SnoopingClientTest, OneByteMakesAMac) {
    for (uint32_t i = 0; i < 6; i++) {
        Frame f = fromClient(DHCP6_SOLICIT).from(NO_MAC);
        f.source[i] = 1;
        process(f, 2);
    }
    EXPECT_EQ(tableMacs().size(), 6u);
}

TEST_F(SnoopingClientTest, OnATrustedPortNothingIsRecorded) {
    for (const Type &type : RECORDED) {
        const Frame f = fromClient(type.number);
        dhcp6SnoopingTrustPort[0] = 1;
        EXPECT_EQ(process(f, 1).result, 0);
        EXPECT_EQ(recordingTake(), floodedToServers(f, 1));
        EXPECT_EQ(tableMacs(), Lines{});
    }
}

TEST_F(SnoopingClientTest, OnlyTheValueOneIsTrust) {
    for (const uint32_t value : {2u, 0xFFFFFFFFu}) {
        dhcp6SnoopingTrustPort[0] = value;
        process(fromClient(DHCP6_SOLICIT), 1);
        EXPECT_EQ(tableMacs(), Lines{CLIENT});
        dhcp6snooping_delete_allavlnode();
    }
}

TEST_F(SnoopingClientTest, OnATrustedPortAnOldRecordIsKept) {
    addClient(CLIENT, 10, 2);
    process(fromClient(DHCP6_REQUEST), 4);
    ASSERT_NE(clientOf(CLIENT), nullptr);
    EXPECT_EQ(clientOf(CLIENT)->port, 2u);
}

TEST_F(SnoopingClientTest, ARepeatedMessageCountsOnceAndRestartsTheTimeout) {
    process(fromClient(DHCP6_SOLICIT), 2);
    clientOf(CLIENT)->unack_timeout = 5;
    recordingClock += 175;
    process(fromClient(DHCP6_REQUEST), 2);
    EXPECT_EQ(clientOf(CLIENT)->unack_timeout, 180u);
    EXPECT_EQ(clientOf(CLIENT)->last_update, recordingClock);
    EXPECT_EQ(dhcp6SnoopingPortIpNum[1], 1);
    EXPECT_EQ(dhcp6SnoopingDhcpVlanIpNum[10], 1);
}

TEST_F(SnoopingClientTest, AnAcknowledgedClientKeepsItsTimesAndLeases) {
    Dhcp6SnoopingNode *client = addAckedClient(CLIENT, 10, 2);
    addLease(client, "2001:db8::1", 128, 100);
    client->unack_timeout = 33;
    client->last_update = 44;
    process(fromClient(DHCP6_RENEW), 2);
    EXPECT_EQ(clientOf(CLIENT), client);
    EXPECT_EQ(client->unack_timeout, 33u);
    EXPECT_EQ(client->last_update, 44u);
    EXPECT_EQ(client->acked, 1u);
    EXPECT_EQ(leasesOf(client->leases), Lines{"2001:db8::1/128=100"});
}

TEST_F(SnoopingClientTest, AnotherPortMovesTheClient) {
    addLease(addAckedClient(CLIENT, 10, 1), "2001:db8::1", 128, 100);
    const Frame f = fromClient(DHCP6_SOLICIT);
    process(f, 2);
    EXPECT_EQ(recordingTake(), joined({saidRecorded("SOLICIT", CLIENT, 2), floodedToServers(f, 2)}));
    const Dhcp6SnoopingNode *client = clientOf(CLIENT);
    EXPECT_EQ(client->port, 2u);
    EXPECT_EQ(client->acked, 0u);
    EXPECT_EQ(client->counted, 1u);
    EXPECT_EQ(client->leases.count, 0u);
    EXPECT_EQ(dhcp6SnoopingPortIpNum[0], 0);
    EXPECT_EQ(dhcp6SnoopingPortIpNum[1], 1);
    EXPECT_EQ(dhcp6SnoopingDhcpVlanIpNum[10], 1);
}

TEST_F(SnoopingClientTest, AnotherVlanMovesTheClient) {
    addLease(addAckedClient(CLIENT, 20, 2), "2001:db8::1", 128, 100);
    process(fromClient(DHCP6_SOLICIT), 2);
    const Dhcp6SnoopingNode *client = clientOf(CLIENT);
    EXPECT_EQ(client->vlan, 10u);
    EXPECT_EQ(client->counted, 1u);
    EXPECT_EQ(client->leases.count, 0u);
    EXPECT_EQ(dhcp6SnoopingPortIpNum[1], 1);
    EXPECT_EQ(dhcp6SnoopingDhcpVlanIpNum[20], 0);
    EXPECT_EQ(dhcp6SnoopingDhcpVlanIpNum[10], 1);
}

TEST_F(SnoopingClientTest, AnUncountedRecordIsCounted) {
    Dhcp6SnoopingNode *client = dhcp6snooping_add_avlnode(macBytes(CLIENT).data());
    client->vlan = 10;
    client->port = 2;
    process(fromClient(DHCP6_SOLICIT), 2);
    EXPECT_EQ(client->counted, 1u);
    EXPECT_EQ(dhcp6SnoopingPortIpNum[1], 1);
}

TEST_F(SnoopingClientTest, CountsDoNotWrap) {
    Dhcp6SnoopingNode *client = addClient(CLIENT, 10, 2);
    client->counted = 0;
    dhcp6SnoopingPortIpNum[1] = dhcp6SnoopingDhcpVlanIpNum[10] = 65535;
    process(fromClient(DHCP6_SOLICIT), 2);
    EXPECT_EQ(client->counted, 1u);
    EXPECT_EQ(dhcp6SnoopingPortIpNum[1], 65535);
    EXPECT_EQ(dhcp6SnoopingDhcpVlanIpNum[10], 65535);
}

TEST_F(SnoopingClientTest, AFullPortTakesNoNewClient) {
    dhcp6SnoopingPortMaxIP[1] = 1;
    addClient(OTHER_CLIENT, 10, 2);
    for (const Type &type : RECORDED) {
        EXPECT_EQ(process(fromClient(type.number), 2).result, 0);
        EXPECT_EQ(recordingTake(), saidFull(type.name));
    }
    EXPECT_EQ(tableMacs(), Lines{OTHER_CLIENT});
    Frame renewal = fromClient(DHCP6_RENEW).from(OTHER_CLIENT);
    process(renewal, 2);
    EXPECT_EQ(recordingTake(), joined({saidRecorded("RENEW", OTHER_CLIENT, 2), floodedToServers(renewal, 2)}));
    process(renewal.vlan(20), 2);
    EXPECT_EQ(clientOf(OTHER_CLIENT)->vlan, 20u) << "a full port does not hold a client of its own in its VLAN";
    process(fromClient(DHCP6_SOLICIT), 1);
    EXPECT_EQ(tableMacs().size(), 2u) << "another port is not full";
}

TEST_F(SnoopingClientTest, AFullVlanTakesNoNewClient) {
    dhcp6SnoopingDhcpVlanMaxIP[10] = 1;
    addClient(OTHER_CLIENT, 10, 2);
    process(fromClient(DHCP6_SOLICIT), 1);
    EXPECT_EQ(recordingTake(), saidFull("SOLICIT"));
    process(fromClient(DHCP6_SOLICIT).vlan(20), 1);
    EXPECT_EQ(tableMacs(), (Lines{CLIENT, OTHER_CLIENT})) << "another VLAN is not full";
    recordingTake();
    process(fromClient(DHCP6_RENEW).from(OTHER_CLIENT), 1);
    ASSERT_NE(clientOf(OTHER_CLIENT), nullptr);
    EXPECT_EQ(clientOf(OTHER_CLIENT)->port, 1u) << "a full VLAN does not hold a client of its own on its port";
}

TEST_F(SnoopingClientTest, AFullPortKeepsClientsOfOtherPortsOut) {
    dhcp6SnoopingPortMaxIP[1] = 0;
    addClient(CLIENT, 10, 1);
    process(fromClient(DHCP6_SOLICIT), 2);
    EXPECT_EQ(recordingTake(), saidFull("SOLICIT"));
    EXPECT_EQ(clientOf(CLIENT)->port, 1u);
}

TEST_F(SnoopingClientTest, AFullVlanKeepsClientsOfOtherVlansOut) {
    dhcp6SnoopingDhcpVlanMaxIP[10] = 0;
    addClient(CLIENT, 20, 2);
    process(fromClient(DHCP6_SOLICIT), 2);
    EXPECT_EQ(recordingTake(), saidFull("SOLICIT"));
    EXPECT_EQ(clientOf(CLIENT)->vlan, 20u);
}

TEST_F(SnoopingClientTest, WithBothFullThePlaceMustBeTheClientsOwn) {
    dhcp6SnoopingPortMaxIP[1] = 0;
    dhcp6SnoopingDhcpVlanMaxIP[10] = 0;
    addClient(CLIENT, 10, 2);
    process(fromClient(DHCP6_SOLICIT), 2);
    EXPECT_EQ(recordingTake().front(), saidRecorded("SOLICIT", CLIENT, 2)[0]);
    clientOf(CLIENT)->vlan = 20;
    process(fromClient(DHCP6_SOLICIT), 2);
    EXPECT_EQ(recordingTake(), saidFull("SOLICIT"));
    clientOf(CLIENT)->vlan = 10;
    clientOf(CLIENT)->port = 3;
    process(fromClient(DHCP6_SOLICIT), 2);
    EXPECT_EQ(recordingTake(), saidFull("SOLICIT"));
    clientOf(CLIENT)->port = 2;
}

TEST_F(SnoopingClientTest, OneBelowTheLimitPassesOneAboveDoesNot) {
    dhcp6SnoopingPortMaxIP[1] = 5;
    for (const uint16_t count : std::initializer_list<uint16_t>{4, 5, 6}) {
        dhcp6SnoopingPortIpNum[1] = count;
        process(fromClient(DHCP6_SOLICIT), 2);
        EXPECT_EQ(tableMacs().size(), count == 4 ? 1u : 0u) << count;
        dhcp6snooping_delete_allavlnode();
    }
    dhcp6SnoopingPortIpNum[1] = 0;
    dhcp6SnoopingDhcpVlanMaxIP[10] = 5;
    for (const uint16_t count : std::initializer_list<uint16_t>{4, 5, 6}) {
        dhcp6SnoopingDhcpVlanIpNum[10] = count;
        process(fromClient(DHCP6_SOLICIT), 2);
        EXPECT_EQ(tableMacs().size(), count == 4 ? 1u : 0u) << count;
        dhcp6snooping_delete_allavlnode();
    }
}

TEST_F(SnoopingClientTest, LimitsHoldOnTrustedPortsToo) {
    dhcp6SnoopingDhcpVlanMaxIP[10] = 0;
    process(fromClient(DHCP6_REQUEST), 4);
    EXPECT_EQ(recordingTake(), saidFull("REQUEST"));
}

TEST_F(SnoopingClientTest, OutsideTheTablesEverythingIsFull) {
    gul_max_port_num = 64;
    for (const uint32_t port0 : {28u, 29u, 63u, 64u, 0x7FFFFFFFu, 0xFFFFFFFEu, 0xFFFFFFFFu}) {
        processRaw(bytesOf(fromClient(DHCP6_SOLICIT)), 66, 0, 10, port0);
        EXPECT_EQ(recordingTake(), saidFull("SOLICIT")) << port0;
    }
    for (const uint16_t vlan : std::initializer_list<uint16_t>{4096, 4097, 32768, 65535}) {
        processRaw(bytesOf(fromClient(DHCP6_SOLICIT)), 66, 0, vlan, 1);
        EXPECT_EQ(recordingTake(), saidFull("SOLICIT")) << vlan;
    }
    EXPECT_EQ(tableMacs(), Lines{});
}

TEST_F(SnoopingClientTest, TheLastPortAndTheOddVlansAreInside) {
    for (const uint16_t vlan : std::initializer_list<uint16_t>{0, 4095}) {
        processRaw(bytesOf(fromClient(DHCP6_SOLICIT)), 66, 0, vlan, 27);
        ASSERT_NE(clientOf(CLIENT), nullptr);
        EXPECT_EQ(clientOf(CLIENT)->vlan, vlan);
        EXPECT_EQ(clientOf(CLIENT)->port, 28u);
        EXPECT_EQ(dhcp6SnoopingDhcpVlanIpNum[vlan], 1);
        EXPECT_EQ(dhcp6SnoopingPortIpNum[27], 1);
        dhcp6snooping_delete_allavlnode();
        EXPECT_EQ(dhcp6SnoopingPortIpNum[27], 0);
    }
}

TEST_F(SnoopingClientTest, AnEmptyPoolStillServesTheClient) {
    std::vector<void *> taken;
    while (void *node = lstGet(&listDhcp6SnoopingAvlNode))
        taken.push_back(node);
    const Frame f = fromClient(DHCP6_SOLICIT);
    EXPECT_EQ(process(f, 2).result, 0);
    EXPECT_EQ(recordingTake(), joined({said("\r\n lstGet failed, no enough node space."), floodedToServers(f, 2)}));
    EXPECT_EQ(dhcp6SnoopingPortIpNum[1], 0);
    EXPECT_EQ(dhcp6SnoopingDhcpVlanIpNum[10], 0);
    for (void *node : taken)
        lstAdd(&listDhcp6SnoopingAvlNode, node);
}

TEST_F(SnoopingClientTest, APortWithoutATextIsNamedByNothing) {
    recordingPortText(2, std::string(80, 'p')); // as much as the platform ever writes
    process(fromClient(DHCP6_SOLICIT), 2);
    EXPECT_EQ(recordingTraces.back(),
              "\r\n receive dhcpv6 SOLICIT msg, record user: mac " + CLIENT + ", vlan 10, port " + std::string(63, 'p'));
    gul_max_port_num = 1;
    process(fromClient(DHCP6_SOLICIT), 3);
    EXPECT_EQ(recordingTraces[1], "\r\n receive dhcpv6 SOLICIT msg, record user: mac " + CLIENT + ", vlan 10, port ");
}

TEST_F(SnoopingClientTest, InformationRequestAndRelayForwardPassUnseen) {
    for (const uint8_t type : {DHCP6_INFORMATION_REQUEST, DHCP6_RELAY_FORW}) {
        for (const uint32_t port : {1u, 4u}) {
            const Frame f = fromClient(type).from(NO_MAC);
            if (port == 4)
                dhcp6SnoopingTrustPort[0] = 1;
            EXPECT_EQ(process(f, port).result, 0);
            const Lines lines = recordingTake();
            EXPECT_EQ(lines, port == 1 ? floodedToServers(f, 1) : floodedToClients(f, 4, "1"));
            dhcp6SnoopingTrustPort[0] = 0;
        }
    }
    dhcp6SnoopingPortMaxIP[0] = 0;
    process(fromClient(DHCP6_INFORMATION_REQUEST), 1);
    EXPECT_EQ(recordingSent.size(), 5u) << "no limit";
    EXPECT_EQ(tableMacs(), Lines{});
}

TEST_F(SnoopingClientTest, OtherTypesAreDroppedWithoutATrace) {
    for (uint32_t type = 0; type < 256; type++) {
        if (type >= 1 && type <= 13)
            continue;
        for (const uint32_t port : {1u, 4u})
            EXPECT_EQ(process(fromClient(static_cast<uint8_t>(type)), port).result, 0);
    }
    EXPECT_EQ(recordingTake(), Lines{});
    EXPECT_EQ(tableMacs(), Lines{});
}

TEST_F(SnoopingClientTest, WithoutAFrameItRefuses) {
    EXPECT_EQ(dhcp6snooping_packet_process(nullptr, 66, 10, 1), -1);
    Dhcp6PacketDescriptor packet = {};
    packet.length = 200;
    EXPECT_EQ(dhcp6snooping_packet_process(&packet, 66, 10, 1), -1);
    EXPECT_EQ(recordingTake(), Lines{});
}

TEST_F(SnoopingClientTest, WithoutDebugTheSameHappensInSilence) {
    recordingDebugOn = 0;
    const Frame f = fromClient(DHCP6_SOLICIT);
    process(f, 2);
    EXPECT_EQ(recordingTake(), floodedToServers(f, 2));
    EXPECT_EQ(tableMacs(), Lines{CLIENT});
}

TEST_F(SnoopingClientTest, AFailedSendChangesNothing) {
    recordingFailAlways("smdVDPktSendPortlist");
    EXPECT_EQ(process(fromClient(DHCP6_SOLICIT), 2).result, 0);
    EXPECT_EQ(tableMacs(), Lines{CLIENT});
}

} // namespace
