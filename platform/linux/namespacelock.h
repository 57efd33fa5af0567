#pragma once
// One snoopd6 per network namespace, because the namespace has one filter table: two daemons would undo each other's filters,
// whatever run folders they have.
//
// The lock is a log group of the namespace's packet filter (nfnetlink_log) to which no rule logs. To bind a group takes
// CAP_NET_ADMIN over the namespace, which the daemon needs anyway and other local users lack. A group has one owner at a time,
// and the kernel frees it when the owner's socket is closed, however the process ends. No file is involved, so that neither
// modes nor leftovers nor mount namespaces matter.

#include <cstdint>

// Takes the lock for the rest of the process's life, or ends the process by linuxFatal.
void linuxNamespaceLock();
