#pragma once
// The names of the guarded ports' interfaces in the kernel's table. An interface of such a name whose index the guard does not
// know is closed to IPv6: it was deleted and made again, and the daemon has yet to hear of it, or is not there to hear of it.

// Whether the kernel has other names than those of the ports that are closed now.
[[nodiscard]] bool linuxGuardNamesDiffer();

// Queue the names to add, and those to take away; the latter count as written then.
void linuxGuardNamesQueueIn();
void linuxGuardNamesQueueOut();

// The kernel refused a batch with names in it: the next ones to be queued are all of them, anew.
void linuxGuardNamesDoubt();
