#pragma once
// Everything that a set through the MIB may change, as one copy to compare with: a request that only asks must leave it alone.

// Back to what a start leaves, rows, scratch row and staged ids included.
void mibStateReset();

void mibStateRemember();
// True when nothing has changed since.
[[nodiscard]] bool mibStateIsSame();
