// VLANs that the source guard lets through whole.

#include "l2/dhcp6snooping/sourceguard/exemption.h"
#include "l2/dhcp6snooping/sourceguard/portmode.h"
#include "tests/unit/guard.h"

namespace {

struct ExemptionTest : GuardTest {};

constexpr int32_t ADD = 0, REMOVE = 1;

Bytes listOf(std::initializer_list<uint32_t> vlans) {
    Bytes list(512, 0);
    for (const uint32_t vlan : vlans)
        list[vlan / 8] = static_cast<uint8_t>(list[vlan / 8] | 0x80 >> vlan % 8);
    return list;
}

// Writes the failed VLANs into `failed`, which has exactly the size of a list.
int32_t config(int32_t operation, const Bytes &list, Bytes *failed = nullptr) {
    Bytes own(512, 0);
    const int32_t result =
        ip6_source_guard_vlanlist_config(operation, list.data(), failed != nullptr ? failed->data() : own.data());
    EXPECT_EQ(own, Bytes(512, 0));
    return result;
}

Bytes exempt() {
    Bytes list(512, 0xFF);
    EXPECT_EQ(no_ip6_source_guard_vlanlist_get(list.data()), 0);
    return list;
}

Lines opened(uint32_t vlan) { return {"FRM_InstallGlobalForwardIp6VidOnlyFilterResource vlan=" + std::to_string(vlan)}; }
Lines closed(uint32_t vlan) { return {"FRM_RemoveGlobalForwardIp6VidOnlyFilterResource vlan=" + std::to_string(vlan)}; }

TEST_F(ExemptionTest, NoVlanIsExemptAtFirst) { EXPECT_EQ(exempt(), Bytes(512, 0)); }

TEST_F(ExemptionTest, AddAndRemoveInAscendingOrder) {
    const Bytes list = listOf({4094, 10, 1, 9, 2048});
    EXPECT_EQ(config(ADD, list), 0);
    EXPECT_EQ(recordingTake(), joined({opened(1), opened(9), opened(10), opened(2048), opened(4094)}));
    EXPECT_EQ(exempt(), list);
    EXPECT_EQ(no_ip6_source_guard_vlan[9], 1u);
    EXPECT_EQ(config(REMOVE, listOf({10, 1, 4094})), 0);
    EXPECT_EQ(recordingTake(), joined({closed(1), closed(10), closed(4094)}));
    EXPECT_EQ(exempt(), listOf({9, 2048}));
    EXPECT_EQ(no_ip6_source_guard_vlan[10], 0u);
}

TEST_F(ExemptionTest, WhatIsDoneAlreadyIsNotDoneAgain) {
    EXPECT_EQ(config(REMOVE, listOf({10})), 0);
    EXPECT_EQ(recordingTake(), Lines{});
    config(ADD, listOf({10}));
    recordingTake();
    EXPECT_EQ(config(ADD, listOf({10, 11})), 0);
    EXPECT_EQ(recordingTake(), opened(11));
    EXPECT_EQ(config(REMOVE, listOf({11, 12})), 0);
    EXPECT_EQ(recordingTake(), closed(11));
}

TEST_F(ExemptionTest, EveryOperationButOneAdds) {
    for (const int32_t operation : {0, 2, -1, 0x10001}) {
        EXPECT_EQ(config(operation, listOf({10})), 0);
        EXPECT_EQ(recordingTake(), opened(10));
        EXPECT_EQ(config(1, listOf({10})), 0);
        EXPECT_EQ(recordingTake(), closed(10));
    }
}

TEST_F(ExemptionTest, EveryVlanFrom1To4094) {
    Bytes all(512, 0xFF);
    EXPECT_EQ(config(ADD, all), 0);
    Lines expected;
    for (uint32_t vlan = 1; vlan <= 4094; vlan++)
        expected.push_back(opened(vlan).front());
    EXPECT_EQ(recordingTake(), expected);
    EXPECT_EQ(no_ip6_source_guard_vlan[0], 0u);
    EXPECT_EQ(no_ip6_source_guard_vlan[4095], 0u);
    all.front() = 0x7F;
    all.back() = 0xFE;
    EXPECT_EQ(exempt(), all);
    EXPECT_EQ(config(REMOVE, Bytes(512, 0xFF)), 0);
    EXPECT_EQ(recordingTake().size(), 4094u);
    EXPECT_EQ(exempt(), Bytes(512, 0));
}

TEST_F(ExemptionTest, VlansOutsideAreNeverShownNorTouched) {
    no_ip6_source_guard_vlan[0] = no_ip6_source_guard_vlan[4095] = 1;
    EXPECT_EQ(exempt(), Bytes(512, 0));
    EXPECT_EQ(config(REMOVE, listOf({0, 4095})), 0);
    EXPECT_EQ(config(ADD, listOf({0, 4095})), 0);
    EXPECT_EQ(recordingTake(), Lines{});
    EXPECT_EQ(no_ip6_source_guard_vlan[0], 1u);
}

TEST_F(ExemptionTest, FailuresAreMarkedAndTheOthersDone) {
    config(ADD, listOf({30}));
    recordingTake();
    recordingFailFunction("FRM_InstallGlobalForwardIp6VidOnlyFilterResource", 2);
    Bytes failed = listOf({5, 4095}); // what was there stays
    EXPECT_EQ(config(ADD, listOf({10, 20, 30, 40}), &failed), -1);
    EXPECT_EQ(recordingTake(), joined({opened(10), failing(opened(20)), opened(40)})) << "and nothing is traced";
    EXPECT_EQ(failed, listOf({5, 20, 4095}));
    EXPECT_EQ(exempt(), listOf({10, 30, 40}));
    recordingFailAlways("FRM_RemoveGlobalForwardIp6VidOnlyFilterResource");
    failed = Bytes(512, 0);
    EXPECT_EQ(config(REMOVE, listOf({10, 20, 40}), &failed), -1);
    EXPECT_EQ(recordingTake(), joined({failing(closed(10)), failing(closed(40))}));
    EXPECT_EQ(failed, listOf({10, 40})) << "a VLAN that is not exempt counts as done";
    EXPECT_EQ(exempt(), listOf({10, 30, 40}));
    recordingFailNone();
    EXPECT_EQ(config(REMOVE, listOf({10, 20, 40}), &failed), 0) << "old marks do not make a failure";
    EXPECT_EQ(failed, listOf({10, 40}));
}

TEST_F(ExemptionTest, APositiveStatusIsAFailureToo) {
    recordingFilterStatus = 3;
    recordingFailNth(1);
    Bytes failed(512, 0);
    EXPECT_EQ(config(ADD, listOf({10}), &failed), -1);
    EXPECT_EQ(failed, listOf({10}));
}

TEST_F(ExemptionTest, MissingLists) {
    Bytes failed(512, 0);
    EXPECT_EQ(ip6_source_guard_vlanlist_config(ADD, nullptr, failed.data()), -1);
    EXPECT_EQ(no_ip6_source_guard_vlanlist_get(nullptr), -1);
    EXPECT_EQ(ip6_source_guard_vlanlist_config(ADD, listOf({10}).data(), nullptr), 0);
    recordingFailAlways("FRM_InstallGlobalForwardIp6VidOnlyFilterResource");
    recordingTake();
    EXPECT_EQ(ip6_source_guard_vlanlist_config(ADD, listOf({11, 12}).data(), nullptr), -1);
    EXPECT_EQ(recordingTake(), joined({failing(opened(11)), failing(opened(12))}));
    EXPECT_EQ(failed, Bytes(512, 0));
}

TEST_F(ExemptionTest, OneListForBoth) {
    recordingFailFunction("FRM_InstallGlobalForwardIp6VidOnlyFilterResource", 1);
    Bytes list = listOf({10, 11});
    EXPECT_EQ(ip6_source_guard_vlanlist_config(ADD, list.data(), list.data()), -1);
    EXPECT_EQ(list, listOf({10, 11}));
    EXPECT_EQ(exempt(), listOf({11}));
}

TEST_F(ExemptionTest, GuardedPortsMakeNoDifference) {
    EXPECT_EQ(set_ip6_source_guard_port_mode(1, 0), 0);
    recordingTake();
    EXPECT_EQ(config(ADD, listOf({10})), 0);
    EXPECT_EQ(recordingTake(), opened(10));
    EXPECT_EQ(set_ip6_source_guard_port_mode(1, 1), 0);
    EXPECT_EQ(exempt(), listOf({10}));
    EXPECT_EQ(recordingTake(), joined({denyRemoved(1), ND_REMOVED}));
}

} // namespace
