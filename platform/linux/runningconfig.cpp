#include "platform/linux/runningconfig.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <string>

#include "platform/linux/loop.h"
#include "platform/linux/protocol.h"

namespace {

constexpr uint32_t MODULE_COMMANDS = 0x10000; // this module's commands are wanted
constexpr uint32_t SPACE_FIRST = 1 << 16;     // bytes
constexpr uint32_t SPACE_MAX = 1 << 24;       // everything at its largest takes about half a megabyte

int32_t (*build)(char *text, uint32_t *space, uint32_t flags, uint32_t context);
std::string current;
uint32_t generation;
uint32_t spaceNeeded = SPACE_FIRST; // for the text that was built last; a text that does not fit is built for nothing

// False when the builder answers that it cannot, whatever the space.
bool buildInto(std::string *text) {
    for (uint32_t size = spaceNeeded; size <= SPACE_MAX; size *= 2) {
        text->assign(size, '\0');
        uint32_t space = size;
        if (build(text->data(), &space, MODULE_COMMANDS, 0) == 0) {
            text->resize(strnlen(text->data(), size));
            spaceNeeded = std::max(SPACE_FIRST, std::bit_ceil(static_cast<uint32_t>(text->size()) + 1));
            return true;
        }
    }
    return false;
}

bool renew() {
    std::string text;
    if (!buildInto(&text)) {
        return false;
    }
    text.shrink_to_fit();
    if (text != current || generation == 0) {
        current.swap(text);
        generation = generation == UINT32_MAX ? 1 : generation + 1;
    }
    return true;
}

int32_t answer(const uint8_t *payload, uint32_t length, uint8_t *reply, uint32_t replyMax, uint32_t *replyLength) {
    LinuxConfigAsk ask;
    if (length != sizeof ask || replyMax <= sizeof(LinuxConfigHead)) {
        return LINUX_RESULT_BAD;
    }
    memcpy(&ask, payload, sizeof ask);
    if (ask.offset == 0 && !renew()) {
        return LINUX_RESULT_BAD;
    }
    const uint32_t total = static_cast<uint32_t>(current.size());
    if (ask.offset != 0 && (ask.generation != generation || ask.offset >= total)) {
        return LINUX_RESULT_CHANGED;
    }
    const uint32_t bytes = std::min(total - ask.offset, replyMax - static_cast<uint32_t>(sizeof(LinuxConfigHead)));
    const uint32_t end = ask.offset + bytes;
    const LinuxConfigHead head = {.total = total, .next = end < total ? end : 0, .generation = generation, .length = bytes};
    memcpy(reply, &head, sizeof head);
    memcpy(reply + sizeof head, current.data() + ask.offset, bytes);
    *replyLength = static_cast<uint32_t>(sizeof head) + bytes;
    return LINUX_RESULT_OK;
}

} // namespace

int32_t linuxRunningConfigBuilder(int32_t (*builder)(char *text, uint32_t *space, uint32_t flags, uint32_t context)) {
    if (builder == nullptr) {
        return -1;
    }
    build = builder;
    linuxMsgHandle(LINUX_MSG_RUNNING_CONFIG, answer);
    return 0;
}
