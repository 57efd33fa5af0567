#pragma once
// A daemon for the shell's tests: a thread behind a real SOCK_SEQPACKET socket in a temporary folder. It keeps every request as
// it came and answers as a small switch would, or as the test says.
//
// The switch: ports 0/1, 0/2 and 0/4 (trusted); VLANs 1 and 10, and a limit of 5 on VLAN 20, which does not exist; client
// 02:00:00:00:00:01 with an address and a prefix, client 02:00:00:00:00:0a without leases. Source guard is on for port 0/1;
// 2001:db8::5 is bound on it, 2001:db8::6 everywhere (the kernel lacks that filter), 2001:db8::7 on port 0/2; VLANs 20 and 30
// to 32 are exempt. The kernel still has port 0/4 closed, which is not guarded any more. Option 18 is on, with the template
// "{hostname}/{port}", option 37 off, with the string "two words". Its startup file is in a folder that does not exist.
// Interface eth7 is in the bridge, and not in the switch file.

#include <cstdint>
#include <functional>
#include <gtest/gtest.h>
#include <mutex>
#include <span>
#include <string>
#include <thread>
#include <vector>

#include "l2/dhcp6snooping/infoopt/policy.h"
#include "l2/dhcp6snooping/sourceguard/bindings.h"
#include "shell/session.h"

// Its running configuration.
inline constexpr const char *FAKE_CONFIG =
    "!!!DHCPv6 snooping\r\n"
    "dhcpv6-snooping\r\n"
    "undo dhcpv6-snooping port-down-action fast-remove\r\n"
    "dhcpv6-snooping l2-relay\r\n"
    "interface ethernet 0/1\r\n"
    "ipv6-source-guard\r\n"
    "dhcpv6-snooping max-clients 100\r\n"
    "quit\r\n"
    "interface ethernet 0/4\r\n"
    "dhcpv6-snooping trust\r\n"
    "quit\r\n"
    "dhcpv6-snooping information option 18\r\n"
    "dhcpv6-snooping information interface-id user-defined \"{hostname}/{port}\"\r\n"
    "dhcpv6-snooping information remote-id string \"two words\"\r\n"
    "undo ipv6-source-guard vlan 20,30-32\r\n"
    "ipv6-source-guard bind ip 2001:db8::7 mac 02:00:00:00:00:07 interface ethernet 0/2\r\n"
    "ipv6-source-guard bind ip 2001:db8::6\r\n"
    "ipv6-source-guard bind ip 2001:db8::5 mac 02:00:00:00:00:05 interface ethernet 0/1 vlan 10\r\n";

using Bytes = std::vector<uint8_t>;

// Makes the answer to one request; an empty one closes the connection.
using FakeAnswer = std::function<Bytes(const Bytes &request)>;

struct FakeDaemon {
    std::string folder;
    FakeAnswer answer;
    int listener = -1;
    int wake[2] = {-1, -1}; // a byte ends the thread
    std::thread thread;
    std::mutex lock; // of requests
    std::vector<Bytes> requests;
};

void fakeStart(FakeDaemon *daemon, FakeAnswer answer);
void fakeStop(FakeDaemon *daemon);
std::vector<Bytes> fakeRequests(FakeDaemon *daemon);

// The small switch. Settings are answered with success.
Bytes fakeSwitch(const Bytes &request);

// The small switch after somebody has taken the filter rules out of the kernel.
Bytes fakeWithoutRules(const Bytes &request);

// How often it was asked about the switch as a whole, which tells whether the kernel has the rules.
size_t fakeSwitchQuestions(FakeDaemon *daemon);

// What a switch prints as its running configuration, and what it answers when it is asked for the same. It starts with nothing
// configured.
struct FakeConfig {
    std::string text = {};
    Dhcp6InfoOptionPolicy policy = {DHCP6_INFO_REPLACE, 0, DHCP6_INFO_DEFAULT, {}, nullptr, 0, DHCP6_INFO_DEFAULT, {}, nullptr};
    Bytes exempt = {}; // start of the VLAN list
    std::vector<Ip6SourceGuardBindNode> bindings = {};
};

// The small switch, configured otherwise.
Bytes fakeConfigured(const Bytes &request, const FakeConfig &config);

// An answer with the request's type and identifier.
Bytes fakeReply(const Bytes &request, int32_t result, const Bytes &payload);
// An answer that repeats the request's payload: a remote call that leaves its arguments alone.
Bytes fakeEcho(const Bytes &request, int32_t result);

// Overwrites the start of an argument in a remote call.
void fakePutArgument(Bytes *message, size_t index, const Bytes &bytes);

// The answer to a question for a page of these bindings, newest first.
Bytes fakeBindings(const Bytes &request, const std::vector<Ip6SourceGuardBindNode> &bindings);
Ip6SourceGuardBindNode fakeBinding(uint8_t last, uint8_t mac, uint32_t port, uint32_t vlan); // of 2001:db8::

uint32_t fakeWord(std::span<const uint8_t> bytes, size_t at); // little-endian; 0 outside
Bytes fakeWords(std::initializer_list<uint32_t> words);
std::string fakeHex(std::span<const uint8_t> bytes);

// A session with the daemon, ended with it.
Session fakeSession(const FakeDaemon &daemon);

// A daemon, and a session with it, for one test.
class FakeDaemonTest : public testing::Test {
  protected:
    FakeDaemon daemon;
    Session session;

    void start(FakeAnswer answer) {
        fakeStart(&daemon, std::move(answer));
        session = fakeSession(daemon);
    }

    void TearDown() override {
        connectionClose(&session.connection);
        if (daemon.thread.joinable()) {
            fakeStop(&daemon);
        }
    }
};

// The same with the small switch, from the beginning.
class FakeSwitchTest : public FakeDaemonTest {
  protected:
    void SetUp() override { start(fakeSwitch); }
};
