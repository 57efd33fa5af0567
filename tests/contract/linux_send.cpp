// Sending through real interfaces: two pairs in a network namespace of the test's own, one end of each in a bridge. What the
// other ends receive is compared byte for byte.

#include "platform/linux/send.h"

#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/if_bridge.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sched.h>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

#include "platform/linux/capture.h"
#include "platform/linux/links.h"
#include "platform/linux/netlink.h"
#include "platform/linux/ports.h"
#include "tests/contract/linux_env.h"

using Bytes = std::vector<uint8_t>;

static void run(const char *command) { ASSERT_EQ(system(command), 0) << command; }

class LinuxSend : public testing::Test {
  protected:
    // The platform is one per process, so all tests share one switch.
    static void SetUpTestSuite() {
        home = ::open("/proc/self/ns/net", O_RDONLY | O_CLOEXEC);
        ASSERT_EQ(unshare(CLONE_NEWNET), 0);
        run("ip link add br0 type bridge mcast_snooping 0 && ip link set br0 up");
        run("for i in 1 2; do ip link add p$i mtu 9500 type veth peer name q$i mtu 9500 && ip link set p$i master br0 up && "
            "ip link set q$i up; done");
        memset(&linuxSwitch, 0, sizeof linuxSwitch);
        memset(linuxLinks, 0, sizeof linuxLinks);
        snprintf(linuxSwitch.bridge, sizeof linuxSwitch.bridge, "br0");
        for (uint32_t p = 0; p < 3; p++) { // the third one has no interface
            linuxSwitch.ports[p].exists = 1;
            snprintf(linuxSwitch.ports[p].interface, sizeof linuxSwitch.ports[p].interface, "p%u", p + 1);
        }
        linuxSwitch.portMax = 3;
        linuxPortsInit();
        ASSERT_EQ(linuxNetlinkOpen(), 0);
        linuxCaptureInit();
        linuxPortsStart();
        for (uint32_t i = 0; i < 500 && !(linuxLinkSends(0) && linuxLinkSends(1)); i++) { // the kernel reports carriers late
            ASSERT_EQ(linuxLinksRead(), 0);
            usleep(10000);
        }
        for (uint32_t p = 0; p < 2; p++) {
            ends[p] = open(p == 0 ? "q1" : "q2");
        }
    }

    static void TearDownTestSuite() {
        close(ends[0]);
        close(ends[1]);
        memset(linuxLinks, 0, sizeof linuxLinks);
        linuxCaptureSettle();
        EXPECT_EQ(setns(home, CLONE_NEWNET), 0);
        close(home);
    }

    void SetUp() override {
        memset(linuxCounters, 0, sizeof linuxCounters);
        linuxBridge.vlanFiltering = 0;
        ASSERT_TRUE(linuxLinkSends(0));
        ASSERT_TRUE(linuxLinkSends(1));
        received(0);
        received(1);
    }

    static int open(const char *interface) {
        int fd = socket(AF_PACKET, SOCK_RAW | SOCK_NONBLOCK, 0);
        int one = 1;
        int buffer = 16 << 20;
        setsockopt(fd, SOL_PACKET, PACKET_IGNORE_OUTGOING, &one, sizeof one);
        setsockopt(fd, SOL_PACKET, PACKET_AUXDATA, &one, sizeof one);
        setsockopt(fd, SOL_SOCKET, SO_RCVBUFFORCE, &buffer, sizeof buffer);
        sockaddr_ll address{};
        address.sll_family = AF_PACKET;
        address.sll_protocol = htons(ETH_P_ALL);
        address.sll_ifindex = static_cast<int>(if_nametoindex(interface));
        EXPECT_EQ(bind(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);
        return fd;
    }

    // Everything that came out at the far end of a port, tags in place, apart from what the kernel sends by itself.
    static std::vector<Bytes> received(uint32_t port0) {
        std::vector<Bytes> frames;
        std::array<uint8_t, 16384> bytes;
        alignas(8) std::array<uint8_t, 256> control;
        for (;;) {
            iovec piece = {.iov_base = bytes.data(), .iov_len = bytes.size()};
            msghdr message{};
            message.msg_iov = &piece;
            message.msg_iovlen = 1;
            message.msg_control = control.data();
            message.msg_controllen = control.size();
            ssize_t n = recvmsg(ends[port0], &message, 0);
            if (n < 0) {
                return frames;
            }
            Bytes frame(bytes.begin(), bytes.begin() + n);
            tpacket_auxdata auxiliary;
            memcpy(&auxiliary, CMSG_DATA(CMSG_FIRSTHDR(&message)), sizeof auxiliary);
            if ((auxiliary.tp_status & TP_STATUS_VLAN_VALID) != 0) {
                uint16_t tpid = htons(auxiliary.tp_vlan_tpid);
                uint16_t tci = htons(auxiliary.tp_vlan_tci);
                Bytes tag(4);
                memcpy(tag.data(), &tpid, 2);
                memcpy(tag.data() + 2, &tci, 2);
                frame.insert(frame.begin() + 12, tag.begin(), tag.end());
            }
            if (frame[6] == 0x02 && frame[11] == 0x77) { // sent by these tests
                frames.push_back(frame);
            }
        }
    }

    static std::array<int, 2> ends;
    static int home; // the namespace that the tests were started in
};

std::array<int, 2> LinuxSend::ends;
int LinuxSend::home;

static Bytes taggedFrame(uint32_t length, uint8_t number = 0) {
    Bytes frame = {0x33, 0x33, 0, 1, 0, 2, 0x02, 0, 0, 0, 0, 0x77, 0x81, 0x00, 0x60, 0x0A, 0x88, 0xB5, number};
    frame.resize(length, 0x5A);
    return frame;
}

static Bytes without(Bytes frame) {
    frame.erase(frame.begin() + 12, frame.begin() + 16);
    return frame;
}

static int32_t sendTo(uint32_t port, Bytes frame, uint32_t addedTag = 0, uint16_t vlan = 10) {
    SmdPktCtl ctl{};
    ctl.platform[LINUX_CTL_TAG] = addedTag;
    int32_t result = smdVDPktSendPort(frame.data(), static_cast<uint32_t>(frame.size()), &ctl, vlan, port, 1);
    frame.assign(frame.size(), 0xEE); // it was copied
    return result;
}

static void setVlan10(uint32_t link, bool member, bool untagged) {
    linuxLinks[link].member[1] = member ? 0x20 : 0;
    linuxLinks[link].untagged[1] = untagged ? 0x20 : 0;
}

TEST_F(LinuxSend, SendsWhatCameWithATagAsItIs) {
    EXPECT_EQ(sendTo(2, taggedFrame(100)), 0);
    EXPECT_TRUE(received(1).empty()); // not before the end of the turn
    linuxSendFlush();
    EXPECT_EQ(received(1), std::vector<Bytes>{taggedFrame(100)});
    EXPECT_TRUE(received(0).empty()); // the bridge does not see it
    EXPECT_EQ(linuxCounters[1].sent, 1u);
}

TEST_F(LinuxSend, TakesOffTheTagThatWasPutIn) {
    EXPECT_EQ(sendTo(2, taggedFrame(100), 1), 0);
    linuxSendFlush();
    EXPECT_EQ(received(1), std::vector<Bytes>{without(taggedFrame(100))});
}

TEST_F(LinuxSend, FollowsTheVlansOfAFilteringBridge) {
    linuxBridge.vlanFiltering = 1;
    setVlan10(0, true, true);
    setVlan10(1, true, false);
    SmdPortList both = {.bits = {0xC0}};
    SmdPktCtl ctl{};
    ctl.platform[LINUX_CTL_TAG] = 1; // where it came in does not matter
    Bytes frame = taggedFrame(120);
    EXPECT_EQ(smdVDPktSendPortlist(frame.data(), 120, &ctl, 10, &both, 1), 0);
    linuxSendFlush();
    EXPECT_EQ(received(0), std::vector<Bytes>{without(taggedFrame(120))});
    EXPECT_EQ(received(1), std::vector<Bytes>{taggedFrame(120)});
    setVlan10(1, false, false);
    EXPECT_EQ(sendTo(2, taggedFrame(100)), -1);
    EXPECT_EQ(smdVDPktSendPortlist(frame.data(), 120, &ctl, 10, &both, 1), -1); // the member still gets it
    linuxSendFlush();
    EXPECT_EQ(received(0).size(), 1u);
    EXPECT_TRUE(received(1).empty());
}

TEST_F(LinuxSend, RefusesWhatCannotLeave) {
    EXPECT_EQ(sendTo(2, taggedFrame(17)), -1);
    EXPECT_EQ(sendTo(2, taggedFrame(SMD_FRAME_MAX + 1)), -1);
    EXPECT_EQ(smdVDPktSendPort(nullptr, 100, nullptr, 1, 2, 1), -1);
    for (uint32_t port : {0u, 3u, 4u, 28u, 29u, 65535u, 0x7FFFFFFFu, 0x80000000u, 0x80000001u, 0x8000FFFFu, 0xFFFFFFFFu}) {
        EXPECT_EQ(sendTo(port, taggedFrame(100)), -1) << port;
    }
    SmdPortList every;
    memset(&every, 0xFF, sizeof every);
    SmdPktCtl ctl{};
    Bytes frame = taggedFrame(64);
    EXPECT_EQ(smdVDPktSendPortlist(frame.data(), 64, &ctl, 1, &every, 1), -1);
    linuxSendFlush();
    EXPECT_EQ(received(0).size(), 1u);
    EXPECT_EQ(received(1).size(), 1u);
    linuxLinks[1].stpState = BR_STATE_BLOCKING;
    EXPECT_EQ(sendTo(2, taggedFrame(100)), -1);
    linuxLinks[1].stpState = BR_STATE_FORWARDING;
    linuxLinks[1].running = 0;
    EXPECT_EQ(sendTo(2, taggedFrame(100)), -1);
    linuxLinks[1].running = 1;
    linuxSendFlush();
    EXPECT_TRUE(received(1).empty());
}

// More than a queue holds, and more bytes than the arena: all leave, in order.
TEST_F(LinuxSend, LeavesEarlyWhenThereIsNoRoom) {
    for (uint32_t length : {64u, SMD_FRAME_MAX}) {
        std::vector<Bytes> sent;
        for (uint32_t i = 0; i < 200; i++) {
            sent.push_back(taggedFrame(length, static_cast<uint8_t>(i)));
            ASSERT_EQ(sendTo(1 + i % 2, sent.back()), 0) << i;
        }
        linuxSendFlush();
        std::array<std::vector<Bytes>, 2> got = {received(0), received(1)};
        ASSERT_EQ(got[0].size(), 100u);
        ASSERT_EQ(got[1].size(), 100u);
        for (uint32_t i = 0; i < 200; i++) {
            EXPECT_EQ(got[i % 2][i / 2], sent[i]) << i;
        }
    }
    EXPECT_EQ(linuxCounters[0].sent, 200u);
    EXPECT_EQ(linuxCounters[0].sendFailed, 0u);
}

// One that the interface refuses is counted, the ones around it leave.
TEST_F(LinuxSend, GoesOnBehindAFrameThatIsRefused) {
    run("ip link set p2 mtu 1500");
    EXPECT_EQ(sendTo(2, taggedFrame(100, 1)), 0);
    EXPECT_EQ(sendTo(2, taggedFrame(4000, 2)), 0);
    EXPECT_EQ(sendTo(2, taggedFrame(4000, 3)), 0);
    EXPECT_EQ(sendTo(2, taggedFrame(100, 4)), 0);
    linuxSendFlush();
    EXPECT_EQ(received(1), (std::vector<Bytes>{taggedFrame(100, 1), taggedFrame(100, 4)}));
    EXPECT_EQ(linuxCounters[1].sent, 2u);
    EXPECT_EQ(linuxCounters[1].sendFailed, 2u);
    run("ip link set p2 mtu 9500");
}

static int boundTo(int fd) {
    sockaddr_ll address{};
    socklen_t size = sizeof address;
    EXPECT_EQ(getsockname(fd, reinterpret_cast<sockaddr *>(&address), &size), 0);
    return address.sll_ifindex;
}

// As when the notifications between the two got lost: nothing tells the new interface from the old one but the socket.
TEST_F(LinuxSend, TakesTheSocketAnewWhenAnotherInterfaceHasTheIndex) {
    const char *make = "ip link add p3 index 777 type veth peer name q3 && ip link set p3 master br0 up";
    run(make);
    ASSERT_EQ(linuxLinksRead(), 0);
    ASSERT_EQ(boundTo(linuxCaptureSocket(2)), 777);
    run("ip link del p3");
    EXPECT_EQ(boundTo(linuxCaptureSocket(2)), -1);
    run(make);
    ASSERT_EQ(linuxLinksRead(), 0);
    EXPECT_EQ(boundTo(linuxCaptureSocket(2)), 777);
    run("ip link del p3");
    ASSERT_EQ(linuxLinksRead(), 0);
    EXPECT_EQ(linuxCaptureSocket(2), -1);
}

// The same for a bond, for which a bridge stands here; port 3 is its member.
TEST_F(LinuxSend, TakesABondsSocketAnewWhenAnotherBondHasTheIndex) {
    const char *make = "ip link add bond7 index 778 type bridge && ip link set bond7 up";
    LinuxLink *bond = &linuxLinks[LINUX_LINK_BOND0];
    run(make);
    bond->ifindex = 778;
    bond->master = linuxLinks[LINUX_LINK_BRIDGE].ifindex;
    bond->running = 1;
    bond->stpState = BR_STATE_FORWARDING;
    bond->trunk = 7;
    linuxLinks[2].ifindex = 779;
    linuxLinks[2].master = 778;
    linuxSendSettle();
    EXPECT_EQ(sendTo(SMD_PORT_TRUNK | 7, taggedFrame(100)), 0);
    linuxSendFlush();
    EXPECT_EQ(linuxCounters[2].sent, 1u);
    run("ip link del bond7");
    const Captured captured = captureBegin();
    linuxSendSettle();
    EXPECT_EQ(captureEnd(captured), std::vector<std::string>{}) << "that it is gone is said when the kernel tells it";
    run(make);
    linuxSendSettle();
    EXPECT_EQ(sendTo(SMD_PORT_TRUNK | 7, taggedFrame(100)), 0);
    linuxSendFlush();
    EXPECT_EQ(linuxCounters[2].sent, 2u);
    EXPECT_EQ(linuxCounters[2].sendFailed, 0u);
    run("ip link del bond7");
    *bond = LinuxLink{};
    linuxLinks[2].ifindex = 0;
    linuxLinks[2].master = 0;
    linuxSendSettle();
}
