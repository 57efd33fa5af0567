// Configuration in files: kept for the next start, kept elsewhere, and taken from there.

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "shell/actions.h"
#include "shell/exactconfig.h"
#include "shell/replay.h"
#include "shell/savefile.h"
#include "shell/savestartup.h"
#include "shell/status.h"

namespace {

// Where the daemon looks at its next start; empty when the path is too long for the daemon's table.
CallEnd startupPath(Session *session, std::string *path) {
    LinuxFilesStatus files = {};
    const CallEnd end = statusFiles(&session->connection, &files, &session->error);
    *path = textField(files.startupFile);
    return end;
}

// The lines of the startup file are run by the daemon's own user, who may write its files: what they are is decided by others.
bool isStartupFile(Session *session) {
    if (session->startup)
        session->error = "a startup file cannot have this line";
    return session->startup;
}

constexpr const char *ERASE_QUESTION = "The saved configuration and the last good one are removed; the next start begins with "
                                       "nothing snooped or guarded. Go on? [y/N] ";

std::string missingText(const ExactConfig &config) {
    const size_t others = config.missing.size() - 1;
    return "nothing was saved: " + config.missing.front() +
           (others > 0 ? "; \"show running-config\" names " + std::to_string(others) + " more" : "");
}

} // namespace

Outcome actionSave(Session *session, const Arguments &arguments) {
    if (isStartupFile(session))
        return Outcome::refused;
    std::string path = arguments.file;
    ExactConfig config;
    CallEnd end = path.empty() ? startupPath(session, &path) : CallEnd::done;
    end = end == CallEnd::done ? exactConfigRead(&session->connection, &config, &session->error) : end;
    if (end != CallEnd::done)
        return actionEnd(session, end, "");
    if (!config.missing.empty())
        return actionEnd(session, CallEnd::refused, missingText(config));
    std::string text;
    for (const std::string &line : exactConfigForReplay(config))
        text += line + '\n';
    if (arguments.file.empty())
        end = saveStartup(&session->connection, text, &session->error);
    else if (!saveFile(path, text, &session->error))
        end = CallEnd::refused;
    if (end != CallEnd::done)
        return actionEnd(session, end, session->error);
    const auto count = static_cast<size_t>(std::count(text.begin(), text.end(), '\n'));
    session->output = "Saved " + replayLineCount(count) + (path.empty() ? "" : " to " + textPrintable(path)) + ".\n";
    return Outcome::done;
}

Outcome actionEraseStartup(Session *session, const Arguments &) {
    if (isStartupFile(session))
        return Outcome::refused;
    if (session->confirm != nullptr && !session->confirm(ERASE_QUESTION)) {
        session->output = "Nothing was erased.\n";
        return Outcome::done;
    }
    const CallEnd end = saveErase(&session->connection, &session->error);
    return actionEnd(session, end, session->error);
}

Outcome actionClearStartupFailure(Session *session, const Arguments &) {
    if (isStartupFile(session))
        return Outcome::refused;
    const CallEnd end = saveClear(&session->connection, &session->error);
    return actionEnd(session, end, session->error);
}

// Lines of a file stand at the top, wherever the user stands.
Outcome actionLoad(Session *session, const Arguments &arguments) {
    if (session->loading) {
        session->error = "a file that is being loaded cannot load another one";
        return Outcome::refused;
    }
    const std::string name = textPrintable(arguments.file);
    char *text = nullptr;
    size_t size = 0;
    FILE *in = fopen(arguments.file.c_str(), "re");
    FILE *said = in != nullptr ? open_memstream(&text, &size) : nullptr;
    if (said == nullptr) {
        session->error = "cannot read " + name + ": " + std::strerror(errno);
        if (in != nullptr) {
            static_cast<void>(fclose(in));
        }
        return Outcome::refused;
    }
    const Place place = session->place;
    FILE *live = session->live;
    const auto confirm = session->confirm;
    session->place = {};
    session->live = nullptr;
    session->confirm = nullptr;
    session->loading = true;
    const ReplayResult result = replayRun(session, in, name.c_str(), ReplayMode::keepGoing, said, said);
    session->loading = false;
    session->ended = false; // a "quit" ended the file
    session->confirm = confirm;
    session->live = live;
    session->place = place;
    static_cast<void>(fclose(in));
    static_cast<void>(fclose(said));
    session->output.assign(text, size);
    session->error.clear();
    free(text);
    if (result.outcome == Outcome::done) {
        session->output += replaySummary(result) + '\n';
    } else {
        session->error = name + ": " + replaySummary(result);
    }
    return result.outcome;
}
