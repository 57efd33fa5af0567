// What the service manager is told, and managers that are hard to reach.

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include "platform/linux/notify.h"
#include "tests/contract/linux_env.h"

using Lines = std::vector<std::string>;

// The manager's socket: bound to a name whose "@" stands for NUL, as in the variable.
static int listenAt(const std::string &name) {
    const int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    unlink(name.c_str()); // of an earlier manager
    memcpy(address.sun_path, name.data(), name.size());
    if (name[0] == '@') {
        address.sun_path[0] = '\0';
    }
    const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + name.size());
    EXPECT_EQ(bind(fd, reinterpret_cast<const sockaddr *>(&address), size), 0) << name << ": " << strerror(errno);
    return fd;
}

static std::string received(int fd) {
    char text[512];
    const ssize_t n = recv(fd, text, sizeof text, 0);
    return n < 0 ? "nothing" : std::string(text, static_cast<size_t>(n));
}

static size_t descriptors() {
    const std::filesystem::directory_iterator open("/proc/self/fd");
    return static_cast<size_t>(std::distance(begin(open), end(open)));
}

// Tells the manager of this name; the log lines of that. No descriptor stays open.
static Lines tell(const std::string &name, const char *state) {
    setenv("NOTIFY_SOCKET", name.c_str(), 1);
    const size_t before = descriptors();
    const Captured captured = captureBegin();
    linuxNotify(state);
    const Lines lines = captureEnd(captured);
    EXPECT_EQ(descriptors(), before);
    unsetenv("NOTIFY_SOCKET");
    return lines;
}

TEST(Notify, OneDatagramToAPathOrAnAbstractName) {
    const std::string path = testFolder() + "/notify";
    const std::string longest = path + std::string(107 - path.size(), 'n');
    const std::string abstract = "@snoopd6-unit-" + std::to_string(getpid());
    for (const std::string &name : {path, longest, abstract, abstract + std::string(107 - abstract.size(), 'n')}) {
        const int fd = listenAt(name);
        EXPECT_EQ(tell(name, "READY=1\nSTATUS=100%s"), Lines{});
        EXPECT_EQ(received(fd), "READY=1\nSTATUS=100%s");
        EXPECT_EQ(received(fd), "nothing");
        close(fd);
    }
}

TEST(Notify, NobodyWantsToKnow) {
    unsetenv("NOTIFY_SOCKET");
    const Captured captured = captureBegin();
    linuxNotify("READY=1");
    EXPECT_EQ(captureEnd(captured), Lines{});
    for (const char *name : {"", "relative", "vsock:2:1234", " /run/notify"}) {
        EXPECT_EQ(tell(name, "READY=1"), Lines{}) << name;
    }
}

TEST(Notify, NamesThatAreTooLong) {
    const Lines said = {"snoopd6: NOTIFY_SOCKET names no socket: the path is too long\n"};
    EXPECT_EQ(tell("/" + std::string(107, 'n'), "READY=1"), said);
    EXPECT_EQ(tell("@" + std::string(107, 'n'), "READY=1"), said);
    EXPECT_EQ(tell("/" + std::string(100000, 'n'), "READY=1"), said);
}

TEST(Notify, AManagerThatIsNotThere) {
    const std::string path = testFolder() + "/gone";
    unlink(path.c_str());
    EXPECT_EQ(tell(path, "READY=1"), Lines{"snoopd6: cannot tell the service manager: No such file or directory\n"});
    close(listenAt(path));
    EXPECT_EQ(tell(path, "READY=1"), Lines{"snoopd6: cannot tell the service manager: Connection refused\n"});
}

TEST(Notify, AManagerThatDoesNotListenIsNotWaitedFor) {
    const std::string path = testFolder() + "/deaf";
    const int fd = listenAt(path);
    Lines said;
    uint32_t told = 0;
    for (; said.empty() && told < 100000; told++) {
        said = tell(path, "READY=1");
    }
    EXPECT_EQ(said, Lines{"snoopd6: cannot tell the service manager: Resource temporarily unavailable\n"});
    for (uint32_t i = 1; i < told; i++) {
        ASSERT_EQ(received(fd), "READY=1");
    }
    EXPECT_EQ(received(fd), "nothing");
    close(fd);
}
