#pragma once
// The switch's one table of bridge filter rules (nftrules.h) in the kernel. It is loaded once, at start; afterwards only
// elements of its sets change (nftset.h).
//
// The table stays when the process dies, so that a switch with snooping or a guard on does not open; a new start replaces it in
// one step, and a stop takes it away.

#include <cstdint>

// Loads the table, in place of an older one of ours. 0, or -1 with one sentence in `error`.
[[nodiscard]] int32_t linuxNftTableLoad(char *error, uint32_t errorSize);

// Runs further lines of the rule language on the loaded table: all of them come into force, or none. False with one sentence
// in `error`.
[[nodiscard]] bool linuxNftTableRun(const char *text, char *error, uint32_t errorSize);

// Takes the table away.
void linuxNftTableUnload();
