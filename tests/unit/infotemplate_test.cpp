// User-defined ids: every element in both forms, literals, bounds.

#include "l2/dhcp6snooping/infoopt/idtemplate.h"
#include "tests/unit/infoopt.h"

#include <cstdlib>

namespace {

constexpr uint32_t BINARY = 1, TEXT = 2;

struct Built {
    int32_t result;
    Bytes bytes;
};

struct InfoTemplateTest : InfoTest {
    void SetUp() override {
        InfoTest::SetUp();
        ctx = {.switchId = 77,
               .vlan = 10,
               .port = 2,
               .innerVlan = 300,
               .systemMac = {0x02, 0xAB, 0, 0, 0, 0xFE},
               .clientMac = {0x02, 0xCD, 0, 0, 0, 0x0A},
               .isXpon = 0,
               .ponValue = 201,
               .serialNumber = {'H', 'W', 'T', 'C', 0x01, 0x9F, 0xFF, 0x80},
               .ponId = 0x1234,
               .room = 0};
        recordingAddress(77, 10, 0xC0A80A01);
        recordingAddress(78, 4095, 0x0AFF0009);
        recordingPortNumbers(3, 5, 300, 4294967295);
    }
    // Into a block of exactly the space given.
    Built build(const Dhcp6InfoIdTemplate &idTemplate, uint32_t mode, uint32_t space) {
        auto *out = static_cast<uint8_t *>(malloc(space));
        const Dhcp6InfoContext before = ctx;
        uint32_t length = 0;
        dirtyStack();
        const int32_t result = dhcp6_info_template_build(&idTemplate, &ctx, mode, out, space, &length);
        EXPECT_TRUE(before.vlan == ctx.vlan && before.innerVlan == ctx.innerVlan && before.port == ctx.port) << "local copies";
        Built built = {result, {}};
        if (result == 0)
            built.bytes.assign(out, out + length);
        free(out);
        return built;
    }
    std::string text(const Dhcp6InfoIdTemplate &idTemplate) {
        const Built built = build(idTemplate, TEXT, 504);
        EXPECT_EQ(built.result, 0);
        return {built.bytes.begin(), built.bytes.end()};
    }
    Bytes binary(const Dhcp6InfoIdTemplate &idTemplate) {
        const Built built = build(idTemplate, BINARY, 504);
        EXPECT_EQ(built.result, 0);
        return built.bytes;
    }
    std::string element(uint32_t code, const std::string &vlan = "") { return text(TemplateWords().element(code, vlan).made); }
    Bytes binaryElement(uint32_t code, const std::string &vlan = "") {
        return binary(TemplateWords().element(code, vlan).made);
    }
};

TEST_F(InfoTemplateTest, EveryElementAsText) {
    const std::string expected[] = {"192.168.10.1", "switch", "0/3",  "ethernet",     "02ab000000fe", "5", "300", "0",
                                    "4294967295",   "0010",   "0300", "02CD0000000A", "0aff0009"};
    for (uint32_t code = 1; code <= 13; code++)
        EXPECT_EQ(element(code, "4095"), expected[code - 1]) << code;
    ctx.isXpon = 1;
    const std::string onXpon[] = {"201", "4660", "HWTC019fff80", "4660"};
    for (uint32_t code = 1; code <= 13; code++)
        EXPECT_EQ(element(code, "4095"), code == 4 ? "xpon" : expected[code - 1]) << code;
    for (uint32_t code = 14; code <= 17; code++)
        EXPECT_EQ(element(code), onXpon[code - 14]) << code;
}

TEST_F(InfoTemplateTest, EveryElementInBinary) {
    ctx.isXpon = 1;
    const Bytes expected[] = {{192, 168, 10, 1},
                              textBytes("switch"),
                              textBytes("0/3"),
                              textBytes("xpon"),
                              {0x02, 0xAB, 0, 0, 0, 0xFE},
                              {5},
                              {0x2C},
                              {0},
                              {0xFF},
                              {0, 10},
                              {0x01, 0x2C},
                              {0x02, 0xCD, 0, 0, 0, 0x0A},
                              {0x0A, 0xFF, 0x00, 0x09},
                              {201},
                              {0x34},
                              {'H', 'W', 'T', 'C', 0x01, 0x9F, 0xFF, 0x80},
                              {0x12, 0x34}};
    for (uint32_t code = 1; code <= 17; code++)
        EXPECT_EQ(binaryElement(code, "4095"), expected[code - 1]) << code;
    ctx.isXpon = 0;
    EXPECT_EQ(binaryElement(4), textBytes("ethernet"));
}

TEST_F(InfoTemplateTest, NumbersAtTheirEdges) {
    ctx.vlan = 4094;
    ctx.innerVlan = 7;
    EXPECT_EQ(text(TemplateWords().element(10).element(11).made), "40940007");
    ctx.isXpon = 1;
    ctx.ponValue = 0;
    ctx.ponId = 0x1FFF;
    EXPECT_EQ(text(TemplateWords().element(14).literal("-").element(15).literal("-").element(17).made), "0-8191-8191");
    EXPECT_EQ(binary(TemplateWords().element(14).element(15).element(17).made), (Bytes{0, 0xFF, 0x1F, 0xFF}));
    recordingPortNumbers(3, 0, 256, 1);
    EXPECT_EQ(text(TemplateWords().element(6).element(7).element(9).made), "02561");
    EXPECT_EQ(binary(TemplateWords().element(6).element(7).element(9).made), (Bytes{0, 0, 1}));
}

TEST_F(InfoTemplateTest, VendorCharactersThatAreMissingAreSpaces) {
    ctx.isXpon = 1;
    const uint8_t serial[8] = {0, 'B', 0, 0, 0, 0x0A, 0x80, 0xFF};
    std::copy(serial, serial + 8, ctx.serialNumber);
    EXPECT_EQ(element(16), " B  000a80ff");
    EXPECT_EQ(binaryElement(16), (Bytes{' ', 'B', ' ', ' ', 0, 0x0A, 0x80, 0xFF}));
    EXPECT_EQ(ctx.serialNumber[0], 0) << "the record keeps what it had";
}

TEST_F(InfoTemplateTest, ASingleTagIsTheInnerVlanUnlessOnXpon) {
    const Dhcp6InfoIdTemplate both = TemplateWords().element(10).literal(":").element(11).made;
    EXPECT_EQ(text(both), "0010:0300");
    ctx.innerVlan = 0;
    EXPECT_EQ(text(both), "0000:0010");
    EXPECT_EQ(binary(both), (Bytes{0, 0, ':', 0, 10}));
    ctx.isXpon = 1;
    EXPECT_EQ(text(both), "0010:0000");
    ctx.innerVlan = 300;
    EXPECT_EQ(text(both), "0010:0300");
}

TEST_F(InfoTemplateTest, LiteralsStandBehindTheirElements) {
    EXPECT_EQ(text(TemplateWords().made), "");
    EXPECT_EQ(text(TemplateWords().literal("only").made), "only");
    EXPECT_EQ(text(TemplateWords().element(8).made), "0");
    EXPECT_EQ(text(TemplateWords().literal("a").element(8).literal("b").element(8).element(8).literal("c").made), "a0b00c");
    EXPECT_EQ(binary(TemplateWords().literal("a").element(8).literal("b").made), (Bytes{'a', 0, 'b'}));
}

TEST_F(InfoTemplateTest, TheFirstZeroEndsTheListAndEntryZeroIsUnused) {
    Dhcp6InfoIdTemplate words = TemplateWords().literal("a").element(8).literal("b").element(0).literal("c").element(8).made;
    words.elementType[0] = 4;
    EXPECT_EQ(text(words), "a0b");
    words.elementType[1] = 0;
    EXPECT_EQ(text(words), "a");
}

TEST_F(InfoTemplateTest, AllSeventeenAndNoMore) {
    TemplateWords words;
    std::string expected;
    for (uint32_t k = 1; k <= 17; k++) {
        const std::string literal(1, static_cast<char>('a' + k));
        words.element(8).literal(literal);
        expected += "0" + literal;
    }
    EXPECT_EQ(text(words.made), expected);
}

TEST_F(InfoTemplateTest, XponElementsAreSkippedWithTheirLiterals) {
    for (uint32_t code = 13; code <= 18; code++) {
        const Dhcp6InfoIdTemplate words =
            TemplateWords().literal("<").element(code, "4095").literal("x").element(8).literal(">").made;
        ctx.isXpon = 0;
        EXPECT_EQ(text(words), code == 13 ? "<0aff0009x0>" : code == 18 ? "<x0>" : "<0>") << code;
        ctx.isXpon = 1;
        EXPECT_NE(text(words), "<0>") << code;
    }
}

TEST_F(InfoTemplateTest, AnUnknownElementHasNoValue) {
    for (const uint32_t code : {18u, 255u, 256u + 8, 0x10008u, 0xFFFFFFFFu})
        for (const uint32_t xpon : {0u, 1u}) {
            ctx.isXpon = xpon;
            EXPECT_EQ(text(TemplateWords().literal("<").element(code).literal("u").element(8).made), "<u0") << code;
            EXPECT_EQ(binary(TemplateWords().literal("<").element(code).literal("u").element(8).made),
                      together({textBytes("<u"), {0}}));
        }
}

TEST_F(InfoTemplateTest, TextsWithoutAnEndStopAtTheirField) {
    const std::string full(65, 'f');
    EXPECT_EQ(text(TemplateWords().literal(full).element(8).literal(full).element(8).literal(full).made),
              full + "0" + full + "0" + full);
    EXPECT_EQ(text(TemplateWords().literal(std::string(64, 'f')).element(8).made), std::string(64, 'f') + "0");
    TemplateWords last;
    for (uint32_t k = 1; k <= 17; k++)
        last.element(99);
    EXPECT_EQ(text(last.literal(full).made), full);
    EXPECT_EQ(element(13, std::string(29, '0') + "4095"), "0aff0009") << "33 digits";
    TemplateWords follows;
    follows.element(13, std::string(32, '0') + "4").element(13, "095");
    recordingAddress(4, 4, 0x04040404);
    recordingAddress(95, 95, 0x5F5F5F5F);
    EXPECT_EQ(text(follows.made), "040404045f5f5f5f") << "the next text is not part of the number";
}

TEST_F(InfoTemplateTest, AVlanTextThatIsNoVlanHasNoAddress) {
    recordingAddress(1, 1, 0x01010101);
    EXPECT_EQ(element(13, "1"), "01010101");
    EXPECT_EQ(element(13, "0001"), "01010101");
    EXPECT_EQ(element(13, "1x"), "01010101");
    EXPECT_EQ(element(13, "4095"), "0aff0009");
    for (const char *vlan :
         {"", "x", "0", "-1", "2", "4096", "65537", "4294967297", "18446744073709551617", "999999999999999999999999999999999"})
        EXPECT_EQ(element(13, vlan), "00000000") << vlan;
    EXPECT_EQ(binaryElement(13, "65537"), Bytes(4, 0));
}

TEST_F(InfoTemplateTest, VlanAndPortAreChecked) {
    const Dhcp6InfoIdTemplate words = TemplateWords().literal("l").made;
    struct Place {
        uint16_t vlan, port;
        int32_t result;
    };
    const Place places[] = {{0, 2, -1},     {1, 2, 0},   {4094, 2, 0}, {4095, 2, -1},   {4096, 2, -1},
                            {65535, 2, -1}, {10, 27, 0}, {10, 28, -1}, {10, 65534, -1}, {10, 65535, -1}};
    for (const Place &place : places) {
        ctx.vlan = place.vlan;
        ctx.port = place.port;
        recordingTake();
        EXPECT_EQ(build(words, TEXT, 504).result, place.result) << place.vlan << " " << place.port;
        EXPECT_EQ(recordingTake().size(), place.result == 0 ? 1u : 0u) << "refused before anything is asked";
    }
    gul_max_port_num = 3;
    ctx.vlan = 10;
    ctx.port = 2;
    EXPECT_EQ(build(words, TEXT, 504).result, 0);
    gul_max_port_num = 2;
    EXPECT_EQ(build(words, TEXT, 504).result, -1);
}

TEST_F(InfoTemplateTest, ThePlatformIsAskedInOrder) {
    recordingShowQuiet(true);
    TemplateWords words;
    for (const uint32_t code : {13u, 3u, 2u, 1u, 4u, 5u, 6u, 7u, 8u, 9u, 10u, 11u, 12u, 2u})
        words.element(code, code == 13 ? "4095" : "");
    text(words.made);
    EXPECT_EQ(recordingTake(),
              (Lines{"smdVDPortSnmpToUser port=3", "l3ifSwPrimIpGetByVid vid=4095", "transPort2EtherPort port=3",
                     "vosHostNameGet size=128", "l3ifSwPrimIpGet switch=77", "vosHostNameGet size=128"}));
    text(TemplateWords().made);
    EXPECT_EQ(recordingTake(), Lines{"smdVDPortSnmpToUser port=3"});
    EXPECT_EQ(build(TemplateWords().literal("long").made, TEXT, 3).result, -1);
    EXPECT_EQ(recordingTake(), Lines{}) << "the first literal comes before the question";
}

TEST_F(InfoTemplateTest, FailedQuestionsShowZeros) {
    recordingOddities.failuresLeaveOuts = true;
    const Dhcp6InfoIdTemplate all = TemplateWords()
                                        .element(1)
                                        .literal("|")
                                        .element(2)
                                        .literal("|")
                                        .element(6)
                                        .element(7)
                                        .element(9)
                                        .literal("|")
                                        .element(13, "4095")
                                        .made;
    const std::pair<const char *, const char *> failures[] = {
        {"l3ifSwPrimIpGet", "0.0.0.0|switch|53004294967295|0aff0009"},
        {"vosHostNameGet", "192.168.10.1||53004294967295|0aff0009"},
        {"smdVDPortSnmpToUser", "192.168.10.1|switch|000|0aff0009"},
        {"l3ifSwPrimIpGetByVid", "192.168.10.1|switch|53004294967295|00000000"}};
    for (const auto &[question, expected] : failures) {
        recordingFailAlways(question);
        EXPECT_EQ(text(all), expected);
        recordingFailNone();
    }
    EXPECT_EQ(text(all), "192.168.10.1|switch|53004294967295|0aff0009");
}

TEST_F(InfoTemplateTest, LongTextsOfThePlatformAreWhole) {
    recordingIdentity.hostName = std::string(127, 'h');
    recordingPortText(3, std::string(63, 'p'));
    EXPECT_EQ(text(TemplateWords().element(2).element(3).made), std::string(127, 'h') + std::string(63, 'p'));
    EXPECT_EQ(binaryElement(2), Bytes(127, 'h'));
    recordingIdentity.hostName = std::string(200, 'h');
    recordingOddities.hostNameUnending = true;
    EXPECT_EQ(element(2), std::string(127, 'h'));
}

// Every element and every literal exactly fills the space, and does not fit when one byte less is there.
TEST_F(InfoTemplateTest, ExactlyFillingTheSpaceIsAllowed) {
    ctx.isXpon = 1;
    for (const uint32_t mode : {BINARY, TEXT})
        for (uint32_t code = 1; code <= 18; code++)
            for (const std::string &before : {std::string(), std::string("before")})
                for (const std::string &behind : {std::string(), std::string("behind")}) {
                    const Dhcp6InfoIdTemplate words =
                        TemplateWords().literal(before).element(code, "4095").literal(behind).made;
                    const auto whole = static_cast<uint32_t>(build(words, mode, 504).bytes.size());
                    const Built exact = build(words, mode, whole);
                    EXPECT_EQ(exact.result, 0) << code;
                    EXPECT_EQ(exact.bytes.size(), whole);
                    for (uint32_t space = 0; space < whole; space++)
                        EXPECT_EQ(build(words, mode, space).result, -1) << code << " in " << space;
                }
}

} // namespace
