// Configuration in files: what "save" leaves behind, whatever stands in its way, and what "load" makes of a file.
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "shell_fake.h"

#include "platform/libvos.h"
#include "platform/linux/protocol.h"
#include "shell/savefile.h"

namespace {

namespace fs = std::filesystem;

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

TEST_F(ShellFiles, TheStartupFileIsTheDaemons) {
    daemon.answer = [this](const Bytes &request) {
        if (fakeWord(request, 0) != (0x00010000u | LINUX_MSG_STATUS)) {
            return fakeSwitch(request);
        }
        LinuxFilesStatus files = {};
        name("startup.conf").copy(files.startupFile, sizeof files.startupFile - 1);
        Bytes page = fakeWords({LINUX_STATUS_FILES, 0, 1, sizeof files});
        const auto *bytes = reinterpret_cast<const uint8_t *>(&files);
        page.insert(page.end(), bytes, bytes + sizeof files);
        return fakeReply(request, 0, page);
    };
    EXPECT_EQ(run("save"), Outcome::done) << session.error;
    EXPECT_EQ(namesIn(folder), std::vector<std::string>{"startup.conf"});
    daemon.answer = [](const Bytes &request) {
        if (fakeWord(request, 0) != (0x00010000u | LINUX_MSG_STATUS)) {
            return fakeSwitch(request);
        }
        Bytes page = fakeWords({LINUX_STATUS_FILES, 0, 1, sizeof(LinuxFilesStatus)});
        page.resize(page.size() + sizeof(LinuxFilesStatus));
        return fakeReply(request, 0, page);
    };
    EXPECT_EQ(run("save"), Outcome::refused);
    EXPECT_EQ(session.error, "the path of the daemon's startup file is too long to be told: say \"save FILE\" with that path");
}

TEST_F(ShellFiles, WhereNothingCanBeWritten) {
    EXPECT_EQ(run("save"), Outcome::refused);
    EXPECT_EQ(session.error, "cannot write /nonexistent/startup.conf: No such file or directory");
    EXPECT_EQ(run("save " + folder.string()), Outcome::refused);
    EXPECT_EQ(session.error, "cannot write " + folder.string() + ": it is not an ordinary file");
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
    fs::create_symlink("real.conf", name("link.conf"));
    std::ifstream reader(name("real.conf")); // has the old one open
    ASSERT_TRUE(saveFile(name("link.conf"), "new\n", &error)) << error;
    EXPECT_TRUE(fs::is_symlink(name("link.conf")));
    EXPECT_EQ(contentOf(name("real.conf")), "new\n");
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(reader), {}), std::string(5000, 'o'));
    ASSERT_TRUE(saveFile(name("real.conf"), "", &error)) << error;
    EXPECT_EQ(contentOf(name("real.conf")), "");
    EXPECT_EQ(namesIn(folder), (std::vector<std::string>{"link.conf", "real.conf"}));
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
