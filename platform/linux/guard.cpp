#include "platform/linux/guard.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <span>

#include "platform/linux/guarddenial.h"
#include "platform/linux/guardkeys.h"
#include "platform/linux/guardnames.h"
#include "platform/linux/guardsources.h"
#include "platform/linux/ipv6walk.h"
#include "platform/linux/loop.h"
#include "platform/linux/nftset.h"
#include "platform/linux/ports.h"
#include "platform/linux/vlans.h"

LinuxGuardPlaces linuxGuardPlaces;

namespace {

AvlTree filters;
bool discoveryOpen;
bool unsettled;          // the kernel refused the last rewriting, or a part of it
uint32_t foreignTagType; // Ethernet type of tags that are payload to the bridge, 0 for none; as written

int32_t compareKeys(const void *key, const void *node) {
    return memcmp(key, &static_cast<const LinuxGuardFilter *>(node)->key, sizeof(LinuxGuardKey));
}

LinuxGuardFilter *find(const LinuxGuardKey *key) {
    return static_cast<LinuxGuardFilter *>(avlSearch(&filters, key, compareKeys));
}

// A filter with these values; null for any MAC address.
bool isWanted(uint32_t kind, uint32_t port, uint32_t vlan, const uint8_t *mac, const uint8_t *address) {
    LinuxGuardKey key = {.kind = kind, .port = port, .vlan = vlan, .mac = {}, .reserved = {}, .address = {}};
    if (mac != nullptr)
        memcpy(key.mac, mac, sizeof key.mac);
    memcpy(key.address, address, sizeof key.address);
    return find(&key) != nullptr;
}

bool hasPort(const LinuxGuardKey *key) { return key->kind == LINUX_FILTER_PORT || key->kind == LINUX_FILTER_PORT_VLAN; }

LinuxGuardPlace placeNow(uint32_t port0) {
    const uint32_t bridgeLink = linuxBridgeLink(port0);
    const uint32_t link = bridgeLink == LINUX_NO_LINK ? port0 : bridgeLink; // guarded before it enters the bridge
    return {.ifindex = linuxLinks[link].ifindex, .native = linuxVlanNative(link)};
}

// ---- elements ------------------------------------------------------------------------------------------------------

std::span<const uint8_t> keyOf(const LinuxGuardElement &element) { return {element.key, element.length}; }

bool isOneOf(const LinuxGuardElement &element, const LinuxGuardElements &elements) {
    for (uint32_t i = 0; i < elements.count; ++i)
        if (strcmp(element.set, elements.element[i].set) == 0 && std::ranges::equal(keyOf(element), keyOf(elements.element[i])))
            return true;
    return false;
}

LinuxGuardElements elementsOf(const LinuxGuardKey *key) {
    LinuxGuardElements elements;
    linuxGuardElements(key, hasPort(key) ? linuxGuardPlaces[key->port - 1] : LinuxGuardPlace{}, &elements);
    return elements;
}

// Whether the same filter of another port, a member of the same bond, is written as the same element.
bool sharedElement(const LinuxGuardKey *key, const LinuxGuardElement &element) {
    if (!hasPort(key))
        return false;
    LinuxGuardKey other = *key;
    for (other.port = 1; other.port <= LINUX_PORTS_MAX; ++other.port)
        if (other.port != key->port && linuxGuardPlaces[other.port - 1].ifindex != 0 && find(&other) != nullptr &&
            isOneOf(element, elementsOf(&other)))
            return true;
    return false;
}

void queueFilterIn(const LinuxGuardKey *key) {
    const LinuxGuardElements elements = elementsOf(key);
    for (uint32_t i = 0; i < elements.count; ++i)
        linuxNftAdd(elements.element[i].set, keyOf(elements.element[i]));
}

void queueFilterOut(const LinuxGuardKey *key, const LinuxGuardElements &elements, bool strict) {
    for (uint32_t i = 0; i < elements.count; ++i)
        if (!sharedElement(key, elements.element[i]))
            (strict ? linuxNftRemove : linuxNftDrop)(elements.element[i].set, keyOf(elements.element[i]));
}

// ---- following the ports -------------------------------------------------------------------------------------------

// Ports that have another place now, or whose elements are not all where they should be.
struct Moves {
    std::array<bool, LINUX_PORTS_MAX> moved;
    LinuxGuardPlaces from;
    uint32_t count; // of interfaces that are touched
    std::array<LinuxGuardDenialChange, 2 * LINUX_PORTS_MAX> interfaces;
};

void touch(Moves *moves, uint32_t ifindex) {
    for (uint32_t i = 0; i < moves->count; ++i)
        if (moves->interfaces[i].ifindex == ifindex)
            return;
    if (ifindex != 0)
        moves->interfaces[moves->count++] = {
            .ifindex = ifindex, .before = linuxGuardDenial(ifindex), .after = {}, .certain = !unsettled};
}

// Finds out what has moved, and takes the new places over. False when nothing has.
bool takePlaces(Moves *moves) {
    LinuxGuardPlaces now;
    bool any = false;
    for (uint32_t port0 = 0; port0 < LINUX_PORTS_MAX; ++port0) {
        now[port0] = placeNow(port0);
        const LinuxGuardPlace &was = linuxGuardPlaces[port0];
        moves->moved[port0] = unsettled || was.ifindex != now[port0].ifindex || was.native != now[port0].native;
        any = any || moves->moved[port0];
    }
    for (uint32_t port0 = 0; port0 < LINUX_PORTS_MAX; ++port0) {
        if (!moves->moved[port0])
            continue;
        touch(moves, linuxGuardPlaces[port0].ifindex);
        touch(moves, now[port0].ifindex);
        if (linuxGuardPlaces[port0].ifindex != now[port0].ifindex)
            linuxGuardKeepCount(port0);
    }
    moves->from = linuxGuardPlaces;
    linuxGuardPlaces = now;
    for (uint32_t i = 0; i < moves->count; ++i)
        moves->interfaces[i].after = linuxGuardDenial(moves->interfaces[i].ifindex);
    return any || linuxGuardNamesDiffer();
}

void queueMove(const LinuxGuardKey *key, const Moves &moves, bool in) {
    if (in) {
        queueFilterIn(key);
        return;
    }
    LinuxGuardElements old;
    LinuxGuardElements gone = {};
    linuxGuardElements(key, moves.from[key->port - 1], &old);
    for (uint32_t i = 0; i < old.count; ++i)
        if (!isOneOf(old.element[i], elementsOf(key)))
            gone.element[gone.count++] = old.element[i];
    queueFilterOut(key, gone, false);
}

// Takes the filters of all moved ports out of their old places, or puts them into the new ones, in batches.
int32_t moveFilters(const Moves &moves, bool in) {
    LinuxNftSteps steps;
    linuxNftBegin();
    for (const LinuxGuardFilter *filter = linuxGuardNext(nullptr); filter != nullptr; filter = linuxGuardNext(&filter->key)) {
        if (!hasPort(&filter->key) || !moves.moved[filter->key.port - 1])
            continue;
        queueMove(&filter->key, moves, in);
        linuxNftStep(&steps);
    }
    return linuxNftLastStep(steps);
}

// After a refusal nobody knows what is where: all of it goes, and what is wanted comes back in.
int32_t clearFilters() {
    linuxNftBegin();
    for (const char *set : {"f_port", "f_port_any", "f_vlan", "f_vlan_any", "f_native", "f_native_any"})
        linuxNftEmpty(set);
    const int32_t error = linuxNftCommit();
    const int32_t refused = linuxGuardSourcesRewrite();
    return error == 0 ? refused : error;
}

int32_t moveDenials(const Moves &moves, bool stricter) {
    linuxNftBegin();
    if (stricter && unsettled)
        linuxGuardQueueForget();
    for (uint32_t i = 0; i < moves.count; ++i) {
        if (stricter)
            linuxGuardQueueStricter(moves.interfaces[i]);
        else
            linuxGuardQueueLooser(moves.interfaces[i], false);
    }
    if (stricter)
        linuxGuardNamesQueueIn();
    else
        linuxGuardNamesQueueOut();
    return linuxNftCommit();
}

// A bridge that filters VLANs takes tags of one type; others are payload to it, and their frames belong to the native VLAN.
int32_t followTagType() {
    const uint32_t other = linuxBridge.vlanTpid == LINUX_TPID_8021Q ? LINUX_TPID_8021AD : LINUX_TPID_8021Q;
    const uint32_t foreign = linuxBridge.vlanFiltering != 0 ? other : 0;
    if (foreign == foreignTagType)
        return 0;
    const uint8_t key[2] = {static_cast<uint8_t>(foreign >> 8), static_cast<uint8_t>(foreign)};
    linuxNftBegin();
    linuxNftEmpty("foreign_tag");
    if (foreign != 0)
        linuxNftAdd("foreign_tag", key);
    const int32_t error = linuxNftCommit();
    if (error == 0)
        foreignTagType = foreign;
    return error;
}

} // namespace

int32_t linuxGuardFilterAdd(const LinuxGuardKey *key) {
    if (hasPort(key) && !linuxPortExists(key->port))
        return -ENODEV;
    if (key->kind == LINUX_FILTER_PORT_VLAN && (key->vlan < 1 || key->vlan > LINUX_VLAN_MAX))
        return -EINVAL;
    if (find(key) != nullptr)
        return 0;
    auto *filter = static_cast<LinuxGuardFilter *>(calloc(1, sizeof(LinuxGuardFilter)));
    if (filter == nullptr)
        return -ENOMEM;
    if (!linuxGuardSourceBind(key)) {
        free(filter);
        return -ENOMEM;
    }
    linuxNftBegin();
    queueFilterIn(key);
    linuxGuardSourceQueueIn(key);
    const int32_t error = linuxNftCommit();
    if (error != 0) {
        linuxGuardSourceUnbind(key);
        free(filter);
        return error;
    }
    filter->key = *key;
    avlInsert(&filters, filter, key, compareKeys);
    return 0;
}

int32_t linuxGuardFilterRemove(const LinuxGuardKey *key) {
    if (find(key) == nullptr)
        return -ENOENT;
    int32_t error = 0;
    for (const bool strict : {true, false}) {
        linuxNftBegin();
        queueFilterOut(key, elementsOf(key), strict);
        linuxGuardSourceQueueOut(key, strict);
        const int32_t refused = linuxNftCommit();
        error = error == 0 ? refused : error;
        unsettled = unsettled || (!strict && refused != 0);
        if (refused != -ENOENT)
            break;
    }
    // An element that somebody else took away is gone all the same, and the other one now too, or with the next rewriting.
    if (error != 0 && error != -ENOENT)
        return error;
    linuxGuardSourceUnbind(key);
    free(avlDelete(&filters, key, compareKeys));
    return error;
}

// All of them in one batch as a rule; what the kernel refuses is gone for the daemon all the same, and the next change of the
// ports writes everything anew.
void linuxGuardFiltersForget(uint32_t port) {
    LinuxNftSteps steps;
    linuxNftBegin();
    const LinuxGuardFilter *next = nullptr;
    for (const LinuxGuardFilter *filter = linuxGuardNext(nullptr); filter != nullptr; filter = next) {
        next = linuxGuardNext(&filter->key);
        if (!hasPort(&filter->key) || filter->key.port != port)
            continue;
        const LinuxGuardKey key = filter->key;
        queueFilterOut(&key, elementsOf(&key), false);
        linuxGuardSourceQueueOut(&key, false);
        linuxGuardSourceUnbind(&key);
        free(avlDelete(&filters, &key, compareKeys));
        linuxNftStep(&steps);
    }
    const int32_t refused = linuxNftLastStep(steps);
    if (refused != 0)
        linuxLog("cannot take the filters of port 0/%u out of the kernel, tried again at the next change of the ports: %s",
                 port, strerror(-refused));
    unsettled = unsettled || refused != 0;
}

int32_t linuxGuardNeighbourDiscovery(bool open) {
    constexpr uint8_t DISCOVERY[] = {133, 134, 135, 136, 137}; // solicitations, advertisements, redirect
    constexpr uint8_t LISTENER[] = {131, 132, 143};            // reports and done
    if (open == discoveryOpen)
        return open ? 0 : -ENOENT;
    linuxNftBegin();
    if (open) {
        for (const uint8_t &type : DISCOVERY)
            linuxNftAdd("nd_types", {&type, 1});
        for (const uint8_t &type : LISTENER)
            linuxNftAdd("mld_types", {&type, 1});
    } else {
        linuxNftEmpty("nd_types");
        linuxNftEmpty("mld_types");
    }
    const int32_t error = linuxNftCommit();
    if (error == 0)
        discoveryOpen = open;
    return error;
}

// Members of one bond share its filters, as they do in the kernel.
bool linuxGuardAdmits(uint32_t port0, uint32_t vlan, const uint8_t *mac, const uint8_t *address) {
    const uint32_t ifindex = linuxGuardPlaces[port0].ifindex;
    if (!linuxGuardDenial(ifindex).closed || linuxGuardVlanIsExempt(vlan))
        return true;
    if (isWanted(LINUX_FILTER_ADDRESS, 0, 0, nullptr, address) || isWanted(LINUX_FILTER_MAC_ADDRESS, 0, 0, mac, address))
        return true;
    for (uint32_t port = 1; port <= LINUX_PORTS_MAX; ++port) {
        if (linuxGuardPlaces[port - 1].ifindex != ifindex)
            continue;
        for (const uint8_t *station : {mac, static_cast<const uint8_t *>(nullptr)})
            if (isWanted(LINUX_FILTER_PORT, port, 0, station, address) ||
                isWanted(LINUX_FILTER_PORT_VLAN, port, vlan, station, address))
                return true;
    }
    return false;
}

// What closes comes first and what opens last, so that at no moment more passes than is wanted before or after.
void linuxGuardSettle() {
    static Moves moves;
    moves = {};
    int32_t errors[5] = {followTagType(), 0, 0, 0, 0};
    if (takePlaces(&moves)) {
        if (unsettled)
            linuxGuardCountsRead(moves.from);
        errors[1] = moveDenials(moves, true);
        if (unsettled && errors[1] == 0)
            linuxGuardCountsKeep();
        errors[2] = unsettled ? clearFilters() : moveFilters(moves, false);
        errors[3] = moveFilters(moves, true);
        errors[4] = moveDenials(moves, false);
    }
    const int32_t *error = std::ranges::find_if(errors, [](int32_t status) { return status != 0; });
    const bool failed = error != std::end(errors);
    if (failed && !unsettled)
        linuxLog("cannot rewrite source-guard filters after a change of interfaces or VLANs, tried again at the next one: %s",
                 strerror(-*error));
    if (failed)
        linuxGuardNamesDoubt();
    unsettled = failed;
}

const LinuxGuardFilter *linuxGuardNext(const LinuxGuardKey *after) {
    return static_cast<const LinuxGuardFilter *>(after == nullptr ? avlMinimumGet(&filters)
                                                                  : avlSuccessorGet(&filters, after, compareKeys));
}

bool linuxGuardInKernel(const LinuxGuardKey *key) {
    const LinuxGuardElements elements = elementsOf(key);
    const bool written = elements.count != 0 || key->kind == LINUX_FILTER_ADDRESS;
    for (uint32_t i = 0; i < elements.count; ++i)
        if (linuxNftGet(elements.element[i].set, keyOf(elements.element[i]), nullptr) != 0)
            return false;
    return written && linuxGuardSourceInKernel(key);
}
