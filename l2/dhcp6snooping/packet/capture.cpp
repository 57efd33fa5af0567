#include "l2/dhcp6snooping/packet/capture.h"

#include <cstdio>

#include "l2/dhcp6snooping/base/trace.h"
#include "l2/dhcp6snooping/clients/limits.h"
#include "l2/dhcp6snooping/packet/snooping.h"
#include "platform/libsyslog.h"

namespace {

constexpr uint16_t ETHER_TYPE_IPV6 = 0x86DD;
constexpr uint16_t PROTOCOL_UDP = 17;
constexpr uint16_t DHCP6_CLIENT_PORT = 546;
constexpr uint16_t DHCP6_SERVER_PORT = 547;
constexpr uint32_t CAPTURE = 1;
constexpr int32_t ALIGNMENT_LINE = 4924;

void report(const char *text) {
    syslogSendInfo(DHCP6SNOOPING_SYSLOG_MODULE, DHCP6SNOOPING_SYSLOG_ERROR, "init", text, text, 0, 0, 0);
}

void register_rule(const SmdPktRule *rule, uint32_t mode, const char *failure) {
    if (smdVDPktRegister(CAPTURE, rule, mode, dhcp6snoopingRegPktProcess) != 0)
        report(failure);
}

void update_rule(const SmdPktRule *rule, uint32_t mode, uint32_t running) {
    if (smdVDPktRegRunning(CAPTURE, rule, mode) == 0)
        return;
    // Both rules report alike, by the state that was asked for.
    char text[64];
    snprintf(text, sizeof text, "smdVDPktRegRunning %d failed.", static_cast<int32_t>(running));
    report(text);
}

} // namespace

int32_t dhcp6snoopingPktReg(uint32_t first, uint32_t running) {
    SmdPktRule rule{};
    rule.etherType = ETHER_TYPE_IPV6;
    rule.protocol = PROTOCOL_UDP;
    rule.udpPort = DHCP6_CLIENT_PORT;
    rule.valid = SMD_RULE_ETHER_TYPE | SMD_RULE_PROTOCOL | SMD_RULE_UDP_PORT;
    uint32_t mode = SMD_PKT_MODE_DELIVER | SMD_PKT_MODE_FORWARD;

    if (first == 1) {
        register_rule(&rule, mode, "smdVDPktRegister 1 failed.");
        rule.udpPort = DHCP6_SERVER_PORT;
        register_rule(&rule, mode, "smdVDPktRegister 2 failed.");
        return 0;
    }
    if (running == 1)
        mode &= ~SMD_PKT_MODE_FORWARD;
    update_rule(&rule, mode, running);
    rule.udpPort = DHCP6_SERVER_PORT;
    update_rule(&rule, mode, running);
    return 0;
}

int32_t dhcp6snoopingRegPktProcess(uint8_t *frame, uint32_t length, SmdPktRecvInfo *info, SmdPktCtl *ctl) {
    if (frame != nullptr && reinterpret_cast<uintptr_t>(frame) % 8 != SMD_FRAME_ALIGN)
        dhcp6snooping_assertion_failed("IP_ALLIGN == ((uintptr_t)pkt)%(ZUR_WORDSIZE/8)", "dhcp6snoopingRegPktProcess",
                                       ALIGNMENT_LINE);
    if (info == nullptr || ctl == nullptr)
        return 0;
    if (ctl->skip != 0)
        return 0;
    Dhcp6PacketDescriptor packet{.data = frame, .length = length, .info = *info, .ctl = *ctl};
    return dhcp6snooping_recv(&packet, packet.ctl.payloadOffset);
}

int32_t dhcp6snooping_recv(Dhcp6PacketDescriptor *packet, uint32_t offset) {
    if (dhcp6SnoopingOn != 1 || packet == nullptr)
        return 0;
    const uint16_t vlan = static_cast<uint16_t>(packet->info.vlan);
    dhcp6snooping_packet_process(packet, offset, vlan, packet->info.port - 1);
    return 0;
}
