#pragma once
// Writes and removes the startup file and the last good one: what the daemon's short-lived child does, so that its packet loop
// never waits for a disk.
//
// Each file is written beside under a name of its own, brought to the disk and renamed, so that whatever ends the writer there
// is the old file or the new one. All of it happens relative to the opened folder, and nothing is followed or replaced that is
// not an ordinary file: the folder may be open to others.
//
//     before                         after a save
//     startup.conf is good           startup.conf.last-good has its text
//     no good file                   startup.conf.last-good has the new text
//     only the last good one is      startup.conf.last-good as before

// Saves the configuration that standard input has. False with a sentence on standard output.
[[nodiscard]] bool linuxStoreStartup();

// Removes both files; it is no failure when they are not there. False with a sentence on standard output.
[[nodiscard]] bool linuxEraseStartup();
