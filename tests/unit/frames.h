#pragma once
// DHCPv6 frames in words, for tests:
//
//   frame().from(CLIENT).to(ALL_SERVERS).vlan(10).carrying(message(DHCP6_SOLICIT, options().clientId().iaNa(0, 0)))
//
// A frame has one VLAN tag, or two, lengths and checksum that agree, and gets to the daemon the way the switch delivers it: in
// a heap block of its own of exactly the right size, at an address that is 2 modulo 8, with 64 zero bytes behind. So that one
// byte read too far is found by the address sanitizer.

#include <cstdint>
#include <string>
#include <vector>

#include "l2/dhcp6snooping/base/descriptor.h"
#include "l2/dhcp6snooping/base/option.h"

using Bytes = std::vector<uint8_t>;

Bytes macBytes(const std::string &text);     // "02:00:00:00:00:0a"
Bytes addressBytes(const std::string &text); // "2001:db8::1"

// The options of a message, or those inside an option.
struct Options {
    Bytes bytes;

    Options &option(uint16_t code, const Bytes &data);
    Options &clientId();
    Options &serverId();
    Options &status(uint16_t code, const std::string &text = "");
    Options &iaNa(uint32_t t1, uint32_t t2, const Options &inner = {});
    Options &iaPd(uint32_t t1, uint32_t t2, const Options &inner = {});
    Options &address(const std::string &text, uint32_t preferred, uint32_t valid, const Options &inner = {});
    Options &prefix(const std::string &text, uint8_t length, uint32_t preferred, uint32_t valid, const Options &inner = {});
    Options &relayMessage(const Bytes &message);
};

Options options();

// A message of a client or a server, and one of a relay (hop count, link and peer address filled in).
Bytes message(uint8_t type, const Options &content = {});
Bytes relayMessage(uint8_t type, const Options &content = {});

struct Frame {
    Bytes destination, source;
    uint16_t outerVlan, innerVlan; // innerVlan 0 = one tag only
    uint16_t udpSource, udpPort;
    Bytes payload;

    Frame &from(const std::string &mac);
    Frame &to(const std::string &mac);
    Frame &vlan(uint16_t id);
    Frame &inner(uint16_t id);
    Frame &udp(uint16_t destinationPort);
    Frame &udpFrom(uint16_t sourcePort);
    Frame &carrying(const Bytes &message);
};

inline const std::string CLIENT = "02:00:00:00:00:0a";
inline const std::string OTHER_CLIENT = "02:00:00:00:00:0b";
inline const std::string SERVER = "02:00:00:00:00:f1";
inline const std::string ALL_SERVERS = "33:33:00:01:00:02";
inline const std::string BROADCAST = "ff:ff:ff:ff:ff:ff";
inline const std::string NO_MAC = "00:00:00:00:00:00";

Frame frame();
// From CLIENT to ALL_SERVERS in VLAN 10, and from SERVER to CLIENT.
Frame fromClient(uint8_t type, const Options &content = {});
Frame fromServer(uint8_t type, const Options &content = {});

Bytes bytesOf(const Frame &f);
uint32_t messageOffset(const Frame &f);
uint32_t flagsOf(const Frame &f);

// What became of a frame: the function's answer, and the frame as the descriptor had it at the end.
struct Outcome {
    int32_t result;
    Bytes bytes;
};

// Hands a frame received on `port` (from 1) to the snooping path; the second form takes everything as given.
Outcome process(const Frame &f, uint32_t port);
Outcome processRaw(const Bytes &bytes, uint32_t offset, uint32_t flags, uint16_t vlan, uint32_t port0);

// Hands it to the receive callback, `shift` bytes away from the right alignment.
int32_t receive(const Frame &f, uint32_t port, uint16_t skip = 0, uint32_t shift = 0);
