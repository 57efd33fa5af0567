#include "platform/linux/logline.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

// The variable is inherited by children whose standard error may lead elsewhere, so it counts only when it names this very
// file: "device:inode".
static bool stderrIsJournal() {
    const char *stream = getenv("JOURNAL_STREAM");
    struct stat file;
    if (stream == nullptr || fstat(STDERR_FILENO, &file) != 0) {
        return false;
    }
    char own[48];
    snprintf(own, sizeof own, "%ju:%ju", static_cast<uintmax_t>(file.st_dev), static_cast<uintmax_t>(file.st_ino));
    return strcmp(stream, own) == 0;
}

static iovec piece(const char *text, size_t length) { return {const_cast<char *>(text), length}; }

int32_t linuxLogLine(uint32_t level, const char *prefix, const char *text, uint32_t length) {
    char mark[16] = "";
    if (stderrIsJournal()) {
        snprintf(mark, sizeof mark, "<%u>", level);
    }
    const iovec pieces[] = {piece(mark, strlen(mark)), piece(prefix, strlen(prefix)), piece(text, length), piece("\n", 1)};
    ssize_t written = 0;
    do {
        written = writev(STDERR_FILENO, pieces, 4);
    } while (written < 0 && errno == EINTR);
    return written < 0 ? -1 : 0;
}
