// Scalars of the MIB: switches, and the ids of options 18 and 37.

#include "l2/dhcp6snooping/clients/limits.h"
#include "tests/unit/infoopt.h"
#include "tests/unit/mib.h"

#include <cstring>

namespace {

struct MibScalarsTest : MibTest {};

const uint32_t SCALARS[] = {MIB_SNOOPING_ON_OFF, MIB_PORT_DOWN_ACTION, MIB_EXEMPT_VLANS,
                            MIB_OPTION18_ENABLE, MIB_OPTION37_ENABLE,  MIB_REMOTE_ID,
                            MIB_REMOTE_TEXT,     MIB_INTERFACE_ID,     MIB_INTERFACE_TEXT};

// The one id and the other: the same rules for both.
struct Id {
    uint32_t type, text; // objects
    uint32_t *storedType;
    uint8_t *stored;
    uint32_t *pendingType;
    char *pending;
};
const Id IDS[] = {{MIB_REMOTE_ID, MIB_REMOTE_TEXT, &dhcp6InfoOptionPolicy.remoteIdType, dhcp6InfoOptionPolicy.remoteIdValue,
                   &optionContentType, optionContent},
                  {MIB_INTERFACE_ID, MIB_INTERFACE_TEXT, &dhcp6InfoOptionPolicy.interfaceIdType,
                   dhcp6InfoOptionPolicy.interfaceIdValue, &optionInterfaceType, optionInterface}};

Bytes stored(const Id &id, size_t bytes) { return {id.stored, id.stored + bytes}; }

// ---- The protocol -------------------------------------------------------------------------------------------------------

TEST_F(MibScalarsTest, OneInstanceEach) {
    for (const uint32_t object : SCALARS) {
        SCOPED_TRACE(object);
        EXPECT_EQ(mibNext(object), "0 = " + mibGet(object));
        EXPECT_EQ(mibNext(object, {0}), "no next instance");
        for (const Index &index : {Index{}, Index{1}, Index{0, 0}, Index(32, 0)}) {
            EXPECT_EQ(mibGet(object, index), "no such instance");
            EXPECT_EQ(mibTest(object, index, 1), "not writable");
            EXPECT_EQ(mibCommit(object, index, 1), "not writable");
        }
    }
    EXPECT_EQ(recordingTake(), Lines{});
}

TEST_F(MibScalarsTest, ValidatedBeforeAnythingElse) {
    for (const uint32_t kind : {1u, 2u, 5u, 6u, 4u, 0u, 3u, 7u, 0xFFFFFFFFu}) {
        SCOPED_TRACE(kind);
        recordingShowQuiet(true);
        CcdVariable variable = variableOf(MIB_SNOOPING_ON_OFF, SCALAR, 1);
        recordingFailFunction("ccdScalarValidate", 1);
        EXPECT_EQ(handle(kind, &variable), ccdErrorRequestMap(kind));
        EXPECT_EQ(recordingTake(), Lines{"ccdScalarValidate kind=" + std::to_string(kind) + " -> fails"});
        recordingShowQuiet(false);
    }
    EXPECT_EQ(dhcp6SnoopingOn, 0u);
}

TEST_F(MibScalarsTest, ANextInstanceIsTheLibrarysToFind) {
    recordingShowQuiet(true);
    EXPECT_EQ(mibNext(MIB_SNOOPING_ON_OFF), "0 = 2");
    EXPECT_EQ(recordingTake(), (Lines{"ccdScalarValidate kind=1", "ccdNextScalarIndex"}));
    recordingFailFunction("ccdNextScalarIndex", 1);
    EXPECT_EQ(mibNext(MIB_SNOOPING_ON_OFF), "no next instance");
    EXPECT_EQ(mibGet(MIB_SNOOPING_ON_OFF), "2");
    EXPECT_EQ(recordingTake(), (Lines{"ccdScalarValidate kind=1", "ccdNextScalarIndex -> fails", "ccdScalarValidate kind=2"}));
}

TEST_F(MibScalarsTest, AnObjectOfAnotherGroupHasNoInstance) {
    for (const uint32_t object : {uint32_t{MIB_PORT_INDEX}, uint32_t{MIB_BIND_ROW_STATUS}, uint32_t{MIB_OBJECTS}, 0xFFFFFFFFu})
        for (const uint32_t kind : {1u, 2u, 5u, 6u}) {
            CcdVariable variable = variableOf(object, kind == CCD_GETNEXT ? Index{} : SCALAR, 1);
            EXPECT_EQ(dhcp6snoopingMibScalarHandler(kind, &variable), ccdErrorNoSuchInstance());
        }
}

// ---- Switches -----------------------------------------------------------------------------------------------------------

TEST_F(MibScalarsTest, SnoopingIsSwitchedOnAndOff) {
    EXPECT_EQ(mibGet(MIB_SNOOPING_ON_OFF), "2");
    EXPECT_EQ(mibTest(MIB_SNOOPING_ON_OFF, SCALAR, 1), "ok");
    EXPECT_EQ(recordingTake(), Lines{}) << "a test changes nothing";
    EXPECT_EQ(mibCommit(MIB_SNOOPING_ON_OFF, SCALAR, 1), "ok");
    EXPECT_EQ(recordingTake().front(), "smdVDDhcp6snoopingOnOff mode=1");
    EXPECT_EQ(mibGet(MIB_SNOOPING_ON_OFF), "1");
    EXPECT_EQ(mibCommit(MIB_SNOOPING_ON_OFF, SCALAR, 1), "ok");
    EXPECT_EQ(recordingTake(), Lines{});
    EXPECT_EQ(mibCommit(MIB_SNOOPING_ON_OFF, SCALAR, 2), "ok");
    EXPECT_EQ(recordingTake().front(), "smdVDDhcp6snoopingOnOff mode=2");
    EXPECT_EQ(mibGet(MIB_SNOOPING_ON_OFF), "2");
}

TEST_F(MibScalarsTest, AnyOtherValueCommittedStopsSnooping) {
    for (const uint32_t value : {0u, 3u, 0xFFFFFFFFu}) {
        mibCommit(MIB_SNOOPING_ON_OFF, SCALAR, 1);
        EXPECT_EQ(mibCommit(MIB_SNOOPING_ON_OFF, SCALAR, value), "ok");
        EXPECT_EQ(dhcp6SnoopingOn, 0u);
    }
}

TEST_F(MibScalarsTest, OnlyExactlyOneIsOn) {
    dhcp6SnoopingOn = 2;
    EXPECT_EQ(mibGet(MIB_SNOOPING_ON_OFF), "2");
    dhcp6SnoopingOn = 0;
}

TEST_F(MibScalarsTest, PortDownAction) {
    for (const uint32_t set : {1u, 7u}) { // any value that is not 0 is on
        bDhcp6SnoopingFastRemove = set;
        EXPECT_EQ(mibGet(MIB_PORT_DOWN_ACTION), "1");
    }
    bDhcp6SnoopingFastRemove = 0;
    EXPECT_EQ(mibGet(MIB_PORT_DOWN_ACTION), "2");
    EXPECT_EQ(mibCommit(MIB_PORT_DOWN_ACTION, SCALAR, 1), "ok");
    EXPECT_EQ(bDhcp6SnoopingFastRemove, 1u);
    for (const uint32_t value : {2u, 0u, 3u, 0xFFFFFFFFu}) {
        bDhcp6SnoopingFastRemove = 1;
        EXPECT_EQ(mibCommit(MIB_PORT_DOWN_ACTION, SCALAR, value), "ok");
        EXPECT_EQ(bDhcp6SnoopingFastRemove, 0u);
    }
    EXPECT_EQ(recordingTake(), Lines{});
}

TEST_F(MibScalarsTest, SwitchesTakeOneAndTwo) {
    for (const uint32_t object : {MIB_SNOOPING_ON_OFF, MIB_PORT_DOWN_ACTION}) {
        for (const uint32_t value : {1u, 2u})
            EXPECT_EQ(mibTest(object, SCALAR, value), "ok");
        for (const uint32_t value : {0u, 3u, 256u, 0x80000001u, 0xFFFFFFFFu})
            EXPECT_EQ(mibTest(object, SCALAR, value), "invalid range");
        EXPECT_EQ(mibTestLength(object, SCALAR, 1, 5), "invalid length");
        EXPECT_EQ(mibTestLength(object, SCALAR, 1, 0xFFFFFFFF), "invalid length");
        EXPECT_EQ(mibTestLength(object, SCALAR, 3, 5), "invalid range") << "the value is looked at first";
        EXPECT_EQ(mibTestLength(object, SCALAR, 1, 0), "ok");
    }
    EXPECT_EQ(dhcp6SnoopingOn, 0u);
    EXPECT_EQ(bDhcp6SnoopingFastRemove, 1u);
}

// ---- Options 18 and 37 --------------------------------------------------------------------------------------------------

TEST_F(MibScalarsTest, OptionsAreEnabledOneByOne) {
    EXPECT_EQ(mibCommit(MIB_OPTION18_ENABLE, SCALAR, 1), "ok");
    EXPECT_EQ(dhcp6InfoOptionPolicy.option18Enable, 1u);
    EXPECT_EQ(dhcp6InfoOptionPolicy.option37Enable, 0u);
    EXPECT_EQ(mibGet(MIB_OPTION18_ENABLE), "1");
    EXPECT_EQ(mibGet(MIB_OPTION37_ENABLE), "0");
    EXPECT_EQ(mibCommit(MIB_OPTION37_ENABLE, SCALAR, 1), "ok");
    EXPECT_EQ(mibCommit(MIB_OPTION18_ENABLE, SCALAR, 0), "ok");
    EXPECT_EQ(dhcp6InfoOptionPolicy.option18Enable, 0u);
    EXPECT_EQ(dhcp6InfoOptionPolicy.option37Enable, 1u);
    EXPECT_EQ(mibGet(MIB_OPTION37_ENABLE), "1");
}

TEST_F(MibScalarsTest, EnableTakesZeroAndOneWhateverTheDeclaredRange) {
    for (const uint32_t object : {MIB_OPTION18_ENABLE, MIB_OPTION37_ENABLE}) {
        for (const uint32_t value : {0u, 1u})
            EXPECT_EQ(mibTest(object, SCALAR, value), "ok");
        for (const uint32_t value : {2u, 3u, 0xFFFFFFFFu})
            EXPECT_EQ(mibTest(object, SCALAR, value), "invalid range");
        EXPECT_EQ(mibTestLength(object, SCALAR, 0, 5), "invalid length");
        EXPECT_EQ(mibTestLength(object, SCALAR, 2, 5), "invalid range");
        EXPECT_EQ(mibCommit(object, SCALAR, 77), "ok") << "a commit stores what it gets";
        EXPECT_EQ(mibGet(object), "77");
    }
}

TEST_F(MibScalarsTest, IdTypesAndTextsAreTested) {
    for (const Id &id : IDS) {
        for (const uint32_t value : {1u, 2u, 3u, 4u})
            EXPECT_EQ(mibTest(id.type, SCALAR, value), "ok");
        for (const uint32_t value : {0u, 5u, 9u, 0xFFFFFFFFu})
            EXPECT_EQ(mibTest(id.type, SCALAR, value), "invalid range");
        EXPECT_EQ(mibTestLength(id.type, SCALAR, 4, 5), "invalid length");
        EXPECT_EQ(mibTestLength(id.type, SCALAR, 5, 5), "invalid range");
        for (const uint32_t length : {0u, 1u, 64u})
            EXPECT_EQ(mibTest(id.text, SCALAR, std::string(length, 'x')), "ok");
        for (const uint32_t length : {65u, 255u, 256u})
            EXPECT_EQ(mibTest(id.text, SCALAR, std::string(length, 'x')), "too big");
        EXPECT_EQ(*id.pendingType, 0u) << "a test stages nothing";
        EXPECT_EQ(id.pending[0], '\0');
    }
}

TEST_F(MibScalarsTest, TheTextFirstAndTheTypeSecond) {
    for (const Id &id : IDS) {
        EXPECT_EQ(mibCommit(id.text, SCALAR, "192.0.2.77"), "ok");
        EXPECT_EQ(*id.storedType, 3u) << "no type is pending yet";
        EXPECT_EQ(mibGet(id.text), "");
        EXPECT_EQ(mibCommit(id.type, SCALAR, 1), "ok");
        EXPECT_EQ(mibGet(id.type), "1");
        EXPECT_EQ(stored(id, 4), (Bytes{192, 0, 2, 77}));
        EXPECT_EQ(mibGet(id.text), "192.0.2.77");
        EXPECT_EQ(mibCommit(id.type, SCALAR, 4), "ok") << "the text of before, under another type";
        EXPECT_EQ(mibGet(id.type), "4");
        EXPECT_EQ(mibGet(id.text), "192.0.2.77");
        EXPECT_EQ(mibCommit(id.text, SCALAR, "floor 2"), "ok") << "the type is still pending";
        EXPECT_EQ(mibGet(id.text), "floor 2");
        EXPECT_EQ(mibCommit(id.type, SCALAR, 3), "ok");
        EXPECT_EQ(mibGet(id.type), "3");
        EXPECT_EQ(mibGet(id.text), "");
    }
}

TEST_F(MibScalarsTest, AnIpv6Id) {
    for (const Id &id : IDS) {
        mibCommit(id.text, SCALAR, "2001:DB8::77");
        EXPECT_EQ(mibCommit(id.type, SCALAR, 2), "ok");
        EXPECT_EQ(stored(id, 16), addressBytes("2001:db8::77"));
        EXPECT_EQ(mibGet(id.text), "2001:db8::77") << "as the platform writes it";
    }
}

TEST_F(MibScalarsTest, AnIpv4IdIsWrittenByteByByte) {
    for (const Id &id : IDS) {
        *id.storedType = 1;
        const uint8_t bytes[] = {255, 0, 128, 9, 77};
        memcpy(id.stored, bytes, sizeof bytes);
        EXPECT_EQ(mibGet(id.text), "255.0.128.9");
    }
}

TEST_F(MibScalarsTest, ATextThatIsNoAddressChangesNothingAndSucceeds) {
    for (const Id &id : IDS) {
        mibCommit(id.text, SCALAR, "kept");
        mibCommit(id.type, SCALAR, 4);
        for (const char *text : {"192.0.2", "192.0.2.256", "1.2.3.4x", "floor 2", ""}) {
            EXPECT_EQ(mibCommit(id.text, SCALAR, text), "ok");
            *id.storedType = 4;
            memcpy(id.stored, "kept", 5);
            for (const uint32_t type : {1u, 2u})
                EXPECT_EQ(mibCommit(id.type, SCALAR, type), "ok");
            EXPECT_EQ(*id.pendingType, 2u);
            EXPECT_EQ(mibGet(id.type), "4") << text;
            EXPECT_EQ(mibGet(id.text), "kept") << text;
        }
    }
}

TEST_F(MibScalarsTest, AnEmptyTextIsNoString) {
    for (const Id &id : IDS) {
        mibCommit(id.text, SCALAR, "");
        EXPECT_EQ(mibCommit(id.type, SCALAR, 4), "ok");
        EXPECT_EQ(mibGet(id.type), "3");
    }
}

TEST_F(MibScalarsTest, AStagedTextIsClearedBeforeTheNextOne) {
    for (const Id &id : IDS) {
        memset(id.pending, 'z', 128);
        EXPECT_EQ(mibCommit(id.text, SCALAR, "short"), "ok");
        char expected[128] = "short";
        EXPECT_EQ(memcmp(id.pending, expected, sizeof expected), 0);
        const std::string longest(64, 'L');
        EXPECT_EQ(mibCommit(id.text, SCALAR, longest), "ok");
        memcpy(expected, longest.data(), 64);
        EXPECT_EQ(memcmp(id.pending, expected, sizeof expected), 0);
    }
}

TEST_F(MibScalarsTest, ATextTooLongIsRefusedWithoutATest) {
    for (const Id &id : IDS) {
        mibCommit(id.text, SCALAR, "before");
        *id.pendingType = 4;
        for (const uint32_t length : {65u, 255u, 256u, 0xFFFFFFFFu}) {
            CcdVariable variable = variableOf(id.text, SCALAR, std::string(64, 'x'));
            variable.length = length;
            EXPECT_EQ(handle(CCD_COMMIT, &variable), ccdErrorTooBig());
            EXPECT_STREQ(id.pending, "before");
            EXPECT_EQ(mibGet(id.type), "3") << "and nothing is applied";
        }
    }
}

TEST_F(MibScalarsTest, TypesThatNoTestLetsThroughStageAndDoNothing) {
    for (const Id &id : IDS) {
        mibCommit(id.text, SCALAR, "2001:db8::1");
        for (const uint32_t type : {0u, 5u, 9u, 0xFFFFFFFFu}) {
            EXPECT_EQ(mibCommit(id.type, SCALAR, type), "ok");
            EXPECT_EQ(*id.pendingType, type);
            EXPECT_EQ(mibGet(id.type), "3");
        }
    }
}

TEST_F(MibScalarsTest, BothIdsHaveTheirOwnFields) {
    mibCommit(MIB_REMOTE_TEXT, SCALAR, "remote");
    mibCommit(MIB_INTERFACE_TEXT, SCALAR, "interface");
    mibCommit(MIB_REMOTE_ID, SCALAR, 4);
    EXPECT_EQ(mibGet(MIB_INTERFACE_ID), "3");
    mibCommit(MIB_INTERFACE_ID, SCALAR, 4);
    EXPECT_EQ(mibGet(MIB_REMOTE_TEXT), "remote");
    EXPECT_EQ(mibGet(MIB_INTERFACE_TEXT), "interface");
}

TEST_F(MibScalarsTest, AUserDefinedIdHasATypeAndNoText) {
    const Dhcp6InfoIdTemplate words = templateOfLength(20);
    for (const Id &id : IDS) {
        dhcp6_info_id_set(&id == &IDS[0] ? 0 : 1, DHCP6_INFO_USER_DEFINED, &words);
        memcpy(id.stored, "left behind", 12);
        EXPECT_EQ(mibGet(id.type), "5");
        EXPECT_EQ(mibGet(id.text), "");
    }
}

TEST_F(MibScalarsTest, AStoredStringNeedsNoEnd) {
    const Dhcp6InfoIdTemplate words = templateOfLength(20);
    for (const Id &id : IDS) {
        // What stands behind the field is not 0 then.
        dhcp6_info_id_set(&id == &IDS[0] ? 0 : 1, DHCP6_INFO_USER_DEFINED, &words);
        *id.storedType = 4;
        memset(id.stored, 's', 80);
        EXPECT_EQ(mibGet(id.text), std::string(80, 's'));
    }
}

} // namespace
