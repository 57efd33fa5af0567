#include "platform/linux/startupsave.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <string>

#include <event2/event.h>
#include <event2/event_struct.h>
#include <sys/wait.h>
#include <unistd.h>

#include "platform/libvos.h"
#include "platform/linux/childprocess.h"
#include "platform/linux/loop.h"
#include "platform/linux/protocol.h"
#include "platform/linux/queue.h"
#include "platform/linux/startup.h"
#include "platform/linux/startupjudge.h"

namespace {

constexpr uint32_t SILENCE_MAX = 10;         // seconds after which somebody else may take the place of a caller
constexpr timeval WRITER_PATIENCE = {30, 0}; // for a disk that does not answer

// The caller whose turn it is, and what it has handed over.
struct Turn {
    uint64_t caller; // 0 for none
    uint32_t heardAt;
    int text; // file in memory; -1 when nothing is being handed over
    uint32_t total;
    uint32_t have;
    bool untold; // the writer has ended, and the caller has not asked since
    LinuxSaveAnswer answer;
};

Turn turn = {.caller = 0, .heardAt = 0, .text = -1, .total = 0, .have = 0, .untold = false, .answer = {}};

pid_t writer; // 0 while none runs
bool erasing;
int said = -1; // file in memory: the writer's standard output
event writerEnded;
event writerHangs;

void dropText() {
    if (turn.text >= 0)
        close(turn.text);
    turn.text = -1;
}

void answerFailure(const char *sentence) {
    turn.answer.state = LINUX_SAVE_FAILED;
    snprintf(turn.answer.sentence, sizeof turn.answer.sentence, "%s", sentence);
}

// ---- The writer ----------------------------------------------------------------------------------------------------

void readSentence(int status) {
    char sentence[sizeof turn.answer.sentence] = "";
    const ssize_t n = pread(said, sentence, sizeof sentence - 1, 0);
    if (n <= 0)
        snprintf(sentence, sizeof sentence, "the process that writes %s was ended (status %d)", linuxStartupFile(), status);
    answerFailure(sentence);
    linuxLog("%s", sentence);
}

void endWriter(int status) {
    writer = 0;
    event_del(&writerEnded);
    event_del(&writerHangs);
    const bool fine = WIFEXITED(status) && WEXITSTATUS(status) == 0;
    turn.answer = {};
    turn.untold = true;
    if (fine) {
        turn.answer.state = LINUX_SAVE_DONE;
        linuxLog("%s is %s", linuxStartupFile(), erasing ? "erased" : "saved");
    } else {
        readSentence(status);
    }
    close(said);
    if (fine && erasing)
        linuxStartupErased();
    else if (fine)
        linuxStartupSaved();
}

void onWriterEnded(evutil_socket_t, short, void *) {
    int status = 0;
    if (writer != 0 && waitpid(writer, &status, WNOHANG) == writer)
        endWriter(status);
}

void onWriterHangs(evutil_socket_t, short, void *) {
    if (writer != 0)
        kill(writer, SIGKILL);
}

// Returns 0 or an errno.
int startWriter(const char *what) {
    const char *arguments[] = {"/proc/self/exe", what, nullptr};
    said = linuxMemoryFile(nullptr, 0);
    if (said < 0)
        return errno;
    evsignal_assign(&writerEnded, linuxLoopBase(), SIGCHLD, onWriterEnded, nullptr);
    evtimer_assign(&writerHangs, linuxLoopBase(), onWriterHangs, nullptr);
    const bool ready = event_add(&writerEnded, nullptr) == 0 && event_add(&writerHangs, &WRITER_PATIENCE) == 0;
    const int error = ready ? linuxChildStart(arguments, turn.text, said, &writer) : ENOMEM;
    if (error != 0) {
        event_del(&writerEnded);
        event_del(&writerHangs);
        close(said);
        writer = 0;
    }
    return error;
}

void work(const char *what, bool erases) {
    erasing = erases;
    const int error = startWriter(what);
    if (error != 0)
        answerFailure((std::string("the process that writes the startup file cannot be started: ") + strerror(error)).c_str());
    else
        turn.answer.state = LINUX_SAVE_WORKING;
    dropText();
}

// ---- The messages --------------------------------------------------------------------------------------------------

// Gives the turn to the caller. False while it is another one's.
bool takeTurn(uint64_t caller) {
    const bool silent = vosUpSeconds() - turn.heardAt > SILENCE_MAX;
    const bool held = turn.caller != 0 && turn.caller != caller && (turn.text >= 0 || turn.untold) && !silent &&
                      linuxQueueConnected(turn.caller);
    if (writer != 0 || held)
        return false;
    dropText();
    turn = {.caller = caller, .heardAt = vosUpSeconds(), .text = -1, .total = 0, .have = 0, .untold = false, .answer = {}};
    return true;
}

bool isReplaying() {
    LinuxStartupStatus status;
    linuxStartupStatus(&status);
    return status.state == LINUX_STARTUP_REPLAYING;
}

void begin(uint32_t total) {
    if (total > LINUX_STARTUP_BYTES_MAX) {
        answerFailure("nothing was saved: the configuration is too long for a file");
        return;
    }
    turn.total = total;
    turn.text = linuxMemoryFile(nullptr, 0);
    if (turn.text < 0)
        answerFailure("nothing was saved: there is no memory for the configuration");
}

// False, and the turn is over, when the bytes do not belong exactly after those that were handed over before.
bool takePart(uint32_t before, const uint8_t *bytes, uint32_t length) {
    const bool fits = turn.text >= 0 && before == turn.have && length > 0 && length <= turn.total - turn.have;
    if (fits && pwrite(turn.text, bytes, length, before) == static_cast<ssize_t>(length)) {
        turn.have += length;
        return true;
    }
    dropText();
    turn.caller = 0;
    return false;
}

bool commit() {
    const bool whole = turn.text >= 0 && turn.have == turn.total;
    if (whole)
        work("--store", false);
    else
        dropText();
    return whole;
}

void clear() {
    if (linuxStartupClear())
        turn.answer.state = LINUX_SAVE_DONE;
    else
        answerFailure("the switch is not closed: there is no failure to clear");
}

// Starts what has a turn of its own. False while it is another caller's turn.
bool startTurn(uint64_t caller, const LinuxSaveMsg &message) {
    if (!takeTurn(caller))
        return false;
    if (isReplaying()) {
        answerFailure("the saved configuration is still being brought back: try again when that is done");
        return true;
    }
    switch (message.operation) {
    case LINUX_SAVE_BEGIN: begin(message.number); break;
    case LINUX_SAVE_ERASE: work("--erase", true); break;
    default: clear(); break;
    }
    return true;
}

// Goes on with the caller's turn. False when the message does not belong there.
bool continueTurn(const LinuxSaveMsg &message, const uint8_t *bytes, uint32_t length) {
    turn.heardAt = vosUpSeconds();
    switch (message.operation) {
    case LINUX_SAVE_PART: return takePart(message.number, bytes, length);
    case LINUX_SAVE_COMMIT: return length == 0 && commit();
    case LINUX_SAVE_ASK: turn.untold = false; return length == 0;
    default: return false;
    }
}

bool startsTurn(uint32_t operation) {
    return operation == LINUX_SAVE_BEGIN || operation == LINUX_SAVE_ERASE || operation == LINUX_SAVE_CLEAR;
}

int32_t answer(const uint8_t *payload, uint32_t length, uint8_t *reply, uint32_t replyMax, uint32_t *replyLength) {
    const uint64_t caller = linuxQueueCaller();
    LinuxSaveMsg message;
    if (length < sizeof message || replyMax < sizeof(LinuxSaveAnswer))
        return LINUX_RESULT_BAD;
    memcpy(&message, payload, sizeof message);
    const uint32_t more = length - static_cast<uint32_t>(sizeof message);
    LinuxSaveAnswer busy = {};
    busy.state = LINUX_SAVE_BUSY;
    const LinuxSaveAnswer *told = &turn.answer;
    if (startsTurn(message.operation)) {
        if (more != 0)
            return LINUX_RESULT_BAD;
        told = startTurn(caller, message) ? told : &busy;
    } else if (turn.caller != caller || !continueTurn(message, payload + sizeof message, more)) {
        return LINUX_RESULT_BAD;
    }
    memcpy(reply, told, sizeof *told);
    *replyLength = sizeof *told;
    return LINUX_RESULT_OK;
}

} // namespace

void linuxStartupSaveInit() { linuxMsgHandle(LINUX_MSG_SAVE, answer); }
