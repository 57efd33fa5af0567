// snoopctl: the command shell of snoopd6, for people at a terminal, for scripts and for configuration files.

#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <getopt.h>
#include <unistd.h>
#include <vector>

#include "platform/linux/protocol.h"
#include "shell/complete.h"
#include "shell/interactive.h"
#include "shell/manual.h"
#include "shell/output.h"
#include "shell/replay.h"
#include "shell/values.h"

namespace {

constexpr const char *USAGE =
    "Usage: snoopctl [options] [command ...]\n"
    "The command shell of snoopd6. With a command it runs that and ends; without one it reads commands, with help and\n"
    "completion at a terminal, line by line from a pipe.\n"
    "\n"
    "  -f, --file FILE  run the lines of FILE (- is standard input), up to the first that fails\n"
    "      --keep-going run the others as well, and fail at the end\n"
    "      --json       write what is shown as JSON\n"
    "  -n, --count N    end a \"watch\" after N runs\n"
    "      --run DIR    folder of the daemon's socket (default: $SNOOPD6_RUN, or /run/snoopd6)\n"
    "      --complete   print the words that may stand as the last of the words behind --\n"
    "      --manual     print the commands for the man page\n"
    "      --version    say which version this is\n"
    "      --help       say this\n"
    "\n"
    "Start with: snoopctl help, snoopctl show dhcpv6-snooping, snoopctl show running-config\n"
    "A line that starts with ! is a comment.\n"
    "Exit status, of a file that of the first line that failed:\n";

struct Options {
    const char *file = nullptr;
    const char *startup = nullptr; // the daemon's own option: the lines are those of its startup file, which has this name
    std::string run;
    ReplayMode mode = ReplayMode::stopAtFailure;
    uint32_t times = 0;
    bool json = false;
    bool complete = false;
    std::vector<std::string_view> command; // its words; a single one is a line
};

std::string usageText() {
    std::string text = USAGE;
    for (const ExitStatus &status : EXIT_STATUSES) {
        text += "  " + std::to_string(status.status) + "  " + status.help + "\n";
    }
    return text;
}

int statusOf(Outcome outcome) {
    switch (outcome) {
    case Outcome::done: return STATUS_DONE;
    case Outcome::refused: return STATUS_REFUSED;
    case Outcome::usage: return STATUS_USAGE;
    case Outcome::unreachable: break;
    }
    return STATUS_UNREACHABLE;
}

bool readTimes(const char *word, uint32_t *times) {
    const std::string_view text = word;
    const auto [end, code] = std::from_chars(text.data(), text.data() + text.size(), *times);
    return !text.empty() && code == std::errc() && end == text.data() + text.size() && *times > 0;
}

enum : int {
    OPTION_JSON = 256,
    OPTION_RUN,
    OPTION_KEEP_GOING,
    OPTION_STARTUP,
    OPTION_COMPLETE,
    OPTION_MANUAL,
    OPTION_VERSION,
    OPTION_HELP
};

constexpr option OPTIONS[] = {
    {"file", required_argument, nullptr, 'f'},
    {"keep-going", no_argument, nullptr, OPTION_KEEP_GOING},
    {"startup", required_argument, nullptr, OPTION_STARTUP},
    {"json", no_argument, nullptr, OPTION_JSON},
    {"count", required_argument, nullptr, 'n'},
    {"run", required_argument, nullptr, OPTION_RUN},
    {"complete", no_argument, nullptr, OPTION_COMPLETE},
    {"manual", no_argument, nullptr, OPTION_MANUAL},
    {"version", no_argument, nullptr, OPTION_VERSION},
    {"help", no_argument, nullptr, OPTION_HELP},
    {nullptr, 0, nullptr, 0},
};

// Takes one option. False when the program ends with it; what it has to say then stands in *out or *error.
bool takeOption(int found, Options *options, std::string *out, std::string *error) {
    switch (found) {
    case 'f': options->file = optarg; break;
    case 'n':
        if (!readTimes(optarg, &options->times)) {
            *error = textQuoted(optarg) + " is not a number of runs: it is 1 or more";
        }
        break;
    case OPTION_KEEP_GOING: options->mode = ReplayMode::keepGoing; break;
    case OPTION_STARTUP: options->startup = optarg; break;
    case OPTION_JSON: options->json = true; break;
    case OPTION_RUN: options->run = optarg; break;
    case OPTION_COMPLETE: options->complete = true; break;
    case OPTION_MANUAL: *out = manualText(); break;
    case OPTION_VERSION: *out = "snoopctl " SNOOPD6_VERSION "\n"; break;
    case OPTION_HELP: *out = usageText(); break;
    default: *error = "\"snoopctl --help\" lists the options"; break;
    }
    return out->empty() && error->empty();
}

// Reads the options. True to go on; otherwise *status is that of the program.
bool readOptions(int argc, char **argv, Options *options, int *status) {
    std::string out;
    std::string error;
    int found = 0;
    while ((found = getopt_long(argc, argv, "f:n:", OPTIONS, nullptr)) != -1 && takeOption(found, options, &out, &error)) {
    }
    options->command.assign(argv + optind, argv + argc);
    if (found == -1 && options->file != nullptr && !options->command.empty()) {
        error = "a file and a command cannot be run together: give either --file or the command";
    }
    outputWrite(stdout, out);
    outputWrite(stderr, error.empty() ? "" : "snoopctl: " + error + "\n");
    *status = error.empty() ? STATUS_DONE : STATUS_USAGE;
    return out.empty() && error.empty();
}

int replayFile(Session *session, const char *path, const char *called, ReplayMode mode) {
    const bool standardInput = strcmp(path, "-") == 0;
    FILE *in = standardInput ? stdin : fopen(path, "re");
    if (in == nullptr) {
        outputWrite(stderr, "snoopctl: cannot read " + textPrintable(path) + ": " + strerror(errno) + "\n");
        return STATUS_REFUSED;
    }
    const std::string name = textPrintable(called != nullptr ? called : standardInput ? "standard input" : path);
    const ReplayResult result = replayRun(session, in, name.c_str(), mode, stdout, stderr);
    if (!standardInput) {
        static_cast<void>(fclose(in));
    }
    if (result.failed + result.skipped > 0 && result.lines > 1) {
        const bool more = mode == ReplayMode::stopAtFailure && result.skipped > 0;
        outputWrite(stderr, name + ": " + replaySummary(result) + (more ? "; --keep-going runs the others" : "") + "\n");
    }
    return statusOf(result.outcome);
}

int runOnce(Session *session, const std::vector<std::string_view> &command) {
    session->live = stdout;
    const Outcome outcome = command.size() == 1 ? sessionRun(session, command[0]) : sessionRunWords(session, command);
    outputWrite(stdout, session->output);
    if (outcome != Outcome::done) {
        outputWrite(stderr, "snoopctl: " + session->error + "\n");
    }
    return statusOf(outcome);
}

int run(Session *session, const Options &options) {
    if (options.complete) {
        outputWrite(stdout, completeWords(session, options.command));
        return STATUS_DONE;
    }
    if (!options.command.empty()) {
        return runOnce(session, options.command);
    }
    if (options.file != nullptr) {
        return replayFile(session, options.file, options.startup, options.mode);
    }
    if (isatty(STDIN_FILENO) == 0) {
        return replayFile(session, "-", options.startup, options.mode);
    }
    if (!interactiveRun(session)) {
        outputWrite(stderr, "snoopctl: this terminal cannot be used: give a command, or lines on standard input\n");
        return STATUS_REFUSED;
    }
    return STATUS_DONE;
}

} // namespace

int main(int argc, char **argv) {
    Options options;
    const char *folder = getenv("SNOOPD6_RUN");
    options.run = folder != nullptr && *folder != '\0' ? folder : SNOOPD6_RUN_DEFAULT;
    int status = STATUS_DONE;
    if (readOptions(argc, argv, &options, &status)) {
        Session session;
        session.connection.socketPath = connectionSocketPath(options.run);
        session.json = options.json;
        session.watchTimes = options.times;
        session.startup = options.startup != nullptr;
        status = run(&session, options);
        connectionClose(&session.connection);
    }
    if (fflush(stdout) != 0 || ferror(stdout) != 0) {
        outputWrite(stderr, std::string("snoopctl: the output could not be written: ") + strerror(errno) + "\n");
        return STATUS_REFUSED;
    }
    return status;
}
