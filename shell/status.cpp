#include "shell/status.h"

#include <cstring>

namespace {

// The records of a whole table, one behind the other.
CallEnd readTable(Connection *connection, uint32_t table, uint32_t recordSize, std::vector<uint8_t> *records,
                  std::string *error) {
    LinuxStatusAsk ask = {.table = table, .start = 0};
    do {
        Reply reply;
        if (!connectionExchange(connection, LINUX_MSG_STATUS, callArgument(&ask, sizeof ask), CONNECTION_TIMEOUT_MS, &reply,
                                error)) {
            return CallEnd::unavailable;
        }
        if (reply.result != LINUX_RESULT_OK) {
            *error = "the daemon has no platform table " + std::to_string(table) +
                     ": install snoopd6 and snoopctl from the same release";
            return CallEnd::unavailable;
        }
        if (!statusPageTake(reply.payload, ask, recordSize, records, &ask.start)) {
            *error = "the daemon's answer is damaged: platform table " + std::to_string(table) + " cannot be read";
            connectionClose(connection);
            return CallEnd::unavailable;
        }
    } while (ask.start != 0);
    return CallEnd::done;
}

void copyRecords(void *records, const std::vector<uint8_t> &bytes) {
    if (!bytes.empty()) {
        std::memcpy(records, bytes.data(), bytes.size());
    }
}

// The record of a table that has one.
CallEnd readSingle(Connection *connection, uint32_t table, void *record, uint32_t size, std::string *error) {
    std::vector<uint8_t> bytes;
    const CallEnd end = readTable(connection, table, size, &bytes, error);
    if (end == CallEnd::done && bytes.size() != size) {
        *error = "the daemon's answer is damaged: it describes " + std::to_string(bytes.size() / size) + " switches";
        return CallEnd::unavailable;
    }
    if (end == CallEnd::done) {
        copyRecords(record, bytes);
    }
    return end;
}

} // namespace

bool statusPageTake(std::span<const uint8_t> payload, const LinuxStatusAsk &ask, uint32_t recordSize,
                    std::vector<uint8_t> *records, uint32_t *next) {
    LinuxStatusHead head = {};
    if (payload.size() < sizeof head) {
        return false;
    }
    std::memcpy(&head, payload.data(), sizeof head);
    const std::span<const uint8_t> body = payload.subspan(sizeof head);
    const bool goesOn = head.next != 0;
    if (head.table != ask.table || head.recordSize < recordSize || (goesOn && (head.next <= ask.start || head.count == 0)) ||
        body.size() != uint64_t{head.count} * head.recordSize ||
        records->size() / recordSize + head.count > STATUS_RECORDS_MAX) {
        return false;
    }
    for (uint32_t i = 0; i < head.count; i++) {
        const auto record = body.subspan(size_t{i} * head.recordSize, recordSize);
        records->insert(records->end(), record.begin(), record.end());
    }
    *next = head.next;
    return true;
}

CallEnd statusSwitch(Connection *connection, LinuxSwitchStatus *status, std::string *error) {
    return readSingle(connection, LINUX_STATUS_SWITCH, status, sizeof *status, error);
}

CallEnd statusFiles(Connection *connection, LinuxFilesStatus *status, std::string *error) {
    return readSingle(connection, LINUX_STATUS_FILES, status, sizeof *status, error);
}

CallEnd statusUnlisted(Connection *connection, std::vector<LinuxUnlistedStatus> *strangers, std::string *error) {
    std::vector<uint8_t> bytes;
    const CallEnd end = readTable(connection, LINUX_STATUS_UNLISTED, sizeof(LinuxUnlistedStatus), &bytes, error);
    strangers->resize(bytes.size() / sizeof(LinuxUnlistedStatus));
    copyRecords(strangers->data(), bytes);
    return end;
}

CallEnd statusStartup(Connection *connection, LinuxStartupStatus *status, std::string *error) {
    return readSingle(connection, LINUX_STATUS_STARTUP, status, sizeof *status, error);
}

CallEnd statusPorts(Connection *connection, std::vector<LinuxPortStatus> *ports, std::string *error) {
    std::vector<uint8_t> bytes;
    const CallEnd end = readTable(connection, LINUX_STATUS_PORTS, sizeof(LinuxPortStatus), &bytes, error);
    ports->resize(bytes.size() / sizeof(LinuxPortStatus));
    copyRecords(ports->data(), bytes);
    return end;
}

CallEnd statusVlans(Connection *connection, std::vector<LinuxVlanStatus> *vlans, std::string *error) {
    std::vector<uint8_t> bytes;
    const CallEnd end = readTable(connection, LINUX_STATUS_VLANS, sizeof(LinuxVlanStatus), &bytes, error);
    vlans->resize(bytes.size() / sizeof(LinuxVlanStatus));
    copyRecords(vlans->data(), bytes);
    return end;
}

CallEnd statusMacs(Connection *connection, std::vector<LinuxMacStatus> *macs, std::string *error) {
    std::vector<uint8_t> bytes;
    const CallEnd end = readTable(connection, LINUX_STATUS_MACS, sizeof(LinuxMacStatus), &bytes, error);
    macs->resize(bytes.size() / sizeof(LinuxMacStatus));
    copyRecords(macs->data(), bytes);
    return end;
}

CallEnd statusCounters(Connection *connection, std::vector<LinuxPortCounters> *counters, std::string *error) {
    std::vector<uint8_t> bytes;
    const CallEnd end = readTable(connection, LINUX_STATUS_COUNTERS, sizeof(LinuxPortCounters), &bytes, error);
    counters->resize(bytes.size() / sizeof(LinuxPortCounters));
    copyRecords(counters->data(), bytes);
    return end;
}

CallEnd statusGuard(Connection *connection, std::vector<LinuxGuardPortStatus> *ports, std::string *error) {
    std::vector<uint8_t> bytes;
    const CallEnd end = readTable(connection, LINUX_STATUS_GUARD, sizeof(LinuxGuardPortStatus), &bytes, error);
    ports->resize(bytes.size() / sizeof(LinuxGuardPortStatus));
    copyRecords(ports->data(), bytes);
    return end;
}

CallEnd statusFilters(Connection *connection, std::vector<LinuxFilterStatus> *filters, std::string *error) {
    std::vector<uint8_t> bytes;
    const CallEnd end = readTable(connection, LINUX_STATUS_FILTERS, sizeof(LinuxFilterStatus), &bytes, error);
    filters->resize(bytes.size() / sizeof(LinuxFilterStatus));
    copyRecords(filters->data(), bytes);
    return end;
}

CallEnd statusPortNumbers(Connection *connection, std::vector<uint32_t> *numbers, std::string *error) {
    std::vector<LinuxPortStatus> ports;
    const CallEnd end = statusPorts(connection, &ports, error);
    numbers->clear();
    for (const LinuxPortStatus &port : ports) {
        numbers->push_back(port.number);
    }
    return end;
}

CallEnd statusDebug(Connection *connection, uint32_t set, uint32_t *inForce, std::string *error) {
    LinuxDebugMsg message = {.module = STATUS_MODULE_SNOOPING, .set = set};
    Reply reply;
    if (!connectionExchange(connection, LINUX_MSG_DEBUG, callArgument(&message, sizeof message), CONNECTION_TIMEOUT_MS, &reply,
                            error)) {
        return CallEnd::unavailable;
    }
    if (reply.result != LINUX_RESULT_OK) {
        return CallEnd::refused;
    }
    if (reply.payload.size() != sizeof message) {
        *error = "the daemon's answer is damaged: it does not hold the debug switch";
        connectionClose(connection);
        return CallEnd::unavailable;
    }
    std::memcpy(&message, reply.payload.data(), sizeof message);
    *inForce = message.set;
    return CallEnd::done;
}
