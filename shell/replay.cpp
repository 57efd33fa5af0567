#include "shell/replay.h"

#include <vector>

#include "shell/output.h"
#include "shell/parser.h"
#include "shell/values.h"

namespace {

// Reads one line without its end. What is longer than the session takes is read away, one byte over it stays, so that the
// session refuses it. False at the end of the input.
bool readLine(FILE *in, std::string *line) {
    line->clear();
    int c = getc(in);
    if (c == EOF) {
        return false;
    }
    for (; c != EOF && c != '\n'; c = getc(in)) {
        if (line->size() <= SESSION_LINE_MAX) {
            *line += static_cast<char>(c);
        }
    }
    if (line->ends_with('\r')) {
        line->pop_back();
    }
    return true;
}

bool isQuit(uint32_t place, const std::vector<std::string_view> &words) {
    std::vector<ParsedCommand> parsed;
    std::string error;
    return parserRead(place, words, &parsed, &error) && parsed.size() == 1 &&
           std::string_view(parsed[0].command->form) == "quit";
}

// One replay on its way.
struct Replay {
    Session *session;
    const char *name;
    ReplayMode mode;
    FILE *out;
    FILE *err;
    ReplayResult result;
    size_t number;    // of the line in its file
    bool closedPlace; // between a place that could not be entered and its quit
    bool stopped;     // nothing is run any more
};

void say(const Replay &replay, const std::string &line, const std::string &sentence) {
    outputWrite(replay.err, std::string(replay.name) + ":" + std::to_string(replay.number) + ": " + textShortened(line) + ": " +
                                sentence + "\n");
}

void skipLine(Replay *replay, const std::string &line, const std::vector<std::string_view> &words) {
    replay->result.skipped++;
    replay->closedPlace = replay->closedPlace && !isQuit(replay->session->place.kind, words);
    if (!replay->stopped && replay->session->ended) {
        say(*replay, line, "not run, because the line before it left the shell");
        replay->stopped = true;
        replay->result.outcome = replay->result.outcome == Outcome::done ? Outcome::usage : replay->result.outcome;
    }
}

void runLine(Replay *replay, const std::string &line, bool enters) {
    Session *session = replay->session;
    const Outcome outcome = sessionRun(session, line);
    outputWrite(replay->out, session->output);
    replay->closedPlace = enters && outcome == Outcome::usage;
    session->place = replay->closedPlace ? Place{} : session->place;
    if (outcome == Outcome::done) {
        return;
    }
    say(*replay, line, session->error);
    replay->result.failed++;
    replay->result.outcome = replay->result.outcome == Outcome::done ? outcome : replay->result.outcome;
    replay->stopped = outcome == Outcome::unreachable || replay->mode == ReplayMode::stopAtFailure;
}

// Once for all lines: the question would take as long as most of them. Lines that "load" runs leave it to the line with "load".
void checkRules(Replay *replay) {
    Session *session = replay->session;
    if (session->batch || session->loading || replay->result.outcome == Outcome::unreachable) {
        return;
    }
    const std::string lost = sessionRulesLost(session);
    if (!lost.empty()) {
        outputWrite(replay->err, std::string(replay->name) + ": " + lost + "\n");
        replay->result.outcome = replay->result.outcome == Outcome::done ? Outcome::refused : replay->result.outcome;
    }
}

} // namespace

ReplayResult replayRun(Session *session, FILE *in, const char *name, ReplayMode mode, FILE *out, FILE *err) {
    Replay replay = {.session = session,
                     .name = name,
                     .mode = mode,
                     .out = out,
                     .err = err,
                     .result = {},
                     .number = 0,
                     .closedPlace = false,
                     .stopped = false};
    const bool batch = session->batch;
    std::string line;
    session->batch = true;
    while (readLine(in, &line)) {
        replay.number++;
        const std::vector<std::string_view> words = sessionWords(line);
        if (words.empty()) {
            continue;
        }
        replay.result.lines++;
        const bool enters = parserMeansToEnter(session->place.kind, words);
        if (replay.stopped || session->ended || (replay.closedPlace && !enters)) {
            skipLine(&replay, line, words);
        } else {
            runLine(&replay, line, enters);
        }
    }
    if (ferror(in) != 0) {
        outputWrite(err, std::string(name) + ": cannot be read to its end\n");
        replay.result.failed++;
        replay.result.outcome = replay.result.outcome == Outcome::done ? Outcome::refused : replay.result.outcome;
    }
    session->batch = batch;
    checkRules(&replay);
    return replay.result;
}

std::string replayLineCount(size_t count) { return std::to_string(count) + (count == 1 ? " line" : " lines"); }

std::string replaySummary(const ReplayResult &result) {
    return replayLineCount(result.lines) + ", " + std::to_string(result.failed) + " failed" +
           (result.skipped > 0 ? ", " + std::to_string(result.skipped) + " not run" : "");
}
