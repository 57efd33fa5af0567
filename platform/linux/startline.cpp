#include "platform/linux/startline.h"

#include <cstdint>
#include <string>

#include "platform/linux/guarddenial.h"
#include "platform/linux/loop.h"
#include "platform/linux/ports.h"
#include "platform/linux/switchfile.h"
#include "platform/linux/trap.h"

void linuxStartLine() {
    uint32_t count = 0;
    std::string guarded;
    for (uint32_t port = 1; port <= linuxSwitch.portMax; ++port) {
        if (!linuxPortExists(port))
            continue;
        ++count;
        if (linuxGuardPortClosed(port - 1))
            guarded += (guarded.empty() ? " port 0/" : ", 0/") + std::to_string(port);
    }
    linuxLog("version %s is ready: bridge %s, %u port%s, DHCPv6 snooping %s, guarded:%s", SNOOPD6_VERSION, linuxSwitch.bridge,
             count, count == 1 ? "" : "s", linuxTrapHolds() ? "on" : "off", guarded.empty() ? " nothing" : guarded.c_str());
}
