#pragma once
// What the handlers ask of a request alike.

#include <cstdint>

#include "platform/libccd.h"

inline constexpr uint32_t MIB_INTEGER_SIZE = 4; // bytes
inline constexpr uint32_t MIB_ON = 1;           // of a two-valued object
inline constexpr uint32_t MIB_OFF = 2;

[[nodiscard]] inline bool mib_has_work(uint32_t kind) {
    return kind == CCD_GETNEXT || kind == CCD_GET || kind == CCD_TEST || kind == CCD_COMMIT;
}

[[nodiscard]] inline bool mib_is_get(uint32_t kind) { return kind == CCD_GETNEXT || kind == CCD_GET; }

// The instance's number; an instance without arcs counts as 0.
[[nodiscard]] inline uint32_t mib_index(const CcdVariable *variable) {
    return variable->indexLength == 0 ? 0 : variable->index[0];
}

// True for an index of one arc from 1 to `last`.
[[nodiscard]] inline bool mib_index_within(const CcdVariable *variable, uint32_t last) {
    return variable->indexLength == 1 && variable->index[0] >= 1 && variable->index[0] <= last;
}

// Moves a variable to an instance of one arc.
inline void mib_set_index(CcdVariable *variable, uint32_t index) {
    for (uint32_t &arc : variable->index)
        arc = 0;
    variable->indexLength = 1;
    variable->index[0] = index;
}
