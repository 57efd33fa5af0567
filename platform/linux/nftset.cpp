#include "platform/linux/nftset.h"

#include <cerrno>
#include <cstring>

#include <libmnl/libmnl.h>
#include <libnftnl/common.h>
#include <libnftnl/expr.h>
#include <libnftnl/set.h>
#include <linux/netfilter.h>
#include <linux/netfilter/nf_tables.h>
#include <linux/netfilter/nfnetlink.h>
#include <sys/socket.h>

namespace {

constexpr uint32_t BATCH_BYTES = 512 * 1024; // some thousand elements
constexpr uint32_t STEPS_OF_A_BATCH = 512;   // of a few changes each
constexpr uint32_t CHANGE_MAX = 512;         // bytes of one change: names, key and attribute headers

mnl_socket *nft;
uint32_t sequence;
uint32_t used;
uint32_t beginning; // bytes of a batch without changes
bool overflow;
alignas(8) char batch[BATCH_BYTES];
alignas(8) uint8_t answers[65536];

// Where the next message goes; null when the batch is full, with room kept for its end.
char *room() {
    if (used + CHANGE_MAX + NLMSG_HDRLEN + sizeof(nfgenmsg) + 64 > BATCH_BYTES) {
        overflow = true;
        return nullptr;
    }
    return batch + used;
}

// The verdict as the kernel knows it; meaningless for none.
uint32_t numberOf(LinuxNftVerdict verdict) {
    return verdict == LinuxNftVerdict::accept ? static_cast<uint32_t>(NF_ACCEPT) : static_cast<uint32_t>(NFT_RETURN);
}

LinuxNftVerdict verdictOf(nftnl_set_elem *element) {
    if (!nftnl_set_elem_is_set(element, NFTNL_SET_ELEM_VERDICT))
        return LinuxNftVerdict::none;
    const uint32_t number = nftnl_set_elem_get_u32(element, NFTNL_SET_ELEM_VERDICT);
    return number == NF_ACCEPT ? LinuxNftVerdict::accept : LinuxNftVerdict::back;
}

void change(uint16_t type, const char *setName, std::span<const uint8_t> key, LinuxNftVerdict verdict = LinuxNftVerdict::none) {
    char *at = room();
    if (at == nullptr) {
        return;
    }
    nftnl_set *set = nftnl_set_alloc();
    nftnl_set_elem *element = key.empty() ? nullptr : nftnl_set_elem_alloc();
    if (set == nullptr || (!key.empty() && element == nullptr)) {
        overflow = true;
    } else {
        nftnl_set_set_str(set, NFTNL_SET_TABLE, LINUX_NFT_TABLE);
        nftnl_set_set_str(set, NFTNL_SET_NAME, setName);
        if (element != nullptr) {
            nftnl_set_elem_set(element, NFTNL_SET_ELEM_KEY, key.data(), static_cast<uint32_t>(key.size()));
            if (verdict != LinuxNftVerdict::none)
                nftnl_set_elem_set_u32(element, NFTNL_SET_ELEM_VERDICT, numberOf(verdict));
            nftnl_set_elem_add(set, element);
            element = nullptr; // the set's now
        }
        uint16_t flags = type == NFT_MSG_NEWSETELEM ? NLM_F_CREATE : 0;
        nlmsghdr *message = nftnl_nlmsg_build_hdr(at, type, NFPROTO_BRIDGE, flags, ++sequence);
        nftnl_set_elems_nlmsg_build_payload(message, set);
        used += MNL_ALIGN(message->nlmsg_len);
    }
    if (element != nullptr) {
        nftnl_set_elem_free(element);
    }
    if (set != nullptr) {
        nftnl_set_free(set);
    }
}

// The kernel works a batch off before the send returns; what it refused is in the socket by then. All of it is read, so that
// nothing is left for the next batch to be blamed for.
int32_t readErrors() {
    int32_t first = 0;
    for (;;) {
        ssize_t n = recv(mnl_socket_get_fd(nft), answers, sizeof answers, MSG_DONTWAIT);
        if (n <= 0) {
            if (n == 0 || errno == EAGAIN) {
                return first;
            }
            first = first == 0 ? -errno : first;
            if (errno != ENOBUFS) { // more refusals than the socket holds; the first of them are still there
                return first;
            }
            continue;
        }
        int left = static_cast<int>(n);
        const nlmsghdr *message = reinterpret_cast<const nlmsghdr *>(answers);
        for (; mnl_nlmsg_ok(message, left); message = mnl_nlmsg_next(message, &left)) {
            if (message->nlmsg_type == NLMSG_ERROR && mnl_nlmsg_get_payload_len(message) >= sizeof(int32_t) && first == 0) {
                memcpy(&first, mnl_nlmsg_get_payload(message), sizeof first);
            }
        }
    }
}

uint64_t packetsOf(nftnl_set_elem *element) {
    uint32_t size = 0;
    const void *expression = nftnl_set_elem_get(element, NFTNL_SET_ELEM_EXPR, &size);
    if (expression == nullptr)
        return 0;
    return nftnl_expr_get_u64(static_cast<const nftnl_expr *>(expression), NFTNL_EXPR_CTR_PACKETS);
}

int readElement(const nlmsghdr *message, void *user) {
    nftnl_set *set = nftnl_set_alloc();
    if (set == nullptr)
        return MNL_CB_ERROR;
    if (nftnl_set_elems_nlmsg_parse(message, set) == 0) {
        nftnl_set_elems_iter *walk = nftnl_set_elems_iter_create(set);
        nftnl_set_elem *element = walk == nullptr ? nullptr : nftnl_set_elems_iter_next(walk);
        if (element != nullptr && user != nullptr)
            *static_cast<LinuxNftElement *>(user) = {.packets = packetsOf(element), .verdict = verdictOf(element)};
        if (walk != nullptr)
            nftnl_set_elems_iter_destroy(walk);
    }
    nftnl_set_free(set);
    return MNL_CB_OK;
}

} // namespace

int32_t linuxNftOpen() {
    nft = mnl_socket_open2(NETLINK_NETFILTER, SOCK_CLOEXEC);
    if (nft == nullptr || mnl_socket_bind(nft, 0, MNL_SOCKET_AUTOPID) < 0) {
        return -errno;
    }
    int size = static_cast<int>(BATCH_BYTES) * 2;
    setsockopt(mnl_socket_get_fd(nft), SOL_SOCKET, SO_SNDBUFFORCE, &size, sizeof size);
    return 0;
}

void linuxNftClose() {
    if (nft != nullptr) {
        mnl_socket_close(nft);
    }
    nft = nullptr;
}

void linuxNftBegin() {
    overflow = false;
    used = MNL_ALIGN(nftnl_batch_begin(batch, ++sequence)->nlmsg_len);
    beginning = used;
}

void linuxNftAdd(const char *set, std::span<const uint8_t> key) { change(NFT_MSG_NEWSETELEM, set, key); }

void linuxNftMap(const char *map, std::span<const uint8_t> key, LinuxNftVerdict verdict) {
    change(NFT_MSG_NEWSETELEM, map, key, verdict);
}

void linuxNftRemove(const char *set, std::span<const uint8_t> key) { change(NFT_MSG_DELSETELEM, set, key); }

// Added first, it is there whatever was before.
void linuxNftDrop(const char *set, std::span<const uint8_t> key) {
    linuxNftAdd(set, key);
    linuxNftRemove(set, key);
}

void linuxNftEmpty(const char *set) { change(NFT_MSG_DELSETELEM, set, {}); }

int32_t linuxNftCommit() {
    if (overflow) {
        return -ENOBUFS;
    }
    if (used == beginning) {
        return 0;
    }
    used += MNL_ALIGN(nftnl_batch_end(batch + used, ++sequence)->nlmsg_len);
    if (mnl_socket_sendto(nft, batch, used) < 0) {
        return -errno;
    }
    return readErrors();
}

void linuxNftStep(LinuxNftSteps *steps) {
    if (++steps->queued % STEPS_OF_A_BATCH != 0)
        return;
    const int32_t error = linuxNftCommit();
    steps->error = steps->error == 0 ? error : steps->error;
    linuxNftBegin();
}

int32_t linuxNftLastStep(const LinuxNftSteps &steps) {
    const int32_t error = linuxNftCommit();
    return steps.error == 0 ? error : steps.error;
}

int32_t linuxNftGet(const char *set, std::span<const uint8_t> key, LinuxNftElement *element) {
    used = 0;
    overflow = false;
    change(NFT_MSG_GETSETELEM, set, key);
    if (overflow)
        return -ENOBUFS;
    reinterpret_cast<nlmsghdr *>(batch)->nlmsg_flags = NLM_F_REQUEST | NLM_F_ACK;
    if (mnl_socket_sendto(nft, batch, used) < 0)
        return -errno;
    const uint32_t asked = sequence;
    for (;;) {
        const ssize_t n = recv(mnl_socket_get_fd(nft), answers, sizeof answers, MSG_DONTWAIT);
        if (n <= 0)
            return n < 0 ? -errno : -EIO;
        const int more = mnl_cb_run(answers, static_cast<size_t>(n), asked, mnl_socket_get_portid(nft), readElement, element);
        if (more < 0 && errno == EPROTO)
            continue; // the rest of an answer that was given up
        if (more <= 0)
            return more == 0 ? 0 : -errno;
    }
}
