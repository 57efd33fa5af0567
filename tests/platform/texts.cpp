// libcommon's texts and value accessors for tests.

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstring>
#include <map>

#include "platform/libcommon.h"
#include "platform/libsmd.h"
#include "tests/platform/recording.h"

namespace {

constexpr uint32_t UNENDING_TEXT = 256;

std::map<uint32_t, std::string> portTexts;

char *portText(const char *prefix, uint32_t port, char *buf, uint32_t size) {
    if (recordingOddities.textsUnending)
        return static_cast<char *>(memset(buf, 'x', UNENDING_TEXT));
    buf[0] = 0;
    if (const auto own = portTexts.find(port); own != portTexts.end())
        snprintf(buf, size, "%s%s", prefix, own->second.c_str());
    else if (port != 0 && port <= gul_max_port_num)
        snprintf(buf, size, "%s0/%u", prefix, port);
    return buf;
}

// One decimal number at *text, which moves behind it; false when there is none or it has more than 9 digits.
bool takeNumber(const char **text, uint32_t *value) {
    const char *at = *text;
    *value = 0;
    while (isdigit(static_cast<unsigned char>(*at)) != 0 && at - *text < 9)
        *value = *value * 10 + static_cast<uint32_t>(*at++ - '0');
    const bool taken = at != *text && isdigit(static_cast<unsigned char>(*at)) == 0;
    *text = at;
    return taken;
}

// The numbers of a list text, each once and in the order written; false when it is no list of numbers from low to high.
bool takeList(const char *text, uint32_t low, uint32_t high, std::vector<uint16_t> *numbers) {
    while (*text != 0) {
        uint32_t first = 0;
        if (!takeNumber(&text, &first))
            return false;
        uint32_t last = first;
        if (*text == '-' && (text++, !takeNumber(&text, &last)))
            return false;
        if (first < low || last > high || first > last)
            return false;
        for (uint32_t n = first; n <= last; n++)
            if (std::find(numbers->begin(), numbers->end(), n) == numbers->end())
                numbers->push_back(static_cast<uint16_t>(n));
        if (*text == 0)
            return true;
        if (*text++ != ',')
            return false;
    }
    return true;
}

} // namespace

void recordingPortText(uint32_t port, const std::string &text) {
    if (text.empty())
        portTexts.erase(port);
    else
        portTexts[port] = text;
}

uint32_t ulongGet(const CcdVariable *variable) { return variable->integer; }

void ulongSet(CcdVariable *variable, uint32_t value) {
    variable->integer = value;
    variable->length = 4;
}

const uint8_t *octetGet(const CcdVariable *variable, uint32_t *length) {
    *length = std::min(variable->length, CCD_OCTETS_MAX);
    return variable->octets;
}

void octetSet(CcdVariable *variable, const void *bytes, uint32_t length) {
    variable->length = std::min(length, CCD_OCTETS_MAX);
    if (variable->length != 0)
        memmove(variable->octets, bytes, variable->length);
    variable->octets[variable->length] = 0;
}

char *transPort2EtherPort(uint32_t port, char *buf) {
    recordingQuietCall("transPort2EtherPort port=%u", port);
    return portText("", port, buf, PORT_TEXT_MAX);
}

char *transPort2InterfaceDesc(uint32_t port, char *buf) {
    recordingQuietCall("transPort2InterfaceDesc port=%u", port);
    return portText("interface ethernet ", port, buf, PORT_DESC_MAX);
}

char *transPort2String(uint32_t port, char *buf) {
    recordingQuietCall("transPort2String port=%u", port);
    return portText("", port, buf, PORT_TEXT_MAX);
}

int32_t miscMacIndex2OctetString(const uint32_t arcs[6], uint8_t mac[6]) {
    for (uint32_t i = 0; i < 6; i++)
        mac[i] = static_cast<uint8_t>(arcs[i]);
    return 0;
}

int32_t miscOctetString2MacIndex(const uint8_t mac[6], uint32_t arcs[6]) {
    std::copy(mac, mac + 6, arcs);
    return 0;
}

int32_t Str2ShortArray(const char *text, uint16_t *out, uint32_t max, uint32_t low, uint32_t high) {
    std::fill(out, out + max, uint16_t{0});
    if (recordingQuietCall("Str2ShortArray text=\"%s\" max=%u low=%u high=%u", text, max, low, high))
        return -7; // not the answer to a text that is no list
    std::vector<uint16_t> numbers;
    if (text == nullptr || !takeList(text, low, std::min(high, 65535u), &numbers) || numbers.size() > max)
        return -1;
    std::copy(numbers.begin(), numbers.end(), out);
    return 0;
}

uint32_t vidArray2vlanList(const uint16_t *vids, char (*out)[VLAN_TEXT_MAX], uint32_t chunk, uint32_t zero) {
    recordingQuietCall("vidArray2vlanList count=%u first=%u last=%u end=%u chunk=%u zero=%u", vids[0], vids[1], vids[vids[0]],
                       vids[vids[0] + 1], chunk, zero);
    if (recordingOddities.textsUnending)
        memset(out, '7', size_t{VLAN_TEXTS_MAX} * VLAN_TEXT_MAX);
    if (recordingOddities.textsUnending && recordingOddities.vlanTexts != 0)
        return recordingOddities.vlanTexts;
    const uint32_t limit = std::min(chunk, 110u);
    std::vector<std::string> texts;
    for (uint32_t i = 1; i <= vids[0];) {
        uint32_t last = i;
        while (last + 1 <= vids[0] && vids[last + 1] == vids[last] + 1)
            last++;
        std::string range = std::to_string(vids[i]);
        if (last != i)
            range += "-" + std::to_string(vids[last]);
        // One character stays free for the "," that joins this text to the next one.
        if (texts.empty() || texts.back().size() + 1 + range.size() + 1 > limit)
            texts.push_back(range);
        else
            texts.back() += "," + range;
        i = last + 1;
    }
    const auto count = static_cast<uint32_t>(std::min<size_t>(texts.size(), VLAN_TEXTS_MAX));
    for (uint32_t i = 0; i < count; i++)
        snprintf(out[i], VLAN_TEXT_MAX, "%s%s", texts[i].c_str(), i + 1 < count ? "," : "");
    return recordingOddities.vlanTexts != 0 ? recordingOddities.vlanTexts : count;
}

int32_t strtoipAddr(const char *text, uint32_t *address) {
    uint32_t result = 0;
    if (recordingOddities.anyTextIsIpAddress) {
        *address = result;
        return 0;
    }
    for (uint32_t part = 0; part < 4; part++) {
        const char *start = text;
        uint32_t value = 0;
        if (!takeNumber(&text, &value) || value > 255 || (*start == '0' && text != start + 1))
            return -1;
        if (*text != (part == 3 ? '\0' : '.'))
            return -1;
        text++;
        result = result << 8 | value;
    }
    *address = result;
    return 0;
}

char *macToStr(const uint8_t mac[6], char *text) {
    if (recordingOddities.textsUnending)
        return static_cast<char *>(memset(text, 'x', UNENDING_TEXT));
    snprintf(text, 18, "%02x:%02x:%02x:%02x:%02x:%02x", mac[0], mac[1], mac[2], mac[3], mac[4], mac[5]);
    return text;
}
