#include "platform/linux/brrecord.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/linux/loop.h"
#include "platform/linux/ownfolder.h"

namespace {

constexpr const char *STATE_DEFAULT = "/var/lib/snoopd6";

bool folderMade;

const char *setting(const char *name) {
    const char *value = getenv(name);
    return value != nullptr && value[0] != '\0' ? value : nullptr;
}

std::string stateFolder() {
    if (const char *given = setting("SNOOPD6_STATE"))
        return given;
    if (const char *service = setting("STATE_DIRECTORY"))
        return std::string(service).substr(0, strcspn(service, ":"));
    return setting("SNOOPD6_RUN") != nullptr ? linuxRunFolder() : STATE_DEFAULT;
}

std::string recordPath() { return stateFolder() + "/bridge-netfilter"; }

// The small file as a text without its line end; "" when it cannot be read, or is not the daemon's.
std::string readText(const char *path, bool mustBeOwn) {
    char text[256];
    struct stat file;
    const int fd = open(path, O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
    if (fd < 0)
        return "";
    const bool own = fstat(fd, &file) == 0 && S_ISREG(file.st_mode) && (file.st_uid == geteuid() || file.st_uid == 0) &&
                     (file.st_mode & 022) == 0;
    const ssize_t n = own || !mustBeOwn ? read(fd, text, sizeof text) : 0;
    close(fd);
    const std::string found(text, n > 0 ? static_cast<size_t>(n) : 0);
    return found.substr(0, found.find('\n'));
}

// What the record holds for: this boot and this network namespace.
std::string placeText() {
    struct stat place;
    if (stat("/proc/self/ns/net", &place) != 0)
        return "";
    return "boot " + readText("/proc/sys/kernel/random/boot_id", false) + " namespace " + std::to_string(place.st_dev) + ":" +
           std::to_string(place.st_ino);
}

std::string bitsText(const std::array<bool, 3> &bits) {
    std::string text;
    for (const bool bit : bits)
        text += bit ? '1' : '0';
    return text;
}

std::string recordText(const LinuxBrRecord &record, uint32_t ifindex) {
    return placeText() + " on " + bitsText(record.namespaceWide) + " bridge " + std::to_string(ifindex) + " on " +
           bitsText(record.bridge);
}

// Takes bits from the text at *at, which moves behind them. False when there are none.
bool takeBits(const char **at, std::array<bool, 3> *bits) {
    for (bool &bit : *bits) {
        if (**at != '0' && **at != '1')
            return false;
        bit = **at == '1';
        ++*at;
    }
    return true;
}

bool takeWords(const char **at, const std::string &words) {
    if (strncmp(*at, words.c_str(), words.size()) != 0)
        return false;
    *at += words.size();
    return true;
}

// Writes beside the file and renames: it is there whole or not at all.
bool writeText(const std::string &path, const std::string &text) {
    const std::string beside = path + ".new";
    const int fd = open(beside.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, 0600);
    if (fd < 0)
        return false;
    const bool written = write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size());
    const int error = errno;
    close(fd);
    if (written && rename(beside.c_str(), path.c_str()) == 0)
        return true;
    const int reason = written ? errno : error;
    unlink(beside.c_str());
    errno = reason;
    return false;
}

} // namespace

LinuxBrRecord linuxBrRecordRead(uint32_t ifindex) {
    const std::string text = readText(recordPath().c_str(), true);
    const char *at = text.c_str();
    LinuxBrRecord record = {};
    if (!takeWords(&at, placeText() + " on ") || !takeBits(&at, &record.namespaceWide))
        return {};
    if (!takeWords(&at, " bridge " + std::to_string(ifindex) + " on ") || !takeBits(&at, &record.bridge))
        record.bridge = {};
    return record;
}

void linuxBrRecordWrite(const LinuxBrRecord &record, uint32_t ifindex) {
    char error[512];
    const std::string path = recordPath();
    if (!linuxOwnFolder(stateFolder().c_str(), 0750, &folderMade, error, sizeof error))
        linuxLog("after a crash bridge netfilter would stay off: the state folder %s", error);
    else if (!writeText(path, recordText(record, ifindex) + "\n"))
        linuxLog("after a crash bridge netfilter would stay off: %s cannot be written: %s", path.c_str(), strerror(errno));
}

void linuxBrRecordRemove() {
    unlink(recordPath().c_str());
    if (folderMade)
        rmdir(stateFolder().c_str()); // fails, as it should, when something else is in it
}
