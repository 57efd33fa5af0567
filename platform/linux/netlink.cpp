#include "platform/linux/netlink.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include <event2/event.h>
#include <libmnl/libmnl.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>
#include <sys/time.h>

#include "platform/linux/l3address.h"
#include "platform/linux/links.h"
#include "platform/linux/loglimit.h"
#include "platform/linux/loop.h"

namespace {

constexpr int MONITOR_BUFFER = 1 << 20; // bytes: some thousand changes between two turns of the loop
constexpr uint32_t MONITOR_BATCH = 64;  // datagrams of notifications a turn

mnl_socket *asker;
mnl_socket *monitor;
uint32_t sequence;
alignas(8) uint8_t answerBuffer[LINUX_NETLINK_BUFFER];
alignas(8) uint8_t monitorBuffer[LINUX_NETLINK_BUFFER];

// What one datagram of a reply leaves to do.
struct Reply {
    bool done;
    bool interrupted; // the list changed while the kernel wrote it
    int32_t error;
};

void readDatagram(size_t size, uint32_t seq, LinuxNetlinkAnswer answer, void *user, Reply *reply) {
    int left = static_cast<int>(size);
    const nlmsghdr *message = reinterpret_cast<const nlmsghdr *>(answerBuffer);
    for (; mnl_nlmsg_ok(message, left); message = mnl_nlmsg_next(message, &left)) {
        if (message->nlmsg_seq != seq) { // belongs to a question that was given up
            continue;
        }
        if ((message->nlmsg_flags & NLM_F_DUMP_INTR) != 0) {
            reply->interrupted = true;
        }
        if (message->nlmsg_type == NLMSG_ERROR && mnl_nlmsg_get_payload_len(message) >= sizeof(nlmsgerr)) {
            reply->error = static_cast<const nlmsgerr *>(mnl_nlmsg_get_payload(message))->error;
        } else if (message->nlmsg_type == NLMSG_DONE && mnl_nlmsg_get_payload_len(message) >= sizeof(int32_t)) {
            memcpy(&reply->error, mnl_nlmsg_get_payload(message), sizeof reply->error); // of a list that breaks off
        } else if (message->nlmsg_type >= NLMSG_MIN_TYPE && answer != nullptr) {
            answer(message, user);
        }
        if (message->nlmsg_type == NLMSG_DONE || (message->nlmsg_flags & NLM_F_MULTI) == 0) {
            reply->done = true;
        }
    }
}

// One reply, which may come in several datagrams.
int32_t readReply(uint32_t seq, LinuxNetlinkAnswer answer, void *user) {
    Reply reply{};
    while (!reply.done) {
        ssize_t n = mnl_socket_recvfrom(asker, answerBuffer, sizeof answerBuffer);
        if (n < 0 && errno != EINTR) {
            return -errno;
        }
        if (n > 0) {
            readDatagram(static_cast<size_t>(n), seq, answer, user, &reply);
        }
    }
    return reply.error == 0 && reply.interrupted ? -EINTR : reply.error;
}

int onNotification(const nlmsghdr *message, void *) {
    linuxL3Forget(); // whatever it was about: an address, or the interface that had one
    return linuxLinksApply(message, nullptr);
}

// A socket that has lost notifications loses more, and says nothing of these, until it is read to its end: only then does
// reading everything anew help.
void onMonitor(evutil_socket_t, short, void *) {
    bool lost = false;
    for (uint32_t i = 0; i < MONITOR_BATCH || lost; i++) {
        ssize_t n = recv(mnl_socket_get_fd(monitor), monitorBuffer, sizeof monitorBuffer, MSG_DONTWAIT | MSG_TRUNC);
        if ((n < 0 && errno == ENOBUFS) || n > static_cast<ssize_t>(sizeof monitorBuffer)) {
            lost = true;
        } else if (n < 0 && errno != EINTR) {
            break;
        } else if (n > 0 && !lost) {
            mnl_cb_run(monitorBuffer, static_cast<size_t>(n), 0, 0, onNotification, nullptr);
        }
    }
    if (lost) {
        linuxL3Forget();
        linuxLogLimited("interface notifications were lost; reading all interfaces again");
        linuxLinksDoubt();
    }
    linuxLinksCatchUp();
}

} // namespace

int32_t linuxNetlinkOpen() {
    asker = mnl_socket_open2(NETLINK_ROUTE, SOCK_CLOEXEC);
    monitor = mnl_socket_open2(NETLINK_ROUTE, SOCK_CLOEXEC | SOCK_NONBLOCK);
    if (asker == nullptr || monitor == nullptr || mnl_socket_bind(asker, 0, MNL_SOCKET_AUTOPID) < 0 ||
        mnl_socket_bind(monitor, RTMGRP_LINK | RTMGRP_IPV4_IFADDR, MNL_SOCKET_AUTOPID) < 0) {
        return -errno;
    }
    unsigned int vlanStates = RTNLGRP_BRVLAN; // kernels without it have no states of VLANs
    mnl_socket_setsockopt(monitor, NETLINK_ADD_MEMBERSHIP, &vlanStates, sizeof vlanStates);
    timeval second = {.tv_sec = 1, .tv_usec = 0};
    setsockopt(mnl_socket_get_fd(asker), SOL_SOCKET, SO_RCVTIMEO, &second, sizeof second);
    setsockopt(mnl_socket_get_fd(monitor), SOL_SOCKET, SO_RCVBUFFORCE, &MONITOR_BUFFER, sizeof MONITOR_BUFFER);
    return 0;
}

int32_t linuxNetlinkAsk(LinuxNetlinkQuestion *question, LinuxNetlinkAnswer answer, void *user) {
    nlmsghdr *message = reinterpret_cast<nlmsghdr *>(question->bytes);
    message->nlmsg_seq = ++sequence;
    if (mnl_socket_sendto(asker, message, message->nlmsg_len) < 0) {
        return -errno;
    }
    return readReply(message->nlmsg_seq, answer, user);
}

void linuxNetlinkWatch() {
    event *watch = event_new(linuxLoopBase(), mnl_socket_get_fd(monitor), EV_READ | EV_PERSIST, onMonitor, nullptr);
    if (watch == nullptr || event_add(watch, nullptr) != 0) {
        linuxFatal("cannot watch the interfaces: out of memory");
    }
}
