#include "platform/linux/loop.h"

#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <event2/event.h>
#include <event2/event_struct.h>
#include <unistd.h>

#include "platform/linux/logline.h"

static constexpr uint32_t UNDO_MAX = 16;

static event_base *loopBase;
static event stopOnTerm;
static event stopOnInt;

static void (*undoList[UNDO_MAX])();
static uint32_t undoCount;
static bool undoing;

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

// ---- The end -------------------------------------------------------------------------------------------------------

// Runs at every exit: by signal, by linuxFatal, and when main returns.
static void undoAll() {
    undoing = true;
    while (undoCount > 0) {
        undoCount--;
        undoList[undoCount]();
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

void linuxAtStop(void (*undo)()) {
    static bool hooked;
    if (!hooked) {
        hooked = true;
        atexit(undoAll);
    }
    if (undoCount == UNDO_MAX) {
        linuxFatal("more than %u things to undo at the end", UNDO_MAX);
    }
    undoList[undoCount] = undo;
    undoCount++;
}

static void stopAsked(evutil_socket_t, short, void *) { exit(EXIT_SUCCESS); }

// ---- The loop ------------------------------------------------------------------------------------------------------

event_base *linuxLoopBase() {
    if (loopBase != nullptr) {
        return loopBase;
    }
    loopBase = event_base_new();
    if (loopBase == nullptr) {
        linuxFatal("the kernel refuses an event loop; are file descriptors left?");
    }
    signal(SIGPIPE, SIG_IGN);
    evsignal_assign(&stopOnTerm, loopBase, SIGTERM, stopAsked, nullptr);
    evsignal_assign(&stopOnInt, loopBase, SIGINT, stopAsked, nullptr);
    if (evsignal_add(&stopOnTerm, nullptr) != 0 || evsignal_add(&stopOnInt, nullptr) != 0) {
        linuxFatal("the signals TERM and INT cannot be watched");
    }
    return loopBase;
}
