#pragma once
// The Linux platform's own tables and switches, as the shell reads them: the switch, its files, ports, interfaces that are no
// port, VLANs, learned MAC addresses, counters, the source guard's ports and filters, and the debug switch.
//
// Tables come in pages. A daemon of a later release may append members to a record: longer records are read as far as this
// shell knows them, shorter ones are refused. Pages must go forward and hold something, and a table ends at
// STATUS_RECORDS_MAX, so that no peer can keep the shell reading for ever.

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "platform/linux/protocol.h"
#include "shell/remotecall.h"

inline constexpr size_t STATUS_RECORDS_MAX = 1u << 20;
inline constexpr uint32_t STATUS_MODULE_SNOOPING = 53;

// One page of a table. Appends its records, each recordSize bytes, to *records and stores where the next page starts (0 = no
// more). False when the payload is not such a page.
[[nodiscard]] bool statusPageTake(std::span<const uint8_t> payload, const LinuxStatusAsk &ask, uint32_t recordSize,
                                  std::vector<uint8_t> *records, uint32_t *next);

[[nodiscard]] CallEnd statusSwitch(Connection *connection, LinuxSwitchStatus *status, std::string *error);
[[nodiscard]] CallEnd statusFiles(Connection *connection, LinuxFilesStatus *status, std::string *error);
[[nodiscard]] CallEnd statusUnlisted(Connection *connection, std::vector<LinuxUnlistedStatus> *strangers, std::string *error);
[[nodiscard]] CallEnd statusStartup(Connection *connection, LinuxStartupStatus *status, std::string *error);
[[nodiscard]] CallEnd statusPorts(Connection *connection, std::vector<LinuxPortStatus> *ports, std::string *error);
[[nodiscard]] CallEnd statusVlans(Connection *connection, std::vector<LinuxVlanStatus> *vlans, std::string *error);
[[nodiscard]] CallEnd statusMacs(Connection *connection, std::vector<LinuxMacStatus> *macs, std::string *error);
[[nodiscard]] CallEnd statusCounters(Connection *connection, std::vector<LinuxPortCounters> *counters, std::string *error);
[[nodiscard]] CallEnd statusGuard(Connection *connection, std::vector<LinuxGuardPortStatus> *ports, std::string *error);
[[nodiscard]] CallEnd statusFilters(Connection *connection, std::vector<LinuxFilterStatus> *filters, std::string *error);

// The numbers of the switch's ports, ascending.
[[nodiscard]] CallEnd statusPortNumbers(Connection *connection, std::vector<uint32_t> *numbers, std::string *error);

// Sets the debug lines of the snooping module (0 off, 1 on, 2 only ask) and stores what is in force.
[[nodiscard]] CallEnd statusDebug(Connection *connection, uint32_t set, uint32_t *inForce, std::string *error);
