// What stands in options 18 and 37, by the type of the id: read out of messages of which the client sent nothing but the type.

#include "tests/unit/infoopt.h"

#include <cstring>

namespace {

struct InfoContentTest : InfoTest {
    // The one option in a message that had none.
    Bytes added(uint8_t code) {
        enableOptions({code});
        const Processed made = processed({}, 512);
        EXPECT_EQ(made.result, 0);
        return Bytes(made.message.begin() + 4, made.message.end());
    }
    void expectBoth(const Bytes &content) {
        EXPECT_EQ(added(OPTION_18), optionBytes(OPTION_18, content));
        EXPECT_EQ(added(OPTION_37), remoteIdBytes(content));
    }
    void setBoth(uint32_t type, const void *value) {
        EXPECT_EQ(dhcp6_info_id_set(0, type, value), 0u);
        EXPECT_EQ(dhcp6_info_id_set(1, type, value), 0u);
    }
};

TEST_F(InfoContentTest, Addresses) {
    const uint8_t ip4[] = {192, 0, 2, 1};
    setBoth(1, ip4);
    EXPECT_EQ(added(OPTION_18), hexBytes("0012 0004 c0000201"));
    EXPECT_EQ(added(OPTION_37), hexBytes("0025 0008 0000b80f c0000201"));
    setBoth(2, addressBytes("2001:db8::5").data());
    EXPECT_EQ(added(OPTION_18), hexBytes("0012 0010 20010db8 00000000 00000000 00000005"));
    EXPECT_EQ(added(OPTION_37), hexBytes("0025 0014 0000b80f 20010db8 00000000 00000000 00000005"));
}

TEST_F(InfoContentTest, TheDefaultIsPortAndHostName) {
    EXPECT_EQ(added(OPTION_18), hexBytes("0012 0008 00 01 737769746368"));
    EXPECT_EQ(added(OPTION_37), hexBytes("0025 000c 0000b80f 00 01 737769746368"));
    struct Port {
        uint16_t index;
        uint8_t byte;
    };
    const Port ports[] = {{0, 1}, {27, 28}, {254, 255}, {255, 0}, {256, 1}, {65534, 0xFF}, {65535, 0}};
    for (const Port &port : ports) {
        ctx.port = port.index;
        expectBoth(together({{0, port.byte}, textBytes("switch")}));
    }
}

TEST_F(InfoContentTest, HostNamesOfEveryLength) {
    for (const size_t length : {0u, 1u, 126u, 127u, 128u, 200u}) {
        recordingIdentity.hostName = std::string(length, 'h');
        for (const bool unending : {false, true}) {
            recordingOddities.hostNameUnending = unending;
            expectBoth(together({{0, 1}, Bytes(std::min<size_t>(length, 127), 'h')}));
        }
    }
}

TEST_F(InfoContentTest, TextsWithoutTheirEnd) {
    for (const size_t length : {0u, 1u, 78u, 79u}) {
        setBoth(4, std::string(length, 's').c_str());
        expectBoth(Bytes(length, 's'));
    }
    EXPECT_EQ(dhcp6_info_id_set(1, 4, ""), 0u);
    EXPECT_EQ(added(OPTION_18), hexBytes("0012 0000")) << "an empty text is an empty option";
}

TEST_F(InfoContentTest, ATextThatFillsItsFieldEndsThere) {
    useTemplate(OPTION_18, templateOfLength(1)); // what lies behind the field is not zero
    useTemplate(OPTION_37, templateOfLength(1));
    memset(dhcp6InfoOptionPolicy.interfaceIdValue, 's', 80);
    memset(dhcp6InfoOptionPolicy.remoteIdValue, 's', 80);
    dhcp6InfoOptionPolicy.interfaceIdType = 4;
    dhcp6InfoOptionPolicy.remoteIdType = 4;
    expectBoth(Bytes(80, 's'));
}

TEST_F(InfoContentTest, OnlyTheTypeDecidesWhatIsUsed) {
    setBoth(4, "a text that is longer than an address");
    const uint8_t ip4[] = {192, 0, 2, 1};
    setBoth(1, ip4);
    expectBoth({192, 0, 2, 1});
    setBoth(3, nullptr);
    expectBoth(together({{0, 1}, textBytes("switch")}));
}

TEST_F(InfoContentTest, WithoutATemplateItIsTheSystemMac) {
    recordingIdentity.systemMac = {0x02, 0xAB, 0x00, 0xCD, 0x0E, 0xFF};
    dhcp6InfoOptionPolicy.interfaceIdType = 5;
    dhcp6InfoOptionPolicy.remoteIdType = 5;
    EXPECT_EQ(added(OPTION_18), hexBytes("0012 000c 303261623030636430656666"));
    EXPECT_EQ(added(OPTION_37), hexBytes("0025 0010 0000b80f 303261623030636430656666"));
    useTemplate(OPTION_18, TemplateWords().made);
    EXPECT_EQ(dhcp6_info_id_set(1, 9, nullptr), 0xFFFFFFFFu);
    EXPECT_EQ(added(OPTION_18), hexBytes("0012 000c 303261623030636430656666")) << "the template was given up";
}

TEST_F(InfoContentTest, AnUnknownTypeIsEmptyAndStillThere) {
    memset(dhcp6InfoOptionPolicy.interfaceIdValue, 's', 80);
    memset(dhcp6InfoOptionPolicy.remoteIdValue, 's', 80);
    for (const uint32_t type : {0u, 6u, 0x80000004u, 0xFFFFFFFFu}) {
        dhcp6InfoOptionPolicy.interfaceIdType = type;
        dhcp6InfoOptionPolicy.remoteIdType = type;
        EXPECT_EQ(added(OPTION_18), hexBytes("0012 0000"));
        EXPECT_EQ(added(OPTION_37), hexBytes("0025 0004 0000b80f"));
    }
}

TEST_F(InfoContentTest, TheEnterpriseNumberAndTheSellerWithoutOne) {
    recordingIdentity.enterprise = 0x89ABCDEF;
    useString(OPTION_37, "r");
    EXPECT_EQ(added(OPTION_37), hexBytes("0025 0005 89abcdef 72"));
    for (const char *seller : {"quorve", "quorvels", "Quorvel"}) {
        recordingIdentity.seller = seller;
        EXPECT_EQ(added(OPTION_37), hexBytes("0025 0005 89abcdef 72")) << seller;
    }
    recordingIdentity.seller = "quorvel";
    EXPECT_EQ(added(OPTION_37), hexBytes("0025 0005 00000000 72"));
    useString(OPTION_18, "i");
    EXPECT_EQ(added(OPTION_18), hexBytes("0012 0001 69")) << "option 18 has no such number";
}

TEST_F(InfoContentTest, EachOptionHasItsOwnTemplate) {
    ctx.port = 2;
    useTemplate(OPTION_18, TemplateWords().literal("i:").element(3).literal(":").element(5).made);
    useTemplate(OPTION_37, TemplateWords().literal("r:").element(11).made);
    EXPECT_EQ(added(OPTION_18), optionBytes(OPTION_18, textBytes("i:0/3:0200000000fe")));
    EXPECT_EQ(added(OPTION_37), remoteIdBytes(textBytes("r:0010")));
}

// 512 bytes with everything in front of the text: 508 are left for option 18, 504 for option 37.
TEST_F(InfoContentTest, ATemplateMayFillTheOption) {
    useTemplate(OPTION_18, templateOfLength(508));
    useTemplate(OPTION_37, templateOfLength(504));
    const Bytes of18 = added(OPTION_18), of37 = added(OPTION_37);
    EXPECT_EQ(of18.size(), 512u);
    EXPECT_EQ(of37.size(), 512u);
    EXPECT_EQ(Bytes(of18.begin(), of18.begin() + 4), hexBytes("0012 01fc"));
    EXPECT_EQ(Bytes(of37.begin(), of37.begin() + 8), hexBytes("0025 01fc 0000b80f"));
    EXPECT_EQ(std::string(of18.begin() + 4, of18.begin() + 4 + 66), std::string(64, 'L') + "0L");
    EXPECT_EQ(recordingTraces, Lines{});
}

TEST_F(InfoContentTest, ATemplateThatDoesNotFitIsLeftOut) {
    useTemplate(OPTION_18, templateOfLength(509));
    useTemplate(OPTION_37, templateOfLength(505));
    EXPECT_EQ(added(OPTION_18), Bytes{});
    EXPECT_EQ(recordingTraces, Lines{SAID_NO_INTERFACE_ID});
    recordingTraces.clear();
    EXPECT_EQ(added(OPTION_37), Bytes{});
    EXPECT_EQ(recordingTraces, Lines{SAID_NO_REMOTE_ID});
}

TEST_F(InfoContentTest, ATemplateOfNoPlaceIsLeftOut) {
    useTemplate(OPTION_18, templateOfLength(1));
    for (const uint16_t vlan : std::initializer_list<uint16_t>{0, 4095}) {
        ctx.vlan = vlan;
        EXPECT_EQ(added(OPTION_18), Bytes{});
    }
    ctx.vlan = 10;
    ctx.port = 28;
    EXPECT_EQ(added(OPTION_18), Bytes{});
    EXPECT_EQ(recordingTraces, Lines(3, SAID_NO_INTERFACE_ID));
    dhcp6InfoOptionPolicy.interfaceIdType = 3;
    EXPECT_EQ(added(OPTION_18), hexBytes("0012 0008 00 1d 737769746368")) << "the other types do not ask";
}

TEST_F(InfoContentTest, FailedQuestionsLeaveZeros) {
    recordingOddities.failuresLeaveOuts = true;
    recordingFailAlways("vosHostNameGet");
    expectBoth({0, 1});
    recordingFailAlways("getSysMacAdress");
    dhcp6InfoOptionPolicy.interfaceIdType = 5;
    dhcp6InfoOptionPolicy.remoteIdType = 5;
    expectBoth(textBytes("000000000000"));
}

} // namespace
