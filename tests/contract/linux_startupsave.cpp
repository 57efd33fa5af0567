// LINUX_MSG_SAVE: callers that hand a configuration over, as they should and otherwise, and what is on the disk afterwards.

#include "platform/linux/startupsave.h"

#include <algorithm>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <poll.h>
#include <unistd.h>

#include "platform/linux/protocol.h"
#include "platform/linux/startup.h"
#include "platform/linux/startupjudge.h"
#include "tests/contract/linux_caller.h"
#include "tests/contract/linux_env.h"

namespace fs = std::filesystem;

namespace {

constexpr uint32_t NO_ANSWER = 0xFFFFFFFFu;
constexpr uint32_t BAD = 0xFFFFFFFEu;
constexpr uint32_t TURNS_MAX = 3000; // of a loop that waits 10 ms in each
const std::string TEXT = "dhcpv6-snooping\n";

std::string contentOf(const fs::path &path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

class StartupSave : public Queue {
  protected:
    void SetUp() override {
        Queue::SetUp();
        file = linuxStartupFile();
        lastGood = file + ".last-good";
    }

    void TearDown() override {
        fs::remove_all(file);
        fs::remove_all(lastGood);
        Queue::TearDown();
    }

    // Sends one message and returns the state that is answered.
    uint32_t say(int fd, uint32_t operation, uint32_t number = 0, const std::string &bytes = "") {
        const LinuxSaveMsg save = {.operation = operation, .number = number};
        Bytes payload(sizeof save);
        memcpy(payload.data(), &save, sizeof save);
        payload.insert(payload.end(), bytes.begin(), bytes.end());
        return exchange(fd, payload);
    }

    uint32_t exchange(int fd, const Bytes &payload) {
        callerSend(fd, message(LINUX_MSG_SAVE, ++request, payload));
        daemonIdle();
        const Reply reply = callerRead(fd);
        if (reply.got != Got::reply)
            return NO_ANSWER;
        if (reply.header.result != LINUX_RESULT_OK)
            return BAD;
        LinuxSaveAnswer answer;
        EXPECT_EQ(reply.payload.size(), sizeof answer);
        memcpy(&answer, reply.payload.data(), std::min(sizeof answer, reply.payload.size()));
        sentence = answer.sentence;
        return answer.state;
    }

    uint32_t wait(int fd) {
        uint32_t state = say(fd, LINUX_SAVE_ASK);
        for (uint32_t i = 0; i < TURNS_MAX && state == LINUX_SAVE_WORKING; ++i) {
            usleep(10000);
            state = say(fd, LINUX_SAVE_ASK);
        }
        return state;
    }

    uint32_t save(int fd, const std::string &text) {
        EXPECT_EQ(say(fd, LINUX_SAVE_BEGIN, static_cast<uint32_t>(text.size())), LINUX_SAVE_GATHERING);
        if (!text.empty()) {
            EXPECT_EQ(say(fd, LINUX_SAVE_PART, 0, text), LINUX_SAVE_GATHERING);
        }
        EXPECT_EQ(say(fd, LINUX_SAVE_COMMIT), LINUX_SAVE_WORKING);
        return wait(fd);
    }

    std::string file;
    std::string lastGood;
    std::string sentence;
    uint32_t request = 0;
};

TEST_F(StartupSave, KeepsTheTextAndThePreviousOne) {
    ASSERT_EQ(save(caller, TEXT), LINUX_SAVE_DONE) << sentence;
    EXPECT_EQ(contentOf(file), linuxStartupMarked(TEXT));
    EXPECT_EQ(contentOf(lastGood), linuxStartupMarked(TEXT));
    EXPECT_EQ(fs::status(file).permissions(), fs::perms(0640));
    ASSERT_EQ(save(caller, ""), LINUX_SAVE_DONE) << sentence;
    EXPECT_EQ(contentOf(file), linuxStartupMarked(""));
    EXPECT_EQ(contentOf(lastGood), linuxStartupMarked(TEXT));
    std::ofstream(file, std::ios::trunc) << "";
    ASSERT_EQ(save(caller, "quit\n"), LINUX_SAVE_DONE);
    EXPECT_EQ(contentOf(lastGood), linuxStartupMarked(TEXT)) << "what is damaged is not kept";
}

TEST_F(StartupSave, InManyParts) {
    std::string text;
    for (uint32_t i = 0; i < 4000; ++i)
        text += "vlan " + std::to_string(i) + "\nquit\n";
    EXPECT_EQ(say(caller, LINUX_SAVE_BEGIN, static_cast<uint32_t>(text.size())), LINUX_SAVE_GATHERING);
    for (size_t at = 0; at < text.size(); at += 1000)
        ASSERT_EQ(say(caller, LINUX_SAVE_PART, static_cast<uint32_t>(at), text.substr(at, 1000)), LINUX_SAVE_GATHERING);
    EXPECT_EQ(say(caller, LINUX_SAVE_COMMIT), LINUX_SAVE_WORKING);
    ASSERT_EQ(wait(caller), LINUX_SAVE_DONE) << sentence;
    EXPECT_EQ(contentOf(file), linuxStartupMarked(text));
}

// Parts that do not follow each other end the turn: nothing of it can be committed.
TEST_F(StartupSave, PartsThatDoNotFit) {
    const struct {
        uint32_t before;
        std::string bytes;
    } cases[] = {{0, "overlaps"}, {3, "overlaps"}, {5, "gap"}, {0xFFFFFFFFu, "far"}, {4, "too long"}, {4, ""}};
    for (const auto &c : cases) {
        EXPECT_EQ(say(caller, LINUX_SAVE_BEGIN, 8), LINUX_SAVE_GATHERING);
        EXPECT_EQ(say(caller, LINUX_SAVE_PART, 0, "quit"), LINUX_SAVE_GATHERING);
        EXPECT_EQ(say(caller, LINUX_SAVE_PART, c.before, c.bytes), BAD) << c.before;
        EXPECT_EQ(say(caller, LINUX_SAVE_PART, 4, "1234"), BAD);
        EXPECT_EQ(say(caller, LINUX_SAVE_COMMIT), BAD);
    }
    EXPECT_FALSE(fs::exists(file));
}

TEST_F(StartupSave, MessagesOutOfPlace) {
    EXPECT_EQ(say(caller, LINUX_SAVE_PART, 0, "x"), BAD);
    EXPECT_EQ(say(caller, LINUX_SAVE_COMMIT), BAD);
    EXPECT_EQ(say(caller, LINUX_SAVE_ASK), BAD);
    EXPECT_EQ(say(caller, 99), BAD);
    EXPECT_EQ(exchange(caller, {}), BAD);
    EXPECT_EQ(exchange(caller, Bytes(sizeof(LinuxSaveMsg) - 1)), BAD);
    EXPECT_EQ(say(caller, LINUX_SAVE_BEGIN, 1, "x"), BAD);
    EXPECT_EQ(say(caller, LINUX_SAVE_ERASE, 0, "x"), BAD);
    EXPECT_EQ(say(caller, LINUX_SAVE_BEGIN, 5), LINUX_SAVE_GATHERING);
    EXPECT_EQ(say(caller, LINUX_SAVE_COMMIT), BAD) << "before all of it is there";
    EXPECT_EQ(say(caller, LINUX_SAVE_BEGIN, 0), LINUX_SAVE_GATHERING);
    EXPECT_EQ(say(caller, LINUX_SAVE_COMMIT, 0, "x"), BAD);
    EXPECT_FALSE(fs::exists(file));
}

TEST_F(StartupSave, TextsThatAreNone) {
    EXPECT_EQ(say(caller, LINUX_SAVE_BEGIN, LINUX_STARTUP_BYTES_MAX + 1), LINUX_SAVE_FAILED);
    EXPECT_EQ(sentence, "nothing was saved: the configuration is too long for a file");
    EXPECT_EQ(say(caller, LINUX_SAVE_BEGIN, 0xFFFFFFFFu), LINUX_SAVE_FAILED);
    ASSERT_EQ(save(caller, TEXT), LINUX_SAVE_DONE);
    for (const auto &[text, why] : std::vector<std::pair<std::string, std::string>>{
             {"quit", "ends in the middle of a line"},
             {std::string("qu\0it\n", 6), "has bytes that no line may have"},
             {"quit\n\x1b[2J\n", "has bytes that no line may have"},
             {std::string(LINUX_STARTUP_END) + "\n", "has the marks of a saved file in it"}}) {
        EXPECT_EQ(save(caller, text), LINUX_SAVE_FAILED);
        EXPECT_EQ(sentence, "nothing was saved: the configuration " + why);
    }
    EXPECT_EQ(contentOf(file), linuxStartupMarked(TEXT));
}

TEST_F(StartupSave, OneCallerAtATime) {
    const int other = callerConnect();
    EXPECT_EQ(say(caller, LINUX_SAVE_BEGIN, 5), LINUX_SAVE_GATHERING);
    EXPECT_EQ(say(other, LINUX_SAVE_BEGIN, 5), LINUX_SAVE_BUSY);
    EXPECT_EQ(say(other, LINUX_SAVE_PART, 0, "evil\n"), BAD);
    EXPECT_EQ(say(other, LINUX_SAVE_COMMIT), BAD);
    EXPECT_EQ(say(other, LINUX_SAVE_ERASE), LINUX_SAVE_BUSY);
    EXPECT_EQ(say(other, LINUX_SAVE_CLEAR), LINUX_SAVE_BUSY);
    EXPECT_EQ(say(caller, LINUX_SAVE_PART, 0, "quit\n"), LINUX_SAVE_GATHERING);
    EXPECT_EQ(say(caller, LINUX_SAVE_COMMIT), LINUX_SAVE_WORKING);
    EXPECT_EQ(say(other, LINUX_SAVE_ASK), BAD);
    EXPECT_EQ(wait(caller), LINUX_SAVE_DONE) << sentence;
    EXPECT_EQ(contentOf(file), linuxStartupMarked("quit\n"));
    EXPECT_EQ(save(other, TEXT), LINUX_SAVE_DONE) << sentence;
    EXPECT_EQ(contentOf(file), linuxStartupMarked(TEXT));
    close(other);
    daemonIdle();
}

TEST_F(StartupSave, ACallerWhoVanishes) {
    int other = callerConnect();
    EXPECT_EQ(say(other, LINUX_SAVE_BEGIN, 5), LINUX_SAVE_GATHERING);
    EXPECT_EQ(say(other, LINUX_SAVE_PART, 0, "evil"), LINUX_SAVE_GATHERING);
    close(other);
    daemonIdle();
    EXPECT_EQ(save(caller, TEXT), LINUX_SAVE_DONE) << sentence;
    EXPECT_EQ(contentOf(file), linuxStartupMarked(TEXT));
    other = callerConnect();
    EXPECT_EQ(say(other, LINUX_SAVE_BEGIN, 5), LINUX_SAVE_GATHERING);
    EXPECT_EQ(say(other, LINUX_SAVE_PART, 0, "quit\n"), LINUX_SAVE_GATHERING);
    EXPECT_EQ(say(other, LINUX_SAVE_COMMIT), LINUX_SAVE_WORKING);
    close(other); // its save goes on without it, and is in nobody's way
    daemonIdle();
    uint32_t state = LINUX_SAVE_BUSY;
    for (uint32_t i = 0; i < TURNS_MAX && state == LINUX_SAVE_BUSY; ++i) {
        usleep(10000);
        state = say(caller, LINUX_SAVE_BEGIN, 0);
    }
    EXPECT_EQ(state, LINUX_SAVE_GATHERING);
    EXPECT_EQ(contentOf(file), linuxStartupMarked("quit\n"));
}

TEST_F(StartupSave, WhoBeginsAnewHasSaidNothing) {
    EXPECT_EQ(say(caller, LINUX_SAVE_BEGIN, 5), LINUX_SAVE_GATHERING);
    EXPECT_EQ(say(caller, LINUX_SAVE_PART, 0, "evil\n"), LINUX_SAVE_GATHERING);
    EXPECT_EQ(save(caller, TEXT), LINUX_SAVE_DONE) << sentence;
    EXPECT_EQ(contentOf(file), linuxStartupMarked(TEXT));
}

TEST_F(StartupSave, NothingIsFollowedOrReplaced) {
    const std::string target = testFolder() + "/target";
    const std::string beside = testFolder() + "/.startup.conf.new";
    std::ofstream(target) << "kept";
    for (const std::string &name : {file, lastGood}) {
        fs::create_symlink(target, name);
        EXPECT_EQ(save(caller, TEXT), LINUX_SAVE_FAILED);
        EXPECT_EQ(sentence, "cannot write " + name + ": it is a symbolic link");
        fs::remove(name);
        fs::create_directory(name);
        EXPECT_EQ(save(caller, TEXT), LINUX_SAVE_FAILED);
        EXPECT_EQ(sentence, "cannot write " + name + ": it is not an ordinary file");
        fs::remove(name);
    }
    fs::create_symlink(target, beside);
    fs::create_hard_link(target, file);
    EXPECT_EQ(save(caller, TEXT), LINUX_SAVE_DONE) << sentence;
    EXPECT_EQ(contentOf(target), "kept");
    EXPECT_EQ(contentOf(file), linuxStartupMarked(TEXT));
    EXPECT_FALSE(fs::exists(fs::symlink_status(beside)));
    fs::remove(target);
}

TEST_F(StartupSave, Erased) {
    EXPECT_EQ(say(caller, LINUX_SAVE_ERASE), LINUX_SAVE_WORKING);
    EXPECT_EQ(wait(caller), LINUX_SAVE_DONE) << "nothing there is no failure";
    ASSERT_EQ(save(caller, TEXT), LINUX_SAVE_DONE);
    EXPECT_EQ(say(caller, LINUX_SAVE_ERASE), LINUX_SAVE_WORKING);
    EXPECT_EQ(wait(caller), LINUX_SAVE_DONE);
    EXPECT_FALSE(fs::exists(file));
    EXPECT_FALSE(fs::exists(lastGood));
}

TEST_F(StartupSave, NothingToClear) {
    EXPECT_EQ(say(caller, LINUX_SAVE_CLEAR), LINUX_SAVE_FAILED);
    EXPECT_EQ(sentence, "the switch is not closed: there is no failure to clear");
}

} // namespace
