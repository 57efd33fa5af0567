#pragma once
// What the commands do. Each function runs one line of the command table, in the session's place.

#include "shell/commands.h"
#include "shell/remotecall.h"
#include "shell/report.h"

// configure.cpp
Outcome actionSnooping(Session *session, const Arguments &arguments);
Outcome actionFastRemove(Session *session, const Arguments &arguments);
Outcome actionL2Relay(Session *session, const Arguments &arguments);
Outcome actionTrust(Session *session, const Arguments &arguments);
Outcome actionPortLimit(Session *session, const Arguments &arguments);
Outcome actionVlanLimit(Session *session, const Arguments &arguments);
Outcome actionDebug(Session *session, const Arguments &arguments);

// reset.cpp
Outcome actionUndoAll(Session *session, const Arguments &arguments);

// startup.cpp
Outcome actionSave(Session *session, const Arguments &arguments);
Outcome actionEraseStartup(Session *session, const Arguments &arguments);
Outcome actionClearStartupFailure(Session *session, const Arguments &arguments);
Outcome actionLoad(Session *session, const Arguments &arguments);

// watch.cpp
Outcome actionWatch(Session *session, const Arguments &arguments);

// clear.cpp
Outcome actionClearAll(Session *session, const Arguments &arguments);
Outcome actionClearPort(Session *session, const Arguments &arguments);
Outcome actionClearVlan(Session *session, const Arguments &arguments);
Outcome actionClearMac(Session *session, const Arguments &arguments);
Outcome actionClearAddress(Session *session, const Arguments &arguments);

// configureguard.cpp
Outcome actionGuard(Session *session, const Arguments &arguments);
Outcome actionBind(Session *session, const Arguments &arguments);
Outcome actionUnbind(Session *session, const Arguments &arguments);
Outcome actionUnbindAll(Session *session, const Arguments &arguments);
Outcome actionExempt(Session *session, const Arguments &arguments);

// information.cpp
Outcome actionOption18(Session *session, const Arguments &arguments);
Outcome actionOption37(Session *session, const Arguments &arguments);
Outcome actionInterfaceId(Session *session, const Arguments &arguments);
Outcome actionRemoteId(Session *session, const Arguments &arguments);

// showinformation.cpp
Outcome actionShowInformation(Session *session, const Arguments &arguments);

// showsnooping.cpp
Outcome actionShowSnooping(Session *session, const Arguments &arguments);
Outcome actionShowInterfaces(Session *session, const Arguments &arguments);
Outcome actionShowVlans(Session *session, const Arguments &arguments);

// showclients.cpp
Outcome actionShowClients(Session *session, const Arguments &arguments);
Outcome actionShowClient(Session *session, const Arguments &arguments);

// showguard.cpp
Outcome actionShowGuard(Session *session, const Arguments &arguments);
Outcome actionShowGuardInterfaces(Session *session, const Arguments &arguments);
Outcome actionShowGuardVlans(Session *session, const Arguments &arguments);

// showbindings.cpp
Outcome actionShowBindings(Session *session, const Arguments &arguments);

// showrunning.cpp
Outcome actionShowRunning(Session *session, const Arguments &arguments);

// showplatform.cpp
Outcome actionShowPlatform(Session *session, const Arguments &arguments);
Outcome actionShowPlatformPorts(Session *session, const Arguments &arguments);
Outcome actionShowPlatformVlans(Session *session, const Arguments &arguments);
Outcome actionShowPlatformMacs(Session *session, const Arguments &arguments);
Outcome actionShowPlatformCounters(Session *session, const Arguments &arguments);
Outcome actionShowPlatformFilters(Session *session, const Arguments &arguments);

// navigate.cpp
Outcome actionEnterInterface(Session *session, const Arguments &arguments);
Outcome actionEnterVlan(Session *session, const Arguments &arguments);
Outcome actionQuit(Session *session, const Arguments &arguments);
Outcome actionHelp(Session *session, const Arguments &arguments);

// How actions end. actionEnd turns the end of an exchange into an outcome; `refusal` is the sentence for a daemon that says
// no, the sentence for one that cannot be asked stands in the session already.
Outcome actionEnd(Session *session, CallEnd end, std::string refusal);
// The same for a setting of a port. The daemon keeps settings of ports that the switch does not have; whoever mistyped a number
// should know.
Outcome actionPortEnd(Session *session, CallEnd end, uint32_t port, std::string refusal);
// Gives a report out in the form that the session wants.
Outcome actionShow(Session *session, const Report &report);
