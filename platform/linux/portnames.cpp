#include "platform/linux/portnames.h"

#include <algorithm>
#include <cstring>

#include "platform/linux/ports.h"

namespace {

void add(LinuxPortNames *names, const char *interface) {
    LinuxPortName name{};
    memcpy(name.data(), interface, strnlen(interface, name.size() - 1));
    if (!linuxPortNamesHave(*names, name))
        names->name[names->count++] = name;
}

} // namespace

void linuxPortNamesAdd(LinuxPortNames *names, uint32_t port0) {
    const uint32_t link = linuxBridgeLink(port0);
    add(names, linuxSwitch.ports[port0].interface);
    if (link != LINUX_NO_LINK && link != port0)
        add(names, linuxLinks[link].name);
}

std::span<const LinuxPortName> linuxPortNamesAll(const LinuxPortNames &names) { return {names.name.data(), names.count}; }

bool linuxPortNamesHave(const LinuxPortNames &names, const LinuxPortName &name) {
    return std::ranges::find(linuxPortNamesAll(names), name) != linuxPortNamesAll(names).end();
}
