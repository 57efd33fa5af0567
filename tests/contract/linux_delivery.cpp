#include "linux_delivery.h"

#include <array>
#include <cstring>

#include "platform/linux/deliver.h"
#include "platform/linux/ports.h"

static constexpr std::array<uint16_t, 2> PORTS = {546, 547};

Delivered got;

static int32_t receive(uint8_t *frame, uint32_t length, SmdPktRecvInfo *info, SmdPktCtl *ctl) {
    got.count++;
    got.frame.assign(frame, frame + length);
    got.info = *info;
    got.ctl = *ctl;
    got.address = reinterpret_cast<uintptr_t>(frame);
    got.zeroTail = true;
    for (uint32_t i = 0; i < SMD_FRAME_TAIL; i++) {
        got.zeroTail = got.zeroTail && frame[length + i] == 0;
    }
    return 0;
}

Bytes solicit() {
    Bytes frame = {0x33, 0x33, 0, 1, 0, 2, 2, 0, 0, 0, 0, 1, 0x86, 0xDD, 0x60, 0, 0, 0, 0, 12, 17, 1};
    frame.resize(14 + 40, 0);
    frame[14 + 8] = 0xFE;
    frame[14 + 9] = 0x80;
    frame[14 + 24] = 0xFF;
    frame[14 + 25] = 0x02;
    for (int byte : {0x02, 0x22, 0x02, 0x23, 0x00, 0x0C, 0x00, 0x00, 0x01, 0x12, 0x34, 0x56}) {
        frame.push_back(static_cast<uint8_t>(byte));
    }
    return frame;
}

Bytes tagged(const Bytes &frame, uint16_t tpid, uint16_t tci) {
    Bytes with(frame.begin(), frame.begin() + 12);
    for (int byte : {tpid >> 8, tpid & 0xFF, tci >> 8, tci & 0xFF}) {
        with.push_back(static_cast<uint8_t>(byte));
    }
    with.insert(with.end(), frame.begin() + 12, frame.end());
    return with;
}

void deliver(const Bytes &frame, uint32_t status, uint16_t tpid, uint16_t tci, uint32_t port0) {
    alignas(64) static std::array<uint8_t, 16384> slot;
    slot.fill(0xAA);
    uint8_t *bytes = slot.data() + 64 + SMD_FRAME_ALIGN + LINUX_RAW_HEADROOM;
    memcpy(bytes, frame.data(), frame.size());
    static const std::array<LinuxCapture, 2> captures = {{
        {.udpPort = 546, .mode = 1, .rule = {}, .deliver = receive},
        {.udpPort = 547, .mode = 1, .rule = {}, .deliver = receive},
    }};
    LinuxRawFrame raw = {
        .bytes = bytes, .length = static_cast<uint32_t>(frame.size()), .status = status, .tpid = tpid, .tci = tci};
    LinuxIngress ingress = {.port0 = port0,
                            .link = linuxBridgeLink(port0),
                            .receives = linuxPortReceives(port0),
                            .trapHolds = true,
                            .captures = captures,
                            .ports = PORTS};
    linuxDeliver(ingress, &raw);
}

void LinuxDelivery::SetUp() {
    LinuxInterfaces::SetUp();
    got = {};
}
