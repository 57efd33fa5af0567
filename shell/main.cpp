// snoopctl: the command shell of snoopd6, for people at a terminal, for scripts and for configuration files.

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <getopt.h>
#include <unistd.h>
#include <vector>

#include "platform/linux/protocol.h"
#include "shell/interactive.h"
#include "shell/output.h"
#include "shell/replay.h"
#include "shell/values.h"

namespace {

constexpr int STATUS_OK = 0;
constexpr int STATUS_FAILED = 1;
constexpr int STATUS_USAGE = 2;

constexpr const char *USAGE =
    "Usage: snoopctl [options] [command ...]\n"
    "The command shell of snoopd6. With a command it runs that and ends; without one it reads commands, with help and\n"
    "completion at a terminal, line by line from a pipe.\n"
    "\n"
    "  -f, --file FILE  run the lines of FILE (- is standard input)\n"
    "      --json       write what is shown as JSON\n"
    "      --run DIR    folder of the daemon's socket (default: $SNOOPD6_RUN, or /run/snoopd6)\n"
    "      --version    say which version this is\n"
    "      --help       say this\n"
    "\n"
    "Start with: snoopctl help, snoopctl show dhcpv6-snooping, snoopctl show dhcpv6-snooping clients\n"
    "Exit status: 0 done, 1 refused or failed, 2 not a command that can be understood\n";

struct Options {
    const char *file = nullptr;
    std::string run;
    bool json = false;
    std::vector<std::string_view> command; // its words; a single one is a line
};

// Reads the options. STATUS_OK to go on; otherwise *ends is true and the status that of the program.
int readOptions(int argc, char **argv, Options *options, bool *ends) {
    enum : int { OPTION_JSON = 256, OPTION_RUN, OPTION_VERSION, OPTION_HELP };
    const option known[] = {{"file", required_argument, nullptr, 'f'},       {"json", no_argument, nullptr, OPTION_JSON},
                            {"run", required_argument, nullptr, OPTION_RUN}, {"version", no_argument, nullptr, OPTION_VERSION},
                            {"help", no_argument, nullptr, OPTION_HELP},     {nullptr, 0, nullptr, 0}};
    for (int found = 0; (found = getopt_long(argc, argv, "f:", known, nullptr)) != -1;) {
        switch (found) {
        case 'f': options->file = optarg; break;
        case OPTION_JSON: options->json = true; break;
        case OPTION_RUN: options->run = optarg; break;
        case OPTION_VERSION:
            *ends = true;
            outputWrite(stdout, "snoopctl " SNOOPD6_VERSION "\n");
            return STATUS_OK;
        case OPTION_HELP:
            *ends = true;
            outputWrite(stdout, USAGE);
            return STATUS_OK;
        default:
            *ends = true;
            outputWrite(stderr, "snoopctl --help lists what it takes\n");
            return STATUS_USAGE;
        }
    }
    for (int i = optind; i < argc; i++) {
        options->command.emplace_back(argv[i]);
    }
    if (options->file != nullptr && !options->command.empty()) {
        outputWrite(stderr, "snoopctl: a file and a command cannot be run together: give either --file or the command\n");
        *ends = true;
        return STATUS_USAGE;
    }
    return STATUS_OK;
}

int replayFile(Session *session, const char *path) {
    const bool standardInput = strcmp(path, "-") == 0;
    FILE *in = standardInput ? stdin : fopen(path, "re");
    if (in == nullptr) {
        outputWrite(stderr, "snoopctl: cannot read " + textPrintable(path) + ": " + strerror(errno) + "\n");
        return STATUS_FAILED;
    }
    const std::string name = standardInput ? "standard input" : textPrintable(path);
    const ReplayResult result = replayRun(session, in, name.c_str(), stdout, stderr);
    if (!standardInput) {
        static_cast<void>(fclose(in));
    }
    return result.failed + result.skipped == 0 ? STATUS_OK : STATUS_FAILED;
}

int runOnce(Session *session, const std::vector<std::string_view> &command) {
    const Outcome outcome = command.size() == 1 ? sessionRun(session, command[0]) : sessionRunWords(session, command);
    outputWrite(stdout, session->output);
    if (outcome == Outcome::done) {
        return STATUS_OK;
    }
    outputWrite(stderr, "snoopctl: " + session->error + "\n");
    return outcome == Outcome::usage ? STATUS_USAGE : STATUS_FAILED;
}

int run(Session *session, const Options &options) {
    if (!options.command.empty()) {
        return runOnce(session, options.command);
    }
    if (options.file != nullptr) {
        return replayFile(session, options.file);
    }
    if (isatty(STDIN_FILENO) == 0) {
        return replayFile(session, "-");
    }
    if (!interactiveRun(session)) {
        outputWrite(stderr, "snoopctl: this terminal cannot be used: give a command, or lines on standard input\n");
        return STATUS_FAILED;
    }
    return STATUS_OK;
}

} // namespace

int main(int argc, char **argv) {
    Options options;
    const char *folder = getenv("SNOOPD6_RUN");
    options.run = folder != nullptr && *folder != '\0' ? folder : SNOOPD6_RUN_DEFAULT;
    bool ends = false;
    int status = readOptions(argc, argv, &options, &ends);
    if (!ends) {
        Session session;
        session.connection.socketPath = connectionSocketPath(options.run);
        session.json = options.json;
        status = run(&session, options);
        connectionClose(&session.connection);
    }
    if (fflush(stdout) != 0 || ferror(stdout) != 0) {
        outputWrite(stderr, std::string("snoopctl: the output could not be written: ") + strerror(errno) + "\n");
        return STATUS_FAILED;
    }
    return status;
}
