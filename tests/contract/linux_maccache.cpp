// What is remembered of the bridge's MAC table. How the bridge's notifications make it forget is tested end to end.

#include "platform/linux/maccache.h"

#include <array>
#include <gtest/gtest.h>
#include <string>

#include "platform/linux/protocol.h"

namespace {

using Mac = std::array<uint8_t, 6>;

constexpr Mac STATION = {2, 0, 0, 0, 0, 1};
constexpr LinuxMacPlace ON_PORT = {.port = 3, .trunk = LINUX_NO_TRUNK};
constexpr LinuxMacPlace ON_TRUNK = {.port = 5, .trunk = 7};

constexpr uint32_t CLIENTS = 2048; // of the daemon's table

Mac station(uint32_t number) {
    return {2, 0, 0, static_cast<uint8_t>(number >> 16), static_cast<uint8_t>(number >> 8), static_cast<uint8_t>(number)};
}

class LinuxMacCache : public testing::Test {
  protected:
    static void SetUpTestSuite() { linuxMacCacheOpen(); }
    void SetUp() override { linuxMacCacheForget(); }

    // "port/trunk", or "ask".
    static std::string place(const Mac &mac, uint16_t vlan) {
        LinuxMacPlace found{};
        if (!linuxMacCacheFind(mac.data(), vlan, &found)) {
            return "ask";
        }
        return std::to_string(found.port) + "/" + (found.trunk == LINUX_NO_TRUNK ? "-" : std::to_string(found.trunk));
    }

    // Of so many stations, each on the port of its number: how many are known, all of them rightly.
    static uint32_t known(uint32_t stations) {
        uint32_t count = 0;
        for (uint32_t i = 1; i <= stations; i++) {
            LinuxMacPlace found{};
            if (linuxMacCacheFind(station(i).data(), 0, &found)) {
                EXPECT_EQ(found.port, i);
                count++;
            }
        }
        return count;
    }
};

TEST_F(LinuxMacCache, WhatWasAnsweredIsKnown) {
    EXPECT_EQ(place(STATION, 0), "ask");
    linuxMacCacheKeep(STATION.data(), 0, ON_PORT);
    EXPECT_EQ(place(STATION, 0), "3/-");
    linuxMacCacheKeep(STATION.data(), 0, ON_TRUNK);
    EXPECT_EQ(place(STATION, 0), "5/7");
}

TEST_F(LinuxMacCache, AStationHasAPlaceInEachVlan) {
    linuxMacCacheKeep(STATION.data(), 10, ON_PORT);
    linuxMacCacheKeep(STATION.data(), 4094, ON_TRUNK);
    EXPECT_EQ(place(STATION, 10), "3/-");
    EXPECT_EQ(place(STATION, 4094), "5/7");
    EXPECT_EQ(place(STATION, 0), "ask");
    EXPECT_EQ(place({2, 0, 0, 0, 0, 2}, 10), "ask");
}

TEST_F(LinuxMacCache, ForgettingForgetsEverything) {
    linuxMacCacheKeep(STATION.data(), 10, ON_PORT);
    linuxMacCacheKeep(STATION.data(), 20, ON_PORT);
    linuxMacCacheForget();
    EXPECT_EQ(place(STATION, 10), "ask");
    EXPECT_EQ(place(STATION, 20), "ask");
}

// A free place of the table has a key of zeros too.
TEST_F(LinuxMacCache, TheMacOfZerosIsNobody) { EXPECT_EQ(place({}, 0), "ask"); }

// As many stations as there can be clients: only a few push each other out.
TEST_F(LinuxMacCache, HoldsAsManyAsThereAreClients) {
    for (uint32_t i = 1; i <= CLIENTS; i++) {
        linuxMacCacheKeep(station(i).data(), 0, {.port = i, .trunk = LINUX_NO_TRUNK});
    }
    EXPECT_GT(known(CLIENTS), CLIENTS * 99 / 100);
}

// More stations than places: some are pushed out, none gets the answer of another.
TEST_F(LinuxMacCache, NobodyGetsTheAnswerOfAnother) {
    constexpr uint32_t STATIONS = 20000;
    for (uint32_t i = 1; i <= STATIONS; i++) {
        linuxMacCacheKeep(station(i).data(), 0, {.port = i, .trunk = LINUX_NO_TRUNK});
    }
    EXPECT_GT(known(STATIONS), CLIENTS);
    EXPECT_LT(known(STATIONS), STATIONS);
}

} // namespace
