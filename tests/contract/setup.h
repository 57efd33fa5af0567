#pragma once
// The contract tests ask every platform the same questions. This is all that differs between them.

// Makes a switch of 28 ports and empties the table of remote functions.
void contractSetup();

// Gives every port an interface, so that filters are real. False when this machine does not let the test have a kernel table.
[[nodiscard]] bool contractSetupFilters();
