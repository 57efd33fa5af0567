#include "platform/linux/attributes.h"

#include <libmnl/libmnl.h>

LinuxAttributes linuxAttributesOf(const nlmsghdr *message, uint32_t headerSize) {
    uint32_t header = MNL_ALIGN(headerSize);
    uint32_t size = static_cast<uint32_t>(mnl_nlmsg_get_payload_len(message));
    const uint8_t *payload = static_cast<const uint8_t *>(mnl_nlmsg_get_payload(message));
    return size < header ? LinuxAttributes{.at = payload, .left = 0}
                         : LinuxAttributes{.at = payload + header, .left = size - header};
}

LinuxAttributes linuxAttributesIn(const nlattr *nest) {
    return {.at = static_cast<const uint8_t *>(mnl_attr_get_payload(nest)), .left = mnl_attr_get_payload_len(nest)};
}

const nlattr *linuxAttributeNext(LinuxAttributes *attributes) {
    const nlattr *attribute = reinterpret_cast<const nlattr *>(attributes->at);
    if (attributes->left < sizeof(nlattr) || attribute->nla_len < sizeof(nlattr) || attribute->nla_len > attributes->left) {
        return nullptr;
    }
    uint32_t step = MNL_ALIGN(static_cast<uint32_t>(attribute->nla_len));
    if (step > attributes->left) { // the last one may go without its padding
        step = attributes->left;
    }
    attributes->at += step;
    attributes->left -= step;
    return attribute;
}

const nlattr *linuxAttributeFind(const nlattr *nest, uint16_t type, uint32_t bytes) {
    LinuxAttributes list = linuxAttributesIn(nest);
    while (const nlattr *attribute = linuxAttributeNext(&list)) {
        if (mnl_attr_get_type(attribute) == type && mnl_attr_get_payload_len(attribute) == bytes) {
            return attribute;
        }
    }
    return nullptr;
}

uint32_t linuxAttributeU8(const nlattr *nest, uint16_t type, uint32_t otherwise) {
    const nlattr *attribute = linuxAttributeFind(nest, type, sizeof(uint8_t));
    return attribute != nullptr ? mnl_attr_get_u8(attribute) : otherwise;
}

uint32_t linuxAttributeU32(const nlattr *attribute) {
    return mnl_attr_validate(attribute, MNL_TYPE_U32) < 0 ? 0 : mnl_attr_get_u32(attribute);
}

const char *linuxAttributeText(const nlattr *attribute) {
    return mnl_attr_validate(attribute, MNL_TYPE_NUL_STRING) < 0 ? "" : mnl_attr_get_str(attribute);
}
