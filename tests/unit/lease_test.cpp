// Leases taken from the IA_NA and IA_PD of a message.

#include "tests/unit/fixture.h"

#include <cstdlib>
#include <cstring>

namespace {

struct LeaseTest : SnoopingTest {
    Dhcp6IaResult result = {};

    void TearDown() override {
        dhcp6snooping_attr_array_free(&result.leases, dhcp6snooping_attr_binding_free);
        SnoopingTest::TearDown();
    }

    uint32_t extract(const Options &content, uint32_t dropZeroValid) {
        dhcp6snooping_attr_array_free(&result.leases, dhcp6snooping_attr_binding_free);
        result = {};
        // An exactly-sized block: one byte too far is outside.
        const std::unique_ptr<uint8_t, void (*)(void *)> area(static_cast<uint8_t *>(malloc(content.bytes.size())), free);
        std::copy(content.bytes.begin(), content.bytes.end(), area.get());
        return dhcp6snooping_parse_addr_and_prefix_option(&result, area.get(), static_cast<uint32_t>(content.bytes.size()),
                                                          dropZeroValid);
    }
    Lines leases() const { return leasesOf(result.leases); }
};

Options iaNa(const Options &inner) { return options().iaNa(100, 200, inner); }
Options iaPd(const Options &inner) { return options().iaPd(300, 400, inner); }

Options both(const Options &na, const Options &pd) {
    Options all = na;
    all.bytes.insert(all.bytes.end(), pd.bytes.begin(), pd.bytes.end());
    return all;
}

TEST_F(LeaseTest, AnAddressIsTaken) {
    recordingClock = 5000;
    EXPECT_EQ(extract(iaNa(options().address("2001:db8::1", 1000, 2000)), 1), 1u);
    EXPECT_EQ(leases(), Lines{"2001:db8::1/128=2000"});
    const auto *lease = static_cast<const Dhcp6LeaseAttr *>(result.leases.items[0]);
    EXPECT_EQ(lease->preferred_lifetime, 1000u);
    EXPECT_EQ(lease->learned_at, 5000u);
    EXPECT_EQ(lease->status, 0u);
    EXPECT_EQ(result.t1, 100u);
    EXPECT_EQ(result.t2, 200u);
    EXPECT_EQ(result.status, 0u);
    EXPECT_TRUE(recordingTraces.empty());
}

TEST_F(LeaseTest, APrefixIsTaken) {
    recordingClock = 5000;
    EXPECT_EQ(extract(iaPd(options().prefix("2001:db8:1::", 48, 0x01020304, 0x05060708)), 1), 1u);
    EXPECT_EQ(leases(), Lines{"2001:db8:1::/48=84281096"});
    const auto *lease = static_cast<const Dhcp6LeaseAttr *>(result.leases.items[0]);
    EXPECT_EQ(lease->preferred_lifetime, 0x01020304u);
    EXPECT_EQ(lease->learned_at, 5000u);
    EXPECT_EQ(result.t1, 300u);
    EXPECT_EQ(result.t2, 400u);
}

TEST_F(LeaseTest, AddressesAndPrefixesShareOneList) {
    EXPECT_EQ(extract(both(iaPd(options().prefix("2001:db8:1::", 56, 1, 2)), iaNa(options().address("2001:db8::1", 1, 2))), 1),
              1u);
    EXPECT_EQ(leases(), (Lines{"2001:db8::1/128=2", "2001:db8:1::/56=2"}));
    EXPECT_EQ(result.t1, 300u) << "the last IA parsed is the IA_PD";
}

TEST_F(LeaseTest, NothingToTake) {
    EXPECT_EQ(extract(options().clientId(), 1), 0u);
    EXPECT_EQ(extract(options(), 1), 0u);
    EXPECT_TRUE(recordingTraces.empty());
    uint8_t byte = 0;
    EXPECT_EQ(dhcp6snooping_parse_addr_and_prefix_option(nullptr, &byte, 1, 1), 0u);
    EXPECT_EQ(dhcp6snooping_parse_addr_and_prefix_option(&result, nullptr, 1, 1), 0u);
}

TEST_F(LeaseTest, ShortIasAreSkipped) {
    for (const uint16_t code : {DHCP6_OPTION_IA_NA, DHCP6_OPTION_IA_PD}) {
        const bool na = code == DHCP6_OPTION_IA_NA;
        const Options good =
            na ? iaNa(options().address("2001:db8::1", 1, 2)) : iaPd(options().prefix("2001:db8::1", 64, 1, 2));
        for (const uint32_t size : {0u, 4u, 8u, 11u}) {
            EXPECT_EQ(extract(both(options().option(code, Bytes(size, 0xFF)), good), 1), 1u);
            EXPECT_EQ(leases().size(), 1u);
        }
    }
}

TEST_F(LeaseTest, TwelveBytesAreAnIaWithoutLeases) {
    EXPECT_EQ(extract(both(iaNa({}), iaNa(options().address("2001:db8::1", 1, 2))), 1), 0u);
    EXPECT_EQ(recordingTraces, Lines{"\r\n Discarding settings na, since no usable bindings"});
    EXPECT_EQ(result.t1, 100u);
    for (uint32_t tail = 1; tail < 4; tail++)
        EXPECT_EQ(extract(options().option(DHCP6_OPTION_IA_NA, Bytes(12 + tail, 0)), 1), 0u);
}

TEST_F(LeaseTest, OnlyTheFirstIaCounts) {
    EXPECT_EQ(extract(both(iaNa(options().address("2001:db8::1", 1, 2)), iaNa(options().address("2001:db8::2", 1, 2))), 1), 1u);
    EXPECT_EQ(leases(), Lines{"2001:db8::1/128=2"});
    EXPECT_EQ(extract(both(iaPd(options().prefix("2001:db8::", 48, 1, 2)), iaPd(options().prefix("2001:db9::", 48, 1, 2))), 1),
              1u);
    EXPECT_EQ(leases(), Lines{"2001:db8::/48=2"});
}

TEST_F(LeaseTest, T1AboveT2RefusesTheIa) {
    const Options address = options().address("2001:db8::1", 1, 2);
    const Options prefix = options().prefix("2001:db8:1::", 48, 1, 2);
    const std::string text = "\r\n Discarding message, since T1 (3600) > T2 (1800)";
    EXPECT_EQ(extract(options().iaNa(3600, 1800, address), 1), 0u);
    EXPECT_EQ(recordingTraces, Lines{text});
    EXPECT_EQ(result.t1, 0u);
    EXPECT_EQ(extract(options().iaPd(3600, 1800, prefix), 1), 0u);
    EXPECT_EQ(recordingTraces, (Lines{text, text}));
    EXPECT_EQ(extract(options().iaNa(3600, 0, address), 1), 1u);
    EXPECT_EQ(result.t1, 3600u);
    EXPECT_EQ(extract(options().iaNa(1800, 1800, address), 1), 1u);
    EXPECT_EQ(extract(options().iaNa(0xFFFFFFFF, 0xFFFFFFFE, address), 1), 0u);
    EXPECT_EQ(recordingTraces.back(), "\r\n Discarding message, since T1 (4294967295) > T2 (4294967294)");
}

TEST_F(LeaseTest, ARefusedIaIsNotReplacedByALaterOne) {
    const Options good = iaNa(options().address("2001:db8::2", 1, 2));
    EXPECT_EQ(extract(both(options().iaNa(2, 1, options().address("2001:db8::1", 1, 2)), good), 1), 0u);
    EXPECT_EQ(leases(), Lines{});
}

TEST_F(LeaseTest, ARefusedIaPdLeavesTheIaNaAlone) {
    const Options prefix = options().prefix("2001:db8:1::", 48, 1, 0);
    EXPECT_EQ(extract(both(iaNa(options().address("2001:db8::1", 0, 0)), options().iaPd(2, 1, prefix)), 0), 1u);
    EXPECT_EQ(leases(), Lines{"2001:db8::1/128=0"});
    EXPECT_EQ(result.t1, 100u);
}

TEST_F(LeaseTest, LifetimesThatContradictEachOtherAreIgnored) {
    EXPECT_EQ(extract(iaNa(options().address("2001:db8::1", 100, 50).address("2001:db8::2", 100, 100)), 1), 1u);
    EXPECT_EQ(leases(), Lines{"2001:db8::2/128=100"});
    EXPECT_EQ(
        extract(iaPd(options().prefix("2001:db8::", 48, 0xFFFFFFFF, 0xFFFFFFFE).prefix("2001:db9::", 48, 7, 0xFFFFFFFF)), 1),
        1u);
    EXPECT_EQ(leases(), Lines{"2001:db9::/48=4294967295"});
    EXPECT_TRUE(recordingTraces.empty());
}

TEST_F(LeaseTest, ShortOptionsOfAnIaAreIgnored) {
    Options inner = options().option(DHCP6_OPTION_IAADDR, Bytes(23, 1)).address("2001:db8::2", 1, 2);
    EXPECT_EQ(extract(iaNa(inner), 1), 1u);
    EXPECT_EQ(leases(), Lines{"2001:db8::2/128=2"});
    inner = options().option(DHCP6_OPTION_IAPREFIX, Bytes(24, 1)).prefix("2001:db9::", 48, 1, 2);
    EXPECT_EQ(extract(iaPd(inner), 1), 1u);
    EXPECT_EQ(leases(), Lines{"2001:db9::/48=2"});
}

TEST_F(LeaseTest, AddressesInAnIaPdAndPrefixesInAnIaNaAreNotLookedFor) {
    EXPECT_EQ(extract(both(iaNa(options().prefix("2001:db9::", 48, 1, 2)), iaPd(options().address("2001:db8::2", 1, 2))), 1),
              0u);
    EXPECT_EQ(recordingTraces, (Lines{"\r\n Discarding settings na, since no usable bindings",
                                      "\r\n Discarding settings pd, since no usable bindings"}));
}

TEST_F(LeaseTest, TheSameLeaseTwiceKeepsTheLaterOne) {
    EXPECT_EQ(
        extract(iaNa(options().address("2001:db8::1", 1, 2).address("2001:db8::2", 1, 2).address("2001:db8::1", 3, 4)), 1), 1u);
    EXPECT_EQ(leases(), (Lines{"2001:db8::1/128=4", "2001:db8::2/128=2"}));
    EXPECT_EQ(static_cast<Dhcp6LeaseAttr *>(result.leases.items[0])->preferred_lifetime, 3u);
    const Options refused = options().address("2001:db8::1", 1, 2, options().status(4));
    EXPECT_EQ(extract(iaNa(both(refused, options().address("2001:db8::1", 3, 4))), 1), 1u) << "its status too";
    EXPECT_EQ(leases(), Lines{"2001:db8::1/128=4"});
    EXPECT_EQ(extract(iaNa(both(options().address("2001:db8::1", 3, 4), refused)), 1), 0u);
}

TEST_F(LeaseTest, APrefixOfAnotherLengthIsAnotherLease) {
    EXPECT_EQ(
        extract(iaPd(options().prefix("2001:db8::", 48, 1, 2).prefix("2001:db8::", 56, 1, 3).prefix("2001:db8::", 48, 1, 4)),
                1),
        1u);
    EXPECT_EQ(leases(), (Lines{"2001:db8::/48=4", "2001:db8::/56=3"}));
}

TEST_F(LeaseTest, AnAddressAndItsWholePrefixAreTheSameLease) {
    EXPECT_EQ(extract(both(iaNa(options().address("2001:db8::1", 1, 2)), iaPd(options().prefix("2001:db8::1", 128, 1, 9))), 1),
              1u);
    EXPECT_EQ(leases(), Lines{"2001:db8::1/128=9"});
}

TEST_F(LeaseTest, AStatusOfTheIaNaDiscardsIt) {
    EXPECT_EQ(extract(iaNa(options().address("2001:db8::1", 1, 2).status(2)), 1), 0u);
    EXPECT_EQ(leases(), Lines{});
    EXPECT_EQ(recordingTraces, Lines{"\r\n Discarding settings na, since status no addresses available"});
    EXPECT_EQ(result.status, 2u);
    EXPECT_EQ(extract(iaNa(options().address("2001:db8::1", 1, 2).status(256)), 1), 0u);
    EXPECT_EQ(result.status, 256u);
}

TEST_F(LeaseTest, AfterADiscardedIaNaTheIaPdStillCounts) {
    EXPECT_EQ(extract(both(iaNa(options().status(3)), iaPd(options().prefix("2001:db8::", 48, 1, 2))), 1), 1u);
    EXPECT_EQ(leases(), Lines{"2001:db8::/48=2"});
    EXPECT_EQ(recordingTraces, Lines{"\r\n Discarding settings na, since status no binding"});
    EXPECT_EQ(result.status, 0u);
}

TEST_F(LeaseTest, AStatusOfTheIaPdWipesTheAddressesAndTheAnswerStays) {
    EXPECT_EQ(extract(both(iaNa(options().address("2001:db8::1", 1, 2)), iaPd(options().status(2))), 1), 1u);
    EXPECT_EQ(leases(), Lines{});
    EXPECT_EQ(result.leases.capacity, 0u);
    EXPECT_EQ(recordingTraces, Lines{"\r\n Discarding settings pd, since status no addresses available"});
    EXPECT_EQ(extract(iaPd(options().status(9)), 1), 0u);
    EXPECT_EQ(recordingTraces.back(), "\r\n Discarding settings pd, since status unknown status code");
}

TEST_F(LeaseTest, ALeaseWithAStatusIsDropped) {
    const Options inner = options()
                              .address("2001:db8::1", 1, 2, options().status(4))
                              .address("2001:db8::2", 1, 2, options().status(0))
                              .address("2001:db8::3", 1, 2, options().status(1))
                              .address("2001:db8::4", 1, 2, options().status(1));
    EXPECT_EQ(extract(iaNa(inner), 0), 1u);
    EXPECT_EQ(leases(), Lines{"2001:db8::2/128=2"});
    EXPECT_EQ(extract(iaNa(options().address("2001:db8::1", 1, 2, options().status(4))), 1), 0u);
    EXPECT_EQ(recordingTraces, Lines{"\r\n Discarding settings na, since no usable bindings"});
}

TEST_F(LeaseTest, ZeroLifetimesCountOnlyInClientMessages) {
    const Options zero = iaNa(options().address("2001:db8::1", 0, 0).address("2001:db8::2", 0, 5));
    EXPECT_EQ(extract(zero, 0), 1u);
    EXPECT_EQ(leases(), (Lines{"2001:db8::1/128=0", "2001:db8::2/128=5"}));
    EXPECT_EQ(extract(zero, 1), 1u);
    EXPECT_EQ(leases(), Lines{"2001:db8::2/128=5"});
    EXPECT_EQ(extract(iaNa(options().address("2001:db8::1", 0, 0)), 1), 0u);
    EXPECT_EQ(result.leases.capacity, 0u) << "the storage is given back";
    EXPECT_EQ(recordingTraces, Lines{"\r\n Discarding settings na, since no usable bindings"});
}

TEST_F(LeaseTest, AnIaPdDropsZeroLifetimesOfBothKinds) {
    const Options na = iaNa(options().address("2001:db8::1", 0, 0).address("2001:db8::2", 0, 5));
    EXPECT_EQ(extract(both(na, iaPd(options().prefix("2001:db9::", 48, 0, 0).prefix("2001:dba::", 48, 0, 6))), 0), 1u);
    EXPECT_EQ(leases(), (Lines{"2001:db8::2/128=5", "2001:dba::/48=6"}));
    EXPECT_EQ(extract(both(iaNa(options().address("2001:db8::1", 0, 0)), iaPd(options().prefix("2001:db9::", 48, 0, 0))), 0),
              1u);
    EXPECT_EQ(leases(), Lines{});
    EXPECT_EQ(recordingTraces, Lines{"\r\n Discarding settings pd, since no usable bindings"});
}

// The search for a prefix's own status starts on the last byte of the prefix, so an ordinary nested status is not seen; it is
// found when that byte is 0 and the bytes read as code 13 one byte early.
TEST_F(LeaseTest, APrefixStatusIsSearchedOneByteEarly) {
    EXPECT_EQ(extract(iaPd(options().prefix("2001:db8::", 48, 1, 2, options().status(4))), 1), 1u);
    EXPECT_EQ(leases(), Lines{"2001:db8::/48=2"});
    Options shifted = options();
    shifted.bytes = {13, 0, 2, 0, 4}; // read from the 0 before it: code 13, length 2, status 4
    EXPECT_EQ(extract(iaPd(options().prefix("2001:db8::", 48, 1, 2, shifted)), 1), 0u);
    EXPECT_EQ(recordingTraces.back(), "\r\n Discarding settings pd, since no usable bindings");
    EXPECT_EQ(extract(iaPd(options().prefix("2001:db8::1", 48, 1, 2, shifted)), 1), 1u) << "the last byte is not 0";
}

TEST_F(LeaseTest, TheStatusOfAnIaIsNotLookedForInsideItsAddresses) {
    EXPECT_EQ(extract(iaNa(options().address("2001:db8::1", 1, 2).address("2001:db8::2", 1, 2, options().status(2))), 1), 1u);
    EXPECT_EQ(result.status, 0u);
    EXPECT_EQ(leases(), Lines{"2001:db8::1/128=2"});
}

TEST_F(LeaseTest, TheSinglePartsAnswerWhetherAnIaWasTaken) {
    const Options na = iaNa(options().status(2)), pd = iaPd(options().prefix("2001:db8::", 48, 1, 2));
    EXPECT_EQ(dhcp6snooping_ia_na_parse_options(&result, na.bytes.data(), static_cast<uint32_t>(na.bytes.size())), 1u);
    EXPECT_EQ(result.status, 2u);
    EXPECT_EQ(dhcp6snooping_ia_pd_parse_options(&result, na.bytes.data(), static_cast<uint32_t>(na.bytes.size())), 0u);
    EXPECT_EQ(dhcp6snooping_ia_pd_parse_options(&result, pd.bytes.data(), static_cast<uint32_t>(pd.bytes.size())), 1u);
    EXPECT_EQ(result.status, 0u);
    EXPECT_EQ(leases(), Lines{"2001:db8::/48=2"});
}

TEST_F(LeaseTest, TheClockIsReadOncePerIa) {
    const Options inner = options().address("2001:db8::1", 1, 2).address("2001:db8::2", 1, 2).address("2001:db8::3", 1, 2);
    EXPECT_EQ(extract(iaNa(inner), 1), 1u);
    EXPECT_EQ(recordingCount("vosUpSeconds"), 1u);
}

TEST_F(LeaseTest, TruncatedAtEveryByteNothingIsReadBehindTheEnd) {
    const Options whole = both(iaNa(options().address("2001:db8::1", 1, 2, options().status(0, "ok")).status(0)),
                               iaPd(options().prefix("2001:db8:1::", 48, 1, 2)));
    for (size_t cut = 0; cut < whole.bytes.size(); cut++) {
        Options part = whole;
        part.bytes.resize(cut);
        const uint32_t naEnd = 4 + 12 + 28 + 8 + 6;
        EXPECT_EQ(extract(part, 1), cut >= naEnd ? 1u : 0u) << cut;
        EXPECT_EQ(leases(), cut >= naEnd ? Lines{"2001:db8::1/128=2"} : Lines{}) << cut;
    }
}

TEST_F(LeaseTest, LostMemoryLosesTheLeaseOnly) {
    Options inner;
    for (uint32_t i = 1; i <= 8; i++)
        inner.address("2001:db8::" + std::to_string(i), 1, 2);
    const Options content = iaNa(inner);
    for (uint32_t nth = 1; nth <= 10; nth++) {
        result = {};
        recordingAllocationsBegin(nth);
        dhcp6snooping_parse_addr_and_prefix_option(&result, content.bytes.data(), static_cast<uint32_t>(content.bytes.size()),
                                                   1);
        EXPECT_EQ(recordingAllocationsEnd() >= nth, nth <= 10);
        EXPECT_EQ(result.leases.count, 7u) << nth;
        dhcp6snooping_attr_array_free(&result.leases, dhcp6snooping_attr_binding_free);
    }
}

TEST_F(LeaseTest, SameMeansAddressAndPrefixLength) {
    Dhcp6LeaseAttr a = {}, b = {};
    a.prefix_len = b.prefix_len = 64;
    b.valid_lifetime = b.preferred_lifetime = b.learned_at = b.status = 9;
    Dhcp6AttrArray list = {};
    dhcp6snooping_attr_array_add(&list, &a, 0);
    EXPECT_EQ(dhcp6snooping_lease_find(&list, &b), &a);
    b.address[15] = 1;
    EXPECT_EQ(dhcp6snooping_lease_find(&list, &b), nullptr);
    b.address[15] = 0;
    b.prefix_len = 65;
    EXPECT_EQ(dhcp6snooping_lease_find(&list, &b), nullptr);
    dhcp6snooping_attr_array_free(&list, nullptr);
}

} // namespace
