#include "platform/linux/reload.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <string>

#include <event2/event.h>
#include <event2/event_struct.h>
#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "platform/libsmd.h"
#include "platform/linux/links.h"
#include "platform/linux/loop.h"
#include "platform/linux/ports.h"
#include "platform/linux/switchfile.h"

namespace {

// What the child hands back; small enough for one write into the pipe.
struct Answer {
    uint32_t fine; // 1 when the file is one
    LinuxSwitchConfig config;
    char error[512];
};
static_assert(sizeof(Answer) <= 4096);

pid_t child; // 0 while none reads
int answerFd;
event answered;

// ---- What changes --------------------------------------------------------------------------------------------------

void list(std::string *text, const std::string &item) { *text += (text->empty() ? "" : ", ") + item; }

bool differ(const LinuxPortConfig &one, const LinuxPortConfig &other) { return memcmp(&one, &other, sizeof one) != 0; }

std::string portName(uint32_t port0) { return "port 0/" + std::to_string(port0 + 1); }

// Whether the running switch has the interface in another role, or follows it under a name that the file did not have.
bool isTaken(const char *interface) {
    const auto isPort = [interface](const LinuxPortConfig &port) { return strcmp(port.interface, interface) == 0; };
    const auto isTrunk = [interface](const LinuxTrunkConfig &trunk) { return strcmp(trunk.interface, interface) == 0; };
    const auto isFollowed = [interface](const LinuxLink &link) { return strcmp(link.name, interface) == 0; };
    return std::ranges::any_of(linuxSwitch.ports, isPort) || std::ranges::any_of(linuxLinks, isFollowed) ||
           std::ranges::any_of(linuxSwitch.trunks, isTrunk) || strcmp(linuxSwitch.bridge, interface) == 0;
}

// Takes up the ports that are new. Those that were there before with something else wait for a restart: clients, filters and
// settings belong to them.
void takePorts(const LinuxSwitchConfig &config, std::string *taken, std::string *later) {
    for (uint32_t p = 0; p < LINUX_PORTS_MAX; ++p) {
        const LinuxPortConfig &port = config.ports[p];
        if (!differ(port, linuxSwitch.ports[p]))
            continue;
        if (linuxSwitch.ports[p].exists != 0 || isTaken(port.interface)) {
            list(later, portName(p));
            continue;
        }
        linuxSwitch.ports[p] = port;
        linuxSwitch.portMax = std::max(linuxSwitch.portMax, p + 1);
        list(taken, portName(p) + " (" + port.interface + ")");
    }
}

// Takes up what is only looked at when somebody asks.
void takeSettings(const LinuxSwitchConfig &config, std::string *taken) {
    if (strcmp(config.title, linuxSwitch.title) != 0)
        list(taken, "title");
    if (config.enterprise != linuxSwitch.enterprise)
        list(taken, "enterprise");
    if (memcmp(config.vlans, linuxSwitch.vlans, sizeof config.vlans) != 0)
        list(taken, "vlans");
    memcpy(linuxSwitch.title, config.title, sizeof linuxSwitch.title);
    linuxSwitch.enterprise = config.enterprise;
    memcpy(linuxSwitch.vlans, config.vlans, sizeof linuxSwitch.vlans);
}

void sayResult(const std::string &taken, const std::string &later) {
    const char *file = linuxSwitchFilePath();
    if (taken.empty() && later.empty())
        linuxLog("%s is read again: nothing in it has changed", file);
    else if (later.empty())
        linuxLog("%s is read again, in force now: %s", file, taken.c_str());
    else if (taken.empty())
        linuxLog("%s is read again, a restart is needed for: %s", file, later.c_str());
    else
        linuxLog("%s is read again, in force now: %s; a restart is needed for: %s", file, taken.c_str(), later.c_str());
}

// Between two turns of the loop: no frame, and nobody who asks for the number of ports, is in the middle of anything.
void takeUp(const LinuxSwitchConfig &config) {
    std::string taken;
    std::string later;
    bool isNew[LINUX_PORTS_MAX] = {};
    for (uint32_t p = 0; p < LINUX_PORTS_MAX; ++p)
        isNew[p] = linuxSwitch.ports[p].exists == 0;
    if (strcmp(config.bridge, linuxSwitch.bridge) != 0)
        list(&later, "bridge");
    if (config.keepBridgeNetfilter != linuxSwitch.keepBridgeNetfilter)
        list(&later, "bridge_netfilter");
    if (config.onStartupFailure != linuxSwitch.onStartupFailure)
        list(&later, "on_startup_failure");
    takePorts(config, &taken, &later);
    if (memcmp(config.trunks, linuxSwitch.trunks, sizeof config.trunks) != 0)
        list(&later, "trunk");
    takeSettings(config, &taken);
    sayResult(taken, later);
    if (taken.empty())
        return;
    gul_max_port_num = linuxSwitch.portMax;
    for (uint32_t p = 0; p < LINUX_PORTS_MAX; ++p)
        if (isNew[p])
            linuxPortInit(p);
    linuxLinksDoubt();
    linuxLinksCatchUp();
    for (uint32_t p = 0; p < LINUX_PORTS_MAX; ++p)
        if (isNew[p])
            linuxReloadSayMissing(p);
}

// ---- The child -----------------------------------------------------------------------------------------------------

[[noreturn]] void readInChild(int fd) {
    static Answer answer;
    prctl(PR_SET_PDEATHSIG, SIGKILL); // it has the daemon's locks open
    linuxUndoNothing();
    answer.fine = linuxSwitchFileRead(linuxSwitchFilePath(), &answer.config, answer.error, sizeof answer.error) ? 1 : 0;
    _exit(write(fd, &answer, sizeof answer) == sizeof answer ? EXIT_SUCCESS : EXIT_FAILURE);
}

void forgetChild() {
    if (child == 0)
        return;
    event_del(&answered);
    close(answerFd);
    kill(child, SIGKILL); // it is done, or no longer wanted
    waitpid(child, nullptr, 0);
    child = 0;
}

// What the child wrote comes in one piece; without it the child has said why, or was ended.
void onAnswer(evutil_socket_t fd, short, void *) {
    static Answer answer;
    const ssize_t n = read(fd, &answer, sizeof answer);
    if (n < 0 && (errno == EAGAIN || errno == EINTR))
        return;
    forgetChild();
    if (n != sizeof answer)
        linuxLog("%s cannot be read again: the switch stays as it is", linuxSwitchFilePath());
    else if (answer.fine == 0)
        linuxLog("%s; the switch stays as it is", answer.error);
    else
        takeUp(answer.config);
}

} // namespace

void linuxReload() {
    static bool registered;
    int ends[2];
    forgetChild();
    if (pipe2(ends, O_CLOEXEC | O_NONBLOCK) != 0) {
        linuxLog("%s cannot be read again: %s", linuxSwitchFilePath(), strerror(errno));
        return;
    }
    child = fork();
    if (child == 0)
        readInChild(ends[1]);
    close(ends[1]);
    if (child < 0) {
        linuxLog("%s cannot be read again: %s", linuxSwitchFilePath(), strerror(errno));
        close(ends[0]);
        child = 0;
        return;
    }
    answerFd = ends[0];
    event_assign(&answered, linuxLoopBase(), answerFd, EV_READ | EV_PERSIST, onAnswer, nullptr);
    event_add(&answered, nullptr);
    if (!registered)
        linuxAtStop(forgetChild);
    registered = true;
}

void linuxReloadSayMissing(uint32_t port0) {
    if (linuxPortExists(port0 + 1) && linuxBridgeLink(port0) == LINUX_NO_LINK)
        linuxLog("port 0/%u: interface %s is %s; it is taken up when it comes", port0 + 1, linuxLinks[port0].name,
                 linuxLinks[port0].ifindex == 0 ? "missing" : "not in the bridge");
}
