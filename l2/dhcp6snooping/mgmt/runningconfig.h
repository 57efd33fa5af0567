#pragma once
// The running configuration: the command lines that make a daemon as it starts into the one that runs. What is at its default
// has no line. Strings and templates are written as they are held, between quotes and without any escape.

#include <cstdint>

// Appends the lines to `text`, a terminated string, as long as they fit: *space is the number of bytes free behind it, and
// counts down by every piece, also by the one that no longer fits. A piece wants one byte more than it has, for the NUL. The
// module's title goes in front as a comment, if there is anything at all. The last two arguments are not used.
// 0; -1 when an argument is missing, the module has no title, or the text does not fit: what was appended stays.
int32_t BldRun_dhcp6snooping_cmd(char *text, uint32_t *space, uint32_t flags, uint32_t context);
