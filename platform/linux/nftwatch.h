#pragma once
// Looks every second whether the kernel still has the rules of the switch's filter table. Others may take them away, with
// "nft flush ruleset" for example; guarded ports are open then, and the kernel forwards DHCPv6 past the daemon.

// Watches from now on. Once, after the table was loaded.
void linuxNftWatchStart();

// Whether the rules were there at the last look.
[[nodiscard]] bool linuxNftRulesPresent();
