// VLAN list texts: "1,3-5". Every text but the last of a list ends with ",", so that the texts joined are one list, and the
// reader accepts a trailing ",".

#include "platform/libcommon.h"

#include <algorithm>
#include <bitset>
#include <cstdio>
#include <cstring>

static constexpr uint32_t TEXT_LONGEST = 110; // characters of one text
static constexpr uint32_t NUMBER_MAX = 65535;

// ---- Reading -------------------------------------------------------------------------------------------------------

// Takes a decimal number off the front of the text; false when there is none, or it is too large.
static bool takeNumber(const char **text, uint32_t *number) {
    const char *at = *text;
    uint32_t value = 0;
    while (*at >= '0' && *at <= '9' && value <= NUMBER_MAX) {
        value = value * 10 + static_cast<uint32_t>(*at - '0');
        at++;
    }
    if (at == *text || value > NUMBER_MAX) {
        return false;
    }
    *text = at;
    *number = value;
    return true;
}

// Takes "3" or "3-5" off the front of the text.
static bool takeRange(const char **text, uint32_t *first, uint32_t *last) {
    if (!takeNumber(text, first)) {
        return false;
    }
    *last = *first;
    if (**text == '-') {
        (*text)++;
        return takeNumber(text, last) && *first <= *last;
    }
    return true;
}

static int32_t readList(const char *text, uint16_t *out, uint32_t max, uint32_t low, uint32_t high) {
    std::bitset<NUMBER_MAX + 1> taken;
    uint32_t count = 0;
    while (*text != '\0') {
        uint32_t first = 0;
        uint32_t last = 0;
        if (!takeRange(&text, &first, &last) || first < low || last > high) {
            return -1;
        }
        for (uint32_t number = first; number <= last; number++) {
            if (taken[number]) {
                continue;
            }
            if (count == max) {
                return -1;
            }
            taken[number] = true;
            out[count] = static_cast<uint16_t>(number);
            count++;
        }
        if (*text == ',') {
            text++;
        } else if (*text != '\0') {
            return -1;
        }
    }
    return 0;
}

// An empty text is the empty list.
int32_t Str2ShortArray(const char *text, uint16_t *out, uint32_t max, uint32_t low, uint32_t high) {
    if (out == nullptr) {
        return -1;
    }
    std::fill_n(out, max, uint16_t{0});
    if (text == nullptr) {
        return -1;
    }
    const int32_t result = readList(text, out, max, low, high);
    if (result != 0) {
        std::fill_n(out, max, uint16_t{0});
    }
    return result;
}

// ---- Writing -------------------------------------------------------------------------------------------------------

uint32_t vidArray2vlanList(const uint16_t *vids, char (*out)[VLAN_TEXT_MAX], uint32_t chunk, uint32_t) {
    if (vids == nullptr || out == nullptr) {
        return 0;
    }
    chunk = std::min(chunk, TEXT_LONGEST);
    const uint32_t count = vids[0];
    uint32_t texts = 0;
    uint32_t used = 0; // characters of the text being written; it ends with "," all the time
    for (uint32_t i = 1; i <= count && vids[i] != 0;) {
        const uint32_t first = vids[i];
        uint32_t last = first;
        for (i++; i <= count && vids[i] == last + 1; i++) {
            last++;
        }
        char item[16];
        const int length =
            first == last ? snprintf(item, sizeof item, "%u,", first) : snprintf(item, sizeof item, "%u-%u,", first, last);
        const uint32_t size = static_cast<uint32_t>(length);
        if (texts == 0 || used + size > chunk) {
            if (texts == VLAN_TEXTS_MAX || size > chunk) {
                break;
            }
            texts++;
            used = 0;
        }
        memcpy(&out[texts - 1][used], item, size + 1);
        used += size;
    }
    if (texts > 0) {
        out[texts - 1][used - 1] = '\0';
    }
    return texts;
}
