// Configuration in files: what "save" leaves behind, whatever stands in its way, and what "load" makes of a file.
#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "shell_fake.h"

#include "platform/libvos.h"
#include "platform/linux/protocol.h"
#include "shell/savefile.h"
#include "shell/values.h"

namespace {

namespace fs = std::filesystem;

constexpr size_t HEADER = sizeof(VosMsgHeader);

std::string contentOf(const fs::path &path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

std::vector<std::string> namesIn(const fs::path &folder) {
    std::vector<std::string> names;
    for (const auto &entry : fs::directory_iterator(folder)) {
        names.push_back(entry.path().filename());
    }
    std::sort(names.begin(), names.end());
    return names;
}

class ShellFiles : public FakeSwitchTest {
  protected:
    fs::path folder;

    void SetUp() override {
        FakeSwitchTest::SetUp();
        folder = fs::path(daemon.folder) / "files";
        fs::create_directory(folder);
    }

    std::string name(const char *file) { return (folder / file).string(); }
    Outcome run(const std::string &line) { return sessionRun(&session, line); }
    size_t calls() { return fakeRequests(&daemon).size(); }
};

TEST_F(ShellFiles, SavedBindingsAreTurnedRound) {
    ASSERT_EQ(run("save " + name("x.conf")), Outcome::done) << session.error;
    EXPECT_EQ(session.output, "Saved 18 lines to " + name("x.conf") + ".\n");
    const std::string text = contentOf(name("x.conf"));
    EXPECT_EQ(text.find('\r'), std::string::npos);
    EXPECT_EQ(text.rfind("!!!DHCPv6 snooping\ndhcpv6-snooping\n", 0), 0u);
    EXPECT_TRUE(text.ends_with("vlan 20,30-32\n"
                               "ipv6-source-guard bind ip 2001:db8::5 mac 02:00:00:00:00:05 interface ethernet 0/1 vlan 10\n"
                               "ipv6-source-guard bind ip 2001:db8::6\n"
                               "ipv6-source-guard bind ip 2001:db8::7 mac 02:00:00:00:00:07 interface ethernet 0/2\n"))
        << text;
    EXPECT_EQ(fs::status(name("x.conf")).permissions(), fs::perms(0640));
    EXPECT_EQ(namesIn(folder), std::vector<std::string>{"x.conf"});
}

TEST_F(ShellFiles, BindingsKeepTheirPorts) {
    FakeConfig config;
    config.text = "ipv6-source-guard bind ip 2001:db8::4\r\nipv6-source-guard bind ip 2001:db8::3\r\n"
                  "ipv6-source-guard bind ip 2001:db8::2 mac 02:00:00:00:00:02\r\n"
                  "ipv6-source-guard bind ip 2001:db8::1 mac 02:00:00:00:00:01 interface ethernet  vlan 5\r\n";
    config.bindings = {fakeBinding(4, 0, 1, 10), fakeBinding(3, 0, 2, 0), fakeBinding(2, 2, 0, 7), fakeBinding(1, 1, 28, 5)};
    daemon.answer = [config](const Bytes &request) { return fakeConfigured(request, config); };
    ASSERT_EQ(run("save " + name("x.conf")), Outcome::done) << session.error;
    EXPECT_EQ(contentOf(name("x.conf")),
              "ipv6-source-guard bind ip 2001:db8::1 mac 02:00:00:00:00:01 interface ethernet 0/28 vlan 5\n"
              "ipv6-source-guard bind ip 2001:db8::2 mac 02:00:00:00:00:02 vlan 7\n"
              "ipv6-source-guard bind ip 2001:db8::3 interface ethernet 0/2\n"
              "ipv6-source-guard bind ip 2001:db8::4 interface ethernet 0/1 vlan 10\n");
    ASSERT_EQ(run("show running-config"), Outcome::done);
    EXPECT_TRUE(session.output.starts_with("ipv6-source-guard bind ip 2001:db8::4 interface ethernet 0/1 vlan 10\n"));
}

TEST_F(ShellFiles, WhatNoLineMakesIsNamedAndTheFormerFileStays) {
    std::ofstream(name("x.conf")) << "old";
    FakeConfig config;
    config.text = "dhcpv6-snooping\r\nipv6-source-guard bind ip 2001:db8::4\r\nipv6-source-guard bind ip 2001:db8::5\r\n";
    config.bindings = {fakeBinding(4, 0, 29, 0), fakeBinding(5, 0, 0, 0)};
    daemon.answer = [&config](const Bytes &request) { return fakeConfigured(request, config); };
    const std::string first = "the binding of 2001:db8::4 to any MAC, port 0/29 has no line, because \"0/29\" is not a port: "
                              "allowed are 0/1 to 0/28; "
                              "\"undo ipv6-source-guard bind ip 2001:db8::4\" takes it back";
    EXPECT_EQ(run("save " + name("x.conf")), Outcome::refused);
    EXPECT_EQ(session.error, "nothing was saved: " + first);
    EXPECT_EQ(session.output, "");
    EXPECT_EQ(contentOf(name("x.conf")), "old");
    EXPECT_EQ(run("save " + name("new.conf")), Outcome::refused);
    EXPECT_EQ(namesIn(folder), std::vector<std::string>{"x.conf"});
    ASSERT_EQ(run("show running-config"), Outcome::done);
    EXPECT_EQ(session.output, "dhcpv6-snooping\n! " + first + "\nipv6-source-guard bind ip 2001:db8::5\n");
    config.bindings[1].vlan = 5000;
    EXPECT_EQ(run("save " + name("x.conf")), Outcome::refused);
    EXPECT_EQ(session.error, "nothing was saved: " + first + "; \"show running-config\" names 1 more");
}

// What the daemon was handed over, in order; the messages are checked on the way.
std::string handedOver(FakeDaemon *daemon) {
    std::string text;
    uint32_t total = 0;
    for (const Bytes &request : fakeRequests(daemon)) {
        if (fakeWord(request, 0) != (0x00010000u | LINUX_MSG_SAVE))
            continue;
        const uint32_t number = fakeWord(request, HEADER + 4);
        const std::string bytes(request.begin() + HEADER + sizeof(LinuxSaveMsg), request.end());
        if (fakeWord(request, HEADER) == LINUX_SAVE_BEGIN)
            total = number;
        if (fakeWord(request, HEADER) == LINUX_SAVE_PART) {
            EXPECT_EQ(number, text.size());
            text += bytes;
        } else {
            EXPECT_EQ(bytes, "");
        }
        EXPECT_LE(text.size(), total);
    }
    EXPECT_EQ(text.size(), total);
    return text;
}

TEST_F(ShellFiles, TheDaemonWritesItsStartupFile) {
    ASSERT_EQ(run("save " + name("x.conf")), Outcome::done);
    ASSERT_EQ(run("save"), Outcome::done) << session.error;
    EXPECT_EQ(session.output, "Saved 18 lines to /nonexistent/startup.conf.\n");
    EXPECT_EQ(handedOver(&daemon), contentOf(name("x.conf")));
}

TEST_F(ShellFiles, AConfigurationOfManyParts) {
    FakeConfig config;
    for (uint32_t i = 0; i < 600; ++i) {
        config.bindings.push_back(fakeBinding(static_cast<uint8_t>(i), static_cast<uint8_t>(i), 0, 0));
        config.bindings.back().mac[0] = 2;
        config.bindings.back().address.bytes[14] = static_cast<uint8_t>(i >> 8);
        char line[128];
        snprintf(line, sizeof line, "ipv6-source-guard bind ip %s mac 02:00:00:00:00:%02x\r\n",
                 textIpv6(config.bindings.back().address.bytes, 128).c_str(), i & 0xffu);
        config.text += line;
    }
    daemon.answer = [config](const Bytes &request) { return fakeConfigured(request, config); };
    ASSERT_EQ(run("save"), Outcome::done) << session.error;
    EXPECT_EQ(session.output, "Saved 600 lines to /nonexistent/startup.conf.\n");
    EXPECT_GT(handedOver(&daemon).size(), 32768u);
}

// The answers to the messages of a save, one after the other.
FakeAnswer savesLike(std::vector<Bytes> answers) {
    return [answers, next = size_t{0}](const Bytes &request) mutable {
        if (fakeWord(request, 0) != (0x00010000u | LINUX_MSG_SAVE))
            return fakeSwitch(request);
        const Bytes &answer = answers[std::min(next++, answers.size() - 1)];
        return answer.empty() ? fakeReply(request, LINUX_RESULT_BAD, {}) : fakeReply(request, 0, answer);
    };
}

Bytes saveAnswer(uint32_t state, const char *sentence = "") {
    Bytes answer = fakeWords({state});
    answer.insert(answer.end(), sentence, sentence + strlen(sentence));
    answer.resize(sizeof(LinuxSaveAnswer));
    return answer;
}

TEST_F(ShellFiles, WhatTheDaemonSaysOfASave) {
    const Bytes gathering = saveAnswer(LINUX_SAVE_GATHERING);
    daemon.answer = savesLike({gathering, gathering, saveAnswer(LINUX_SAVE_FAILED, "cannot write x: No space left\x1b[2J")});
    EXPECT_EQ(run("save"), Outcome::refused);
    EXPECT_EQ(session.error, "cannot write x: No space left\\x1b[2J");
    EXPECT_EQ(session.output, "");
    daemon.answer = savesLike({gathering, Bytes{}});
    EXPECT_EQ(run("save"), Outcome::refused);
    EXPECT_EQ(session.error, "the daemon has given the place to somebody else who saves: try again");
    const Bytes busy = saveAnswer(LINUX_SAVE_BUSY);
    daemon.answer = savesLike({busy, busy, gathering, gathering, saveAnswer(LINUX_SAVE_DONE)});
    EXPECT_EQ(run("save"), Outcome::done) << session.error;
    daemon.answer = savesLike({Bytes(sizeof(LinuxSaveAnswer) - 1)});
    EXPECT_EQ(run("save"), Outcome::unreachable);
    EXPECT_EQ(session.error, "the daemon's answer is damaged: it does not say what became of the save");
    daemon.answer = [](const Bytes &request) {
        const bool isSave = fakeWord(request, 0) == (0x00010000u | LINUX_MSG_SAVE);
        return isSave ? fakeReply(request, LINUX_RESULT_UNKNOWN, {}) : fakeSwitch(request);
    };
    EXPECT_EQ(run("save"), Outcome::unreachable);
    EXPECT_EQ(session.error, "the daemon cannot save: install snoopd6 and snoopctl from the same release");
}

TEST_F(ShellFiles, EraseAsksFirst) {
    session.confirm = [](const std::string &) { return false; };
    EXPECT_EQ(run("erase startup"), Outcome::done);
    EXPECT_EQ(session.output, "Nothing was erased.\n");
    EXPECT_EQ(calls(), 0u);
    session.confirm = [](const std::string &) { return true; };
    EXPECT_EQ(run("erase startup"), Outcome::done) << session.error;
    EXPECT_EQ(calls(), 3u); // asked twice
    EXPECT_EQ(run("clear startup-failure"), Outcome::done) << session.error;
}

TEST_F(ShellFiles, LinesThatAStartupFileCannotHave) {
    session.startup = true;
    for (const char *line : {"save", "erase startup", "clear startup-failure"}) {
        EXPECT_EQ(run(line), Outcome::refused);
        EXPECT_EQ(session.error, "a startup file cannot have this line");
    }
    EXPECT_EQ(run("save " + name("x.conf")), Outcome::refused);
    EXPECT_FALSE(fs::exists(name("x.conf")));
    EXPECT_EQ(calls(), 0u);
}

TEST_F(ShellFiles, WhereNothingCanBeWritten) {
    EXPECT_EQ(run("save /nonexistent/x.conf"), Outcome::refused);
    EXPECT_EQ(session.error, "cannot write /nonexistent/x.conf: No such file or directory");
    EXPECT_EQ(run("save " + folder.string()), Outcome::refused);
    EXPECT_EQ(session.error, "cannot write " + folder.string() + ": it is not an ordinary file");
    EXPECT_EQ(run("save " + folder.string() + "/"), Outcome::refused);
    EXPECT_EQ(session.error, "cannot write " + folder.string() + "/: it is not an ordinary file");
    EXPECT_EQ(run("save /dev/null"), Outcome::refused);
    EXPECT_EQ(session.error, "cannot write /dev/null: it is not an ordinary file");
    EXPECT_EQ(run("save /proc/x.conf"), Outcome::refused);
    EXPECT_EQ(run("save \"\""), Outcome::usage);
    EXPECT_EQ(session.error, "\"\" is not the name of a file");
    EXPECT_EQ(session.output, "");
}

TEST_F(ShellFiles, WithoutADaemonTheFormerFileStays) {
    std::ofstream(name("x.conf")) << "old";
    session.connection.socketPath = "/nonexistent/snoopd6.sock";
    EXPECT_EQ(run("save " + name("x.conf")), Outcome::unreachable);
    EXPECT_EQ(contentOf(name("x.conf")), "old");
}

TEST_F(ShellFiles, ReplacedAsAWhole) {
    std::string error;
    std::ofstream(name("real.conf")) << std::string(5000, 'o');
    std::ifstream reader(name("real.conf")); // has the old one open
    ASSERT_TRUE(saveFile(name("real.conf"), "new\n", &error)) << error;
    EXPECT_EQ(contentOf(name("real.conf")), "new\n");
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(reader), {}), std::string(5000, 'o'));
    ASSERT_TRUE(saveFile(name("real.conf"), "", &error)) << error;
    EXPECT_EQ(contentOf(name("real.conf")), "");
    EXPECT_EQ(namesIn(folder), std::vector<std::string>{"real.conf"});
}

// Whoever can put a link into the way would otherwise say where root writes.
TEST_F(ShellFiles, NoLinkIsFollowed) {
    std::string error;
    std::ofstream(name("real.conf")) << "old";
    fs::create_symlink("real.conf", name("link.conf"));
    EXPECT_FALSE(saveFile(name("link.conf"), "new\n", &error));
    EXPECT_EQ(error, "cannot write " + name("link.conf") + ": it is a symbolic link, which is not followed");
    fs::create_symlink(name("planted"), name("dangling"));
    EXPECT_FALSE(saveFile(name("dangling"), "new\n", &error));
    fs::create_directory(name("inside"));
    fs::create_directory(name("inside") + "/deeper");
    fs::create_symlink("inside", name("way"));
    const std::string reached =
        ": its folder is reached through a symbolic link, which could lead elsewhere: name the folder itself";
    for (const std::string &path : {name("way/x.conf"), name("way/deeper/x.conf"), name("inside/../way/x.conf")}) {
        EXPECT_FALSE(saveFile(path, "new\n", &error));
        EXPECT_EQ(error, "cannot write " + path + reached);
    }
    fs::create_symlink(name("real.conf"), name(".new.conf.new"));
    EXPECT_TRUE(saveFile(name("new.conf"), "new\n", &error)) << error;
    EXPECT_EQ(contentOf(name("real.conf")), "old");
    EXPECT_EQ(namesIn(folder), (std::vector<std::string>{"dangling", "inside", "link.conf", "new.conf", "real.conf", "way"}));
    EXPECT_EQ(namesIn(name("inside")), std::vector<std::string>{"deeper"});
}

TEST_F(ShellFiles, OwnerOfTheFormerFile) {
    std::ofstream(name("x.conf")) << "old";
    if (chown(name("x.conf").c_str(), 4711, 4712) != 0) {
        GTEST_SKIP() << "only root may give files away";
    }
    std::string error;
    ASSERT_TRUE(saveFile(name("x.conf"), "new\n", &error)) << error;
    struct stat now = {};
    ASSERT_EQ(stat(name("x.conf").c_str(), &now), 0);
    EXPECT_EQ(now.st_uid, 4711u);
    EXPECT_EQ(now.st_gid, 4712u);
    EXPECT_EQ(now.st_mode & 07777u, 0640u);
}

TEST_F(ShellFiles, LoadNamesWhatFailedAndGoesOn) {
    std::ofstream(name("good.conf"))
        << "! remark\r\ndhcpv6-snooping\r\ninterface ethernet 0/1\r\nipv6-source-guard\r\nquit\r\n";
    EXPECT_EQ(run("load " + name("good.conf")), Outcome::done) << session.error;
    EXPECT_EQ(session.output, "4 lines, 0 failed\n");
    std::ofstream(name("bad.conf")) << "nonsense\nshow platform vlans\n\nvlan 0\ndhcpv6-snooping max-clients 1\nquit\nquit\n";
    session.place = {.kind = PLACE_VLAN, .number = 7};
    const size_t before = calls();
    EXPECT_EQ(run("load " + name("bad.conf")), Outcome::usage);
    EXPECT_EQ(session.error, name("bad.conf") + ": 6 lines, 2 failed, 2 not run");
    EXPECT_EQ(session.output.rfind(name("bad.conf") + ":1: nonsense: \"nonsense\" is not known here", 0), 0u) << session.output;
    EXPECT_NE(session.output.find("VLAN  MEMBERS"), std::string::npos) << session.output;
    EXPECT_TRUE(session.output.ends_with(name("bad.conf") + ":4: vlan 0: \"0\" is not a VLAN: allowed are 1 to 4094\n"));
    EXPECT_EQ(calls(), before + 1); // "show platform vlans"
    EXPECT_EQ(session.place.kind, PLACE_VLAN);
    EXPECT_EQ(session.place.number, 7u);
    EXPECT_FALSE(session.ended);
}

TEST_F(ShellFiles, LoadOfWhatCannotBeLoaded) {
    EXPECT_EQ(run("load " + name("none.conf")), Outcome::refused);
    EXPECT_EQ(session.error, "cannot read " + name("none.conf") + ": No such file or directory");
    EXPECT_EQ(run("load " + folder.string()), Outcome::refused);
    EXPECT_EQ(session.output, folder.string() + ": cannot be read to its end\n");
    std::ofstream(name("self.conf")) << "load " + name("self.conf") + "\ndhcpv6-snooping\n";
    EXPECT_EQ(run("load " + name("self.conf")), Outcome::refused);
    EXPECT_EQ(session.output.rfind(name("self.conf") + ":1: load ", 0), 0u) << session.output;
    EXPECT_TRUE(session.output.ends_with(": a file that is being loaded cannot load another one\n")) << session.output;
    EXPECT_EQ(session.error, name("self.conf") + ": 2 lines, 1 failed");
    EXPECT_EQ(calls(), 2u) << "the setting, and whether the kernel has its rules";
}

} // namespace
