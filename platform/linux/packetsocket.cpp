#include "platform/linux/packetsocket.h"

#include <arpa/inet.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <sys/socket.h>

int linuxPacketBind(int fd, uint32_t ifindex, bool receives) {
    sockaddr_ll address{};
    address.sll_family = AF_PACKET;
    // A socket for IPv6 alone sees nothing on a port of a bridge.
    address.sll_protocol = receives ? htons(ETH_P_ALL) : uint16_t{0};
    address.sll_ifindex = static_cast<int>(ifindex);
    return bind(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address);
}

bool linuxPacketBound(int fd, uint32_t ifindex) {
    sockaddr_ll address{};
    socklen_t size = sizeof address;
    return getsockname(fd, reinterpret_cast<sockaddr *>(&address), &size) == 0 &&
           static_cast<uint32_t>(address.sll_ifindex) == ifindex;
}
