#pragma once
// Trunk ids of bonds. The core knows a bond by its id only, so that every bond has one of its own: what the switch file gives
// it, else the number at the end of its name, else a free one from the top.

#include <cstdint>

// The id for a bond that takes a place in the table of ports.h; the ones that are there keep theirs.
[[nodiscard]] uint32_t linuxTrunkId(const char *bond);
