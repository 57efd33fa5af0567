// What becomes of one received frame on a bridge that does not filter VLANs: its tag, its checksum, its counters.

#include "platform/linux/deliver.h"

#include <cstring>
#include <gtest/gtest.h>
#include <linux/if_bridge.h>
#include <linux/if_packet.h>

#include "linux_delivery.h"
#include "platform/linux/ports.h"
#include "platform/linux/send.h"

class LinuxDeliver : public LinuxDelivery {};

static uint32_t sum16(const uint8_t *bytes, uint32_t length) {
    uint32_t sum = 0;
    for (uint32_t i = 0; i < length; i++) {
        sum += i % 2 == 0 ? static_cast<uint32_t>(bytes[i]) << 8 : bytes[i];
    }
    return sum;
}

static uint32_t fold(uint32_t sum) {
    while (sum >> 16 != 0) {
        sum = (sum & 0xFFFF) + (sum >> 16);
    }
    return sum;
}

TEST_F(LinuxDeliver, GivesAFrameWithoutATagTheNativeVlan) {
    deliver(solicit());
    ASSERT_EQ(got.count, 1u);
    EXPECT_EQ(got.frame, tagged(solicit(), 0x8100, 1));
    EXPECT_EQ(got.info.vlan, 1u);
    EXPECT_EQ(got.info.port, 1u);
    EXPECT_EQ(got.ctl.flags, 0u);
    EXPECT_EQ(got.ctl.payloadOffset, 66u);
    EXPECT_EQ(got.ctl.platform[LINUX_CTL_TAG], 1u);
    EXPECT_EQ(got.address % 8, SMD_FRAME_ALIGN);
    EXPECT_TRUE(got.zeroTail);
    EXPECT_EQ(linuxCounters[0].delivered, 1u);
}

TEST_F(LinuxDeliver, KeepsTheTagsOfATransparentBridge) {
    deliver(solicit(), TAGGED, 0x88A8, 0xA014);
    EXPECT_EQ(got.frame, tagged(solicit(), 0x88A8, 0xA014));
    EXPECT_EQ(got.info.vlan, 20u);
    EXPECT_EQ(got.ctl.platform[LINUX_CTL_TAG], 0u);
    deliver(solicit(), TAGGED, 0x8100, 0xE000); // priority only
    EXPECT_EQ(got.frame, tagged(solicit(), 0x8100, 0xE000));
    EXPECT_EQ(got.info.vlan, 1u);
    deliver(tagged(solicit(), 0x8100, 30), TAGGED, 0x88A8, 20);
    EXPECT_EQ(got.frame, tagged(tagged(solicit(), 0x8100, 30), 0x88A8, 20));
    EXPECT_EQ(got.ctl.flags, SMD_CTL_DOUBLE_TAGGED);
    EXPECT_EQ(got.ctl.payloadOffset, 70u);
    EXPECT_EQ(got.count, 3u);
    EXPECT_EQ(got.address % 8, SMD_FRAME_ALIGN);
}

TEST_F(LinuxDeliver, LeavesPaddingOut) {
    Bytes padded = solicit();
    padded.resize(padded.size() + 9, 0x55);
    deliver(padded);
    EXPECT_EQ(got.frame, tagged(solicit(), 0x8100, 1));
    EXPECT_TRUE(got.zeroTail);
}

TEST_F(LinuxDeliver, CompletesTheChecksumOfLocalSenders) {
    for (uint32_t extra : {0u, 1u}) { // an even and an odd length
        Bytes frame = solicit();
        frame.resize(frame.size() + extra, 0x77);
        frame[19] = static_cast<uint8_t>(12 + extra);
        frame[14 + 40 + 5] = static_cast<uint8_t>(12 + extra);
        uint32_t pseudo = sum16(frame.data() + 14 + 8, 32) + 12 + extra + 17;
        uint32_t partial = fold(pseudo);
        frame[14 + 40 + 6] = static_cast<uint8_t>(partial >> 8);
        frame[14 + 40 + 7] = static_cast<uint8_t>(partial);
        deliver(frame, TP_STATUS_CSUMNOTREADY);
        EXPECT_EQ(fold(pseudo + sum16(got.frame.data() + 58, 12 + extra)), 0xFFFFu);
        deliver(frame); // without the mark nothing is touched
        EXPECT_EQ(got.frame, tagged(frame, 0x8100, 1));
    }
}

TEST_F(LinuxDeliver, CountsWhatItDrops) {
    Bytes frame = solicit();
    frame[14 + 40 + 5] = 200; // UDP length
    deliver(frame);
    EXPECT_EQ(linuxCounters[0].dropMalformed, 1u);
    frame = solicit();
    frame[14 + 40 + 2] = 9; // another port
    deliver(frame);
    EXPECT_EQ(linuxCounters[0].notDhcpv6, 1u);
    tellState(P1, "p1", BR_STATE_BLOCKING, {});
    deliver(solicit());
    EXPECT_EQ(linuxCounters[0].dropState, 1u);
    deliver(solicit(), 0, 0, 0, 2); // its interface is missing
    EXPECT_EQ(linuxCounters[2].dropState, 1u);
    frame.resize(SMD_FRAME_MAX - 3);
    tellState(P1, "p1", BR_STATE_FORWARDING, {});
    deliver(frame);
    EXPECT_EQ(linuxCounters[0].dropOversize, 1u);
    EXPECT_EQ(got.count, 0u);
}

TEST_F(LinuxDeliver, NamesTheXponUnit) {
    linuxSwitch.ports[0].xpon = 1;
    linuxSwitch.ports[0].pon = 3;
    linuxSwitch.ports[0].onu = 8191;
    memcpy(linuxSwitch.ports[0].serial, "ABCD\x01\x02\x03\x04", 8);
    deliver(solicit());
    EXPECT_EQ(got.info.access, 1u);
    EXPECT_EQ(got.info.ponValue, 3u);
    EXPECT_EQ(got.info.ponId, 8191u);
    EXPECT_EQ(memcmp(got.info.serial, "ABCD\x01\x02\x03\x04", 8), 0);
}
