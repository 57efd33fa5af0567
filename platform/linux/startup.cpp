#include "platform/linux/startup.h"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include <unistd.h>

#include "platform/linux/loop.h"
#include "platform/linux/notify.h"
#include "platform/linux/startupclosed.h"
#include "platform/linux/startupfile.h"
#include "platform/linux/startupshell.h"
#include "platform/linux/switchfile.h"

namespace {

constexpr const char *INSTALLED_SWITCH = "/etc/snoopd6/switch.toml";
constexpr const char *INSTALLED_STARTUP = "/var/lib/snoopd6/startup.conf";

uint32_t state = LINUX_STARTUP_REPLAYING;
std::string reason;
uint32_t whenReplayed; // the state when every line of the text is in force
uint32_t trusted;      // ports of the newest good file, bit 1 << p for port index p
void (*whenReady)();

std::string statusText() {
    switch (state) {
    case LINUX_STARTUP_NONE: return "no startup file";
    case LINUX_STARTUP_COMPLETE: return "startup file in force";
    case LINUX_STARTUP_BY_HAND: return "startup file in force, without the marks of a save";
    case LINUX_STARTUP_LAST_GOOD: return "last good startup file in force: " + reason;
    case LINUX_STARTUP_PARTLY: return "not all of the startup file is in force";
    case LINUX_STARTUP_CLOSED: return "closed after a failure: " + reason;
    default: return "open after a failure: " + reason;
    }
}

void reportReady() {
    if (whenReady != nullptr)
        whenReady();
    linuxNotify(("READY=1\nSTATUS=" + statusText()).c_str());
}

void change(uint32_t now, const std::string &why) {
    const bool same = state == now;
    state = now;
    reason = why;
    if (!same)
        linuxNotify(("STATUS=" + statusText()).c_str());
}

// Nothing is replayed, or not all of it: the switch file says what then.
void fail(const std::string &why) {
    char error[256] = "";
    const bool close = linuxSwitch.onStartupFailure == LINUX_STARTUP_CLOSE;
    reason = why;
    state = close && linuxStartupClose(trusted, error, sizeof error) ? LINUX_STARTUP_CLOSED : LINUX_STARTUP_OPEN;
    if (state == LINUX_STARTUP_CLOSED)
        linuxLogError(
            "%s; the switch is closed: IPv6 passes from trusted ports only, until a save or \"clear startup-failure\"",
            why.c_str());
    else if (close)
        linuxLogError("%s; the switch is OPEN, because it cannot be closed: %s", why.c_str(), error);
    else
        linuxLogError("%s; the switch is OPEN: what is not configured anew is not guarded", why.c_str());
    reportReady();
}

void onReplayed(LinuxShellEnd end, const std::string &why) {
    const char *file = linuxStartupFile();
    if (end == LinuxShellEnd::failed) {
        fail(why);
        return;
    }
    const bool lastGood = whenReplayed == LINUX_STARTUP_LAST_GOOD;
    const std::string replayed = file + std::string(lastGood ? LINUX_LAST_GOOD : "");
    state = end == LinuxShellEnd::done || lastGood ? whenReplayed : LINUX_STARTUP_PARTLY;
    if (end == LinuxShellEnd::partly)
        reason += (reason.empty() ? "not all of " : "; not all of ") + replayed + " is in force, the log names the lines";
    if (end == LinuxShellEnd::partly)
        linuxLog("not all of %s is in force", replayed.c_str());
    else
        linuxLog("%s is in force%s", replayed.c_str(),
                 state == LINUX_STARTUP_BY_HAND ? "; it has no marks of a save, like a file that is written by hand" : "");
    reportReady();
}

void replay(const LinuxStartupFile &file, uint32_t becomes) {
    std::string error;
    whenReplayed = becomes;
    if (!linuxShellStart(file.text, file.path.c_str(), onReplayed, &error))
        fail(error);
}

void replayLastGood(const LinuxStartupFiles &files, const std::string &fault) {
    if (!linuxStartupIsGood(files.lastGood)) {
        fail(fault + (files.lastGood.absent ? "; there is no last good file"
                                            : "; " + files.lastGood.path + " " + files.lastGood.verdict.reason));
        return;
    }
    reason = fault + "; " + files.lastGood.path + " is used";
    linuxLogError("%s", reason.c_str());
    replay(files.lastGood, LINUX_STARTUP_LAST_GOOD);
}

std::string pathWithoutVariable() {
    const std::string switchFile = linuxSwitchFilePath();
    const std::string beside = switchFile.substr(0, switchFile.rfind('/') + 1) + "startup.conf"; // or in the working folder
    const auto isThere = [](const std::string &path) {
        return access(path.c_str(), F_OK) == 0 || access((path + LINUX_LAST_GOOD).c_str(), F_OK) == 0;
    };
    const bool installed = switchFile == INSTALLED_SWITCH && !isThere(beside) && isThere(INSTALLED_STARTUP);
    return installed ? INSTALLED_STARTUP : beside;
}

} // namespace

void linuxStartupWhenReady(void (*ready)()) { whenReady = ready; }

const char *linuxStartupFile() {
    static std::string path;
    if (!path.empty())
        return path.c_str();
    const char *given = getenv("SNOOPD6_STARTUP");
    path = given != nullptr && given[0] != '\0' ? given : pathWithoutVariable();
    char folder[PATH_MAX];
    if (path[0] != '/' && getcwd(folder, sizeof folder) != nullptr) // callers have folders of their own
        path.insert(0, std::string(folder) + "/");
    return path.c_str();
}

void linuxStartupReplay() {
    static bool done;
    if (done)
        return;
    done = true;
    const LinuxStartupFiles files = linuxStartupFilesRead(linuxStartupFile());
    const LinuxStartupFile &current = files.current;
    if (current.absent) {
        state = LINUX_STARTUP_NONE;
        reportReady();
        return;
    }
    const bool good = linuxStartupIsGood(current);
    if (good || linuxStartupIsGood(files.lastGood))
        trusted = linuxStartupTrusted(good ? current.text : files.lastGood.text);
    const std::string fault = current.path + " " + current.verdict.reason;
    if (good)
        replay(current, current.verdict.kind == LinuxStartupKind::complete ? LINUX_STARTUP_COMPLETE : LINUX_STARTUP_BY_HAND);
    else if (linuxSwitch.onStartupFailure == LINUX_STARTUP_USE_LAST_GOOD)
        replayLastGood(files, fault);
    else
        fail(fault);
}

void linuxStartupStatus(LinuxStartupStatus *status) {
    *status = {.state = state, .policy = linuxSwitch.onStartupFailure, .dropped = linuxStartupDropped(), .reason = {}};
    snprintf(status->reason, sizeof status->reason, "%s", reason.c_str());
}

void linuxStartupSaved() {
    linuxStartupUnclose();
    change(LINUX_STARTUP_COMPLETE, "");
}

void linuxStartupErased() {
    linuxStartupUnclose();
    change(LINUX_STARTUP_NONE, "");
}

bool linuxStartupClear() {
    if (state != LINUX_STARTUP_CLOSED)
        return false;
    linuxLog("an operator has cleared the failure of the start: the switch is open");
    linuxStartupUnclose();
    change(LINUX_STARTUP_OPEN, reason + "; an operator has cleared it");
    return true;
}
