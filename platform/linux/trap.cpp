#include "platform/linux/trap.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include <nftables/libnftables.h>

#include "platform/linux/ipv6walk.h"
#include "platform/linux/loop.h"
#include "platform/linux/nftset.h"
#include "platform/linux/ports.h"

namespace {

constexpr uint32_t TEXT_MAX = 8192;
constexpr const char *TRAP_SET = "trap_if";

// Marks a frame between prerouting, where the bridge has yet to learn its source, and forward and input, where it ends.
// The number only has to differ from what others on this machine use.
//
// Offsets are in bits. @nh is the IPv6 header behind no tag or one; behind two tags the kernel has not found it, and @ll counts
// from the frame's start, all tags included. 44 is a fragment header, 51 an authentication header (its second byte is its
// length in words less two: 24, 32 and 48 bytes are what is in use), 135 mobility, 139 HIP, 140 shim6.
//
// The last rule of each chain holds back what the ones before have not let go: DHCPv6, and whatever cannot be read.
constexpr const char *TABLE_RULES = R"nft(
table bridge snoopd6
delete table bridge snoopd6
table bridge snoopd6 {
	set trap_if { typeof iif; }
	chain prerouting {
		type filter hook prerouting priority -300; policy accept;
		iif @trap_if ether type vmap { ip6 : jump trap, 8021q : jump tag_1, 8021ad : jump tag_1 }
	}
	chain forward {
		type filter hook forward priority -300; policy accept;
		meta mark $held drop
	}
	chain input {
		type filter hook input priority -300; policy accept;
		meta mark $held drop
	}
	chain tag_1 {
		@ll,128,16 vmap { 0x86dd : jump trap, 0x8100 : jump tag_2, 0x88a8 : jump tag_2 }
	}
	chain tag_2 {
		@ll,160,16 vmap { 0x86dd : jump trap_2, 0x8100 : jump tag_3, 0x88a8 : jump tag_3 }
	}
	chain tag_3 {
		@ll,192,16 0x86dd jump trap_3
	}
	chain trap {
		@nh,48,8 $harmless return
		@nh,48,8 17 @nh,336,16 != $dhcpv6 return
		meta protocol ip6 frag frag-off != 0 return
		meta l4proto $harmless return
		meta l4proto { 51, 135, 139, 140 } @th,0,8 $harmless return
		meta l4proto 51 goto trap_auth
		meta l4proto 17 @th,16,16 != $dhcpv6 return
		meta mark set $held accept
	}
	chain trap_auth {
		@th,0,16 0x1104 @th,208,16 != $dhcpv6 return
		@th,0,16 0x1106 @th,272,16 != $dhcpv6 return
		@th,0,16 0x110a @th,400,16 != $dhcpv6 return
		meta mark set $held accept
	}
	chain trap_2 {
		@ll,224,8 $harmless return
		@ll,224,8 17 @ll,512,16 != $dhcpv6 return
		@ll,224,8 0 @ll,496,8 $harmless return
		@ll,224,8 44 @ll,512,16 & 0xfff8 != 0 return
		@ll,224,8 44 @ll,496,8 $harmless return
		@ll,224,8 44 @ll,496,8 17 @ll,576,16 != $dhcpv6 return
		meta mark set $held accept
	}
	chain trap_3 {
		@ll,256,8 $harmless return
		@ll,256,8 17 @ll,544,16 != $dhcpv6 return
		meta mark set $held accept
	}
}
)nft";

// Interfaces that stand for the ports in the bridge; each once.
struct Interfaces {
    uint32_t count;
    std::array<uint32_t, LINUX_PORTS_MAX> ifindex;
};

nft_ctx *rules;
bool loaded;
bool holds;
Interfaces held; // in the kernel's set

// Writes the definitions in front of the rules.
bool writeText(char *text, uint32_t size) {
    uint32_t at = static_cast<uint32_t>(
        snprintf(text, size, "define held = 0x36440546\ndefine dhcpv6 = { 546, 547 }\ndefine harmless = { "));
    for (uint8_t next : LINUX_IP6_HARMLESS) {
        at += static_cast<uint32_t>(snprintf(text + at, size - at, "%s%u", next == LINUX_IP6_HARMLESS[0] ? "" : ", ", next));
    }
    return snprintf(text + at, size - at, " }\n%s", TABLE_RULES) < static_cast<int>(size - at);
}

Interfaces wanted() {
    Interfaces found{};
    for (uint32_t p = 0; p < LINUX_PORTS_MAX && holds; p++) {
        uint32_t link = linuxBridgeLink(p);
        uint32_t ifindex = linuxLinks[link == LINUX_NO_LINK ? p : link].ifindex; // held before it enters the bridge
        bool known = ifindex == 0;
        for (uint32_t i = 0; i < found.count; i++) {
            known = known || found.ifindex[i] == ifindex;
        }
        if (!known) {
            found.ifindex[found.count++] = ifindex;
        }
    }
    return found;
}

// Puts the set in force, in one step.
int32_t install(const Interfaces &interfaces) {
    linuxNftBegin();
    linuxNftEmpty(TRAP_SET);
    for (uint32_t i = 0; i < interfaces.count; i++) {
        linuxNftAdd(TRAP_SET, {reinterpret_cast<const uint8_t *>(&interfaces.ifindex[i]), sizeof(uint32_t)});
    }
    int32_t error = linuxNftCommit();
    if (error != 0) {
        linuxLog("cannot change the kernel's DHCPv6 trap: %s", strerror(-error));
        return -1;
    }
    held = interfaces;
    return 0;
}

bool same(const Interfaces &a, const Interfaces &b) {
    return a.count == b.count && memcmp(a.ifindex.data(), b.ifindex.data(), a.count * sizeof a.ifindex[0]) == 0;
}

} // namespace

int32_t linuxTrapLoad(char *error, uint32_t errorSize) {
    static char text[TEXT_MAX];
    rules = nft_ctx_new(NFT_CTX_DEFAULT);
    if (rules == nullptr || linuxNftOpen() != 0 || !writeText(text, sizeof text)) {
        snprintf(error, errorSize, "the kernel's packet filter cannot be opened: %s", strerror(errno));
        return -1;
    }
    nft_ctx_buffer_error(rules);
    nft_ctx_buffer_output(rules);
    if (nft_run_cmd_from_buffer(rules, text) != 0) {
        const char *reason = nft_ctx_get_error_buffer(rules);
        snprintf(error, errorSize, "the kernel refuses the bridge filter table (is nf_tables with family bridge there?): %.*s",
                 static_cast<int>(strcspn(reason, "\n")), reason);
        return -1;
    }
    loaded = true;
    return 0;
}

void linuxTrapUnload() {
    if (rules == nullptr) {
        return;
    }
    if (loaded && nft_run_cmd_from_buffer(rules, "delete table bridge snoopd6") != 0) {
        linuxLog("cannot take the bridge filter table away: %s", nft_ctx_get_error_buffer(rules));
    }
    loaded = false;
    nft_ctx_free(rules);
    rules = nullptr;
}

int32_t linuxTrapHold(bool hold) {
    bool before = holds;
    holds = hold;
    Interfaces interfaces = wanted();
    if (!same(interfaces, held) && install(interfaces) != 0) {
        holds = before;
        return -1;
    }
    return 0;
}

bool linuxTrapHolds() { return holds; }

void linuxTrapSettle() {
    Interfaces interfaces = wanted();
    if (loaded && !same(interfaces, held)) {
        static_cast<void>(install(interfaces)); // logged; tried again at the next change
    }
}
