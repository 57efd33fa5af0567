#pragma once
// Options 18 and 37 in tests: ids and templates in words, and messages that lie in blocks of exactly their size, so that a step
// outside is seen. Every test starts and ends with the policy that a process starts with.

#include "l2/dhcp6snooping/infoopt/insertion.h"
#include "l2/dhcp6snooping/infoopt/policy.h"
#include "tests/unit/fixture.h"

inline constexpr uint8_t OPTION_18 = 18, OPTION_37 = 37;

// The policy of a fresh process; templates that are held are freed.
void resetInfoPolicy();

Bytes textBytes(const std::string &text);
Bytes hexBytes(const std::string &digits); // spaces between them do not count
Bytes together(const std::vector<Bytes> &parts);
Bytes optionBytes(uint16_t code, const Bytes &data);
Bytes remoteIdBytes(const Bytes &content); // option 37 with enterprise number 47119

// Switches options on and gives them their ids.
void enableOptions(std::initializer_list<uint8_t> codes);
void useString(uint8_t code, const std::string &text);
void useTemplate(uint8_t code, const Dhcp6InfoIdTemplate &idTemplate);

// A template in the order in which it is written out: a literal belongs to the element before it.
struct TemplateWords {
    Dhcp6InfoIdTemplate made = {};
    uint32_t elements = 0;

    TemplateWords &literal(const std::string &text);
    TemplateWords &element(uint32_t type, const std::string &vlan = "");
};
// Literals only: `length` characters as they come out.
Dhcp6InfoIdTemplate templateOfLength(uint32_t length);

// Overwrites the stack below, so that what is read there without having been set shows.
void dirtyStack();

// A message behind its UDP header, in a block that ends `capacity` bytes behind the start of its options.
struct Processed {
    int32_t result;
    uint32_t newLen;
    Bytes udp;     // the 8 bytes of the UDP header
    Bytes message; // from its type on; newLen bytes of options
    Dhcp6InfoContext ctx;
};

struct InfoTest : SnoopingTest {
    uint8_t msgType = DHCP6_SOLICIT;
    Dhcp6InfoContext ctx = {};
    uint16_t innerVlan = 0;
    Bytes peer = addressBytes("fe80::a");

    void SetUp() override;
    Processed processed(const Bytes &area, uint32_t capacity = 2000);
};
inline const Bytes UDP_FROM_CLIENT = {0x02, 0x22, 0x02, 0x23, 0x11, 0x22, 0x33, 0x44};
inline const Bytes UDP_FROM_RELAY = {0x02, 0x23, 0x02, 0x23, 0x11, 0x22, 0x33, 0x44};
Bytes messageBytes(uint8_t type, const Bytes &area); // as `processed` sends it

// A frame through the insertion, in a block of its own size, which has to stay as it was.
struct Inserted {
    bool forwarded;
    Bytes bytes;
    const uint8_t *data; // where it lies
};

struct Arrival {
    uint16_t vlan = 10;
    uint32_t port0 = 0;
    uint32_t flags = 0;
    SmdPktRecvInfo info = {};
};
Inserted inserted(const Bytes &frame, uint32_t offset, const Arrival &arrival = {});
Inserted inserted(const Frame &f);

inline const std::string SAID_STRATEGY = "\r\n infomation option strategy = drop, drop dhcp request message ";
inline const std::string SAID_NO_INTERFACE_ID = "\r\n option InterfaceId format failed, not appeded ";
inline const std::string SAID_NO_REMOTE_ID = "\r\n option RemoteId format failed, not appeded ";
inline const std::string SAID_TOO_LONG =
    "\r\n dhcpv6 infomation option 18/37 add failed, the packet too long, greater than 1500 after added ";
inline const std::string SAID_DROPPED = "\r\n infomation option process failed, drop packet.";
inline const std::string SAID_NO_MEMORY = "\r\n drop packet due to option82 processing malloc";
inline const std::string SAID_LENGTH = "\r\n drop packet due to option82 processing length";
