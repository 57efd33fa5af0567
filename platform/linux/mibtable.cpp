#include "platform/linux/mibtable.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <span>

namespace {

constexpr uint32_t OBJECT_ARCS_MAX = 32; // of a group, its first stored arc replaced by the column
constexpr uint32_t SYNTAX_INTEGER = 1;
constexpr uint32_t SYNTAX_ROW_STATUS = 13;
constexpr uint32_t READ_ONLY = 1;
constexpr uint32_t INTEGER_SIZE = 4; // bytes

using Arcs = std::span<const uint32_t>;

struct Object {
    std::array<uint32_t, OBJECT_ARCS_MAX> oid;
    uint32_t arcs;
    const CcdObjectRecord *record;
};

std::array<Object, LINUX_MIB_OBJECTS_MAX> objects; // ascending OID
uint32_t objectCount;

Arcs oidOf(const Object &object) { return {object.oid.data(), object.arcs}; }

Arcs oidOf(const LinuxMibMsg &message) { return {message.oid, std::min(message.oidLength, LINUX_MIB_OID_MAX)}; }

Arcs indexOf(const CcdVariable &variable) { return {variable.index, std::min(variable.indexLength, CCD_INDEX_MAX)}; }

bool before(Arcs left, Arcs right) {
    return std::lexicographical_compare(left.begin(), left.end(), right.begin(), right.end());
}

bool startsWith(Arcs oid, Arcs prefix) {
    return oid.size() >= prefix.size() && std::equal(prefix.begin(), prefix.end(), oid.begin());
}

bool isInteger(const CcdObjectRecord &record) { return record.syntax == SYNTAX_INTEGER || record.syntax == SYNTAX_ROW_STATUS; }

bool takeObject(const CcdRegEntry &entry, Object *object) {
    const uint32_t arcs = entry.group->arcCount;
    if (arcs == 0 || arcs > OBJECT_ARCS_MAX) {
        return false;
    }
    std::copy(entry.group->arcs + 1, entry.group->arcs + arcs, object->oid.begin());
    object->oid[arcs - 1] = entry.object->column;
    object->arcs = arcs;
    object->record = entry.object;
    return true;
}

// The arcs that all objects have in common, but for what tells them apart.
Arcs root() {
    Arcs common = oidOf(objects[0]).first(objects[0].arcs - 1);
    for (const Object &object : std::span(objects).first(objectCount)) {
        const Arcs oid = oidOf(object);
        const size_t size = std::min(common.size(), oid.size());
        common = common.first(static_cast<size_t>(
            std::mismatch(common.begin(), common.begin() + static_cast<long>(size), oid.begin()).first - common.begin()));
    }
    return common;
}

const Object *objectOf(const LinuxMibMsg &message) {
    const Arcs oid = oidOf(message);
    for (const Object &object : std::span(objects).first(objectCount)) {
        if (startsWith(oid, oidOf(object))) {
            return &object;
        }
    }
    return nullptr;
}

// Arcs beyond the most that an index may have are left out.
void setIndex(CcdVariable *variable, Arcs rest) {
    variable->indexLength = static_cast<uint32_t>(std::min<size_t>(rest.size(), CCD_INDEX_MAX));
    std::copy_n(rest.begin(), variable->indexLength, variable->index);
}

CcdVariable variableOf(const Object &object, Arcs rest) {
    CcdVariable variable{};
    variable.object = object.record->number;
    setIndex(&variable, rest);
    return variable;
}

void putValue(LinuxMibMsg *message, const CcdObjectRecord &record, const CcdVariable &variable) {
    message->type = isInteger(record) ? LINUX_MIB_INTEGER : LINUX_MIB_OCTETS;
    message->integer = 0;
    memset(message->octets, 0, sizeof message->octets);
    message->length = std::min(variable.length, CCD_OCTETS_MAX);
    if (isInteger(record)) {
        message->integer = variable.integer;
        message->length = INTEGER_SIZE;
    } else {
        memcpy(message->octets, variable.octets, message->length);
    }
}

int32_t get(LinuxMibMsg *message) {
    const Object *object = objectOf(*message);
    if (object == nullptr) {
        return LINUX_MIB_NO_SUCH_OBJECT;
    }
    const Arcs rest = oidOf(*message).subspan(object->arcs);
    if (rest.size() > CCD_INDEX_MAX) {
        return LINUX_MIB_NO_SUCH_INSTANCE;
    }
    CcdVariable variable = variableOf(*object, rest);
    const int32_t result = object->record->handler(CCD_GET, &variable);
    if (result == 0) {
        putValue(message, *object->record, variable);
    }
    return result;
}

// The next instance of one object behind `rest`. A handler that has moved on and yet has no value there says that this
// instance has none; the ones behind it may.
int32_t nextOf(const Object &object, Arcs rest, CcdVariable *variable) {
    *variable = variableOf(object, rest);
    for (;;) {
        const CcdVariable asked = *variable;
        const int32_t result = object.record->handler(CCD_GETNEXT, variable);
        const bool moved = before(indexOf(asked), indexOf(*variable));
        if (result != LINUX_MIB_NO_NEXT_INSTANCE && result != 0) {
            return result;
        }
        if (!moved || result == 0) {
            return moved ? 0 : LINUX_MIB_NO_NEXT_INSTANCE;
        }
        const CcdVariable passed = *variable;
        *variable = variableOf(object, indexOf(passed));
    }
}

int32_t getNext(LinuxMibMsg *message) {
    const LinuxMibMsg asked = *message;
    const Arcs oid = oidOf(asked);
    for (const Object &object : std::span(objects).first(objectCount)) {
        const bool inside = startsWith(oid, oidOf(object));
        if (!inside && !before(oid, oidOf(object))) {
            continue;
        }
        CcdVariable variable;
        const int32_t result = nextOf(object, inside ? oid.subspan(object.arcs) : Arcs{}, &variable);
        if (result == LINUX_MIB_NO_NEXT_INSTANCE) {
            continue;
        }
        if (result == 0) {
            const Arcs index = indexOf(variable);
            message->oidLength = object.arcs + static_cast<uint32_t>(index.size());
            std::copy(index.begin(), index.end(), std::copy_n(object.oid.begin(), object.arcs, message->oid));
            putValue(message, *object.record, variable);
        }
        return result;
    }
    return LINUX_MIB_NO_NEXT_INSTANCE;
}

// Test and commit of a set. Declared ranges are the handlers' business; what is checked here is what no handler can know.
int32_t set(LinuxMibMsg *message) {
    const Object *object = objectOf(*message);
    if (object == nullptr || object->record->access == READ_ONLY) {
        return LINUX_MIB_NOT_WRITABLE;
    }
    const bool integer = isInteger(*object->record);
    if (message->type != (integer ? LINUX_MIB_INTEGER : LINUX_MIB_OCTETS)) {
        return LINUX_MIB_WRONG_TYPE;
    }
    const Arcs rest = oidOf(*message).subspan(object->arcs);
    if (rest.size() > CCD_INDEX_MAX) {
        return LINUX_MIB_NO_SUCH_INSTANCE;
    }
    if (message->length > CCD_OCTETS_MAX) {
        return LINUX_MIB_INVALID_LENGTH;
    }
    CcdVariable variable = variableOf(*object, rest);
    variable.integer = message->integer;
    variable.length = message->length;
    memcpy(variable.octets, message->octets, integer ? 0 : message->length);
    return object->record->handler(message->operation, &variable);
}

} // namespace

int32_t linuxMibRegister(const CcdRegEntry *list) {
    if (objectCount != 0) {
        return -1;
    }
    for (uint32_t entry = 0; list[entry].group != nullptr && list[entry].object != nullptr; entry++) {
        if (entry >= objects.size() || !takeObject(list[entry], &objects[entry])) {
            linuxMibForget();
            return -1;
        }
        objectCount = entry + 1;
    }
    std::sort(objects.begin(), objects.begin() + objectCount,
              [](const Object &left, const Object &right) { return before(oidOf(left), oidOf(right)); });
    return objectCount != 0 ? 0 : -1;
}

void linuxMibForget() { objectCount = 0; }

int32_t linuxMibRequest(LinuxMibMsg *message) {
    if (objectCount == 0) {
        return LINUX_MIB_NO_SUCH_OBJECT;
    }
    switch (message->operation) {
    case LINUX_MIB_ROOT: {
        const Arcs common = root();
        std::copy(common.begin(), common.end(), message->oid);
        message->oidLength = static_cast<uint32_t>(common.size());
        return 0;
    }
    case LINUX_MIB_GETNEXT: return getNext(message);
    case LINUX_MIB_GET: return get(message);
    case LINUX_MIB_TEST:
    case LINUX_MIB_COMMIT: return set(message);
    default: return LINUX_RESULT_BAD;
    }
}
