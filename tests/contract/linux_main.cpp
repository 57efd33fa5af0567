#include "tests/contract/linux_env.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <linux/capability.h>
#include <poll.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include "platform/libvos.h"
#include "platform/linux/loglimit.h"
#include "platform/linux/loop.h"
#include "platform/linux/startupshell.h"
#include "platform/linux/startupstore.h"
#include "platform/linux/switchfile.h"

// ---- The small server ----------------------------------------------------------------------------------------------

static constexpr int PATIENCE = 30000; // ms, for a line that is certain to come

static int serve(const std::string &mode) {
    if (mode == "log") {
        linuxLog("one %s\nline\x7F", "long");
        return EXIT_SUCCESS;
    }
    if (mode == "flood") {
        for (uint32_t i = 0; i < 100; i++) {
            linuxLogLimited("knock %u", i);
        }
        return EXIT_SUCCESS;
    }
    if (mode == "file") {
        static LinuxSwitchConfig config;
        char error[256] = "";
        setenv("SNOOPD6_SWITCH", linuxRunFolder(), 1);
        return linuxSwitchFileRead(linuxSwitchFilePath(), &config, error, sizeof error) ? EXIT_SUCCESS : 8;
    }
    if (mode == "undo") {
        linuxAtStop([]() { linuxLog("undone at a stop"); }, LINUX_UNDO_AT_STOP);
        linuxAtStop([]() { linuxLog("undone always"); });
        linuxOnHangup([]() { vosPrintf("hung up\n"); });
    }
    uint32_t queueId = 0;
    if (vosMsgInit("/sbin/snoopd6", 255, &queueId) != 0) {
        return EXIT_FAILURE;
    }
    vosPrintf("ready\n");
    static uint8_t buffer[VOS_MSG_MAX];
    VosMsgReplyCtx ctx;
    if (mode == "hasty") {
        linuxStartupPatience = {0, 200000};
    }
    while (mode != "leave") {
        vosMsgRecv(queueId, buffer, sizeof buffer, -1, &ctx);
    }
    return 7;
}

TestServer serverStart(const std::string &mode, const std::string &run, unsigned user) {
    int output[2];
    int errors[2];
    if (pipe2(output, O_CLOEXEC) != 0 || pipe2(errors, O_CLOEXEC) != 0) {
        perror("pipe2");
        abort();
    }
    const int pid = fork();
    if (pid == 0) {
        dup2(output[1], STDOUT_FILENO);
        dup2(errors[1], STDERR_FILENO);
        setenv("SNOOPD6_RUN", run.c_str(), 1);
        const int self = open("/proc/self/exe", O_RDONLY | O_CLOEXEC);
        if (user != 0 && (setgid(user) != 0 || setuid(user) != 0)) {
            _exit(EXIT_FAILURE);
        }
        const std::string option = "--" + mode;
        char *arguments[] = {const_cast<char *>("linux_unit"), const_cast<char *>(option.c_str()), nullptr};
        fexecve(self, arguments, environ);
        _exit(EXIT_FAILURE);
    }
    close(output[1]);
    close(errors[1]);
    return {pid, output[0], errors[0]};
}

bool serverReady(const TestServer &server) { return serverLine(server) == "ready"; }

std::string serverLine(const TestServer &server) {
    pollfd output = {.fd = server.output, .events = POLLIN, .revents = 0};
    std::string line;
    for (char ch = 0; poll(&output, 1, PATIENCE) == 1 && read(server.output, &ch, 1) == 1 && ch != '\n';) {
        line += ch;
    }
    return line;
}

int serverEnd(const TestServer &server, std::string *said) {
    char piece[512];
    said->clear();
    for (ssize_t n = 0; (n = read(server.errors, piece, sizeof piece)) > 0;) {
        said->append(piece, static_cast<size_t>(n));
    }
    int status = 0;
    waitpid(server.pid, &status, 0);
    close(server.output);
    close(server.errors);
    return WIFSIGNALED(status) ? 1000 + WTERMSIG(status) : WEXITSTATUS(status);
}

Captured captureBegin() {
    int ends[2];
    EXPECT_EQ(pipe2(ends, O_DIRECT | O_CLOEXEC | O_NONBLOCK), 0);
    const Captured captured = {ends[0], dup(STDERR_FILENO)};
    dup2(ends[1], STDERR_FILENO);
    close(ends[1]);
    return captured;
}

std::vector<std::string> captureEnd(const Captured &captured) {
    dup2(captured.saved, STDERR_FILENO);
    close(captured.saved);
    std::vector<std::string> writes;
    char text[4096];
    for (ssize_t n = 0; (n = read(captured.read, text, sizeof text)) > 0;) {
        writes.emplace_back(text, static_cast<size_t>(n));
    }
    close(captured.read);
    return writes;
}

// ---- The tests' surroundings ---------------------------------------------------------------------------------------

static std::string folder;

const std::string &testFolder() { return folder; }

// An ordinary user has rights in a user namespace of its own; the programs started here need one of them.
static bool handRightOn() {
    __user_cap_header_struct header = {.version = _LINUX_CAPABILITY_VERSION_3, .pid = 0};
    __user_cap_data_struct data[_LINUX_CAPABILITY_U32S_3] = {};
    if (syscall(SYS_capget, &header, data) != 0) {
        return false;
    }
    data[0].inheritable |= 1u << CAP_NET_ADMIN;
    return syscall(SYS_capset, &header, data) == 0 && prctl(PR_CAP_AMBIENT, PR_CAP_AMBIENT_RAISE, CAP_NET_ADMIN, 0, 0) == 0;
}

// The platform locks its network namespace; the machine's own may have a real daemon in it.
static void leaveNetwork() {
    if (unshare(CLONE_NEWNET) != 0 && (unshare(CLONE_NEWUSER | CLONE_NEWNET) != 0 || !handRightOn())) {
        fprintf(stderr, "linux_unit: a network namespace of its own is refused: %s\n", strerror(errno));
        exit(EXIT_FAILURE);
    }
}

int main(int argc, char **argv) {
    if (argc > 1 && strcmp(argv[1], "--keep-going") == 0) {
        return playShell(argc, argv);
    }
    if (argc > 1 && strcmp(argv[1], "--store") == 0) {
        return linuxStoreStartup() ? EXIT_SUCCESS : EXIT_FAILURE;
    }
    if (argc > 1 && strcmp(argv[1], "--erase") == 0) {
        return linuxEraseStartup() ? EXIT_SUCCESS : EXIT_FAILURE;
    }
    for (const char *mode : {"serve", "hasty", "undo", "leave", "log", "flood", "file"}) {
        if (argc == 2 && std::string("--") + mode == argv[1]) {
            return serve(mode);
        }
    }
    testing::InitGoogleTest(&argc, argv);
    leaveNetwork();
    folder = std::filesystem::temp_directory_path() / "snoopd6-unit-XXXXXX";
    if (mkdtemp(folder.data()) == nullptr || chmod(folder.c_str(), 0755) != 0) {
        perror("mkdtemp");
        return EXIT_FAILURE;
    }
    setenv("SNOOPD6_RUN", (folder + "/queue").c_str(), 1);
    setenv("SNOOPD6_STARTUP", (folder + "/startup.conf").c_str(), 1); // there is none
    unsetenv("NOTIFY_SOCKET");
    const int result = RUN_ALL_TESTS();
    std::filesystem::remove_all(folder);
    return result;
}
