// Start-up, the on/off switch, and the timer and link callbacks.

#include "l2/dhcp6snooping/clients/limits.h"
#include "l2/dhcp6snooping/main/Dhcp6Snooping.h"
#include "l2/dhcp6snooping/packet/onoff.h"
#include "l2/dhcp6snooping/sourceguard/portmode.h"
#include "tests/unit/fixture.h"

#include <cstring>
#include <unistd.h>

int snoopd6_main(int argc, char **argv); // the daemon's main, compiled under this name

namespace {

struct StartupTest : SnoopingTest {};

const std::string RULE_546 = "etherType=86dd protocol=17 udpPort=546 valid=0038 action=0";
const std::string RULE_547 = "etherType=86dd protocol=17 udpPort=547 valid=0038 action=0";

Lines registrations() {
    return {
        "smdRMWrapInit entries=37",
        "__smdRmWrapRegister id=0 zero=0 DH6S_FUNC_START dhcp6snoopingWrap_start",
        "__smdRmWrapRegister id=1 zero=0 DH6S_FUNC_STOP dhcp6snoopingWrap_stop",
        "__smdRmWrapRegister id=2 zero=0 DH6S_FUNC_PORT_MODE_SET dhcp6snoopingWrap_port_mode",
        "__smdRmWrapRegister id=3 zero=0 DH6S_FUNC_PORT_MODE_GET dhcp6snoopingWrap_port_mode_get",
        "__smdRmWrapRegister id=4 zero=0 DH6S_FUNC_SET_IP6_SOURCE_GUARD_PORT_MODE "
        "dhcp6snoopingWrap_set_ip6_source_guard_port_mode",
        "__smdRmWrapRegister id=5 zero=0 DH6S_FUNC_GET_IP6_SOURCE_GUARD_PORT_MODE "
        "dhcp6snoopingWrap_get_ip6_source_guard_port_mode",
        "__smdRmWrapRegister id=6 zero=0 DH6S_FUNC_PORT_MAX_CLIENTS_SET dhcp6snoopingWrap_port_maxclients",
        "__smdRmWrapRegister id=7 zero=0 DH6S_FUNC_PORT_MAX_CLIENTS_GET dhcp6snoopingWrap_port_maxclients_get",
        "__smdRmWrapRegister id=8 zero=0 DH6S_FUNC_VLANLIST_MAX_CLIENTS_SET dhcp6snoopingWrap_vlanlist_maxclients",
        "__smdRmWrapRegister id=9 zero=0 DH6S_FUNC_GET_NEXTCLIENTS_EXT dhcp6snoopingWrap_get_nextclients_ext",
        "__smdRmWrapRegister id=10 zero=0 DH6S_FUNC_GLOBAL_INFO_GET dhcp6snoopingWrap_GlobalInfoGet",
        "__smdRmWrapRegister id=11 zero=0 DH6S_FUNC_PORT_INFO_GET dhcp6snoopingWrap_PortInfoGet",
        "__smdRmWrapRegister id=12 zero=0 DH6S_FUNC_VLAN_MAXCLIENTS_GET dhcp6snoopingWrap_vlan_maxclients_get",
        "__smdRmWrapRegister id=13 zero=0 DH6S_FUNC_IP6_SOURCE_GUARD_BIND_ENTRY_NUM_GET "
        "dhcp6snoopingWrap_ip6_source_guard_bind_entry_num_get",
        "__smdRmWrapRegister id=14 zero=0 DH6S_FUNC_IP6_SOURCE_GUARD_BIND_NODE_ADD "
        "dhcp6snoopingWrap_ip6_source_guard_bind_node_add",
        "__smdRmWrapRegister id=15 zero=0 DH6S_FUNC_IP6_SOURCE_GUARD_BIND_NODE_CHECK "
        "dhcp6snoopingWrap_ip6_source_guard_bind_node_check",
        "__smdRmWrapRegister id=16 zero=0 DH6S_FUNC_IP6_SOURCE_GUARD_BIND_NODE_DELETE "
        "dhcp6snoopingWrap_ip6_source_guard_bind_node_delete",
        "__smdRmWrapRegister id=17 zero=0 DH6S_FUNC_IP6_SOURCE_GUARD_BIND_NODE_DELETE_ALL "
        "dhcp6snoopingWrap_ip6_source_guard_bind_node_delete_all",
        "__smdRmWrapRegister id=18 zero=0 DH6S_FUNC_IP6_SOURCE_GUARD_BIND_NODE_GET "
        "dhcp6snoopingWrap_ip6_source_guard_bind_node_get",
        "__smdRmWrapRegister id=19 zero=0 DH6S_FUNC_IP6_SOURCE_GUARD_BIND_NODE_GET_BY_IP "
        "dhcp6snoopingWrap_ip6_source_guard_bind_node_get_by_ip",
        "__smdRmWrapRegister id=20 zero=0 DH6S_FUNC_IP6_SOURCE_GUARD_BIND_FOR_SNMP_ADD "
        "dhcp6snoopingWrap_ip6_source_guard_bind_for_snmp_add",
        "__smdRmWrapRegister id=21 zero=0 DH6S_FUNC_IP6_SOURCE_GUARD_BIND_FOR_SNMP_DELETE "
        "dhcp6snoopingWrap_ip6_source_guard_bind_for_snmp_delete",
        "__smdRmWrapRegister id=22 zero=0 DH6S_FUNC_IP6_SOURCE_GUARD_BIND_FOR_SNMP_DELETE_ALL "
        "dhcp6snoopingWrap_ip6_source_guard_bind_for_snmp_delete_all",
        "__smdRmWrapRegister id=23 zero=0 DH6S_FUNC_IP6_SOURCE_GUARD_VLANLIST_CONFIG "
        "dhcp6snoopingWrap_ip6_source_guard_vlanlist_config",
        "__smdRmWrapRegister id=24 zero=0 DH6S_FUNC_IP6_SOURCE_GUARD_VLANLIST_GET "
        "dhcp6snoopingWrap_no_ip6_source_guard_vlanlist_get",
        "__smdRmWrapRegister id=25 zero=0 DH6S_FUNC_DELETE_BY_PORT dhcp6snoopingWrap_delete_by_port",
        "__smdRmWrapRegister id=26 zero=0 DH6S_FUNC_DELETE_BY_IP dhcp6snoopingWrap_delete_by_ip",
        "__smdRmWrapRegister id=27 zero=0 DH6S_FUNC_DELETE_BY_MAC dhcp6snoopingWrap_delete_by_mac",
        "__smdRmWrapRegister id=28 zero=0 DH6S_FUNC_DELETE_BY_VLAN dhcp6snoopingWrap_delete_by_vlan",
        "__smdRmWrapRegister id=29 zero=0 DH6S_FUNC_DELETE_ALL dhcp6snoopingWrap_delete_all",
        "__smdRmWrapRegister id=30 zero=0 DH6S_FUNC_INFO_OPTION18_ENALBE dhcp6snoopingWrap_info_option18_enable",
        "__smdRmWrapRegister id=31 zero=0 DH6S_FUNC_INFO_OPTION37_ENALBE dhcp6snoopingWrap_info_option37_enable",
        "__smdRmWrapRegister id=32 zero=0 DH6S_FUNC_INFO_ID_SET dhcp6snoopingWrap_info_id_set",
        "__smdRmWrapRegister id=33 zero=0 DH6S_FUNC_INFO_GET dhcp6snoopingWrap_info_get",
        "__smdRmWrapRegister id=34 zero=0 DH6S_FUNC_FASTREMOVE_ENABLE dhcp6snoopingWrap_fastRemove_enable",
        "__smdRmWrapRegister id=35 zero=0 DH6S_FUNC_L2RELAY_ENABLE dhcp6snoopingWrap_l2Relay_enable",
        "__smdRmWrapRegister id=36 zero=0 DH6S_FUNC_VLAN_RESET dhcp6snoopingWrap_vlan_reset",
    };
}

Lines startup() {
    return joined({{"smdProcessInit path=\"snoopd6\"", "OemInit", "vosMsgInit name=\"/sbin/snoopd6\" flag=255",
                    "ccdInit a=300 b=4", "ccdModuleRegister module=\"tqzL2Dhcp6Snooping\" objects=28", "vosMsgRegisterBldrun"},
                   registrations(),
                   {"vosTimerRegister mode=1 period=1000 user=0", "smdVDLinktrapRegPort zero0=0 zero1=0",
                    "smdVDPktRegister one=1 " + RULE_546 + " mode=3", "smdVDPktRegister one=1 " + RULE_547 + " mode=3"}});
}

TEST_F(StartupTest, RegistersEverythingInOrder) {
    uint32_t queueId = 0;
    EXPECT_EQ(dhcp6snooping_startup("snoopd6", &queueId), 0);
    EXPECT_EQ(recordingTake(), startup());
    EXPECT_EQ(queueId, 7u);
    EXPECT_EQ(recordingCallbacks.timer, snoopd6TimerProcess);
    EXPECT_EQ(recordingCallbacks.timerUser, nullptr);
    EXPECT_EQ(recordingCallbacks.link, dhcp6snoopingPortLinkProcess);
    EXPECT_EQ(recordingCallbacks.buildRunning, snoopd6BldRun);
    EXPECT_EQ(dhcp6snooping_is_enabled(), 0u);
}

TEST_F(StartupTest, TablesAreReadyBeforeTheQueueOpens) {
    dhcp6SnoopingTrustPort[0] = 1;
    recordingFailFunction("vosMsgInit", 1);
    uint32_t queueId = 0;
    EXPECT_EQ(dhcp6snooping_startup("snoopd6", &queueId), -1001);
    EXPECT_EQ(dhcp6SnoopingTrustPort[0], 0u);
}

TEST_F(StartupTest, WithoutAQueueItSaysSoAndEnds) {
    recordingFailFunction("vosMsgInit", 1);
    char name[] = "snoopd6";
    char *arguments[] = {name, nullptr};
    EXPECT_EQ(snoopd6_main(1, arguments), -1001);
    EXPECT_EQ(recordingConsole, Lines{"\r\nmain:vosMsgInit failed"});
    EXPECT_EQ(recordingTake(),
              (Lines{"smdProcessInit path=\"snoopd6\"", "OemInit", "vosMsgInit name=\"/sbin/snoopd6\" flag=255 -> fails",
                     "vosPrintf \"\\r\\nmain:vosMsgInit failed\""}));
}

TEST_F(StartupTest, AnyOtherFailedRegistrationIsIgnored) {
    const char *const names[] = {"smdProcessInit",
                                 "OemInit",
                                 "ccdInit",
                                 "ccdModuleRegister",
                                 "vosMsgRegisterBldrun",
                                 "smdRMWrapInit",
                                 "__smdRmWrapRegister",
                                 "vosTimerRegister",
                                 "smdVDLinktrapRegPort",
                                 "smdVDPktRegister"};
    for (const char *name : names) {
        SCOPED_TRACE(name);
        recordingTake();
        recordingFailFunction(name, 1);
        uint32_t queueId = 0;
        EXPECT_EQ(dhcp6snooping_startup("snoopd6", &queueId), 0);
        EXPECT_EQ(recordingFailed, name);
        const Lines lines = recordingTake();
        EXPECT_EQ(lines.back(), startup().back());
        uint32_t captures = 0;
        for (const std::string &line : lines)
            captures += line.starts_with("smdVDPktRegister ") ? 1 : 0;
        EXPECT_EQ(captures, 2u);
    }
}

TEST_F(StartupTest, MainStartsAndServesMessagesForEver) {
    char name[] = "snoopd6";
    char *arguments[] = {name, nullptr};
    const Lines expected =
        joined({startup(),
                {"vosMsgRecv queue=7 size=64500 timeout=-1", "vosPrintf \"\\r\\nmain:vosMsgRecv receive unknown msg 2\"",
                 "vosMsgRecv queue=7 size=64500 timeout=-1", "vosPrintf \"\\r\\nmain:vosMsgRecv failed iRet = -5\"",
                 "vosMsgRecv queue=7 size=64500 timeout=-1"}});
    EXPECT_EXIT(
        {
            recordingQueueMessage(2, {});
            recordingQueueRaw({}, -5);
            recordingOnEmptyQueue = [&expected]() { _exit(recordingTake() == expected ? 0 : 1); };
            snoopd6_main(1, arguments);
        },
        testing::ExitedWithCode(0), "");
}

TEST_F(StartupTest, InitSetsEveryTable) {
    memset(dhcp6SnoopingTrustPort, 0xFF, sizeof dhcp6SnoopingTrustPort);
    memset(Ip6SourceGuardPort, 0, sizeof Ip6SourceGuardPort);
    memset(dhcp6SnoopingPortMaxIP, 0xFF, sizeof dhcp6SnoopingPortMaxIP);
    memset(dhcp6SnoopingPortIpNum, 0xFF, sizeof dhcp6SnoopingPortIpNum);
    memset(dhcp6SnoopingDhcpVlanMaxIP, 0xFF, sizeof dhcp6SnoopingDhcpVlanMaxIP);
    memset(dhcp6SnoopingDhcpVlanIpNum, 0xFF, sizeof dhcp6SnoopingDhcpVlanIpNum);
    EXPECT_EQ(dhcp6snooping_init(), 0);
    for (uint32_t p = 0; p < 28; p++) {
        SCOPED_TRACE(p);
        EXPECT_EQ(dhcp6SnoopingTrustPort[p], 0u);
        EXPECT_EQ(Ip6SourceGuardPort[p], 1u);
        EXPECT_EQ(dhcp6SnoopingPortMaxIP[p], 2048);
        EXPECT_EQ(dhcp6SnoopingPortIpNum[p], 0);
    }
    for (uint32_t v = 0; v < 4096; v++) {
        ASSERT_EQ(dhcp6SnoopingDhcpVlanMaxIP[v], 2048) << v;
        ASSERT_EQ(dhcp6SnoopingDhcpVlanIpNum[v], 0) << v;
    }
    EXPECT_EQ(recordingTake(), Lines{});
}

TEST_F(StartupTest, InitLeavesTheSwitchesAlone) {
    bDhcp6SnoopingFastRemove = 0;
    dhcp6L2Relay = 1;
    dhcp6SnoopingOn = 1;
    dhcp6snooping_init();
    EXPECT_EQ(bDhcp6SnoopingFastRemove, 0u);
    EXPECT_EQ(dhcp6L2Relay, 1u);
    EXPECT_EQ(dhcp6SnoopingOn, 1u);
}

TEST_F(StartupTest, InitPutsThePoolOnTheListInOrder) {
    EXPECT_EQ(listDhcp6SnoopingAvlNode.count, 2048u);
    for (Dhcp6SnoopingNode &node : gDhcp6SnoopingAvlNode)
        ASSERT_EQ(lstGet(&listDhcp6SnoopingAvlNode), &node);
    EXPECT_EQ(lstGet(&listDhcp6SnoopingAvlNode), nullptr);
    dhcp6snooping_init();
}

TEST_F(StartupTest, InitAgainDropsClientsWithoutAWord) {
    addLease(addAckedClient(CLIENT, 10, 1), "2001:db8::1", 128, 100);
    addClient(OTHER_CLIENT, 10, 2);
    dhcp6snooping_init();
    EXPECT_EQ(tableMacs(), Lines{});
    EXPECT_EQ(listDhcp6SnoopingAvlNode.count, 2048u);
    EXPECT_EQ(listDhcp6SnoopingAvlNode.first, reinterpret_cast<LstNode *>(&gDhcp6SnoopingAvlNode[0]));
    EXPECT_EQ(recordingTake(), Lines{});
}

TEST_F(StartupTest, StartTellsTheSwitchAndTakesTheFrames) {
    EXPECT_EQ(dhcp6snooping_start(), 0);
    EXPECT_EQ(dhcp6snooping_is_enabled(), 1u);
    EXPECT_EQ(recordingTake(), (Lines{"smdVDDhcp6snoopingOnOff mode=1", "smdVDPktRegRunning one=1 " + RULE_546 + " mode=1",
                                      "smdVDPktRegRunning one=1 " + RULE_547 + " mode=1"}));
    EXPECT_EQ(dhcp6snooping_start(), 0);
    EXPECT_EQ(recordingTake(), Lines{});
}

TEST_F(StartupTest, StopGivesTheFramesBackAndForgetsTheClients) {
    dhcp6snooping_start();
    addLease(addAckedClient(CLIENT, 10, 1), "2001:db8::1", 128, 100);
    addClient(OTHER_CLIENT, 10, 2);
    recordingTake();
    EXPECT_EQ(dhcp6snooping_stop(), 0);
    EXPECT_EQ(dhcp6snooping_is_enabled(), 0u);
    EXPECT_EQ(recordingTake(), (Lines{"smdVDDhcp6snoopingOnOff mode=2", "smdVDPktRegRunning one=1 " + RULE_546 + " mode=3",
                                      "smdVDPktRegRunning one=1 " + RULE_547 + " mode=3"}));
    EXPECT_EQ(tableMacs(), Lines{});
    EXPECT_EQ(dhcp6SnoopingPortIpNum[0], 0);
}

TEST_F(StartupTest, StopDeletesAfterTheSwitchIsTold) {
    dhcp6snooping_start();
    addClient(CLIENT, 10, 1);
    recordingTake();
    recordingShowQuiet(true);
    dhcp6snooping_stop();
    const Lines lines = recordingTake();
    size_t lastRegistration = 0, firstDeletion = 0;
    for (size_t i = 0; i < lines.size(); i++) {
        if (lines[i].starts_with("smdVDPktRegRunning"))
            lastRegistration = i;
        if (lines[i] == "avlDelete" && firstDeletion == 0)
            firstDeletion = i;
    }
    EXPECT_GT(firstDeletion, lastRegistration);
    recordingShowQuiet(false);
}

// The switch is told what already holds: asked from inside the call, the daemon gives the new answer.
TEST_F(StartupTest, TheSwitchIsToldAfterTheFlagHasChanged) {
    std::vector<uint32_t> seen;
    recordingWhenCalled("smdVDDhcp6snoopingOnOff", [&seen]() { seen.push_back(dhcp6snooping_is_enabled()); });
    dhcp6snooping_start();
    dhcp6snooping_stop();
    recordingWhenCalled("", nullptr);
    EXPECT_EQ(seen, (std::vector<uint32_t>{1, 0}));
}

TEST_F(StartupTest, StopIsNotCutOffByTheClock) {
    dhcp6snooping_start();
    for (uint32_t i = 1; i <= 5; i++)
        addClient("02:00:00:00:00:0" + std::to_string(i), 10, 1);
    for (const char *name : {"lstAdd", "avlSuccessorGet", "avlMinimumGet", "avlDelete"})
        recordingClockMovesOn(name, 60);
    dhcp6snooping_stop();
    EXPECT_EQ(tableMacs(), Lines{});
    EXPECT_TRUE(recordingTraces.empty());
}

TEST_F(StartupTest, StopWhileOffTouchesNothing) {
    addClient(CLIENT, 10, 1);
    EXPECT_EQ(dhcp6snooping_stop(), 0);
    EXPECT_EQ(recordingTake(), Lines{});
    EXPECT_EQ(tableMacs(), Lines{CLIENT});
}

uint32_t remaining() { return static_cast<Dhcp6LeaseAttr *>(clientOf(CLIENT)->leases.items[0])->valid_lifetime; }

TEST_F(StartupTest, EveryTenthTickAges) {
    addLease(addAckedClient(CLIENT, 10, 1), "2001:db8::1", 128, 1000);
    while (remaining() == 1000) { // up to the end of a round that an earlier test began
        recordingClock++;
        EXPECT_EQ(snoopd6TimerProcess(3, nullptr), 0);
    }
    for (uint32_t round = 0; round < 3; round++) {
        const uint32_t before = remaining();
        for (uint32_t tick = 1; tick <= 9; tick++) {
            recordingClock++;
            EXPECT_EQ(snoopd6TimerProcess(3, nullptr), 0);
            ASSERT_EQ(remaining(), before) << tick;
        }
        recordingClock++;
        EXPECT_EQ(snoopd6TimerProcess(3, nullptr), 0);
        ASSERT_EQ(remaining(), before - 10);
    }
}

TEST_F(StartupTest, TheFirstAgingComesWithTheTenthTick) {
    GTEST_FLAG_SET(death_test_style, "threadsafe"); // a process of its own, whose counter nobody moved
    EXPECT_EXIT(
        {
            addLease(addAckedClient(CLIENT, 10, 1), "2001:db8::1", 128, 1000);
            recordingClock++;
            uint32_t ticks = 0;
            while (remaining() == 1000 && ticks < 50) {
                snoopd6TimerProcess(3, nullptr);
                ticks++;
            }
            _exit(static_cast<int>(ticks));
        },
        testing::ExitedWithCode(10), "");
    GTEST_FLAG_SET(death_test_style, "fast");
}

TEST_F(StartupTest, AgingRunsWhileSnoopingIsOff) {
    addClient(CLIENT, 10, 1);
    recordingClock += 180;
    for (uint32_t tick = 0; tick < 10; tick++)
        snoopd6TimerProcess(3, nullptr);
    EXPECT_EQ(tableMacs(), Lines{});
}

TEST_F(StartupTest, LinkDownRemovesThePortsClientsEvenWhileOff) {
    addClient(CLIENT, 10, 1);
    addClient(OTHER_CLIENT, 20, 2);
    EXPECT_EQ(dhcp6snoopingPortLinkProcess(1, 0), 0);
    EXPECT_EQ(tableMacs(), Lines{OTHER_CLIENT});
    EXPECT_EQ(recordingTake(), Lines{});
}

TEST_F(StartupTest, LinkUpAndFastRemoveOffRemoveNothing) {
    addClient(CLIENT, 10, 1);
    for (const uint32_t state : {1u, 2u, 0xFFFFFFFFu})
        EXPECT_EQ(dhcp6snoopingPortLinkProcess(1, state), 0);
    bDhcp6SnoopingFastRemove = 0;
    EXPECT_EQ(dhcp6snoopingPortLinkProcess(1, 0), 0);
    EXPECT_EQ(tableMacs(), Lines{CLIENT});
}

TEST_F(StartupTest, AnyNonZeroFastRemoveIsOnAndAnyPortIsSafe) {
    addClient(CLIENT, 10, 1);
    bDhcp6SnoopingFastRemove = 7;
    for (const uint32_t port : {0u, 29u, 0xFFFFFFFFu})
        EXPECT_EQ(dhcp6snoopingPortLinkProcess(port, 0), 0);
    EXPECT_EQ(tableMacs(), Lines{CLIENT});
    dhcp6snoopingPortLinkProcess(1, 0);
    EXPECT_EQ(tableMacs(), Lines{});
}

} // namespace
