#include "shell/interactive.h"

#include <algorithm>
#include <clocale>
#include <cstdio>
#include <histedit.h>
#include <unistd.h>

#include "shell/historyfile.h"
#include "shell/idtemplate.h"
#include "shell/output.h"
#include "shell/parser.h"

namespace {

constexpr int HISTORY_LINES = 500;
constexpr size_t ANSWER_MAX = 16; // more than any answer that counts

Session *sessionOf(EditLine *editor) {
    void *session = nullptr;
    el_get(editor, EL_CLIENTDATA, &session);
    return static_cast<Session *>(session);
}

char *prompt(EditLine *editor) {
    static std::string text; // libedit keeps the pointer while it draws
    text = sessionPrompt(*sessionOf(editor));
    return text.data();
}

std::string lineToCursor(EditLine *editor) {
    const LineInfo *info = el_line(editor);
    return {info->buffer, info->cursor};
}

void showLast(const Session &session) {
    outputShow(stdout, session.error.empty() ? session.output : session.output + session.error + '\n');
}

// Asks what may stand at the cursor, under the line, which is then drawn again.
unsigned char showHelp(EditLine *editor) {
    Session *session = sessionOf(editor);
    const std::string line = lineToCursor(editor);
    outputWrite(stdout, "\n");
    sessionHelp(session, line);
    showLast(*session);
    return CC_REDISPLAY;
}

unsigned char keyHelp(EditLine *editor, int) {
    if (interactiveTakesQuestionMark(lineToCursor(editor))) {
        return el_insertstr(editor, "?") == 0 ? CC_REFRESH : CC_ERROR;
    }
    return showHelp(editor);
}

unsigned char keyComplete(EditLine *editor, int) {
    const std::string added = interactiveCompletion(*sessionOf(editor), lineToCursor(editor));
    if (added.empty()) {
        return showHelp(editor);
    }
    return el_insertstr(editor, added.c_str()) == 0 ? CC_REFRESH : CC_ERROR;
}

unsigned char keyDrop(EditLine *editor, int) {
    const LineInfo *info = el_line(editor);
    el_cursor(editor, static_cast<int>(info->lastchar - info->cursor));
    el_deletestr(editor, static_cast<int>(info->lastchar - info->buffer));
    outputShow(stdout, "^C\n");
    return CC_REDISPLAY;
}

void bindKeys(EditLine *editor) {
    el_set(editor, EL_EDITOR, "emacs");
    // The wide form keeps these literals; the other one copies them and never frees the copies.
    el_wset(editor, EL_ADDFN, L"snoopctl-help", L"What may stand here", keyHelp);
    el_wset(editor, EL_ADDFN, L"snoopctl-complete", L"Complete the word", keyComplete);
    el_wset(editor, EL_ADDFN, L"snoopctl-drop", L"Drop the line", keyDrop);
    el_set(editor, EL_BIND, "?", "snoopctl-help", nullptr);
    el_set(editor, EL_BIND, "^I", "snoopctl-complete", nullptr);
    el_set(editor, EL_BIND, "^C", "snoopctl-drop", nullptr);
    // Ctrl-C comes as a key while a line is edited, and as the usual signal while a command runs.
    el_set(editor, EL_SETTY, "-d", "-isig", nullptr);
}

// Reads the answer as it stands in the terminal, byte by byte: lines behind it belong to the editor.
bool askPerson(const std::string &question) {
    outputShow(stdout, question);
    std::string answer;
    char c = '\0';
    while (read(STDIN_FILENO, &c, 1) == 1 && c != '\n') {
        answer += answer.size() < ANSWER_MAX ? std::string(1, c) : "";
    }
    outputShow(stdout, c == '\n' ? "" : "\n");
    return answer == "y" || answer == "Y" || answer == "yes";
}

void readLines(Session *session, EditLine *editor, History *history) {
    HistEvent event = {};
    int length = 0;
    while (!session->ended) {
        // Before the prompt shows: a key typed at once must not meet the terminal's own line editing.
        el_set(editor, EL_PREP_TERM, 1);
        const char *line = el_gets(editor, &length);
        if (line == nullptr || length <= 0) {
            outputShow(stdout, "\n");
            return;
        }
        if (!sessionWords(line).empty()) {
            ::history(history, &event, H_ENTER, line);
        }
        sessionRun(session, line);
        showLast(*session);
    }
}

} // namespace

bool interactiveRun(Session *session) {
    static_cast<void>(setlocale(LC_CTYPE, "C.UTF-8")); // as texts are; in another locale keys would be lost
    EditLine *editor = el_init("snoopctl", stdin, stdout, stderr);
    History *history = history_init();
    HistEvent event = {};
    const bool good = editor != nullptr && history != nullptr;
    if (good) {
        ::history(history, &event, H_SETSIZE, HISTORY_LINES);
        ::history(history, &event, H_SETUNIQUE, 1);
        el_set(editor, EL_CLIENTDATA, session);
        el_set(editor, EL_PROMPT, prompt);
        el_set(editor, EL_HIST, ::history, history);
        bindKeys(editor);
        const std::string file = historyFilePath();
        if (!file.empty()) {
            ::history(history, &event, H_LOAD, file.c_str());
        }
        session->live = stdout;
        session->confirm = askPerson;
        readLines(session, editor, history);
        if (!file.empty()) {
            ::history(history, &event, H_SAVE, file.c_str());
        }
    }
    if (history != nullptr) {
        history_end(history);
    }
    if (editor != nullptr) {
        el_end(editor);
    }
    return good;
}

bool interactiveTakesQuestionMark(std::string_view line) {
    const TypedLine typed = sessionTyped(line);
    // No element has a "?" in it: there it asks.
    return typed.end == WordEnd::open && idTemplateOpenElement(typed.partial).empty();
}

std::string interactiveCompletion(const Session &session, std::string_view line) {
    const TypedLine typed = sessionTyped(line);
    std::vector<Choice> choices;
    std::string error;
    if (typed.end == WordEnd::glued || !parserChoices(session.place.kind, typed.words, typed.partial, &choices, &error)) {
        return "";
    }
    std::string_view common;
    size_t fitting = 0;
    bool part = false;
    for (const Choice &choice : choices) {
        part = choice.kind == ChoiceKind::part;
        if (choice.kind == ChoiceKind::value) {
            return ""; // a value, or the end of the line, may stand here as well: nothing is certain
        }
        const auto differs = std::mismatch(common.begin(), common.end(), choice.word.begin(), choice.word.end());
        common = fitting == 0 ? choice.word : common.substr(0, static_cast<size_t>(differs.first - common.begin()));
        fitting++;
    }
    if (fitting == 0) {
        return "";
    }
    const std::string_view begun = part ? idTemplateOpenElement(typed.partial) : typed.partial;
    return std::string(common.substr(begun.size())) + (fitting == 1 && !part ? " " : "");
}
