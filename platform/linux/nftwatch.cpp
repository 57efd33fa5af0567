#include "platform/linux/nftwatch.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>

#include <event2/event.h>
#include <libmnl/libmnl.h>
#include <linux/netfilter.h>
#include <linux/netfilter/nf_tables.h>
#include <linux/netfilter/nfnetlink.h>
#include <sys/socket.h>

#include "platform/linux/loop.h"
#include "platform/linux/nftset.h"

namespace {

constexpr timeval PERIOD = {.tv_sec = 1, .tv_usec = 0};

mnl_socket *questions;
uint32_t sequence;
int32_t loaded; // rules at the start; a switch that a bad startup file closed has some more for a time
bool present = true;
alignas(8) char buffer[32768];

int countRule(const nlmsghdr *, void *user) {
    ++*static_cast<uint32_t *>(user);
    return MNL_CB_OK;
}

bool ask() {
    nlmsghdr *message = mnl_nlmsg_put_header(buffer);
    message->nlmsg_type = NFNL_SUBSYS_NFTABLES << 8 | NFT_MSG_GETRULE;
    message->nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
    message->nlmsg_seq = ++sequence;
    auto *family = static_cast<nfgenmsg *>(mnl_nlmsg_put_extra_header(message, sizeof(nfgenmsg)));
    family->nfgen_family = NFPROTO_BRIDGE;
    mnl_attr_put_strz(message, NFTA_RULE_TABLE, LINUX_NFT_TABLE);
    return mnl_socket_sendto(questions, message, message->nlmsg_len) >= 0;
}

// How many rules the table has; -1 when the kernel does not say.
int32_t countRules() {
    uint32_t rules = 0;
    if (!ask())
        return -1;
    for (;;) {
        const ssize_t n = recv(mnl_socket_get_fd(questions), buffer, sizeof buffer, MSG_DONTWAIT);
        if (n <= 0)
            return -1;
        const int more =
            mnl_cb_run(buffer, static_cast<size_t>(n), sequence, mnl_socket_get_portid(questions), countRule, &rules);
        if (more == 0)
            return static_cast<int32_t>(rules);
        if (more < 0 && errno != EPROTO) // EPROTO: the rest of an answer that was given up
            return errno == ENOENT ? 0 : -1;
    }
}

void look(evutil_socket_t, short, void *) {
    const int32_t rules = countRules();
    if (rules < 0 || (rules >= loaded) == present)
        return;
    present = rules >= loaded;
    if (present)
        linuxLog("the kernel has as many rules in the bridge filter table %s again; restart snoopd6 to be sure of them",
                 LINUX_NFT_TABLE);
    else
        linuxLog("the rules of the bridge filter table %s, or some of them, are gone from the kernel: ports may be open, and "
                 "DHCPv6 may pass; restart snoopd6 to load them again",
                 LINUX_NFT_TABLE);
}

} // namespace

void linuxNftWatchStart() {
    questions = mnl_socket_open2(NETLINK_NETFILTER, SOCK_CLOEXEC);
    event *timer = event_new(linuxLoopBase(), -1, EV_PERSIST, look, nullptr);
    if (questions == nullptr || mnl_socket_bind(questions, 0, MNL_SOCKET_AUTOPID) < 0 || timer == nullptr ||
        event_add(timer, &PERIOD) != 0)
        linuxFatal("cannot watch the kernel's packet filter: out of memory or sockets");
    loaded = std::max(countRules(), 1);
}

bool linuxNftRulesPresent() { return present; }
