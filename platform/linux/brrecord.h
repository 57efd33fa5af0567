#pragma once
// What was on before a daemon switched bridge netfilter off, kept in a file until it is put back: a daemon that is killed
// cannot do that, and the next one finds everything off.
//
// The file is "bridge-netfilter" in the state folder: that of SNOOPD6_STATE, else of systemd's STATE_DIRECTORY, else the run
// folder where SNOOPD6_RUN names one, else /var/lib/snoopd6. What it says holds for one boot, one network namespace and, as far
// as it is about the bridge, for one bridge.

#include <array>
#include <cstdint>

struct LinuxBrRecord {
    std::array<bool, 3> bridge;        // of the bridge: IPv4, IPv6, ARP
    std::array<bool, 3> namespaceWide; // the same of the network namespace
};

// Reads the record; all false when there is none, or none that holds here. `ifindex` is the bridge's.
LinuxBrRecord linuxBrRecordRead(uint32_t ifindex);

// Keeps the record, or logs in one sentence why that is not possible.
void linuxBrRecordWrite(const LinuxBrRecord &record, uint32_t ifindex);

// Takes the record away, and the folder if it was made for it.
void linuxBrRecordRemove();
