// The exempt VLANs as one text of the MIB.

#include "l2/dhcp6snooping/clients/limits.h"
#include "l2/dhcp6snooping/sourceguard/exemption.h"
#include "tests/unit/mib.h"

#include <cstring>

namespace {

struct MibExemptTest : MibTest {
    void TearDown() override {
        memset(no_ip6_source_guard_vlan, 0, sizeof no_ip6_source_guard_vlan);
        MibTest::TearDown();
    }
};

Lines opened(uint32_t vlan) { return {"FRM_InstallGlobalForwardIp6VidOnlyFilterResource vlan=" + std::to_string(vlan)}; }
Lines closed(uint32_t vlan) { return {"FRM_RemoveGlobalForwardIp6VidOnlyFilterResource vlan=" + std::to_string(vlan)}; }

std::string get() { return mibGet(MIB_EXEMPT_VLANS); }
std::string commit(const std::string &text) { return mibCommit(MIB_EXEMPT_VLANS, SCALAR, text); }

void exempt(std::initializer_list<uint32_t> vlans) {
    for (const uint32_t vlan : vlans)
        no_ip6_source_guard_vlan[vlan] = 1;
}

std::vector<uint32_t> exemptVlans() {
    std::vector<uint32_t> vlans;
    for (uint32_t vlan = 0; vlan < DHCP6SNOOPING_VLANS; vlan++)
        if (no_ip6_source_guard_vlan[vlan] != 0)
            vlans.push_back(vlan);
    return vlans;
}

// Every second VLAN from `first` on: each takes its own number and a comma in a list.
std::vector<uint32_t> everySecond(uint32_t first, uint32_t count) {
    std::vector<uint32_t> vlans;
    for (uint32_t i = 0; i < count; i++)
        vlans.push_back(first + 2 * i);
    return vlans;
}

void exemptEvery(const std::vector<uint32_t> &vlans) {
    for (const uint32_t vlan : vlans)
        no_ip6_source_guard_vlan[vlan] = 1;
}

// ---- Get ----------------------------------------------------------------------------------------------------------------

TEST_F(MibExemptTest, AListOfTheExemptVlans) {
    EXPECT_EQ(get(), "");
    exempt({1, 3, 4, 5, 4094});
    EXPECT_EQ(get(), "1,3-5,4094");
    EXPECT_EQ(recordingTake(), Lines{});
}

TEST_F(MibExemptTest, AnyFlagThatIsNotZeroAndOnlyRealVlans) {
    exempt({0, 4095});
    EXPECT_EQ(get(), "");
    no_ip6_source_guard_vlan[7] = 0xFFFFFFFF;
    EXPECT_EQ(get(), "7");
}

TEST_F(MibExemptTest, EveryVlan) {
    for (uint32_t &flag : no_ip6_source_guard_vlan)
        flag = 1;
    EXPECT_EQ(get(), "1-4094");
}

TEST_F(MibExemptTest, TheConverterGetsAllVlansAndTheChunkLimit) {
    recordingShowQuiet(true);
    get();
    EXPECT_EQ(recordingTake(),
              (Lines{"ccdScalarValidate kind=2", "vidArray2vlanList count=0 first=0 last=0 end=0 chunk=110 zero=0"}));
    exemptEvery(everySecond(2, 2047));
    get();
    recordingShowQuiet(false);
    EXPECT_EQ(recordingTake(),
              (Lines{"ccdScalarValidate kind=2", "vidArray2vlanList count=2047 first=2 last=4094 end=0 chunk=110 zero=0"}));
}

// A number of four digits and its comma take 5 characters: 22 of them make a chunk of 110.
TEST_F(MibExemptTest, ChunksAreJoinedWhileTheyFit) {
    exemptEvery(everySecond(1000, 44));
    std::string expected;
    for (const uint32_t vlan : everySecond(1000, 44))
        expected += std::to_string(vlan) + ",";
    expected.pop_back();
    EXPECT_EQ(expected.size(), 219u);
    EXPECT_EQ(get(), expected);
}

TEST_F(MibExemptTest, AChunkThatDoesNotFitIsLeftOutAndAShorterOneBehindItTaken) {
    exemptEvery(everySecond(1000, 3 * 22 + 7));
    const std::string text = get();
    EXPECT_EQ(text.size(), 110u + 110 + 34);
    EXPECT_EQ(text.substr(215), "1086,1132,1134,1136,1138,1140,1142,1144");
}

TEST_F(MibExemptTest, AJoinedTextHasAtMost255Characters) {
    exemptEvery(everySecond(101, 4)); // these and 18 of four digits: 106
    exemptEvery(everySecond(1000, 18 + 22 + 8));
    EXPECT_EQ(get().size(), 106u + 110 + 39);
    no_ip6_source_guard_vlan[107] = 0; // one of three digits gives way to one of four: 107
    exempt({1096});
    EXPECT_EQ(get().size(), 107u + 110) << "a third chunk would make 256";
}

// The platform's chunks as bytes, 128 at most each and without an end.
TEST_F(MibExemptTest, ChunksNeedNoEnd) {
    exempt({10});
    recordingOddities.textsUnending = true;
    for (const uint32_t count : {1u, 2u, 3u, 410u, 411u, 0xFFFFFFFFu}) {
        recordingOddities.vlanTexts = count;
        EXPECT_EQ(get(), std::string(128, '7')) << "a second one would make 256 characters";
    }
}

TEST_F(MibExemptTest, WithoutMemoryThereIsNoText) {
    exempt({10});
    CcdVariable variable = variableAt(MIB_EXEMPT_VLANS, SCALAR);
    const CcdVariable asked = variable;
    recordingAllocationsBegin(1);
    const int32_t result = handle(CCD_GET, &variable);
    EXPECT_EQ(recordingAllocationsEnd(), 1u) << "one work area";
    EXPECT_EQ(result, -1);
    EXPECT_EQ(memcmp(&variable, &asked, sizeof asked), 0);
}

// ---- Test and commit ----------------------------------------------------------------------------------------------------

TEST_F(MibExemptTest, TestsTheLengthAlone) {
    EXPECT_EQ(mibTest(MIB_EXEMPT_VLANS, SCALAR, "no list at all"), "ok");
    EXPECT_EQ(mibTest(MIB_EXEMPT_VLANS, SCALAR, std::string(255, '1')), "ok");
    EXPECT_EQ(mibTest(MIB_EXEMPT_VLANS, SCALAR, std::string(256, '1')), "too big");
    EXPECT_EQ(mibTestLength(MIB_EXEMPT_VLANS, SCALAR, 0, 0xFFFFFFFF), "too big");
    EXPECT_EQ(recordingTake(), Lines{});
}

TEST_F(MibExemptTest, TheSetIsReplacedInAscendingOrder) {
    EXPECT_EQ(commit("20,10-12"), "ok");
    EXPECT_EQ(recordingTake(), joined({opened(10), opened(11), opened(12), opened(20)}));
    EXPECT_EQ(commit("5,12,30"), "ok");
    EXPECT_EQ(recordingTake(), joined({opened(5), closed(10), closed(11), closed(20), opened(30)}));
    EXPECT_EQ(exemptVlans(), (std::vector<uint32_t>{5, 12, 30}));
    EXPECT_EQ(no_ip6_source_guard_vlan[5], 1u);
    EXPECT_EQ(commit("5,12,30"), "ok");
    EXPECT_EQ(recordingTake(), Lines{});
    EXPECT_EQ(commit(""), "ok");
    EXPECT_EQ(recordingTake(), joined({closed(5), closed(12), closed(30)}));
    EXPECT_EQ(exemptVlans(), std::vector<uint32_t>{});
}

TEST_F(MibExemptTest, TheParserGetsTheLimitsOfAVlan) {
    recordingShowQuiet(true);
    commit("10");
    recordingShowQuiet(false);
    EXPECT_EQ(recordingTake()[1], "Str2ShortArray text=\"10\" max=4094 low=1 high=4094");
}

TEST_F(MibExemptTest, WhatTheParserAnswersIsTheResult) {
    exempt({10});
    recordingFailFunction("Str2ShortArray", 1);
    EXPECT_EQ(commit("20"), "result -7");
    for (const char *text : {"no list", "0", "4095", "1-", "5-3", "10;11"})
        EXPECT_EQ(commit(text), "result -1") << text;
    EXPECT_EQ(exemptVlans(), std::vector<uint32_t>{10});
    EXPECT_EQ(recordingTake(), Lines{});
}

TEST_F(MibExemptTest, AtMost128Vlans) {
    commit("4000");
    recordingTake();
    EXPECT_EQ(commit("1-129"), "result -1");
    EXPECT_EQ(commit("1-4094"), "result -1");
    EXPECT_EQ(exemptVlans(), std::vector<uint32_t>{4000});
    EXPECT_EQ(recordingTake(), Lines{});
    EXPECT_EQ(commit("1-128"), "ok");
    EXPECT_EQ(exemptVlans().size(), 128u);
    EXPECT_EQ(recordingTake().size(), 129u);
    EXPECT_EQ(commit("1-128,4094"), "result -1") << "VLAN 4094 counts, though it is never exempted";
}

TEST_F(MibExemptTest, Vlan4094IsNeverTouched) {
    EXPECT_EQ(commit("4093-4094"), "ok");
    EXPECT_EQ(recordingTake(), opened(4093));
    EXPECT_EQ(exemptVlans(), std::vector<uint32_t>{4093});
    exempt({4094});
    EXPECT_EQ(commit(""), "ok");
    EXPECT_EQ(recordingTake(), closed(4093));
    EXPECT_EQ(exemptVlans(), std::vector<uint32_t>{4094});
}

TEST_F(MibExemptTest, Vlan0IsTakenBackWhereverItsFlagCameFrom) {
    exempt({0, 4095});
    EXPECT_EQ(commit("1"), "ok");
    EXPECT_EQ(recordingTake(), joined({closed(0), opened(1)}));
    EXPECT_EQ(exemptVlans(), (std::vector<uint32_t>{1, 4095}));
}

TEST_F(MibExemptTest, TheFlagChangesBeforeTheCall) {
    std::vector<uint32_t> seen;
    for (const char *function :
         {"FRM_InstallGlobalForwardIp6VidOnlyFilterResource", "FRM_RemoveGlobalForwardIp6VidOnlyFilterResource"}) {
        recordingWhenCalled(function, [&seen]() { seen.push_back(no_ip6_source_guard_vlan[10]); });
        commit(seen.empty() ? "10" : "");
    }
    EXPECT_EQ(seen, (std::vector<uint32_t>{1, 0}));
}

TEST_F(MibExemptTest, TheLastCallsAnswerIsTheResultAndFlagsChangeAllTheSame) {
    recordingFilterStatus = -77;
    recordingFailFunction("FRM_InstallGlobalForwardIp6VidOnlyFilterResource", 1);
    EXPECT_EQ(commit("10,11"), "ok") << "the second call succeeds";
    EXPECT_EQ(exemptVlans(), (std::vector<uint32_t>{10, 11}));
    recordingFailFunction("FRM_InstallGlobalForwardIp6VidOnlyFilterResource", 1);
    EXPECT_EQ(commit("10-12"), "result -77");
    EXPECT_EQ(exemptVlans(), (std::vector<uint32_t>{10, 11, 12}));
    EXPECT_EQ(commit("10-12"), "ok") << "no call, no failure";
    recordingFailAlways("FRM_RemoveGlobalForwardIp6VidOnlyFilterResource");
    EXPECT_EQ(commit(""), "result -77");
    EXPECT_EQ(exemptVlans(), std::vector<uint32_t>{});
    EXPECT_EQ(commit("5"), "ok") << "a fresh call, that one succeeds";
}

TEST_F(MibExemptTest, ATextOf255CharactersIsReadWhole) {
    std::string text;
    while (text.size() < 252)
        text += "100,"; // each counts once
    EXPECT_EQ(commit(text + "777"), "ok");
    EXPECT_EQ(exemptVlans(), (std::vector<uint32_t>{100, 777}));
}

TEST_F(MibExemptTest, ATextTooLongIsRefusedWithoutATest) {
    for (const uint32_t length : {256u, 257u, 0xFFFFFFFFu}) {
        CcdVariable variable = variableOf(MIB_EXEMPT_VLANS, SCALAR, std::string(256, '1'));
        variable.length = length;
        EXPECT_EQ(handle(CCD_COMMIT, &variable), ccdErrorTooBig());
    }
    EXPECT_EQ(recordingTake(), Lines{});
}

TEST_F(MibExemptTest, TheTextEndsWhereItsLengthSays) {
    EXPECT_EQ(commit("1"), "ok") << "the digits behind it are garbage";
    EXPECT_EQ(exemptVlans(), std::vector<uint32_t>{1});
    EXPECT_EQ(commit(std::string("2\0,3", 4)), "ok") << "or at a 0";
    EXPECT_EQ(exemptVlans(), std::vector<uint32_t>{2});
}

} // namespace
