#pragma once
// The platform's own tables for the command shell: LINUX_MSG_STATUS of protocol.h.

#include <cstdint>

// Answers status messages from now on.
void linuxStatusInit();
// Notes what smdVDDhcp6snoopingOnOff said last.
void linuxStatusSnooping(uint32_t mode);
