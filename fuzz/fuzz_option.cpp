// Option reader, status, lease extraction and the pointer array, each beside a second, plainer reading of the same bytes.

#include <cstdlib>
#include <cstring>
#include <vector>

#include "fuzz/check.h"
#include "fuzz/input.h"
#include "fuzz/platform/lean.h"
#include "l2/dhcp6snooping/base/lease.h"
#include "l2/dhcp6snooping/base/option.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

namespace {

struct FoundOption {
    size_t at;     // offset of the header
    size_t length; // of the data
};

// Every option of one code, by offsets into the area.
std::vector<FoundOption> optionsOf(std::span<const uint8_t> area, uint16_t code) {
    std::vector<FoundOption> found;
    for (size_t at = 0; at + 4 <= area.size();) {
        const size_t length = static_cast<size_t>(area[at + 2]) * 256 + area[at + 3];
        if (at + 4 + length > area.size())
            break;
        if (area[at] * 256 + area[at + 1] == code)
            found.push_back({at, length});
        at += 4 + length;
    }
    return found;
}

void checkFinder(std::span<const uint8_t> area, uint16_t code) {
    const std::vector<FoundOption> expected = optionsOf(area, code);
    const uint8_t *cursor = nullptr;
    uint32_t left = 0;
    const auto size = static_cast<uint32_t>(area.size());
    const uint8_t *buf = area.data();
    for (const FoundOption &option : expected) {
        uint32_t length = 0;
        const uint8_t *at = dhcp6snooping_msg_option_find(code, &length, buf, size, &cursor, &left);
        fuzzCheck(at == area.data() + option.at && length == option.length, "the reader finds each option in order");
        fuzzCheck(cursor == at + 4 + length && left == size - (option.at + 4 + length), "the cursor stands behind it");
        buf = nullptr;
    }
    uint32_t untouched = 77;
    fuzzCheck(dhcp6snooping_msg_option_find(code, &untouched, buf, size, &cursor, &left) == nullptr, "and then no more");
    fuzzCheck(untouched == 77 && cursor == nullptr && left == 0, "an exhausted walk says so");
}

void checkStatus(std::span<const uint8_t> area) {
    const std::vector<FoundOption> found = optionsOf(area, DHCP6_OPTION_STATUS_CODE);
    uint32_t expected = 0;
    if (!found.empty() && found[0].length >= 2)
        expected = area[found[0].at + 4] * 256u + area[found[0].at + 5];
    const char *text = "";
    const uint16_t status = dhcp6snooping_msg_option_status_find(area.data(), static_cast<uint32_t>(area.size()), &text);
    fuzzCheck(status == expected && text == nullptr, "the status is that of the first Status Code");
    fuzzCheck(std::strlen(dhcp6snooping_msg_option_status_desc(status)) <= 23, "a status has a text");
}

// What any extracted list must be: no duplicates, no failed lease, no lifetime that ends before it is preferred.
void checkLeases(const Dhcp6IaResult *result, bool dropZero, bool prefixesTaken) {
    for (uint32_t i = 0; i < result->leases.count; i++) {
        const Dhcp6LeaseAttr *lease = dhcp6snooping_lease_at(&result->leases, i);
        fuzzCheck(lease != nullptr && lease->status == 0 && lease->prefix_len <= 255, "an extracted lease is usable");
        fuzzCheck(lease->valid_lifetime >= lease->preferred_lifetime, "a lease is not preferred beyond its end");
        fuzzCheck(lease->valid_lifetime != 0 || !(dropZero || prefixesTaken), "a lease of lifetime 0 is dropped where asked");
        fuzzCheck(dhcp6snooping_lease_find(&result->leases, lease) == lease, "a lease is extracted once");
    }
}

void checkExtraction(std::span<const uint8_t> area, bool dropZero) {
    const auto size = static_cast<uint32_t>(area.size());
    Dhcp6IaResult prefixes{};
    const bool prefixesTaken = dhcp6snooping_ia_pd_parse_options(&prefixes, area.data(), size) == 1;
    dhcp6snooping_attr_array_free(&prefixes.leases, dhcp6snooping_attr_binding_free);
    Dhcp6IaResult result{};
    const uint32_t usable = dhcp6snooping_parse_addr_and_prefix_option(&result, area.data(), size, dropZero ? 1 : 0);
    fuzzCheck(usable <= 1 && (usable == 1 || result.leases.count == 0), "leases that are not usable are not handed out");
    checkLeases(&result, dropZero, prefixesTaken);
    dhcp6snooping_attr_array_free(&result.leases, dhcp6snooping_attr_binding_free);
    fuzzCheck(result.leases.count == 0 && result.leases.capacity == 0 && result.leases.items == nullptr,
              "a freed list is empty");
}

// The pointer array beside a vector: adds a copy, or takes one out by its pointer (also one that is not there).
void checkArray(std::span<const uint8_t> script) {
    Dhcp6AttrArray array{};
    std::vector<uint8_t> model;
    for (const uint8_t step : script) {
        if (step < 160) {
            dhcp6snooping_attr_array_add(&array, &step, 1);
            model.push_back(step);
        } else if (const size_t slot = step - 160u; slot < model.size()) {
            dhcp6snooping_attr_array_remove(&array, array.items[slot], dhcp6snooping_attr_binding_free);
            model.erase(model.begin() + static_cast<ptrdiff_t>(slot));
        } else {
            dhcp6snooping_attr_array_remove(&array, &array, dhcp6snooping_attr_binding_free);
        }
        fuzzCheck(array.count == model.size() && array.count <= array.capacity, "the array holds what was added");
    }
    for (size_t i = 0; i < model.size(); i++)
        fuzzCheck(*static_cast<uint8_t *>(array.items[i]) == model[i], "the array keeps its order");
    dhcp6snooping_attr_array_free(&array, dhcp6snooping_attr_binding_free);
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    FuzzInput input{{data, size}};
    const uint8_t how = fuzzU8(&input);
    const uint16_t code = (how & 2) != 0 ? fuzzU16(&input) : uint16_t{DHCP6_OPTION_IA_NA};
    leanReset();
    leanSwitch.debug = 1;
    // A block of exactly the area's size, at any alignment.
    const uint32_t shift = how >> 5;
    const size_t bytes = input.left.size();
    auto *block = static_cast<uint8_t *>(std::malloc(shift + bytes));
    if (bytes != 0)
        std::memcpy(block + shift, input.left.data(), bytes);
    const std::span<const uint8_t> area{block + shift, bytes};
    checkFinder(area, code);
    checkStatus(area);
    checkExtraction(area, (how & 1) != 0);
    checkArray(area);
    std::free(block);
    return 0;
}
