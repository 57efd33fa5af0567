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
#include "shell/status.h"

namespace {

// Where the daemon looks at its next start.
CallEnd startupPath(Session *session, std::string *path) {
    LinuxFilesStatus files = {};
    const CallEnd end = statusFiles(&session->connection, &files, &session->error);
    *path = textField(files.startupFile);
    if (end == CallEnd::done && path->empty()) {
        session->error = "the path of the daemon's startup file is too long to be told: say \"save FILE\" with that path";
        return CallEnd::refused;
    }
    return end;
}

std::string missingText(const ExactConfig &config) {
    const size_t others = config.missing.size() - 1;
    return "nothing was saved: " + config.missing.front() +
           (others > 0 ? "; \"show running-config\" names " + std::to_string(others) + " more" : "");
}

} // namespace

Outcome actionSave(Session *session, const Arguments &arguments) {
    std::string path = arguments.file;
    CallEnd end = path.empty() ? startupPath(session, &path) : CallEnd::done;
    if (end == CallEnd::refused) {
        return Outcome::refused;
    }
    ExactConfig config;
    end = end == CallEnd::done ? exactConfigRead(&session->connection, &config, &session->error) : end;
    if (end != CallEnd::done) {
        return actionEnd(session, end, "");
    }
    if (!config.missing.empty()) {
        return actionEnd(session, CallEnd::refused, missingText(config));
    }
    std::string text;
    for (const std::string &line : exactConfigForReplay(config)) {
        text += line + '\n';
    }
    if (!saveFile(path, text, &session->error)) {
        return Outcome::refused;
    }
    const auto count = static_cast<size_t>(std::count(text.begin(), text.end(), '\n'));
    session->output = "Saved " + replayLineCount(count) + " to " + textPrintable(path) + ".\n";
    return Outcome::done;
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
