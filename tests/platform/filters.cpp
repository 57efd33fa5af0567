// libqacl of the recording platform: filters are the values they were installed with, in one set.

#include <set>

#include "platform/libqacl.h"
#include "tests/platform/recording.h"

int32_t recordingFilterStatus = -1;

namespace {

std::set<std::string> installed;

int32_t install(const std::string &filter, bool fails) {
    if (fails)
        return recordingFilterStatus;
    installed.insert(filter);
    return 0;
}

int32_t remove(const std::string &filter, bool fails) {
    if (fails)
        return recordingFilterStatus;
    return installed.erase(filter) == 0 ? -1 : 0;
}

int32_t operate(uint32_t operation, const std::string &filter, bool fails) {
    if (operation == FRM_OP_INSTALL)
        return install(filter, fails);
    return operation == FRM_OP_REMOVE ? remove(filter, fails) : -1;
}

std::string hostText(const uint8_t *mac, const uint8_t *address) {
    return "mac=" + recordingHex(mac, 6) + " address=" + recordingHex(address, 16);
}

} // namespace

void recordingResetFilters() {
    installed.clear();
    recordingFilterStatus = -1;
}

int32_t FRM_OperateDhcp6FilterResource(uint32_t operation) {
    return operate(operation, "dhcp6", recordingCall("FRM_OperateDhcp6FilterResource operation=%u", operation));
}

int32_t FRM_OperatePortDenyAllIp6FilterResource(uint32_t operation, uint32_t port) {
    return operate(operation, "deny port=" + std::to_string(port),
                   recordingCall("FRM_OperatePortDenyAllIp6FilterResource operation=%u port=%u", operation, port));
}

int32_t FRM_InstallGlobalForwardIcmp6NdFilterResource(void) {
    return install("nd", recordingCall("FRM_InstallGlobalForwardIcmp6NdFilterResource"));
}

int32_t FRM_RemoveGlobalForwardIcmp6NdFilterResource(void) {
    return remove("nd", recordingCall("FRM_RemoveGlobalForwardIcmp6NdFilterResource"));
}

int32_t FRM_InstallGlobalForwardIp6VidOnlyFilterResource(uint16_t vlan) {
    const std::string filter = "vlan=" + std::to_string(vlan);
    return install(filter, recordingCall("FRM_InstallGlobalForwardIp6VidOnlyFilterResource %s", filter.c_str()));
}

int32_t FRM_RemoveGlobalForwardIp6VidOnlyFilterResource(uint16_t vlan) {
    const std::string filter = "vlan=" + std::to_string(vlan);
    return remove(filter, recordingCall("FRM_RemoveGlobalForwardIp6VidOnlyFilterResource %s", filter.c_str()));
}

int32_t FRM_InstallGlobalForwardIp6AddrOnlyFilterResource(const uint8_t *address) {
    const std::string filter = "address=" + recordingHex(address, 16);
    return install(filter, recordingCall("FRM_InstallGlobalForwardIp6AddrOnlyFilterResource %s", filter.c_str()));
}

int32_t FRM_RemoveGlobalForwardIp6AddrOnlyFilterResource(const uint8_t *address) {
    const std::string filter = "address=" + recordingHex(address, 16);
    return remove(filter, recordingCall("FRM_RemoveGlobalForwardIp6AddrOnlyFilterResource %s", filter.c_str()));
}

int32_t FRM_InstallGlobalForwardIp6AddrFilterResource(const uint8_t *mac, const uint8_t *address) {
    const std::string filter = hostText(mac, address);
    return install(filter, recordingCall("FRM_InstallGlobalForwardIp6AddrFilterResource %s", filter.c_str()));
}

int32_t FRM_RemoveGlobalForwardIp6AddrFilterResource(const uint8_t *mac, const uint8_t *address) {
    const std::string filter = hostText(mac, address);
    return remove(filter, recordingCall("FRM_RemoveGlobalForwardIp6AddrFilterResource %s", filter.c_str()));
}

int32_t FRM_InstallForwardIp6AddrFilterResource(uint32_t port, const uint8_t *mac, const uint8_t *address) {
    const std::string filter = "port=" + std::to_string(port) + " " + hostText(mac, address);
    return install(filter, recordingCall("FRM_InstallForwardIp6AddrFilterResource %s", filter.c_str()));
}

int32_t FRM_RemoveForwardIp6AddrFilterResource(uint32_t port, const uint8_t *mac, const uint8_t *address) {
    const std::string filter = "port=" + std::to_string(port) + " " + hostText(mac, address);
    return remove(filter, recordingCall("FRM_RemoveForwardIp6AddrFilterResource %s", filter.c_str()));
}

int32_t FRM_InstallForwardIp6AddrFilterResource_new(uint32_t port, const uint8_t *mac, const uint8_t *address, uint32_t vlan) {
    const std::string filter = "port=" + std::to_string(port) + " " + hostText(mac, address) + " vlan=" + std::to_string(vlan);
    return install(filter, recordingCall("FRM_InstallForwardIp6AddrFilterResource_new %s", filter.c_str()));
}

int32_t FRM_RemoveForwardIp6AddrFilterResource_new(uint32_t port, const uint8_t *mac, const uint8_t *address, uint32_t vlan) {
    const std::string filter = "port=" + std::to_string(port) + " " + hostText(mac, address) + " vlan=" + std::to_string(vlan);
    return remove(filter, recordingCall("FRM_RemoveForwardIp6AddrFilterResource_new %s", filter.c_str()));
}
