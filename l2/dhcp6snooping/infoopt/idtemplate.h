#pragma once
// Writes the contents of a user-defined id: literals and elements of a template, with what is known about the message.

#include <cstdint>

#include "l2/dhcp6snooping/infoopt/context.h"
#include "l2/dhcp6snooping/infoopt/policy.h"

enum Dhcp6InfoMode : uint32_t {
    DHCP6_INFO_BINARY = 1,
    DHCP6_INFO_TEXT = 2, // what goes into options
};

// Appends to `out`, which has `space` bytes, and counts in *length, which starts at 0. 0 on success. -1 when the VLAN or the
// port is none, or the space does not suffice; *length is of no use then.
int32_t dhcp6_info_template_build(const Dhcp6InfoIdTemplate *idTemplate, const Dhcp6InfoContext *ctx, uint32_t mode,
                                  uint8_t *out, uint32_t space, uint32_t *length);
