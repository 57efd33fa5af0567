#include "platform/linux/childprocess.h"

#include <cerrno>
#include <csignal>
#include <cstdint>

#include <spawn.h>
#include <sys/mman.h>
#include <unistd.h>

namespace {

constexpr int FIRST_INHERITED = 3; // descriptors from here on are not the program's

} // namespace

int linuxChildStart(const char *const *arguments, int input, int output, pid_t *child) {
    posix_spawn_file_actions_t files;
    posix_spawnattr_t attributes;
    sigset_t ignored;
    sigemptyset(&ignored);
    sigaddset(&ignored, SIGPIPE);
    sigaddset(&ignored, SIGUSR2);
    posix_spawn_file_actions_init(&files);
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setsigdefault(&attributes, &ignored);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF);
    if (input >= 0)
        posix_spawn_file_actions_adddup2(&files, input, STDIN_FILENO);
    if (output >= 0)
        posix_spawn_file_actions_adddup2(&files, output, STDOUT_FILENO);
    posix_spawn_file_actions_addclosefrom_np(&files, FIRST_INHERITED);
    const int error = posix_spawn(child, arguments[0], &files, &attributes, const_cast<char **>(arguments), environ);
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&files);
    return error;
}

int linuxMemoryFile(const void *text, size_t length) {
    const int fd = memfd_create("snoopd6", MFD_CLOEXEC);
    const auto *bytes = static_cast<const uint8_t *>(text);
    for (size_t done = 0; fd >= 0 && done < length;) {
        const ssize_t n = pwrite(fd, bytes + done, length - done, static_cast<off_t>(done));
        if (n <= 0 && errno != EINTR) {
            close(fd);
            return -1;
        }
        done += static_cast<size_t>(n > 0 ? n : 0);
    }
    return fd;
}
