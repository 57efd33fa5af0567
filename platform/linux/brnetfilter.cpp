#include "platform/linux/brnetfilter.h"

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
#include "platform/linux/loop.h"
#include "platform/linux/netlink.h"
#include "platform/linux/ports.h"

namespace {

// One of the three firewalls: the bridge's own switch, and the namespace's.
struct Call {
    uint16_t attribute;
    const char *name;
    const char *path;
    bool bridgeChanged;
    bool namespaceChanged;
};

std::array<Call, 3> calls = {{
    {IFLA_BR_NF_CALL_IPTABLES, "nf_call_iptables", "/proc/sys/net/bridge/bridge-nf-call-iptables", false, false},
    {IFLA_BR_NF_CALL_IP6TABLES, "nf_call_ip6tables", "/proc/sys/net/bridge/bridge-nf-call-ip6tables", false, false},
    {IFLA_BR_NF_CALL_ARPTABLES, "nf_call_arptables", "/proc/sys/net/bridge/bridge-nf-call-arptables", false, false},
}};

// Values of the bridge's own switches, by the order of `calls`.
struct BridgeValues {
    std::array<uint8_t, 3> on;
};

void readData(const nlattr *data, BridgeValues *values) {
    LinuxAttributes list = linuxAttributesIn(data);
    while (const nlattr *attribute = linuxAttributeNext(&list)) {
        for (uint32_t i = 0; i < calls.size(); i++) {
            if (mnl_attr_get_type(attribute) == calls[i].attribute && mnl_attr_validate(attribute, MNL_TYPE_U8) >= 0) {
                values->on[i] = mnl_attr_get_u8(attribute);
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
                readData(nested, static_cast<BridgeValues *>(user));
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
    info->ifi_index = static_cast<int>(linuxLinks[LINUX_LINK_BRIDGE].ifindex);
    return message;
}

void writeBridge(Call *call, uint8_t value) {
    LinuxNetlinkQuestion room{};
    nlmsghdr *message = question(&room, RTM_NEWLINK, NLM_F_REQUEST | NLM_F_ACK);
    nlattr *linkInfo = mnl_attr_nest_start(message, IFLA_LINKINFO);
    mnl_attr_put_strz(message, IFLA_INFO_KIND, "bridge");
    nlattr *data = mnl_attr_nest_start(message, IFLA_INFO_DATA);
    mnl_attr_put_u8(message, call->attribute, value);
    mnl_attr_nest_end(message, data);
    mnl_attr_nest_end(message, linkInfo);
    int32_t error = linuxNetlinkAsk(&room, nullptr, nullptr);
    if (error != 0) {
        linuxLog("cannot set %s of bridge %s to %u: %s", call->name, linuxSwitch.bridge, value, strerror(-error));
        return;
    }
    linuxLog("%s of bridge %s set to %u", call->name, linuxSwitch.bridge, value);
    call->bridgeChanged = value == 0;
}

// One digit in a file of /proc; 0 as well when there is none, which says that the kernel lacks the feature.
char readDigit(const char *path) {
    char digit = '0';
    int fd = open(path, O_RDONLY | O_CLOEXEC);
    if (fd >= 0) {
        if (read(fd, &digit, 1) != 1) {
            digit = '0';
        }
        close(fd);
    }
    return digit;
}

void writeDigit(Call *call, char digit) {
    int fd = open(call->path, O_WRONLY | O_CLOEXEC);
    if (fd < 0 || write(fd, &digit, 1) != 1) {
        linuxLog("cannot set %s to %c: %s", call->path, digit, strerror(errno));
    } else {
        linuxLog("%s set to %c", call->path, digit);
        call->namespaceChanged = digit == '0';
    }
    if (fd >= 0) {
        close(fd);
    }
}

} // namespace

void linuxBrNetfilterOff() {
    BridgeValues values{};
    LinuxNetlinkQuestion room{};
    question(&room, RTM_GETLINK, NLM_F_REQUEST);
    int32_t error = linuxNetlinkAsk(&room, readBridge, &values);
    if (error != 0) {
        linuxLog("cannot read the settings of bridge %s: %s", linuxSwitch.bridge, strerror(-error));
    }
    for (uint32_t i = 0; i < calls.size(); i++) {
        if (values.on[i] != 0) {
            writeBridge(&calls[i], 0);
        }
        if (readDigit(calls[i].path) != '0') {
            writeDigit(&calls[i], '0');
        }
    }
}

void linuxBrNetfilterRestore() {
    for (Call &call : calls) {
        if (call.bridgeChanged && linuxLinks[LINUX_LINK_BRIDGE].ifindex != 0) {
            writeBridge(&call, 1);
        }
        if (call.namespaceChanged) {
            writeDigit(&call, '1');
        }
    }
}
