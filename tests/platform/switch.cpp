// libsmd of the recording platform, the switch side: ports, capture, sending, MAC table, link events.

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <map>

#include "platform/libcommon.h"
#include "platform/libsmd.h"
#include "tests/platform/recording.h"

uint32_t gul_max_port_num = 28;
std::vector<RecordingSent> recordingSent;

namespace {

struct MacEntry {
    bool onTrunk;
    uint16_t trunk;
    uint32_t port;
};

struct PortNumbers {
    uint32_t a, b, c;
};

std::map<std::string, MacEntry> macs; // by VLAN and MAC in hex
std::map<uint32_t, PortNumbers> portNumbers;

std::string macKey(uint16_t vlan, const uint8_t *mac) { return std::to_string(vlan) + " " + recordingHex(mac, 6); }

std::string ruleText(const SmdPktRule *rule) {
    SmdPktRule plain = {};
    plain.etherType = rule->etherType;
    plain.protocol = rule->protocol;
    plain.udpPort = rule->udpPort;
    plain.valid = rule->valid;
    plain.action = rule->action;
    char text[128];
    snprintf(text, sizeof text, "etherType=%04x protocol=%u udpPort=%u valid=%04x action=%u%s", rule->etherType, rule->protocol,
             rule->udpPort, rule->valid, rule->action, memcmp(&plain, rule, sizeof plain) == 0 ? "" : " (reserved bytes set)");
    return text;
}

std::string frameText(const uint8_t *frame, uint32_t length, const SmdPktCtl *ctl, uint16_t vlan) {
    char text[160];
    snprintf(text, sizeof text, "vlan=%u len=%u bytes=%s flags=%x offset=%u", vlan, length,
             recordingFrameName({frame, length}).c_str(), ctl->flags, ctl->payloadOffset);
    return text;
}

} // namespace

void recordingResetSwitch() {
    gul_max_port_num = 28;
    recordingSent.clear();
    macs.clear();
    portNumbers.clear();
}

void recordingPortNumbers(uint32_t port, uint32_t a, uint32_t b, uint32_t c) { portNumbers[port] = {a, b, c}; }

void recordingMacOnPort(uint16_t vlan, const uint8_t *mac, uint32_t port) { macs[macKey(vlan, mac)] = {false, 0, port}; }

void recordingMacOnTrunk(uint16_t vlan, const uint8_t *mac, uint16_t trunk, uint32_t port) {
    macs[macKey(vlan, mac)] = {true, trunk, port};
}

int32_t smdProcessInit(const char *path) { return recordingCall("smdProcessInit path=\"%s\"", path) ? -1 : 0; }

int32_t smdVDPktRegister(uint32_t one, const SmdPktRule *rule, uint32_t mode, SmdPktRecvFn cb) {
    if (recordingCall("smdVDPktRegister one=%u %s mode=%u", one, ruleText(rule).c_str(), mode))
        return -1;
    recordingCallbacks.receive = cb;
    return 0;
}

int32_t smdVDPktRegRunning(uint32_t one, const SmdPktRule *rule, uint32_t mode) {
    return recordingCall("smdVDPktRegRunning one=%u %s mode=%u", one, ruleText(rule).c_str(), mode) ? -1 : 0;
}

int32_t smdVDPktSendPort(uint8_t *frame, uint32_t length, SmdPktCtl *ctl, uint16_t vlan, uint32_t port, uint32_t one) {
    recordingSent.push_back({port, {}, vlan, one, *ctl, std::vector<uint8_t>(frame, frame + length)});
    const bool fails =
        recordingCall("smdVDPktSendPort port=%u %s one=%u", port, frameText(frame, length, ctl, vlan).c_str(), one);
    return fails ? -1 : 0;
}

int32_t smdVDPktSendPortlist(uint8_t *frame, uint32_t length, SmdPktCtl *ctl, uint16_t vlan, const SmdPortList *list,
                             uint32_t one) {
    recordingSent.push_back({0, *list, vlan, one, *ctl, std::vector<uint8_t>(frame, frame + length)});
    std::string ports;
    for (uint32_t p = 0; p < 64; p++)
        if ((list->bits[p / 8] & (0x80u >> (p % 8))) != 0)
            ports += (ports.empty() ? "" : ",") + std::to_string(p + 1);
    const bool fails = recordingCall("smdVDPktSendPortlist ports=%s %s one=%u", ports.c_str(),
                                     frameText(frame, length, ctl, vlan).c_str(), one);
    return fails ? -1 : 0;
}

int32_t vd_portlist_plnull(const SmdPortList *list) {
    const SmdPortList none = {};
    if (recordingQuietCall("vd_portlist_plnull"))
        return 1;
    return memcmp(list, &none, sizeof none) == 0 ? 1 : 0;
}

int32_t smdVDDhcp6snoopingOnOff(uint32_t mode) { return recordingCall("smdVDDhcp6snoopingOnOff mode=%u", mode) ? -1 : 0; }

int32_t smdVDMacGet(SmdMacQuery *q) {
    SmdMacQuery clean = {};
    clean.vlan = q->vlan;
    memcpy(clean.mac, q->mac, sizeof clean.mac);
    const bool fails = recordingCall("smdVDMacGet vlan=%u mac=%s%s", q->vlan, recordingHex(q->mac, 6).c_str(),
                                     memcmp(&clean, q, sizeof clean) == 0 ? "" : " (answer fields set)");
    const auto found = macs.find(macKey(q->vlan, q->mac));
    if (fails || found == macs.end())
        return -1;
    q->flags = found->second.onTrunk ? SMD_MAC_ON_TRUNK : 0;
    q->port = found->second.port;
    q->trunk = found->second.trunk;
    return 0;
}

int32_t smdVDPortExistAndType(uint32_t port, uint32_t *type) {
    if (recordingQuietCall("smdVDPortExistAndType port=%u", port) || port == 0 || port > gul_max_port_num)
        return 0;
    *type = 1;
    return 1;
}

int32_t smdVDPortSnmpToUser(uint32_t port, uint32_t *a, uint32_t *b, uint32_t *c) {
    if (recordingCall("smdVDPortSnmpToUser port=%u", port) || port == 0 || port > gul_max_port_num)
        return -1;
    const auto found = portNumbers.find(port);
    const PortNumbers numbers = found == portNumbers.end() ? PortNumbers{0, 0, port} : found->second;
    *a = numbers.a;
    *b = numbers.b;
    *c = numbers.c;
    return 0;
}

int32_t smdVDLinktrapRegPort(uint32_t zero0, uint32_t zero1, int32_t (*cb)(uint32_t port, uint32_t linkState)) {
    if (recordingCall("smdVDLinktrapRegPort zero0=%u zero1=%u", zero0, zero1))
        return -1;
    recordingCallbacks.link = cb;
    return 0;
}

void smdDebugPrintf(uint32_t level, const char *fmt, ...) {
    char text[512];
    va_list arguments;
    va_start(arguments, fmt);
    vsnprintf(text, sizeof text, fmt, arguments);
    va_end(arguments);
    recordingCall("smdDebugPrintf level=0x%x \"%s\"", level, recordingEscape(text).c_str());
}

int32_t getSysMacAdress(uint8_t mac[6]) {
    const bool fails = recordingCall("getSysMacAdress");
    if (!fails)
        memcpy(mac, recordingIdentity.systemMac.data(), 6);
    else if (!recordingOddities.failuresLeaveOuts)
        memset(mac, 0, 6);
    return fails ? -1 : 0;
}
