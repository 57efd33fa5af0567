#include "tests/contract/setup.h"

#include "tests/platform/recording.h"

void contractSetup() { recordingReset(); }

bool contractSetupFilters() { return true; }
