// The registered MIB module by OID: registration, get and get-next.

#include "tests/contract/linux_mib.h"

// The OID behind another; empty at the end of the module.
static Oid next(const Oid &oid) {
    LinuxMibMsg message = messageOf(LINUX_MIB_GETNEXT, oid);
    const int32_t result = linuxMibRequest(&message);
    if (result == 0) {
        return oidOf(message);
    }
    EXPECT_EQ(result, LINUX_MIB_NO_NEXT_INSTANCE);
    return {};
}

static std::vector<Oid> walk(Oid oid = {}) {
    std::vector<Oid> oids;
    for (oid = next(oid); !oid.empty() && oids.size() < 1000; oid = next(oid)) {
        oids.push_back(oid);
    }
    return oids;
}

// ---- Registration --------------------------------------------------------------------------------------------------

TEST_F(Mib, WithoutAModuleThereIsNoObject) {
    linuxMibForget();
    for (const uint32_t operation : {0u, 1u, 2u, 5u, 6u, 3u, 0xFFFFFFFFu}) {
        EXPECT_EQ(refused(operation, oidOf(VALUE, {5})), LINUX_MIB_NO_SUCH_OBJECT);
    }
    EXPECT_EQ(calls, 0u);
}

TEST_F(Mib, OneModuleAtATime) {
    EXPECT_NE(linuxMibRegister(LIST), 0);
    EXPECT_EQ(walk().size(), 12u) << "the first one is still there";
}

TEST_F(Mib, AModuleHasAtMost64Objects) {
    linuxMibForget();
    std::vector<CcdObjectRecord> records;
    std::vector<CcdRegEntry> list;
    for (uint32_t object = 0; object < LINUX_MIB_OBJECTS_MAX + 1; object++) {
        records.push_back(record(object, static_cast<uint16_t>(object + 1), 1, 3));
    }
    for (const CcdObjectRecord &one : records) {
        list.push_back({&SCALARS, &one});
    }
    list.push_back({nullptr, nullptr});
    EXPECT_NE(linuxMibRegister(list.data()), 0);
    EXPECT_EQ(refused(LINUX_MIB_GET, {1, 3, 6, 99, 1, 5}), LINUX_MIB_NO_SUCH_OBJECT) << "nothing of it is left";
    list[LINUX_MIB_OBJECTS_MAX] = {nullptr, nullptr};
    EXPECT_EQ(linuxMibRegister(list.data()), 0);
    EXPECT_EQ(walk().size(), 128u);
}

TEST_F(Mib, NamesThatAreTooLongOrEmpty) {
    for (const uint32_t arcs : {0u, 33u, 0xFFFFFFFFu}) {
        linuxMibForget();
        CcdGroup odd = group(Oid(12, 1), RECORDS);
        odd.arcCount = arcs;
        const CcdRegEntry list[] = {{&SCALARS, &RECORDS[NUMBER]}, {&odd, &RECORDS[TEXT]}, {nullptr, nullptr}};
        EXPECT_NE(linuxMibRegister(list), 0);
        EXPECT_EQ(refused(LINUX_MIB_GET, oidOf(NUMBER, {5})), LINUX_MIB_NO_SUCH_OBJECT) << "nothing of it is left";
    }
    const CcdGroup longest = group(Oid(32, 4), RECORDS);
    const CcdRegEntry list[] = {{&longest, &RECORDS[NUMBER]}, {nullptr, nullptr}};
    EXPECT_EQ(linuxMibRegister(list), 0);
    Oid expected(31, 4);
    expected.insert(expected.end(), {9, 5});
    EXPECT_EQ(next({}), expected);
}

TEST_F(Mib, AListEndsWithThePairOfNulls) {
    linuxMibForget();
    const CcdRegEntry empty[] = {{nullptr, nullptr}};
    EXPECT_NE(linuxMibRegister(empty), 0);
    EXPECT_EQ(linuxMibRegister(LIST), 0) << "an empty list is no module";
}

TEST_F(Mib, TheRootIsWhatAllHaveInCommon) {
    LinuxMibMsg message = messageOf(LINUX_MIB_ROOT, {9, 9, 9, 9, 9, 9, 9, 9});
    EXPECT_EQ(linuxMibRequest(&message), 0);
    EXPECT_EQ(oidOf(message), (Oid{1, 3, 6, 99}));
    linuxMibForget();
    const CcdRegEntry one[] = {{&TABLE, &RECORDS[VALUE]}, {nullptr, nullptr}};
    ASSERT_EQ(linuxMibRegister(one), 0);
    EXPECT_EQ(linuxMibRequest(&message), 0);
    EXPECT_EQ(oidOf(message), (Oid{1, 3, 6, 99, 7, 1})) << "of a single object, without its column";
    EXPECT_EQ(calls, 0u);
}

TEST_F(Mib, UnknownOperations) {
    for (const uint32_t operation : {3u, 4u, 7u, 0x80000001u, 0xFFFFFFFFu}) {
        EXPECT_EQ(refused(operation, oidOf(VALUE, {5})), LINUX_RESULT_BAD);
    }
    EXPECT_EQ(calls, 0u);
}

// ---- Get -----------------------------------------------------------------------------------------------------------

TEST_F(Mib, GetAsksTheObjectForItsInstance) {
    behaviour = [](uint32_t kind, CcdVariable *variable) {
        EXPECT_EQ(kind, CCD_GET);
        EXPECT_EQ(variable->object, VALUE);
        EXPECT_EQ(indexOf(*variable), (Oid{7, 3}));
        EXPECT_TRUE(std::all_of(variable->index + 2, variable->index + CCD_INDEX_MAX, [](uint32_t arc) { return arc == 0; }));
        EXPECT_EQ(variable->length + variable->integer + variable->octets[0], 0u);
        variable->integer = 77;
        variable->length = 9; // an integer has 4 bytes whatever a handler says
        memset(variable->octets, 'x', sizeof variable->octets);
        return 0;
    };
    LinuxMibMsg message = messageOf(LINUX_MIB_GET, oidOf(VALUE, {7, 3}));
    message.type = 0xEEEEEEEE;
    message.integer = 0xEEEEEEEE;
    message.length = 0xEEEEEEEE;
    memset(message.octets, 0xEE, sizeof message.octets);
    EXPECT_EQ(linuxMibRequest(&message), 0);
    EXPECT_EQ(calls, 1u);
    EXPECT_EQ(oidOf(message), oidOf(VALUE, {7, 3}));
    EXPECT_EQ(message.type, LINUX_MIB_INTEGER);
    EXPECT_EQ(message.integer, 77u);
    EXPECT_EQ(message.length, 4u);
    EXPECT_TRUE(std::all_of(std::begin(message.octets), std::end(message.octets), [](uint8_t byte) { return byte == 0; }));
}

TEST_F(Mib, TypesOfValues) {
    for (const uint32_t object : {NUMBER, VALUE, INDEX, STATUS, TEXT, MAC}) {
        LinuxMibMsg message = messageOf(LINUX_MIB_GET, oidOf(object, {5}));
        EXPECT_EQ(linuxMibRequest(&message), 0);
        const bool octets = object == TEXT || object == MAC;
        EXPECT_EQ(message.type, octets ? LINUX_MIB_OCTETS : LINUX_MIB_INTEGER);
        EXPECT_EQ(message.integer, octets ? 0 : object);
        EXPECT_EQ(message.length, octets ? 3u : 4u);
        EXPECT_STREQ(reinterpret_cast<const char *>(message.octets), octets ? "abc" : "");
    }
}

TEST_F(Mib, OctetsAreCutAt255) {
    for (const uint32_t length : {0u, 1u, 255u, 256u, 400u, 0xFFFFFFFFu}) {
        behaviour = [length](uint32_t, CcdVariable *variable) {
            memset(variable->octets, 'x', sizeof variable->octets);
            variable->length = length;
            return 0;
        };
        LinuxMibMsg message = messageOf(LINUX_MIB_GET, oidOf(TEXT, {0}));
        EXPECT_EQ(linuxMibRequest(&message), 0);
        EXPECT_EQ(message.length, std::min(length, 255u));
        const std::string text(reinterpret_cast<const char *>(message.octets), sizeof message.octets);
        EXPECT_EQ(text, std::string(message.length, 'x') + std::string(256 - message.length, '\0'));
    }
}

TEST_F(Mib, WhatIsNotInTheModuleIsNoObject) {
    for (const Oid &oid :
         {Oid{}, Oid{1}, Oid{1, 3, 6, 99}, Oid{1, 3, 6, 99, 2, 0}, Oid{1, 3, 6, 99, 7, 1}, Oid{1, 3, 6, 98, 9, 0},
          Oid{1, 3, 6, 99, 7, 1, 4, 5}, Oid{1, 1, 3, 6, 99, 9, 5}, Oid(128, 0xFFFFFFFF)}) {
        for (const uint32_t operation : {LINUX_MIB_GET, LINUX_MIB_TEST, LINUX_MIB_COMMIT}) {
            EXPECT_EQ(refused(operation, oid), operation == LINUX_MIB_GET ? LINUX_MIB_NO_SUCH_OBJECT : LINUX_MIB_NOT_WRITABLE);
        }
    }
    EXPECT_EQ(calls, 0u);
}

TEST_F(Mib, AnIndexHasAtMost32Arcs) {
    EXPECT_EQ(refused(LINUX_MIB_GET, oidOf(VALUE, {})), LINUX_MIB_NO_SUCH_INSTANCE);
    EXPECT_EQ(refused(LINUX_MIB_GET, oidOf(VALUE, Oid(32, 1))), LINUX_MIB_NO_SUCH_INSTANCE);
    EXPECT_EQ(calls, 2u) << "the handler decides";
    EXPECT_EQ(refused(LINUX_MIB_GET, oidOf(VALUE, Oid(33, 5))), LINUX_MIB_NO_SUCH_INSTANCE);
    EXPECT_EQ(refused(LINUX_MIB_GET, oidOf(VALUE, Oid(121, 5))), LINUX_MIB_NO_SUCH_INSTANCE);
    LinuxMibMsg set = messageOf(LINUX_MIB_TEST, oidOf(VALUE, Oid(33, 5)));
    set.type = LINUX_MIB_INTEGER;
    EXPECT_EQ(refused(set), LINUX_MIB_NO_SUCH_INSTANCE);
    EXPECT_EQ(calls, 2u);
}

TEST_F(Mib, WhatAHandlerAnswersIsPassedOn) {
    for (const int32_t answer : {-1, -77, 4711, INT32_MIN, ccdErrorNoNextInstance(), ccdErrorNoSuchInstance()}) {
        behaviour = [answer](uint32_t, CcdVariable *variable) {
            variable->integer = 5;
            return answer;
        };
        EXPECT_EQ(refused(LINUX_MIB_GET, oidOf(VALUE, {5})), answer);
        LinuxMibMsg set = messageOf(LINUX_MIB_COMMIT, oidOf(VALUE, {5}));
        set.type = LINUX_MIB_INTEGER;
        EXPECT_EQ(refused(set), answer);
    }
}

// ---- Get-next ------------------------------------------------------------------------------------------------------

TEST_F(Mib, AWalkInTheOrderOfTheNames) {
    std::vector<Oid> expected;
    for (const uint32_t object : {TEXT, INDEX, VALUE, MAC, STATUS, NUMBER}) {
        expected.push_back(oidOf(object, {5}));
        expected.push_back(oidOf(object, {7, 3}));
    }
    EXPECT_EQ(walk(), expected);
    EXPECT_TRUE(std::is_sorted(expected.begin(), expected.end()));
}

TEST_F(Mib, NextOfAnyName) {
    const Oid first = oidOf(TEXT, {5});
    const std::pair<Oid, Oid> places[] = {
        {{}, first},
        {{0xFFFFFFFF}, {}},
        {{1, 3, 6}, first},
        {{1, 3, 6, 98, 0xFFFFFFFF}, first},
        {{1, 3, 6, 99, 1, 0}, first},
        {{1, 3, 6, 99, 1, 4, 0xFFFFFFFF}, first},
        {{1, 3, 6, 99, 1, 5}, oidOf(TEXT, {7, 3})},
        {{1, 3, 6, 99, 1, 5, 0}, oidOf(TEXT, {7, 3})},
        {{1, 3, 6, 99, 1, 7}, oidOf(TEXT, {7, 3})},
        {{1, 3, 6, 99, 1, 7, 3}, oidOf(INDEX, {5})},
        {{1, 3, 6, 99, 2}, oidOf(INDEX, {5})},
        {{1, 3, 6, 99, 7}, oidOf(INDEX, {5})},
        {{1, 3, 6, 99, 7, 1, 3, 9}, oidOf(STATUS, {5})},
        {{1, 3, 6, 99, 7, 1, 4}, oidOf(STATUS, {5})},
        {{1, 3, 6, 99, 7, 1, 6, 7, 3}, oidOf(NUMBER, {5})},
        {{1, 3, 6, 99, 9, 7, 3}, {}},
        {{1, 3, 6, 99, 10}, {}},
        {{1, 3, 6, 100}, {}},
        {Oid(128, 1), first},
        {Oid(128, 0xFFFFFFFF), {}},
    };
    for (const auto &[from, expected] : places) {
        EXPECT_EQ(next(from), expected) << testing::PrintToString(from);
    }
}

TEST_F(Mib, NextOfAnIndexThatIsTooLong) {
    Oid index(40, 0);
    index[0] = 5;
    EXPECT_EQ(next(oidOf(VALUE, index)), oidOf(VALUE, {7, 3}));
    index[0] = 7;
    EXPECT_EQ(next(oidOf(VALUE, index)), oidOf(VALUE, {7, 3}));
    index[0] = 8;
    EXPECT_EQ(next(oidOf(VALUE, index)), oidOf(MAC, {5}));
    // An instance as long as an index may be: only what lies behind the whole name counts.
    const Oid longest(32, 1);
    behaviour = [&longest](uint32_t, CcdVariable *variable) {
        if (indexOf(*variable) >= longest) {
            return ccdErrorNoNextInstance();
        }
        moveTo(variable, longest);
        return 0;
    };
    EXPECT_EQ(next(oidOf(VALUE, Oid(31, 1))), oidOf(VALUE, longest));
    EXPECT_EQ(next(oidOf(VALUE, Oid(33, 1))), oidOf(MAC, longest));
}

TEST_F(Mib, NextBringsTheValue) {
    LinuxMibMsg message = messageOf(LINUX_MIB_GETNEXT, oidOf(VALUE, {}));
    message.length = 0xEEEEEEEE;
    EXPECT_EQ(linuxMibRequest(&message), 0);
    EXPECT_EQ(oidOf(message), oidOf(VALUE, {5}));
    EXPECT_EQ(message.type, LINUX_MIB_INTEGER);
    EXPECT_EQ(message.integer, VALUE);
    EXPECT_EQ(message.length, 4u);
    EXPECT_EQ(refused(LINUX_MIB_GETNEXT, oidOf(NUMBER, {8})), LINUX_MIB_NO_NEXT_INSTANCE);
}

TEST_F(Mib, AHandlerThatDoesNotMoveForwardHasNoNext) {
    for (const Oid &place : {Oid{}, Oid{4}, Oid{5}, Oid{4, 0xFFFFFFFF}}) {
        behaviour = [&place](uint32_t, CcdVariable *variable) {
            if (variable->object == VALUE) {
                moveTo(variable, place);
                return 0;
            }
            return behaveWell(CCD_GETNEXT, variable);
        };
        EXPECT_EQ(next(oidOf(VALUE, {5})), oidOf(MAC, {5})) << "the next object goes on";
    }
}

TEST_F(Mib, AWalkEndsWhateverAHandlerDoes) {
    behaviour = [](uint32_t, CcdVariable *variable) {
        variable->indexLength = 1;
        variable->index[0]--;
        return 0;
    };
    EXPECT_LE(walk().size(), 12u);
    behaviour = [](uint32_t, CcdVariable *variable) {
        variable->indexLength = 0xFFFFFFFF; // no index has so many arcs
        std::fill(std::begin(variable->index), std::end(variable->index), 1);
        return 0;
    };
    for (const Oid &oid : walk()) {
        EXPECT_EQ(oid.size(), oid[4] == 7 ? 7u + 32 : 5u + 32);
    }
    EXPECT_EQ(walk().size(), 6u);
}

TEST_F(Mib, MovedWithoutAValueGoesOn) {
    std::vector<Oid> asked;
    behaviour = [&asked](uint32_t, CcdVariable *variable) {
        if (variable->object != VALUE) {
            return ccdErrorNoNextInstance();
        }
        asked.push_back(indexOf(*variable));
        EXPECT_EQ(variable->integer + variable->length, 0u) << "every question is a fresh one";
        EXPECT_TRUE(std::all_of(variable->index + variable->indexLength, variable->index + CCD_INDEX_MAX,
                                [](uint32_t arc) { return arc == 0; }));
        const uint32_t number = asked.back().empty() ? 0 : asked.back()[0];
        variable->integer = variable->length = 99;
        std::fill(std::begin(variable->index), std::end(variable->index), 77);
        moveTo(variable, {number + 1});
        return number < 3 ? ccdErrorNoNextInstance() : 0;
    };
    EXPECT_EQ(next({}), oidOf(VALUE, {4}));
    EXPECT_EQ(asked, (std::vector<Oid>{{}, {1}, {2}, {3}}));
}

TEST_F(Mib, NotMovedWithoutAValueIsTheEnd) {
    behaviour = [](uint32_t, CcdVariable *) { return ccdErrorNoNextInstance(); };
    EXPECT_EQ(walk(), std::vector<Oid>{});
    EXPECT_EQ(calls, 6u) << "every object is asked once";
    calls = 0;
    behaviour = [](uint32_t, CcdVariable *variable) {
        if (variable->indexLength != 0) {
            variable->index[0]--; // backwards, without a value
        }
        return ccdErrorNoNextInstance();
    };
    EXPECT_EQ(next(oidOf(NUMBER, {5})), Oid{});
    EXPECT_EQ(calls, 1u);
}

TEST_F(Mib, AnyOtherAnswerEndsTheSearch) {
    for (const int32_t answer : {-1, 77, ccdErrorNoSuchInstance()}) {
        calls = 0;
        behaviour = [answer](uint32_t, CcdVariable *variable) {
            moveTo(variable, {9});
            return answer;
        };
        EXPECT_EQ(refused(LINUX_MIB_GETNEXT, {}), answer);
        EXPECT_EQ(calls, 1u);
    }
}
