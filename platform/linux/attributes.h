#pragma once
// The attributes of a netlink message. A walk over them ends at the first one that does not fit, so that no message, whatever
// it says about its lengths, leads behind its end.

#include <cstdint>

struct nlattr;
struct nlmsghdr;

// What is left of a message or of a nest.
struct LinuxAttributes {
    const uint8_t *at;
    uint32_t left;
};

[[nodiscard]] LinuxAttributes linuxAttributesOf(const nlmsghdr *message, uint32_t headerSize);
[[nodiscard]] LinuxAttributes linuxAttributesIn(const nlattr *nest);
[[nodiscard]] const nlattr *linuxAttributeNext(LinuxAttributes *attributes); // null at the end

// The first attribute of a nest that is of the type and so many bytes long, or null.
[[nodiscard]] const nlattr *linuxAttributeFind(const nlattr *nest, uint16_t type, uint32_t bytes);

// A number in a nest; `otherwise` when it is not there.
[[nodiscard]] uint32_t linuxAttributeU8(const nlattr *nest, uint16_t type, uint32_t otherwise);

// What an attribute says: a number, 0 for what is none; a text, "" for what does not end inside.
[[nodiscard]] uint32_t linuxAttributeU32(const nlattr *attribute);
[[nodiscard]] const char *linuxAttributeText(const nlattr *attribute);
