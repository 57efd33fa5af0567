#include "l2/dhcp6snooping/packet/onoff.h"

#include "l2/dhcp6snooping/clients/limits.h"
#include "l2/dhcp6snooping/clients/table.h"
#include "l2/dhcp6snooping/packet/capture.h"
#include "platform/libsmd.h"

namespace {

constexpr uint32_t SMD_SNOOPING_ON = 1;
constexpr uint32_t SMD_SNOOPING_OFF = 2;

} // namespace

int32_t dhcp6snooping_start() {
    if (dhcp6SnoopingOn != 0)
        return 0;
    dhcp6SnoopingOn = 1;
    smdVDDhcp6snoopingOnOff(SMD_SNOOPING_ON);
    dhcp6snoopingPktReg(0, 1);
    return 0;
}

int32_t dhcp6snooping_stop() {
    if (dhcp6SnoopingOn == 0)
        return 0;
    dhcp6SnoopingOn = 0;
    smdVDDhcp6snoopingOnOff(SMD_SNOOPING_OFF);
    dhcp6snoopingPktReg(0, 0);
    dhcp6snooping_delete_allavlnode();
    return 0;
}

uint32_t dhcp6snooping_is_enabled() { return dhcp6SnoopingOn; }
