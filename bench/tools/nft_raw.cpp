// What the kernel takes for elements of a set, with nothing around it: one transaction for each element, and one for all.
//
// nft_raw COUNT; makes a table of its own in this network namespace and takes it away again. Prints, as JSON, the median
// nanoseconds of one addition and one removal, and the nanoseconds of all additions and all removals in one transaction.

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <libmnl/libmnl.h>
#include <libnftnl/common.h>
#include <libnftnl/set.h>
#include <linux/netfilter.h>
#include <linux/netfilter/nf_tables.h>
#include <linux/netfilter/nfnetlink.h>
#include <nftables/libnftables.h>
#include <sys/socket.h>
#include <vector>

namespace {

constexpr const char *TABLE = "nft_raw";
constexpr uint32_t KEY = 32; // interface . MAC . VLAN . address, as the guard's largest set has it

uint64_t now() {
    timespec time;
    clock_gettime(CLOCK_MONOTONIC, &time);
    return static_cast<uint64_t>(time.tv_sec) * 1000000000 + static_cast<uint64_t>(time.tv_nsec);
}

[[noreturn]] void fail(const char *what) {
    std::fprintf(stderr, "nft_raw: %s\n", what);
    std::exit(1);
}

size_t change(char *at, uint16_t type, uint32_t number) {
    uint8_t key[KEY] = {};
    std::memcpy(key, &number, sizeof number);
    nftnl_set *set = nftnl_set_alloc();
    nftnl_set_elem *element = nftnl_set_elem_alloc();
    nftnl_set_set_str(set, NFTNL_SET_TABLE, TABLE);
    nftnl_set_set_str(set, NFTNL_SET_NAME, "entries");
    nftnl_set_elem_set(element, NFTNL_SET_ELEM_KEY, key, KEY);
    nftnl_set_elem_add(set, element);
    const uint16_t flags = type == NFT_MSG_NEWSETELEM ? NLM_F_CREATE : 0;
    nlmsghdr *message = nftnl_nlmsg_build_hdr(at, type, NFPROTO_BRIDGE, flags, 1);
    nftnl_set_elems_nlmsg_build_payload(message, set);
    nftnl_set_free(set);
    return MNL_ALIGN(message->nlmsg_len);
}

// Elements first .. first + count - 1 in one transaction.
void commit(mnl_socket *nft, std::vector<char> *batch, uint16_t type, uint32_t first, uint32_t count) {
    size_t used = MNL_ALIGN(nftnl_batch_begin(batch->data(), 1)->nlmsg_len);
    for (uint32_t i = 0; i < count; i++)
        used += change(batch->data() + used, type, first + i);
    used += MNL_ALIGN(nftnl_batch_end(batch->data() + used, 1)->nlmsg_len);
    char answer[8192];
    if (mnl_socket_sendto(nft, batch->data(), used) < 0)
        fail("the kernel refused a transaction");
    if (recv(mnl_socket_get_fd(nft), answer, sizeof answer, MSG_DONTWAIT) > 0)
        fail("the kernel refused an element");
}

uint64_t each(mnl_socket *nft, std::vector<char> *batch, uint16_t type, uint32_t count) {
    std::vector<uint64_t> times(count);
    for (uint32_t i = 0; i < count; i++) {
        const uint64_t start = now();
        commit(nft, batch, type, i, 1);
        times[i] = now() - start;
    }
    std::nth_element(times.begin(), times.begin() + count / 2, times.end());
    return times[count / 2];
}

uint64_t all(mnl_socket *nft, std::vector<char> *batch, uint16_t type, uint32_t count) {
    const uint64_t start = now();
    commit(nft, batch, type, 0, count);
    return now() - start;
}

} // namespace

int main(int argc, char **argv) {
    const uint32_t count = argc == 2 ? static_cast<uint32_t>(std::strtoul(argv[1], nullptr, 10)) : 0;
    if (count == 0) {
        std::fprintf(stderr, "usage: nft_raw COUNT\n");
        return 2;
    }
    nft_ctx *rules = nft_ctx_new(NFT_CTX_DEFAULT);
    mnl_socket *nft = mnl_socket_open(NETLINK_NETFILTER);
    if (rules == nullptr || nft == nullptr || mnl_socket_bind(nft, 0, MNL_SOCKET_AUTOPID) < 0)
        fail("the kernel's packet filter cannot be opened");
    if (nft_run_cmd_from_buffer(rules, "table bridge nft_raw { set entries { typeof iif . ether saddr . @ll,112,16 . "
                                       "@nh,64,128; }; }") != 0)
        fail("cannot make the table");
    int size = 16 << 20;
    setsockopt(mnl_socket_get_fd(nft), SOL_SOCKET, SO_SNDBUFFORCE, &size, sizeof size);
    std::vector<char> batch(size_t{count} * 256 + 4096);
    const uint64_t add = each(nft, &batch, NFT_MSG_NEWSETELEM, count);
    const uint64_t remove = each(nft, &batch, NFT_MSG_DELSETELEM, count);
    const uint64_t addAll = all(nft, &batch, NFT_MSG_NEWSETELEM, count);
    const uint64_t removeAll = all(nft, &batch, NFT_MSG_DELSETELEM, count);
    nft_run_cmd_from_buffer(rules, "delete table bridge nft_raw");
    std::printf("{\"add\": %lu, \"remove\": %lu, \"add_all\": %lu, \"remove_all\": %lu}\n", add, remove, addAll, removeAll);
    mnl_socket_close(nft);
    nft_ctx_free(rules);
    return 0;
}
