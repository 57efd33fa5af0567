#include "platform/linux/guardnames.h"

#include <algorithm>

#include "platform/linux/guarddenial.h"
#include "platform/linux/nftset.h"
#include "platform/linux/portnames.h"

namespace {

constexpr const char *NAME_SET = "guard_name";

LinuxPortNames written;
bool doubtful;

LinuxPortNames wanted() {
    LinuxPortNames names{};
    for (uint32_t port0 = 0; port0 < LINUX_PORTS_MAX; ++port0)
        if (linuxGuardPortClosed(port0))
            linuxPortNamesAdd(&names, port0);
    return names;
}

} // namespace

bool linuxGuardNamesDiffer() {
    const LinuxPortNames names = wanted();
    return doubtful || !std::ranges::equal(linuxPortNamesAll(names), linuxPortNamesAll(written));
}

void linuxGuardNamesQueueIn() {
    if (doubtful)
        linuxNftEmpty(NAME_SET);
    const LinuxPortNames names = wanted();
    for (const LinuxPortName &name : linuxPortNamesAll(names))
        if (doubtful || !linuxPortNamesHave(written, name))
            linuxNftAdd(NAME_SET, name);
}

void linuxGuardNamesQueueOut() {
    const LinuxPortNames names = wanted();
    for (const LinuxPortName &name : linuxPortNamesAll(written))
        if (!doubtful && !linuxPortNamesHave(names, name))
            linuxNftDrop(NAME_SET, name);
    written = names;
    doubtful = false;
}

void linuxGuardNamesDoubt() { doubtful = true; }
