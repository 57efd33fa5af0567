#include "platform/linux/namespacelock.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

#include <arpa/inet.h>
#include <libmnl/libmnl.h>
#include <linux/netfilter/nfnetlink.h>
#include <linux/netfilter/nfnetlink_log.h>
#include <sys/socket.h>
#include <sys/time.h>

#include "platform/linux/loop.h"

namespace {

constexpr uint16_t LOCK_GROUP = 23814; // nobody else's, as far as we know: people number their log groups from 0
constexpr const char *OWNERS = "/proc/self/net/netfilter/nfnetlink_log";

mnl_socket *lock; // open for as long as the process lives

// Process id of the group's owner, 0 when the kernel does not list it. A netlink socket's number is its process's id unless
// that process had another such socket before.
unsigned int ownerOfGroup() {
    FILE *list = fopen(OWNERS, "re");
    unsigned int group = 0;
    unsigned int owner = 0;
    char line[128];
    bool found = false;
    while (list != nullptr && !found && fgets(line, sizeof line, list) != nullptr)
        found = sscanf(line, "%u %u", &group, &owner) == 2 && group == LOCK_GROUP;
    if (list != nullptr)
        fclose(list);
    return found ? owner : 0;
}

// Returns 0, or the negative errno that the kernel or its answer's way gave.
int32_t bindGroup() {
    alignas(nlmsghdr) char bytes[256] = {};
    nlmsghdr *message = mnl_nlmsg_put_header(bytes);
    message->nlmsg_type = NFNL_SUBSYS_ULOG << 8 | NFULNL_MSG_CONFIG;
    message->nlmsg_flags = NLM_F_REQUEST | NLM_F_ACK;
    nfgenmsg *head = static_cast<nfgenmsg *>(mnl_nlmsg_put_extra_header(message, sizeof(nfgenmsg)));
    head->nfgen_family = AF_UNSPEC;
    head->version = NFNETLINK_V0;
    head->res_id = htons(LOCK_GROUP);
    const nfulnl_msg_config_cmd command = {.command = NFULNL_CFG_CMD_BIND};
    mnl_attr_put(message, NFULA_CFG_CMD, sizeof command, &command);
    if (mnl_socket_sendto(lock, message, message->nlmsg_len) < 0)
        return -errno;
    const ssize_t n = mnl_socket_recvfrom(lock, bytes, sizeof bytes);
    if (n < 0)
        return -errno;
    return mnl_cb_run(bytes, static_cast<size_t>(n), 0, mnl_socket_get_portid(lock), nullptr, nullptr) < 0 ? -errno : 0;
}

} // namespace

void linuxNamespaceLock() {
    lock = mnl_socket_open2(NETLINK_NETFILTER, SOCK_CLOEXEC);
    const timeval second = {.tv_sec = 1, .tv_usec = 0};
    if (lock == nullptr || mnl_socket_bind(lock, 0, MNL_SOCKET_AUTOPID) < 0 ||
        setsockopt(mnl_socket_get_fd(lock), SOL_SOCKET, SO_RCVTIMEO, &second, sizeof second) != 0)
        linuxFatal("the network namespace cannot be locked (nfnetlink): %s", strerror(errno));
    const int32_t error = bindGroup();
    const unsigned int owner = error == 0 ? 0 : ownerOfGroup();
    if (owner != 0)
        linuxFatal("another snoopd6 (process %u) serves this network namespace; stop that one first (it holds group %u in %s)",
                   owner, LOCK_GROUP, OWNERS);
    if (error != 0)
        linuxFatal("the network namespace cannot be locked (nfnetlink_log, group %u): %s", LOCK_GROUP, strerror(-error));
}
