#pragma once
// Folders that the daemon keeps files in: nobody but root and the daemon's own user may put anything into them, so that what is
// found there is the daemon's, and no name in it was planted by somebody else.

#include <cstdint>
#include <sys/types.h>

// Makes the folder with this mode, whatever the umask, or looks at the one that is there: it must be a folder and no symbolic
// link, belong to root or the daemon's user, and be writable for nobody else. *made is set to true when it was made. False with
// the end of a sentence in `error` that starts with the path.
[[nodiscard]] bool linuxOwnFolder(const char *path, mode_t mode, bool *made, char *error, uint32_t errorSize);
