#pragma once
// What must be true of the client table between any two events, whatever came in before. Each is checked by its own walk and
// its own arithmetic, not by the table's.

#include <cstdint>

// Tree: ascending MACs, pool records only, port 1 to 28, VLAN below 4096, leases sound, at most 2048; used and free records
// make up the pool; the counts per port and VLAN are those of the counted records. With vlanCountsReset (clients stay while
// their VLAN's count was set to 0) a VLAN's count may also be lower.
void invariantsCheck(bool vlanCountsReset);

// The table is empty and every record of the pool lies on the free list, once, cleared.
void invariantsCheckEmpty();
