#include "platform/linux/loglimit.h"

#include <array>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include <event2/event.h>
#include <event2/event_struct.h>

#include "platform/linux/loop.h"

timeval linuxLogPause = {60, 0};

namespace {

constexpr uint32_t PLACES_MAX = 32; // there are fewer; what is beyond shares the last
constexpr uint32_t TEXT_MAX = 512;

struct Place {
    const char *name; // null while the record is free
    void (*write)(const char *text);
    uint32_t left; // lines that it may write at once
    uint32_t held; // lines held back since the last one was written
    char newest[TEXT_MAX];
    event pause; // runs while the bucket is not full
};

std::array<Place, PLACES_MAX> places;

void say(Place *place) {
    char text[TEXT_MAX + 32];
    if (place->held > 1)
        snprintf(text, sizeof text, "%s (%u more like this)", place->newest, place->held - 1);
    else
        snprintf(text, sizeof text, "%s", place->newest);
    place->held = 0;
    place->write(text);
}

// What was held back takes the minute's line.
void onPause(evutil_socket_t, short, void *user) {
    Place *place = static_cast<Place *>(user);
    if (place->held > 0)
        say(place);
    else
        ++place->left;
    if (place->left < LINUX_LOG_BURST)
        event_add(&place->pause, &linuxLogPause);
}

// At the end of the process.
void sayAll() {
    for (Place &place : places)
        if (place.held > 0)
            say(&place);
}

Place *placeOf(const char *name, void (*write)(const char *text)) {
    for (Place &place : places) {
        if (place.name == name)
            return &place;
        if (place.name == nullptr) {
            if (&place == places.data())
                linuxAtStop(sayAll);
            place.name = name;
            place.write = write;
            place.left = LINUX_LOG_BURST;
            evtimer_assign(&place.pause, linuxLoopBase(), onPause, &place);
            return &place;
        }
    }
    return &places.back();
}

void writeLine(const char *text) { linuxLog("%s", text); }

} // namespace

void linuxLogThrough(const char *name, void (*write)(const char *text), const char *text) {
    Place *place = placeOf(name, write);
    if (place->left == LINUX_LOG_BURST)
        event_add(&place->pause, &linuxLogPause);
    if (place->left > 0) {
        --place->left;
        place->write(text);
        return;
    }
    ++place->held;
    snprintf(place->newest, sizeof place->newest, "%s", text);
}

void linuxLogLimited(const char *fmt, ...) {
    char text[TEXT_MAX];
    va_list args;
    va_start(args, fmt);
    vsnprintf(text, sizeof text, fmt, args);
    va_end(args);
    linuxLogThrough(fmt, writeLine, text);
}
