#include "shell/watch.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <poll.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include "shell/actions.h"
#include "shell/output.h"

namespace {

constexpr uint32_t SECONDS_DEFAULT = 2;
constexpr size_t ROWS_UNKNOWN = 24;

// Terminal control: what every terminal of these days understands.
constexpr const char *CLEAR = "\x1b[2J";
constexpr const char *HOME = "\x1b[H";
constexpr const char *TO_LINE_END = "\x1b[K";
constexpr const char *TO_SCREEN_END = "\x1b[J";
constexpr const char *WRAP_OFF = "\x1b[?7l";
constexpr const char *WRAP_ON = "\x1b[?7h";

// The keyboard while it is watched: keys come one by one, unseen, and Ctrl-C is one of them.
struct Keyboard {
    bool present; // standard input is a terminal
    termios former;
};

void keyboardStart(Keyboard *keyboard) {
    keyboard->present = isatty(STDIN_FILENO) != 0 && tcgetattr(STDIN_FILENO, &keyboard->former) == 0;
    if (keyboard->present) {
        termios keys = keyboard->former;
        keys.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO | ISIG);
        keys.c_cc[VMIN] = 1;
        keys.c_cc[VTIME] = 0;
        tcsetattr(STDIN_FILENO, TCSANOW, &keys);
    }
}

void keyboardEnd(const Keyboard &keyboard) {
    if (keyboard.present) {
        tcsetattr(STDIN_FILENO, TCSANOW, &keyboard.former);
    }
}

// Waits. True when a key was pressed, or the terminal is gone.
bool keyboardWait(const Keyboard &keyboard, uint32_t seconds) {
    pollfd keys = {.fd = STDIN_FILENO, .events = POLLIN, .revents = 0};
    if (poll(&keys, keyboard.present ? 1 : 0, static_cast<int>(seconds) * 1000) <= 0) {
        return false;
    }
    char pressed[64];
    static_cast<void>(!read(STDIN_FILENO, pressed, sizeof pressed)); // one key may send several bytes
    return true;
}

bool isScreen(FILE *to) {
    const char *kind = getenv("TERM");
    return isatty(fileno(to)) != 0 && kind != nullptr && strcmp(kind, "dumb") != 0;
}

size_t rowsOf(FILE *to) {
    winsize size = {};
    return ioctl(fileno(to), TIOCGWINSZ, &size) == 0 && size.ws_row > 0 ? size.ws_row : ROWS_UNKNOWN;
}

std::string timeText() {
    const time_t now = time(nullptr);
    tm parts = {};
    char text[32] = {};
    localtime_r(&now, &parts);
    strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &parts);
    return text;
}

void give(const Session &session, bool screen) {
    const std::string text = session.error.empty() ? session.output : session.output + session.error + '\n';
    if (screen) {
        const std::string title = timeText() + ", every " + std::to_string(session.watchSeconds) + "s; any key ends this";
        outputShow(session.live, watchPicture(title, text, rowsOf(session.live)));
    } else {
        outputShow(session.live, session.json ? text : timeText() + '\n' + text);
    }
}

} // namespace

std::string watchPicture(const std::string &title, const std::string &text, size_t rows) {
    std::string picture = std::string(WRAP_OFF) + HOME + title + TO_LINE_END + '\n';
    size_t left = rows > 3 ? rows - 3 : 1; // beside the title, the count of what is cut off, and the cursor's own row
    size_t at = 0;
    for (; at < text.size() && left > 0; left--) {
        const size_t end = text.find('\n', at);
        picture += text.substr(at, end - at) + TO_LINE_END + '\n';
        at = end == std::string::npos ? text.size() : end + 1;
    }
    const auto cut = std::count(text.begin() + static_cast<ptrdiff_t>(at), text.end(), '\n');
    if (cut > 0) {
        picture += "... and " + std::to_string(cut) + " more lines" + TO_LINE_END + '\n';
    }
    return picture + TO_SCREEN_END + WRAP_ON;
}

Outcome actionWatch(Session *session, const Arguments &arguments) {
    if (session->live == nullptr) {
        session->error = "\"watch\" cannot stand in a file: it goes on until a key is pressed";
        return Outcome::usage;
    }
    session->watchSeconds = arguments.seconds != 0 ? arguments.seconds : SECONDS_DEFAULT;
    return Outcome::done;
}

Outcome watchRun(Session *session, const ParsedCommand &shown) {
    const bool screen = isScreen(session->live);
    Keyboard keyboard = {};
    Outcome outcome = Outcome::done;
    keyboardStart(&keyboard);
    outputShow(session->live, screen ? CLEAR : "");
    for (uint32_t times = 1;; times++) {
        session->output.clear();
        session->error.clear();
        outcome = shown.command->run(session, shown.arguments);
        give(*session, screen);
        if (times == session->watchTimes || ferror(session->live) != 0 || keyboardWait(keyboard, session->watchSeconds)) {
            break;
        }
    }
    keyboardEnd(keyboard);
    session->output.clear(); // it was shown
    return outcome;
}
