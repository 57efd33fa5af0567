#pragma once
// The running configuration as the lines that make it again, exactly: what "show running-config" shows and "save" keeps.
//
// The daemon prints its configuration as text. That text is not enough: strings and templates of other managers are in it as
// they are, so that they may look like lines of their own, and bindings without a MAC address have lost their port. Therefore
// the true values are asked for by remote calls, and the lines are made of both:
//
//     text  |  title, switches, ports, VLANs  |  options 18 and 37  |  exempt VLANs  |  bindings    |
//     line  |  the text's                     |  made from values   |  the text's    |  from values |
//
// Nothing of another manager is in the first part. The rest of the text must be, byte for byte, what the daemon prints for the
// values, and must exempt the very VLANs that the values do; otherwise something changed in between, and both are read again.
// So no text is ever searched for lines that a string may have forged.

#include <string>
#include <string_view>
#include <vector>

#include "shell/bindings.h"
#include "shell/information.h"

struct ConfigValues {
    InformationSettings information;
    std::vector<uint32_t> exempt;  // VLANs, ascending
    std::vector<Binding> bindings; // newest first
};

struct ExactConfig {
    std::vector<std::string> settings; // lines of everything but bindings
    std::vector<std::string> bindings; // lines, newest first
    std::vector<std::string> missing;  // a sentence for each setting that no line can make; in its place is a remark
};

// False when the text is not what a daemon with these values prints.
[[nodiscard]] bool exactConfigMake(std::string_view text, const ConfigValues &values, ExactConfig *config);

// Reads text and values until they agree, CONFIG_ATTEMPTS times at most.
[[nodiscard]] CallEnd exactConfigRead(Connection *connection, ExactConfig *config, std::string *error);

// In the daemon's order.
std::vector<std::string> exactConfigShown(const ExactConfig &config);

// In an order that leaves the same running configuration behind: the oldest binding comes first.
std::vector<std::string> exactConfigForReplay(const ExactConfig &config);
