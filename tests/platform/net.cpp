// libvlan, liblacp and libl3if of the recording platform: who belongs to which VLAN and trunk, as the test said.

#include <algorithm>
#include <map>

#include "platform/libl3if.h"
#include "platform/liblacp.h"
#include "platform/libvlan.h"
#include "tests/platform/recording.h"

namespace {

std::map<uint32_t, std::vector<uint32_t>> vlans;
std::map<uint16_t, std::vector<uint32_t>> trunks;

struct TrunkAnswer {
    bool set;
    int32_t result;
    bool writes;
    uint32_t port0;
};
TrunkAnswer trunkAnswer;

std::map<uint32_t, uint32_t> switchByVlan;
std::map<uint32_t, uint32_t> addressBySwitch;

int32_t trunkOf(uint32_t port) {
    for (const auto &[id, ports] : trunks)
        if (std::find(ports.begin(), ports.end(), port) != ports.end())
            return id;
    return -1;
}

void setBit(SmdPortList *list, uint32_t port0) {
    if (port0 < 64)
        list->bits[port0 / 8] = static_cast<uint8_t>(list->bits[port0 / 8] | (0x80u >> (port0 % 8)));
}

std::string bitsText(const SmdPortList *list) { return recordingHex(list->bits, sizeof list->bits); }

} // namespace

void recordingResetNet() {
    vlans = {{1, {}}};
    trunks.clear();
    trunkAnswer = {};
    switchByVlan.clear();
    addressBySwitch.clear();
    for (uint32_t port = 0; port <= 64; port++)
        recordingPortText(port, "");
}

void recordingVlan(uint32_t vlan, const std::vector<uint32_t> &ports) { vlans[vlan] = ports; }

void recordingTrunk(uint16_t trunk, const std::vector<uint32_t> &ports) { trunks[trunk] = ports; }

void recordingTrunkAnswer(int32_t result, bool writes, uint32_t port0) { trunkAnswer = {true, result, writes, port0}; }

void recordingAddress(uint32_t switchId, uint32_t vid, uint32_t ip) {
    switchByVlan[vid] = switchId;
    addressBySwitch[switchId] = ip;
}

int32_t vlan_exist(uint32_t vlan) {
    if (recordingQuietCall("vlan_exist vlan=%u", vlan))
        return 0;
    return vlan >= 1 && vlan <= 4094 && vlans.count(vlan) != 0 ? 1 : 0;
}

int32_t VLAN_Api_PortList_Get(uint32_t vlan, SmdPortList *list, uint32_t zero) {
    const bool fails = recordingCall("VLAN_Api_PortList_Get vlan=%u list=%s zero=%u", vlan, bitsText(list).c_str(), zero);
    *list = {};
    if (fails)
        return -1;
    if (const auto found = vlans.find(vlan); found != vlans.end())
        for (const uint32_t port : found->second)
            setBit(list, port - 1);
    return 0;
}

int32_t lac_get_channel_ag(uint16_t trunk, uint32_t *port0) {
    const bool fails = recordingCall("lac_get_channel_ag trunk=%u port0=%u", trunk, *port0);
    if (trunkAnswer.set) {
        if (trunkAnswer.writes)
            *port0 = trunkAnswer.port0;
        return trunkAnswer.result;
    }
    const auto found = trunks.find(trunk);
    if (fails || found == trunks.end() || found->second.empty()) {
        *port0 = 0;
        return -1;
    }
    *port0 = *std::min_element(found->second.begin(), found->second.end()) - 1;
    return 0;
}

int32_t lac_channel_get_from_port(uint32_t port) {
    return recordingCall("lac_channel_get_from_port port=%u", port) ? -1 : trunkOf(port);
}

int32_t lac_ap_2_ag_hi_hi_excpt_cur(const SmdPortList *list, SmdPortList *out, uint32_t port0) {
    const bool fails = recordingCall("lac_ap_2_ag_hi_hi_excpt_cur list=%s port0=%u%s", bitsText(list).c_str(), port0,
                                     list == out ? " (same list)" : "");
    if (fails)
        return -1;
    const int32_t ownTrunk = trunkOf(port0 + 1);
    *out = {};
    for (uint32_t p = 0; p < 64; p++) {
        if ((list->bits[p / 8] & (0x80u >> (p % 8))) == 0)
            continue;
        const int32_t trunk = trunkOf(p + 1);
        if (trunk == -1)
            setBit(out, p);
        else if (trunk != ownTrunk) {
            const auto &ports = trunks[static_cast<uint16_t>(trunk)];
            setBit(out, *std::min_element(ports.begin(), ports.end()) - 1);
        }
    }
    return 0;
}

uint32_t getSWByVLAN(uint32_t vlan) {
    recordingCall("getSWByVLAN vlan=%u", vlan);
    const auto found = switchByVlan.find(vlan);
    return found == switchByVlan.end() ? 0 : found->second;
}

int32_t l3ifSwPrimIpGet(uint32_t switchId, uint32_t *ip) {
    if (!recordingOddities.failuresLeaveOuts)
        *ip = 0;
    const auto found = addressBySwitch.find(switchId);
    if (recordingCall("l3ifSwPrimIpGet switch=%u", switchId) || found == addressBySwitch.end())
        return -1;
    *ip = found->second;
    return 0;
}

int32_t l3ifSwPrimIpGetByVid(uint32_t vid, uint32_t *ip) {
    if (!recordingOddities.failuresLeaveOuts)
        *ip = 0;
    const auto found = switchByVlan.find(vid);
    if (recordingCall("l3ifSwPrimIpGetByVid vid=%u", vid) || found == switchByVlan.end())
        return -1;
    *ip = addressBySwitch[found->second];
    return 0;
}
