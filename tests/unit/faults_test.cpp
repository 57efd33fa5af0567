// A whole life of the daemon, with every call of the platform and every allocation failing in turn.

#include "l2/dhcp6snooping/clients/limits.h"
#include "l2/dhcp6snooping/main/Dhcp6Snooping.h"
#include "l2/dhcp6snooping/packet/onoff.h"
#include "l2/dhcp6snooping/sourceguard/exemption.h"
#include "l2/dhcp6snooping/sourceguard/portmode.h"
#include "tests/unit/guard.h"
#include "tests/unit/infoopt.h"

#include <cstring>

namespace {

struct FaultsTest : GuardTest {};

Options bothLeases(uint32_t valid) {
    Options content = options().serverId().clientId().iaNa(500, 800, options().address("2001:db8::1", valid, valid));
    return content.iaPd(500, 800, options().prefix("2001:db8:1::", 56, valid, valid));
}

Bytes remoteCall(uint8_t id) { return {id, 0, 0, 0, 0, 0, 0, 0}; }

void addBindingOf(const std::string &address, const std::string &mac, uint32_t port) {
    ip6_source_guard_bind_node_add(ip6(address), macBytes(mac).data(), port, 10);
}

// A client's message that gets both options, with every element in the first, and a relay header.
void informedLife() {
    TemplateWords words;
    for (uint32_t element = 1; element <= 17; element++)
        words.element(element, "10");
    dhcp6_info_id_set(1, 5, &words.made);
    enableOptions({OPTION_18, OPTION_37});
    receive(fromClient(DHCP6_RENEW, options().clientId().option(37, {1, 2, 3})), 1);
    enableOptions({});
}

// What is configured by now, and something in every part of it.
void toldLife() {
    dhcp6SnoopingPortMaxIP[2] = 5;
    dhcp6SnoopingDhcpVlanMaxIP[10] = 5;
    std::vector<char> text(4096, '\0');
    auto space = static_cast<uint32_t>(text.size());
    snoopd6BldRun(text.data(), &space, 0x10000, 0);
    dhcp6SnoopingPortMaxIP[2] = 2048;
    dhcp6SnoopingDhcpVlanMaxIP[10] = 2048;
}

// Start-up, two guarded ports with bindings and an exempt VLAN, an exchange through to RENEW, options 18 and 37, a relayed
// REPLY, aging, RELEASE, a port that goes down, remote calls, the running configuration, stop.
void wholeLife() {
    uint32_t queueId = 0;
    dhcp6snooping_startup("snoopd6", &queueId);
    dhcp6SnoopingTrustPort[3] = 1;
    dhcp6snooping_start();
    recordingMacOnPort(10, macBytes(CLIENT).data(), 1);
    Bytes vlan10(512, 0), failed(512, 0);
    vlan10[1] = 0x20;
    ip6_source_guard_vlanlist_config(0, vlan10.data(), failed.data());
    addBindingOf(A2, M2, 1);
    set_ip6_source_guard_port_mode(1, 0);
    set_ip6_source_guard_port_mode(2, 0);
    addBindingOf(A3, NO_MAC, 0);
    receive(fromClient(DHCP6_SOLICIT, options().clientId().iaNa(0, 0)), 1);
    receive(fromServer(DHCP6_ADVERTISE, bothLeases(100)), 4);
    receive(fromClient(DHCP6_REQUEST, bothLeases(100)), 1);
    receive(fromServer(DHCP6_REPLY, bothLeases(100)), 4);
    receive(fromClient(DHCP6_RENEW, bothLeases(100)), 1);
    receive(fromServer(DHCP6_REPLY, bothLeases(100)), 4);
    addBindingOf(A1, CLIENT, 1);
    ip6_source_guard_bind_node_delete(ip6(A1));
    receive(fromClient(DHCP6_SOLICIT).from(OTHER_CLIENT).to(SERVER), 2);
    toldLife();
    dhcp6L2Relay = 1;
    informedLife();
    receive(frame()
                .from(SERVER)
                .to(OTHER_CLIENT)
                .udp(547)
                .carrying(relayMessage(DHCP6_RELAY_REPL, options().relayMessage(message(DHCP6_REPLY, bothLeases(20))))),
            4);
    for (uint32_t tick = 0; tick < 10; tick++) {
        recordingClock += 3;
        snoopd6TimerProcess(3, nullptr);
    }
    receive(fromClient(DHCP6_RELEASE, bothLeases(1)), 1);
    receive(fromClient(DHCP6_SOLICIT).from(OTHER_CLIENT), 2);
    dhcp6snoopingPortLinkProcess(2, 0);
    receive(fromClient(DHCP6_SOLICIT), 1);
    for (const uint8_t id : std::initializer_list<uint8_t>{1, 0, 29}) {
        recordingQueueMessage(VOS_MSG_TYPE_REMOTE_CALL, remoteCall(id));
        dhcp6snooping_serve_message(queueId);
    }
    receive(fromClient(DHCP6_SOLICIT), 1);
    set_ip6_source_guard_port_mode(2, 1);
    set_ip6_source_guard_port_mode(1, 1);
    ip6_source_guard_vlanlist_config(1, vlan10.data(), failed.data());
    ip6_source_guard_bind_node_delete_all();
}

// Tables are set up by the start-up step of the life itself.
void freshStart() {
    recordingReset();
    resetInfoPolicy();
    recordingVlan(10, {1, 2, 3, 4});
    recordingAddress(10, 10, 0xC0A80A01);
    recordingDebugOn = 1;
    dhcp6SnoopingOn = 0;
    dhcp6L2Relay = 0;
    memset(no_ip6_source_guard_vlan, 0, sizeof no_ip6_source_guard_vlan);
}

void expectWholeTable(const std::string &what) {
    uint32_t used = 0, counted = 0, byPort = 0;
    for (const Dhcp6SnoopingNode *node = dhcp6snooping_first_avlnode(); node != nullptr;
         node = dhcp6snooping_next_avlnode(node->mac)) {
        used++;
        counted += node->counted;
    }
    for (const uint16_t count : dhcp6SnoopingPortIpNum)
        byPort += count;
    EXPECT_EQ(used + listDhcp6SnoopingAvlNode.count, 2048u) << what;
    EXPECT_EQ(byPort, counted) << what;
    EXPECT_EQ(bindings(), Lines{}) << what;
}

TEST_F(FaultsTest, WithoutAFaultTheLifeIsAsExpected) {
    wholeLife();
    EXPECT_EQ(tableMacs(), Lines{CLIENT});
    EXPECT_EQ(recordingSent.size(), 13u);
    EXPECT_EQ(recordingCount("l3ifSwPrimIpGetByVid"), 1u);
    EXPECT_GT(recordingCount("FRM_InstallForwardIp6AddrFilterResource_new"), 3u);
    expectWholeTable("no fault");
}

TEST_F(FaultsTest, EveryCallFailsInTurn) {
    uint32_t faults = 0;
    for (uint32_t nth = 1;; nth++) {
        freshStart();
        recordingFailNth(nth);
        wholeLife();
        const std::string failed = recordingFailed;
        recordingFailNone();
        if (failed.empty())
            break;
        faults++;
        expectWholeTable(failed + " as call " + std::to_string(nth));
        dhcp6snooping_delete_allavlnode();
        ASSERT_EQ(listDhcp6SnoopingAvlNode.count, 2048u) << failed << " as call " << nth;
    }
    EXPECT_GT(faults, 300u);
}

TEST_F(FaultsTest, EveryFunctionFailsAlways) {
    const char *const functions[] = {"smdProcessInit",
                                     "OemInit",
                                     "vosMsgRegisterBldrun",
                                     "get_str_by_mid",
                                     "smdVDPortExistAndType",
                                     "vlan_exist",
                                     "smdRMWrapInit",
                                     "__smdRmWrapRegister",
                                     "vosTimerRegister",
                                     "smdVDLinktrapRegPort",
                                     "smdVDPktRegister",
                                     "smdVDPktRegRunning",
                                     "smdVDDhcp6snoopingOnOff",
                                     "smdVDMacGet",
                                     "VLAN_Api_PortList_Get",
                                     "lac_ap_2_ag_hi_hi_excpt_cur",
                                     "smdVDPktSendPort",
                                     "smdVDPktSendPortlist",
                                     "syslogSendInfo",
                                     "avlInsert",
                                     "avlSearch",
                                     "avlMinimumGet",
                                     "avlSuccessorGet",
                                     "lstGet",
                                     "vosInetNtop",
                                     "vosMsgRecv",
                                     "vosMsgResp",
                                     "smdCfgRmWrapProcess",
                                     "vosPrintf",
                                     "avlDelete",
                                     "getSWByVLAN",
                                     "vosHostNameGet",
                                     "getSysMacAdress",
                                     "smdVDPortSnmpToUser",
                                     "l3ifSwPrimIpGet",
                                     "l3ifSwPrimIpGetByVid",
                                     "oem_type_check",
                                     "FRM_OperatePortDenyAllIp6FilterResource",
                                     "FRM_InstallGlobalForwardIcmp6NdFilterResource",
                                     "FRM_RemoveGlobalForwardIcmp6NdFilterResource",
                                     "FRM_InstallGlobalForwardIp6VidOnlyFilterResource",
                                     "FRM_RemoveGlobalForwardIp6VidOnlyFilterResource",
                                     "FRM_InstallGlobalForwardIp6AddrOnlyFilterResource",
                                     "FRM_RemoveGlobalForwardIp6AddrOnlyFilterResource",
                                     "FRM_InstallForwardIp6AddrFilterResource_new",
                                     "FRM_RemoveForwardIp6AddrFilterResource_new"};
    for (const char *function : functions) {
        freshStart();
        recordingFailAlways(function);
        wholeLife();
        EXPECT_EQ(recordingFailed, strcmp(function, "vosPrintf") == 0 ? "" : function);
        recordingFailNone();
        expectWholeTable(function);
        dhcp6snooping_delete_allavlnode();
    }
}

TEST_F(FaultsTest, EveryAllocationFailsInTurn) {
    for (uint32_t nth = 1;; nth++) {
        freshStart();
        dhcp6snooping_init();
        addClient(CLIENT, 10, 1);
        dhcp6SnoopingTrustPort[3] = 1;
        const Bytes reply = bytesOf(fromServer(DHCP6_REPLY, bothLeases(100)));
        // The frame's own block is one of the allocations of processRaw, the first one.
        recordingAllocationsBegin(nth == 1 ? 0 : nth);
        processRaw(reply, 66, 0, 10, 3);
        const uint32_t made = recordingAllocationsEnd();
        EXPECT_EQ(recordingSent.size(), 1u) << "the REPLY goes on all the same";
        EXPECT_LE(clientOf(CLIENT)->leases.count, 2u);
        EXPECT_EQ(clientOf(CLIENT)->leases.count == 2, nth == 1 || nth > made) << nth;
        dhcp6snooping_delete_allavlnode();
        if (nth > made) {
            EXPECT_EQ(made, 7u) << "frame; parsed: slots and two copies; learned: the same";
            break;
        }
    }
}

TEST_F(FaultsTest, ALostQueueIsSaidAndTriedAgain) {
    recordingFailAlways("vosMsgRecv");
    for (uint32_t i = 0; i < 3; i++)
        dhcp6snooping_serve_message(7);
    EXPECT_EQ(recordingConsole, Lines(3, "\r\nmain:vosMsgRecv failed iRet = -1"));
}

} // namespace
