#include "shell_fake.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include "l2/dhcp6snooping/clients/limits.h"
#include "l2/dhcp6snooping/clients/queries.h"
#include "l2/dhcp6snooping/infoopt/policy.h"
#include "l2/dhcp6snooping/mgmt/remotecalls.h"
#include "platform/libvos.h"
#include "platform/linux/protocol.h"
#include "shell/idtemplate.h"

namespace {

constexpr size_t HEADER = sizeof(VosMsgHeader);

// Where the bytes of argument `index` start in a remote call.
size_t argumentAt(const Bytes &message, size_t index) {
    size_t at = HEADER + 8;
    for (size_t i = 0; i < index; i++) {
        at += 8 + (fakeWord(message, at) + 7) / 8 * 8;
    }
    return at + 8;
}

uint32_t argumentWord(const Bytes &message, size_t index) { return fakeWord(message, argumentAt(message, index)); }

Bytes nextClient(const Bytes &request) {
    const Bytes first = {2, 0, 0, 0, 0, 1};
    const Bytes second = {2, 0, 0, 0, 0, 10};
    const auto *start = request.data() + argumentAt(request, 0);
    const Bytes cursor(start, start + 6);
    Bytes reply = fakeEcho(request, cursor < second ? 0 : -1);
    if (cursor < first) {
        Bytes leases(2 * sizeof(Dhcp6LeaseLine), 0);
        const Bytes address = {0x20, 0x01, 0x0d, 0xb8, 0, 1, 0, 0, 0, 0, 0, 0, 0, 0, 1, 0};
        std::copy(address.begin(), address.end(), leases.begin());
        leases[16] = 128;
        const Bytes prefix = {0x20, 0x01, 0x0d, 0xb8, 0x80};
        std::copy(prefix.begin(), prefix.end(), leases.begin() + 20);
        leases[36] = 56;
        fakePutArgument(&reply, 0, first);
        fakePutArgument(&reply, 1, fakeWords({10}));
        fakePutArgument(&reply, 2, fakeWords({1}));
        fakePutArgument(&reply, 3, fakeWords({2}));
        fakePutArgument(&reply, 4, leases);
        fakePutArgument(&reply, 5, fakeWords({7140, 45}));
    } else if (cursor < second) {
        fakePutArgument(&reply, 0, second);
        fakePutArgument(&reply, 1, fakeWords({1}));
        fakePutArgument(&reply, 2, fakeWords({2}));
    }
    return reply;
}

void appendRecord(Bytes *out, const void *record, size_t size) {
    const auto *bytes = static_cast<const uint8_t *>(record);
    out->insert(out->end(), bytes, bytes + size);
}

Bytes fakeTemplate(std::string_view text) {
    Dhcp6InfoIdTemplate record = {};
    std::string error;
    EXPECT_TRUE(idTemplateReadBytes(text, &record, &error)) << error;
    Bytes bytes;
    appendRecord(&bytes, &record, sizeof record);
    return bytes;
}

// A template that is not held leaves its argument alone.
Bytes informationPolicy(const Bytes &request) {
    constexpr std::string_view string = "two words";
    constexpr std::string_view text = "{hostname}/{port}";
    Bytes policy(sizeof(Dhcp6InfoOptionPolicy));
    policy[offsetof(Dhcp6InfoOptionPolicy, strategy)] = DHCP6_INFO_REPLACE;
    policy[offsetof(Dhcp6InfoOptionPolicy, remoteIdType)] = DHCP6_INFO_STRING;
    std::copy(string.begin(), string.end(), policy.begin() + offsetof(Dhcp6InfoOptionPolicy, remoteIdValue));
    policy[offsetof(Dhcp6InfoOptionPolicy, option18Enable)] = 1;
    policy[offsetof(Dhcp6InfoOptionPolicy, interfaceIdType)] = DHCP6_INFO_USER_DEFINED;
    policy[offsetof(Dhcp6InfoOptionPolicy, interfaceIdTemplate) + 1] = 0x12;
    Bytes reply = fakeEcho(request, 0);
    fakePutArgument(&reply, 0, policy);
    fakePutArgument(&reply, 1, fakeTemplate(text));
    return reply;
}

Bytes answerCall(const Bytes &request) {
    Bytes reply = fakeEcho(request, 0);
    const uint32_t subject = argumentWord(request, 0);
    switch (fakeWord(request, HEADER)) {
    case DH6S_FUNC_GET_NEXTCLIENTS_EXT: return nextClient(request);
    case DH6S_FUNC_INFO_GET: return informationPolicy(request);
    case DH6S_FUNC_GLOBAL_INFO_GET: fakePutArgument(&reply, 0, fakeWords({1, 0})); break;
    case DH6S_FUNC_PORT_INFO_GET:
        fakePutArgument(&reply, 1, fakeWords({subject == 4 ? 1u : 0u, subject == 1 ? 100u : 2048u, subject == 4 ? 0u : 1u}));
        break;
    case DH6S_FUNC_VLAN_MAXCLIENTS_GET:
        fakePutArgument(&reply, 1, fakeWords({subject == 20 ? 5u : 2048u}));
        fakePutArgument(&reply, 2, fakeWords({subject == 1 || subject == 10 ? 1u : 0u}));
        break;
    case DH6S_FUNC_PORT_MODE_GET: fakePutArgument(&reply, 1, fakeWords({subject == 4 ? 1u : 0u})); break;
    case DH6S_FUNC_GET_IP6_SOURCE_GUARD_PORT_MODE: fakePutArgument(&reply, 1, fakeWords({subject == 1 ? 0u : 1u})); break;
    case DH6S_FUNC_IP6_SOURCE_GUARD_BIND_ENTRY_NUM_GET: fakePutArgument(&reply, 0, fakeWords({3})); break;
    case DH6S_FUNC_IP6_SOURCE_GUARD_BIND_NODE_GET:
        return fakeBindings(request, {fakeBinding(7, 7, 2, 0), fakeBinding(6, 0, 0, 0), fakeBinding(5, 5, 1, 10)});
    case DH6S_FUNC_IP6_SOURCE_GUARD_VLANLIST_GET:
        // Bits of VLAN 0 and 4095 mean nothing.
        fakePutArgument(&reply, 0, {0x80, 0, 0x08, 0x03, 0x80});
        reply.back() = 0x01;
        break;
    default: break;
    }
    return reply;
}

Bytes page(uint32_t table, uint32_t next, uint32_t count, const Bytes &records) {
    Bytes out = fakeWords({table, next, count, static_cast<uint32_t>(records.size() / count)});
    out.insert(out.end(), records.begin(), records.end());
    return out;
}

// The port table comes in two pages.
Bytes portPage(uint32_t start) {
    const LinuxPortStatus ports[] = {{1, 1, "p1", 3, 1, 1, 10, LINUX_NO_TRUNK, 0},
                                     {2, 2, "p2", 0, 0, 0, 0, LINUX_NO_TRUNK, 0},
                                     {4, 1, "p4", 5, 1, 1, 1, 7, 0}};
    Bytes records;
    const size_t first = start == 0 ? 0 : 2;
    const size_t last = start == 0 ? 2 : 3;
    for (size_t i = first; i < last; i++) {
        appendRecord(&records, &ports[i], sizeof ports[i]);
    }
    return page(LINUX_STATUS_PORTS, start == 0 ? 4 : 0, static_cast<uint32_t>(last - first), records);
}

// The running configuration comes in two pages, which part in the middle of a line.
Bytes answerConfig(const Bytes &request) {
    constexpr std::string_view text = FAKE_CONFIG;
    constexpr uint32_t middle = 100;
    const uint32_t offset = fakeWord(request, HEADER);
    const auto total = static_cast<uint32_t>(text.size());
    const std::string_view part = offset == 0 ? text.substr(0, middle) : text.substr(middle);
    Bytes page = fakeWords({total, offset == 0 ? middle : 0, 9, static_cast<uint32_t>(part.size())});
    page.insert(page.end(), part.begin(), part.end());
    return page;
}

Bytes answerStatus(const Bytes &request) {
    const LinuxSwitchStatus status = {"br0", "0.1.0", 4711, 3725, 4, 1, 1, 1, {2, 0, 0, 0, 0, 0xff}, 1, 0};
    const LinuxVlanStatus vlans[] = {{1, 0, {0xd0}, {0xd0}}, {10, 0, {0xf0}, {}}};
    const LinuxMacStatus macs[] = {{10, {2, 0, 0, 0, 0, 1}, 1, LINUX_NO_TRUNK, 0, 0}, {0, {2, 0, 0, 0, 0, 2}, 0, 7, 1, 0}};
    const LinuxPortCounters counters = {4, 0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 11, 12, 10, 18446744073709551615u};
    const LinuxGuardPortStatus guard[] = {{1, 1, 1, 0, 12, 3, 7}, {2, 0, 0, 0, 0, 0, 0}, {4, 0, 1, 0, 0, 0, 0}};
    LinuxFilterStatus filters[] = {{1, 0, 0, 0, {}, {}, {0x20, 1, 0xd, 0xb8}},
                                   {4, 1, 10, 1, {2, 0, 0, 0, 0, 5}, {}, {0x20, 1, 0xd, 0xb8}},
                                   {4, 1, 10, 1, {2, 0, 0, 0, 0, 1}, {}, {0x20, 1, 0xd, 0xb8, 0, 1}}};
    filters[0].address[15] = 6;
    filters[1].address[15] = 5;
    filters[2].address[14] = 1;
    Bytes records;
    const uint32_t table = fakeWord(request, HEADER);
    switch (table) {
    case LINUX_STATUS_PORTS: return fakeReply(request, 0, portPage(fakeWord(request, HEADER + 4)));
    case LINUX_STATUS_FILES: {
        const LinuxFilesStatus files = {"/etc/snoopd6/switch.toml", "/nonexistent/startup.conf"};
        appendRecord(&records, &files, sizeof files);
        return fakeReply(request, 0, page(table, 0, 1, records));
    }
    case LINUX_STATUS_UNLISTED: {
        const LinuxUnlistedStatus unlisted = {"eth7", 9, 0};
        appendRecord(&records, &unlisted, sizeof unlisted);
        return fakeReply(request, 0, page(table, 0, 1, records));
    }
    case LINUX_STATUS_STARTUP: {
        const LinuxStartupStatus startup = {LINUX_STARTUP_CLOSED, LINUX_STARTUP_CLOSE, 17,
                                            "/nonexistent/startup.conf is empty"};
        appendRecord(&records, &startup, sizeof startup);
        return fakeReply(request, 0, page(table, 0, 1, records));
    }
    case LINUX_STATUS_SWITCH:
        appendRecord(&records, &status, sizeof status);
        return fakeReply(request, 0, page(table, 0, 1, records));
    case LINUX_STATUS_VLANS:
        appendRecord(&records, vlans, sizeof vlans);
        return fakeReply(request, 0, page(table, 0, 2, records));
    case LINUX_STATUS_MACS: appendRecord(&records, macs, sizeof macs); return fakeReply(request, 0, page(table, 0, 2, records));
    case LINUX_STATUS_GUARD:
        appendRecord(&records, guard, sizeof guard);
        return fakeReply(request, 0, page(table, 0, 3, records));
    case LINUX_STATUS_FILTERS:
        appendRecord(&records, filters, sizeof filters);
        return fakeReply(request, 0, page(table, 0, 3, records));
    default: appendRecord(&records, &counters, sizeof counters); return fakeReply(request, 0, page(table, 0, 1, records));
    }
}

bool isSwitchQuestion(const Bytes &request) {
    return fakeWord(request, 0) == (0x00010000u | LINUX_MSG_STATUS) && fakeWord(request, HEADER) == LINUX_STATUS_SWITCH;
}

// A save is written the second time that it is asked for.
Bytes answerSave(const Bytes &request) {
    static std::atomic<bool> asked;
    LinuxSaveAnswer answer = {};
    switch (fakeWord(request, HEADER)) {
    case LINUX_SAVE_BEGIN:
    case LINUX_SAVE_PART: answer.state = LINUX_SAVE_GATHERING; break;
    case LINUX_SAVE_COMMIT:
    case LINUX_SAVE_ERASE:
        asked = false;
        answer.state = LINUX_SAVE_WORKING;
        break;
    case LINUX_SAVE_ASK: answer.state = asked.exchange(true) ? LINUX_SAVE_DONE : LINUX_SAVE_WORKING; break;
    default: answer.state = LINUX_SAVE_DONE; break;
    }
    Bytes payload;
    appendRecord(&payload, &answer, sizeof answer);
    return fakeReply(request, 0, payload);
}

// Serves one connection until its peer or the test ends it. False when the test did.
bool serve(FakeDaemon *daemon, int peer) {
    for (;;) {
        pollfd wanted[] = {{peer, POLLIN, 0}, {daemon->wake[0], POLLIN, 0}};
        poll(wanted, 2, -1);
        if (wanted[1].revents != 0) {
            return false;
        }
        Bytes request(VOS_MSG_MAX);
        const ssize_t length = recv(peer, request.data(), request.size(), 0);
        if (length <= 0) {
            return true;
        }
        request.resize(static_cast<size_t>(length));
        {
            const std::lock_guard guard(daemon->lock);
            daemon->requests.push_back(request);
        }
        const Bytes reply = daemon->answer(request);
        if (reply.empty()) {
            return true;
        }
        send(peer, reply.data(), reply.size(), MSG_NOSIGNAL);
    }
}

void serveAll(FakeDaemon *daemon) {
    for (bool on = true; on;) {
        pollfd wanted[] = {{daemon->listener, POLLIN, 0}, {daemon->wake[0], POLLIN, 0}};
        poll(wanted, 2, -1);
        if (wanted[1].revents != 0) {
            return;
        }
        const int peer = accept4(daemon->listener, nullptr, nullptr, SOCK_CLOEXEC);
        on = serve(daemon, peer);
        close(peer);
    }
}

} // namespace

void fakeStart(FakeDaemon *daemon, FakeAnswer answer) {
    std::string name = (std::filesystem::temp_directory_path() / "snoopctl-test-XXXXXX").string();
    ASSERT_NE(mkdtemp(name.data()), nullptr);
    daemon->folder = name;
    daemon->answer = std::move(answer);
    daemon->listener = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    const std::string path = connectionSocketPath(name);
    ASSERT_LT(path.size(), sizeof address.sun_path);
    std::memcpy(address.sun_path, path.data(), path.size());
    ASSERT_EQ(bind(daemon->listener, reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);
    ASSERT_EQ(listen(daemon->listener, 4), 0);
    ASSERT_EQ(pipe2(daemon->wake, O_CLOEXEC), 0);
    daemon->thread = std::thread(serveAll, daemon);
}

void fakeStop(FakeDaemon *daemon) {
    ASSERT_EQ(write(daemon->wake[1], "", 1), 1);
    daemon->thread.join();
    for (const int fd : {daemon->listener, daemon->wake[0], daemon->wake[1]}) {
        close(fd);
    }
    std::filesystem::remove_all(daemon->folder);
}

std::vector<Bytes> fakeRequests(FakeDaemon *daemon) {
    const std::lock_guard guard(daemon->lock);
    return daemon->requests;
}

void fakePutArgument(Bytes *message, size_t index, const Bytes &bytes) {
    std::copy(bytes.begin(), bytes.end(), message->begin() + static_cast<ptrdiff_t>(argumentAt(*message, index)));
}

Bytes fakeBindings(const Bytes &request, const std::vector<Ip6SourceGuardBindNode> &bindings) {
    Bytes reply = fakeEcho(request, 0);
    const size_t first = std::max(argumentWord(request, 0), 1u) - 1;
    const size_t last = std::min(first + IP6_BIND_PAGE, bindings.size());
    Bytes records;
    for (size_t i = first; i < last; i++) {
        appendRecord(&records, &bindings[i], sizeof bindings[i]);
    }
    const auto next = static_cast<uint16_t>(last < bindings.size() && last < UINT16_MAX ? last + 1 : 0);
    const auto count = static_cast<uint16_t>(last - first);
    fakePutArgument(&reply, 1, {static_cast<uint8_t>(next), static_cast<uint8_t>(next >> 8)});
    fakePutArgument(&reply, 2, {static_cast<uint8_t>(count), static_cast<uint8_t>(count >> 8)});
    fakePutArgument(&reply, 3, records);
    return reply;
}

Ip6SourceGuardBindNode fakeBinding(uint8_t last, uint8_t mac, uint32_t port, uint32_t vlan) {
    Ip6SourceGuardBindNode node = {.next = nullptr, .previous = nullptr, .address = {}, .mac = {}, .port = port, .vlan = vlan};
    const uint8_t prefix[] = {0x20, 0x01, 0x0d, 0xb8};
    std::copy(std::begin(prefix), std::end(prefix), node.address.bytes);
    node.address.bytes[15] = last;
    node.mac[0] = mac != 0 ? 2 : 0;
    node.mac[5] = mac;
    return node;
}

Bytes fakeSwitch(const Bytes &request) {
    VosMsgHeader header = {};
    std::memcpy(&header, request.data(), sizeof header);
    switch (header.type) {
    case VOS_MSG_TYPE_REMOTE_CALL: return answerCall(request);
    case LINUX_MSG_STATUS: return answerStatus(request);
    case LINUX_MSG_RUNNING_CONFIG: return fakeReply(request, 0, answerConfig(request));
    case LINUX_MSG_SAVE: return answerSave(request);
    case LINUX_MSG_DEBUG: {
        const uint32_t set = fakeWord(request, HEADER + 4);
        return fakeReply(request, 0, fakeWords({fakeWord(request, HEADER), set == 2 ? 1 : set}));
    }
    default: return fakeReply(request, LINUX_RESULT_UNKNOWN, {});
    }
}

Bytes fakeConfigured(const Bytes &request, const FakeConfig &config) {
    if (fakeWord(request, 0) == (0x00010000u | LINUX_MSG_RUNNING_CONFIG)) {
        const auto total = static_cast<uint32_t>(config.text.size());
        Bytes page = fakeWords({total, 0, 1, total});
        page.insert(page.end(), config.text.begin(), config.text.end());
        return fakeReply(request, 0, page);
    }
    const uint32_t call = fakeWord(request, 0) == 0x00010001 ? fakeWord(request, HEADER) : 0xffffffffu;
    Bytes reply = fakeEcho(request, 0);
    Bytes policy;
    appendRecord(&policy, &config.policy, sizeof config.policy);
    switch (call) {
    case DH6S_FUNC_INFO_GET: fakePutArgument(&reply, 0, policy); return reply;
    case DH6S_FUNC_IP6_SOURCE_GUARD_VLANLIST_GET: fakePutArgument(&reply, 0, config.exempt); return reply;
    case DH6S_FUNC_IP6_SOURCE_GUARD_BIND_NODE_GET: return fakeBindings(request, config.bindings);
    default: return fakeSwitch(request);
    }
}

Bytes fakeReply(const Bytes &request, int32_t result, const Bytes &payload) {
    VosMsgHeader header = {};
    std::memcpy(&header, request.data(), sizeof header);
    header.result = result;
    header.payloadLength = static_cast<uint16_t>(payload.size());
    Bytes reply(HEADER);
    std::memcpy(reply.data(), &header, sizeof header);
    reply.insert(reply.end(), payload.begin(), payload.end());
    return reply;
}

Bytes fakeEcho(const Bytes &request, int32_t result) {
    return fakeReply(request, result, Bytes(request.begin() + HEADER, request.end()));
}

uint32_t fakeWord(std::span<const uint8_t> bytes, size_t at) {
    uint32_t word = 0;
    if (at + sizeof word <= bytes.size()) {
        std::memcpy(&word, bytes.data() + at, sizeof word);
    }
    return word;
}

Bytes fakeWords(std::initializer_list<uint32_t> words) {
    Bytes bytes;
    for (const uint32_t word : words) {
        appendRecord(&bytes, &word, sizeof word);
    }
    return bytes;
}

std::string fakeHex(std::span<const uint8_t> bytes) {
    std::string text;
    for (const uint8_t byte : bytes) {
        text += "0123456789abcdef"[byte >> 4];
        text += "0123456789abcdef"[byte & 15];
    }
    return text;
}

Bytes fakeWithoutRules(const Bytes &request) {
    Bytes reply = fakeSwitch(request);
    if (isSwitchQuestion(request)) {
        reply[HEADER + sizeof(LinuxStatusHead) + offsetof(LinuxSwitchStatus, rules)] = 0;
    }
    return reply;
}

size_t fakeSwitchQuestions(FakeDaemon *daemon) {
    const std::vector<Bytes> requests = fakeRequests(daemon);
    return static_cast<size_t>(std::ranges::count_if(requests, isSwitchQuestion));
}

Session fakeSession(const FakeDaemon &daemon) {
    Session session;
    session.connection.socketPath = connectionSocketPath(daemon.folder);
    return session;
}
