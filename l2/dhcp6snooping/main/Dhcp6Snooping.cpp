#include "l2/dhcp6snooping/main/Dhcp6Snooping.h"

#include <algorithm>
#include <cstring>

#include "l2/dhcp6snooping/clients/aging.h"
#include "l2/dhcp6snooping/clients/bulk.h"
#include "l2/dhcp6snooping/clients/limits.h"
#include "l2/dhcp6snooping/clients/table.h"
#include "l2/dhcp6snooping/mgmt/remotecalls.h"
#include "l2/dhcp6snooping/mgmt/runningconfig.h"
#include "l2/dhcp6snooping/mib/objects.h"
#include "l2/dhcp6snooping/packet/capture.h"
#include "l2/dhcp6snooping/sourceguard/portmode.h"
#include "l2/dhcp6snooping/sourceguard/snmprows.h"
#include "platform/libccd.h"
#include "platform/liboem.h"
#include "platform/libsmd.h"

alignas(16) uint8_t g_smdMsgRecvBuffer[VOS_MSG_MAX];

namespace {

constexpr const char *QUEUE_NAME = "/sbin/snoopd6";
constexpr uint32_t QUEUE_FLAG = 255;
constexpr uint32_t MIB_SIZE = 300; // both are the sub-agent library's
constexpr uint32_t MIB_DEPTH = 4;
constexpr uint32_t TIMER_PERIODIC = 1;
constexpr uint32_t TICK_MS = 1000;
constexpr uint32_t TICKS_PER_AGING = 10;
constexpr int32_t START_FAILED = -1001;
constexpr uint32_t MODULE_COMMANDS = 0x10000;

uint32_t timerTicks = 0;

uint32_t message_length(const VosMsgHeader &header) {
    return std::min<uint32_t>(header.payloadLength + uint32_t{sizeof header}, VOS_MSG_MAX);
}

VosMsgHeader message_header() {
    VosMsgHeader header;
    memcpy(&header, g_smdMsgRecvBuffer, sizeof header);
    return header;
}

// A message shorter than it claims must not be completed by what the caller before left in the buffer.
void clear_missing_bytes(uint32_t received, uint32_t claimed) {
    if (received < claimed)
        memset(g_smdMsgRecvBuffer + received, 0, claimed - received);
}

} // namespace

int32_t dhcp6snooping_startup(const char *path, uint32_t *queueId) {
    smdProcessInit(path);
    OemInit();
    if (dhcp6snooping_init() != 0) {
        vosPrintf("\r\n%s:dhcp6snooping_init failed.", "main");
        return START_FAILED;
    }
    if (vosMsgInit(QUEUE_NAME, QUEUE_FLAG, queueId) != 0) {
        vosPrintf("\r\n%s:vosMsgInit failed", "main");
        return START_FAILED;
    }
    ccdInit(MIB_SIZE, MIB_DEPTH);
    tqzL2Dhcp6SnoopingInit(0, 0);
    vosMsgRegisterBldrun(snoopd6BldRun);
    dhcp6snoopingRmWrapFunction();
    uint32_t timerId = 0;
    vosTimerRegister(TIMER_PERIODIC, TICK_MS, snoopd6TimerProcess, &timerId, nullptr);
    smdVDLinktrapRegPort(0, 0, dhcp6snoopingPortLinkProcess);
    dhcp6snoopingPktReg(1, 0);
    return 0;
}

void dhcp6snooping_serve_message(uint32_t queueId) {
    VosMsgReplyCtx ctx{};
    const int32_t received = vosMsgRecv(queueId, g_smdMsgRecvBuffer, VOS_MSG_MAX, -1, &ctx);
    if (received <= 0) {
        vosPrintf("\r\n%s:vosMsgRecv failed iRet = %d", "main", received);
        return;
    }
    const uint32_t length = std::min(static_cast<uint32_t>(received), VOS_MSG_MAX);
    clear_missing_bytes(length, sizeof(VosMsgHeader));
    const VosMsgHeader header = message_header();
    if (header.type != VOS_MSG_TYPE_REMOTE_CALL) {
        vosPrintf("\r\n%s:vosMsgRecv receive unknown msg %d", "main", header.type);
        return;
    }
    clear_missing_bytes(length, message_length(header));
    const int32_t result = smdCfgRmWrapProcess(g_smdMsgRecvBuffer);
    // The reply was built in place, so its length is read only now.
    vosMsgResp(queueId, result, g_smdMsgRecvBuffer, message_length(message_header()), &ctx);
}

int32_t dhcp6snooping_init() {
    dhcp6snooping_table_init();
    dhcp6snooping_limits_init();
    ip6_source_guard_port_init();
    ip6_source_guard_bind_for_snmp_delete_all();
    return 0;
}

int32_t snoopd6TimerProcess(uint32_t, void *) {
    ++timerTicks;
    if (timerTicks < TICKS_PER_AGING)
        return 0;
    timerTicks = 0;
    dhcp6snooping_timer();
    return 0;
}

int32_t dhcp6snoopingPortLinkProcess(uint32_t port, uint32_t linkState) {
    if (linkState == 0 && bDhcp6SnoopingFastRemove != 0)
        dhcp6snooping_delete_by_port(port);
    return 0;
}

int32_t snoopd6BldRun(char *text, uint32_t *space, uint32_t flags, uint32_t context) {
    if ((flags & MODULE_COMMANDS) == 0)
        return 0;
    return BldRun_dhcp6snooping_cmd(text, space, flags, context) == 0 ? 0 : -1;
}
