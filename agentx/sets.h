#pragma once
// Sets from SNMP managers, phase by phase: every value of a request is tested before the first is committed, in the order in
// which the manager gave them, and when one cannot be committed those before it are set back.
//
// Setting back is for settings only. The columns of a binding that is being made only gather until its row status is set, and
// what that has made or destroyed stays.

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <net-snmp/agent/net-snmp-agent-includes.h>

#include "platform/linux/protocol.h"

// The phases of one variable. Each returns an SNMP error.
int setsTest(const netsnmp_request_info *request);
// Keeps what is in force, before the first variable is committed. `rootLength` is the number of arcs of the module.
int setsKeep(netsnmp_request_info *request, size_t rootLength);
int setsCommit(netsnmp_request_info *request);
// Does nothing for a variable that was not committed. SNMP_ERR_UNDOFAILED when the old value is not in force again.
int setsUndo(netsnmp_request_info *request);

// The SNMP error for an answer of the daemon to a set.
int setsError(int32_t answer);

// Fills in the OID of a request. False when it is too long to be one of ours.
bool setsPutOid(const netsnmp_variable_list *variable, LinuxMibMsg *message);
