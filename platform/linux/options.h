#pragma once
// The words that the daemon may be called with. The program's main hands none of them on, so they come from the kernel.

// Answers --help, --version and --check and ends the process, with status 2 for a word that is not known. Returns when there
// is none.
void linuxOptions();
