// What is remembered of a real bridge's MAC table while the bridge tells that it changes, and the loop does not run: whatever
// was told before frames are taken counts, also when more was told than the socket holds.

#include "platform/linux/maccache.h"

#include <array>
#include <cstdio>
#include <cstdlib>
#include <gtest/gtest.h>
#include <sched.h>
#include <string>

#include "platform/linux/protocol.h"

namespace {

constexpr std::array<uint8_t, 6> STATION = {2, 0, 0, 0, 0, 1};
constexpr LinuxMacPlace ON_PORT_1 = {.port = 1, .trunk = LINUX_NO_TRUNK};
constexpr uint32_t TURNS_MAX = 1000; // each reads some hundred notifications

void run(const std::string &command) { ASSERT_EQ(system(command.c_str()), 0) << command; }

// Puts the station behind a port.
void move(const char *port) { run(std::string("bridge fdb replace 02:00:00:00:00:01 dev ") + port + " master static"); }

class LinuxMacNews : public testing::Test {
  protected:
    static void SetUpTestSuite() {
        ASSERT_EQ(unshare(CLONE_NEWNET), 0);
        run("ip link add br0 type bridge && for i in 1 2; do ip link add p$i type veth && ip link set p$i master br0; done");
        linuxMacCacheOpen();
    }
    void SetUp() override {
        move("p1");
        ASSERT_TRUE(readAll());
        linuxMacCacheForget();
    }
    static bool known() {
        LinuxMacPlace place{};
        return linuxMacCacheFind(STATION.data(), 0, &place);
    }
    // Turns in which frames come, until what is kept is kept. False when that does not come to an end.
    static bool readAll() {
        bool kept = false;
        for (uint32_t i = 0; i < TURNS_MAX && !kept; i++) {
            linuxMacCacheDoubt();
            static_cast<void>(known());
            linuxMacCacheKeep(PROBE.data(), 0, ON_PORT_1);
            LinuxMacPlace place{};
            kept = linuxMacCacheFind(PROBE.data(), 0, &place);
        }
        return kept;
    }
    static constexpr std::array<uint8_t, 6> PROBE = {2, 0, 0, 0, 0xFF, 0xFF}; // a station that the bridge never tells of
};

TEST_F(LinuxMacNews, AMoveThatWasToldBeforeTheFramesCounts) {
    linuxMacCacheKeep(STATION.data(), 0, ON_PORT_1);
    linuxMacCacheDoubt();
    EXPECT_TRUE(known());
    move("p2");
    linuxMacCacheDoubt();
    EXPECT_FALSE(known());
}

TEST_F(LinuxMacNews, AMoveInAnotherPlaceOfTheTableIsNoNews) {
    linuxMacCacheKeep(STATION.data(), 0, ON_PORT_1);
    run("bridge fdb replace 02:00:00:00:00:02 dev p2 master static");
    linuxMacCacheDoubt();
    EXPECT_TRUE(known());
}

// Once its buffer was full the socket gets nothing until it is empty, and says so once.
TEST_F(LinuxMacNews, NothingIsKeptWhileTheKernelMayBeSilent) {
    linuxMacCacheKeep(STATION.data(), 0, ON_PORT_1);
    run("for i in $(seq 20000); do printf 'fdb replace 02:00:00:01:%02x:%02x dev p2 master static\\n' $((i / 256 % 256)) "
        "$((i % 256)); done | bridge -batch -");
    linuxMacCacheDoubt();
    EXPECT_FALSE(known()); // some news were lost
    linuxMacCacheKeep(STATION.data(), 0, ON_PORT_1);
    move("p2"); // of which nobody is told
    ASSERT_TRUE(readAll());
    EXPECT_FALSE(known());
}

} // namespace
