#pragma once
// One user's session with the shell: where in the command tree he stands, how he wants his output, and the way to the daemon.
//
// A session runs lines one at a time. What a command has to say goes to `output`, why it failed to `error`; nothing here
// writes to a terminal, so that interactive use, one-shot use, replay and tests share all of it. What a terminal is needed for
// all the same, whoever has one puts into `live` and `confirm`.

#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

#include "shell/connection.h"

// Places of the command tree, as bits: a command may belong to several.
inline constexpr uint32_t PLACE_TOP = 1;
inline constexpr uint32_t PLACE_INTERFACE = 2;
inline constexpr uint32_t PLACE_VLAN = 4;
inline constexpr uint32_t PLACE_ANY = PLACE_TOP | PLACE_INTERFACE | PLACE_VLAN;
inline constexpr uint32_t PLACE_WATCH = 8; // within one line, behind "watch": nobody ever stands there

struct Place {
    uint32_t kind = PLACE_TOP;
    uint32_t number = 0; // port or VLAN
};

inline constexpr size_t SESSION_LINE_MAX = 1024; // bytes of one line

enum class Outcome : uint32_t {
    done,
    refused,     // the daemon said no, or a file could not be used
    usage,       // not a command, or not a value that is allowed here; nothing was sent
    unreachable, // no usable answer from the daemon
};

struct Session {
    Connection connection;
    Place place;
    bool json = false;                                      // `show` for programs
    bool ended = false;                                     // `quit` was said at the top
    bool loading = false;                                   // lines of a file that "load" named
    bool batch = false;                                     // more lines come: sessionRulesLost is left to who sends them
    bool rulesUsed = false;                                 // a line meant a setting that the kernel's filter rules carry out
    bool startup = false;                                   // lines of the daemon's startup file
    uint32_t watchSeconds = 0;                              // between two runs of the command that comes next, 0 = it runs once
    uint32_t watchTimes = 0;                                // how often "watch" runs its command, 0 = until somebody stops it
    FILE *live = nullptr;                                   // what "watch" writes to as it goes; null: nobody looks on
    bool (*confirm)(const std::string &question) = nullptr; // asks a person; null: nobody is asked
    std::string output;                                     // of the last line
    std::string error; // of the last line, one sentence without a full stop; empty unless it failed
};

// How the last word of a line ends.
enum class WordEnd : uint32_t {
    plain,  // it was not quoted
    quoted, // with its closing quote
    open,   // the closing quote is missing
    glued,  // something stands right behind the closing quote
};

// Words of a line: what stands between spaces and tabs. A word that starts with a double quote goes on to the next one, and
// everything between them is taken as it stands. A comment line ("!" or "#" first) and an empty line have no words. Nothing is
// read behind a word that is open or glued, which no line may have.
std::vector<std::string_view> sessionWords(std::string_view line, WordEnd *last = nullptr);

// A line that is not finished: whole words, and what has been typed of the next one.
struct TypedLine {
    std::vector<std::string_view> words;
    std::string_view partial;
    WordEnd end; // of the last word, typed in part or whole
};

TypedLine sessionTyped(std::string_view line);

// Runs one line. A line that ends in "?" asks what may stand there, unless it is complete with a text that ends so.
Outcome sessionRun(Session *session, std::string_view line);

// The same for words that somebody else has told apart: no quotes are looked for.
Outcome sessionRunWords(Session *session, std::vector<std::string_view> words);

// After lines that meant settings which the kernel's filter rules carry out (`rulesUsed`): asks the daemon whether the kernel
// still has the rules. Returns a sentence, without a full stop, when it has not, and an empty text otherwise, also when the
// daemon cannot be asked. What was set stays set.
std::string sessionRulesLost(Session *session);

// Asks what may stand at the end of a line that is not finished.
Outcome sessionHelp(Session *session, std::string_view line);

// "snoopd6>", "snoopd6(0/1)>", "snoopd6(vlan10)>"
std::string sessionPrompt(const Session &session);
