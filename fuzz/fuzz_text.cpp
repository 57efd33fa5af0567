// Addresses as text: what the reader takes, the writer gives back, in blocks of exactly the size that was promised. The C
// library's reader and writer are asked the same questions where the two agree on the language.

#include <arpa/inet.h>
#include <cstdlib>
#include <cstring>

#include "fuzz/check.h"
#include "fuzz/input.h"
#include "l2/dhcp6snooping/base/text.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

namespace {

constexpr uint32_t TEXT_MAX = 40; // longest text of an address, NUL included

void checkWriter(const uint8_t address[16]) {
    char whole[TEXT_MAX];
    fuzzCheck(dhcp6snooping_inet_ntop(DHCP6SNOOPING_FAMILY_INET6, address, whole, sizeof whole) == whole, "every address fits");
    uint8_t again[16];
    fuzzCheck(dhcp6snooping_inet_pton(DHCP6SNOOPING_FAMILY_INET6, whole, again) == 1, "the reader takes what the writer wrote");
    fuzzCheck(std::memcmp(address, again, sizeof again) == 0, "and reads the same address");
    fuzzCheck(inet_pton(AF_INET6, whole, again) == 1 && std::memcmp(address, again, sizeof again) == 0,
              "as does the C library");
    const size_t needed = std::strlen(whole) + 1;
    for (uint32_t size = 0; size < TEXT_MAX; size++) {
        auto *text = static_cast<char *>(std::malloc(size == 0 ? 1 : size));
        text[0] = 'x';
        const bool fits = dhcp6snooping_inet_ntop(DHCP6SNOOPING_FAMILY_INET6, address, text, size) != nullptr;
        fuzzCheck(fits == (size >= needed), "the writer refuses a short buffer, and only that");
        fuzzCheck(size >= 2 || text[0] == 'x', "and writes nothing into one without room for a character");
        fuzzCheck(size < 2 || (std::strlen(text) < size && std::strncmp(text, whole, std::strlen(text)) == 0),
                  "what it wrote is the beginning of the text");
        std::free(text);
    }
}

void checkReader(const char *text) {
    uint8_t address[16];
    std::memset(address, 0xA5, sizeof address);
    uint8_t before[16];
    std::memcpy(before, address, sizeof before);
    const int32_t taken = dhcp6snooping_inet_pton(DHCP6SNOOPING_FAMILY_INET6, text, address);
    fuzzCheck(taken == 0 || taken == 1, "the reader answers 0 or 1");
    if (taken == 0)
        fuzzCheck(std::memcmp(address, before, sizeof before) == 0, "a refused text changes nothing");
    else
        checkWriter(address);
    uint8_t libraryAddress[16];
    if (std::strchr(text, '.') == nullptr && inet_pton(AF_INET6, text, libraryAddress) == 1)
        fuzzCheck(taken == 1 && std::memcmp(address, libraryAddress, sizeof address) == 0, "a proper address is read right");
    fuzzCheck(dhcp6snooping_inet_pton(AF_INET6, text, address) == 0, "only the daemon's own family code is taken");
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    FuzzInput input{{data, size}};
    const std::span<const uint8_t> bytes = input.left;
    auto *text = static_cast<char *>(std::malloc(size + 1));
    if (size != 0)
        std::memcpy(text, data, size);
    text[size] = '\0';
    checkReader(text);
    std::free(text);
    if (bytes.size() >= 16) {
        auto *address = static_cast<uint8_t *>(std::malloc(16));
        std::memcpy(address, bytes.data(), 16);
        checkWriter(address);
        char mac[MAC_TEXT_SIZE];
        fuzzCheck(std::strlen(dhcp6snooping_mac_to_str(address, mac)) == MAC_TEXT_SIZE - 1, "a MAC has 17 characters");
        std::free(address);
    }
    return 0;
}
