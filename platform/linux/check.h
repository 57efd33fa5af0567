#pragma once
// A look at the files that a start depends on, without a start: no right is needed, and nothing is changed.
//
// What of the files cannot be known without the daemon is left to the start: whether bridge and interfaces are there, and
// whether each line of the startup file is in force. Whether that file is damaged is known.

// Says on standard output what the switch file and the startup file hold, and on standard error what is wrong. False when a
// start would end with it, or begin without the saved configuration.
[[nodiscard]] bool linuxCheck();
