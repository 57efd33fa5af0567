#include "tests/contract/setup.h"

#include "platform/libsmd.h"
#include "platform/linux/switchfile.h"

void contractSetup() {
    for (LinuxPortConfig &port : linuxSwitch.ports) {
        port.exists = 1;
    }
    linuxSwitch.portMax = LINUX_PORTS_MAX;
    smdRMWrapInit(0);
}
