#pragma once
// The line that says what a start has come to.

// Logs version, bridge, number of ports, whether snooping is on, and which ports are guarded.
void linuxStartLine();
