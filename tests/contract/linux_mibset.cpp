// The registered MIB module by OID: sets, and requests that come over the queue.

#include "tests/contract/linux_caller.h"
#include "tests/contract/linux_mib.h"

// ---- Set -----------------------------------------------------------------------------------------------------------

static LinuxMibMsg setOf(uint32_t operation, uint32_t object, uint32_t integer) {
    LinuxMibMsg message = messageOf(operation, oidOf(object, {5}));
    message.type = LINUX_MIB_INTEGER;
    message.integer = integer;
    message.length = 4;
    return message;
}

static LinuxMibMsg setOf(uint32_t operation, uint32_t object, const std::string &text) {
    LinuxMibMsg message = messageOf(operation, oidOf(object, {5}));
    message.type = LINUX_MIB_OCTETS;
    message.length = static_cast<uint32_t>(text.size());
    memcpy(message.octets, text.data(), std::min(text.size(), sizeof message.octets));
    return message;
}

TEST_F(Mib, SetsReachTheHandler) {
    std::vector<std::pair<uint32_t, CcdVariable>> seen;
    behaviour = [&seen](uint32_t kind, CcdVariable *variable) {
        seen.emplace_back(kind, *variable);
        return 0;
    };
    for (const uint32_t kind : {CCD_TEST, CCD_COMMIT}) {
        seen.clear();
        LinuxMibMsg integer = setOf(kind, VALUE, 0xFFFFFFFF), text = setOf(kind, TEXT, std::string(255, 't'));
        EXPECT_EQ(linuxMibRequest(&integer), 0);
        EXPECT_EQ(linuxMibRequest(&text), 0);
        ASSERT_EQ(seen.size(), 2u);
        EXPECT_EQ(seen[0].first, kind);
        EXPECT_EQ(seen[0].second.object, VALUE);
        EXPECT_EQ(indexOf(seen[0].second), Oid{5});
        EXPECT_EQ(seen[0].second.integer, 0xFFFFFFFF) << "declared ranges are the handlers' business";
        EXPECT_EQ(seen[0].second.length, 4u);
        EXPECT_EQ(seen[1].second.object, TEXT);
        EXPECT_EQ(seen[1].second.length, 255u);
        EXPECT_EQ(std::string(reinterpret_cast<char *>(seen[1].second.octets)), std::string(255, 't'));
    }
}

TEST_F(Mib, ASetLeavesItsMessageAlone) {
    behaviour = [](uint32_t, CcdVariable *variable) {
        memset(variable->octets, 'x', sizeof variable->octets);
        variable->integer = variable->length = variable->indexLength = 9;
        return 0;
    };
    LinuxMibMsg message = setOf(LINUX_MIB_COMMIT, TEXT, "text");
    const LinuxMibMsg asked = message;
    EXPECT_EQ(linuxMibRequest(&message), 0);
    EXPECT_EQ(memcmp(&message, &asked, sizeof asked), 0);
}

TEST_F(Mib, AMacAddressIsSetAsText) {
    behaviour = [](uint32_t, CcdVariable *variable) { return variable->length == 17 ? 0 : 77; };
    LinuxMibMsg message = setOf(LINUX_MIB_TEST, MAC, "02:00:00:00:00:01");
    EXPECT_EQ(linuxMibRequest(&message), 0) << "the declared size is no limit here";
}

TEST_F(Mib, TheLengthOfAnIntegerIsTheHandlersBusiness) {
    uint32_t seen = 0;
    behaviour = [&seen](uint32_t, CcdVariable *variable) {
        seen = variable->length;
        EXPECT_TRUE(
            std::all_of(std::begin(variable->octets), std::end(variable->octets), [](uint8_t byte) { return byte == 0; }));
        return 0;
    };
    for (const uint32_t length : {0u, 4u, 5u, 255u}) {
        LinuxMibMsg message = setOf(LINUX_MIB_TEST, VALUE, 1);
        message.length = length;
        memset(message.octets, 'x', sizeof message.octets);
        EXPECT_EQ(linuxMibRequest(&message), 0);
        EXPECT_EQ(seen, length);
    }
}

TEST_F(Mib, LengthsThatNoValueHas) {
    for (const uint32_t length : {256u, 257u, 0x80000000u, 0xFFFFFFFFu}) {
        LinuxMibMsg text = setOf(LINUX_MIB_COMMIT, TEXT, ""), integer = setOf(LINUX_MIB_TEST, VALUE, 1);
        text.length = integer.length = length;
        EXPECT_EQ(refused(text), LINUX_MIB_INVALID_LENGTH);
        EXPECT_EQ(refused(integer), LINUX_MIB_INVALID_LENGTH);
    }
    EXPECT_EQ(calls, 0u);
}

TEST_F(Mib, TypesThatDoNotFit) {
    for (const uint32_t operation : {LINUX_MIB_TEST, LINUX_MIB_COMMIT}) {
        for (const uint32_t object : {VALUE, NUMBER, STATUS}) {
            EXPECT_EQ(refused(setOf(operation, object, "1")), LINUX_MIB_WRONG_TYPE);
        }
        for (const uint32_t object : {TEXT, MAC}) {
            EXPECT_EQ(refused(setOf(operation, object, 1)), LINUX_MIB_WRONG_TYPE);
        }
        for (const uint32_t type : {0u, 3u, 0xFFFFFFFFu}) {
            LinuxMibMsg message = setOf(operation, VALUE, 1);
            message.type = type;
            EXPECT_EQ(refused(message), LINUX_MIB_WRONG_TYPE);
        }
    }
    EXPECT_EQ(calls, 0u);
}

TEST_F(Mib, WhatIsOnlyToBeRead) {
    for (const uint32_t operation : {LINUX_MIB_TEST, LINUX_MIB_COMMIT}) {
        EXPECT_EQ(refused(setOf(operation, INDEX, 1)), LINUX_MIB_NOT_WRITABLE);
        EXPECT_EQ(refused(setOf(operation, INDEX, "1")), LINUX_MIB_NOT_WRITABLE);
    }
    EXPECT_EQ(calls, 0u);
}

// ---- Over the queue ------------------------------------------------------------------------------------------------

class MibQueue : public Queue {
  protected:
    void SetUp() override {
        Queue::SetUp();
        behaviour = behaveWell;
        EXPECT_EQ(ccdInit(300, 4), 0);
        ASSERT_EQ(ccdModuleRegister("little", LIST), 0);
    }
    void TearDown() override {
        ccdModuleDeRegister("little");
        Queue::TearDown();
    }
    Reply ask(const Bytes &payload) {
        callerSend(caller, message(LINUX_MSG_MIB, 77, payload));
        daemonIdle();
        Reply reply = callerRead(caller);
        EXPECT_EQ(reply.got, Got::reply);
        EXPECT_EQ(reply.header.requestId, 77u);
        return reply;
    }
    Reply ask(const LinuxMibMsg &request) {
        Bytes payload(sizeof request);
        memcpy(payload.data(), &request, sizeof request);
        return ask(payload);
    }
};

TEST_F(MibQueue, ARequestComesBackFilledIn) {
    const Reply reply = ask(messageOf(LINUX_MIB_GETNEXT, {1, 3}));
    EXPECT_EQ(reply.header.result, 0);
    LinuxMibMsg answer;
    ASSERT_EQ(reply.payload.size(), sizeof answer);
    memcpy(&answer, reply.payload.data(), sizeof answer);
    EXPECT_EQ(answer.operation, LINUX_MIB_GETNEXT);
    EXPECT_EQ(oidOf(answer), oidOf(TEXT, {5}));
    EXPECT_STREQ(reinterpret_cast<const char *>(answer.octets), "abc");
    EXPECT_EQ(ask(messageOf(LINUX_MIB_GET, {1, 3})).header.result, LINUX_MIB_NO_SUCH_OBJECT);
}

TEST_F(MibQueue, PayloadsThatAreNoRequest) {
    for (const size_t size : {size_t{0}, size_t{1}, sizeof(LinuxMibMsg) - 1, sizeof(LinuxMibMsg) + 1, size_t{4096}}) {
        const Reply reply = ask(Bytes(size, 0));
        EXPECT_EQ(reply.header.result, LINUX_RESULT_BAD);
        EXPECT_EQ(reply.payload.size(), 0u);
    }
}

TEST_F(MibQueue, NamesThatSnmpDoesNotHave) {
    LinuxMibMsg request = messageOf(LINUX_MIB_GETNEXT, Oid(128, 1));
    EXPECT_EQ(ask(request).header.result, 0);
    for (const uint32_t length : {129u, 0x80000000u, 0xFFFFFFFFu}) {
        for (const uint32_t operation : {0u, 1u, 2u, 5u, 6u}) {
            request.operation = operation;
            request.oidLength = length;
            EXPECT_EQ(ask(request).header.result, LINUX_RESULT_BAD);
        }
    }
}

TEST_F(MibQueue, AWithdrawnModuleIsGone) {
    EXPECT_NE(ccdModuleDeRegister("other"), 0);
    EXPECT_NE(ccdModuleDeRegister(nullptr), 0);
    EXPECT_EQ(ask(messageOf(LINUX_MIB_ROOT, {})).header.result, 0);
    EXPECT_EQ(ccdModuleDeRegister("little"), 0);
    EXPECT_EQ(ask(messageOf(LINUX_MIB_ROOT, {})).header.result, LINUX_MIB_NO_SUCH_OBJECT);
}

TEST_F(MibQueue, NamesOfModules) {
    EXPECT_NE(ccdModuleRegister("second", LIST), 0) << "one module at a time";
    EXPECT_EQ(ccdModuleDeRegister("little"), 0);
    const std::string longest(63, 'm'), tooLong(64, 'm');
    for (const char *name : {static_cast<const char *>(nullptr), "", tooLong.c_str()}) {
        EXPECT_NE(ccdModuleRegister(name, LIST), 0);
        EXPECT_NE(ccdModuleDeRegister(name), 0);
    }
    EXPECT_NE(ccdModuleRegister("little", nullptr), 0);
    const CcdRegEntry empty[] = {{nullptr, nullptr}};
    EXPECT_NE(ccdModuleRegister("little", empty), 0);
    EXPECT_NE(ccdModuleDeRegister("little"), 0) << "what was refused is not there";
    EXPECT_EQ(ccdModuleRegister(longest.c_str(), LIST), 0);
    EXPECT_EQ(ccdModuleDeRegister(longest.c_str()), 0);
}
