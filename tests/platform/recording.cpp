#include "tests/platform/recording.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <map>

std::vector<std::string> recordingTraces;
std::vector<std::string> recordingConsole;
uint32_t recordingClock = 1000;
std::string recordingFailed;

namespace {

std::vector<std::string> transcript;
std::map<std::string, uint32_t> counts;
std::map<std::string, uint32_t> clockMoves; // seconds per call
bool quietShown = false;

uint32_t failAnyIn = 0;      // calls until one fails; 0 = none does
std::string failFunction;    // the function that fails
uint32_t failFunctionIn = 0; // its calls until one fails; 0 = none does
bool failFunctionAlways = false;

std::string watchedFunction;
std::function<void()> whenCalled;

bool callFails(const std::string &name) {
    const bool any = failAnyIn != 0 && --failAnyIn == 0;
    bool named = false;
    if (name == failFunction)
        named = failFunctionAlways || (failFunctionIn != 0 && --failFunctionIn == 0);
    if (any || named)
        recordingFailed = name;
    return any || named;
}

bool writeDown(bool shown, const char *fmt, va_list arguments) {
    const std::string name(fmt, strcspn(fmt, " "));
    counts[name]++;
    if (const auto move = clockMoves.find(name); move != clockMoves.end())
        recordingClock += move->second;
    if (whenCalled && name == watchedFunction)
        whenCalled();
    const bool fails = callFails(name);
    if (shown) {
        char line[4096];
        vsnprintf(line, sizeof line, fmt, arguments);
        transcript.push_back(std::string(line) + (fails ? " -> fails" : ""));
    }
    return fails;
}

} // namespace

bool recordingCall(const char *fmt, ...) {
    va_list arguments;
    va_start(arguments, fmt);
    const bool fails = writeDown(true, fmt, arguments);
    va_end(arguments);
    return fails;
}

bool recordingQuietCall(const char *fmt, ...) {
    va_list arguments;
    va_start(arguments, fmt);
    const bool fails = writeDown(quietShown, fmt, arguments);
    va_end(arguments);
    return fails;
}

std::vector<std::string> recordingTake() {
    std::vector<std::string> lines;
    lines.swap(transcript);
    return lines;
}

void recordingShowQuiet(bool show) { quietShown = show; }

uint32_t recordingCount(const std::string &function) {
    const auto found = counts.find(function);
    return found == counts.end() ? 0 : found->second;
}

void recordingClockMovesOn(const std::string &function, uint32_t seconds) { clockMoves[function] = seconds; }

void recordingFailNth(uint32_t nth) {
    recordingFailed.clear();
    failAnyIn = nth;
}

void recordingFailFunction(const std::string &function, uint32_t nth) {
    recordingFailed.clear();
    failFunction = function;
    failFunctionIn = nth;
    failFunctionAlways = false;
}

void recordingFailAlways(const std::string &function) {
    recordingFailed.clear();
    failFunction = function;
    failFunctionIn = 0;
    failFunctionAlways = true;
}

void recordingWhenCalled(const std::string &function, std::function<void()> what) {
    watchedFunction = function;
    whenCalled = std::move(what);
}

void recordingFailNone() {
    failAnyIn = 0;
    failFunction.clear();
    failFunctionIn = 0;
    failFunctionAlways = false;
}

std::string recordingEscape(const std::string &text) {
    std::string out;
    for (const char ch : text) {
        char escape[8];
        if (ch == '\r')
            out += "\\r";
        else if (ch == '\n')
            out += "\\n";
        else if (ch < ' ' || ch > '~') {
            snprintf(escape, sizeof escape, "\\x%02x", static_cast<unsigned>(static_cast<unsigned char>(ch)));
            out += escape;
        } else
            out += ch;
    }
    return out;
}

std::string recordingHex(const void *bytes, uint32_t length) {
    std::string out;
    for (uint32_t i = 0; i < length; i++) {
        char digits[4];
        snprintf(digits, sizeof digits, "%02x", static_cast<unsigned>(static_cast<const uint8_t *>(bytes)[i]));
        out += digits;
    }
    return out;
}

// FNV-1a, 64 bits: long enough that two frames of a test never share a name.
std::string recordingFrameName(std::span<const uint8_t> bytes) {
    uint64_t hash = 0xcbf29ce484222325u;
    for (const uint8_t byte : bytes)
        hash = (hash ^ byte) * 0x100000001b3u;
    char name[20];
    snprintf(name, sizeof name, "%016llx", static_cast<unsigned long long>(hash));
    return name;
}

std::string recordingTraceLine(const std::string &text) {
    return "syslogSendInfo module=53 level=7 tag=\"dhcp6snooping\" \"" + recordingEscape(text) + "\"";
}

void recordingReset() {
    whenCalled = nullptr;
    recordingTraces.clear();
    recordingConsole.clear();
    transcript.clear();
    counts.clear();
    clockMoves.clear();
    quietShown = false;
    recordingClock = 1000;
    recordingFailNone();
    recordingFailed.clear();
    recordingResetVos();
    recordingResetSwitch();
    recordingResetRemote();
    recordingResetNet();
    recordingResetFilters();
    recordingResetSubagent();
}
