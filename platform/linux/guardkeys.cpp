#include "platform/linux/guardkeys.h"

#include <cstring>

namespace {

LinuxGuardElement *begin(LinuxGuardElements *elements, const char *set) {
    LinuxGuardElement *element = &elements->element[elements->count++];
    *element = {.set = set, .length = 0, .key = {}};
    return element;
}

// Fields of a key start at multiples of 4 bytes.
void append(LinuxGuardElement *element, const void *bytes, uint32_t length) {
    memcpy(element->key + element->length, bytes, length);
    element->length += (length + 3) / 4 * 4;
}

// interface . MAC . address, or without the MAC where any will do.
void portElement(const LinuxGuardKey *key, uint32_t ifindex, const char *withMac, const char *withoutMac,
                 LinuxGuardElements *elements) {
    LinuxGuardElement *element = begin(elements, linuxGuardAnyMac(key) ? withoutMac : withMac);
    append(element, &ifindex, sizeof ifindex); // host order
    if (!linuxGuardAnyMac(key))
        append(element, key->mac, sizeof key->mac);
    append(element, key->address, sizeof key->address);
}

void vlanElement(const LinuxGuardKey *key, uint32_t ifindex, LinuxGuardElements *elements) {
    const uint8_t vlan[2] = {static_cast<uint8_t>(key->vlan >> 8), static_cast<uint8_t>(key->vlan)};
    LinuxGuardElement *element = begin(elements, linuxGuardAnyMac(key) ? "f_vlan_any" : "f_vlan");
    append(element, &ifindex, sizeof ifindex);
    if (!linuxGuardAnyMac(key))
        append(element, key->mac, sizeof key->mac);
    append(element, vlan, sizeof vlan);
    append(element, key->address, sizeof key->address);
}

} // namespace

bool linuxGuardAnyMac(const LinuxGuardKey *key) {
    constexpr uint8_t ZERO[6] = {};
    return memcmp(key->mac, ZERO, sizeof ZERO) == 0;
}

void linuxGuardElements(const LinuxGuardKey *key, LinuxGuardPlace place, LinuxGuardElements *elements) {
    elements->count = 0;
    switch (key->kind) {
    case LINUX_FILTER_MAC_ADDRESS: {
        LinuxGuardElement *element = begin(elements, "f_mac_addr");
        append(element, key->mac, sizeof key->mac);
        append(element, key->address, sizeof key->address);
        break;
    }
    case LINUX_FILTER_PORT:
        if (place.ifindex != 0)
            portElement(key, place.ifindex, "f_port", "f_port_any", elements);
        break;
    case LINUX_FILTER_PORT_VLAN:
        if (place.ifindex == 0)
            break;
        vlanElement(key, place.ifindex, elements);
        // A frame without a tag belongs to the native VLAN, and has no tag to match.
        if (place.native != 0 && place.native == key->vlan)
            portElement(key, place.ifindex, "f_native", "f_native_any", elements);
        break;
    default: break;
    }
}
