// libqacl of the lean switch: filters are taken and forgotten. Every byte that one is made of is read, and every number has to
// be one that the daemon may ask for.

#include <numeric>

#include "fuzz/check.h"
#include "fuzz/platform/lean.h"
#include "platform/libqacl.h"

static volatile uint32_t readBytes; // so that no reading is left out

static void readAll(const uint8_t *bytes, uint32_t length) { readBytes = std::accumulate(bytes, bytes + length, readBytes); }

static int32_t take() {
    if (leanSwitch.filterFails != 0)
        return -1;
    leanSwitch.filters++;
    return 0;
}

static int32_t takeHost(const uint8_t *mac, const uint8_t *address) {
    readAll(mac, 6);
    readAll(address, 16);
    return take();
}

static int32_t takeHostOnPort(uint32_t port, const uint8_t *mac, const uint8_t *address) {
    fuzzCheck(port >= 1 && port <= LEAN_PORTS, "a filter names a port");
    return takeHost(mac, address);
}

static int32_t takeVlan(uint16_t vlan) {
    fuzzCheck(vlan >= 1 && vlan <= 4094, "an exemption names a VLAN");
    return take();
}

extern "C" {

int32_t FRM_OperateDhcp6FilterResource(uint32_t operation) {
    fuzzCheck(operation == FRM_OP_INSTALL || operation == FRM_OP_REMOVE, "a redirect is installed or removed");
    return take();
}

int32_t FRM_OperatePortDenyAllIp6FilterResource(uint32_t operation, uint32_t port) {
    fuzzCheck(operation == FRM_OP_INSTALL || operation == FRM_OP_REMOVE, "a denial is installed or removed");
    fuzzCheck(port >= 1 && port <= LEAN_PORTS, "a denial names a port");
    return take();
}

int32_t FRM_InstallGlobalForwardIcmp6NdFilterResource(void) { return take(); }
int32_t FRM_RemoveGlobalForwardIcmp6NdFilterResource(void) { return take(); }

int32_t FRM_InstallGlobalForwardIp6VidOnlyFilterResource(uint16_t vlan) { return takeVlan(vlan); }
int32_t FRM_RemoveGlobalForwardIp6VidOnlyFilterResource(uint16_t vlan) { return takeVlan(vlan); }

int32_t FRM_InstallGlobalForwardIp6AddrOnlyFilterResource(const uint8_t *address) {
    readAll(address, 16);
    return take();
}

int32_t FRM_RemoveGlobalForwardIp6AddrOnlyFilterResource(const uint8_t *address) {
    readAll(address, 16);
    return take();
}

int32_t FRM_InstallGlobalForwardIp6AddrFilterResource(const uint8_t *mac, const uint8_t *address) {
    return takeHost(mac, address);
}

int32_t FRM_RemoveGlobalForwardIp6AddrFilterResource(const uint8_t *mac, const uint8_t *address) {
    return takeHost(mac, address);
}

int32_t FRM_InstallForwardIp6AddrFilterResource(uint32_t port, const uint8_t *mac, const uint8_t *address) {
    return takeHostOnPort(port, mac, address);
}

int32_t FRM_RemoveForwardIp6AddrFilterResource(uint32_t port, const uint8_t *mac, const uint8_t *address) {
    return takeHostOnPort(port, mac, address);
}

int32_t FRM_InstallForwardIp6AddrFilterResource_new(uint32_t port, const uint8_t *mac, const uint8_t *address, uint32_t) {
    return takeHostOnPort(port, mac, address);
}

int32_t FRM_RemoveForwardIp6AddrFilterResource_new(uint32_t port, const uint8_t *mac, const uint8_t *address, uint32_t) {
    return takeHostOnPort(port, mac, address);
}

} // extern "C"
