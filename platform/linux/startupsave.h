#pragma once
// LINUX_MSG_SAVE of protocol.h: takes a configuration from a caller, one caller at a time, and has a child write it to the disk
// (startupstore.h). The text is kept in a file in memory until then, LINUX_STARTUP_BYTES_MAX at most.

// Answers messages from now on.
void linuxStartupSaveInit();
