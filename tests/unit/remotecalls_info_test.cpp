// The remote calls about options 18 and 37, as messages.

#include "l2/dhcp6snooping/main/Dhcp6Snooping.h"
#include "l2/dhcp6snooping/mgmt/remotecalls.h"
#include "tests/unit/infoopt.h"
#include "tests/unit/remote.h"

#include <cstring>

namespace {

constexpr int32_t REFUSED = -1;

struct RemoteCallsInfoTest : InfoTest {
    void SetUp() override {
        InfoTest::SetUp();
        EXPECT_EQ(dhcp6snoopingRmWrapFunction(), 0);
    }
};

Bytes templateBytes(const Dhcp6InfoIdTemplate &idTemplate) {
    Bytes bytes(sizeof idTemplate);
    memcpy(bytes.data(), &idTemplate, sizeof idTemplate);
    return bytes;
}

TEST_F(RemoteCallsInfoTest, Enables) {
    EXPECT_EQ(call(30, {u32(1)}), 0);
    EXPECT_EQ(dhcp6InfoOptionPolicy.option18Enable, 1u);
    EXPECT_EQ(dhcp6InfoOptionPolicy.option37Enable, 0u);
    EXPECT_EQ(call(31, {u32(0x80000001)}), 0);
    EXPECT_EQ(dhcp6InfoOptionPolicy.option37Enable, 0x80000001u);
    EXPECT_EQ(dhcp6InfoOptionPolicy.option18Enable, 1u);
    EXPECT_EQ(call(30, {u32(0), u32(0)}), -1001);
    EXPECT_EQ(dhcp6InfoOptionPolicy.option18Enable, 1u);
}

TEST_F(RemoteCallsInfoTest, IdsByHalf) {
    EXPECT_EQ(call(32, {u32(0), u32(1), {192, 0, 2, 1}}), 0);
    EXPECT_EQ(call(32, {u32(1), u32(4), textBytes("text")}), 0) << "an argument is followed by zeros";
    EXPECT_EQ(dhcp6InfoOptionPolicy.remoteIdType, 1u);
    EXPECT_EQ(memcmp(dhcp6InfoOptionPolicy.remoteIdValue, "\xC0\x00\x02\x01", 4), 0);
    EXPECT_EQ(dhcp6InfoOptionPolicy.interfaceIdType, 4u);
    EXPECT_STREQ(reinterpret_cast<const char *>(dhcp6InfoOptionPolicy.interfaceIdValue), "text");
    EXPECT_EQ(call(32, {u32(1), u32(2), {}}), 0) << "of nothing, zeros are read";
    EXPECT_EQ(Bytes(dhcp6InfoOptionPolicy.interfaceIdValue, dhcp6InfoOptionPolicy.interfaceIdValue + 16), Bytes(16, 0));
    EXPECT_EQ(call(32, {u32(0), u32(4), Bytes(80, 's')}), REFUSED);
    EXPECT_EQ(call(32, {u32(0), u32(4), Bytes(4096, 's')}), REFUSED) << "a text that fills its argument";
    for (const uint32_t which : {2u, 18u, 37u, 0xFFFFFFFFu})
        EXPECT_EQ(call(32, {u32(which), u32(3), {}}), REFUSED);
    EXPECT_EQ(call(32, {u32(0), u32(9), {}}), REFUSED);
    EXPECT_EQ(dhcp6InfoOptionPolicy.remoteIdType, 1u);
    EXPECT_EQ(dhcp6InfoOptionPolicy.interfaceIdType, 2u);
}

TEST_F(RemoteCallsInfoTest, ATypeThatNeedsNoValueTakesNone) {
    uint32_t which = 0, type = 3;
    dhcp6InfoOptionPolicy.remoteIdType = 1;
    SmdRmArg arguments[] = {{.length = 4, .data = &which}, {.length = 4, .data = &type}, {.length = 0, .data = nullptr}};
    EXPECT_EQ(recordingRemoteFunction(32)(nullptr, arguments, 3), 0);
    EXPECT_EQ(dhcp6InfoOptionPolicy.remoteIdType, 3u);
    type = 1;
    EXPECT_EQ(recordingRemoteFunction(32)(nullptr, arguments, 3), REFUSED);
}

TEST_F(RemoteCallsInfoTest, TemplatesGoInAndComeOut) {
    const Bytes of18 = templateBytes(TemplateWords().literal("eighteen").element(3).made);
    const Bytes of37 = templateBytes(TemplateWords().literal("thirtyseven").element(13, "10").made);
    EXPECT_EQ(call(32, {u32(1), u32(5), of18}), 0);
    std::vector<Bytes> arguments = {Bytes(200, 0xEE), Bytes(1968, 0xEE), Bytes(1968, 0xEE)};
    EXPECT_EQ(call(33, &arguments), 0);
    EXPECT_EQ(arguments[0].size(), 200u);
    EXPECT_EQ(memcmp(arguments[0].data(), &dhcp6InfoOptionPolicy, 200), 0);
    EXPECT_EQ(arguments[1], of18);
    EXPECT_EQ(arguments[2], Bytes(1968, 0xEE)) << "no template is held";
    EXPECT_EQ(call(32, {u32(0), u32(5), of37}), 0);
    EXPECT_EQ(call(33, &arguments), 0);
    EXPECT_EQ(arguments[1], of18);
    EXPECT_EQ(arguments[2], of37);
    EXPECT_EQ(call(32, {u32(1), u32(5), {'x'}}), 0) << "the rest of a short template is zero";
    EXPECT_STREQ(dhcp6InfoOptionPolicy.interfaceIdTemplate->text, "x");
    EXPECT_EQ(dhcp6InfoOptionPolicy.interfaceIdTemplate->elementType[1], 0u);
}

TEST_F(RemoteCallsInfoTest, AFreshStartIsAllOffWithDefaults) {
    std::vector<Bytes> arguments = {Bytes(200, 0xEE), {}, {}};
    EXPECT_EQ(call(33, &arguments), 0);
    Bytes expected(200, 0);
    expected[0] = expected[8] = expected[108] = 3;
    EXPECT_EQ(arguments[0], expected);
}

} // namespace
