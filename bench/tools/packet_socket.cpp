#include "bench/tools/packet_socket.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <sched.h>
#include <string>
#include <sys/socket.h>
#include <unistd.h>

namespace {

// A queued frame of these loads charges 832 to 1,280 bytes: room for a burst of some thousand.
constexpr int RECEIVE_BUFFER = 8 << 20;

[[noreturn]] void fail(const char *what, const char *where) {
    std::fprintf(stderr, "cannot %s %s: %s\n", what, where, std::strerror(errno));
    std::exit(1);
}

void enterNamespace(const std::string &path) {
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0 || setns(fd, CLONE_NEWNET) != 0)
        fail("enter", path.c_str());
    close(fd);
}

void setOption(int fd, int level, int option, int value) { setsockopt(fd, level, option, &value, sizeof value); }

} // namespace

int packetSocketOpen(const char *where, PacketSocketUse use) {
    const std::string name = where;
    const size_t slash = name.find('/');
    const int home = open("/proc/self/ns/net", O_RDONLY | O_CLOEXEC);
    if (slash != std::string::npos)
        enterNamespace("/run/netns/" + name.substr(0, slash));
    const std::string interface = slash == std::string::npos ? name : name.substr(slash + 1);
    const int fd = socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, 0);
    if (fd < 0)
        fail("open a packet socket for", where);
    setOption(fd, SOL_PACKET, PACKET_IGNORE_OUTGOING, 1);
    setOption(fd, SOL_SOCKET, SO_RCVBUFFORCE, RECEIVE_BUFFER);
    sockaddr_ll address{};
    address.sll_family = AF_PACKET;
    address.sll_protocol = use == PacketSocketUse::Both ? htons(ETH_P_ALL) : uint16_t{0};
    address.sll_ifindex = static_cast<int>(if_nametoindex(interface.c_str()));
    if (address.sll_ifindex == 0 || bind(fd, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0)
        fail("bind to", where);
    packet_mreq member{};
    member.mr_ifindex = address.sll_ifindex;
    member.mr_type = PACKET_MR_PROMISC;
    if (use == PacketSocketUse::Both && setsockopt(fd, SOL_PACKET, PACKET_ADD_MEMBERSHIP, &member, sizeof member) != 0)
        fail("make promiscuous", where);
    if (setns(home, CLONE_NEWNET) != 0)
        fail("leave the namespace of", where);
    close(home);
    return fd;
}
