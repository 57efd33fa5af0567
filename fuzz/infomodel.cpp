#include "fuzz/infomodel.h"

#include <cstring>
#include <optional>

#include "l2/dhcp6snooping/clients/limits.h"
#include "l2/dhcp6snooping/infoopt/content.h"
#include "l2/dhcp6snooping/infoopt/policy.h"
#include "platform/libcommon.h"
#include "platform/libl3if.h"
#include "platform/libvos.h"

using Bytes = std::vector<uint8_t>;

static constexpr uint32_t BUFFER = 2048;

static uint32_t be16(const Bytes &bytes, size_t at) { return static_cast<uint32_t>(bytes[at] << 8 | bytes[at + 1]); }

static void put16(Bytes *bytes, size_t at, uint32_t value) {
    (*bytes)[at] = static_cast<uint8_t>(value >> 8);
    (*bytes)[at + 1] = static_cast<uint8_t>(value);
}

// Where the first whole option with this code starts.
static std::optional<size_t> findOption(const Bytes &area, uint32_t code) {
    for (size_t at = 0; at + 4 <= area.size();) {
        const size_t end = at + 4 + be16(area, at + 2);
        if (end > area.size())
            return std::nullopt;
        if (be16(area, at) == code)
            return at;
        at = end;
    }
    return std::nullopt;
}

static Dhcp6InfoContext contextOf(const InfoFrame &frame, const Bytes &area) {
    Dhcp6InfoContext ctx = {};
    ctx.switchId = getSWByVLAN(frame.vlan);
    ctx.vlan = frame.vlan;
    ctx.port = static_cast<uint16_t>(frame.port);
    if (frame.secondTag != 0)
        ctx.innerVlan = static_cast<uint16_t>(be16(frame.bytes, 18) % 4096);
    getSysMacAdress(ctx.systemMac);
    if (frame.access == 1) {
        ctx.isXpon = 1;
        ctx.ponValue = frame.ponValue;
        ctx.ponId = frame.ponId % 8192;
        memcpy(ctx.serialNumber, frame.serial, 8);
    }
    if (const auto at = findOption(area, 1)) {
        const Bytes duid(area.begin() + static_cast<long>(*at) + 4,
                         area.begin() + static_cast<long>(*at) + 4 + static_cast<long>(be16(area, *at + 2)));
        if (duid.size() >= 10 && be16(duid, 0) == 3 && be16(duid, 2) == 1)
            memcpy(ctx.clientMac, duid.data() + 4, 6);
        if (duid.size() >= 14 && be16(duid, 0) == 1 && be16(duid, 2) == 1)
            memcpy(ctx.clientMac, duid.data() + 8, 6);
    }
    return ctx;
}

enum class Turn { next, asItIs, drop };

// One option into the area. `old` is what replaced options count for, and stays from turn to turn.
static Turn turn(uint16_t code, const Dhcp6InfoContext &ctx, const char *hostName, size_t room, Bytes *area, size_t *old) {
    const auto at = findOption(*area, code);
    if (at && dhcp6InfoOptionPolicy.strategy == 1)
        return Turn::drop;
    if (at && dhcp6InfoOptionPolicy.strategy == 2)
        return Turn::asItIs;
    if (at)
        *old = *at + 9 < area->size() ? (*area)[*at + 9] : 0;
    Dhcp6InfoOption option;
    if (!dhcp6_info_option_build(code, &ctx, hostName, &option) || *old > area->size())
        return Turn::asItIs;
    const size_t grown = area->size() - *old + option.length;
    if (grown > 1500 || grown > room)
        return Turn::asItIs;
    const size_t kept = area->size() - *old;
    if (at && *at + *old < area->size())
        area->erase(area->begin() + static_cast<long>(*at), area->begin() + static_cast<long>(*at + *old));
    area->resize(kept);
    area->insert(area->end(), option.bytes, option.bytes + option.length);
    return Turn::next;
}

static Turn turns(const Dhcp6InfoContext &ctx, const char *hostName, size_t room, Bytes *area) {
    size_t old = 0;
    Turn end = Turn::next;
    if (dhcp6InfoOptionPolicy.option18Enable == 1)
        end = turn(18, ctx, hostName, room, area, &old);
    if (end == Turn::next && dhcp6InfoOptionPolicy.option37Enable == 1)
        end = turn(37, ctx, hostName, room, area, &old);
    return end;
}

static bool isHandled(uint8_t type) {
    constexpr uint8_t HANDLED[] = {1, 3, 4, 5, 6, 11, 12};
    return memchr(HANDLED, type, sizeof HANDLED) != nullptr;
}

static uint16_t checksum(const Bytes &frame, size_t ip6, size_t udp) {
    uint64_t sum = 17 + (frame.size() - udp);
    for (size_t at = ip6 + 8; at < ip6 + 40; at += 2)
        sum += be16(frame, at);
    for (size_t at = udp; at < frame.size(); at += 2)
        sum += at + 1 < frame.size() ? be16(frame, at) : static_cast<uint32_t>(frame[at] << 8);
    while (sum >> 16 != 0)
        sum = (sum & 0xFFFF) + (sum >> 16);
    const auto folded = static_cast<uint16_t>(~sum);
    return folded == 0 ? 0xFFFF : folded;
}

// Lengths keep the distance that they had from the truth.
static Bytes finish(const InfoFrame &frame, Bytes head, const Bytes &message) {
    const uint32_t ip6 = 18 + frame.secondTag;
    const uint32_t udp = frame.msgOffset - 8;
    const size_t before = frame.bytes.size();
    head.insert(head.end(), message.begin(), message.end());
    const auto delta = static_cast<uint32_t>(head.size() - before);
    put16(&head, udp + 4, be16(head, udp + 4) + delta);
    put16(&head, ip6 + 4, be16(head, ip6 + 4) + delta);
    put16(&head, udp + 6, 0);
    put16(&head, udp + 6, checksum(head, ip6, udp));
    return head;
}

Bytes infoModel(const InfoFrame &frame) {
    const size_t length = frame.bytes.size();
    if (length > 1898 || frame.msgOffset < 66 + frame.secondTag || length < frame.msgOffset + 4)
        return {};
    Bytes head(frame.bytes.begin(), frame.bytes.begin() + static_cast<long>(frame.msgOffset));
    Bytes message(frame.bytes.begin() + static_cast<long>(frame.msgOffset), frame.bytes.end());
    const uint8_t type = message[0];
    if (!isHandled(type))
        return finish(frame, head, message);

    Bytes area(message.begin() + 4, message.end());
    const size_t cameWith = area.size();
    const size_t room = BUFFER - frame.msgOffset - 4;
    char hostName[128] = {};
    vosHostNameGet(hostName, sizeof hostName);
    hostName[127] = '\0';
    const Turn end = turns(contextOf(frame, area), hostName, room, &area);
    if (end == Turn::drop)
        return {};
    message.resize(4);
    message.insert(message.end(), area.begin(), area.end());
    if (end == Turn::next && dhcp6L2Relay != 0 && area.size() + 42 <= 1500 && area.size() + 38 <= room) {
        Bytes relay(38);
        relay[0] = 12;
        relay[1] = type == 12 ? message[1] : 0;
        memcpy(relay.data() + 18, head.data() + 18 + frame.secondTag + 8, 16);
        put16(&relay, 34, 9);
        put16(&relay, 36, static_cast<uint32_t>(cameWith + 4));
        message.insert(message.begin(), relay.begin(), relay.end());
        put16(&head, frame.msgOffset - 8, 547);
    }
    return finish(frame, head, message);
}
