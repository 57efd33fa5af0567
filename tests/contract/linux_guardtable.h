#pragma once
// The source guard in a real kernel table, in a network namespace of its own. The table of links is written by the test; the
// kernel does not ask whether an interface index is anybody's.

#include "platform/linux/guard.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <initializer_list>
#include <sched.h>
#include <span>
#include <string>
#include <unistd.h>

#include "platform/linux/guardkeys.h"
#include "platform/linux/ipv6walk.h"
#include "platform/linux/nftset.h"
#include "platform/linux/nfttable.h"
#include "platform/linux/ports.h"

inline constexpr uint32_t BRIDGE = 500, BOND = 600; // interface indexes; port 1 has 101, port 2 has 102, ...
inline constexpr uint32_t CLOSED = 5;               // elements of a closed interface: denial, rate, three counters

inline LinuxGuardKey filter(uint32_t kind, uint32_t port, uint32_t vlan, uint32_t number = 1) {
    LinuxGuardKey key{};
    key.kind = kind;
    key.port = port;
    key.vlan = vlan;
    key.mac[5] = 1;
    memcpy(key.address, &number, sizeof number);
    return key;
}

inline bool has(const char *set, std::span<const uint8_t> key) { return linuxNftGet(set, key, nullptr) == 0; }

inline bool has(const char *set, uint32_t ifindex) {
    return has(set, {reinterpret_cast<const uint8_t *>(&ifindex), sizeof ifindex});
}

inline bool hasName(const char *name) {
    uint8_t key[16] = {};
    memcpy(key, name, strlen(name));
    return has("guard_name", key);
}

// Elements in the kernel, of all sets together.
inline uint32_t elements() {
    FILE *list = popen("nft -nn list table bridge snoopd6", "r");
    std::string text;
    for (int c = 0; list != nullptr && (c = fgetc(list)) != EOF;)
        text += static_cast<char>(c);
    EXPECT_EQ(pclose(list), 0);
    uint32_t count = 0;
    for (size_t at = text.find("elements = {"); at != std::string::npos; at = text.find("elements = {", at)) {
        const size_t end = text.find('}', at);
        count += 1 + static_cast<uint32_t>(
                         std::count(text.begin() + static_cast<long>(at), text.begin() + static_cast<long>(end), ','));
        at = end;
    }
    return count;
}

class LinuxGuard : public testing::Test {
  protected:
    static void SetUpTestSuite() {
        home = open("/proc/self/ns/net", O_RDONLY | O_CLOEXEC);
        ASSERT_EQ(unshare(CLONE_NEWNET), 0);
        load();
    }

    static void TearDownTestSuite() {
        linuxNftTableUnload();
        EXPECT_EQ(setns(home, CLONE_NEWNET), 0);
        close(home);
    }

    static void load() {
        char error[256];
        ASSERT_EQ(linuxNftTableLoad(error, sizeof error), 0) << error;
    }

    // Four ports in a bridge that filters VLANs, native VLAN 1; port 4 is closed to router advertisements when guarded.
    void SetUp() override {
        memset(&linuxSwitch, 0, sizeof linuxSwitch);
        memset(linuxLinks, 0, sizeof linuxLinks);
        linuxSwitch.portMax = 4;
        linuxLinks[LINUX_LINK_BRIDGE].ifindex = BRIDGE;
        linuxBridge.vlanFiltering = 1;
        linuxBridge.vlanTpid = LINUX_TPID_8021Q;
        for (uint32_t port = 1; port <= 4; ++port) {
            linuxSwitch.ports[port - 1].exists = 1;
            snprintf(linuxSwitch.ports[port - 1].interface, sizeof linuxSwitch.ports[port - 1].interface, "p%u", port);
            place(port, 100 + port, BRIDGE, 1);
        }
        linuxSwitch.ports[3].raGuard = 1;
        linuxGuardSettle();
        ASSERT_EQ(elements(), 1u); // the foreign tag type
    }

    void TearDown() override {
        while (const LinuxGuardFilter *left = linuxGuardNext(nullptr)) {
            const LinuxGuardKey key = left->key;
            EXPECT_EQ(linuxGuardFilterRemove(&key), 0);
        }
        for (uint32_t port = 1; port <= 4; ++port) {
            LinuxGuardPortStatus status;
            linuxGuardPortStatus(port, &status);
            if (status.guarded != 0) {
                EXPECT_EQ(linuxGuardPortOpen(port), 0);
            }
        }
        EXPECT_EQ(elements(), 1u); // nothing is left in any set
        memset(linuxLinks, 0, sizeof linuxLinks);
        linuxBridge.vlanFiltering = 0;
        linuxGuardSettle();
        EXPECT_EQ(elements(), 0u);
    }

    static void place(uint32_t port, uint32_t ifindex, uint32_t master, uint32_t native) {
        linuxLinks[port - 1].ifindex = ifindex;
        linuxLinks[port - 1].master = master;
        linuxLinks[port - 1].nativeVlan = native;
    }

    static void bond(uint32_t ifindex, uint32_t native, std::initializer_list<uint32_t> ports) {
        snprintf(linuxLinks[LINUX_LINK_BOND0].name, sizeof linuxLinks[LINUX_LINK_BOND0].name, "bond0");
        linuxLinks[LINUX_LINK_BOND0].ifindex = ifindex;
        linuxLinks[LINUX_LINK_BOND0].master = BRIDGE;
        linuxLinks[LINUX_LINK_BOND0].nativeVlan = native;
        for (const uint32_t port : ports)
            linuxLinks[port - 1].master = ifindex;
        linuxGuardSettle();
    }

    static bool written(const LinuxGuardKey &key, LinuxGuardPlace where) {
        LinuxGuardElements wanted;
        linuxGuardElements(&key, where, &wanted);
        for (uint32_t i = 0; i < wanted.count; ++i)
            if (!has(wanted.element[i].set, {wanted.element[i].key, wanted.element[i].length}))
                return false;
        return wanted.count != 0;
    }

    static inline int home; // the namespace that the tests were started in
};
