#include "platform/libqacl.h"

#include <cerrno>
#include <cstring>

#include <arpa/inet.h>

#include "platform/linux/guard.h"
#include "platform/linux/loglimit.h"
#include "platform/linux/trap.h"

namespace {

bool makeKey(uint32_t kind, uint32_t port, const uint8_t *mac, const uint8_t *address, uint32_t vlan, LinuxGuardKey *key) {
    *key = {};
    key->kind = kind;
    key->port = port;
    key->vlan = vlan;
    if (mac != nullptr)
        memcpy(key->mac, mac, sizeof key->mac);
    if (address != nullptr)
        memcpy(key->address, address, sizeof key->address);
    return address != nullptr && (mac != nullptr || kind == LINUX_FILTER_ADDRESS);
}

// No host may send from these: the unspecified address, loopback, IPv4 in disguise, and groups.
bool isNobodys(const uint8_t *address) {
    constexpr uint8_t ZEROS[16] = {};
    const bool loopbackOrNone = memcmp(address, ZEROS, 15) == 0 && address[15] <= 1;
    const bool mapped = memcmp(address, ZEROS, 10) == 0 && address[10] == 0xFF && address[11] == 0xFF;
    return loopbackOrNone || mapped || address[0] == 0xFF;
}

// The core knows only that a filter was refused: it is wanted and not in force.
void sayRefused(const LinuxGuardKey &key, int32_t error) {
    char address[INET6_ADDRSTRLEN] = "";
    inet_ntop(AF_INET6, key.address, address, sizeof address);
    const char *why = error == -EADDRNOTAVAIL ? "no host may have it" : strerror(-error);
    if (key.port == 0)
        linuxLogLimited("there is no filter for %s: %s", address, why);
    else
        linuxLogLimited("port 0/%u: there is no filter for %s: %s", key.port, address, why);
}

int32_t add(uint32_t kind, uint32_t port, const uint8_t *mac, const uint8_t *address, uint32_t vlan) {
    LinuxGuardKey key;
    if (!makeKey(kind, port, mac, address, vlan, &key))
        return -EINVAL;
    const int32_t error = isNobodys(key.address) ? -EADDRNOTAVAIL : linuxGuardFilterAdd(&key);
    if (error != 0)
        sayRefused(key, error);
    return error;
}

int32_t remove(uint32_t kind, uint32_t port, const uint8_t *mac, const uint8_t *address, uint32_t vlan) {
    LinuxGuardKey key;
    return makeKey(kind, port, mac, address, vlan, &key) ? linuxGuardFilterRemove(&key) : -EINVAL;
}

} // namespace

extern "C" {

int32_t FRM_OperateDhcp6FilterResource(uint32_t operation) {
    switch (operation) {
    case FRM_OP_INSTALL: return linuxTrapRedirect(true);
    case FRM_OP_REMOVE: return linuxTrapRedirect(false);
    default: return -EINVAL;
    }
}

int32_t FRM_OperatePortDenyAllIp6FilterResource(uint32_t operation, uint32_t port) {
    switch (operation) {
    case FRM_OP_INSTALL: return linuxGuardPortClose(port);
    case FRM_OP_REMOVE: return linuxGuardPortOpen(port);
    default: return -EINVAL;
    }
}

int32_t FRM_InstallGlobalForwardIcmp6NdFilterResource(void) { return linuxGuardNeighbourDiscovery(true); }

int32_t FRM_RemoveGlobalForwardIcmp6NdFilterResource(void) { return linuxGuardNeighbourDiscovery(false); }

int32_t FRM_InstallGlobalForwardIp6VidOnlyFilterResource(uint16_t vlan) { return linuxGuardVlanExempt(vlan, true); }

int32_t FRM_RemoveGlobalForwardIp6VidOnlyFilterResource(uint16_t vlan) { return linuxGuardVlanExempt(vlan, false); }

int32_t FRM_InstallGlobalForwardIp6AddrOnlyFilterResource(const uint8_t *address) {
    return add(LINUX_FILTER_ADDRESS, 0, nullptr, address, 0);
}

int32_t FRM_RemoveGlobalForwardIp6AddrOnlyFilterResource(const uint8_t *address) {
    return remove(LINUX_FILTER_ADDRESS, 0, nullptr, address, 0);
}

int32_t FRM_InstallGlobalForwardIp6AddrFilterResource(const uint8_t *mac, const uint8_t *address) {
    return add(LINUX_FILTER_MAC_ADDRESS, 0, mac, address, 0);
}

int32_t FRM_RemoveGlobalForwardIp6AddrFilterResource(const uint8_t *mac, const uint8_t *address) {
    return remove(LINUX_FILTER_MAC_ADDRESS, 0, mac, address, 0);
}

int32_t FRM_InstallForwardIp6AddrFilterResource(uint32_t port, const uint8_t *mac, const uint8_t *address) {
    return add(LINUX_FILTER_PORT, port, mac, address, 0);
}

int32_t FRM_RemoveForwardIp6AddrFilterResource(uint32_t port, const uint8_t *mac, const uint8_t *address) {
    return remove(LINUX_FILTER_PORT, port, mac, address, 0);
}

int32_t FRM_InstallForwardIp6AddrFilterResource_new(uint32_t port, const uint8_t *mac, const uint8_t *address, uint32_t vlan) {
    return add(LINUX_FILTER_PORT_VLAN, port, mac, address, vlan);
}

int32_t FRM_RemoveForwardIp6AddrFilterResource_new(uint32_t port, const uint8_t *mac, const uint8_t *address, uint32_t vlan) {
    return remove(LINUX_FILTER_PORT_VLAN, port, mac, address, vlan);
}

} // extern "C"
