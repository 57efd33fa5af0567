#pragma once
// libsmd: the switch itself. Its ports, the frames that come and go through them, its MAC table, link events, and the remote
// calls of its command shell.
//
// Ports are numbered from 1. A trunk (link aggregation group) is written as its id | SMD_PORT_TRUNK.

#include <cstddef>
#include <cstdint>

inline constexpr uint32_t SMD_PORT_TRUNK = 0x80000000u;

// ---- Capture -------------------------------------------------------------------------------------------------------

// Longest frame that is ever delivered or sent, bytes.
inline constexpr uint32_t SMD_FRAME_MAX = 9216;
// Readable zero bytes behind the end of every delivered frame.
inline constexpr uint32_t SMD_FRAME_TAIL = 64;
// Delivered frames lie at an address that is this modulo 8, so that the IPv6 header is word-aligned.
inline constexpr uint32_t SMD_FRAME_ALIGN = 2;

// Which frames a capture wants. Little-endian 16-bit fields; a field counts only when its bit in `valid` is set.
struct SmdPktRule {
    uint8_t reserved0[18]; // 0
    uint16_t etherType;    // 0x86DD
    uint16_t protocol;     // IPv6 next header, 17 = UDP
    uint16_t udpPort;      // UDP destination port
    uint16_t valid;        // SMD_RULE_* bits
    uint8_t reserved1[6];  // 0
    uint16_t action;       // 0
    uint8_t reserved2[6];  // 0
};
static_assert(sizeof(SmdPktRule) == 40);
static_assert(offsetof(SmdPktRule, etherType) == 18);
static_assert(offsetof(SmdPktRule, protocol) == 20);
static_assert(offsetof(SmdPktRule, udpPort) == 22);
static_assert(offsetof(SmdPktRule, valid) == 24);
static_assert(offsetof(SmdPktRule, action) == 32);

inline constexpr uint16_t SMD_RULE_ETHER_TYPE = 0x08;
inline constexpr uint16_t SMD_RULE_PROTOCOL = 0x10;
inline constexpr uint16_t SMD_RULE_UDP_PORT = 0x20;

// Mode word of a capture. Bit 0: deliver matching frames. Bit 1: the switch forwards them as well, as if nobody listened;
// while it is clear, the frames are the daemon's alone to forward.
inline constexpr uint32_t SMD_PKT_MODE_DELIVER = 1;
inline constexpr uint32_t SMD_PKT_MODE_FORWARD = 2;

// Where a frame came from.
struct SmdPktRecvInfo {
    uint32_t vlan;        // VLAN id, low 16 bits
    uint32_t port;        // receiving port, from 1
    uint32_t access;      // 1 = an xPON port, else Ethernet
    uint8_t ponValue;     // xPON: number of the PON
    uint8_t reserved0;    // 0
    uint16_t ponId;       // xPON: ONU id, low 13 bits
    uint8_t serial[8];    // xPON: 4 vendor characters, 4 binary bytes
    uint8_t reserved[64]; // 0
};
static_assert(sizeof(SmdPktRecvInfo) == 88);
static_assert(offsetof(SmdPktRecvInfo, vlan) == 0);
static_assert(offsetof(SmdPktRecvInfo, port) == 4);
static_assert(offsetof(SmdPktRecvInfo, access) == 8);
static_assert(offsetof(SmdPktRecvInfo, ponValue) == 12);
static_assert(offsetof(SmdPktRecvInfo, ponId) == 14);
static_assert(offsetof(SmdPktRecvInfo, serial) == 16);

// What the switch knows of a frame; handed back unchanged with every send of it.
struct SmdPktCtl {
    uint32_t flags;         // SMD_CTL_* bits
    uint32_t reserved0;     // 0
    uint16_t payloadOffset; // of the UDP payload, bytes from the start of the frame
    uint16_t reserved1;     // 0
    uint32_t platform[4];   // the platform's own; not for the daemon
    uint16_t skip;          // non-zero: the frame is not to be processed
    uint16_t reserved2;     // 0
    uint32_t reserved3[6];  // 0
};
static_assert(sizeof(SmdPktCtl) == 56);
static_assert(offsetof(SmdPktCtl, flags) == 0);
static_assert(offsetof(SmdPktCtl, payloadOffset) == 8);
static_assert(offsetof(SmdPktCtl, skip) == 28);

inline constexpr uint32_t SMD_CTL_DOUBLE_TAGGED = 0x8; // a second VLAN tag is present

// Receives one frame. The frame is a private, writable copy that stays valid until the callback returns, at an address that
// is SMD_FRAME_ALIGN modulo 8, at most SMD_FRAME_MAX bytes long, with SMD_FRAME_TAIL readable zero bytes behind its end.
// It always carries one VLAN tag (a frame without one gets its port's native VLAN), or two with SMD_CTL_DOUBLE_TAGGED, so
// that the IPv6 header stands at byte 18 or 22. Length and offsets come from the platform's own parse of the headers.
typedef int32_t (*SmdPktRecvFn)(uint8_t *frame, uint32_t length, SmdPktRecvInfo *info, SmdPktCtl *ctl);

// Set of ports: port index p (port - 1) is bit 0x80 >> (p % 8) of byte p / 8. A trunk stands as its lowest member port.
struct SmdPortList {
    uint8_t bits[8];
};
static_assert(sizeof(SmdPortList) == 8);

// Question to the MAC table, and its answer. Only vlan and mac are read; the rest is written, and only on success.
struct SmdMacQuery {
    uint16_t vlan;
    uint8_t mac[6];
    uint32_t flags;       // SMD_MAC_* bits
    uint32_t port;        // from 1
    uint16_t trunk;       // trunk id, with SMD_MAC_ON_TRUNK
    uint8_t reserved[14]; // 0
};
static_assert(sizeof(SmdMacQuery) == 32);
static_assert(offsetof(SmdMacQuery, vlan) == 0);
static_assert(offsetof(SmdMacQuery, mac) == 2);
static_assert(offsetof(SmdMacQuery, flags) == 8);
static_assert(offsetof(SmdMacQuery, port) == 12);
static_assert(offsetof(SmdMacQuery, trunk) == 16);

inline constexpr uint32_t SMD_MAC_ON_TRUNK = 0x20;

// ---- Remote calls --------------------------------------------------------------------------------------------------

// One argument of a remote call. `data` points to a slot of SMD_RM_SLOT bytes, 16-aligned, zero behind the caller's bytes:
// a target may read and write all of it. What it leaves in the first `length` bytes goes back to the caller.
struct SmdRmArg {
    uint64_t length; // bytes that the caller sent
    void *data;
};
static_assert(sizeof(SmdRmArg) == 16);
static_assert(offsetof(SmdRmArg, data) == 8);

inline constexpr uint32_t SMD_RM_SLOT = 4096; // bytes of one argument
inline constexpr uint32_t SMD_RM_ARGS = 8;    // arguments of one call

// The wire form, the payload of a message of type 1: u32 identifier, u32 count, then per argument u32 length, u32 zero and
// the bytes, padded with zeros to a multiple of 8. Little-endian. The reply is the same message with the buffers filled in.
inline constexpr int32_t SMD_RM_BAD_MESSAGE = -1001; // the arguments do not fit the message, or break a bound above
inline constexpr int32_t SMD_RM_UNKNOWN = -1;        // no function is registered under the identifier

// A remote function. ctx is not used. Returns what goes into the reply's header.
typedef int32_t (*SmdWrapFn)(void *ctx, SmdRmArg *argv, uint32_t argc);

extern "C" {

// The number of ports of this switch: its highest port number. Set by smdProcessInit; read-only for the daemon. It may grow
// afterwards, between two callbacks, and never shrinks.
extern uint32_t gul_max_port_num;

// Registers the process with the switch. `path` is the program's own. When the switch cannot be brought up (its
// description is wrong, its bridge is missing, rights are missing, the daemon runs already) it says so in one sentence on
// standard error and ends the process: nothing has been changed then. 0 otherwise.
int32_t smdProcessInit(const char *path);

// Prepares a table of `entries` remote functions, empty. 0 on success.
int32_t smdRMWrapInit(uint32_t entries);

// Registers fn under identifier `id`. `zero` is 0. The names are kept by pointer and are for traces. 0 on success, non-zero
// when the identifier is outside the table or taken.
int32_t __smdRmWrapRegister(uint32_t id, uint32_t zero, SmdWrapFn fn, const char *idName, const char *wrapperName);

// Executes the remote call in `message` (header and payload, at most VOS_MSG_MAX bytes, as vosMsgRecv left it) and puts the
// out arguments in place. Returns what the function answered, SMD_RM_UNKNOWN or SMD_RM_BAD_MESSAGE.
int32_t smdCfgRmWrapProcess(void *message);

// Starts delivering frames that match `rule` to cb; `one` is 1. The rule is copied. 0 on success.
int32_t smdVDPktRegister(uint32_t one, const SmdPktRule *rule, uint32_t mode, SmdPktRecvFn cb);

// Changes the mode of a registered rule, found by its contents. 0 on success; on failure the old mode stays in force.
int32_t smdVDPktRegRunning(uint32_t one, const SmdPktRule *rule, uint32_t mode);

// Sends a frame out of one port (from 1, or trunk id | SMD_PORT_TRUNK) in a VLAN; `one` is 1. The frame is copied before
// return. Its outer tag is taken off where the VLAN leaves the port untagged. Does not block.
// 0 when the frame was accepted. -1: unknown port, port down, length below 18 or above SMD_FRAME_MAX, or no room.
int32_t smdVDPktSendPort(uint8_t *frame, uint32_t length, SmdPktCtl *ctl, uint16_t vlan, uint32_t port, uint32_t one);

// The same to every port of a list. 0 when it was accepted for every port of the list, -1 otherwise (the others still get it).
int32_t smdVDPktSendPortlist(uint8_t *frame, uint32_t length, SmdPktCtl *ctl, uint16_t vlan, const SmdPortList *list,
                             uint32_t one);

// Non-zero when the list is empty.
int32_t vd_portlist_plnull(const SmdPortList *list);

// Tells the switch that DHCPv6 snooping is on (1) or off (2). 0 on success.
int32_t smdVDDhcp6snoopingOnOff(uint32_t mode);

// Asks where q->mac was last seen in q->vlan. 0 when found. -1 when not: unknown, a multicast address, or the switch's own.
int32_t smdVDMacGet(SmdMacQuery *q);

// Non-zero when the port exists; *type then tells its kind: 1 Ethernet, 2 xPON.
int32_t smdVDPortExistAndType(uint32_t port, uint32_t *type);

// The three numbers by which users call a port: chassis, slot, port. 0 on success, non-zero for an unknown port.
int32_t smdVDPortSnmpToUser(uint32_t port, uint32_t *a, uint32_t *b, uint32_t *c);

// Registers for link changes of all ports (both first arguments 0): cb gets the port (from 1) and 0 for down, else up. A
// port whose interface disappears goes down. 0 on success.
int32_t smdVDLinktrapRegPort(uint32_t zero0, uint32_t zero1, int32_t (*cb)(uint32_t port, uint32_t linkState));

// Debug line of the remote-call layer. printf's rules.
void smdDebugPrintf(uint32_t level, const char *fmt, ...) __attribute__((format(printf, 2, 3)));

} // extern "C"
