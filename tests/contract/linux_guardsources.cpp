// The map of bound sources: one verdict for an address, whatever filters share it.

#include "tests/contract/linux_guardtable.h"

#include <cerrno>
#include <random>
#include <set>
#include <tuple>

namespace {

class LinuxGuardSources : public LinuxGuard {
  protected:
    // What the kernel's map says of the address of these filters.
    static LinuxNftVerdict verdict(const LinuxGuardKey &key) {
        LinuxNftElement element{};
        return linuxNftGet("f_source", key.address, &element) == 0 ? element.verdict : LinuxNftVerdict::none;
    }

    static LinuxGuardKey anyMac(LinuxGuardKey key) {
        memset(key.mac, 0, sizeof key.mac);
        return key;
    }
};

TEST_F(LinuxGuardSources, EveryKindHasItsVerdict) {
    const struct {
        LinuxGuardKey key;
        LinuxNftVerdict verdict;
    } cases[] = {
        {anyMac(filter(LINUX_FILTER_ADDRESS, 0, 0)), LinuxNftVerdict::accept},
        {filter(LINUX_FILTER_MAC_ADDRESS, 0, 0), LinuxNftVerdict::back},
        {filter(LINUX_FILTER_PORT, 1, 0), LinuxNftVerdict::back},
        {anyMac(filter(LINUX_FILTER_PORT, 1, 0)), LinuxNftVerdict::back},
        {filter(LINUX_FILTER_PORT_VLAN, 1, 1), LinuxNftVerdict::none},
        {anyMac(filter(LINUX_FILTER_PORT_VLAN, 1, 1)), LinuxNftVerdict::back},
    };
    for (const auto &one : cases) {
        ASSERT_EQ(linuxGuardFilterAdd(&one.key), 0);
        EXPECT_EQ(verdict(one.key), one.verdict) << one.key.kind;
        EXPECT_TRUE(linuxGuardInKernel(&one.key));
        EXPECT_EQ(linuxGuardFilterRemove(&one.key), 0);
        EXPECT_EQ(verdict(one.key), LinuxNftVerdict::none) << one.key.kind;
    }
}

TEST_F(LinuxGuardSources, AFilterWithoutItsSourceIsNotInForce) {
    const LinuxGuardKey key = filter(LINUX_FILTER_PORT, 1, 0);
    ASSERT_EQ(linuxGuardFilterAdd(&key), 0);
    linuxNftBegin();
    linuxNftRemove("f_source", key.address);
    ASSERT_EQ(linuxNftCommit(), 0);
    EXPECT_FALSE(linuxGuardInKernel(&key));
    EXPECT_EQ(linuxGuardFilterRemove(&key), -ENOENT);
    EXPECT_EQ(elements(), 1u);
}

TEST_F(LinuxGuardSources, ARefusalLeavesTheVerdict) {
    const LinuxGuardKey ported = filter(LINUX_FILTER_PORT, 1, 0);
    const LinuxGuardKey anywhere = anyMac(filter(LINUX_FILTER_ADDRESS, 0, 0));
    ASSERT_EQ(linuxGuardFilterAdd(&ported), 0);
    linuxNftBegin();
    linuxNftRemove("f_source", ported.address);
    linuxNftMap("f_source", ported.address, LinuxNftVerdict::accept); // somebody else did
    ASSERT_EQ(linuxNftCommit(), 0);
    EXPECT_FALSE(linuxGuardInKernel(&ported));
    linuxNftBegin();
    linuxNftRemove("f_source", ported.address);
    ASSERT_EQ(linuxNftCommit(), 0);
    EXPECT_EQ(linuxGuardFilterAdd(&anywhere), -ENOENT) << "what it would replace is not there";
    EXPECT_EQ(linuxGuardFilterRemove(&anywhere), -ENOENT);
    EXPECT_EQ(linuxGuardFilterRemove(&ported), -ENOENT);
}

// After a refusal elsewhere the map is written anew with all the rest.
TEST_F(LinuxGuardSources, TheMapComesBackWithTheRest) {
    constexpr uint32_t MANY = 2500;
    for (uint32_t number = 1; number <= MANY; ++number) {
        const LinuxGuardKey key = filter(LINUX_FILTER_PORT, 1, 0, number);
        ASSERT_EQ(linuxGuardFilterAdd(&key), 0);
    }
    ASSERT_EQ(linuxGuardPortClose(1), 0);
    ASSERT_EQ(system("nft delete table bridge snoopd6"), 0);
    place(1, 111, BRIDGE, 1);
    linuxGuardSettle();
    linuxNftTableUnload();
    load();
    for (const bool filtering : {false, true}) { // the tag type is written when it changes
        linuxBridge.vlanFiltering = filtering;
        linuxGuardSettle();
    }
    EXPECT_EQ(elements(), 1u + 2 * MANY + CLOSED + 1);
    for (const LinuxGuardFilter *one = linuxGuardNext(nullptr); one != nullptr; one = linuxGuardNext(&one->key))
        ASSERT_TRUE(linuxGuardInKernel(&one->key));
}

// Filters of all kinds come and go in any order, for two addresses; the map always has what those that are left come to.
TEST_F(LinuxGuardSources, RandomFilters) {
    std::mt19937 random(20);
    std::set<std::tuple<uint32_t, uint32_t, bool, uint32_t>> there; // kind, port, any MAC, number
    for (int step = 0; step < 3000; ++step) {
        const uint32_t kind = LINUX_FILTER_ADDRESS + random() % 4;
        const bool hasPort = kind >= LINUX_FILTER_PORT;
        const uint32_t port = hasPort ? 1 + random() % 2 : 0;
        const bool any = kind == LINUX_FILTER_ADDRESS || (hasPort && random() % 2 == 0);
        const uint32_t number = 1 + random() % 2;
        const LinuxGuardKey full = filter(kind, port, kind == LINUX_FILTER_PORT_VLAN ? 1 : 0, number);
        const LinuxGuardKey key = any ? anyMac(full) : full;
        const auto entry = std::make_tuple(kind, port, any, number);
        if (there.erase(entry) != 0) {
            ASSERT_EQ(linuxGuardFilterRemove(&key), 0);
        } else {
            ASSERT_EQ(linuxGuardFilterAdd(&key), 0);
            there.insert(entry);
        }
        LinuxNftVerdict wanted = LinuxNftVerdict::none;
        for (const auto &[itsKind, itsPort, itsAny, itsNumber] : there) {
            if (itsNumber != number || (itsKind == LINUX_FILTER_PORT_VLAN && !itsAny))
                continue;
            wanted = itsKind == LINUX_FILTER_ADDRESS || wanted == LinuxNftVerdict::accept ? LinuxNftVerdict::accept
                                                                                          : LinuxNftVerdict::back;
        }
        ASSERT_EQ(verdict(key), wanted) << step;
        for (const LinuxGuardFilter *one = linuxGuardNext(nullptr); one != nullptr; one = linuxGuardNext(&one->key))
            ASSERT_TRUE(linuxGuardInKernel(&one->key)) << step;
    }
}

} // namespace
