#include "platform/linux/guardsources.h"

#include <cstdlib>
#include <cstring>
#include <span>

#include "platform/linux/guardkeys.h"
#include "platform/linux/nftset.h"

namespace {

constexpr const char *MAP = "f_source";

struct Source {
    AvlNode link;
    uint8_t address[16];
    uint32_t anywhere; // filters that let it in from everywhere
    uint32_t narrower; // filters that ask for a port or a MAC address as well
};
static_assert(offsetof(Source, link) == 0);

AvlTree sources;

int32_t compareAddresses(const void *address, const void *node) {
    return memcmp(address, static_cast<const Source *>(node)->address, sizeof Source::address);
}

Source *find(const uint8_t *address) { return static_cast<Source *>(avlSearch(&sources, address, compareAddresses)); }

Source *next(const Source *after) {
    return static_cast<Source *>(after == nullptr ? avlMinimumGet(&sources)
                                                  : avlSuccessorGet(&sources, after->address, compareAddresses));
}

// The member that a filter counts in, null for one that the map has nothing to do with.
uint32_t Source::*counterOf(const LinuxGuardKey *key) {
    switch (key->kind) {
    case LINUX_FILTER_ADDRESS: return &Source::anywhere;
    case LINUX_FILTER_MAC_ADDRESS:
    case LINUX_FILTER_PORT: return &Source::narrower;
    case LINUX_FILTER_PORT_VLAN: return linuxGuardAnyMac(key) ? &Source::narrower : nullptr;
    default: return nullptr;
    }
}

LinuxNftVerdict verdictOf(const Source &source) {
    if (source.anywhere != 0)
        return LinuxNftVerdict::accept;
    return source.narrower != 0 ? LinuxNftVerdict::back : LinuxNftVerdict::none;
}

LinuxNftVerdict verdictWithout(const Source &source, uint32_t Source::*counter) {
    Source without = source;
    --(without.*counter);
    return verdictOf(without);
}

void queue(const Source &source, LinuxNftVerdict before, LinuxNftVerdict after, bool strict) {
    if (before == after)
        return;
    if (before != LinuxNftVerdict::none && !strict)
        linuxNftMap(MAP, source.address, before);
    if (before != LinuxNftVerdict::none)
        linuxNftRemove(MAP, source.address);
    if (after != LinuxNftVerdict::none)
        linuxNftMap(MAP, source.address, after);
}

} // namespace

bool linuxGuardSourceBind(const LinuxGuardKey *key) {
    uint32_t Source::*counter = counterOf(key);
    if (counter == nullptr)
        return true;
    Source *source = find(key->address);
    if (source == nullptr) {
        source = static_cast<Source *>(calloc(1, sizeof(Source)));
        if (source == nullptr)
            return false;
        memcpy(source->address, key->address, sizeof source->address);
        avlInsert(&sources, source, source->address, compareAddresses);
    }
    ++(source->*counter);
    return true;
}

void linuxGuardSourceUnbind(const LinuxGuardKey *key) {
    uint32_t Source::*counter = counterOf(key);
    if (counter == nullptr)
        return;
    Source *source = find(key->address);
    --(source->*counter);
    if (verdictOf(*source) == LinuxNftVerdict::none)
        free(avlDelete(&sources, key->address, compareAddresses));
}

void linuxGuardSourceQueueIn(const LinuxGuardKey *key) {
    uint32_t Source::*counter = counterOf(key);
    if (counter == nullptr)
        return;
    const Source *source = find(key->address);
    queue(*source, verdictWithout(*source, counter), verdictOf(*source), true);
}

void linuxGuardSourceQueueOut(const LinuxGuardKey *key, bool strict) {
    uint32_t Source::*counter = counterOf(key);
    if (counter == nullptr)
        return;
    const Source *source = find(key->address);
    queue(*source, verdictOf(*source), verdictWithout(*source, counter), strict);
}

int32_t linuxGuardSourcesRewrite() {
    LinuxNftSteps steps;
    linuxNftBegin();
    linuxNftEmpty(MAP);
    for (const Source *source = next(nullptr); source != nullptr; source = next(source)) {
        linuxNftMap(MAP, source->address, verdictOf(*source));
        linuxNftStep(&steps);
    }
    return linuxNftLastStep(steps);
}

bool linuxGuardSourceInKernel(const LinuxGuardKey *key) {
    if (counterOf(key) == nullptr)
        return true;
    const Source *source = find(key->address);
    LinuxNftElement element{};
    return source != nullptr && linuxNftGet(MAP, source->address, &element) == 0 && element.verdict == verdictOf(*source);
}
