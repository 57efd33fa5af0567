#include "fuzz/framescript.h"

#include <cstdlib>
#include <cstring>

#include "fuzz/check.h"
#include "fuzz/invariants.h"
#include "fuzz/platform/frame.h"
#include "fuzz/platform/lean.h"
#include "fuzz/scriptframe.h"
#include "l2/dhcp6snooping/base/vlanlist.h"
#include "l2/dhcp6snooping/clients/bulk.h"
#include "l2/dhcp6snooping/clients/limits.h"
#include "l2/dhcp6snooping/clients/queries.h"
#include "l2/dhcp6snooping/infoopt/policy.h"
#include "l2/dhcp6snooping/main/Dhcp6Snooping.h"
#include "l2/dhcp6snooping/packet/onoff.h"
#include "l2/dhcp6snooping/sourceguard/bindings.h"
#include "l2/dhcp6snooping/sourceguard/exemption.h"
#include "l2/dhcp6snooping/sourceguard/portmode.h"

// Frames of one input. Enough to fill the table and go on; more would only be slow.
static constexpr uint32_t FRAMES_MAX = 3000;
// Tables with more clients than this are checked at every 16th event only, for the same reason.
static constexpr uint32_t CROWDED = 128;

static uint32_t framesLeft;
static uint32_t events;
static bool vlanCountsReset;

// What is too short to hold the headers in front of its message, and four bytes of that, goes nowhere.
static void deliverRaw(FuzzInput *input) {
    const ScriptPlace place{.port = fuzzU8(input), .vlan = fuzzU16(input), .flags = fuzzU8(input)};
    const uint32_t offset = fuzzU16(input);
    const uint32_t length = fuzzU16(input) % (SMD_FRAME_MAX + 1);
    const std::span<const uint8_t> frame = fuzzTake(input, length);
    const uint32_t sendsBefore = leanSwitch.sends;
    const uint32_t freeBefore = listDhcp6SnoopingAvlNode.count;
    scriptDeliver(&place, offset, frame);
    const uint32_t headers = (place.flags & SMD_CTL_DOUBLE_TAGGED) != 0 ? 70 : 66;
    fuzzCheck((offset >= headers && frame.size() >= offset + 4) ||
                  (leanSwitch.sends == sendsBefore && listDhcp6SnoopingAvlNode.count == freeBefore),
              "a frame that is cut off goes nowhere");
    framesLeft--;
}

static void deliverMessage(FuzzInput *input, bool leases) {
    static FrameMessage message;
    const uint8_t type = fuzzU8(input);
    const ScriptWho who{.client = fuzzU8(input), .where = fuzzU8(input), .how = fuzzU8(input)};
    if (leases)
        scriptLeaseMessage(&message, type, &who, input);
    else
        scriptOptionMessage(&message, type, input);
    scriptDeliverMessage(&who, &message);
    framesLeft--;
}

static void deliverCrowd(FuzzInput *input) {
    static FrameMessage message;
    const uint8_t where = fuzzU8(input);
    const uint32_t first = fuzzU16(input);
    uint32_t clients = fuzzU16(input) % 2200;
    for (uint32_t i = 0; i < clients && framesLeft > 0; i++, framesLeft--) {
        const ScriptWho who{.client = (first + i) & 0xFFFF, .where = where, .how = 0};
        uint8_t mac[6];
        scriptClientMac(who.client, mac);
        frameSolicit(&message, mac, i);
        scriptDeliverMessage(&who, &message);
    }
}

static void setSwitches(uint8_t bits) {
    dhcp6snooping_l2Relay_enable(bits & 1u);
    dhcp6snooping_fastRemove_enable(bits & 2u);
    if ((bits & 4) != 0)
        dhcp6snooping_start();
    else
        dhcp6snooping_stop();
    leanSwitch.sendFails = bits & 8u;
    leanSwitch.clockStep = (bits & 16) != 0 ? 4 : 0;
    leanSwitch.filterFails = bits & 32u;
    dhcp6_info_option18_enable((bits & 64) != 0 ? 1 : 0);
    dhcp6_info_option37_enable((bits & 128) != 0 ? 1 : 0);
}

static void deleteClients(FuzzInput *input) {
    const uint8_t kind = fuzzU8(input) % 8;
    const uint32_t number = fuzzU16(input);
    uint8_t mac[6];
    uint8_t address[16];
    scriptClientMac(number, mac);
    scriptAddress(static_cast<uint8_t>(number), address);
    switch (kind) {
    case DHCP6SNOOPING_DELETE_BY_PORT: dhcp6snooping_delete_by_port(number); break;
    case DHCP6SNOOPING_DELETE_BY_IP: dhcp6snooping_delete_by_ip(address); break;
    case DHCP6SNOOPING_DELETE_BY_VLAN: dhcp6snooping_delete_by_vlan(number); break;
    case DHCP6SNOOPING_DELETE_BY_MAC: dhcp6snooping_delete_by_mac(mac); break;
    case DHCP6SNOOPING_DELETE_ALL: dhcp6snooping_delete_all(); break;
    default:
        fuzzCheck(dhcp6snooping_delete_by(kind, 0) == (dhcp6snooping_first_avlnode() == nullptr ? 0 : DHCP6SNOOPING_REFUSED),
                  "an unknown kind of deletion is refused");
    }
}

// Every output block has exactly the size that the caller must provide.
struct QueryOut {
    uint32_t vlan, port, count;
    Dhcp6LeaseLine leases[DHCP6SNOOPING_LEASE_LINES];
    uint32_t valid[DHCP6SNOOPING_LEASE_LINES];
};

static void queryClients(FuzzInput *input) {
    auto *out = static_cast<QueryOut *>(std::calloc(1, sizeof(QueryOut)));
    uint8_t mac[6]{};
    const uint8_t who = fuzzU8(input);
    if (who != 0)
        scriptClientMac(who, mac);
    uint8_t last[6];
    std::memcpy(last, mac, sizeof last);
    while (dhcp6snooping_get_nextclients_ext(mac, &out->vlan, &out->port, &out->count, out->leases, out->valid) == 0) {
        fuzzCheck(std::memcmp(last, mac, sizeof last) < 0, "paging goes forward");
        fuzzCheck(out->count <= DHCP6SNOOPING_LEASE_LINES, "an answer holds at most 10 leases");
        std::memcpy(last, mac, sizeof last);
    }
    Dhcp6SnoopingNode *node = nullptr;
    if (dhcp6snooping_get_nextclients(mac, &node) == 0)
        fuzzCheck(node->acked == 1, "only acknowledged clients are listed");
    scriptClientMac(who, mac);
    const uint32_t found =
        dhcp6snooping_get_currentclients_ext(mac, &out->vlan, &out->port, &out->count, out->leases, out->valid);
    fuzzCheck((found == 0) == (dhcp6snooping_get_avlnode(mac) != nullptr), "a query finds what the table holds");
    std::free(out);
}

static void resetVlan(uint16_t vlan) {
    uint8_t list[VLAN_LIST_SIZE]{};
    list[vlan / 8 % sizeof list] = static_cast<uint8_t>(0x80u >> (vlan % 8));
    dhcp6snooping_vlan_reset(list);
    scriptNoteVlanReset();
}

// No two bindings have the same address or the same non-zero MAC, and all are counted.
static void checkBindings() {
    const Ip6SourceGuardBindNode *head = pIp6SourceGuardBindListHead;
    uint32_t count = 0;
    for (const Ip6SourceGuardBindNode *one = head->next; one != head; one = one->next, count++) {
        fuzzCheck(one->next->previous == one && one->previous->next == one, "bindings are linked both ways");
        for (const Ip6SourceGuardBindNode *other = one->next; other != head; other = other->next) {
            fuzzCheck(std::memcmp(&one->address, &other->address, sizeof one->address) != 0, "an address is bound once");
            fuzzCheck(std::memcmp(one->mac, other->mac, sizeof one->mac) != 0 || dhcp6snooping_mac_is_zero(one->mac),
                      "a MAC is bound once");
        }
    }
    fuzzCheck(count == ip6_source_guard_bind_entry_num_get(), "bindings are counted");
}

static void changeBindings(FuzzInput *input, uint32_t port, uint8_t what) {
    const uint8_t number = fuzzU8(input);
    Ip6Address address;
    scriptAddress(number, address.bytes);
    uint8_t mac[6]{};
    if ((what & 2) != 0)
        scriptClientMac(number, mac);
    if ((what & 1) != 0)
        ip6_source_guard_bind_node_delete(address);
    else
        ip6_source_guard_bind_node_add(address, mac, (what & 4) != 0 ? port : 0, (what & 8) != 0 ? fuzzU16(input) : 0);
}

static void exemptVlan(uint16_t vlan, int32_t operation) {
    uint8_t list[VLAN_LIST_SIZE]{};
    uint8_t failed[VLAN_LIST_SIZE]{};
    list[vlan / 8 % sizeof list] = static_cast<uint8_t>(0x80u >> (vlan % 8));
    ip6_source_guard_vlanlist_config(operation, list, failed);
}

// Bit 0 of `what` turns the port on or off; the rest says what else happens.
static void changeGuard(FuzzInput *input, uint32_t port, uint8_t what) {
    set_ip6_source_guard_port_mode(port, (what & 1) != 0 ? IP6_SOURCE_GUARD_ON : IP6_SOURCE_GUARD_OFF);
    switch (what / 2 % 4) {
    case 1: changeBindings(input, port, what / 8); break;
    case 2: exemptVlan(fuzzU16(input), what / 8 % 2); break;
    case 3: ip6_source_guard_bind_node_delete_all(); break;
    default: break;
    }
    checkBindings();
}

static void changePlatform(FuzzInput *input) {
    const uint8_t which = fuzzU8(input);
    switch (which % 4) {
    case 0: {
        LeanMacAnswer *answer = &leanSwitch.macs[which / 4 % LEAN_PLACES];
        answer->found = fuzzU8(input) & 1u;
        answer->flags = fuzzU8(input);
        answer->port = fuzzU8(input);
        answer->trunk = fuzzU16(input);
        break;
    }
    case 1:
        for (uint8_t &bits : leanSwitch.members[which / 4 % LEAN_PLACES].bits)
            bits = fuzzU8(input);
        break;
    case 2: {
        const uint16_t trunk = fuzzU16(input); // 0xFFFF is no trunk's id
        leanSwitch.trunkOf[which / 4 % LEAN_PORTS] = trunk == 0xFFFF ? -1 : trunk;
        break;
    }
    default: gul_max_port_num = fuzzU8(input);
    }
}

void scriptResetInformation() {
    dhcp6_info_id_set(0, DHCP6_INFO_DEFAULT, nullptr);
    dhcp6_info_id_set(1, DHCP6_INFO_DEFAULT, nullptr);
    std::memset(dhcp6InfoOptionPolicy.remoteIdValue, 0, DHCP6_INFO_VALUE);
    std::memset(dhcp6InfoOptionPolicy.interfaceIdValue, 0, DHCP6_INFO_VALUE);
}

void scriptBegin() {
    leanReset();
    scriptResetInformation();
    leanSwitch.debug = 1;
    dhcp6snooping_init();
    setSwitches(2 | 4);
    dhcp6snooping_port_mode(4, 1);
    framesLeft = FRAMES_MAX;
    events = 0;
    vlanCountsReset = false;
}

void scriptNoteVlanReset() { vlanCountsReset = true; }

void scriptCheck() {
    const uint32_t clients = DHCP6SNOOPING_CLIENTS_MAX - listDhcp6SnoopingAvlNode.count;
    if (clients <= CROWDED || events % 16 == 0)
        invariantsCheck(vlanCountsReset);
    events++;
}

bool scriptStep(FuzzInput *input) {
    if (!fuzzMore(input) || framesLeft == 0)
        return false;
    const auto event = static_cast<ScriptEvent>(fuzzU8(input) % SCRIPT_EVENTS);
    switch (event) {
    case SCRIPT_RAW_FRAME: deliverRaw(input); break;
    case SCRIPT_MESSAGE: deliverMessage(input, false); break;
    case SCRIPT_LEASE_MESSAGE: deliverMessage(input, true); break;
    case SCRIPT_CROWD: deliverCrowd(input); break;
    case SCRIPT_TIME: {
        const uint8_t seconds = fuzzU8(input);
        leanSwitch.now += seconds == 255 ? fuzzU32(input) : seconds;
        break;
    }
    case SCRIPT_AGE:
        for (uint32_t i = 0; i < 10; i++)
            leanSwitch.tick(1, nullptr);
        break;
    case SCRIPT_TRUST: {
        const uint8_t port = fuzzU8(input);
        dhcp6snooping_port_mode(port, fuzzU8(input) % 3);
        break;
    }
    case SCRIPT_PORT_LIMIT: {
        const uint8_t port = fuzzU8(input);
        dhcp6snooping_port_maxclients(port, fuzzU16(input));
        break;
    }
    case SCRIPT_VLAN_LIMIT: {
        const uint16_t vlan = fuzzU16(input);
        dhcp6snooping_vlan_maxclients(vlan, fuzzU16(input));
        break;
    }
    case SCRIPT_SWITCHES: setSwitches(fuzzU8(input)); break;
    case SCRIPT_LINK: {
        const uint8_t port = fuzzU8(input);
        leanSwitch.link(port, fuzzU8(input) & 1u);
        break;
    }
    case SCRIPT_DELETE: deleteClients(input); break;
    case SCRIPT_GUARD: {
        const uint32_t port = fuzzU8(input) % DHCP6SNOOPING_PORTS + 1;
        changeGuard(input, port, fuzzU8(input));
        break;
    }
    case SCRIPT_QUERY: queryClients(input); break;
    case SCRIPT_VLAN_RESET: resetVlan(fuzzU16(input)); break;
    case SCRIPT_PLATFORM: changePlatform(input); break;
    case SCRIPT_EVENTS: break;
    }
    scriptCheck();
    return true;
}

void scriptEnd() {
    invariantsCheck(vlanCountsReset);
    dhcp6snooping_start();
    dhcp6snooping_stop();
    invariantsCheckEmpty();
    leanSwitch.filterFails = 0;
    uint8_t every[VLAN_LIST_SIZE];
    std::memset(every, 0xFF, sizeof every);
    fuzzCheck(ip6_source_guard_vlanlist_config(IP6_EXEMPTION_REMOVE, every, nullptr) == 0, "exemptions can be taken back");
    ip6_source_guard_bind_node_delete_all();
    checkBindings();
}
