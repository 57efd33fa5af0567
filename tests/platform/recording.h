#pragma once
// The recording platform: every function of platform/*.h for tests, without a switch.
//
// It keeps a transcript: one readable line per call, in order, that a test compares whole. Calls by which the daemon acts or
// asks the switch something are always written down; the many small quiet ones (containers, clock, texts, debug switch, "is
// this list empty") only while recordingShowQuiet is on, because their number is nobody's business. Answers are scripted: what
// the queue delivers, where MACs live, which ports a VLAN or a trunk has. The clock stands still until a test moves it. Any
// call can be made to fail, by name or by number, and so can any allocation in a marked section; the line of a call that
// was made to fail ends with " -> fails".
//
// Containers and texts are plain implementations of their own: the contract tests ask them and the Linux platform the same
// questions, so that neither can drift away unnoticed.
//
// State is global like the platform's own. recordingReset brings back the start: 28 ports, VLAN 1 without members, nothing
// learned, clock at 1000, empty transcript, debug lines off.

#include <array>
#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <vector>

#include "platform/libsmd.h"
#include "platform/libvos.h"

void recordingReset();

// ---- Transcript ----------------------------------------------------------------------------------------------------

// The lines since the last take, and an empty transcript afterwards. Control characters in texts are written as \r, \n, \xNN.
std::vector<std::string> recordingTake();
void recordingShowQuiet(bool show);

// How often a function was called since the reset, quiet ones included.
uint32_t recordingCount(const std::string &function);

// Trace lines (syslogSendInfo of module 53 at level 7) and console lines (vosPrintf) as they were given, since the reset.
extern std::vector<std::string> recordingTraces;
extern std::vector<std::string> recordingConsole;

// The transcript line of a trace line, and the name that the transcript gives to a frame.
std::string recordingTraceLine(const std::string &text);
std::string recordingFrameName(std::span<const uint8_t> bytes);

// Frames handed to the send calls since the reset, refused ones included.
struct RecordingSent {
    uint32_t port; // 0 when the frame went to a list
    SmdPortList list;
    uint16_t vlan;
    uint32_t one;
    SmdPktCtl ctl;
    std::vector<uint8_t> bytes;
};
extern std::vector<RecordingSent> recordingSent;

// ---- Clock ---------------------------------------------------------------------------------------------------------

extern uint32_t recordingClock; // what vosUpSeconds answers

// Each call of `function` moves the clock on by this many seconds; 0 ends that.
void recordingClockMovesOn(const std::string &function, uint32_t seconds);

// ---- Failures ------------------------------------------------------------------------------------------------------

// The nth call from now (1 = the next one) fails: of any function, or of the named one.
void recordingFailNth(uint32_t nth);
void recordingFailFunction(const std::string &function, uint32_t nth);
// Every call of the named function fails until recordingFailNone.
void recordingFailAlways(const std::string &function);
void recordingFailNone();
// What failed last; "" when nothing did since the failure was asked for.
extern std::string recordingFailed;

// Runs `what` inside every call of the function; null ends that.
void recordingWhenCalled(const std::string &function, std::function<void()> what);

// What a filter call answers that was made to fail; -1 after a reset.
extern int32_t recordingFilterStatus;

// Starts a section in which the nth allocation by malloc, calloc or realloc fails (0: none). The end tells how many there were.
void recordingAllocationsBegin(uint32_t failNth);
uint32_t recordingAllocationsEnd();

// ---- Scripted answers ----------------------------------------------------------------------------------------------

// What vosMsgRecv delivers next: a message, an error code, or `bytes` with a number of bytes that need not be theirs. With
// nothing left it calls recordingOnEmptyQueue, if set, and answers -1.
void recordingQueueMessage(uint16_t type, const std::vector<uint8_t> &payload);
void recordingQueueRaw(const std::vector<uint8_t> &bytes, int32_t result);
// Runs inside vosMsgRecv, before the next message: where the platform makes its callbacks.
void recordingQueueEvent(std::function<void()> event);
extern std::function<void()> recordingOnEmptyQueue;

// Replies handed to vosMsgResp.
struct RecordingReply {
    int32_t result;
    std::vector<uint8_t> bytes;
    VosMsgReplyCtx ctx;
};
extern std::vector<RecordingReply> recordingReplies;

// The remote function under an identifier, or null.
SmdWrapFn recordingRemoteFunction(uint32_t id);
// Takes the place of smdCfgRmWrapProcess while set.
extern std::function<int32_t(void *)> recordingRemoteCall;

void recordingMacOnPort(uint16_t vlan, const uint8_t *mac, uint32_t port);
void recordingMacOnTrunk(uint16_t vlan, const uint8_t *mac, uint16_t trunk, uint32_t port);
// Members as ports from 1; makes the VLAN exist.
void recordingVlan(uint32_t vlan, const std::vector<uint32_t> &ports);
void recordingTrunk(uint16_t trunk, const std::vector<uint32_t> &ports);
// lac_get_channel_ag answers this instead, and writes *port0 only when told to.
void recordingTrunkAnswer(int32_t result, bool writes, uint32_t port0);
void recordingPortText(uint32_t port, const std::string &text);
// What smdVDPortSnmpToUser answers; without it, 0, 0 and the port.
void recordingPortNumbers(uint32_t port, uint32_t a, uint32_t b, uint32_t c);
void recordingAddress(uint32_t switchId, uint32_t vid, uint32_t ip);

// Who the switch is. A reset makes it "switch", 02:00:00:00:00:fe, 47119, built for nobody, "DHCPv6 snooping".
struct RecordingIdentity {
    std::string hostName;
    std::array<uint8_t, 6> systemMac;
    uint32_t enterprise;
    std::string seller; // the only name that oem_type_check knows
    std::string title;  // of module 53
};
extern RecordingIdentity recordingIdentity;

// Platforms that do not keep their promises, for tests of callers that do not rely on them. All off after a reset.
struct RecordingOddities {
    bool failuresLeaveOuts;  // a question that fails does not write what it was asked for
    bool hostNameUnending;   // a host name that fills the buffer has no end
    bool anyTextIsIpAddress; // strtoipAddr finds every text valid
    bool textsUnending;      // texts of ports and MAC addresses fill 256 bytes and have no end, those of VLANs their 128
    uint32_t vlanTexts;      // vidArray2vlanList says that it wrote so many, unless 0
};
extern RecordingOddities recordingOddities;

// ---- Callbacks that the daemon registered ---------------------------------------------------------------------------

struct RecordingCallbacks {
    SmdPktRecvFn receive;
    int32_t (*timer)(uint32_t timerId, void *user);
    void *timerUser;
    int32_t (*link)(uint32_t port, uint32_t linkState);
    int32_t (*buildRunning)(char *text, uint32_t *space, uint32_t flags, uint32_t context);
};
extern RecordingCallbacks recordingCallbacks;

extern uint32_t recordingDebugOn; // debug switch of every module
extern std::string recordingProcessName;

// ---- For the sources of this platform --------------------------------------------------------------------------------

// Writes the call down (its name is the first word) and tells whether it has to fail.
bool recordingCall(const char *fmt, ...) __attribute__((format(printf, 1, 2)));
// The same for a quiet call, whose lines are usually left out.
bool recordingQuietCall(const char *fmt, ...) __attribute__((format(printf, 1, 2)));
std::string recordingEscape(const std::string &text);
std::string recordingHex(const void *bytes, uint32_t length);

// Each source's own part of recordingReset.
void recordingResetVos();
void recordingResetSwitch();
void recordingResetRemote();
void recordingResetNet();
void recordingResetFilters();
void recordingResetSubagent();
