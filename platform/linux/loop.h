#pragma once
// The one event loop of the process, and how it ends. Everything that waits for something in the Linux platform waits here.

#include <cstdint>

struct event_base;

// The loop. Created on first use, single-threaded.
event_base *linuxLoopBase();

enum LinuxUndo : uint32_t {
    LINUX_UNDO_ALWAYS,
    LINUX_UNDO_AT_STOP, // not when the daemon was told to leave its place to another one (SIGUSR1)
};

// Registers what has to be undone when the daemon ends: asked to stop (SIGTERM or SIGINT) or to leave (SIGUSR1), by linuxFatal,
// or because start-up failed and main returned. The functions are called once, the last registered first. At most 16.
void linuxAtStop(void (*undo)(), LinuxUndo when = LINUX_UNDO_ALWAYS);

// For a child process that goes on in this program: what its parent registered is the parent's to undo.
void linuxUndoNothing();

// Sets what SIGHUP does; before that it does nothing. Called from the loop.
void linuxOnHangup(void (*reload)());

// Says one sentence on standard error, undoes what linuxAtStop registered and ends the process with status 1.
[[noreturn]] void linuxFatal(const char *fmt, ...) __attribute__((format(printf, 1, 2)));

// A turn of frames: between these two calls the clock of vosUpSeconds stands still and is read once, not for every frame.
void linuxTurnBegin();
void linuxTurnEnd();

// One line of the platform's own to the log. printf's rules, no line end.
void linuxLog(const char *fmt, ...) __attribute__((format(printf, 1, 2)));

// The same, as an error.
void linuxLogError(const char *fmt, ...) __attribute__((format(printf, 1, 2)));

// Answers one platform message (type 0x8000 and above). `payload` is what the caller sent; the answer goes to `reply`, at most
// replyMax bytes, and its length to *replyLength (0 before the call). Returns the result for the reply's header.
typedef int32_t (*LinuxMsgHandler)(const uint8_t *payload, uint32_t length, uint8_t *reply, uint32_t replyMax,
                                   uint32_t *replyLength);

// Sets the handler of one type; a type without a handler is answered with LINUX_RESULT_UNKNOWN.
void linuxMsgHandle(uint16_t type, LinuxMsgHandler handler);

// The folder of the socket and the lock file: SNOOPD6_RUN, or /run/snoopd6.
const char *linuxRunFolder();
