#pragma once
// Replaces a file as a whole: whoever reads it, and whatever ends the writer, sees the old text or the new one.
//
// The text is written beside the file under a name of its own, brought to the disk, and then renamed. A writer that is killed
// may leave that other file, ".NAME.new", behind; nobody reads it, and the next one removes it.
//
// The caller may be root and the folder somebody else's. No symbolic link is followed, neither at the file nor on the way to
// it, and only an ordinary file is replaced: the text ends up under the name that was given, or nowhere.

#include <string>
#include <string_view>

// The new file has mode 0640 and, where the caller may give it away, the owner and group of the former one. False and a
// sentence when anything fails; the former file is then untouched, unless only the folder could not be brought to the disk.
[[nodiscard]] bool saveFile(const std::string &path, std::string_view text, std::string *error);
