// The values of MIB variables, and MAC addresses as index arcs, of the lean switch; and where the sub-agent's half in the daemon
// gets its requests from.

#include <algorithm>
#include <cstring>

#include "fuzz/check.h"
#include "fuzz/platform/lean.h"
#include "platform/libcommon.h"

LinuxMsgHandler leanMibRequest;

void linuxMsgHandle(uint16_t, LinuxMsgHandler handler) { leanMibRequest = handler; }

extern "C" {

uint32_t ulongGet(const CcdVariable *variable) { return variable->integer; }

void ulongSet(CcdVariable *variable, uint32_t value) {
    variable->integer = value;
    variable->length = sizeof value;
}

const uint8_t *octetGet(const CcdVariable *variable, uint32_t *length) {
    *length = std::min(variable->length, CCD_OCTETS_MAX);
    return variable->octets;
}

void octetSet(CcdVariable *variable, const void *bytes, uint32_t length) {
    fuzzCheck(length <= CCD_OCTETS_MAX, "no answer is longer than a text value");
    std::memcpy(variable->octets, bytes, length);
    variable->octets[length] = 0;
    variable->length = length;
}

int32_t miscMacIndex2OctetString(const uint32_t arcs[6], uint8_t mac[6]) {
    for (uint32_t i = 0; i < 6; i++) {
        fuzzCheck(arcs[i] <= 255, "arcs of a MAC address are octets");
        mac[i] = static_cast<uint8_t>(arcs[i]);
    }
    return 0;
}

int32_t miscOctetString2MacIndex(const uint8_t mac[6], uint32_t arcs[6]) {
    std::copy(mac, mac + 6, arcs);
    return 0;
}

} // extern "C"
