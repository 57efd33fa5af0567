#pragma once
// The line that makes one setting again, exactly.
//
// The daemon prints some different settings as the same line, and texts of other managers as they are. The lines here are made
// from what its remote calls answer. Each is then given to the shell's own parser, and counts only when the parser reads the
// very same setting out of it. A setting that no line can make is described instead.

#include <string>

#include "shell/bindings.h"
#include "shell/information.h"

struct ExactLine {
    std::string line;   // "" when there is none
    std::string reason; // then a sentence that names the setting, says why there is none, and how to take the setting back
};

ExactLine exactBinding(const Binding &binding);

// `name` is "interface-id" or "remote-id". An id that has its default content has neither a line nor a reason.
ExactLine exactInformation(const char *name, const InformationOption &option);
