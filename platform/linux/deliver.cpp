#include "platform/linux/deliver.h"

#include <cstring>

#include <linux/if_packet.h>

#include "platform/linux/guard.h"
#include "platform/linux/ipv6walk.h"
#include "platform/linux/mactable.h"
#include "platform/linux/ports.h"
#include "platform/linux/send.h"
#include "platform/linux/startupclosed.h"
#include "platform/linux/vlans.h"

namespace {

constexpr uint32_t MAC_LENGTH = 6;
constexpr uint32_t MACS_LENGTH = 12;
constexpr uint32_t TAG_LENGTH = 4;
constexpr uint16_t VID_MASK = 0x0FFF;
constexpr uint32_t UDP_CHECKSUM = 6; // offset in the UDP header
constexpr uint32_t IP6_SOURCE = 8;   // offset in the IPv6 header

// The frame after its tags are in place.
struct Tagged {
    uint8_t *frame;
    uint32_t length;
    uint32_t vlan;
    uint32_t added; // tags that it did not come with
};

void putBe16(uint8_t *at, uint32_t value) {
    at[0] = static_cast<uint8_t>(value >> 8);
    at[1] = static_cast<uint8_t>(value);
}

void putTag(uint8_t *at, uint32_t tpid, uint32_t tci) {
    putBe16(at, tpid);
    putBe16(at + 2, tci);
}

// Puts the tag that the frame came with behind the MACs by moving the body: the room in front is for the next one.
void insertBehind(LinuxRawFrame *raw) {
    memmove(raw->bytes + MACS_LENGTH + TAG_LENGTH, raw->bytes + MACS_LENGTH, raw->length - MACS_LENGTH);
    putTag(raw->bytes + MACS_LENGTH, raw->tpid, raw->tci);
    raw->length += TAG_LENGTH;
}

// Gives the frame its VLAN as the bridge sees it, and a tag. False when the bridge refuses it on this port.
bool putTags(uint32_t link, LinuxRawFrame *raw, Tagged *tagged) {
    bool filtering = linuxBridge.vlanFiltering != 0;
    bool hasTag = (raw->status & TP_STATUS_VLAN_VALID) != 0;
    bool ours = hasTag && (!filtering || raw->tpid == linuxBridge.vlanTpid); // a foreign tag is payload to the bridge
    uint32_t tpid = ours ? raw->tpid : linuxBridge.vlanTpid;
    uint32_t tci = ours ? raw->tci : 0;
    tagged->vlan = tci & VID_MASK;
    tagged->added = ours ? 0 : 1;
    if (tagged->vlan == 0) {
        tagged->vlan = linuxVlanNative(link);
        if (tagged->vlan == 0) {
            return false;
        }
        if (filtering || !ours) { // a transparent bridge passes a priority tag on as it is
            tci |= tagged->vlan;
        }
    }
    if (!linuxVlanMember(link, tagged->vlan)) {
        return false;
    }
    if (hasTag && !ours) {
        insertBehind(raw);
    }
    tagged->frame = raw->bytes - LINUX_RAW_HEADROOM;
    tagged->length = raw->length + TAG_LENGTH;
    memmove(tagged->frame, raw->bytes, MACS_LENGTH);
    putTag(tagged->frame + MACS_LENGTH, tpid, tci);
    return true;
}

// Frames of local senders come with a checksum that only covers the addresses; the rest is left to a network card. The sum
// over the datagram, that part included, completes it.
void completeChecksum(uint8_t *udp, uint32_t length) {
    uint32_t sum = 0;
    for (uint32_t i = 0; i + 1 < length; i += 2) {
        sum += linuxBe16(udp + i);
    }
    if (length % 2 != 0) {
        sum += static_cast<uint32_t>(udp[length - 1]) << 8;
    }
    while (sum >> 16 != 0) {
        sum = (sum & 0xFFFFu) + (sum >> 16);
    }
    uint32_t checksum = ~sum & 0xFFFFu;
    putBe16(udp + UDP_CHECKSUM, checksum == 0 ? 0xFFFFu : checksum);
}

void describe(uint32_t port0, const Tagged &tagged, SmdPktRecvInfo *info) {
    const LinuxPortConfig &config = linuxSwitch.ports[port0];
    info->vlan = tagged.vlan;
    info->port = port0 + 1;
    if (config.xpon != 0) {
        info->access = 1;
        info->ponValue = static_cast<uint8_t>(config.pon);
        info->ponId = static_cast<uint16_t>(config.onu);
        memcpy(info->serial, config.serial, sizeof info->serial);
    }
}

void hand(const LinuxIngress &ingress, const Tagged &tagged, const LinuxWalk &walk) {
    SmdPktRecvInfo info{};
    SmdPktCtl ctl{};
    describe(ingress.port0, tagged, &info);
    ctl.flags = walk.tags == 2 ? SMD_CTL_DOUBLE_TAGGED : 0;
    ctl.payloadOffset = static_cast<uint16_t>(walk.payloadOffset);
    ctl.platform[LINUX_CTL_TAG] = tagged.added;
    ctl.platform[LINUX_CTL_ISOLATED] = linuxLinks[ingress.link].isolated;
    for (const LinuxCapture &capture : ingress.captures) {
        if (capture.udpPort == walk.udpPort) {
            linuxCounters[ingress.port0].delivered++;
            capture.deliver(tagged.frame, walk.length, &info, &ctl);
            return;
        }
    }
}

// The trap takes DHCPv6 away before the guard's rules see it, so its source is judged here. A client asks from a link-local
// address, or while it has none, from the unspecified one.
bool sourceMayPass(uint32_t port0, const Tagged &tagged, uint32_t sourceOffset) {
    constexpr uint8_t UNSPECIFIED[16] = {};
    const uint8_t *source = tagged.frame + sourceOffset;
    const bool linkLocal = source[0] == 0xFE && (source[1] & 0xC0) == 0x80;
    return linkLocal || memcmp(source, UNSPECIFIED, sizeof UNSPECIFIED) == 0 ||
           linuxGuardAdmits(port0, tagged.vlan, tagged.frame + MAC_LENGTH, source);
}

// A group's MAC address, or none at all. The bridge drops their frames, and a filter with no MAC address would stand for any.
bool isNobodysMac(const uint8_t *mac) {
    constexpr uint8_t NONE[MAC_LENGTH] = {};
    return (mac[0] & 1u) != 0 || memcmp(mac, NONE, sizeof NONE) == 0;
}

// The counter of frames that the daemon never sees.
uint64_t *counterOf(LinuxPortCounters *counters, uint32_t verdict) {
    switch (verdict) {
    case LINUX_WALK_MALFORMED: return &counters->dropMalformed;
    case LINUX_WALK_FRAGMENT: return &counters->dropFragment;
    default: return &counters->notDhcpv6;
    }
}

} // namespace

void linuxDeliver(const LinuxIngress &ingress, LinuxRawFrame *raw) {
    LinuxPortCounters *counters = &linuxCounters[ingress.port0];
    Tagged tagged{};
    if (!ingress.receives || linuxStartupShuts(ingress.port0)) {
        counters->dropState++;
        return;
    }
    if (!putTags(ingress.link, raw, &tagged)) {
        counters->dropVlan++;
        return;
    }
    if (!linuxVlanForwards(ingress.link, tagged.vlan)) {
        counters->dropState++;
        return;
    }
    if (tagged.length > SMD_FRAME_MAX) {
        counters->dropOversize++;
        return;
    }
    LinuxWalk walk = linuxIp6Walk({tagged.frame, tagged.length}, tagged.added, ingress.ports);
    if (walk.verdict != LINUX_WALK_MESSAGE) {
        (*counterOf(counters, ingress.trapHolds ? walk.verdict : LINUX_WALK_OTHER))++;
        return;
    }
    if (isNobodysMac(tagged.frame + MAC_LENGTH)) {
        counters->dropSender++;
        return;
    }
    if (!sourceMayPass(ingress.port0, tagged, walk.ipOffset + IP6_SOURCE)) {
        counters->dropSource++;
        return;
    }
    if (linuxLinks[ingress.link].locked != 0 && !linuxMacIsBehind(ingress.port0, tagged.frame + MAC_LENGTH, tagged.vlan)) {
        counters->dropState++;
        return;
    }
    if ((raw->status & TP_STATUS_CSUMNOTREADY) != 0) {
        completeChecksum(tagged.frame + walk.udpOffset, walk.udpLength);
    }
    memset(tagged.frame + walk.length, 0, SMD_FRAME_TAIL);
    hand(ingress, tagged, walk);
}
