#pragma once
// What travels on the daemon's socket besides remote calls: the messages that the Linux platform answers itself. Shared with
// the command shell. Every message starts with a VosMsgHeader; all numbers are little-endian; records have no padding beside
// their reserved members and are read and written by memcpy.

#include <cstddef>
#include <cstdint>
#include <string_view>

// Folder of the daemon's socket and lock; another one with the environment variable SNOOPD6_RUN.
inline constexpr const char *SNOOPD6_RUN_DEFAULT = "/run/snoopd6";
inline constexpr const char *SNOOPD6_SOCKET_NAME = "snoopd6.sock";

inline constexpr uint16_t LINUX_MSG_RUNNING_CONFIG = 0x8001;
inline constexpr uint16_t LINUX_MSG_DEBUG = 0x8002;
inline constexpr uint16_t LINUX_MSG_STATUS = 0x8003;
inline constexpr uint16_t LINUX_MSG_MIB = 0x8004;
inline constexpr uint16_t LINUX_MSG_SAVE = 0x8005;

// Results in the header of a reply to a platform message.
inline constexpr int32_t LINUX_RESULT_OK = 0;
inline constexpr int32_t LINUX_RESULT_BAD = -1;     // the payload is not what the type asks for
inline constexpr int32_t LINUX_RESULT_UNKNOWN = -2; // no such type, or no such table
inline constexpr int32_t LINUX_RESULT_CHANGED = -3; // what the page belongs to is gone: begin again

// LINUX_MSG_RUNNING_CONFIG: the command lines that make the switch what it is, page by page. The text follows the head.
struct LinuxConfigAsk {
    uint32_t offset;     // 0 at first, then `next` of the last reply
    uint32_t generation; // 0 at first, then that of the last reply
};
static_assert(sizeof(LinuxConfigAsk) == 8);

struct LinuxConfigHead {
    uint32_t total;      // bytes of the whole text
    uint32_t next;       // where the next page starts, 0 when this was the last
    uint32_t generation; // of the text that the page belongs to
    uint32_t length;     // bytes that follow
};
static_assert(sizeof(LinuxConfigHead) == 16);

// LINUX_MSG_DEBUG: turns the debug lines of a module on or off. The reply holds what is in force.
struct LinuxDebugMsg {
    uint32_t module; // 53 = DHCPv6 snooping
    uint32_t set;    // 0 off, 1 on, 2 only ask
};
static_assert(sizeof(LinuxDebugMsg) == 8);

// LINUX_MSG_STATUS: reads one table of the platform, page by page.
enum : uint32_t {
    LINUX_STATUS_SWITCH = 0,   // one LinuxSwitchStatus
    LINUX_STATUS_PORTS = 1,    // LinuxPortStatus, ascending port
    LINUX_STATUS_VLANS = 2,    // LinuxVlanStatus, ascending VLAN
    LINUX_STATUS_MACS = 3,     // LinuxMacStatus, as the kernel lists them
    LINUX_STATUS_COUNTERS = 4, // LinuxPortCounters, ascending port
    LINUX_STATUS_GUARD = 5,    // LinuxGuardPortStatus, ascending port
    LINUX_STATUS_FILTERS = 6,  // LinuxFilterStatus, ascending kind, port, VLAN, MAC and address as bytes
    LINUX_STATUS_FILES = 7,    // one LinuxFilesStatus
    LINUX_STATUS_UNLISTED = 8, // LinuxUnlistedStatus, in no order; 64 at most
    LINUX_STATUS_STARTUP = 9,  // one LinuxStartupStatus
};

struct LinuxStatusAsk {
    uint32_t table;
    uint32_t start; // 0 at first, then `next` of the last reply
};
static_assert(sizeof(LinuxStatusAsk) == 8);

struct LinuxStatusHead { // in front of the records of a reply
    uint32_t table;
    uint32_t next;       // start of the next page, 0 when this was the last
    uint32_t count;      // records that follow
    uint32_t recordSize; // bytes of one record
};
static_assert(sizeof(LinuxStatusHead) == 16);

struct LinuxSwitchStatus {
    char bridge[16];  // interface name
    char version[16]; // of the daemon
    uint32_t pid;
    uint32_t upSeconds;     // since the daemon started
    uint32_t ports;         // highest port number
    uint32_t vlanFiltering; // 1 when the bridge filters VLANs
    uint32_t trap;          // 1 while the kernel leaves DHCPv6 to the daemon
    uint32_t snooping;      // last smdVDDhcp6snoopingOnOff: 1 on, 2 off
    uint8_t mac[6];         // of the bridge
    uint8_t rules;          // 1 while the kernel has the rules of guard and trap; looked at every second
    uint8_t reserved;
};
static_assert(sizeof(LinuxSwitchStatus) == 64);

struct LinuxFilesStatus {  // paths; empty when one is too long
    char switchFile[256];  // as it was given
    char startupFile[256]; // absolute; where the configuration is saved, and taken from at start
};
static_assert(sizeof(LinuxFilesStatus) == 512);

struct LinuxUnlistedStatus { // an interface in the bridge that is no port of the switch file: neither snooped nor guarded
    char interface[16];
    uint32_t ifindex;
    uint32_t reserved;
};
static_assert(sizeof(LinuxUnlistedStatus) == 24);

// Words of LinuxStartupStatus::policy, by number: what happens at a start that does not find its configuration whole.
inline constexpr uint32_t LINUX_STARTUP_USE_LAST_GOOD = 0; // the last good file is used; without one as the third
inline constexpr uint32_t LINUX_STARTUP_CLOSE = 1;         // IPv6 from untrusted ports is dropped until an operator acts
inline constexpr uint32_t LINUX_STARTUP_LEAVE_OPEN = 2;    // nothing is guarded
inline constexpr std::string_view LINUX_STARTUP_POLICIES[] = {"last-good", "closed", "open"};

enum : uint32_t { // LinuxStartupStatus::state: what the start made of the saved configuration
    LINUX_STARTUP_REPLAYING = 0,
    LINUX_STARTUP_NONE = 1,      // there is no startup file
    LINUX_STARTUP_COMPLETE = 2,  // all of it is in force
    LINUX_STARTUP_BY_HAND = 3,   // the same, and the file has no marks of a save
    LINUX_STARTUP_LAST_GOOD = 4, // the last good file is used in its place
    LINUX_STARTUP_PARTLY = 5,    // some of its lines failed
    LINUX_STARTUP_OPEN = 6,      // a failure left the switch open
    LINUX_STARTUP_CLOSED = 7,    // a failure closed it
};

struct LinuxStartupStatus {
    uint32_t state;
    uint32_t policy;  // of the switch file
    uint64_t dropped; // packets that the closed switch has dropped
    char reason[368]; // a sentence without full stop; empty when all is well
};
static_assert(sizeof(LinuxStartupStatus) == 384);

inline constexpr uint32_t LINUX_NO_TRUNK = 0xFFFFFFFFu;

struct LinuxPortStatus {
    uint32_t number;
    uint32_t type; // 1 Ethernet, 2 xPON
    char interface[16];
    uint32_t ifindex;    // 0 while the interface is missing
    uint32_t link;       // 1 up, 0 down
    uint32_t forwarding; // 1 when the interface is in the bridge and its spanning-tree state lets frames through
    uint32_t nativeVlan; // 0 when frames without a tag are refused
    uint32_t trunk;      // LINUX_NO_TRUNK when the port is in none
    uint32_t reserved;
};
static_assert(sizeof(LinuxPortStatus) == 48);

struct LinuxVlanStatus {
    uint32_t vlan;
    uint32_t reserved;
    uint8_t members[8];  // port list, bit 0x80 >> (p % 8) of byte p / 8 for port index p
    uint8_t untagged[8]; // members where the VLAN leaves without a tag
};
static_assert(sizeof(LinuxVlanStatus) == 24);

struct LinuxMacStatus {
    uint16_t vlan; // 0 where the bridge does not filter VLANs
    uint8_t mac[6];
    uint32_t port;  // 0 when it was learned on an interface that is no port of the switch
    uint32_t trunk; // LINUX_NO_TRUNK when it was learned on none
    uint32_t local; // 1 when the address is the switch's own
    uint32_t reserved;
};
static_assert(sizeof(LinuxMacStatus) == 24);

struct LinuxPortCounters { // frames since the daemon started
    uint32_t number;
    uint32_t reserved;
    uint64_t received;      // taken from the interface
    uint64_t delivered;     // handed to the daemon
    uint64_t sent;          // handed to the interface for the daemon
    uint64_t sendFailed;    // refused by the interface, or no room
    uint64_t notDhcpv6;     // passed the socket's filter in SNAP or behind an extension header, but are something else
    uint64_t dropMalformed; // headers that cannot be walked, or a UDP header that is cut off
    uint64_t dropFragment;  // first fragments of DHCPv6 messages
    uint64_t dropVlan;      // in a VLAN that the port is not a member of
    uint64_t dropState;     // on a port that is not forwarding, or not in this VLAN, or locked to the sender
    uint64_t dropSender;    // DHCPv6 from a group's MAC address or from none (all zeros), which the bridge refuses as well
    uint64_t dropSource;    // DHCPv6 from an IPv6 address that the source guard of the port does not let in
    uint64_t dropOversize;  // longer than SMD_FRAME_MAX
    uint64_t kernelDropped; // lost because the socket's buffer was full
};
static_assert(sizeof(LinuxPortCounters) == 112);

struct LinuxGuardPortStatus { // source guard of one port
    uint32_t port;
    uint32_t guarded;   // 1 when the daemon wants it closed
    uint32_t installed; // 1 when the kernel has it closed
    uint32_t reserved;
    uint64_t blocked;          // packets refused since the port was closed, without those of the next two members
    uint64_t blockedLocal;     // packets refused from link-local sources, which no router would have taken further
    uint64_t blockedDiscovery; // neighbour discovery and listener reports refused because there were too many of them
};
static_assert(sizeof(LinuxGuardPortStatus) == 40);

struct LinuxFilterStatus { // a forward filter that the daemon wants
    uint32_t kind;         // 1 address, 2 MAC and address, 3 port, MAC and address, 4 the same in one VLAN
    uint32_t port;         // 0 where the kind has none
    uint32_t vlan;         // 0 where the kind has none
    uint32_t installed;    // 1 when the kernel has it
    uint8_t mac[6];        // all zeros: any
    uint8_t reserved[2];
    uint8_t address[16];
};
static_assert(sizeof(LinuxFilterStatus) == 40);

// LINUX_MSG_MIB: one request on one object of the registered MIB module. The reply is the same record filled in, and the
// header's result one of LINUX_MIB_* below. In a reply to LINUX_MIB_ROOT the OID is that of the module.
enum : uint32_t { // operations; but for the first the request kinds of libccd
    LINUX_MIB_ROOT = 0,
    LINUX_MIB_GETNEXT = 1,
    LINUX_MIB_GET = 2,
    LINUX_MIB_TEST = 5,
    LINUX_MIB_COMMIT = 6,
};

enum : uint32_t { LINUX_MIB_INTEGER = 1, LINUX_MIB_OCTETS = 2 };

inline constexpr uint32_t LINUX_MIB_OID_MAX = 128; // arcs, as many as SNMP allows

struct LinuxMibMsg {
    uint32_t operation;
    uint32_t oidLength; // arcs in use
    uint32_t oid[LINUX_MIB_OID_MAX];
    uint32_t type;    // LINUX_MIB_INTEGER or LINUX_MIB_OCTETS
    uint32_t integer; // value of an integer
    uint32_t length;  // of the value: 4, or the bytes of octets
    uint8_t octets[256];
};
static_assert(sizeof(LinuxMibMsg) == 788);

enum : int32_t { // what an object answers; 0 is success, and what is none of these is a failure without a name
    LINUX_MIB_NO_SUCH_OBJECT = 1,
    LINUX_MIB_NO_SUCH_INSTANCE = 2,
    LINUX_MIB_NO_NEXT_INSTANCE = 3,
    LINUX_MIB_INVALID_RANGE = 4,
    LINUX_MIB_INVALID_LENGTH = 5,
    LINUX_MIB_WRONG_VALUE = 6,
    LINUX_MIB_WRONG_TYPE = 7,
    LINUX_MIB_TOO_BIG = 8,
    LINUX_MIB_COMMIT_FAILED = 9,
    LINUX_MIB_RESOURCE_UNAVAILABLE = 10,
    LINUX_MIB_NOT_WRITABLE = 11,
};

// LINUX_MSG_SAVE: keeps a configuration for the next start. A caller begins, hands the text over in parts, one directly after
// the other, commits, and asks until the files are written. Only one caller has the place; it loses the place when its
// connection ends, when it begins anew, and to somebody else after ten silent seconds. The bytes of a part follow the message.
enum : uint32_t { // LinuxSaveMsg::operation
    LINUX_SAVE_BEGIN = 0,
    LINUX_SAVE_PART = 1,
    LINUX_SAVE_COMMIT = 2,
    LINUX_SAVE_ASK = 3,
    LINUX_SAVE_ERASE = 4, // removes the startup file and the last good one; ask until it is done
    LINUX_SAVE_CLEAR = 5, // forgets a failure of the start, and opens what it closed
};

struct LinuxSaveMsg {
    uint32_t operation;
    uint32_t number; // BEGIN: bytes of the whole text; PART: bytes handed over before
};
static_assert(sizeof(LinuxSaveMsg) == 8);

enum : uint32_t { // LinuxSaveAnswer::state
    LINUX_SAVE_GATHERING = 0,
    LINUX_SAVE_WORKING = 1, // ask again
    LINUX_SAVE_DONE = 2,
    LINUX_SAVE_FAILED = 3,
    LINUX_SAVE_BUSY = 4, // another caller's turn; try again
};

struct LinuxSaveAnswer {
    uint32_t state;
    char sentence[508]; // of a failure, without full stop
};
static_assert(sizeof(LinuxSaveAnswer) == 512);
