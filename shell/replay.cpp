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

void say(FILE *err, const char *name, size_t number, const std::string &line, const std::string &sentence) {
    outputWrite(err, std::string("snoopctl: ") + name + ", line " + std::to_string(number) + ", " + textQuoted(line) + ": " +
                         sentence + "\n");
}

} // namespace

ReplayResult replayRun(Session *session, FILE *in, const char *name, FILE *out, FILE *err) {
    ReplayResult result;
    std::string line;
    bool closedPlace = false; // between a place that could not be entered and its quit
    bool stopped = false;
    for (size_t number = 1; readLine(in, &line); number++) {
        const std::vector<std::string_view> words = sessionWords(line);
        if (words.empty()) {
            continue;
        }
        const bool enters = parserMeansToEnter(session->place.kind, words);
        if (session->ended && !stopped) {
            say(err, name, number, line, "not run, because the line before it left the shell");
            stopped = true;
        }
        if (stopped || (closedPlace && !enters)) {
            result.skipped++;
            closedPlace = closedPlace && !isQuit(session->place.kind, words);
            continue;
        }
        const Outcome outcome = sessionRun(session, line);
        outputWrite(out, session->output);
        closedPlace = enters && outcome == Outcome::usage;
        if (outcome != Outcome::done) {
            say(err, name, number, line, session->error);
            result.failed++;
            stopped = outcome == Outcome::unreachable;
        }
        session->place = closedPlace ? Place{} : session->place;
    }
    if (ferror(in) != 0) {
        outputWrite(err, std::string("snoopctl: ") + name + " cannot be read to its end\n");
        result.failed++;
    }
    if (result.failed + result.skipped > 0) {
        outputWrite(err, std::string("snoopctl: ") + name + ": lines that failed: " + std::to_string(result.failed) +
                             ", lines not run because of them: " + std::to_string(result.skipped) + "\n");
    }
    return result;
}
