#include "platform/linux/check.h"

#include <cstdint>
#include <cstdio>

#include "platform/linux/loop.h"
#include "platform/linux/startup.h"
#include "platform/linux/startupfile.h"
#include "platform/linux/switchfile.h"

namespace {

constexpr uint32_t ERROR_MAX = 512;

uint32_t countPorts(const LinuxSwitchConfig &config) {
    uint32_t count = 0;
    for (const LinuxPortConfig &port : config.ports)
        count += port.exists;
    return count;
}

LinuxSwitchConfig config;

bool checkSwitchFile() {
    char error[ERROR_MAX];
    if (!linuxSwitchFileRead(linuxSwitchFilePath(), &config, error, sizeof error)) {
        linuxLog("%s", error);
        return false;
    }
    printf("%s: bridge %s, ports %u, highest 0/%u\n", linuxSwitchFilePath(), config.bridge, countPorts(config), config.portMax);
    return true;
}

void sayGood(const LinuxStartupFile &file) {
    printf("%s: lines %u, %s\n", file.path.c_str(), file.verdict.lines,
           file.verdict.kind == LinuxStartupKind::complete ? "complete" : "without the marks of a save");
}

// What a start would make of a damaged startup file.
const char *consequence(const LinuxStartupFiles &files) {
    if (config.onStartupFailure == LINUX_STARTUP_CLOSE)
        return "IPv6 from untrusted ports is dropped";
    const bool use = config.onStartupFailure == LINUX_STARTUP_USE_LAST_GOOD && linuxStartupIsGood(files.lastGood);
    return use ? "the last good file is used" : "nothing is snooped or guarded";
}

bool checkStartupFile() {
    const LinuxStartupFiles files = linuxStartupFilesRead(linuxStartupFile());
    if (files.current.absent) {
        printf("%s: not there, nothing is snooped or guarded after a start\n", files.current.path.c_str());
        return true;
    }
    const bool good = linuxStartupIsGood(files.current);
    if (good)
        sayGood(files.current);
    else
        linuxLog("%s %s: after a start %s", files.current.path.c_str(), files.current.verdict.reason.c_str(),
                 consequence(files));
    if (linuxStartupIsGood(files.lastGood))
        sayGood(files.lastGood);
    else if (!files.lastGood.absent)
        linuxLog("%s %s", files.lastGood.path.c_str(), files.lastGood.verdict.reason.c_str());
    return good;
}

} // namespace

bool linuxCheck() {
    const bool switchFine = checkSwitchFile();
    const bool startupFine = checkStartupFile();
    return switchFine && startupFine;
}
