#include "platform/linux/brnetfilter.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include <fcntl.h>
#include <libmnl/libmnl.h>
#include <linux/if_link.h>
#include <linux/rtnetlink.h>
#include <unistd.h>

#include "platform/linux/attributes.h"
#include "platform/linux/brrecord.h"
#include "platform/linux/loop.h"
#include "platform/linux/netlink.h"
#include "platform/linux/ports.h"

namespace {

// One of the three firewalls: the bridge's own switch, and the namespace's.
struct Call {
    uint16_t attribute;
    const char *name;
    const char *path;
};

constexpr std::array<Call, 3> CALLS = {{
    {IFLA_BR_NF_CALL_IPTABLES, "nf_call_iptables", "/proc/sys/net/bridge/bridge-nf-call-iptables"},
    {IFLA_BR_NF_CALL_IP6TABLES, "nf_call_ip6tables", "/proc/sys/net/bridge/bridge-nf-call-ip6tables"},
    {IFLA_BR_NF_CALL_ARPTABLES, "nf_call_arptables", "/proc/sys/net/bridge/bridge-nf-call-arptables"},
}};

LinuxBrRecord owed; // what has to be on again in the end, by the order of CALLS

uint32_t bridgeIndex() { return linuxLinks[LINUX_LINK_BRIDGE].ifindex; }

// ---- The bridge's own switches -------------------------------------------------------------------------------------

void readData(const nlattr *data, LinuxBrRecord *values) {
    LinuxAttributes list = linuxAttributesIn(data);
    while (const nlattr *attribute = linuxAttributeNext(&list)) {
        for (uint32_t i = 0; i < CALLS.size(); i++) {
            if (mnl_attr_get_type(attribute) == CALLS[i].attribute && mnl_attr_validate(attribute, MNL_TYPE_U8) >= 0) {
                values->bridge[i] = mnl_attr_get_u8(attribute) != 0;
            }
        }
    }
}

int readBridge(const nlmsghdr *message, void *user) {
    LinuxAttributes outer = linuxAttributesOf(message, sizeof(ifinfomsg));
    while (const nlattr *attribute = linuxAttributeNext(&outer)) {
        if (mnl_attr_get_type(attribute) != IFLA_LINKINFO) {
            continue;
        }
        LinuxAttributes inner = linuxAttributesIn(attribute);
        while (const nlattr *nested = linuxAttributeNext(&inner)) {
            if (mnl_attr_get_type(nested) == IFLA_INFO_DATA) {
                readData(nested, static_cast<LinuxBrRecord *>(user));
            }
        }
    }
    return MNL_CB_OK;
}

nlmsghdr *question(LinuxNetlinkQuestion *room, uint16_t type, uint16_t flags) {
    nlmsghdr *message = mnl_nlmsg_put_header(room->bytes);
    message->nlmsg_type = type;
    message->nlmsg_flags = flags;
    ifinfomsg *info = static_cast<ifinfomsg *>(mnl_nlmsg_put_extra_header(message, sizeof(ifinfomsg)));
    info->ifi_index = static_cast<int>(bridgeIndex());
    return message;
}

void writeBridge(const Call &call, uint8_t value) {
    LinuxNetlinkQuestion room{};
    nlmsghdr *message = question(&room, RTM_NEWLINK, NLM_F_REQUEST | NLM_F_ACK);
    nlattr *linkInfo = mnl_attr_nest_start(message, IFLA_LINKINFO);
    mnl_attr_put_strz(message, IFLA_INFO_KIND, "bridge");
    nlattr *data = mnl_attr_nest_start(message, IFLA_INFO_DATA);
    mnl_attr_put_u8(message, call.attribute, value);
    mnl_attr_nest_end(message, data);
    mnl_attr_nest_end(message, linkInfo);
    const int32_t error = linuxNetlinkAsk(&room, nullptr, nullptr);
    if (error != 0) {
        linuxLog("cannot set %s of bridge %s to %u: %s", call.name, linuxSwitch.bridge, value, strerror(-error));
    } else {
        linuxLog("%s of bridge %s set to %u", call.name, linuxSwitch.bridge, value);
    }
}

// ---- The namespace's -----------------------------------------------------------------------------------------------

// One digit in a file of /proc; 0 as well when there is none, which says that the kernel lacks the feature.
char readDigit(const char *path) {
    char digit = '0';
    const int fd = open(path, O_RDONLY | O_CLOEXEC);
    if (fd >= 0) {
        if (read(fd, &digit, 1) != 1) {
            digit = '0';
        }
        close(fd);
    }
    return digit;
}

void writeDigit(const Call &call, char digit) {
    const int fd = open(call.path, O_WRONLY | O_CLOEXEC);
    if (fd < 0 || write(fd, &digit, 1) != 1) {
        linuxLog("cannot set %s to %c: %s", call.path, digit, strerror(errno));
    } else {
        linuxLog("%s set to %c", call.path, digit);
    }
    if (fd >= 0) {
        close(fd);
    }
}

// ---- Both ----------------------------------------------------------------------------------------------------------

LinuxBrRecord readNow() {
    LinuxBrRecord now = {};
    LinuxNetlinkQuestion room{};
    question(&room, RTM_GETLINK, NLM_F_REQUEST);
    const int32_t error = linuxNetlinkAsk(&room, readBridge, &now);
    if (error != 0) {
        linuxLog("cannot read the settings of bridge %s: %s", linuxSwitch.bridge, strerror(-error));
    }
    for (uint32_t i = 0; i < CALLS.size(); i++) {
        now.namespaceWide[i] = readDigit(CALLS[i].path) != '0';
    }
    return now;
}

void writeAll(const LinuxBrRecord &which, bool on) {
    for (uint32_t i = 0; i < CALLS.size(); i++) {
        if (which.bridge[i] && bridgeIndex() != 0) {
            writeBridge(CALLS[i], on ? 1 : 0);
        }
        if (which.namespaceWide[i]) {
            writeDigit(CALLS[i], on ? '1' : '0');
        }
    }
}

bool isAny(const LinuxBrRecord &record) {
    return std::ranges::find(record.bridge, true) != record.bridge.end() ||
           std::ranges::find(record.namespaceWide, true) != record.namespaceWide.end();
}

// What a daemon before this one found on and could not put back, and what is on now.
void addTo(LinuxBrRecord *sum, const LinuxBrRecord &other) {
    for (uint32_t i = 0; i < CALLS.size(); i++) {
        sum->bridge[i] = sum->bridge[i] || other.bridge[i];
        sum->namespaceWide[i] = sum->namespaceWide[i] || other.namespaceWide[i];
    }
}

const char *firstOn(const LinuxBrRecord &record) {
    for (uint32_t i = 0; i < CALLS.size(); i++) {
        if (record.bridge[i] || record.namespaceWide[i]) {
            return CALLS[i].name;
        }
    }
    return "";
}

} // namespace

void linuxBrNetfilterOff() {
    const LinuxBrRecord now = readNow();
    owed = linuxBrRecordRead(bridgeIndex());
    addTo(&owed, now);
    if (isAny(owed)) {
        linuxBrRecordWrite(owed, bridgeIndex()); // before anything is off that nobody would know of
    }
    writeAll(now, false);
}

bool linuxBrNetfilterKeep(char *error, uint32_t errorSize) {
    writeAll(linuxBrRecordRead(bridgeIndex()), true);
    linuxBrRecordRemove();
    const LinuxBrRecord now = readNow();
    if (!isAny(now)) {
        return true;
    }
    snprintf(
        error, errorSize,
        "bridged frames go through the IP firewall (%s of bridge %s or of the network namespace is on), and bridge_netfilter "
        "is \"keep\" in %s: switch it off yourself, or write \"off\" there",
        firstOn(now), linuxSwitch.bridge, linuxSwitchFilePath());
    return false;
}

void linuxBrNetfilterRestore() {
    writeAll(owed, true);
    linuxBrRecordRemove();
    owed = {};
}
