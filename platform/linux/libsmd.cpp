#include "platform/libsmd.h"

#include <cerrno>
#include <cstring>

#include <linux/capability.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "platform/linux/brnetfilter.h"
#include "platform/linux/capture.h"
#include "platform/linux/links.h"
#include "platform/linux/loop.h"
#include "platform/linux/maccache.h"
#include "platform/linux/netlink.h"
#include "platform/linux/nfttable.h"
#include "platform/linux/nftwatch.h"
#include "platform/linux/options.h"
#include "platform/linux/ports.h"
#include "platform/linux/queue.h"
#include "platform/linux/reload.h"
#include "platform/linux/startline.h"
#include "platform/linux/startup.h"
#include "platform/linux/status.h"

namespace {

constexpr uint32_t ERROR_MAX = 512;

void readSwitchFile() {
    char error[ERROR_MAX];
    if (!linuxSwitchFileRead(linuxSwitchFilePath(), &linuxSwitch, error, sizeof error)) {
        linuxFatal("%s", error);
    }
    gul_max_port_num = linuxSwitch.portMax;
}

// The kernel's interfaces need two rights; asking for them here says so in words, before anything fails half way.
void checkRights() {
    __user_cap_header_struct header = {.version = _LINUX_CAPABILITY_VERSION_3, .pid = 0};
    __user_cap_data_struct data[_LINUX_CAPABILITY_U32S_3] = {};
    constexpr uint32_t NEEDED = 1u << CAP_NET_ADMIN | 1u << CAP_NET_RAW;
    if (syscall(SYS_capget, &header, data) != 0 || (data[0].effective & NEEDED) != NEEDED) {
        linuxFatal(
            "the rights to capture frames and to filter are missing; start it as root, or with CAP_NET_ADMIN and CAP_NET_RAW");
    }
}

void findBridge() {
    char error[ERROR_MAX];
    int32_t status = linuxNetlinkOpen();
    if (status == 0) {
        linuxPortsInit();
        status = linuxLinksRead();
    }
    if (status != 0) {
        linuxFatal("cannot read the interfaces: %s", strerror(-status));
    }
    if (!linuxLinksBridgeCheck(error, sizeof error)) {
        linuxFatal("%s", error);
    }
    for (uint32_t p = 0; p < linuxSwitch.portMax; p++) {
        linuxReloadSayMissing(p);
    }
}

// First of all that the start changes: what is refused here leaves an earlier daemon's filter table in force.
void settleBrNetfilter() {
    char error[ERROR_MAX];
    if (linuxSwitch.keepBridgeNetfilter != 0) {
        if (!linuxBrNetfilterKeep(error, sizeof error)) {
            linuxFatal("%s", error);
        }
        return;
    }
    linuxAtStop(linuxBrNetfilterRestore);
    linuxBrNetfilterOff();
}

void takeSwitch() {
    char error[ERROR_MAX];
    settleBrNetfilter();
    linuxAtStop(linuxNftTableUnload, LINUX_UNDO_AT_STOP);
    if (linuxNftTableLoad(error, sizeof error) != 0) {
        linuxFatal("%s", error);
    }
    linuxCaptureInit();
    linuxPortsStart();
    linuxNetlinkWatch();
    linuxNftWatchStart();
    linuxMacCacheOpen();
    linuxStatusInit();
    linuxStartupWhenReady(linuxStartLine);
    linuxOnHangup(linuxReload);
}

} // namespace

extern "C" {

uint32_t gul_max_port_num;

int32_t smdProcessInit(const char *) {
    linuxOptions();
    linuxLoopBase(); // from here on signals are dealt with, and wait until the loop runs
    readSwitchFile();
    checkRights();
    linuxInstanceLock();
    findBridge();
    takeSwitch();
    return 0;
}

int32_t smdVDPktRegister(uint32_t, const SmdPktRule *rule, uint32_t mode, SmdPktRecvFn cb) {
    return rule == nullptr ? -1 : linuxCaptureAdd(rule, mode, cb);
}

int32_t smdVDPktRegRunning(uint32_t, const SmdPktRule *rule, uint32_t mode) {
    return rule == nullptr ? -1 : linuxCaptureMode(rule, mode);
}

int32_t vd_portlist_plnull(const SmdPortList *list) {
    static constexpr SmdPortList NONE = {};
    return list == nullptr || memcmp(list, &NONE, sizeof NONE) == 0 ? 1 : 0;
}

int32_t smdVDDhcp6snoopingOnOff(uint32_t mode) {
    linuxStatusSnooping(mode);
    return 0;
}

int32_t smdVDPortExistAndType(uint32_t port, uint32_t *type) {
    if (!linuxPortExists(port)) {
        return 0;
    }
    *type = linuxSwitch.ports[port - 1].xpon != 0 ? 2 : 1;
    return 1;
}

// Chassis, slot and port: a Linux machine is one chassis with one slot.
int32_t smdVDPortSnmpToUser(uint32_t port, uint32_t *a, uint32_t *b, uint32_t *c) {
    if (!linuxPortExists(port)) {
        return -1;
    }
    *a = 0;
    *b = 0;
    *c = port;
    return 0;
}

int32_t smdVDLinktrapRegPort(uint32_t, uint32_t, int32_t (*cb)(uint32_t port, uint32_t linkState)) {
    linuxPortsOnLinkChange(cb);
    return 0;
}

} // extern "C"
