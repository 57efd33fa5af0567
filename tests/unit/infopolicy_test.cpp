// The record of what is added as options 18 and 37, and the calls that change and read it.

#include "tests/unit/infoopt.h"

#include <climits>
#include <cstdlib>
#include <cstring>

namespace {

constexpr uint32_t REFUSED = 0xFFFFFFFF;

// Both halves of the record as one shape; `which` as callers say it.
struct Half {
    int32_t which;
    uint32_t *type;
    uint8_t *value;
    Dhcp6InfoIdTemplate **idTemplate;
    uint32_t (*apply)();
    char *text;
    uint32_t *staged;
};

const Half HALVES[] = {{0, &dhcp6InfoOptionPolicy.remoteIdType, dhcp6InfoOptionPolicy.remoteIdValue,
                        &dhcp6InfoOptionPolicy.remoteIdTemplate, dhcp6_info_remote_id_apply, optionContent, &optionContentType},
                       {1, &dhcp6InfoOptionPolicy.interfaceIdType, dhcp6InfoOptionPolicy.interfaceIdValue,
                        &dhcp6InfoOptionPolicy.interfaceIdTemplate, dhcp6_info_interface_id_apply, optionInterface,
                        &optionInterfaceType}};

Bytes bytesAt(const void *record, size_t size) {
    const auto *bytes = static_cast<const uint8_t *>(record);
    return {bytes, bytes + size};
}
Bytes policyBytes() { return bytesAt(&dhcp6InfoOptionPolicy, sizeof dhcp6InfoOptionPolicy); }

// Calls the setter with a value in a block of its own size.
uint32_t setFrom(int32_t which, uint32_t type, const Bytes &value) {
    auto *block = static_cast<uint8_t *>(malloc(value.size()));
    memcpy(block, value.data(), value.size());
    const uint32_t result = dhcp6_info_id_set(which, type, block);
    free(block);
    return result;
}
Bytes ended(const std::string &text) { return together({textBytes(text), {0}}); }

struct InfoPolicyTest : InfoTest {
    Bytes before; // the record as expectOnly compares it
    Dhcp6InfoIdTemplate held = TemplateWords().literal("first").element(8).made;

    // Fills both value fields, so that what is left of them shows.
    void fill() {
        for (const Half &half : HALVES)
            memset(half.value, 0x70 + half.which, DHCP6_INFO_VALUE);
        before = policyBytes();
    }
    void holdTemplates() {
        useTemplate(OPTION_18, held);
        useTemplate(OPTION_37, held);
    }
    // Nothing changed but one half's type and the first bytes of its value.
    void expectOnly(const Half &half, uint32_t type, const Bytes &value) const {
        Bytes expected = before;
        const size_t start = half.which == 0 ? 8 : 108; // where the type stands; the value is behind it
        const auto type8 = static_cast<uint8_t>(type);
        const Bytes put = together({{type8, 0, 0, 0}, value});
        std::copy(put.begin(), put.end(), expected.begin() + static_cast<long>(start));
        EXPECT_EQ(policyBytes(), expected);
    }
};

TEST_F(InfoPolicyTest, EnablesAreStoredUnchecked) {
    for (const uint32_t enable : {1u, 0u, 2u, 0x80000000u, 0xFFFFFFFFu}) {
        before = policyBytes();
        EXPECT_EQ(dhcp6_info_option18_enable(enable), 0u);
        Bytes expected = before;
        memcpy(expected.data() + 104, &enable, 4);
        EXPECT_EQ(policyBytes(), expected);
        EXPECT_EQ(dhcp6_info_option37_enable(enable), 0u);
        memcpy(expected.data() + 4, &enable, 4);
        EXPECT_EQ(policyBytes(), expected);
    }
}

TEST_F(InfoPolicyTest, AddressesTakeTheFirstBytesOfTheValue) {
    for (const Half &half : HALVES) {
        fill();
        EXPECT_EQ(setFrom(half.which, 1, {192, 0, 2, 1}), 0u);
        expectOnly(half, 1, {192, 0, 2, 1});
        before = policyBytes();
        EXPECT_EQ(setFrom(half.which, 2, addressBytes("2001:db8::5")), 0u);
        expectOnly(half, 2, addressBytes("2001:db8::5"));
    }
}

TEST_F(InfoPolicyTest, TheDefaultKeepsTheValue) {
    for (const Half &half : HALVES) {
        fill();
        *half.type = 4;
        EXPECT_EQ(dhcp6_info_id_set(half.which, 3, nullptr), 0u);
        expectOnly(half, 3, {});
        EXPECT_EQ(setFrom(half.which, 3, {1}), 0u);
        expectOnly(half, 3, {});
        EXPECT_EQ(setFrom(half.which, 4, ended("new")), 0u);
        expectOnly(half, 4, ended("new"));
    }
}

TEST_F(InfoPolicyTest, TextsOfUpTo79Characters) {
    for (const Half &half : HALVES) {
        for (const size_t length : {0u, 1u, 78u, 79u}) {
            fill();
            const Bytes text = ended(std::string(length, 's'));
            EXPECT_EQ(setFrom(half.which, 4, text), 0u);
            expectOnly(half, 4, text);
        }
        for (const size_t length : {80u, 81u, 128u, 300u}) {
            fill();
            *half.type = 2;
            before = policyBytes();
            EXPECT_EQ(setFrom(half.which, 4, Bytes(length, 's')), REFUSED) << "no end within the field";
            EXPECT_EQ(policyBytes(), before);
        }
        EXPECT_EQ(setFrom(half.which, 4, ended(std::string(80, 's'))), REFUSED);
        EXPECT_EQ(policyBytes(), before);
    }
}

TEST_F(InfoPolicyTest, ATemplateIsCopiedWhole) {
    for (const Half &half : HALVES) {
        fill();
        Bytes value(sizeof(Dhcp6InfoIdTemplate));
        for (size_t i = 0; i < value.size(); i++)
            value[i] = static_cast<uint8_t>(i * 7 + 1); // texts without an end, element types that do not exist
        EXPECT_EQ(setFrom(half.which, 5, value), 0u);
        ASSERT_NE(*half.idTemplate, nullptr);
        EXPECT_EQ(bytesAt(*half.idTemplate, value.size()), value);
        EXPECT_EQ(*half.type, 5u);
        EXPECT_EQ(bytesAt(half.value, 80), Bytes(80, static_cast<uint8_t>(0x70 + half.which)));
        EXPECT_EQ(setFrom(half.which, 5, bytesAt(&held, sizeof held)), 0u);
        EXPECT_EQ(bytesAt(*half.idTemplate, sizeof held), bytesAt(&held, sizeof held))
            << "the second takes the first one's place";
    }
}

TEST_F(InfoPolicyTest, EverySettingGivesUpTheTemplateFirst) {
    struct Setting {
        uint32_t type;
        bool hasValue;
        uint32_t result;
        uint32_t typeAfter;
    };
    const Setting settings[] = {
        {1, true, 0, 1},        {2, true, 0, 2},        {3, true, 0, 3},       {4, true, 0, 4},
        {0, true, REFUSED, 5},  {6, true, REFUSED, 5},  {9, true, REFUSED, 5}, {0xFFFFFFFF, true, REFUSED, 5},
        {1, false, REFUSED, 5}, {2, false, REFUSED, 5}, {3, false, 0, 3},      {4, false, REFUSED, 5},
        {5, false, REFUSED, 5}, {9, false, REFUSED, 5}};
    const Bytes value(2000, 0);
    for (const Half &half : HALVES) {
        for (const Setting &setting : settings) {
            holdTemplates();
            fill();
            EXPECT_EQ(dhcp6_info_id_set(half.which, setting.type, setting.hasValue ? value.data() : nullptr), setting.result);
            EXPECT_EQ(*half.idTemplate, nullptr) << setting.type;
            EXPECT_EQ(*half.type, setting.typeAfter) << setting.type;
            const Half &other = HALVES[1 - half.which];
            ASSERT_NE(*other.idTemplate, nullptr);
            EXPECT_EQ(bytesAt(*other.idTemplate, sizeof held), bytesAt(&held, sizeof held));
            if (setting.result == REFUSED) {
                EXPECT_EQ(bytesAt(half.value, 80), Bytes(80, static_cast<uint8_t>(0x70 + half.which)));
            }
        }
        holdTemplates();
        EXPECT_EQ(setFrom(half.which, 4, Bytes(80, 's')), REFUSED);
        EXPECT_EQ(*half.idTemplate, nullptr) << "a text that is too long gives it up as well";
        EXPECT_EQ(*half.type, 5u);
    }
}

TEST_F(InfoPolicyTest, WithoutMemoryTheTemplateIsGoneAndTheTypeStays) {
    for (const Half &half : HALVES) {
        for (const uint32_t type : {4u, 5u}) {
            useTemplate(half.which == 0 ? OPTION_37 : OPTION_18, held);
            *half.type = type;
            recordingAllocationsBegin(1);
            EXPECT_EQ(dhcp6_info_id_set(half.which, 5, &held), REFUSED);
            EXPECT_EQ(recordingAllocationsEnd(), 1u);
            EXPECT_EQ(*half.idTemplate, nullptr);
            EXPECT_EQ(*half.type, type);
            EXPECT_EQ(dhcp6_info_id_set(half.which, 9, &held), REFUSED) << "nothing is freed twice";
        }
    }
}

TEST_F(InfoPolicyTest, AnyOtherHalfIsRefusedUntouched) {
    holdTemplates();
    fill();
    for (const int32_t which : {2, 3, -1, 37, 18, INT_MIN, INT_MAX})
        for (const uint32_t type : {1u, 3u, 4u, 5u, 9u})
            EXPECT_EQ(dhcp6_info_id_set(which, type, &held), REFUSED) << which;
    EXPECT_EQ(policyBytes(), before);
    EXPECT_EQ(bytesAt(dhcp6InfoOptionPolicy.remoteIdTemplate, sizeof held), bytesAt(&held, sizeof held));
    EXPECT_EQ(bytesAt(dhcp6InfoOptionPolicy.interfaceIdTemplate, sizeof held), bytesAt(&held, sizeof held));
}

TEST_F(InfoPolicyTest, GetCopiesTheRecordAndTheTemplatesThatAreHeld) {
    const auto filled = [](uint8_t byte) {
        Dhcp6InfoIdTemplate made;
        memset(&made, byte, sizeof made);
        return made;
    };
    const Dhcp6InfoIdTemplate of18 = filled(0x18), of37 = filled(0x37), untouched = filled(0xEE);
    const auto same = [](const Dhcp6InfoIdTemplate &a, const Dhcp6InfoIdTemplate &b) { return memcmp(&a, &b, sizeof a) == 0; };
    for (uint32_t kept = 0; kept < 4; kept++) {
        resetInfoPolicy();
        if ((kept & 1) != 0)
            useTemplate(OPTION_18, of18);
        if ((kept & 2) != 0)
            useTemplate(OPTION_37, of37);
        fill();
        Dhcp6InfoOptionPolicy policy = {};
        Dhcp6InfoIdTemplate second = untouched, third = untouched;
        EXPECT_EQ(dhcp6_info_get(&policy, &second, &third), 0u);
        EXPECT_EQ(bytesAt(&policy, sizeof policy), before) << "pointers are copied as they are";
        EXPECT_TRUE(same(second, (kept & 1) != 0 ? of18 : untouched));
        EXPECT_TRUE(same(third, (kept & 2) != 0 ? of37 : untouched));
        EXPECT_EQ(policyBytes(), before);
    }
}

TEST_F(InfoPolicyTest, GetWithoutADestinationCopiesNothing) {
    holdTemplates();
    Dhcp6InfoOptionPolicy policy;
    Dhcp6InfoIdTemplate second, third;
    memset(&policy, 0xEE, sizeof policy);
    memset(&second, 0xEE, sizeof second);
    memset(&third, 0xEE, sizeof third);
    EXPECT_EQ(dhcp6_info_get(nullptr, &second, &third), REFUSED);
    EXPECT_EQ(dhcp6_info_get(&policy, nullptr, &third), REFUSED);
    EXPECT_EQ(dhcp6_info_get(&policy, &second, nullptr), REFUSED);
    EXPECT_EQ(bytesAt(&policy, sizeof policy), Bytes(sizeof policy, 0xEE));
    EXPECT_EQ(bytesAt(&second, sizeof second), Bytes(sizeof second, 0xEE));
    EXPECT_EQ(bytesAt(&third, sizeof third), Bytes(sizeof third, 0xEE));
}

struct InfoApplyTest : InfoPolicyTest {
    // Stages a text (as it lies in memory) and a type for one half, and applies it.
    void apply(const Half &half, uint32_t type, const std::string &text) {
        fill();
        *half.type = 7; // shows whether it was set
        before = policyBytes();
        memset(half.text, 0, 128);
        memcpy(half.text, text.data(), std::min<size_t>(text.size(), 128));
        *half.staged = type;
        EXPECT_EQ(half.apply(), 0u);
    }
    void expectApplied(uint32_t type, const std::string &text, const Bytes &value) {
        for (const Half &half : HALVES) {
            apply(half, type, text);
            expectOnly(half, type, value);
        }
    }
    void expectNothing(uint32_t type, const std::string &text) {
        for (const Half &half : HALVES) {
            apply(half, type, text);
            EXPECT_EQ(policyBytes(), before) << type << " \"" << text << "\"";
        }
    }
};

TEST_F(InfoApplyTest, ValidTextsAreTaken) {
    expectApplied(1, "192.0.2.255", {192, 0, 2, 255});
    expectApplied(1, "0.0.0.0", {0, 0, 0, 0});
    expectApplied(2, "2001:db8::5", addressBytes("2001:db8::5"));
    expectApplied(2, "2001:db8::5/64", addressBytes("2001:db8::5"));
    expectApplied(2, "::", Bytes(16, 0));
    expectApplied(3, "", {});
    expectApplied(3, "a text that nobody reads", {});
    expectApplied(4, "s", ended("s"));
    expectApplied(4, std::string(64, 's'), ended(std::string(64, 's')));
    expectApplied(4, std::string(79, 's'), ended(std::string(79, 's')));
}

TEST_F(InfoApplyTest, OtherTextsAndTypesChangeNothing) {
    for (const char *text : {"", "192.0.2", "192.0.2.256", "192.0.2.1.1", "192.0.2.1 ", " 192.0.2.1", "1.2.3.x", "2001:db8::5"})
        expectNothing(1, text);
    for (const char *text : {"", "192.0.2.1", "2001:db8::5::", "1::2::3", "g::"})
        expectNothing(2, text);
    expectNothing(4, "");
    for (const size_t length : {80u, 81u, 127u, 128u})
        expectNothing(4, std::string(length, 's'));
    for (const uint32_t type : {0u, 5u, 6u, 0x80000000u, 0xFFFFFFFFu})
        expectNothing(type, "192.0.2.1");
}

TEST_F(InfoApplyTest, StagedTextsWithoutAnEndAreBounded) {
    const std::string all(128, '1');
    for (const uint32_t type : {1u, 2u, 4u})
        expectNothing(type, all);
    expectApplied(3, all, {});
}

TEST_F(InfoApplyTest, AnAddressIsReadAgainAsFourNumbers) {
    recordingOddities.anyTextIsIpAddress = true;
    expectApplied(1, "300.1.-1.65537", {44, 1, 255, 1});
    expectApplied(1, "1.2.3.4 and more", {1, 2, 3, 4});
    for (const char *text : {"", "1", "1.2", "1.2.3", "1.2.3.", "x.2.3.4", "1.2,3.4"})
        expectNothing(1, text);
}

TEST_F(InfoApplyTest, AHeldTemplateStays) {
    for (const Half &half : HALVES) {
        holdTemplates();
        const Dhcp6InfoIdTemplate *kept = *half.idTemplate;
        for (const uint32_t type : {3u, 4u, 2u, 1u, 0u, 5u}) {
            apply(half, type, type == 1 ? "1.2.3.4" : "::1");
            EXPECT_EQ(*half.idTemplate, kept);
            EXPECT_EQ(bytesAt(kept, sizeof held), bytesAt(&held, sizeof held));
            EXPECT_EQ(*half.type, type == 0 || type == 5 ? 7 : type);
        }
    }
}

TEST_F(InfoApplyTest, EachHalfHasItsOwnStage) {
    strcpy(optionContent, "remote");
    optionContentType = 4;
    strcpy(optionInterface, "::7");
    optionInterfaceType = 2;
    EXPECT_EQ(dhcp6_info_remote_id_apply(), 0u);
    EXPECT_EQ(dhcp6InfoOptionPolicy.remoteIdType, 4u);
    EXPECT_EQ(dhcp6InfoOptionPolicy.interfaceIdType, 3u);
    EXPECT_EQ(dhcp6_info_interface_id_apply(), 0u);
    EXPECT_EQ(dhcp6InfoOptionPolicy.interfaceIdType, 2u);
    EXPECT_STREQ(reinterpret_cast<char *>(dhcp6InfoOptionPolicy.remoteIdValue), "remote");
    EXPECT_EQ(bytesAt(dhcp6InfoOptionPolicy.interfaceIdValue, 16), addressBytes("::7"));
    EXPECT_STREQ(optionContent, "remote") << "what is staged stays staged";
}

} // namespace
