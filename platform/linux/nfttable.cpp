#include "platform/linux/nfttable.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

#include <nftables/libnftables.h>

#include "platform/linux/ipv6walk.h"
#include "platform/linux/loop.h"
#include "platform/linux/nftset.h"

namespace {

constexpr uint32_t TEXT_MAX = 16384;

// Marks a frame between prerouting, where the bridge has yet to learn its source, and forward and input, where it ends.
// The number only has to differ from what others on this machine use.
//
// Offsets are in bits. @nh is the IPv6 header behind no tag or one; behind two tags the kernel has not found it, and @ll counts
// from the frame's start, all tags included. 44 is a fragment header, 51 an authentication header (its second byte is its
// length in words less two: 24, 32 and 48 bytes are what is in use), 135 mobility, 139 HIP, 140 shim6.
//
// The last rule of each trap chain holds back what the ones before have not let go: DHCPv6, and whatever cannot be read.
//
// The guard's chains let through what is bound to the port's interface, what is bound to no port, exempt VLANs, and neighbour
// discovery right behind the fixed header (multicast listener reports: behind their hop-by-hop header). A priority tag (VLAN
// 0) counts as none, and so does one of a type that is payload to the bridge. Three tags or more are never let in. Sources
// that nobody routes (fe80::/10) are counted apart.
constexpr const char *TABLE_RULES = R"nft(
table bridge snoopd6
delete table bridge snoopd6
table bridge snoopd6 {
	set trap_if { typeof iif; }
	set guard_if { typeof iif; }
	set ra_closed_if { typeof iif; }
	set exempt_if { typeof iif; }
	set exempt_vlan { typeof @ll,112,16; }
	set foreign_tag { typeof ether type; }
	set nd_types { typeof @nh,320,8; }
	set mld_types { typeof @nh,384,8; }
	set f_addr { typeof @nh,64,128; }
	set f_mac_addr { typeof ether saddr . @nh,64,128; }
	set f_port { typeof iif . ether saddr . @nh,64,128; }
	set f_port_any { typeof iif . @nh,64,128; }
	set f_vlan { typeof iif . ether saddr . @ll,112,16 . @nh,64,128; }
	set f_vlan_any { typeof iif . @ll,112,16 . @nh,64,128; }
	set f_native { typeof iif . ether saddr . @nh,64,128; }
	set f_native_any { typeof iif . @nh,64,128; }
	set blocked { typeof iif; counter; }
	set blocked_local { typeof iif; counter; }
	chain prerouting {
		type filter hook prerouting priority -300; policy accept;
		iif @trap_if ether type vmap { ip6 : jump trap, 8021q : jump tag_1, 8021ad : jump tag_1 }
		iif @guard_if ether type vmap { ip6 : goto guard, 8021q : goto guard_tag_1, 8021ad : goto guard_tag_1 }
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
	chain guard_tag_1 {
		@ll,128,16 vmap { 0x86dd : goto guard_1, 0x8100 : goto guard_tag_2, 0x88a8 : goto guard_tag_2 }
	}
	chain guard_tag_2 {
		@ll,160,16 vmap { 0x86dd : goto guard_2, 0x8100 : goto block, 0x88a8 : goto block }
	}
	chain guard {
		iif @ra_closed_if meta l4proto 58 @th,0,8 { 134, 137 } goto block
		iif . ether saddr . @nh,64,128 @f_native accept
		iif . @nh,64,128 @f_native_any accept
		iif @exempt_if accept
		goto guard_any_vlan
	}
	chain guard_1 {
		ether type @foreign_tag goto guard
		@ll,112,16 & 0x0fff 0 goto guard
		iif @ra_closed_if meta l4proto 58 @th,0,8 { 134, 137 } goto block
		iif . ether saddr . @ll,112,16 & 0x0fff . @nh,64,128 @f_vlan accept
		iif . @ll,112,16 & 0x0fff . @nh,64,128 @f_vlan_any accept
		@ll,112,16 & 0x0fff @exempt_vlan accept
		goto guard_any_vlan
	}
	chain guard_any_vlan {
		iif . ether saddr . @nh,64,128 @f_port accept
		iif . @nh,64,128 @f_port_any accept
		ether saddr . @nh,64,128 @f_mac_addr accept
		@nh,64,128 @f_addr accept
		@nh,48,8 58 @nh,320,8 @nd_types accept
		@nh,48,8 0 @nh,320,16 0x3a00 @nh,384,8 @mld_types accept
		@nh,64,10 0x3fa iif @blocked_local drop
		goto block
	}
	chain guard_2 {
		iif @ra_closed_if @ll,224,8 58 @ll,496,8 { 134, 137 } goto block
		ether type @foreign_tag goto guard_2_native
		@ll,112,16 & 0x0fff 0 goto guard_2_native
		iif . ether saddr . @ll,112,16 & 0x0fff . @ll,240,128 @f_vlan accept
		iif . @ll,112,16 & 0x0fff . @ll,240,128 @f_vlan_any accept
		@ll,112,16 & 0x0fff @exempt_vlan accept
		goto guard_2_any_vlan
	}
	chain guard_2_native {
		iif . ether saddr . @ll,240,128 @f_native accept
		iif . @ll,240,128 @f_native_any accept
		iif @exempt_if accept
		goto guard_2_any_vlan
	}
	chain guard_2_any_vlan {
		iif . ether saddr . @ll,240,128 @f_port accept
		iif . @ll,240,128 @f_port_any accept
		ether saddr . @ll,240,128 @f_mac_addr accept
		@ll,240,128 @f_addr accept
		@ll,224,8 58 @ll,496,8 @nd_types accept
		@ll,224,8 0 @ll,496,16 0x3a00 @ll,560,8 @mld_types accept
		@ll,240,10 0x3fa iif @blocked_local drop
		goto block
	}
	chain block {
		iif @blocked drop
		drop
	}
}
)nft";

nft_ctx *rules;
bool loaded;

// Writes the definitions in front of the rules.
bool writeText(char *text, uint32_t size) {
    uint32_t at = static_cast<uint32_t>(
        snprintf(text, size, "define held = 0x36440546\ndefine dhcpv6 = { 546, 547 }\ndefine harmless = { "));
    for (uint8_t next : LINUX_IP6_HARMLESS) {
        at += static_cast<uint32_t>(snprintf(text + at, size - at, "%s%u", next == LINUX_IP6_HARMLESS[0] ? "" : ", ", next));
    }
    return snprintf(text + at, size - at, " }\n%s", TABLE_RULES) < static_cast<int>(size - at);
}

} // namespace

int32_t linuxNftTableLoad(char *error, uint32_t errorSize) {
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

void linuxNftTableUnload() {
    if (rules == nullptr) {
        return;
    }
    if (loaded && nft_run_cmd_from_buffer(rules, "delete table bridge snoopd6") != 0) {
        linuxLog("cannot take the bridge filter table away: %s", nft_ctx_get_error_buffer(rules));
    }
    loaded = false;
    linuxNftClose();
    nft_ctx_free(rules);
    rules = nullptr;
}
