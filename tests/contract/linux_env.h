#pragma once
// What the tests of the Linux platform share: a network namespace and a folder of their own, and small servers in processes of
// their own.

#include <string>
#include <vector>

// A folder that is removed with all its files when the tests end; open to other users.
const std::string &testFolder();

// Standard error for a while: a pipe of datagrams, so that every write stays one piece.
struct Captured {
    int read;
    int saved;
};

Captured captureBegin();
std::vector<std::string> captureEnd(const Captured &captured);

// This program started again as a small snoopd6 with the run folder `run`: it opens the queue and answers nothing. `mode` is
// "serve" to wait for messages, "hasty" to do so with little patience for the shell that replays the startup file, "undo"
// to have something to undo at its end and to say on standard output when it is hung up, "leave" to return from main at once, "log" to write one log line and leave, "flood" to do so with a hundred
// limited ones, "file" to read `run` as a switch file and leave.
struct TestServer {
    int pid;
    int output; // its standard output; "ready\n" comes when the queue is open
    int errors; // its standard error
};

TestServer serverStart(const std::string &mode, const std::string &run, unsigned user = 0);
// Waits for "ready"; false when the server ended without it.
bool serverReady(const TestServer &server);
// The next line of its standard output, or of a program's that it started; "" when they all ended without one,
// and when none comes.
std::string serverLine(const TestServer &server);
// Waits for the end. Returns the exit status, or 1000 + the signal that ended it; *said is what it wrote to standard error.
int serverEnd(const TestServer &server, std::string *said);

// This program started again as a command shell, by a daemon that replays `file`: does what the lines of the file say, and
// returns its exit status.
int playShell(int argc, char **argv);
