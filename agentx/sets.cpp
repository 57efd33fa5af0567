#include "agentx/sets.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <span>

#include "agentx/objects.h"

namespace {

constexpr const char *BEFORE = "snoopd6 before"; // name of what is kept with a request

// Arcs behind the module's.
constexpr oid BINDING_TABLE = 7;
constexpr oid INFORMATION = 20;
constexpr uint32_t ID_KINDS[] = {3, 5}; // below INFORMATION; the text of an id is the next one

// What was in force before a request: the value, and for the kind or the text of an id both, the text first, because setting
// the kind applies the text.
struct Before {
    LinuxMibMsg values[2];
    uint32_t count;
    bool changed; // this variable of the request has been committed
};

// Type and value of a set. False when no object of ours takes such a value.
bool putValue(const netsnmp_variable_list *variable, LinuxMibMsg *message, int *error) {
    if (variable->type == ASN_INTEGER) {
        message->type = LINUX_MIB_INTEGER;
        message->integer = static_cast<uint32_t>(*variable->val.integer);
        message->length = 4;
        return true;
    }
    if (variable->type != ASN_OCTET_STR) {
        *error = SNMP_ERR_WRONGTYPE;
        return false;
    }
    if (variable->val_len >= sizeof message->octets) {
        *error = SNMP_ERR_WRONGLENGTH;
        return false;
    }
    message->type = LINUX_MIB_OCTETS;
    message->length = static_cast<uint32_t>(variable->val_len);
    memcpy(message->octets, variable->val.string, variable->val_len);
    return true;
}

int change(const netsnmp_request_info *request, uint32_t operation) {
    LinuxMibMsg message{};
    int error = SNMP_ERR_NOERROR;
    if (!setsPutOid(request->requestvb, &message)) {
        return SNMP_ERR_NOCREATION;
    }
    if (!putValue(request->requestvb, &message, &error)) {
        return error;
    }
    message.operation = operation;
    return setsError(objectsAsk(&message));
}

// Reads the value of the object named in `value`. False when there is none.
bool read(LinuxMibMsg *value) {
    value->operation = LINUX_MIB_GET;
    return objectsAsk(value) == 0;
}

bool sameValue(const LinuxMibMsg &left, const LinuxMibMsg &right) {
    return left.type == right.type && left.integer == right.integer && left.length == right.length &&
           memcmp(left.octets, right.octets, sizeof left.octets) == 0;
}

// The objects that are set back together with the one of a request, itself included. Returns how many; 0 when it cannot be.
uint32_t together(const netsnmp_variable_list *variable, size_t rootLength, LinuxMibMsg *values) {
    if (!setsPutOid(variable, &values[0]) || values[0].oidLength <= rootLength || values[0].oid[rootLength] == BINDING_TABLE) {
        return 0;
    }
    if (values[0].oid[rootLength] != INFORMATION || values[0].oidLength <= rootLength + 1) {
        return 1;
    }
    for (uint32_t kind : ID_KINDS) {
        const uint32_t object = values[0].oid[rootLength + 1];
        if (object == kind || object == kind + 1) {
            values[1] = values[0];
            values[0].oid[rootLength + 1] = kind + 1;
            values[1].oid[rootLength + 1] = kind;
            return 2;
        }
    }
    return 1;
}

Before *kept(netsnmp_request_info *request) { return static_cast<Before *>(netsnmp_request_get_list_data(request, BEFORE)); }

} // namespace

bool setsPutOid(const netsnmp_variable_list *variable, LinuxMibMsg *message) {
    if (variable->name_length > LINUX_MIB_OID_MAX) {
        return false;
    }
    message->oidLength = static_cast<uint32_t>(variable->name_length);
    std::transform(variable->name, variable->name + variable->name_length, message->oid,
                   [](oid arc) { return static_cast<uint32_t>(arc); });
    return true;
}

int setsError(int32_t answer) {
    switch (answer) {
    case 0: return SNMP_ERR_NOERROR;
    case LINUX_MIB_NO_SUCH_OBJECT:
    case LINUX_MIB_NO_SUCH_INSTANCE:
    case LINUX_MIB_NO_NEXT_INSTANCE: return SNMP_ERR_NOCREATION;
    case LINUX_MIB_INVALID_RANGE:
    case LINUX_MIB_WRONG_VALUE: return SNMP_ERR_WRONGVALUE;
    case LINUX_MIB_INVALID_LENGTH:
    case LINUX_MIB_TOO_BIG: return SNMP_ERR_WRONGLENGTH;
    case LINUX_MIB_WRONG_TYPE: return SNMP_ERR_WRONGTYPE;
    case LINUX_MIB_RESOURCE_UNAVAILABLE: return SNMP_ERR_RESOURCEUNAVAILABLE;
    case LINUX_MIB_NOT_WRITABLE: return SNMP_ERR_NOTWRITABLE;
    case OBJECTS_UNREACHABLE: return SNMP_ERR_GENERR;
    default: return SNMP_ERR_COMMITFAILED;
    }
}

int setsTest(const netsnmp_request_info *request) { return change(request, LINUX_MIB_TEST); }

int setsKeep(netsnmp_request_info *request, size_t rootLength) {
    auto *before = static_cast<Before *>(calloc(1, sizeof(Before)));
    if (before == nullptr) {
        return SNMP_ERR_RESOURCEUNAVAILABLE;
    }
    netsnmp_request_add_list_data(request, netsnmp_create_data_list(BEFORE, before, free));
    before->count = together(request->requestvb, rootLength, before->values);
    return std::all_of(before->values, before->values + before->count, [](LinuxMibMsg &value) { return read(&value); })
               ? SNMP_ERR_NOERROR
               : SNMP_ERR_GENERR;
}

int setsCommit(netsnmp_request_info *request) {
    const int error = change(request, LINUX_MIB_COMMIT);
    if (Before *before = kept(request); before != nullptr) {
        before->changed = error == SNMP_ERR_NOERROR;
    }
    return error;
}

int setsUndo(netsnmp_request_info *request) {
    const Before *before = kept(request);
    if (before == nullptr || !before->changed) {
        return SNMP_ERR_NOERROR;
    }
    for (LinuxMibMsg value : std::span(before->values).first(before->count)) {
        value.operation = LINUX_MIB_COMMIT;
        if (objectsAsk(&value) != 0) {
            return SNMP_ERR_UNDOFAILED;
        }
    }
    // An object may take a value and yet go by another one.
    for (const LinuxMibMsg &value : std::span(before->values).first(before->count)) {
        LinuxMibMsg now = value;
        if (!read(&now) || !sameValue(now, value)) {
            return SNMP_ERR_UNDOFAILED;
        }
    }
    return SNMP_ERR_NOERROR;
}
