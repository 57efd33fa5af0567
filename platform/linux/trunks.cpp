#include "platform/linux/trunks.h"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <span>

#include "platform/linux/loop.h"
#include "platform/linux/ports.h"

namespace {

constexpr uint32_t TRUNK_ID_MAX = 65534;

uint32_t idInSwitchFile(const char *bond) {
    for (const LinuxTrunkConfig &trunk : linuxSwitch.trunks) {
        if (trunk.interface[0] != 0 && strcmp(trunk.interface, bond) == 0) {
            return trunk.id;
        }
    }
    return LINUX_NO_TRUNK;
}

// The number at the end of the name, if it can be an id.
uint32_t idInName(const char *bond) {
    const char *end = bond + strlen(bond);
    const char *digits = end;
    while (digits > bond && digits[-1] >= '0' && digits[-1] <= '9') {
        digits--;
    }
    uint32_t id = LINUX_NO_TRUNK;
    std::from_chars_result result = std::from_chars(digits, end, id);
    return result.ec == std::errc{} && id <= TRUNK_ID_MAX ? id : LINUX_NO_TRUNK;
}

// Whether no other bond has the id, or will have it when it appears.
bool isFree(uint32_t id) {
    auto given = [id](const LinuxTrunkConfig &trunk) { return trunk.interface[0] != 0 && trunk.id == id; };
    auto taken = [id](const LinuxLink &link) { return link.name[0] != 0 && link.trunk == id; };
    std::span<const LinuxLink> bonds(linuxLinks + LINUX_LINK_BOND0, LINUX_BONDS_MAX);
    return std::ranges::none_of(linuxSwitch.trunks, given) && std::ranges::none_of(bonds, taken);
}

} // namespace

uint32_t linuxTrunkId(const char *bond) {
    uint32_t id = idInSwitchFile(bond);
    if (id != LINUX_NO_TRUNK) {
        return id;
    }
    id = idInName(bond);
    if (id != LINUX_NO_TRUNK && isFree(id)) {
        return id;
    }
    id = TRUNK_ID_MAX;
    while (!isFree(id)) { // there are more ids than bonds
        id--;
    }
    linuxLog("bond %s has no number of its own at the end of its name and no [[trunk]] in the switch file: it is trunk %u",
             bond, id);
    return id;
}
