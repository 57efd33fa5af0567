// The replay of the startup file: a daemon in a process of its own, and this program again as the shell that it starts. The
// startup file, which is its standard input, tells that shell what to do.

#include <csignal>
#include <cstddef>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iostream>
#include <poll.h>
#include <sched.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include "platform/linux/protocol.h"
#include "platform/linux/startupjudge.h"
#include "tests/contract/linux_caller.h"
#include "tests/contract/linux_env.h"

namespace fs = std::filesystem;

// ---- The shell -----------------------------------------------------------------------------------------------------

static int connectTo(const std::string &path) {
    const int fd = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
    sockaddr_un name = {};
    name.sun_family = AF_UNIX;
    path.copy(name.sun_path, sizeof name.sun_path - 1);
    EXPECT_EQ(connect(fd, reinterpret_cast<const sockaddr *>(&name), sizeof name), 0) << strerror(errno);
    return fd;
}

// A question that the daemon's platform answers, whatever the daemon is.
static bool daemonAnswers(const std::string &socketPath) {
    const int fd = connectTo(socketPath);
    const Bytes ask = message(0xFFFF, 1, {});
    uint8_t answer[64];
    const bool answered = send(fd, ask.data(), ask.size(), MSG_NOSIGNAL) > 0 && recv(fd, answer, sizeof answer, 0) > 0;
    close(fd);
    return answered;
}

static void tellDescriptors() {
    for (int fd = 0; fd < 1024; fd++) {
        if (fcntl(fd, F_GETFD) >= 0) {
            printf("open %d\n", fd);
        }
    }
}

static void tellSignals() {
    sigset_t blocked;
    sigprocmask(SIG_BLOCK, nullptr, &blocked);
    for (int signal = 1; signal < SIGRTMIN; signal++) {
        if (sigismember(&blocked, signal) == 1) {
            printf("blocked %d\n", signal);
        }
    }
    for (const int signal : {SIGPIPE, SIGHUP, SIGINT, SIGTERM, SIGUSR1, SIGUSR2, SIGCHLD}) {
        struct sigaction action;
        sigaction(signal, nullptr, &action);
        if (action.sa_handler != SIG_DFL) {
            printf("changed %d\n", signal);
        }
    }
}

int playShell(int argc, char **argv) {
    std::istream &file = std::cin;
    for (std::string word; file >> word;) {
        if (word == "!") { // a remark
            std::getline(file, word);
            continue;
        }
        if (word == "arguments") {
            for (int i = 1; i < argc; i++) {
                printf("%s\n", argv[i]);
            }
        } else if (word == "descriptors") {
            tellDescriptors();
        } else if (word == "signals") {
            tellSignals();
        } else if (word == "ask") {
            printf("%s\n", daemonAnswers(getenv("SNOOPD6_RUN") + std::string("/snoopd6.sock")) ? "answered" : "silence");
        } else if (word == "wait") {
            for (file >> word; !fs::exists(word);) {
                usleep(1000);
            }
        } else if (word == "hang") {
            pause();
        } else if (word == "die") {
            raise(SIGKILL);
        } else if (word == "exit") {
            file >> word;
            fflush(stdout);
            return std::stoi(word);
        }
        printf("did %s\n", word.c_str());
        fflush(stdout);
    }
    return EXIT_SUCCESS;
}

// ---- The tests' daemon ---------------------------------------------------------------------------------------------

static constexpr int PATIENCE = 30000; // ms, for what is certain to come
static constexpr const char *OPEN = ": not all of it is in force";
static constexpr const char *IN_FORCE = "READY=1\nSTATUS=startup file in force, without the marks of a save";

class Startup : public testing::Test {
  protected:
    void SetUp() override {
        ASSERT_EQ(unshare(CLONE_NEWNET), 0);
        folder = testFolder() + "/" + testing::UnitTest::GetInstance()->current_test_info()->name();
        ASSERT_TRUE(fs::create_directory(folder));
        run = folder + "/run";
        file = folder + "/saved.conf";
        setenv("SNOOPD6_STARTUP", file.c_str(), 1);
        setenv("SNOOPD6_SHELL", fs::read_symlink("/proc/self/exe").c_str(), 1);
        listen();
    }

    void TearDown() override {
        close(manager);
        fs::remove_all(folder);
        setenv("SNOOPD6_STARTUP", (testFolder() + "/startup.conf").c_str(), 1);
        for (const char *name : {"SNOOPD6_SHELL", "SNOOPD6_SWITCH", "NOTIFY_SOCKET"}) {
            unsetenv(name);
        }
    }

    void listen() {
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        const std::string path = folder + "/notify";
        path.copy(address.sun_path, sizeof address.sun_path - 1);
        manager = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        ASSERT_EQ(bind(manager, reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);
        setenv("NOTIFY_SOCKET", path.c_str(), 1);
    }

    // What the manager is told next; "" when nothing comes in time.
    std::string told(int timeoutMs = PATIENCE) const {
        pollfd watched = {.fd = manager, .events = POLLIN, .revents = 0};
        char text[2048];
        const ssize_t n = poll(&watched, 1, timeoutMs) == 1 ? recv(manager, text, sizeof text, 0) : 0;
        return {text, static_cast<size_t>(n)};
    }

    void save(const std::string &words) const { std::ofstream(file) << words; }

    std::string inForce() const {
        return "snoopd6: " + file + " is in force; it has no marks of a save, like a file that is written by hand\n";
    }

    // What is said of a shell that failed.
    std::string failed(const std::string &how) const { return "the shell that replays " + file + " " + how + OPEN; }

    void expectOpen(const std::string &reason, const char *mode = "serve") const {
        const TestServer server = start(mode);
        EXPECT_EQ(told(), "READY=1\nSTATUS=open after a failure: " + reason);
        EXPECT_EQ(stop(server), "snoopd6: " + reason + "; the switch is OPEN: what is not configured anew is not guarded\n");
    }

    TestServer start(const char *mode = "serve") const {
        const TestServer server = serverStart(mode, run);
        EXPECT_TRUE(serverReady(server));
        return server;
    }

    // Ends a few waits for messages, so that the daemon begins the next ones: what was sent before is taken before the last
    // one is answered.
    void serveAFew() const {
        const int fd = connectTo(run + "/snoopd6.sock");
        for (uint32_t i = 0; i < 3; i++) {
            callerSend(fd, message(1, i, {}));
        }
        callerSend(fd, message(0xFFFF, 1, {}));
        uint8_t answer[64];
        EXPECT_GT(recv(fd, answer, sizeof answer, 0), 0);
        close(fd);
    }

    // The daemon serves, is stopped, and has told the manager nothing more; what it wrote to its log.
    std::string stop(const TestServer &server) const {
        EXPECT_TRUE(daemonAnswers(run + "/snoopd6.sock"));
        kill(server.pid, SIGTERM);
        std::string said;
        EXPECT_EQ(serverEnd(server, &said), 0);
        EXPECT_EQ(told(0), "");
        EXPECT_FALSE(fs::exists(run));
        return said;
    }

    std::string folder;
    std::string run;
    std::string file;
    int manager = -1;
};

// ---- What is replayed ----------------------------------------------------------------------------------------------

TEST_F(Startup, NoFile) {
    setenv("SNOOPD6_SHELL", "/bin/false", 1);
    const TestServer server = start();
    EXPECT_EQ(told(), "READY=1\nSTATUS=no startup file");
    serveAFew();
    EXPECT_EQ(told(0), "") << "once";
    EXPECT_EQ(stop(server), "");
}

TEST_F(Startup, TheShellGoesThroughTheFile) {
    save("arguments ask");
    const TestServer server = start();
    for (const std::string &line :
         {std::string("--keep-going"), std::string("--startup"), file, std::string("-f"), std::string("-")}) {
        EXPECT_EQ(serverLine(server), line);
    }
    EXPECT_EQ(serverLine(server), "did arguments");
    EXPECT_EQ(serverLine(server), "answered") << "the daemon serves the shell that it started";
    EXPECT_EQ(told(), IN_FORCE);
    EXPECT_EQ(stop(server), inForce());
}

TEST_F(Startup, ReadyOnlyWhenTheShellHasEnded) {
    save("ask wait " + folder + "/go");
    const TestServer server = start();
    EXPECT_EQ(serverLine(server), "answered");
    EXPECT_EQ(serverLine(server), "did ask");
    for (uint32_t i = 0; i < 3; i++) {
        EXPECT_TRUE(daemonAnswers(run + "/snoopd6.sock"));
    }
    EXPECT_EQ(told(200), "");
    std::ofstream(folder + "/go") << "x";
    EXPECT_EQ(told(), IN_FORCE);
    stop(server);
}

TEST_F(Startup, OnlyOnce) {
    save("arguments");
    const TestServer server = start();
    EXPECT_EQ(told(), IN_FORCE);
    serveAFew();
    const std::string said = stop(server);
    EXPECT_EQ(said, inForce());
}

TEST_F(Startup, AFailingLine) {
    save("ask exit 1");
    const TestServer server = start();
    EXPECT_EQ(told(), "READY=1\nSTATUS=not all of the startup file is in force");
    EXPECT_EQ(stop(server), "snoopd6: not all of " + file + " is in force\n");
}

TEST_F(Startup, AShellThatDies) {
    save("die");
    expectOpen(failed("was ended by signal 9"));
}

TEST_F(Startup, AShellThatEndsInItsOwnWay) {
    save("exit 3");
    expectOpen(failed("ended with status 3"));
}

TEST_F(Startup, AShellThatHangs) {
    save("hang");
    expectOpen(failed("did not come to an end"), "hasty");
}

TEST_F(Startup, AShellThatTakesLessThanItMay) {
    save("ask exit 0");
    const TestServer server = start("hasty");
    EXPECT_EQ(told(), IN_FORCE);
    usleep(400000); // past the time that it had
    EXPECT_EQ(stop(server), inForce());
}

TEST_F(Startup, ShellsThatCannotBeStarted) {
    std::ofstream(folder + "/text") << "x";
    for (const auto &[shell, reason] :
         std::vector<std::pair<std::string, std::string>>{{folder + "/none", "No such file or directory"},
                                                          {folder + "/text", "Permission denied"},
                                                          {folder, "Permission denied"}}) {
        save("arguments");
        setenv("SNOOPD6_SHELL", shell.c_str(), 1);
        const std::string fault = file + " cannot be replayed: " + shell + ": " + reason;
        const TestServer server = start("hasty");
        EXPECT_EQ(told(), "READY=1\nSTATUS=open after a failure: " + fault);
        usleep(300000); // past the time that a shell would have had
        EXPECT_EQ(stop(server), "snoopd6: " + fault + "; the switch is OPEN: what is not configured anew is not guarded\n");
    }
}

TEST_F(Startup, StoppedWhileTheShellRuns) {
    save("ask hang");
    const TestServer server = start();
    EXPECT_EQ(serverLine(server), "answered");
    EXPECT_EQ(serverLine(server), "did ask");
    kill(server.pid, SIGTERM);
    EXPECT_EQ(serverLine(server), "") << "the shell has ended too: nobody holds the output open";
    std::string said;
    EXPECT_EQ(serverEnd(server, &said), 0);
    EXPECT_EQ(said, "");
    EXPECT_EQ(told(0), "") << "it never was ready";
    EXPECT_FALSE(fs::exists(run));
}

TEST_F(Startup, TheShellGetsNothingOfTheDaemons) {
    const int inherited = dup(STDERR_FILENO); // stays open in whatever this process starts
    save("descriptors signals");
    const TestServer server = start();
    for (const char *line : {"open 0", "open 1", "open 2", "did descriptors", "did signals"}) {
        EXPECT_EQ(serverLine(server), line);
    }
    EXPECT_EQ(told(), IN_FORCE);
    stop(server);
    close(inherited);
}

// ---- Where the file is ---------------------------------------------------------------------------------------------

TEST_F(Startup, BesideTheSwitchFile) {
    setenv("SNOOPD6_SWITCH", (folder + "/switch.toml").c_str(), 1);
    file = folder + "/startup.conf";
    save("arguments");
    for (const char *given : {"", static_cast<const char *>(nullptr)}) {
        if (given != nullptr) {
            setenv("SNOOPD6_STARTUP", given, 1);
        } else {
            unsetenv("SNOOPD6_STARTUP");
        }
        const TestServer server = start();
        EXPECT_EQ(told(), IN_FORCE);
        EXPECT_EQ(stop(server), inForce());
    }
}

TEST_F(Startup, ANameWithoutAFolder) {
    const fs::path before = fs::current_path();
    fs::current_path(folder);
    setenv("SNOOPD6_SWITCH", "switch.toml", 1);
    for (const std::string name : {"saved.conf", ""}) {
        setenv("SNOOPD6_STARTUP", name.c_str(), 1);
        file = folder + "/" + (name.empty() ? "startup.conf" : name);
        save("arguments");
        const TestServer server = start();
        serverLine(server);
        EXPECT_EQ(serverLine(server), "--startup");
        EXPECT_EQ(serverLine(server), file) << "callers have folders of their own";
        EXPECT_EQ(told(), IN_FORCE);
        stop(server);
    }
    fs::current_path(before);
}

TEST_F(Startup, AFileThatCannotBeLookedAtIsNotTakenForNone) {
    std::ofstream(folder + "/text") << "x";
    file = folder + "/text/saved.conf";
    setenv("SNOOPD6_STARTUP", file.c_str(), 1);
    expectOpen(file + " cannot be read: Not a directory; " + file + ".last-good cannot be read: Not a directory");
}

// ---- Files that are not whole --------------------------------------------------------------------------------------

TEST_F(Startup, TheLastGoodFile) {
    const std::string good = file + ".last-good";
    std::ofstream(good) << linuxStartupMarked("arguments\n");
    const std::string fault = file + " is missing, although " + good + " is there; " + good + " is used";
    const TestServer server = start();
    for (const char *line : {"--keep-going", "--startup"})
        EXPECT_EQ(serverLine(server), line);
    EXPECT_EQ(serverLine(server), good);
    EXPECT_EQ(told(), "READY=1\nSTATUS=last good startup file in force: " + fault);
    EXPECT_EQ(stop(server), "snoopd6: " + fault + "\nsnoopd6: " + good + " is in force\n");
}

TEST_F(Startup, NothingGood) {
    save("");
    expectOpen(file + " is empty; there is no last good file");
    std::ofstream(file + ".last-good") << LINUX_STARTUP_HEAD << "\n";
    expectOpen(file + " is empty; " + file + ".last-good is cut off: its last line is missing");
}

TEST_F(Startup, AFifoIsNotWaitedFor) {
    ASSERT_EQ(mkfifo(file.c_str(), 0600), 0);
    expectOpen(file + " is not an ordinary file; there is no last good file");
}

TEST_F(Startup, ACompleteFile) {
    save(linuxStartupMarked("ask\n"));
    const TestServer server = start();
    EXPECT_EQ(told(), "READY=1\nSTATUS=startup file in force");
    EXPECT_EQ(stop(server), "snoopd6: " + file + " is in force\n");
}
