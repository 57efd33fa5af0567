// The running configuration over the socket: texts of every length in pages, and texts that change between two pages.

#include <algorithm>
#include <cstring>
#include <gtest/gtest.h>
#include <unistd.h>
#include <utility>

#include "platform/linux/protocol.h"
#include "tests/contract/linux_caller.h"

static constexpr uint32_t PAGE_MAX = VOS_MSG_MAX - HEADER - sizeof(LinuxConfigHead);

// ---- The builder ---------------------------------------------------------------------------------------------------

static std::string config;
static bool refuses;
static std::vector<uint32_t> spaces; // that it was called with

static int32_t build(char *text, uint32_t *space, uint32_t flags, uint32_t context) {
    EXPECT_EQ(flags, 0x10000u);
    EXPECT_EQ(context, 0u);
    EXPECT_STREQ(text, "");
    spaces.push_back(*space);
    const uint32_t room = *space;
    *space = room - static_cast<uint32_t>(config.size());
    const bool fits = !refuses && config.size() < room;
    const size_t bytes = fits ? config.size() : std::min<size_t>(config.size(), room - 1); // a text that is cut off stays
    memcpy(text, config.data(), bytes);
    text[bytes] = '\0';
    return fits ? 0 : -1;
}

// A text in which no two places look alike.
static std::string textOf(size_t length) {
    std::string text;
    text.reserve(length + 16);
    for (uint32_t line = 0; text.size() < length; line++) {
        text += std::to_string(line) + "\r\n";
    }
    text.resize(length);
    return text;
}

// ---- The caller ----------------------------------------------------------------------------------------------------

struct ConfigPage {
    int32_t result;
    LinuxConfigHead head;
    std::string text;
};

static Reply askBytes(int fd, const Bytes &payload) {
    callerSend(fd, message(LINUX_MSG_RUNNING_CONFIG, 5, payload));
    daemonIdle();
    return callerRead(fd);
}

static ConfigPage ask(int fd, uint32_t offset, uint32_t generation) {
    const LinuxConfigAsk words = {.offset = offset, .generation = generation};
    Bytes payload(sizeof words);
    memcpy(payload.data(), &words, sizeof words);
    const Reply reply = askBytes(fd, payload);
    EXPECT_EQ(reply.got, Got::reply);
    ConfigPage page = {.result = reply.header.result, .head = {}, .text = ""};
    if (page.result != LINUX_RESULT_OK) {
        EXPECT_EQ(reply.payload, Bytes{});
        return page;
    }
    EXPECT_GE(reply.payload.size(), sizeof page.head);
    memcpy(&page.head, reply.payload.data(), sizeof page.head);
    page.text.assign(reply.payload.begin() + sizeof page.head, reply.payload.end());
    EXPECT_EQ(page.head.length, page.text.size());
    return page;
}

// All pages, as a caller takes them; their number goes to *pages.
static std::string askAll(int fd, uint32_t *pages) {
    ConfigPage page = ask(fd, 0, 0);
    const LinuxConfigHead first = page.head;
    std::string text = page.text;
    for (*pages = 1; page.head.next != 0; ++*pages) {
        EXPECT_EQ(page.head.next, text.size());
        page = ask(fd, page.head.next, first.generation);
        EXPECT_EQ(page.result, LINUX_RESULT_OK);
        EXPECT_EQ(page.head.generation, first.generation);
        EXPECT_EQ(page.head.total, first.total);
        text += page.text;
    }
    EXPECT_EQ(text.size(), first.total);
    return text;
}

class RunningConfig : public Queue {
  protected:
    void SetUp() override {
        Queue::SetUp();
        ASSERT_EQ(vosMsgRegisterBldrun(build), 0);
        refuses = false;
        config.clear();
        ask(caller, 0, 0); // as if no longer text had been built before
        config = "text of " + std::string(testing::UnitTest::GetInstance()->current_test_info()->name());
        spaces.clear();
    }
};

// ---- Pages ---------------------------------------------------------------------------------------------------------

TEST_F(RunningConfig, NoBuilder) {
    EXPECT_NE(vosMsgRegisterBldrun(nullptr), 0);
    EXPECT_EQ(ask(caller, 0, 0).text, config) << "the one that is there stays";
}

TEST_F(RunningConfig, TextsOfEveryLength) {
    for (const size_t length : {size_t{0}, size_t{1}, size_t{2}, size_t{PAGE_MAX - 1}, size_t{PAGE_MAX}, size_t{PAGE_MAX + 1},
                                size_t{65535}, size_t{65536}, size_t{2 * PAGE_MAX}, size_t{2 * PAGE_MAX + 1}, size_t{500000}}) {
        config = textOf(length);
        uint32_t pages = 0;
        EXPECT_EQ(askAll(caller, &pages), config) << length;
        EXPECT_EQ(pages, std::max<size_t>(1, (length + PAGE_MAX - 1) / PAGE_MAX)) << length;
    }
}

TEST_F(RunningConfig, BuiltOnceForAllItsPages) {
    config = textOf(300000);
    uint32_t pages = 0;
    askAll(caller, &pages);
    EXPECT_EQ(pages, 5u);
    EXPECT_EQ(spaces, (std::vector<uint32_t>{1 << 16, 1 << 17, 1 << 18, 1 << 19}));
}

TEST_F(RunningConfig, BuiltOnceWhereTheLastTextFitted) {
    for (const auto &[length, expected] : std::vector<std::pair<size_t, std::vector<uint32_t>>>{
             {300000, {1 << 16, 1 << 17, 1 << 18, 1 << 19}},
             {300000, {1 << 19}},
             {65535, {1 << 19}}, // as much as fits in the smallest space beside the end of the text
             {65535, {1 << 16}},
             {65536, {1 << 16, 1 << 17}},
             {65536, {1 << 17}},
             {0, {1 << 17}},
         }) {
        spaces.clear();
        config = textOf(length);
        ask(caller, 0, 0);
        EXPECT_EQ(spaces, expected) << length;
    }
}

TEST_F(RunningConfig, TheLongestText) {
    config = textOf((1 << 24) - 1);
    EXPECT_EQ(ask(caller, 0, 0).head.total, config.size());
    config.push_back('x');
    EXPECT_EQ(ask(caller, 0, 0).result, LINUX_RESULT_BAD);
    EXPECT_EQ(spaces.back(), 1u << 24);
}

TEST_F(RunningConfig, ABuilderThatRefuses) {
    config = textOf(100000);
    const ConfigPage first = ask(caller, 0, 0);
    refuses = true;
    spaces.clear();
    EXPECT_EQ(ask(caller, 0, 0).result, LINUX_RESULT_BAD);
    EXPECT_EQ(spaces.size(), 8u) << "from 128 KiB to 16 MiB";
    EXPECT_EQ(ask(caller, first.head.next, first.head.generation).text, config.substr(PAGE_MAX)) << "pages under way go on";
    refuses = false;
    EXPECT_EQ(ask(caller, 0, 0).head.generation, first.head.generation);
}

// ---- Changes -------------------------------------------------------------------------------------------------------

TEST_F(RunningConfig, ATextThatChangesBetweenPages) {
    config = textOf(100000);
    const ConfigPage first = ask(caller, 0, 0);
    ASSERT_EQ(first.head.next, PAGE_MAX);
    config[70000] = '!';
    EXPECT_EQ(ask(caller, first.head.next, first.head.generation).text, textOf(100000).substr(PAGE_MAX))
        << "nobody has built the new one yet";
    const int other = callerConnect();
    const ConfigPage changed = ask(other, 0, 0);
    EXPECT_NE(changed.head.generation, first.head.generation);
    EXPECT_EQ(ask(caller, first.head.next, first.head.generation).result, LINUX_RESULT_CHANGED);
    EXPECT_EQ(ask(other, changed.head.next, changed.head.generation).text, config.substr(PAGE_MAX));
    uint32_t pages = 0;
    EXPECT_EQ(askAll(caller, &pages), config);
    close(other);
}

TEST_F(RunningConfig, TheSameTextKeepsItsGeneration) {
    config = textOf(100000);
    const ConfigPage first = ask(caller, 0, 0);
    const int other = callerConnect();
    EXPECT_EQ(ask(other, 0, 0).head.generation, first.head.generation);
    EXPECT_EQ(ask(caller, first.head.next, first.head.generation).text, config.substr(PAGE_MAX));
    close(other);
}

TEST_F(RunningConfig, ATextThatComesBackIsAnotherOne) {
    std::vector<uint32_t> generations;
    for (const char *text : {"one", "two", "one", "", "one", "on"}) {
        config = text;
        const ConfigPage page = ask(caller, 0, 0);
        EXPECT_EQ(page.text, config);
        EXPECT_NE(page.head.generation, 0u);
        EXPECT_EQ(std::count(generations.begin(), generations.end(), page.head.generation), 0) << text;
        generations.push_back(page.head.generation);
    }
}

// ---- Odd questions -------------------------------------------------------------------------------------------------

TEST_F(RunningConfig, PlacesThatNoPageHas) {
    config = textOf(100000);
    const uint32_t generation = ask(caller, 0, 0).head.generation;
    spaces.clear();
    for (const uint32_t offset : {100000u, 100001u, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFFu}) {
        EXPECT_EQ(ask(caller, offset, generation).result, LINUX_RESULT_CHANGED) << offset;
    }
    for (const uint32_t other : {0u, generation - 1, generation + 1, 0xFFFFFFFFu}) {
        EXPECT_EQ(ask(caller, PAGE_MAX, other).result, LINUX_RESULT_CHANGED) << other;
    }
    EXPECT_EQ(ask(caller, 99999, generation).text, config.substr(99999));
    EXPECT_EQ(ask(caller, 1, generation).text, config.substr(1, PAGE_MAX));
    EXPECT_EQ(spaces, std::vector<uint32_t>{}) << "nothing is built for those";
    EXPECT_EQ(ask(caller, 0, 12345).text, config.substr(0, PAGE_MAX)) << "whoever begins need not know";
}

TEST_F(RunningConfig, QuestionsOfAnotherLength) {
    for (const size_t length : {0, 1, 4, 7, 9, 16, 64000}) {
        const Reply reply = askBytes(caller, Bytes(length, 0));
        EXPECT_EQ(reply.header.result, LINUX_RESULT_BAD) << length;
        EXPECT_EQ(reply.payload, Bytes{});
    }
    EXPECT_EQ(spaces, std::vector<uint32_t>{});
}
