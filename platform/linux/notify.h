#pragma once
// Tells the service manager how far the process is, in the form of sd_notify(3): a datagram to the socket that NOTIFY_SOCKET
// names. Without that variable nobody wants to know, and nothing happens.

// `state` is lines like "READY=1". A manager that does not listen is not waited for.
void linuxNotify(const char *state);
