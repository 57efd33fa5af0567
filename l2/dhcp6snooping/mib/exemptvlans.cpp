#include "l2/dhcp6snooping/mib/exemptvlans.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "l2/dhcp6snooping/mib/text.h"
#include "l2/dhcp6snooping/sourceguard/exemption.h"
#include "l2/dhcp6snooping/sourceguard/filters.h"
#include "platform/libcommon.h"

namespace {

constexpr uint32_t VLAN_FIRST = 1;
constexpr uint32_t VLAN_LAST = 4094;
constexpr uint32_t VLANS_MAX = 128; // of one set
constexpr uint32_t CHUNK = 110;     // characters
constexpr uint32_t TEXT_MAX = 255;  // characters

// Texts are taken as they come, without anything between them; one that does not fit is left out.
uint32_t join(const char (*texts)[VLAN_TEXT_MAX], uint32_t count, char *out) {
    uint32_t length = 0;
    for (uint32_t text = 0; text < count; ++text) {
        const auto more = static_cast<uint32_t>(strnlen(texts[text], VLAN_TEXT_MAX));
        if (length + more > TEXT_MAX)
            continue;
        memcpy(out + length, texts[text], more);
        length += more;
    }
    return length;
}

int32_t change(uint32_t vlan, bool exempt) {
    no_ip6_source_guard_vlan[vlan] = exempt ? 1 : 0;
    return exempt ? ip6_source_guard_intstall_forward_vlan_traffic_frm(vlan)
                  : ip6_source_guard_remove_forward_vlan_traffic_frm(vlan);
}

} // namespace

int32_t mib_exempt_vlans_get(CcdVariable *variable) {
    uint16_t vids[VLAN_LAST + 2] = {}; // count, VLANs, 0
    for (uint32_t vlan = VLAN_FIRST; vlan <= VLAN_LAST; ++vlan)
        if (no_ip6_source_guard_vlan[vlan] != 0)
            vids[++vids[0]] = static_cast<uint16_t>(vlan);
    void *area = calloc(VLAN_TEXTS_MAX, VLAN_TEXT_MAX);
    if (area == nullptr)
        return -1;
    auto texts = static_cast<char(*)[VLAN_TEXT_MAX]>(area);
    const uint32_t count = std::min(vidArray2vlanList(vids, texts, CHUNK, 0), VLAN_TEXTS_MAX);
    char text[MIB_TEXT_SIZE] = {};
    const uint32_t length = join(texts, count, text);
    free(area);
    octetSet(variable, text, length);
    return 0;
}

int32_t mib_exempt_vlans_commit(const CcdVariable *variable) {
    if (variable->length > TEXT_MAX)
        return ccdErrorTooBig();
    uint32_t length = 0;
    const uint8_t *octets = octetGet(variable, &length);
    char text[MIB_TEXT_SIZE] = {};
    memcpy(text, octets, length);
    uint16_t ids[VLAN_LAST + 2] = {};
    const int32_t parsed = Str2ShortArray(text, ids, VLAN_LAST, VLAN_FIRST, VLAN_LAST);
    if (parsed != 0)
        return parsed;
    const uint16_t *end = std::find(ids, ids + VLAN_LAST, uint16_t{0});
    if (end - ids > VLANS_MAX)
        return -1;
    int32_t status = 0;
    for (uint32_t vlan = 0; vlan < VLAN_LAST; ++vlan) {
        const bool wanted = std::find(static_cast<const uint16_t *>(ids), end, vlan) != end;
        if (wanted != (no_ip6_source_guard_vlan[vlan] != 0))
            status = change(vlan, wanted);
    }
    return status;
}
