#include "platform/linux/loop.h"

#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <event2/event.h>
#include <event2/event_struct.h>
#include <iterator>
#include <unistd.h>

#include "platform/linux/logline.h"

static constexpr uint32_t UNDO_MAX = 16;

static event_base *loopBase;
static void (*reloadOnHangup)();

struct Undo {
    void (*function)();
    LinuxUndo when;
};

static Undo undoList[UNDO_MAX];
static uint32_t undoCount;
static bool undoing;
static bool leaving; // the place is another daemon's: what is for the end of service only is not undone

// ---- Log -----------------------------------------------------------------------------------------------------------

static void logFormatted(uint32_t level, const char *fmt, va_list args) {
    char text[1024];
    vsnprintf(text, sizeof text, fmt, args);
    for (char *c = text; *c != '\0'; c++) { // a path may hold anything; the log stays one line
        if (static_cast<unsigned char>(*c) < 0x20 || *c == 0x7F) {
            *c = '?';
        }
    }
    linuxLogLine(level, "snoopd6: ", text, static_cast<uint32_t>(strlen(text)));
}

void linuxLog(const char *fmt, ...) {
    va_list args;
    va_start(args, fmt);
    logFormatted(LINUX_LOG_NOTICE, fmt, args);
    va_end(args);
}

void linuxLogError(const char *fmt, ...) {
    va_list args;
    va_start(args, fmt);
    logFormatted(LINUX_LOG_ERROR, fmt, args);
    va_end(args);
}

// ---- The end -------------------------------------------------------------------------------------------------------

// Runs at every exit: by signal, by linuxFatal, and when main returns.
static void undoAll() {
    undoing = true;
    while (undoCount > 0) {
        undoCount--;
        if (!leaving || undoList[undoCount].when == LINUX_UNDO_ALWAYS) {
            undoList[undoCount].function();
        }
    }
}

void linuxFatal(const char *fmt, ...) {
    va_list args;
    va_start(args, fmt);
    logFormatted(LINUX_LOG_ERROR, fmt, args);
    va_end(args);
    if (undoing) { // exit must not be called from inside exit
        _exit(EXIT_FAILURE);
    }
    exit(EXIT_FAILURE);
}

void linuxAtStop(void (*undo)(), LinuxUndo when) {
    static bool hooked;
    if (!hooked) {
        hooked = true;
        atexit(undoAll);
    }
    if (undoCount == UNDO_MAX) {
        linuxFatal("more than %u things to undo at the end", UNDO_MAX);
    }
    undoList[undoCount] = {undo, when};
    undoCount++;
}

void linuxUndoNothing() { undoCount = 0; }

// ---- Signals -------------------------------------------------------------------------------------------------------

static void stopAsked(evutil_socket_t, short, void *) { exit(EXIT_SUCCESS); }

static void leaveAsked(evutil_socket_t, short, void *) {
    leaving = true;
    exit(EXIT_SUCCESS);
}

static void reloadAsked(evutil_socket_t, short, void *) {
    if (reloadOnHangup != nullptr) {
        reloadOnHangup();
    }
}

void linuxOnHangup(void (*reload)()) { reloadOnHangup = reload; }

static void watchSignals() {
    static event watched[4];
    static constexpr struct {
        int signal;
        void (*act)(evutil_socket_t, short, void *);
    } SIGNALS[] = {{SIGTERM, stopAsked}, {SIGINT, stopAsked}, {SIGUSR1, leaveAsked}, {SIGHUP, reloadAsked}};
    static_assert(std::size(SIGNALS) == std::size(watched));
    signal(SIGPIPE, SIG_IGN);
    signal(SIGUSR2, SIG_IGN); // nothing yet, and nothing to die of
    for (size_t i = 0; i < std::size(SIGNALS); i++) {
        evsignal_assign(&watched[i], loopBase, SIGNALS[i].signal, SIGNALS[i].act, nullptr);
        if (evsignal_add(&watched[i], nullptr) != 0) {
            linuxFatal("signal %d cannot be watched", SIGNALS[i].signal);
        }
    }
}

// ---- The loop ------------------------------------------------------------------------------------------------------

event_base *linuxLoopBase() {
    if (loopBase != nullptr) {
        return loopBase;
    }
    loopBase = event_base_new();
    if (loopBase == nullptr) {
        linuxFatal("the kernel refuses an event loop; are file descriptors left?");
    }
    watchSignals();
    return loopBase;
}
