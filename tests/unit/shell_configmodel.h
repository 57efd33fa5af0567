#pragma once
// A daemon's configuration in the shell's tests: what it prints for its settings, written down once more from what it is
// documented to print, and what lines make of a daemon that starts.
//
// Ports from 0/5 on are not there: the daemon has no name for them.

#include <string>
#include <vector>

#include "shell/exactconfig.h"

// An option with these first bytes of its value, or with the template that this text means.
InformationOption modelOption(uint32_t type, std::string_view value, uint32_t enable = 0);
InformationOption modelTemplate(std::string_view text, uint32_t enable = 0);
Ipv6Address modelAddress(const char *word);
ConfigValues modelValues(const InformationOption &interfaceId, const InformationOption &remoteId);

std::string modelPrint(const std::string &head, const ConfigValues &values);

struct ModelMade {
    uint32_t option18 = 0;
    uint32_t option37 = 0;
    InformationId interfaceId;
    InformationId remoteId;
    std::vector<uint32_t> exempt;
    std::vector<Binding> bindings; // newest first
    std::vector<std::string> others;
};

// Lines as a file is read: split at line ends, words told apart, found in the command table.
ModelMade modelReplay(const std::vector<std::string> &lines);

// Fails unless exactly these settings were made, and the lines of `head` are the only others.
void modelExpect(const ModelMade &made, const std::string &head, const ConfigValues &values);
