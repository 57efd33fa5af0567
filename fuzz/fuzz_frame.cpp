// Frame path: scripts of frames and events against a whole daemon, with the state kept from event to event.

#include <cstddef>

#include "fuzz/framescript.h"
#include "l2/dhcp6snooping/main/Dhcp6Snooping.h"

extern "C" int LLVMFuzzerInitialize(int *, char ***argv);
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

int LLVMFuzzerInitialize(int *, char ***argv) {
    uint32_t queueId = 0;
    return dhcp6snooping_startup((*argv)[0], &queueId);
}

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    FuzzInput input{{data, size}};
    scriptBegin();
    while (scriptStep(&input)) {
    }
    scriptEnd();
    return 0;
}
