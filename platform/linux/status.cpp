#include "platform/linux/status.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>

#include <unistd.h>

#include "platform/libsmd.h"
#include "platform/libvos.h"
#include "platform/linux/capture.h"
#include "platform/linux/guard.h"
#include "platform/linux/loop.h"
#include "platform/linux/mactable.h"
#include "platform/linux/nftwatch.h"
#include "platform/linux/ports.h"
#include "platform/linux/startup.h"
#include "platform/linux/strangers.h"
#include "platform/linux/switchfile.h"
#include "platform/linux/trap.h"
#include "platform/linux/vlans.h"

namespace {

constexpr uint32_t MACS_A_PAGE = 1024;
constexpr uint32_t FILTERS_A_PAGE = 256; // each is a question to the kernel, some microseconds

uint32_t startSeconds;
uint32_t snooping = 2;

// A reply while it is written: records are copied behind the head as long as they fit.
struct Page {
    uint8_t *at;
    uint32_t room;
    LinuxStatusHead head;
};

bool fits(const Page &page) { return page.room >= page.head.recordSize; }

void put(Page *page, const void *record) {
    memcpy(page->at, record, page->head.recordSize);
    page->at += page->head.recordSize;
    page->room -= page->head.recordSize;
    page->head.count++;
}

void setBit(uint8_t *bits, uint32_t index) { bits[index / 8] = static_cast<uint8_t>(bits[index / 8] | (0x80u >> (index % 8))); }

void writeSwitch(Page *page, uint32_t) {
    LinuxSwitchStatus record{};
    memcpy(record.bridge, linuxSwitch.bridge, sizeof record.bridge);
    snprintf(record.version, sizeof record.version, "%s", SNOOPD6_VERSION);
    record.pid = static_cast<uint32_t>(getpid());
    record.upSeconds = vosUpSeconds() - startSeconds;
    record.ports = linuxSwitch.portMax;
    record.vlanFiltering = linuxBridge.vlanFiltering != 0 ? 1 : 0;
    record.trap = linuxTrapHolds() ? 1 : 0;
    record.snooping = snooping;
    memcpy(record.mac, linuxBridge.mac, sizeof record.mac);
    record.rules = linuxNftRulesPresent() ? 1 : 0;
    put(page, &record);
}

// Leaves the field empty when the path is too long for it.
void putPath(char (*field)[256], const char *path) {
    if (strlen(path) < sizeof *field) {
        memcpy(field, path, strlen(path));
    }
}

void writeFiles(Page *page, uint32_t) {
    LinuxFilesStatus record{};
    putPath(&record.switchFile, linuxSwitchFilePath());
    putPath(&record.startupFile, linuxStartupFile());
    put(page, &record);
}

// All of them fit on one page.
void writeUnlisted(Page *page, uint32_t) {
    for (uint32_t place = 0; place < LINUX_STRANGERS_MAX; place++) {
        const LinuxStranger *stranger = linuxStrangerAt(place);
        if (stranger == nullptr) {
            continue;
        }
        LinuxUnlistedStatus record{};
        memcpy(record.interface, stranger->name, sizeof record.interface);
        record.ifindex = stranger->ifindex;
        put(page, &record);
    }
}

void writeStartup(Page *page, uint32_t) {
    LinuxStartupStatus record;
    linuxStartupStatus(&record);
    put(page, &record);
}

// One record for every port of the switch; `add` makes it and puts it.
void eachPort(Page *page, uint32_t start, void (*add)(Page *page, uint32_t port0)) {
    for (uint32_t p = start; p < linuxSwitch.portMax; p++) {
        if (!linuxPortExists(p + 1)) {
            continue;
        }
        if (!fits(*page)) {
            page->head.next = p;
            return;
        }
        add(page, p);
    }
}

void addPort(Page *page, uint32_t port0) {
    LinuxPortStatus record{};
    uint32_t link = linuxBridgeLink(port0);
    record.number = port0 + 1;
    record.type = linuxSwitch.ports[port0].xpon != 0 ? 2 : 1;
    memcpy(record.interface, linuxLinks[port0].name, sizeof record.interface);
    record.ifindex = linuxLinks[port0].ifindex;
    record.link = linuxLinks[port0].running;
    record.forwarding = linuxPortReceives(port0) ? 1 : 0;
    record.nativeVlan = link == LINUX_NO_LINK ? 0 : linuxVlanNative(link);
    record.trunk = linuxPortTrunk(port0);
    put(page, &record);
}

void addCounters(Page *page, uint32_t port0) {
    linuxCounters[port0].kernelDropped = linuxCaptureLost(port0);
    put(page, &linuxCounters[port0]);
}

void addGuard(Page *page, uint32_t port0) {
    LinuxGuardPortStatus record;
    linuxGuardPortStatus(port0 + 1, &record);
    put(page, &record);
}

void writePorts(Page *page, uint32_t start) { eachPort(page, start, addPort); }

void writeCounters(Page *page, uint32_t start) { eachPort(page, start, addCounters); }

void writeGuard(Page *page, uint32_t start) { eachPort(page, start, addGuard); }

void writeVlans(Page *page, uint32_t start) {
    for (uint32_t vlan = start; vlan <= LINUX_VLAN_MAX; vlan++) {
        if (!linuxVlanExists(vlan)) {
            continue;
        }
        if (!fits(*page)) {
            page->head.next = vlan;
            return;
        }
        LinuxVlanStatus record{};
        record.vlan = vlan;
        for (uint32_t p = 0; p < linuxSwitch.portMax; p++) {
            uint32_t link = linuxBridgeLink(p);
            if (link != LINUX_NO_LINK && linuxVlanMember(link, vlan)) {
                setBit(record.members, p);
            }
            if (link != LINUX_NO_LINK && linuxVlanUntagged(link, vlan)) {
                setBit(record.untagged, p);
            }
        }
        put(page, &record);
    }
}

void writeMacs(Page *page, uint32_t start) {
    static std::array<LinuxMacStatus, MACS_A_PAGE> records;
    uint32_t room = std::min(page->room / page->head.recordSize, MACS_A_PAGE);
    bool more = false;
    uint32_t count = linuxMacList(start, records.data(), room, &more);
    for (uint32_t i = 0; i < count; i++) {
        put(page, &records[i]);
    }
    page->head.next = more ? start + count : 0;
}

// Pages count filters; when some come or go between two pages, one may be missing or come twice.
void writeFilters(Page *page, uint32_t start) {
    uint32_t position = 0;
    for (const LinuxGuardFilter *filter = linuxGuardNext(nullptr); filter != nullptr; filter = linuxGuardNext(&filter->key)) {
        if (position++ < start) {
            continue;
        }
        if (!fits(*page) || page->head.count == FILTERS_A_PAGE) {
            page->head.next = position - 1;
            return;
        }
        LinuxFilterStatus record{};
        record.kind = filter->key.kind;
        record.port = filter->key.port;
        record.vlan = filter->key.vlan;
        record.installed = linuxGuardInKernel(&filter->key) ? 1 : 0;
        memcpy(record.mac, filter->key.mac, sizeof record.mac);
        memcpy(record.address, filter->key.address, sizeof record.address);
        put(page, &record);
    }
}

struct Table {
    uint32_t number;
    uint32_t recordSize;
    void (*write)(Page *page, uint32_t start);
};

constexpr std::array<Table, 10> TABLES = {{
    {LINUX_STATUS_SWITCH, sizeof(LinuxSwitchStatus), writeSwitch},
    {LINUX_STATUS_PORTS, sizeof(LinuxPortStatus), writePorts},
    {LINUX_STATUS_VLANS, sizeof(LinuxVlanStatus), writeVlans},
    {LINUX_STATUS_MACS, sizeof(LinuxMacStatus), writeMacs},
    {LINUX_STATUS_COUNTERS, sizeof(LinuxPortCounters), writeCounters},
    {LINUX_STATUS_GUARD, sizeof(LinuxGuardPortStatus), writeGuard},
    {LINUX_STATUS_FILTERS, sizeof(LinuxFilterStatus), writeFilters},
    {LINUX_STATUS_FILES, sizeof(LinuxFilesStatus), writeFiles},
    {LINUX_STATUS_UNLISTED, sizeof(LinuxUnlistedStatus), writeUnlisted},
    {LINUX_STATUS_STARTUP, sizeof(LinuxStartupStatus), writeStartup},
}};

int32_t answer(const uint8_t *payload, uint32_t length, uint8_t *reply, uint32_t replyMax, uint32_t *replyLength) {
    LinuxStatusAsk ask;
    if (length != sizeof ask || replyMax < sizeof(LinuxStatusHead) + sizeof(LinuxPortCounters)) {
        return LINUX_RESULT_BAD;
    }
    memcpy(&ask, payload, sizeof ask);
    const auto *table = std::ranges::find(TABLES, ask.table, &Table::number);
    if (table == TABLES.end()) {
        return LINUX_RESULT_UNKNOWN;
    }
    Page page = {.at = reply + sizeof(LinuxStatusHead),
                 .room = replyMax - static_cast<uint32_t>(sizeof(LinuxStatusHead)),
                 .head = {.table = ask.table, .next = 0, .count = 0, .recordSize = table->recordSize}};
    table->write(&page, ask.start);
    memcpy(reply, &page.head, sizeof page.head);
    *replyLength = static_cast<uint32_t>(page.at - reply);
    return LINUX_RESULT_OK;
}

} // namespace

void linuxStatusInit() {
    startSeconds = vosUpSeconds();
    linuxMsgHandle(LINUX_MSG_STATUS, answer);
}

void linuxStatusSnooping(uint32_t mode) { snooping = mode; }
