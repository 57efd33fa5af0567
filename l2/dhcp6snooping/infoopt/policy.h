#pragma once
// What the daemon adds to client messages as options 18 (Interface-Id) and 37 (Remote-Id), and what it does when one is there
// already.
//
// One record for the whole process, and at most one template per option, owned by the record. Managers copy record and
// templates whole, so both layouts are fixed. What stands in a template came from outside: its texts need not be terminated
// and its element types need not exist, and every reader bounds what it reads.

#include <cstddef>
#include <cstdint>

inline constexpr uint32_t DHCP6_INFO_ELEMENTS = 18; // element and literal slots; element 0 is unused
inline constexpr uint32_t DHCP6_INFO_VALUE = 80;    // bytes of a value field
inline constexpr uint32_t DHCP6_INFO_STAGED = 128;  // bytes of a staged text

// Contents of a user-defined id, made by the manager from the text that the operator typed.
struct Dhcp6InfoIdTemplate {
    char text[129];                            // as typed
    char literal[DHCP6_INFO_ELEMENTS][65];     // 0 comes before the first element, k behind element k
    uint32_t elementType[DHCP6_INFO_ELEMENTS]; // Dhcp6InfoElement; the first 0 behind entry 0 ends the list
    char elementVlan[DHCP6_INFO_ELEMENTS][33]; // decimal VLAN of a DHCP6_INFO_VLAN_ADDRESS
};
static_assert(sizeof(Dhcp6InfoIdTemplate) == 1968);
static_assert(offsetof(Dhcp6InfoIdTemplate, elementType) == 1300);
static_assert(offsetof(Dhcp6InfoIdTemplate, elementVlan) == 1372);

enum Dhcp6InfoElement : uint32_t {
    DHCP6_INFO_SWITCH_ADDRESS = 1, // IPv4 address of the layer-3 interface that serves the VLAN
    DHCP6_INFO_HOST_NAME = 2,
    DHCP6_INFO_PORT_NAME = 3,
    DHCP6_INFO_PORT_KIND = 4, // "xpon" or "ethernet"
    DHCP6_INFO_SYSTEM_MAC = 5,
    DHCP6_INFO_CHASSIS = 6, // 6, 7 and 9: the three numbers by which users call the port
    DHCP6_INFO_SLOT = 7,
    DHCP6_INFO_SUBSLOT = 8, // always 0
    DHCP6_INFO_PORT = 9,
    DHCP6_INFO_OUTER_VLAN = 10,
    DHCP6_INFO_INNER_VLAN = 11,
    DHCP6_INFO_CLIENT_MAC = 12,
    DHCP6_INFO_VLAN_ADDRESS = 13, // IPv4 address of the VLAN in elementVlan
    DHCP6_INFO_PON = 14,          // 14 to 17 on xPON ports only
    DHCP6_INFO_ONU = 15,
    DHCP6_INFO_SERIAL = 16,
    DHCP6_INFO_ONU_WIDE = 17, // the same number as 15, two bytes in binary
};

enum Dhcp6InfoStrategy : uint32_t {
    DHCP6_INFO_DROP = 1,
    DHCP6_INFO_KEEP = 2,
    DHCP6_INFO_REPLACE = 3,
};

enum Dhcp6InfoIdType : uint32_t {
    DHCP6_INFO_IPV4 = 1,
    DHCP6_INFO_IPV6 = 2,
    DHCP6_INFO_DEFAULT = 3, // port number and host name
    DHCP6_INFO_STRING = 4,
    DHCP6_INFO_USER_DEFINED = 5,
};

struct Dhcp6InfoOptionPolicy {
    uint32_t strategy;       // Dhcp6InfoStrategy, about a message that carries the option already. Nothing here sets it
    uint32_t option37Enable; // 1 = add option 37, anything else = off
    uint32_t remoteIdType;   // Dhcp6InfoIdType
    uint8_t remoteIdValue[DHCP6_INFO_VALUE]; // 4 or 16 address bytes, or a text; outlives a change of type
    Dhcp6InfoIdTemplate *remoteIdTemplate;   // null = none
    uint32_t option18Enable;
    uint32_t interfaceIdType;
    uint8_t interfaceIdValue[DHCP6_INFO_VALUE];
    Dhcp6InfoIdTemplate *interfaceIdTemplate;
};
static_assert(sizeof(Dhcp6InfoOptionPolicy) == 200);
static_assert(offsetof(Dhcp6InfoOptionPolicy, option37Enable) == 4);
static_assert(offsetof(Dhcp6InfoOptionPolicy, remoteIdValue) == 12);
static_assert(offsetof(Dhcp6InfoOptionPolicy, remoteIdTemplate) == 96);
static_assert(offsetof(Dhcp6InfoOptionPolicy, option18Enable) == 104);
static_assert(offsetof(Dhcp6InfoOptionPolicy, interfaceIdValue) == 112);
static_assert(offsetof(Dhcp6InfoOptionPolicy, interfaceIdTemplate) == 192);

extern Dhcp6InfoOptionPolicy dhcp6InfoOptionPolicy;

// Texts and types that a manager has staged; the two apply functions below put them in force. The first pair is option 37's.
extern char optionContent[DHCP6_INFO_STAGED];
extern uint32_t optionContentType;
extern char optionInterface[DHCP6_INFO_STAGED];
extern uint32_t optionInterfaceType;

// True when a message toward the servers is to get an option at all.
[[nodiscard]] inline bool dhcp6_info_option_wanted() {
    return dhcp6InfoOptionPolicy.option18Enable == 1 || dhcp6InfoOptionPolicy.option37Enable == 1;
}

// Stored as they are. 0.
uint32_t dhcp6_info_option18_enable(uint32_t enable);
uint32_t dhcp6_info_option37_enable(uint32_t enable);

// Sets the id of option 37 (`which` 0) or option 18 (1): type 1 takes 4 bytes from value, 2 takes 16, 4 a text of at most 79
// characters, 5 a Dhcp6InfoIdTemplate, which is copied; 3 takes nothing. 0, or all bits set when it cannot; a template that
// was held is gone in any case, unless `which` is neither.
uint32_t dhcp6_info_id_set(int32_t which, uint32_t type, const void *value);

// Copies the record, and the templates that are held: option 18's to interfaceIdTemplate, option 37's to remoteIdTemplate. A
// template that is not held leaves its destination alone. 0, or all bits set when a pointer is null.
uint32_t dhcp6_info_get(Dhcp6InfoOptionPolicy *policy, Dhcp6InfoIdTemplate *interfaceIdTemplate,
                        Dhcp6InfoIdTemplate *remoteIdTemplate);

// Puts what is staged in force, where it is valid: types 1 to 4, and a text that fits its type. 0.
uint32_t dhcp6_info_remote_id_apply();
uint32_t dhcp6_info_interface_id_apply();
