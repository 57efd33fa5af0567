// "watch" away from a terminal, and the picture that a terminal is sent.
#include <cstdlib>
#include <ctime>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "shell_fake.h"

#include "shell/watch.h"

namespace {

class ShellWatch : public FakeSwitchTest {
  protected:
    // What one watch writes.
    std::string watched(const char *line, uint32_t times, Outcome expected) {
        char *text = nullptr;
        size_t size = 0;
        session.live = open_memstream(&text, &size);
        session.watchTimes = times;
        EXPECT_EQ(sessionRun(&session, line), expected) << session.error;
        EXPECT_EQ(session.output, "");
        fclose(session.live);
        session.live = nullptr;
        std::string seen(text, size);
        free(text);
        return seen;
    }
};

TEST_F(ShellWatch, EachRunIsWrittenUnderTheTime) {
    const std::string seen = watched("watch 1 show platform vlans", 2, Outcome::done);
    const size_t half = seen.size() / 2; // both runs say the same, but for the time
    for (const std::string &run : {seen.substr(0, half), seen.substr(half)}) {
        tm when = {};
        const char *end = strptime(run.c_str(), "%Y-%m-%d %H:%M:%S", &when);
        ASSERT_NE(end, nullptr) << seen;
        EXPECT_EQ(std::string(end).rfind("\nVLAN  MEMBERS", 0), 0u) << seen;
    }
    EXPECT_EQ(session.watchSeconds, 0u);
    const size_t before = fakeRequests(&daemon).size();
    EXPECT_EQ(sessionRun(&session, "show platform vlans"), Outcome::done); // the next line runs once
    EXPECT_EQ(fakeRequests(&daemon).size(), before + 1);
}

TEST_F(ShellWatch, JsonIsNothingButJson) {
    session.json = true;
    const std::string seen = watched("watch show platform vlans", 1, Outcome::done);
    EXPECT_TRUE(nlohmann::json::parse(seen).contains("vlans"));
}

TEST_F(ShellWatch, AFailureIsToldAndTriedAgain) {
    uint32_t questions = 0;
    daemon.answer = [&questions](const Bytes &request) { return ++questions == 1 ? Bytes{} : fakeSwitch(request); };
    const std::string seen = watched("watch 1 show platform vlans", 2, Outcome::done);
    EXPECT_NE(seen.find("closed the connection without an answer"), std::string::npos) << seen;
    EXPECT_NE(seen.find("VLAN  MEMBERS"), std::string::npos) << seen;
    daemon.answer = [](const Bytes &) { return Bytes{}; };
    EXPECT_EQ(watched("watch 1 show platform vlans", 1, Outcome::unreachable).find("VLAN  MEMBERS"), std::string::npos);
}

TEST_F(ShellWatch, WantsSomebodyWhoLooksOn) {
    EXPECT_EQ(sessionRun(&session, "watch show platform vlans"), Outcome::usage);
    EXPECT_EQ(session.error, "\"watch\" cannot stand in a file: it goes on until a key is pressed");
    EXPECT_TRUE(fakeRequests(&daemon).empty());
}

TEST(ShellWatchPicture, IsCutToTheWindow) {
    const std::string start = "\x1b[?7l\x1b[H";
    const std::string end = "\x1b[J\x1b[?7h";
    EXPECT_EQ(watchPicture("t", "a\nb\n", 24), start + "t\x1b[K\na\x1b[K\nb\x1b[K\n" + end);
    EXPECT_EQ(watchPicture("t", "", 24), start + "t\x1b[K\n" + end);
    EXPECT_EQ(watchPicture("t", "a\nb\nc\nd\n", 5), start + "t\x1b[K\na\x1b[K\nb\x1b[K\n... and 2 more lines\x1b[K\n" + end);
    EXPECT_EQ(watchPicture("t", "a\nb\n", 1), start + "t\x1b[K\na\x1b[K\n... and 1 more lines\x1b[K\n" + end);
}

} // namespace
