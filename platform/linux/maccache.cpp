#include "platform/linux/maccache.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

#include <event2/event.h>
#include <libmnl/libmnl.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>

#include "platform/linux/loop.h"
#include "platform/linux/mactable.h"

namespace {

constexpr uint32_t SETS = 2048;            // as many as there are clients
constexpr uint32_t WAYS = 4;               // stations that fall on one set; with 2,048 of them next to none is pushed out
constexpr uint32_t BATCH = 64;             // notifications a system call
constexpr uint32_t BATCHES_A_TURN = 4;     // so that a flood of new stations does not hold up the loop
constexpr uint32_t NOTIFICATION_MAX = 512; // bytes; the bridge's are a fifth of it
constexpr int BUFFER = 1 << 20;            // bytes, some thousand notifications

struct Entry {
    uint64_t key; // 0 while it is free
    LinuxMacPlace place;
};

struct alignas(64) Set { // one cache line
    std::array<Entry, WAYS> entries;
};
static_assert(sizeof(Set) == 64);

struct alignas(8) Datagram {
    uint8_t bytes[NOTIFICATION_MAX];
};

std::array<Set, SETS> sets;
std::array<Datagram, BATCH> datagrams;
std::array<iovec, BATCH> pieces;
std::array<mmsghdr, BATCH> messages;
mnl_socket *listener;
bool listening;
bool behind = true; // notifications may wait that were not read yet, or nobody listens
uint32_t mayRead;   // batches of them that a lookup may still read

// 0 for what is no station's: the MAC of zeros.
uint64_t keyOf(const uint8_t *mac, uint16_t vlan) {
    uint64_t key = 0;
    memcpy(&key, mac, 6);
    return key | static_cast<uint64_t>(vlan) << 48;
}

Set *setOf(uint64_t key) {
    constexpr uint64_t SPREAD = 0x9E3779B97F4A7C15u; // 2^64 over the golden ratio: neighbouring MACs fall far apart
    return &sets[(key * SPREAD) >> 53];
}
static_assert(SETS == 1u << (64 - 53));

// The entry of a station, or null.
Entry *find(uint64_t key) {
    for (Entry &entry : setOf(key)->entries) {
        if (entry.key == key) {
            return &entry;
        }
    }
    return nullptr;
}

int forget(const nlmsghdr *message, void *) {
    LinuxMacEntry told = linuxMacEntryRead(message);
    if (told.found) {
        Entry *entry = find(keyOf(told.mac, told.vlan));
        if (entry != nullptr) {
            entry->key = 0;
        }
    }
    return MNL_CB_OK;
}

void prepareBatch() {
    for (uint32_t i = 0; i < BATCH; i++) {
        pieces[i] = {.iov_base = datagrams[i].bytes, .iov_len = sizeof datagrams[i].bytes};
        messages[i].msg_hdr.msg_iov = &pieces[i];
        messages[i].msg_hdr.msg_iovlen = 1;
    }
}

// One system call's worth of notifications. False when the kernel says that there are no more: fewer than a batch may also mean
// an error, which the next call tells.
bool readBatch() {
    int n = recvmmsg(mnl_socket_get_fd(listener), messages.data(), BATCH, MSG_DONTWAIT, nullptr);
    if (n < 0 && errno == EAGAIN) {
        return false;
    }
    if (n < 0 && errno != EINTR) {
        linuxMacCacheForget(); // ENOBUFS: some are lost
    }
    for (int i = 0; i < n; i++) {
        const mmsghdr &message = messages[static_cast<size_t>(i)];
        if ((message.msg_hdr.msg_flags & MSG_TRUNC) != 0) {
            linuxMacCacheForget();
            continue;
        }
        mnl_cb_run(datagrams[static_cast<size_t>(i)].bytes, message.msg_len, 0, 0, forget, nullptr);
    }
    return true;
}

void catchUp() {
    for (; behind && mayRead > 0; mayRead--) {
        behind = readBatch();
    }
}

void onNotifications(evutil_socket_t, short, void *) {
    linuxMacCacheDoubt();
    catchUp();
}

} // namespace

void linuxMacCacheOpen() {
    listener = mnl_socket_open2(NETLINK_ROUTE, SOCK_CLOEXEC | SOCK_NONBLOCK);
    if (listener == nullptr || mnl_socket_bind(listener, RTMGRP_NEIGH, MNL_SOCKET_AUTOPID) < 0) {
        linuxLog("cannot listen to the bridge's MAC table: %s; it is asked for every frame to a station", strerror(errno));
        if (listener != nullptr) {
            mnl_socket_close(listener);
        }
        listener = nullptr;
        return;
    }
    setsockopt(mnl_socket_get_fd(listener), SOL_SOCKET, SO_RCVBUFFORCE, &BUFFER, sizeof BUFFER);
    prepareBatch();
    event *watch = event_new(linuxLoopBase(), mnl_socket_get_fd(listener), EV_READ | EV_PERSIST, onNotifications, nullptr);
    if (watch == nullptr || event_add(watch, nullptr) != 0) {
        linuxFatal("cannot watch the bridge's MAC table: out of memory");
    }
    listening = true;
    linuxMacCacheDoubt();
    catchUp();
}

void linuxMacCacheDoubt() {
    behind = true;
    mayRead = listening ? BATCHES_A_TURN : 0;
}

bool linuxMacCacheFind(const uint8_t *mac, uint16_t vlan, LinuxMacPlace *place) {
    catchUp();
    const uint64_t key = keyOf(mac, vlan);
    const Entry *entry = behind || key == 0 ? nullptr : find(key);
    if (entry == nullptr) {
        return false;
    }
    *place = entry->place;
    return true;
}

void linuxMacCacheKeep(const uint8_t *mac, uint16_t vlan, LinuxMacPlace place) {
    if (behind) { // a socket that has lost notifications loses more, and says nothing of these, until it is read to its end
        return;
    }
    const uint64_t key = keyOf(mac, vlan);
    Entry *known = find(key);
    std::array<Entry, WAYS> &entries = setOf(key)->entries;
    if (known == nullptr) { // the one that was kept first makes room
        known = entries.data();
        std::move_backward(entries.begin(), entries.end() - 1, entries.end());
    }
    *known = {.key = key, .place = place};
}

void linuxMacCacheForget() { sets.fill({}); }
