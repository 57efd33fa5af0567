#include "l2/dhcp6snooping/infoopt/content.h"

#include <cstdio>
#include <cstring>

#include "l2/dhcp6snooping/base/option.h"
#include "l2/dhcp6snooping/base/wire.h"
#include "l2/dhcp6snooping/infoopt/idtemplate.h"
#include "l2/dhcp6snooping/infoopt/policy.h"
#include "platform/liboem.h"

namespace {

constexpr uint32_t IP4_ADDRESS = 4;
constexpr uint32_t IP6_ADDRESS = 16;
constexpr uint32_t MAC_DIGITS = 12;
constexpr uint32_t HOST_NAME = 128;
constexpr const char *SELLER_WITHOUT_NUMBER = "quorvel";

// The longest content of fixed size fits by far: only templates ask how much space is left.
static_assert(DHCP6_OPTION_HEADER + 4 + 2 + HOST_NAME < DHCP6_INFO_OPTION_MAX);
static_assert(DHCP6_OPTION_HEADER + 4 + DHCP6_INFO_VALUE < DHCP6_INFO_OPTION_MAX);

// The option while it is written.
struct Writer {
    uint8_t *bytes;
    uint32_t length;
};

void write(Writer *writer, const void *bytes, size_t count) {
    memcpy(writer->bytes + writer->length, bytes, count);
    writer->length += static_cast<uint32_t>(count);
}

void write_enterprise(Writer *writer) {
    const uint32_t number = oem_type_check(SELLER_WITHOUT_NUMBER) != 0 ? 0 : oemPenGet();
    uint8_t field[4];
    wire_put16(field, 0, static_cast<uint16_t>(number >> 16));
    wire_put16(field, 2, static_cast<uint16_t>(number));
    write(writer, field, sizeof field);
}

void write_default(Writer *writer, const Dhcp6InfoContext *ctx, const char *hostName) {
    const uint8_t port[2] = {0, static_cast<uint8_t>(ctx->port + 1)};
    write(writer, port, sizeof port);
    write(writer, hostName, strnlen(hostName, HOST_NAME - 1));
}

bool write_user_defined(Writer *writer, const Dhcp6InfoContext *ctx, const Dhcp6InfoIdTemplate *idTemplate) {
    if (idTemplate == nullptr) {
        char digits[MAC_DIGITS + 1];
        const uint8_t *mac = ctx->systemMac;
        snprintf(digits, sizeof digits, "%02x%02x%02x%02x%02x%02x", mac[0], mac[1], mac[2], mac[3], mac[4], mac[5]);
        write(writer, digits, MAC_DIGITS);
        return true;
    }
    uint32_t length = 0;
    if (dhcp6_info_template_build(idTemplate, ctx, DHCP6_INFO_TEXT, writer->bytes + writer->length,
                                  DHCP6_INFO_OPTION_MAX - writer->length, &length) != 0)
        return false;
    writer->length += length;
    return true;
}

} // namespace

bool dhcp6_info_option_build(uint16_t code, const Dhcp6InfoContext *ctx, const char *hostName, Dhcp6InfoOption *option) {
    const Dhcp6InfoOptionPolicy &policy = dhcp6InfoOptionPolicy;
    const bool remote = code == DHCP6_OPTION_REMOTE_ID;
    const uint8_t *value = remote ? policy.remoteIdValue : policy.interfaceIdValue;
    const Dhcp6InfoIdTemplate *idTemplate = remote ? policy.remoteIdTemplate : policy.interfaceIdTemplate;

    Writer writer = {option->bytes, DHCP6_OPTION_HEADER};
    if (remote)
        write_enterprise(&writer);
    switch (remote ? policy.remoteIdType : policy.interfaceIdType) {
    case DHCP6_INFO_IPV4: write(&writer, value, IP4_ADDRESS); break;
    case DHCP6_INFO_IPV6: write(&writer, value, IP6_ADDRESS); break;
    case DHCP6_INFO_DEFAULT: write_default(&writer, ctx, hostName); break;
    case DHCP6_INFO_STRING: write(&writer, value, strnlen(reinterpret_cast<const char *>(value), DHCP6_INFO_VALUE)); break;
    case DHCP6_INFO_USER_DEFINED:
        if (!write_user_defined(&writer, ctx, idTemplate))
            return false;
        break;
    default: break; // an id of no known type is empty
    }
    wire_put16({option->bytes, DHCP6_OPTION_HEADER}, 0, code);
    wire_put16({option->bytes, DHCP6_OPTION_HEADER}, 2, static_cast<uint16_t>(writer.length - DHCP6_OPTION_HEADER));
    option->length = writer.length;
    return true;
}
