// The lines that make a running configuration again: whatever other managers have stored, they make that and nothing else.
#include <gtest/gtest.h>
#include <random>

#include "shell_configmodel.h"

#include "l2/dhcp6snooping/clients/limits.h"
#include "shell/idtemplate.h"
#include "shell/runningconfig.h"

namespace {

using Lines = std::vector<std::string>;

const InformationOption DEFAULT = modelOption(DHCP6_INFO_DEFAULT, "");

const std::string HEAD = "!!!DHCPv6 snooping\r\ndhcpv6-snooping\r\ninterface ethernet 0/1\r\nipv6-source-guard\r\n"
                         "dhcpv6-snooping max-clients 3\r\nquit\r\nvlan 10\r\ndhcpv6-snooping max-clients 5\r\nquit\r\n";

using Random = std::mt19937;

uint32_t below(Random *random, size_t limit) { return static_cast<uint32_t>((*random)() % limit); }

// Any bytes but NUL; most are those by which a text could pass for something else.
std::string randomText(Random *random, size_t longest) {
    const Lines pieces = {"\r\n",
                          "\n",
                          "\"",
                          "\\",
                          "\\n",
                          "\\x22",
                          "\\x00",
                          " ",
                          "!",
                          "#",
                          "?",
                          "x",
                          "\xff",
                          "\x1b[31m",
                          "\xc2\x9b",
                          "\xc3\xbc",
                          "{{",
                          "}",
                          "\"\r\nundo ipv6-source-guard vlan 1-4094\r\n!",
                          "\"\r\nipv6-source-guard bind ip 2001:db8::bad\r\n!",
                          "\"\r\ndhcpv6-snooping information option 37\r\n!",
                          "\"\r\ndhcpv6-snooping information remote-id string \"y",
                          "\"\r\nquit\r\n",
                          "string \"",
                          "<escaped>"};
    std::string text;
    for (auto left = below(random, 6); left > 0; left--) {
        const auto byte = static_cast<char>(1 + below(random, 255));
        const std::string piece =
            below(random, 4) == 0 ? std::string(1 + below(random, 3), byte) : pieces[below(random, pieces.size())];
        text += text.size() + piece.size() <= longest ? piece : "";
    }
    return text;
}

std::string randomTemplate(Random *random) {
    std::string text;
    for (auto left = below(random, 5); left > 0; left--) {
        std::string literal = randomText(random, 20);
        for (size_t at = 0; (at = literal.find('{', at)) != std::string::npos; at += 2) {
            literal.insert(at, "{");
        }
        const IdElement &element = idElements()[below(random, idElements().size())];
        text += text.size() + literal.size() <= 100 ? literal : "";
        text += below(random, 2) == 0 ? element.shown : "";
    }
    Dhcp6InfoIdTemplate record = {};
    std::string error;
    return idTemplateReadBytes(text, &record, &error) ? text : "{hostname}";
}

InformationOption randomOption(Random *random) {
    const auto enable = below(random, 3); // 2 is printed as on, and is off
    switch (below(random, 6)) {
    case 0: return modelOption(DHCP6_INFO_DEFAULT, "left over", enable);
    case 1: return modelOption(DHCP6_INFO_IPV4, randomText(random, 16), enable);
    case 2: return modelOption(DHCP6_INFO_IPV6, randomText(random, 16), enable);
    case 3: return modelTemplate(randomTemplate(random), enable);
    default: return modelOption(DHCP6_INFO_STRING, randomText(random, 79), enable);
    }
}

Binding randomBinding(Random *random, uint8_t number) {
    Binding binding = {.address = modelAddress("2001:db8::"), .mac = {}, .port = 0, .vlan = 0};
    binding.address[15] = number;
    if (below(random, 2) == 0) {
        binding.mac = {2, 0, 0, 0, 0, number};
    }
    binding.port = below(random, 3) == 0 ? 0 : 1 + below(random, DHCP6SNOOPING_PORTS);
    binding.vlan = below(random, 3) == 0 ? 0 : 1 + below(random, 4094);
    return binding;
}

ConfigValues randomValues(Random *random) {
    ConfigValues values = modelValues(randomOption(random), randomOption(random));
    for (uint32_t vlan = 1; vlan <= 4094; vlan += 1 + below(random, 500)) {
        values.exempt.push_back(vlan);
    }
    values.exempt.resize(below(random, 2) == 0 ? 0 : values.exempt.size());
    for (auto left = below(random, 5); left > 0; left--) {
        values.bindings.push_back(randomBinding(random, static_cast<uint8_t>(left)));
    }
    return values;
}

TEST(ShellExact, AnyConfigurationIsMadeAgain) {
    Random random(20250611);
    for (int round = 0; round < 2000; round++) {
        const ConfigValues values = randomValues(&random);
        const std::string head = below(&random, 4) == 0 ? "" : HEAD;
        ExactConfig config;
        ASSERT_TRUE(exactConfigMake(modelPrint(head, values), values, &config)) << round;
        EXPECT_EQ(config.missing, Lines{}) << round;
        modelExpect(modelReplay(exactConfigForReplay(config)), head, values);
        for (const std::string &line : exactConfigShown(config)) {
            EXPECT_EQ(textPrintable(line), line) << round;
        }
        ASSERT_FALSE(testing::Test::HasFailure()) << round << ":\n" << modelPrint(head, values);
    }
}

// Text and values of different moments, as a manager makes them who changes his strings again and again. Whatever comes of
// that, no line does anything that the values do not say.
TEST(ShellExact, TextOfAnotherMomentMakesNothingUp) {
    Random random(17);
    size_t taken = 0;
    for (int round = 0; round < 4000; round++) {
        ConfigValues before = randomValues(&random);
        ConfigValues after = before;
        const std::string text = randomText(&random, 79);
        before.information.interfaceId = modelOption(DHCP6_INFO_STRING, text, before.information.interfaceId.enable);
        // What the text would be if it ended at its first double quote.
        after.information.interfaceId =
            modelOption(DHCP6_INFO_STRING, text.substr(0, text.find('"')), before.information.interfaceId.enable);
        if (below(&random, 2) == 0) {
            after.information.remoteId = modelOption(DHCP6_INFO_STRING, "y");
            before.information.remoteId = DEFAULT;
        }
        if (below(&random, 2) == 0) {
            before.exempt.clear();
            before.bindings.clear();
        }
        ExactConfig config;
        if (exactConfigMake(modelPrint(HEAD, before), after, &config)) {
            taken++;
            modelExpect(modelReplay(exactConfigForReplay(config)), HEAD, after);
            ASSERT_FALSE(testing::Test::HasFailure()) << round;
        }
    }
    EXPECT_GT(taken, 100u) << "texts without a double quote, and such as happen to be the other's";
}

TEST(ShellExact, ForgedLinesAreNotTaken) {
    const ConfigValues honest = modelValues(modelOption(DHCP6_INFO_STRING, "x"), DEFAULT);
    for (const char *forged : {"x\"\r\nundo ipv6-source-guard vlan 1-4094\r\n!", "x\"\r\nundo ipv6-source-guard vlan 1-4094",
                               "x\"\r\nipv6-source-guard bind ip 2001:db8::1\r\n!", "x\"\r\ndhcpv6-snooping\r\n", "x\"\r\n"}) {
        ExactConfig config;
        EXPECT_FALSE(
            exactConfigMake(modelPrint(HEAD, modelValues(modelOption(DHCP6_INFO_STRING, forged), DEFAULT)), honest, &config));
    }
    // Two daemons that print the same: the lines are those of the one that was asked.
    const ConfigValues two = modelValues(modelOption(DHCP6_INFO_STRING, "x"), modelOption(DHCP6_INFO_STRING, "y"));
    const ConfigValues one =
        modelValues(modelOption(DHCP6_INFO_STRING, "x\"\r\ndhcpv6-snooping information remote-id string \"y"), DEFAULT);
    ASSERT_EQ(modelPrint(HEAD, one), modelPrint(HEAD, two));
    for (const ConfigValues &values : {one, two}) {
        ExactConfig config;
        ASSERT_TRUE(exactConfigMake(modelPrint(HEAD, one), values, &config));
        modelExpect(modelReplay(exactConfigForReplay(config)), HEAD, values);
    }
}

TEST(ShellExact, EveryPartOfTheTextCounts) {
    Random random(3);
    for (int round = 0; round < 300; round++) {
        const ConfigValues values = randomValues(&random);
        const std::string text = modelPrint("", values);
        ExactConfig config;
        ASSERT_TRUE(exactConfigMake(text, values, &config));
        EXPECT_FALSE(exactConfigMake(text + "!\r\n", values, &config));
        if (!text.empty()) {
            EXPECT_FALSE(exactConfigMake(text.substr(0, text.size() - 1), values, &config)) << text;
            EXPECT_FALSE(exactConfigMake(text.substr(0, below(&random, text.size())), values, &config)) << text;
        }
    }
}

} // namespace
