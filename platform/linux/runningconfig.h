#pragma once
// The running configuration for the command shell: LINUX_MSG_RUNNING_CONFIG of protocol.h.
//
// The module's builder writes into a buffer that grows until the text fits. A text may be longer than one message: it is built
// when a caller asks for its first byte, and kept for the pages that follow. A later text that differs has another
// generation, so that nobody puts pages of two texts together.

#include <cstdint>

// Takes the module's builder and answers messages from now on. Non-zero for a null builder.
[[nodiscard]] int32_t linuxRunningConfigBuilder(int32_t (*builder)(char *text, uint32_t *space, uint32_t flags,
                                                                   uint32_t context));
