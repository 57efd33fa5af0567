// One snoopd6 at a time, and nothing left behind. Every server is a process of its own with a run folder of its own.

#include <cerrno>
#include <csignal>
#include <cstddef>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tests/contract/linux_env.h"

namespace fs = std::filesystem;

// Each test gets a network namespace of its own: the queue tests of this process hold the lock of theirs.
class Process : public testing::Test {
  protected:
    void SetUp() override {
        ASSERT_EQ(unshare(CLONE_NEWNET), 0);
        run = testFolder() + "/" + testing::UnitTest::GetInstance()->current_test_info()->name();
    }

    std::string run;
    std::string said;
};

static int stopServer(const TestServer &server, int signal, std::string *said) {
    kill(server.pid, signal);
    return serverEnd(server, said);
}

static std::string firstWords(const std::string &text, size_t length) { return text.substr(0, length); }

static void expectOneSentence(const std::string &said, const std::string &part) {
    EXPECT_EQ(firstWords(said, 9), "snoopd6: ");
    EXPECT_NE(said.find(part), std::string::npos) << said;
    EXPECT_EQ(said.find('\n'), said.size() - 1) << said;
}

TEST_F(Process, StopsOnSignalAndLeavesNothing) {
    for (const int signal : {SIGTERM, SIGINT}) {
        const TestServer server = serverStart("serve", run);
        ASSERT_TRUE(serverReady(server));
        struct stat file;
        ASSERT_EQ(stat((run + "/snoopd6.sock").c_str(), &file), 0);
        EXPECT_TRUE(S_ISSOCK(file.st_mode));
        EXPECT_EQ(file.st_mode & 07777, 0660u);
        ASSERT_EQ(stat(run.c_str(), &file), 0);
        EXPECT_EQ(file.st_mode & 07777, 0755u);
        EXPECT_EQ(stopServer(server, signal, &said), 0);
        EXPECT_EQ(said, "");
        EXPECT_FALSE(fs::exists(run));
    }
}

TEST_F(Process, LeavesNothingWhenMainReturns) {
    const TestServer server = serverStart("leave", run);
    EXPECT_EQ(serverEnd(server, &said), 7);
    EXPECT_FALSE(fs::exists(run));
}

TEST_F(Process, KeepsAFolderThatWasThere) {
    fs::create_directory(run);
    const TestServer server = serverStart("serve", run);
    ASSERT_TRUE(serverReady(server));
    EXPECT_EQ(stopServer(server, SIGTERM, &said), 0);
    EXPECT_TRUE(fs::is_directory(run));
    EXPECT_TRUE(fs::is_empty(run));
}

TEST_F(Process, KeepsAFolderWithFilesOfOthers) {
    const TestServer server = serverStart("serve", run);
    ASSERT_TRUE(serverReady(server));
    std::ofstream(run + "/other") << "x";
    EXPECT_EQ(stopServer(server, SIGTERM, &said), 0);
    EXPECT_TRUE(fs::exists(run + "/other"));
    EXPECT_FALSE(fs::exists(run + "/snoopd6.sock"));
    EXPECT_FALSE(fs::exists(run + "/snoopd6.lock"));
}

TEST_F(Process, SecondOneInTheFolderIsRefused) {
    const TestServer server = serverStart("serve", run);
    ASSERT_TRUE(serverReady(server));
    ASSERT_EQ(unshare(CLONE_NEWNET), 0); // the folder's lock alone has to hold
    const TestServer second = serverStart("serve", run);
    EXPECT_EQ(serverEnd(second, &said), 1);
    expectOneSentence(said, run + "/snoopd6.lock is locked: another snoopd6 (process " + std::to_string(server.pid) + ")");
    EXPECT_TRUE(fs::exists(run + "/snoopd6.sock"));
    EXPECT_TRUE(fs::exists(run + "/snoopd6.lock"));
    EXPECT_EQ(stopServer(server, SIGTERM, &said), 0);
}

TEST_F(Process, SecondOneInTheNetworkNamespaceIsRefused) {
    const TestServer server = serverStart("serve", run);
    ASSERT_TRUE(serverReady(server));
    const TestServer second = serverStart("serve", run + "2");
    EXPECT_EQ(serverEnd(second, &said), 1);
    const std::string who = geteuid() == 0 ? " (process " + std::to_string(server.pid) + ")" : ""; // the kernel tells root only
    expectOneSentence(said, "another snoopd6" + who + " serves this network namespace");
    EXPECT_FALSE(fs::exists(run + "2"));
    EXPECT_EQ(stopServer(server, SIGTERM, &said), 0);
}

TEST_F(Process, StartsAgainAfterItWasKilled) {
    const TestServer server = serverStart("serve", run);
    ASSERT_TRUE(serverReady(server));
    EXPECT_EQ(stopServer(server, SIGKILL, &said), 1000 + SIGKILL);
    ASSERT_TRUE(fs::exists(run + "/snoopd6.sock"));
    const TestServer again = serverStart("serve", run);
    ASSERT_TRUE(serverReady(again));
    EXPECT_EQ(stopServer(again, SIGTERM, &said), 0);
    EXPECT_EQ(said, "");
}

TEST_F(Process, SocketOfAnotherProgramIsLeftAlone) {
    for (const int type : {SOCK_SEQPACKET, SOCK_STREAM}) {
        fs::create_directory(run);
        const std::string path = run + "/snoopd6.sock";
        const int fd = socket(AF_UNIX, type | SOCK_CLOEXEC, 0);
        sockaddr_un name = {};
        name.sun_family = AF_UNIX;
        path.copy(name.sun_path, sizeof name.sun_path - 1);
        ASSERT_EQ(bind(fd, reinterpret_cast<const sockaddr *>(&name), sizeof name), 0);
        ASSERT_EQ(listen(fd, 1), 0);
        const TestServer server = serverStart("serve", run);
        EXPECT_EQ(serverEnd(server, &said), 1);
        expectOneSentence(said, path + " is in use by another program");
        EXPECT_TRUE(fs::exists(path));
        EXPECT_FALSE(fs::exists(run + "/snoopd6.lock"));
        close(fd);
        fs::remove_all(run);
    }
}

TEST_F(Process, FileInTheWayIsLeftAlone) {
    fs::create_directory(run);
    std::ofstream(run + "/snoopd6.sock") << "x";
    const TestServer server = serverStart("serve", run);
    EXPECT_EQ(serverEnd(server, &said), 1);
    expectOneSentence(said, run + "/snoopd6.sock is in the way and is no socket");
    EXPECT_TRUE(fs::exists(run + "/snoopd6.sock"));
}

TEST_F(Process, FoldersThatCannotBe) {
    EXPECT_EQ(serverEnd(serverStart("serve", run + "/deep/down"), &said), 1);
    expectOneSentence(said, "the run folder " + run + "/deep/down cannot be made: No such file or directory");
    EXPECT_EQ(serverEnd(serverStart("serve", run + std::string(100, 'x')), &said), 1);
    expectOneSentence(said, "is too long a name for a socket in it: at most 107 characters");
    std::ofstream(run) << "x";
    EXPECT_EQ(serverEnd(serverStart("serve", run), &said), 1);
    expectOneSentence(said, "the run folder " + run + " is not a folder");
    EXPECT_TRUE(fs::is_regular_file(run));
}

// ---- Signals -------------------------------------------------------------------------------------------------------

TEST_F(Process, StopUndoesWhatLeavingDoesNot) {
    const std::string always = "snoopd6: undone always\n";
    for (const auto &[signal, expected] :
         std::vector<std::pair<int, std::string>>{{SIGTERM, always + "snoopd6: undone at a stop\n"}, {SIGUSR1, always}}) {
        const TestServer server = serverStart("undo", run);
        ASSERT_TRUE(serverReady(server));
        EXPECT_EQ(stopServer(server, signal, &said), 0);
        EXPECT_EQ(said, expected);
        EXPECT_FALSE(fs::exists(run));
    }
}

TEST_F(Process, SignalsThatItLivesOn) {
    const TestServer server = serverStart("undo", run);
    ASSERT_TRUE(serverReady(server));
    for (uint32_t i = 0; i < 3; i++) {
        kill(server.pid, SIGUSR2);
        kill(server.pid, SIGHUP);
        EXPECT_EQ(serverLine(server), "hung up");
    }
    EXPECT_EQ(stopServer(server, SIGTERM, &said), 0);
    const TestServer other = serverStart("serve", run); // where nothing is to be read again
    ASSERT_TRUE(serverReady(other));
    kill(other.pid, SIGHUP);
    EXPECT_EQ(stopServer(other, SIGTERM, &said), 0);
    EXPECT_EQ(said, "");
}

// ---- Locks that others want ----------------------------------------------------------------------------------------

// Runs in a process of another user, who has no rights; its exit status.
template <typename Act> static int asStranger(Act act) {
    const int pid = fork();
    if (pid == 0) {
        _exit(setgid(65534) == 0 && setuid(65534) == 0 ? act() : 9);
    }
    int status = 0;
    waitpid(pid, &status, 0);
    return WEXITSTATUS(status);
}

static int expectServes(const std::string &run) {
    std::string said;
    const TestServer server = serverStart("serve", run);
    EXPECT_TRUE(serverReady(server));
    const int status = stopServer(server, SIGTERM, &said);
    EXPECT_EQ(said, "");
    return status;
}

// Binds the abstract name, as anybody may.
static int takeName(const std::string &text) {
    const int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_un name = {};
    name.sun_family = AF_UNIX;
    text.copy(&name.sun_path[1], sizeof name.sun_path - 1);
    const auto length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + text.size());
    EXPECT_EQ(bind(fd, reinterpret_cast<const sockaddr *>(&name), length), 0);
    return fd;
}

TEST_F(Process, AbstractNamesAreNoLock) {
    const int fd = takeName("snoopd6");
    EXPECT_EQ(expectServes(run), 0);
    close(fd);
}

TEST_F(Process, LockOfTheNetworkNamespaceTakesTheRightToAdministerIt) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "needs root to become another user";
    }
    fs::create_directory(run);
    ASSERT_EQ(chown(run.c_str(), 65534, 65534), 0);
    const TestServer stranger = serverStart("leave", run, 65534);
    EXPECT_EQ(serverEnd(stranger, &said), 1);
    expectOneSentence(said, "the network namespace cannot be locked (nfnetlink_log, group 23814): Operation not permitted");
    EXPECT_EQ(expectServes(run + "2"), 0);
}

TEST_F(Process, LockOfTheNetworkNamespaceIsFreeAsSoonAsItsOwnerHasEnded) {
    for (uint32_t i = 0; i < 20; i++) {
        const TestServer server = serverStart("serve", run);
        ASSERT_TRUE(serverReady(server));
        ASSERT_EQ(stopServer(server, SIGKILL, &said), 1000 + SIGKILL);
    }
    EXPECT_EQ(expectServes(run), 0);
}

TEST_F(Process, LockFileIsForTheDaemonAlone) {
    for (const mode_t mask : {0022, 0000, 0777}) {
        const mode_t before = umask(mask);
        const TestServer server = serverStart("serve", run);
        umask(before);
        ASSERT_TRUE(serverReady(server));
        struct stat file;
        ASSERT_EQ(stat((run + "/snoopd6.lock").c_str(), &file), 0);
        EXPECT_EQ(file.st_mode & 07777, 0600u);
        ASSERT_EQ(stat(run.c_str(), &file), 0);
        EXPECT_EQ(file.st_mode & 07777, 0755u);
        EXPECT_EQ(stopServer(server, SIGKILL, &said), 1000 + SIGKILL);
        EXPECT_EQ(expectServes(run), 0) << "the file that is left can be opened again";
    }
}

TEST_F(Process, LockFileThatOthersCanOpenIsReplaced) {
    fs::create_directory(run);
    const std::string path = run + "/snoopd6.lock";
    for (const mode_t mode : {0644, 0660, 0606}) {
        std::ofstream(path) << "1\n";
        ASSERT_EQ(chmod(path.c_str(), mode), 0);
        const int held = open(path.c_str(), O_RDONLY | O_CLOEXEC);
        ASSERT_EQ(flock(held, LOCK_EX | LOCK_NB), 0);
        EXPECT_EQ(expectServes(run), 0);
        close(held);
    }
    std::ofstream(path) << "1\n";
    ASSERT_EQ(chmod(path.c_str(), 0600), 0);
    fs::create_hard_link(path, run + "/other");
    const int held = open((run + "/other").c_str(), O_RDONLY | O_CLOEXEC);
    ASSERT_EQ(flock(held, LOCK_EX | LOCK_NB), 0);
    EXPECT_EQ(expectServes(run), 0);
    close(held);
    EXPECT_TRUE(fs::exists(run + "/other"));
}

TEST_F(Process, StrangersCannotLockTheFile) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "needs root to become another user";
    }
    const TestServer server = serverStart("serve", run);
    ASSERT_TRUE(serverReady(server));
    EXPECT_EQ(stopServer(server, SIGKILL, &said), 1000 + SIGKILL);
    const std::string path = run + "/snoopd6.lock";
    EXPECT_EQ(asStranger([&]() { return open(path.c_str(), O_RDONLY) < 0 && errno == EACCES ? 0 : 1; }), 0);
    EXPECT_EQ(asStranger([&]() { return unlink(path.c_str()) != 0 && errno == EACCES ? 0 : 1; }), 0);
    EXPECT_EQ(expectServes(run), 0);
}

TEST_F(Process, SymbolicLinksAreNotFollowed) {
    const std::string target = testFolder() + "/target";
    std::ofstream(target) << "mine";
    fs::create_directory(run);
    fs::create_symlink(target, run + "/snoopd6.lock");
    EXPECT_EQ(serverEnd(serverStart("leave", run), &said), 1);
    expectOneSentence(said, run + "/snoopd6.lock cannot be opened: Too many levels of symbolic links");
    EXPECT_EQ(fs::file_size(target), 4u);
    fs::create_directory_symlink(run, run + "-link");
    for (const std::string end : {"", "/", "//"}) {
        EXPECT_EQ(serverEnd(serverStart("leave", run + "-link" + end), &said), 1);
        expectOneSentence(said, "the run folder " + run + "-link" + end + " is a symbolic link");
    }
}

TEST_F(Process, FoldersThatOthersMayWriteInto) {
    fs::create_directory(run);
    for (const mode_t mode : {0775, 0757, 01777}) {
        ASSERT_EQ(chmod(run.c_str(), mode), 0);
        EXPECT_EQ(serverEnd(serverStart("leave", run), &said), 1);
        expectOneSentence(said, "the run folder " + run + " is writable for its group or for everybody");
        EXPECT_TRUE(fs::is_empty(run));
    }
    if (geteuid() != 0) {
        GTEST_SKIP() << "needs root to give a folder away";
    }
    ASSERT_EQ(chmod(run.c_str(), 0755), 0);
    ASSERT_EQ(chown(run.c_str(), 65534, 65534), 0);
    EXPECT_EQ(serverEnd(serverStart("leave", run), &said), 1);
    expectOneSentence(said, "the run folder " + run + " belongs to another user than root and the daemon's");
    EXPECT_TRUE(fs::is_empty(run));
}

TEST_F(Process, RightsAreMissing) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "needs root to become another user";
    }
    fs::create_directory(run);
    EXPECT_EQ(serverEnd(serverStart("serve", run, 65534), &said), 1);
    expectOneSentence(said, run + "/snoopd6.lock cannot be opened: Permission denied; run as root or set SNOOPD6_RUN");
    EXPECT_EQ(serverEnd(serverStart("serve", run + "/folder", 65534), &said), 1);
    expectOneSentence(said, "the run folder " + run + "/folder cannot be made: Permission denied");
}

TEST_F(Process, LogLines) {
    EXPECT_EQ(serverEnd(serverStart("log", run), &said), 0);
    EXPECT_EQ(said, "snoopd6: one long?line?\n");
    EXPECT_EQ(serverEnd(serverStart("flood", run), &said), 0);
    EXPECT_EQ(said, "snoopd6: knock 0\nsnoopd6: knock 1\nsnoopd6: knock 2\nsnoopd6: knock 3\nsnoopd6: knock 4\n"
                    "snoopd6: knock 99 (94 more like this)\n");
}
