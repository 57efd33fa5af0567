#pragma once
// liblacp: trunks (link aggregation groups). A trunk has an id from 0 to 65534 and member ports.

#include <cstdint>

#include "libsmd.h"

extern "C" {

// The port index (from 0) that stands for a trunk: that of its lowest member. 0 on success; -1 when there is no such trunk,
// with *port0 set to 0.
int32_t lac_get_channel_ag(uint16_t trunk, uint32_t *port0);

// The trunk that a port (from 1) belongs to, or -1.
int32_t lac_channel_get_from_port(uint32_t port);

// Makes a list sendable for a frame that came in through port index port0: of every trunk only the lowest member stays, for
// the whole trunk, and of the receiving port's own trunk none. list and out are two objects. 0 on success.
int32_t lac_ap_2_ag_hi_hi_excpt_cur(const SmdPortList *list, SmdPortList *out, uint32_t port0);

} // extern "C"
