#include "platform/linux/options.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <fcntl.h>
#include <unistd.h>

#include "platform/linux/check.h"
#include "platform/linux/loop.h"
#include "platform/linux/protocol.h"
#include "platform/linux/startupstore.h"
#include "platform/linux/switchfile.h"

namespace {

constexpr int STATUS_USAGE = 2;
constexpr uint32_t WORDS_MAX = 4096; // bytes of the program's name and its words that are looked at

void sayHelp() {
    printf("usage: snoopd6 [--check]\n\n"
           "DHCPv6 snooping and IPv6 source guard of a Linux bridge. Stays in the foreground.\n\n"
           "  -c, --check    reads the switch file and the startup file, says what it finds, and starts nothing\n"
           "  -h, --help     this text\n"
           "  -V, --version  the version\n\n"
           "Environment: SNOOPD6_SWITCH, SNOOPD6_STARTUP, SNOOPD6_RUN; see snoopd6(8). SIGHUP reads the switch file again.\n");
}

// The words behind the program's name, each ended by a 0. Returns their bytes.
uint32_t readWords(char (*words)[WORDS_MAX]) {
    const int fd = open("/proc/self/cmdline", O_RDONLY | O_CLOEXEC);
    const ssize_t n = fd < 0 ? -1 : read(fd, *words, sizeof *words - 1);
    if (n < 0)
        linuxFatal("/proc/self/cmdline cannot be read: %s; the daemon needs /proc", strerror(errno));
    close(fd);
    (*words)[n] = '\0';
    const uint32_t name = static_cast<uint32_t>(std::min(static_cast<ssize_t>(strlen(*words) + 1), n));
    memmove(*words, *words + name, sizeof *words - name);
    return static_cast<uint32_t>(n) - name;
}

bool isOption(const char *word, const char *brief, const char *full) {
    return strcmp(word, brief) == 0 || strcmp(word, full) == 0;
}

} // namespace

void linuxOptions() {
    static char words[WORDS_MAX];
    const uint32_t length = readWords(&words);
    if (length == 0)
        return;
    const char *unknown = words;
    if (length > strlen(words) + 1) {
        unknown = words + strlen(words) + 1; // one word is all there may be
    } else if (isOption(words, "-h", "--help")) {
        sayHelp();
        exit(EXIT_SUCCESS);
    } else if (isOption(words, "-V", "--version")) {
        printf("snoopd6 %s\n", SNOOPD6_VERSION);
        exit(EXIT_SUCCESS);
    } else if (isOption(words, "-c", "--check")) {
        exit(linuxCheck() ? EXIT_SUCCESS : EXIT_FAILURE);
    } else if (strcmp(words, "--store") == 0) { // these two are the daemon's own, for its child
        exit(linuxStoreStartup() ? EXIT_SUCCESS : EXIT_FAILURE);
    } else if (strcmp(words, "--erase") == 0) {
        exit(linuxEraseStartup() ? EXIT_SUCCESS : EXIT_FAILURE);
    }
    linuxLog("\"%.64s\" is no word for snoopd6; \"snoopd6 --help\" has them all", unknown);
    exit(STATUS_USAGE);
}
