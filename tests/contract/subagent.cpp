// libccd: registration, the questions about an index, and the answers of a handler that refuses.

#include <gtest/gtest.h>
#include <set>
#include <vector>

#include "platform/libccd.h"
#include "tests/contract/setup.h"

using Index = std::vector<uint32_t>;

static int32_t answerNothing(uint32_t, CcdVariable *) { return 0; }

// The smallest module: one scalar.
static const CcdObjectRecord RECORDS[2] = {{.number = 0,
                                            .column = 1,
                                            .maxSize = 4,
                                            .low = 0,
                                            .high = 0,
                                            .syntax = 1,
                                            .access = 3,
                                            .flags = 1,
                                            .handler = answerNothing,
                                            .reserved = 0,
                                            .name = "small:one"},
                                           {}};
static const CcdGroup GROUP = {.arcs = {1, 1, 3, 6},
                               .reserved0 = 0,
                               .arcCount = 4,
                               .indexColumns = 0,
                               .indexLength = 1,
                               .indexName = nullptr,
                               .reserved1 = {},
                               .objects = RECORDS};
static const CcdRegEntry LIST[2] = {{&GROUP, RECORDS}, {nullptr, nullptr}};

static CcdVariable variableAt(const Index &index) {
    CcdVariable variable = {};
    variable.indexLength = static_cast<uint32_t>(index.size());
    std::copy(index.begin(), index.end(), variable.index);
    return variable;
}

static Index indexOf(const CcdVariable &variable) { return {variable.index, variable.index + variable.indexLength}; }

// Where `move` leads from an index; {} when it refuses, and then nothing may have moved. Arcs behind the index are 0 afterwards.
static Index moved(int32_t (*move)(CcdVariable *), const Index &from) {
    CcdVariable variable = variableAt(from);
    if (move(&variable) != 0) {
        EXPECT_EQ(indexOf(variable), from);
        return {};
    }
    for (uint32_t arc = variable.indexLength; arc < CCD_INDEX_MAX; arc++) {
        EXPECT_EQ(variable.index[arc], 0u);
    }
    return indexOf(variable);
}

class Subagent : public testing::Test {
  protected:
    void SetUp() override { contractSetup(); }
};

TEST_F(Subagent, AModuleIsRegisteredOnce) {
    EXPECT_EQ(ccdInit(300, 4), 0);
    EXPECT_NE(ccdModuleDeRegister("small"), 0);
    EXPECT_EQ(ccdModuleRegister("small", LIST), 0);
    EXPECT_NE(ccdModuleRegister("small", LIST), 0);
    EXPECT_NE(ccdModuleDeRegister("smal"), 0);
    EXPECT_NE(ccdModuleDeRegister("smaller"), 0);
    EXPECT_EQ(ccdModuleDeRegister("small"), 0);
    EXPECT_NE(ccdModuleDeRegister("small"), 0);
    EXPECT_EQ(ccdModuleRegister("small", LIST), 0) << "there is room again";
    EXPECT_EQ(ccdModuleDeRegister("small"), 0);
}

TEST_F(Subagent, AScalarHasTheInstance0) {
    for (const uint32_t kind : {2u, 4u, 5u, 6u, 0u, 3u, 7u, 0xFFFFFFFFu}) {
        CcdVariable variable = variableAt({0});
        EXPECT_EQ(ccdScalarValidate(kind, &variable), 0);
        for (const Index &index : {Index{}, Index{1}, Index{0, 0}, Index{0xFFFFFFFF}, Index(32, 0)}) {
            variable = variableAt(index);
            EXPECT_EQ(ccdScalarValidate(kind, &variable), -1);
            EXPECT_EQ(indexOf(variable), index);
        }
    }
}

TEST_F(Subagent, ANextScalarMayBeAskedForFromAnywhere) {
    for (const Index &index : {Index{}, Index{0}, Index{1}, Index{0, 0}, Index(32, 0xFFFFFFFF)}) {
        CcdVariable variable = variableAt(index);
        EXPECT_EQ(ccdScalarValidate(CCD_GETNEXT, &variable), 0);
        EXPECT_EQ(indexOf(variable), index);
    }
}

TEST_F(Subagent, OnlyFromInFrontOfItAScalarIsNext) {
    EXPECT_EQ(moved(ccdNextScalarIndex, {}), Index{0});
    for (const Index &index : {Index{0}, Index{1}, Index{0, 0}, Index{0xFFFFFFFF}, Index(32, 0)}) {
        EXPECT_EQ(moved(ccdNextScalarIndex, index), Index{});
    }
}

TEST_F(Subagent, TheNextIntegerIndex) {
    EXPECT_EQ(moved(ccdNextSimpleIndex, {}), Index{1});
    EXPECT_EQ(moved(ccdNextSimpleIndex, {0}), Index{1});
    EXPECT_EQ(moved(ccdNextSimpleIndex, {7}), Index{8});
    EXPECT_EQ(moved(ccdNextSimpleIndex, {7, 9, 9}), Index{8});
    EXPECT_EQ(moved(ccdNextSimpleIndex, Index(32, 7)), Index{8});
    EXPECT_EQ(moved(ccdNextSimpleIndex, {0xFFFFFFFE}), Index{0xFFFFFFFF});
    EXPECT_EQ(moved(ccdNextSimpleIndex, {0xFFFFFFFF}), Index{});
    EXPECT_EQ(moved(ccdNextSimpleIndex, {0xFFFFFFFF, 1}), Index{});
}

TEST_F(Subagent, AnArcThatIsNotInUseDoesNotCount) {
    CcdVariable variable = variableAt({});
    variable.index[0] = 9;
    EXPECT_EQ(ccdNextSimpleIndex(&variable), 0);
    EXPECT_EQ(indexOf(variable), Index{1});
    variable = variableAt({});
    variable.index[0] = 9;
    EXPECT_EQ(ccdNextScalarIndex(&variable), 0);
    EXPECT_EQ(indexOf(variable), Index{0});
}

TEST_F(Subagent, RefusalsCanBeToldApart) {
    const std::set<int32_t> refusals = {0,
                                        -1,
                                        ccdErrorNoSuchInstance(),
                                        ccdErrorNoNextInstance(),
                                        ccdErrorInvalidRange(),
                                        ccdErrorInvalidLength(),
                                        ccdErrorWrongValue(),
                                        ccdErrorTooBig(),
                                        ccdErrorCommitFailed(),
                                        ccdErrorResourceUnavail(),
                                        ccdErrorRequestMap(CCD_COMMIT)};
    EXPECT_EQ(refusals.size(), 11u) << "and none of them is a success or a plain failure";
}

TEST_F(Subagent, ARefusedRequestIsMappedByItsKind) {
    EXPECT_EQ(ccdErrorRequestMap(CCD_GETNEXT), ccdErrorNoNextInstance());
    EXPECT_EQ(ccdErrorRequestMap(CCD_GET), ccdErrorNoSuchInstance());
    for (const uint32_t kind : {4u, 5u, 0u, 3u, 7u, 0xFFFFFFFFu}) {
        EXPECT_EQ(ccdErrorRequestMap(kind), ccdErrorRequestMap(CCD_COMMIT));
    }
}
