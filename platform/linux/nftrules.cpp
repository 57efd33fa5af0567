#include "platform/linux/nftrules.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string_view>

#include "platform/linux/ipv6walk.h"

namespace {

// The mark carries a frame from prerouting, where the bridge has yet to learn its source, to forward and input, where it ends.
// The number only has to differ from what others on this machine use.
constexpr const char *DEFINITIONS = R"nft(
define held = 0x36440546
define dhcpv6 = { 546, 547 }
define tags = { 0x8100, 0x88a8 }
define carried = { 0x86dd, 0x8100, 0x88a8, 0x9100 }
define listener_alerts = { 0x050200000100, 0x010005020000 }
)nft";

// Offsets are in bits. @nh is the IPv6 header after no tag or one; @ll counts from the frame's start, all tags included.
//
// The sets by name close an interface that comes back under another index until it is known: no process is needed for that.
// Type 0x9100 is a tag to some equipment, and payload to the bridge and to hosts: what it carries cannot be bound to a VLAN.
constexpr const char *DISPATCH = R"nft(
table bridge snoopd6
delete table bridge snoopd6
table bridge snoopd6 {
	set trap_if { typeof iif; size 256; }
	set trap_name { typeof iifname; }
	set guard_if { typeof iif; size 256; }
	set guard_name { typeof iifname; counter; }
	set ra_closed_if { typeof iif; size 256; }
	set exempt_if { typeof iif; size 256; }
	set exempt_vlan { typeof @ll,112,16; }
	set foreign_tag { typeof ether type; }
	set nd_types { typeof @nh,320,8; }
	set mld_types { typeof @nh,384,8; }
	map f_source { typeof @nh,64,128 : verdict; }
	set f_mac_addr { typeof ether saddr . @nh,64,128; }
	set f_port { typeof iif . ether saddr . @nh,64,128; }
	set f_port_any { typeof iif . @nh,64,128; }
	set f_vlan { typeof iif . ether saddr . @ll,112,16 . @nh,64,128; }
	set f_vlan_any { typeof iif . @ll,112,16 . @nh,64,128; }
	set f_native { typeof iif . ether saddr . @nh,64,128; }
	set f_native_any { typeof iif . @nh,64,128; }
	set nd_over { typeof iif; limit rate over 1000/second burst 2000 packets; }
	set blocked { typeof iif; counter; }
	set blocked_local { typeof iif; counter; }
	set blocked_nd { typeof iif; counter; }
	chain prerouting {
		type filter hook prerouting priority -300; policy accept;
		ether type vmap { ip : accept, arp : accept, ip6 : goto ip6_0, 0x8100 : goto tag_1, 0x88a8 : goto tag_1 }
		ether type 0x9100 @ll,128,16 $carried goto closed
		ether type 0x9100 @ll,128,16 < 0x0600 @ll,144,16 & 0xfefe == 0xaaaa goto closed
		ether type < 0x0600 @ll,112,16 & 0xfefe == 0xaaaa @ll,160,16 $carried goto unread
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
		@ll,128,16 vmap { 0x86dd : goto ip6_1, 0x8100 : goto tag_2, 0x88a8 : goto tag_2 }
		@ll,128,16 0x9100 @ll,160,16 $carried goto closed
		@ll,128,16 0x9100 @ll,160,16 < 0x0600 @ll,176,16 & 0xfefe == 0xaaaa goto closed
		@ll,128,16 < 0x0600 @ll,144,16 & 0xfefe == 0xaaaa @ll,192,16 $carried goto unread
	}
	chain tag_2 {
		@ll,160,16 vmap { 0x86dd : goto ip6_2, 0x8100 : goto tag_3, 0x88a8 : goto tag_3 }
		@ll,160,16 0x9100 @ll,192,16 $carried goto closed
		@ll,160,16 0x9100 @ll,192,16 < 0x0600 @ll,208,16 & 0xfefe == 0xaaaa goto closed
		@ll,160,16 < 0x0600 @ll,176,16 & 0xfefe == 0xaaaa @ll,224,16 $carried goto unread
	}
	chain tag_3 {
		@ll,192,16 0x86dd jump trap_3
		@ll,192,16 $tags jump hold
		@ll,192,16 < 0x0600 @ll,208,16 & 0xfefe == 0xaaaa @ll,256,16 $carried jump hold
		goto closed
	}
	chain ip6_0 {
		jump trap
		iif @guard_if goto guard_native
		iifname @guard_name drop
	}
	chain ip6_1 {
		jump trap
		iif @guard_if goto guard_vlan
		iifname @guard_name drop
	}
	chain ip6_2 {
		jump trap_2
		iif @guard_if goto guard_vlan_2
		iifname @guard_name drop
	}
	chain unread {
		jump hold
		goto closed
	}
	chain closed {
		iif @guard_if goto block
		iifname @guard_name drop
	}
	chain block {
		iif @blocked drop
		drop
	}
)nft";

// The chains of the trap end in `hold` for what none of their rules has let go: DHCPv6, and whatever cannot be read. 44 is a
// fragment header, 51 an authentication header (its second byte is its length in words less two: 24, 32 and 48 bytes are what
// is in use), 135 mobility, 139 HIP, 140 shim6. ipv6walk.cpp mirrors these rules.
constexpr const char *TRAP = R"nft(
	chain hold {
		iif @trap_if meta mark set $held accept
		iifname @trap_name meta mark set $held accept
	}
	chain trap {
		@nh,48,8 $harmless return
		@nh,48,8 17 @nh,336,16 != $dhcpv6 return
		meta protocol ip6 frag frag-off != 0 return
		meta l4proto $harmless return
		meta l4proto { 51, 135, 139, 140 } @th,0,8 $harmless return
		meta l4proto 51 goto trap_auth
		meta l4proto 17 @th,16,16 != $dhcpv6 return
		goto hold
	}
	chain trap_auth {
		@th,0,16 0x1104 @th,208,16 != $dhcpv6 return
		@th,0,16 0x1106 @th,272,16 != $dhcpv6 return
		@th,0,16 0x110a @th,400,16 != $dhcpv6 return
		goto hold
	}
	chain trap_2 {
		@ll,224,8 $harmless return
		@ll,224,8 17 @ll,512,16 != $dhcpv6 return
		@ll,224,8 0 @ll,496,8 $harmless return
		@ll,224,8 44 @ll,512,16 & 0xfff8 != 0 return
		@ll,224,8 44 @ll,496,8 $harmless return
		@ll,224,8 44 @ll,496,8 17 @ll,576,16 != $dhcpv6 return
		goto hold
	}
	chain trap_3 {
		@ll,256,8 $harmless return
		@ll,256,8 17 @ll,544,16 != $dhcpv6 return
		goto hold
	}
)nft";

// On a port where `ra_guard` is set: a packet returns when the rules have seen that it is neither a router advertisement nor a
// redirect. Later fragments are harmless without the first one, which has to show its whole chain.
constexpr const char *RA_GUARD = R"nft(
	chain ra_guard {
		meta protocol ip6 frag frag-off != 0 return
		meta l4proto 58 @th,0,8 != { 134, 137 } return
		meta l4proto $not_icmp return
		meta l4proto { 51, 135, 139, 140 } @th,0,8 $not_icmp return
		goto block
	}
	chain ra_guard_2 {
		@ll,224,8 58 @ll,496,8 != { 134, 137 } return
		@ll,224,8 $not_icmp return
		@ll,224,8 44 @ll,512,16 & 0xfff8 != 0 return
		@ll,224,8 { 0, 43, 44, 60 } @ll,496,8 $not_icmp return
		@ll,224,8 { 0, 43, 60 } @ll,496,16 0x3a00 @ll,560,8 != { 134, 137 } return
		@ll,224,8 44 @ll,496,8 58 @ll,560,8 != { 134, 137 } return
		goto block
	}
)nft";

// The guard, once for IPv6 after no tag or one and once after two: %N,L is a field of the IPv6 header, ~ the chains' suffix,
// ^N a length of the packet as `meta length` counts it.
//
// The map of sources comes first: whoever is in it with no port, MAC address or VLAN passes at once, and whoever is not in it
// can only have a lease. A priority tag (VLAN 0) counts as none, and so does one of a type that is payload to the bridge; no
// filter names VLAN 0.
//
// Without a binding only what a host needs to get on the link passes, in the form that RFC 4861, 4862, 3810 and 6980 allow it:
// no router further away sent it (hop limit), no header hides it, its source is the link's or none yet, and it has no room for
// a payload: 128 bytes in all, but for listener reports and router advertisements. Bits 320 to 327 are the ICMPv6 type, 328 to
// 335 its code, from 384 on the target; a listener report has them 64 bits further on, after the router alert and its padding.
constexpr const char *GUARD = R"nft(
	chain guard_vlan~ {
		iif @ra_closed_if jump ra_guard~
		jump source_in_vlan~
		iif . ether saddr . %64,128 @f_port accept
		ether saddr . %64,128 @f_mac_addr accept
		iif . %64,128 @f_port_any accept
		goto in_vlan~
	}
	chain source_in_vlan~ {
		%64,128 vmap @f_source
		goto in_vlan~
	}
	chain in_vlan~ {
		ether type @foreign_tag goto in_native~
		iif . ether saddr . @ll,112,16 & 0x0fff . %64,128 @f_vlan accept
		iif . @ll,112,16 & 0x0fff . %64,128 @f_vlan_any accept
		@ll,112,16 & 0x0fff 0 goto in_native~
		@ll,112,16 & 0x0fff @exempt_vlan accept
		goto unbound~
	}
	chain guard_native~ {
		iif @ra_closed_if jump ra_guard~
		jump source_in_native~
		iif . ether saddr . %64,128 @f_port accept
		ether saddr . %64,128 @f_mac_addr accept
		iif . %64,128 @f_port_any accept
		goto in_native~
	}
	chain source_in_native~ {
		%64,128 vmap @f_source
		goto in_native~
	}
	chain in_native~ {
		iif . ether saddr . %64,128 @f_native accept
		iif . %64,128 @f_native_any accept
		iif @exempt_if accept
		goto unbound~
	}
	chain unbound~ {
		%48,8 58 %56,8 255 %320,8 @nd_types %328,8 0 goto discovery~
		%48,8 0 %56,8 1 %320,16 0x3a00 %384,8 @mld_types %392,8 0 goto listener~
		goto refuse~
	}
	chain discovery~ {
		%64,10 0x3fa goto discovery_local~
		%64,128 0 meta length <= ^128 goto discovery_unspecified~
		goto refuse~
	}
	chain discovery_unspecified~ {
		%320,8 133 %192,128 0xff020000000000000000000000000002 goto limited
		%320,8 135 %192,104 0xff0200000000000000000001ff %384,8 != 0xff %384,128 != 0 goto limited
		goto refuse~
	}
	chain discovery_local~ {
		%320,8 134 goto limited
		meta length > ^128 goto refuse~
		%320,8 133 goto limited
		%384,8 0xff goto refuse~
		%320,8 135 %384,128 != 0 goto limited
		%320,8 136 %192,8 != 0xff %384,128 != 0 goto limited
		%320,8 136 %352,8 & 0x40 == 0 %384,128 != 0 goto limited
		%320,8 137 %512,8 != 0xff %384,128 != 0 %512,128 != 0 goto limited
		goto refuse~
	}
	chain listener~ {
		%336,48 $listener_alerts %64,10 0x3fa goto listener_group~
		%336,48 $listener_alerts %64,128 0 goto listener_group~
		goto refuse~
	}
	chain listener_group~ {
		%384,8 143 %192,128 0xff020000000000000000000000000016 goto limited
		%384,8 131 %192,8 0xff meta length <= ^128 goto limited
		%384,8 132 %192,128 0xff020000000000000000000000000002 meta length <= ^128 goto limited
		goto refuse~
	}
	chain refuse~ {
		%64,10 0x3fa iif @blocked_local drop
		goto block
	}
)nft";

// What passes without a binding is limited for each port: generous for a segment of hosts, little for a tunnel or a flood.
constexpr const char *LIMITED = R"nft(
	chain limited {
		iif @nd_over goto over
		accept
	}
	chain over {
		iif @blocked_nd drop
		drop
	}
}
)nft";

struct Depth {
    const char *suffix;
    const char *base;
    uint32_t ip6;       // bits from the base to the IPv6 header
    uint32_t tagLength; // bytes of tags that `meta length` counts
};

constexpr Depth DEPTHS[] = {{"", "@nh", 0, 0}, {"_2", "@ll", 176, 4}};

struct Text {
    char *at;
    uint32_t room; // with the closing zero
    bool full;
};

void put(Text *text, std::string_view words) {
    text->full = text->full || words.size() >= text->room;
    if (text->full)
        return;
    std::ranges::copy(words, text->at);
    text->at += words.size();
    text->room -= static_cast<uint32_t>(words.size());
    *text->at = 0;
}

void putNumber(Text *text, const char *before, uint64_t number) {
    char digits[48];
    snprintf(digits, sizeof digits, "%s%llu", before, static_cast<unsigned long long>(number));
    put(text, digits);
}

void putForDepth(Text *text, const char *rules, const Depth &depth) {
    for (const char *at = rules; *at != 0;) {
        const char symbol = *at;
        if (symbol != '%' && symbol != '^' && symbol != '~') {
            put(text, {at++, 1});
            continue;
        }
        ++at;
        if (symbol == '~') {
            put(text, depth.suffix);
            continue;
        }
        char *end = nullptr;
        const uint64_t number = strtoull(at, &end, 10);
        at = end;
        if (symbol == '%') {
            put(text, depth.base);
            putNumber(text, ",", number + depth.ip6);
        } else {
            putNumber(text, "", number + depth.tagLength);
        }
    }
}

void putHarmless(Text *text, const char *name, bool withIcmp, const char *more) {
    put(text, "define ");
    put(text, name);
    put(text, " = { ");
    put(text, more);
    const char *before = "";
    for (const uint8_t next : LINUX_IP6_HARMLESS) {
        if (next == LINUX_IP6_ICMP && !withIcmp)
            continue;
        putNumber(text, before, next);
        before = ", ";
    }
    put(text, " }\n");
}

} // namespace

bool linuxNftRulesWrite(char *buffer, uint32_t size) {
    Text text = {.at = buffer, .room = size, .full = false};
    put(&text, DEFINITIONS);
    putHarmless(&text, "harmless", true, "");
    putHarmless(&text, "not_icmp", false, "17, ");
    put(&text, DISPATCH);
    put(&text, TRAP);
    put(&text, RA_GUARD);
    for (const Depth &depth : DEPTHS)
        putForDepth(&text, GUARD, depth);
    put(&text, LIMITED);
    return !text.full;
}
