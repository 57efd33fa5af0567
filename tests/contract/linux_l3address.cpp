// The switch's own addresses: the MAC address of its bridge, and the IPv4 addresses of its VLANs.

#include "platform/linux/l3address.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <gtest/gtest.h>
#include <libmnl/libmnl.h>
#include <linux/rtnetlink.h>
#include <linux/sockios.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include "platform/libcommon.h"
#include "platform/libl3if.h"
#include "platform/linux/links.h"
#include "platform/linux/ports.h"
#include "platform/linux/switchfile.h"

// A bridge of its own in the namespace of the tests.
class LinuxL3 : public testing::Test {
  protected:
    int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);

    void SetUp() override {
        linuxSwitch = {};
        strcpy(linuxSwitch.bridge, "unit-br0");
        linuxPortsInit();
        linuxL3Forget();
        ASSERT_EQ(ioctl(fd, SIOCBRADDBR, "unit-br0"), 0) << strerror(errno);
    }

    void TearDown() override {
        ioctl(fd, SIOCBRDELBR, "unit-br0");
        close(fd);
        linuxSwitch = {};
        linuxPortsInit();
    }

    ifreq request() const {
        ifreq out = {};
        strcpy(out.ifr_name, "unit-br0");
        return out;
    }

    void setAddress(const char *text) const {
        ifreq change = request();
        sockaddr_in address = {};
        address.sin_family = AF_INET;
        ASSERT_EQ(inet_pton(AF_INET, text, &address.sin_addr), 1);
        memcpy(&change.ifr_addr, &address, sizeof address);
        ASSERT_EQ(ioctl(fd, SIOCSIFADDR, &change), 0) << strerror(errno);
    }
};

// What the kernel says about the bridge when it is there, or when it goes.
static void tellBridge(uint16_t type, const uint8_t mac[6]) {
    alignas(8) uint8_t room[512] = {};
    nlmsghdr *message = mnl_nlmsg_put_header(room);
    message->nlmsg_type = type;
    ifinfomsg *info = static_cast<ifinfomsg *>(mnl_nlmsg_put_extra_header(message, sizeof(ifinfomsg)));
    info->ifi_index = 7;
    mnl_attr_put_strz(message, IFLA_IFNAME, "unit-br0");
    mnl_attr_put(message, IFLA_ADDRESS, 6, mac);
    nlattr *kind = mnl_attr_nest_start(message, IFLA_LINKINFO);
    mnl_attr_put_strz(message, IFLA_INFO_KIND, "bridge");
    mnl_attr_nest_end(message, kind);
    linuxLinksApply(message, nullptr);
}

TEST_F(LinuxL3, MacAddressIsTheBridges) {
    const uint8_t own[6] = {0x02, 0x1a, 0x2b, 0x3c, 0x4d, 0x5e};
    const uint8_t zero[6] = {};
    uint8_t mac[6];
    memset(mac, 7, sizeof mac);
    EXPECT_NE(getSysMacAdress(mac), 0);
    EXPECT_EQ(memcmp(mac, zero, sizeof mac), 0);
    tellBridge(RTM_NEWLINK, own);
    EXPECT_EQ(getSysMacAdress(mac), 0);
    EXPECT_EQ(memcmp(mac, own, sizeof mac), 0);
    tellBridge(RTM_DELLINK, own);
    EXPECT_NE(getSysMacAdress(mac), 0);
    EXPECT_EQ(memcmp(mac, zero, sizeof mac), 0);
}

TEST_F(LinuxL3, TheBridgesAddressIsThatOfItsNativeVlan) {
    setAddress("192.0.2.1");
    uint32_t ip = 0;
    EXPECT_EQ(getSWByVLAN(1), 1u);
    EXPECT_EQ(l3ifSwPrimIpGet(1, &ip), 0);
    EXPECT_EQ(ip, 0xC0000201u);
    EXPECT_EQ(l3ifSwPrimIpGetByVid(1, &ip), 0);
    EXPECT_EQ(ip, 0xC0000201u);
    for (const uint32_t other : {0u, 2u, 4094u, 4095u, 0xFFFFFFFFu}) {
        ip = 7;
        EXPECT_EQ(getSWByVLAN(other), 0u);
        EXPECT_NE(l3ifSwPrimIpGetByVid(other, &ip), 0);
        EXPECT_EQ(ip, 0u);
    }
}

TEST_F(LinuxL3, AnAnswerIsKeptUntilTheKernelSpeaks) {
    uint32_t ip = 7;
    EXPECT_NE(l3ifSwPrimIpGet(1, &ip), 0);
    EXPECT_EQ(ip, 0u);
    setAddress("192.0.2.1");
    EXPECT_NE(l3ifSwPrimIpGet(1, &ip), 0); // nobody has said anything yet
    linuxL3Forget();
    EXPECT_EQ(l3ifSwPrimIpGet(1, &ip), 0);
    EXPECT_EQ(ip, 0xC0000201u);
}
