#include "platform/libcommon.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "platform/linux/ports.h"

// ---- Free list -----------------------------------------------------------------------------------------------------

void lstInit(LstList *list) { *list = LstList{}; }

void lstAdd(LstList *list, void *node) {
    LstNode *added = static_cast<LstNode *>(node);
    added->next = nullptr;
    added->previous = list->last;
    if (list->last != nullptr) {
        list->last->next = added;
    } else {
        list->first = added;
    }
    list->last = added;
    list->count++;
}

void *lstGet(LstList *list) {
    LstNode *taken = list->first;
    if (taken == nullptr) {
        return nullptr;
    }
    list->first = taken->next;
    if (list->first != nullptr) {
        list->first->previous = nullptr;
    } else {
        list->last = nullptr;
    }
    list->count--;
    *taken = LstNode{};
    return taken;
}

// ---- Values of a variable ------------------------------------------------------------------------------------------

uint32_t ulongGet(const CcdVariable *variable) { return variable->integer; }

void ulongSet(CcdVariable *variable, uint32_t value) {
    variable->integer = value;
    variable->length = sizeof value;
}

const uint8_t *octetGet(const CcdVariable *variable, uint32_t *length) {
    *length = std::min(variable->length, CCD_OCTETS_MAX);
    return variable->octets;
}

void octetSet(CcdVariable *variable, const void *bytes, uint32_t length) {
    variable->length = bytes == nullptr ? 0 : std::min(length, CCD_OCTETS_MAX);
    if (variable->length > 0) {
        memcpy(variable->octets, bytes, variable->length);
    }
    variable->octets[variable->length] = 0;
}

// ---- Texts of a port -----------------------------------------------------------------------------------------------

static_assert(LINUX_PORTS_MAX < 100); // two digits

// By hand: one of these is made for every recorded message.
static char *portText(uint32_t port, const char *before, char *buf) {
    char *at = buf;
    if (port >= 1 && port <= LINUX_PORTS_MAX && linuxSwitch.ports[port - 1].exists == 1) {
        at = stpcpy(stpcpy(at, before), "0/");
        if (port >= 10) {
            *at++ = static_cast<char>('0' + port / 10);
        }
        *at++ = static_cast<char>('0' + port % 10);
    }
    *at = '\0';
    return buf;
}

char *transPort2EtherPort(uint32_t port, char *buf) { return portText(port, "", buf); }

char *transPort2InterfaceDesc(uint32_t port, char *buf) { return portText(port, "interface ethernet ", buf); }

char *transPort2String(uint32_t port, char *buf) { return portText(port, "", buf); }

// ---- MAC and IPv4 addresses ----------------------------------------------------------------------------------------

int32_t miscMacIndex2OctetString(const uint32_t arcs[6], uint8_t mac[6]) {
    for (uint32_t i = 0; i < 6; i++) {
        mac[i] = static_cast<uint8_t>(arcs[i] & 0xFF);
    }
    return 0;
}

int32_t miscOctetString2MacIndex(const uint8_t mac[6], uint32_t arcs[6]) {
    for (uint32_t i = 0; i < 6; i++) {
        arcs[i] = mac[i];
    }
    return 0;
}

int32_t strtoipAddr(const char *text, uint32_t *address) {
    if (text == nullptr || address == nullptr) {
        return -1;
    }
    uint32_t value = 0;
    for (uint32_t part = 0; part < 4; part++) {
        if (part > 0 && *text++ != '.') {
            return -1;
        }
        const char *start = text;
        uint32_t number = 0;
        while (*text >= '0' && *text <= '9' && text - start < 4) {
            number = number * 10 + static_cast<uint32_t>(*text - '0');
            text++;
        }
        const auto digits = text - start;
        if (digits == 0 || number > 255 || (digits > 1 && *start == '0')) {
            return -1;
        }
        value = value << 8 | number;
    }
    if (*text != '\0') {
        return -1;
    }
    *address = value;
    return 0;
}

// The switch is its bridge.
int32_t getSysMacAdress(uint8_t mac[6]) {
    const bool known = linuxLinks[LINUX_LINK_BRIDGE].ifindex != 0;
    memset(mac, 0, sizeof linuxBridge.mac);
    if (known) {
        memcpy(mac, linuxBridge.mac, sizeof linuxBridge.mac);
    }
    return known ? 0 : -1;
}

char *macToStr(const uint8_t mac[6], char *text) {
    snprintf(text, 18, "%02x:%02x:%02x:%02x:%02x:%02x", mac[0], mac[1], mac[2], mac[3], mac[4], mac[5]);
    return text;
}
