#include "tests/unit/infoopt.h"

#include <cstdlib>
#include <cstring>

namespace {

// A copy of bytes in a block of exactly their size.
struct Block {
    uint8_t *bytes;

    explicit Block(const Bytes &content) : bytes(static_cast<uint8_t *>(malloc(content.size()))) {
        if (!content.empty())
            memcpy(bytes, content.data(), content.size());
    }
    Block(const Block &) = delete;
    Block &operator=(const Block &) = delete;
    ~Block() { free(bytes); }
};

int32_t whichOf(uint8_t code) { return code == OPTION_37 ? 0 : 1; }

} // namespace

void resetInfoPolicy() {
    free(dhcp6InfoOptionPolicy.remoteIdTemplate);
    free(dhcp6InfoOptionPolicy.interfaceIdTemplate);
    memset(&dhcp6InfoOptionPolicy, 0, sizeof dhcp6InfoOptionPolicy);
    dhcp6InfoOptionPolicy.strategy = 3;
    dhcp6InfoOptionPolicy.remoteIdType = 3;
    dhcp6InfoOptionPolicy.interfaceIdType = 3;
    memset(optionContent, 0, sizeof optionContent);
    memset(optionInterface, 0, sizeof optionInterface);
    optionContentType = 0;
    optionInterfaceType = 0;
}

Bytes textBytes(const std::string &text) { return {text.begin(), text.end()}; }

Bytes hexBytes(const std::string &digits) {
    Bytes bytes;
    std::string pair;
    for (const char digit : digits) {
        if (digit == ' ')
            continue;
        pair += digit;
        if (pair.size() == 2) {
            bytes.push_back(static_cast<uint8_t>(std::stoul(pair, nullptr, 16)));
            pair.clear();
        }
    }
    return bytes;
}

Bytes together(const std::vector<Bytes> &parts) {
    Bytes all;
    for (const Bytes &part : parts)
        all.insert(all.end(), part.begin(), part.end());
    return all;
}

Bytes optionBytes(uint16_t code, const Bytes &data) { return options().option(code, data).bytes; }

Bytes remoteIdBytes(const Bytes &content) { return optionBytes(OPTION_37, together({{0, 0, 0xB8, 0x0F}, content})); }

void enableOptions(std::initializer_list<uint8_t> codes) {
    dhcp6InfoOptionPolicy.option18Enable = 0;
    dhcp6InfoOptionPolicy.option37Enable = 0;
    for (const uint8_t code : codes)
        (code == OPTION_18 ? dhcp6InfoOptionPolicy.option18Enable : dhcp6InfoOptionPolicy.option37Enable) = 1;
}

void useString(uint8_t code, const std::string &text) { EXPECT_EQ(dhcp6_info_id_set(whichOf(code), 4, text.c_str()), 0u); }

void useTemplate(uint8_t code, const Dhcp6InfoIdTemplate &idTemplate) {
    EXPECT_EQ(dhcp6_info_id_set(whichOf(code), 5, &idTemplate), 0u);
}

TemplateWords &TemplateWords::literal(const std::string &text) {
    memcpy(made.literal[elements], text.data(), std::min(text.size(), sizeof made.literal[elements]));
    return *this;
}

TemplateWords &TemplateWords::element(uint32_t type, const std::string &vlan) {
    elements++;
    made.elementType[elements] = type;
    memcpy(made.elementVlan[elements], vlan.data(), std::min(vlan.size(), sizeof made.elementVlan[elements]));
    return *this;
}

Dhcp6InfoIdTemplate templateOfLength(uint32_t length) {
    TemplateWords words;
    while (length > 64) {
        words.literal(std::string(64, 'L'));
        length -= 64;
        words.element(8);
        length -= 1;
    }
    return words.literal(std::string(length, 'l')).made;
}

__attribute__((noinline)) void dirtyStack() {
    uint8_t bytes[16384];
    memset(bytes, 0xA5, sizeof bytes);
    asm volatile("" : : "r"(bytes) : "memory");
}

void InfoTest::SetUp() {
    SnoopingTest::SetUp();
    ctx.vlan = 10;
    recordingDebugOn = 1;
}

Bytes messageBytes(uint8_t type, const Bytes &area) { return together({{type, 0x12, 0x34, 0x56}, area}); }

Processed InfoTest::processed(const Bytes &area, uint32_t capacity) {
    Bytes content = together({UDP_FROM_CLIENT, messageBytes(msgType, area)});
    const size_t options = content.size() - area.size();
    content.resize(options + capacity, 0xEE);
    const Block block(content);
    const Block address(peer);
    Dhcp6InfoContext own = ctx;
    const auto optLen = static_cast<uint32_t>(area.size());
    uint32_t newLen = optLen;
    dirtyStack();
    const int32_t result =
        dhcp6_info_option_process(msgType, block.bytes + options, optLen, &newLen, &own, innerVlan, address.bytes);
    EXPECT_LE(newLen, capacity);
    EXPECT_EQ(Bytes(address.bytes, address.bytes + 16), peer);
    return {result, newLen, Bytes(block.bytes, block.bytes + 8),
            Bytes(block.bytes + 8, block.bytes + options + std::min(newLen, capacity)), own};
}

Inserted inserted(const Bytes &frame, uint32_t offset, const Arrival &arrival) {
    const Block block(frame);
    Dhcp6PacketDescriptor packet = {};
    packet.data = block.bytes;
    packet.length = static_cast<uint32_t>(frame.size());
    packet.info = arrival.info;
    packet.ctl.flags = arrival.flags;
    packet.ctl.payloadOffset = static_cast<uint16_t>(offset);
    dirtyStack();
    const Dhcp6PacketDescriptor *answer = dhcp6snooping_packet_add_info_option(&packet, offset, arrival.vlan, arrival.port0);
    EXPECT_EQ(Bytes(block.bytes, block.bytes + frame.size()), frame) << "the frame that came is the platform's";
    if (answer == nullptr)
        return {false, {}, nullptr};
    EXPECT_EQ(answer, &packet);
    EXPECT_NE(packet.data, block.bytes);
    EXPECT_EQ(packet.ctl.payloadOffset, offset);
    return {true, Bytes(packet.data, packet.data + packet.length), packet.data};
}

Inserted inserted(const Frame &f) {
    Arrival arrival;
    arrival.vlan = f.outerVlan;
    arrival.flags = flagsOf(f);
    return inserted(bytesOf(f), messageOffset(f), arrival);
}
