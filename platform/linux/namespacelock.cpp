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

// Asks the kernel for something about a group. Returns 0, or the negative errno that the kernel or its answer's way gave.
int32_t ask(uint16_t group, const nfulnl_msg_config_cmd *command) {
    alignas(nlmsghdr) char bytes[256] = {};
    nlmsghdr *message = mnl_nlmsg_put_header(bytes);
    message->nlmsg_type = NFNL_SUBSYS_ULOG << 8 | NFULNL_MSG_CONFIG;
    message->nlmsg_flags = NLM_F_REQUEST | NLM_F_ACK;
    nfgenmsg *head = static_cast<nfgenmsg *>(mnl_nlmsg_put_extra_header(message, sizeof(nfgenmsg)));
    head->nfgen_family = AF_UNSPEC;
    head->version = NFNETLINK_V0;
    head->res_id = htons(group);
    if (command != nullptr)
        mnl_attr_put(message, NFULA_CFG_CMD, sizeof *command, command);
    if (mnl_socket_sendto(lock, message, message->nlmsg_len) < 0)
        return -errno;
    const ssize_t n = mnl_socket_recvfrom(lock, bytes, sizeof bytes);
    if (n < 0)
        return -errno;
    return mnl_cb_run(bytes, static_cast<size_t>(n), 0, mnl_socket_get_portid(lock), nullptr, nullptr) < 0 ? -errno : 0;
}

// Whether this process may ask about groups at all. The kernel has one error for a missing right and for a group that is
// somebody else's; of a group that nobody has it says that there is none.
bool mayAsk() { return ask(LOCK_GROUP + 1, nullptr) != -EPERM; }

// The list of owners is for root only.
[[noreturn]] void sayTaken() {
    const unsigned int owner = ownerOfGroup();
    char process[32] = "";
    if (owner != 0)
        snprintf(process, sizeof process, " (process %u)", owner);
    linuxFatal("another snoopd6%s serves this network namespace; stop that one first (it holds group %u in %s)", process,
               LOCK_GROUP, OWNERS);
}

} // namespace

void linuxNamespaceLock() {
    lock = mnl_socket_open2(NETLINK_NETFILTER, SOCK_CLOEXEC);
    const timeval second = {.tv_sec = 1, .tv_usec = 0};
    if (lock == nullptr || mnl_socket_bind(lock, 0, MNL_SOCKET_AUTOPID) < 0 ||
        setsockopt(mnl_socket_get_fd(lock), SOL_SOCKET, SO_RCVTIMEO, &second, sizeof second) != 0)
        linuxFatal("the network namespace cannot be locked (nfnetlink): %s", strerror(errno));
    const nfulnl_msg_config_cmd bind = {.command = NFULNL_CFG_CMD_BIND};
    const int32_t error = ask(LOCK_GROUP, &bind);
    if ((error == -EPERM || error == -EBUSY) && mayAsk())
        sayTaken();
    if (error != 0)
        linuxFatal("the network namespace cannot be locked (nfnetlink_log, group %u): %s", LOCK_GROUP, strerror(-error));
}
