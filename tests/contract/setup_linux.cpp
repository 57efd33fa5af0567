#include "tests/contract/setup.h"

#include <cstdio>

#include <sched.h>

#include "platform/libsmd.h"
#include "platform/linux/guard.h"
#include "platform/linux/nfttable.h"
#include "platform/linux/ports.h"
#include "platform/linux/switchfile.h"

void contractSetup() {
    for (LinuxPortConfig &port : linuxSwitch.ports) {
        port.exists = 1;
    }
    linuxSwitch.portMax = LINUX_PORTS_MAX;
    smdRMWrapInit(0);
}

// In a network namespace of its own, once for all tests. The kernel does not ask whether an interface index is anybody's.
bool contractSetupFilters() {
    static bool ready = false;
    if (ready)
        return true;
    char error[256];
    if (unshare(CLONE_NEWNET) != 0 && unshare(CLONE_NEWUSER | CLONE_NEWNET) != 0) {
        perror("unshare");
        return false;
    }
    if (linuxNftTableLoad(error, sizeof error) != 0) {
        fprintf(stderr, "%s\n", error);
        return false;
    }
    for (uint32_t port0 = 0; port0 < LINUX_PORTS_MAX; ++port0)
        linuxLinks[port0].ifindex = 100 + port0;
    linuxGuardSettle();
    ready = true;
    return true;
}
