#include "tests/contract/linux_env.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "platform/libvos.h"
#include "platform/linux/loop.h"
#include "platform/linux/switchfile.h"

// ---- The small server ----------------------------------------------------------------------------------------------

static int serve(const std::string &mode) {
    if (mode == "log") {
        linuxLog("one %s\nline\x7F", "long");
        return EXIT_SUCCESS;
    }
    if (mode == "file") {
        static LinuxSwitchConfig config;
        char error[256] = "";
        setenv("SNOOPD6_SWITCH", linuxRunFolder(), 1);
        return linuxSwitchFileRead(linuxSwitchFilePath(), &config, error, sizeof error) ? EXIT_SUCCESS : 8;
    }
    uint32_t queueId = 0;
    if (vosMsgInit("/sbin/snoopd6", 255, &queueId) != 0) {
        return EXIT_FAILURE;
    }
    vosPrintf("ready\n");
    static uint8_t buffer[VOS_MSG_MAX];
    VosMsgReplyCtx ctx;
    while (mode == "serve") {
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

bool serverReady(const TestServer &server) {
    char text[6] = "";
    return read(server.output, text, sizeof text) == 6 && memcmp(text, "ready\n", 6) == 0;
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

// ---- The tests' surroundings ---------------------------------------------------------------------------------------

static std::string folder;

const std::string &testFolder() { return folder; }

// The platform locks its network namespace; the machine's own may have a real daemon in it.
static void leaveNetwork() {
    if (unshare(CLONE_NEWNET) != 0 && unshare(CLONE_NEWUSER | CLONE_NEWNET) != 0) {
        fprintf(stderr, "linux_unit: a network namespace of its own is refused: %s\n", strerror(errno));
        exit(EXIT_FAILURE);
    }
}

int main(int argc, char **argv) {
    for (const char *mode : {"serve", "leave", "log", "file"}) {
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
    const int result = RUN_ALL_TESTS();
    std::filesystem::remove_all(folder);
    return result;
}
