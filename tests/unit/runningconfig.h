#pragma once
// The running configuration in tests: built into a block that ends where its space ends, and compared piece by piece.
//
// Every test starts with a switch whose whole configuration is at its default.

#include "l2/dhcp6snooping/mgmt/runningconfig.h"
#include "tests/unit/guard.h"
#include "tests/unit/infoopt.h"

inline const std::string COMMENT = "!!!DHCPv6 snooping\r\n";
inline constexpr uint32_t ROOM = 1 << 20; // more than any configuration takes

struct RunningConfigTest : GuardTest {
    void SetUp() override;
    void TearDown() override;
};

struct Built {
    int32_t result;
    uint32_t space;   // what is left of it
    std::string text; // what was appended
    bool operator==(const Built &) const = default;
};

// Appends to `before` with so much space behind it; what stood there must stay.
Built built(uint32_t space, const std::string &before = "");
// What that has to give for a configuration of these pieces, the comment not among them.
Built expectedOf(const Lines &pieces, uint32_t space);

// The configuration consists of these pieces, and of nothing else.
void expectConfig(const Lines &pieces);

// Block of one port, with the lines of its settings.
std::string portBlock(uint32_t port, const std::string &lines);

// Sets something of every kind, and more than one of what there can be more of. Its pieces.
Lines configureEverything();
