#include "tests/unit/frames.h"

#include <arpa/inet.h>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "l2/dhcp6snooping/packet/capture.h"
#include "l2/dhcp6snooping/packet/snooping.h"

namespace {

void add16(Bytes &bytes, uint32_t value) {
    bytes.push_back(static_cast<uint8_t>(value >> 8));
    bytes.push_back(static_cast<uint8_t>(value));
}

void add32(Bytes &bytes, uint32_t value) {
    add16(bytes, value >> 16);
    add16(bytes, value & 0xFFFF);
}

void addAll(Bytes &bytes, const Bytes &more) { bytes.insert(bytes.end(), more.begin(), more.end()); }

Bytes identityAssociation(uint32_t t1, uint32_t t2, const Options &inner) {
    Bytes data = {0, 0, 0, 1}; // IAID
    add32(data, t1);
    add32(data, t2);
    addAll(data, inner.bytes);
    return data;
}

// The checksum of a UDP segment over IPv6, byte by byte and folded at once: written without a look at the daemon's own.
uint16_t udpChecksum(const Bytes &source, const Bytes &destination, const Bytes &segment) {
    Bytes all = source;
    addAll(all, destination);
    add32(all, static_cast<uint32_t>(segment.size()));
    add32(all, 17);
    addAll(all, segment);
    if (all.size() % 2 != 0)
        all.push_back(0);
    uint32_t sum = 0;
    for (size_t i = 0; i < all.size(); i += 2) {
        sum += static_cast<uint32_t>(all[i] << 8 | all[i + 1]);
        sum = (sum & 0xFFFF) + (sum >> 16);
    }
    const auto checksum = static_cast<uint16_t>(~sum);
    return checksum == 0 ? uint16_t{0xFFFF} : checksum;
}

// A frame the way the switch delivers it.
struct Delivered {
    uint8_t *block;
    uint8_t *data;
};

Delivered deliver(const Bytes &bytes, uint32_t shift) {
    const size_t before = SMD_FRAME_ALIGN + shift; // malloc's blocks start at a multiple of 16
    auto *block = static_cast<uint8_t *>(calloc(1, before + bytes.size() + SMD_FRAME_TAIL));
    if (!bytes.empty())
        memcpy(block + before, bytes.data(), bytes.size());
    return {block, block + before};
}

} // namespace

Bytes macBytes(const std::string &text) {
    unsigned part[6] = {};
    sscanf(text.c_str(), "%x:%x:%x:%x:%x:%x", &part[0], &part[1], &part[2], &part[3], &part[4], &part[5]);
    Bytes bytes;
    for (const unsigned byte : part)
        bytes.push_back(static_cast<uint8_t>(byte));
    return bytes;
}

Bytes addressBytes(const std::string &text) {
    Bytes bytes(16);
    inet_pton(AF_INET6, text.c_str(), bytes.data());
    return bytes;
}

Options options() { return {}; }

Options &Options::option(uint16_t code, const Bytes &data) {
    add16(bytes, code);
    add16(bytes, static_cast<uint32_t>(data.size()));
    addAll(bytes, data);
    return *this;
}

Options &Options::clientId() { return option(1, {0, 3, 0, 1, 2, 0, 0, 0, 0, 0x0A}); }

Options &Options::serverId() { return option(2, {0, 3, 0, 1, 2, 0, 0, 0, 0, 0xF1}); }

Options &Options::status(uint16_t code, const std::string &text) {
    Bytes data;
    add16(data, code);
    addAll(data, Bytes(text.begin(), text.end()));
    return option(DHCP6_OPTION_STATUS_CODE, data);
}

Options &Options::iaNa(uint32_t t1, uint32_t t2, const Options &inner) {
    return option(DHCP6_OPTION_IA_NA, identityAssociation(t1, t2, inner));
}

Options &Options::iaPd(uint32_t t1, uint32_t t2, const Options &inner) {
    return option(DHCP6_OPTION_IA_PD, identityAssociation(t1, t2, inner));
}

Options &Options::address(const std::string &text, uint32_t preferred, uint32_t valid, const Options &inner) {
    Bytes data = addressBytes(text);
    add32(data, preferred);
    add32(data, valid);
    addAll(data, inner.bytes);
    return option(DHCP6_OPTION_IAADDR, data);
}

Options &Options::prefix(const std::string &text, uint8_t length, uint32_t preferred, uint32_t valid, const Options &inner) {
    Bytes data;
    add32(data, preferred);
    add32(data, valid);
    data.push_back(length);
    addAll(data, addressBytes(text));
    addAll(data, inner.bytes);
    return option(DHCP6_OPTION_IAPREFIX, data);
}

Options &Options::relayMessage(const Bytes &inner) { return option(DHCP6_OPTION_RELAY_MSG, inner); }

Bytes message(uint8_t type, const Options &content) {
    Bytes bytes = {type, 0x12, 0x34, 0x56}; // transaction id
    addAll(bytes, content.bytes);
    return bytes;
}

Bytes relayMessage(uint8_t type, const Options &content) {
    Bytes bytes = {type, 0}; // hop count
    addAll(bytes, addressBytes("2001:db8:ffff::1"));
    addAll(bytes, addressBytes("fe80::a"));
    addAll(bytes, content.bytes);
    return bytes;
}

Frame frame() { return {macBytes(ALL_SERVERS), macBytes(CLIENT), 10, 0, 546, 547, {}}; }

Frame &Frame::from(const std::string &mac) {
    source = macBytes(mac);
    return *this;
}

Frame &Frame::to(const std::string &mac) {
    destination = macBytes(mac);
    return *this;
}

Frame &Frame::vlan(uint16_t id) {
    outerVlan = id;
    return *this;
}

Frame &Frame::inner(uint16_t id) {
    innerVlan = id;
    return *this;
}

Frame &Frame::udp(uint16_t destinationPort) {
    udpPort = destinationPort;
    return *this;
}

Frame &Frame::udpFrom(uint16_t sourcePort) {
    udpSource = sourcePort;
    return *this;
}

Frame &Frame::carrying(const Bytes &bytes) {
    payload = bytes;
    return *this;
}

Frame fromClient(uint8_t type, const Options &content) { return frame().carrying(message(type, content)); }

Frame fromServer(uint8_t type, const Options &content) {
    return frame().from(SERVER).to(CLIENT).udpFrom(547).udp(546).carrying(message(type, content));
}

Bytes bytesOf(const Frame &f) {
    const Bytes source = addressBytes("fe80::a");
    const Bytes destination = addressBytes("ff02::1:2");
    Bytes segment;
    add16(segment, f.udpSource);
    add16(segment, f.udpPort);
    add16(segment, static_cast<uint32_t>(f.payload.size() + 8));
    add16(segment, 0);
    addAll(segment, f.payload);
    const uint16_t checksum = udpChecksum(source, destination, segment);
    segment[6] = static_cast<uint8_t>(checksum >> 8);
    segment[7] = static_cast<uint8_t>(checksum);

    Bytes bytes = f.destination;
    addAll(bytes, f.source);
    add16(bytes, 0x8100);
    add16(bytes, f.outerVlan);
    if (f.innerVlan != 0) {
        add16(bytes, 0x8100);
        add16(bytes, f.innerVlan);
    }
    add16(bytes, 0x86DD);
    add32(bytes, 0x60000000);
    add16(bytes, static_cast<uint32_t>(segment.size()));
    bytes.push_back(17); // next header
    bytes.push_back(64); // hop limit
    addAll(bytes, source);
    addAll(bytes, destination);
    addAll(bytes, segment);
    return bytes;
}

uint32_t messageOffset(const Frame &f) { return f.innerVlan != 0 ? 70 : 66; }

uint32_t flagsOf(const Frame &f) { return f.innerVlan != 0 ? SMD_CTL_DOUBLE_TAGGED : 0; }

Outcome process(const Frame &f, uint32_t port) {
    return processRaw(bytesOf(f), messageOffset(f), flagsOf(f), f.outerVlan, port - 1);
}

Outcome processRaw(const Bytes &bytes, uint32_t offset, uint32_t flags, uint16_t vlan, uint32_t port0) {
    const Delivered delivered = deliver(bytes, 0);
    Dhcp6PacketDescriptor packet = {};
    packet.data = delivered.data;
    packet.length = static_cast<uint32_t>(bytes.size());
    packet.info.vlan = vlan;
    packet.info.port = port0 + 1;
    packet.ctl.flags = flags;
    packet.ctl.payloadOffset = static_cast<uint16_t>(offset);
    const int32_t result = dhcp6snooping_packet_process(&packet, offset, vlan, port0);
    Outcome outcome = {result, Bytes(packet.data, packet.data + packet.length)};
    free(delivered.block);
    return outcome;
}

int32_t receive(const Frame &f, uint32_t port, uint16_t skip, uint32_t shift) {
    const Bytes bytes = bytesOf(f);
    const Delivered delivered = deliver(bytes, shift);
    SmdPktRecvInfo info = {};
    info.vlan = f.outerVlan;
    info.port = port;
    SmdPktCtl ctl = {};
    ctl.flags = flagsOf(f);
    ctl.payloadOffset = static_cast<uint16_t>(messageOffset(f));
    ctl.skip = skip;
    const int32_t result = dhcp6snoopingRegPktProcess(delivered.data, static_cast<uint32_t>(bytes.size()), &info, &ctl);
    free(delivered.block);
    return result;
}
