// Reports: how they look to people and to programs, and that both say the same.
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "shell/report.h"

namespace {

Report sample() {
    Report report;
    reportFact(&report, "on", "Switched on", valueOnOff(true));
    reportFact(&report, "name", "Name", valueText("br0"));
    reportTable(&report, "rows", "Nothing here.", {{"id", "ID"}, {"word", "A WORD"}});
    reportSubTable(&report, "parts", {{"left", "LEFT"}, {"seconds", "TIME"}});
    reportRow(&report, {valueNumber(5), valueText("five")});
    reportSubRow(&report, {valueNumber(1), valueDuration(90)});
    reportSubRow(&report, {valueNumber(1000), valueDuration(3600)});
    reportRow(&report, {valueNumber(12345), valueNothing()});
    return report;
}

TEST(ShellReport, PeopleSeeAlignedColumns) {
    EXPECT_EQ(reportText(sample()), "Switched on  on\n"
                                    "Name         br0\n"
                                    "\n"
                                    "   ID  A WORD  LEFT  TIME\n"
                                    "    5  five       1  1m30s\n"
                                    "               1000  1h\n"
                                    "12345  -          -  -\n");
}

TEST(ShellReport, ProgramsSeeValues) {
    const nlohmann::json expected = nlohmann::json::parse(
        R"({"on": true, "name": "br0", "rows": [
            {"id": 5, "word": "five", "parts": [{"left": 1, "seconds": 90}, {"left": 1000, "seconds": 3600}]},
            {"id": 12345, "word": null, "parts": []}]})");
    EXPECT_EQ(nlohmann::json::parse(reportJson(sample())), expected);
}

TEST(ShellReport, AnEmptyTableSaysSoInWords) {
    Report report;
    reportTable(&report, "rows", "Nothing here.", {{"id", "ID"}});
    EXPECT_EQ(reportText(report), "Nothing here.\n");
    EXPECT_EQ(reportJson(report), "{\n  \"rows\": []\n}\n");
}

TEST(ShellReport, HostileTextStaysText) {
    Report report;
    reportFact(&report, "name", "Name", valueText("\x1b[31m\xff\""));
    EXPECT_EQ(reportText(report), "Name  \\x1b[31m\\xff\"\n");
    EXPECT_EQ(nlohmann::json::parse(reportJson(report))["name"], "\x1b[31m\xef\xbf\xbd\"");
}

// Some terminals take orders from U+009B as from ESC [, and turn the line round at U+202E.
TEST(ShellReport, JsonIsAscii) {
    const std::string text = "\xc3\xbc\xc2\x9b"
                             "31m\x7f\xe2\x80\xae\xf3\xa0\x80\x81\xf0\x9f\x90\x9f";
    Report report;
    reportFact(&report, "name", "Name", valueText(text));
    reportTable(&report, "rows", "Nothing.", {{"cell", "CELL"}});
    reportRow(&report, {valueText(text)});
    reportLines(&report, "lines", {text});
    const std::string json = reportJson(report);
    for (const char c : json) {
        EXPECT_TRUE(c == '\n' || (c >= ' ' && c < 0x7f)) << json;
    }
    const nlohmann::json parsed = nlohmann::json::parse(json);
    EXPECT_EQ(parsed["name"], text);
    EXPECT_EQ(parsed["rows"][0]["cell"], text);
    EXPECT_EQ(parsed["lines"][0], text);
}

TEST(ShellReport, PortsAreRunsForPeopleAndSingleForPrograms) {
    Report report;
    reportFact(&report, "ports", "Ports", valuePorts({1, 2, 4}));
    reportFact(&report, "none", "No ports", valuePorts({}));
    EXPECT_EQ(reportText(report), "Ports     0/1-0/2, 0/4\nNo ports  none\n");
    EXPECT_EQ(nlohmann::json::parse(reportJson(report)), nlohmann::json::parse(R"({"ports":["0/1","0/2","0/4"],"none":[]})"));
}

TEST(ShellReport, VlansAndAny) {
    Report report;
    reportFact(&report, "vlans", "VLANs", valueVlans({1, 3, 4, 5}));
    reportFact(&report, "none", "No VLANs", valueVlans({}));
    reportFact(&report, "any", "Any", valueAny());
    EXPECT_EQ(reportText(report), "VLANs     1,3-5\nNo VLANs  none\nAny       any\n");
    EXPECT_EQ(nlohmann::json::parse(reportJson(report)), nlohmann::json::parse(R"({"vlans":[1,3,4,5],"none":[],"any":null})"));
}

} // namespace
