#pragma once
// VLANs of the switch's ports. A bridge that filters VLANs has a database: which VLANs exist on a port, which of them is the
// native one, which leave without a tag. That is followed here. A bridge that does not filter them is transparent: it
// forwards every frame as it is, so every port is a member of every VLAN, a frame without a tag counts as VLAN 1, and which
// VLANs "exist" is said by the switch file.

#include <cstdint>

#include "platform/linux/ports.h"

struct nlattr;
struct nlmsghdr;

inline constexpr uint32_t LINUX_VLAN_MAX = 4094;
inline constexpr uint16_t LINUX_NATIVE_VLAN = 1; // of a transparent bridge

// Takes the bridge's list for one port (IFLA_AF_SPEC; null: it has no VLAN) in place of what was known.
void linuxVlansApply(LinuxLink *link, const nlattr *afSpec);
void linuxVlansClear(LinuxLink *link);

// Takes the spanning-tree states of single VLANs, which that list leaves out.
void linuxVlansApplyStates(const nlmsghdr *message);

// Answers about a link that is in the bridge (linuxBridgeLink), in the mode that the bridge has now.
[[nodiscard]] uint16_t linuxVlanNative(uint32_t link); // 0: frames without a tag are refused
[[nodiscard]] bool linuxVlanMember(uint32_t link, uint32_t vlan);
[[nodiscard]] bool linuxVlanForwards(uint32_t link, uint32_t vlan); // a member, and not blocked there
[[nodiscard]] bool linuxVlanUntagged(uint32_t link, uint32_t vlan);
// Whether one of the ports, or the bridge itself, is a member.
[[nodiscard]] bool linuxVlanExists(uint32_t vlan);
